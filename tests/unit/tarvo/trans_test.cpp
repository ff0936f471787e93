// Transactions, bulks, locks, notifications and ping through the client's C
// interface, with two binds of one process standing for two consoles (the
// several-process cases are in process_test.cpp).
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <functional>
#include <thread>

#include "bind.h"
#include "test_util.h"

namespace {

using tarvo_test::Bound;
using tarvo_test::DataDir;

constexpr auto U32 = TARVO_DATATYPE_UINT32;

uint32_t u32_of(const std::pair<int, std::string> &item)
{
    uint32_t v = 0;
    EXPECT_EQ(U32, item.first);
    if (item.second.size() == 4)
        memcpy(&v, item.second.data(), 4);
    return v;
}

int set_u32(Bound &b, const char *path, uint32_t v)
{
    return tarvo_item_set(b.h, path, U32, &v, 4, 0);
}

uint64_t events(Bound &b)
{
    tarvo::StoreStats stats;
    EXPECT_TRUE(b.h->store->stats(&stats).ok());
    return stats.last_event;
}

std::vector<tarvo::ErrorEntry> error_list(Bound &b, tarvo::ErrorList list)
{
    std::vector<tarvo::ErrorEntry> entries;
    EXPECT_TRUE(b.h->store->errors(list, 0, 100, &entries).ok());
    return entries;
}

class Pending : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(0, a.create_u32("/t/a", 1));
        ASSERT_EQ(0, a.create_u32("/t/b", 2));
        ASSERT_EQ(0, a.create_u32("/t/sub/x", 3));
    }
    DataDir dir;
    Bound a{"/t"}, other{"/t"};
};

TEST_F(Pending, TransactionIsSeenByItsBindOnlyUntilCommit)
{
    const uint64_t before = events(a);
    ASSERT_EQ(0, tarvo_transaction_start(a.h, 300, 0, 0));
    ASSERT_EQ(0, set_u32(a, "a", 10));
    ASSERT_EQ(0, a.create_u32("c", 5));
    ASSERT_EQ(0, tarvo_item_delete(a.h, "b", 0));
    ASSERT_EQ(0, tarvo_item_delete(a.h, "sub", 0));
    ASSERT_EQ(0, a.create_u32("sub2/y", 6));
    // Checked at once against what the bind sees.
    EXPECT_EQ(TARVO_ERR_EXISTS, a.create_u32("c", 5));
    EXPECT_EQ(TARVO_ERR_NOT_FOUND, tarvo_item_delete(a.h, "b", 0));

    EXPECT_EQ(10u, u32_of(a.get("a")));
    EXPECT_EQ(TARVO_ERR_NOT_FOUND, a.get("b").first);
    const std::vector<std::string> mine = {"a:1", "c:1", "sub2:-3"};
    EXPECT_EQ(mine, a.names(""));
    EXPECT_EQ((std::vector<std::string>{"a:1", "b:1", "sub:-3"}),
              a.names("", 1, TARVO_ACCESS_OPTION_NOBULK));
    EXPECT_EQ(mine, a.names("", 2, TARVO_ACCESS_OPTION_BULK));
    EXPECT_EQ(TARVO_ERR_NOT_FOUND, a.get("/t/sub/x").first);
    tarvo_item_datatype_td dt = static_cast<tarvo_item_datatype_td>(0);
    void *value = nullptr;
    uint32_t len = 0;
    EXPECT_EQ(TARVO_ERR_NOT_FOUND,
              tarvo_item_get(a.h, "b", &dt, &value, &len, TARVO_ACCESS_OPTION_BULK));
    EXPECT_EQ(0, tarvo_item_get(a.h, "b", &dt, &value, &len, TARVO_ACCESS_OPTION_NOBULK));
    free(value);

    EXPECT_EQ(1u, u32_of(other.get("a")));
    EXPECT_EQ((std::vector<std::string>{"a:1", "b:1", "sub:-3"}), other.names(""));
    EXPECT_EQ(before, events(other));

    ASSERT_EQ(0, tarvo_transaction_commit(a.h));
    EXPECT_EQ(mine, other.names(""));
    EXPECT_EQ(10u, u32_of(other.get("a")));
    EXPECT_EQ(before + 5, events(other));  // set, create, delete, delete, create
    EXPECT_EQ(TARVO_ERR_NO_TRANSACTION, tarvo_transaction_commit(a.h));

    ASSERT_EQ(0, tarvo_transaction_start(a.h, 0, 0, 0));
    ASSERT_EQ(0, set_u32(a, "a", 99));
    ASSERT_EQ(0, tarvo_transaction_abort(a.h));
    EXPECT_EQ(10u, u32_of(a.get("a")));
    EXPECT_EQ(TARVO_ERR_NO_TRANSACTION, tarvo_transaction_abort(a.h));
}

