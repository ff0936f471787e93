// The tokenizer: quoting rules in both modes, the 32-token vector, the
// 1024-byte token buffer, and what is left behind after an error.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tarvocon.h"

namespace {

struct TokenizeResult {
    int result;
    std::vector<std::string> tokens;
    std::string messages;
};

// Runs the tokenizer on a vector with guard entries past its 32 slots, so a
// write beyond the vector shows up.
TokenizeResult Tokenize(const std::string &line, int mode) {
    const char *kGuard = "guard";
    char *vector[TARVOCON_MAX_TOKENS + 2];
    for (auto &slot : vector) slot = const_cast<char *>(kGuard);
    for (int i = 0; i < TARVOCON_MAX_TOKENS; i++) vector[i] = nullptr;
    uint32_t count = 77;
    testing::internal::CaptureStderr();
    int result = tarvocon_tokenize(line.c_str(), mode, vector, &count);
    TokenizeResult out{result, {}, testing::internal::GetCapturedStderr()};
    EXPECT_EQ(vector[TARVOCON_MAX_TOKENS], kGuard);
    EXPECT_EQ(vector[TARVOCON_MAX_TOKENS + 1], kGuard);
    EXPECT_LE(count, static_cast<uint32_t>(TARVOCON_MAX_TOKENS));
    for (uint32_t i = 0; i < count; i++) {
        out.tokens.emplace_back(vector[i]);
        free(vector[i]);
    }
    // Nothing is handed back beyond the count (tokens of a failed line are
    // released, not left in the vector).
    for (uint32_t i = count; i < TARVOCON_MAX_TOKENS; i++)
        EXPECT_EQ(vector[i], nullptr) << "slot " << i;
    return out;
}

const char kBadFormat[] = "[Tarvocon] Badly formatted command\n";
const char kMismatch[] = "[Tarvocon] Mismatched quotes in command\n";
const char kExcess[] = "[Tarvocon] Excess tokens in command string\n";

struct Case {
    const char *line;
    int mode;
    int result;
    std::vector<std::string> tokens;
    const char *message;
};

const Case kCases[] = {
    {"", 1, 0, {}, ""},
    {"", 0, 0, {}, ""},
    {"get \"a b\" c", 1, 0, {"get", "a b", "c"}, ""},
    {"get \"a b\" c", 0, 0, {"get", "a b", "c"}, ""},
    {"set x string \"say \\\"hi\\\"\"", 1, 0, {"set", "x", "string", "say \"hi\""}, ""},
    // A line ending in a closed quote is not inside a word: completion gets
    // an empty last token, as for the line "".
    {"set x string \"say \\\"hi\\\"\"", 0, 0, {"set", "x", "string", "say \"hi\"", ""}, ""},
    {"get a\"b", 1, 1, {}, kBadFormat},
    {"get a\"b", 0, 1, {}, kBadFormat},
    {"get \"ab", 1, 1, {}, kMismatch},
    {"get \"ab", 0, 0, {"get", "ab", ""}, ""},
    {"\"\"", 1, 0, {""}, ""},
    {"\"\"", 0, 0, {"", ""}, ""},
    {"get x ", 1, 0, {"get", "x"}, ""},
    {"get x ", 0, 0, {"get", "x", ""}, ""},
    {"\"ab\"cd", 1, 0, {"ab", "cd"}, ""},
    {"\"ab\"cd", 0, 0, {"ab", "cd"}, ""},
    {"get\tx", 1, 0, {"get\tx"}, ""},
    {"get\tx", 0, 0, {"get\tx"}, ""},
    // Runs of blanks give nothing; a blank-only line has no token.
    {"  get   x  ", 1, 0, {"get", "x"}, ""},
    {"   ", 1, 0, {}, ""},
    {"   ", 0, 0, {""}, ""},
    // A backslash outside quotes is an ordinary character.
    {"a\\b c\\", 1, 0, {"a\\b", "c\\"}, ""},
    // Inside quotes it takes the next character, a blank or quote included.
    {"\"a\\ b\\\\\"", 1, 0, {"a b\\"}, ""},
    // A backslash ending an open quote: the string ends there.
    {"get \"ab\\", 1, 1, {}, kMismatch},
    {"get \"ab\\", 0, 0, {"get", "ab", ""}, ""},
    // Quoted tokens right after each other, and an empty one in the middle.
    {"\"a\"\"b\" \"\" c", 1, 0, {"a", "b", "", "c"}, ""},
    // A quote in the middle of a second word, after good tokens.
    {"get x y\"z\"", 1, 1, {}, kBadFormat},
    // A word directly after a closing quote, then a quote inside that word.
    {"\"a\"b\"c\"", 1, 1, {}, kBadFormat},
};

TEST(Tokenize, Table) {
    for (const auto &c : kCases) {
        SCOPED_TRACE(std::string("line [") + c.line + "] mode " +
                     std::to_string(c.mode));
        TokenizeResult r = Tokenize(c.line, c.mode);
        EXPECT_EQ(r.result, c.result);
        EXPECT_EQ(r.tokens, c.tokens);
        EXPECT_EQ(r.messages, c.message);
    }
}

std::string Words(int n) {
    std::string line;
    for (int i = 0; i < n; i++) line.append("w").append(std::to_string(i)).append(" ");
    return line;
}

TEST(Tokenize, VectorLimit) {
    struct {
        std::string line;
        int mode;
        int result;
        size_t count;
        const char *message;
    } cases[] = {
        {Words(32), 1, 0, 32, ""},
        {Words(33), 1, 1, 0, kExcess},
        {Words(40), 1, 1, 0, kExcess},
        // 32 words and a trailing blank: completion's empty token is one too
        // many.
        {Words(32), 0, 1, 0, kExcess},
        {Words(31), 0, 0, 32, ""},
        // Quoted tokens count the same.
        {Words(32) + "\"x\"", 1, 1, 0, kExcess},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.line);
        TokenizeResult r = Tokenize(c.line, c.mode);
        EXPECT_EQ(r.result, c.result);
        EXPECT_EQ(r.tokens.size(), c.count);
        EXPECT_EQ(r.messages, c.message);
    }
}

TEST(Tokenize, LongTokensAreCutAtTheBuffer) {
    // A word and a quoted token of 1500 characters keep their first 1023.
    std::string word(1500, 'w');
    for (const std::string &line :
         {"get " + word, "get \"" + word + "\"", "get \"" + word}) {
        SCOPED_TRACE(line.substr(0, 8));
        TokenizeResult r = Tokenize(line, 0);
        ASSERT_EQ(r.result, 0);
        ASSERT_GE(r.tokens.size(), 2u);
        EXPECT_EQ(r.tokens[1], std::string(1023, 'w'));
    }
    TokenizeResult r = Tokenize(std::string(1023, 'x') + " y", 1);
    ASSERT_EQ(r.result, 0);
    EXPECT_EQ(r.tokens, (std::vector<std::string>{std::string(1023, 'x'), "y"}));
}

TEST(RemoveCr, CutsAtTheFirstNewline) {
    struct {
        const char *in;
        const char *out;
    } cases[] = {
        {"get x\n", "get x"}, {"a\nb\n", "a"}, {"\n", ""},
        {"no newline", "no newline"}, {"a\rb\n", "a\rb"},
    };
    for (const auto &c : cases) {
        std::string buffer = c.in;
        tarvocon_remove_cr(buffer.data());
        EXPECT_STREQ(buffer.c_str(), c.out) << c.in;
    }
}

} // namespace
