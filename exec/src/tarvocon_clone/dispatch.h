/*
 * The command table's rows as the dispatcher sees them (internal to the
 * console; tarvocon.h has the public table of words).
 *
 * Every row says how its handler is called: with (tokens, count), with the
 * console state as a third argument, with a fixed 0/1 variant flag, or one
 * of the dispatcher's own actions (quit, help, and the two verification
 * commands whose success changes the state). tarvocon_run_row() applies one
 * row to one token vector; it is what tarvocon_process_command calls after
 * the lookup, and what the unit tests call with rows of their own.
 */
#ifndef TARVOCON_DISPATCH_H
#define TARVOCON_DISPATCH_H

#include "tarvocon.h"

typedef enum tarvocon_call_kind_td {
    TARVOCON_CALL_PLAIN,   /* handler(tokens, count) */
    TARVOCON_CALL_STATE,   /* handler(tokens, count, state) */
    TARVOCON_CALL_VARIANT, /* handler(tokens, count, variant) */
    TARVOCON_CALL_QUIT,    /* sets the quit flag; result 0 */
    TARVOCON_CALL_HELP,    /* tarvocon_help(); result always 0 */
    TARVOCON_CALL_SUSPEND, /* plain handler; on 0 sets verification_suspended */
    TARVOCON_CALL_RESUME   /* plain handler; on 0 clears verification_suspended */
} tarvocon_call_kind_td;

typedef int (*tarvocon_state_handler_td)(char **tokens, uint32_t count,
                                         tarvocon_state_td *state);
typedef int (*tarvocon_variant_handler_td)(char **tokens, uint32_t count,
                                           int variant);

typedef struct tarvocon_command_row_td {
    const char *word;
    tarvocon_call_kind_td kind;
    tarvocon_handler_td plain;
    tarvocon_state_handler_td with_state;
    tarvocon_variant_handler_td with_variant;
    int variant;
} tarvocon_command_row_td;

/* The rows, in the order of tarvocon_command_table. */
const tarvocon_command_row_td *tarvocon_command_rows(void);

/* Runs one row's handler; tokens and quit_flag non-null. */
int tarvocon_run_row(const tarvocon_command_row_td *row, char **tokens,
                     uint32_t token_count, int *quit_flag,
                     tarvocon_state_td *state);

/* The handler of the commands that are not available in this build: reports
 * SC_GENERIC with the command word and the "not supported" text; result 1. */
int tarvocon_not_available(char **tokens, uint32_t count);

#endif
