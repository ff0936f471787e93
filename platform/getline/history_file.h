/*
 * A reader's history kept in a file between runs.
 *
 * The file is $HOME/.local/state/tarvo/history/<name>: one entry a line,
 * oldest first, mode 0600 whatever the umask; the directories are made
 * (0700) when missing. Every reading or writing of the file happens under
 * an exclusive flock on <name>.lock beside it. Entries are appended one
 * line at a time (O_APPEND). The file is trimmed to the newest `keep`
 * entries by writing <name>.tmp and renaming it over the file, so a crash
 * leaves the old or the new file, never half of one; the lock file itself
 * is never replaced, so every process locks the same file. Several
 * processes may therefore keep the same name at once without losing or
 * mixing up lines. The file is trimmed when it is loaded and after every
 * `trim_every` lines this process appended, so it holds at most about
 * `keep` + `trim_every` lines for each process using it at the same time.
 *
 * No call throws; failures come back as errno values or false.
 */
#ifndef TARVO_GETLINE_HISTORY_FILE_H
#define TARVO_GETLINE_HISTORY_FILE_H

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace tarvo::getline {

class HistoryFile {
public:
    struct Limits {
        size_t keep = 1000;
        size_t trim_every = 100;
    };

    /* The file of `name` (letters, digits, "_", "-"; at most 64), with its
     * directory made. Null with *error set: EINVAL for a bad name, ENOENT
     * when HOME is not set or not absolute, or why a directory could not be
     * made or written. */
    static std::unique_ptr<HistoryFile> open(const std::string &name, int *error,
                                             Limits limits);
    static std::unique_ptr<HistoryFile> open(const std::string &name, int *error) {
        return open(name, error, Limits{});
    }

    /* The newest `keep` entries, oldest first (none when there is no file
     * yet). Trims the file when it holds more. */
    std::vector<std::string> load();

    /* Adds one entry at the end. A line holding a newline is not written
     * (it would read back as two entries). False when nothing was written. */
    bool append(const std::string &line);

    const std::string &path() const { return path_; }

private:
    HistoryFile(std::string path, Limits limits) : path_(std::move(path)), limits_(limits) {}
    int lock() const;
    int open_file(int flags) const;
    std::vector<std::string> read_entries(int fd) const;
    void trim(std::vector<std::string> *entries) const;

    std::string path_;
    Limits limits_;
    size_t appended_since_trim_ = 0;
};

} // namespace tarvo::getline

#endif
