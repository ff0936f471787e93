// Child processes behind a write stream: the SIGCHLD handler abandons a
// command only when the current child ended while it was still writing; a
// signal left over from an earlier child changes nothing; a child that ends
// while the stream is being closed does not block the close; every child is
// reaped.
#include <gtest/gtest.h>

#include <errno.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "platform/os.h"
#include "tarvocon.h"
#include "test_helpers.h"

namespace {

// Installs the console's SIGCHLD handling for one test, as start-up does:
// the handler, and SIGCHLD blocked outside the pipe writes.
class ChildStreams : public testing::Test {
protected:
    void SetUp() override {
        struct sigaction action = {};
        action.sa_handler = tarvocon_sigchld_handler;
        sigemptyset(&action.sa_mask);
        ASSERT_EQ(sigaction(SIGCHLD, &action, &old_action_), 0);
        sigset_t mask;
        sigemptyset(&mask);
        sigaddset(&mask, SIGCHLD);
        ASSERT_EQ(sigprocmask(SIG_BLOCK, &mask, &old_mask_), 0);
    }
    void TearDown() override {
        // No child may be left, running or unreaped.
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
        EXPECT_EQ(errno, ECHILD);
        sigprocmask(SIG_SETMASK, &old_mask_, nullptr);
        sigaction(SIGCHLD, &old_action_, nullptr);
    }

    static FILE *Start(std::vector<std::string> words) {
        std::vector<char *> argv;
        for (auto &w : words) argv.push_back(w.data());
        argv.push_back(nullptr);
        return tarvocon_popen_w(argv.data());
    }

    struct sigaction old_action_ = {};
    sigset_t old_mask_;
};

TEST_F(ChildStreams, ChildEndingWhileWrittenToAbandonsTheWriter) {
    static volatile int jumped = 0;
    static volatile size_t written = 0;
    jumped = 0;
    written = 0;
    if (sigsetjmp(tarvocon_resume_point, 1) == 0) {
        // The child takes one byte and ends; the pipe fills and the writer
        // would wait for ever without the jump.
        FILE *stream = Start({"sh", "-c", "head -c 1 >/dev/null"});
        ASSERT_NE(stream, nullptr);
        EXPECT_EQ(tarvocon_pager_running, 1);
        // Nothing on this path may need a destructor: the jump skips it.
        static char block[4096];
        memset(block, 'x', sizeof(block));
        for (int i = 0; i < 10000; i++) {
            fwrite(block, 1, sizeof(block), stream);
            written = written + sizeof(block);
        }
        ADD_FAILURE() << "40 MB written to a child that ended";
        tarvocon_pclose(stream);
    } else {
        jumped = 1;
        qn_close(tarvocon_pager_fd);
        tarvocon_pager_abandoned();
    }
    EXPECT_EQ(jumped, 1);
    EXPECT_EQ(tarvocon_pager_running, 0);
    // The jump came back with SIGCHLD still blocked.
    sigset_t now;
    sigprocmask(SIG_BLOCK, nullptr, &now);
    EXPECT_TRUE(sigismember(&now, SIGCHLD));
}

TEST_F(ChildStreams, LeftoverSignalOfAnEarlierChildChangesNothing) {
    static volatile int jumped = 0;
    jumped = 0;
    if (sigsetjmp(tarvocon_resume_point, 1) != 0) {
        jumped = 1;
        qn_close(tarvocon_pager_fd);
        tarvocon_pager_abandoned();
        FAIL() << "a new command was abandoned";
    }
    FILE *first = Start({"true"});
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(tarvocon_pclose(first), 0);
    // Its SIGCHLD is still pending: it arrives at the next write.
    sigset_t pending;
    sigpending(&pending);
    EXPECT_TRUE(sigismember(&pending, SIGCHLD));

    FILE *second = Start({"sh", "-c", "cat >/dev/null"});
    ASSERT_NE(second, nullptr);
    std::string block(4096, 'y');
    for (int i = 0; i < 64; i++) {
        ASSERT_EQ(fwrite(block.data(), 1, block.size(), second), block.size());
        fflush(second);
    }
    EXPECT_EQ(tarvocon_pclose(second), 0);
    EXPECT_EQ(jumped, 0);
}

TEST_F(ChildStreams, CloseDoesNotWaitForAReaderThatEnded) {
    static volatile int jumped = 0;
    jumped = 0;
    if (sigsetjmp(tarvocon_resume_point, 1) != 0) {
        jumped = 1;
        qn_close(tarvocon_pager_fd);
        tarvocon_pager_abandoned();
        FAIL() << "closing the stream abandoned the command";
    }
    FILE *stream = Start({"true"}); // reads nothing and ends
    ASSERT_NE(stream, nullptr);
    // Everything stays in the stream's buffer until the close flushes it,
    // long after the child has gone.
    static char buffer[1 << 20];
    ASSERT_EQ(setvbuf(stream, buffer, _IOFBF, sizeof(buffer)), 0);
    std::string text(4096, 'z');
    for (int i = 0; i < 128; i++)
        ASSERT_EQ(fwrite(text.data(), 1, text.size(), stream), text.size());
    // Let the child end first; its SIGCHLD waits, blocked, for the flush.
    usleep(300 * 1000);
    alarm(20); // a close that hangs ends the test program
    EXPECT_EQ(tarvocon_pclose(stream), 0);
    alarm(0);
    EXPECT_EQ(jumped, 0);
}

TEST_F(ChildStreams, ChildOutputComesBeforeWhatFollows) {
    int closed = -1;
    std::string text = tarvo::test::capture_output({STDOUT_FILENO}, [&] {
        printf("before\n");
        FILE *stream = Start({"cat"});
        ASSERT_NE(stream, nullptr);
        fputs("from the child\n", stream);
        closed = tarvocon_pclose(stream);
        printf("after\n");
    });
    EXPECT_EQ(closed, 0);
    EXPECT_EQ(text, "before\nfrom the child\nafter\n");
}

TEST_F(ChildStreams, ProgramThatCannotBeStarted) {
    testing::internal::CaptureStdout();
    errno = 0;
    FILE *stream = Start({"/nonexistent/program"});
    int error = errno;
    std::string shown = testing::internal::GetCapturedStdout();
    EXPECT_EQ(stream, nullptr);
    EXPECT_EQ(error, ENOENT);
    EXPECT_EQ(shown, "Error spawning process '/nonexistent/program': "
                     "No such file or directory\n");
    EXPECT_EQ(tarvocon_pager_running, 0);
}

TEST_F(ChildStreams, StandardOutputNeedsNoClosing) {
    // Not a terminal here: the pager is standard output itself.
    EXPECT_EQ(tarvocon_pager_open(), stdout);
    EXPECT_EQ(tarvocon_pclose(stdout), 0);
}

// do without the configuration program (the golden case do_and_config runs
// do and config through the stand-in).
TEST_F(ChildStreams, ConfigurationProgramMissing) {
    std::string saved = getenv("PATH") ? getenv("PATH") : "";
    setenv("PATH", "/nonexistent", 1);
    std::string words[] = {"do", "show", "x"};
    char *tokens[] = {words[0].data(), words[1].data(), words[2].data(), nullptr};
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    int result = tarvocon_do(tokens, 3);
    std::string out = testing::internal::GetCapturedStdout();
    std::string err = testing::internal::GetCapturedStderr();
    setenv("PATH", saved.c_str(), 1);
    EXPECT_EQ(result, 1);
    EXPECT_EQ(out, "Error spawning process 'config': No such file or directory\n");
    EXPECT_EQ(err, "Can't spawn config: No such file or directory\n");
}

} // namespace
