// Several processes writing to one data directory at once: nothing is lost
// and every change is in the event log.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "bind.h"
#include "test_util.h"

namespace {

constexpr int WRITERS = 4;
constexpr int ITEMS = 150;

// Runs in a forked child; the exit status is the number of failed calls.
int writer(int id)
{
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
}

TEST(Processes, ConcurrentWritersLoseNothing)
{
    tarvo_test::DataDir dir;
    {
        tarvo_test::Bound b("/p");
        ASSERT_EQ(0, b.create_u32("shared", 0));
    }
    std::vector<pid_t> children;
    for (int id = 0; id < WRITERS; ++id) {
        pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0)
            _exit(writer(id));
        children.push_back(pid);
    }
    for (pid_t pid : children) {
        int status = 0;
        ASSERT_EQ(pid, waitpid(pid, &status, 0));
        ASSERT_TRUE(WIFEXITED(status));
        EXPECT_EQ(0, WEXITSTATUS(status)) << "failed calls in writer " << pid;
    }
    tarvo_test::Bound b("/p");
    for (int id = 0; id < WRITERS; ++id) {
        std::vector<std::string> names = b.names(("w" + std::to_string(id)).c_str(), 50);
        EXPECT_EQ(static_cast<size_t>(ITEMS), names.size()) << id;
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

}  // namespace

namespace {

// The first binds to a fresh data directory race to create the store file
// and its schema; every one of them must succeed.
TEST(Processes, SimultaneousFirstBinds)
{
    tarvo_test::DataDir dir;
    std::vector<pid_t> children;
    for (int id = 0; id < 6; ++id) {
        pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            tarvo_bind_h_td h = nullptr;
            int rc = _tarvo_bind(&h, "/", TARVO_BIND_OPTION_ADMIN_PLANE);
            uint32_t v = id;
            std::string path = "/first/" + std::to_string(id);
            if (!rc)
                rc = tarvo_item_create(h, path.c_str(), TARVO_DATATYPE_UINT32, &v, 4, 0, 0);
            if (rc) {
                char *text = nullptr;
                if (h)
                    tarvo_prepare_error_string(h, rc, &text);
                fprintf(stderr, "child %d: %x %s\n", id, rc, text ? text : "");
            }
            _exit(rc ? 1 : 0);
        }
        children.push_back(pid);
    }
    for (pid_t pid : children) {
        int status = 0;
        ASSERT_EQ(pid, waitpid(pid, &status, 0));
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    tarvo_test::Bound b("/first", TARVO_BIND_OPTION_ADMIN_PLANE);
    EXPECT_EQ(6u, b.names("").size());
}

}  // namespace
