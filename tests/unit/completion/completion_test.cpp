// The grammar walk through its three entry operations, on a real bind to a
// private data directory holding a small tree:
//   /cfg/system/hostname  string      /cfg/system/host_id  uint32
//   /cfg/limits/max       int8        /data/a b c          string
//   /data/x               uint64
#include <stdlib.h>

#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "tarvocon.h"
#include "tarvocon_completion_clone/completion.h"
#include "test_helpers.h"

namespace {

using testing::internal::CaptureStderr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStderr;
using testing::internal::GetCapturedStdout;

const int NO_MATCH = COMPLETION_ERR_NO_MATCH;
const int AMBIGUOUS = COMPLETION_ERR_AMBIGUOUS;
const int INVALID = COMPLETION_ERR_INVALID;
const std::string EXCESS = "[Tarvocon] Excess tokens in command string\n";

// What one entry operation gave: its code, its line (or none), the output.
struct Outcome {
    int code = -1;
    bool has_line = false;
    std::string line, out, err;
};

// A "?" line as the console prints it.
std::string Row(const std::string &display, const std::string &help)
{
    char row[256];
    snprintf(row, sizeof row, "  %-20s      %s\n", display.c_str(), help.c_str());
    return row;
}

std::string Rows(const std::vector<std::pair<std::string, std::string>> &rows)
{
    std::string text;
    for (const auto &[display, help] : rows)
        text += Row(display, help);
    return text;
}

// A list command of n tokens.
std::string Words(int n)
{
    std::string line = "list /a";
    for (int i = 2; i < n; i++)
        line += " -next";
    return line;
}

class Completion : public testing::Test {
protected:
    void SetUp() override
    {
        setenv("TARVO_DATA_DIR", dir_.path().c_str(), 1);
        ASSERT_EQ(_tarvo_bind(&tarvocon_bind_handle, "/", 0), 0);
        Create("/cfg/system/hostname", TARVO_DATATYPE_STRING, "node-1", 7);
        uint32_t id = 1;
        Create("/cfg/system/host_id", TARVO_DATATYPE_UINT32, &id, 4);
        int8_t max = 8;
        Create("/cfg/limits/max", TARVO_DATATYPE_INT8, &max, 1);
        Create("/data/a b c", TARVO_DATATYPE_STRING, "v", 2);
        uint64_t x = 0;
        Create("/data/x", TARVO_DATATYPE_UINT64, &x, 8);
    }
    void TearDown() override
    {
        _tarvo_unbind(tarvocon_bind_handle);
        tarvocon_bind_handle = nullptr;
    }
    static void Create(const char *path, tarvo_item_datatype_td datatype,
                       const void *value, uint32_t length)
    {
        ASSERT_EQ(tarvo_item_create(tarvocon_bind_handle, path, datatype, value,
                                    length, 0, 0),
                  0)
            << path;
    }

