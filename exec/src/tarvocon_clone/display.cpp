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

/* In the header lines of valueless, absent and integer values, a label of
 * fewer than 5 characters takes one more tab to line up. */
static const char *tarvocon_short_label_tab(const char *label)
{
    return strlen(label) < 5 ? "\t" : "";
}

/* Header lines of the three datatypes that never carry a value (the
 * negative codes). */
static int tarvocon_print_valueless(tarvo_item_datatype_td datatype,
                                    const char *prefix, const char *name,
                                    FILE *stream)
{
    const char *label = tarvocon_datatype_name(datatype);
    if (datatype >= 0 || label == NULL) {
        return 0;
    }
    fprintf(stream, "%s[%s]\t\t%s'%s'\n", prefix, label,
            tarvocon_short_label_tab(label), name);
    return 1;
}

/* The short line of an item whose value is absent. */
static void tarvocon_print_label_line(const char *prefix, const char *label,
                                      const char *name, FILE *stream)
{
    fprintf(stream, "%s[%s] \t\t%s'%s'\n", prefix, label,
            tarvocon_short_label_tab(label), name);
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

/* The value of an integer item, in its datatype's own form. */
static void tarvocon_print_integer_value(tarvo_item_datatype_td datatype,
                                         uint64_t v, FILE *stream)
{
    switch (datatype) {
    case TARVO_DATATYPE_UINT32:
        fprintf(stream, "%10u (0x%8.8X)", (unsigned)v, (unsigned)v);
        break;
    case TARVO_DATATYPE_UINT64:
        fprintf(stream, "0x%16.16llX", (unsigned long long)v);
        break;
    case TARVO_DATATYPE_INT8:
        fprintf(stream, "%3d (0x%2.2X)", (int)(int8_t)v, (unsigned)(uint8_t)v);
        break;
    case TARVO_DATATYPE_UINT8:
        fprintf(stream, "%3u (0x%2.2X)", (unsigned)v, (unsigned)v);
        break;
    case TARVO_DATATYPE_INT16:
        fprintf(stream, "%5d (0x%4.4X)", (int)(int16_t)v, (unsigned)(uint16_t)v);
        break;
    case TARVO_DATATYPE_UINT16:
        fprintf(stream, "%5u (0x%4.4X)", (unsigned)v, (unsigned)v);
        break;
    case TARVO_DATATYPE_INT32:
        fprintf(stream, "%10d (0x%8.8X)", (int)(int32_t)v, (unsigned)(uint32_t)v);
        break;
    default: /* TARVO_DATATYPE_INT64 */
        fprintf(stream, "%lld", (long long)(int64_t)v);
        break;
    }
}

/* The line of an integer item with a value; 0 for other datatypes. */
static int tarvocon_print_integer(tarvo_item_datatype_td datatype,
                                  const char *prefix, const char *name,
                                  uint32_t length, const void *value,
                                  FILE *stream)
{
    uint32_t width = tarvocon_datatype_width(datatype);
    if (width == 0) {
        return 0;
    }
    const char *label = tarvocon_datatype_name(datatype);
    fprintf(stream, "%s[%s (len %u)] \t%s'%s' ", prefix, label, length,
            tarvocon_short_label_tab(label), name);
    tarvocon_print_integer_value(
        datatype, tarvocon_read_width(value, length, width), stream);
    fputc('\n', stream);
    return 1;
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
        const char *label = tarvocon_datatype_name(datatype);
        if (label != NULL) {
            tarvocon_print_label_line(prefix, label, name, stream);
        } else {
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
    const char *label = tarvocon_datatype_name(datatype);
    if (label == NULL || datatype > TARVO_DATATYPE_BAG) {
        return "unknown";
    }
    return label;
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
        tarvocon_print_label_line(prefix, label, name, stream);
        return;
    }
    fprintf(stream, "%s[%s (len %u)] \t'%s'\n", prefix, label, length, name);
    const unsigned char *bytes = (const unsigned char *)value;
    /* Offsets are 64-bit so that a length near 4 GiB cannot wrap. */
    for (uint64_t offset = 0; offset < length; offset += TARVOCON_DUMP_WIDTH) {
        tarvocon_dump_line(bytes, offset, length, stream);
    }
}
