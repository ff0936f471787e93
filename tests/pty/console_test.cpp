// The console at a terminal: the initial bind question, prompt tags, Ctrl-C
// and end of input at the prompt, a long typed line, output through the
// pager "more" (short, paged to its end, one pager per command), and
// quitting the pager while a command is still writing to it.
#include <gtest/gtest.h>

#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "console_pty.h"

namespace {

using tarvo::test::PtySession;

// The processes (zombies included) whose parent is `parent`.
std::vector<pid_t> ChildrenOf(pid_t parent) {
    std::vector<pid_t> children;
    for (const auto &entry : std::filesystem::directory_iterator("/proc")) {
        std::string name = entry.path().filename();
        if (name.find_first_not_of("0123456789") != std::string::npos)
            continue;
        std::ifstream stat(entry.path() / "stat");
        std::string text((std::istreambuf_iterator<char>(stat)),
                         std::istreambuf_iterator<char>());
        size_t close = text.rfind(')');
        if (close == std::string::npos)
            continue;
        char state;
        int ppid;
        if (sscanf(text.c_str() + close + 1, " %c %d", &state, &ppid) == 2 &&
            ppid == parent)
            children.push_back(std::stoi(name));
    }
    return children;
}

class ConsoleAtTerminal : public tarvo::test::ConsoleAtPty {
protected:
    // Runs a command file with the console (no terminal) to prepare data.
    void RunFile(const std::string &commands) {
        std::string file = dir_.path() + "/prepare.cmd";
        std::ofstream(file) << commands;
        std::string line = "env TARVO_DATA_DIR=" + dir_.path() + "/data HOME=" + dir_.path() +
                           " " + TARVOCON_CONSOLE + " -f " + file + " >/dev/null 2>&1";
        ASSERT_EQ(system(line.c_str()), 0);
    }
};

TEST_F(ConsoleAtTerminal, BindQuestionAnsweredWithCfg) {
    auto session = StartAt("cfg");
    ASSERT_TRUE(session);
    ASSERT_TRUE(session->wait_for(
        "WARNING: Any modification(create/set/delete) on /cfg namespace"))
        << session->output();
    ASSERT_TRUE(session->wait_for("Enter 'help' or '?' for help"));
    ASSERT_TRUE(session->wait_for("tarvocon:/cfg/> ")) << session->output();
    Quit(*session);
}

TEST_F(ConsoleAtTerminal, PromptTags) {
    std::string sixty = std::string(59, 'p') + "/";
    struct {
        std::vector<std::string> args;
        const char *answer; // null: no question is asked
        std::string prompt;
    } cases[] = {
        {{}, "", "tarvocon:/> "},
        {{"-m"}, "a/b", "tarvocon:[m]/a/b/> "},
        {{"-l"}, "x/", "tarvocon:[l]/x/> "},
        {{"-a"}, "", "tarvocon:[a]/> "},
        {{"-n", "-i"}, "", "tarvocon:[n]/> "},
        {{"-c"}, nullptr, "tarvocon:[c]> "},
        // "/" and 59 characters and "/": the prompt shows the last 50.
        {{}, sixty.c_str(), "tarvocon:$" + sixty.substr(10) + "> "},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.prompt);
        auto session = c.answer ? StartAt(c.answer, c.args) : Start(c.args);
        ASSERT_TRUE(session);
        ASSERT_TRUE(session->wait_for(c.prompt)) << session->output();
        Quit(*session);
    }
}

TEST_F(ConsoleAtTerminal, CtrlCDiscardsTheLine) {
    auto session = StartAt("");
    ASSERT_TRUE(session);
    ASSERT_TRUE(session->wait_for("tarvocon:/> "));
    session->send("get /half/typed");
    session->send("\x03");
    ASSERT_TRUE(session->wait_for("tarvocon:/> ")) << session->output();
    EXPECT_TRUE(session->running());
    // The discarded text does not come back with the next line.
    session->send("bogus\r");
    ASSERT_TRUE(session->wait_for("Unrecognised command")) << session->output();
    ASSERT_TRUE(session->wait_for("tarvocon:/> "));
    EXPECT_EQ(session->output().find("While fetching item"), std::string::npos);
    Quit(*session);
}

TEST_F(ConsoleAtTerminal, EndOfInputQuits) {
    auto session = StartAt("a");
    ASSERT_TRUE(session);
    ASSERT_TRUE(session->wait_for("tarvocon:/a/> "));
    session->send("\x04");
    auto status = session->wait_exit();
    ASSERT_TRUE(status.has_value()) << session->output();
    EXPECT_TRUE(status->exited);
    EXPECT_EQ(status->code, 0);
}

TEST_F(ConsoleAtTerminal, CtrlCAtTheBindQuestionEndsTheConsole) {
    auto session = Start({});
    ASSERT_TRUE(session);
    ASSERT_TRUE(session->wait_for("Please enter initial bind point>/"));
    session->send("\x03");
    auto status = session->wait_exit();
    ASSERT_TRUE(status.has_value()) << session->output();
    EXPECT_TRUE(status->exited);
    EXPECT_EQ(status->code, 0);
    EXPECT_EQ(session->output().find("Enter 'help'"), std::string::npos);
}

TEST_F(ConsoleAtTerminal, LongTypedLineRunsItsFirst1023Characters) {
    auto session = StartAt("", {"-v"});
    ASSERT_TRUE(session);
    ASSERT_TRUE(session->wait_for("tarvocon:/> "));
    std::string typed = "cd /" + std::string(1496, 'a');
    session->send(typed + "\r");
    std::string path = "/";
    path.append(1019, 'a').append("/");
    ASSERT_TRUE(session->wait_for("binding to '" + path + "' with options 0x0"))
        << session->output().substr(0, 400);
    ASSERT_TRUE(session->wait_for("tarvocon:$" + path.substr(path.size() - 50) + "> "));
    Quit(*session);
}

