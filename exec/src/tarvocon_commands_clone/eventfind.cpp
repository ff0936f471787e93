/*
 * eventfind: the change events the database logged for the items matching
 * a match string (or, with -precommit_changes, the changes pending in the
 * bind's open transaction or bulk), fetched in batches with the more
 * question of the listings; and tarvocon_eventlist_display, which the
 * config-manager commands use for the event lists they get from files.
 *
 * Results: 0, 1 after a reported failure, the number parser's code for a
 * bad -num value (nothing printed), or errno when the pager could not be
 * opened or closed. Memory: one event list at a time, freed every batch.
 */
#include <assert.h>
#include <errno.h>
#include <string.h>
#include <strings.h>

#include "tarvocon.h"
#include "tarvocon_commands_clone/options.h"

#define TARVOCON_EVENTFIND_MAX_TOKENS 11
#define TARVOCON_EVENTFIND_UNLIMITED 0xFFFFFFFFu
#define TARVOCON_EVENTFIND_PRECOMMIT 0x1u /* flags word of the table below */
#define TARVOCON_EVENTFIND_DEBUG_WP 0x2u
#define TARVOCON_EVENTFIND_BLANK_PREFIX "          "

struct tarvocon_eventfind_request_td {
    char match[TARVOCON_PATH_SIZE];
    const char *start;
    uint32_t num;
    uint32_t access_options;
    uint32_t find_options;
    uint32_t flags;
};

/* The access words are those of find (tarvocon_search_access_options). */
static const tarvocon_option_td TARVOCON_EVENTFIND_FIND_WORDS[] = {
    {"-show_annot", TARVO_FIND_OPTION_SHOW_ANNOT, 0},
    {"-show_exclude", TARVO_FIND_OPTION_SHOW_EXCLUDE, 0},
    {"-only_annot", TARVO_FIND_OPTION_ONLY_ANNOT, 0},
    {"-only_exclude", TARVO_FIND_OPTION_ONLY_EXCLUDE, 0},
    {"-strict", TARVO_FIND_OPTION_STRICT, 0},
};
const tarvocon_option_table_td tarvocon_eventfind_find_options =
    tarvocon_option_table(TARVOCON_EVENTFIND_FIND_WORDS);

/* The console's own flags, and the value-taking words (no bits). */
static const tarvocon_option_td TARVOCON_EVENTFIND_OTHER_WORDS[] = {
    {"-precommit_changes", TARVOCON_EVENTFIND_PRECOMMIT, 0},
    {"-debug_wp", TARVOCON_EVENTFIND_DEBUG_WP, 0},
    {"-start", 0, 1},
    {"-num", 0, 1},
};
const tarvocon_option_table_td tarvocon_eventfind_other_options =
    tarvocon_option_table(TARVOCON_EVENTFIND_OTHER_WORDS);

/* A word that stands alone sets its bits in its table's word; 0 when the
 * token is none of them. */
static int tarvocon_eventfind_flag(tarvocon_eventfind_request_td *request,
                                   const char *token)
{
    const tarvocon_option_td *option;
    if ((option = tarvocon_find_option(&tarvocon_search_access_options, token))) {
        request->access_options |= option->bits;
    } else if ((option = tarvocon_find_option(&tarvocon_eventfind_find_options, token))) {
        request->find_options |= option->bits;
    } else if ((option = tarvocon_find_option(&tarvocon_eventfind_other_options, token)) &&
               !option->argument) {
        request->flags |= option->bits;
    } else {
        return 0;
    }
    return 1;
}

/* Returns 0, 1 after a reported format error, or a number parser's code. */
static int tarvocon_parse_eventfind(char **tokens, uint32_t count,
                                    tarvocon_eventfind_request_td *request)
{
    uint32_t i = 1;
    while (i < count) {
        const char *token = tokens[i];
        if (token[0] != '-') {
            strncpy(request->match, token, TARVOCON_PATH_SIZE - 1);
            request->match[TARVOCON_PATH_SIZE - 1] = '\0';
            i++;
            continue;
        }
        if (tarvocon_eventfind_flag(request, token)) {
            i++;
            continue;
        }
        const tarvocon_option_td *option =
            tarvocon_find_option(&tarvocon_eventfind_other_options, token);
        if (option == NULL || i + 1 >= count) {
            vel_printmsg(tarvocon_msg_sc_badformat(), VEL_SEVERITY_WARNING);
            return 1;
        }
        if (strcasecmp(token, "-start") == 0) {
            request->start = tokens[i + 1];
        } else {
            int rc = tarvocon_parse_uint32(tokens[i + 1], &request->num);
            if (rc != 0) {
                return rc;
            }
        }
        i += 2;
    }
    return 0;
}

static void tarvocon_release_event_list(void *list)
{
    tarvo_event_list_free(static_cast<tarvo_event_list_h_td>(list));
}

/* Fetches one batch; its more flag and the start of the next batch. Returns
 * a client code, or -1 for a more flag without a last entry. */
