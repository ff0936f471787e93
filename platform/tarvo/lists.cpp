#include "lists.h"

#include <algorithm>

#include "path_match.h"
#include "paths.h"

namespace tarvo {

class ListState {
public:
    Status open(tarvo_bind_td *bind, const char *path, const char *start, uint32_t wanted,
                bool chunked, uint32_t access, bool values);
    // A find: whole paths below the bind point that the match keeps.
    Status open_find(tarvo_bind_td *bind, const char *match, const char *start,
                     uint32_t wanted, bool chunked, uint32_t access, uint32_t find_options,
                     bool values);
    Status next(const ListEntry **entry);
    const ListEntry *last() const;
    bool more() const { return more_; }
    uint32_t size() const { return static_cast<uint32_t>(current_.size()); }
    void assign(std::vector<ListEntry> entries) { current_ = std::move(entries); }

private:
    Status fetch();
    Status fetch_page(Page *page);
    Status first(uint32_t wanted, bool chunked);

    tarvo_bind_td *bind_ = nullptr;  // checked before each chunk fetch
    uint32_t access_ = 0;
    std::string dir_;
    ListQuery query_;
    bool find_ = false;
    bool nothing_ = false;  // a find that can keep nothing
    ScanQuery scan_;
    bool chunked_ = false;
    bool exhausted_ = true;
    bool more_ = false;
    std::vector<ListEntry> current_, previous_;
    size_t pos_ = 0;
};

}  // namespace tarvo

struct tarvo_list_td {
    tarvo::ListState state;
};
struct tarvo_datalist_td {
    tarvo::ListState state;
};

