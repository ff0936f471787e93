/* Random walks through every registered bag type: whatever the encoder
 * accepts, the decoder gives back token for token, and no shorter body
 * decodes. Damaged bags are the decoder fuzz target's, whose corpus every
 * build replays. */
#include <gtest/gtest.h>

#include <cstdlib>
#include <algorithm>
#include <cstring>
#include <random>

#include "bag_test_util.h"
#include "platform/bag.h"
#include "registry.h"

namespace {

class Walker {
public:
    explicit Walker(uint32_t seed) : rng_(seed) {}

    /* Builds one bag of the type at random; false when the walk ran into
     * the nesting limit (allowed, and then nothing is checked). */
    bool walk(const tarvo_bag::BagDeclaration &decl, std::vector<uint8_t> &bag,
              std::vector<std::string> &tokens)
    {
        bagtest::Encoder enc(decl.name.c_str(), uint32_t(decl.major), uint32_t(decl.minor));
        EXPECT_EQ(enc.init_result(), 0);
        for (int step = 0; step < 5000; ++step) {
            bag_token_td *list = nullptr;
            uint32_t count = 0;
            int rc = bag_generic_encode_get_choices(enc.context(), &list, &count);
            if (rc == BAG_ERR_TOO_DEEP)
                return false;
            EXPECT_EQ(rc, 0);
            if (rc != 0)
                return false;
            std::vector<bag_token_td> choices(list, list + count);
            std::free(list);
            uint32_t i = pick(choices, step);
            if (choices[i].type == BAG_TOKEN_END && coin(0.5)) {
                if (finish(enc, bag) != 0)
                    return false;
                tokens = enc.taken();
                tokens.push_back("END");
                return true;
            }
            if (!take(enc, choices[i]))
                return false;
            if (choices[i].type == BAG_TOKEN_END) {
                if (finish(enc, bag) != 0)
                    return false;
                tokens = enc.taken();
                return true;
            }
        }
        ADD_FAILURE() << "walk did not end";
        return false;
    }

private:
    /* Nesting around tiny fields may give more tokens than bytes, which the
     * encoder refuses at the end; any other failure is one. */
    static int finish(bagtest::Encoder &enc, std::vector<uint8_t> &bag)
    {
        int rc = enc.finish(bag);
        if (rc != BAG_ERR_TOO_DEEP) {
            EXPECT_EQ(rc, 0);
        }
        return rc;
    }

    bool coin(double p) { return std::uniform_real_distribution<>(0, 1)(rng_) < p; }
    uint32_t below(uint32_t n) { return std::uniform_int_distribution<uint32_t>(0, n - 1)(rng_); }

    /* Early on any choice; later the ones that lead out (the end, closing a
     * scope, absent optional data, the last alternative). */
    uint32_t pick(const std::vector<bag_token_td> &choices, int step)
    {
        uint32_t n = uint32_t(choices.size());
        if (step < 40 && !coin(0.3))
            return below(n);
        for (uint32_t i = 0; i < n; ++i)
            if (choices[i].type == BAG_TOKEN_END || choices[i].type == BAG_TOKEN_END_SCOPE)
                return i;
        for (uint32_t i = 0; i < n; ++i)
            if (choices[i].type == BAG_TOKEN_POINTER_CHOICE && choices[i].value.u32 == 0)
                return i;
        return n - 1;
    }

    bool take(bagtest::Encoder &enc, bag_token_td tok)
    {
        std::string text;
        std::vector<uint8_t> bytes;
        switch (tok.type) {
        case BAG_TOKEN_ENUM: /* try small numbers until one is an enumerator */
            for (int v = 0; v < 16; ++v) {
                tok.value.i32 = v;
                if (enc.take_token(tok) == 0)
                    return true;
            }
            ADD_FAILURE() << "no enumerator below 16";
            return false;
        case BAG_TOKEN_BOOL:
            tok.value.u32 = below(2);
            break;
        case BAG_TOKEN_STRING: {
            uint32_t n = below(std::min<uint32_t>(tok.max_length, 20) + 1);
            for (uint32_t k = 0; k < n; ++k)
                text += char('a' + below(26));
            tok.value.string = text.data();
            break;
        }
        case BAG_TOKEN_OPAQUE: {
            uint32_t lo = uint32_t(tok.min_length);
            uint32_t hi = std::max(lo, std::min<uint32_t>(tok.max_length, 40));
            bytes.resize(lo + below(hi - lo + 1));
            for (uint8_t &b : bytes)
                b = uint8_t(below(256));
            tok.value.u32 = uint32_t(bytes.size());
            tok.opaque = bytes.data();
            break;
        }
        case BAG_TOKEN_UNION_CHOICE:
        case BAG_TOKEN_POINTER_CHOICE:
            break; /* the value is the choice */
        default:
            tok.value.u64 = (uint64_t(rng_()) << 32) | rng_();
            break;
        }
        int rc = enc.take_token(tok);
        EXPECT_EQ(rc, 0) << bagtest::describe_choice(tok);
        return rc == 0;
    }

    std::mt19937 rng_;
};

TEST(RoundTrip, EveryRegisteredTypeDecodesToWhatWasEncoded)
{
    Walker walker(20240611);
    int bags = 0;
    for (const tarvo_bag::RegisteredBag *reg : tarvo_bag::Registry::global().all()) {
        const tarvo_bag::BagDeclaration &decl = *reg->declaration;
        SCOPED_TRACE(decl.name);
        for (int n = 0; n < 60; ++n) {
            std::vector<uint8_t> bag;
            std::vector<std::string> tokens;
            if (!walker.walk(decl, bag, tokens))
                continue;
            ++bags;
            ASSERT_EQ(bagtest::decode(bag), tokens);

            /* Bodies are prefix-free: a shorter body with a matching header
             * never decodes. */
            bag_header_info_td info{};
            ASSERT_EQ(bag_header_info(reinterpret_cast<bag_td *>(bag.data()),
                                      uint32_t(bag.size()), &info), 0);
            std::size_t header = 24 + (decl.name.size() + 3) / 4 * 4;
            for (std::size_t cut = header; cut < bag.size(); cut += 4) {
                std::vector<uint8_t> body(bag.begin() + long(header), bag.begin() + long(cut));
                auto shorter = bagtest::make_bag(1, decl.name, uint32_t(decl.major),
                                                 uint32_t(decl.minor), body);
                ASSERT_NE(bagtest::decode_status(shorter), 0) << "cut at " << cut;
            }
        }
    }
    EXPECT_GT(bags, 300);
}

} // namespace
