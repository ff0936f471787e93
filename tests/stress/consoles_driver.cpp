// The writer and the checker of the test of consoles on one data directory
// (four_consoles.sh).
//
//   consoles_driver commands <seed> <console> <consoles> <ops>   a command file
//   consoles_driver check <seed> <consoles> <ops> <dir>
//
// Console c works below /many/c<c>/: plain creates, sets and deletes of
// k/k<0..49>; transactions setting t/0..t/9 to one value; atomic bulks
// setting b/0..b/99 to one value and deleting a k item. It also takes the
// write lock on /many/shared, sets /many/shared/owner to a value of its own
// and reads it back before it unlocks; sets owner without a lock, which the
// store must refuse while another console holds it; and lists the t/ and b/
// directories of the other consoles.
//
// The check, from the store and <dir>/out<c> (each console's output):
// every console's subtree is exactly what its own operations imply; a
// console holding the lock read back its own owner value every time (no
// other writer came in between); every listing of a t/ or b/ directory
// showed all of its items with one value (no half of a transaction or a
// bulk). The script checks that nothing else was refused.
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "platform/tarvo.h"

namespace {

constexpr uint32_t KEYS = 50, TRANS_ITEMS = 10, BULK_ITEMS = 100;

using Tree = std::map<std::string, uint32_t>;  // path below /many/c<c>/ -> value

// The command file of console `console`; *tree gets what it leaves.
std::string commands(unsigned seed, uint32_t console, uint32_t consoles, uint32_t ops,
                     Tree *tree)
{
    std::mt19937 rng(seed * 131 + console);
    const std::string me = "/many/c" + std::to_string(console) + "/";
    std::string out = "/many\n";
    uint32_t written = 0, value = 0;
    auto write = [&](const std::string &path, uint32_t v) {
        out += (tree->count(path) ? "set " : "create ") + me + path + " uint32 " +
               std::to_string(v) + "\n";
        (*tree)[path] = v;
        ++written;
    };
    while (written < ops) {
        ++value;
        const uint32_t what = rng() % 20;
        if (what < 8) {
            const std::string k = "k/k" + std::to_string(rng() % KEYS);
            if (tree->count(k) && rng() % 2) {
                out += "delete " + me + k + "\n";
                tree->erase(k);
                ++written;
            } else {
                write(k, value);
            }
        } else if (what < 10) {
            out += "starttrans\n";
            for (uint32_t n = 0; n < TRANS_ITEMS; ++n)
                write("t/" + std::to_string(n), value);
            out += "committrans\n";
        } else if (what < 11) {
            out += "startbulk -atomic\n";
            for (uint32_t n = 0; n < BULK_ITEMS; ++n)
                write("b/" + std::to_string(n), value);
            const std::string k = "k/k" + std::to_string(rng() % KEYS);
            if (tree->count(k)) {
                out += "delete " + me + k + "\n";
                tree->erase(k);
            }
            out += "endbulk\n";
        } else if (what < 14) {
            const std::string id = std::to_string(console * 1000000 + value);
            out += "wrlock /many/shared\nset /many/shared/owner uint32 " + id +
                   "\nget /many/shared/owner\nunlock /many/shared\n";
            ++written;
        } else if (what < 15) {
            out += "set /many/shared/owner uint32 " + std::to_string(value) + "\n";
        } else {
            const std::string other = std::to_string(rng() % consoles);
            out += "datalist /many/c" + other + (rng() % 2 ? "/t" : "/b") + "\n";
        }
    }
    return out;
}

// The number at the end of a listing line: [uint32 (len 4)] <tab>'name'   7 (0x07)
bool listed_value(const std::string &line, std::string *name, uint32_t *value)
{
    size_t open = line.find('\''), close = line.find('\'', open + 1);
    if (line.rfind("[uint32", 0) != 0 || open == std::string::npos || close == std::string::npos)
        return false;
    *name = line.substr(open + 1, close - open - 1);
    *value = static_cast<uint32_t>(std::strtoul(line.c_str() + close + 1, nullptr, 10));
    return true;
}

// What console `console` printed: its lock windows and its listings.
std::string check_output(const std::string &file, uint32_t console, uint32_t *windows,
                         uint32_t *listings)
{
    std::ifstream in(file);
    std::string line, command, owned;
    bool holding = false;
    while (std::getline(in, line)) {
        if (line.rfind("Command ", 0) == 0) {
            command = line.substr(line.find(": ") + 2);
            if (command.rfind("unlock", 0) == 0)
                holding = false;
            if (holding && command.rfind("set /many/shared/owner uint32 ", 0) == 0)
                owned = command.substr(std::strlen("set /many/shared/owner uint32 "));
            if (command.rfind("datalist ", 0) != 0)
                continue;
            // The listing runs to the blank line after it.
            std::vector<uint32_t> values;
            std::string name;
            uint32_t v;
            while (std::getline(in, line) && !line.empty())
                if (listed_value(line, &name, &v))
                    values.push_back(v);
            const size_t full = command.back() == 't' ? TRANS_ITEMS : BULK_ITEMS;
            for (uint32_t x : values)
                if (x != values.front() || values.size() != full)
                    return "console " + std::to_string(console) + " saw half a commit in `" +
                           command + "`: " + std::to_string(values.size()) + " items, " +
                           std::to_string(values.front()) + " and " + std::to_string(x);
            *listings += !values.empty();
        } else if (line == "Write lock acquired successfully") {
            holding = true;
            owned.clear();
            ++*windows;
        } else if (holding && command == "get /many/shared/owner" && !line.empty()) {
            std::string name;
            uint32_t v;
            if (!listed_value(line, &name, &v) || std::to_string(v) != owned)
                return "console " + std::to_string(console) + " held the lock on /many/shared" +
                       " and set owner to " + owned + " but read back: " + line;
        }
    }
    return "";
}

// The items below /many/c<console>/<dir> as the store holds them.
void read_dir(tarvo_bind_h_td h, uint32_t console, const std::string &dir, Tree *tree)
{
    tarvo_datalist_h_td list = nullptr;
    const std::string path = "/many/c" + std::to_string(console) + "/" + dir;
    if (tarvo_chunk_datalist(h, path.c_str(), "", 1000, &list, 0))
        return;
    char *name;
    tarvo_item_datatype_td dt;
    void *value;
    uint32_t len, v = 0;
    while (tarvo_datalist_next(list, &name, &dt, &value, &len, nullptr) == 0 && name) {
        if (len == 4)
            memcpy(&v, value, 4);
        (*tree)[dir + "/" + name] = dt == TARVO_DATATYPE_UINT32 ? v : ~0u;
    }
    tarvo_datalist_free(list);
}

int check(unsigned seed, uint32_t consoles, uint32_t ops, const std::string &dir)
{
    tarvo_bind_h_td h = nullptr;
    if (_tarvo_bind(&h, "/many", 0)) {
        std::printf("cannot bind\n");
        return 1;
    }
    uint32_t windows = 0, listings = 0, items = 0;
    for (uint32_t c = 0; c < consoles; ++c) {
        Tree expected, found;
        commands(seed, c, consoles, ops, &expected);
        for (const char *sub : {"k", "t", "b"})
            read_dir(h, c, sub, &found);
        items += static_cast<uint32_t>(found.size());
        if (found != expected) {
            std::printf("console %u: the store holds %zu items below /many/c%u, its operations "
                        "imply %zu, or their values differ\n",
                        c, found.size(), c, expected.size());
            return 1;
        }
        const std::string problem =
            check_output(dir + "/out" + std::to_string(c), c, &windows, &listings);
        if (!problem.empty()) {
            std::printf("%s\n", problem.c_str());
            return 1;
        }
    }
    _tarvo_unbind(h);
    std::printf("ok: %u consoles x %u operations; %u items as implied, %u lock windows held "
                "alone, %u listings of whole commits\n",
                consoles, ops, items, windows, listings);
    return 0;
}

}  // namespace

int main(int argc, char **argv)
{
    auto number = [&](int i) { return static_cast<uint32_t>(std::strtoul(argv[i], nullptr, 10)); };
    if (argc == 6 && !std::strcmp(argv[1], "commands")) {
        Tree tree;
        std::string out = commands(number(2), number(3), number(4), number(5), &tree);
        return std::fwrite(out.data(), 1, out.size(), stdout) == out.size() ? 0 : 4;
    }
    if (argc == 6 && !std::strcmp(argv[1], "check"))
        return check(number(2), number(3), number(4), argv[5]);
    std::fprintf(stderr, "usage: consoles_driver commands <seed> <console> <consoles> <ops> |"
                         " check <seed> <consoles> <ops> <dir>\n");
    return 2;
}
