// Fuzz target: the bag decoder on arbitrary bytes. The first byte chooses
// how the rest is read: as the XDR body of one of the sample bag types, as
// a token-list body, or as a whole bag with its own header. Whatever comes
// in, decoding ends with an error code or the end token, never yields more
// tokens than the bag has bytes, and every text and byte run it hands out
// can be read. An XDR bag that decodes is encoded again from its tokens and
// must come out byte for byte the same.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "platform/bag.h"

namespace {

struct SampleType {
    const char *name;
    uint32_t major, minor;
};

const SampleType TYPES[] = {
    {"interface", 1, 0}, {"interface", 2, 0}, {"static_route", 1, 0}, {"all_scalars", 1, 0}};
constexpr unsigned TYPE_COUNT = sizeof TYPES / sizeof TYPES[0];

void check(bool condition)
{
    if (!condition) {
        abort();
    }
}

void put_word(std::vector<uint8_t> &out, uint32_t v)
{
    for (int shift = 24; shift >= 0; shift -= 8) {
        out.push_back(uint8_t(v >> shift));
    }
}

std::vector<uint8_t> make_bag(uint32_t encoding, const SampleType &t, const uint8_t *body,
                              size_t size)
{
    std::vector<uint8_t> out = {'T', 'B', 'A', 'G'};
    put_word(out, encoding);
    put_word(out, t.major);
    put_word(out, t.minor);
    put_word(out, uint32_t(size));
    put_word(out, uint32_t(strlen(t.name)));
    out.insert(out.end(), t.name, t.name + strlen(t.name));
    while (out.size() % 4 != 0) {
        out.push_back(0);
    }
    out.insert(out.end(), body, body + size);
    return out;
}

bool known_code(int rc)
{
    return rc == BAG_ERR_TRUNCATED || rc == BAG_ERR_CORRUPT || rc == BAG_ERR_TOO_DEEP ||
           rc == BAG_ERR_BAD_HEADER || rc == BAG_ERR_TYPE_NOT_REGISTERED ||
           rc == BAG_ERR_VERSION;
}

/* Reads everything a token points at, so that the sanitizers see it. */
size_t touch(const bag_token_td &tok)
{
    size_t sum = 0;
    if (tok.name != nullptr) {
        sum += strlen(tok.name);
    }
    if (tok.type == BAG_TOKEN_STRING) {
        check(tok.value.string != nullptr);
        sum += strlen(tok.value.string);
    }
    if (tok.type == BAG_TOKEN_OPAQUE) {
        const uint8_t *p = static_cast<const uint8_t *>(tok.opaque);
        check(p != nullptr);
        for (uint32_t i = 0; i < tok.value.u32; i++) {
            sum += p[i];
        }
    }
    return sum;
}

/* Decodes; keeps the tokens (with their own copies of texts and bytes) for
 * the re-encoding. Returns the decoder's final code. */
struct Kept {
    bag_token_td token;
    std::string name;
    bool has_name;
    std::string text;
    std::vector<uint8_t> bytes;
};

int decode(const std::vector<uint8_t> &bag, std::vector<Kept> &kept)
{
    static const uint8_t no_bytes = 0;
    const uint8_t *bytes = bag.empty() ? &no_bytes : bag.data();
    bag_generic_h_td h = nullptr;
    int rc = bag_generic_init(reinterpret_cast<const bag_td *>(bytes),
                              uint32_t(bag.size()), &h);
    if (rc != 0) {
        check(h == nullptr);
        return rc;
    }
    size_t tokens = 0;
    for (;;) {
        bag_token_td tok;
        rc = bag_generic_token(&h, &tok);
        if (rc != 0) {
            break;
        }
        check(++tokens <= bag.size());
        touch(tok);
        Kept k{tok, tok.name != nullptr ? tok.name : "", tok.name != nullptr, {}, {}};
        if (tok.type == BAG_TOKEN_STRING) {
            k.text = tok.value.string;
        }
        if (tok.type == BAG_TOKEN_OPAQUE) {
            const uint8_t *p = static_cast<const uint8_t *>(tok.opaque);
            k.bytes.assign(p, p + tok.value.u32);
        }
        bag_generic_free_token_allocations(&tok);
        kept.push_back(k);
        if (tok.type == BAG_TOKEN_END) {
            check(bag_generic_token(&h, &tok) == BAG_ERR_END_OF_BAG);
            break;
        }
    }
    bag_generic_destroy(&h);
    check(h == nullptr);
    return rc;
}

/* Encodes the decoded tokens of an XDR bag again. */
void reencode(const SampleType &t, std::vector<Kept> &kept, const std::vector<uint8_t> &bag)
{
    bag_encoder_td *enc = nullptr;
    check(bag_generic_encode_init(t.name, t.major, t.minor, 0, &enc) == 0);
    bag_encode_context_td *ctx = nullptr;
    check(bag_generic_encode_get_context(enc, &ctx) == 0);
    bool same_path = true;
    for (Kept &k : kept) {
        if (k.token.type == BAG_TOKEN_END) {
            break;
        }
        k.token.flags = 0;
        k.token.name = k.has_name ? k.name.c_str() : nullptr;
        if (k.token.type == BAG_TOKEN_STRING) {
            k.token.value.string = k.text.data();
        }
        if (k.token.type == BAG_TOKEN_OPAQUE) {
            k.token.opaque = k.bytes.data();
        }
        bag_encode_context_td *next = nullptr;
        int rc = bag_generic_encode_token(ctx, &k.token, &next);
        if (rc != 0) {
            /* Only a union label the encoder does not offer (the second
             * label of an arm, a default value) may be refused. */
            check(k.token.type == BAG_TOKEN_UNION_CHOICE && rc == BAG_ERR_BAD_TOKEN);
            same_path = false;
            break;
        }
        bag_generic_encode_context_free(ctx);
        ctx = next;
    }
    if (same_path) {
        bag_td *out = nullptr;
        uint32_t size = 0;
        check(bag_generic_encode_finish(ctx, &out, &size) == 0);
        check(size == bag.size() && memcmp(out, bag.data(), size) == 0);
        free(out);
    }
    bag_generic_encode_context_free(ctx);
    bag_generic_encode_done(enc);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    setenv("TARVO_BAG_PATH", TARVO_BAG_FUZZ_PATH, 1);
    check(bag_schema_diagnostics() == nullptr);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0 || size > (1u << 20)) {
        return 0;
    }
    unsigned mode = data[0] % (TYPE_COUNT + 2);
    std::vector<uint8_t> bag;
    if (mode < TYPE_COUNT) {
        bag = make_bag(BAG_ENCODING_XDR, TYPES[mode], data + 1, size - 1);
    } else if (mode == TYPE_COUNT) {
        bag = make_bag(2, SampleType{"anything", 1, 0}, data + 1, size - 1);
    } else {
        bag.assign(data + 1, data + size);
    }
    std::vector<Kept> kept;
    int rc = decode(bag, kept);
    check(rc == 0 || known_code(rc));
    if (rc == 0) {
        check(!kept.empty() && kept.back().token.type == BAG_TOKEN_END);
        if (mode < TYPE_COUNT) {
            reencode(TYPES[mode], kept, bag);
        }
    }
    return 0;
}
