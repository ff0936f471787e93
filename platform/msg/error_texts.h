/*
 * The one table of error texts behind errcode_strerror, open to the unit
 * tests so they can check it as a whole.
 */
#ifndef TARVO_MSG_ERROR_TEXTS_H
#define TARVO_MSG_ERROR_TEXTS_H

#include <cstdint>
#include <span>

namespace tarvo::msg {

struct ErrorText {
    int32_t code;
    const char *name;
    const char *text;
};

/* Every code of the item database, bag and tuple lists, in list order. */
std::span<const ErrorText> error_table();

/* The text of a listed code, or null. */
const char *find_error_text(int32_t code);

/* Detail sub-codes of the file operations: the text of one, or null. */
const char *find_detail_text(uint8_t detail);

} // namespace tarvo::msg

#endif
