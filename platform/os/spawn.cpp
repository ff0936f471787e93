// spawnp: start a program with an explicit descriptor map.

#include <platform/os.h>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>
#include <vector>

extern char **environ;

namespace {

// Owns descriptors opened for one spawn and closes them on every path out.
class FdList {
public:
    ~FdList() {
        for (int fd : fds_)
            if (fd >= 0)
                ::close(fd);
    }
    void add(int fd) { fds_.push_back(fd); }
    int operator[](size_t i) const { return fds_[i]; }

private:
    std::vector<int> fds_;
};

class FileActions {
public:
    FileActions() { ok_ = posix_spawn_file_actions_init(&actions_) == 0; }
    ~FileActions() {
        if (ok_)
            posix_spawn_file_actions_destroy(&actions_);
    }
    bool ok() const { return ok_; }
    posix_spawn_file_actions_t *get() { return &actions_; }

private:
    posix_spawn_file_actions_t actions_;
    bool ok_;
};

class SpawnAttr {
public:
    SpawnAttr() { ok_ = posix_spawnattr_init(&attr_) == 0; }
    ~SpawnAttr() {
        if (ok_)
            posix_spawnattr_destroy(&attr_);
    }
    bool ok() const { return ok_; }
    posix_spawnattr_t *get() { return &attr_; }

private:
    posix_spawnattr_t attr_;
    bool ok_;
};

// The child starts with every signal at its default action and none
// blocked: the console's SIGCHLD handler and mask mean nothing to a pager.
int reset_signals(SpawnAttr &attr) {
    sigset_t all, none;
    sigfillset(&all);
    sigemptyset(&none);
    int rc = posix_spawnattr_setsigdefault(attr.get(), &all);
    if (rc == 0)
        rc = posix_spawnattr_setsigmask(attr.get(), &none);
    if (rc == 0)
        rc = posix_spawnattr_setflags(attr.get(),
                                      POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
    return rc;
}

// Each source is first copied to a fresh close-on-exec descriptor above
// every target. The child's dup2 calls then read only from those copies, so
// a map such as {1, 0, 2} (a source that is also another entry's target)
// cannot see a descriptor already overwritten by an earlier entry.
int map_descriptors(int fd_count, const int fd_map[], FdList &copies,
                    FileActions &actions) {
    for (int i = 0; i < fd_count; ++i) {
        int copy = -1;
        if (fd_map[i] >= 0) {
            copy = ::fcntl(fd_map[i], F_DUPFD_CLOEXEC, fd_count);
            if (copy < 0)
                return errno;
        }
        copies.add(copy);
    }
    for (int i = 0; i < fd_count; ++i) {
        int rc = copies[static_cast<size_t>(i)] >= 0
                     ? posix_spawn_file_actions_adddup2(actions.get(),
                                                        copies[static_cast<size_t>(i)], i)
                     : posix_spawn_file_actions_addclose(actions.get(), i);
        if (rc != 0)
            return rc;
    }
    return 0;
}

} // namespace

extern "C" pid_t spawnp(const char *file, int fd_count, const int fd_map[],
                        const struct inheritance *inherit, char *const argv[],
                        char *const envp[]) {
    if (file == nullptr || *file == '\0' || inherit != nullptr || fd_count < 0 ||
        (fd_count > 0 && fd_map == nullptr)) {
        errno = EINVAL;
        return -1;
    }
    FileActions actions;
    SpawnAttr attr;
    if (!actions.ok() || !attr.ok()) {
        errno = ENOMEM;
        return -1;
    }
    FdList copies;
    int rc = map_descriptors(fd_count, fd_map, copies, actions);
    if (rc == 0)
        rc = reset_signals(attr);
    if (rc != 0) {
        errno = rc;
        return -1;
    }
    char *const default_argv[] = {const_cast<char *>(file), nullptr};
    pid_t pid = -1;
    rc = posix_spawnp(&pid, file, actions.get(), attr.get(),
                      argv != nullptr ? argv : default_argv,
                      envp != nullptr ? envp : environ);
    if (rc != 0) {
        errno = rc;
        return -1;
    }
    return pid;
}
