/*
 * tarvocon: the shared records, process-wide values and operations of the
 * console's four units.
 *
 *   tarvocon_clone/             start-up and command loop, line input and
 *                               tokenizer, transaction log, dispatch, pager,
 *                               message catalogue, values, packed tuples,
 *                               item display
 *   tarvocon_commands_clone/    bind/cd and path resolution, help, do/config
 *                               and the item, listing, transaction, bulk,
 *                               file and config-manager commands
 *   tarvocon_bag/               bag value entry and display
 *   tarvocon_completion_clone/  command grammar and completion engine
 *
 * Conventions: plain records and functions. Handlers are
 * int handler(tokens, count[, state or variant]) with token 0 the command
 * word, and return 0 (success), 1 (failure already reported), a value
 * parser's code, or an errno value when the output stream could not be
 * opened or closed. Violated preconditions are assertions.
 */
#ifndef TARVOCON_H
#define TARVOCON_H

#include <setjmp.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>

#include "platform/bag.h"
#include "platform/getline.h"
#include "platform/msg.h"
#include "platform/tarvo.h"
#include "platform/tuple.h"
#include "tarvocon_clone/messages.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Constants ---- */
#define TARVOCON_MAX_TOKENS 32
#define TARVOCON_PATH_SIZE 1024 /* buffers of item names and paths */
#define TARVOCON_LINE_SIZE 1024 /* command lines */
#define TARVOCON_MAX_PACKED_ARGS 32
#define TARVOCON_COMMAND_COUNT 59
#define TARVOCON_COMMAND_WORD_SIZE 24

#define TARVOCON_ERR_BAD_VALUE ((int)TARVO_ERR_BAD_VALUE)
#define TARVOCON_ERR_NO_LIBRARY ((int)TARVO_ERR_NO_LIBRARY)

#define TARVOCON_PACKED_UINT 1
#define TARVOCON_PACKED_ULONG 2
#define TARVOCON_PACKED_STRING 3
#define TARVOCON_PACKED_INADDR 4
#define TARVOCON_PACKED_UINT64 5

/* ---- Records ---- */

/* One recorded line of a buffered transaction. */
typedef struct tarvocon_command_item_td {
    char command[TARVOCON_LINE_SIZE];
    struct tarvocon_command_item_td *next;
} tarvocon_command_item_td;

/* The console state; one instance lives in the command loop. */
typedef struct tarvocon_state_td {
    uint32_t transaction_open;
    uint32_t bulk_open;
    uint32_t transaction_buffered;
    uint32_t verification_suspended;
    uint32_t bind_options;
    tarvocon_command_item_td *list_start;
    tarvocon_command_item_td *list_end;
} tarvocon_state_td;

typedef int (*tarvocon_handler_td)(char **tokens, uint32_t count);

/* ---- Process-wide values (tarvocon_clone) ---- */
extern uint32_t tarvocon_verbose;
extern uint32_t tarvocon_from_file;
extern FILE *tarvocon_command_file;
extern uint32_t tarvocon_file_line_count;
extern char tarvocon_bind_point[TARVOCON_PATH_SIZE];
extern tarvo_bind_h_td tarvocon_bind_handle;
extern uint64_t tarvocon_trans_timeout[2]; /* seconds, nanoseconds */
extern const uint64_t tarvocon_default_trans_timeout[2];
extern char **tarvocon_tokens;
extern volatile sig_atomic_t tarvocon_pager_running;
extern int tarvocon_pager_fd;
extern sigjmp_buf tarvocon_resume_point;
extern const char tarvocon_command_table[TARVOCON_COMMAND_COUNT]
                                        [TARVOCON_COMMAND_WORD_SIZE];

/* ---- Start-up and loop (tarvocon_clone/startup.cpp) ---- */
int tarvocon_main(int argc, char **argv);
/* Next command line of the command file into buffer (1024 bytes); ends the
 * process at the end of the file or on a read error. */
