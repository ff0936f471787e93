/*
 * Item display: one header line per item (event prefix, datatype label,
 * value length, quoted name) and the value in a form chosen by datatype;
 * and the hexadecimal dump. Everything goes to the caller's stream; nothing
 * is kept.
 */
#include <assert.h>
#include <ctype.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>

#include "tarvocon.h"

#define TARVOCON_DUMP_WIDTH 16

static const char *tarvocon_event_prefix(tarvo_event_td event)
{
    if (event & TARVO_EVENT_CREATE) {
        return "CREATE ";
    }
    if (event & TARVO_EVENT_SET) {
        return "SET    ";
    }
    if (event & TARVO_EVENT_DELETE) {
        return "DELETE ";
    }
    return "";
}

/* The value's first `width` bytes as an integer. A value shorter than its
 * datatype's width is never read past its end: the missing bytes count as
 * zero. */
static uint64_t tarvocon_read_width(const void *value, uint32_t length,
                                    size_t width)
{
    unsigned char bytes[8] = {0};
    memcpy(bytes, value, length < width ? length : width);
    uint64_t result = 0;
    switch (width) {
    case 1:
        result = bytes[0];
        break;
    case 2: {
        uint16_t v;
        memcpy(&v, bytes, 2);
        result = v;
        break;
    }
    case 4: {
        uint32_t v;
        memcpy(&v, bytes, 4);
        result = v;
        break;
    }
    default:
        memcpy(&result, bytes, 8);
        break;
    }
    return result;
}

/* Header lines of the three datatypes that never carry a value. */
static int tarvocon_print_valueless(tarvo_item_datatype_td datatype,
                                    const char *prefix, const char *name,
                                    FILE *stream)
{
    switch (datatype) {
    case TARVO_DATATYPE_DIR:
        fprintf(stream, "%s[dir]\t\t\t'%s'\n", prefix, name);
        return 1;
    case TARVO_DATATYPE_EXTERNAL_ITEM:
        fprintf(stream, "%s[external item]\t\t'%s'\n", prefix, name);
        return 1;
    case TARVO_DATATYPE_EXTERNAL_DIR:
        fprintf(stream, "%s[external dir]\t\t'%s'\n", prefix, name);
        return 1;
    default:
        return 0;
    }
}

static void tarvocon_print_string_value(const char *prefix, const char *name,
                                        uint32_t length, const char *value,
                                        FILE *stream)
{
    char *copy = NULL;
    tarvocon_terminate_string(value, &copy, length);
    if (copy != NULL) {
        /* Held while written: a pager quit early abandons the command. */
        tarvocon_pager_hold(free, copy);
        fprintf(stream, "%s[string (len %u)] \t'%s' \"%s\"\n", prefix, length,
                name, copy);
        tarvocon_pager_let_go(copy);
        free(copy);
        return;
    }
    /* No memory for the copy: the same text, bounded by the length. */
    int bound = length > INT_MAX ? INT_MAX : (int)length;
    fprintf(stream, "%s[string (len %u)] \t'%s' \"%.*s\"\n", prefix, length,
            name, bound, value);
}

static void tarvocon_print_packed_value(const char *prefix, const char *name,
                                        uint32_t length, void *value,
                                        FILE *stream)
{
    fprintf(stream, "%s[packed (len %u)] \t'%s'\n", prefix, length, name);
    /* The tuple library trusts the sizes inside a tuple; a value that is
     * not exactly one tuple is reported as a tuple without a format. */
    if (tuple_check(value, length) != 0) {
        vel_printmsg(tarvocon_msg_sc_extfmtstr(), VEL_SEVERITY_NOTICE);
        return;
    }
    tarvocon_page_print_packed((tuple_buf *)value, stream);
}

