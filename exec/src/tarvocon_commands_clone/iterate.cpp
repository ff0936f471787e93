/*
 * iterate: walks a subtree with a database iterator and prints every entry
 * that passes the filter built from -name and -datatype options (joined,
 * and negated as a whole by an odd number of -not). The database evaluates
 * the filter.
 *
 * Results: 0, 1 after a reported failure, or errno when the pager could
 * not be opened or closed. Memory: the filter, freed before returning; the
 * values the walk hands over (without -datalist), freed after printing.
 */
#include <assert.h>
#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include "tarvocon.h"
#include "tarvocon_commands_clone/options.h"

#define TARVOCON_ITERATE_NOT 0x1u
#define TARVOCON_ITERATE_EDM 0x2u
#define TARVOCON_ITERATE_VALUES 0x4u
#define TARVOCON_ITERATE_DATALIST 0x8u

static const tarvocon_option_td TARVOCON_ITERATE_OPTION_WORDS[] = {
    {"-not", TARVOCON_ITERATE_NOT, 0},
    {"-edm", TARVOCON_ITERATE_EDM, 0},
    {"-values", TARVOCON_ITERATE_VALUES, 0},
    {"-datalist", TARVOCON_ITERATE_DATALIST, 0},
    {"-name", 0, 1},
    {"-datatype", 0, 1},
};
const tarvocon_option_table_td tarvocon_iterate_options =
    tarvocon_option_table(TARVOCON_ITERATE_OPTION_WORDS);

struct tarvocon_iterate_request_td {
    char subtree[TARVOCON_PATH_SIZE + 1];
    tarvo_iterator_filter_h_td filter;
    int negate;
    uint32_t flags;
    int code; /* a failed filter request's code */
};

static void tarvocon_set_subtree(tarvocon_iterate_request_td *request, const char *token)
{
    char *path = request->subtree;
    strncpy(path, token, TARVOCON_PATH_SIZE - 1);
    path[TARVOCON_PATH_SIZE - 1] = '\0';
    size_t len = strlen(path);
    if (len > 0 && path[len - 1] != '/') {
        path[len] = '/';
        path[len + 1] = '\0';
    }
}

/* Makes the filter of one -name or -datatype option and joins it to the
 * filter so far. Returns 0, 1 after SC_DATATYPE, or a client code. */
static int tarvocon_add_filter(tarvocon_iterate_request_td *request, const char *option,
                               char *value)
{
    tarvo_iterator_filter_h_td made = NULL;
    int rc;
    if (strcasecmp(option, "-name") == 0) {
        rc = tarvo_iterator_filter_name(value, &made);
    } else {
        tarvo_item_datatype_td datatype = (tarvo_item_datatype_td)0;
        if (tarvocon_get_datatype(value, &datatype) != 0) {
            return 1; /* the lookup reported SC_DATATYPE */
        }
        rc = tarvo_iterator_filter_datatype(datatype, &made);
    }
    if (rc != 0 || made == NULL) {
        return rc;
    }
    if (request->filter == NULL) {
        request->filter = made;
        return 0;
    }
    rc = tarvo_iterator_filter_combine(request->filter, made, TARVO_ITERATOR_FILTER_OR,
                                       &request->filter);
    if (rc != 0) {
        tarvo_iterator_filter_free(made, 1);
    }
    return rc;
}

/* Returns 0, or 1 after a reported format or datatype error. A failed
 * filter request stops the walk with its code in request->code. */
static int tarvocon_parse_iterate(char **tokens, uint32_t count,
                                  tarvocon_iterate_request_td *request)
{
    uint32_t i = 1;
    while (i < count) {
        const char *token = tokens[i];
        if (token[0] != '-') {
            tarvocon_set_subtree(request, token);
            i++;
            continue;
        }
        const tarvocon_option_td *option =
            tarvocon_find_option(&tarvocon_iterate_options, token);
        if (option != NULL && !option->argument) {
            if (option->bits == TARVOCON_ITERATE_NOT) {
                request->negate = !request->negate;
            }
            request->flags |= option->bits;
            i++;
            continue;
        }
        if (option == NULL || i + 1 >= count) {
            vel_printmsg(tarvocon_msg_sc_badformat(), VEL_SEVERITY_WARNING);
            return 1;
        }
        int rc = tarvocon_add_filter(request, token, tokens[i + 1]);
        if (rc == 1) {
            return 1;
        }
        if (rc != 0) {
            request->code = rc;
            return 0;
        }
        i += 2;
    }
    return 0;
}

