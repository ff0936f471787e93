// Fuzz target: the tokenizer and path resolution. Besides not crashing or
// writing past their buffers, the tokenizer keeps to its limits (at most 32
// tokens of at most 1023 characters), strict mode never yields more tokens
// than completion mode, and a line without quotes splits exactly at blanks;
// a resolved path always fits its 1024-byte buffer and is absolute when the
// bind point is.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "tarvocon.h"

static void check(bool condition)
{
    if (!condition)
        abort();
}

static int tokenize(const std::string &line, int mode,
                    std::vector<std::string> &out)
{
    char *tokens[TARVOCON_MAX_TOKENS + 1] = {};
    tokens[TARVOCON_MAX_TOKENS] = (char *)"guard";
    uint32_t count = 0;
    int rc = tarvocon_tokenize(line.c_str(), mode, tokens, &count);
    check(rc == 0 || rc == 1);
    check(count <= TARVOCON_MAX_TOKENS);
    check(strcmp(tokens[TARVOCON_MAX_TOKENS], "guard") == 0);
    check(rc == 0 || count == 0);
    for (uint32_t i = 0; i < count; i++) {
        check(strlen(tokens[i]) <= TARVOCON_LINE_SIZE - 1);
        out.emplace_back(tokens[i]);
        free(tokens[i]);
    }
    return rc;
}

static std::vector<std::string> split_at_blanks(const std::string &line)
{
    std::vector<std::string> words;
    size_t i = 0;
    while (i < line.size()) {
        while (i < line.size() && line[i] == ' ')
            i++;
        size_t start = i;
        while (i < line.size() && line[i] != ' ')
            i++;
        if (i > start)
            words.push_back(line.substr(start, i - start));
    }
    return words;
}

static void check_tokenizer(const std::string &line)
{
    std::vector<std::string> strict, completion;
    int strict_rc = tokenize(line, 1, strict);
    int completion_rc = tokenize(line, 0, completion);
    if (strict_rc == 0 && completion_rc == 0)
        check(strict.size() <= completion.size());
    if (line.find('"') == std::string::npos) {
        std::vector<std::string> words = split_at_blanks(line);
        bool short_words = true;
        for (const auto &w : words)
            short_words = short_words && w.size() <= TARVOCON_LINE_SIZE - 1;
        if (words.size() <= TARVOCON_MAX_TOKENS && short_words) {
            check(strict_rc == 0);
            check(strict == words);
        } else if (words.size() > TARVOCON_MAX_TOKENS) {
            check(strict_rc == 1);
        }
    }
}

static void check_path(const std::string &bind, const std::string &local)
{
    snprintf(tarvocon_bind_point, sizeof(tarvocon_bind_point), "%s",
             bind.c_str());
    char buffer[TARVOCON_PATH_SIZE + 8];
    memset(buffer, 'G', sizeof(buffer));
    int rc = tarvocon_create_path(local.c_str(), buffer);
    for (size_t i = TARVOCON_PATH_SIZE; i < sizeof(buffer); i++)
        check(buffer[i] == 'G');
    check(rc == 0 || rc == 1);
    if (rc == 0) {
        size_t length = strnlen(buffer, TARVOCON_PATH_SIZE);
        check(length < TARVOCON_PATH_SIZE);
        if (!local.empty())
            check(length > 0 && buffer[length - 1] == '/');
        if (bind[0] == '/' || local[0] == '/')
            check(buffer[0] == '/');
    }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::string input(reinterpret_cast<const char *>(data), size);
    input = input.substr(0, strnlen(input.c_str(), input.size()));
    check_tokenizer(input);
    /* The first line is the bind point, the rest the path to resolve. */
    size_t newline = input.find('\n');
    std::string bind = newline == std::string::npos ? "/" : input.substr(0, newline);
    std::string local = newline == std::string::npos ? input : input.substr(newline + 1);
    if (bind.empty() || bind.back() != '/')
        bind += '/';
    if (bind[0] != '/')
        bind = "/" + bind;
    check_path(bind.substr(0, TARVOCON_PATH_SIZE - 1), local);
    return 0;
}