int tarvocon_read_file(FILE *file, char *buffer);
extern const char tarvocon_usage_text[];
/* Printed when a bind below /cfg/ gets the /cfg/ option (start-up, bind/cd). */
extern const char tarvocon_cfg_warning[];

/* ---- Line input and tokenizer (tarvocon_clone/reader.cpp) ---- */
/* Writes the prompt for the state into prompt (room for 1024 bytes). */
void tarvocon_build_prompt(const tarvocon_state_td *state, char *prompt);
/* 0 with *command a new string (the caller frees it); 1 when no command
 * came of the line (empty line, failed completion or help step);
 * TARVOCON_READ_END when the line editor gave no line (end of input). */
#define TARVOCON_READ_END 2
int tarvocon_read_command_line(getline_data *data, char **command,
                               tarvocon_state_td *state);
int tarvocon_tokenize(const char *token_string, int mode, char **tokens,
                      uint32_t *token_count);
void tarvocon_remove_cr(char *source);

/* ---- Transaction command log (tarvocon_clone/translog.cpp) ---- */
void tarvocon_tran_add_command(const char *command_string,
                               tarvocon_state_td *state);
void tarvocon_tran_delete_command(tarvocon_state_td *state);
void tarvocon_abort_transaction(tarvocon_state_td *state);

/* ---- Dispatch (tarvocon_clone/dispatch.cpp) ---- */
int tarvocon_process_command(char **tokens, uint32_t token_count,
                             int *quit_flag, tarvocon_state_td *state);
int tarvocon_find_command(const char *word);

/* ---- Pager and child processes (tarvocon_clone/pager.cpp) ---- */
FILE *tarvocon_pager_open(void);
FILE *tarvocon_popen_w(char *const proc_argv[]);
int tarvocon_pclose(FILE *stream);
void tarvocon_sigchld_handler(int signal_number);
/* Called by the loop after a jump to the resume point: releases what the
 * abandoned child left behind, and runs the releases still held. */
void tarvocon_pager_abandoned(void);
/* A command that writes an object's contents to a child holds the object's
 * release while it does, so that quitting the pager early (which abandons
 * the command) does not leak it; it lets go once it released the object
 * itself. At most TARVOCON_PAGER_HOLDS objects are held at once. */
#define TARVOCON_PAGER_HOLDS 8
void tarvocon_pager_hold(void (*release)(void *), void *object);
void tarvocon_pager_let_go(void *object);

/* ---- Values (tarvocon_clone/values.cpp) ---- */
int tarvocon_get_datatype(char *description, tarvo_item_datatype_td *datatype);
/* The datatype's name from the client's datatype list, or null for a code
 * the list does not hold; and the byte width of its integer values (0 for
 * the other datatypes and for unknown codes). */
const char *tarvocon_datatype_name(tarvo_item_datatype_td datatype);
uint32_t tarvocon_datatype_width(tarvo_item_datatype_td datatype);
int tarvocon_parse_uint64(const char *text, uint64_t *result);
int tarvocon_parse_uint32(const char *text, uint32_t *result);
int tarvocon_parse_uint16(const char *text, uint16_t *result);
int tarvocon_parse_uint8(const char *text, uint8_t *result);
int tarvocon_parse_int64(const char *text, int64_t *result);
int tarvocon_parse_int32(const char *text, int32_t *result);
int tarvocon_parse_int16(const char *text, int16_t *result);
int tarvocon_parse_int8(const char *text, int8_t *result);
/* Builds the value of `token` for `datatype`; integers go into scratch.
 * A packed value is released with tuple_free, a bag with free. */
int tarvocon_make_value(tarvo_item_datatype_td datatype, char *token,
                        uint64_t *scratch, void **value, uint32_t *length);
void tarvocon_terminate_string(const char *source, char **new_string,
                               uint32_t length);
