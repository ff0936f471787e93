/*
 * The command table and the dispatcher.
 *
 * One list below holds every command: its word, how its handler is called
 * and the handler. The public table of words (tarvocon_command_table) and the
 * dispatcher's rows are both generated from it, so they cannot drift apart.
 * A command whose handler is not in this build yet points at
 * tarvocon_not_available; switching it on is a change of one row.
 */
#include <assert.h>
#include <strings.h>

#include "tarvocon.h"
#include "tarvocon_clone/dispatch.h"

/*
 * X(word, call kind, handler, variant flag)
 *   PLAIN    handler(tokens, count)
 *   STATE    handler(tokens, count, state)
 *   VARIANT  handler(tokens, count, variant flag)
 *   QUIT, HELP             the dispatcher's own; handler unused
 *   SUSPEND, RESUME        plain handler; success changes
 *                          verification_suspended
 */
#define TARVOCON_COMMAND_LIST(X)                                              \
    X("get", PLAIN, tarvocon_get, 0)                                          \
    X("get_inh", PLAIN, tarvocon_get_inh, 0)                                  \
    X("verify", PLAIN, tarvocon_verify, 0)                                    \
    X("match", PLAIN, tarvocon_match, 0)                                      \
    X("list", VARIANT, tarvocon_list_datalist, 0)                             \
    X("ls", VARIANT, tarvocon_list_datalist, 0)                               \
    X("datalist", VARIANT, tarvocon_list_datalist, 1)                         \
    X("iterate", PLAIN, tarvocon_iterate, 0)                            \
    X("errorslist", PLAIN, tarvocon_errorslist, 0)                         \
    X("bind", STATE, tarvocon_cd, 0)                                          \
    X("cd", STATE, tarvocon_cd, 0)                                            \
    X("quit", QUIT, nullptr, 0)                                               \
    X("exit", QUIT, nullptr, 0)                                               \
    X("q", QUIT, nullptr, 0)                                                  \
    X("help", HELP, nullptr, 0)                                               \
    X("dump", PLAIN, tarvocon_hexdump, 0)                                     \
    X("find", VARIANT, tarvocon_find, 0)                               \
    X("finddata", VARIANT, tarvocon_find, 1)                           \
    X("eventfind", PLAIN, tarvocon_eventfind, 0)                          \
    X("filesave", PLAIN, tarvocon_filesave, 0)                                \
    X("do", PLAIN, tarvocon_do, 0)                                            \
    X("config", PLAIN, tarvocon_config, 0)                                    \
    X("settimeout", PLAIN, tarvocon_settimeout, 0)                            \
    X("getitems", PLAIN, tarvocon_get_items, 0)                               \
    X("cfgmgr_issu_end", PLAIN, tarvocon_cfgmgr_issu_end, 0)                  \
    X("ping", PLAIN, tarvocon_ping, 0)                                        \
    X("set", PLAIN, tarvocon_set, 0)                                          \
    X("create", PLAIN, tarvocon_create, 0)                                    \
    X("delete", PLAIN, tarvocon_delete, 0)                                    \
    X("delete_cond", PLAIN, tarvocon_conditional_delete, 0)                   \
    X("rdlock", PLAIN, tarvocon_rdlock, 0)                                    \
    X("wrlock", PLAIN, tarvocon_wrlock, 0)                                    \
    X("unlock", PLAIN, tarvocon_unlock, 0)                                    \
    X("starttrans", STATE, tarvocon_starttrans, 0)                            \
    X("committrans", STATE, tarvocon_committrans, 0)                          \
    X("aborttrans", STATE, tarvocon_aborttrans, 0)                            \
    X("suspendvrfn", SUSPEND, tarvocon_vrfnsusp, 0)                           \
    X("resumevrfn", RESUME, tarvocon_vrfnres, 0)                              \
    X("edmnotify", PLAIN, tarvocon_edm_not, 0)                                \
    X("startbulk", STATE, tarvocon_startbulk, 0)                              \
    X("endbulk", STATE, tarvocon_endbulk, 0)                                  \
    X("abortbulk", STATE, tarvocon_abortbulk, 0)                              \
    X("remove_bulk_op", PLAIN, tarvocon_remove_bulk_op, 0)                    \
    X("bulk_num_ops", PLAIN, tarvocon_bulk_num_ops, 0)                        \
    X("copy", PLAIN, tarvocon_copy, 0)                                        \
    X("filerestore", PLAIN, tarvocon_filerestore, 0)                          \
    X("cfgmgr_delete", PLAIN, tarvocon_cfgmgr_delete, 0)                      \
    X("cfgmgr_add_deletes", PLAIN, tarvocon_cfgmgr_add_deletes, 0)                 \
    X("cfgmgr_remove_deletes", PLAIN, tarvocon_cfgmgr_remove_deletes, 0)              \
    X("cfgmgr_adddiffs", PLAIN, tarvocon_cfgmgr_adddiffs, 0)                    \
    X("cfgmgr_endbulk", STATE, tarvocon_cfgmgr_endbulk, 0)                     \
    X("cfgmgr_merge_diffs", PLAIN, tarvocon_cfgmgr_merge_diffs, 0)                 \
    X("cfgmgr_merge_diffs_list", PLAIN, tarvocon_cfgmgr_merge_diffs_list, 0)  \
    X("cfgmgr_merge_delta", PLAIN, tarvocon_cfgmgr_merge_delta, 0)                 \
    X("cfgmgr_restore_delta", PLAIN, tarvocon_cfgmgr_restore_delta, 0)               \
    X("cfgmgr_get_applyerror", PLAIN, tarvocon_get_applyerror, 0)              \
    X("cfgmgr_get_unscanned", PLAIN, tarvocon_get_unscanned, 0)               \
    X("cfgmgr_clear_applyerror", PLAIN, tarvocon_clear_applyerror, 0)            \
    X("cfgmgr_clear_unscanned", PLAIN, tarvocon_clear_unscanned, 0)