/* The short line of an item without a value; 0 for an unknown datatype. */
static int tarvocon_print_absent(tarvo_item_datatype_td datatype,
                                 const char *prefix, const char *name,
                                 FILE *stream)
{
    static const struct {
        tarvo_item_datatype_td datatype;
        const char *format;
    } ABSENT[] = {
        {TARVO_DATATYPE_UINT32, "%s[uint32] \t\t'%s'\n"},
        {TARVO_DATATYPE_UINT64, "%s[uint64] \t\t'%s'\n"},
        {TARVO_DATATYPE_STRING, "%s[string] \t\t'%s'\n"},
        {TARVO_DATATYPE_PACKED, "%s[packed] \t\t'%s'\n"},
        {TARVO_DATATYPE_BAG, "%s[bag] \t\t\t'%s'\n"},
        {TARVO_DATATYPE_INT8, "%s[int8] \t\t\t'%s'\n"},
        {TARVO_DATATYPE_UINT8, "%s[uint8] \t\t'%s'\n"},
        {TARVO_DATATYPE_INT16, "%s[int16] \t\t'%s'\n"},
        {TARVO_DATATYPE_UINT16, "%s[uint16] \t\t'%s'\n"},
        {TARVO_DATATYPE_INT32, "%s[int32] \t\t'%s'\n"},
        {TARVO_DATATYPE_INT64, "%s[int64] \t\t'%s'\n"},
    };
    for (const auto &entry : ABSENT) {
        if (entry.datatype == datatype) {
            fprintf(stream, entry.format, prefix, name);
            return 1;
        }
    }
    return 0;
}

/* The line of an integer item with a value; 0 for other datatypes. */
static int tarvocon_print_integer(tarvo_item_datatype_td datatype,
                                  const char *prefix, const char *name,
                                  uint32_t length, const void *value,
                                  FILE *stream)
{
    uint64_t v = 0;
    switch (datatype) {
    case TARVO_DATATYPE_UINT32:
        v = tarvocon_read_width(value, length, 4);
        fprintf(stream, "%s[uint32 (len %u)] \t'%s' %10u (0x%8.8X)\n", prefix,
                length, name, (unsigned)v, (unsigned)v);
        return 1;
    case TARVO_DATATYPE_UINT64:
        v = tarvocon_read_width(value, length, 8);
        fprintf(stream, "%s[uint64 (len %u)] \t'%s' 0x%16.16llX\n", prefix,
                length, name, (unsigned long long)v);
        return 1;
    case TARVO_DATATYPE_INT8:
        v = tarvocon_read_width(value, length, 1);
        fprintf(stream, "%s[int8 (len %u)] \t\t'%s' %3d (0x%2.2X)\n", prefix,
                length, name, (int)(int8_t)v, (unsigned)(uint8_t)v);
        return 1;
    case TARVO_DATATYPE_UINT8:
        v = tarvocon_read_width(value, length, 1);
        fprintf(stream, "%s[uint8 (len %u)] \t'%s' %3u (0x%2.2X)\n", prefix,
                length, name, (unsigned)v, (unsigned)v);
        return 1;
    case TARVO_DATATYPE_INT16:
        v = tarvocon_read_width(value, length, 2);
        fprintf(stream, "%s[int16 (len %u)] \t'%s' %5d (0x%4.4X)\n", prefix,
                length, name, (int)(int16_t)v, (unsigned)(uint16_t)v);
        return 1;
    case TARVO_DATATYPE_UINT16:
        v = tarvocon_read_width(value, length, 2);
        fprintf(stream, "%s[uint16 (len %u)] \t'%s' %5u (0x%4.4X)\n", prefix,
                length, name, (unsigned)v, (unsigned)v);
        return 1;
    case TARVO_DATATYPE_INT32:
        v = tarvocon_read_width(value, length, 4);
        fprintf(stream, "%s[int32 (len %u)] \t'%s' %10d (0x%8.8X)\n", prefix,
                length, name, (int)(int32_t)v, (unsigned)(uint32_t)v);
        return 1;
    case TARVO_DATATYPE_INT64:
        v = tarvocon_read_width(value, length, 8);
        fprintf(stream, "%s[int64 (len %u)] \t'%s' %lld\n", prefix, length,
                name, (long long)(int64_t)v);
        return 1;
    default:
        return 0;
    }
}

