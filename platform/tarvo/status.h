// Status: the result of every internal operation of the client. Code 0 is
// success; any other code is one of the TARVO_ERR_ codes, with a detail text
// that says which item, rule or file was involved. Nothing in the client
// throws across a function boundary that the C interface can see.
#ifndef TARVO_STATUS_H
#define TARVO_STATUS_H

#include <cstdint>
#include <string>
#include <utility>

#include "api_export.h"

namespace tarvo {

struct Status {
    int32_t code = 0;
    std::string detail;

    bool ok() const { return code == 0; }
};

inline Status ok_status() { return {}; }
inline Status error(int32_t code, std::string detail = {})
{
    return Status{code, std::move(detail)};
}

// The text of a TARVO_ERR_ code ("item already exists"); a generic text for
// other codes. Never null; static storage.
const char *code_text(int32_t code);

// Failures of the store itself (as opposed to a refused request): they always
// abort the whole change, whatever its atomic option says.
bool is_store_failure(int32_t code);

}  // namespace tarvo

#endif
