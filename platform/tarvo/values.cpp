#include "values.h"

#include <cstring>

#include "platform/bag.h"
#include "platform/tuple.h"

namespace tarvo {
namespace {

struct TypeName {
    int32_t code;
    const char *name;
};

constexpr TypeName TYPE_NAMES[] = {
    {TARVO_DATATYPE_DIR, "dir"},       {TARVO_DATATYPE_EXTERNAL_ITEM, "external_item"},
    {TARVO_DATATYPE_EXTERNAL_DIR, "external_dir"},
    {TARVO_DATATYPE_UINT32, "uint32"}, {TARVO_DATATYPE_UINT64, "uint64"},
    {TARVO_DATATYPE_STRING, "string"}, {TARVO_DATATYPE_PACKED, "packed"},
    {TARVO_DATATYPE_BAG, "bag"},       {TARVO_DATATYPE_INT8, "int8"},
    {TARVO_DATATYPE_UINT8, "uint8"},   {TARVO_DATATYPE_INT16, "int16"},
    {TARVO_DATATYPE_UINT16, "uint16"}, {TARVO_DATATYPE_INT32, "int32"},
    {TARVO_DATATYPE_INT64, "int64"},
};

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
    return datatype == TARVO_DATATYPE_UINT32 || datatype == TARVO_DATATYPE_UINT64 ||
           datatype == TARVO_DATATYPE_STRING || datatype == TARVO_DATATYPE_PACKED ||
           datatype == TARVO_DATATYPE_BAG ||
           (datatype >= TARVO_DATATYPE_INT8 && datatype <= TARVO_DATATYPE_INT64);
}

uint32_t integer_width(int32_t datatype)
{
    switch (datatype) {
    case TARVO_DATATYPE_INT8:
    case TARVO_DATATYPE_UINT8:
        return 1;
    case TARVO_DATATYPE_INT16:
    case TARVO_DATATYPE_UINT16:
        return 2;
    case TARVO_DATATYPE_UINT32:
    case TARVO_DATATYPE_INT32:
        return 4;
    case TARVO_DATATYPE_UINT64:
    case TARVO_DATATYPE_INT64:
        return 8;
    default:
        return 0;
    }
}

bool is_signed_integer(int32_t datatype)
{
    return datatype == TARVO_DATATYPE_INT8 || datatype == TARVO_DATATYPE_INT16 ||
           datatype == TARVO_DATATYPE_INT32 || datatype == TARVO_DATATYPE_INT64;
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
    for (const TypeName &t : TYPE_NAMES)
        if (t.code == datatype)
            return t.name;
    return std::to_string(datatype);
}

std::optional<int32_t> parse_datatype(std::string_view word)
{
    for (const TypeName &t : TYPE_NAMES)
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

bool integer_value(int32_t datatype, std::string_view value, int64_t *s,
                   uint64_t *u)
{
    uint32_t width = integer_width(datatype);
    if (!width || value.size() != width)
        return false;
    switch (datatype) {
    case TARVO_DATATYPE_INT8: { int8_t v; std::memcpy(&v, value.data(), 1); *s = v; break; }
    case TARVO_DATATYPE_INT16: { int16_t v; std::memcpy(&v, value.data(), 2); *s = v; break; }
    case TARVO_DATATYPE_INT32: { int32_t v; std::memcpy(&v, value.data(), 4); *s = v; break; }
    case TARVO_DATATYPE_INT64: { int64_t v; std::memcpy(&v, value.data(), 8); *s = v; break; }
    case TARVO_DATATYPE_UINT8: { uint8_t v; std::memcpy(&v, value.data(), 1); *u = v; break; }
    case TARVO_DATATYPE_UINT16: { uint16_t v; std::memcpy(&v, value.data(), 2); *u = v; break; }
    case TARVO_DATATYPE_UINT32: { uint32_t v; std::memcpy(&v, value.data(), 4); *u = v; break; }
    default: { uint64_t v; std::memcpy(&v, value.data(), 8); *u = v; break; }
    }
    return true;
}

}  // namespace tarvo
