/*
 * The configuration manager's commands: delete marks in the open bulk
 * (cfgmgr_delete, cfgmgr_add_deletes, cfgmgr_remove_deletes), diffs added
 * to it (cfgmgr_adddiffs, cfgmgr_merge_diffs) or shown
 * (cfgmgr_merge_diffs_list), its end with the saved diff
 * (cfgmgr_endbulk), and base and delta files (cfgmgr_merge_delta,
 * cfgmgr_restore_delta). Only cfgmgr_endbulk changes the console state: it
 * keeps bulk_open in step, asking the client whether a failed end left the
 * bulk open.
 *
 * Results: 0 on success, 1 after a reported failure.
 */
#include <assert.h>
#include <stdio.h>
#include <stdlib.h>

#include "tarvocon.h"
#include "tarvocon_commands_clone/file_args.h"
#include "tarvocon_commands_clone/item_errors.h"

enum { TARVOCON_SLOT_DEST = 0, TARVOCON_SLOT_FILTER = 1, TARVOCON_SLOT_MATCH = 2 };

static const uint32_t TARVOCON_CFGMGR_MAX_TOKENS = 32;

static const tarvocon_option_td TARVOCON_CFGMGR_DELETE_OPTION_WORDS[] = {
    {"-remove_only", TARVO_CFGMGR_DELETE_REMOVE_ONLY, 0},
};
const tarvocon_option_table_td tarvocon_cfgmgr_delete_options =
    tarvocon_option_table(TARVOCON_CFGMGR_DELETE_OPTION_WORDS);

/* The value is the reverse flag itself. */
static const tarvocon_option_td TARVOCON_CFGMGR_ADDDIFFS_OPTION_WORDS[] = {
    {"-reverse_diffs", 1, 0},
    {"-dest", TARVOCON_SLOT_DEST, TARVOCON_WALK_VALUE},
    {"-filter", TARVOCON_SLOT_FILTER, TARVOCON_WALK_VALUE},
    {"-match", TARVOCON_SLOT_MATCH, TARVOCON_WALK_VALUE},
};
const tarvocon_option_table_td tarvocon_cfgmgr_adddiffs_options =
    tarvocon_option_table(TARVOCON_CFGMGR_ADDDIFFS_OPTION_WORDS);

static const tarvocon_option_td TARVOCON_CFGMGR_ENDBULK_OPTION_WORDS[] = {
    {"-forcelowmem", TARVO_CFGMGR_END_FORCELOWMEM, 0},
    {"-atomic", TARVO_CFGMGR_END_ATOMIC, 0},
    {"-commit_replace", TARVO_CFGMGR_END_COMMIT_REPLACE, 0},
    {"-openconfig", TARVO_CFGMGR_END_OPENCONFIG, 0},
};
const tarvocon_option_table_td tarvocon_cfgmgr_endbulk_options =
    tarvocon_option_table(TARVOCON_CFGMGR_ENDBULK_OPTION_WORDS);

static const tarvocon_option_td TARVOCON_CFGMGR_MERGE_DIFFS_OPTION_WORDS[] = {
    {"-reverse_diffs", TARVO_CFGMGR_MERGE_REVERSE, 0},
    {"-disable_optim", TARVO_CFGMGR_MERGE_DISABLE_OPTIM, 0},
    {"-dest", TARVOCON_SLOT_DEST, TARVOCON_WALK_VALUE},
    {"-filter", TARVOCON_SLOT_FILTER, TARVOCON_WALK_VALUE},
    {"-match", TARVOCON_SLOT_MATCH, TARVOCON_WALK_VALUE},
};
const tarvocon_option_table_td tarvocon_cfgmgr_merge_diffs_options =
    tarvocon_option_table(TARVOCON_CFGMGR_MERGE_DIFFS_OPTION_WORDS);

