// Several processes on one data directory at once: nothing is lost, every
// change is in the event log, and racing first binds all succeed.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

#include "bind.h"
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

}  // namespace
