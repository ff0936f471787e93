#include "bag_test_util.h"

#include <arpa/inet.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <gtest/gtest.h>

namespace bagtest {

namespace {

const char *type_word(uint32_t type)
{
    static const char *words[] = {
        "INT8",   "UINT8", "INT16",  "UINT16",     "INT32",    "UINT32",  "INT64",
        "UINT64", "INADDRT", "ENUM", "BOOL",       "VOID",     "STRING",  "OPAQUE",
        "BEGIN",  "END_SCOPE", "UNION", "POINTER", "END",      "LIST"};
    return type < sizeof words / sizeof *words ? words[type] : "UNKNOWN";
}

std::string head(const bag_token_td &tok)
{
    std::string s = type_word(tok.type);
    if (tok.name != nullptr)
        s += std::string(" ") + tok.name;
    return s;
}

std::string bound(uint32_t v)
{
    return v == BAG_UNBOUNDED ? "inf" : std::to_string(v);
}

} // namespace

std::string describe_choice(const bag_token_td &tok)
{
    std::string s = head(tok);
    switch (tok.type) {
    case BAG_TOKEN_STRING:
        s += " max=" + bound(tok.max_length);
        break;
    case BAG_TOKEN_OPAQUE:
        s += " min=" + std::to_string(tok.min_length) + " max=" + bound(tok.max_length);
        break;
    case BAG_TOKEN_ENUM:
        s += std::string(" type=") + (tok.type_name ? tok.type_name : "(none)");
        break;
    case BAG_TOKEN_UNION_CHOICE:
    case BAG_TOKEN_POINTER_CHOICE:
        s.append(" ").append(std::to_string(tok.value.u32));
        break;
    default:
        break;
    }
    return s;
}

std::string describe_token(const bag_token_td &tok)
{
    std::string s = head(tok);
    char buf[64];
    switch (tok.type) {
    case BAG_TOKEN_INT8: return s + " " + std::to_string(tok.value.i8);
    case BAG_TOKEN_UINT8: return s + " " + std::to_string(tok.value.u8);
    case BAG_TOKEN_INT16: return s + " " + std::to_string(tok.value.i16);
    case BAG_TOKEN_UINT16: return s + " " + std::to_string(tok.value.u16);
    case BAG_TOKEN_INT32: return s + " " + std::to_string(tok.value.i32);
    case BAG_TOKEN_UINT32:
    case BAG_TOKEN_UNION_CHOICE:
    case BAG_TOKEN_POINTER_CHOICE:
    case BAG_TOKEN_BOOL: return s + " " + std::to_string(tok.value.u32);
    case BAG_TOKEN_ENUM: return s + " " + std::to_string(tok.value.i32);
    case BAG_TOKEN_INT64: return s + " " + std::to_string(tok.value.i64);
    case BAG_TOKEN_UINT64: return s + " " + std::to_string(tok.value.u64);
    case BAG_TOKEN_INADDRT: {
        struct in_addr a;
        a.s_addr = tok.value.u32;
        return s + " " + inet_ntop(AF_INET, &a, buf, sizeof buf);
    }
    case BAG_TOKEN_STRING: return s + " '" + tok.value.string + "'";
    case BAG_TOKEN_OPAQUE:
        return s + " " + to_hex(std::vector<uint8_t>(
                             static_cast<uint8_t *>(tok.opaque),
                             static_cast<uint8_t *>(tok.opaque) + tok.value.u32));
    default: return s;
    }
}

void set_value(bag_token_td &tok, const std::string &text, std::string &string_store,
               std::vector<uint8_t> &byte_store)
{
    switch (tok.type) {
    case BAG_TOKEN_INT8:
    case BAG_TOKEN_UINT8:
        tok.value.u8 = uint8_t(std::strtoll(text.c_str(), nullptr, 10));
        break;
    case BAG_TOKEN_INT16:
    case BAG_TOKEN_UINT16:
        tok.value.u16 = uint16_t(std::strtoll(text.c_str(), nullptr, 10));
        break;
    case BAG_TOKEN_INT32:
    case BAG_TOKEN_UINT32:
    case BAG_TOKEN_ENUM:
    case BAG_TOKEN_BOOL:
        tok.value.u32 = uint32_t(std::strtoll(text.c_str(), nullptr, 10));
        break;
    case BAG_TOKEN_INT64:
        tok.value.i64 = std::strtoll(text.c_str(), nullptr, 10);
        break;
    case BAG_TOKEN_UINT64:
        tok.value.u64 = std::strtoull(text.c_str(), nullptr, 10);
        break;
    case BAG_TOKEN_INADDRT:
        tok.value.u32 = inet_addr(text.c_str());
        break;
    case BAG_TOKEN_STRING:
        string_store = text;
        tok.value.string = string_store.data();
        break;
    case BAG_TOKEN_OPAQUE:
        byte_store = from_hex(text);
        tok.value.u32 = uint32_t(byte_store.size());
        tok.opaque = byte_store.data();
        break;
    default:
        break;
    }
}

Encoder::Encoder(const char *type, uint32_t major, uint32_t minor)
{
    rc_ = bag_generic_encode_init(type, major, minor, 0, &enc_);
    if (rc_ == 0)
        rc_ = bag_generic_encode_get_context(enc_, &ctx_);
}

Encoder::~Encoder()
{
    bag_generic_encode_context_free(ctx_);
    if (enc_ != nullptr)
        bag_generic_encode_done(enc_);
}

std::vector<std::string> Encoder::choices(int *rc)
{
    bag_token_td *list = nullptr;
    uint32_t count = 0;
    int r = bag_generic_encode_get_choices(ctx_, &list, &count);
    if (rc != nullptr)
        *rc = r;
    std::vector<std::string> out;
    for (uint32_t i = 0; i < count; ++i)
        out.push_back(describe_choice(list[i]));
    std::free(list);
    return out;
}

int Encoder::take(uint32_t i, const std::string &value)
{
    bag_token_td *list = nullptr;
    uint32_t count = 0;
    int rc = bag_generic_encode_get_choices(ctx_, &list, &count);
    if (rc != 0)
        return rc;
    if (i >= count) {
        std::free(list);
        return -1;
    }
    bag_token_td tok = list[i];
    std::free(list);
    std::string s;
    std::vector<uint8_t> bytes;
    set_value(tok, value, s, bytes);
    return take_token(tok);
}

int Encoder::take_token(const bag_token_td &tok)
{
    bag_encode_context_td *next = nullptr;
    int rc = bag_generic_encode_token(ctx_, &tok, &next);
    if (rc != 0)
        return rc;
    taken_.push_back(describe_token(tok));
    bag_generic_encode_context_free(ctx_);
    ctx_ = next;
    return 0;
}

int Encoder::finish(std::vector<uint8_t> &bag)
{
    bag_td *out = nullptr;
    uint32_t size = 0;
    int rc = bag_generic_encode_finish(ctx_, &out, &size);
    if (rc == 0) {
        auto *p = reinterpret_cast<uint8_t *>(out);
        bag.assign(p, p + size);
        std::free(out);
    }
    return rc;
}

std::vector<std::string> decode(const std::vector<uint8_t> &bag)
{
    std::vector<std::string> out;
    bag_generic_h_td h = nullptr;
    const auto *b = reinterpret_cast<const bag_td *>(bag.data());
    int rc = bag_generic_init(b, uint32_t(bag.size()), &h);
    while (rc == 0) {
        bag_token_td tok;
        rc = bag_generic_token(&h, &tok);
        if (rc != 0)
            break;
        out.push_back(describe_token(tok));
        bag_generic_free_token_allocations(&tok);
        if (tok.type == BAG_TOKEN_END)
            break;
    }
    if (rc != 0) {
        char buf[32];
        std::snprintf(buf, sizeof buf, "ERROR %08X", uint32_t(rc));
        out.push_back(buf);
    }
    bag_generic_destroy(&h);
    return out;
}

int decode_status(const std::vector<uint8_t> &bag)
{
    std::vector<std::string> tokens = decode(bag);
    if (!tokens.empty() && tokens.back().rfind("ERROR ", 0) == 0)
        return int32_t(std::strtoul(tokens.back().c_str() + 6, nullptr, 16));
    return 0;
}

std::vector<uint8_t> from_hex(const std::string &hex)
{
    std::string digits;
    for (char c : hex)
        if (c != ' ')
            digits += c;
    std::vector<uint8_t> out;
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2)
        out.push_back(uint8_t(std::stoul(digits.substr(i, 2), nullptr, 16)));
    return out;
}

std::string to_hex(const std::vector<uint8_t> &bytes)
{
    std::string s;
    char buf[4];
    for (uint8_t b : bytes) {
        std::snprintf(buf, sizeof buf, "%02x", b);
        s += buf;
    }
    return s;
}

std::vector<uint8_t> make_bag(uint32_t encoding, const std::string &type,
                              uint32_t major, uint32_t minor,
                              const std::vector<uint8_t> &body)
{
    std::vector<uint8_t> out = {'T', 'B', 'A', 'G'};
    auto word = [&out](uint32_t v) {
        for (int shift = 24; shift >= 0; shift -= 8)
            out.push_back(uint8_t(v >> shift));
    };
    word(encoding);
    word(major);
    word(minor);
    word(uint32_t(body.size()));
    word(uint32_t(type.size()));
    out.insert(out.end(), type.begin(), type.end());
    while (out.size() % 4 != 0)
        out.push_back(0);
    out.insert(out.end(), body.begin(), body.end());
    return out;
}

} // namespace bagtest

int main(int argc, char **argv)
{
    /* Before the first use of the library: the registry reads it once. */
    setenv("TARVO_BAG_PATH", TARVO_BAG_TEST_PATH, 1);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
