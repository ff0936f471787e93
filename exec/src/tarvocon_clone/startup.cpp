/*
 * Start-up and the command loop: options, the data-size limit, the command
 * source, the initial bind, the SIGCHLD handling of the pager, the loop
 * itself and the orderly end. Also the process-wide values every unit
 * shares.
 *
 * Output order: standard output is fully buffered when it is not a
 * terminal; it is flushed before anything goes to standard error, before a
 * child starts, before input is read from the terminal and at the end, so a
 * session written to files reads in the order it happened.
 */
#include <assert.h>
#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <sys/resource.h>
#include <unistd.h>

#include <string>

#include "platform/os.h"
#include "tarvocon.h"

/* ---- Process-wide values ---- */
uint32_t tarvocon_verbose = 0;
uint32_t tarvocon_from_file = 0;
FILE *tarvocon_command_file = nullptr;
uint32_t tarvocon_file_line_count = 0;
char tarvocon_bind_point[TARVOCON_PATH_SIZE] = "";
tarvo_bind_h_td tarvocon_bind_handle = nullptr;
const uint64_t tarvocon_default_trans_timeout[2] = {300, 0};
uint64_t tarvocon_trans_timeout[2] = {300, 0};
char **tarvocon_tokens = nullptr;

const char tarvocon_usage_text[] =
    "Usage: tarvocon  [ -v ] [ -m | -c | -l | -s | -n | -D | -a ] [ -i ] [ -f <instruction file> [ -e ] [-d] ] [-F] [-E]\n"
    "  v: verbose mode\n"
    "  m: initially bind as a management client\n"
    "  c: initially bind using a scratchpad connection, it cannot be used with any other bind options\n"
    "  l: enforce binding to local local-plane tarvo server\n"
    "  s: enforce binding to local static-config shared-plane tarvo server\n"
    "  n: enforce binding to local non-config shared-plane tarvo server\n"
    "  D: enforce binding to local non-config data shared-plane tarvo server\n"
    "  a: enforce binding to local admin-plane tarvo server\n"
    "  f: specify file containing tarvocon commands\n"
    "  e: stop on errors (only for commands from file)\n"
    "  d: Bind with option EDM_DIRECT to mimic EDM clients\n"
    "  F: Bind with option NG_DIRECT to connect to tarvo server directly\n"
    "  i: Bind to the consice datastore\n"
    "  E: Bind to /cfg/ in expanded view (for tarvocon_rw to clear stale inheritance config with non-bulk delete)\n"
    "     ('i' and 'E' are mutually exclusive) \n"
    "\n";

const char tarvocon_cfg_warning[] =
    "\nWARNING: Any modification(create/set/delete) on /cfg namespace \n"
    "should be done at your own risk. It may make datastore inconsistent.\n\n";

static const char TARVOCON_BIND_QUESTION[] = "Please enter initial bind point>/";

/* The names the two readers keep their histories under between runs. A
 * history that cannot be kept in a file is kept for the session only,
 * without a note: it must never stop or disturb the console. */
static const char TARVOCON_COMMAND_HISTORY[] = "commands";
static const char TARVOCON_BIND_HISTORY[] = "bind_points";

/* ---- The run ---- */

/* Everything the loop keeps between passes. It lives in static storage so
 * that its values survive a jump back to the resume point. */
typedef struct tarvocon_run_td {
    int stop;
    int quit;
    int bound;
    int stop_on_error;   /* -e */
    int expanded_view;   /* -E */
    int usage_printed;
    uint32_t options;    /* the options word of the command line */
    const char *file_name;
    getline_data *reader;
    tarvocon_state_td state;
    char line[TARVOCON_LINE_SIZE];
} tarvocon_run_td;

static tarvocon_run_td tarvocon_run;

/* Writes to standard error after what standard output holds. */
static void tarvocon_error_line(const char *format, const char *text)
{
    fflush(stdout);
    fprintf(stderr, format, text);
    fflush(stderr);
}

static void tarvocon_usage(tarvocon_run_td *run)
{
    if (!run->usage_printed) {
        fflush(stdout);
        fputs(tarvocon_usage_text, stderr);
        fflush(stderr);
        run->usage_printed = 1;
    }
    run->stop = 1;
}

