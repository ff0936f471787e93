#include "pty_session.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

extern char **environ;

namespace tarvo::test {

namespace {

using Clock = std::chrono::steady_clock;

std::vector<std::string> child_environment(const PtyOptions &options) {
    std::map<std::string, std::string> vars;
    auto put = [&](const std::string &entry) {
        size_t eq = entry.find('=');
        if (eq != std::string::npos)
            vars[entry.substr(0, eq)] = entry.substr(eq + 1);
    };
    for (char **e = environ; *e != nullptr; ++e)
        put(*e);
    bool has_term = false;
    for (const std::string &entry : options.env)
        has_term = has_term || entry.rfind("TERM=", 0) == 0;
    if (!has_term)
        vars["TERM"] = "xterm";
    for (const std::string &entry : options.env)
        put(entry);
    std::vector<std::string> out;
    for (const auto &[name, value] : vars)
        out.push_back(name + "=" + value);
    return out;
}

std::vector<char *> pointers(std::vector<std::string> &strings) {
    std::vector<char *> out;
    for (std::string &s : strings)
        out.push_back(s.data());
    out.push_back(nullptr);
    return out;
}

[[noreturn]] void fail_child(int report_fd, int err) {
    ssize_t ignored = ::write(report_fd, &err, sizeof(err));
    (void)ignored;
    _exit(127);
}

// Runs in the forked child: only async-signal-safe calls from here on.
[[noreturn]] void exec_child(const char *slave_name, const winsize &size,
                             const char *cwd, char *const argv[], char *const envp[],
                             int report_fd) {
    auto fail = [&](int err) { fail_child(report_fd, err); };
    if (::setsid() < 0)
        fail(errno);
    int slave = ::open(slave_name, O_RDWR);
    if (slave < 0)
        fail(errno);
    ::ioctl(slave, TIOCSCTTY, 0);
    ::ioctl(slave, TIOCSWINSZ, &size);
    for (int fd = 0; fd < 3; ++fd)
        if (::dup2(slave, fd) < 0)
            fail(errno);
    if (slave > 2)
        ::close(slave);
    // Descriptors the test process left open must not reach the program.
    for (int fd = 3; fd < 1024; ++fd)
        if (fd != report_fd)
            ::close(fd);
    struct sigaction dfl {};
    dfl.sa_handler = SIG_DFL;
    for (int sig = 1; sig < NSIG; ++sig)
        ::sigaction(sig, &dfl, nullptr);
    sigset_t none;
    sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    if (cwd != nullptr && ::chdir(cwd) != 0)
        fail(errno);
    ::execvpe(argv[0], argv, envp);
    fail_child(report_fd, errno);
}

} // namespace

PtySession::Duration PtySession::default_timeout() {
    double scale = 1.0;
    if (const char *text = std::getenv("TARVO_TEST_TIMEOUT_SCALE")) {
        double value = std::atof(text);
        if (value > 0)
            scale = value;
    }
    return Duration(static_cast<long>(10000 * scale));
}

std::unique_ptr<PtySession> PtySession::start(const PtyOptions &options, std::string *error) {
    auto set_error = [&](const std::string &what, int err) {
        if (error != nullptr)
            *error = what + ": " + std::strerror(err);
        return nullptr;
    };
    if (options.argv.empty())
        return set_error("no program", EINVAL);

    std::unique_ptr<PtySession> session(new PtySession());
    session->rows_ = options.rows;
    session->cols_ = options.cols;
    session->master_ = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (session->master_ < 0)
        return set_error("posix_openpt", errno);
    char slave_name[128];
    if (::grantpt(session->master_) != 0 || ::unlockpt(session->master_) != 0 ||
        ::ptsname_r(session->master_, slave_name, sizeof(slave_name)) != 0)
        return set_error("pseudo-terminal set-up", errno);
    winsize size{};
    size.ws_row = options.rows;
    size.ws_col = options.cols;

    std::vector<std::string> argv_strings = options.argv;
    std::vector<std::string> env_strings = child_environment(options);
    std::vector<char *> argv = pointers(argv_strings);
    std::vector<char *> envp = pointers(env_strings);
    int report[2];
    if (::pipe2(report, O_CLOEXEC) != 0)
        return set_error("pipe", errno);

    pid_t pid = ::fork();
    if (pid < 0) {
        int err = errno;
        ::close(report[0]);
        ::close(report[1]);
        return set_error("fork", err);
    }
    if (pid == 0)
        exec_child(slave_name, size, options.cwd.empty() ? nullptr : options.cwd.c_str(),
                   argv.data(), envp.data(), report[1]);

    session->pid_ = pid;
    ::close(report[1]);
    int exec_errno = 0;
    ssize_t got;
    while ((got = ::read(report[0], &exec_errno, sizeof(exec_errno))) < 0 && errno == EINTR) {
    }
    ::close(report[0]);
    if (got == static_cast<ssize_t>(sizeof(exec_errno)))
        return set_error("starting " + options.argv[0], exec_errno);  // destructor reaps
    return session;
}

PtySession::~PtySession() {
    if (pid_ > 0 && !reaped_) {
        ::kill(-pid_, SIGKILL);  // the whole group: pagers and other children too
        ::kill(pid_, SIGKILL);
        int status;
        while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
        }
    }
    if (master_ >= 0)
        ::close(master_);
}

