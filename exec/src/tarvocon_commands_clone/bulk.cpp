/*
 * Bulk operations: startbulk, endbulk, abortbulk, remove_bulk_op and
 * bulk_num_ops. startbulk, endbulk and abortbulk keep bulk_open of the
 * console state in step; whether a bulk is open is otherwise the client's
 * business, so no command consults bulk_open first.
 *
 * Results: 0 on success, 1 after a reported failure.
 */
#include <assert.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "tarvocon.h"
#include "tarvocon_commands_clone/item_errors.h"
#include "tarvocon_commands_clone/options.h"

static const tarvocon_option_td TARVOCON_STARTBULK_OPTION_WORDS[] = {
    {"-atomic", TARVO_BULK_OPTION_ATOMIC, 0},
    {"-apply_levels", 0, 0},
    {"-initial_load", TARVO_BULK_OPTION_INITIAL_LOAD, 0},
    {"-update", TARVO_BULK_OPTION_UPDATE, 0},
    {"-issu", TARVO_BULK_OPTION_ISSU, 0},
    {"-int_rollback", TARVO_BULK_OPTION_INT_ROLLBACK, 0},
};
const tarvocon_option_table_td tarvocon_startbulk_options =
    tarvocon_option_table(TARVOCON_STARTBULK_OPTION_WORDS);

static const tarvocon_option_td TARVOCON_ENDBULK_OPTION_WORDS[] = {
    {"-commit_replace", TARVO_BULK_OPTION_COMMIT_REPLACE, 0},
};
const tarvocon_option_table_td tarvocon_endbulk_options =
    tarvocon_option_table(TARVOCON_ENDBULK_OPTION_WORDS);

/* The value is the kind of operations removed, not a bit. */
static const tarvocon_option_td TARVOCON_REMOVE_BULK_OP_OPTION_WORDS[] = {
    {"-creates", TARVO_BULK_REMOVE_CREATES, 0},
    {"-deletes", TARVO_BULK_REMOVE_DELETES, 0},
};
const tarvocon_option_table_td tarvocon_remove_bulk_op_options =
    tarvocon_option_table(TARVOCON_REMOVE_BULK_OP_OPTION_WORDS);

static const uint32_t TARVOCON_STARTBULK_MAX_TOKENS = 5;

static int tarvocon_bulk_excess(void)
{
    vel_printmsg(tarvocon_msg_sc_excess(), VEL_SEVERITY_WARNING);
    return 1;
}

static int tarvocon_bulk_badformat(void)
{
    vel_printmsg(tarvocon_msg_sc_badformat(), VEL_SEVERITY_WARNING);
    return 1;
}

/* An in-service-upgrade bulk says what it will not do, as soon as the word
 * is read. */
static void tarvocon_print_issu_lines(void)
{
    printf("START BULK with ISSU attribute\n");
    printf("ALL CREAT/SET operation wouldn't invoke Verification/Apply Phase\n");
    printf("And tuples which are created stay in UNSCANNED state\n");
}

int tarvocon_startbulk(char **tokens, uint32_t count, tarvocon_state_td *state)
{
    assert(tokens != nullptr && state != nullptr);
    if (count > TARVOCON_STARTBULK_MAX_TOKENS)
        return tarvocon_bulk_excess();
    uint32_t options = 0;
    for (uint32_t i = 1; i < count; i++) {
        const tarvocon_option_td *option = tarvocon_find_option(
            &tarvocon_startbulk_options, tokens[i]);
        if (option == nullptr)
            return tarvocon_bulk_badformat();
        if (option->bits == TARVO_BULK_OPTION_ISSU)
            tarvocon_print_issu_lines();
        options |= option->bits;
    }
    int32_t code = tarvo_bulk_start(tarvocon_bind_handle, options);
    if (code != 0) {
        vel_printmsg(tarvocon_msg_sc_startbulk(), VEL_SEVERITY_WARNING,
                     errcode_strerror(code));
        return 1;
    }
    printf("Bulk operation started successfully\n");
    state->bulk_open = 1;
    return 0;
}

