#include <gtest/gtest.h>
#include <sqlite3.h>

#include "settings.h"
#include "test_util.h"

namespace {

using tarvo_test::Bound;
using tarvo_test::DataDir;

// /L holds n00 .. n09 (uint32) and the directory n05x/ with one item.
class Lists : public ::testing::Test {
protected:
    void SetUp() override
    {
        Bound setup("/L");
        for (int i = 0; i < 10; ++i) {
            char name[16];
            snprintf(name, sizeof name, "n%02d", i);
            ASSERT_EQ(0, setup.create_u32(name, i));
        }
        ASSERT_EQ(0, setup.create_u32("n05x/inner", 99));
        ASSERT_EQ(0, setup.create_str("/item", "x"));
    }
    void batch_entries(const char *n)
    {
        ASSERT_TRUE(tarvo::save_setting(dir.path(), "batch_entries", n).ok());
    }
    struct Batch {
        std::vector<std::string> names;
        int more = -1;
        uint32_t count = 0;
        std::string last;
    };
    Batch list(Bound &b, const char *start, uint32_t wanted, uint32_t access)
    {
        Batch out;
        tarvo_list_h_td list = nullptr;
        out.count = wanted;
        int rc = tarvo_list(b.h, "", start, &out.count, &list, access);
        EXPECT_EQ(0, rc);
        if (rc)
            return out;
        char *name;
        tarvo_item_datatype_td dt;
        while (tarvo_list_next(list, &name, &dt, nullptr) == 0 && name)
            out.names.push_back(name);
        EXPECT_EQ(0, tarvo_list_get_more_flag(list, &out.more));
        EXPECT_EQ(0, tarvo_list_last(list, &name, &dt, nullptr));
        out.last = name ? name : "(none)";
        tarvo_list_free(list);
        return out;
    }
    DataDir dir;
};

TEST_F(Lists, BatchesStartAndReverse)
{
    using V = std::vector<std::string>;
    struct Case {
        const char *batch;
        const char *start;
        uint32_t wanted;
        uint32_t access;
        V names;
        int more;
    } cases[] = {
        {"1000", "", 0xFFFFFFFF, 0,
         {"n00", "n01", "n02", "n03", "n04", "n05", "n05x", "n06", "n07", "n08", "n09"}, 0},
        {"3", "", 0xFFFFFFFF, 0, {"n00", "n01", "n02"}, 1},
        {"3", "", 3, 0, {"n00", "n01", "n02"}, 0},   // the caller's count was reached
        {"3", "", 2, 0, {"n00", "n01"}, 0},
        {"3", "", 0, 0, {}, 0},
        {"3", "n04", 0xFFFFFFFF, 0, {"n04", "n05", "n05x"}, 1},
        {"3", "n04", 0xFFFFFFFF, TARVO_ACCESS_OPTION_NEXT, {"n05", "n05x", "n06"}, 1},
        {"3", "n045", 0xFFFFFFFF, TARVO_ACCESS_OPTION_NEXT, {"n05", "n05x", "n06"}, 1},
        {"3", "", 0xFFFFFFFF, TARVO_ACCESS_OPTION_REVERSE, {"n09", "n08", "n07"}, 1},
        {"3", "n05x", 0xFFFFFFFF, TARVO_ACCESS_OPTION_REVERSE, {"n05x", "n05", "n04"}, 1},
        {"3", "n05x", 0xFFFFFFFF, TARVO_ACCESS_OPTION_REVERSE | TARVO_ACCESS_OPTION_NEXT,
         {"n05", "n04", "n03"}, 1},
        {"3", "n01", 0xFFFFFFFF, TARVO_ACCESS_OPTION_REVERSE, {"n01", "n00"}, 0},
        {"3", "n08", 0xFFFFFFFF, 0, {"n08", "n09"}, 0},
        {"3", "zzz", 0xFFFFFFFF, 0, {}, 0},
        {"3", "", 0xFFFFFFFF, TARVO_ACCESS_OPTION_NOBULK, {"n00", "n01", "n02"}, 1},
        {"3", "", 0xFFFFFFFF, TARVO_ACCESS_OPTION_BULK, {}, 0},  // no pending changes
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(std::string(c.batch) + " start " + c.start + " access " +
                     std::to_string(c.access) + " wanted " + std::to_string(c.wanted));
        batch_entries(c.batch);
        Bound b("/L");
        Batch got = list(b, c.start, c.wanted, c.access);
        EXPECT_EQ(c.names, got.names);
        EXPECT_EQ(c.more, got.more);
        EXPECT_EQ(c.names.size(), got.count);
        EXPECT_EQ(c.names.empty() ? "(none)" : c.names.back(), got.last);
    }
}

TEST_F(Lists, ByteBoundCutsBatches)
{
    ASSERT_TRUE(tarvo::save_setting(dir.path(), "batch_bytes", "1").ok());
    Bound b("/L");
    Batch got = list(b, "", 0xFFFFFFFF, 0);
    EXPECT_EQ((std::vector<std::string>{"n00"}), got.names);
    EXPECT_EQ(1, got.more);
}

TEST_F(Lists, ErrorsOfTheListedPath)
{
    Bound b("/");
    uint32_t count = 5;
    tarvo_list_h_td list = nullptr;
    tarvo_datalist_h_td dlist = nullptr;
    struct Case {
        const char *path;
        int32_t code;
    } cases[] = {
        {"item", TARVO_ERR_NOT_A_DIR},
        {"/item/", TARVO_ERR_NOT_A_DIR},
        {"nothing", TARVO_ERR_NOT_FOUND},
        {"L/n05x", 0},
        {"L//x", TARVO_ERR_BAD_PATH},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.path);
        count = 5;
        EXPECT_EQ(c.code, tarvo_list(b.h, c.path, "", &count, &list, 0));
        if (!c.code)
            tarvo_list_free(list);
        count = 5;
        EXPECT_EQ(c.code, tarvo_datalist(b.h, c.path, "", &count, &dlist, 0));
        if (!c.code)
            tarvo_datalist_free(dlist);
        EXPECT_EQ(c.code, tarvo_chunk_list(b.h, c.path, "", 2, &list, 0));
        if (!c.code)
            tarvo_list_free(list);
    }
    count = 5;
    EXPECT_EQ(TARVO_ERR_BAD_OPTIONS, tarvo_list(b.h, "L", "", &count, &list,
                                                TARVO_ACCESS_OPTION_BULK | TARVO_ACCESS_OPTION_NOBULK));
    char *name;
    tarvo_item_datatype_td dt;
    ASSERT_EQ(0, tarvo_list(b.h, "L", "", &count, &list, 0));
    int reserved = 0;
    EXPECT_EQ(TARVO_ERR_BAD_ARGUMENT, tarvo_list_next(list, &name, &dt, &reserved));
    tarvo_list_free(list);
}

