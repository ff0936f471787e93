/*
 * list, ls and datalist: the items directly under a path, as names with
 * their datatypes or as names with their values, fetched in batches. When
 * the database delivers part of a listing with its more flag, the batch is
 * shown and the user is asked whether to fetch the rest (never from a
 * command file). Also the two page displays that find and getitems share.
 *
 * Results: 0, 1 after a reported failure, a number parser's code for a bad
 * -num or -chunk value (nothing printed), or errno when the pager could not
 * be opened or closed. Memory: only the client's list handles, one batch at
 * a time; entries are printed as they are read.
 */
#include <assert.h>
#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include "tarvocon.h"
#include "tarvocon_commands_clone/listing.h"
#include "tarvocon_commands_clone/options.h"

#define TARVOCON_LIST_MAX_TOKENS 10

static void tarvocon_report_list_error(int datalist, const char *text)
{
    const vel_msgdef_td *message =
        datalist ? tarvocon_msg_sc_datalist() : tarvocon_msg_sc_list();
    vel_printmsg(message, VEL_SEVERITY_WARNING, text);
}

static void tarvocon_set_list_path(tarvocon_list_request_td *request,
                                   const char *token)
{
    char *path = request->path;
    strncpy(path, token, TARVOCON_PATH_SIZE - 1);
    path[TARVOCON_PATH_SIZE - 1] = '\0';
    size_t len = strlen(path);
    if (len > 0 && path[len - 1] != '/' && len + 1 < TARVOCON_PATH_SIZE) {
        path[len] = '/';
        path[len + 1] = '\0';
    }
}

/* -expand only means something on a bind to the concise database. */
static void tarvocon_list_expand(tarvocon_list_request_td *request)
{
    uint32_t bind_options = 0;
    if (tarvo_bind_get_options(tarvocon_bind_handle, &bind_options) == 0 &&
        (bind_options & TARVO_BIND_OPTION_CONCISE)) {
        request->access_options |= TARVO_ACCESS_OPTION_EXPAND;
    } else {
        printf("Bind to Expanded DB. This option is invalid \n");
    }
}

/* The value-taking words carry no bits; the walk tells them apart by
 * word. -chunk's number may be left out. */
static const tarvocon_option_td TARVOCON_LIST_OPTION_WORDS[] = {
    {"-reverse", TARVO_ACCESS_OPTION_REVERSE, 0},
    {"-next", TARVO_ACCESS_OPTION_NEXT, 0},
    {"-bulk", TARVO_ACCESS_OPTION_BULK, 0},
    {"-nobulk", TARVO_ACCESS_OPTION_NOBULK, 0},
    {"-expand", TARVO_ACCESS_OPTION_EXPAND, 0},
    {"-start", 0, 1},
    {"-num", 0, 1},
    {"-chunk", 0, 1},
};
const tarvocon_option_table_td tarvocon_list_options =
    tarvocon_option_table(TARVOCON_LIST_OPTION_WORDS);

/* A word that stands alone. */
static void tarvocon_list_flag(tarvocon_list_request_td *request,
                               const tarvocon_option_td *option)
{
    if (option->bits & TARVO_ACCESS_OPTION_EXPAND) {
        tarvocon_list_expand(request);
    } else {
        request->access_options |= option->bits;
    }
}

/* Parses tokens 1 onwards into request. Returns 0, 1 after a reported
 * format error, or a number parser's code. */
static int tarvocon_parse_list_tokens(char **tokens, uint32_t count,
                                      tarvocon_list_request_td *request)
{
    uint32_t i = 1;
    while (i < count) {
        const char *token = tokens[i];
        int has_next = i + 1 < count;
        int rc = 0;
        const tarvocon_option_td *option =
            token[0] == '-' ? tarvocon_find_option(&tarvocon_list_options, token)
                            : NULL;
        if (token[0] != '-') {
            tarvocon_set_list_path(request, token);
            i++;
        } else if (option != NULL && !option->argument) {
            tarvocon_list_flag(request, option);
            i++;
        } else if (option != NULL && strcasecmp(token, "-chunk") == 0) {
            request->chunked = 1;
            i++;
            if (has_next && tokens[i][0] != '-') {
                rc = tarvocon_parse_uint32(tokens[i++], &request->chunk_size);
            }
        } else if (!has_next || option == NULL) {
            vel_printmsg(tarvocon_msg_sc_badformat(), VEL_SEVERITY_WARNING);
            return 1;
        } else if (strcasecmp(token, "-start") == 0) {
            request->start = tokens[i + 1];
            i += 2;
        } else {
            rc = tarvocon_parse_uint32(tokens[i + 1], &request->num);
            i += 2;
        }
        if (rc != 0) {
            return rc;
        }
    }
    return 0;
}

