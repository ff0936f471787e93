/*
 * Error text of a failed data-changing request (create, set, delete,
 * delete_cond, verify, copy, and the ends of transactions and bulks:
 * committrans, endbulk): the client's prepared text when it has one, else
 * the code's text.
 */
#ifndef TARVOCON_ITEM_ERRORS_H
#define TARVOCON_ITEM_ERRORS_H

#include <stdlib.h>

#include "tarvocon.h"

/* The text for `code`. When *prepared is set after the call, the text is
 * that allocation and the caller frees it after printing. */
static inline const char *tarvocon_change_error_text(int32_t code,
                                                     char **prepared)
{
    *prepared = NULL;
    if (tarvo_prepare_error_string(tarvocon_bind_handle, code, prepared) ==
            0 &&
        *prepared != NULL) {
        return *prepared;
    }
    *prepared = NULL;
    return errcode_strerror(code);
}

#endif
