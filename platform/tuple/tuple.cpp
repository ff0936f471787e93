// The C interface of the tuple library. A tuple_buf is the encoded bytes
// themselves (layout.h), so that callers can store and read them as they
// are.

#include <platform/tuple.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "format.h"
#include "layout.h"

using tarvo::tuple::Decoded;
using tarvo::tuple::Kind;
using tarvo::tuple::StringLetter;
using tarvo::tuple::Value;

namespace {

const uint8_t *bytes_of(const tuple_buf *tuple) {
    return reinterpret_cast<const uint8_t *>(tuple);
}

std::optional<Decoded> decode_tuple(const tuple_buf *tuple) {
    if (tuple == nullptr)
        return std::nullopt;
    return tarvo::tuple::decode(bytes_of(tuple), tarvo::tuple::declared_size(bytes_of(tuple)));
}

Value value_from_slot(Kind kind, const tuple_arg &slot) {
    Value value;
    value.present = true;
    switch (kind) {
    case Kind::U32:
    case Kind::LONG32:  // "long" values are 32 bits wide
    case Kind::ADDRESS: value.number = slot.u32; break;
    case Kind::U64: value.number = slot.u64; break;
    case Kind::STRING: value.text = slot.str; break;
    }
    return value;
}

char *heap_text(std::string_view text) {
    char *copy = static_cast<char *>(std::malloc(text.size() + 1));
    if (copy != nullptr) {
        std::memcpy(copy, text.data(), text.size());
        copy[text.size()] = '\0';
    }
    return copy;
}

// Empty strings come back as this text, which is not freed: callers free
// only strings whose length is not zero.
char EMPTY_TEXT[] = "";

// The string arguments of one unpack, freed unless handed over.
class Strings {
public:
    ~Strings() {
        if (!kept_)
            for (char *s : owned_)
                std::free(s);
    }
    bool add(std::string_view text, char **out) {
        if (text.empty()) {
            *out = EMPTY_TEXT;
            return true;
        }
        *out = heap_text(text);
        if (*out == nullptr)
            return false;
        owned_.push_back(*out);
        return true;
    }
    void keep() { kept_ = true; }

private:
    std::vector<char *> owned_;
    bool kept_ = false;
};

void store(void *dest, Kind kind, const Value &value, char *text) {
    if (kind == Kind::STRING) {
        std::memcpy(dest, &text, sizeof(text));
    } else if (kind == Kind::U64) {
        uint64_t v = value.number;
        std::memcpy(dest, &v, 8);
    } else {
        uint32_t v = static_cast<uint32_t>(value.number);
        std::memcpy(dest, &v, 4);
    }
}

} // namespace

extern "C" tuple_buf *tuple_packv(uint32_t flags, uint32_t reserved, uint32_t mask,
                                  const char *format, tuple_arg *args) {
    if (flags != 0 || reserved != 0 || format == nullptr)
        return nullptr;
    auto kinds = tarvo::tuple::parse_format(format, StringLetter::PACKING, TUPLE_MAX_ARGS);
    if (!kinds || (!kinds->empty() && args == nullptr))
        return nullptr;
    mask &= tarvo::tuple::mask_bits(kinds->size());
    std::vector<Value> values(kinds->size());
    for (size_t i = 0; i < kinds->size(); ++i) {
        if ((*kinds)[i] == Kind::STRING && args[i].str == nullptr)
            mask &= ~(1u << i);  // a null string packs as absent
        if ((mask >> i & 1u) != 0)
            values[i] = value_from_slot((*kinds)[i], args[i]);
    }
    auto encoded = tarvo::tuple::encode(*kinds, mask, values);
    if (!encoded)
        return nullptr;
    void *tuple = std::malloc(encoded->size());
    if (tuple != nullptr)
        std::memcpy(tuple, encoded->data(), encoded->size());
    return static_cast<tuple_buf *>(tuple);
}

extern "C" uint32_t tuple_size(const tuple_buf *tuple) {
    return tarvo::tuple::declared_size(bytes_of(tuple));
}

extern "C" int tuple_check(const void *buf, uint32_t len) {
    return tarvo::tuple::decode(static_cast<const uint8_t *>(buf), len) ? 0 : TUPLE_ERR_CORRUPT;
}

extern "C" char *tuple_extract_format(const tuple_buf *tuple) {
    auto decoded = decode_tuple(tuple);
    if (!decoded)
        return nullptr;
    std::string format;
    for (size_t i = 0; i < decoded->kinds.size(); ++i) {
        if (decoded->kinds[i] == Kind::STRING) {
            format += '%';
            format += std::to_string(decoded->values[i].text.size());
            format += 's';
        } else {
            format += tarvo::tuple::canonical(decoded->kinds[i]);
        }
    }
    return heap_text(format);
}

extern "C" int tuple_unpackv(const tuple_buf *tuple, uint32_t *mask, const char *format,
                             tuple_arg *args) {
    auto decoded = decode_tuple(tuple);
    if (!decoded)
        return TUPLE_ERR_CORRUPT;
    if (format == nullptr)
        return TUPLE_ERR_FORMAT;
    auto kinds = tarvo::tuple::parse_format(format, StringLetter::UNPACKING, TUPLE_MAX_ARGS);
    if (!kinds || *kinds != decoded->kinds || (!kinds->empty() && args == nullptr))
        return TUPLE_ERR_FORMAT;
    // Read every destination first: a slot may point at itself and be
    // overwritten by its own value.
    std::vector<void *> dests(kinds->size());
    for (size_t i = 0; i < dests.size(); ++i) {
        dests[i] = args[i].ptr;
        if (dests[i] == nullptr)
            return TUPLE_ERR_FORMAT;
    }
    Strings strings;
    std::vector<char *> texts(kinds->size(), nullptr);
    for (size_t i = 0; i < kinds->size(); ++i)
        if ((*kinds)[i] == Kind::STRING && decoded->values[i].present &&
            !strings.add(decoded->values[i].text, &texts[i]))
            return TUPLE_ERR_NO_MEMORY;
    strings.keep();
    for (size_t i = 0; i < kinds->size(); ++i)
        store(dests[i], (*kinds)[i], decoded->values[i], texts[i]);
    if (mask != nullptr)
        *mask = decoded->mask;
    return 0;
}

extern "C" void tuple_free(tuple_buf *tuple) { std::free(tuple); }
