/*
 * Packed tuple values: checking and rewriting the user's format, the value
 * dialogue (at the terminal or from the command file), building the tuple,
 * and showing a stored tuple argument by argument.
 *
 * Ownership: tarvocon_create_packed hands back a tuple the caller releases
 * with tuple_free. The displays keep nothing; the strings that unpacking
 * allocates are freed before they return.
 */
#include <arpa/inet.h>
#include <assert.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>

#include "platform/os.h"
#include "tarvocon.h"

#define TARVOCON_PREPARED_FORMAT_SIZE 100
#define TARVOCON_PREPARED_FORMAT_CUT 95
#define TARVOCON_PACKED_DIGITS_SIZE 32

static void tarvocon_report_format_char(char c)
{
    vel_printmsg(tarvocon_msg_sc_pkdfmtstr(), VEL_SEVERITY_WARNING, (int)c);
}

/* Length of the "l" conversion starting at p ("ld" 2, "llu" 3), or 0. */
static int tarvocon_long_conversion(const char *p, int *kind)
{
    if (p[1] == 'd') {
        *kind = TARVOCON_PACKED_ULONG;
        return 2;
    }
    if (p[1] == 'l' && p[2] == 'u') {
        *kind = TARVOCON_PACKED_UINT64;
        return 3;
    }
    return 0;
}

int tarvocon_prepare_format(char *format, char *new_format)
{
    assert(format != NULL && new_format != NULL);
    strlwr(format);
    size_t out = 0;
    const char *p = format;
    new_format[0] = '\0';
    while (*p != '\0') {
        int kind = 0;
        int used = 0;
        switch (*p) {
        case '%':
            p++;
            continue;
        case 'd':
        case 's':
            new_format[out++] = '%';
            new_format[out++] = *p++;
            break;
        case 'l':
            used = tarvocon_long_conversion(p, &kind);
            if (used == 0) {
                new_format[out] = '\0';
                tarvocon_report_format_char('l');
                return 1;
            }
            new_format[out++] = '%';
            memcpy(new_format + out, p, (size_t)used);
            out += (size_t)used;
            p += used;
            break;
        default:
            new_format[out] = '\0';
            tarvocon_report_format_char(*p);
            return 1;
        }
        new_format[out] = '\0';
        if (out > TARVOCON_PREPARED_FORMAT_CUT) {
            return 0; /* the rest of a very long format is dropped */
        }
    }
    return 0;
}

static const char *tarvocon_packed_prompt(int kind)
{
    switch (kind) {
    case TARVOCON_PACKED_UINT:
        return "enter unsigned int: ";
    case TARVOCON_PACKED_ULONG:
        return "enter unsigned long: ";
    case TARVOCON_PACKED_STRING:
        return "enter string: ";
    case TARVOCON_PACKED_UINT64:
        return "enter unsigned int64: ";
    default:
        return NULL;
    }
}

/* One answer from the terminal into line (1024 bytes). The prompt comes
 * back after completion, help and discard; only the end of input leaves. */
static int tarvocon_read_terminal_answer(int kind, getline_data *gl_data,
                                         char *line)
{
    assert(gl_data != NULL);
    for (;;) {
        uint8_t status = 0;
        char *answer = qn_getline(gl_data, tarvocon_packed_prompt(kind), NULL,
                                  &status);
        if (answer == NULL) {
            vel_printmsg(tarvocon_msg_sc_pkdread(), VEL_SEVERITY_NOTICE);
            return 1;
        }
        if (status == GETLINE_COMPLETE || status == GETLINE_HELP ||
            status == GETLINE_DISCARD) {
            free(answer);
            continue;
        }
        getline_histadd(gl_data, answer);
        snprintf(line, TARVOCON_LINE_SIZE, "%s", answer);
        free(answer);
        return 0;
    }
}

/* Ends the console: the command file has no more values to give. */
[[noreturn]] static void tarvocon_packed_file_ended(int read_error)
{
    if (read_error) {
        vel_printmsg(tarvocon_msg_sc_fileread(), VEL_SEVERITY_NOTICE);
    } else {
        vel_printmsg(tarvocon_msg_sc_pkdtuplefile(), VEL_SEVERITY_NOTICE);
    }
    tarvocon_unbind(tarvocon_bind_handle);
    exit(0);
}

