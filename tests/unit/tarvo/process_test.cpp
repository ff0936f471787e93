// Several processes on one data directory at once: nothing is lost, every
// change is in the event log, racing first binds all succeed, locks hold
// across processes and die with their holder, and a transaction or an
// atomic bulk is seen by the others all at once.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

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
            std::string path = "w" + std::to_string(id) + "/i" + std::to_string(i);
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
    for (int id = 0; id < WRITERS; ++id)
        EXPECT_EQ(size_t{ITEMS}, b.names(("w" + std::to_string(id)).c_str(), 50).size()) << id;
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

// One byte at a time between a parent and its child, both ways.
class Channel {
public:
    Channel()
    {
        EXPECT_EQ(0, pipe(down_));
        EXPECT_EQ(0, pipe(up_));
    }
    ~Channel()
    {
        for (int fd : {down_[0], down_[1], up_[0], up_[1]})
            close(fd);
    }
    void to_child(char c) { EXPECT_EQ(1, write(down_[1], &c, 1)); }
    char from_parent()
    {
        char c = 0;
        return read(down_[0], &c, 1) == 1 ? c : 0;
    }
    void to_parent(char c)
    {
        if (write(up_[1], &c, 1) != 1)
            _exit(90);
    }
    char from_child()
    {
        char c = 0;
        return read(up_[0], &c, 1) == 1 ? c : 0;
    }

private:
    int down_[2], up_[2];
};

// Runs `child` in a forked process; its exit status is its result.
pid_t spawn(const std::function<int()> &child)
{
    pid_t pid = fork();
    if (pid == 0)
        _exit(child());
    return pid;
}

int exit_status(pid_t pid)
{
    int status = 0;
    EXPECT_EQ(pid, waitpid(pid, &status, 0));
    return WIFEXITED(status) ? WEXITSTATUS(status) : 100 + status;
}

TEST(Processes, LockHeldByAnotherProcessUntilItDies)
{
    tarvo_test::DataDir dir;
    tarvo_test::Bound b("/cfg");
    ASSERT_EQ(0, b.create_u32("x", 1));
    Channel ch;
    pid_t holder = spawn([&] {
        tarvo_bind_h_td h = nullptr;
        if (_tarvo_bind(&h, "/cfg", 0) || tarvo_item_wrlock(h, ""))
            return 1;
        ch.to_parent('L');
        ch.from_parent();  // killed while waiting here
        return 2;
    });
    ASSERT_EQ('L', ch.from_child());
    EXPECT_EQ(TARVO_ERR_LOCKED, tarvo_item_rdlock(b.h, "x"));
    const std::string text = b.error_text(TARVO_ERR_LOCKED);
    EXPECT_NE(std::string::npos, text.find("/cfg/x is write-locked by bind "));
    EXPECT_NE(std::string::npos, text.find(" of process " + std::to_string(holder) + " (lock on /cfg)"))
        << text;
    EXPECT_EQ(TARVO_ERR_LOCKED, b.create_u32("y", 1));

    // Dead but not yet reaped: its locks no longer count.
    ASSERT_EQ(0, kill(holder, SIGKILL));
    siginfo_t info;
    ASSERT_EQ(0, waitid(P_PID, holder, &info, WEXITED | WNOWAIT));
    EXPECT_EQ(0, b.create_u32("y", 1));
    EXPECT_EQ(0, tarvo_item_wrlock(b.h, ""));
    EXPECT_EQ(100 + SIGKILL, exit_status(holder));
    std::vector<tarvo::Lock> held;
    ASSERT_TRUE(b.h->store->locks(&held).ok());
    ASSERT_EQ(1u, held.size());
    EXPECT_EQ(b.h->holder.bind_id, held[0].holder.bind_id);
}

TEST(Processes, TransactionIsInvisibleUntilCommit)
{
    tarvo_test::DataDir dir;
    tarvo_test::Bound b("/cfg");
    ASSERT_EQ(0, b.create_u32("x", 1));
    Channel ch;
    pid_t writer = spawn([&] {
        tarvo_bind_h_td h = nullptr;
        uint32_t v = 2;
        if (_tarvo_bind(&h, "/cfg", 0) || tarvo_transaction_start(h, 300, 0, 0) ||
            tarvo_item_set(h, "x", TARVO_DATATYPE_UINT32, &v, 4, 0) ||
            tarvo_item_create(h, "y", TARVO_DATATYPE_UINT32, &v, 4, 0, 0))
            return 1;
        ch.to_parent('S');
        ch.from_parent();
        int rc = tarvo_transaction_commit(h);
        ch.to_parent('C');
        return rc ? 2 : 0;
    });
    ASSERT_EQ('S', ch.from_child());
    EXPECT_EQ((std::vector<std::string>{"x:1"}), b.names(""));
    auto x = b.get("x");
    EXPECT_EQ(std::string("\1\0\0\0", 4), x.second);
    ch.to_child('c');
    ASSERT_EQ('C', ch.from_child());
    EXPECT_EQ((std::vector<std::string>{"x:1", "y:1"}), b.names(""));
    EXPECT_EQ(std::string("\2\0\0\0", 4), b.get("x").second);
    EXPECT_EQ(0, exit_status(writer));
}

// A reader in another process lists the directory over and over while a
// bulk of 10,000 creates ends atomically: every listing (one request, one
// snapshot) holds none of them or all of them.
TEST(Processes, AtomicBulkEndIsSeenAllOrNothing)
{
    constexpr uint32_t N = 10000;
    tarvo_test::DataDir dir;
    ASSERT_TRUE(tarvo::save_setting(dir.path(), "batch_entries", "20000").ok());
    ASSERT_TRUE(tarvo::save_setting(dir.path(), "batch_bytes", "100000000").ok());
    {
        tarvo_test::Bound b("/");
        ASSERT_EQ(0, b.create_u32("/bulk-before", 1));
    }
    Channel ch;
    pid_t writer = spawn([&] {
        tarvo_bind_h_td h = nullptr;
        if (_tarvo_bind(&h, "/bulk", 0) || tarvo_bulk_start(h, TARVO_BULK_OPTION_ATOMIC))
            return 1;
        char name[32];
        for (uint32_t i = 0; i < N; ++i) {
            snprintf(name, sizeof name, "i%05u", i);
            if (tarvo_item_create(h, name, TARVO_DATATYPE_UINT32, &i, 4, 0, 0))
                return 2;
        }
        ch.to_parent('R');
        return tarvo_bulk_end(h) ? 3 : 0;
    });
    ASSERT_EQ('R', ch.from_child());
    tarvo_bind_h_td h = nullptr;
    ASSERT_EQ(0, _tarvo_bind(&h, "/bulk", 0));
    int none = 0, all = 0, partial = 0, status = -1;
    for (bool done = false; !done;) {
        done = waitpid(writer, &status, WNOHANG) == writer;
        uint32_t count = 0xFFFFFFFF;
        tarvo_list_h_td list = nullptr;
        int rc = tarvo_list(h, "", "", &count, &list, 0);
        tarvo_list_free(list);
        if (rc == TARVO_ERR_NOT_FOUND || (rc == 0 && count == 0))
            ++none;
        else if (rc == 0 && count == N)
            ++all;
        else
            ++partial;
    }
    _tarvo_unbind(h);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    EXPECT_EQ(0, partial);
    EXPECT_GT(all, 0);
    printf("listings: %d before the end, %d after\n", none, all);
}

}  // namespace