/* One fetched batch, of either kind of list. */
struct tarvocon_list_batch_td {
    tarvo_list_h_td list;
    tarvo_datalist_h_td datalist;
    uint32_t count;
    int more;
};

static int tarvocon_fetch_batch(const tarvocon_list_request_td *request,
                                const char *next_start,
                                tarvocon_list_batch_td *batch)
{
    tarvo_bind_h_td handle = tarvocon_bind_handle;
    if (request->chunked) {
        uint32_t size = request->chunk_size;
        if (size == 0) {
            size = request->datalist ? TARVOCON_DATALIST_CHUNK_DEFAULT
                                     : TARVOCON_LIST_CHUNK_DEFAULT;
        }
        /* The chunked requests take no access options and have no more
         * flag: the client fetches the chunks while the display reads. */
        if (request->find) {
            return request->datalist
                       ? tarvo_chunk_find_data(handle, request->path, request->start, size,
                                               &batch->datalist, 0, request->find_options)
                       : tarvo_chunk_find(handle, request->path, request->start, size,
                                          &batch->list, 0, request->find_options);
        }
        return request->datalist
                   ? tarvo_chunk_datalist(handle, request->path,
                                          request->start, size,
                                          &batch->datalist, 0)
                   : tarvo_chunk_list(handle, request->path, request->start,
                                      size, &batch->list, 0);
    }
    const char *start = request->start;
    uint32_t options = request->access_options;
    if (next_start[0] != '\0') {
        start = next_start; /* continue after the last name received */
        options |= TARVO_ACCESS_OPTION_NEXT;
    }
    int rc;
    if (request->find) {
        rc = request->datalist
                 ? tarvo_find_data(handle, request->path, start, &batch->count,
                                   &batch->datalist, options, request->find_options)
                 : tarvo_find(handle, request->path, start, &batch->count, &batch->list,
                              options, request->find_options);
    } else {
        rc = request->datalist
                 ? tarvo_datalist(handle, request->path, start, &batch->count,
                                  &batch->datalist, options)
                 : tarvo_list(handle, request->path, start, &batch->count,
                              &batch->list, options);
    }
    if (rc != 0) {
        return rc;
    }
    return request->datalist
               ? tarvo_datalist_get_more_flag(batch->datalist, &batch->more)
               : tarvo_list_get_more_flag(batch->list, &batch->more);
}

/* The last name of the batch into next_start. Returns a client code, or
 * -1 when the database gave a more flag without a last entry. */
