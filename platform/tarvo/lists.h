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

// An event list handing out `events` in their order, with the more flag
// given (for lists made from other sources than the log, such as files).
tarvo_event_list_h_td new_event_list(std::vector<Event> events, bool more);

// The scan of a find or event find: the directory it walks and the query
// (match, start, order, directories) for a match string, a start name and
// the access and find options. BAD_PATTERN for a pattern that does not
// compile. *nothing is set when the options can keep nothing.
Status find_query(const tarvo_bind_td &bind, const char *match, const char *start,
                  uint32_t access, uint32_t find_options, std::string *dir, ScanQuery *query,
                  bool *nothing);

}  // namespace tarvo

#endif