static const tarvocon_option_td TARVOCON_CFGMGR_MERGE_DIFFS_LIST_OPTION_WORDS[] = {
    {"-reverse_diffs", 1, 0},
};
const tarvocon_option_table_td tarvocon_cfgmgr_merge_diffs_list_options =
    tarvocon_option_table(TARVOCON_CFGMGR_MERGE_DIFFS_LIST_OPTION_WORDS);

static const tarvocon_option_td TARVOCON_CFGMGR_RESTORE_DELTA_OPTION_WORDS[] = {
    {"-atomic", TARVO_CFGMGR_RESTORE_DELTA_ATOMIC, 0},
};
const tarvocon_option_table_td tarvocon_cfgmgr_restore_delta_options =
    tarvocon_option_table(TARVOCON_CFGMGR_RESTORE_DELTA_OPTION_WORDS);

/* The code with the detail word, as errcode_strerror reads it. */
static int32_t tarvocon_with_detail(int32_t code, uint32_t detail)
{
    return (int32_t)((uint32_t)code | detail);
}

/* A failed change request: the client's prepared text, or the code's. */
static void tarvocon_report_change(const vel_msgdef_td *message, int32_t code)
{
    char *prepared = nullptr;
    const char *text = tarvocon_change_error_text(code, &prepared);
    vel_printmsg(message, VEL_SEVERITY_WARNING, text);
    free(prepared);
}

int tarvocon_cfgmgr_delete(char **tokens, uint32_t count)
{
    assert(tokens != nullptr);
    if (count < 2) {
        vel_printmsg(tarvocon_msg_sc_missname(), VEL_SEVERITY_WARNING);
        return 1;
    }
    if (count > TARVOCON_CFGMGR_MAX_TOKENS)
        return tarvocon_report_excess();
    tarvocon_walk_td walk = {};
    walk.positional_list = 1;
    if (tarvocon_walk_arguments(tokens, 1, count, &tarvocon_cfgmgr_delete_options,
                                &walk) != 0)
        return tarvocon_report_badformat();
    if (walk.list_count == 0) {
        vel_printmsg(tarvocon_msg_sc_missname(), VEL_SEVERITY_WARNING);
        return 1;
    }
    int32_t code = tarvo_cfgmgr_bulk_regexp_delete(tarvocon_bind_handle, walk.list,
                                                   walk.list_count, walk.flags);
    if (code != 0) {
        vel_printmsg(tarvocon_msg_sc_cfgmgr_delete(), VEL_SEVERITY_WARNING,
                     errcode_strerror(code));
        return 1;
    }
    printf("Areas successfully deleted\n");
    return 0;
}

int tarvocon_cfgmgr_add_deletes(char **tokens, uint32_t count)
{
    assert(tokens != nullptr);
    if (count < 2) {
        vel_printmsg(tarvocon_msg_sc_missname(), VEL_SEVERITY_WARNING);
        return 1;
    }
    if (count > TARVOCON_CFGMGR_MAX_TOKENS)
        return tarvocon_report_excess();
    tarvocon_walk_td walk = {};
    walk.positional_list = 1;
    if (tarvocon_walk_arguments(tokens, 1, count, &tarvocon_no_options, &walk) != 0)
        return tarvocon_report_badformat();
    int32_t code = tarvo_cfgmgr_add_deletes(tarvocon_bind_handle, walk.list,
                                            walk.list_count, 0);
    if (code != 0) {
        vel_printmsg(tarvocon_msg_sc_cfgmgr_add_deletes(), VEL_SEVERITY_WARNING,
                     errcode_strerror(code));
        return 1;
    }
    printf("Deletes successfully added\n");
    return 0;
}

int tarvocon_cfgmgr_remove_deletes(char **tokens, uint32_t count)
{
    assert(tokens != nullptr);
    (void)tokens; /* read by the assertion only; the words are not checked */
    (void)count;
    int32_t code = tarvo_cfgmgr_remove_deletes(tarvocon_bind_handle, 0);
    if (code != 0) {
        vel_printmsg(tarvocon_msg_sc_cfgmgr_remove_deletes(), VEL_SEVERITY_WARNING,
                     errcode_strerror(code));
        return 1;
    }
    printf("Deletes successfully removed\n");
    return 0;
}

