/*
 * filesave and filerestore: a subtree saved to a file and restored from
 * one. The client writes and reads the file; the console gathers the
 * arguments, calls it and reports. Neither command changes the console
 * state.
 *
 * Results: 0 on success, 1 after a reported failure.
 */
#include <assert.h>
#include <stdio.h>

#include "tarvocon.h"
#include "tarvocon_commands_clone/file_args.h"

enum { TARVOCON_SLOT_PATH = 0 };

static const tarvocon_option_td TARVOCON_FILESAVE_OPTION_WORDS[] = {
    {"-regexp", TARVO_SAVE_OPTION_REGEXP, 0},
    {"-comp_regexp", TARVO_SAVE_OPTION_COMP | TARVO_SAVE_OPTION_REGEXP, 0},
    {"-nobulk", TARVO_SAVE_OPTION_NOBULK, 0},
    {"-bulk", TARVO_SAVE_OPTION_BULK, 0},
    {"-nodeletes", TARVO_SAVE_OPTION_NODELETES, 0},
    {"-old_format", TARVO_SAVE_OPTION_OLD_FORMAT, 0},
    {"-src", TARVOCON_SLOT_PATH, TARVOCON_WALK_VALUE},
    {"-match", 0, TARVOCON_WALK_LIST},
};
const tarvocon_option_table_td tarvocon_filesave_options =
    tarvocon_option_table(TARVOCON_FILESAVE_OPTION_WORDS);

enum { TARVOCON_SLOT_MATCH = 1 };

static const tarvocon_option_td TARVOCON_FILERESTORE_OPTION_WORDS[] = {
    {"-atomic", TARVO_RESTORE_OPTION_ATOMIC, 0},
    {"-update", TARVO_RESTORE_OPTION_UPDATE, 0},
    {"-initial_load", TARVO_RESTORE_OPTION_INITIAL_LOAD, 0},
    {"-old_format", TARVO_RESTORE_OPTION_OLD_FORMAT, 0},
    {"-apply_levels", 0, 0},
    {"-dest", TARVOCON_SLOT_PATH, TARVOCON_WALK_VALUE},
    {"-match", TARVOCON_SLOT_MATCH, TARVOCON_WALK_VALUE},
};
const tarvocon_option_table_td tarvocon_filerestore_options =
    tarvocon_option_table(TARVOCON_FILERESTORE_OPTION_WORDS);

static const uint32_t TARVOCON_FILESAVE_MAX_TOKENS = 32;
static const uint32_t TARVOCON_FILERESTORE_MAX_TOKENS = 11;

int tarvocon_filesave(char **tokens, uint32_t count)
{
    assert(tokens != nullptr);
    if (count < 2)
        return tarvocon_report_missfilename();
    if (count > TARVOCON_FILESAVE_MAX_TOKENS)
        return tarvocon_report_excess();
    tarvocon_walk_td walk = {};
    if (tarvocon_walk_arguments(tokens, 1, count, &tarvocon_filesave_options,
                                &walk) != 0)
        return tarvocon_report_badformat();
    static char empty[] = "";
    char *none[] = {empty};
    char **match = walk.list_count != 0 ? walk.list : none;
    uint32_t match_count = walk.list_count != 0 ? walk.list_count : 1;
    uint32_t detail = 0;
    int32_t code = tarvo_file_save3(
        tarvocon_bind_handle, tarvocon_walk_value(&walk, TARVOCON_SLOT_PATH),
        match, match_count, walk.flags, walk.file, &detail);
    if (code != 0) {
        vel_printmsg(tarvocon_msg_sc_filesave(), VEL_SEVERITY_WARNING,
                     errcode_strerror((int32_t)((uint32_t)code | detail)));
        return 1;
    }
    printf("File saved successfully\n");
    return 0;
}

int tarvocon_filerestore(char **tokens, uint32_t count)
{
    assert(tokens != nullptr);
    if (count < 2)
        return tarvocon_report_missfilename();
    if (count > TARVOCON_FILERESTORE_MAX_TOKENS)
        return tarvocon_report_excess();
    tarvocon_walk_td walk = {};
    if (tarvocon_walk_arguments(tokens, 1, count,
                                &tarvocon_filerestore_options, &walk) != 0)
        return tarvocon_report_badformat();
    uint32_t detail = 0;
    int32_t code = tarvo_file_restore3(
        tarvocon_bind_handle, tarvocon_walk_value(&walk, TARVOCON_SLOT_PATH),
        tarvocon_walk_value(&walk, TARVOCON_SLOT_MATCH), walk.flags,
        walk.file, &detail);
    if (code != 0) {
        vel_printmsg(tarvocon_msg_sc_filerestore(), VEL_SEVERITY_WARNING,
                     errcode_strerror((int32_t)((uint32_t)code | detail)));
        return 1;
    }
    printf("File restored successfully\n");
    return 0;
}
