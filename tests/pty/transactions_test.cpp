// Transactions at a terminal: a buffered transaction recorded line by line
// and replayed at committrans without a prompt in between, a failing
// recorded line that turns the commit into an abort, and two consoles on one
// data directory (a lock refused with its holder named, a transaction's
// changes unseen by the other console until the commit, a lock that ends
// with its holder).
#include <gtest/gtest.h>

#include <signal.h>

#include <string>
#include <vector>

#include "console_pty.h"

namespace {

using tarvo::test::PtySession;

class TransactionsAtTerminal : public tarvo::test::ConsoleAtPty {
protected:
    // Types `line` and waits for the prompt that follows it; returns what
    // the command printed. Output shown through the pager "more", which
    // waits at its end mark, is read and the pager quit.
    static std::string Run(PtySession &session, const std::string &line,
                           const std::string &prompt = "tarvocon:/> ") {
        session.take();
        session.send(line + "\r");
        int seen = session.wait_for_any({"(END)", prompt});
        EXPECT_NE(seen, -1) << session.output();
        std::string all = session.output();
        if (seen == 0) {
            session.send("q");
            EXPECT_TRUE(session.wait_for(prompt)) << session.output();
        }
        size_t typed = all.rfind(line + "\r\n");
        return typed == std::string::npos ? all : all.substr(typed);
    }

    // Types the recorded lines of a buffered transaction; none of them runs.
    static void Record(PtySession &session, const std::vector<std::string> &lines) {
        Run(session, "starttrans -b", "tarvocon:[trans]/> ");
        for (const auto &line : lines) {
            std::string recorded = Run(session, line, "tarvocon:[trans]/> ");
            EXPECT_EQ(recorded, line + "\r\ntarvocon:[trans]/> ");
        }
    }

    // Types `last` and returns what the replay printed up to `end`, which
    // must come before the next prompt.
    static std::string Replay(PtySession &session, const std::string &last,
                              const std::string &end) {
        session.send(last + "\r");
        EXPECT_TRUE(session.wait_for(end)) << session.output();
        std::string all = session.output();
        size_t typed = all.rfind(last + "\r\n");
        size_t ended = all.rfind(end);
        if (typed == std::string::npos || ended == std::string::npos || ended < typed)
            return "";
        return all.substr(typed, ended - typed);
    }
};

TEST_F(TransactionsAtTerminal, BufferedLinesRunAtCommitWithoutPrompts) {
    auto session = StartAt("");
    ASSERT_TRUE(session);
    ASSERT_TRUE(session->wait_for("tarvocon:/> "));
    Record(*session, {"create a uint32 1", "set a uint32 5", "create b uint32 2"});
    std::string replay =
        Replay(*session, "committrans", "Transaction committed successfully");
    size_t a = replay.find("Item a successfully created");
    size_t set = replay.find("Item a successfully modified");
    size_t b = replay.find("Item b successfully created");
    EXPECT_NE(a, std::string::npos) << replay;
    EXPECT_NE(set, std::string::npos) << replay;
    EXPECT_NE(b, std::string::npos) << replay;
    EXPECT_TRUE(a < set && set < b) << replay;
    EXPECT_EQ(replay.find("tarvocon:"), std::string::npos) << replay;
    ASSERT_TRUE(session->wait_for("tarvocon:/> ")) << session->output();
    EXPECT_NE(Run(*session, "get a").find("'a'          5"), std::string::npos);
    EXPECT_NE(Run(*session, "get b").find("'b'          2"), std::string::npos);
    Quit(*session);
}

TEST_F(TransactionsAtTerminal, FailingRecordedLineAbortsInsteadOfCommitting) {
    auto session = StartAt("");
    ASSERT_TRUE(session);
    ASSERT_TRUE(session->wait_for("tarvocon:/> "));
    Record(*session, {"create a uint32 1", "bogus", "create c uint32 3"});
    std::string replay =
        Replay(*session, "committrans", "Transaction aborted successfully");
    size_t a = replay.find("Item a successfully created");
    size_t bogus = replay.find("Unrecognised command");
    EXPECT_NE(a, std::string::npos) << replay;
    EXPECT_NE(bogus, std::string::npos) << replay;
    EXPECT_LT(a, bogus) << replay;
    EXPECT_EQ(replay.find("Item c"), std::string::npos) << replay;
    EXPECT_EQ(replay.find("committed"), std::string::npos) << replay;
    EXPECT_EQ(replay.find("tarvocon:"), std::string::npos) << replay;
    ASSERT_TRUE(session->wait_for("tarvocon:/> ")) << session->output();
    EXPECT_NE(Run(*session, "get a").find("no such item or directory"), std::string::npos);
    Quit(*session);
}

TEST_F(TransactionsAtTerminal, SecondConsoleRespectsLocksAndSeesOnlyCommits) {
    auto holder = StartAt("");
    ASSERT_TRUE(holder);
    ASSERT_TRUE(holder->wait_for("tarvocon:/> "));
    auto other = StartAt("");
    ASSERT_TRUE(other);
    ASSERT_TRUE(other->wait_for("tarvocon:/> "));

    EXPECT_NE(Run(*holder, "wrlock /locked").find("Write lock acquired successfully"),
              std::string::npos);
    // The lock request shows the code's text; a refused write names the
    // holder by its process.
    std::string refused = Run(*other, "wrlock /locked") +
                          Run(*other, "create /locked/x uint32 1");
    EXPECT_NE(refused.find("While getting a write lock the following error occurred:\r\n"
                           "locked by another bind"),
              std::string::npos)
        << refused;
    EXPECT_NE(refused.find("While creating item /locked/x the following error occurred:"),
              std::string::npos)
        << refused;
    EXPECT_NE(refused.find(std::to_string(holder->pid())), std::string::npos) << refused;
    Run(*holder, "unlock /locked");
    EXPECT_NE(Run(*other, "create /locked/x uint32 1").find("Item /locked/x successfully created"),
              std::string::npos);

    // A transaction's changes stay unseen by the other console until the
    // commit.
    Run(*holder, "starttrans", "tarvocon:[trans]/> ");
    Run(*holder, "create /t uint32 5", "tarvocon:[trans]/> ");
    EXPECT_NE(Run(*other, "get /t").find("no such item or directory"), std::string::npos);
    Run(*holder, "committrans");
    EXPECT_NE(Run(*other, "get /t").find("'/t'"), std::string::npos);

    // A lock ends with the process that held it.
    Run(*holder, "wrlock /gone");
    kill(holder->pid(), SIGKILL);
    ASSERT_TRUE(holder->wait_exit().has_value());
    EXPECT_NE(Run(*other, "wrlock /gone").find("Write lock acquired successfully"),
              std::string::npos);
    Quit(*other);
}

} // namespace