// Output longer than the screen pages; the console waits for the pager and
// shows no prompt while it runs, and paging to the end brings the prompt
// back with no extra key ("more" ends at the end of its input).
TEST_F(ConsoleAtTerminal, PagingToTheEndReturnsToThePrompt) {
    std::string commands = "/\n";
    for (int i = 0; i < 60; i++)
        commands += "create /many/i" + std::to_string(100 + i) + " uint8 1\n";
    for (int i = 0; i < 10; i++)
        commands += "create /ten/t" + std::to_string(i) + " uint8 1\n";
    RunFile(commands);
    struct {
        const char *command;
        std::vector<std::string> env;
        std::vector<std::string> shown; // somewhere in the pages
    } cases[] = {
        {"help", {}, {"quit or q or exit", "  uint64"}},
        {"ls /many", {}, {"'i100'", "'i159'"}},
        // The user's own options still hold: ten lines fit the screen but
        // not pages of four.
        {"ls /ten", {"MORE=-n 4"}, {"'t0'", "'t9'"}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.command);
        auto session = StartAt("", {}, c.env);
        ASSERT_TRUE(session);
        ASSERT_TRUE(session->wait_for("tarvocon:/> "));
        session->send(std::string(c.command) + "\r");
        ASSERT_TRUE(session->wait_for("--More--")) << session->output();
        session->settle();
        EXPECT_EQ(session->take().find("tarvocon:/> "), std::string::npos);
        int seen = 0;
        for (int page = 0; page < 20 && seen == 0; page++) {
            session->send(" ");
            seen = session->wait_for_any({"--More--", "tarvocon:/> "});
        }
        ASSERT_EQ(seen, 1) << session->output();
        EXPECT_EQ(session->output().find("(END)"), std::string::npos);
        for (const std::string &text : c.shown)
            EXPECT_NE(session->output().find(text), std::string::npos) << text;
        EXPECT_EQ(ChildrenOf(session->pid()), std::vector<pid_t>{});
        Quit(*session);
    }
}

// Output that fits the screen is printed and the prompt comes back at once;
// the next line typed reaches the console, not the pager. getitems shows
// its items through one pager (the data list display writes to the
// command's own), and no pager is left running afterwards.
TEST_F(ConsoleAtTerminal, ShortOutputReturnsAtOnce) {
    RunFile("/\ncreate /two/a uint32 7\ncreate /two/b string bee\n");
    struct {
        const char *command;
        std::vector<std::string> shown;
    } cases[] = {
        {"ls /two", {"'a'", "'b'"}},
        {"getitems /two/ a b", {"'a'", "(0x00000007)", "'b' \"bee\""}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.command);
        auto session = StartAt("");
        ASSERT_TRUE(session);
        ASSERT_TRUE(session->wait_for("tarvocon:/> "));
        session->send(std::string(c.command) + "\r");
        for (const std::string &text : c.shown)
            ASSERT_TRUE(session->wait_for(text)) << session->output();
        ASSERT_TRUE(session->wait_for("tarvocon:/> ")) << session->output();
        EXPECT_EQ(ChildrenOf(session->pid()), std::vector<pid_t>{});
        session->send("get /two/b\r");
        ASSERT_TRUE(session->wait_for("'/two/b' \"bee\"")) << session->take();
        ASSERT_TRUE(session->wait_for("tarvocon:/> ")) << session->take();
        // Each item was shown once, by one pager.
        std::string all = session->output();
        EXPECT_EQ(all.find("'a'"), all.rfind("'a'")) << all;
        Quit(*session);
    }
}

TEST_F(ConsoleAtTerminal, QuittingThePagerEarlyAbandonsTheCommand) {
    // 300 values of 900 characters: far more than a pipe holds, so the
    // console is still writing when the pager is quit.
    std::string commands = "/\n";
    std::string value(900, 'v');
    for (int i = 0; i < 300; i++)
        commands += "create /big/s" + std::to_string(1000 + i) + " string " + value + "\n";
    RunFile(commands);
    // Batches of 200: a listing that went on after the pager ended would
    // finish its first batch and then ask whether to fetch the rest.
    std::ofstream(dir_.path() + "/data/settings") << "batch_entries 200\n";

    // Leak detection stays on: the abandoned listing's batch is released by
    // the loop after the jump.
    auto session = StartAt("");
    ASSERT_TRUE(session);
    ASSERT_TRUE(session->wait_for("tarvocon:/> "));
    session->send("datalist /big/\r");
    ASSERT_TRUE(session->wait_for("--More--")) << session->output().substr(0, 2000);
    session->send("q");
    ASSERT_TRUE(session->wait_for("tarvocon:/> ")) << session->take();
    EXPECT_TRUE(session->running());
    // The next command works normally, and the abandoned one left nothing
    // behind that prints later: no more values, no "more" question.
    session->send("cd /big\r");
    ASSERT_TRUE(session->wait_for("tarvocon:/big/> ")) << session->take();
    session->settle();
    std::string after = session->take();
    EXPECT_EQ(after.find("vvvv"), std::string::npos);
    EXPECT_EQ(session->output().find("more items are available"), std::string::npos)
        << after;
    // The pager was reaped: the console has no child, running or zombie.
    EXPECT_EQ(ChildrenOf(session->pid()), std::vector<pid_t>{});
    Quit(*session);
}

} // namespace
