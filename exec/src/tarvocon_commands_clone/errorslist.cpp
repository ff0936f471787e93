/*
 * The error lists of the database: errorslist (the errors list, or the
 * apply errors), the config-manager commands that show the apply errors
 * and the unscanned list, and the two that clear them. Every entry is
 * printed the same way: the item, its operations, the error text and the
 * verifier's and the prepared texts when present.
 *
 * Results: the show commands 0 or 1 (errorslist also a number parser's
 * code after a bad -num value); the clear commands the client's code.
 * Memory: the list, freed before returning.
 */
#include <assert.h>
#include <string.h>
#include <strings.h>

#include "tarvocon.h"
#include "tarvocon_commands_clone/options.h"

#define TARVOCON_ERRORSLIST_MAX_TOKENS 4
#define TARVOCON_ERRORSLIST_ALL 0xFFFFFFFFu

static const tarvocon_option_td TARVOCON_ERRORSLIST_OPTION_WORDS[] = {
    {"-apply_errors", 0, 0},
    {"-num", 0, 1},
};
const tarvocon_option_table_td tarvocon_errorslist_options =
    tarvocon_option_table(TARVOCON_ERRORSLIST_OPTION_WORDS);

/* Operation bits and their names, in the order they are shown. Bits not
 * named here are not shown. */
static const struct {
    uint32_t bit;
    const char *name;
} TARVOCON_OPERATION_NAMES[] = {
    {0x1u, "CREATE"},
    {0x2u, "SET"},
    {0x4u, "DELETE"},
};

static void tarvocon_print_error_entry(const tarvo_errors_list_entry_td *entry, FILE *stream)
{
    int deleted = (entry->operations & 0x4u) != 0;
    tarvocon_page_print_item(entry->datatype, 0, entry->name,
                             deleted ? entry->delete_value_length : entry->value_length,
                             deleted ? entry->delete_value : entry->value, stream);
    fputs("\tOperation: ", stream);
    const char *separator = "";
    for (const auto &operation : TARVOCON_OPERATION_NAMES) {
        if (entry->operations & operation.bit) {
            fprintf(stream, "%s%s", separator, operation.name);
            separator = " | ";
        }
    }
    fprintf(stream, "\n\tError: %s\n", errcode_strerror((int32_t)entry->error));
    if (entry->verifier_string != NULL) {
        fprintf(stream, "\tVerifier string: %s\n", entry->verifier_string);
    }
    if (entry->prepared_error_string != NULL) {
        fprintf(stream, "\tPrepared error string: %s\n", entry->prepared_error_string);
    }
}

/* Prints up to count entries; returns 0 or the failed read's code. */
static int tarvocon_print_error_entries(tarvo_errors_list_h_td list, uint32_t count,
                                        FILE *stream)
{
    while (count > 0) {
        tarvo_errors_list_entry_td entry;
        memset(&entry, 0, sizeof entry);
        int rc = tarvo_errors_list_next(list, &entry);
        if (rc != 0) {
            return rc;
        }
        if (entry.name == NULL) {
            break;
        }
        tarvocon_print_error_entry(&entry, stream);
        count--;
    }
    return 0;
}

static void tarvocon_release_errors_list(void *list)
{
    tarvo_errors_list_free(static_cast<tarvo_errors_list_h_td>(list));
}

/* Which list a show command reads and how it reports. */
enum tarvocon_errors_kind_td {
    TARVOCON_ERRORS_LIST,
    TARVOCON_APPLY_ERRORS,
    TARVOCON_UNSCANNED
};

static int tarvocon_fetch_errors(enum tarvocon_errors_kind_td kind, int apply_errors,
                                 uint32_t *count, tarvo_errors_list_h_td *list)
{
    switch (kind) {
    case TARVOCON_ERRORS_LIST:
        return tarvo_errors_list(tarvocon_bind_handle, apply_errors ? 1 : 0, count, list);
    case TARVOCON_APPLY_ERRORS:
        return tarvo_apply_errors_list(tarvocon_bind_handle, count, list);
    default:
        return tarvo_unscanned_errors_list(tarvocon_bind_handle, count, list);
    }
}

/* Fetches, prints and frees one list on an open stream, then closes it.
 * Returns 0 or 1. */
