// The pseudo-terminal harness itself: the screen model, exit statuses,
// start failures and clean-up of everything the child started.

#include <gtest/gtest.h>

#include <pty_session.h>

#include <csignal>
#include <fstream>
#include <unistd.h>

namespace {

using tarvo::test::PtyOptions;
using tarvo::test::PtySession;
using tarvo::test::render_screen;

TEST(ScreenModel, ReplaysWhatATerminalWouldShow) {
    struct Case { const char *name; std::string output; std::vector<std::string> rows; int cursor; };
    const Case cases[] = {
        {"lines", "one\r\ntwo\r\n", {"one", "two", "", ""}, 2},
        {"carriage return overwrites", "abcdef\rXY", {"XYcdef", "", "", ""}, 0},
        {"backspace and erase to end", "abcdef\b\b\b\x1b[K", {"abc", "", "", ""}, 0},
        {"wrap at the margin", "0123456789ab", {"0123456789", "ab", "", ""}, 1},
        {"no wrap until the next character", "0123456789\r\n", {"0123456789", "", "", ""}, 1},
        {"cursor up and clear below", "a\r\nb\r\nc\x1b[2A\r\x1b[J", {"", "", "", ""}, 0},
        {"cursor position", "\x1b[3;4HX\x1b[1;1HY", {"Y", "", "   X", ""}, 0},
        {"column and move right", "abc\x1b[1GZ\x1b[2CQ", {"ZbcQ", "", "", ""}, 0},
        {"delete and insert characters", "abcdef\r\x1b[2P\x1b[2@", {"  cdef", "", "", ""}, 0},
        {"scrolls at the bottom", "1\r\n2\r\n3\r\n4\r\n5", {"2", "3", "4", "5"}, 3},
        {"colours and modes leave no text", "\x1b[1;31mred\x1b[0m\x1b[?1h\x1b=", {"red", "", "", ""}, 0},
        {"title sequence skipped", "\x1b]0;title\x07ok", {"ok", "", "", ""}, 0},
        {"tab stops", "a\tb", {"a       b", "", "", ""}, 0},
    };
    for (const Case &c : cases) {
        int cursor = -1;
        EXPECT_EQ(render_screen(c.output, 4, 10, &cursor), c.rows) << c.name;
        EXPECT_EQ(cursor, c.cursor) << c.name;
    }
}

TEST(PtySession, RunsAProgramAtATerminal) {
    PtyOptions options;
    options.argv = {"sh", "-c", "tty -s && echo tty; stty size; echo \"$TERM $EXTRA\"; "
                                "read x; echo got:$x; exit 3"};
    options.env = {"EXTRA=yes"};
    options.rows = 30;
    options.cols = 100;
    std::string error;
    auto session = PtySession::start(options, &error);
    ASSERT_TRUE(session) << error;
    EXPECT_TRUE(session->wait_for("tty\r\n30 100\r\nxterm yes\r\n")) << session->output();
    session->send("hello\r");
    EXPECT_TRUE(session->wait_for("got:hello"));
    auto status = session->wait_exit();
    ASSERT_TRUE(status);
    EXPECT_TRUE(status->exited);
    EXPECT_EQ(status->code, 3);
    EXPECT_FALSE(session->wait_for("anything", std::chrono::milliseconds(50)));
}

TEST(PtySession, ReportsAProgramThatCannotStart) {
    PtyOptions options;
    options.argv = {"/nonexistent/program"};
    std::string error;
    EXPECT_FALSE(PtySession::start(options, &error));
    EXPECT_NE(error.find("No such file"), std::string::npos) << error;
    options.argv.clear();
    EXPECT_FALSE(PtySession::start(options, &error));
}

TEST(PtySession, WaitsFindSuccessiveOccurrences) {
    PtyOptions options;
    options.argv = {"sh", "-c", "echo mark 1; echo mark 2; echo end"};
    auto session = PtySession::start(options);
    ASSERT_TRUE(session);
    EXPECT_EQ(session->wait_for_any({"end", "mark"}), 1);
    EXPECT_TRUE(session->wait_for("mark"));
    EXPECT_TRUE(session->wait_for("end"));
    EXPECT_FALSE(session->wait_for("mark", std::chrono::milliseconds(100)));
    EXPECT_EQ(session->take(), "\r\n");
}

TEST(PtySession, ReportsTheSignalThatEndedTheChild) {
    PtyOptions options;
    options.argv = {"sh", "-c", "echo ready; kill -TERM $$; sleep 5"};
    auto session = PtySession::start(options);
    ASSERT_TRUE(session);
    auto status = session->wait_exit();
    ASSERT_TRUE(status);
    EXPECT_FALSE(status->exited);
    EXPECT_EQ(status->signal, SIGTERM);
}

TEST(PtySession, CleansUpTheChildAndWhatItStarted) {
    std::string pid_file = "/tmp/pty-session-test-" + std::to_string(getpid());
    pid_t grandchild = 0;
    {
        PtyOptions options;
        options.argv = {"sh", "-c", "sleep 60 & echo $! > " + pid_file + "; echo started; wait"};
        auto session = PtySession::start(options);
        ASSERT_TRUE(session);
        ASSERT_TRUE(session->wait_for("started"));
        std::ifstream(pid_file) >> grandchild;
        ASSERT_GT(grandchild, 0);
        EXPECT_EQ(kill(grandchild, 0), 0);
    }  // the session ends here with both processes still running
    unlink(pid_file.c_str());
    // The grandchild was sent SIGKILL; within moments it is a zombie of
    // init or gone.
    char state = 'R';
    for (int i = 0; i < 200 && state != 'Z' && state != 'X'; ++i) {
        std::ifstream stat("/proc/" + std::to_string(grandchild) + "/stat");
        std::string pid, name;
        if (!(stat >> pid >> name >> state))
            state = 'X';
        else if (state != 'Z')
            usleep(10000);
    }
    EXPECT_TRUE(state == 'Z' || state == 'X') << state;
}

} // namespace
