// The console's histories kept between runs: the command prompt's and the
// bind question's, each in its own private file under the user's state
// directory; command files add nothing; a history that cannot be kept in a
// file never stops the console.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "console_pty.h"

namespace {

using tarvo::test::PtySession;

const char *const UP = "\x1b[A";

std::string ReadFile(const std::string &path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

mode_t ModeOf(const std::string &path) {
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0 ? st.st_mode & 07777 : 0;
}

class HistoryAtTerminal : public tarvo::test::ConsoleAtPty {
protected:
    std::string State() const { return dir_.path() + "/.local/state/tarvo"; }
    std::string Commands() const { return State() + "/history/commands"; }
    std::string BindPoints() const { return State() + "/history/bind_points"; }
};

TEST_F(HistoryAtTerminal, KeptBetweenRunsInPrivateFiles) {
    // Whatever the umask, the directories are 0700 and the files 0600.
    mode_t old_umask = ::umask(0);
    auto first = StartAt("a");
    ::umask(old_umask);
    ASSERT_TRUE(first);
    ASSERT_TRUE(first->wait_for("tarvocon:/a/> ")) << first->output();
    for (const char *line : {"cd /b", "", "get x", "get x"}) {
        first->send(std::string(line) + "\r");
        ASSERT_TRUE(first->wait_for("> ")) << first->output();
    }
    Quit(*first);
    // Empty lines and a repeat of the newest entry are not kept; the bind
    // answer is in its own file, not among the commands.
    EXPECT_EQ(ReadFile(Commands()), "cd /b\nget x\nquit\n");
    EXPECT_EQ(ReadFile(BindPoints()), "a\n");
    for (const std::string &dir : {dir_.path() + "/.local", dir_.path() + "/.local/state",
                                   State(), State() + "/history"})
        EXPECT_EQ(ModeOf(dir), 0700u) << dir;
    EXPECT_EQ(ModeOf(Commands()), 0600u);
    EXPECT_EQ(ModeOf(BindPoints()), 0600u);

    // A second run: Up at the bind question gives the last answer, Up at
    // the prompt the last command, and again the one before.
    auto second = Start();
    ASSERT_TRUE(second);
    ASSERT_TRUE(second->wait_for("Please enter initial bind point>/"));
    second->send(UP);
    second->send("\r");
    ASSERT_TRUE(second->wait_for("tarvocon:/a/> ")) << second->output();
    second->send(UP);
    ASSERT_TRUE(second->wait_for("quit")) << second->output();
    second->send(UP);
    ASSERT_TRUE(second->wait_for("get x")) << second->output();
    second->send("\r");
    ASSERT_TRUE(second->wait_for("While fetching item x")) << second->output();
    ASSERT_TRUE(second->wait_for("tarvocon:/a/> "));
    Quit(*second);
    EXPECT_EQ(ReadFile(Commands()), "cd /b\nget x\nquit\nget x\nquit\n");
    EXPECT_EQ(ReadFile(BindPoints()), "a\n");

    // A command file run at the terminal adds nothing to either history.
    std::ofstream(dir_.path() + "/run.cmd") << "/\nget y\ncd /c\nquit\n";
    auto file_run = Start({"-f", dir_.path() + "/run.cmd"});
    ASSERT_TRUE(file_run);
    auto status = file_run->wait_exit();
    ASSERT_TRUE(status && status->exited) << file_run->output();
    EXPECT_NE(file_run->output().find("Command 2: cd /c"), std::string::npos);
    EXPECT_EQ(ReadFile(Commands()), "cd /b\nget x\nquit\nget x\nquit\n");
    EXPECT_EQ(ReadFile(BindPoints()), "a\n");
}

// Without a usable file the history lives for the session only, and the
// console runs as usual without a word about it.
TEST_F(HistoryAtTerminal, UnusableFileKeepsHistoryInMemory) {
    std::string blocked = dir_.path() + "/blocked";
    std::filesystem::create_directory(blocked);
    std::ofstream(blocked + "/.local") << "a file where a directory should be\n";
    for (const std::string &home : {std::string("HOME="), "HOME=" + blocked}) {
        SCOPED_TRACE(home);
        auto session = StartAt("", {}, {home});
        ASSERT_TRUE(session);
        ASSERT_TRUE(session->wait_for("tarvocon:/> ")) << session->output();
        session->send("cd /kept\r");
        ASSERT_TRUE(session->wait_for("tarvocon:/kept/> ")) << session->output();
        session->send("cd /\r");
        ASSERT_TRUE(session->wait_for("tarvocon:/> ")) << session->output();
        session->send(UP);
        session->send(UP);
        session->send("\r");
        ASSERT_TRUE(session->wait_for("tarvocon:/kept/> ")) << session->output();
        Quit(*session);
        EXPECT_EQ(session->output().find("istory"), std::string::npos) << session->output();
    }
    EXPECT_FALSE(std::filesystem::exists(dir_.path() + "/.local"));
}

} // namespace
