/*
 * PtySession: runs a program under a pseudo-terminal for tests, the way a
 * person at a terminal would: send keystrokes, wait for text, read what was
 * shown, get the exit status.
 *
 *   tarvo::test::PtyOptions options;
 *   options.argv = {"/path/to/tarvocon"};
 *   options.env = {"TARVO_DATA_DIR=/tmp/x"};
 *   std::string error;
 *   auto session = tarvo::test::PtySession::start(options, &error);
 *   ASSERT_TRUE(session) << error;
 *   ASSERT_TRUE(session->wait_for("bind point>/")) << session->output();
 *   session->send("cfg\r");
 *   ...
 *   auto status = session->wait_exit();
 *   EXPECT_TRUE(status && status->exited && status->code == 0);
 *
 * The child is the leader of a new session whose controlling terminal is the
 * pseudo-terminal; its descriptors 0, 1 and 2 are the terminal; its signal
 * dispositions and mask are the defaults. Its environment is the test's own
 * with options.env laid over it; TERM is "xterm" unless options.env names
 * one.
 *
 * Output: everything the child writes is kept in one buffer, raw (escape
 * sequences included). A read position separates what the test has already
 * matched from what is new: wait_for() searches from the position and, on a
 * match, moves it past the match, so consecutive waits find consecutive
 * occurrences. The terminal turns "\n" into "\r\n" unless the child changed
 * the modes; a key press of Enter is "\r".
 *
 * screen(): the text of the terminal's screen after replaying the output
 * through a small terminal model (printable characters, CR, LF, BS, TAB and
 * the common CSI cursor, erase and scroll sequences; other sequences are
 * dropped). Good enough to check what a person sees after line editing.
 *
 * Timeouts: every wait takes one; the default is 10 s, multiplied by the
 * value of TARVO_TEST_TIMEOUT_SCALE when set (slow machines, sanitizers).
 *
 * Clean-up: the destructor kills the child's process group with SIGKILL
 * (the child and anything it started, such as a pager) when the child is
 * still running, reaps the child and closes the terminal. Nothing is left
 * behind even when a test fails half-way.
 *
 * Thread safety: a session is used from one thread. The class does not
 * install signal handlers and does not touch SIGCHLD.
 */
#ifndef TARVO_TEST_PTY_SESSION_H
#define TARVO_TEST_PTY_SESSION_H

#include <sys/types.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarvo::test {

struct PtyOptions {
    std::vector<std::string> argv;  // argv[0]: a path, or a name on PATH
    std::vector<std::string> env;   // "NAME=value" entries laid over the environment
    std::string cwd;                // working directory of the child ("" keeps the test's)
    unsigned short rows = 24;
    unsigned short cols = 80;
};

struct ExitStatus {
    bool exited = false;  // ended through exit(): `code` is valid
    int code = 0;
    int signal = 0;       // the signal that ended it when !exited
};

class PtySession {
public:
    using Duration = std::chrono::milliseconds;

    /* Starts the program. Null with *error set when the terminal cannot be
     * made or the program cannot be started (the exec failure is reported
     * here, not as an exit status). */
    static std::unique_ptr<PtySession> start(const PtyOptions &options,
                                             std::string *error = nullptr);
    ~PtySession();
    PtySession(const PtySession &) = delete;
    PtySession &operator=(const PtySession &) = delete;

    /* Writes the bytes as typed input. False when the terminal is gone. */
    bool send(std::string_view bytes);

    /* Waits until `text` appears after the read position; on success moves
     * the position past it. False on timeout or when the child ended
     * without printing it. */
    bool wait_for(std::string_view text, Duration timeout = default_timeout());

    /* Like wait_for, for the first of several texts; returns its index or -1. */
    int wait_for_any(const std::vector<std::string> &texts,
                     Duration timeout = default_timeout());

    /* Collects output until none arrives for `quiet` (or `limit` passes);
     * for checking that something is NOT printed. */
    void settle(Duration quiet = Duration(200), Duration limit = default_timeout());

    /* Everything the child wrote so far (reads what is pending first). */
    const std::string &output();
    /* The output after the read position; moves the position to the end. */
    std::string take();

    /* The screen as rows of text, trailing blanks removed. */
    std::vector<std::string> screen();

    /* Waits for the child to end, reading its output meanwhile. Empty on
     * timeout (the child is left running; the destructor kills it). */
    std::optional<ExitStatus> wait_exit(Duration timeout = default_timeout());
    bool running();
    pid_t pid() const { return pid_; }

    /* The terminal's master side, for tests that need raw access. */
    int master_fd() const { return master_; }

    static Duration default_timeout();

private:
    PtySession() = default;
    // Reads what is available within `wait`; false when the terminal is
    // closed (the child and everything it started have let go of it).
    bool pump(Duration wait);

    int master_ = -1;
    pid_t pid_ = -1;
    bool reaped_ = false;
    bool closed_ = false;
    ExitStatus status_;
    std::string output_;
    size_t position_ = 0;
    unsigned short rows_ = 24;
    unsigned short cols_ = 80;
};

/* Replays raw terminal output into screen rows (see PtySession::screen). */
std::vector<std::string> render_screen(std::string_view output, unsigned short rows,
                                       unsigned short cols, int *cursor_row = nullptr);

} // namespace tarvo::test

#endif