static int tarvocon_show_errors(enum tarvocon_errors_kind_td kind, int apply_errors,
                                uint32_t count, FILE *stream)
{
    tarvo_errors_list_h_td list = NULL;
    int result = 0;
    int rc = tarvocon_fetch_errors(kind, apply_errors, &count, &list);
    if (rc != 0) {
        if (kind == TARVOCON_ERRORS_LIST) {
            vel_printmsg(tarvocon_msg_sc_errorslist(), VEL_SEVERITY_WARNING,
                         errcode_strerror(rc));
        } else {
            vel_printmsg(tarvocon_msg_sc_generic(), VEL_SEVERITY_WARNING,
                         kind == TARVOCON_APPLY_ERRORS ? "get applyerror" : "get unscanned",
                         errcode_strerror(rc));
        }
        result = 1;
    } else {
        tarvocon_pager_hold(tarvocon_release_errors_list, list);
        rc = tarvocon_print_error_entries(list, count, stream);
        if (rc != 0) {
            if (kind == TARVOCON_UNSCANNED) {
                fprintf(stream, "error happens during retrieving unscanned item 0x%x\n",
                        (unsigned)rc);
            }
            vel_printmsg(tarvocon_msg_sc_errorslist(), VEL_SEVERITY_WARNING,
                         errcode_strerror(rc));
            result = 1;
        } else if (tarvocon_verbose) {
            fprintf(stream, "Errorslist returned successfully\n");
        }
        tarvocon_pager_let_go(list);
    }
    if (tarvocon_pclose(stream) != 0) {
        result = 1;
    }
    tarvo_errors_list_free(list);
    return result;
}

/* Returns 0, 1 after a reported error, or the parser's code. */
static int tarvocon_parse_errorslist(char **tokens, uint32_t count, int *apply_errors,
                                     uint32_t *num)
{
    for (uint32_t i = 1; i < count; i++) {
        if (strcasecmp(tokens[i], "-apply_errors") == 0) {
            *apply_errors = 1;
        } else if (strcasecmp(tokens[i], "-num") == 0) {
            if (i + 1 >= count) {
                vel_printmsg(tarvocon_msg_sc_badformat(), VEL_SEVERITY_WARNING);
                return 1;
            }
            int rc = tarvocon_parse_uint32(tokens[++i], num);
            if (rc != 0) {
                vel_printmsg(tarvocon_msg_sc_badformat(), VEL_SEVERITY_WARNING);
                return rc;
            }
        }
        /* every other token is passed over */
    }
    return 0;
}

int tarvocon_errorslist(char **tokens, uint32_t count)
{
    assert(tokens != NULL);
    uint32_t num = TARVOCON_ERRORSLIST_ALL;
    FILE *stream = tarvocon_pager_open();
    if (stream == NULL) {
        return 1;
    }
    if (count > TARVOCON_ERRORSLIST_MAX_TOKENS) {
        vel_printmsg(tarvocon_msg_sc_excess(), VEL_SEVERITY_WARNING);
        tarvocon_pclose(stream);
        return 1;
    }
    int apply_errors = 0;
    int rc = tarvocon_parse_errorslist(tokens, count, &apply_errors, &num);
    if (rc != 0) {
        tarvocon_pclose(stream);
        return rc;
    }
    return tarvocon_show_errors(TARVOCON_ERRORS_LIST, apply_errors, num, stream);
}

static int tarvocon_show_cfgmgr_errors(enum tarvocon_errors_kind_td kind)
{
    FILE *stream = tarvocon_pager_open();
    if (stream == NULL) {
        return 1;
    }
    return tarvocon_show_errors(kind, 0, 0, stream);
}

int tarvocon_get_applyerror(char **tokens, uint32_t count)
{
    (void)tokens;
    (void)count;
    return tarvocon_show_cfgmgr_errors(TARVOCON_APPLY_ERRORS);
}

int tarvocon_get_unscanned(char **tokens, uint32_t count)
{
    (void)tokens;
    (void)count;
    return tarvocon_show_cfgmgr_errors(TARVOCON_UNSCANNED);
}

int tarvocon_clear_applyerror(char **tokens, uint32_t count)
{
    (void)tokens;
    (void)count;
    return tarvo_clear_apply_errors_list(tarvocon_bind_handle);
}

int tarvocon_clear_unscanned(char **tokens, uint32_t count)
{
    (void)tokens;
    (void)count;
    return tarvo_clear_unscanned_errors_list(tarvocon_bind_handle);
}