void tarvocon_make_uppercase(char *format);

/* ---- Packed tuples (tarvocon_clone/packed.cpp) ---- */
int tarvocon_create_packed(char *format, tuple_buf **packed_tuple,
                           uint32_t *packed_tuple_size);
int tarvocon_prepare_format(char *format, char *new_format);
int tarvocon_read_packed_value(int kind, tuple_arg *data,
                               getline_data *gl_data);
void tarvocon_page_print_packed(tuple_buf *packed_tuple, FILE *stream);
void tarvocon_page_print_packed_value(int kind, tuple_arg *tuple_data,
                                      uint32_t length, int present,
                                      FILE *stream);

/* ---- Item display (tarvocon_clone/display.cpp) ---- */
void tarvocon_page_print_item(tarvo_item_datatype_td datatype,
                              tarvo_event_td event, char *name,
                              uint32_t length, void *value, FILE *stream);
void tarvocon_dump_item(tarvo_item_datatype_td datatype, char *name,
                        const char *prefix, uint32_t length, void *value,
                        FILE *stream);

/* ---- Binding and paths (tarvocon_commands_clone/bind_cd.cpp) ---- */
int tarvocon_cd(char **tokens, uint32_t count, tarvocon_state_td *state);
int tarvocon_create_path(const char *local_path, char *fqpath);
void tarvocon_unbind(tarvo_bind_h_td handle);
int tarvocon_library_present(void);

/* ---- Help, do, config (tarvocon_commands_clone/help.cpp, do_config.cpp) */
int tarvocon_help(void);
int tarvocon_do(char **tokens, uint32_t count);
int tarvocon_config(char **tokens, uint32_t count);

/* ---- Item commands (tarvocon_commands_clone/) ---- */
int tarvocon_get(char **tokens, uint32_t count);
int tarvocon_get_inh(char **tokens, uint32_t count);
int tarvocon_hexdump(char **tokens, uint32_t count);
int tarvocon_get_items(char **tokens, uint32_t count);
int tarvocon_create(char **tokens, uint32_t count);
int tarvocon_set(char **tokens, uint32_t count);
int tarvocon_delete(char **tokens, uint32_t count);
int tarvocon_conditional_delete(char **tokens, uint32_t count);
int tarvocon_verify(char **tokens, uint32_t count);
int tarvocon_match(char **tokens, uint32_t count);
int tarvocon_copy(char **tokens, uint32_t count);
int tarvocon_check_match(char *name, tarvo_item_datatype_td datatype,
                         char *match_data, void *real_data, FILE *stream);

/* ---- Transactions (tarvocon_commands_clone/transactions.cpp) ---- */
int tarvocon_starttrans(char **tokens, uint32_t count,
                        tarvocon_state_td *state);
int tarvocon_committrans(char **tokens, uint32_t count,
                         tarvocon_state_td *state);
int tarvocon_aborttrans(char **tokens, uint32_t count,
                        tarvocon_state_td *state);

/* ---- Bulk operations (tarvocon_commands_clone/bulk.cpp) ---- */
int tarvocon_startbulk(char **tokens, uint32_t count, tarvocon_state_td *state);
int tarvocon_endbulk(char **tokens, uint32_t count, tarvocon_state_td *state);
int tarvocon_abortbulk(char **tokens, uint32_t count, tarvocon_state_td *state);
int tarvocon_remove_bulk_op(char **tokens, uint32_t count);
int tarvocon_bulk_num_ops(char **tokens, uint32_t count);

/* ---- Files and the configuration manager (tarvocon_commands_clone/
 * files.cpp, cfgmgr.cpp) ---- */