/* One answer from the next line of the command file into line. */
static void tarvocon_read_file_answer(char *line)
{
    FILE *file = tarvocon_command_file;
    assert(file != NULL);
    if (feof(file)) {
        tarvocon_packed_file_ended(0);
    }
    if (fgets(line, TARVOCON_LINE_SIZE, file) == NULL) {
        tarvocon_packed_file_ended(ferror(file));
    }
    printf("Item datum: %s", line);
}

/* Removes blanks around text and then one pair of enclosing quotes. */
static char *tarvocon_trim_string_answer(char *text)
{
    while (*text == ' ') {
        text++;
    }
    size_t len = strlen(text);
    while (len > 0 && text[len - 1] == ' ') {
        text[--len] = '\0';
    }
    if (len >= 2 && text[0] == '"' && text[len - 1] == '"') {
        text[len - 1] = '\0';
        text++;
    }
    return text;
}

static int tarvocon_store_answer(int kind, char *line, tuple_arg *data)
{
    uint32_t u32 = 0;
    uint64_t u64 = 0;
    int rc = 0;
    switch (kind) {
    case TARVOCON_PACKED_UINT:
    case TARVOCON_PACKED_ULONG:
        rc = tarvocon_parse_uint32(line, &u32);
        if (rc == 0) {
            data->u64 = 0; /* the slot's upper half is always zero */
            data->u32 = u32;
        }
        break;
    case TARVOCON_PACKED_UINT64:
        rc = tarvocon_parse_uint64(line, &u64);
        if (rc == 0) {
            data->u64 = u64;
        }
        break;
    default:
        data->str = strdup(tarvocon_trim_string_answer(line));
        if (data->str == NULL) {
            vel_printmsg(tarvocon_msg_sc_pkdread(), VEL_SEVERITY_NOTICE);
            return 1;
        }
        return 0;
    }
    if (rc != 0) {
        vel_printmsg(tarvocon_msg_sc_bad_integer(), VEL_SEVERITY_WARNING);
    }
    return rc;
}

int tarvocon_read_packed_value(int kind, tuple_arg *data,
                               getline_data *gl_data)
{
    assert(data != NULL);
    if (tarvocon_packed_prompt(kind) == NULL) {
        vel_printmsg(tarvocon_msg_sc_interr(), VEL_SEVERITY_NOTICE);
        return 1;
    }
    char line[TARVOCON_LINE_SIZE];
    if (tarvocon_from_file) {
        tarvocon_read_file_answer(line);
    } else if (tarvocon_read_terminal_answer(kind, gl_data, line) != 0) {
        return 1;
    }
    line[strcspn(line, "\n")] = '\0';
    return tarvocon_store_answer(kind, line, data);
}

/* Reads the values of the prepared format into args. At most
 * TARVOCON_MAX_PACKED_ARGS are read; the format is then cut after the last
 * conversion read, so the tuple holds exactly what the user gave. */
static int tarvocon_read_packed_values(char *new_format, tuple_arg *args,
                                       int *kinds, getline_data *gl_data)
{
    int index = 0;
    char *p = new_format;
    while (*p != '\0') {
        if (index == TARVOCON_MAX_PACKED_ARGS) {
            *p = '\0';
            break;
        }
        int kind = 0;
        int used = 1;
        switch (*p) {
        case '%':
            p++;
            continue;
        case 'd':
            kind = TARVOCON_PACKED_UINT;
            break;
        case 's':
            kind = TARVOCON_PACKED_STRING;
            break;
        case 'l':
            used = tarvocon_long_conversion(p, &kind);
            break;
        default:
            used = 0;
            break;
        }
        if (used == 0) {
            tarvocon_report_format_char(*p);
            return 1;
        }
        int rc = tarvocon_read_packed_value(kind, &args[index], gl_data);
        if (rc != 0) {
            return rc;
        }
        kinds[index++] = kind;
        p += used;
    }
    return 0;
}

