// Fuzz target: the schema parser on arbitrary text. A refused text gives
// one "fuzz.x:<line>: expected ..." diagnostic; an accepted one gives bag
// types that the encoder can walk without running away, and every bag the
// walk finishes decodes back to the tokens that built it.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "platform/bag.h"
#include "registry.h"
#include "schema.h"

namespace {

void check(bool condition)
{
    if (!condition) {
        abort();
    }
}

bool well_formed_error(const std::string &error)
{
    const std::string prefix = "fuzz.x:";
    if (error.compare(0, prefix.size(), prefix) != 0) {
        return false;
    }
    size_t i = prefix.size();
    size_t digits = 0;
    while (i < error.size() && error[i] >= '0' && error[i] <= '9') {
        i++;
        digits++;
    }
    return digits > 0 && error.compare(i, 11, ": expected ") == 0 &&
           error.find('\n') == std::string::npos;
}

/* Gives a value to a choice: small numbers, empty texts, the fewest bytes.
 * Returns false when the choice cannot be filled cheaply. */
bool fill(bag_token_td &tok, unsigned attempt, std::vector<uint8_t> &bytes)
{
    static char empty[] = "";
    switch (tok.type) {
    case BAG_TOKEN_STRING:
        tok.value.string = empty;
        return true;
    case BAG_TOKEN_OPAQUE:
        if (tok.min_length < 0 || tok.min_length > 4096) {
            return false;
        }
        bytes.assign(size_t(tok.min_length), 0x5A);
        tok.value.u32 = uint32_t(tok.min_length);
        tok.opaque = bytes.data();
        return true;
    case BAG_TOKEN_UNION_CHOICE:
    case BAG_TOKEN_POINTER_CHOICE:
        return true;
    default:
        tok.value.u64 = attempt; /* enums: tried with 0, 1, 2, ... */
        return true;
    }
}

void walk(const tarvo_bag::RegisteredBag &bag, uint32_t seed)
{
    bag_encoder_td *enc = nullptr;
    check(tarvo_bag::encode_init_registered(bag, &enc) == 0);
    bag_encode_context_td *ctx = nullptr;
    check(bag_generic_encode_get_context(enc, &ctx) == 0);
    std::vector<uint32_t> taken;
    bool finished = false;
    for (int step = 0; step < 300 && !finished; step++) {
        bag_token_td *list = nullptr;
        uint32_t count = 0;
        int rc = bag_generic_encode_get_choices(ctx, &list, &count);
        if (rc != 0) {
            check(rc == BAG_ERR_TOO_DEEP && list == nullptr);
            break;
        }
        check(count > 0);
        seed = seed * 1103515245u + 12345u;
        /* After a while head for the end: take the last alternative. */
        uint32_t i = step < 40 ? (seed >> 16) % count : count - 1;
        bag_token_td tok = list[i];
        free(list);
        if (tok.type == BAG_TOKEN_END) {
            finished = true;
            break;
        }
        std::vector<uint8_t> bytes;
        bag_encode_context_td *next = nullptr;
        rc = BAG_ERR_BAD_VALUE;
        for (unsigned attempt = 0; attempt < 64 && rc == BAG_ERR_BAD_VALUE; attempt++) {
            if (!fill(tok, attempt, bytes)) {
                break;
            }
            rc = bag_generic_encode_token(ctx, &tok, &next);
        }
        if (rc != 0) {
            break; /* an enum with no small enumerator, or a huge opaque */
        }
        taken.push_back(tok.type);
        bag_generic_encode_context_free(ctx);
        ctx = next;
    }
    if (finished) {
        bag_td *out = nullptr;
        uint32_t size = 0;
        int rc = bag_generic_encode_finish(ctx, &out, &size);
        check(rc == 0 || rc == BAG_ERR_TOO_DEEP);
        if (rc == 0) {
            bag_generic_h_td h = nullptr;
            check(tarvo_bag::decode_init_registered(bag, out, size, &h) == 0);
            for (uint32_t type : taken) {
                bag_token_td tok;
                check(bag_generic_token(&h, &tok) == 0 && tok.type == type);
                bag_generic_free_token_allocations(&tok);
            }
            bag_token_td end;
            check(bag_generic_token(&h, &end) == 0 && end.type == BAG_TOKEN_END);
            bag_generic_destroy(&h);
            free(out);
        }
    }
    bag_generic_encode_context_free(ctx);
    bag_generic_encode_done(enc);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size > 64 * 1024) {
        return 0;
    }
    std::string text(reinterpret_cast<const char *>(data), size);
    tarvo_bag::ParseResult result = tarvo_bag::parse_schema(text, "fuzz.x");
    if (!result.schema) {
        check(well_formed_error(result.error));
        return 0;
    }
    check(result.error.empty());
    int walked = 0;
    for (const tarvo_bag::BagDeclaration &decl : result.schema->bags) {
        if (walked++ == 4) {
            break;
        }
        tarvo_bag::RegisteredBag bag{&decl, result.schema};
        walk(bag, uint32_t(size) + uint32_t(walked));
    }
    return 0;
}