namespace tarvo {

// A page of what the bind sees, or of its pending changes alone.
Status ListState::fetch_page(Page *page)
{
    Store *store = nullptr;
    PendingStore *pending = nullptr;
    Status s = bind_view(bind_, access_, &store, &pending);
    if (!s.ok())
        return s;
    if (find_) {
        if (nothing_ || (!pending && (access_ & TARVO_ACCESS_OPTION_BULK)))
            return ok_status();
        return pending ? pending->scan_pending(dir_, scan_, page) : store->scan(dir_, scan_, page);
    }
    if (pending)
        return pending->list_pending(dir_, query_, page);
    if (access_ & TARVO_ACCESS_OPTION_BULK) {
        // Nothing is pending, but the directory must still exist.
        ListQuery none = query_;
        none.max_entries = 0;
        s = store->list(dir_, none, page);
        *page = Page{};
        return s;
    }
    return store->list(dir_, query_, page);
}

Status ListState::fetch()
{
    Page page;
    Status s = fetch_page(&page);
    if (!s.ok())
        return s;
    // The chunk before stays alive, so an entry handed out remains valid at
    // least until the following call of _next.
    previous_.swap(current_);
    current_.clear();
    current_.reserve(page.entries.size());
    pos_ = 0;
    for (Node &node : page.entries) {
        std::string name = find_ ? std::move(node.path) : std::string(leaf_name(node.path));
        current_.push_back(ListEntry{std::move(name), node.datatype, std::move(node.value)});
    }
    exhausted_ = !page.remain;
    if (!current_.empty()) {
        query_.start = current_.back().name;
        query_.exclusive = true;
        scan_.start = current_.back().name;
        scan_.exclusive = true;
    }
    return ok_status();
}

Status ListState::first(uint32_t wanted, bool chunked)
{
    chunked_ = chunked;
    uint32_t bound = bind_->settings.batch_entries;
    if (chunked && wanted == 0)
        wanted = bound;
    query_.max_entries = std::min(wanted, bound);
    scan_.max_entries = query_.max_entries;
    query_.max_bytes = scan_.max_bytes = bind_->settings.batch_bytes;
    Status s = fetch();
    if (!s.ok())
        return s;
    if (!chunked) {
        more_ = !exhausted_ && current_.size() < wanted;
        exhausted_ = true;
    }
    return ok_status();
}

Status ListState::open(tarvo_bind_td *bind, const char *path, const char *start,
                       uint32_t wanted, bool chunked, uint32_t access, bool values)
{
    if ((access & TARVO_ACCESS_OPTION_NOBULK) && (access & TARVO_ACCESS_OPTION_BULK))
        return error(TARVO_ERR_BAD_OPTIONS, "committed-only and pending-only together");
    access_ = access;
    ResolvedPath where;
    Status s = resolve_path(bind->bind_point, path ? path : "", &where);
    if (!s.ok())
        return s;
    bind_ = bind;
    dir_ = dir_form(where.path);
    query_.start = start ? start : "";
    query_.exclusive = (access & TARVO_ACCESS_OPTION_NEXT) != 0;
    query_.reverse = (access & TARVO_ACCESS_OPTION_REVERSE) != 0;
    query_.with_values = values;
    return first(wanted, chunked);
}

Status ListState::open_find(tarvo_bind_td *bind, const char *match, const char *start,
                            uint32_t wanted, bool chunked, uint32_t access,
                            uint32_t find_options, bool values)
{
    bind_ = bind;
    access_ = access;
    find_ = true;
    Status s = find_query(*bind, match, start, access, find_options, &dir_, &scan_, &nothing_);
    if (!s.ok())
        return s;
    scan_.with_values = values;
    return first(wanted, chunked);
}

// A plain match string is a prefix of the path relative to the bind point,
// or of the whole path when it begins with "/"; a pattern is matched against
// the path relative to the bind point. Start names are whole paths (relative
// ones are taken from the bind point), as the entries are.
Status find_query(const tarvo_bind_td &bind, const char *match, const char *start,
                  uint32_t access, uint32_t find_options, std::string *dir, ScanQuery *q,
                  bool *nothing)
{
    if ((access & TARVO_ACCESS_OPTION_NOBULK) && (access & TARVO_ACCESS_OPTION_BULK))
        return error(TARVO_ERR_BAD_OPTIONS, "committed-only and pending-only together");
    *q = ScanQuery{};
    std::string text = match ? match : "";
    *dir = bind.bind_point;
    PathMatch &m = q->match;
    if (access & (TARVO_ACCESS_OPTION_REGEXP | TARVO_ACCESS_OPTION_COMP_REGEXP)) {
        m.kind = (access & TARVO_ACCESS_OPTION_COMP_REGEXP) ? PathMatch::Kind::NOT_REGEXP
                                                              : PathMatch::Kind::REGEXP;
    } else {
        if (!text.empty() && text[0] == '/') {
            *dir = "/";
            text.erase(0, 1);
        }
        m.kind = (find_options & TARVO_FIND_OPTION_STRICT) ? PathMatch::Kind::EXACT
                 : text.empty()                              ? PathMatch::Kind::ALL
                                                             : PathMatch::Kind::PREFIX;
        q->norecurse = (find_options & TARVO_FIND_OPTION_NORECURSE) != 0;
    }
    m.text = text;
    // Checked now, so that a bad pattern is the request's error.
    NodeSelector check;
    Status s = check.compile(*dir, *q);
    if (!s.ok())
        return s;
    std::string first_path = start ? start : "";
    if (!first_path.empty() && first_path[0] != '/')
        first_path = bind.bind_point + first_path;
    q->start = first_path;
    q->exclusive = (access & TARVO_ACCESS_OPTION_NEXT) != 0;
    q->reverse = (access & TARVO_ACCESS_OPTION_REVERSE) != 0;
    q->dirs = (find_options & TARVO_FIND_OPTION_DIRS) != 0;
    q->max_bytes = bind.settings.batch_bytes;
    // The store keeps no annotations or exclusions.
    *nothing = (find_options & (TARVO_FIND_OPTION_ONLY_ANNOT | TARVO_FIND_OPTION_ONLY_EXCLUDE)) != 0;
    return ok_status();
}

Status ListState::next(const ListEntry **entry)
{
    *entry = nullptr;
    if (pos_ == current_.size()) {
        if (!chunked_ || exhausted_)
            return ok_status();
        if (!bind_is_live(bind_))
            return error(TARVO_ERR_BAD_HANDLE, "the list's bind was released");
        Status s = fetch();
        // The directory went away since the last chunk: the list ends.
        if (s.code == TARVO_ERR_NOT_FOUND || s.code == TARVO_ERR_NOT_A_DIR) {
            exhausted_ = true;
            return ok_status();
        }
        if (!s.ok())
            return s;
        if (current_.empty())
            return ok_status();
    }
    *entry = &current_[pos_++];
    return ok_status();
}

const ListEntry *ListState::last() const
{
    if (!current_.empty())
        return &current_.back();
    return previous_.empty() ? nullptr : &previous_.back();
}

tarvo_datalist_h_td new_complete_datalist(std::vector<ListEntry> entries)
{
    auto *list = new tarvo_datalist_td();
    list->state.assign(std::move(entries));
    register_handle(list, HandleKind::DATALIST);
    return list;
}

}  // namespace tarvo

