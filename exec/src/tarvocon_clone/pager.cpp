/*
 * Output pager and child processes.
 *
 * A command's long output goes to the pager "more" when standard output is
 * a terminal; do/config pipe a line to the configuration program the same
 * way. One child at a time: tarvocon_popen_w starts it with a pipe as its
 * standard input and hands back a write stream, tarvocon_pclose closes the
 * stream and waits for that child's process id.
 *
 * Quitting the pager early must abandon the command that is still writing
 * to it. The console learns of the child's end from SIGCHLD, and the
 * handler jumps back to the command loop (tarvocon_resume_point). Jumping
 * out of arbitrary code (the database client, malloc, stdio) would leave it
 * in pieces, so SIGCHLD is blocked all the time except around the write(2)
 * on the pipe, inside the stream's own write function (the stream is made
 * with fopencookie). The jump therefore always leaves from that window:
 *   - the child ended and tarvocon_pager_running is set (the command is
 *     still producing output): jump to the loop's resume point, which the
 *     loop saved with SIGCHLD blocked in its mask;
 *   - the child ended while tarvocon_pclose flushes the rest: jump back into
 *     the write function, which drops what nobody will read.
 * The handler reaps only the current child (waitpid(pid, WNOHANG)), so a
 * SIGCHLD left pending by an earlier child never abandons a new command.
 *
 * The console keeps the pipe's read end open while the child lives, so
 * writing after the child ended neither fails nor raises SIGPIPE; the read
 * end is released once the child has been reaped.
 *
 * A command has at most one pager: a display that opens the pager while
 * its command's pager is open (getitems shows its items through the data
 * list display) writes to that same pager, and its close only flushes.
 * "more" gets "-e" in front of the user's own MORE options, so it ends at
 * the end of its input and the prompt comes back without an extra key.
 */
#include <assert.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "platform/os.h"
#include "tarvocon.h"

volatile sig_atomic_t tarvocon_pager_running = 0;
int tarvocon_pager_fd = -1;
sigjmp_buf tarvocon_resume_point;

namespace {

/* The current child; shared with the SIGCHLD handler. */
struct tarvocon_child_td {
    volatile sig_atomic_t pid;     /* 0 when there is none */
    volatile sig_atomic_t ended;   /* reaped */
    volatile sig_atomic_t writing; /* inside the write window */
    int read_fd;
    int write_fd;
    int abandoned; /* the loop gave the stream up after a jump */
    int pager_opens; /* open pager calls sharing the stream; 0: not the pager */
    FILE *stream;
    sigjmp_buf write_point;
};

tarvocon_child_td tarvocon_child = {0, 0, 0, -1, -1, 0, 0, nullptr, {}};

/* Releases owed by the command that is writing to the child. */
struct tarvocon_hold_td {
    void (*release)(void *);
    void *object;
};

tarvocon_hold_td tarvocon_holds[TARVOCON_PAGER_HOLDS];

void tarvocon_run_holds(void)
{
    for (auto &hold : tarvocon_holds) {
        if (hold.object != nullptr)
            hold.release(hold.object);
        hold = {nullptr, nullptr};
    }
}

void tarvocon_child_reset(void)
{
    tarvocon_child.pid = 0;
    tarvocon_child.ended = 0;
    tarvocon_child.writing = 0;
    tarvocon_child.read_fd = -1;
    tarvocon_child.write_fd = -1;
    tarvocon_child.abandoned = 0;
    tarvocon_child.pager_opens = 0;
    tarvocon_child.stream = nullptr;
}

/* Waits for the current child unless the handler has reaped it already. */
void tarvocon_child_wait(void)
{
    if (tarvocon_child.pid > 0 && !tarvocon_child.ended) {
        int status;
        while (waitpid(tarvocon_child.pid, &status, 0) < 0 && errno == EINTR) {
        }
        tarvocon_child.ended = 1;
    }
}

void tarvocon_sigchld_mask(int how, sigset_t *old)
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGCHLD);
    sigprocmask(how, &set, old);
}

