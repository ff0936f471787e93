/*
 * find and finddata: the items whose path matches a match string (a path
 * prefix, or a regular expression when asked), as names with their
 * datatypes or names with their values. They run the batches, the more
 * question and the chunked retrieval of the listing commands (listing.h)
 * with the find requests of the client and a second options word.
 *
 * Results: 0, 1 after a reported failure, a number parser's code for a bad
 * -num or -chunk value (nothing printed), or errno from the pager.
 */
#include <assert.h>
#include <string.h>
#include <strings.h>

#include "tarvocon.h"
#include "tarvocon_commands_clone/listing.h"
#include "tarvocon_commands_clone/options.h"

#define TARVOCON_FIND_MAX_TOKENS 14

static const tarvocon_option_td TARVOCON_SEARCH_ACCESS_WORDS[] = {
    {"-reverse", TARVO_ACCESS_OPTION_REVERSE, 0},
    {"-regexp", TARVO_ACCESS_OPTION_REGEXP, 0},
    {"-comp_regexp", TARVO_ACCESS_OPTION_COMP_REGEXP | TARVO_ACCESS_OPTION_REGEXP, 0},
    {"-bulk", TARVO_ACCESS_OPTION_BULK, 0},
    {"-nobulk", TARVO_ACCESS_OPTION_NOBULK, 0},
    {"-next", TARVO_ACCESS_OPTION_NEXT, 0},
};
const tarvocon_option_table_td tarvocon_search_access_options =
    tarvocon_option_table(TARVOCON_SEARCH_ACCESS_WORDS);

static const tarvocon_option_td TARVOCON_FIND_FIND_WORDS[] = {
    {"-norecurse", TARVO_FIND_OPTION_NORECURSE | TARVO_FIND_OPTION_DIRS, 0},
    {"-dirs", TARVO_FIND_OPTION_DIRS, 0},
    {"-show_annot", TARVO_FIND_OPTION_SHOW_ANNOT, 0},
    {"-show_exclude", TARVO_FIND_OPTION_SHOW_EXCLUDE, 0},
    {"-show_aza_aya", TARVO_FIND_OPTION_SHOW_AZA_AYA, 0},
    {"-only_annot", TARVO_FIND_OPTION_ONLY_ANNOT, 0},
    {"-only_exclude", TARVO_FIND_OPTION_ONLY_EXCLUDE, 0},
    {"-strict", TARVO_FIND_OPTION_STRICT, 0},
};
const tarvocon_option_table_td tarvocon_find_find_options =
    tarvocon_option_table(TARVOCON_FIND_FIND_WORDS);

static const tarvocon_option_td TARVOCON_FINDDATA_EXTRA_WORDS[] = {
    {"-ag", TARVO_FIND_OPTION_AG, 0},
    {"-ah", TARVO_FIND_OPTION_AH, 0},
};
const tarvocon_option_table_td tarvocon_finddata_extra_options =
    tarvocon_option_table(TARVOCON_FINDDATA_EXTRA_WORDS);

/* -chunk's number may be left out. */
static const tarvocon_option_td TARVOCON_FIND_VALUE_WORDS[] = {
    {"-start", 0, 1},
    {"-num", 0, 1},
    {"-chunk", 0, 1},
};
const tarvocon_option_table_td tarvocon_find_value_options =
    tarvocon_option_table(TARVOCON_FIND_VALUE_WORDS);

/* A word that stands alone sets its bits; 0 when the token is none. */
static int tarvocon_find_flag(tarvocon_list_request_td *request, const char *token)
{
    const tarvocon_option_td *option;
    if ((option = tarvocon_find_option(&tarvocon_search_access_options, token))) {
        request->access_options |= option->bits;
    } else if ((option = tarvocon_find_option(&tarvocon_find_find_options, token)) ||
               (request->datalist &&
                (option = tarvocon_find_option(&tarvocon_finddata_extra_options, token)))) {
        request->find_options |= option->bits;
    } else {
        return 0;
    }
    return 1;
}

/* Parses tokens 1 onwards. Returns 0, 1 after a reported format error, or
 * a number parser's code. */
static int tarvocon_parse_find_tokens(char **tokens, uint32_t count,
                                      tarvocon_list_request_td *request)
{
    uint32_t i = 1;
    while (i < count) {
        const char *token = tokens[i];
        int has_next = i + 1 < count;
        int rc = 0;
        if (token[0] != '-') {
            strncpy(request->path, token, TARVOCON_PATH_SIZE - 1);
            request->path[TARVOCON_PATH_SIZE - 1] = '\0';
            i++;
        } else if (tarvocon_find_flag(request, token)) {
            i++;
        } else if (strcasecmp(token, "-chunk") == 0) {
            request->chunked = 1;
            i++;
            if (has_next && tokens[i][0] != '-') {
                rc = tarvocon_parse_uint32(tokens[i++], &request->chunk_size);
            }
        } else if (!has_next ||
                   tarvocon_find_option(&tarvocon_find_value_options, token) == NULL) {
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

int tarvocon_find(char **tokens, uint32_t count, int data)
{
    assert(tokens != NULL);
    if (count > TARVOCON_FIND_MAX_TOKENS) {
        vel_printmsg(tarvocon_msg_sc_excess(), VEL_SEVERITY_WARNING);
        return 1;
    }
    tarvocon_list_request_td request;
    memset(&request, 0, sizeof request);
    request.datalist = data;
    request.find = 1;
    request.start = "";
    request.num = TARVOCON_LIST_UNLIMITED;
    int rc = tarvocon_parse_find_tokens(tokens, count, &request);
    if (rc != 0) {
        return rc;
    }
    return tarvocon_run_listing(&request);
}
