// The writer and the checker of the crash test (crash_commits.sh).
//
//   crash_driver commands <seed> <rounds> <dir>   a console command file of
//                                                rounds; their files in <dir>
//   crash_driver check <log> <dir>                checks the store of
//                                                TARVO_DATA_DIR and <dir>
//
// Round r is one commit that creates K items /crash/r<r>/i<n> holding r,
// records K in /crash/count/r<r> and sets /crash/next to r + 1. It is one
// of five kinds: a transaction; a bulk ended atomically; a bulk ended
// without the atomic option; a restore of a saved tree (r<r>.xnf, holding
// the round's items, its count and the new next) with -update -atomic; or
// an atomic bulk that adds a diff file (r<r>.xnd, the same changes) and is
// ended by cfgmgr_endbulk saving its changes to e<r>.xnd. Every round but a
// restore also deletes each earlier round up to r - 3 that is still there,
// recording that in /crash/deleted/r<k>, so that the store stays small.
// The command file starts at the round in /crash/next and says so in its
// first line, "# first round <r>"; the script turns what the console
// printed into the log's "commit <r>" (its commit began) and "done <r>"
// (it was reported done).
//
// The check: the store passes its integrity check; every round below
// /crash/next is there with exactly its K items, or deleted with its
// marker; no trace of a round at or past /crash/next; the last round
// reported done is below /crash/next; a diff saved by cfgmgr_endbulk exists
// only for a round that was committed, and holds that round's changes.
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <random>
#include <set>
#include <string>

#include "platform/tarvo.h"
#include "settings.h"
#include "store.h"
#include "xfiles.h"