/* The stream's write function: the only place where SIGCHLD is let in. */
ssize_t tarvocon_child_write(void *cookie, const char *buffer, size_t size)
{
    auto *child = static_cast<tarvocon_child_td *>(cookie);
    if (child->abandoned || child->ended)
        return (ssize_t)size; /* nobody reads any more */

    sigset_t old;
    tarvocon_sigchld_mask(SIG_BLOCK, &old);
    if (sigsetjmp(child->write_point, 1) != 0) {
        /* The child ended while we were writing: drop the rest. */
        sigprocmask(SIG_SETMASK, &old, nullptr);
        return (ssize_t)size;
    }
    child->writing = 1;
    tarvocon_sigchld_mask(SIG_UNBLOCK, nullptr);
    ssize_t written;
    do {
        written = write(child->write_fd, buffer, size);
    } while (written < 0 && errno == EINTR && !child->ended);
    tarvocon_sigchld_mask(SIG_BLOCK, nullptr);
    child->writing = 0;
    sigprocmask(SIG_SETMASK, &old, nullptr);
    if (child->ended)
        return (ssize_t)size;
    return written;
}

int tarvocon_child_close(void *cookie)
{
    auto *child = static_cast<tarvocon_child_td *>(cookie);
    if (child->abandoned || child->write_fd < 0)
        return 0; /* the loop closed the descriptor already */
    int fd = child->write_fd;
    child->write_fd = -1;
    return qn_close(fd);
}

const cookie_io_functions_t TARVOCON_CHILD_IO = {
    nullptr, tarvocon_child_write, nullptr, tarvocon_child_close};

} // namespace

void tarvocon_sigchld_handler(int signal_number)
{
    if (signal_number != SIGCHLD)
        return;
    int saved_errno = errno;
    pid_t pid = tarvocon_child.pid;
    if (pid > 0 && !tarvocon_child.ended) {
        int status;
        if (waitpid(pid, &status, WNOHANG) == pid)
            tarvocon_child.ended = 1;
    }
    if (tarvocon_child.ended && tarvocon_child.writing) {
        tarvocon_child.writing = 0;
        if (tarvocon_pager_running) {
            tarvocon_pager_running = 0;
            siglongjmp(tarvocon_resume_point, 1);
        }
        siglongjmp(tarvocon_child.write_point, 1);
    }
    errno = saved_errno;
}

/* tarvocon_popen_w with the child's environment given. */
static FILE *tarvocon_popen_env(char *const proc_argv[], char *const envp[])
{
    assert(tarvocon_child.pid == 0); /* one child at a time */
    tarvocon_pager_running = 0;

    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) {
        int error = errno;
        printf("Unable to create piping subproc: %s\n", strerror(error));
        errno = error;
        return nullptr;
    }
    /* The child writes to the same descriptors: what we printed comes first. */
    fflush(stdout);
    fflush(stderr);
    const int fd_map[3] = {fds[0], fileno(stdout), fileno(stderr)};
    pid_t pid = spawnp(proc_argv[0], 3, fd_map, nullptr, proc_argv, envp);
    if (pid < 0) {
        /* Callers report errno (perror): keep the reason of the failure. */
        int error = errno;
        printf("Error spawning process '%s': %s\n", proc_argv[0],
               strerror(error));
        qn_close(fds[0]);
        qn_close(fds[1]);
        errno = error;
        return nullptr;
    }

    tarvocon_child_reset();
    tarvocon_child.read_fd = fds[0];
    tarvocon_child.write_fd = fds[1];
    tarvocon_child.pid = pid;
    tarvocon_pager_running = 1;
    tarvocon_pager_fd = fds[1];
    FILE *stream = fopencookie(&tarvocon_child, "w", TARVOCON_CHILD_IO);
    if (stream == nullptr) {
        int error = errno;
        printf("Error associating a stream with file descriptor : %s\n",
               strerror(error));
        /* Let the child see the end of its input and leave no zombie. */
        tarvocon_pager_running = 0;
        qn_close(fds[1]);
        tarvocon_child_wait();
        qn_close(fds[0]);
        tarvocon_child_reset();
        errno = error;
        return nullptr;
    }
    tarvocon_child.stream = stream;
    return stream;
}