/* ---- Options ---- */

/* The bind option a command-line letter sets; exclusive letters may join
 * only the concise bit. */
static const struct {
    int letter;
    uint32_t bit;
    int exclusive;
} TARVOCON_OPTION_BITS[] = {
    {'i', TARVO_BIND_OPTION_CONCISE, 0},
    {'F', TARVO_BIND_OPTION_NG_DIRECT, 0},
    {'m', TARVO_BIND_OPTION_MGMT, 1},
    {'c', TARVO_BIND_OPTION_SCRATCHPAD, 1},
    {'d', TARVO_BIND_OPTION_EDM_DIRECT, 1},
    {'l', TARVO_BIND_OPTION_LOCAL_PLANE, 1},
    {'s', TARVO_BIND_OPTION_SHARED_STATIC, 1},
    {'n', TARVO_BIND_OPTION_SHARED_NONCFG, 1},
    {'a', TARVO_BIND_OPTION_ADMIN_PLANE, 1},
    {'D', TARVO_BIND_OPTION_SHARED_DATA, 1},
};

/* 0 when the letter was a bind option and was accepted, 1 on a usage
 * error, -1 when the letter is not a bind option. */
static int tarvocon_bind_letter(tarvocon_run_td *run, int letter)
{
    for (const auto &option : TARVOCON_OPTION_BITS) {
        if (option.letter != letter)
            continue;
        if (option.exclusive && (run->options & ~TARVO_BIND_OPTION_CONCISE))
            return 1;
        run->options |= option.bit;
        return 0;
    }
    return -1;
}

static void tarvocon_parse_options(tarvocon_run_td *run, int argc, char **argv)
{
    opterr = 0;
    int letter;
    while ((letter = getopt(argc, argv, "f:evmcalsndiDEF")) != -1) {
        int bind = tarvocon_bind_letter(run, letter);
        if (bind == 0)
            continue;
        if (bind == 1) {
            tarvocon_usage(run);
            return;
        }
        switch (letter) {
        case 'v': tarvocon_verbose = 1; break;
        case 'f':
            tarvocon_from_file = 1;
            run->file_name = optarg;
            break;
        case 'e': run->stop_on_error = 1; break;
        case 'E': run->expanded_view = 1; break;
        default:
            tarvocon_usage(run);
            return;
        }
    }
}

/* The combinations that only the whole command line shows. */
static void tarvocon_check_options(tarvocon_run_td *run, int argc)
{
    uint32_t options = run->options;
    if ((options & TARVO_BIND_OPTION_SCRATCHPAD) &&
        options != TARVO_BIND_OPTION_SCRATCHPAD)
        tarvocon_usage(run);
    else if (run->expanded_view && (options & TARVO_BIND_OPTION_CONCISE))
        tarvocon_usage(run);
    else if (optind < argc)
        tarvocon_usage(run);
}

static void tarvocon_set_data_limit(void)
{
    uint64_t limit = platform_get_process_max_rlimit_data();
    int result = wd_set_rlimit(RLIMIT_DATA, limit);
    if (result == 0)
        printf("tarvocon rlimit set to %lu\n", (unsigned long)limit);
    else
        printf("Unable to set rlimit for tarvocon, rc=%#x\n", (unsigned)result);
}

/* ---- Command source ---- */

static void tarvocon_open_source(tarvocon_run_td *run)
{
    if (tarvocon_from_file) {
        do {
            tarvocon_command_file = fopen(run->file_name, "r");
        } while (tarvocon_command_file == nullptr && errno == EINTR);
        if (tarvocon_command_file == nullptr) {
            vel_printmsg(tarvocon_msg_sc_nofile(), VEL_SEVERITY_NOTICE,
                         run->file_name);
            run->stop = 1;
        }
        return;
    }
    run->reader = getline_init();
    if (run->reader == nullptr) {
        vel_printmsg(tarvocon_msg_sc_readerinit(), VEL_SEVERITY_NOTICE);
        run->stop = 1;
        return;
    }
    (void)getline_history_keep(run->reader, TARVOCON_COMMAND_HISTORY);
}

