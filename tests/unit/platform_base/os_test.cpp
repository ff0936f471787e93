#include <platform/os.h>

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

struct Pipe {
    int r = -1, w = -1;
    Pipe() {
        int fds[2];
        if (pipe2(fds, O_CLOEXEC) == 0) { r = fds[0]; w = fds[1]; }
    }
    ~Pipe() { close_r(); close_w(); }
    void close_r() { if (r >= 0) close(r); r = -1; }
    void close_w() { if (w >= 0) close(w); w = -1; }
};

// Everything up to end of file; gives up after 5 s without data so that a
// child reading from the wrong descriptor fails the test instead of hanging.
std::string read_all(int fd) {
    std::string out;
    char buf[4096];
    for (;;) {
        pollfd p{fd, POLLIN, 0};
        int ready = poll(&p, 1, 5000);
        if (ready == 0) {
            ADD_FAILURE() << "no end of file after: " << out;
            return out;
        }
        ssize_t n = ready < 0 ? -1 : read(fd, buf, sizeof(buf));
        if (n == 0 || (n < 0 && errno != EINTR))
            return out;
        if (n > 0)
            out.append(buf, static_cast<size_t>(n));
    }
}

int wait_status(pid_t pid) {
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {}
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// Runs `sh -c script` with stdin from /dev/null and stdout into a pipe;
// returns what it printed.
std::string run_shell(const std::string &script, char *const envp[] = nullptr) {
    Pipe out;
    int null_fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    int map[] = {null_fd, out.w, 2};
    char *argv[] = {const_cast<char *>("sh"), const_cast<char *>("-c"),
                    const_cast<char *>(script.c_str()), nullptr};
    pid_t pid = spawnp("sh", 3, map, nullptr, argv, envp);
    close(null_fd);
    EXPECT_GT(pid, 0) << std::strerror(errno);
    out.close_w();
    std::string text = read_all(out.r);
    if (pid > 0) {
        EXPECT_EQ(wait_status(pid), 0);
    }
    return text;
}

// The pager's own case, standard input from a pipe, is run by the console
// tests; here the descriptor map's harder cases.
TEST(Spawnp, ChildWritesToAPipeWithTheGivenEnvironment) {
    EXPECT_EQ(run_shell("echo hello; echo world"), "hello\nworld\n");
    std::string path = std::string("PATH=") + getenv("PATH");
    char *envp[] = {const_cast<char *>("GREETING=from the map"),
                    const_cast<char *>(path.c_str()), nullptr};
    EXPECT_EQ(run_shell("echo \"$GREETING\"", envp), "from the map\n");
}

TEST(Spawnp, SwappedMapEntriesReachTheRightTargets) {
    // The parent's 0 and 1 are pipes, and the map swaps them: the child's
    // stdin is the parent's fd 1 and its stdout the parent's fd 0.
    Pipe to_child, from_child;
    int saved0 = dup(0), saved1 = dup(1);
    dup2(from_child.w, 0);
    dup2(to_child.r, 1);
    int map[] = {1, 0, 2};
    char *argv[] = {const_cast<char *>("sh"), const_cast<char *>("-c"),
                    const_cast<char *>("read x; echo got:$x"), nullptr};
    pid_t pid = spawnp("sh", 3, map, nullptr, argv, nullptr);
    int spawn_errno = errno;
    dup2(saved0, 0);
    dup2(saved1, 1);
    close(saved0);
    close(saved1);
    ASSERT_GT(pid, 0) << std::strerror(spawn_errno);
    to_child.close_r();
    from_child.close_w();
    ASSERT_EQ(write(to_child.w, "ping\n", 5), 5);
    to_child.close_w();
    EXPECT_EQ(read_all(from_child.r), "got:ping\n");
    kill(pid, SIGKILL);  // only matters when the child is stuck
    wait_status(pid);
}

TEST(Spawnp, DescriptorsOutsideTheMap) {
    // -1 leaves the child's descriptor closed; close-on-exec descriptors stay
    // behind; others are inherited.
    int kept = open("/dev/null", O_RDONLY);
    int hidden = open("/dev/null", O_RDONLY | O_CLOEXEC);
    ASSERT_GE(kept, 3);
    ASSERT_GE(hidden, 3);
    std::string script = "for fd in 0 2 " + std::to_string(kept) + " " +
                         std::to_string(hidden) +
                         "; do if [ -e /proc/self/fd/$fd ]; then echo $fd open;"
                         " else echo $fd closed; fi; done";
    Pipe out;
    int map[] = {-1, out.w, -1};
    char *argv[] = {const_cast<char *>("sh"), const_cast<char *>("-c"),
                    const_cast<char *>(script.c_str()), nullptr};
    pid_t pid = spawnp("sh", 3, map, nullptr, argv, nullptr);
    ASSERT_GT(pid, 0);
    out.close_w();
    EXPECT_EQ(read_all(out.r), "0 closed\n2 closed\n" + std::to_string(kept) +
                                   " open\n" + std::to_string(hidden) + " closed\n");
    wait_status(pid);
    close(kept);
    close(hidden);
}

TEST(Spawnp, ChildStartsWithDefaultSignalsAndEmptyMask) {
    struct sigaction ignore{}, old_term{}, old_pipe{};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGTERM, &ignore, &old_term);
    sigaction(SIGPIPE, &ignore, &old_pipe);
    sigset_t block, old_mask;
    sigemptyset(&block);
    sigaddset(&block, SIGUSR1);
    sigaddset(&block, SIGCHLD);
    sigprocmask(SIG_BLOCK, &block, &old_mask);

    // cat is started directly, so its status shows what spawnp left it.
    Pipe out;
    int map[] = {0, out.w, 2};
    char *argv[] = {const_cast<char *>("cat"), const_cast<char *>("/proc/self/status"),
                    nullptr};
    pid_t pid = spawnp("cat", 3, map, nullptr, argv, nullptr);
    out.close_w();
    std::string status = read_all(out.r);
    if (pid > 0)
        wait_status(pid);

    sigprocmask(SIG_SETMASK, &old_mask, nullptr);
    sigaction(SIGTERM, &old_term, nullptr);
    sigaction(SIGPIPE, &old_pipe, nullptr);
    ASSERT_GT(pid, 0);
    // Only the standard signals count: the C library keeps its own two
    // internal ones (32, 33) to itself.
    auto field = [&](const char *name) {
        size_t at = status.find(name);
        return at == std::string::npos ? ~0ull
                                       : std::stoull(status.substr(at + 8, 16), nullptr, 16);
    };
    const unsigned long long STANDARD = 0x7fffffffull;
    EXPECT_EQ(field("SigBlk:\t") & STANDARD, 0u) << status;
    EXPECT_EQ(field("SigIgn:\t") & STANDARD, 0u) << status;
}

