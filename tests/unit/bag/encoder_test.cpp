/* The encoder, step by step: the choices offered at each position for every
 * construct, the bytes written, and the values it refuses. */
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "bag_test_util.h"
#include "platform/bag.h"

using bagtest::Encoder;

namespace {

using Choices = std::vector<std::string>;

struct Step {
    Choices choices;
    int pick; /* -1: finish the bag here */
    std::string value;
};

struct WalkCase {
    const char *type;
    uint32_t major, minor;
    std::vector<Step> steps;
    std::string body_hex;
};

const Choices ARRAY_NEXT = {"BEGIN pairs", "BEGIN grid", "UINT8 tail", "END"};

const WalkCase WALKS[] = {
    {"nest", 1, 0,
     {{{"BEGIN first"}, 0, ""},
      {{"INT32 a"}, 0, "1"},
      {{"INT32 b"}, 0, "2"},
      {{"END_SCOPE"}, 0, ""},
      {{"BEGIN mid"}, 0, ""},
      {{"BEGIN inner"}, 0, ""},
      {{"INT32 x"}, 0, "-5"},
      {{"END_SCOPE"}, 0, ""},
      {{"END_SCOPE"}, 0, ""},
      {{"UINT8 last"}, 0, "200"},
      {{"END"}, -1, ""}},
     "00000001 00000002 fffffffb 000000c8"},
    /* int discriminant with a default (value 0, the first no case names),
     * bool discriminant, enum discriminant whose default is GREEN */
    {"unions", 1, 0,
     {{{"UNION s 1", "UNION s 2", "UNION s 0"}, 2, ""},
      {{"VOID"}, 0, ""},
      {{"UNION n 1", "UNION n 0"}, 0, ""},
      {{"STRING text max=8"}, 0, "hello"},
      {{"UNION p 0", "UNION p 1"}, 1, ""},
      {{"UINT8 other"}, 0, "7"},
      {{"END"}, -1, ""}},
     "00000000 00000001 00000005 68656c6c 6f000000 00000001 00000007"},
    {"unions", 1, 0,
     {{{"UNION s 1", "UNION s 2", "UNION s 0"}, 1, ""},
      {{"INT32 side"}, 0, "4"},
      {{"UNION n 1", "UNION n 0"}, 1, ""},
      {{"VOID"}, 0, ""},
      {{"UNION p 0", "UNION p 1"}, 0, ""},
      {{"INT32 red_level"}, 0, "-1"},
      {{"END"}, -1, ""}},
     "00000002 00000004 00000000 00000000 ffffffff"},
    {"optionals", 1, 0,
     {{{"POINTER maybe 0", "POINTER maybe 1"}, 1, ""},
      {{"INT32 maybe"}, 0, "9"},
      {{"POINTER p 0", "POINTER p 1"}, 1, ""},
      {{"BEGIN p"}, 0, ""},
      {{"INT32 a"}, 0, "3"},
      {{"INT32 b"}, 0, "4"},
      {{"END_SCOPE"}, 0, ""},
      {{"END"}, -1, ""}},
     "00000001 00000009 00000001 00000003 00000004"},
    {"optionals", 1, 0,
     {{{"POINTER maybe 0", "POINTER maybe 1"}, 0, ""},
      {{"POINTER p 0", "POINTER p 1"}, 0, ""},
      {{"END"}, -1, ""}},
     "00000000 00000000"},
    /* A variable array offers another element together with whatever may
     * follow it; an array of arrays wraps each element in a scope. */
    {"arrays", 1, 0,
     {{{"INT32 fixed"}, 0, "1"},
      {{"INT32 fixed"}, 0, "2"},
      {ARRAY_NEXT, 0, ""},
      {{"INT32 a"}, 0, "5"},
      {{"INT32 b"}, 0, "6"},
      {{"END_SCOPE"}, 0, ""},
      {ARRAY_NEXT, 0, ""},
      {{"INT32 a"}, 0, "7"},
      {{"INT32 b"}, 0, "8"},
      {{"END_SCOPE"}, 0, ""},
      {{"BEGIN grid", "UINT8 tail", "END"}, 0, ""},
      {{"INT32 grid", "END_SCOPE"}, 0, "9"},
      {{"INT32 grid", "END_SCOPE"}, 0, "10"},
      {{"END_SCOPE"}, 0, ""},
      {{"BEGIN grid", "UINT8 tail", "END"}, 1, "1"},
      {{"UINT8 tail", "END"}, 0, "2"},
      {{"UINT8 tail", "END"}, 0, "3"},
      {{"END"}, -1, ""}},
     "00000001 00000002 00000002 00000005 00000006 00000007 00000008 00000001 "
     "00000002 00000009 0000000a 00000003 00000001 00000002 00000003"},
    {"arrays", 1, 0,
     {{{"INT32 fixed"}, 0, "1"},
      {{"INT32 fixed"}, 0, "2"},
      {ARRAY_NEXT, 3, ""}}, /* the end taken as a token */
     "00000001 00000002 00000000 00000000 00000000"},
    {"arrays", 1, 0,
     {{{"INT32 fixed"}, 0, "1"},
      {{"INT32 fixed"}, 0, "2"},
      {ARRAY_NEXT, -1, ""}}, /* finishing where the end is one choice of many */
     "00000001 00000002 00000000 00000000 00000000"},
    {"two_lists", 1, 0,
     {{{"INT32 first", "INT32 second", "END"}, 1, "4"},
      {{"INT32 second", "END"}, -1, ""}},
     "00000000 00000001 00000004"},
    {"chain", 1, 0,
     {{{"INT32 v"}, 0, "1"},
      {{"POINTER next 0", "POINTER next 1"}, 1, ""},
      {{"BEGIN next"}, 0, ""},
      {{"INT32 v"}, 0, "2"},
      {{"POINTER next 0", "POINTER next 1"}, 0, ""},
      {{"END_SCOPE"}, 0, ""},
      {{"END"}, -1, ""}},
     "00000001 00000001 00000002 00000000"},
    {"texts", 1, 1,
     {{{"STRING bounded max=4"}, 0, "abcd"},
      {{"STRING free max=inf"}, 0, ""},
      {{"OPAQUE fixed min=3 max=3"}, 0, "0a0b0c"},
      {{"OPAQUE var min=0 max=5"}, 0, "ff"},
      {{"ENUM anon type=(none)"}, 0, "2"},
      {{"ENUM named type=color"}, 0, "5"},
      {{"END"}, 0, ""}, /* the end taken as a token, then finished */
      },
     "00000004 61626364 00000000 0a0b0c00 00000001 ff000000 00000002 00000005"},
    {"interface", 1, 0,
     {{{"STRING name max=16"}, 0, "eth0"},
      {{"ENUM state type=if_state"}, 0, "1"},
      {{"UINT16 mtu"}, 0, "1500"},
      {{"UNION addr 1", "UNION addr 2", "UNION addr 0"}, 0, ""},
      {{"INADDRT address"}, 0, "10.0.0.1"},
      {{"POINTER counters 0", "POINTER counters 1"}, 0, ""},
      {{"UINT16 vlans", "END"}, 0, "10"},
      {{"UINT16 vlans", "END"}, 0, "20"},
      {{"UINT16 vlans", "END"}, -1, ""}},
     "00000004 65746830 00000001 000005dc 00000001 0a000001 00000000 00000002 "
     "0000000a 00000014"},
};

TEST(Encoder, OffersExactlyWhatTheSchemaAllowsAndWritesXdr)
{
    for (const WalkCase &c : WALKS) {
        SCOPED_TRACE(c.type);
        Encoder enc(c.type, c.major, c.minor);
        ASSERT_EQ(enc.init_result(), 0);
        for (std::size_t i = 0; i < c.steps.size(); ++i) {
            const Step &step = c.steps[i];
            SCOPED_TRACE("step " + std::to_string(i + 1));
            ASSERT_EQ(enc.choices(), step.choices);
            if (step.pick >= 0) {
                ASSERT_EQ(enc.take(uint32_t(step.pick), step.value), 0);
            }
        }
        std::vector<uint8_t> bag;
        ASSERT_EQ(enc.finish(bag), 0);
        bag_header_info_td info{};
        ASSERT_EQ(bag_header_info(reinterpret_cast<bag_td *>(bag.data()),
                                  uint32_t(bag.size()), &info), 0);
        std::size_t header = 24 + (std::strlen(c.type) + 3) / 4 * 4;
        EXPECT_EQ(bagtest::to_hex({bag.begin() + long(header), bag.end()}),
                  bagtest::to_hex(bagtest::from_hex(c.body_hex)));

        /* The decoder gives back what was taken, then the end. */
        std::vector<std::string> expected = enc.taken();
        if (expected.empty() || expected.back() != "END")
            expected.push_back("END");
        EXPECT_EQ(bagtest::decode(bag), expected);
    }
}

struct Refusal {
    const char *type;
    uint32_t major, minor;
    std::vector<std::pair<int, std::string>> prefix;
    int pick;
    std::string value;
    int code;
};

const Refusal REFUSALS[] = {
    {"texts", 1, 0, {}, 0, "abcde", BAG_ERR_BAD_VALUE},
    {"texts", 1, 0, {{0, "a"}, {0, "b"}}, 0, "0a0b", BAG_ERR_BAD_VALUE},
    {"texts", 1, 0, {{0, "a"}, {0, "b"}}, 0, "0a0b0c0d", BAG_ERR_BAD_VALUE},
    {"texts", 1, 0, {{0, "a"}, {0, "b"}, {0, "000000"}}, 0, "010203040506", BAG_ERR_BAD_VALUE},
    {"texts", 1, 0, {{0, "a"}, {0, "b"}, {0, "000000"}, {0, ""}}, 0, "3", BAG_ERR_BAD_VALUE},
    {"texts", 1, 0, {{0, "a"}, {0, "b"}, {0, "000000"}, {0, ""}, {0, "1"}}, 0, "2",
     BAG_ERR_BAD_VALUE},
    {"all_scalars", 1, 0,
     {{0, "1"}, {0, "1"}, {0, "1"}, {0, "1"}, {0, "1"}, {0, "1"}, {0, "1"}, {0, "1"},
      {0, "1.2.3.4"}, {0, "1"}},
     0, "2", BAG_ERR_BAD_VALUE},
    {"all_scalars", 1, 0, {{0, "1"}}, 3, "", -1}, /* no fourth choice */
};

TEST(Encoder, RefusesValuesOutsideTheSchema)
{
    for (const Refusal &r : REFUSALS) {
        SCOPED_TRACE(std::string(r.type) + " value " + r.value);
        Encoder enc(r.type, r.major, r.minor);
        ASSERT_EQ(enc.init_result(), 0);
        for (const auto &[pick, value] : r.prefix)
            ASSERT_EQ(enc.take(uint32_t(pick), value), 0);
        EXPECT_EQ(enc.take(uint32_t(r.pick), r.value), r.code);
        /* A refused token leaves the position as it was. */
        EXPECT_FALSE(enc.choices().empty());
    }
}

/* Choices of a context, kept as tokens. */
std::vector<bag_token_td> raw_choices(bag_encode_context_td *ctx)
{
    bag_token_td *list = nullptr;
    uint32_t count = 0;
    EXPECT_EQ(bag_generic_encode_get_choices(ctx, &list, &count), 0);
    std::vector<bag_token_td> out(list, list + count);
    std::free(list);
    return out;
}

TEST(Encoder, TokensAreCheckedAgainstTheChoiceTheyCameFrom)
{
    Encoder enc("unions", 1, 0);
    std::vector<bag_token_td> list = raw_choices(enc.context());
    ASSERT_EQ(list.size(), 3u);

    bag_token_td tok = list[0];
    tok.value.u32 = 2; /* the arm offered with 1 */
    EXPECT_EQ(enc.take_token(tok), BAG_ERR_BAD_VALUE);
    tok = list[0];
    tok.type = BAG_TOKEN_INT32;
    EXPECT_EQ(enc.take_token(tok), BAG_ERR_BAD_TOKEN);
    tok = list[0];
    tok.flags = 0x80000000u | 7; /* an index this position never offered */
    EXPECT_EQ(enc.take_token(tok), BAG_ERR_BAD_TOKEN);

    /* Built by hand (no choice index): matched by type, name and value. */
    bag_token_td hand{};
    hand.type = BAG_TOKEN_UNION_CHOICE;
    hand.name = "s";
    hand.value.u32 = 3; /* a label of an arm, but not the one offered */
    EXPECT_EQ(enc.take_token(hand), BAG_ERR_BAD_TOKEN);
    hand.value.u32 = 2;
    ASSERT_EQ(enc.take_token(hand), 0);
    EXPECT_EQ(enc.choices(), Choices{"INT32 side"});

    /* A choice of an earlier position is matched by name here, and the
     * union choice named s is no longer allowed. */
    EXPECT_EQ(enc.take_token(list[1]), BAG_ERR_BAD_TOKEN);
    hand = bag_token_td{};
    hand.type = BAG_TOKEN_INT32;
    hand.name = "radius";
    EXPECT_EQ(enc.take_token(hand), BAG_ERR_BAD_TOKEN);
    hand.name = "side";
    EXPECT_EQ(enc.take_token(hand), 0);
}

TEST(Encoder, ContextsStayValidAndBranchIndependently)
{
    Encoder enc("two_lists", 1, 0);
    bag_encode_context_td *start = enc.context();
    std::vector<bag_token_td> list = raw_choices(start);
    ASSERT_EQ(list.size(), 3u);

    bag_encode_context_td *left = nullptr, *right = nullptr;
    list[0].value.i32 = 1;
    ASSERT_EQ(bag_generic_encode_token(start, &list[0], &left), 0);
    list[1].value.i32 = 2;
    ASSERT_EQ(bag_generic_encode_token(start, &list[1], &right), 0);

    auto finish = [](bag_encode_context_td *ctx) {
        bag_td *bag = nullptr;
        uint32_t size = 0;
        EXPECT_EQ(bag_generic_encode_finish(ctx, &bag, &size), 0);
        auto *p = reinterpret_cast<uint8_t *>(bag);
        std::vector<uint8_t> body(p + 36, p + size); /* after the header */
        std::free(bag);
        return bagtest::to_hex(body);
    };
    EXPECT_EQ(finish(left), "000000010000000100000000");
    EXPECT_EQ(finish(right), "000000000000000100000002");
    EXPECT_EQ(finish(start), "0000000000000000");
    bag_generic_encode_context_free(left);
    bag_generic_encode_context_free(right);
}

TEST(Encoder, EndAndIncompleteBags)
{
    Encoder enc("chain", 1, 0);
    std::vector<uint8_t> bag;
    EXPECT_EQ(enc.finish(bag), BAG_ERR_INCOMPLETE);
    ASSERT_EQ(enc.take(0, "5"), 0);
    EXPECT_EQ(enc.finish(bag), BAG_ERR_INCOMPLETE);
    ASSERT_EQ(enc.take(0), 0);
    ASSERT_EQ(enc.take(0), 0); /* the end itself */
    int rc = 0;
    EXPECT_TRUE(enc.choices(&rc).empty());
    EXPECT_EQ(rc, BAG_ERR_END_OF_BAG);
    bag_token_td end{};
    end.type = BAG_TOKEN_END;
    EXPECT_EQ(enc.take_token(end), BAG_ERR_END_OF_BAG);
    ASSERT_EQ(enc.finish(bag), 0);
    EXPECT_EQ(bagtest::decode(bag),
              (std::vector<std::string>{"INT32 v 5", "POINTER next 0", "END"}));
}

TEST(Encoder, StartErrors)
{
    bag_encoder_td *enc = nullptr;
    EXPECT_EQ(bag_generic_encode_init("no_such_bag", 1, 0, 0, &enc), BAG_ERR_TYPE_NOT_REGISTERED);
    EXPECT_EQ(bag_generic_encode_init("texts", 1, 2, 0, &enc), BAG_ERR_VERSION);
    EXPECT_EQ(bag_generic_encode_init("texts", 0x80000001u, 0, 0, &enc), BAG_ERR_VERSION);
    EXPECT_EQ(bag_generic_encode_init("texts", 1, 0, 1, &enc), BAG_ERR_BAD_ARGUMENT);
    EXPECT_EQ(bag_generic_encode_init(nullptr, 1, 0, 0, &enc), BAG_ERR_BAD_ARGUMENT);
    EXPECT_EQ(enc, nullptr);
    bag_token_td *list = nullptr;
    uint32_t count = 0;
    EXPECT_EQ(bag_generic_encode_get_choices(nullptr, &list, &count), BAG_ERR_BAD_ARGUMENT);
}

TEST(Encoder, NestingIsBoundedAtSixtyFourLevels)
{
    Encoder enc("chain", 1, 0);
    int links = 0;
    for (;;) {
        ASSERT_EQ(enc.take(0, std::to_string(links)), 0);
        ASSERT_EQ(enc.take(1), 0); /* next present */
        int rc = 0;
        Choices next = enc.choices(&rc);
        if (rc != 0) {
            EXPECT_EQ(rc, BAG_ERR_TOO_DEEP);
            break;
        }
        ASSERT_EQ(next, Choices{"BEGIN next"});
        ASSERT_EQ(enc.take(0), 0);
        ++links;
        ASSERT_LT(links, 100);
    }
    /* the bag's own fields are at depth 1, so 63 scopes fit */
    EXPECT_EQ(links, 63);
}

TEST(Encoder, RefusesBagsWithMoreTokensThanBytes)
{
    Encoder enc("deep", 1, 0);
    for (int i = 0; i < 19; ++i)
        ASSERT_EQ(enc.take(0), 0);
    ASSERT_EQ(enc.take(0, "1"), 0);
    for (int i = 0; i < 19; ++i)
        ASSERT_EQ(enc.take(0), 0);
    std::vector<uint8_t> bag;
    EXPECT_EQ(enc.finish(bag), BAG_ERR_TOO_DEEP);
}

} // namespace