static int tarvocon_remember_last(const tarvocon_list_request_td *request,
                                  tarvocon_list_batch_td *batch,
                                  char *next_start)
{
    char *name = NULL;
    tarvo_item_datatype_td datatype = (tarvo_item_datatype_td)0;
    int rc = 0;
    if (request->datalist) {
        void *value = NULL;
        uint32_t length = 0;
        rc = tarvo_datalist_last(batch->datalist, &name, &datatype, &value,
                                 &length, NULL);
    } else {
        rc = tarvo_list_last(batch->list, &name, &datatype, NULL);
    }
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

static void tarvocon_release_list(void *list)
{
    tarvo_list_free(static_cast<tarvo_list_h_td>(list));
}

static void tarvocon_release_datalist(void *list)
{
    tarvo_datalist_free(static_cast<tarvo_datalist_h_td>(list));
}

/* While a batch is shown its release is held by the pager, so a pager quit
 * early (which abandons the command) does not leak it. */
static void tarvocon_hold_batch(tarvocon_list_batch_td *batch)
{
    if (batch->list != NULL) {
        tarvocon_pager_hold(tarvocon_release_list, batch->list);
    }
    if (batch->datalist != NULL) {
        tarvocon_pager_hold(tarvocon_release_datalist, batch->datalist);
    }
}

static void tarvocon_free_batch(tarvocon_list_batch_td *batch)
{
    if (batch->list != NULL) {
        tarvocon_pager_let_go(batch->list);
        tarvo_list_free(batch->list);
    }
    if (batch->datalist != NULL) {
        tarvocon_pager_let_go(batch->datalist);
        tarvo_datalist_free(batch->datalist);
    }
    batch->list = NULL;
    batch->datalist = NULL;
}

/* Fetches, shows and frees one batch. Returns the display's result, or 1
 * after a reported client error; *go_on tells whether to fetch another. */
static int tarvocon_list_batch(const tarvocon_list_request_td *request,
                               char *next_start, uint32_t *total, int *go_on)
{
    tarvocon_list_batch_td batch = {NULL, NULL, 0, 0};
    *go_on = 0;
    batch.count = request->num == TARVOCON_LIST_UNLIMITED
                      ? TARVOCON_LIST_UNLIMITED
                      : request->num - *total;
    int rc = tarvocon_fetch_batch(request, next_start, &batch);
    if (rc == 0) {
        *total += batch.count;
        if (batch.more) {
            rc = tarvocon_remember_last(request, &batch, next_start);
        }
    }
    if (rc == -1) {
        tarvocon_report_list_error(1, "EDM returned no items and 'more' flag - inconsistent");
    } else if (rc != 0 && request->find) {
        vel_printmsg(request->datalist ? tarvocon_msg_sc_datafind() : tarvocon_msg_sc_find(),
                     VEL_SEVERITY_WARNING, errcode_strerror(rc));
    } else if (rc != 0) {
        tarvocon_report_list_error(request->datalist, errcode_strerror(rc));
    }
    if (rc != 0) {
        tarvocon_free_batch(&batch);
        return 1;
    }
    tarvocon_hold_batch(&batch);
    int result = request->datalist
                     ? tarvocon_datalist_display(batch.datalist, batch.count)
                     : tarvocon_list_display(batch.list, batch.count);
    if (result == 0 && batch.more) {
        tarvocon_list_display_more(&batch.more);
    }
    tarvocon_free_batch(&batch);
    *go_on = result == 0 && batch.more && *total < request->num;
    return result;
}

int tarvocon_list_datalist(char **tokens, uint32_t count, int datalist)
{
    assert(tokens != NULL);
    if (count > TARVOCON_LIST_MAX_TOKENS) {
        vel_printmsg(tarvocon_msg_sc_excess(), VEL_SEVERITY_WARNING);
        return 1;
    }
    tarvocon_list_request_td request;
    memset(&request, 0, sizeof request);
    request.datalist = datalist;
    request.start = "";
    request.num = TARVOCON_LIST_UNLIMITED;
    int rc = tarvocon_parse_list_tokens(tokens, count, &request);
    if (rc != 0) {
        return rc;
    }
    return tarvocon_run_listing(&request);
}

int tarvocon_run_listing(const tarvocon_list_request_td *request)
{
    char next_start[TARVOCON_PATH_SIZE] = {0};
    uint32_t total = 0;
    int go_on = 1;
    int result = 0;
    while (go_on) {
        result = tarvocon_list_batch(request, next_start, &total, &go_on);
    }
    return result;
}

int tarvocon_list_display(tarvo_list_h_td list, uint32_t count)
{
    FILE *stream = tarvocon_pager_open();
    if (stream == NULL) {
        return errno;
    }
    int rc = 0;
    while (count > 0) {
        char *name = NULL;
        tarvo_item_datatype_td datatype = (tarvo_item_datatype_td)0;
        rc = tarvo_list_next(list, &name, &datatype, NULL);
        if (rc != 0 || name == NULL) {
            break;
        }
        tarvocon_page_print_item(datatype, 0, name, 0, NULL, stream);
        count--;
    }
    int result = 0;
    if (rc != 0) {
        /* Reported while the pager is still open, so it shows in order. */
        tarvocon_report_list_error(0, errcode_strerror(rc));
        result = 1;
    }
    if (tarvocon_pclose(stream) != 0) {
        return errno;
    }
    return result;
}

int tarvocon_datalist_display(tarvo_datalist_h_td list, uint32_t count)
{
    FILE *stream = tarvocon_pager_open();
    if (stream == NULL) {
        return errno;
    }
    int rc = 0;
    while (count > 0) {
        char *name = NULL;
        tarvo_item_datatype_td datatype = (tarvo_item_datatype_td)0;
        void *value = NULL;
        uint32_t length = 0;
        rc = tarvo_datalist_next(list, &name, &datatype, &value, &length,
                                 NULL);
        if (rc != 0 || name == NULL) {
            break;
        }
        tarvocon_page_print_item(datatype, 0, name, length, value, stream);
        count--;
    }
    int close_rc = tarvocon_pclose(stream);
    int close_errno = errno;
    if (rc != 0) {
        tarvocon_report_list_error(1, errcode_strerror(rc));
        return 1;
    }
    return close_rc != 0 ? close_errno : 0;
}

void tarvocon_list_display_more(int *more)
{
    assert(more != NULL);
    if (tarvocon_from_file) {
        *more = 0; /* a command file gets the first batch only */
        return;
    }
    getline_data *gl_data = getline_init();
    assert(gl_data != NULL);
    *more = yes_or_no(gl_data,
                      "An EDM indicated that more items are available, get "
                      "them",
                      0, 1) != 0;
    getline_free(gl_data);
}
