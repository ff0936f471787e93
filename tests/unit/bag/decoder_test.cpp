/* The decoder: the header checks, damaged XDR bodies, token-list bodies
 * and the handle's life cycle. */
#include <gtest/gtest.h>

#include <cstring>

#include "bag_test_util.h"
#include "platform/bag.h"

using bagtest::decode;
using bagtest::decode_status;
using bagtest::from_hex;
using bagtest::make_bag;

namespace {

std::vector<uint8_t> xdr_bag(const char *type, const std::string &body_hex,
                             uint32_t major = 1, uint32_t minor = 0)
{
    return make_bag(BAG_ENCODING_XDR, type, major, minor, from_hex(body_hex));
}

int header_status(const std::vector<uint8_t> &bag, bag_header_info_td *info = nullptr)
{
    bag_header_info_td local{};
    static const uint8_t none = 0;
    const uint8_t *bytes = bag.empty() ? &none : bag.data();
    return bag_header_info(reinterpret_cast<const bag_td *>(bytes),
                           uint32_t(bag.size()), info ? info : &local);
}

const char NEST_BODY[] = "00000001 00000002 fffffffb 000000c8";

TEST(BagHeader, EveryFaultIsFound)
{
    const std::vector<uint8_t> good = xdr_bag("nest", NEST_BODY);
    auto with = [&good](std::size_t offset, uint8_t byte) {
        std::vector<uint8_t> b = good;
        b[offset] = byte;
        return b;
    };
    auto cut = [&good](std::size_t n) {
        return std::vector<uint8_t>(good.begin(), good.begin() + long(n));
    };
    std::vector<uint8_t> trailing = good;
    trailing.push_back(0);

    struct Case {
        const char *what;
        std::vector<uint8_t> bag;
        int code;
    } cases[] = {
        {"empty", cut(0), BAG_ERR_TRUNCATED},
        {"three bytes", cut(3), BAG_ERR_TRUNCATED},
        {"wrong magic", with(0, 'X'), BAG_ERR_BAD_HEADER},
        {"magic only", cut(10), BAG_ERR_TRUNCATED},
        {"cut in the name", cut(26), BAG_ERR_TRUNCATED},
        {"cut in the body", cut(good.size() - 4), BAG_ERR_TRUNCATED},
        {"trailing byte", trailing, BAG_ERR_BAD_HEADER},
        {"empty name", make_bag(1, "", 1, 0, {}), BAG_ERR_BAD_HEADER},
        {"name of 256", make_bag(1, std::string(256, 'a'), 1, 0, {}), BAG_ERR_BAD_HEADER},
        {"blank in name", make_bag(1, "a b", 1, 0, {}), BAG_ERR_BAD_HEADER},
        {"control in name", make_bag(1, "a\x7f", 1, 0, {}), BAG_ERR_BAD_HEADER},
        {"padding not zero", [] {
             auto b = make_bag(1, "abc", 1, 0, {});
             b[27] = 1;
             return b;
         }(), BAG_ERR_BAD_HEADER},
        {"negative major", make_bag(1, "nest", 0x80000000u, 0, {}), BAG_ERR_BAD_HEADER},
        {"negative minor", make_bag(1, "nest", 0, 0xFFFFFFFFu, {}), BAG_ERR_BAD_HEADER},
        {"name length over 255", with(22, 0x01), BAG_ERR_BAD_HEADER},
        {"name length past the end", with(23, 0xFF), BAG_ERR_TRUNCATED},
        {"body length huge", with(16, 0xFF), BAG_ERR_TRUNCATED},
        {"good", good, 0},
        {"name of 255", make_bag(1, std::string(255, 'z'), 1, 0, {}), 0},
        {"other encoding", make_bag(7, "nest", 2, 3, {}), 0},
    };
    for (const Case &c : cases)
        EXPECT_EQ(header_status(c.bag), c.code) << c.what;

    bag_header_info_td info{};
    ASSERT_EQ(header_status(make_bag(7, "some.type", 2, 3, from_hex("00000000")), &info), 0);
    EXPECT_EQ(info.encoding, 7u);
    EXPECT_STREQ(info.type_name, "some.type");
    EXPECT_EQ(info.type_name, info.type_name_storage);
    EXPECT_EQ(info.major, 2);
    EXPECT_EQ(info.minor, 3);
    EXPECT_EQ(bag_header_info(nullptr, 10, &info), BAG_ERR_BAD_ARGUMENT);
    EXPECT_EQ(bag_header_info(reinterpret_cast<const bag_td *>(good.data()),
                              uint32_t(good.size()), nullptr),
              BAG_ERR_BAD_ARGUMENT);
}

struct Damage {
    const char *what;
    std::vector<uint8_t> bag;
    int code;
};

TEST(Decoder, DamagedBodiesGiveAnErrorCode)
{
    const std::string chain_too_deep = [] {
        std::string s;
        for (int i = 0; i < 64; ++i)
            s += "00000007 00000001 ";
        return s + "00000007 00000000";
    }();
    const Damage cases[] = {
        {"body one word short", xdr_bag("nest", "00000001 00000002 fffffffb"), BAG_ERR_TRUNCATED},
        {"word after the end", xdr_bag("nest", std::string(NEST_BODY) + "00000000"), BAG_ERR_CORRUPT},
        {"uint8 of 256", xdr_bag("nest", "00000001 00000002 fffffffb 00000100"), BAG_ERR_CORRUPT},
        {"pointer of 2", xdr_bag("optionals", "00000002 00000000"), BAG_ERR_CORRUPT},
        {"bool discriminant 2", xdr_bag("unions", "00000000 00000002 00000000"), BAG_ERR_CORRUPT},
        {"enum discriminant not an enumerator",
         xdr_bag("unions", "00000000 00000000 00000004 00000000"), BAG_ERR_CORRUPT},
        {"string over its maximum",
         xdr_bag("texts", "00000005 61626364 65000000"), BAG_ERR_CORRUPT},
        {"string holding a zero byte",
         xdr_bag("texts", "00000002 61006400"), BAG_ERR_CORRUPT},
        {"padding not zero",
         xdr_bag("texts", "00000001 61000001 00000000 0a0b0c00 00000000 00000001 00000000"),
         BAG_ERR_CORRUPT},
        {"opaque over its maximum",
         xdr_bag("texts", "00000000 00000000 0a0b0c00 00000006 01020304 05060000 00000001 00000000"),
         BAG_ERR_CORRUPT},
        {"enum value not an enumerator",
         xdr_bag("texts", "00000000 00000000 0a0b0c00 00000000 00000003 00000000"), BAG_ERR_CORRUPT},
        {"array count over its maximum",
         xdr_bag("arrays", "00000001 00000002 00000003"), BAG_ERR_CORRUPT},
        {"array count beyond the body",
         xdr_bag("arrays", "00000001 00000002 00000000 7fffffff 00000000"), BAG_ERR_TRUNCATED},
        {"linked list deeper than 64", xdr_bag("chain", chain_too_deep), BAG_ERR_TOO_DEEP},
        {"int8 below -128",
         xdr_bag("all_scalars", "ffffff7f"), BAG_ERR_CORRUPT},
        {"empty body", xdr_bag("nest", ""), BAG_ERR_TRUNCATED},
        {"type not registered", xdr_bag("no_such_bag", NEST_BODY), BAG_ERR_TYPE_NOT_REGISTERED},
        {"version not registered", xdr_bag("nest", NEST_BODY, 1, 1), BAG_ERR_VERSION},
        {"unknown encoding", make_bag(3, "nest", 1, 0, from_hex(NEST_BODY)), BAG_ERR_BAD_HEADER},
    };
    for (const Damage &c : cases)
        EXPECT_EQ(decode_status(c.bag), c.code) << c.what;
}

TEST(Decoder, UnionArmsFollowTheDiscriminant)
{
    /* 3 is the second label of the arm offered as 2; 7 names no case and
     * takes the default; BLUE takes the enum union's default. */
    EXPECT_EQ(decode(xdr_bag("unions", "00000003 0000002a 00000000 00000005 00000009")),
              (std::vector<std::string>{"UNION s 3", "INT32 side 42", "UNION n 0", "VOID",
                                        "UNION p 5", "UINT8 other 9", "END"}));
    EXPECT_EQ(decode(xdr_bag("unions", "00000007 00000000 00000000 00000000")),
              (std::vector<std::string>{"UNION s 7", "VOID", "UNION n 0", "VOID",
                                        "UNION p 0", "INT32 red_level 0", "END"}));
}

TEST(Decoder, HandleLifeCycle)
{
    std::vector<uint8_t> bag = xdr_bag("optionals", "00000000 00000002");
    bag_generic_h_td h = nullptr;
    ASSERT_EQ(bag_generic_init(reinterpret_cast<bag_td *>(bag.data()),
                               uint32_t(bag.size()), &h), 0);
    bag_token_td tok;
    ASSERT_EQ(bag_generic_token(&h, &tok), 0);
    EXPECT_EQ(bagtest::describe_token(tok), "POINTER maybe 0");
    /* the error is kept: asking again gives it again */
    EXPECT_EQ(bag_generic_token(&h, &tok), BAG_ERR_CORRUPT);
    EXPECT_EQ(bag_generic_token(&h, &tok), BAG_ERR_CORRUPT);
    bag_generic_destroy(&h);
    EXPECT_EQ(h, nullptr);
    bag_generic_destroy(&h);
    EXPECT_EQ(bag_generic_token(&h, &tok), BAG_ERR_BAD_ARGUMENT);

    bag = xdr_bag("optionals", "00000000 00000000");
    ASSERT_EQ(bag_generic_init(reinterpret_cast<bag_td *>(bag.data()),
                               uint32_t(bag.size()), &h), 0);
    bag.assign(bag.size(), 0xEE); /* the decoder keeps its own copy */
    for (int i = 0; i < 2; ++i)
        ASSERT_EQ(bag_generic_token(&h, &tok), 0);
    ASSERT_EQ(bag_generic_token(&h, &tok), 0);
    EXPECT_EQ(tok.type, uint32_t(BAG_TOKEN_END));
    EXPECT_EQ(bag_generic_token(&h, &tok), BAG_ERR_END_OF_BAG);
    bag_generic_destroy(&h);

    /* freeing twice is harmless */
    bag = xdr_bag("texts", "00000002 68690000 00000000 0a0b0c00 00000000 00000001 00000000");
    ASSERT_EQ(bag_generic_init(reinterpret_cast<bag_td *>(bag.data()),
                               uint32_t(bag.size()), &h), 0);
    ASSERT_EQ(bag_generic_token(&h, &tok), 0);
    EXPECT_STREQ(tok.value.string, "hi");
    EXPECT_EQ(tok.max_length, 4u);
    bag_generic_free_token_allocations(&tok);
    EXPECT_EQ(tok.value.string, nullptr);
    bag_generic_free_token_allocations(&tok);
    bag_generic_destroy(&h);
}

/* ---- Token-list bodies ---- */

std::string record(uint32_t type, const std::string &name, const std::string &payload_hex)
{
    char buf[16];
    std::string s;
    std::snprintf(buf, sizeof buf, "%08x", type);
    s += buf;
    std::snprintf(buf, sizeof buf, "%08zx", name.size());
    s += buf;
    std::string padded = name;
    while (padded.size() % 4)
        padded += '\0';
    s += bagtest::to_hex(std::vector<uint8_t>(padded.begin(), padded.end()));
    std::vector<uint8_t> payload = from_hex(payload_hex);
    std::snprintf(buf, sizeof buf, "%08zx", payload.size());
    s += buf;
    while (payload.size() % 4)
        payload.push_back(0);
    return s + bagtest::to_hex(payload);
}

std::vector<uint8_t> token_list(const std::string &records)
{
    return make_bag(2, "anything", 1, 0, from_hex(records));
}

TEST(Decoder, TokenListsPassEveryTokenOn)
{
    std::string body = record(BAG_TOKEN_INT32, "count", "ffffffff") +
                       record(BAG_TOKEN_LINKED_LIST, "", "") + record(25, "", "abcd") +
                       record(BAG_TOKEN_BOOL, "flag", "00000002") +
                       record(BAG_TOKEN_BEGIN_SCOPE, "inner", "") +
                       record(BAG_TOKEN_STRING, "s", "6869") +
                       record(BAG_TOKEN_OPAQUE, "o", "01abff") +
                       record(BAG_TOKEN_END_SCOPE, "", "") +
                       record(BAG_TOKEN_INADDRT, "ip", "0a000001") +
                       record(BAG_TOKEN_INT64, "big", "fffffffffffffffe") +
                       record(BAG_TOKEN_UINT8, "u8", "000000ff") +
                       record(BAG_TOKEN_END, "", "");
    EXPECT_EQ(decode(token_list(body)),
              (std::vector<std::string>{"INT32 count -1", "LIST", "UNKNOWN", "BOOL flag 2",
                                        "BEGIN inner", "STRING s 'hi'", "OPAQUE o 01abff",
                                        "END_SCOPE", "INADDRT ip 10.0.0.1", "INT64 big -2",
                                        "UINT8 u8 255", "END"}));
}

TEST(Decoder, DamagedTokenListsGiveAnErrorCode)
{
    const std::string end = record(BAG_TOKEN_END, "", "");
    const Damage cases[] = {
        {"scope closed at the top", token_list(record(BAG_TOKEN_END_SCOPE, "", "") + end),
         BAG_ERR_CORRUPT},
        {"end inside a scope", token_list(record(BAG_TOKEN_BEGIN_SCOPE, "", "") + end),
         BAG_ERR_CORRUPT},
        {"int32 of two bytes", token_list(record(BAG_TOKEN_INT32, "x", "0102") + end),
         BAG_ERR_CORRUPT},
        {"void with a value", token_list(record(BAG_TOKEN_VOID, "", "00") + end), BAG_ERR_CORRUPT},
        {"record after the end", token_list(end + end), BAG_ERR_CORRUPT},
        {"no end", token_list(record(BAG_TOKEN_INT32, "x", "00000001")), BAG_ERR_TRUNCATED},
        {"name of 256", token_list(record(BAG_TOKEN_INT32, std::string(256, 'n'), "00000001") + end),
         BAG_ERR_CORRUPT},
        {"string with a zero byte", token_list(record(BAG_TOKEN_STRING, "s", "610062") + end),
         BAG_ERR_CORRUPT},
        {"name with a zero byte", token_list(record(BAG_TOKEN_VOID, std::string("a\0b", 3), "") + end),
         BAG_ERR_CORRUPT},
        {"payload beyond the body", token_list("00000004 00000000 00000100"), BAG_ERR_TRUNCATED},
    };
    for (const Damage &c : cases)
        EXPECT_EQ(decode_status(c.bag), c.code) << c.what;
}

} // namespace