int tarvocon_iterate(char **tokens, uint32_t count)
{
    assert(tokens != NULL);
    tarvocon_iterate_request_td request;
    memset(&request, 0, sizeof request);
    int rc = tarvocon_parse_iterate(tokens, count, &request);
    if (rc == 0 && request.code == 0 && request.negate && request.filter != NULL) {
        request.code = tarvo_iterator_filter_combine(request.filter, NULL,
                                                     TARVO_ITERATOR_FILTER_NOT, &request.filter);
    }
    if (rc == 0 && request.code != 0) {
        vel_printmsg(tarvocon_msg_sc_iterate(), VEL_SEVERITY_WARNING,
                     errcode_strerror(request.code));
        rc = 1;
    }
    if (rc != 0) {
        tarvo_iterator_filter_free(request.filter, 1);
        return 1;
    }
    int result = 0;
    if (!request.negate || request.filter != NULL) {
        result = tarvocon_iterate_worker(request.subtree, request.filter,
                                         (request.flags & TARVOCON_ITERATE_VALUES) != 0,
                                         (request.flags & TARVOCON_ITERATE_DATALIST) != 0,
                                         (request.flags & TARVOCON_ITERATE_EDM) != 0);
        if (result == 0 && tarvocon_verbose) {
            printf("Iterate returns successfully\n");
        }
    }
    tarvo_iterator_filter_free(request.filter, 1);
    return result;
}

static void tarvocon_release_iterator(void *iterator)
{
    tarvo_iterator_free(tarvocon_bind_handle, static_cast<tarvo_iterator_h_td>(iterator));
}

/* Prints the entries of the walk; returns 0 or a client code. */
static int tarvocon_iterate_entries(tarvo_iterator_h_td iterator, int values, int datalist,
                                    FILE *stream)
{
    for (;;) {
        char *name = NULL;
        tarvo_item_datatype_td datatype = (tarvo_item_datatype_td)0;
        void *value = NULL;
        uint32_t length = 0;
        int rc = values ? tarvo_iterator_next_data(tarvocon_bind_handle, iterator, &name,
                                                   &datatype, NULL, &value, &length)
                        : tarvo_iterator_next(tarvocon_bind_handle, iterator, &name,
                                              &datatype, NULL);
        if (rc != 0 || name == NULL) {
            return rc;
        }
        tarvocon_page_print_item(datatype, 0, name, length, value, stream);
        if (!datalist) {
            free(value); /* handed over to the console without -datalist */
        }
    }
}

int tarvocon_iterate_worker(char *subtree, tarvo_iterator_filter_h_td filter, int values,
                            int datalist, int edm)
{
    assert(subtree != NULL);
    FILE *stream = tarvocon_pager_open();
    if (stream == NULL) {
        return errno;
    }
    uint32_t options = (edm ? TARVO_ITERATOR_OPTION_EDM : 0) |
                       (datalist ? TARVO_ITERATOR_OPTION_DATALIST : 0);
    tarvo_iterator_h_td iterator = NULL;
    int rc = tarvo_iterator_create(tarvocon_bind_handle, subtree, filter, options, &iterator);
    if (rc == 0) {
        tarvocon_pager_hold(tarvocon_release_iterator, iterator);
        rc = tarvocon_iterate_entries(iterator, values, datalist, stream);
    }
    int result = 0;
    if (rc != 0) {
        vel_printmsg(tarvocon_msg_sc_iterate(), VEL_SEVERITY_WARNING, errcode_strerror(rc));
        result = 1;
    }
    if (iterator != NULL) {
        tarvocon_pager_let_go(iterator);
        tarvo_iterator_free(tarvocon_bind_handle, iterator);
    }
    if (tarvocon_pclose(stream) != 0) {
        return errno;
    }
    return result;
}
