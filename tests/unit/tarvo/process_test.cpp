// Several processes on one data directory at once: nothing is lost, every
// change is in the event log, racing first binds all succeed, and readers
// do not wait for a writer.
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <functional>

#include "bind.h"
#include "settings.h"
#include "test_util.h"

namespace {

// Runs body(0) .. body(n-1) in forked children at once; each one's result
// is its exit status, which must be 0.
void in_children(int n, const std::function<int(int)> &body)
{
    std::vector<pid_t> children;
    for (int id = 0; id < n; ++id) {
        pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0)
            _exit(body(id));
        children.push_back(pid);
    }
    for (pid_t pid : children) {
        int status = 0;
        ASSERT_EQ(pid, waitpid(pid, &status, 0));
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0)
            << "child " << pid << " status " << status;
    }
}

TEST(Processes, ConcurrentWritersLoseNothing)
{
    constexpr int WRITERS = 4;
    constexpr int ITEMS = 150;
    tarvo_test::DataDir dir;
    {
        tarvo_test::Bound b("/p");
        ASSERT_EQ(0, b.create_u32("shared", 0));
    }
    // The exit status is the number of failed calls.
    in_children(WRITERS, [](int id) {
        tarvo_bind_h_td h = nullptr;
        if (_tarvo_bind(&h, "/p", 0))
            return 100;
        int failures = 0;
        for (int i = 0; i < ITEMS; ++i) {
            std::string path = std::string("w").append(std::to_string(id));
            path.append("/i").append(std::to_string(i));
            uint32_t v = id * 1000 + i;
            failures += tarvo_item_create(h, path.c_str(), TARVO_DATATYPE_UINT32, &v, 4, 0, 0) != 0;
            failures += tarvo_item_set(h, "shared", TARVO_DATATYPE_UINT32, &v, 4, 0) != 0;
            // Reads in between see a consistent directory.
            uint32_t count = 0xFFFFFFFF;
            tarvo_list_h_td list = nullptr;
            failures += tarvo_list(h, "", "", &count, &list, 0) != 0;
            tarvo_list_free(list);
        }
        _tarvo_unbind(h);
        return failures > 99 ? 99 : failures;
    });
    tarvo_test::Bound b("/p");
    for (int id = 0; id < WRITERS; ++id) {
        std::string dir = std::string("w").append(std::to_string(id));
        EXPECT_EQ(size_t{ITEMS}, b.names(dir.c_str(), 50).size()) << id;
    }
    auto shared = b.get("shared");
    ASSERT_EQ(TARVO_DATATYPE_UINT32, shared.first);
    uint32_t last;
    memcpy(&last, shared.second.data(), 4);
    EXPECT_EQ(static_cast<uint32_t>(ITEMS - 1), last % 1000);  // some writer's final set
    tarvo::StoreStats stats;
    ASSERT_TRUE(b.h->store->stats(&stats).ok());
    EXPECT_EQ(1u + 2u * WRITERS * ITEMS, stats.events);
    EXPECT_EQ(1u + WRITERS * ITEMS, stats.items);
}

// The first binds to a fresh data directory race to create the store file
// and its schema.
TEST(Processes, SimultaneousFirstBinds)
{
    tarvo_test::DataDir dir;
    in_children(6, [](int id) {
        tarvo_bind_h_td h = nullptr;
        int rc = _tarvo_bind(&h, "/", TARVO_BIND_OPTION_ADMIN_PLANE);
        uint32_t v = id;
        std::string path = "/first/" + std::to_string(id);
        if (!rc)
            rc = tarvo_item_create(h, path.c_str(), TARVO_DATATYPE_UINT32, &v, 4, 0, 0);
        if (rc)
            fprintf(stderr, "child %d: %x\n", id, rc);
        return rc ? 1 : 0;
    });
    tarvo_test::Bound b("/first", TARVO_BIND_OPTION_ADMIN_PLANE);
    EXPECT_EQ(6u, b.names("").size());
}

// Another process holds the write lock of the store for longer than the busy
// timeout: a new bind and its reads go through at once, a write waits for
// the timeout and fails with BUSY.
TEST(Processes, ReadersDoNotWaitForAWriter)
{
    using Clock = std::chrono::steady_clock;
    constexpr int TIMEOUT_MS = 1000;
    tarvo_test::DataDir dir;
    ASSERT_TRUE(tarvo::save_setting(dir.path(), "busy_timeout_ms", std::to_string(TIMEOUT_MS)).ok());
    {
        tarvo_test::Bound b("/r");
        ASSERT_EQ(0, b.create_u32("a", 1));
    }
    int held[2];
    ASSERT_EQ(0, pipe(held));
    pid_t writer = fork();
    ASSERT_GE(writer, 0);
    if (writer == 0) {
        sqlite3 *db = nullptr;
        bool ok = sqlite3_open((dir.path() + "/shared.db").c_str(), &db) == SQLITE_OK &&
                  sqlite3_exec(db, "BEGIN IMMEDIATE; DELETE FROM nodes;", nullptr, nullptr,
                               nullptr) == SQLITE_OK;
        ok = write(held[1], ok ? "y" : "n", 1) == 1 && ok;
        usleep(3 * TIMEOUT_MS * 1000);
        sqlite3_exec(db, "ROLLBACK", nullptr, nullptr, nullptr);
        sqlite3_close(db);
        _exit(ok ? 0 : 1);
    }
    char c = 0;
    ASSERT_EQ(1, read(held[0], &c, 1));
    ASSERT_EQ('y', c);
    auto start = Clock::now();
    {
        tarvo_test::Bound b("/r");
        ASSERT_NE(nullptr, b.h);
        EXPECT_EQ(TARVO_DATATYPE_UINT32, b.get("a").first);
        EXPECT_EQ(std::vector<std::string>{"a:1"}, b.names(""));
        uint32_t v = 7;
        EXPECT_EQ(0, tarvo_item_verify(b.h, "a", TARVO_DATATYPE_UINT32, &v, 4, 0));
        EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(TIMEOUT_MS));
        start = Clock::now();
        EXPECT_EQ(TARVO_ERR_BUSY, b.create_u32("b", 2));
        EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(TIMEOUT_MS * 9 / 10));
    }
    int status = 0;
    ASSERT_EQ(writer, waitpid(writer, &status, 0));
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    close(held[0]);
    close(held[1]);
}

}  // namespace
