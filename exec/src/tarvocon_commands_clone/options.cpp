/*
 * Lookup in the handlers' option tables, and the registry of the tables by
 * command word (see options.h). A command whose handler takes no option
 * words is registered with tarvocon_no_options, so that the grammar is held
 * to offering none for it either.
 */
#include <string.h>
#include <strings.h>

#include "tarvocon_commands_clone/options.h"

const tarvocon_option_table_td tarvocon_no_options = {nullptr, 0};

static const tarvocon_command_options_td TARVOCON_OPTION_TABLES[] = {
    {"get", &tarvocon_get_options},
    {"get_inh", &tarvocon_no_options},
    {"dump", &tarvocon_no_options},
    {"getitems", &tarvocon_getitems_options},
    {"create", &tarvocon_no_options},
    {"set", &tarvocon_set_options},
    {"delete", &tarvocon_delete_options},
    {"delete_cond", &tarvocon_no_options},
    {"verify", &tarvocon_no_options},
    {"match", &tarvocon_no_options},
    {"copy", &tarvocon_copy_options},
    {"list", &tarvocon_list_options},
    {"ls", &tarvocon_list_options},
    {"datalist", &tarvocon_list_options},
    {"find", &tarvocon_search_access_options},
    {"find", &tarvocon_find_find_options},
    {"find", &tarvocon_find_value_options},
    {"finddata", &tarvocon_search_access_options},
    {"finddata", &tarvocon_find_find_options},
    {"finddata", &tarvocon_finddata_extra_options},
    {"finddata", &tarvocon_find_value_options},
    {"eventfind", &tarvocon_search_access_options},
    {"eventfind", &tarvocon_eventfind_find_options},
    {"eventfind", &tarvocon_eventfind_other_options},
    {"iterate", &tarvocon_iterate_options},
    {"errorslist", &tarvocon_errorslist_options},
    {"bind", &tarvocon_cd_options},
    {"cd", &tarvocon_cd_options},
    {"do", &tarvocon_no_options},
    {"config", &tarvocon_no_options},
    {"help", &tarvocon_no_options},
    {"quit", &tarvocon_no_options},
    {"exit", &tarvocon_no_options},
    {"rdlock", &tarvocon_no_options},
    {"wrlock", &tarvocon_no_options},
    {"unlock", &tarvocon_no_options},
    {"settimeout", &tarvocon_no_options},
    {"suspendvrfn", &tarvocon_no_options},
    {"resumevrfn", &tarvocon_no_options},
    {"cfgmgr_issu_end", &tarvocon_no_options},
    {"starttrans", &tarvocon_starttrans_options},
    {"committrans", &tarvocon_no_options},
    {"aborttrans", &tarvocon_no_options},
    {"startbulk", &tarvocon_startbulk_options},
    {"endbulk", &tarvocon_endbulk_options},
    {"abortbulk", &tarvocon_no_options},
    {"remove_bulk_op", &tarvocon_remove_bulk_op_options},
    {"bulk_num_ops", &tarvocon_no_options},
    {"filesave", &tarvocon_filesave_options},
    {"filerestore", &tarvocon_filerestore_options},
    {"cfgmgr_delete", &tarvocon_cfgmgr_delete_options},
    {"cfgmgr_add_deletes", &tarvocon_no_options},
    {"cfgmgr_remove_deletes", &tarvocon_no_options},
    {"cfgmgr_adddiffs", &tarvocon_cfgmgr_adddiffs_options},
    {"cfgmgr_endbulk", &tarvocon_cfgmgr_endbulk_options},
    {"cfgmgr_merge_diffs", &tarvocon_cfgmgr_merge_diffs_options},
    {"cfgmgr_merge_diffs_list", &tarvocon_cfgmgr_merge_diffs_list_options},
    {"cfgmgr_merge_delta", &tarvocon_no_options},
    {"cfgmgr_restore_delta", &tarvocon_cfgmgr_restore_delta_options},
    {"ping", &tarvocon_ping_group_options},
    {"ping", &tarvocon_ping_plane_options},
    {"ping", &tarvocon_ping_role_options},
    {"ping", &tarvocon_ping_version_options},
    {"ping", &tarvocon_ping_id_options},
};

const tarvocon_command_options_td *tarvocon_option_tables(uint32_t *count)
{
    *count = sizeof TARVOCON_OPTION_TABLES / sizeof TARVOCON_OPTION_TABLES[0];
    return TARVOCON_OPTION_TABLES;
}

static const tarvocon_option_td *
tarvocon_find_option_by(const tarvocon_option_table_td *table,
                        const char *word,
                        int (*compare)(const char *, const char *))
{
    for (uint32_t i = 0; i < table->count; i++) {
        if (compare(word, table->options[i].word) == 0)
            return &table->options[i];
    }
    return nullptr;
}

const tarvocon_option_td *
tarvocon_find_option(const tarvocon_option_table_td *table, const char *word)
{
    return tarvocon_find_option_by(table, word, strcasecmp);
}

const tarvocon_option_td *
tarvocon_find_option_exact(const tarvocon_option_table_td *table,
                           const char *word)
{
    return tarvocon_find_option_by(table, word, strcmp);
}
