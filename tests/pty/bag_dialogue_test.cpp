// The bag dialogue at a terminal: prompts for versions, selections and
// values, a selection out of range asked again, help and completion keys
// that only show the prompt again, ^C abandoning the dialogue (nothing is
// stored and the console goes on), and the stored bag shown by get.
#include <gtest/gtest.h>

#include <stdlib.h>

#include <string>
#include <vector>

#include "console_pty.h"

namespace {

using tarvo::test::PtySession;

const char PROMPT[] = "tarvocon:/> ";
const char WHICH[] = "Which number (or ^C to quit):";

class BagDialogueAtTerminal : public tarvo::test::ConsoleAtPty {
protected:
    void SetUp() override
    {
        session_ = StartAt("");
        ASSERT_TRUE(session_);
        ASSERT_TRUE(session_->wait_for(PROMPT)) << session_->output();
    }

    void TearDown() override
    {
        if (session_)
            Quit(*session_);
    }

    // get shows its output through the pager, which ends at the end of a
    // short output by itself.
    void PromptAfterPager()
    {
        ASSERT_TRUE(session_->wait_for(PROMPT)) << session_->output();
    }

    // Waits for `text`, then types `answer` and Enter.
    void Answer(const std::string &text, const std::string &answer)
    {
        ASSERT_TRUE(session_->wait_for(text)) << "waiting for " << text << "\n"
                                              << session_->output();
        session_->send(answer + "\r");
    }

    std::unique_ptr<PtySession> session_;
};

TEST_F(BagDialogueAtTerminal, EntersABagStepByStep)
{
    session_->send("create b bag g_record\r");
    ASSERT_TRUE(session_->wait_for("Major version> "));
    session_->send("?"); // help at a dialogue prompt only shows it again
    ASSERT_TRUE(session_->wait_for("Major version> ")) << session_->output();
    session_->send("1\r");
    Answer("Minor version> ", "0");

    ASSERT_TRUE(session_->wait_for("1. UnionChoice addr: (value 0) \r\n"
                                   "2. UnionChoice addr: (value 1) \r\n"
                                   "3. UnionChoice addr: (value 2) \r\n"))
        << session_->output();
    Answer(WHICH, "9"); // out of range: asked again
    Answer(WHICH, "2");
    ASSERT_TRUE(session_->wait_for(" -->INADDRT v4: \r\n"));
    Answer("Enter IPv4 address value (or ^C to stop):", "10.0.0.7");
    ASSERT_TRUE(session_->wait_for("2. PointerChoice port: (value 1) \r\n"));
    Answer(WHICH, "1");
    ASSERT_TRUE(session_->wait_for("1. UINT8 tail: \r\n2. End of bag\r\n"));
    Answer(WHICH, "2");
    ASSERT_TRUE(session_->wait_for("Item b successfully created")) << session_->output();
    ASSERT_TRUE(session_->wait_for(PROMPT));

    session_->send("get b\r");
    ASSERT_TRUE(session_->wait_for("[bag (len 48)] \t'b' (g_record v1.0 XDR)\r\n"
                                   "  [union choice]\t00000001\r\n"
                                   "  [in_addr_t (len 4)]\t'v4'\t10.0.0.7\r\n"
                                   "  [pointer choice]\t00000000\r\n"
                                   "[end bag]\r\n"))
        << session_->output();
    PromptAfterPager();
}

TEST_F(BagDialogueAtTerminal, CtrlCAbandonsTheDialogueAtEveryKindOfPrompt)
{
    struct Case {
        std::vector<std::pair<std::string, std::string>> answers;
        std::string interrupted_at;
    } cases[] = {
        {{}, "Major version> "},
        {{{"Major version> ", "1"}, {"Minor version> ", "0"}}, WHICH},
        {{{"Major version> ", "1"}, {"Minor version> ", "0"}, {WHICH, "3"}},
         "Enter string value (or ^C to stop):"},
        {{{"Major version> ", "1"}, {"Minor version> ", "0"}, {WHICH, "2"},
          {"Enter IPv4 address value (or ^C to stop):", "1.2.3.4"}, {WHICH, "2"}},
         "Enter integer value (or ^C to stop):"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.interrupted_at);
        session_->send("create x bag g_record\r");
        for (const auto &[text, answer] : c.answers)
            Answer(text, answer);
        if (c.interrupted_at == "Enter integer value (or ^C to stop):") {
            ASSERT_TRUE(session_->wait_for(" -->BeginScope port: \r\n"));
            ASSERT_TRUE(session_->wait_for(" -->UINT16 number: \r\n"));
        }
        ASSERT_TRUE(session_->wait_for(c.interrupted_at)) << session_->output();
        session_->send("half typed\x03");
        ASSERT_TRUE(session_->wait_for(PROMPT)) << session_->output();
        EXPECT_TRUE(session_->running());
        session_->send("get x\r");
        ASSERT_TRUE(session_->wait_for("While fetching item x")) << session_->output();
        PromptAfterPager();
    }
    EXPECT_EQ(session_->output().find("successfully created"), std::string::npos);
}

TEST_F(BagDialogueAtTerminal, OpaqueAnswersAreAskedAgainUntilAccepted)
{
    session_->send("create s bag g_scalars\r");
    Answer("Major version> ", "1");
    Answer("Minor version> ", "0");
    const std::vector<std::string> numbers = {"1", "2", "3", "4", "5", "6", "7", "8"};
    for (const std::string &n : numbers)
        Answer("Enter integer value (or ^C to stop):", n);
    Answer("Enter IPv4 address value (or ^C to stop):", "127.0.0.1");
    Answer("Enter integer value (or ^C to stop):", "1");
    Answer("Enter integer value (or ^C to stop):", "0");
    Answer("Enter string value (or ^C to stop):", "x");
    Answer("Enter string value (or ^C to stop):", "y");
    const std::string opaque =
        "Enter opaque value as hex (ff12...) or \"string\" (or ^C to stop):";
    Answer(opaque, "abc");        // odd digit count
    Answer(opaque, "0a 0b 0c 0d 0e"); // five bytes, four at most
    Answer(opaque, "0a0B");
    Answer(opaque, "\"a\"");      // one byte, two needed
    Answer(opaque, "\"ok\"");
    ASSERT_TRUE(session_->wait_for("Item s successfully created")) << session_->output();
    ASSERT_TRUE(session_->wait_for(PROMPT));
    session_->send("get s\r");
    ASSERT_TRUE(session_->wait_for("[opaque (len 2)]\t'raw'\t(0A0B)\r\n"
                                   "  [opaque (len 2)]\t'tag'\t(6F6B)\r\n"))
        << session_->output();
    PromptAfterPager();
}

} // namespace
