/*
 * Item datatypes and the parsing of typed values: the datatype names the
 * user types, the eight integer parsers, the value builder used by the
 * item-changing commands, and two small string helpers of the displays.
 *
 * Results: the parsers return 0 or TARVOCON_ERR_BAD_VALUE and leave their
 * result untouched on failure. tarvocon_make_value reports its own failures.
 */
#include <assert.h>
#include <ctype.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include "tarvocon.h"

struct tarvocon_datatype_row_td {
    tarvo_item_datatype_td datatype;
    const char *name;
    uint32_t width;
};

/* The client's datatype list, as the console reads it. */
#define TARVOCON_DATATYPE_ROW(id, code, name, width, is_signed) \
    {TARVO_DATATYPE_##id, name, width},
static const tarvocon_datatype_row_td TARVOCON_DATATYPES[] = {
    TARVO_DATATYPE_LIST(TARVOCON_DATATYPE_ROW)};
#undef TARVOCON_DATATYPE_ROW

static const tarvocon_datatype_row_td *
tarvocon_datatype_row(tarvo_item_datatype_td datatype)
{
    for (const tarvocon_datatype_row_td &row : TARVOCON_DATATYPES) {
        if (row.datatype == datatype) {
            return &row;
        }
    }
    return NULL;
}

const char *tarvocon_datatype_name(tarvo_item_datatype_td datatype)
{
    const tarvocon_datatype_row_td *row = tarvocon_datatype_row(datatype);
    return row != NULL ? row->name : NULL;
}

uint32_t tarvocon_datatype_width(tarvo_item_datatype_td datatype)
{
    const tarvocon_datatype_row_td *row = tarvocon_datatype_row(datatype);
    return row != NULL ? row->width : 0;
}

/* Only the storable datatypes (codes above 0) have a name the user types;
 * the names differ from each other whatever the case, so the order of the
 * search does not matter. */
int tarvocon_get_datatype(char *description, tarvo_item_datatype_td *datatype)
{
    assert(description != NULL && datatype != NULL);
    for (const tarvocon_datatype_row_td &row : TARVOCON_DATATYPES) {
        if (row.datatype > 0 && strcasecmp(description, row.name) == 0) {
            *datatype = row.datatype;
            return 0;
        }
    }
    vel_printmsg(tarvocon_msg_sc_datatype(), VEL_SEVERITY_WARNING,
                 description);
    return 1;
}

/* Value of one digit character, or -1. Letters count from 10 ("A" and "a")
 * upwards, whatever the base, so that a letter above the base is refused
 * by the caller rather than taken as a terminator. */
static int tarvocon_digit_value(unsigned char c)
{
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (isalpha(c)) {
        return toupper(c) - 55;
    }
    return -1;
}

int tarvocon_parse_uint64(const char *text, uint64_t *result)
{
    assert(result != NULL);
    if (text == NULL) {
        return TARVOCON_ERR_BAD_VALUE;
    }
    uint64_t base = 10;
    const char *digits = text;
    if (text[0] == '0' && toupper((unsigned char)text[1]) == 'X') {
        base = 16;
        digits = text + 2;
    } else if (text[0] == '0') {
        base = 8; /* the leading 0 is itself a digit */
    }
    const uint64_t limit = UINT64_MAX / base;
    const uint64_t rest = UINT64_MAX % base;
    uint64_t value = 0;
    for (const char *p = digits; *p != '\0'; p++) {
        int digit = tarvocon_digit_value((unsigned char)*p);
        if (digit < 0 || (uint64_t)digit >= base) {
            return TARVOCON_ERR_BAD_VALUE;
        }
        if (value > limit || (value == limit && (uint64_t)digit > rest)) {
            return TARVOCON_ERR_BAD_VALUE;
        }
        value = value * base + (uint64_t)digit;
    }
    *result = value;
    return 0;
}

int tarvocon_parse_int64(const char *text, int64_t *result)
{
    assert(result != NULL);
    if (text == NULL) {
        return TARVOCON_ERR_BAD_VALUE;
    }
    uint64_t magnitude = 0;
    if (text[0] == '-') {
        if (tarvocon_parse_uint64(text + 1, &magnitude) != 0 ||
            magnitude > 0x8000000000000000ull) {
            return TARVOCON_ERR_BAD_VALUE;
        }
        *result = (int64_t)(0 - magnitude); /* two's complement negation */
        return 0;
    }
    const char *digits = text[0] == '+' ? text + 1 : text;
    if (tarvocon_parse_uint64(digits, &magnitude) != 0 ||
        magnitude > (uint64_t)INT64_MAX) {
        return TARVOCON_ERR_BAD_VALUE;
    }
    *result = (int64_t)magnitude;
    return 0;
}

/* The narrow parsers run the wide ones and check the range of their width. */
template <typename T>
static int tarvocon_parse_unsigned_narrow(const char *text, T *result)
{
    assert(result != NULL);
    uint64_t value = 0;
    int rc = tarvocon_parse_uint64(text, &value);
    if (rc != 0) {
        return rc;
    }
    if (value > (uint64_t)(T)~(T)0) {
        return TARVOCON_ERR_BAD_VALUE;
    }
    *result = (T)value;
    return 0;
}

template <typename T>
static int tarvocon_parse_signed_narrow(const char *text, T *result)
{
    assert(result != NULL);
    int64_t value = 0;
    int rc = tarvocon_parse_int64(text, &value);
    if (rc != 0) {
        return rc;
    }
    if (value != (int64_t)(T)value) {
        return TARVOCON_ERR_BAD_VALUE;
    }
    *result = (T)value;
    return 0;
}

int tarvocon_parse_uint32(const char *text, uint32_t *result)
{
    return tarvocon_parse_unsigned_narrow(text, result);
}

int tarvocon_parse_uint16(const char *text, uint16_t *result)
{
    return tarvocon_parse_unsigned_narrow(text, result);
}

int tarvocon_parse_uint8(const char *text, uint8_t *result)
{
    return tarvocon_parse_unsigned_narrow(text, result);
}

int tarvocon_parse_int32(const char *text, int32_t *result)
{
    return tarvocon_parse_signed_narrow(text, result);
}

int tarvocon_parse_int16(const char *text, int16_t *result)
{
    return tarvocon_parse_signed_narrow(text, result);
}

int tarvocon_parse_int8(const char *text, int8_t *result)
{
    return tarvocon_parse_signed_narrow(text, result);
}

/* Parses token with parser into a T and places it at the start of the
 * caller's zeroed scratch word. */
template <typename T>
static int tarvocon_make_integer(int (*parser)(const char *, T *),
                                 const char *token, uint64_t *scratch,
                                 void **result, uint32_t *length)
{
    T value = 0;
    int rc = parser(token, &value);
    if (rc != 0) {
        vel_printmsg(tarvocon_msg_sc_bad_integer(), VEL_SEVERITY_WARNING);
        return rc;
    }
    *scratch = 0;
    memcpy(scratch, &value, sizeof value);
    *result = scratch;
    *length = sizeof value;
    return 0;
}

static int tarvocon_make_packed_value(char *token, void **value,
                                      uint32_t *length)
{
    tuple_buf *tuple = NULL;
    uint32_t size = 0;
    int rc = tarvocon_create_packed(token, &tuple, &size);
    if (rc == 0) {
        *value = tuple;
        *length = size;
    }
    return rc;
}

static int tarvocon_make_bag_value(char *token, void **value,
                                   uint32_t *length)
{
    bag_td *bag = NULL;
    uint32_t size = 0;
    int rc = tarvocon_create_bag(token, &bag, &size);
    if (rc == 0) {
        *value = bag;
        *length = size;
    }
    return rc;
}

int tarvocon_make_value(tarvo_item_datatype_td datatype, char *token,
                        uint64_t *scratch, void **value, uint32_t *length)
{
    assert(token != NULL && scratch != NULL && value != NULL &&
           length != NULL);
    int rc = 0;
    *value = NULL; /* set only on success, so failures own nothing */
    *length = 0;
    switch (datatype) {
    case TARVO_DATATYPE_UINT32:
        return tarvocon_make_integer(tarvocon_parse_uint32, token, scratch,
                                     value, length);
    case TARVO_DATATYPE_UINT64:
        return tarvocon_make_integer(tarvocon_parse_uint64, token, scratch,
                                     value, length);
    case TARVO_DATATYPE_INT8:
        return tarvocon_make_integer(tarvocon_parse_int8, token, scratch,
                                     value, length);
    case TARVO_DATATYPE_UINT8:
        return tarvocon_make_integer(tarvocon_parse_uint8, token, scratch,
                                     value, length);
    case TARVO_DATATYPE_INT16:
        return tarvocon_make_integer(tarvocon_parse_int16, token, scratch,
                                     value, length);
    case TARVO_DATATYPE_UINT16:
        return tarvocon_make_integer(tarvocon_parse_uint16, token, scratch,
                                     value, length);
    case TARVO_DATATYPE_INT32:
        return tarvocon_make_integer(tarvocon_parse_int32, token, scratch,
                                     value, length);
    case TARVO_DATATYPE_INT64:
        return tarvocon_make_integer(tarvocon_parse_int64, token, scratch,
                                     value, length);
    case TARVO_DATATYPE_STRING:
        *value = token;
        *length = (uint32_t)strlen(token) + 1;
        return 0;
    case TARVO_DATATYPE_PACKED:
        rc = tarvocon_make_packed_value(token, value, length);
        break;
    case TARVO_DATATYPE_BAG:
        rc = tarvocon_make_bag_value(token, value, length);
        break;
    default:
        vel_printmsg(tarvocon_msg_sc_interr(), VEL_SEVERITY_NOTICE);
        rc = 1;
        break;
    }
    return rc;
}

void tarvocon_terminate_string(const char *source, char **new_string,
                               uint32_t length)
{
    assert(source != NULL && new_string != NULL);
    char *copy = (char *)malloc((size_t)length + 1);
    *new_string = copy;
    if (copy == NULL) {
        return;
    }
    /* strncpy stops at a NUL of the source and fills the rest with NULs. */
    strncpy(copy, source, length);
    copy[length] = '\0';
}

void tarvocon_make_uppercase(char *format)
{
    assert(format != NULL);
    for (char *p = format; *p != '\0'; p++) {
        if (*p == 's') {
            *p = 'S';
        }
    }
}