int tarvocon_filesave(char **tokens, uint32_t count);
int tarvocon_filerestore(char **tokens, uint32_t count);
int tarvocon_cfgmgr_delete(char **tokens, uint32_t count);
int tarvocon_cfgmgr_add_deletes(char **tokens, uint32_t count);
int tarvocon_cfgmgr_remove_deletes(char **tokens, uint32_t count);
int tarvocon_cfgmgr_adddiffs(char **tokens, uint32_t count);
int tarvocon_cfgmgr_endbulk(char **tokens, uint32_t count,
                            tarvocon_state_td *state);
int tarvocon_cfgmgr_merge_diffs(char **tokens, uint32_t count);
int tarvocon_cfgmgr_merge_diffs_list(char **tokens, uint32_t count);
int tarvocon_cfgmgr_merge_delta(char **tokens, uint32_t count);
int tarvocon_cfgmgr_restore_delta(char **tokens, uint32_t count);

/* ---- Locks (tarvocon_commands_clone/locks.cpp) ---- */
int tarvocon_rdlock(char **tokens, uint32_t count);
int tarvocon_wrlock(char **tokens, uint32_t count);
int tarvocon_unlock(char **tokens, uint32_t count);

/* ---- Server controls (tarvocon_commands_clone/server_controls.cpp) ---- */
int tarvocon_settimeout(char **tokens, uint32_t count);
int tarvocon_vrfnsusp(char **tokens, uint32_t count);
int tarvocon_vrfnres(char **tokens, uint32_t count);
int tarvocon_edm_not(char **tokens, uint32_t count);
int tarvocon_ping(char **tokens, uint32_t count);
int tarvocon_cfgmgr_issu_end(char **tokens, uint32_t count);

/* ---- Listing (tarvocon_commands_clone/list.cpp) ---- */
int tarvocon_list_datalist(char **tokens, uint32_t count, int datalist);
int tarvocon_list_display(tarvo_list_h_td list, uint32_t count);
int tarvocon_datalist_display(tarvo_datalist_h_td list, uint32_t count);
void tarvocon_list_display_more(int *more);

/* ---- Find, event find, iterate, error lists (tarvocon_commands_clone/) --- */
int tarvocon_find(char **tokens, uint32_t count, int data);
int tarvocon_eventfind(char **tokens, uint32_t count);
int tarvocon_eventlist_display(tarvo_event_list_h_td list, uint32_t count);
int tarvocon_iterate(char **tokens, uint32_t count);
int tarvocon_iterate_worker(char *subtree, tarvo_iterator_filter_h_td filter, int values,
                            int datalist, int edm);
int tarvocon_errorslist(char **tokens, uint32_t count);
int tarvocon_get_applyerror(char **tokens, uint32_t count);
int tarvocon_get_unscanned(char **tokens, uint32_t count);
int tarvocon_clear_applyerror(char **tokens, uint32_t count);
int tarvocon_clear_unscanned(char **tokens, uint32_t count);

/* ---- Bags (tarvocon_bag/) ---- */
int tarvocon_create_bag(char *bag_name, bag_td **bag, uint32_t *bag_size);
int tarvocon_read_bag_line(const char *prompt, char *line,
                           getline_data *gl_data);
void tarvocon_print_bag_choice(const bag_token_td *choice, const char *word);
void tarvocon_print_bag(bag_td *bag, uint32_t length, char *name,
                        const char *prefix, FILE *stream);

/* ---- Completion (tarvocon_completion_clone/) ----
 * The line reader's services for TAB, "?" and Enter; each cuts `line` at
 * its first newline in place and returns 0 or an error code (a tokenizer
 * refusal as 1, after its message). completion_complete_line gives the line
 * to show next (on no match the line as typed); completion_print_help
 * prints what may follow on standard output; completion_expand_line gives
 * the command to run (the line as typed when the grammar does not match it
 * whole), and nothing for a line without tokens. Lines handed back are new
 * allocations that the caller frees. */
int completion_complete_line(char *line, char **completed);
int completion_print_help(char *line);
int completion_expand_line(char *line, char **command);

#ifdef __cplusplus
}
#endif

#endif