    // Runs one operation on a copy of the line.
    template <typename F> static Outcome Run(const std::string &line, F operation)
    {
        std::string typed = line;
        char *text = nullptr;
        Outcome outcome;
        CaptureStdout();
        CaptureStderr();
        outcome.code = operation(typed.data(), &text);
        outcome.err = GetCapturedStderr();
        outcome.out = GetCapturedStdout();
        if (text != nullptr) {
            outcome.has_line = true;
            outcome.line = text;
            free(text);
        }
        return outcome;
    }
    static Outcome Complete(const std::string &line)
    {
        return Run(line, completion_complete_line);
    }
    static Outcome Expand(const std::string &line)
    {
        return Run(line, completion_expand_line);
    }
    static Outcome Help(const std::string &line)
    {
        return Run(line, [](char *typed, char **) { return completion_print_help(typed); });
    }

private:
    tarvo::test::TempDir dir_{"completion"};
};

TEST_F(Completion, TabCompletesAsFarAsTheCandidatesAgree)
{
    struct {
        std::string line;
        int code;
        const char *completed; // null: no line handed back
        std::string err = "";
    } cases[] = {
        // Keywords: the common part, no blank added.
        {"l", 0, "l"},
        {"li", 0, "list"},
        {"get", 0, "get"}, // get, get_inh, getitems
        {"cfgmgr_m", 0, "cfgmgr_merge_d"},
        {"xyz", 0, "xyz"},
        // Paths, listed from the database under the typed directory.
        {"list /cf", 0, "list /cfg"},
        {"list /cfg/s", 0, "list /cfg/system"},
        {"get /cfg/system/h", 0, "get /cfg/system/host"},
        {"get /cfg/system/hostname", 0, "get /cfg/system/hostname"},
        {"cd cfg/l", 0, "cd cfg/limits"},
        {"get /nosuch/x", 0, "get /nosuch/x"},
        {"get /cfg/zzz", 0, "get /cfg/zzz"},
        // A candidate holding a blank is left in an open quote; finished
        // tokens holding one come back quoted, empty ones as "".
        {"get /data/a", 0, "get \"/data/a b c"},
        // An open quote counts as a finished word: TAB goes on after it.
        {"get \"/data/a", 0, "get /data/a "},
        {"get \"/data/a b c", 0, "get \"/data/a b c\" "},
        {"get \"/data/a b c\" ", 0, "get \"/data/a b c\" "},
        {"get \"\" ", 0, "get \"\" "},
        // Options and datatypes.
        {"list /cfg/ -", 0, "list /cfg/ -"},
        {"list /cfg/ -rev", 0, "list /cfg/ -reverse"},
        {"get /data/x ui", 0, "get /data/x uint"},
        {"starttrans -i", 0, "starttrans -initial_load"},
        // Nothing left to complete: the line as it was.
        {"endbulk ", 0, "endbulk "},
        {"ls /a -bogus", 0, "ls /a -bogus"},
        // Refusals: the line is given up.
        {"", INVALID, nullptr},
        {"get a\"b", 1, nullptr, "[Tarvocon] Badly formatted command\n"},
        {Words(32) + " ", 1, nullptr, EXCESS},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.line);
        Outcome outcome = Complete(c.line);
        EXPECT_EQ(outcome.code, c.code);
        EXPECT_EQ(outcome.has_line, c.completed != nullptr);
        if (c.completed != nullptr) {
            EXPECT_EQ(outcome.line, c.completed);
        }
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(outcome.err, c.err);
    }
}

