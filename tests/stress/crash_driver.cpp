// The writer and the checker of the crash test (crash_commits.sh).
//
//   crash_driver write <seed>   commits rounds until it is killed
//   crash_driver check <log>    checks the store of TARVO_DATA_DIR
//
// Round r is one commit (a transaction, or a bulk ended atomically or not):
// it creates K items /crash/r<r>/i<n> holding r, records K in
// /crash/count/r<r>, sets /crash/next to r + 1, and now and then deletes an
// earlier round whole, recording that in /crash/deleted/r<i>. The writer
// appends "commit <r>" to its standard output before it commits or ends the
// bulk, and "done <r>" after.
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

int put_u32(tarvo_bind_h_td h, const std::string &path, uint32_t v)
{
    return tarvo_item_set(h, path.c_str(), U32, &v, 4, TARVO_SET_OPTION_CREATE);
}

// One round's requests, inside the transaction or bulk already started.
int round_requests(tarvo_bind_h_td h, uint32_t round, uint32_t items, std::mt19937 &rng)
{
    const std::string dir = "/crash/r" + std::to_string(round) + "/";
    for (uint32_t n = 0; n < items; ++n) {
        int rc = put_u32(h, dir + "i" + std::to_string(n), round);
        if (rc)
            return rc;
    }
    int rc = put_u32(h, "/crash/count/r" + std::to_string(round), items);
    if (!rc && round >= 3 && rng() % 3 == 0) {
        const std::string old = std::to_string(round - 3);
        bool deleted = false;
        read_u32(h, "/crash/deleted/r" + old, &deleted);
        if (!deleted) {
            rc = tarvo_item_delete(h, ("/crash/r" + old + "/").c_str(), 0);
            if (!rc)
                rc = tarvo_item_delete(h, ("/crash/count/r" + old).c_str(), 0);
            if (!rc)
                rc = put_u32(h, "/crash/deleted/r" + old, 1);
        }
    }
    return rc ? rc : put_u32(h, "/crash/next", round + 1);
}

bool report(const char *what, uint32_t round)
{
    char line[32];
    int n = std::snprintf(line, sizeof line, "%s %u\n", what, round);
    return write(1, line, n) == n;
}

int write_rounds(unsigned seed)
{
    std::mt19937 rng(seed);
    tarvo_bind_h_td h = nullptr;
    if (_tarvo_bind(&h, "/crash", 0))
        return 2;
    bool found = false;
    for (uint32_t round = read_u32(h, "/crash/next", &found);; ++round) {
        const uint32_t kind = rng() % 3;
        const uint32_t items = kind == 0 ? 1 + rng() % 50 : 1 + rng() % 10000;
        int rc = kind == 0 ? tarvo_transaction_start(h, 300, 0, 0)
                           : tarvo_bulk_start(h, kind == 1 ? TARVO_BULK_OPTION_ATOMIC : 0);
        if (!rc)
            rc = round_requests(h, round, items, rng);
        if (!rc && !report("commit", round))
            return 4;
        if (!rc)
            rc = kind == 0 ? tarvo_transaction_commit(h) : tarvo_bulk_end(h);
        if (rc) {
            std::fprintf(stderr, "round %u failed: 0x%x\n", round, static_cast<unsigned>(rc));
            return 3;
        }
        if (!report("done", round))
            return 4;
    }
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
    std::unique_ptr<tarvo::Store> store;
    tarvo::Status s = tarvo::resolve_data_dir(&dir);
    if (s.ok())
        s = tarvo::open_sqlite_store_existing(tarvo::plane_file(dir, tarvo::Plane::SHARED), {},
                                              &store);
    std::vector<std::string> problems;
    if (s.ok())
        s = store->check(&problems);
    if (!s.ok())
        return fail(std::string(tarvo::code_text(s.code)) + ": " + s.detail);
    if (!problems.empty())
        return fail(problems.front());
    store.reset();

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
    if (argc == 3 && !std::strcmp(argv[1], "write"))
        return write_rounds(static_cast<unsigned>(std::strtoul(argv[2], nullptr, 10)));
    if (argc == 3 && !std::strcmp(argv[1], "check"))
        return check(argv[2]);
    std::fprintf(stderr, "usage: crash_driver write <seed> | check <log>\n");
    return 2;
}