int tarvocon_create_packed(char *format, tuple_buf **packed_tuple,
                           uint32_t *packed_tuple_size)
{
    assert(format != NULL && packed_tuple != NULL &&
           packed_tuple_size != NULL);
    getline_data *gl_data = NULL;
    if (!tarvocon_from_file) {
        gl_data = getline_init();
        if (gl_data == NULL) {
            vel_printmsg(tarvocon_msg_sc_pkdread(), VEL_SEVERITY_NOTICE);
            return 1;
        }
    }
    char new_format[TARVOCON_PREPARED_FORMAT_SIZE];
    tuple_arg args[TARVOCON_MAX_PACKED_ARGS];
    int kinds[TARVOCON_MAX_PACKED_ARGS] = {0};
    memset(args, 0, sizeof args);
    int rc = tarvocon_prepare_format(format, new_format);
    if (rc == 0) {
        rc = tarvocon_read_packed_values(new_format, args, kinds, gl_data);
    }
    if (rc == 0) {
        tuple_buf *tuple = tuple_packv(0, 0, 0xFFFFFFFFu, new_format, args);
        if (tuple == NULL) {
            vel_printmsg(tarvocon_msg_sc_pkdtuplecre(), VEL_SEVERITY_NOTICE);
            rc = 1;
        } else {
            *packed_tuple = tuple;
            *packed_tuple_size = tuple_size(tuple);
        }
    }
    for (int i = 0; i < TARVOCON_MAX_PACKED_ARGS; i++) {
        if (kinds[i] == TARVOCON_PACKED_STRING) {
            free(args[i].str);
        }
    }
    if (gl_data != NULL) {
        getline_free(gl_data);
    }
    return rc;
}

static void tarvocon_print_packed_string(tuple_arg *tuple_data,
                                         uint32_t length, FILE *stream)
{
    if (tuple_data->str == NULL) {
        fprintf(stream, "\t[string] \t  NULL\n");
        return;
    }
    char *copy = NULL;
    tarvocon_terminate_string(tuple_data->str, &copy, length);
    if (copy != NULL) {
        fprintf(stream, "\t[string] \t  \"%s\"\n", copy);
        free(copy);
    } else {
        /* No memory for the copy: the same text, bounded by the length. */
        int bound = length > INT_MAX ? INT_MAX : (int)length;
        fprintf(stream, "\t[string] \t  \"%.*s\"\n", bound, tuple_data->str);
    }
}

void tarvocon_page_print_packed_value(int kind, tuple_arg *tuple_data,
                                      uint32_t length, int present,
                                      FILE *stream)
{
    assert(tuple_data != NULL && stream != NULL);
    static const char *const LABELS[] = {
        NULL, "[uint] \t\t", "[ulong] \t", "[string] \t", "[inaddr] \t",
        "[uint64] \t"};
    if (kind < TARVOCON_PACKED_UINT || kind > TARVOCON_PACKED_UINT64) {
        return;
    }
    if (!present) {
        fprintf(stream, "\t%s  value not present\n", LABELS[kind]);
    } else if (kind == TARVOCON_PACKED_STRING) {
        tarvocon_print_packed_string(tuple_data, length, stream);
    } else if (kind == TARVOCON_PACKED_INADDR) {
        fprintf(stream, "\t[inaddr] \t  0x%8.8X\n", ntohl(tuple_data->u32));
    } else if (kind == TARVOCON_PACKED_UINT64) {
        fprintf(stream, "\t[uint64] \t  %8.8llu\n",
                (unsigned long long)tuple_data->u64);
    } else {
        fprintf(stream, "\t%s  0x%8.8X\n", LABELS[kind], tuple_data->u32);
    }
    if (kind == TARVOCON_PACKED_STRING && length != 0) {
        free(tuple_data->str);
        tuple_data->str = NULL;
    }
}

/* Walk state of the tuple display. */
struct tarvocon_packed_walk_td {
    char digits[TARVOCON_PACKED_DIGITS_SIZE];
    size_t digit_count;
    int digits_overflow;      /* a run longer than the buffer */
    uint32_t previous_length; /* of the last string shown */
    int showing;              /* 0 once the display has stopped */
};

/* Length of a string conversion from the pending digits; 0 when they do
 * not give a length (the display then falls back and stops). */