FILE *tarvocon_popen_w(char *const proc_argv[])
{
    assert(proc_argv != nullptr && proc_argv[0] != nullptr);
    return tarvocon_popen_env(proc_argv, environ);
}

/* The pager's environment: the console's own with MORE set to "-e" followed
 * by the user's MORE options, if any. "-e" makes "more" end at the end of
 * its input instead of waiting at its end mark for a key; without it the
 * next line typed would go to the pager, not to the console. The vector
 * points into `environ` and at `more`, which must outlive it. */
static std::vector<char *> tarvocon_pager_environment(std::string *more)
{
    const char *user = getenv("MORE");
    *more = "MORE=-e";
    if (user != nullptr && user[0] != '\0')
        *more += std::string(" ") + user;
    std::vector<char *> envp;
    for (char **entry = environ; *entry != nullptr; entry++) {
        if (strncmp(*entry, "MORE=", 5) != 0)
            envp.push_back(*entry);
    }
    envp.push_back(more->data());
    envp.push_back(nullptr);
    return envp;
}

FILE *tarvocon_pager_open(void)
{
    if (tarvocon_child.pager_opens > 0) {
        /* The command's pager is open already: one pager per command. */
        tarvocon_child.pager_opens++;
        return tarvocon_child.stream;
    }
    int rows = 0;
    if (tcgetsize(fileno(stdout), &rows, nullptr) != 0 || rows <= 0)
        return stdout;
    static char more_name[] = "more";
    char *const argv[] = {more_name, nullptr};
    std::string more;
    std::vector<char *> envp = tarvocon_pager_environment(&more);
    FILE *stream = tarvocon_popen_env(argv, envp.data());
    if (stream != nullptr)
        tarvocon_child.pager_opens = 1;
    return stream;
}

int tarvocon_pclose(FILE *stream)
{
    assert(stream != nullptr);
    if (stream == stdout)
        return 0;
    if (stream == tarvocon_child.stream && tarvocon_child.pager_opens > 1) {
        /* An inner open of the command's pager: the outer one closes it. */
        tarvocon_child.pager_opens--;
        return fflush(stream);
    }
    /* From here on the child's end no longer abandons the command. */
    tarvocon_pager_running = 0;
    int result = fclose(stream);
    int error = errno;
    /* The write end is closed: the child sees the end of its input. Waiting
     * for its process id does not depend on when SIGCHLD comes. */
    tarvocon_child_wait();
    if (tarvocon_child.read_fd >= 0)
        qn_close(tarvocon_child.read_fd);
    tarvocon_child_reset();
    if (result != 0)
        errno = error; /* callers turn a failed close into its errno */
    return result;
}

void tarvocon_pager_hold(void (*release)(void *), void *object)
{
    assert(release != nullptr && object != nullptr);
    for (auto &hold : tarvocon_holds) {
        if (hold.object == nullptr) {
            hold = {release, object};
            return;
        }
    }
    assert(!"more pager holds than TARVOCON_PAGER_HOLDS");
}

void tarvocon_pager_let_go(void *object)
{
    for (auto &hold : tarvocon_holds) {
        if (hold.object == object)
            hold = {nullptr, nullptr};
    }
}

void tarvocon_pager_abandoned(void)
{
    /* The jump leaves only from the pipe's write window, so the client is
     * not inside a call and what the command held can be released. */
    tarvocon_run_holds();
    if (tarvocon_child.stream == nullptr)
        return;
    /* tarvocon_pager_fd was closed by the loop; the stream must neither
     * write to the pipe nor close that descriptor number again. */
    tarvocon_child.abandoned = 1;
    tarvocon_child.write_fd = -1;
    fclose(tarvocon_child.stream);
    tarvocon_child_wait();
    if (tarvocon_child.read_fd >= 0)
        qn_close(tarvocon_child.read_fd);
    tarvocon_child_reset();
    tarvocon_pager_fd = -1;
}