int tarvocon_read_file(FILE *file, char *buffer)
{
    assert(file != nullptr && buffer != nullptr);
    for (;;) {
        if (fgets(buffer, TARVOCON_LINE_SIZE, file) == nullptr) {
            int failed = ferror(file) || tarvocon_file_line_count == 0;
            if (failed)
                vel_printmsg(tarvocon_msg_sc_fileread(), VEL_SEVERITY_NOTICE);
            tarvocon_unbind(tarvocon_bind_handle);
            fflush(stdout);
            exit(failed ? 1 : 0);
        }
        if (buffer[0] == '\n' || buffer[0] == '#')
            continue;
        if (tarvocon_file_line_count == 0) {
            printf("\nInitial bind point: %s", buffer);
            tarvocon_file_line_count = 1;
        } else {
            printf("\nCommand %d: %s", (int)tarvocon_file_line_count, buffer);
            tarvocon_file_line_count++;
        }
        return 0;
    }
}

/* ---- Initial bind ---- */

/* Asks for the bind point at the terminal; 1 when the question was given
 * up (end of input, Ctrl-C, an answer too long for the buffer). */
static int tarvocon_ask_bind_point(getline_data *question)
{
    for (;;) {
        uint8_t status = 0;
        fflush(stdout);
        char *answer = qn_getline(question, TARVOCON_BIND_QUESTION, nullptr,
                                  &status);
        if (answer == nullptr)
            return 1;
        if (status == GETLINE_COMPLETE || status == GETLINE_HELP) {
            free(answer);
            continue;
        }
        if (status != GETLINE_ENTER || strlen(answer) >= TARVOCON_PATH_SIZE) {
            free(answer);
            return 1;
        }
        getline_histadd(question, answer);
        snprintf(tarvocon_bind_point, TARVOCON_PATH_SIZE, "/%s", answer);
        free(answer);
        tarvocon_remove_cr(tarvocon_bind_point);
        size_t length = strlen(tarvocon_bind_point);
        if (length > 0 && tarvocon_bind_point[length - 1] != '/' &&
            length < TARVOCON_PATH_SIZE - 1)
            strcpy(tarvocon_bind_point + length, "/");
        return 0;
    }
}

/* Chooses the bind point of one attempt; 1 when there is none. */
static int tarvocon_initial_bind_point(tarvocon_run_td *run,
                                       getline_data *question)
{
    if (run->options & TARVO_BIND_OPTION_SCRATCHPAD) {
        /* No line of a command file is a bind point then. */
        tarvocon_file_line_count = 1;
        tarvocon_bind_point[0] = '\0';
        return 0;
    }
    if (tarvocon_from_file) {
        tarvocon_read_file(tarvocon_command_file, tarvocon_bind_point);
        tarvocon_remove_cr(tarvocon_bind_point);
        return 0;
    }
    return tarvocon_ask_bind_point(question);
}

static void tarvocon_bind_attempt(tarvocon_run_td *run, getline_data *question)
{
    if (tarvocon_initial_bind_point(run, question) != 0) {
        run->stop = 1;
        return;
    }
    /* The /cfg/ bit joins the options word itself, so it stays for the
     * next answer when this bind fails. */
    if (!(run->options & TARVO_BIND_OPTION_CFG) && !run->expanded_view &&
        strncmp(tarvocon_bind_point, "/cfg/", 5) == 0) {
        run->options |= TARVO_BIND_OPTION_CFG;
        fputs(tarvocon_cfg_warning, stdout);
    }
    uint32_t options = run->options;
    if (tarvocon_verbose)
        printf("binding to '%s' with options 0x%x\n", tarvocon_bind_point,
               options);
    int code = TARVOCON_ERR_NO_LIBRARY;
    if (tarvocon_library_present())
        code = _tarvo_bind(&tarvocon_bind_handle, tarvocon_bind_point, options);
    if (code == 0) {
        run->bound = 1;
        run->state.bind_options = options;
        return;
    }
    tarvocon_bind_handle = nullptr;
    /* A command file has no second answer; a scratchpad bind asks nothing,
     * so trying again would only repeat the same failure. */
    if (tarvocon_from_file || (options & TARVO_BIND_OPTION_SCRATCHPAD))
        run->stop = 1;
    /* The client names the store file and what is wrong with it. */
    char *detail = nullptr;
    if (code != TARVOCON_ERR_NO_LIBRARY &&
        tarvo_prepare_error_string(nullptr, code, &detail) == 0 &&
        detail != nullptr) {
        std::string text = std::string(errcode_strerror(code)) + ": " + detail;
        vel_printmsg(tarvocon_msg_sc_bind(), VEL_SEVERITY_NOTICE, text.c_str());
    } else {
        vel_printmsg(tarvocon_msg_sc_bind(), VEL_SEVERITY_NOTICE,
                     errcode_strerror(code));
    }
    free(detail);
}

