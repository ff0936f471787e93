/*
 * Tuple format strings: the conversions of a format and their canonical
 * text.
 */
#ifndef TARVO_TUPLE_FORMAT_H
#define TARVO_TUPLE_FORMAT_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarvo::tuple {

enum class Kind : unsigned char { U32, LONG32, U64, STRING, ADDRESS };

/* Which spelling of the string conversion a format may use. */
enum class StringLetter { PACKING /* s */, UNPACKING /* S, or s */ };

/* The conversions of `format` in order, or nothing when the format has an
 * unknown conversion, a dangling '%' or digits, or more than `limit`
 * conversions. Each conversion may be preceded by '%' and decimal digits,
 * which are ignored. */
std::optional<std::vector<Kind>> parse_format(std::string_view format, StringLetter letter,
                                              size_t limit);

/* The stored form of one conversion: "%d", "%ld", "%llu", "%s", "N". */
std::string_view canonical(Kind kind);

/* The stored form of a whole format. */
std::string canonical_format(const std::vector<Kind> &kinds);

/* Bytes a present value of a fixed-size kind takes (strings: 0). */
size_t fixed_width(Kind kind);

} // namespace tarvo::tuple

#endif
