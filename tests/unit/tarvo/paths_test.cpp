#include <gtest/gtest.h>

#include "paths.h"
#include "test_util.h"

namespace tarvo {
namespace {

struct ResolveCase {
    const char *bind_point;
    const char *user;
    int32_t code;
    const char *path;
    bool dir_form;
};

TEST(Paths, ResolveTable)
{
    const std::string long_name(1020, 'x');
    const ResolveCase cases[] = {
        {"/", "", 0, "/", true},
        {"/", "/", 0, "/", true},
        {"/a/b/", "", 0, "/a/b", true},
        {"/a/b/", "c", 0, "/a/b/c", false},
        {"/a/b/", "c/", 0, "/a/b/c", true},
        {"/a/b/", "c/d", 0, "/a/b/c/d", false},
        {"/a/b/", "/x", 0, "/x", false},
        {"/a/b/", "/x/", 0, "/x", true},
        {"/", "a", 0, "/a", false},
        {"/a/", "c//d", TARVO_ERR_BAD_PATH, "", false},
        {"/a/", "//", TARVO_ERR_BAD_PATH, "", false},
        {"/a/", ".", TARVO_ERR_BAD_PATH, "", false},
        {"/a/", "..", TARVO_ERR_BAD_PATH, "", false},
        {"/a/", "x/../y", TARVO_ERR_BAD_PATH, "", false},
        {"/a/", "x/./y", TARVO_ERR_BAD_PATH, "", false},
        {"/a/", "/a/../b/", TARVO_ERR_BAD_PATH, "", false},
        {"/a/", "..x/.y", 0, "/a/..x/.y", false},
        {"/a/", "x y", 0, "/a/x y", false},
    };
    for (const ResolveCase &c : cases) {
        SCOPED_TRACE(std::string(c.bind_point) + " + " + c.user);
        ResolvedPath r;
        Status s = resolve_path(c.bind_point, c.user, &r);
        EXPECT_EQ(c.code, s.code) << s.detail;
        if (s.ok()) {
            EXPECT_EQ(c.path, r.path);
            EXPECT_EQ(c.dir_form, r.dir_form);
        }
    }
}

TEST(Paths, LengthLimitCountsTheResolvedPath)
{
    ResolvedPath r;
    // "/ab/" + 1019 characters = 1023: the longest path there is.
    std::string rest(1019, 'n');
    EXPECT_TRUE(resolve_path("/ab/", rest, &r).ok());
    EXPECT_EQ(1023u, r.path.size());
    EXPECT_EQ(TARVO_ERR_PATH_TOO_LONG, resolve_path("/ab/", rest + "n", &r).code);
    // A directory path's final "/" counts as written.
    EXPECT_EQ(TARVO_ERR_PATH_TOO_LONG, resolve_path("/ab/", rest + "/", &r).code);
    // The relative form is checked after joining, not as typed.
    EXPECT_EQ(TARVO_ERR_PATH_TOO_LONG, resolve_path("/" + std::string(600, 'b') + "/",
                                                    std::string(600, 'c'), &r).code);
}

TEST(Paths, BindPoints)
{
    const std::pair<const char *, const char *> good[] = {
        {"", "/"}, {"/", "/"}, {"/a", "/a/"}, {"/a/", "/a/"}, {"a/b", "/a/b/"}, {"/cfg/x/", "/cfg/x/"},
    };
    for (auto [in, out] : good) {
        std::string bp;
        EXPECT_TRUE(normalize_bind_point(in, &bp).ok()) << in;
        EXPECT_EQ(out, bp) << in;
    }
    std::string bp;
    EXPECT_EQ(TARVO_ERR_BAD_PATH, normalize_bind_point("/a/../b/", &bp).code);
    EXPECT_EQ(TARVO_ERR_BAD_PATH, normalize_bind_point("/a//b", &bp).code);
    EXPECT_EQ(TARVO_ERR_PATH_TOO_LONG, normalize_bind_point("/" + std::string(1023, 'q'), &bp).code);
}

TEST(Paths, Helpers)
{
    EXPECT_EQ("/a/", parent_dir("/a/b"));
    EXPECT_EQ("/a/", parent_dir("/a/b/"));
    EXPECT_EQ("/", parent_dir("/a"));
    EXPECT_EQ("b", leaf_name("/a/b/"));
    EXPECT_EQ("b", leaf_name("/a/b"));
    EXPECT_EQ("", leaf_name("/"));
    EXPECT_EQ((std::vector<std::string>{"/a/", "/a/b/"}), ancestor_dirs("/a/b/c"));
    EXPECT_TRUE(ancestor_dirs("/a").empty());
    // Everything below /a/ sorts before the end key, /a0 and /a1 do not.
    const std::string end = subtree_end("/a/");
    EXPECT_LT(std::string("/a/\xff\xff"), end);
    EXPECT_GE(std::string("/a0"), end);
}

// The API side: a bind point with or without "/" is the same, the empty
// point is the root, and a missing point is accepted.
TEST(Paths, BindPointThroughTheApi)
{
    tarvo_test::DataDir dir;
    tarvo_test::Bound root("");
    ASSERT_EQ(0, root.create_u32("/p/q/r", 1));
    for (const char *point : {"/p/q", "/p/q/"}) {
        tarvo_test::Bound b(point);
        EXPECT_EQ(TARVO_DATATYPE_UINT32, b.get("r").first) << point;
        EXPECT_EQ(TARVO_DATATYPE_DIR, b.get("").first) << point;
        EXPECT_EQ(TARVO_DATATYPE_UINT32, b.get("/p/q/r").first) << point;
    }
    tarvo_test::Bound missing("/no/such/place");
    EXPECT_EQ(TARVO_ERR_NOT_FOUND, missing.get("").first);
    EXPECT_EQ(0, missing.create_u32("here", 5));
    EXPECT_EQ(TARVO_DATATYPE_UINT32, root.get("/no/such/place/here").first);
    tarvo_bind_h_td h = nullptr;
    EXPECT_EQ(TARVO_ERR_BAD_PATH, _tarvo_bind(&h, "/a/../b/", 0));
    EXPECT_EQ(nullptr, h);
}

}  // namespace
}  // namespace tarvo
