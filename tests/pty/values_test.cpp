// Packed value dialogues at a terminal: the value prompt comes back after
// Ctrl-C, TAB and "?", and the end of input leaves the dialogue.
#include <gtest/gtest.h>

#include <stdlib.h>

#include <chrono>
#include <thread>

#include <string>
#include <vector>

#include "console_pty.h"

namespace {

using tarvo::test::PtySession;

// Control keys reach the line editor only once it has put the terminal in
// raw mode, a moment after its prompt shows; typed ahead, the terminal
// itself would turn Ctrl-C into SIGINT.
void Settle() { std::this_thread::sleep_for(std::chrono::milliseconds(300)); }

class PackedAtTerminal : public tarvo::test::ConsoleAtPty {
protected:
    // The console at a terminal, bound to "/", at its first prompt.
    std::unique_ptr<PtySession> StartAtRoot() {
        auto session = StartAt("");
        if (session) {
            EXPECT_TRUE(session->wait_for("tarvocon:/> ")) << session->output();
        }
        return session;
    }
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