namespace {

constexpr auto U32 = TARVO_DATATYPE_UINT32;

enum Kind { TRANSACTION, ATOMIC_BULK, BULK, RESTORE, DIFF_BULK, KINDS };

uint32_t read_u32(tarvo_bind_h_td h, const std::string &path, bool *found)
{
    tarvo_item_datatype_td dt = U32;
    void *value = nullptr;
    uint32_t len = 0, v = 0;
    *found = tarvo_item_get(h, path.c_str(), &dt, &value, &len, 0) == 0;
    if (*found && len == 4)
        memcpy(&v, value, 4);
    free(value);
    return v;
}

std::string u32_bytes(uint32_t v)
{
    std::string bytes(4, '\0');
    for (int i = 0; i < 4; ++i)
        bytes[i] = static_cast<char>(v >> (8 * i));  // files keep integers little-endian
    return bytes;
}

// Rounds whose count item is there: the rounds committed and not deleted.
std::set<uint32_t> live_rounds(tarvo_bind_h_td h)
{
    std::set<uint32_t> rounds;
    tarvo_datalist_h_td list = nullptr;
    if (tarvo_chunk_datalist(h, "/crash/count", "", 1000, &list, 0))
        return rounds;
    char *name;
    tarvo_item_datatype_td dt;
    void *value;
    uint32_t len;
    while (tarvo_datalist_next(list, &name, &dt, &value, &len, nullptr) == 0 && name)
        if (name[0] == 'r')
            rounds.insert(static_cast<uint32_t>(std::strtoul(name + 1, nullptr, 10)));
    tarvo_datalist_free(list);
    return rounds;
}

// The changes of round `round` relative to /crash, as records of a diff.
std::vector<tarvo::DiffRecord> round_changes(uint32_t round, uint32_t items, bool next_exists)
{
    const std::string r = std::to_string(round);
    std::vector<tarvo::DiffRecord> changes;
    auto add = [&](uint32_t kind, const std::string &path, const std::string &old_value,
                   const std::string &new_value) {
        tarvo::DiffRecord c;
        c.kind = kind;
        c.path = path;
        c.datatype = U32;
        c.has_old = kind != TARVO_EVENT_CREATE;
        c.has_new = true;
        c.old_value = old_value;
        c.new_value = new_value;
        changes.push_back(std::move(c));
    };
    for (uint32_t n = 0; n < items; ++n)
        add(TARVO_EVENT_CREATE, "r" + r + "/i" + std::to_string(n), "", u32_bytes(round));
    add(TARVO_EVENT_CREATE, "count/r" + r, "", u32_bytes(items));
    if (next_exists)
        add(TARVO_EVENT_SET, "next", u32_bytes(round), u32_bytes(round + 1));
    else
        add(TARVO_EVENT_CREATE, "next", "", u32_bytes(round + 1));
    return changes;
}

bool write_file(const std::string &name, const std::string &bytes)
{
    std::ofstream out(name, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return static_cast<bool>(out.flush());
}

// The console lines of round `round`, and the files they read.
bool round_lines(std::string *out, uint32_t round, Kind kind, uint32_t items, bool next_exists,
                 std::set<uint32_t> *live, const std::string &dir)
{
    const std::string r = std::to_string(round);
    const std::string file = dir + "/r" + r + (kind == RESTORE ? ".xnf" : ".xnd");
    std::vector<tarvo::DiffRecord> changes = round_changes(round, items, next_exists);
    if (kind == RESTORE) {
        tarvo::SavedTree tree;
        tree.source = "/crash/";
        for (tarvo::DiffRecord &c : changes)
            tree.items.push_back({c.path, c.datatype, c.new_value});
        live->insert(round);
        *out += "filerestore " + file + " -dest /crash -update -atomic\n";
        return write_file(file, tarvo::encode_tree(tree));
    }
    *out += kind == TRANSACTION ? "starttrans\n" : kind == BULK ? "startbulk\n" : "startbulk -atomic\n";
    if (kind == DIFF_BULK) {
        tarvo::Diff diff;
        diff.base = "/crash/";
        diff.records = std::move(changes);
        if (!write_file(file, tarvo::encode_diff(diff)))
            return false;
        *out += "cfgmgr_adddiffs " + file + " -dest /crash\n";
    } else {
        for (uint32_t n = 0; n < items; ++n)
            *out += "create /crash/r" + r + "/i" + std::to_string(n) + " uint32 " + r + "\n";
        *out += "create /crash/count/r" + r + " uint32 " + std::to_string(items) + "\n";
        *out += std::string(next_exists ? "set" : "create") + " /crash/next uint32 " +
                std::to_string(round + 1) + "\n";
    }
    for (auto old = live->begin(); old != live->end() && *old + 3 <= round;) {
        const std::string o = std::to_string(*old);
        *out += "delete /crash/r" + o + "/\ndelete /crash/count/r" + o +
                "\ncreate /crash/deleted/r" + o + " uint32 1\n";
        old = live->erase(old);
    }
    live->insert(round);
    *out += kind == TRANSACTION ? "committrans\n"
            : kind == DIFF_BULK ? "cfgmgr_endbulk " + dir + "/e" + r + ".xnd\n"
                                : "endbulk\n";
    return true;
}

int write_commands(unsigned seed, uint32_t rounds, const std::string &dir)
{
    std::mt19937 rng(seed);
    tarvo_bind_h_td h = nullptr;
    if (_tarvo_bind(&h, "/crash", 0))
        return 2;
    bool next_exists = false;
    const uint32_t first = read_u32(h, "/crash/next", &next_exists);
    std::set<uint32_t> live = live_rounds(h);
    _tarvo_unbind(h);
    std::string out = "# first round " + std::to_string(first) + "\n/crash\n";
    for (uint32_t round = first; round < first + rounds; ++round) {
        const auto kind = static_cast<Kind>(rng() % KINDS);
        const uint32_t items = kind == TRANSACTION ? 1 + rng() % 50 : 1 + rng() % 2000;
        if (!round_lines(&out, round, kind, items, next_exists, &live, dir))
            return 3;
        next_exists = true;
    }
    return std::fwrite(out.data(), 1, out.size(), stdout) == out.size() ? 0 : 4;
}

int fail(const std::string &why)
{
    std::printf("damaged: %s\n", why.c_str());
    return 1;
}

// Every item of /crash/r<round>/ holds `round`; their number.
bool round_items(tarvo_bind_h_td h, uint32_t round, uint32_t *count)
{
    *count = 0;
    tarvo_datalist_h_td list = nullptr;
    std::string dir = "/crash/r" + std::to_string(round);
    if (tarvo_chunk_datalist(h, dir.c_str(), "", 1000, &list, 0))
        return true;  // no such directory
    char *name;
    tarvo_item_datatype_td dt;
    void *value;
    uint32_t len;
    bool good = true;
    while (tarvo_datalist_next(list, &name, &dt, &value, &len, nullptr) == 0 && name) {
        uint32_t v = 0;
        if (len == 4)
            memcpy(&v, value, 4);
        good = good && dt == U32 && v == round;
        ++*count;
    }
    tarvo_datalist_free(list);
    return good;
}

// What the diff file e<round>.xnd says of the round itself: its creates
// below r<round>/, all holding round, as many as its count records, and
// next set past it. "" when it does; "" also when there is no such file.
std::string saved_diff_problem(const std::string &dir, uint32_t round)
{
    const std::string name = dir + "/e" + std::to_string(round) + ".xnd";
    if (access(name.c_str(), F_OK) != 0)
        return "";
    std::string bytes;
    tarvo::Diff diff;
    tarvo::Status s = tarvo::read_file(name, &bytes);
    if (s.ok())
        s = tarvo::decode_diff(bytes, &diff);
    if (!s.ok())
        return name + " cannot be read: " + s.detail;
    const std::string r = "r" + std::to_string(round);
    const std::string mine = u32_bytes(round);
    uint32_t items = 0;
    std::string count, next;
    for (const tarvo::DiffRecord &c : diff.records) {
        if (c.path.rfind(r + "/", 0) == 0) {
            if (c.kind != TARVO_EVENT_CREATE || c.new_value != mine)
                return name + " holds another change of " + c.path;
            ++items;
        } else if (c.path == "count/" + r) {
            count = c.new_value;
        } else if (c.path == "next") {
            next = c.new_value;
        }
    }
    if (count != u32_bytes(items) || next != u32_bytes(round + 1))
        return name + " does not hold the round's count and next";
    return "";
}

int check(const char *log, const std::string &files)
{
    std::string dir;
    std::vector<std::string> problems;
    tarvo::Status s = tarvo::resolve_data_dir(&dir);
    if (s.ok())
        s = tarvo::read_sqlite_store(tarvo::plane_file(dir, tarvo::Plane::SHARED),
                                     [&](tarvo::Store &store) { return store.check(&problems); });
    if (!s.ok())
        return fail(std::string(tarvo::code_text(s.code)) + ": " + s.detail);
    if (!problems.empty())
        return fail(problems.front());

    tarvo_bind_h_td h = nullptr;
    if (_tarvo_bind(&h, "/crash", 0))
        return fail("cannot bind");
    bool found = false;
    const uint32_t next = read_u32(h, "/crash/next", &found);
    long done = -1, number = -1;
    std::string word, last;
    std::ifstream in(log);
    while (in >> word >> number) {
        last = word;
        if (word == "done")
            done = number;
    }
    if (done >= static_cast<long>(next))
        return fail("round " + std::to_string(done) + " was reported done, next is " +
                    std::to_string(next));
    for (uint32_t round = 0; round < next + 100; ++round) {
        const std::string r = "r" + std::to_string(round);
        bool counted = false, deleted = false;
        const uint32_t expected = read_u32(h, "/crash/count/" + r, &counted);
        read_u32(h, "/crash/deleted/" + r, &deleted);
        uint32_t items = 0;
        if (!round_items(h, round, &items))
            return fail(r + " holds a value of another round");
        if (round >= next && (counted || deleted || items))
            return fail(r + " is at or past next " + std::to_string(next));
        if (round < next && deleted && (counted || items))
            return fail(r + " is deleted but still has " + std::to_string(items) + " items");
        if (round < next && !deleted && (!counted || items != expected))
            return fail(r + " has " + std::to_string(items) + " of " + std::to_string(expected) +
                        " items");
        const std::string diff = saved_diff_problem(files, round);
        if (!diff.empty())
            return fail(diff);
        if (round >= next && access((files + "/e" + std::to_string(round) + ".xnd").c_str(),
                                    F_OK) == 0)
            return fail("a diff was saved for " + r + ", which is at or past next");
    }
    _tarvo_unbind(h);
    std::printf("ok: %u rounds", next);
    if (last == "commit")
        std::printf(", killed in the commit of round %ld (%s)", number,
                    number < static_cast<long>(next) ? "applied" : "not applied");
    std::printf("\n");
    return 0;
}

}  // namespace

int main(int argc, char **argv)
{
    if (argc == 5 && !std::strcmp(argv[1], "commands"))
        return write_commands(static_cast<unsigned>(std::strtoul(argv[2], nullptr, 10)),
                              static_cast<uint32_t>(std::strtoul(argv[3], nullptr, 10)),
                              argv[4]);
    if (argc == 4 && !std::strcmp(argv[1], "check"))
        return check(argv[2], argv[3]);
    std::fprintf(stderr,
                 "usage: crash_driver commands <seed> <rounds> <dir> | check <log> <dir>\n");
    return 2;
}
