/*
 * The argument walk shared by the file and configuration-manager commands.
 *
 * Tokens first .. count-1 are walked once: a token that does not begin with
 * '-' is positional (the file name, taken once, or one more entry of a list);
 * any other token must be a word of the command's option table. A flag word
 * (argument 0) ORs its bits into the flags; a value word (argument 1) takes
 * the next token as the value of slot `bits`, once only; a list word
 * (argument 2) appends the next token to the list. A value or list word in
 * the last position, a second value for a slot, a second file name or an
 * unknown word make the walk fail; the caller reports SC_BADFORMAT.
 *
 * The walk keeps pointers into the token vector; nothing is allocated.
 */
#ifndef TARVOCON_FILE_ARGS_H
#define TARVOCON_FILE_ARGS_H

#include <stdint.h>

#include "tarvocon.h"
#include "tarvocon_commands_clone/options.h"

#define TARVOCON_WALK_SLOTS 4u
#define TARVOCON_WALK_VALUE 1u
#define TARVOCON_WALK_LIST 2u

typedef struct tarvocon_walk_td {
    int positional_list;  /* in: positionals form the list (else one file) */
    const char *file;     /* the file name, or null */
    uint32_t flags;
    const char *values[TARVOCON_WALK_SLOTS]; /* null: not given */
    char *list[TARVOCON_MAX_TOKENS];
    uint32_t list_count;
} tarvocon_walk_td;

/* 0 when the tokens fit the table, 1 when they do not (nothing printed). */
int tarvocon_walk_arguments(char **tokens, uint32_t first, uint32_t count,
                            const tarvocon_option_table_td *table,
                            tarvocon_walk_td *walk);

/* The value of a slot, "" when it was not given. */
const char *tarvocon_walk_value(const tarvocon_walk_td *walk, uint32_t slot);

/* Prints SC_EXCESS or SC_BADFORMAT (and so on) and returns 1. */
int tarvocon_report_excess(void);
int tarvocon_report_badformat(void);
int tarvocon_report_missfilename(void);

#endif