int tarvocon_cfgmgr_adddiffs(char **tokens, uint32_t count)
{
    assert(tokens != nullptr);
    if (count < 2)
        return tarvocon_report_missfilename();
    if (count >= 10)
        return tarvocon_report_excess();
    tarvocon_walk_td walk = {};
    if (tarvocon_walk_arguments(tokens, 1, count, &tarvocon_cfgmgr_adddiffs_options,
                                &walk) != 0)
        return tarvocon_report_badformat();
    uint32_t detail = 0;
    int32_t code = tarvo_cfgmgr_bulk_add_diffs2(
        tarvocon_bind_handle, tarvocon_walk_value(&walk, TARVOCON_SLOT_DEST),
        tarvocon_walk_value(&walk, TARVOCON_SLOT_FILTER),
        tarvocon_walk_value(&walk, TARVOCON_SLOT_MATCH), walk.flags, walk.file,
        &detail);
    if (code != 0) {
        vel_printmsg(tarvocon_msg_sc_cfgmgr_adddiffs(), VEL_SEVERITY_WARNING,
                     errcode_strerror(tarvocon_with_detail(code, detail)));
        return 1;
    }
    printf("Diffs added successfully\n");
    return 0;
}

/* What the end or the restore saved, on standard output. */
static void tarvocon_report_saved(uint32_t saved, const char *changes_line)
{
    if (saved == 0)
        printf("No files have been saved\n");
    if (saved & TARVO_CFGMGR_SAVED_CHANGES)
        printf("%s", changes_line);
    if (saved & TARVO_CFGMGR_SAVED_ROLLBACK)
        printf("An XND file of the changes made by the rollback attempt have been saved\n");
}

/* After a failed end: a bulk start answered "already open" means the old
 * bulk survived; any other answer means it is gone, and a bulk the probe
 * itself opened is closed again at once. */
static void tarvocon_probe_bulk(tarvocon_state_td *state)
{
    int32_t code = tarvo_bulk_start(tarvocon_bind_handle, 0);
    if (code == TARVO_ERR_BULK_OPEN)
        return;
    state->bulk_open = 0;
    if (code == 0)
        (void)tarvo_bulk_abort(tarvocon_bind_handle);
}

int tarvocon_cfgmgr_endbulk(char **tokens, uint32_t count, tarvocon_state_td *state)
{
    assert(tokens != nullptr && state != nullptr);
    if (count >= 5)
        return tarvocon_report_excess();
    tarvocon_walk_td walk = {};
    if (tarvocon_walk_arguments(tokens, 1, count, &tarvocon_cfgmgr_endbulk_options,
                                &walk) != 0)
        return tarvocon_report_badformat();
    uint32_t detail = 0, saved = 0;
    int32_t code = tarvo_cfgmgr_bulk_end2(tarvocon_bind_handle, walk.file, walk.flags,
                                          &detail, &saved);
    int result = 0;
    if (code == 0) {
        printf("Bulk operation ended successfully\n");
        state->bulk_open = 0;
    } else {
        tarvocon_report_change(tarvocon_msg_sc_endbulk(),
                               tarvocon_with_detail(code, detail));
        tarvocon_probe_bulk(state);
        result = 1;
    }
    tarvocon_report_saved(saved, "An XND file of the changes has been saved\n");
    return result;
}

