/*
 * The header in front of every bag (layout in docs/bags.md):
 *
 *   0   4  magic "TBAG"
 *   4   4  encoding (1 XDR body, 2 token list)
 *   8   4  major version (0 .. 2^31-1)
 *  12   4  minor version (0 .. 2^31-1)
 *  16   4  body length in bytes
 *  20   4  type name length n (1 .. 255)
 *  24   n  type name (printable ASCII, no blanks), zero padding to 4
 *  24 + pad4(n)  body
 *
 * All numbers are big-endian 32-bit words, so the header is itself XDR.
 * parse_header checks everything a header can be checked for: magic, name,
 * versions, and that the body length accounts for exactly the rest of the
 * bag. It returns 0 or a BAG_ERR_ code and never reads past `length`.
 */
#ifndef TARVO_BAG_HEADER_H
#define TARVO_BAG_HEADER_H

#include <cstdint>
#include <string_view>
#include <vector>

namespace tarvo_bag {

constexpr uint8_t MAGIC[4] = {'T', 'B', 'A', 'G'};
constexpr uint32_t ENCODING_TOKEN_LIST = 2;
constexpr std::size_t FIXED_HEADER_SIZE = 24;
/* Largest body the encoder writes and the decoder accepts. */
constexpr std::size_t MAX_BODY = 16u << 20;

struct Header {
    uint32_t encoding = 0;
    int32_t major = 0;
    int32_t minor = 0;
    std::string_view type_name; /* points into the bag */
    std::size_t body_offset = 0;
    uint32_t body_length = 0;
};

int parse_header(const uint8_t *bag, uint32_t length, Header &header);

/* Appends a header for a body of body_length bytes. */
void write_header(std::vector<uint8_t> &out, uint32_t encoding,
                  std::string_view type_name, int32_t major, int32_t minor,
                  uint32_t body_length);

bool valid_type_name(std::string_view name);

} // namespace tarvo_bag

#endif
