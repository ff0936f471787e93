/*
 * The transaction command log: the lines typed during a buffered transaction
 * (starttrans -b), kept in order until the command loop replays them. The
 * log is a singly linked list from state->list_start to state->list_end and
 * owns its items.
 */
#include <assert.h>
#include <stdlib.h>
#include <string.h>

#include "tarvocon.h"

void tarvocon_tran_add_command(const char *command_string,
                               tarvocon_state_td *state)
{
    assert(command_string != nullptr && state != nullptr);
    auto *item = static_cast<tarvocon_command_item_td *>(
        calloc(1, sizeof(tarvocon_command_item_td)));
    assert(item != nullptr);
    strncpy(item->command, command_string, TARVOCON_LINE_SIZE - 1);
    item->next = nullptr;
    if (state->list_end != nullptr)
        state->list_end->next = item;
    else
        state->list_start = item;
    state->list_end = item;
}

void tarvocon_tran_delete_command(tarvocon_state_td *state)
{
    assert(state != nullptr && state->list_start != nullptr);
    tarvocon_command_item_td *first = state->list_start;
    state->list_start = first->next;
    if (state->list_start == nullptr)
        state->list_end = nullptr;
    free(first);
}

void tarvocon_abort_transaction(tarvocon_state_td *state)
{
    assert(state != nullptr && state->list_start != nullptr);
    while (state->list_start->next != nullptr)
        tarvocon_tran_delete_command(state);
    /* The one item left now stands for the whole transaction. */
    strcpy(state->list_start->command, "aborttrans");
}
