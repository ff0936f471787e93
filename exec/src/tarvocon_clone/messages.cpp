/*
 * The message catalogue: one read-only definition per entry of
 * TARVOCON_MESSAGE_LIST, stored in code order, and one accessor per
 * mnemonic. Every SC_ definition carries a mutable record for the message
 * printer (first word 1); the others carry none.
 */
#include <string_view>

#include "tarvocon.h"

namespace {

constexpr bool tarvocon_is_console_message(std::string_view mnemonic)
{
    return mnemonic.starts_with("SC_");
}

/* Index of each definition in the catalogue array. */
enum tarvocon_message_index_td {
#define TARVOCON_INDEX_OF(NAME, lower, code, sev, printed, fmt) TARVOCON_MSG_##NAME,
    TARVOCON_MESSAGE_LIST(TARVOCON_INDEX_OF)
#undef TARVOCON_INDEX_OF
    TARVOCON_MESSAGE_COUNT
};

/* The printer's records; only those of SC_ definitions are referenced. */
vel_msg_state_td tarvocon_message_states[TARVOCON_MESSAGE_COUNT] = {
#define TARVOCON_STATE_OF(NAME, lower, code, sev, printed, fmt) {1, 0},
    TARVOCON_MESSAGE_LIST(TARVOCON_STATE_OF)
#undef TARVOCON_STATE_OF
};

const vel_msgdef_td tarvocon_messages[TARVOCON_MESSAGE_COUNT] = {
#define TARVOCON_DEFINITION_OF(NAME, lower, code, sev, printed, fmt)           \
    {0,                                                                        \
     fmt,                                                                      \
     tarvocon_is_console_message(#NAME)                                        \
         ? &tarvocon_message_states[TARVOCON_MSG_##NAME]                       \
         : nullptr,                                                            \
     "TARVO",                                                                  \
     "TARVO",                                                                  \
     #NAME,                                                                    \
     (uint32_t)(sev) << 16,                                                    \
     0,                                                                        \
     code},
    TARVOCON_MESSAGE_LIST(TARVOCON_DEFINITION_OF)
#undef TARVOCON_DEFINITION_OF
};

} // namespace

#define TARVOCON_ACCESSOR_OF(NAME, lower, code, sev, printed, fmt)             \
    const vel_msgdef_td *tarvocon_msg_##lower(void)                            \
    {                                                                          \
        return &tarvocon_messages[TARVOCON_MSG_##NAME];                        \
    }
TARVOCON_MESSAGE_LIST(TARVOCON_ACCESSOR_OF)
#undef TARVOCON_ACCESSOR_OF

const vel_msgdef_td *tarvocon_msg_catalogue(unsigned *count)
{
    if (count != nullptr)
        *count = TARVOCON_MESSAGE_COUNT;
    return tarvocon_messages;
}
