// Item values: which datatypes can be stored and what a well-formed value of
// each looks like. Integers are stored in the byte order of the machine.
#ifndef TARVO_VALUES_H
#define TARVO_VALUES_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "status.h"

namespace tarvo {

// Largest value accepted for one item.
inline constexpr uint32_t TARVO_MAX_VALUE = 16u << 20;

bool is_storable(int32_t datatype);
// Byte width of an integer datatype, 0 for the others.
uint32_t integer_width(int32_t datatype);
bool is_signed_integer(int32_t datatype);

// 0, BAD_DATATYPE (not storable) or BAD_VALUE (with the reason).
Status check_value(int32_t datatype, std::string_view value);

// "uint32", "string", "dir", ...; a number for unknown codes.
std::string datatype_name(int32_t datatype);
// The code of a datatype name ("uint32") or decimal number ("1").
std::optional<int32_t> parse_datatype(std::string_view word);

// An integer item value widened to 64 bits (signed types sign-extended into
// `s`, unsigned into `u`). False for non-integer datatypes or bad widths.
bool integer_value(int32_t datatype, std::string_view value, int64_t *s,
                   uint64_t *u);

}  // namespace tarvo

#endif
