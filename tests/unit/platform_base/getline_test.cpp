// The line editor at a terminal, through getline_driver under a
// pseudo-terminal, and without a terminal through pipes.

#include <platform/getline.h>

#include <gtest/gtest.h>

#include <pty_session.h>
#include <test_helpers.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

namespace {

using tarvo::test::PtyOptions;
using tarvo::test::PtySession;

const char *const UP = "\x1b[A";
const char *const LEFT = "\x1b[D";

class GetlineTest : public testing::Test {
protected:
    // Starts the driver with its results going to the log file.
    std::unique_ptr<PtySession> start(std::vector<std::string> steps, unsigned short cols = 80) {
        PtyOptions options;
        options.argv = {GETLINE_DRIVER, "--log", log_};
        options.argv.insert(options.argv.end(), steps.begin(), steps.end());
        options.cols = cols;
        std::string error;
        auto session = PtySession::start(options, &error);
        EXPECT_TRUE(session) << error;
        return session;
    }

    // Waits for the driver to finish and returns its log.
    std::string finish(PtySession &session) {
        auto status = session.wait_exit();
        EXPECT_TRUE(status.has_value()) << "driver still running; screen:\n" << session.output();
        if (status) {
            EXPECT_TRUE(status->exited) << "signal " << status->signal;
            EXPECT_EQ(status->code, 0);
        }
        std::ifstream in(log_);
        std::stringstream text;
        text << in.rdbuf();
        return text.str();
    }