using namespace tarvo;

namespace {

template <typename List, typename Open>
int open_handle(tarvo_bind_h_td handle, List **out, uint32_t *delivered, Open open)
{
    constexpr bool values = std::is_same_v<List, tarvo_datalist_td>;
    if (!bind_is_live(handle))
        return TARVO_ERR_BAD_HANDLE;
    if (!out)
        return fail(handle, error(TARVO_ERR_BAD_ARGUMENT));
    *out = nullptr;
    return guarded([&] {
        auto list = std::make_unique<List>();
        Status s = open(list->state, values);
        if (!s.ok())
            return fail(handle, s);
        if (delivered)
            *delivered = list->state.size();
        register_handle(list.get(), values ? HandleKind::DATALIST : HandleKind::LIST);
        *out = list.release();
        return 0;
    });
}

template <typename List>
int open_list(tarvo_bind_h_td handle, const char *path, const char *start, uint32_t wanted,
              bool chunked, uint32_t access, List **out, uint32_t *delivered)
{
    return open_handle(handle, out, delivered, [&](ListState &state, bool values) {
        return state.open(handle, path, start, wanted, chunked, access, values);
    });
}

template <typename List>
int open_find(tarvo_bind_h_td handle, const char *match, const char *start, uint32_t wanted,
              bool chunked, uint32_t access, uint32_t find_options, List **out,
              uint32_t *delivered)
{
    return open_handle(handle, out, delivered, [&](ListState &state, bool values) {
        return state.open_find(handle, match, start, wanted, chunked, access, find_options,
                               values);
    });
}

// Hands one entry out; the datalist form also gives the value (null for a
// directory).
int read_entry(ListState &state, bool last, char **name, tarvo_item_datatype_td *datatype,
               void **value, uint32_t *length)
{
    return guarded([&] {
        const ListEntry *entry = nullptr;
        if (last) {
            entry = state.last();
        } else {
            Status s = state.next(&entry);
            if (!s.ok())
                return s.code;
        }
        *name = entry ? const_cast<char *>(entry->name.c_str()) : nullptr;
        if (!entry)
            return 0;
        *datatype = static_cast<tarvo_item_datatype_td>(entry->datatype);
        if (value) {
            bool dir = entry->datatype == TARVO_DATATYPE_DIR;
            *value = dir ? nullptr : const_cast<char *>(entry->value.data());
            *length = static_cast<uint32_t>(entry->value.size());
        }
        return 0;
    });
}

}  // namespace