int tarvocon_cfgmgr_merge_diffs(char **tokens, uint32_t count)
{
    assert(tokens != nullptr);
    if (count < 2)
        return tarvocon_report_missfilename();
    if (count > TARVOCON_CFGMGR_MAX_TOKENS)
        return tarvocon_report_excess();
    tarvocon_walk_td walk = {};
    walk.positional_list = 1;
    if (tarvocon_walk_arguments(tokens, 1, count,
                                &tarvocon_cfgmgr_merge_diffs_options, &walk) != 0)
        return tarvocon_report_badformat();
    uint32_t detail = 0;
    int32_t code = tarvo_cfgmgr_file_merge_diffs4(
        tarvocon_bind_handle, walk.list, walk.list_count,
        tarvocon_walk_value(&walk, TARVOCON_SLOT_DEST),
        tarvocon_walk_value(&walk, TARVOCON_SLOT_FILTER),
        tarvocon_walk_value(&walk, TARVOCON_SLOT_MATCH), walk.flags, &detail,
        nullptr);
    if (code != 0) {
        vel_printmsg(tarvocon_msg_sc_cfgmgr_merge(), VEL_SEVERITY_WARNING,
                     errcode_strerror(tarvocon_with_detail(code, detail)));
        return 1;
    }
    printf("Diffs merged successfully\n");
    return 0;
}

/* Shows the merged changes of the files; the display's result is the
 * command's. */
int tarvocon_cfgmgr_merge_diffs_list(char **tokens, uint32_t count)
{
    assert(tokens != nullptr);
    if (count < 2)
        return tarvocon_report_missfilename();
    if (count > TARVOCON_CFGMGR_MAX_TOKENS)
        return tarvocon_report_excess();
    tarvocon_walk_td walk = {};
    walk.positional_list = 1;
    if (tarvocon_walk_arguments(tokens, 1, count,
                                &tarvocon_cfgmgr_merge_diffs_list_options, &walk) != 0)
        return tarvocon_report_badformat();
    uint32_t detail = 0;
    tarvo_event_list_h_td list = nullptr;
    int32_t code = tarvo_cfgmgr_event_list_from_file(walk.list, walk.list_count, walk.flags,
                                                     &list, &detail);
    if (code != 0) {
        vel_printmsg(tarvocon_msg_sc_cfgmgr_merge(), VEL_SEVERITY_WARNING,
                     errcode_strerror(tarvocon_with_detail(code, detail)));
        return 1;
    }
    int result = tarvocon_eventlist_display(list, 0xFFFFFFFFu);
    tarvo_event_list_free(list);
    return result;
}

int tarvocon_cfgmgr_merge_delta(char **tokens, uint32_t count)
{
    assert(tokens != nullptr);
    if (count < 4)
        return tarvocon_report_missfilename();
    if (count > 4)
        return tarvocon_report_excess();
    uint32_t detail = 0;
    int32_t code = tarvo_cfgmgr_file_merge_delta(tokens[1], tokens[2], tokens[3], 0,
                                                 &detail);
    if (code != 0) {
        /* This one report names the main code alone. */
        vel_printmsg(tarvocon_msg_sc_cfgmgr_merge(), VEL_SEVERITY_WARNING,
                     errcode_strerror(code));
        return 1;
    }
    printf("Files merged successfully\n");
    return 0;
}

int tarvocon_cfgmgr_restore_delta(char **tokens, uint32_t count)
{
    assert(tokens != nullptr);
    if (count < 3)
        return tarvocon_report_missfilename();
    if (count >= 6)
        return tarvocon_report_excess();
    tarvocon_walk_td walk = {};
    if (tarvocon_walk_arguments(tokens, 3, count,
                                &tarvocon_cfgmgr_restore_delta_options, &walk) != 0)
        return tarvocon_report_badformat();
    uint32_t detail = 0, saved = 0;
    int32_t code = tarvo_cfgmgr_file_restore_delta(tarvocon_bind_handle, tokens[1],
                                                   tokens[2], walk.file, walk.flags, 0,
                                                   &detail, &saved);
    int result = 0;
    if (code == 0) {
        printf("Files restored successfully\n");
    } else {
        tarvocon_report_change(tarvocon_msg_sc_filerestore(),
                               tarvocon_with_detail(code, detail));
        result = 1;
    }
    tarvocon_report_saved(saved, "An XNF file of the restored items has been saved\n");
    return result;
}