static void tarvocon_initial_bind(tarvocon_run_td *run)
{
    getline_data *question = nullptr;
    if (!tarvocon_from_file) {
        /* Its own reader: the answer never enters the loop's history. */
        question = getline_init();
        assert(question != nullptr);
        (void)getline_history_keep(question, TARVOCON_BIND_HISTORY);
    }
    while (!run->bound && !run->stop)
        tarvocon_bind_attempt(run, question);
    if (question != nullptr)
        getline_free(question);
}

/* ---- Signals ---- */

/* SIGCHLD stays blocked except while a command writes to a child's pipe
 * (see pager.cpp), so the handler never interrupts the database client or
 * the allocator. */
static void tarvocon_setup_signals(tarvocon_run_td *run)
{
    struct sigaction action;
    memset(&action, 0, sizeof(action));
    action.sa_handler = tarvocon_sigchld_handler;
    action.sa_flags = 0;
    if (sigemptyset(&action.sa_mask) != 0) {
        tarvocon_error_line("Error from sigemptyset (%s)\n", strerror(errno));
        run->stop = 1;
        return;
    }
    if (sigaction(SIGCHLD, &action, nullptr) != 0) {
        tarvocon_error_line("Error from sigaction (%s)\n", strerror(errno));
        run->stop = 1;
        return;
    }
    sigset_t mask;
    sigemptyset(&mask);
    sigaddset(&mask, SIGCHLD);
    if (sigprocmask(SIG_SETMASK, &mask, nullptr) != 0) {
        tarvocon_error_line("Error from sigprocmask (%s)\n", strerror(errno));
        run->stop = 1;
    }
}

/* ---- The loop ---- */

static void tarvocon_free_tokens(void)
{
    for (uint32_t i = 0; i < TARVOCON_MAX_TOKENS; i++) {
        free(tarvocon_tokens[i]);
        tarvocon_tokens[i] = nullptr;
    }
}

/* Next line into run->line: the log first when a buffered transaction is
 * being replayed, then the command file or the terminal. */
static int tarvocon_next_line(tarvocon_run_td *run)
{
    if (!run->state.transaction_open && run->state.list_start != nullptr) {
        snprintf(run->line, sizeof(run->line), "%s",
                 run->state.list_start->command);
        return 0;
    }
    if (tarvocon_from_file)
        return tarvocon_read_file(tarvocon_command_file, run->line);
    char *command = nullptr;
    int result = tarvocon_read_command_line(run->reader, &command, &run->state);
    if (result == TARVOCON_READ_END) {
        /* The end of input ends the console as quit does. */
        if (isatty(STDIN_FILENO))
            putchar('\n');
        run->quit = 1;
        return 0;
    }
    if (result != 0)
        return result;
    snprintf(run->line, sizeof(run->line), "%s", command);
    free(command);
    return 0;
}

/* While a buffered transaction is open lines are recorded, not run; only
 * committrans and aborttrans end the recording. */
static void tarvocon_record_line(tarvocon_run_td *run)
{
    tarvocon_state_td *state = &run->state;
    tarvocon_tran_add_command(run->line, state);
    if (strcasecmp(tarvocon_tokens[0], "committrans") == 0) {
        state->transaction_open = 0;
        state->transaction_buffered = 0;
    } else if (strcasecmp(tarvocon_tokens[0], "aborttrans") == 0) {
        tarvocon_abort_transaction(state);
        state->transaction_open = 0;
        state->transaction_buffered = 0;
    }
}

/* The log step after every command run while no transaction is open and
 * the log holds lines: a failure turns the rest of the log into one
 * aborttrans, anything else drops the first line. A replayed aborttrans
 * that fails drops the log rather than come back without end. */
