/*
 * Big-endian reading and writing of XDR units (4-byte words, 8-byte
 * hypers, padded byte runs). Writer appends to a byte vector; Reader walks a
 * borrowed byte range and reports running out of bytes instead of reading
 * past the end. Neither throws.
 */
#ifndef TARVO_BAG_XDR_H
#define TARVO_BAG_XDR_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

namespace tarvo_bag {

constexpr std::size_t pad4(std::size_t n) { return (n + 3) & ~std::size_t{3}; }

class XdrWriter {
public:
    explicit XdrWriter(std::vector<uint8_t> &out) : out_(out) {}

    void put_u32(uint32_t v)
    {
        uint8_t b[4] = {uint8_t(v >> 24), uint8_t(v >> 16), uint8_t(v >> 8),
                        uint8_t(v)};
        out_.insert(out_.end(), b, b + 4);
    }
    void put_u64(uint64_t v)
    {
        put_u32(uint32_t(v >> 32));
        put_u32(uint32_t(v));
    }
    /* Bytes followed by zero padding to a multiple of four. */
    void put_bytes(const void *data, std::size_t n)
    {
        const auto *p = static_cast<const uint8_t *>(data);
        if (n > 0)
            out_.insert(out_.end(), p, p + n);
        out_.insert(out_.end(), pad4(n) - n, uint8_t{0});
    }
    /* Counted bytes: length word, bytes, padding. */
    void put_counted(const void *data, std::size_t n)
    {
        put_u32(uint32_t(n));
        put_bytes(data, n);
    }

private:
    std::vector<uint8_t> &out_;
};

inline void store_u32(uint8_t *p, uint32_t v)
{
    p[0] = uint8_t(v >> 24);
    p[1] = uint8_t(v >> 16);
    p[2] = uint8_t(v >> 8);
    p[3] = uint8_t(v);
}

inline uint32_t load_u32(const uint8_t *p)
{
    return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 |
           uint32_t(p[3]);
}

class XdrReader {
public:
    XdrReader(const uint8_t *data, std::size_t size) : p_(data), end_(data + size) {}

    std::size_t remaining() const { return std::size_t(end_ - p_); }
    const uint8_t *position() const { return p_; }

    bool get_u32(uint32_t &v)
    {
        if (remaining() < 4)
            return false;
        v = load_u32(p_);
        p_ += 4;
        return true;
    }
    bool get_u64(uint64_t &v)
    {
        uint32_t hi = 0, lo = 0;
        if (remaining() < 8)
            return false;
        get_u32(hi);
        get_u32(lo);
        v = uint64_t(hi) << 32 | lo;
        return true;
    }
    /* n bytes and their padding; *data points into the borrowed range.
     * Returns false when the bytes run out; *padding_ok tells whether the
     * padding bytes were all zero. */
    bool get_bytes(std::size_t n, const uint8_t **data, bool *padding_ok)
    {
        if (n > remaining() || pad4(n) > remaining())
            return false;
        *data = p_;
        *padding_ok = true;
        for (std::size_t i = n; i < pad4(n); ++i)
            if (p_[i] != 0)
                *padding_ok = false;
        p_ += pad4(n);
        return true;
    }

private:
    const uint8_t *p_;
    const uint8_t *end_;
};

} // namespace tarvo_bag

#endif
