// The transaction command log: order, the end pointer, and the reduction to
// a single aborttrans.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tarvocon.h"

namespace {

std::vector<std::string> Entries(const tarvocon_state_td &state) {
    std::vector<std::string> entries;
    const tarvocon_command_item_td *last = nullptr;
    for (auto *item = state.list_start; item != nullptr; item = item->next) {
        entries.emplace_back(item->command);
        last = item;
    }
    EXPECT_EQ(state.list_end, last) << "list_end is not the last item";
    return entries;
}

void Drain(tarvocon_state_td *state) {
    while (state->list_start != nullptr) tarvocon_tran_delete_command(state);
}

TEST(TransactionLog, AppendsInOrderAndDeletesFromTheFront) {
    tarvocon_state_td state = {};
    tarvocon_tran_add_command("set a uint32 1", &state);
    tarvocon_tran_add_command("set b uint32 2", &state);
    tarvocon_tran_add_command("committrans", &state);
    EXPECT_EQ(Entries(state), (std::vector<std::string>{
                                  "set a uint32 1", "set b uint32 2",
                                  "committrans"}));
    tarvocon_tran_delete_command(&state);
    EXPECT_EQ(Entries(state),
              (std::vector<std::string>{"set b uint32 2", "committrans"}));
    tarvocon_tran_delete_command(&state);
    tarvocon_tran_delete_command(&state);
    EXPECT_EQ(state.list_start, nullptr);
    EXPECT_EQ(state.list_end, nullptr);
    // The log works again after it was empty.
    tarvocon_tran_add_command("get x", &state);
    EXPECT_EQ(Entries(state), (std::vector<std::string>{"get x"}));
    Drain(&state);
}

TEST(TransactionLog, AbortLeavesOneAborttrans) {
    for (int length : {1, 2, 5}) {
        tarvocon_state_td state = {};
        for (int i = 0; i < length; i++)
            tarvocon_tran_add_command(("set x" + std::to_string(i)).c_str(),
                                      &state);
        tarvocon_abort_transaction(&state);
        EXPECT_EQ(Entries(state), (std::vector<std::string>{"aborttrans"}))
            << length << " entries";
        Drain(&state);
    }
}

TEST(TransactionLog, KeepsAtMost1023Characters) {
    tarvocon_state_td state = {};
    std::string line(1500, 'l');
    tarvocon_tran_add_command(line.c_str(), &state);
    EXPECT_EQ(Entries(state), (std::vector<std::string>{line.substr(0, 1023)}));
    Drain(&state);
}

} // namespace
