// The etcd backend's range answer reader and read cache, which the model
// and golden runs on a live cluster reach only with well-formed answers.
#include <gtest/gtest.h>

#include "etcd_cache.h"
#include "etcd_client.h"

namespace tarvo {
namespace {

struct AnswerCase {
    const char *name;
    std::string text;
    bool ok;
    std::vector<std::pair<std::string, std::string>> kvs;
    bool more;
};

TEST(EtcdRangeAnswer, Table)
{
    const std::string kv_a = R"({"key":"YQ==","create_revision":"3","mod_revision":"4","version":"2","value":"eHl6"})";
    const AnswerCase cases[] = {
        {"whole answer",
         R"({"header":{"cluster_id":"1","revision":"9","raft_term":"2"},"kvs":[)" + kv_a +
             R"(,{"key":"Yg","value":"AAEC/w=="}],"more":true,"count":"5"})",
         true, {{"a", "xyz"}, {"b", std::string("\0\1\2\xff", 4)}}, true},
        {"no kvs member (empty range)", R"({"header":{"revision":"9"}})", true, {}, false},
        {"empty kvs, blanks", " { \"kvs\" : [ ] , \"more\" : false }\n", true, {}, false},
        {"value left out (empty value)", R"({"kvs":[{"key":"YQ=="}]})", true, {{"a", ""}}, false},
        {"escaped characters", R"({"kvs":[{"key":"Y\u0051\/\/","value":"e\u0048l6"}],"x":"a\"}\\"})",
         true, {{"a\x0f\xff", "xyz"}}, false},
        {"escape that is no base64", R"({"kvs":[{"key":"YQ==","value":"\"\n"}]})", false, {}, false},
        {"bad escape", R"({"kvs":[{"key":"Y\q"}]})", false, {}, false},
        {"nested values skipped", R"({"h":{"a":[1,-2.5e3,null,{"b":true}]},"kvs":null})", true, {},
         false},
        {"bad base64", R"({"kvs":[{"key":"Y*==","value":""}]})", false, {}, false},
        {"error answer", R"({"error":"etcdserver: mvcc: required revision has been compacted","code":11})",
         false, {}, false},
        {"kvs of strings", R"({"kvs":["YQ=="]})", false, {}, false},
        {"cut short", R"({"kvs":[{"key":"YQ==")", false, {}, false},
        {"trailing text", R"({"kvs":[]} x)", false, {}, false},
        {"not JSON", "<html>bad gateway</html>", false, {}, false},
        {"more not a literal", R"({"more":"true"})", false, {}, false},
    };
    for (const AnswerCase &c : cases) {
        std::vector<KV> kvs;
        bool more = false;
        EXPECT_EQ(read_range_answer(c.text, &kvs, &more), c.ok) << c.name;
        if (!c.ok)
            continue;
        EXPECT_EQ(more, c.more) << c.name;
        ASSERT_EQ(kvs.size(), c.kvs.size()) << c.name;
        for (size_t i = 0; i < kvs.size(); i++) {
            EXPECT_EQ(kvs[i].key, c.kvs[i].first) << c.name;
            EXPECT_EQ(kvs[i].value, c.kvs[i].second) << c.name;
        }
    }
}

TEST(EtcdBase64, RoundTrip)
{
    for (const std::string &text : {std::string(), std::string("a"), std::string("ab"),
                                   std::string("abc"), std::string("\0\xff\x80q", 4)}) {
        std::string back = "stale";
        ASSERT_TRUE(base64_decode(base64_encode(text), &back));
        EXPECT_EQ(back, text);
    }
    std::string out;
    EXPECT_FALSE(base64_decode("YW J", &out));
}

std::string keys(const std::vector<KV> &kvs)
{
    std::string out;
    for (const KV &kv : kvs)
        out += kv.key + ";";
    return out;
}

// A span of k1..k5 with the key k2 changed and k4 deleted by a commit, and
// the ranges that the cache answers or sends on to etcd.
TEST(EtcdReadCache, SpanRangesAndChanges)
{
    EtcdReadCache cache;
    cache.add_span("k1", "k6", {{"k1", "1"}, {"k2", "2"}, {"k3", "3"}, {"k4", "4"}, {"k5", "5"}},
                   "k1");
    cache.apply("k2", std::string("two"));
    cache.apply("k4", std::nullopt);
    cache.apply("k25", std::string("new"));
    cache.apply("k9", std::string("outside"));

    struct RangeCase {
        std::string lo, hi;
        uint32_t limit;
        bool whole;
        std::string keys;
        bool more;
        std::string resume;
    } cases[] = {
        {"k1", "k6", 10, true, "k1;k2;k25;k3;k5;", false, ""},
        {"k2", "k3", 10, true, "k2;k25;", false, ""},
        {"k1", "k6", 2, true, "k1;k2;", true, ""},
        {"k3", "k8", 2, true, "k3;k5;", true, ""},     // limit met, the span ends
        {"k3", "k8", 5, false, "k3;k5;", false, "k6"},  // goes on past the span
        {"k6", "k8", 5, false, "", false, "k6"},        // starts at its end
        {"k0", "k8", 5, false, "", false, "k0"},        // starts before it
        {"k7", "k8", 5, false, "", false, "k7"},
    };
    for (const RangeCase &c : cases) {
        std::vector<KV> out;
        bool more = false;
        std::string resume;
        const std::string name = c.lo + ".." + c.hi;
        EXPECT_EQ(cache.range(c.lo, c.hi, c.limit, &out, &more, &resume), c.whole) << name;
        EXPECT_EQ(keys(out), c.keys) << name;
        if (c.whole)
            EXPECT_EQ(more, c.more) << name;
        else
            EXPECT_EQ(resume, c.resume) << name;
    }

    std::string value;
    EXPECT_EQ(cache.find("k2", &value), 1);
    EXPECT_EQ(value, "two");
    EXPECT_EQ(cache.find("k4", &value), 0);
    EXPECT_EQ(cache.find("k9", &value), -1);  // outside the span and never read
    cache.remember("k9", std::nullopt);
    cache.apply("k9", std::string("nine"));
    EXPECT_EQ(cache.find("k9", &value), 1);
    EXPECT_EQ(value, "nine");

    // A fetch from the span's end extends it; one from elsewhere replaces it.
    EXPECT_TRUE(cache.continues("k6"));
    cache.add_span("k6", "k8", {{"k7", "7"}}, "k3");
    std::vector<KV> out;
    bool more = true;
    std::string resume;
    EXPECT_TRUE(cache.range("k5", "k8", 10, &out, &more, &resume));
    EXPECT_EQ(keys(out), "k5;k7;");
    EXPECT_FALSE(more);
    cache.add_span("m", "n", {}, "m");
    EXPECT_EQ(cache.find("k5", &value), -1);
    EXPECT_EQ(cache.find("m1", &value), 0);
}

}  // namespace
}  // namespace tarvo
