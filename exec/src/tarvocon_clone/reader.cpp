/*
 * Prompt, line input and tokenizer.
 *
 * tarvocon_read_command_line shows the prompt, serves the line editor's
 * completion and help requests through the completion engine until a line
 * is entered, and hands back the engine's expansion of it.
 * tarvocon_tokenize splits a line into separately allocated tokens with the
 * console's quoting rules: blanks (the space character only) separate words,
 * double quotes make a token of everything up to the closing quote, and a
 * backslash inside quotes takes the next character literally.
 */
#include <assert.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "tarvocon.h"

/* The prompt shows at most this many characters of the bind point. */
static const size_t TARVOCON_PROMPT_PATH_CHARS = 50;

/* The first bind tag that applies, in this order. */
static const struct {
    uint32_t bit;
    const char *tag;
} TARVOCON_BIND_TAGS[] = {
    {TARVO_BIND_OPTION_MGMT, "[m]"},
    {TARVO_BIND_OPTION_SCRATCHPAD, "[c]"},
    {TARVO_BIND_OPTION_LOCAL_PLANE, "[l]"},
    {TARVO_BIND_OPTION_SHARED_STATIC, "[s]"},
    {TARVO_BIND_OPTION_SHARED_NONCFG, "[n]"},
    {TARVO_BIND_OPTION_SHARED_DATA, "[D]"},
    {TARVO_BIND_OPTION_ADMIN_PLANE, "[a]"},
};

static const char *tarvocon_bind_tag(uint32_t options)
{
    for (const auto &entry : TARVOCON_BIND_TAGS) {
        if (options & entry.bit)
            return entry.tag;
    }
    return "";
}

void tarvocon_build_prompt(const tarvocon_state_td *state, char *prompt)
{
    assert(prompt != nullptr);
    static const tarvocon_state_td EMPTY_STATE = {};
    if (state == nullptr)
        state = &EMPTY_STATE;
    int trans = state->transaction_open != 0;
    int bulk = state->bulk_open != 0;
    int susp = state->verification_suspended != 0;
    int marks = trans || bulk || susp;
    const char *path = tarvocon_bind_point;
    size_t length = strnlen(path, TARVOCON_PATH_SIZE - 1);
    int cut = length > TARVOCON_PROMPT_PATH_CHARS;
    if (cut)
        path += length - TARVOCON_PROMPT_PATH_CHARS;
    snprintf(prompt, TARVOCON_PATH_SIZE, "tarvocon:%s%s%s%s%s%s%s%s%.*s> ",
             tarvocon_bind_tag(state->bind_options), marks ? "[" : "",
             trans ? "trans" : "", bulk ? "bulk" : "",
             susp && (trans || bulk) ? "|" : "", susp ? "vrfnsusp" : "",
             marks ? "]" : "", cut ? "$" : "",
             (int)(cut ? TARVOCON_PROMPT_PATH_CHARS : length), path);
}

void tarvocon_remove_cr(char *source)
{
    assert(source != nullptr);
    char *newline = strchr(source, '\n');
    if (newline != nullptr)
        *newline = '\0';
}

/* Reads one line; the text shown must be complete before the editor takes
 * over the terminal. */
static char *tarvocon_getline(getline_data *data, const char *prompt,
                              const char *prefill, uint8_t *status)
{
    fflush(stdout);
    *status = 0;
    return qn_getline(data, prompt, prefill, status);
}

/* Serves one completion (TAB) or help ("?") request for `line`. Returns 0
 * with *prefill set to the line to show next (or null), non-zero when the
 * engine failed. */
static int tarvocon_serve_request(uint8_t status, char *line, char **prefill)
{
    *prefill = nullptr;
    if (status == GETLINE_COMPLETE) {
        int code = completion_complete_line(line, prefill);
        if (code != 0) {
            free(*prefill);
            *prefill = nullptr;
        }
        return code;
    }
    if (status == GETLINE_HELP) {
        int code = completion_print_help(line);
        if (code == 0) {
            *prefill = strdup(line);
            assert(*prefill != nullptr);
        }
        return code;
    }
    return 0; /* GETLINE_DISCARD: read again with an empty line */
}

