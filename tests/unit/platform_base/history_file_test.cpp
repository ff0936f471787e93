// The history file of the line editor: several processes appending and
// trimming at once, trimming on load, names and unusable homes.

#include "history_file.h"

#include <gtest/gtest.h>

#include <test_helpers.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

using tarvo::getline::HistoryFile;

class HistoryFileTest : public testing::Test {
protected:
    void SetUp() override {
        const char *home = std::getenv("HOME");
        saved_home_ = home != nullptr ? home : "";
        ::setenv("HOME", dir_.path().c_str(), 1);
    }
    void TearDown() override { ::setenv("HOME", saved_home_.c_str(), 1); }

    std::vector<std::string> Lines() const {
        std::ifstream in(dir_.path() + "/.local/state/tarvo/history/h");
        std::vector<std::string> lines;
        for (std::string line; std::getline(in, line);)
            lines.push_back(line);
        return lines;
    }

    tarvo::test::TempDir dir_{"history-file-test"};
    std::string saved_home_;
};

// Four processes append 300 lines each while trimming every 5 lines to the
// newest 400: no line is lost before its time, cut or mixed with another,
// and the file stays bounded.
TEST_F(HistoryFileTest, SeveralProcessesAppendAndTrimAtOnce) {
    const HistoryFile::Limits limits{400, 5};
    const int processes = 4, lines = 300;
    std::vector<pid_t> children;
    for (int p = 0; p < processes; ++p) {
        pid_t pid = ::fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            int error = 0;
            auto file = HistoryFile::open("h", &error, limits);
            bool ok = file != nullptr;
            for (int n = 0; ok && n < lines; ++n)
                ok = file->append("p" + std::to_string(p) + " " + std::to_string(n) +
                                  std::string(static_cast<size_t>(n % 50), '.'));
            ::_exit(ok ? 0 : 1);
        }
        children.push_back(pid);
    }
    for (pid_t pid : children) {
        int status = 0;
        ASSERT_EQ(::waitpid(pid, &status, 0), pid);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    std::vector<std::string> all = Lines();
    EXPECT_LE(all.size(), limits.keep + processes * limits.trim_every);
    EXPECT_GE(all.size(), limits.keep);
    std::map<int, int> last;  // per process, the last number seen
    for (const std::string &line : all) {
        int p = -1, n = -1;
        char rest[64] = "";
        ASSERT_GE(std::sscanf(line.c_str(), "p%d %d%63s", &p, &n, rest), 2) << line;
        EXPECT_EQ(line, "p" + std::to_string(p) + " " + std::to_string(n) +
                            std::string(static_cast<size_t>(n % 50), '.'));
        auto seen = last.find(p);
        if (seen != last.end()) {
            EXPECT_EQ(n, seen->second + 1) << "lines of p" << p << " missing or out of order";
        }
        last[p] = n;
    }
    // The newest line is the last line of the process that ended last.
    ASSERT_FALSE(all.empty());
    EXPECT_EQ(all.back().rfind(" " + std::to_string(lines - 1)), all.back().find(' '));

    int error = 0;
    auto file = HistoryFile::open("h", &error, limits);
    ASSERT_TRUE(file) << error;
    std::vector<std::string> loaded = file->load();
    ASSERT_EQ(loaded.size(), limits.keep);
    EXPECT_EQ(loaded.back(), all.back());
    EXPECT_EQ(Lines(), loaded);  // loading trimmed the file
}

TEST_F(HistoryFileTest, PrivateWhateverTheUmaskAndNewlinesNotWritten) {
    mode_t old = ::umask(0);
    int error = 0;
    auto file = HistoryFile::open("h", &error);
    ASSERT_TRUE(file) << error;
    EXPECT_TRUE(file->load().empty());
    EXPECT_TRUE(file->append("one"));
    EXPECT_FALSE(file->append("two\nlines"));
    ::umask(old);
    struct stat st {};
    ASSERT_EQ(::stat(file->path().c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0600u);
    ASSERT_EQ(::stat((dir_.path() + "/.local/state/tarvo/history").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0700u);
    EXPECT_EQ(Lines(), std::vector<std::string>{"one"});
}

TEST_F(HistoryFileTest, RefusedNamesAndHomes) {
    struct {
        const char *name;
        const char *home;  // null: the test's directory
        int error;
    } cases[] = {
        {"", nullptr, EINVAL},
        {"../up", nullptr, EINVAL},
        {"a.b", nullptr, EINVAL},
        {"h", "", ENOENT},
        {"h", "relative/home", ENOENT},
        {"h", "/proc/self/no-such-dir", ENOENT},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.name) + " in " + (c.home ? c.home : "home"));
        ::setenv("HOME", c.home != nullptr ? c.home : dir_.path().c_str(), 1);
        int error = 0;
        EXPECT_EQ(HistoryFile::open(c.name, &error), nullptr);
        EXPECT_EQ(error, c.error);
    }
}

} // namespace
