/*
 * The argument walk of the file and configuration-manager commands (see
 * file_args.h).
 */
#include <assert.h>

#include "tarvocon_commands_clone/file_args.h"

int tarvocon_walk_arguments(char **tokens, uint32_t first, uint32_t count,
                            const tarvocon_option_table_td *table,
                            tarvocon_walk_td *walk)
{
    assert(tokens != nullptr && table != nullptr && walk != nullptr);
    for (uint32_t i = first; i < count; i++) {
        if (tokens[i][0] != '-') {
            if (walk->positional_list) {
                walk->list[walk->list_count++] = tokens[i];
                continue;
            }
            if (walk->file == nullptr) {
                walk->file = tokens[i];
                continue;
            }
        }
        const tarvocon_option_td *option = tarvocon_find_option(table, tokens[i]);
        if (option == nullptr)
            return 1;
        if (option->argument == 0) {
            walk->flags |= option->bits;
            continue;
        }
        if (i + 1 >= count)
            return 1;
        if (option->argument == TARVOCON_WALK_LIST) {
            walk->list[walk->list_count++] = tokens[++i];
            continue;
        }
        assert(option->bits < TARVOCON_WALK_SLOTS);
        if (walk->values[option->bits] != nullptr)
            return 1;
        walk->values[option->bits] = tokens[++i];
    }
    return 0;
}

const char *tarvocon_walk_value(const tarvocon_walk_td *walk, uint32_t slot)
{
    assert(slot < TARVOCON_WALK_SLOTS);
    return walk->values[slot] != nullptr ? walk->values[slot] : "";
}

int tarvocon_report_excess(void)
{
    vel_printmsg(tarvocon_msg_sc_excess(), VEL_SEVERITY_WARNING);
    return 1;
}

int tarvocon_report_badformat(void)
{
    vel_printmsg(tarvocon_msg_sc_badformat(), VEL_SEVERITY_WARNING);
    return 1;
}

int tarvocon_report_missfilename(void)
{
    vel_printmsg(tarvocon_msg_sc_missfilename(), VEL_SEVERITY_WARNING);
    return 1;
}
