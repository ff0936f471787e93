#include "layout.h"

#include <cstring>
#include <limits>

#include <platform/tuple.h>

namespace tarvo::tuple {

namespace {

void put_be(std::vector<uint8_t> &out, uint64_t value, size_t width) {
    for (size_t i = width; i-- > 0;)
        out.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

uint64_t get_be(const uint8_t *p, size_t width) {
    uint64_t value = 0;
    for (size_t i = 0; i < width; ++i)
        value = (value << 8) | p[i];
    return value;
}

// Hands out the bytes of a buffer front to back, never past its end.
class Cursor {
public:
    Cursor(const uint8_t *buf, size_t len) : p_(buf), left_(len) {}
    const uint8_t *take(size_t n) {
        if (n > left_)
            return nullptr;
        const uint8_t *at = p_;
        p_ += n;
        left_ -= n;
        return at;
    }
    bool number(size_t width, uint64_t *value) {
        const uint8_t *at = take(width);
        if (at == nullptr)
            return false;
        *value = get_be(at, width);
        return true;
    }
    size_t left() const { return left_; }

private:
    const uint8_t *p_;
    size_t left_;
};

bool decode_value(Cursor &in, Kind kind, Value &value) {
    value.present = true;
    if (kind == Kind::ADDRESS) {
        const uint8_t *at = in.take(4);
        if (at == nullptr)
            return false;
        uint32_t raw;
        std::memcpy(&raw, at, 4);  // stays in network order
        value.number = raw;
        return true;
    }
    if (kind != Kind::STRING)
        return in.number(fixed_width(kind), &value.number);
    uint64_t length = 0;
    if (!in.number(4, &length))
        return false;
    const uint8_t *text = in.take(length);
    // A packed string came from a C string: it cannot hold a NUL.
    if (text == nullptr || std::memchr(text, '\0', length) != nullptr)
        return false;
    value.text = std::string_view(reinterpret_cast<const char *>(text), length);
    return true;
}

} // namespace

uint32_t declared_size(const uint8_t *buf) {
    if (buf == nullptr)
        return 0;
    return static_cast<uint32_t>(get_be(buf + SIZE_OFFSET, 4));
}

std::optional<std::vector<uint8_t>> encode(const std::vector<Kind> &kinds, uint32_t mask,
                                           const std::vector<Value> &values) {
    std::string format = canonical_format(kinds);
    std::vector<uint8_t> out(MAGIC, MAGIC + 4);
    out.push_back(VERSION);
    out.push_back(static_cast<uint8_t>(kinds.size()));
    put_be(out, format.size(), 2);
    put_be(out, 0, 4);  // total size, filled in at the end
    put_be(out, mask, 4);
    out.insert(out.end(), format.begin(), format.end());
    for (size_t i = 0; i < kinds.size(); ++i) {
        if ((mask >> i & 1u) == 0)
            continue;
        const Value &value = values[i];
        if (kinds[i] == Kind::ADDRESS) {
            uint32_t raw = static_cast<uint32_t>(value.number);
            const uint8_t *bytes = reinterpret_cast<const uint8_t *>(&raw);
            out.insert(out.end(), bytes, bytes + 4);
        } else if (kinds[i] == Kind::STRING) {
            if (value.text.size() > std::numeric_limits<uint32_t>::max())
                return std::nullopt;
            put_be(out, value.text.size(), 4);
            out.insert(out.end(), value.text.begin(), value.text.end());
        } else {
            put_be(out, value.number, fixed_width(kinds[i]));
        }
        if (out.size() > std::numeric_limits<uint32_t>::max())
            return std::nullopt;
    }
    uint64_t total = out.size();
    for (size_t i = 0; i < 4; ++i)
        out[SIZE_OFFSET + i] = static_cast<uint8_t>(total >> (8 * (3 - i)));
    return out;
}

std::optional<Decoded> decode(const uint8_t *buf, size_t len) {
    if (buf == nullptr)
        return std::nullopt;
    Cursor in(buf, len);
    const uint8_t *magic = in.take(4);
    uint64_t version = 0, count = 0, format_length = 0, total = 0, mask = 0;
    if (magic == nullptr || std::memcmp(magic, MAGIC, 4) != 0 || !in.number(1, &version) ||
        version != VERSION || !in.number(1, &count) || count > TUPLE_MAX_ARGS ||
        !in.number(2, &format_length) || !in.number(4, &total) || total != len ||
        !in.number(4, &mask) || (mask & ~static_cast<uint64_t>(mask_bits(count))) != 0)
        return std::nullopt;
    const uint8_t *format = in.take(format_length);
    if (format == nullptr)
        return std::nullopt;
    std::string_view format_text(reinterpret_cast<const char *>(format), format_length);
    auto kinds = parse_format(format_text, StringLetter::PACKING, TUPLE_MAX_ARGS);
    // Only the canonical spelling is stored, so that each tuple has one
    // encoding.
    if (!kinds || kinds->size() != count || canonical_format(*kinds) != format_text)
        return std::nullopt;

    Decoded out;
    out.kinds = std::move(*kinds);
    out.mask = static_cast<uint32_t>(mask);
    out.values.resize(out.kinds.size());
    for (size_t i = 0; i < out.kinds.size(); ++i)
        if ((mask >> i & 1u) != 0 && !decode_value(in, out.kinds[i], out.values[i]))
            return std::nullopt;
    if (in.left() != 0)
        return std::nullopt;
    return out;
}

} // namespace tarvo::tuple
