/*
 * match: compares a value typed by the user with an item's stored value and
 * prints the verdict; tarvocon_check_match does the comparison and the
 * printing for every datatype.
 */
#include <assert.h>
#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include "tarvocon.h"

static int tarvocon_match_uint32(const char *match_data,
                                 const void *real_data, FILE *stream)
{
    uint32_t real = 0;
    memcpy(&real, real_data, sizeof real);
    uint32_t mine = 0;
    int rc = tarvocon_parse_uint32(match_data, &mine);
    if (rc != 0) {
        fprintf(stream, "Values did not match. Tarvo value 0x%x. Your value %s\n",
                real, match_data);
        return rc;
    }
    if (real != mine) {
        fprintf(stream,
                "Values did not match. Tarvo value 0x%x. Your value 0x%x\n",
                real, mine);
        return 1;
    }
    return 0;
}

/* The uint64 lines print each 32-bit half with %x, without leading zeros. */
static int tarvocon_match_uint64(const char *match_data,
                                 const void *real_data, FILE *stream)
{
    uint64_t real = 0;
    memcpy(&real, real_data, sizeof real);
    unsigned real_high = (unsigned)(real >> 32);
    unsigned real_low = (unsigned)real;
    uint64_t mine = 0;
    int rc = tarvocon_parse_uint64(match_data, &mine);
    if (rc != 0) {
        fprintf(stream,
                "Values did not match. Tarvo value 0x%x%x. Your value %s\n",
                real_high, real_low, match_data);
        return rc;
    }
    if (real != mine) {
        fprintf(stream,
                "Values did not match. Tarvo value 0x%x%x. Your value "
                "0x%x%x\n",
                real_high, real_low, (unsigned)(mine >> 32), (unsigned)mine);
        return 1;
    }
    return 0;
}

static int tarvocon_match_string(const char *match_data,
                                 const void *real_data, FILE *stream)
{
    const char *real = (const char *)real_data;
    if (strcmp(real, match_data) != 0) {
        fprintf(stream,
                "Values did not match. Tarvo value \"%s\". Your value \"%s\"\n",
                real, match_data);
        return 1;
    }
    return 0;
}

static int tarvocon_match_packed(char *match_data, void *real_data,
                                 FILE *stream)
{
    tuple_buf *mine = NULL;
    uint32_t mine_size = 0;
    int rc = tarvocon_create_packed(match_data, &mine, &mine_size);
    if (rc != 0) {
        return rc;
    }
    tuple_buf *real = (tuple_buf *)real_data;
    uint32_t real_size = tuple_size(real);
    int result = 0;
    if (real_size != mine_size || memcmp(real, mine, real_size) != 0) {
        fprintf(stream, "Values did not match. Tarvo value\n");
        tarvocon_page_print_packed(real, stream);
        fprintf(stream, "\nYour value\n");
        tarvocon_page_print_packed(mine, stream);
        result = 1;
    }
    tuple_free(mine);
    return result;
}

int tarvocon_check_match(char *name, tarvo_item_datatype_td datatype,
                         char *match_data, void *real_data, FILE *stream)
{
    assert(name != NULL && match_data != NULL && stream != NULL);
    (void)name; /* identifies the item to the caller; not printed */
    int result = 0;
    switch (datatype) {
    case TARVO_DATATYPE_DIR:
        break;
    case TARVO_DATATYPE_UINT32:
        assert(real_data != NULL);
        result = tarvocon_match_uint32(match_data, real_data, stream);
        break;
    case TARVO_DATATYPE_UINT64:
        assert(real_data != NULL);
        result = tarvocon_match_uint64(match_data, real_data, stream);
        break;
    case TARVO_DATATYPE_STRING:
        assert(real_data != NULL);
        result = tarvocon_match_string(match_data, real_data, stream);
        break;
    case TARVO_DATATYPE_PACKED:
        assert(real_data != NULL);
        result = tarvocon_match_packed(match_data, real_data, stream);
        break;
    default:
        vel_printmsg(tarvocon_msg_sc_datatyperet(), VEL_SEVERITY_NOTICE,
                     (unsigned)datatype);
        return 1;
    }
    if (result == 0) {
        fprintf(stream, "Match success\n");
    }
    return result;
}

/* Everything of match between opening and closing the stream. */
static int tarvocon_match_body(char **tokens, uint32_t count, FILE *stream)
{
    if (count <= 1) {
        vel_printmsg(tarvocon_msg_sc_missname(), VEL_SEVERITY_WARNING);
        return 1;
    }
    if (count == 2) {
        vel_printmsg(tarvocon_msg_sc_missvalue(), VEL_SEVERITY_WARNING);
        return 1;
    }
    if (count > 4) {
        vel_printmsg(tarvocon_msg_sc_excess(), VEL_SEVERITY_WARNING);
        return 1;
    }
    tarvo_item_datatype_td datatype = (tarvo_item_datatype_td)0;
    char *match_data = tokens[2];
    if (count == 4) {
        if (tarvocon_get_datatype(tokens[2], &datatype) != 0) {
            return 1;
        }
        match_data = tokens[3];
    }
    void *value = NULL;
    uint32_t length = 0;
    int rc = tarvo_item_get(tarvocon_bind_handle, tokens[1], &datatype, &value,
                            &length, 0);
    if (rc != 0) {
        vel_printmsg(tarvocon_msg_sc_get(), VEL_SEVERITY_WARNING, tokens[1],
                     errcode_strerror(rc));
        return 1;
    }
    int result =
        tarvocon_check_match(tokens[1], datatype, match_data, value, stream);
    free(value);
    return result;
}

int tarvocon_match(char **tokens, uint32_t count)
{
    assert(tokens != NULL);
    FILE *stream = tarvocon_pager_open();
    if (stream == NULL) {
        return errno;
    }
    int result = tarvocon_match_body(tokens, count, stream);
    if (tarvocon_pclose(stream) != 0) {
        result = 1;
    }
    return result;
}
