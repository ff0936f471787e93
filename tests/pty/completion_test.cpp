// TAB, "?" and keyword expansion at a real terminal: keywords and item
// paths completed in place, the help listings below the typed line with
// the line shown again, and abbreviated commands that run in full.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "console_pty.h"

namespace {

using tarvo::test::PtySession;

// "?" on an empty line: every command of the grammar, in its order.
const char HELP_ON_EMPTY_LINE[] =
    "  create                    create item\n"
    "  set                       set value of item\n"
    "  delete                    delete item/directory\n"
    "  delete_cond               conditionally delete item\n"
    "  rdlock                    read lock item/directory\n"
    "  wrlock                    write lock item/directory\n"
    "  unlock                    unlock item/directory\n"
    "  starttrans                start transaction\n"
    "  committrans               commit transaction\n"
    "  aborttrans                abort transaction\n"
    "  startbulk                 start bulk operation\n"
    "  endbulk                   end bulk operation\n"
    "  abortbulk                 abort bulk operation\n"
    "  remove_bulk_op            remove an operation from the bulk\n"
    "  bulk_num_ops              get the number of operations in tbe bulk\n"
    "  suspendvrfn               suspend verification\n"
    "  resumevrfn                resume verification\n"
    "  filerestore               restore item(s) from an XNF file\n"
    "  cfgmgr_delete             delete regular expression area in bulk\n"
    "  cfgmgr_add_deletes        add deletes to bulk\n"
    "  cfgmgr_adddiffs           add diffs from an XND file to bulk\n"
    "  cfgmgr_endbulk            end bulk operation and save diffs to an XND file\n"
    "  cfgmgr_merge_diffs        merge diffs in XND files and add to bulk\n"
    "  cfgmgr_merge_diffs_list      merge diffs in XND files and display\n"
    "  cfgmgr_merge_delta        merge base and delta XNF files\n"
    "  cfgmgr_restore_delta      merge and restore base and delta XNF files\n"
    "  copy                      copy an item, subtree or regular expression\n"
    "  get                       get item\n"
    "  get_inh                   get inheritance\n"
    "  match                     match item\n"
    "  verify                    verify item\n"
    "  cfgmgr_issu_end           end ISSU operation\n"
    "  ping                      ping\n"
    "  bind                      bind to directory\n"
    "  cd                        bind to directory\n"
    "  list                      list directory\n"
    "  ls                        list directory\n"
    "  datalist                  datalist of directory\n"
    "  iterate                   iterate over directory\n"
    "  errorslist                display errors list\n"
    "  settimeout                set timeout\n"
    "  dump                      display a hex dump of item\n"
    "  find                      find over directory\n"
    "  finddata                  data find over directory\n"
    "  eventfind                 event find over directory\n"
    "  filesave                  save item(s) to an XNF file\n"
    "  do                        enter a CLI command\n"
    "  config                    enter a config command\n"
    "  help                      print extended help\n"
    "  exit                      quit tarvocon\n"
    "  quit                      quit tarvocon\n"
    "  getitems                  get items\n";

std::string WithoutCarriageReturns(std::string text)
{
    std::string plain;
    for (char c : text) {
        if (c != '\r')
            plain += c;
    }
    return plain;
}

class CompletionAtTerminal : public tarvo::test::ConsoleAtPty {
protected:
    // A console bound to "/" whose store holds a few items, typed with
    // abbreviated commands (which must be expanded to run).
    std::unique_ptr<PtySession> StartWithItems()
    {
        auto session = StartAt("");
        if (!session || !session->wait_for(PROMPT))
            return nullptr;
        const char *lines[] = {
            "cre /cfg/system/hostname str node-1\r",
            "cre /cfg/system/host_id uint32 7\r",
            "cre /cfg/limits/max int8 8\r",
        };
        for (const char *line : lines) {
            session->send(line);
            EXPECT_TRUE(session->wait_for("successfully created")) << session->output();
            EXPECT_TRUE(session->wait_for(PROMPT));
        }
        return session;
    }

    // The line the cursor is on, once the screen is quiet.
    static std::string CurrentLine(PtySession &session)
    {
        session.settle();
        int row = 0;
        auto rows = tarvo::test::render_screen(session.output(), 24, 80, &row);
        return row >= 0 && row < (int)rows.size() ? rows[row] : "";
    }

    // Sends "?" and returns what was printed below the typed line, up to
    // the prompt that shows the line again.
    static std::string Help(PtySession &session)
    {
        size_t mark = session.output().size();
        session.send("?");
        EXPECT_TRUE(session.wait_for(PROMPT)) << session.output();
        std::string shown = WithoutCarriageReturns(session.output().substr(mark));
        size_t begin = shown.find('\n') + 1;
        return shown.substr(begin, shown.rfind(PROMPT) - begin);
    }

    // A command's output goes through the pager, which ends by itself at
    // the end of a short output and gives the prompt back.
    static void AwaitPrompt(PtySession &session)
    {
        ASSERT_TRUE(session.wait_for(PROMPT)) << session.output();
    }