void tarvocon_page_print_item(tarvo_item_datatype_td datatype,
                              tarvo_event_td event, char *name,
                              uint32_t length, void *value, FILE *stream)
{
    assert(name != NULL && stream != NULL);
    const char *prefix = tarvocon_event_prefix(event);
    if (tarvocon_print_valueless(datatype, prefix, name, stream)) {
        return;
    }
    int present = length != 0 && value != NULL;
    if (!present) {
        if (!tarvocon_print_absent(datatype, prefix, name, stream)) {
            tarvocon_dump_item(datatype, name, prefix, length, value, stream);
        }
        return;
    }
    if (tarvocon_print_integer(datatype, prefix, name, length, value,
                               stream)) {
        return;
    }
    switch (datatype) {
    case TARVO_DATATYPE_STRING:
        tarvocon_print_string_value(prefix, name, length, (const char *)value,
                                    stream);
        break;
    case TARVO_DATATYPE_PACKED:
        tarvocon_print_packed_value(prefix, name, length, value, stream);
        break;
    case TARVO_DATATYPE_BAG:
        tarvocon_print_bag((bag_td *)value, length, name, prefix, stream);
        break;
    default:
        tarvocon_dump_item(datatype, name, prefix, length, value, stream);
        break;
    }
}

/* The dump names only the codes from dir to bag; the others are unknown. */
static const char *tarvocon_dump_label(tarvo_item_datatype_td datatype)
{
    switch (datatype) {
    case TARVO_DATATYPE_UINT32:
        return "uint32";
    case TARVO_DATATYPE_UINT64:
        return "uint64";
    case TARVO_DATATYPE_STRING:
        return "string";
    case TARVO_DATATYPE_PACKED:
        return "packed";
    case TARVO_DATATYPE_BAG:
        return "bag";
    default:
        return "unknown";
    }
}

static void tarvocon_dump_line(const unsigned char *bytes, uint64_t offset,
                               uint64_t length, FILE *stream)
{
    fprintf(stream, "%8.8X : ", (unsigned)offset);
    for (uint64_t i = offset; i < offset + TARVOCON_DUMP_WIDTH; i++) {
        if (i < length) {
            fprintf(stream, "%2.2X ", bytes[i]);
        } else {
            fputs("   ", stream);
        }
    }
    fputs(": ", stream);
    for (uint64_t i = offset; i < offset + TARVOCON_DUMP_WIDTH; i++) {
        if (i < length) {
            fputc(isprint(bytes[i]) ? bytes[i] : '.', stream);
        } else {
            fputc(' ', stream);
        }
    }
    fputc('\n', stream);
}

void tarvocon_dump_item(tarvo_item_datatype_td datatype, char *name,
                        const char *prefix, uint32_t length, void *value,
                        FILE *stream)
{
    assert(name != NULL && prefix != NULL && stream != NULL);
    if (tarvocon_print_valueless(datatype, prefix, name, stream)) {
        return;
    }
    const char *label = tarvocon_dump_label(datatype);
    int present = length != 0 && value != NULL;
    if (!present) {
        /* "bag" is short enough to need a third tab to line up. */
        fprintf(stream, "%s[%s] \t\t%s'%s'\n", prefix, label,
                datatype == TARVO_DATATYPE_BAG ? "\t" : "", name);
        return;
    }
    fprintf(stream, "%s[%s (len %u)] \t'%s'\n", prefix, label, length, name);
    const unsigned char *bytes = (const unsigned char *)value;
    /* Offsets are 64-bit so that a length near 4 GiB cannot wrap. */
    for (uint64_t offset = 0; offset < length; offset += TARVOCON_DUMP_WIDTH) {
        tarvocon_dump_line(bytes, offset, length, stream);
    }
}