namespace {

/* Optional data inside a union nests without scopes; the walk is bounded by
 * the frame limit instead, and a long chain still ends and decodes. */
TEST(Encoder, UnscopedNestingIsBoundedToo)
{
    auto descend = [](Encoder &enc, int levels) {
        for (int i = 0; i < levels; ++i) {
            int rc = 0;
            Choices c = enc.choices(&rc);
            if (rc != 0)
                return rc;
            EXPECT_EQ(c.size(), 2u);
            EXPECT_EQ(enc.take(0), 0);    /* more = TRUE */
            if (enc.take(1) != 0)         /* next present */
                return -1;
        }
        return 0;
    };
    Encoder deep("link_chain", 1, 0);
    int rc = descend(deep, 2000);
    EXPECT_EQ(rc, BAG_ERR_TOO_DEEP);
    /* two frames and two tokens per level, 1024 frames at most */
    EXPECT_GT(deep.taken().size(), 1000u);
    EXPECT_LE(deep.taken().size(), 1026u);

    Encoder chain("link_chain", 1, 0);
    ASSERT_EQ(descend(chain, 400), 0);
    ASSERT_EQ(chain.choices(), (Choices{"UNION next 1", "UNION next 0"}));
    ASSERT_EQ(chain.take(1), 0);
    ASSERT_EQ(chain.choices(), Choices{"VOID"});
    ASSERT_EQ(chain.take(0), 0);
    ASSERT_EQ(chain.choices(), Choices{"END"});
    std::vector<uint8_t> bag;
    ASSERT_EQ(chain.finish(bag), 0);
    std::vector<std::string> expected = chain.taken();
    expected.push_back("END");
    EXPECT_EQ(bagtest::decode(bag), expected);
}

} // namespace