TEST(Spawnp, FailuresGiveMinusOneAndErrno) {
    int map[] = {0, 1, 2};
    char *argv[] = {const_cast<char *>("x"), nullptr};
    struct Case { const char *file; int fd_count; const int *fd_map; int expected_errno; };
    int bad_map[] = {0, 987, 2};
    const Case cases[] = {
        {"tarvo-no-such-program", 3, map, ENOENT},
        {"/nonexistent/dir/prog", 3, map, ENOENT},
        {"sh", 3, bad_map, EBADF},
        {"sh", -1, map, EINVAL},
        {"sh", 3, nullptr, EINVAL},
        {"", 3, map, EINVAL},
    };
    for (const Case &c : cases) {
        errno = 0;
        EXPECT_EQ(spawnp(c.file, c.fd_count, c.fd_map, nullptr, argv, nullptr), -1) << c.file;
        EXPECT_EQ(errno, c.expected_errno) << c.file;
    }
    errno = 0;
    EXPECT_EQ(spawnp("sh", 3, map, reinterpret_cast<const inheritance *>(map), argv, nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST(Terminal, SizeOfAPseudoTerminalAndOfAPipe) {
    int master = -1, slave = -1;
    winsize size{};
    size.ws_row = 33;
    size.ws_col = 101;
    ASSERT_EQ(openpty(&master, &slave, nullptr, nullptr, &size), 0);
    int rows = 0, cols = 0;
    EXPECT_EQ(tcgetsize(slave, &rows, &cols), 0);
    EXPECT_EQ(rows, 33);
    EXPECT_EQ(cols, 101);
    rows = 0;
    EXPECT_EQ(tcgetsize(slave, &rows, nullptr), 0);
    EXPECT_EQ(rows, 33);
    close(master);
    close(slave);

    Pipe p;
    errno = 0;
    EXPECT_EQ(tcgetsize(p.w, &rows, &cols), -1);
    EXPECT_EQ(errno, ENOTTY);
}

TEST(Terminal, CloseReportsBadDescriptors) {
    Pipe p;
    EXPECT_EQ(qn_close(p.r), 0);
    errno = 0;
    EXPECT_EQ(qn_close(p.r), -1);
    EXPECT_EQ(errno, EBADF);
    p.r = -1;
}

TEST(Limits, DataLimitIsTheHardLimitAndCanBeApplied) {
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_DATA, &before), 0);
    uint64_t max = platform_get_process_max_rlimit_data();
    if (before.rlim_max == RLIM_INFINITY)
        EXPECT_EQ(max, UINT64_MAX);
    else
        EXPECT_EQ(max, before.rlim_max);
    // Applying it changes this process, so do it in a child.
    EXPECT_EXIT(
        {
            int rc = wd_set_rlimit(RLIMIT_DATA, max);
            rlimit after{};
            getrlimit(RLIMIT_DATA, &after);
            bool same = after.rlim_cur == after.rlim_max &&
                        (max == UINT64_MAX ? after.rlim_cur == RLIM_INFINITY
                                           : after.rlim_cur == max);
            int lowered = wd_set_rlimit(RLIMIT_DATA, 1u << 30);
            getrlimit(RLIMIT_DATA, &after);
            bool low = after.rlim_cur == (1u << 30) && after.rlim_max == (1u << 30);
            _exit(rc == 0 && same && lowered == 0 && low ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
    EXPECT_EQ(wd_set_rlimit(9999, 1), EINVAL);
}

TEST(Text, StrlwrLowersInPlace) {
    struct Case { const char *in; const char *out; };
    const Case cases[] = {
        {"DSLD", "dsld"}, {"%D%LLU", "%d%llu"}, {"", ""},
        {"mixed Case 123!", "mixed case 123!"}, {"\xC4high", "\xC4high"},
    };
    for (const Case &c : cases) {
        std::string buf = c.in;
        EXPECT_EQ(strlwr(buf.data()), buf.data());
        EXPECT_EQ(buf, c.out);
    }
    EXPECT_EQ(strlwr(nullptr), nullptr);
}

TEST(Text, InetAddressRoundTrips) {
    struct Case { const char *text; uint32_t host_order; const char *shown; };
    const Case cases[] = {
        {"10.0.0.1", 0x0A000001u, "10.0.0.1"},
        {"0.0.0.0", 0u, "0.0.0.0"},
        {"192.168.254.3", 0xC0A8FE03u, "192.168.254.3"},
        {"255.255.255.254", 0xFFFFFFFEu, "255.255.255.254"},
        {"  172.16.0.9\t", 0xAC100009u, "172.16.0.9"},
    };
    for (const Case &c : cases) {
        in_addr_t addr = qn_inet_addr(c.text);
        EXPECT_EQ(ntohl(addr), c.host_order) << c.text;
        char buf[16];
        in_addr in{};
        in.s_addr = addr;
        EXPECT_STREQ(inet_ntoa_r(in, buf, sizeof(buf)), c.shown);
    }
}

TEST(Text, InetAddressRejectsWhatIsNotAnAddress) {
    const char *bad[] = {"", "   ", "1.2.3", "1.2.3.4.5", "256.1.1.1", "a.b.c.d",
                         "10.0.0.1x", "10.0.0.-1", "10..0.1", "0x0a.0.0.1", "10.0.0.1 2"};
    for (const char *text : bad)
        EXPECT_EQ(qn_inet_addr(text), INADDR_NONE) << "'" << text << "'";
    EXPECT_EQ(qn_inet_addr(nullptr), INADDR_NONE);
}

TEST(Text, InetTextNeedsRoomForTheWholeAddress) {
    in_addr in{};
    in.s_addr = htonl(0xFFFFFFFFu);
    char buf[16];
    EXPECT_EQ(inet_ntoa_r(in, buf, 15), nullptr);
    EXPECT_STREQ(inet_ntoa_r(in, buf, 16), "255.255.255.255");
    in.s_addr = htonl(0x01020304u);
    EXPECT_STREQ(inet_ntoa_r(in, buf, 8), "1.2.3.4");
    EXPECT_EQ(inet_ntoa_r(in, buf, 7), nullptr);
    EXPECT_EQ(inet_ntoa_r(in, nullptr, 16), nullptr);
    EXPECT_EQ(inet_ntoa_r(in, buf, 0), nullptr);
}

} // namespace