extern "C" {

int tarvo_list(tarvo_bind_h_td handle, const char *path, const char *start, uint32_t *count,
               tarvo_list_h_td *list, uint32_t access_options)
{
    if (bind_is_live(handle) && !count)
        return fail(handle, error(TARVO_ERR_BAD_ARGUMENT));
    return open_list(handle, path, start, count ? *count : 0, false, access_options, list,
                     count);
}

int tarvo_chunk_list(tarvo_bind_h_td handle, const char *path, const char *start,
                     uint32_t chunk_size, tarvo_list_h_td *list, uint32_t access_options)
{
    return open_list(handle, path, start, chunk_size, true, access_options, list, nullptr);
}

int tarvo_find(tarvo_bind_h_td handle, const char *match, const char *start, uint32_t *count,
               tarvo_list_h_td *list, uint32_t access_options, uint32_t find_options)
{
    if (bind_is_live(handle) && !count)
        return fail(handle, error(TARVO_ERR_BAD_ARGUMENT));
    return open_find(handle, match, start, count ? *count : 0, false, access_options,
                     find_options, list, count);
}

int tarvo_chunk_find(tarvo_bind_h_td handle, const char *match, const char *start,
                     uint32_t chunk_size, tarvo_list_h_td *list, uint32_t access_options,
                     uint32_t find_options)
{
    return open_find(handle, match, start, chunk_size, true, access_options, find_options,
                     list, nullptr);
}

int tarvo_find_data(tarvo_bind_h_td handle, const char *match, const char *start,
                    uint32_t *count, tarvo_datalist_h_td *list, uint32_t access_options,
                    uint32_t find_options)
{
    if (bind_is_live(handle) && !count)
        return fail(handle, error(TARVO_ERR_BAD_ARGUMENT));
    return open_find(handle, match, start, count ? *count : 0, false, access_options,
                     find_options, list, count);
}

int tarvo_chunk_find_data(tarvo_bind_h_td handle, const char *match, const char *start,
                          uint32_t chunk_size, tarvo_datalist_h_td *list,
                          uint32_t access_options, uint32_t find_options)
{
    return open_find(handle, match, start, chunk_size, true, access_options, find_options,
                     list, nullptr);
}

int tarvo_list_next(tarvo_list_h_td list, char **name, tarvo_item_datatype_td *datatype,
                    void *reserved)
{
    if (!handle_is_live(list, HandleKind::LIST))
        return TARVO_ERR_BAD_HANDLE;
    if (!name || !datatype || reserved)
        return TARVO_ERR_BAD_ARGUMENT;
    return read_entry(list->state, false, name, datatype, nullptr, nullptr);
}

int tarvo_list_last(tarvo_list_h_td list, char **name, tarvo_item_datatype_td *datatype,
                    void *reserved)
{
    if (!handle_is_live(list, HandleKind::LIST))
        return TARVO_ERR_BAD_HANDLE;
    if (!name || !datatype || reserved)
        return TARVO_ERR_BAD_ARGUMENT;
    return read_entry(list->state, true, name, datatype, nullptr, nullptr);
}

int tarvo_list_get_more_flag(tarvo_list_h_td list, int *more)
{
    if (!handle_is_live(list, HandleKind::LIST))
        return TARVO_ERR_BAD_HANDLE;
    if (!more)
        return TARVO_ERR_BAD_ARGUMENT;
    *more = list->state.more() ? 1 : 0;
    return 0;
}

void tarvo_list_free(tarvo_list_h_td list)
{
    if (!handle_is_live(list, HandleKind::LIST))
        return;
    unregister_handle(list);
    delete list;
}

int tarvo_datalist(tarvo_bind_h_td handle, const char *path, const char *start, uint32_t *count,
                   tarvo_datalist_h_td *list, uint32_t access_options)
{
    if (bind_is_live(handle) && !count)
        return fail(handle, error(TARVO_ERR_BAD_ARGUMENT));
    return open_list(handle, path, start, count ? *count : 0, false, access_options, list,
                     count);
}

int tarvo_chunk_datalist(tarvo_bind_h_td handle, const char *path, const char *start,
                         uint32_t chunk_size, tarvo_datalist_h_td *list,
                         uint32_t access_options)
{
    return open_list(handle, path, start, chunk_size, true, access_options, list, nullptr);
}

int tarvo_datalist_next(tarvo_datalist_h_td list, char **name, tarvo_item_datatype_td *datatype,
                        void **value, uint32_t *length, void *reserved)
{
    if (!handle_is_live(list, HandleKind::DATALIST))
        return TARVO_ERR_BAD_HANDLE;
    if (!name || !datatype || !value || !length || reserved)
        return TARVO_ERR_BAD_ARGUMENT;
    return read_entry(list->state, false, name, datatype, value, length);
}

int tarvo_datalist_last(tarvo_datalist_h_td list, char **name, tarvo_item_datatype_td *datatype,
                        void **value, uint32_t *length, void *reserved)
{
    if (!handle_is_live(list, HandleKind::DATALIST))
        return TARVO_ERR_BAD_HANDLE;
    if (!name || !datatype || !value || !length || reserved)
        return TARVO_ERR_BAD_ARGUMENT;
    return read_entry(list->state, true, name, datatype, value, length);
}

int tarvo_datalist_get_more_flag(tarvo_datalist_h_td list, int *more)
{
    if (!handle_is_live(list, HandleKind::DATALIST))
        return TARVO_ERR_BAD_HANDLE;
    if (!more)
        return TARVO_ERR_BAD_ARGUMENT;
    *more = list->state.more() ? 1 : 0;
    return 0;
}

void tarvo_datalist_free(tarvo_datalist_h_td list)
{
    if (!handle_is_live(list, HandleKind::DATALIST))
        return;
    unregister_handle(list);
    delete list;
}

}  // extern "C"