bool PtySession::pump(Duration wait) {
    if (closed_)
        return false;
    pollfd p{master_, POLLIN, 0};
    int ready = ::poll(&p, 1, static_cast<int>(wait.count()));
    if (ready <= 0)
        return true;
    char buf[65536];
    ssize_t n = ::read(master_, buf, sizeof(buf));
    if (n > 0) {
        output_.append(buf, static_cast<size_t>(n));
        return true;
    }
    if (n < 0 && (errno == EINTR || errno == EAGAIN))
        return true;
    closed_ = true;  // EIO: no process holds the terminal any more
    return false;
}

bool PtySession::send(std::string_view bytes) {
    size_t done = 0;
    while (done < bytes.size()) {
        ssize_t n = ::write(master_, bytes.data() + done, bytes.size() - done);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            if (errno == EAGAIN) {
                pump(Duration(10));  // let the child drain its input
                continue;
            }
            return false;
        }
        done += static_cast<size_t>(n);
    }
    return true;
}

int PtySession::wait_for_any(const std::vector<std::string> &texts, Duration timeout) {
    auto deadline = Clock::now() + timeout;
    for (;;) {
        size_t best = std::string::npos;
        int which = -1;
        for (size_t i = 0; i < texts.size(); ++i) {
            size_t at = output_.find(texts[i], position_);
            if (at != std::string::npos && (best == std::string::npos || at < best)) {
                best = at;
                which = static_cast<int>(i);
            }
        }
        if (which >= 0) {
            position_ = best + texts[static_cast<size_t>(which)].size();
            return which;
        }
        auto left = std::chrono::duration_cast<Duration>(deadline - Clock::now());
        if (left.count() <= 0 || !pump(std::min(left, Duration(100))))
            return -1;
    }
}

bool PtySession::wait_for(std::string_view text, Duration timeout) {
    return wait_for_any({std::string(text)}, timeout) == 0;
}

void PtySession::settle(Duration quiet, Duration limit) {
    auto deadline = Clock::now() + limit;
    while (Clock::now() < deadline) {
        size_t before = output_.size();
        if (!pump(quiet) || output_.size() == before)
            return;
    }
}

const std::string &PtySession::output() {
    for (;;) {
        size_t before = output_.size();
        if (!pump(Duration(0)) || output_.size() == before)
            return output_;
    }
}

std::string PtySession::take() {
    output();
    std::string fresh = output_.substr(std::min(position_, output_.size()));
    position_ = output_.size();
    return fresh;
}

bool PtySession::running() {
    if (reaped_)
        return false;
    int status = 0;
    pid_t got = ::waitpid(pid_, &status, WNOHANG);
    if (got != pid_)
        return true;
    reaped_ = true;
    status_.exited = WIFEXITED(status);
    status_.code = status_.exited ? WEXITSTATUS(status) : 0;
    status_.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    return false;
}

std::optional<ExitStatus> PtySession::wait_exit(Duration timeout) {
    auto deadline = Clock::now() + timeout;
    while (running()) {
        auto left = std::chrono::duration_cast<Duration>(deadline - Clock::now());
        if (left.count() <= 0)
            return std::nullopt;
        // Reading keeps a child that prints a lot from blocking on a full
        // terminal; once the terminal is closed, just poll for the end.
        if (!pump(std::min(left, Duration(20))))
            ::usleep(5000);
    }
    output();
    return status_;
}

} // namespace tarvo::test