TEST_F(Lists, DatalistValues)
{
    Bound b("/L");
    tarvo_datalist_h_td list = nullptr;
    uint32_t count = 0xFFFFFFFF;
    ASSERT_EQ(0, tarvo_datalist(b.h, "", "n05", &count, &list, 0));
    EXPECT_EQ(6u, count);
    char *name;
    tarvo_item_datatype_td dt;
    void *value;
    uint32_t len;
    ASSERT_EQ(0, tarvo_datalist_next(list, &name, &dt, &value, &len, nullptr));
    EXPECT_STREQ("n05", name);
    EXPECT_EQ(TARVO_DATATYPE_UINT32, dt);
    ASSERT_EQ(4u, len);
    EXPECT_EQ(5u, *static_cast<uint32_t *>(value));
    ASSERT_EQ(0, tarvo_datalist_next(list, &name, &dt, &value, &len, nullptr));
    EXPECT_STREQ("n05x", name);
    EXPECT_EQ(TARVO_DATATYPE_DIR, dt);
    EXPECT_EQ(nullptr, value);
    EXPECT_EQ(0u, len);
    ASSERT_EQ(0, tarvo_datalist_last(list, &name, &dt, &value, &len, nullptr));
    EXPECT_STREQ("n09", name);
    EXPECT_EQ(9u, *static_cast<uint32_t *>(value));
    tarvo_datalist_free(list);
}

