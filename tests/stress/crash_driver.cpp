// The writer and the checker of the crash test (crash_commits.sh).
//
//   crash_driver commands <seed> <rounds>   a console command file of rounds
//   crash_driver check <log>                checks the store of TARVO_DATA_DIR
//
// Round r is one commit (a transaction, or a bulk ended atomically or not):
// it creates K items /crash/r<r>/i<n> holding r, records K in
// /crash/count/r<r>, sets /crash/next to r + 1, and deletes round r - 3
// whole (so that the store stays small), recording that in
// /crash/deleted/r<r - 3>. The command file starts at the round in
// /crash/next and says so in its first line, "# first round <r>"; the
// script turns what the console printed into the log's "commit <r>" (its
// commit or bulk end began) and "done <r>" (it was reported done).
//
// The check: the store passes its integrity check; every round below
// /crash/next is there with exactly its K items, or deleted with its
// marker; no trace of a round at or past /crash/next; the last round
// reported done is below /crash/next.
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <random>
#include <string>

#include "platform/tarvo.h"
#include "settings.h"
#include "store.h"

namespace {

constexpr auto U32 = TARVO_DATATYPE_UINT32;

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

// The console lines of round `round` with `items` items, inside the
// transaction or bulk already started. `old_deleted`: round - 3 is gone
// already; `next_exists`: /crash/next is there to be set.
void round_lines(std::string *out, uint32_t round, uint32_t items, bool old_deleted,
                 bool next_exists)
{
    const std::string r = std::to_string(round);
    for (uint32_t n = 0; n < items; ++n)
        *out += "create /crash/r" + r + "/i" + std::to_string(n) + " uint32 " + r + "\n";
    *out += "create /crash/count/r" + r + " uint32 " + std::to_string(items) + "\n";
    if (round >= 3 && !old_deleted) {
        const std::string old = std::to_string(round - 3);
        *out += "delete /crash/r" + old + "/\n";
        *out += "delete /crash/count/r" + old + "\n";
        *out += "create /crash/deleted/r" + old + " uint32 1\n";
    }
    *out += std::string(next_exists ? "set" : "create") + " /crash/next uint32 " +
            std::to_string(round + 1) + "\n";
}

int write_commands(unsigned seed, uint32_t rounds)
{
    std::mt19937 rng(seed);
    tarvo_bind_h_td h = nullptr;
    if (_tarvo_bind(&h, "/crash", 0))
        return 2;
    bool next_exists = false;
    const uint32_t first = read_u32(h, "/crash/next", &next_exists);
    std::string out = "# first round " + std::to_string(first) + "\n/crash\n";
    for (uint32_t round = first; round < first + rounds; ++round) {
        const uint32_t kind = rng() % 3;
        const uint32_t items = kind == 0 ? 1 + rng() % 50 : 1 + rng() % 2000;
        bool old_deleted = false;
        if (round >= 3 && round - 3 < first)
            read_u32(h, "/crash/deleted/r" + std::to_string(round - 3), &old_deleted);
        out += kind == 0 ? "starttrans\n" : kind == 1 ? "startbulk -atomic\n" : "startbulk\n";
        round_lines(&out, round, items, old_deleted, next_exists);
        out += kind == 0 ? "committrans\n" : "endbulk\n";
        next_exists = true;
    }
    _tarvo_unbind(h);
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

int check(const char *log)
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
    for (uint32_t round = 0; round < next + 3; ++round) {
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
    if (argc == 4 && !std::strcmp(argv[1], "commands"))
        return write_commands(static_cast<unsigned>(std::strtoul(argv[2], nullptr, 10)),
                              static_cast<uint32_t>(std::strtoul(argv[3], nullptr, 10)));
    if (argc == 3 && !std::strcmp(argv[1], "check"))
        return check(argv[2]);
    std::fprintf(stderr, "usage: crash_driver commands <seed> <rounds> | check <log>\n");
    return 2;
}