static void tarvocon_report_endbulk(int32_t code)
{
    char *prepared = nullptr;
    const char *text = tarvocon_change_error_text(code, &prepared);
    vel_printmsg(tarvocon_msg_sc_endbulk(), VEL_SEVERITY_WARNING, text);
    free(prepared);
}

/* Adds the end's own options to those the open bulk was started with. */
static int32_t tarvocon_add_bulk_options(uint32_t options)
{
    uint32_t current = 0;
    int32_t code = tarvo_bulk_get_options(tarvocon_bind_handle, &current);
    if (code == 0)
        code = tarvo_bulk_set_options(tarvocon_bind_handle, current | options);
    return code;
}

int tarvocon_endbulk(char **tokens, uint32_t count, tarvocon_state_td *state)
{
    assert(tokens != nullptr && state != nullptr);
    if (count > 2)
        return tarvocon_bulk_excess();
    uint32_t options = 0;
    if (count == 2) {
        const tarvocon_option_td *option = tarvocon_find_option(
            &tarvocon_endbulk_options, tokens[1]);
        if (option == nullptr)
            return tarvocon_bulk_badformat();
        options = option->bits;
    }
    if (options != 0) {
        /* A bulk that cannot take the option is not ended: it stays open
         * for another endbulk or an abortbulk. */
        int32_t code = tarvocon_add_bulk_options(options);
        if (code != 0) {
            tarvocon_report_endbulk(code);
            return 1;
        }
    }
    int32_t code = tarvo_bulk_end(tarvocon_bind_handle);
    state->bulk_open = 0;
    if (code != 0) {
        tarvocon_report_endbulk(code);
        return 1;
    }
    printf("Bulk operation ended successfully\n");
    return 0;
}

int tarvocon_abortbulk(char **tokens, uint32_t count, tarvocon_state_td *state)
{
    assert(tokens != nullptr && state != nullptr);
    (void)tokens; /* read by the assertion only */
    if (count > 1)
        return tarvocon_bulk_excess();
    int32_t code = tarvo_bulk_abort(tarvocon_bind_handle);
    state->bulk_open = 0;
    if (code != 0) {
        vel_printmsg(tarvocon_msg_sc_abortbulk(), VEL_SEVERITY_WARNING,
                     errcode_strerror(code));
        return 1;
    }
    printf("Bulk operation aborted successfully\n");
    return 0;
}

int tarvocon_remove_bulk_op(char **tokens, uint32_t count)
{
    assert(tokens != nullptr);
    if (count < 2) {
        vel_printmsg(tarvocon_msg_sc_missname(), VEL_SEVERITY_WARNING);
        return 1;
    }
    if (count > 3)
        return tarvocon_bulk_excess();
    char name[TARVOCON_PATH_SIZE] = {0};
    strncpy(name, tokens[1], sizeof(name) - 1);
    uint32_t kind = TARVO_BULK_REMOVE_ALL;
    if (count == 3) {
        const tarvocon_option_td *option = tarvocon_find_option(
            &tarvocon_remove_bulk_op_options, tokens[2]);
        if (option == nullptr)
            return tarvocon_bulk_badformat();
        kind = option->bits;
    }
    int32_t code = tarvo_bulk_remove_op2(tarvocon_bind_handle, name, kind);
    if (code != 0) {
        vel_printmsg(tarvocon_msg_sc_remove_bulk_op(), VEL_SEVERITY_WARNING,
                     name, errcode_strerror(code));
        return 1;
    }
    if (name[0] == '\0')
        printf("All operations successfully deleted\n");
    else
        printf("Operation on %s successfully deleted\n", name);
    return 0;
}

int tarvocon_bulk_num_ops(char **tokens, uint32_t count)
{
    assert(tokens != nullptr);
    (void)tokens; /* read by the assertion only */
    if (count > 1)
        return tarvocon_bulk_excess();
    uint32_t operations = 0;
    int32_t code = tarvo_bulk_num_ops(tarvocon_bind_handle, &operations);
    if (code != 0) {
        vel_printmsg(tarvocon_msg_sc_bulk_num_ops(), VEL_SEVERITY_WARNING,
                     errcode_strerror(code));
        return 1;
    }
    printf("%u operation%s in the bulk\n", operations,
           operations == 1 ? "" : "s");
    return 0;
}
