/*
 * Helpers several test programs share:
 *
 *   TempDir: a new empty directory under /tmp, removed with everything in
 *   it when the object goes. path() is its name.
 *
 *   capture_output({1, 2}, [&] { ... }): runs the function with the given
 *   descriptors sent to one temporary file and returns what was written,
 *   in the order written. Standard output and error are flushed before and
 *   after, so stdio and raw writes interleave as they would at a terminal.
 *
 * Header only; not thread-safe (descriptors are process-wide).
 */
#ifndef TARVO_TEST_HELPERS_H
#define TARVO_TEST_HELPERS_H

#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <initializer_list>
#include <string>
#include <vector>

namespace tarvo::test {

class TempDir {
public:
    explicit TempDir(const std::string &prefix = "tarvo-test")
    {
        std::string pattern = "/tmp/" + prefix + ".XXXXXX";
        if (mkdtemp(pattern.data()) != nullptr)
            path_ = pattern;
    }
    ~TempDir()
    {
        if (!path_.empty())
            std::filesystem::remove_all(path_);
    }
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;
    const std::string &path() const { return path_; }

private:
    std::string path_;
};

template <typename F> std::string capture_output(std::initializer_list<int> fds, F f)
{
    FILE *file = tmpfile();
    if (file == nullptr)
        return "<no temporary file>";
    fflush(stdout);
    fflush(stderr);
    std::vector<std::pair<int, int>> saved;
    for (int fd : fds) {
        saved.emplace_back(fd, dup(fd));
        dup2(fileno(file), fd);
    }
    f();
    fflush(stdout);
    fflush(stderr);
    for (auto [fd, copy] : saved) {
        dup2(copy, fd);
        close(copy);
    }
    std::string text;
    rewind(file);
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, file)) > 0)
        text.append(buf, n);
    fclose(file);
    return text;
}

} // namespace tarvo::test

#endif