TEST_F(Lists, Chunked)
{
    batch_entries("4");
    Bound b("/L");
    const std::vector<std::string> all = {"n00:1", "n01:1", "n02:1", "n03:1", "n04:1", "n05:1",
                                          "n05x:-3", "n06:1", "n07:1", "n08:1", "n09:1"};
    for (uint32_t chunk : {0u, 1u, 3u, 4u, 100u})
        EXPECT_EQ(all, b.names("", chunk)) << chunk;
    std::vector<std::string> reversed(all.rbegin(), all.rend());
    EXPECT_EQ(reversed, b.names("", 3, TARVO_ACCESS_OPTION_REVERSE));

    tarvo_list_h_td list = nullptr;
    ASSERT_EQ(0, tarvo_chunk_list(b.h, "", "n08", 2, &list, TARVO_ACCESS_OPTION_NEXT));
    char *name;
    tarvo_item_datatype_td dt;
    ASSERT_EQ(0, tarvo_list_next(list, &name, &dt, nullptr));
    EXPECT_STREQ("n09", name);
    ASSERT_EQ(0, tarvo_list_next(list, &name, &dt, nullptr));
    EXPECT_EQ(nullptr, name);
    int more = 1;
    EXPECT_EQ(0, tarvo_list_get_more_flag(list, &more));
    EXPECT_EQ(0, more);
    tarvo_list_free(list);
}

// A chunked list keeps nothing open between calls: items written while it
// is being read show up when their place comes, and the abandoned list does
// not hold back a full checkpoint of the write-ahead log.
TEST_F(Lists, ChunkedListHoldsNothingOpen)
{
    Bound reader("/L"), writer("/L");
    tarvo_list_h_td list = nullptr;
    ASSERT_EQ(0, tarvo_chunk_list(reader.h, "", "", 2, &list, 0));
    char *name;
    tarvo_item_datatype_td dt;
    ASSERT_EQ(0, tarvo_list_next(list, &name, &dt, nullptr));
    EXPECT_STREQ("n00", name);
    ASSERT_EQ(0, writer.create_u32("n99", 1));
    ASSERT_EQ(0, tarvo_item_delete(writer.h, "n03", 0));

    sqlite3 *db = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open((dir.path() + "/shared.db").c_str(), &db));
    int log = -1, done = -1;
    ASSERT_EQ(SQLITE_OK, sqlite3_exec(db, "SELECT count(*) FROM nodes", nullptr, nullptr, nullptr));
    EXPECT_EQ(SQLITE_OK, sqlite3_wal_checkpoint_v2(db, "main", SQLITE_CHECKPOINT_TRUNCATE, &log, &done));
    EXPECT_EQ(0, log);
    sqlite3_close(db);

    std::vector<std::string> rest;
    while (tarvo_list_next(list, &name, &dt, nullptr) == 0 && name)
        rest.push_back(name);
    tarvo_list_free(list);
    EXPECT_EQ((std::vector<std::string>{"n01", "n02", "n04", "n05", "n05x", "n06", "n07", "n08",
                                        "n09", "n99"}),
              rest);
}

TEST_F(Lists, ChunkedListOutlivingItsBind)
{
    tarvo_bind_h_td h = nullptr;
    ASSERT_EQ(0, _tarvo_bind(&h, "/L", 0));
    tarvo_list_h_td list = nullptr;
    ASSERT_EQ(0, tarvo_chunk_list(h, "", "", 2, &list, 0));
    ASSERT_EQ(0, _tarvo_unbind(h));
    char *name;
    tarvo_item_datatype_td dt;
    EXPECT_EQ(0, tarvo_list_next(list, &name, &dt, nullptr));  // already fetched
    EXPECT_EQ(0, tarvo_list_next(list, &name, &dt, nullptr));
    EXPECT_EQ(TARVO_ERR_BAD_HANDLE, tarvo_list_next(list, &name, &dt, nullptr));
    tarvo_list_free(list);
}

}  // namespace
