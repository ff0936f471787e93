/*
 * Reading items: get (typed display), dump (hex dump), get_inh (the
 * inheritance chain) and getitems (several named items as a data list).
 *
 * Each handler opens its output stream before anything else and closes it
 * last; results are 0, 1 after a reported failure, or errno when the stream
 * could not be opened or closed.
 */
#include <assert.h>
#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include "tarvocon.h"
#include "tarvocon_commands_clone/options.h"

static const tarvocon_option_td TARVOCON_GET_OPTION_WORDS[] = {
    {"-bulk", TARVO_ACCESS_OPTION_BULK, 0},
    {"-nobulk", TARVO_ACCESS_OPTION_NOBULK, 0},
};
const tarvocon_option_table_td tarvocon_get_options =
    tarvocon_option_table(TARVOCON_GET_OPTION_WORDS);

/* getitems: "-s" in place of the path asks for a single node. */
static const tarvocon_option_td TARVOCON_GETITEMS_OPTION_WORDS[] = {
    {"-s", TARVO_ACCESS_OPTION_GET_ITEMS_SINGLE_NODE, 0},
};
const tarvocon_option_table_td tarvocon_getitems_options =
    tarvocon_option_table(TARVOCON_GETITEMS_OPTION_WORDS);

typedef int (*tarvocon_stream_body_td)(char **tokens, uint32_t count,
                                       FILE *stream);

/* The frame every reading command shares: stream, body, close. */
static int tarvocon_with_stream(char **tokens, uint32_t count,
                                tarvocon_stream_body_td body)
{
    assert(tokens != NULL);
    FILE *stream = tarvocon_pager_open();
    if (stream == NULL) {
        return errno;
    }
    int result = body(tokens, count, stream);
    if (tarvocon_pclose(stream) != 0) {
        result = errno;
    }
    return result;
}

static void tarvocon_report_get(const char *name, int32_t code)
{
    vel_printmsg(tarvocon_msg_sc_get(), VEL_SEVERITY_WARNING, name,
                 errcode_strerror(code));
}

/* The options and type words of get, tokens 2 onwards. */
static int tarvocon_get_parse_options(char **tokens, uint32_t count,
                                      tarvo_item_datatype_td *datatype,
                                      uint32_t *options)
{
    for (uint32_t i = 2; i < count; i++) {
        if (tokens[i][0] == '-') {
            const tarvocon_option_td *option =
                tarvocon_find_option(&tarvocon_get_options, tokens[i]);
            if (option == NULL) {
                vel_printmsg(tarvocon_msg_sc_excess(), VEL_SEVERITY_WARNING);
                return 1;
            }
            *options |= option->bits;
        } else if (tarvocon_get_datatype(tokens[2], datatype) != 0) {
            /* The type word is always token 2, wherever the walk is. */
            return 1;
        }
    }
    return 0;
}

static int tarvocon_get_body(char **tokens, uint32_t count, FILE *stream)
{
    if (count < 2) {
        vel_printmsg(tarvocon_msg_sc_missname(), VEL_SEVERITY_WARNING);
        return 1;
    }
    if (count > 5) {
        vel_printmsg(tarvocon_msg_sc_excess(), VEL_SEVERITY_WARNING);
        return 1;
    }
    tarvo_item_datatype_td datatype = (tarvo_item_datatype_td)0;
    uint32_t options = 0;
    if (tarvocon_get_parse_options(tokens, count, &datatype, &options) != 0) {
        return 1;
    }
    void *value = NULL;
    uint32_t length = 0;
    int rc = tarvo_item_get(tarvocon_bind_handle, tokens[1], &datatype, &value,
                            &length, options);
    if (rc != 0) {
        tarvocon_report_get(tokens[1], rc);
        return 1;
    }
    tarvocon_page_print_item(datatype, 0, tokens[1], length, value, stream);
    free(value);
    if (tarvocon_verbose) {
        printf("Item %s successfully retrieved\n", tokens[1]);
    }
    return 0;
}

int tarvocon_get(char **tokens, uint32_t count)
{
    return tarvocon_with_stream(tokens, count, tarvocon_get_body);
}

static int tarvocon_hexdump_body(char **tokens, uint32_t count, FILE *stream)
{
    if (count < 2) {
        vel_printmsg(tarvocon_msg_sc_missname(), VEL_SEVERITY_WARNING);
        return 1;
    }
    if (count != 2) {
        vel_printmsg(tarvocon_msg_sc_excess(), VEL_SEVERITY_WARNING);
        return 1;
    }
    tarvo_item_datatype_td datatype = (tarvo_item_datatype_td)0;
    void *value = NULL;
    uint32_t length = 0;
    int rc = tarvo_item_get(tarvocon_bind_handle, tokens[1], &datatype, &value,
                            &length, 0);
    if (rc != 0) {
        tarvocon_report_get(tokens[1], rc);
        return 1;
    }
    tarvocon_dump_item(datatype, tokens[1], "", length, value, stream);
    free(value);
    if (tarvocon_verbose) {
        printf("Item %s successfully dumped\n", tokens[1]);
    }
    return 0;
}

int tarvocon_hexdump(char **tokens, uint32_t count)
{
    return tarvocon_with_stream(tokens, count, tarvocon_hexdump_body);
}

