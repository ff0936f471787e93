#include "status.h"

namespace tarvo {

const char *code_text(int32_t code)
{
    switch (static_cast<uint32_t>(code)) {
#define TARVO_CODE_TEXT(name, value, text) \
    case value:                            \
        return text;
        TARVO_ERROR_LIST(TARVO_CODE_TEXT)
#undef TARVO_CODE_TEXT
    default:
        return "unknown error";
    }
}

bool is_store_failure(int32_t code)
{
    return code == TARVO_ERR_STORE || code == TARVO_ERR_STORE_CORRUPT ||
           code == TARVO_ERR_BUSY || code == TARVO_ERR_NO_MEMORY ||
           code == TARVO_ERR_DATA_DIR;
}

}  // namespace tarvo