TEST_F(Completion, HelpListsWhatMayComeNext)
{
    const std::string list_options = Rows({
        {"-reverse", "list in reverse order"},
        {"-start", "specify a start point"},
        {"-num", "specify a maximum list size"},
        {"-chunk", "specify a list chunk size"},
        {"-next", "retrieve the next item in list"},
        {"-expand", "Only for concise binds. Expand database"},
        {"-bulk", "only include items from bulk buffer"},
        {"-nobulk", "do not include items from bulk buffer"},
    });
    const std::string datatypes = Rows({
        {"int8", "signed 8 bits integer"},
        {"int16", "signed 16 bits integer"},
        {"int32", "signed 32 bits integer"},
        {"int64", "signed 64 bits integer"},
        {"uint8", "unsigned 8 bits integer"},
        {"uint16", "unsigned 16 bits integer"},
        {"uint32", "unsigned 32 bits integer"},
        {"uint64", "unsigned 64 bits integer"},
        {"string", "null terminated string"},
        {"packed", "packed item"},
        {"bag", "bag"},
    });
    struct {
        std::string line;
        int code;
        std::string out, err = "";
    } cases[] = {
        {"list /cfg/ -", 0, list_options},
        {"ls /cfg/ -rev -", 0, list_options},
        {"get /data/x ", 0, datatypes},
        {"get /data/x string ", 0,
         Rows({{"-bulk", "only include items from bulk buffer"},
               {"-nobulk", "do not include items from bulk buffer"}})},
        {"starttrans ", 0,
         Rows({{"-b", "buffer trans opertions until commit"},
               {"-apply_levels", "use apply levels"},
               {"-initial_load", "simulate initial load of config"}})},
        {"g", 0,
         Rows({{"get", "get item"}, {"get_inh", "get inheritance"},
               {"getitems", "get items"}})},
        {"cfgmgr_endbulk ", 0,
         Rows({{"WORD", "name of the file to create"}, {"-atomic", "perform atomically"}})},
        {"set /x int8 ", 0, Row("NUMBER", "arbitrary number")},
        // Paths: the names under the typed directory with datatype labels.
        {"get ", 0, Rows({{"cfg", "[dir]"}, {"data", "[dir]"}})},
        {"get /cfg/system/", 0,
         Rows({{"/cfg/system/host_id", "[uint32]"}, {"/cfg/system/hostname", "[string]"}})},
        {"list /data/a", 0, Row("/data/a b c", "[string]")},
        {"getitems /cfg/ /cfg/system/hostname /cfg/l", 0, Row("/cfg/limits", "[dir]")},
        {"get /cfg/zzz", 0, Row("WORD", "path of Tarvo item")},
        {"cd /cfg/zzz", 0, Row("WORD", "path of Tarvo directory")},
        // A listing that fails shows nothing.
        {"get /nosuch/", 0, ""},
        // Nothing can follow, or the line does not fit the grammar.
        {"endbulk ", 0, ""},
        {"get /a bogus ", NO_MATCH, ""},
        {"get \"ab", 1, "", "[Tarvocon] Mismatched quotes in command\n"},
        {Words(31) + " ", 0, list_options},
        {Words(32) + " ", 1, "", EXCESS},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.line);
        Outcome outcome = Help(c.line);
        EXPECT_EQ(outcome.code, c.code);
        EXPECT_EQ(outcome.out, c.out);
        EXPECT_EQ(outcome.err, c.err);
    }
}

TEST_F(Completion, EnteredLinesHaveTheirKeywordsExpanded)
{
    std::string long_path = "/" + std::string(600, 'p');
    struct {
        std::string line;
        int code;
        std::string command; // the line as typed unless expanded
        std::string err = "";
    } cases[] = {
        {"li /a -rev", 0, "list /a -reverse"},
        {"q", 0, "quit"},
        {"get /a", 0, "get /a"},
        {"get /a str -nob", 0, "get /a string -nobulk"},
        {"cd /x -o 5", 0, "cd /x -o 5"},
        {"cre \"a b\" str \"\"", 0, "create \"a b\" string \"\""},
        {"cre " + long_path + " str v", 0, "create " + long_path + " string v"},
        // A free word takes whatever fits there, option words included.
        {"cfgmgr_endbulk -at", 0, "cfgmgr_endbulk -at"},
        // Not matched: the line runs as typed.
        {"ls /a -bogus", NO_MATCH, "ls /a -bogus"},
        {"GET /a", NO_MATCH, "GET /a"},
        {"get /a -bulk", NO_MATCH, "get /a -bulk"},
        {"starttrans -b 30", NO_MATCH, "starttrans -b 30"},
        {"edmnotify x uint32 set 1 2", NO_MATCH, "edmnotify x uint32 set 1 2"},
        {"e", AMBIGUOUS, "e"},
        {"set /a ui 5", AMBIGUOUS, "set /a ui 5"},
        // The rebuilt line quotes a token holding a blank and escapes
        // nothing: an inner quote comes back bare, a lone blank unquoted.
        {"set x str \"say \\\"hi\\\"\"", 0, "set x string \"say \"hi\"\""},
        {"set x str \" \"", 0, "set x string  "},
        // No command at all.
        {"", INVALID, ""},
        {"   ", INVALID, ""},
        {Words(33), 1, "", EXCESS},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.line);
        Outcome outcome = Expand(c.line);
        EXPECT_EQ(outcome.code, c.code);
        EXPECT_EQ(outcome.has_line, !c.command.empty());
        EXPECT_EQ(outcome.line, c.command);
        EXPECT_EQ(outcome.err, c.err);
    }
}

} // namespace
