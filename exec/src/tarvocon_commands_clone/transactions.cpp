/*
 * Transactions: starttrans, committrans, aborttrans. The handlers keep
 * transaction_open and transaction_buffered of the console state in step
 * with the client; recording and replaying the lines of a buffered
 * transaction is the command loop's (startup.cpp, translog.cpp).
 *
 * Results: 0 on success, 1 after a reported failure; starttrans returns the
 * integer parser's code, unreported, for a word that is neither an option
 * nor a number of seconds.
 */
#include <assert.h>
#include <stdio.h>
#include <stdlib.h>

#include "tarvocon.h"
#include "tarvocon_commands_clone/item_errors.h"
#include "tarvocon_commands_clone/options.h"

/* "-b" is the console's own: it asks for recording and never reaches the
 * client, so it takes a bit the client's transaction options do not use. */
static const uint32_t TARVOCON_TRANS_BUFFERED = 0x80000000u;

static const tarvocon_option_td TARVOCON_STARTTRANS_OPTION_WORDS[] = {
    {"-b", TARVOCON_TRANS_BUFFERED, 0},
    {"-apply_levels", 0, 0},
    {"-initial_load", TARVO_TRANSACTION_OPTION_INITIAL_LOAD, 0},
};
const tarvocon_option_table_td tarvocon_starttrans_options =
    tarvocon_option_table(TARVOCON_STARTTRANS_OPTION_WORDS);

static const uint32_t TARVOCON_STARTTRANS_MAX_TOKENS = 5;

/* Walks the option words and numbers; a number is the new timeout in
 * seconds at once, for this and every later transaction. */
static int tarvocon_starttrans_words(char **tokens, uint32_t count,
                                     uint32_t *words)
{
    for (uint32_t i = 1; i < count; i++) {
        const tarvocon_option_td *option =
            tarvocon_find_option(&tarvocon_starttrans_options, tokens[i]);
        if (option != nullptr) {
            *words |= option->bits;
            continue;
        }
        uint32_t seconds = 0;
        int rc = tarvocon_parse_uint32(tokens[i], &seconds);
        if (rc != 0)
            return rc;
        tarvocon_trans_timeout[0] = seconds;
    }
    return 0;
}

int tarvocon_starttrans(char **tokens, uint32_t count,
                        tarvocon_state_td *state)
{
    assert(tokens != nullptr && state != nullptr);
    if (count > TARVOCON_STARTTRANS_MAX_TOKENS) {
        vel_printmsg(tarvocon_msg_sc_excess(), VEL_SEVERITY_WARNING);
        return 1;
    }
    uint32_t words = 0;
    int rc = tarvocon_starttrans_words(tokens, count, &words);
    if (rc != 0)
        return rc;
    int32_t code = tarvo_transaction_start(
        tarvocon_bind_handle, tarvocon_trans_timeout[0],
        tarvocon_trans_timeout[1], words & ~TARVOCON_TRANS_BUFFERED);
    if (code != 0) {
        vel_printmsg(tarvocon_msg_sc_starttrans(), VEL_SEVERITY_WARNING,
                     errcode_strerror(code));
        return 1;
    }
    printf("Transaction started successfully\n");
    /* A start inside an open transaction changes nothing here, so "-b"
     * cannot begin recording half-way through one. */
    if (!state->transaction_open) {
        state->transaction_open = 1;
        state->transaction_buffered =
            (words & TARVOCON_TRANS_BUFFERED) != 0 ? 1 : 0;
    }
    return 0;
}

int tarvocon_committrans(char **tokens, uint32_t count,
                         tarvocon_state_td *state)
{
    assert(tokens != nullptr && state != nullptr);
    (void)tokens; /* read by the assertion only */
    if (count > 1) {
        vel_printmsg(tarvocon_msg_sc_excess(), VEL_SEVERITY_WARNING);
        return 1;
    }
    int32_t code = tarvo_transaction_commit(tarvocon_bind_handle);
    /* Whatever the answer, the client holds no transaction afterwards. */
    state->transaction_open = 0;
    if (code == TARVO_ERR_TRANSACTION_TIMED_OUT) {
        printf("Transaction had timed out\n");
        return 0;
    }
    if (code == 0) {
        printf("Transaction committed successfully\n");
        return 0;
    }
    char *prepared = nullptr;
    const char *text = tarvocon_change_error_text(code, &prepared);
    vel_printmsg(tarvocon_msg_sc_committrans(), VEL_SEVERITY_WARNING, text);
    free(prepared);
    return 1;
}

int tarvocon_aborttrans(char **tokens, uint32_t count,
                        tarvocon_state_td *state)
{
    assert(tokens != nullptr && state != nullptr);
    (void)tokens; /* read by the assertion only */
    if (count > 1) {
        vel_printmsg(tarvocon_msg_sc_excess(), VEL_SEVERITY_WARNING);
        return 1;
    }
    int32_t code = tarvo_transaction_abort(tarvocon_bind_handle);
    state->transaction_open = 0;
    if (code != 0) {
        vel_printmsg(tarvocon_msg_sc_aborttrans(), VEL_SEVERITY_WARNING,
                     errcode_strerror(code));
        return 1;
    }
    printf("Transaction aborted successfully\n");
    return 0;
}
