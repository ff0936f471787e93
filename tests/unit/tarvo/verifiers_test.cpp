#include <gtest/gtest.h>

#include <cstring>

#include "test_util.h"
#include "verifiers.h"

namespace tarvo {
namespace {

TEST(Verifiers, Globs)
{
    struct Case {
        const char *glob, *path;
        bool match;
    } cases[] = {
        {"/cfg/*/mtu", "/cfg/eth0/mtu", true},
        {"/cfg/*/mtu", "/cfg/a/b/mtu", false},
        {"/cfg/**/mtu", "/cfg/a/b/mtu", true},
        {"/cfg/**", "/cfg/x", true},
        {"/cfg/**", "/other/x", false},
        {"/cfg/?", "/cfg/a", true},
        {"/cfg/?", "/cfg/ab", false},
        {"/cfg/?b", "/cfg//b", false},
        {"/exact", "/exact", true},
        {"/exact", "/exactly", false},
        {"*", "/a", false},
        {"/*", "/a", true},
        {"/a*b*c", "/aXbYc", true},
        {"/a*b*c", "/aXbY", false},
        {"**", "/any/thing/at/all", true},
        {"", "", true},
    };
    for (const Case &c : cases)
        EXPECT_EQ(c.match, glob_match(c.glob, c.path)) << c.glob << " ~ " << c.path;
}

Status check(const char *rule, const char *path, int32_t datatype, const std::string &value)
{
    VerifierSet set;
    set.add("/tarvo/verifiers/r", rule);
    return set.check(path, datatype, value);
}

std::string u32(uint32_t v) { return std::string(reinterpret_cast<char *>(&v), 4); }
std::string i16(int16_t v) { return std::string(reinterpret_cast<char *>(&v), 2); }
using tarvo_test::str;

TEST(Verifiers, Rules)
{
    struct Case {
        const char *rule;
        const char *path;
        int32_t datatype;
        std::string value;
        int32_t code;
        const char *reason;  // part of the refusal text
    } cases[] = {
        {"/cfg/*/mtu uint32 68..9000", "/cfg/e/mtu", 1, u32(1500), 0, ""},
        {"/cfg/*/mtu uint32 68..9000", "/cfg/e/mtu", 1, u32(68), 0, ""},
        {"/cfg/*/mtu uint32 68..9000", "/cfg/e/mtu", 1, u32(9001), TARVO_ERR_VERIFY_FAILED,
         "value 9001 is outside 68..9000"},
        {"/cfg/*/mtu uint32 68..9000", "/cfg/e/mtu", 3, str("x"), TARVO_ERR_VERIFY_FAILED,
         "datatype must be uint32, not string"},
        {"/cfg/*/mtu uint32 68..9000", "/cfg/e/other", 3, str("x"), 0, ""},
        {"/n int16 -5..5", "/n", 10, i16(-5), 0, ""},
        {"/n int16 -5..5", "/n", 10, i16(-6), TARVO_ERR_VERIFY_FAILED, "-6 is outside -5..5"},
        {"/n uint32 0x10..0x20", "/n", 1, u32(0x20), 0, ""},
        {"/name string /[a-z]+/", "/name", 3, str("eth"), 0, ""},
        {"/name string /[a-z]+/", "/name", 3, str("eth0"), TARVO_ERR_VERIFY_FAILED,
         "does not match"},
        {"/name string /a b/", "/name", 3, str("a b"), 0, ""},
        {"/any uint64", "/any", 2, std::string(8, '\0'), 0, ""},
        // Malformed rules refuse what they cover, and only that.
        {"/m", "/m", 1, u32(1), TARVO_ERR_VERIFY_FAILED, "malformed rule"},
        {"/m nosuchtype", "/m", 1, u32(1), TARVO_ERR_VERIFY_FAILED, "unknown datatype"},
        {"/m uint32 9..1", "/m", 1, u32(5), TARVO_ERR_VERIFY_FAILED, "bad range"},
        {"/m uint32 x..y", "/m", 1, u32(5), TARVO_ERR_VERIFY_FAILED, "bad range"},
        {"/m string 1..2", "/m", 3, str("a"), TARVO_ERR_VERIFY_FAILED, "needs an integer"},
        {"/m uint32 /x/", "/m", 1, u32(1), TARVO_ERR_VERIFY_FAILED, "needs datatype string"},
        {"/m string /(/", "/m", 3, str("("), TARVO_ERR_VERIFY_FAILED, "bad pattern"},
        {"/m uint32 junk", "/m", 1, u32(1), TARVO_ERR_VERIFY_FAILED, "neither"},
        {"/m nosuchtype", "/elsewhere", 1, u32(1), 0, ""},
        {"", "/m", 1, u32(1), 0, ""},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(std::string(c.rule) + " on " + c.path);
        Status s = check(c.rule, c.path, c.datatype, c.value);
        EXPECT_EQ(c.code, s.code) << s.detail;
        EXPECT_NE(std::string::npos, s.detail.find(c.reason)) << s.detail;
        if (s.code) {
            EXPECT_NE(std::string::npos, s.detail.find("rule /tarvo/verifiers/r (")) << s.detail;
        }
    }
}

TEST(Verifiers, ThroughTheApiPerBind)
{
    tarvo_test::DataDir dir;
    tarvo_test::Bound admin("/tarvo/verifiers"), other("/cfg"), mine("/cfg");
    ASSERT_EQ(0, admin.create_str("mtu", "/cfg/*/mtu uint32 68..9000"));
    uint32_t v = 20;
    EXPECT_EQ(TARVO_ERR_VERIFY_FAILED, tarvo_item_create(mine.h, "e/mtu", TARVO_DATATYPE_UINT32, &v, 4, 0, 0));
    EXPECT_EQ(TARVO_ERR_VERIFY_FAILED, tarvo_item_verify(mine.h, "e/mtu", TARVO_DATATYPE_UINT32, &v, 4, 0));
    v = 1500;
    EXPECT_EQ(0, tarvo_item_verify(mine.h, "e/mtu", TARVO_DATATYPE_UINT32, &v, 4, 0));
    ASSERT_EQ(0, tarvo_item_create(mine.h, "e/mtu", TARVO_DATATYPE_UINT32, &v, 4, 0, 0));
    v = 1;
    EXPECT_EQ(TARVO_ERR_VERIFY_FAILED, tarvo_item_set(mine.h, "e/mtu", TARVO_DATATYPE_UINT32, &v, 4, 0));

    // Suspended on one bind only.
    ASSERT_EQ(0, tarvo_verification_suspend(mine.h));
    EXPECT_EQ(0, tarvo_item_set(mine.h, "e/mtu", TARVO_DATATYPE_UINT32, &v, 4, 0));
    EXPECT_EQ(0, tarvo_item_verify(mine.h, "f/mtu", TARVO_DATATYPE_UINT32, &v, 4, 0));
    EXPECT_EQ(TARVO_ERR_VERIFY_FAILED, tarvo_item_set(other.h, "e/mtu", TARVO_DATATYPE_UINT32, &v, 4, 0));
    ASSERT_EQ(0, tarvo_verification_resume(mine.h));
    EXPECT_EQ(TARVO_ERR_VERIFY_FAILED, tarvo_item_set(mine.h, "e/mtu", TARVO_DATATYPE_UINT32, &v, 4, 0));

    // Copies are writes too.
    ASSERT_EQ(0, tarvo_verification_suspend(mine.h));
    ASSERT_EQ(0, tarvo_item_create(mine.h, "src/mtu", TARVO_DATATYPE_UINT32, &v, 4, 0, 0));
    ASSERT_EQ(0, tarvo_verification_resume(mine.h));
    EXPECT_EQ(TARVO_ERR_VERIFY_FAILED, tarvo_copy(mine.h, "src", "dst", "", TARVO_WRITE_OPTION_ATOMIC));

    // A malformed rule is reported when it applies, and a non-string item
    // below /tarvo/verifiers/ is no rule at all.
    ASSERT_EQ(0, admin.create_str("broken", "/cfg/b/* uint99"));
    ASSERT_EQ(0, admin.create_u32("number", 5));
    int rc = tarvo_item_create(mine.h, "b/x", TARVO_DATATYPE_UINT32, &v, 4, 0, 0);
    EXPECT_EQ(TARVO_ERR_VERIFY_FAILED, rc);
    EXPECT_NE(std::string::npos, mine.error_text(rc).find("malformed rule")) << mine.error_text(rc);
    EXPECT_EQ(0, tarvo_item_create(mine.h, "c/x", TARVO_DATATYPE_UINT32, &v, 4, 0, 0));
}

}  // namespace
}  // namespace tarvo
