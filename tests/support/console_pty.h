/*
 * ConsoleAtPty: a test fixture that runs the console at a pseudo-terminal
 * (PtySession) the way the golden cases run it from a file: in a private
 * directory that is its working directory, HOME and data directory parent,
 * with LC_ALL=C, the golden bag schemas and the golden stand-in programs
 * first on PATH. The directory is removed after the test.
 *
 * Header only, for test programs built with TARVOCON_CONSOLE (the console's
 * path) and TARVOCON_SOURCE_DIR (the source root) defined.
 */
#ifndef TARVO_TEST_CONSOLE_PTY_H
#define TARVO_TEST_CONSOLE_PTY_H

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "pty_session.h"
#include "test_helpers.h"

namespace tarvo::test {

class ConsoleAtPty : public testing::Test {
protected:
    // The console with `args`; `env` entries are laid over the usual ones.
    std::unique_ptr<PtySession> Start(const std::vector<std::string> &args = {},
                                      const std::vector<std::string> &env = {})
    {
        const std::string src = TARVOCON_SOURCE_DIR;
        PtyOptions options;
        options.argv = {TARVOCON_CONSOLE};
        options.argv.insert(options.argv.end(), args.begin(), args.end());
        options.env = {"TARVO_DATA_DIR=" + dir_.path() + "/data", "HOME=" + dir_.path(),
                       "LC_ALL=C", "TARVO_BAG_PATH=" + src + "/tests/golden/schemas",
                       "PATH=" + src + "/tests/golden/bin:/usr/local/bin:/usr/bin:/bin"};
        options.env.insert(options.env.end(), env.begin(), env.end());
        options.cwd = dir_.path();
        std::string error;
        auto session = PtySession::start(options, &error);
        EXPECT_TRUE(session) << error;
        return session;
    }

    // The same, with the initial bind question answered.
    std::unique_ptr<PtySession> StartAt(const std::string &answer,
                                        const std::vector<std::string> &args = {},
                                        const std::vector<std::string> &env = {})
    {
        auto session = Start(args, env);
        if (session) {
            EXPECT_TRUE(session->wait_for("Please enter initial bind point>/"))
                << session->output();
            session->send(answer + "\r");
        }
        return session;
    }

    // Types quit; the console must end with status 0.
    static void Quit(PtySession &session)
    {
        session.send("quit\r");
        auto status = session.wait_exit();
        ASSERT_TRUE(status.has_value()) << session.output();
        EXPECT_TRUE(status->exited);
        EXPECT_EQ(status->code, 0);
    }

    TempDir dir_{"tarvocon-pty"};
};

} // namespace tarvo::test

#endif