static int tarvocon_eventfind_fetch(const tarvocon_eventfind_request_td *request,
                                    char *next_start, uint32_t *count,
                                    tarvo_event_list_h_td *list, int *more)
{
    int rc;
    if (request->flags & TARVOCON_EVENTFIND_PRECOMMIT) {
        rc = tarvo_find_precommit_changes_internal(
            tarvocon_bind_handle, count, list,
            (request->flags & TARVOCON_EVENTFIND_DEBUG_WP) ? 1 : 0);
    } else {
        const char *start = request->start;
        uint32_t options = request->access_options;
        if (next_start[0] != '\0') {
            start = next_start;
            options |= TARVO_ACCESS_OPTION_NEXT;
        }
        rc = tarvo_event_find(tarvocon_bind_handle, request->match, start, count,
                              list, options, request->find_options);
    }
    if (rc == 0) {
        rc = tarvo_event_list_get_more_flag(*list, more);
    }
    if (rc != 0 || !*more) {
        return rc;
    }
    char *name = NULL;
    tarvo_event_td event = 0;
    tarvo_item_datatype_td datatype = (tarvo_item_datatype_td)0;
    void *value = NULL;
    uint32_t length = 0;
    rc = tarvo_event_list_last(*list, &name, &event, &datatype, &value, &length);
    if (rc != 0) {
        return rc;
    }
    if (name == NULL) {
        return -1;
    }
    strncpy(next_start, name, TARVOCON_PATH_SIZE - 1);
    next_start[TARVOCON_PATH_SIZE - 1] = '\0';
    return 0;
}

/* Fetches, shows and frees one batch; *go_on tells whether to fetch
 * another. */
static int tarvocon_eventfind_batch(const tarvocon_eventfind_request_td *request,
                                    char *next_start, uint32_t *total, int *go_on)
{
    tarvo_event_list_h_td list = NULL;
    int more = 0;
    *go_on = 0;
    uint32_t count = request->num == TARVOCON_EVENTFIND_UNLIMITED
                         ? TARVOCON_EVENTFIND_UNLIMITED
                         : request->num - *total;
    int rc = tarvocon_eventfind_fetch(request, next_start, &count, &list, &more);
    if (rc == 0) {
        *total += count;
    } else {
        if (rc == -1) {
            vel_printmsg(tarvocon_msg_sc_datalist(), VEL_SEVERITY_WARNING,
                         "EDM returned no items and 'more' flag - inconsistent");
        } else {
            vel_printmsg(tarvocon_msg_sc_eventfind(), VEL_SEVERITY_WARNING,
                         errcode_strerror(rc));
        }
        tarvo_event_list_free(list);
        return 1;
    }
    tarvocon_pager_hold(tarvocon_release_event_list, list);
    int result = tarvocon_eventlist_display(list, count);
    if (result == 0 && more) {
        tarvocon_list_display_more(&more);
    }
    tarvocon_pager_let_go(list);
    tarvo_event_list_free(list);
    *go_on = result == 0 && more && *total < request->num;
    return result;
}

int tarvocon_eventfind(char **tokens, uint32_t count)
{
    assert(tokens != NULL);
    if (count > TARVOCON_EVENTFIND_MAX_TOKENS) {
        vel_printmsg(tarvocon_msg_sc_excess(), VEL_SEVERITY_WARNING);
        return 1;
    }
    tarvocon_eventfind_request_td request;
    memset(&request, 0, sizeof request);
    request.start = "";
    request.num = TARVOCON_EVENTFIND_UNLIMITED;
    int rc = tarvocon_parse_eventfind(tokens, count, &request);
    if (rc != 0) {
        return rc;
    }
    char next_start[TARVOCON_PATH_SIZE] = {0};
    uint32_t total = 0;
    int go_on = 1;
    int result = 0;
    while (go_on) {
        result = tarvocon_eventfind_batch(&request, next_start, &total, &go_on);
    }
    return result;
}

/* One event: the old data, the new data, or neither, each line after its
 * prefix. */
static void tarvocon_print_event(FILE *stream, char *name, tarvo_event_td event,
                                 tarvo_item_datatype_td datatype, void *old_value,
                                 uint32_t old_length, void *new_value,
                                 uint32_t new_length)
{
    int has_old = old_value != NULL && old_length != 0;
    int has_new = new_value != NULL && new_length != 0;
    if (has_old) {
        fputs("Old data: ", stream);
        tarvocon_page_print_item(datatype, event, name, old_length, old_value, stream);
        if (!has_new) {
            return;
        }
        fputs("New data: ", stream);
    } else {
        fputs(has_new ? "New data: " : TARVOCON_EVENTFIND_BLANK_PREFIX, stream);
    }
    tarvocon_page_print_item(datatype, event, name, new_length, new_value, stream);
}

int tarvocon_eventlist_display(tarvo_event_list_h_td list, uint32_t count)
{
    FILE *stream = tarvocon_pager_open();
    if (stream == NULL) {
        return errno;
    }
    int rc = 0;
    while (count > 0) {
        char *name = NULL;
        tarvo_event_td event = 0;
        tarvo_item_datatype_td datatype = (tarvo_item_datatype_td)0;
        void *old_value = NULL;
        void *new_value = NULL;
        uint32_t old_length = 0;
        uint32_t new_length = 0;
        rc = tarvo_event_list_next_diff(list, &name, &event, &datatype, &old_value,
                                        &old_length, &new_value, &new_length);
        if (rc != 0 || name == NULL) {
            break;
        }
        tarvocon_print_event(stream, name, event, datatype, old_value, old_length,
                             new_value, new_length);
        count--;
    }
    int close_rc = tarvocon_pclose(stream);
    int close_errno = errno;
    if (rc != 0) {
        vel_printmsg(tarvocon_msg_sc_eventfind(), VEL_SEVERITY_WARNING, errcode_strerror(rc));
        return 1;
    }
    return close_rc != 0 ? close_errno : 0;
}
