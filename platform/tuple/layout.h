/*
 * The byte layout of a packed tuple (docs/formats.md): encoding values
 * into it and decoding it back with every length checked.
 *
 *   offset  size  field
 *   0       4     magic "TUPL"
 *   4       1     layout version (1)
 *   5       1     number of conversions n (0..32)
 *   6       2     length F of the format text
 *   8       4     total size of the tuple in bytes
 *   12      4     presence mask (bit i: argument i has a value)
 *   16      F     format text, canonical: "%d" "%ld" "%llu" "%s" "N"
 *   16+F    ...   the present values in argument order: 4 bytes for
 *                 %d, %ld and N, 8 for %llu, 4 (length L) + L bytes for %s
 *
 * Numbers are big-endian; an address (N) is kept as its 4 bytes in network
 * order. Nothing follows the last value. Every tuple has exactly one
 * encoding, so decoding and encoding again gives the same bytes.
 */
#ifndef TARVO_TUPLE_LAYOUT_H
#define TARVO_TUPLE_LAYOUT_H

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "format.h"

namespace tarvo::tuple {

constexpr uint8_t MAGIC[4] = {'T', 'U', 'P', 'L'};
constexpr uint8_t VERSION = 1;
constexpr size_t HEADER_SIZE = 16;
constexpr size_t SIZE_OFFSET = 8;

struct Value {
    bool present = false;
    uint64_t number = 0;    // integers in host order; an address as read
                            // from memory (network order bytes)
    std::string_view text;  // strings: points into the caller's data
};

struct Decoded {
    std::vector<Kind> kinds;
    uint32_t mask = 0;
    std::vector<Value> values;  // one per conversion
};

/* Encodes; nothing when the tuple would exceed 4 GiB. */
std::optional<std::vector<uint8_t>> encode(const std::vector<Kind> &kinds, uint32_t mask,
                                           const std::vector<Value> &values);

/* Decodes exactly `len` bytes; nothing when they are not one well-formed
 * tuple. Texts point into `buf`. */
std::optional<Decoded> decode(const uint8_t *buf, size_t len);

/* The total size a tuple claims in its header, or 0 when even the header
 * is not there. Reads the first HEADER_SIZE bytes only. */
uint32_t declared_size(const uint8_t *buf);

/* The mask bits that can be set for n conversions. */
constexpr uint32_t mask_bits(size_t n) {
    return n >= 32 ? 0xFFFFFFFFu : ((1u << n) - 1u);
}

} // namespace tarvo::tuple

#endif
