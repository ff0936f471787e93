/*
 * copy: copies an item or a subtree to another path, filtered by a match
 * string. Result 0, or 1 after a reported failure.
 */
#include <assert.h>
#include <stdlib.h>

#include "tarvocon.h"
#include "tarvocon_commands_clone/item_errors.h"
#include "tarvocon_commands_clone/options.h"

/* The paths, match string and write options of one copy. */
struct tarvocon_copy_request_td {
    const char *source;
    const char *destination;
    const char *match;
    uint32_t options;
};

static const tarvocon_option_td TARVOCON_COPY_OPTION_WORDS[] = {
    {"-atomic", TARVO_WRITE_OPTION_ATOMIC, 0},
    {"-apply_levels", 0, 0},
    {"-initial_load", TARVO_WRITE_OPTION_INITIAL_LOAD, 0},
    {"-comp_regexp",
     TARVO_WRITE_OPTION_COMP_REGEXP | TARVO_WRITE_OPTION_REGEXP, 0},
    {"-match", 0, 1},
};
const tarvocon_option_table_td tarvocon_copy_options =
    tarvocon_option_table(TARVOCON_COPY_OPTION_WORDS);

static void tarvocon_copy_badformat(void)
{
    vel_printmsg(tarvocon_msg_sc_badformat(), VEL_SEVERITY_WARNING);
}

/* Walks tokens 1 onwards; 1 after a reported format error. */
static int tarvocon_parse_copy(char **tokens, uint32_t count,
                               tarvocon_copy_request_td *request)
{
    for (uint32_t i = 1; i < count; i++) {
        const char *token = tokens[i];
        const tarvocon_option_td *option =
            tarvocon_find_option(&tarvocon_copy_options, token);
        if (option != NULL && !option->argument) {
            request->options |= option->bits;
        } else if (option != NULL) { /* -match */
            if (i + 1 >= count) {
                tarvocon_copy_badformat();
                if (request->source == NULL || request->destination == NULL) {
                    tarvocon_copy_badformat();
                }
                return 1;
            }
            request->match = tokens[++i];
        } else if (request->source == NULL) {
            request->source = token;
        } else if (request->destination == NULL) {
            request->destination = token;
        } else {
            tarvocon_copy_badformat();
            return 1;
        }
    }
    if (request->source == NULL || request->destination == NULL) {
        tarvocon_copy_badformat();
        return 1;
    }
    return 0;
}

int tarvocon_copy(char **tokens, uint32_t count)
{
    assert(tokens != NULL);
    if (count >= 8) {
        vel_printmsg(tarvocon_msg_sc_excess(), VEL_SEVERITY_WARNING);
        tarvocon_copy_badformat();
        return 1;
    }
    if (count < 2) {
        tarvocon_copy_badformat();
        return 1;
    }
    tarvocon_copy_request_td request = {NULL, NULL, "", 0};
    if (tarvocon_parse_copy(tokens, count, &request) != 0) {
        return 1;
    }
    int rc = tarvo_copy(tarvocon_bind_handle, request.source,
                        request.destination, request.match, request.options);
    if (rc != 0) {
        char *prepared = NULL;
        const char *text = tarvocon_change_error_text(rc, &prepared);
        vel_printmsg(tarvocon_msg_sc_copy(), VEL_SEVERITY_WARNING, tokens[1],
                     tokens[2], text);
        free(prepared);
        return 1;
    }
    /* The line shows tokens 1 and 2, whatever words stand there. */
    printf("%s successfully copied to %s\n", tokens[1], tokens[2]);
    return 0;
}