    tarvo::test::TempDir dir_{"getline-test"};
    std::string log_ = dir_.path() + "/log";
};

TEST_F(GetlineTest, KeysThatEndALine) {
    std::string long_line;
    for (int i = 0; long_line.size() < 5000; ++i)
        long_line += "word" + std::to_string(i) + " ";
    struct Case { const char *name; std::string keys; std::string expected; };
    const Case cases[] = {
        {"enter", "abc\r", "[status=1 line=\"abc\" length=3]"},
        {"enter on empty line", "\r", "[status=1 line=\"\" length=0]"},
        {"newline key", "abc\n", "[status=1 line=\"abc\" length=3]"},
        {"tab", "get x\t", "[status=2 line=\"get x\" length=5]"},
        {"tab on empty line", "\t", "[status=2 line=\"\" length=0]"},
        {"help", "get ?", "[status=3 line=\"get \" length=4]"},
        {"help with cursor inside", std::string("abcd") + LEFT + LEFT + "?",
         "[status=3 line=\"abcd\" length=4]"},
        {"discard", "abc\x03", "[status=4 line=\"\" length=0]"},
        {"quoted question mark", "a\x16?b\r", "[status=1 line=\"a?b\" length=3]"},
        {"quoted tab", "a\x16\tb\r", "[status=1 line=\"a\\x09b\" length=3]"},
        {"editing keys", std::string("helo") + LEFT + "l\x05!\r",
         "[status=1 line=\"hello!\" length=6]"},
        {"delete under cursor", std::string("abc") + LEFT + LEFT + "\x04\r",
         "[status=1 line=\"ac\" length=2]"},
        {"end of input", "\x04", "[null]"},
        {"long line comes back whole", long_line + "\r",
         "[status=1 line=\"" + long_line + "\" length=" + std::to_string(long_line.size()) + "]"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        auto session = start({"read", "0", "modes"});
        ASSERT_TRUE(session);
        ASSERT_TRUE(session->wait_for("0> ")) << session->output();
        session->send(c.keys);
        // Every way out of a read leaves the terminal in its normal modes.
        EXPECT_EQ(finish(*session),
                  c.expected + "\n[modes icanon=1 echo=1 isig=1 intr=3]\n[done]\n");
    }
}

TEST_F(GetlineTest, DiscardShowsCaretCAndTheProcessReadsOn) {
    auto session = start({"loop", "0"});
    ASSERT_TRUE(session);
    ASSERT_TRUE(session->wait_for("0> "));
    session->send("half typed\x03");
    ASSERT_TRUE(session->wait_for("0> "));
    session->send("next\r");
    ASSERT_TRUE(session->wait_for("0> "));
    session->send("\x04");
    EXPECT_EQ(finish(*session), "[status=4 line=\"\" length=0]\n"
                                "[status=1 line=\"next\" length=4]\n[null]\n[done]\n");
    auto screen = session->screen();
    EXPECT_EQ(screen[0], "0> half typed^C");
    EXPECT_EQ(screen[1], "0> next");
    EXPECT_EQ(screen[2], "0>");
}

TEST_F(GetlineTest, PrefilledTextIsNeverTakenAsKeys) {
    struct Case { const char *prefill; std::string keys; const char *expected; };
    const Case cases[] = {
        {"get a?b\tc", "\r", "[status=1 line=\"get a?b\\x09c\" length=9]"},
        {"set x ", "1\r", "[status=1 line=\"set x 1\" length=7]"},
        {"abc", "\x7f\r", "[status=1 line=\"ab\" length=2]"},  // cursor at the end
        {"  blanks kept  ", "\r", "[status=1 line=\"  blanks kept  \" length=15]"},
        {"why?", "?", "[status=3 line=\"why?\" length=4]"},
        {"\x1f", "\r", "[status=1 line=\"\\x1f\" length=1]"},
        {"", "x\r", "[status=1 line=\"x\" length=1]"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.prefill);
        auto session = start({"prefill", "0", c.prefill});
        ASSERT_TRUE(session);
        ASSERT_TRUE(session->wait_for("0> ")) << session->output();
        session->send(c.keys);
        EXPECT_EQ(finish(*session), std::string(c.expected) + "\n[done]\n");
    }
}

TEST_F(GetlineTest, CompletionRedrawsTheLineInPlace) {
    // A short line and one that wraps over three rows of a narrow terminal.
    const std::string long_word(50, 'w');
    struct Case { std::string typed; unsigned short cols; };
    const Case cases[] = {{"get x", 80}, {"get " + long_word, 24}};
    for (const Case &c : cases) {
        SCOPED_TRACE(c.typed);
        std::string completed = c.typed + "yz ";
        auto session = start({"read", "0", "prefill", "0", completed, "read", "0"}, c.cols);
        ASSERT_TRUE(session);
        ASSERT_TRUE(session->wait_for("0> "));
        session->send(c.typed + "\t");
        ASSERT_TRUE(session->wait_for("0> "));
        session->settle();
        session->send("!\r");
        // The redraw of a wrapped line may print the prompt again: the next
        // prompt is the one after the echoed "!".
        ASSERT_TRUE(session->wait_for("yz !"));
        ASSERT_TRUE(session->wait_for("0> "));
        session->send("\x04");
        EXPECT_EQ(finish(*session),
                  "[status=2 line=\"" + c.typed + "\" length=" + std::to_string(c.typed.size()) +
                      "]\n[status=1 line=\"" + completed + "!\" length=" +
                      std::to_string(completed.size() + 1) + "]\n[null]\n[done]\n");
        // What is left on the screen: the completed line once, then the
        // next prompt; nothing of the line as it was before TAB.
        std::string expected = "0> " + completed + "!";
        std::string drawn;
        auto screen = session->screen();
        size_t row = 0;
        for (; row < screen.size() && drawn.size() < expected.size(); ++row)
            drawn += screen[row];
        EXPECT_EQ(drawn, expected);
        ASSERT_LT(row, screen.size());
        EXPECT_EQ(screen[row], "0>");
    }
}

TEST_F(GetlineTest, HelpLeavesTheLineAndGoesBelowIt) {
    auto session = start({"read", "0", "prefill", "0", "show "});
    ASSERT_TRUE(session);
    ASSERT_TRUE(session->wait_for("0> "));
    session->send("show ?");
    ASSERT_TRUE(session->wait_for("0> "));
    session->send("\r");
    EXPECT_EQ(finish(*session), "[status=3 line=\"show \" length=5]\n"
                                "[status=1 line=\"show \" length=5]\n[done]\n");
    auto screen = session->screen();
    EXPECT_EQ(screen[0], "0> show");
    EXPECT_EQ(screen[1], "0> show");
}

TEST_F(GetlineTest, EachReaderHasItsOwnHistory) {
    auto session = start({"--readers", "2", "read", "0", "read", "0", "read", "1", "read", "1",
                          "read", "0", "read", "0", "read", "1", "read", "1"});
    ASSERT_TRUE(session);
    auto line = [&](const char *prompt, const std::string &keys) {
        ASSERT_TRUE(session->wait_for(prompt)) << session->output();
        session->send(keys);
    };
    line("0> ", "first\r");
    line("0> ", "second\r");
    line("1> ", "other\r");
    line("1> ", "other\r");                          // a repeat is kept once
    line("0> ", std::string(UP) + UP + "\r");        // two back: first
    line("0> ", std::string(UP) + UP + "\r");        // first, second
    line("1> ", std::string(UP) + "\r");             // only reader 1's line
    line("1> ", std::string(UP) + UP + "\r");        // nothing older than "other"
    EXPECT_EQ(finish(*session),
              "[status=1 line=\"first\" length=5]\n[status=1 line=\"second\" length=6]\n"
              "[status=1 line=\"other\" length=5]\n[status=1 line=\"other\" length=5]\n"
              "[status=1 line=\"first\" length=5]\n[status=1 line=\"second\" length=6]\n"
              "[status=1 line=\"other\" length=5]\n[status=1 line=\"other\" length=5]\n[done]\n");
}

TEST_F(GetlineTest, YesOrNo) {
    struct Case {
        const char *name;
        const char *default_answer;
        const char *insist;
        std::vector<std::string> answers;
        int expected;
    };
    const Case cases[] = {
        // How answers are read is the same with and without a terminal
        // (GetlinePlain); here the keys only a terminal has.
        {"y", "0", "1", {"y\r"}, 1},
        {"empty takes default", "1", "0", {"\r"}, 1},
        {"tab and help ask again", "0", "1", {"\t", "?", "n\r"}, 0},
        {"ctrl-c is no", "1", "1", {"\x03"}, 0},
        {"end of input is no", "1", "1", {"\x04"}, 0},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        auto session = start({"yesno", "0", c.default_answer, c.insist});
        ASSERT_TRUE(session);
        for (const std::string &answer : c.answers) {
            ASSERT_TRUE(session->wait_for("Proceed (y/n) ")) << session->output();
            session->send(answer);
        }
        EXPECT_EQ(finish(*session), "[answer=" + std::to_string(c.expected) + "]\n[done]\n");
    }
}

TEST_F(GetlineTest, ASignalDuringTheReadDoesNotEndIt) {
    // The console's SIGCHLD handler has no SA_RESTART: the read must carry
    // on when a child ends while the user is typing.
    auto session = start({"sigchld", "read", "0"});
    ASSERT_TRUE(session);
    ASSERT_TRUE(session->wait_for("0> "));
    session->send("be");
    usleep(600000);
    session->send("fore\r");
    EXPECT_EQ(finish(*session), "[status=1 line=\"before\" length=6]\n[done]\n");
}

TEST_F(GetlineTest, CtrlZStopsWithTheTerminalRestored) {
    // The reads run in a job of their own under the driver, as under a
    // shell: a process group without a parent in the session outside it
    // would not be stopped at all.
    std::string pid_file = log_ + ".pid";
    auto session = start({"--job", pid_file, "read", "0"});
    ASSERT_TRUE(session);
    ASSERT_TRUE(session->wait_for("0> "));
    pid_t job = 0;
    std::ifstream(pid_file) >> job;
    std::filesystem::remove(pid_file);
    ASSERT_GT(job, 0);
    session->send("ab\x1a");
    char state = '?';
    for (int i = 0; i < 200 && state != 'T'; ++i) {
        usleep(20000);
        std::ifstream stat("/proc/" + std::to_string(job) + "/stat");
        std::string pid, name;
        stat >> pid >> name >> state;
    }
    ASSERT_EQ(state, 'T');
    termios modes{};
    ASSERT_EQ(tcgetattr(session->master_fd(), &modes), 0);
    EXPECT_TRUE(modes.c_lflag & ICANON);
    EXPECT_TRUE(modes.c_lflag & ISIG);
    kill(job, SIGCONT);
    session->send("c\r");
    EXPECT_EQ(finish(*session), "[status=1 line=\"abc\" length=3]\n[done]\n");
}

// Without a terminal: the prompt goes to standard output and lines are read
// plainly, so "?" and TAB are ordinary characters.
std::string run_piped(const std::vector<std::string> &steps, const std::string &input) {
    int in[2], out[2];
    if (pipe(in) != 0 || pipe(out) != 0)
        return "pipe failed";
    pid_t pid = fork();
    if (pid == 0) {
        dup2(in[0], 0);
        dup2(out[1], 1);
        close(in[0]); close(in[1]); close(out[0]); close(out[1]);
        std::vector<char *> argv{const_cast<char *>(GETLINE_DRIVER)};
        for (const std::string &s : steps)
            argv.push_back(const_cast<char *>(s.c_str()));
        argv.push_back(nullptr);
        execv(argv[0], argv.data());
        _exit(127);
    }
    close(in[0]);
    close(out[1]);
    if (write(in[1], input.data(), input.size()) != static_cast<ssize_t>(input.size()))
        ADD_FAILURE() << "short write";
    close(in[1]);
    std::string text;
    char buf[4096];
    ssize_t n;
    while ((n = read(out[0], buf, sizeof(buf))) > 0)
        text.append(buf, static_cast<size_t>(n));
    close(out[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    return text;
}

TEST(GetlinePlain, ReadsLinesWithoutATerminal) {
    struct Case { const char *name; std::vector<std::string> steps; std::string input; std::string expected; };
    const Case cases[] = {
        {"lines and end of input", {"loop", "0"}, "get ?\nls\t-l\n\nlast",
         "0> [status=1 line=\"get ?\" length=5]\n0> [status=1 line=\"ls\\x09-l\" length=5]\n"
         "0> [status=1 line=\"\" length=0]\n0> [status=1 line=\"last\" length=4]\n0> [null]\n[done]\n"},
        {"carriage return kept", {"read", "0"}, "dos\r\n", "0> [status=1 line=\"dos\\x0d\" length=4]\n[done]\n"},
        {"pre-fill not added", {"prefill", "0", "get "}, "x\n",
         "0> [status=1 line=\"x\" length=1]\n[done]\n"},
        {"yes or no", {"yesno", "0", "0", "1", "yesno", "0", "1", "0", "yesno", "0", "1", "1"},
         "\nperhaps\nno\n\n",
         "Proceed (y/n) Proceed (y/n) Proceed (y/n) [answer=0]\nProceed (y/n) [answer=1]\n"
         "Proceed (y/n) [answer=0]\n[done]\n"},
        {"first letter in any case after blanks",
         {"yesno", "0", "0", "1", "yesno", "0", "0", "1", "yesno", "0", "1", "1"}, "Yes\n  y\nNO\n",
         "Proceed (y/n) [answer=1]\nProceed (y/n) [answer=1]\nProceed (y/n) [answer=0]\n[done]\n"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(run_piped(c.steps, c.input), c.expected);
    }
}

TEST(GetlinePlain, HistoryAndFreeAcceptOddArguments) {
    // Reading from a closed standard input gives no line, not a crash.
    getline_data *gl = getline_init();
    ASSERT_NE(gl, nullptr);
    getline_histadd(gl, "");
    getline_histadd(gl, nullptr);
    getline_histadd(nullptr, "x");
    uint8_t status = 0;
    EXPECT_EQ(qn_getline(nullptr, "p", nullptr, &status), nullptr);
    EXPECT_EQ(yes_or_no(nullptr, "q", 1, 0), 0);
    getline_free(gl);
    getline_free(nullptr);
}

} // namespace
