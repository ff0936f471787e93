// Name lists and data lists handed out by tarvo_list, tarvo_datalist, their
// chunked forms and tarvo_get_items.
//
// A plain list holds one bounded batch. A chunked list holds the current
// chunk and the one before it, and fetches the next chunk inside _next with
// a keyset query (start after the last name delivered), so no statement or
// read transaction stays open between calls and the caller may abandon the
// list at any point.
#ifndef TARVO_LISTS_H
#define TARVO_LISTS_H

#include <string>
#include <vector>

#include "bind.h"

namespace tarvo {

struct ListEntry {
    std::string name;
    int32_t datatype = 0;
    std::string value;
};

// A complete data list (no more flag, no further chunks).
tarvo_datalist_h_td new_complete_datalist(std::vector<ListEntry> entries);

}  // namespace tarvo

#endif
