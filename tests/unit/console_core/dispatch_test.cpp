// The dispatcher's rules: lookup without regard to case, rows not
// available yet, and the verification state rule.
#include <gtest/gtest.h>

#include <cctype>
#include <cstring>
#include <string>

#include "tarvocon.h"
#include "tarvocon_clone/dispatch.h"

namespace {

// Lookup ignores case but matches whole words only. (That every grammar
// keyword dispatches is held by the agreement test.)
TEST(CommandTable, FoundInAnyCaseAsWholeWords) {
    for (int i = 0; i < TARVOCON_COMMAND_COUNT; i++) {
        std::string upper = tarvocon_command_table[i];
        for (char &ch : upper)
            ch = static_cast<char>(toupper(static_cast<unsigned char>(ch)));
        EXPECT_EQ(tarvocon_find_command(upper.c_str()), i) << upper;
    }
    struct {
        const char *word;
        int index;
    } cases[] = {
        {"Get", 0},  {"GET_INH", 1}, {"Q", 13},   {"CfgMgr_Clear_Unscanned", 58},
        {"", -1},    {"?", -1},      {"ge", -1},  {"gett", -1},
        {"get ", -1}, {"cfgmgr_clear_unscanned_", -1},
    };
    for (const auto &c : cases)
        EXPECT_EQ(tarvocon_find_command(c.word), c.index) << c.word;
}

// Unknown words, quit and the empty line are golden spine cases.
TEST(ProcessCommand, NotAvailableNamesTheCommand) {
    // A row that is not switched on yet reports SC_GENERIC with the table's
    // word (as typed in any case) and fails.
    const tarvocon_command_row_td row = {"iterate", TARVOCON_CALL_PLAIN,
                                         tarvocon_not_available, nullptr,
                                         nullptr, 0};
    std::string typed = "ITERATE";
    char *tokens[] = {typed.data(), nullptr};
    int quit = 0;
    tarvocon_state_td state = {};
    testing::internal::CaptureStderr();
    EXPECT_EQ(tarvocon_run_row(&row, tokens, 1, &quit, &state), 1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              std::string("[Tarvocon] While performing operation 'iterate' the "
                          "following error occurred:\n") +
                  errcode_strerror(TARVO_ERR_NOT_SUPPORTED) + "\n");
}

int g_handler_result;
uint32_t g_handler_count;
int Handler(char **, uint32_t count) {
    g_handler_count = count;
    return g_handler_result;
}

TEST(RunRow, VerificationStateChangesOnlyOnSuccess) {
    const tarvocon_command_row_td suspend = {"suspendvrfn", TARVOCON_CALL_SUSPEND,
                                             Handler, nullptr, nullptr, 0};
    const tarvocon_command_row_td resume = {"resumevrfn", TARVOCON_CALL_RESUME,
                                            Handler, nullptr, nullptr, 0};
    struct {
        const tarvocon_command_row_td *row;
        uint32_t before;
        int handler_result;
        uint32_t after;
    } cases[] = {
        {&suspend, 0, 0, 1}, {&suspend, 0, 1, 0}, {&suspend, 1, 0, 1},
        {&suspend, 0, 22, 0}, {&resume, 1, 0, 0}, {&resume, 1, 1, 1},
        {&resume, 0, 0, 0},  {&resume, 1, 13, 1},
    };
    std::string word = "x";
    char *tokens[] = {word.data(), word.data(), nullptr};
    for (const auto &c : cases) {
        tarvocon_state_td state = {};
        state.verification_suspended = c.before;
        g_handler_result = c.handler_result;
        g_handler_count = 0;
        int quit = 0;
        EXPECT_EQ(tarvocon_run_row(c.row, tokens, 2, &quit, &state),
                  c.handler_result);
        EXPECT_EQ(g_handler_count, 2u);
        EXPECT_EQ(state.verification_suspended, c.after)
            << c.row->word << " returning " << c.handler_result;
        EXPECT_EQ(quit, 0);
    }
}

int g_variant_seen;
int VariantHandler(char **, uint32_t, int variant) {
    g_variant_seen = variant;
    return 7;
}
tarvocon_state_td *g_state_seen;
int StateHandler(char **, uint32_t, tarvocon_state_td *state) {
    g_state_seen = state;
    return 3;
}

TEST(RunRow, PassesVariantAndStateAndResults) {
    std::string word = "x";
    char *tokens[] = {word.data(), nullptr};
    tarvocon_state_td state = {};
    int quit = 0;
    for (int variant : {0, 1}) {
        const tarvocon_command_row_td row = {"v", TARVOCON_CALL_VARIANT, nullptr,
                                             nullptr, VariantHandler, variant};
        g_variant_seen = -1;
        EXPECT_EQ(tarvocon_run_row(&row, tokens, 1, &quit, &state), 7);
        EXPECT_EQ(g_variant_seen, variant);
    }
    const tarvocon_command_row_td row = {"s", TARVOCON_CALL_STATE, nullptr,
                                         StateHandler, nullptr, 0};
    EXPECT_EQ(tarvocon_run_row(&row, tokens, 1, &quit, &state), 3);
    EXPECT_EQ(g_state_seen, &state);
    EXPECT_EQ(quit, 0);
}

} // namespace
