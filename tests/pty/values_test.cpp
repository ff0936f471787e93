// Packed value dialogues at a terminal: the value prompt comes back after
// Ctrl-C, TAB and "?", and the end of input leaves the dialogue.
#include <gtest/gtest.h>

#include <stdlib.h>

#include <chrono>
#include <thread>

#include <filesystem>
#include <string>
#include <vector>

#include "pty_session.h"

namespace {

using tarvo::test::PtyOptions;
using tarvo::test::PtySession;

// Control keys reach the line editor only once it has put the terminal in
// raw mode, a moment after its prompt shows; typed ahead, the terminal
// itself would turn Ctrl-C into SIGINT.
void Settle() { std::this_thread::sleep_for(std::chrono::milliseconds(300)); }

class PackedAtTerminal : public testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/tarvocon-pty-values.XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir_ = pattern;
    }
    void TearDown() override { std::filesystem::remove_all(dir_); }

    // The console at a terminal, bound to "/", at its first prompt.
    std::unique_ptr<PtySession> StartAtRoot() {
        PtyOptions options;
        options.argv = {TARVOCON_CONSOLE};
        options.env = {"TARVO_DATA_DIR=" + dir_ + "/data", "HOME=" + dir_, "LC_ALL=C",
                       std::string("PATH=") + TARVOCON_SOURCE_DIR +
                           "/tests/golden/bin:/usr/local/bin:/usr/bin:/bin"};
        options.cwd = dir_;
        std::string error;
        auto session = PtySession::start(options, &error);
        EXPECT_TRUE(session) << error;
        if (!session)
            return session;
        EXPECT_TRUE(session->wait_for("Please enter initial bind point>/"));
        session->send("\r");
        EXPECT_TRUE(session->wait_for("tarvocon:/> ")) << session->output();
        return session;
    }

    static void Quit(PtySession &session) {
        session.send("quit\r");
        auto status = session.wait_exit();
        ASSERT_TRUE(status.has_value()) << session.output();
        EXPECT_TRUE(status->exited);
        EXPECT_EQ(status->code, 0);
    }

    std::string dir_;
};

TEST_F(PackedAtTerminal, ValuePromptComesBackAfterCtrlCTabAndHelp) {
    auto session = StartAtRoot();
    ASSERT_TRUE(session);
    session->send("create p packed ds\r");
    ASSERT_TRUE(session->wait_for("enter unsigned int: ")) << session->output();
    Settle();
    session->send("12\x03"); // discarded: the prompt again, with an empty line
    ASSERT_TRUE(session->wait_for("enter unsigned int: ")) << session->output();
    session->send("5\r");
    ASSERT_TRUE(session->wait_for("enter string: ")) << session->output();
    Settle();
    session->send("ab\t"); // completion asked: the prompt again, empty
    ASSERT_TRUE(session->wait_for("enter string: ")) << session->output();
    Settle();
    session->send("cd?");
    ASSERT_TRUE(session->wait_for("enter string: ")) << session->output();
    session->send("  \"hi there\"  \r");
    ASSERT_TRUE(session->wait_for("Item p successfully created")) << session->output();
    ASSERT_TRUE(session->wait_for("tarvocon:/> "));
    // The value as stored: 5, then the string without blanks and quotes.
    session->send("datalist\r");
    ASSERT_TRUE(session->wait_for("0x00000005")) << session->output();
    ASSERT_TRUE(session->wait_for("\"hi there\"")) << session->output();
    session->send("q"); // leave the pager
    ASSERT_TRUE(session->wait_for("tarvocon:/> ")) << session->output();
    Quit(*session);
}

TEST_F(PackedAtTerminal, EndOfInputAtAValuePromptFailsTheCommand) {
    auto session = StartAtRoot();
    ASSERT_TRUE(session);
    session->send("create q packed d\r");
    ASSERT_TRUE(session->wait_for("enter unsigned int: ")) << session->output();
    Settle();
    session->send("\x04");
    ASSERT_TRUE(session->wait_for("Unable to read in data for packed tuple"))
        << session->output();
    ASSERT_TRUE(session->wait_for("tarvocon:/> ")) << session->output();
    EXPECT_TRUE(session->running());
    // Nothing was stored: the item can still be created.
    session->send("create q uint32 1\r");
    ASSERT_TRUE(session->wait_for("Item q successfully created")) << session->output();
    Quit(*session);
}

TEST_F(PackedAtTerminal, OutOfRangeAnswerBuildsNoTuple) {
    auto session = StartAtRoot();
    ASSERT_TRUE(session);
    session->send("create r packed dd\r");
    ASSERT_TRUE(session->wait_for("enter unsigned int: "));
    session->send("4294967296\r");
    ASSERT_TRUE(session->wait_for("bad integer format or integer value is out of range"))
        << session->output();
    ASSERT_TRUE(session->wait_for("tarvocon:/> ")) << session->output();
    // The second value is never asked for.
    EXPECT_EQ(session->output().find("enter unsigned int: ",
                                     session->output().find("4294967296")),
              std::string::npos);
    Quit(*session);
}

} // namespace
