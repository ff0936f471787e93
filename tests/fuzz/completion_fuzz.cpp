// Fuzz target: the three services of the line reader over any typed line,
// on a bind to a small tree (so that path positions list real directories).
// Besides not crashing, hanging or leaking:
// - each service answers 0, the tokenizer's 1 or one of the engine's codes;
// - TAB always gives back a line; Enter gives back one on 0, no match and
//   ambiguity, and nothing otherwise;
// - an expansion keeps the number of tokens, and expanding it again gives
//   the same line: full keywords are a fixed point. The line is written
//   back with no escapes and a lone blank unquoted, so this holds for
//   lines whose tokens hold no double quote or backslash and are not a
//   single blank.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <filesystem>
#include <string>

#include "tarvocon_completion_clone/completion.h"
#include "platform/tarvo.h"
#include "tarvocon.h"

static void check(bool condition)
{
    if (!condition)
        abort();
}

static std::string data_dir;

static void remove_data_dir()
{
    if (tarvocon_bind_handle != nullptr)
        _tarvo_unbind(tarvocon_bind_handle);
    std::error_code ignored;
    std::filesystem::remove_all(data_dir, ignored);
}

static void create(const char *path, tarvo_item_datatype_td datatype, const void *value,
                   uint32_t length)
{
    check(tarvo_item_create(tarvocon_bind_handle, path, datatype, value, length, 0, 0) == 0);
}

// A tree with names that need quoting, a name that is a prefix of another
// and a directory deep enough for every path placeholder.
static void make_tree()
{
    char dir[] = "/tmp/completion_fuzz.XXXXXX";
    check(mkdtemp(dir) != nullptr);
    data_dir = dir;
    setenv("TARVO_DATA_DIR", dir, 1);
    check(_tarvo_bind(&tarvocon_bind_handle, "/", 0) == 0);
    atexit(remove_data_dir);
    const uint32_t number = 7;
    create("/cfg/system/hostname", TARVO_DATATYPE_STRING, "node", 5);
    create("/cfg/system/host", TARVO_DATATYPE_UINT32, &number, 4);
    create("/cfg/with blank/item", TARVO_DATATYPE_UINT32, &number, 4);
    create("/cfg/quote\"d/item", TARVO_DATATYPE_UINT32, &number, 4);
    create("/oper/a/b/c/d", TARVO_DATATYPE_UINT32, &number, 4);
    snprintf(tarvocon_bind_point, sizeof(tarvocon_bind_point), "/");
    // "?" prints its candidates; they are not what is checked here.
    check(freopen("/dev/null", "w", stdout) != nullptr);
}

static bool engine_code(int code)
{
    return code == 0 || code == 1 || code == COMPLETION_ERR_NO_MATCH ||
           code == COMPLETION_ERR_INVALID || code == COMPLETION_ERR_AMBIGUOUS;
}

// The number of tokens of a line, UINT32_MAX when the tokenizer refuses it;
// *plain tells whether the line can be written back token by token.
static uint32_t token_count(const char *line, bool *plain)
{
    char *tokens[TARVOCON_MAX_TOKENS] = {};
    uint32_t count = 0;
    *plain = false;
    if (tarvocon_tokenize(line, 1, tokens, &count) != 0)
        return UINT32_MAX;
    *plain = true;
    for (uint32_t i = 0; i < count; i++) {
        *plain = *plain && strpbrk(tokens[i], "\"\\") == nullptr && strcmp(tokens[i], " ") != 0;
        free(tokens[i]);
    }
    return count;
}

static void check_expansion(const std::string &typed)
{
    std::string line = typed;
    char *expanded = nullptr;
    int code = completion_expand_line(line.data(), &expanded);
    check(engine_code(code));
    const bool gives_line = code == 0 || code == COMPLETION_ERR_NO_MATCH ||
                            code == COMPLETION_ERR_AMBIGUOUS;
    check(gives_line == (expanded != nullptr));
    bool plain = false, ignored = false;
    const uint32_t typed_count = token_count(typed.c_str(), &plain);
    if (code == 0 && plain && strlen(expanded) < TARVOCON_LINE_SIZE) {
        std::string once = expanded;
        check(token_count(once.c_str(), &ignored) == typed_count);
        std::string again_line = once;
        char *again = nullptr;
        check(completion_expand_line(again_line.data(), &again) == 0);
        check(once == again);
        free(again);
    }
    free(expanded);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (data_dir.empty())
        make_tree();
    // A typed line: what the reader hands over ends at its first NUL or
    // newline and holds at most a line buffer's worth.
    std::string typed(reinterpret_cast<const char *>(data), size);
    typed = typed.substr(0, strnlen(typed.c_str(), typed.size()));
    typed = typed.substr(0, typed.find('\n'));
    if (typed.size() >= TARVOCON_LINE_SIZE)
        typed.resize(TARVOCON_LINE_SIZE - 1);

    std::string line = typed;
    char *completed = nullptr;
    int code = completion_complete_line(line.data(), &completed);
    check(engine_code(code));
    check((code == 0) == (completed != nullptr));
    free(completed);

    line = typed;
    check(engine_code(completion_print_help(line.data())));

    check_expansion(typed);
    return 0;
}