static void tarvocon_log_step(tarvocon_run_td *run, int result)
{
    tarvocon_state_td *state = &run->state;
    if (state->transaction_open || state->list_start == nullptr)
        return;
    if (result != 1) {
        tarvocon_tran_delete_command(state);
    } else if (strcasecmp(tarvocon_tokens[0], "aborttrans") == 0) {
        while (state->list_start != nullptr)
            tarvocon_tran_delete_command(state);
    } else {
        tarvocon_abort_transaction(state);
    }
}

/* One pass: get a line, tokenise it, record or run it. */
static int tarvocon_pass(tarvocon_run_td *run)
{
    int result = tarvocon_next_line(run);
    if (result != 0 || run->quit)
        return result;
    tarvocon_remove_cr(run->line);
    uint32_t count = 0;
    result = tarvocon_tokenize(run->line, 1, tarvocon_tokens, &count);
    if (result != 0 || count == 0)
        return result;
    if (run->state.transaction_buffered) {
        tarvocon_record_line(run);
    } else {
        result = tarvocon_process_command(tarvocon_tokens, count, &run->quit,
                                          &run->state);
        tarvocon_log_step(run, result);
    }
    tarvocon_free_tokens();
    return result;
}

static void tarvocon_command_loop(tarvocon_run_td *run)
{
    while (!run->quit && !run->stop) {
        int result = tarvocon_pass(run);
        if (result != 0 && run->stop_on_error && tarvocon_from_file)
            run->stop = 1;
    }
}

/* The pager or configuration program ended while a command was still
 * writing to it: the command is abandoned, its log step skipped (a
 * replayed line stays first in the log). What it held is released. */
static void tarvocon_resume_after_child(void)
{
    qn_close(tarvocon_pager_fd);
    tarvocon_pager_abandoned();
    tarvocon_free_tokens();
}

/* ---- End ---- */

static void tarvocon_finish(tarvocon_run_td *run)
{
    free(tarvocon_tokens);
    tarvocon_tokens = nullptr;
    while (run->state.list_start != nullptr)
        tarvocon_tran_delete_command(&run->state);
    if (run->bound) {
        if (run->state.transaction_open)
            (void)tarvo_transaction_abort(tarvocon_bind_handle);
        if (run->state.bulk_open)
            (void)tarvo_bulk_abort(tarvocon_bind_handle);
        if (run->state.verification_suspended)
            (void)tarvo_verification_resume(tarvocon_bind_handle);
        tarvocon_unbind(tarvocon_bind_handle);
        tarvocon_bind_handle = nullptr;
    }
    if (run->reader != nullptr)
        getline_free(run->reader);
    if (tarvocon_command_file != nullptr)
        fclose(tarvocon_command_file);
    fflush(stdout);
}

int tarvocon_main(int argc, char **argv)
{
    tarvocon_run_td *run = &tarvocon_run;
    memset(run, 0, sizeof(*run));
    /* Long listings into a file or a pipe go out in large writes. */
    static char out_buffer[1 << 16];
    if (!isatty(STDOUT_FILENO))
        setvbuf(stdout, out_buffer, _IOFBF, sizeof out_buffer);

    tarvocon_parse_options(run, argc, argv);
    tarvocon_set_data_limit();
    if (!run->stop)
        tarvocon_check_options(run, argc);
    if (!run->stop)
        tarvocon_open_source(run);
    if (!run->stop)
        tarvocon_initial_bind(run);
    if (!run->stop) {
        if (!tarvocon_from_file)
            printf("Enter 'help' or '?' for help\n");
        tarvocon_tokens = static_cast<char **>(
            calloc(TARVOCON_MAX_TOKENS, sizeof(char *)));
        assert(tarvocon_tokens != nullptr);
        tarvocon_setup_signals(run);
    }
    if (!run->stop) {
        /* Saved with SIGCHLD blocked: after a jump the loop runs with the
         * same mask as always. */
        if (sigsetjmp(tarvocon_resume_point, 1) != 0)
            tarvocon_resume_after_child();
        tarvocon_command_loop(&tarvocon_run);
    }
    tarvocon_finish(&tarvocon_run);
    return 0;
}
