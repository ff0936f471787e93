// The prompt: bind tags, state marks and the last-50-characters rule.
#include <gtest/gtest.h>

#include <string>

#include "tarvocon.h"

namespace {

std::string Prompt(const tarvocon_state_td &state, const std::string &bind) {
    snprintf(tarvocon_bind_point, sizeof(tarvocon_bind_point), "%s",
             bind.c_str());
    char prompt[TARVOCON_PATH_SIZE];
    tarvocon_build_prompt(&state, prompt);
    return prompt;
}

tarvocon_state_td State(uint32_t options, uint32_t trans, uint32_t bulk,
                        uint32_t susp) {
    tarvocon_state_td state = {};
    state.bind_options = options;
    state.transaction_open = trans;
    state.bulk_open = bulk;
    state.verification_suspended = susp;
    return state;
}

TEST(Prompt, TagsAndMarks) {
    struct {
        tarvocon_state_td state;
        const char *bind;
        const char *prompt;
    } cases[] = {
        {State(0, 0, 0, 0), "/cfg/", "tarvocon:/cfg/> "},
        {State(0x4, 1, 0, 0), "/cfg/", "tarvocon:[m][trans]/cfg/> "},
        {State(0, 0, 1, 1), "/a/", "tarvocon:[bulk|vrfnsusp]/a/> "},
        {State(0, 0, 0, 1), "/", "tarvocon:[vrfnsusp]/> "},
        {State(0, 1, 0, 1), "/", "tarvocon:[trans|vrfnsusp]/> "},
        {State(0, 0, 1, 0), "/", "tarvocon:[bulk]/> "},
        {State(0x80, 0, 0, 0), "", "tarvocon:[c]> "},
        {State(0x10000, 0, 0, 0), "/", "tarvocon:[l]/> "},
        {State(0x20000, 0, 0, 0), "/", "tarvocon:[s]/> "},
        {State(0x40000, 0, 0, 0), "/", "tarvocon:[n]/> "},
        {State(0x20000000, 0, 0, 0), "/", "tarvocon:[D]/> "},
        {State(0x80000, 0, 0, 0), "/", "tarvocon:[a]/> "},
        // The first tag that applies wins: management before the planes.
        {State(0x4 | 0x80000, 0, 0, 0), "/", "tarvocon:[m]/> "},
        {State(0x10000 | 0x80000, 0, 0, 0), "/", "tarvocon:[l]/> "},
        {State(0x20000000 | 0x80000, 0, 0, 0), "/", "tarvocon:[D]/> "},
        // Bits without a tag show nothing.
        {State(0x800 | 0x2000 | 0x100 | 0x200, 0, 0, 0), "/", "tarvocon:/> "},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(Prompt(c.state, c.bind), c.prompt);
    }
}

TEST(Prompt, LongBindPointsShowTheirLastFiftyCharacters) {
    std::string fifty = "/" + std::string(48, 'a') + "/";
    ASSERT_EQ(fifty.size(), 50u);
    EXPECT_EQ(Prompt(State(0, 0, 0, 0), fifty), "tarvocon:" + fifty + "> ");

    std::string sixty = "/0123456789" + fifty.substr(1);
    ASSERT_EQ(sixty.size(), 60u);
    EXPECT_EQ(Prompt(State(0, 0, 0, 0), sixty),
              "tarvocon:$" + sixty.substr(10) + "> ");

    std::string fifty_one = "x" + fifty;
    EXPECT_EQ(Prompt(State(0x4, 1, 1, 1), fifty_one),
              "tarvocon:[m][transbulk|vrfnsusp]$" + fifty + "> ");

    std::string longest(1023, 'p');
    EXPECT_EQ(Prompt(State(0, 0, 0, 0), longest),
              "tarvocon:$" + std::string(50, 'p') + "> ");
}

} // namespace
