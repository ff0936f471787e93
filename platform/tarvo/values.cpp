#include "values.h"

#include <cstring>

#include "platform/bag.h"
#include "platform/tuple.h"

namespace tarvo {
namespace {

struct TypeRow {
    int32_t code;
    const char *name;
    uint32_t width;
    bool is_signed;
};

#define TARVO_TYPE_ROW(id, code, name, width, is_signed) \
    TypeRow{TARVO_DATATYPE_##id, name, width, is_signed != 0},
constexpr TypeRow TYPES[] = {TARVO_DATATYPE_LIST(TARVO_TYPE_ROW)};
#undef TARVO_TYPE_ROW

const TypeRow *find_type(int32_t datatype)
{
    for (const TypeRow &t : TYPES)
        if (t.code == datatype)
            return &t;
    return nullptr;
}

Status check_string(std::string_view value)
{
    if (value.empty() || value.back() != '\0')
        return error(TARVO_ERR_BAD_VALUE, "a string value must end in a NUL");
    if (value.find('\0') != value.size() - 1)
        return error(TARVO_ERR_BAD_VALUE, "a string value holds a NUL before its end");
    return ok_status();
}

Status check_packed(std::string_view value)
{
    if (tuple_check(value.data(), static_cast<uint32_t>(value.size())) != 0)
        return error(TARVO_ERR_BAD_VALUE, "the packed value is not a well-formed tuple");
    return ok_status();
}

Status check_bag(std::string_view value)
{
    bag_header_info_td info;
    if (bag_header_info(reinterpret_cast<const bag_td *>(value.data()),
                        static_cast<uint32_t>(value.size()), &info) != 0)
        return error(TARVO_ERR_BAD_VALUE, "the bag value has no valid header");
    return ok_status();
}

}  // namespace

bool is_storable(int32_t datatype)
{
    return datatype > 0 && find_type(datatype) != nullptr;
}

uint32_t integer_width(int32_t datatype)
{
    const TypeRow *t = find_type(datatype);
    return t ? t->width : 0;
}

bool is_signed_integer(int32_t datatype)
{
    const TypeRow *t = find_type(datatype);
    return t && t->is_signed;
}

Status check_value(int32_t datatype, std::string_view value)
{
    if (!is_storable(datatype))
        return error(TARVO_ERR_BAD_DATATYPE,
                     "datatype " + datatype_name(datatype) + " cannot be stored");
    if (value.size() > TARVO_MAX_VALUE)
        return error(TARVO_ERR_BAD_VALUE, "value of " + std::to_string(value.size()) +
                                              " bytes, at most " +
                                              std::to_string(TARVO_MAX_VALUE) + " allowed");
    if (uint32_t width = integer_width(datatype)) {
        if (value.size() != width)
            return error(TARVO_ERR_BAD_VALUE,
                         "a " + datatype_name(datatype) + " value has " +
                             std::to_string(width) + " bytes, not " +
                             std::to_string(value.size()));
        return ok_status();
    }
    if (datatype == TARVO_DATATYPE_STRING)
        return check_string(value);
    if (datatype == TARVO_DATATYPE_PACKED)
        return check_packed(value);
    return check_bag(value);
}

std::string datatype_name(int32_t datatype)
{
    const TypeRow *t = find_type(datatype);
    return t ? t->name : std::to_string(datatype);
}

std::optional<int32_t> parse_datatype(std::string_view word)
{
    for (const TypeRow &t : TYPES)
        if (word == t.name)
            return t.code;
    if (word.empty() || word.size() > 3)
        return std::nullopt;
    int32_t n = 0;
    for (char c : word) {
        if (c < '0' || c > '9')
            return std::nullopt;
        n = n * 10 + (c - '0');
    }
    return n;
}

namespace {

// Reads an integer of the width of S and U (host byte order) and widens it.
template <typename S, typename U>
void widen(std::string_view value, bool is_signed, int64_t *s, uint64_t *u)
{
    static_assert(sizeof(S) == sizeof(U));
    if (is_signed) {
        S v;
        std::memcpy(&v, value.data(), sizeof v);
        *s = v;
    } else {
        U v;
        std::memcpy(&v, value.data(), sizeof v);
        *u = v;
    }
}

}  // namespace

bool integer_value(int32_t datatype, std::string_view value, int64_t *s,
                   uint64_t *u)
{
    const TypeRow *t = find_type(datatype);
    if (!t || !t->width || value.size() != t->width)
        return false;
    switch (t->width) {
    case 1: widen<int8_t, uint8_t>(value, t->is_signed, s, u); break;
    case 2: widen<int16_t, uint16_t>(value, t->is_signed, s, u); break;
    case 4: widen<int32_t, uint32_t>(value, t->is_signed, s, u); break;
    default: widen<int64_t, uint64_t>(value, t->is_signed, s, u); break;
    }
    return true;
}

}  // namespace tarvo