/* One inheritance record as it sits in the client's buffer. */
struct tarvocon_inh_record_td {
    uint8_t level;
    uint8_t position;
    uint32_t local_length;
    uint32_t group_length;
    const char *group_name;
};

#define TARVOCON_INH_HEADER_SIZE 8
#define TARVOCON_INH_RECORD_HEADER_SIZE 16

/* Reads the record at offset; 0 when it would run past the buffer. */
static int tarvocon_read_inh_record(const unsigned char *buffer,
                                    uint64_t length, uint64_t offset,
                                    tarvocon_inh_record_td *record)
{
    if (offset + TARVOCON_INH_RECORD_HEADER_SIZE > length) {
        return 0;
    }
    const unsigned char *p = buffer + offset;
    record->level = p[0];
    record->position = p[1];
    memcpy(&record->local_length, p + 4, 4);
    memcpy(&record->group_length, p + 8, 4);
    record->group_name = (const char *)p + TARVOCON_INH_RECORD_HEADER_SIZE;
    uint64_t end = offset + TARVOCON_INH_RECORD_HEADER_SIZE +
                   record->group_length + record->local_length;
    return end <= length;
}

static void tarvocon_print_inheritance(const unsigned char *buffer,
                                       uint32_t length)
{
    if (length < TARVOCON_INH_HEADER_SIZE) {
        return;
    }
    uint32_t records = 0;
    memcpy(&records, buffer, 4);
    uint64_t offset = TARVOCON_INH_HEADER_SIZE;
    tarvocon_inh_record_td record;
    for (uint32_t i = 0; i < records; i++) {
        if (!tarvocon_read_inh_record(buffer, length, offset, &record)) {
            break; /* a damaged buffer: show what is whole */
        }
        printf("level = %3d   position = %3d\t  local item length = %3d\t ",
               record.level, record.position, (int)record.local_length);
        if (record.group_length == 0) {
            printf("group_name ''  \n");
        } else {
            printf("group_name '%.*s'  \n", (int)record.group_length,
                   record.group_name);
        }
        offset += TARVOCON_INH_RECORD_HEADER_SIZE + record.group_length +
                  record.local_length;
    }
}

static int tarvocon_get_inh_body(char **tokens, uint32_t count, FILE *stream)
{
    (void)stream; /* the records go to standard output */
    if (count < 2) {
        vel_printmsg(tarvocon_msg_sc_missname(), VEL_SEVERITY_WARNING);
        return 1;
    }
    if (count > 3) {
        vel_printmsg(tarvocon_msg_sc_excess(), VEL_SEVERITY_WARNING);
        return 1;
    }
    uint32_t levels = 0;
    void *buffer = NULL;
    uint32_t length = 0;
    int rc = tarvo_item_get_inh(tarvocon_bind_handle, tokens[1], &levels,
                                &buffer, &length, 0);
    if (rc != 0) {
        vel_printmsg(tarvocon_msg_sc_get_inh(), VEL_SEVERITY_WARNING,
                     tokens[1], errcode_strerror(rc));
        return 1;
    }
    if (length != 0 && buffer != NULL) {
        tarvocon_print_inheritance((const unsigned char *)buffer, length);
    }
    free(buffer);
    if (tarvocon_verbose) {
        printf("Item %s successfully retrieved\n", tokens[1]);
    }
    return 0;
}

int tarvocon_get_inh(char **tokens, uint32_t count)
{
    return tarvocon_with_stream(tokens, count, tarvocon_get_inh_body);
}

static void tarvocon_release_get_items(void *list)
{
    tarvo_datalist_free(static_cast<tarvo_datalist_h_td>(list));
}

static int tarvocon_get_items_body(char **tokens, uint32_t count,
                                   FILE *stream)
{
    (void)stream; /* the data list display pages by itself */
    if (count < 3) {
        vel_printmsg(tarvocon_msg_sc_missname(), VEL_SEVERITY_WARNING);
        return 1;
    }
    char **names = (char **)malloc((count - 1) * sizeof(char *));
    if (names == NULL) {
        return 1;
    }
    for (uint32_t i = 2; i < count; i++) {
        names[i - 2] = tokens[i];
    }
    const char *path = tokens[1];
    uint32_t flags = 0;
    const tarvocon_option_td *option =
        tarvocon_find_option(&tarvocon_getitems_options, tokens[1]);
    if (option != NULL) {
        path = "";
        flags = option->bits;
    }
    tarvo_datalist_h_td list = NULL;
    int rc = tarvo_get_items(tarvocon_bind_handle, names, path, count - 2,
                             &list, flags);
    int result = 0;
    if (rc != 0) {
        vel_printmsg(tarvocon_msg_sc_get_items(), VEL_SEVERITY_WARNING,
                     tokens[1], errcode_strerror(rc));
        result = 1;
    } else {
        /* Held while shown: quitting the pager early abandons the command. */
        tarvocon_pager_hold(tarvocon_release_get_items, list);
        tarvocon_pager_hold(free, names);
        tarvocon_datalist_display(list, count - 2);
        tarvocon_pager_let_go(names);
        tarvocon_pager_let_go(list);
        tarvo_datalist_free(list);
    }
    free(names);
    return result;
}

int tarvocon_get_items(char **tokens, uint32_t count)
{
    return tarvocon_with_stream(tokens, count, tarvocon_get_items_body);
}