#define TARVOCON_ROW_PLAIN(w, fn, v) {w, TARVOCON_CALL_PLAIN, fn, nullptr, nullptr, v}
#define TARVOCON_ROW_STATE(w, fn, v) {w, TARVOCON_CALL_STATE, nullptr, fn, nullptr, v}
#define TARVOCON_ROW_VARIANT(w, fn, v) {w, TARVOCON_CALL_VARIANT, nullptr, nullptr, fn, v}
#define TARVOCON_ROW_QUIT(w, fn, v) {w, TARVOCON_CALL_QUIT, fn, nullptr, nullptr, v}
#define TARVOCON_ROW_HELP(w, fn, v) {w, TARVOCON_CALL_HELP, fn, nullptr, nullptr, v}
#define TARVOCON_ROW_SUSPEND(w, fn, v) {w, TARVOCON_CALL_SUSPEND, fn, nullptr, nullptr, v}
#define TARVOCON_ROW_RESUME(w, fn, v) {w, TARVOCON_CALL_RESUME, fn, nullptr, nullptr, v}

#define TARVOCON_WORD_OF(w, kind, fn, v) w,
#define TARVOCON_ROW_OF(w, kind, fn, v) TARVOCON_ROW_##kind(w, fn, v),

extern "C" const char tarvocon_command_table[TARVOCON_COMMAND_COUNT]
                                           [TARVOCON_COMMAND_WORD_SIZE] = {
    TARVOCON_COMMAND_LIST(TARVOCON_WORD_OF)};

static const tarvocon_command_row_td TARVOCON_ROWS[] = {
    TARVOCON_COMMAND_LIST(TARVOCON_ROW_OF)};

static_assert(sizeof(TARVOCON_ROWS) / sizeof(TARVOCON_ROWS[0]) ==
                  TARVOCON_COMMAND_COUNT,
              "one row per command word");

const tarvocon_command_row_td *tarvocon_command_rows(void)
{
    return TARVOCON_ROWS;
}

int tarvocon_find_command(const char *word)
{
    assert(word != nullptr);
    for (int i = 0; i < TARVOCON_COMMAND_COUNT; i++) {
        if (strcasecmp(word, tarvocon_command_table[i]) == 0)
            return i;
    }
    return -1;
}

int tarvocon_not_available(char **tokens, uint32_t count)
{
    assert(tokens != nullptr && count > 0);
    (void)count;
    /* Name the command by its table word, however it was typed. */
    int index = tarvocon_find_command(tokens[0]);
    const char *word = index >= 0 ? tarvocon_command_table[index] : tokens[0];
    vel_printmsg(tarvocon_msg_sc_generic(), VEL_SEVERITY_WARNING, word,
                 errcode_strerror(TARVO_ERR_NOT_SUPPORTED));
    return 1;
}

/* suspendvrfn and resumevrfn: only a successful request changes the state. */
static int tarvocon_run_verification(const tarvocon_command_row_td *row,
                                     char **tokens, uint32_t token_count,
                                     tarvocon_state_td *state)
{
    int result = row->plain(tokens, token_count);
    if (result == 0)
        state->verification_suspended =
            row->kind == TARVOCON_CALL_SUSPEND ? 1 : 0;
    return result;
}

int tarvocon_run_row(const tarvocon_command_row_td *row, char **tokens,
                     uint32_t token_count, int *quit_flag,
                     tarvocon_state_td *state)
{
    assert(row != nullptr && tokens != nullptr && quit_flag != nullptr);
    switch (row->kind) {
    case TARVOCON_CALL_PLAIN:
        return row->plain(tokens, token_count);
    case TARVOCON_CALL_STATE:
        return row->with_state(tokens, token_count, state);
    case TARVOCON_CALL_VARIANT:
        return row->with_variant(tokens, token_count, row->variant);
    case TARVOCON_CALL_QUIT:
        *quit_flag = 1;
        return 0;
    case TARVOCON_CALL_HELP:
        (void)tarvocon_help();
        return 0;
    case TARVOCON_CALL_SUSPEND:
    case TARVOCON_CALL_RESUME:
        return tarvocon_run_verification(row, tokens, token_count, state);
    }
    assert(!"unknown call kind");
    return 1;
}

int tarvocon_process_command(char **tokens, uint32_t token_count,
                             int *quit_flag, tarvocon_state_td *state)
{
    assert(tokens != nullptr && quit_flag != nullptr);
    if (token_count == 0)
        return 0;
    int index = tarvocon_find_command(tokens[0]);
    if (index < 0) {
        vel_printmsg(tarvocon_msg_sc_unkcmd(), VEL_SEVERITY_WARNING);
        return 1;
    }
    return tarvocon_run_row(&TARVOCON_ROWS[index], tokens, token_count,
                            quit_flag, state);
}