// What another bind does between a request and the commit is checked again
// at commit, inside the write: any refusal applies nothing.
TEST_F(Pending, CommitChecksEverythingAgain)
{
    struct Case {
        const char *what;
        std::function<void()> meanwhile;
        int32_t code;
        const char *text;
    } cases[] = {
        {"item created by another bind", [&] { ASSERT_EQ(0, other.create_u32("n", 1)); },
         TARVO_ERR_EXISTS, "/t/n"},
        {"verifier rule added",
         [&] { ASSERT_EQ(0, other.create_str("/tarvo/verifiers/a", "/t/a uint32 0..100")); },
         TARVO_ERR_VERIFY_FAILED, "value 500 is outside 0..100"},
        {"subtree locked", [&] { ASSERT_EQ(0, tarvo_item_rdlock(other.h, "")); },
         TARVO_ERR_LOCKED, "read-locked by bind"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        ASSERT_EQ(0, tarvo_transaction_start(a.h, 300, 0, 0));
        ASSERT_EQ(0, a.create_u32("n", 7));
        ASSERT_EQ(0, set_u32(a, "a", 500));
        c.meanwhile();
        EXPECT_EQ(c.code, tarvo_transaction_commit(a.h));
        EXPECT_NE(std::string::npos, a.error_text(c.code).find(c.text)) << a.error_text(c.code);
        EXPECT_EQ(1u, u32_of(a.get("a")));
        // Undo what the other bind did.
        tarvo_item_delete(other.h, "n", 0);
        tarvo_item_delete(other.h, "/tarvo/", 0);
        tarvo_item_unlock(other.h, "");
    }
}

TEST_F(Pending, TransactionTimeout)
{
    const auto pause = std::chrono::milliseconds(80);
    ASSERT_EQ(0, tarvo_transaction_start(a.h, 0, 40000000, 0));
    ASSERT_EQ(0, set_u32(a, "a", 2));
    std::this_thread::sleep_for(pause);
    EXPECT_EQ(TARVO_ERR_TRANSACTION_TIMED_OUT, set_u32(a, "b", 3));
    EXPECT_EQ(TARVO_ERR_TRANSACTION_TIMED_OUT, tarvo_transaction_commit(a.h));
    EXPECT_EQ(1u, u32_of(a.get("a")));
    EXPECT_EQ(TARVO_ERR_NO_TRANSACTION, tarvo_transaction_commit(a.h));

    // A second start keeps the changes and counts its timeout from then.
    ASSERT_EQ(0, tarvo_transaction_start(a.h, 0, 40000000, 0));
    ASSERT_EQ(0, set_u32(a, "a", 4));
    ASSERT_EQ(0, tarvo_transaction_start(a.h, 300, 0, TARVO_TRANSACTION_OPTION_INITIAL_LOAD));
    std::this_thread::sleep_for(pause);
    const uint64_t before = events(a);
    EXPECT_EQ(0, tarvo_transaction_commit(a.h));
    EXPECT_EQ(4u, u32_of(a.get("a")));
    EXPECT_EQ(before, events(a));  // an initial load announces nothing

    EXPECT_EQ(TARVO_ERR_BAD_ARGUMENT, tarvo_transaction_start(a.h, 1, 1000000000, 0));
    EXPECT_EQ(TARVO_ERR_BAD_OPTIONS, tarvo_transaction_start(a.h, 1, 0, 0x4));
    ASSERT_EQ(0, tarvo_bulk_start(a.h, 0));
    EXPECT_EQ(TARVO_ERR_TRANS_AND_BULK, tarvo_transaction_start(a.h, 1, 0, 0));
    EXPECT_EQ(TARVO_ERR_BULK_OPEN, tarvo_bulk_start(a.h, 0));
    ASSERT_EQ(0, tarvo_bulk_abort(a.h));
    ASSERT_EQ(0, tarvo_transaction_start(a.h, 1, 0, 0));
    EXPECT_EQ(TARVO_ERR_TRANS_AND_BULK, tarvo_bulk_start(a.h, 0));
}

TEST_F(Pending, BulkCollapsesAndRemoves)
{
    uint32_t count = 0;
    EXPECT_EQ(TARVO_ERR_NO_BULK, tarvo_bulk_num_ops(a.h, &count));
    ASSERT_EQ(0, tarvo_bulk_start(a.h, 0));
    struct Step {
        std::function<int()> request;
        uint32_t count;
    } steps[] = {
        {[&] { return a.create_u32("n", 1); }, 1},
        {[&] { return set_u32(a, "n", 2); }, 1},            // create then set: one create
        {[&] { return tarvo_item_delete(a.h, "n", 0); }, 0}, // create then delete: nothing
        {[&] { return set_u32(a, "a", 3); }, 1},
        {[&] { return set_u32(a, "a", 4); }, 1},
        {[&] { return tarvo_item_delete(a.h, "b", 0); }, 2},
        {[&] { return a.create_u32("b", 5); }, 3},           // delete then create: both stay
        {[&] { return a.create_u32("sub/z", 6); }, 4},
        {[&] { return tarvo_item_delete(a.h, "sub/", 0); }, 5},
        {[&] { return set_u32(a, "sub/z", 7); }, 6},         // not merged across the subtree delete
        {[&] { return a.create_u32("missing/q", 8); }, 7},
    };
    for (size_t i = 0; i < std::size(steps); ++i) {
        EXPECT_EQ(0, steps[i].request()) << i;
        EXPECT_EQ(0, tarvo_bulk_num_ops(a.h, &count));
        EXPECT_EQ(steps[i].count, count) << i;
    }
    // Reads see what the end would apply.
    EXPECT_EQ(4u, u32_of(a.get("a")));
    EXPECT_EQ((std::vector<std::string>{"a:1", "b:1", "missing:-3"}), a.names(""));
    EXPECT_EQ(1u, u32_of(other.get("a")));

    EXPECT_EQ(TARVO_ERR_NOT_FOUND, tarvo_bulk_remove_op2(a.h, "missing/q", TARVO_BULK_REMOVE_DELETES));
    EXPECT_EQ(0, tarvo_bulk_remove_op2(a.h, "missing/q", TARVO_BULK_REMOVE_CREATES));
    EXPECT_EQ(0, tarvo_bulk_remove_op2(a.h, "b", TARVO_BULK_REMOVE_DELETES));
    EXPECT_EQ(0, tarvo_bulk_num_ops(a.h, &count));
    EXPECT_EQ(5u, count);
    EXPECT_EQ((std::vector<std::string>{"a:1", "b:1"}), a.names(""));
    EXPECT_EQ(TARVO_ERR_BAD_ARGUMENT, tarvo_bulk_remove_op2(a.h, "a", 3));
    // Left: set a, create b (fails: b exists), create sub/z, delete sub/,
    // set sub/z (fails: gone).
    EXPECT_EQ(TARVO_ERR_EXISTS, tarvo_bulk_end(a.h));
    EXPECT_NE(std::string::npos, a.error_text(TARVO_ERR_EXISTS).find("2 of 5 operations refused"))
        << a.error_text(TARVO_ERR_EXISTS);
    EXPECT_EQ(4u, u32_of(other.get("a")));
    EXPECT_EQ((std::vector<std::string>{"a:1", "b:1"}), other.names(""));
    EXPECT_EQ(TARVO_ERR_NO_BULK, tarvo_bulk_end(a.h));

    ASSERT_EQ(0, tarvo_bulk_start(a.h, 0));
    ASSERT_EQ(0, set_u32(a, "a", 5));
    ASSERT_EQ(0, tarvo_bulk_remove_op2(a.h, "", TARVO_BULK_REMOVE_ALL));
    EXPECT_EQ(0, tarvo_bulk_num_ops(a.h, &count));
    EXPECT_EQ(0u, count);
    EXPECT_EQ(0, tarvo_bulk_end(a.h));
}

// The same four operations, two of them refused, ended in each mode.
TEST_F(Pending, BulkEndModes)
{
    struct Case {
        uint32_t options;
        bool applied;
        std::vector<std::string> errors;
    } cases[] = {
        {0, true, {"/t/a", "/t/missing"}},
        {TARVO_BULK_OPTION_ATOMIC, false, {"/t/a"}},
        {TARVO_BULK_OPTION_INT_ROLLBACK, false, {"/t/a", "/t/missing"}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.options);
        tarvo_item_delete(a.h, "ok1", 0);
        tarvo_item_delete(a.h, "ok2", 0);
        ASSERT_EQ(0, tarvo_bulk_start(a.h, c.options));
        ASSERT_EQ(0, a.create_u32("ok1", 1));
        ASSERT_EQ(0, a.create_u32("a", 1));
        ASSERT_EQ(0, a.create_u32("ok2", 1));
        ASSERT_EQ(0, set_u32(a, "missing", 1));
        EXPECT_EQ(TARVO_ERR_EXISTS, tarvo_bulk_end(a.h));
        EXPECT_EQ(c.applied ? U32 : TARVO_ERR_NOT_FOUND, other.get("ok1").first);
        EXPECT_EQ(c.applied ? U32 : TARVO_ERR_NOT_FOUND, other.get("ok2").first);
        std::vector<tarvo::ErrorEntry> errors = error_list(other, tarvo::ErrorList::ERRORS);
        ASSERT_EQ(c.errors.size(), errors.size());
        for (size_t i = 0; i < errors.size(); ++i)
            EXPECT_EQ(c.errors[i], errors[i].path);
        EXPECT_EQ(TARVO_EVENT_CREATE, errors[0].operations);
        EXPECT_EQ(TARVO_ERR_EXISTS, errors[0].code);
        EXPECT_EQ("item already exists: /t/a", errors[0].prepared_text);
    }
    // A bulk end without refusals empties the list.
    ASSERT_EQ(0, tarvo_bulk_start(a.h, 0));
    ASSERT_EQ(0, tarvo_bulk_end(a.h));
    EXPECT_TRUE(error_list(other, tarvo::ErrorList::ERRORS).empty());
}

TEST_F(Pending, BulkOptions)
{
    // update: a create of an existing item sets it; replace: what the bulk
    // did not write under the bind point goes.
    ASSERT_EQ(0, tarvo_bulk_start(a.h, TARVO_BULK_OPTION_UPDATE));
    ASSERT_EQ(0, a.create_u32("a", 11));
    ASSERT_EQ(0, a.create_u32("new", 12));
    ASSERT_EQ(0, tarvo_copy(a.h, "/t/sub", "/t/copy", "", 0));
    uint32_t options = 0;
    ASSERT_EQ(0, tarvo_bulk_get_options(a.h, &options));
    ASSERT_EQ(0, tarvo_bulk_set_options(a.h, options | TARVO_BULK_OPTION_COMMIT_REPLACE));
    EXPECT_EQ(TARVO_ERR_BAD_OPTIONS, tarvo_bulk_set_options(a.h, 0x2));
    ASSERT_EQ(0, tarvo_bulk_end(a.h));
    EXPECT_EQ(11u, u32_of(other.get("a")));
    EXPECT_EQ((std::vector<std::string>{"a:1", "copy:-3", "new:1"}), other.names(""));
    EXPECT_EQ(3u, u32_of(other.get("copy/x")));

    // initial load: no events.
    const uint64_t before = events(a);
    ASSERT_EQ(0, tarvo_bulk_start(a.h, TARVO_BULK_OPTION_INITIAL_LOAD));
    ASSERT_EQ(0, a.create_u32("quiet", 1));
    ASSERT_EQ(0, tarvo_bulk_end(a.h));
    EXPECT_EQ(U32, other.get("quiet").first);
    EXPECT_EQ(before, events(a));

    // issu: the rules are not consulted; the issu end checks the items
    // left unscanned and lists the refusals as apply errors.
    ASSERT_EQ(0, a.create_str("/tarvo/verifiers/r", "/t/i* uint32 0..9"));
    EXPECT_EQ(TARVO_ERR_VERIFY_FAILED, a.create_u32("i0", 10));
    ASSERT_EQ(0, tarvo_bulk_start(a.h, TARVO_BULK_OPTION_ISSU));
    ASSERT_EQ(0, a.create_u32("i1", 10));
    ASSERT_EQ(0, a.create_u32("i2", 5));
    ASSERT_EQ(0, tarvo_bulk_end(a.h));
    std::vector<tarvo::ErrorEntry> unscanned = error_list(a, tarvo::ErrorList::UNSCANNED);
    ASSERT_EQ(2u, unscanned.size());
    EXPECT_EQ("/t/i1", unscanned[0].path);
    EXPECT_EQ(TARVO_EVENT_CREATE, unscanned[0].operations);
    EXPECT_EQ(TARVO_ERR_VERIFY_FAILED, tarvo_cfgmgr_issu_mdr_end(a.h));
    EXPECT_NE(std::string::npos,
              a.error_text(TARVO_ERR_VERIFY_FAILED).find("1 of 2 unscanned items refused"));
    std::vector<tarvo::ErrorEntry> apply = error_list(a, tarvo::ErrorList::APPLY_ERRORS);
    ASSERT_EQ(1u, apply.size());
    EXPECT_EQ("/t/i1", apply[0].path);
    EXPECT_NE(std::string::npos, apply[0].verifier_text.find("value 10 is outside 0..9"));
    EXPECT_TRUE(error_list(a, tarvo::ErrorList::UNSCANNED).empty());
    EXPECT_EQ(0, tarvo_cfgmgr_issu_mdr_end(a.h));
    EXPECT_EQ(1u, error_list(a, tarvo::ErrorList::APPLY_ERRORS).size());
}

// Two binds' locks: conflicts are answered at once, naming the holder.
TEST(Locks, Conflicts)
{
    struct Case {
        const char *first;
        bool first_write;
        const char *second;
        bool second_write;
        int32_t code;
    } cases[] = {
        {"/t", false, "/t", false, 0},
        {"/t", false, "/t", true, TARVO_ERR_LOCKED},
        {"/t", true, "/t/x", false, TARVO_ERR_LOCKED},
        {"/t/x", true, "/t", false, TARVO_ERR_LOCKED},
        {"/t/x", true, "/t/y", true, 0},
        {"/t/x", true, "/t/xy", true, 0},
        {"/", false, "/t/x", true, TARVO_ERR_LOCKED},
    };
    DataDir dir;
    for (const Case &c : cases) {
        SCOPED_TRACE(std::string(c.first) + " then " + c.second);
        Bound one, two;
        auto lock = [](Bound &b, const char *path, bool write) {
            return write ? tarvo_item_wrlock(b.h, path) : tarvo_item_rdlock(b.h, path);
        };
        ASSERT_EQ(0, lock(one, c.first, c.first_write));
        EXPECT_EQ(c.code, lock(two, c.second, c.second_write));
        if (c.code) {
            EXPECT_NE(std::string::npos,
                      two.error_text(c.code).find("by bind " + one.h->holder.bind_id +
                                                  " of process " + std::to_string(getpid())))
                << two.error_text(c.code);
        }
        // The holder itself may lock again, and a read lock becomes a write lock.
        EXPECT_EQ(0, lock(one, c.first, c.first_write));
    }
}

TEST(Locks, WritesIntoLockedSubtrees)
{
    DataDir dir;
    Bound one("/t"), two("/t");
    ASSERT_EQ(0, one.create_u32("d/x", 1));
    ASSERT_EQ(0, tarvo_item_rdlock(one.h, "d"));
    EXPECT_EQ(TARVO_ERR_LOCKED, two.create_u32("d/new", 1));
    EXPECT_NE(std::string::npos, two.error_text(TARVO_ERR_LOCKED).find("/t/d/new is read-locked"));
    EXPECT_EQ(TARVO_ERR_LOCKED, tarvo_item_delete(two.h, "", 0));
    EXPECT_EQ(1u, u32_of(two.get("d/x")));
    EXPECT_EQ(0, two.create_u32("free", 1));
    EXPECT_EQ(0, one.create_u32("d/mine", 1));  // the holder's own writes pass
    EXPECT_EQ(0, tarvo_item_unlock(one.h, "d"));
    EXPECT_EQ(TARVO_ERR_NOT_LOCKED, tarvo_item_unlock(one.h, "d"));
    EXPECT_EQ(0, two.create_u32("d/new", 1));

    ASSERT_EQ(0, tarvo_item_wrlock(one.h, ""));
    EXPECT_EQ(TARVO_ERR_LOCKED, tarvo_item_rdlock(two.h, "/t/d/x"));
    _tarvo_unbind(one.h);  // unbinding releases the locks
    one.h = nullptr;
    EXPECT_EQ(0, tarvo_item_wrlock(two.h, "d"));
    std::vector<tarvo::Lock> held;
    ASSERT_TRUE(two.h->store->locks(&held).ok());
    ASSERT_EQ(1u, held.size());
    EXPECT_EQ("/t/d", held[0].path);
}

TEST(Notifications, AppendAnEventAndChangeNothing)
{
    DataDir dir;
    Bound b("/t");
    ASSERT_EQ(0, b.create_u32("a", 1));
    uint32_t old_v = 1, new_v = 2;
    tarvo_edm_notification_td n = {"a", TARVO_EVENT_SET, U32, &old_v, 4, &new_v, 4};
    const uint64_t before = events(b);
    ASSERT_EQ(0, tarvo_edm_notification_generate(b.h, &n));
    std::vector<tarvo::Event> log;
    ASSERT_TRUE(b.h->store->events_after(before, 10, &log).ok());
    ASSERT_EQ(1u, log.size());
    EXPECT_EQ("/t/a", log[0].path);
    EXPECT_EQ(TARVO_EVENT_SET, log[0].kind);
    EXPECT_EQ(std::string("\2\0\0\0", 4), log[0].new_value);
    EXPECT_TRUE(log[0].has_old);
    EXPECT_EQ(1u, u32_of(b.get("a")));

    struct Case {
        tarvo_edm_notification_td request;
        int32_t code;
    } cases[] = {
        {{nullptr, TARVO_EVENT_CREATE, U32, nullptr, 0, &new_v, 4}, TARVO_ERR_BAD_ARGUMENT},
        {{"a", 3, U32, nullptr, 0, &new_v, 4}, TARVO_ERR_BAD_ARGUMENT},
        {{"a", TARVO_EVENT_CREATE, 4, nullptr, 0, &new_v, 4}, TARVO_ERR_BAD_DATATYPE},
        {{"a", TARVO_EVENT_CREATE, U32, nullptr, 0, &new_v, 3}, TARVO_ERR_BAD_VALUE},
        {{"a", TARVO_EVENT_DELETE, U32, nullptr, 4, nullptr, 0}, TARVO_ERR_BAD_ARGUMENT},
        {{"d/", TARVO_EVENT_CREATE, U32, nullptr, 0, &new_v, 4}, TARVO_ERR_BAD_PATH},
        {{"gone", TARVO_EVENT_DELETE, U32, &old_v, 4, nullptr, 0}, 0},
    };
    for (const Case &c : cases)
        EXPECT_EQ(c.code, tarvo_edm_notification_generate(b.h, &c.request))
            << (c.request.item_name ? c.request.item_name : "null");
    EXPECT_EQ(before + 2, events(b));
}

TEST(Ping, Targets)
{
    DataDir dir;
    Bound b;
    struct Case {
        uint32_t group, plane, roles, versioned;
        int32_t id, code;
    } cases[] = {
        {TARVO_PING_GROUP_OTHER, TARVO_PING_PLANE_SHARED, TARVO_PING_ROLE_ALL, 0, 0, 0},
        {TARVO_PING_GROUP_PHYSICAL, TARVO_PING_PLANE_ADMIN, TARVO_PING_ROLE_ACTIVE, 1, 0, 0},
        {TARVO_PING_GROUP_MEMBERSET, TARVO_PING_PLANE_LOCAL, 0xb, 0, 0, 0},
        {4, TARVO_PING_PLANE_SHARED, TARVO_PING_ROLE_ALL, 0, 0, TARVO_ERR_BAD_ARGUMENT},
        {0, 3, TARVO_PING_ROLE_ALL, 0, 0, TARVO_ERR_BAD_ARGUMENT},
        {0, 0, 0, 0, 0, TARVO_ERR_BAD_ARGUMENT},
        {0, 0, 0x10, 0, 0, TARVO_ERR_BAD_ARGUMENT},
        {0, 0, 1, 2, 0, TARVO_ERR_BAD_ARGUMENT},
        {0, 0, 1, 0, 5, TARVO_ERR_NOT_FOUND},
    };
    for (const Case &c : cases)
        EXPECT_EQ(c.code, tarvo_ping(b.h, c.group, c.plane, c.roles, c.versioned, c.id))
            << c.group << " " << c.plane << " " << c.roles << " " << c.id;
    EXPECT_TRUE(std::filesystem::exists(dir.path() + "/admin.db"));
    // A plane whose store is damaged does not answer.
    std::ofstream(dir.path() + "/local.db", std::ios::trunc) << std::string(5000, 'x');
    EXPECT_EQ(TARVO_ERR_STORE_CORRUPT, tarvo_ping(b.h, 0, TARVO_PING_PLANE_LOCAL, 1, 0, 0));
}

}  // namespace
