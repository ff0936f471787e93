// The compiled forms of the filters in store.h, shared by the backends that
// evaluate them next to their data:
// - PathMatcher: a PathMatch, the filter of tree operations and finds over
//   relative paths;
// - NodeSelector: everything a ScanQuery says about which nodes to keep
//   (match, depth rule, iterator filter) and the key range that can hold
//   them, so that a backend reads only that range.
// Patterns and globs are RE2 (linear time: no pattern can hang a scan).
// Compiled objects are used by one thread at a time.
#ifndef TARVO_PATH_MATCH_H
#define TARVO_PATH_MATCH_H

#include <memory>

#include "store.h"

namespace re2 {
class RE2;
}

namespace tarvo {

class PathMatcher {
public:
    PathMatcher();
    ~PathMatcher();
    // BAD_PATTERN when a pattern does not compile.
    Status compile(const PathMatch &match);
    bool matches(std::string_view relative) const;
    const re2::RE2 *pattern() const { return re_.get(); }

private:
    const PathMatch *match_ = nullptr;
    std::unique_ptr<re2::RE2> re_;
};

// A glob of NodeFilter as an RE2 pattern over bytes.
std::string glob_pattern(std::string_view glob);

class NodeSelector {
public:
    NodeSelector();
    ~NodeSelector();
    // BAD_PATTERN for a pattern or glob that does not compile, BAD_ARGUMENT
    // for a filter whose terms refer forward. `query` must outlive this.
    Status compile(std::string_view dir, const ScanQuery &query);
    // `key`: a node's path without a directory's final "/".
    bool keeps(std::string_view key, int32_t datatype) const;

    // The keys that can be kept lie between lo and hi.
    std::string lo, hi;
    bool lo_inclusive = false, hi_inclusive = false;
    // Whether a key lies in that range.
    bool in_range(std::string_view key) const;

private:
    bool filter_keeps(std::string_view rel, int32_t datatype) const;
    void narrow_range(const std::string &min, const std::string &max, bool max_inclusive);

    std::string dir_;
    const ScanQuery *query_ = nullptr;
    PathMatcher matcher_;
    std::vector<std::unique_ptr<re2::RE2>> globs_;  // by term; null for others
    std::vector<bool> whole_path_;                   // glob holds a "/"
    mutable std::vector<char> results_;
    mutable std::string scratch_;
};

// One event as an event find orders and cuts it: its path, sequence, the
// bytes of its values and where the backend keeps it.
struct EventKey {
    std::string path;
    uint64_t seq = 0;
    uint64_t bytes = 0;
    size_t index = 0;
};

// Orders the keys by path and then sequence (both descending with
// q.reverse), drops those before q.start (all of that path too with
// q.exclusive), and keeps whole paths while the bounds allow (always the
// first path). *remain tells whether keys were cut off.
void cut_event_page(std::vector<EventKey> *keys, const ScanQuery &q, bool *remain);

// An event find over events held in memory (a vector or deque of Event).
template <typename Events>
Status find_events_in(const Events &events, std::string_view dir, const ScanQuery &q,
                      EventPage *page)
{
    *page = EventPage{};
    NodeSelector selector;
    Status s = selector.compile(dir, q);
    if (!s.ok())
        return s;
    std::vector<EventKey> keys;
    for (size_t i = 0; i < events.size(); i++) {
        const Event &e = events[i];
        if (selector.keeps(e.path, e.datatype))
            keys.push_back(EventKey{e.path, e.seq, e.old_value.size() + e.new_value.size(), i});
    }
    cut_event_page(&keys, q, &page->remain);
    for (const EventKey &key : keys)
        page->events.push_back(events[key.index]);
    return ok_status();
}

}  // namespace tarvo

#endif
