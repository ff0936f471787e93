// errcode_strerror: one table for the codes of every platform library.

#include "error_texts.h"

#include <platform/bag.h>
#include <platform/msg.h>
#include <platform/tarvo.h>
#include <platform/tuple.h>

#include <array>
#include <cstdio>

namespace tarvo::msg {

namespace {

// Generated from the code lists of the library headers, the one place where
// each code is given its name, value and text.
#define TARVO_MSG_ENTRY(name, code, text) ErrorText{name, #name, text},

constexpr ErrorText ERROR_TABLE[] = {
    TARVO_ERROR_LIST(TARVO_MSG_ENTRY)
    BAG_ERROR_LIST(TARVO_MSG_ENTRY)
    TUPLE_ERROR_LIST(TARVO_MSG_ENTRY)
};

#undef TARVO_MSG_ENTRY

/*
 * Detail sub-codes. A failed file operation (save, restore, diff, merge)
 * may OR a small detail word into the low byte of its main code, e.g. to
 * say which check of a damaged file failed. The item database header
 * declares them as TARVO_FILE_DETAIL_LIST(X), X(name, value, "text") with
 * value 1..255; this table picks them up from there. Until they exist every
 * detail is shown by number.
 */
struct DetailText {
    uint8_t detail;
    const char *text;
};

#ifdef TARVO_FILE_DETAIL_LIST
#define TARVO_MSG_DETAIL(name, value, text) DetailText{value, text},
constexpr DetailText DETAIL_TABLE[] = {TARVO_FILE_DETAIL_LIST(TARVO_MSG_DETAIL)};
#undef TARVO_MSG_DETAIL
#else
constexpr std::array<DetailText, 0> DETAIL_TABLE{};
#endif

} // namespace

std::span<const ErrorText> error_table() { return ERROR_TABLE; }

const char *find_error_text(int32_t code) {
    for (const ErrorText &entry : ERROR_TABLE)
        if (entry.code == code)
            return entry.text;
    return nullptr;
}

const char *find_detail_text(uint8_t detail) {
    for (const DetailText &entry : DETAIL_TABLE)
        if (entry.detail == detail)
            return entry.text;
    return nullptr;
}

} // namespace tarvo::msg

extern "C" const char *errcode_strerror(int32_t code) {
    using namespace tarvo::msg;
    if (const char *text = find_error_text(code))
        return text;

    // Texts made up here live in one buffer, valid until the next call that
    // needs it (the header's contract).
    static char made[160];
    uint8_t detail = static_cast<uint8_t>(code & 0xff);
    const char *main_text =
        detail != 0 ? find_error_text(static_cast<int32_t>(code & ~0xff)) : nullptr;
    if (main_text != nullptr) {
        const char *detail_text = find_detail_text(detail);
        if (detail_text != nullptr)
            std::snprintf(made, sizeof(made), "%s: %s", main_text, detail_text);
        else
            std::snprintf(made, sizeof(made), "%s (detail %u)", main_text,
                          static_cast<unsigned>(detail));
        return made;
    }
    std::snprintf(made, sizeof(made), "unknown error 0x%08x",
                  static_cast<uint32_t>(code));
    return made;
}
