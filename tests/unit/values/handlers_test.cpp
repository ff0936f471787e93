// Item command handlers on a real bind to a private data directory: the
// limits that command lines of at most 1023 characters never reach, and the
// result codes, which the golden cases cannot show.
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tarvocon.h"
#include "test_helpers.h"

namespace {

using testing::internal::CaptureStderr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStderr;
using testing::internal::GetCapturedStdout;

int ls_handler(char **tokens, uint32_t count)
{
    return tarvocon_list_datalist(tokens, count, 0);
}

class BoundConsole : public testing::Test {
  protected:
    void SetUp() override
    {
        setenv("TARVO_DATA_DIR", data_dir_.path().c_str(), 1);
        ASSERT_EQ(_tarvo_bind(&tarvocon_bind_handle, "/", 0), 0);
    }
    void TearDown() override
    {
        _tarvo_unbind(tarvocon_bind_handle);
        tarvocon_bind_handle = nullptr;
    }
    // Runs handler on words; returns its result, output in out/err.
    int run(int (*handler)(char **, uint32_t), std::vector<std::string> words)
    {
        std::vector<char *> tokens;
        for (std::string &w : words) tokens.push_back(w.data());
        CaptureStdout();
        CaptureStderr();
        int rc = handler(tokens.data(), (uint32_t)tokens.size());
        err = GetCapturedStderr();
        out = GetCapturedStdout();
        return rc;
    }
    std::string out, err;

  private:
    tarvo::test::TempDir data_dir_{"values_handlers"};
};

TEST_F(BoundConsole, DeleteKeepsAt1023CharactersOfAName)
{
    std::string name(2000, 'n');
    EXPECT_EQ(run(tarvocon_delete, {"delete", name}), 1);
    std::string expected_start = "[Tarvocon] While deleting item " +
                                 std::string(1023, 'n') +
                                 " the following error occurred:\n";
    EXPECT_EQ(err.substr(0, expected_start.size()), expected_start);
    EXPECT_EQ(out, "");
}

TEST_F(BoundConsole, HandlerResultsByKindOfFailure)
{
    ASSERT_EQ(run(tarvocon_create, {"create", "u", "uint32", "7"}), 0);
    struct Case {
        int (*handler)(char **, uint32_t);
        std::vector<std::string> words;
        int rc;
    };
    const Case cases[] = {
        // a value that does not parse gives the parser's code
        {tarvocon_create, {"create", "x", "uint8", "256"}, TARVOCON_ERR_BAD_VALUE},
        {tarvocon_set, {"set", "u", "uint32", "-1"}, TARVOCON_ERR_BAD_VALUE},
        {tarvocon_verify, {"verify", "u", "int16", "40000"}, TARVOCON_ERR_BAD_VALUE},
        {tarvocon_match, {"match", "u", "x7"}, TARVOCON_ERR_BAD_VALUE},
        // reported failures give 1
        {tarvocon_create, {"create", "u", "uint32", "7"}, 1},
        {tarvocon_match, {"match", "u", "8"}, 1},
        {tarvocon_get, {"get", "nothing"}, 1},
        {ls_handler, {"ls", "-num", "x"}, TARVOCON_ERR_BAD_VALUE},
        {ls_handler, {"ls", "-bogus", "x"}, 1},
        // success
        {tarvocon_match, {"match", "u", "7"}, 0},
        {ls_handler, {"ls", "-num", "1"}, 0},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.words[0] + " " + c.words[1]);
        EXPECT_EQ(run(c.handler, c.words), c.rc);
    }
}

} // namespace
