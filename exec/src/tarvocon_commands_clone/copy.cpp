/*
 * copy: copies an item or a subtree to another path, filtered by a match
 * string. Result 0, or 1 after a reported failure.
 */
#include <assert.h>
#include <stdlib.h>
#include <strings.h>

#include "tarvocon.h"
#include "tarvocon_commands_clone/item_errors.h"

/* The paths, match string and write options of one copy. */
struct tarvocon_copy_request_td {
    const char *source;
    const char *destination;
    const char *match;
    uint32_t options;
};

static const struct {
    const char *word;
    uint32_t bits;
} TARVOCON_COPY_OPTIONS[] = {
    {"-atomic", TARVO_WRITE_OPTION_ATOMIC},
    {"-apply_levels", 0},
    {"-initial_load", TARVO_WRITE_OPTION_INITIAL_LOAD},
    {"-comp_regexp",
     TARVO_WRITE_OPTION_COMP_REGEXP | TARVO_WRITE_OPTION_REGEXP},
};

static void tarvocon_copy_badformat(void)
{
    vel_printmsg(tarvocon_msg_sc_badformat(), VEL_SEVERITY_WARNING);
}

static int tarvocon_copy_option(const char *word, uint32_t *options)
{
    for (const auto &option : TARVOCON_COPY_OPTIONS) {
        if (strcasecmp(word, option.word) == 0) {
            *options |= option.bits;
            return 1;
        }
    }
    return 0;
}

/* Walks tokens 1 onwards; 1 after a reported format error. */
static int tarvocon_parse_copy(char **tokens, uint32_t count,
                               tarvocon_copy_request_td *request)
{
    for (uint32_t i = 1; i < count; i++) {
        const char *token = tokens[i];
        if (tarvocon_copy_option(token, &request->options)) {
            continue;
        }
        if (strcasecmp(token, "-match") == 0) {
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
