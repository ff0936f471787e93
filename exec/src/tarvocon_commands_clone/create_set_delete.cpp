/*
 * Writing items: create, set, delete_cond and verify (the typed commands,
 * "name type value"), and delete.
 *
 * Results: 0 on success, 1 after a reported failure, or the value
 * builder's code when the typed value could not be built. A packed value is
 * released with tuple_free and a bag with free right after the request.
 */
#include <assert.h>
#include <stdlib.h>
#include <string.h>

#include "tarvocon.h"
#include "tarvocon_commands_clone/item_errors.h"
#include "tarvocon_commands_clone/options.h"

typedef int (*tarvocon_typed_request_td)(tarvo_item_datatype_td datatype,
                                         const char *name, const void *value,
                                         uint32_t length, uint32_t options);

/* One typed command: its request, success line and failure message. */
struct tarvocon_typed_command_td {
    tarvocon_typed_request_td request;
    const char *success_format;
    const vel_msgdef_td *(*failure)(void);
};

static int tarvocon_request_create(tarvo_item_datatype_td datatype,
                                   const char *name, const void *value,
                                   uint32_t length, uint32_t options)
{
    (void)options;
    return tarvo_item_create(tarvocon_bind_handle, name, datatype, value,
                             length, 0, 0);
}

static int tarvocon_request_set(tarvo_item_datatype_td datatype,
                                const char *name, const void *value,
                                uint32_t length, uint32_t options)
{
    return tarvo_item_set(tarvocon_bind_handle, name, datatype, value, length,
                          options);
}

static int tarvocon_request_delete_cond(tarvo_item_datatype_td datatype,
                                        const char *name, const void *value,
                                        uint32_t length, uint32_t options)
{
    (void)options;
    return tarvo_item_conditional_delete(tarvocon_bind_handle, name, datatype,
                                         value, length, 0);
}

static int tarvocon_request_verify(tarvo_item_datatype_td datatype,
                                   const char *name, const void *value,
                                   uint32_t length, uint32_t options)
{
    (void)options;
    return tarvo_item_verify(tarvocon_bind_handle, name, datatype, value,
                             length, 0);
}

static const tarvocon_typed_command_td TARVOCON_CREATE_COMMAND = {
    tarvocon_request_create, "Item %s successfully created\n",
    tarvocon_msg_sc_create};
static const tarvocon_typed_command_td TARVOCON_SET_COMMAND = {
    tarvocon_request_set, "Item %s successfully modified\n",
    tarvocon_msg_sc_set};
static const tarvocon_typed_command_td TARVOCON_DELETE_COND_COMMAND = {
    tarvocon_request_delete_cond, "Item %s successfully deleted\n",
    tarvocon_msg_sc_delete};
static const tarvocon_typed_command_td TARVOCON_VERIFY_COMMAND = {
    tarvocon_request_verify, "Item %s successfully verified\n",
    tarvocon_msg_sc_verify};

/* The count checks shared by the typed commands, up to the value token. */
static int tarvocon_check_typed_count(uint32_t count)
{
    if (count <= 1) {
        vel_printmsg(tarvocon_msg_sc_missname(), VEL_SEVERITY_WARNING);
    } else if (count == 2) {
        vel_printmsg(tarvocon_msg_sc_misstype(), VEL_SEVERITY_WARNING);
    } else if (count == 3) {
        vel_printmsg(tarvocon_msg_sc_missvalue(), VEL_SEVERITY_WARNING);
    } else {
        return 0;
    }
    return 1;
}

static void tarvocon_release_value(tarvo_item_datatype_td datatype,
                                   void *value)
{
    if (datatype == TARVO_DATATYPE_PACKED) {
        tuple_free((tuple_buf *)value);
    } else if (datatype == TARVO_DATATYPE_BAG) {
        free(value);
    }
}

static void tarvocon_report_change(const vel_msgdef_td *message,
                                   const char *name, int32_t code)
{
    char *prepared = NULL;
    const char *text = tarvocon_change_error_text(code, &prepared);
    vel_printmsg(message, VEL_SEVERITY_WARNING, name, text);
    free(prepared);
}

/* Builds the value of tokens 2 and 3 and runs the command's request. The
 * counts have been checked. */
static int tarvocon_run_typed(const tarvocon_typed_command_td *command,
                              char **tokens, uint32_t options)
{
    tarvo_item_datatype_td datatype = (tarvo_item_datatype_td)0;
    if (tarvocon_get_datatype(tokens[2], &datatype) != 0) {
        return 1;
    }
    uint64_t scratch = 0;
    void *value = NULL;
    uint32_t length = 0;
    int rc = tarvocon_make_value(datatype, tokens[3], &scratch, &value,
                                 &length);
    if (rc != 0) {
        return rc;
    }
    rc = command->request(datatype, tokens[1], value, length, options);
    tarvocon_release_value(datatype, value);
    if (rc != 0) {
        tarvocon_report_change(command->failure(), tokens[1], rc);
        return 1;
    }
    printf(command->success_format, tokens[1]);
    return 0;
}

