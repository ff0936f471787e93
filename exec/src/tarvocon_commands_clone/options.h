/*
 * The option words of the command handlers, as data.
 *
 * A handler that takes option words walks its tokens with one table of the
 * words it accepts: each word, the bits it sets in the command's options
 * word, and whether the token after it is the option's value. The tables
 * are also registered by command word (tarvocon_option_tables), so that a
 * test can hold every handler's words against the command grammar. A new
 * handler joins that check by defining its table here, using it in its
 * argument walk and adding one row to the registry in options.cpp.
 *
 * Tables are constant; lookups keep nothing. Internal to the commands unit
 * and its tests.
 */
#ifndef TARVOCON_OPTIONS_H
#define TARVOCON_OPTIONS_H

#include <stddef.h>
#include <stdint.h>

typedef struct tarvocon_option_td {
    const char *word;
    uint32_t bits;     /* what the word sets in the command's options word */
    uint32_t argument; /* 1: the token after the word is its value */
} tarvocon_option_td;

typedef struct tarvocon_option_table_td {
    const tarvocon_option_td *options;
    uint32_t count;
} tarvocon_option_table_td;

typedef struct tarvocon_command_options_td {
    const char *command; /* a word of the command table */
    const tarvocon_option_table_td *table;
} tarvocon_command_options_td;

/* The entry for `word`, compared without regard to case; null when the
 * table has none. */
const tarvocon_option_td *
tarvocon_find_option(const tarvocon_option_table_td *table, const char *word);
/* The same with case compared (bind and cd take their words exactly). */
const tarvocon_option_td *
tarvocon_find_option_exact(const tarvocon_option_table_td *table,
                           const char *word);

/* Every registered command with its table; *count receives their number.
 * A command whose words are split over several tables has one row each. */
const tarvocon_command_options_td *tarvocon_option_tables(uint32_t *count);

template <size_t N>
constexpr tarvocon_option_table_td
tarvocon_option_table(const tarvocon_option_td (&options)[N])
{
    return {options, (uint32_t)N};
}

/* The tables, each defined beside its handler. */
extern const tarvocon_option_table_td tarvocon_no_options;
extern const tarvocon_option_table_td tarvocon_get_options;
extern const tarvocon_option_table_td tarvocon_getitems_options;
extern const tarvocon_option_table_td tarvocon_set_options;
extern const tarvocon_option_table_td tarvocon_delete_options;
extern const tarvocon_option_table_td tarvocon_copy_options;
extern const tarvocon_option_table_td tarvocon_list_options;
extern const tarvocon_option_table_td tarvocon_cd_options;
/* find, finddata and eventfind share their access words. */
extern const tarvocon_option_table_td tarvocon_search_access_options;
extern const tarvocon_option_table_td tarvocon_find_find_options;
extern const tarvocon_option_table_td tarvocon_finddata_extra_options;
extern const tarvocon_option_table_td tarvocon_find_value_options;
extern const tarvocon_option_table_td tarvocon_eventfind_find_options;
extern const tarvocon_option_table_td tarvocon_eventfind_other_options;
extern const tarvocon_option_table_td tarvocon_iterate_options;
extern const tarvocon_option_table_td tarvocon_errorslist_options;
extern const tarvocon_option_table_td tarvocon_starttrans_options;
extern const tarvocon_option_table_td tarvocon_startbulk_options;
extern const tarvocon_option_table_td tarvocon_endbulk_options;
extern const tarvocon_option_table_td tarvocon_remove_bulk_op_options;
extern const tarvocon_option_table_td tarvocon_filesave_options;
extern const tarvocon_option_table_td tarvocon_filerestore_options;
extern const tarvocon_option_table_td tarvocon_cfgmgr_delete_options;
extern const tarvocon_option_table_td tarvocon_cfgmgr_adddiffs_options;
extern const tarvocon_option_table_td tarvocon_cfgmgr_endbulk_options;
extern const tarvocon_option_table_td tarvocon_cfgmgr_merge_diffs_options;
extern const tarvocon_option_table_td tarvocon_cfgmgr_merge_diffs_list_options;
extern const tarvocon_option_table_td tarvocon_cfgmgr_restore_delta_options;
/* ping's words come in five tables, one per part of its target. */
extern const tarvocon_option_table_td tarvocon_ping_group_options;
extern const tarvocon_option_table_td tarvocon_ping_plane_options;
extern const tarvocon_option_table_td tarvocon_ping_role_options;
extern const tarvocon_option_table_td tarvocon_ping_version_options;
extern const tarvocon_option_table_td tarvocon_ping_id_options;

#endif