static int tarvocon_packed_string_length(tarvocon_packed_walk_td *walk,
                                         uint32_t *length)
{
    walk->digits[walk->digit_count] = '\0';
    uint32_t parsed = 0;
    if (!walk->digits_overflow &&
        tarvocon_parse_uint32(walk->digits, &parsed) == 0) {
        *length = parsed;
        walk->previous_length = parsed;
        return 1;
    }
    *length = walk->previous_length;
    return 0;
}

/* Classifies the conversion at p: its kind and the characters it uses;
 * used 0 for a character the display does not know. */
static int tarvocon_packed_display_kind(const char *p, int *kind)
{
    switch (*p) {
    case 'd':
        *kind = TARVOCON_PACKED_UINT;
        return 1;
    case 'N':
        *kind = TARVOCON_PACKED_INADDR;
        return 1;
    case 'S':
        *kind = TARVOCON_PACKED_STRING;
        return 1;
    case 'l':
        return tarvocon_long_conversion(p, kind);
    default:
        return 0;
    }
}

/* Shows the arguments of an unpacked tuple; kinds and lengths receive each
 * argument's kind and string length so that the caller can free the strings
 * the display did not. */
static void tarvocon_walk_packed(const char *format, tuple_arg *args,
                                 uint32_t mask, int *kinds, uint32_t *lengths,
                                 FILE *stream)
{
    tarvocon_packed_walk_td walk = {};
    walk.showing = 1;
    int index = 0;
    const char *p = format;
    while (*p != '\0' && index < TARVOCON_MAX_PACKED_ARGS) {
        if (*p == '%') {
            walk.digit_count = 0;
            walk.digits_overflow = 0;
            p++;
            continue;
        }
        if (*p >= '0' && *p <= '9') {
            if (walk.digit_count + 1 < sizeof walk.digits) {
                walk.digits[walk.digit_count++] = *p;
            } else {
                walk.digits_overflow = 1;
            }
            p++;
            continue;
        }
        int kind = 0;
        int used = tarvocon_packed_display_kind(p, &kind);
        if (used == 0) {
            if (walk.showing) {
                tarvocon_report_format_char(*p);
            }
            return;
        }
        uint32_t length = 0;
        int stop_after = 0;
        if (kind == TARVOCON_PACKED_STRING) {
            stop_after = !tarvocon_packed_string_length(&walk, &length);
        }
        kinds[index] = kind;
        lengths[index] = length;
        if (walk.showing) {
            int present = (mask >> index) & 1u;
            tarvocon_page_print_packed_value(kind, &args[index], length,
                                             present, stream);
        }
        if (stop_after) {
            walk.showing = 0; /* keep walking only to find the strings */
        }
        index++;
        p += used;
    }
}

void tarvocon_page_print_packed(tuple_buf *packed_tuple, FILE *stream)
{
    assert(packed_tuple != NULL && stream != NULL);
    char *format = tuple_extract_format(packed_tuple);
    if (format == NULL) {
        vel_printmsg(tarvocon_msg_sc_extfmtstr(), VEL_SEVERITY_NOTICE);
        return;
    }
    tuple_arg args[TARVOCON_MAX_PACKED_ARGS];
    for (tuple_arg &slot : args) {
        slot.ptr = &slot;
    }
    tarvocon_make_uppercase(format);
    uint32_t mask = 0;
    if (tuple_unpackv(packed_tuple, &mask, format, args) != 0) {
        vel_printmsg(tarvocon_msg_sc_unpacktup(), VEL_SEVERITY_NOTICE);
        free(format);
        return;
    }
    int kinds[TARVOCON_MAX_PACKED_ARGS] = {0};
    uint32_t lengths[TARVOCON_MAX_PACKED_ARGS] = {0};
    tarvocon_walk_packed(format, args, mask, kinds, lengths, stream);
    /* Strings after the display stopped. An empty string is the tuple
     * library's shared empty text and is never freed. */
    for (int i = 0; i < TARVOCON_MAX_PACKED_ARGS; i++) {
        if (kinds[i] == TARVOCON_PACKED_STRING && lengths[i] != 0) {
            free(args[i].str);
        }
    }
    free(format);
}