/* create, delete_cond and verify: exactly four tokens. */
static int tarvocon_typed_command(const tarvocon_typed_command_td *command,
                                  char **tokens, uint32_t count)
{
    assert(tokens != NULL);
    if (tarvocon_check_typed_count(count) != 0) {
        return 1;
    }
    if (count > 4) {
        vel_printmsg(tarvocon_msg_sc_excess(), VEL_SEVERITY_WARNING);
        return 1;
    }
    return tarvocon_run_typed(command, tokens, 0);
}

int tarvocon_create(char **tokens, uint32_t count)
{
    return tarvocon_typed_command(&TARVOCON_CREATE_COMMAND, tokens, count);
}

int tarvocon_conditional_delete(char **tokens, uint32_t count)
{
    return tarvocon_typed_command(&TARVOCON_DELETE_COND_COMMAND, tokens,
                                  count);
}

int tarvocon_verify(char **tokens, uint32_t count)
{
    return tarvocon_typed_command(&TARVOCON_VERIFY_COMMAND, tokens, count);
}

int tarvocon_set(char **tokens, uint32_t count)
{
    assert(tokens != NULL);
    if (tarvocon_check_typed_count(count) != 0) {
        return 1;
    }
    if (count > 5) {
        vel_printmsg(tarvocon_msg_sc_excess(), VEL_SEVERITY_WARNING);
        return 1;
    }
    uint32_t options = 0;
    if (count == 5) {
        const tarvocon_option_td *option =
            tarvocon_find_option(&tarvocon_set_options, tokens[4]);
        if (option == NULL) {
            vel_printmsg(tarvocon_msg_sc_badformat(), VEL_SEVERITY_WARNING);
            return 1;
        }
        options = option->bits;
    }
    return tarvocon_run_typed(&TARVOCON_SET_COMMAND, tokens, options);
}

/* set takes its option only as token 4. */
static const tarvocon_option_td TARVOCON_SET_OPTION_WORDS[] = {
    {"-create", TARVO_SET_OPTION_CREATE, 0},
};
const tarvocon_option_table_td tarvocon_set_options =
    tarvocon_option_table(TARVOCON_SET_OPTION_WORDS);

static const tarvocon_option_td TARVOCON_DELETE_OPTION_WORDS[] = {
    {"-regexp", TARVO_WRITE_OPTION_REGEXP, 0},
    {"-comp_regexp",
     TARVO_WRITE_OPTION_COMP_REGEXP | TARVO_WRITE_OPTION_REGEXP, 0},
    {"-atomic", TARVO_WRITE_OPTION_ATOMIC, 0},
    {"-apply_levels", 0, 0},
    {"-initial_load", TARVO_WRITE_OPTION_INITIAL_LOAD, 0},
    {"-optimal", TARVO_WRITE_OPTION_OPTIMAL, 0},
};
const tarvocon_option_table_td tarvocon_delete_options =
    tarvocon_option_table(TARVOCON_DELETE_OPTION_WORDS);

int tarvocon_delete(char **tokens, uint32_t count)
{
    assert(tokens != NULL);
    if (count >= 8) {
        vel_printmsg(tarvocon_msg_sc_excess(), VEL_SEVERITY_WARNING);
        return 1;
    }
    uint32_t flags = 0;
    char name[TARVOCON_PATH_SIZE] = {0};
    for (uint32_t i = 1; i < count; i++) {
        if (tokens[i][0] != '-') {
            /* A later name replaces an earlier one; long names are cut. */
            snprintf(name, sizeof name, "%s", tokens[i]);
        } else {
            const tarvocon_option_td *option =
                tarvocon_find_option(&tarvocon_delete_options, tokens[i]);
            if (option == NULL) {
                vel_printmsg(tarvocon_msg_sc_badformat(),
                             VEL_SEVERITY_WARNING);
                return 1;
            }
            flags |= option->bits;
        }
    }
    int rc = tarvo_item_delete(tarvocon_bind_handle, name, flags);
    if (rc != 0) {
        tarvocon_report_change(tarvocon_msg_sc_delete(), name, rc);
        return 1;
    }
    if (name[0] == '\0') {
        printf("All items successfully deleted\n");
    } else {
        printf("Item %s successfully deleted\n", name);
    }
    return 0;
}