    static constexpr const char *PROMPT = "tarvocon:/> ";
};

TEST_F(CompletionAtTerminal, HelpOnAnEmptyLineListsEveryCommandInOrder)
{
    auto session = StartAt("");
    ASSERT_TRUE(session);
    ASSERT_TRUE(session->wait_for(PROMPT));
    EXPECT_EQ(Help(*session), HELP_ON_EMPTY_LINE);
    EXPECT_EQ(CurrentLine(*session), "tarvocon:/>");
    Quit(*session);
}

TEST_F(CompletionAtTerminal, TabCompletesKeywordsAndPathsInPlace)
{
    auto session = StartWithItems();
    ASSERT_TRUE(session);
    struct {
        const char *keys;
        const char *line; // the line shown after the keys
    } steps[] = {
        {"li\t", "tarvocon:/> list"},
        {" /c\t", "tarvocon:/> list /cfg"},
        {"/sys\t", "tarvocon:/> list /cfg/system"},
        {"/ -rev\t", "tarvocon:/> list /cfg/system/ -reverse"},
    };
    for (const auto &step : steps) {
        SCOPED_TRACE(step.keys);
        session->send(step.keys);
        // TAB erases the line and draws the prompt and the new line.
        ASSERT_TRUE(session->wait_for(PROMPT)) << session->output();
        EXPECT_EQ(CurrentLine(*session), step.line) << session->output();
    }
    session->take();
    session->send("\r");
    ASSERT_TRUE(session->wait_for("'hostname'")) << session->output();
    ASSERT_TRUE(session->wait_for("'host_id'")) << session->output();
    AwaitPrompt(*session);

    // An item path; the common part of several names.
    session->send("get /cfg/system/h\t");
    ASSERT_TRUE(session->wait_for(PROMPT));
    EXPECT_EQ(CurrentLine(*session), "tarvocon:/> get /cfg/system/host");
    session->send("n\t");
    ASSERT_TRUE(session->wait_for(PROMPT));
    EXPECT_EQ(CurrentLine(*session), "tarvocon:/> get /cfg/system/hostname");
    session->send("\r");
    ASSERT_TRUE(session->wait_for("\"node-1\"")) << session->output();
    AwaitPrompt(*session);
    Quit(*session);
}

TEST_F(CompletionAtTerminal, HelpAfterACommandAndAtAPath)
{
    auto session = StartWithItems();
    ASSERT_TRUE(session);

    session->send("ls /cfg -");
    EXPECT_EQ(Help(*session),
              "  -reverse                  list in reverse order\n"
              "  -start                    specify a start point\n"
              "  -num                      specify a maximum list size\n"
              "  -chunk                    specify a list chunk size\n"
              "  -next                     retrieve the next item in list\n"
              "  -expand                   Only for concise binds. Expand database\n"
              "  -bulk                     only include items from bulk buffer\n"
              "  -nobulk                   do not include items from bulk buffer\n");
    // The typed line comes back for more typing.
    EXPECT_EQ(CurrentLine(*session), "tarvocon:/> ls /cfg -");
    session->send("\x03");
    ASSERT_TRUE(session->wait_for(PROMPT));

    session->send("get /cfg/system/");
    EXPECT_EQ(Help(*session),
              "  /cfg/system/host_id       [uint32]\n"
              "  /cfg/system/hostname      [string]\n");
    EXPECT_EQ(CurrentLine(*session), "tarvocon:/> get /cfg/system/");
    session->send("host_id ");
    EXPECT_EQ(Help(*session), std::string(
              "  int8                      signed 8 bits integer\n"
              "  int16                     signed 16 bits integer\n"
              "  int32                     signed 32 bits integer\n"
              "  int64                     signed 64 bits integer\n"
              "  uint8                     unsigned 8 bits integer\n"
              "  uint16                    unsigned 16 bits integer\n"
              "  uint32                    unsigned 32 bits integer\n"
              "  uint64                    unsigned 64 bits integer\n"
              "  string                    null terminated string\n"
              "  packed                    packed item\n"
              "  bag                       bag\n"));
    session->send("\x03");
    ASSERT_TRUE(session->wait_for(PROMPT));
    Quit(*session);
}

TEST_F(CompletionAtTerminal, AbbreviatedKeywordsRunInFull)
{
    auto session = StartWithItems();
    ASSERT_TRUE(session);
    // "se" alone is ambiguous (set, settimeout): it runs as typed.
    session->send("se /cfg/system/host_id uint32 9\r");
    ASSERT_TRUE(session->wait_for("Unrecognised command")) << session->output();
    ASSERT_TRUE(session->wait_for(PROMPT));
    // A line the grammar does not match runs as typed: "-cr" stays short.
    session->send("set /cfg/system/host_id ui32 9 -cr\r");
    ASSERT_TRUE(session->wait_for("Badly formatted command")) << session->output();
    ASSERT_TRUE(session->wait_for(PROMPT));
    session->send("set /cfg/system/host_id uint3 9 -cr\r");
    ASSERT_TRUE(session->wait_for("Item /cfg/system/host_id successfully modified"))
        << session->output();
    ASSERT_TRUE(session->wait_for(PROMPT));
    session->send("datal /cfg/system -rev\r");
    ASSERT_TRUE(session->wait_for("'hostname' \"node-1\"")) << session->output();
    ASSERT_TRUE(session->wait_for("'host_id'          9 (0x00000009)")) << session->output();
    AwaitPrompt(*session);
    session->send("q\r");
    auto status = session->wait_exit();
    ASSERT_TRUE(status.has_value()) << session->output();
    EXPECT_TRUE(status->exited);
    EXPECT_EQ(status->code, 0);
}

} // namespace
