// A reader's history kept in a file between runs (see history_file.h and
// docs/line-editor.md).

#include "history_file.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tarvo::getline {

namespace {

constexpr size_t NAME_MAX_LENGTH = 64;
constexpr mode_t FILE_MODE = 0600;
constexpr mode_t DIR_MODE = 0700;

bool valid_name(const std::string &name) {
    if (name.empty() || name.size() > NAME_MAX_LENGTH)
        return false;
    return std::all_of(name.begin(), name.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               c == '_' || c == '-';
    });
}

// Makes `dir` below the existing directory `base`, component by component;
// what is made gets DIR_MODE whatever the umask. 0 or an errno value.
int make_dirs(const std::string &base, const std::string &below) {
    std::string dir = base;
    size_t start = 0;
    while (start < below.size()) {
        size_t end = below.find('/', start);
        if (end == std::string::npos)
            end = below.size();
        dir += "/" + below.substr(start, end - start);
        start = end + 1;
        if (::mkdir(dir.c_str(), DIR_MODE) == 0) {
            ::chmod(dir.c_str(), DIR_MODE);
        } else if (errno != EEXIST) {
            return errno;
        }
    }
    struct stat st {};
    if (::stat(dir.c_str(), &st) != 0)
        return errno;
    if (!S_ISDIR(st.st_mode))
        return ENOTDIR;
    return ::access(dir.c_str(), W_OK | X_OK) == 0 ? 0 : errno;
}

bool write_all(int fd, const std::string &text) {
    size_t done = 0;
    while (done < text.size()) {
        ssize_t wrote = ::write(fd, text.data() + done, text.size() - done);
        if (wrote < 0 && errno == EINTR)
            continue;
        if (wrote <= 0)
            return false;
        done += static_cast<size_t>(wrote);
    }
    return true;
}

// Mode 0600 whatever the umask, also for a file widened by hand.
void make_private(int fd) {
    struct stat st {};
    if (::fstat(fd, &st) == 0 && (st.st_mode & 07777) != FILE_MODE)
        ::fchmod(fd, FILE_MODE);
}

} // namespace

std::unique_ptr<HistoryFile> HistoryFile::open(const std::string &name, int *error,
                                               Limits limits) {
    int ignored = 0;
    int &err = error != nullptr ? *error : ignored;
    if (!valid_name(name)) {
        err = EINVAL;
        return nullptr;
    }
    const char *home = std::getenv("HOME");
    if (home == nullptr || home[0] != '/') {
        err = ENOENT;
        return nullptr;
    }
    err = make_dirs(home, ".local/state/tarvo/history");
    if (err != 0)
        return nullptr;
    std::string path = std::string(home) + "/.local/state/tarvo/history/" + name;
    return std::unique_ptr<HistoryFile>(new HistoryFile(path, limits));
}

// Takes the exclusive lock of this history: a flock on <name>.lock, a file
// that is never replaced (the history file itself is, by trimming). The
// lock is held until the returned descriptor is closed; -1 when it cannot
// be had.
int HistoryFile::lock() const {
    std::string lock_path = path_ + ".lock";
    int fd = ::open(lock_path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, FILE_MODE);
    if (fd < 0)
        return -1;
    int locked;
    while ((locked = ::flock(fd, LOCK_EX)) != 0 && errno == EINTR) {
    }
    if (locked != 0) {
        ::close(fd);
        return -1;
    }
    make_private(fd);
    return fd;
}

// Opens the history file; the caller holds the lock.
int HistoryFile::open_file(int flags) const {
    int fd = ::open(path_.c_str(), flags | O_CLOEXEC | O_NOFOLLOW, FILE_MODE);
    if (fd >= 0)
        make_private(fd);
    return fd;
}

std::vector<std::string> HistoryFile::read_entries(int fd) const {
    std::string text;
    char buffer[8192];
    off_t offset = 0;
    for (;;) {
        ssize_t got = ::pread(fd, buffer, sizeof(buffer), offset);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            break;
        text.append(buffer, static_cast<size_t>(got));
        offset += got;
    }
    std::vector<std::string> entries;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos)
            end = text.size();  // a last line cut short still counts
        if (end > start)
            entries.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return entries;
}

// Keeps the newest entries; the caller holds the lock. Written
// beside it and renamed over it, so a crash leaves the old or the new file,
// never half of one. When that fails the file stays as it is.
void HistoryFile::trim(std::vector<std::string> *entries) const {
    if (entries->size() > limits_.keep)
        entries->erase(entries->begin(),
                       entries->end() - static_cast<std::ptrdiff_t>(limits_.keep));
    std::string text;
    for (const std::string &entry : *entries)
        text += entry + "\n";
    std::string tmp = path_ + ".tmp";
    int fd = ::open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW,
                    FILE_MODE);
    if (fd < 0)
        return;
    bool written = ::fchmod(fd, FILE_MODE) == 0 && write_all(fd, text) && ::fsync(fd) == 0;
    written = ::close(fd) == 0 && written;
    if (!written || std::rename(tmp.c_str(), path_.c_str()) != 0)
        ::unlink(tmp.c_str());
}

std::vector<std::string> HistoryFile::load() {
    int lock_fd = lock();
    if (lock_fd < 0)
        return {};
    std::vector<std::string> entries;
    int fd = open_file(O_RDONLY);
    if (fd >= 0) {  // else no file yet, or none we may read
        entries = read_entries(fd);
        ::close(fd);
        if (entries.size() > limits_.keep)
            trim(&entries);
    }
    ::close(lock_fd);
    appended_since_trim_ = 0;
    return entries;
}

bool HistoryFile::append(const std::string &line) {
    if (line.find('\n') != std::string::npos)
        return false;
    int lock_fd = lock();
    if (lock_fd < 0)
        return false;
    int fd = open_file(O_RDWR | O_APPEND | O_CREAT);
    bool written = fd >= 0 && write_all(fd, line + "\n");
    if (written && ++appended_since_trim_ >= limits_.trim_every) {
        std::vector<std::string> entries = read_entries(fd);
        if (entries.size() > limits_.keep)
            trim(&entries);
        appended_since_trim_ = 0;
    }
    if (fd >= 0)
        ::close(fd);
    ::close(lock_fd);
    return written;
}

} // namespace tarvo::getline