int tarvocon_read_command_line(getline_data *data, char **command,
                               tarvocon_state_td *state)
{
    assert(data != nullptr && command != nullptr);
    char prompt[TARVOCON_PATH_SIZE];
    tarvocon_build_prompt(state, prompt);

    uint8_t status = 0;
    char *line = tarvocon_getline(data, prompt, nullptr, &status);
    if (line == nullptr)
        return TARVOCON_READ_END;
    while (status == GETLINE_COMPLETE || status == GETLINE_HELP ||
           status == GETLINE_DISCARD) {
        char *prefill = nullptr;
        int code = tarvocon_serve_request(status, line, &prefill);
        free(line);
        if (code != 0)
            return 1;
        line = tarvocon_getline(data, prompt, prefill, &status);
        free(prefill);
        if (line == nullptr)
            return TARVOCON_READ_END;
    }

    getline_histadd(data, line);
    char *expanded = nullptr;
    (void)completion_expand_line(line, &expanded);
    free(line);
    if (expanded == nullptr)
        return 1;
    *command = expanded;
    return 0;
}

/* ---- Tokenizer ---- */

namespace {

/* The token being assembled and the vector it goes to. */
struct tarvocon_token_work_td {
    char **tokens;
    uint32_t count;
    char buffer[TARVOCON_LINE_SIZE];
    size_t length;
};

/* Characters beyond the buffer's 1023 are dropped: the token is cut, never
 * written past the buffer. */
void tarvocon_token_add(tarvocon_token_work_td *work, char c)
{
    if (work->length < sizeof(work->buffer) - 1)
        work->buffer[work->length++] = c;
}

/* Stores the token assembled so far; 1 after reporting SC_EXCESS when the
 * vector is full. */
int tarvocon_token_store(tarvocon_token_work_td *work)
{
    if (work->count >= TARVOCON_MAX_TOKENS) {
        vel_printmsg(tarvocon_msg_sc_excess(), VEL_SEVERITY_WARNING);
        return 1;
    }
    work->buffer[work->length] = '\0';
    char *token = strdup(work->buffer);
    assert(token != nullptr);
    work->tokens[work->count++] = token;
    work->length = 0;
    return 0;
}

/* After an error no token is handed back. */
int tarvocon_token_fail(tarvocon_token_work_td *work)
{
    for (uint32_t i = 0; i < work->count; i++) {
        free(work->tokens[i]);
        work->tokens[i] = nullptr;
    }
    work->count = 0;
    return 1;
}

} // namespace

int tarvocon_tokenize(const char *token_string, int mode, char **tokens,
                      uint32_t *token_count)
{
    assert(token_string != nullptr && tokens != nullptr &&
           token_count != nullptr);
    *token_count = 0;
    if (token_string[0] == '\0')
        return 0;

    tarvocon_token_work_td work;
    work.tokens = tokens;
    work.count = 0;
    work.length = 0;
    int in_word = 0;
    int in_quotes = 0;

    for (const char *p = token_string; *p != '\0'; p++) {
        char c = *p;
        if (in_quotes) {
            if (c == '"') {
                in_quotes = 0;
                if (tarvocon_token_store(&work) != 0)
                    return tarvocon_token_fail(&work);
            } else if (c == '\\') {
                if (p[1] == '\0')
                    break; /* nothing left to take literally */
                tarvocon_token_add(&work, *++p);
            } else {
                tarvocon_token_add(&work, c);
            }
        } else if (c == '"') {
            if (in_word) {
                vel_printmsg(tarvocon_msg_sc_badformat(), VEL_SEVERITY_WARNING);
                return tarvocon_token_fail(&work);
            }
            in_quotes = 1;
        } else if (c == ' ') {
            if (in_word) {
                in_word = 0;
                if (tarvocon_token_store(&work) != 0)
                    return tarvocon_token_fail(&work);
            }
        } else {
            in_word = 1;
            tarvocon_token_add(&work, c);
        }
    }

    if (mode == 1) {
        if (in_quotes) {
            vel_printmsg(tarvocon_msg_sc_mismatch(), VEL_SEVERITY_WARNING);
            return tarvocon_token_fail(&work);
        }
        if (in_word && tarvocon_token_store(&work) != 0)
            return tarvocon_token_fail(&work);
    } else {
        /* Completion works on the last token, so unfinished input stays, and
         * a line that does not end inside a word gets an empty last token. */
        if ((in_word || in_quotes) && tarvocon_token_store(&work) != 0)
            return tarvocon_token_fail(&work);
        if (!in_word && tarvocon_token_store(&work) != 0)
            return tarvocon_token_fail(&work);
    }
    *token_count = work.count;
    return 0;
}
