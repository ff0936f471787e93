// Event lists (event find, the pending changes of a transaction or bulk,
// and lists other modules build from files) and the three error lists.
//
// An event list holds one page of events; an errors list holds the entries
// asked for, read from the store in chunks.
#include <algorithm>

#include "lists.h"
#include "path_match.h"

struct tarvo_event_list_td {
    std::vector<tarvo::Event> events;
    size_t pos = 0;
    bool more = false;
};

struct tarvo_errors_list_td {
    std::vector<tarvo::ErrorEntry> entries;
    size_t pos = 0;
};

namespace tarvo {

tarvo_event_list_h_td new_event_list(std::vector<Event> events, bool more)
{
    auto *list = new tarvo_event_list_td();
    list->events = std::move(events);
    list->more = more;
    register_handle(list, HandleKind::EVENT_LIST);
    return list;
}

namespace {

// "All" for the error list counts: 0 and 0xFFFFFFFF.
uint32_t wanted_entries(const uint32_t *count)
{
    return (*count == 0 || *count == UINT32_MAX) ? UINT32_MAX : *count;
}

// The logged events the find keeps (the pending ones with the pending-only
// option; the log holds committed changes only).
Status event_page(tarvo_bind_td *bind, const char *match, const char *start, uint32_t wanted,
                  uint32_t access, uint32_t find_options, EventPage *page)
{
    std::string dir;
    ScanQuery q;
    bool nothing = false;
    Status s = find_query(*bind, match, start, access, find_options, &dir, &q, &nothing);
    if (!s.ok())
        return s;
    q.max_entries = std::min(wanted, bind->settings.batch_entries);
    Store *store = nullptr;
    PendingStore *pending = nullptr;
    s = bind_view(bind, access, &store, &pending);
    if (!s.ok() || nothing)
        return s;
    if (access & TARVO_ACCESS_OPTION_BULK)
        return pending ? pending->find_events(dir, q, page) : ok_status();
    return bind->store->find_events(dir, q, page);
}

Status pending_events(tarvo_bind_td *bind, bool in_order, std::vector<Event> *events)
{
    if (!bind->pending)
        return ok_status();
    Store *store = nullptr;
    PendingStore *pending = nullptr;
    Status s = bind_view(bind, 0, &store, &pending);  // a bulk's view is made on demand
    if (!s.ok())
        return s;
    *events = bind->pending->view->pending_events();
    if (!in_order)
        std::stable_sort(events->begin(), events->end(),
                         [](const Event &a, const Event &b) { return a.path < b.path; });
    return ok_status();
}

Status read_errors(Store &store, ErrorList which, uint32_t wanted, std::vector<ErrorEntry> *out)
{
    uint64_t after = 0;
    while (out->size() < wanted) {
        std::vector<ErrorEntry> chunk;
        uint32_t max = static_cast<uint32_t>(std::min<size_t>(1000, wanted - out->size()));
        Status s = store.errors(which, after, max, &chunk);
        if (!s.ok())
            return s;
        if (chunk.empty())
            break;
        after = chunk.back().seq;
        for (ErrorEntry &e : chunk)
            out->push_back(std::move(e));
    }
    return ok_status();
}

int errors_list(tarvo_bind_h_td handle, ErrorList which, uint32_t *count,
                tarvo_errors_list_h_td *list)
{
    if (!bind_is_live(handle))
        return TARVO_ERR_BAD_HANDLE;
    if (!count || !list)
        return fail(handle, error(TARVO_ERR_BAD_ARGUMENT));
    *list = nullptr;
    return guarded([&] {
        auto made = std::make_unique<tarvo_errors_list_td>();
        Status s = read_errors(*handle->store, which, wanted_entries(count), &made->entries);
        if (!s.ok())
            return fail(handle, s);
        *count = static_cast<uint32_t>(made->entries.size());
        register_handle(made.get(), HandleKind::ERRORS_LIST);
        *list = made.release();
        return 0;
    });
}

int clear_errors(tarvo_bind_h_td handle, ErrorList which)
{
    if (!bind_is_live(handle))
        return TARVO_ERR_BAD_HANDLE;
    return guarded([&] {
        Status s = handle->store->clear_errors(which);
        return s.ok() ? 0 : fail(handle, s);
    });
}

void *bytes(const std::string &value, bool present)
{
    return present && !value.empty() ? const_cast<char *>(value.data()) : nullptr;
}

uint32_t length(const std::string &value, bool present)
{
    return present ? static_cast<uint32_t>(value.size()) : 0;
}

char *text_or_null(const std::string &text)
{
    return text.empty() ? nullptr : const_cast<char *>(text.c_str());
}

}  // namespace
}  // namespace tarvo

using namespace tarvo;

extern "C" {

int tarvo_event_find(tarvo_bind_h_td handle, const char *match, const char *start,
                     uint32_t *count, tarvo_event_list_h_td *list, uint32_t access_options,
                     uint32_t find_options)
{
    if (!bind_is_live(handle))
        return TARVO_ERR_BAD_HANDLE;
    if (!count || !list)
        return fail(handle, error(TARVO_ERR_BAD_ARGUMENT));
    *list = nullptr;
    return guarded([&] {
        EventPage page;
        Status s = event_page(handle, match, start, *count, access_options, find_options, &page);
        if (!s.ok())
            return fail(handle, s);
        bool more = page.remain && page.events.size() < *count;
        *count = static_cast<uint32_t>(page.events.size());
        *list = new_event_list(std::move(page.events), more);
        return 0;
    });
}

int tarvo_find_precommit_changes_internal(tarvo_bind_h_td handle, uint32_t *count,
                                          tarvo_event_list_h_td *list, uint32_t debug_wp)
{
    if (!bind_is_live(handle))
        return TARVO_ERR_BAD_HANDLE;
    if (!count || !list || debug_wp > 1)
        return fail(handle, error(TARVO_ERR_BAD_ARGUMENT));
    *list = nullptr;
    return guarded([&] {
        std::vector<Event> events;
        Status s = pending_events(handle, debug_wp == 1, &events);
        if (!s.ok())
            return fail(handle, s);
        uint32_t wanted = wanted_entries(count);
        if (events.size() > wanted)
            events.resize(wanted);
        *count = static_cast<uint32_t>(events.size());
        *list = new_event_list(std::move(events), false);
        return 0;
    });
}

int tarvo_event_list_get_more_flag(tarvo_event_list_h_td list, int *more)
{
    if (!handle_is_live(list, HandleKind::EVENT_LIST))
        return TARVO_ERR_BAD_HANDLE;
    if (!more)
        return TARVO_ERR_BAD_ARGUMENT;
    *more = list->more ? 1 : 0;
    return 0;
}

int tarvo_event_list_last(tarvo_event_list_h_td list, char **name, tarvo_event_td *event,
                          tarvo_item_datatype_td *datatype, void **value, uint32_t *length_out)
{
    if (!handle_is_live(list, HandleKind::EVENT_LIST))
        return TARVO_ERR_BAD_HANDLE;
    if (!name || !event || !datatype || !value || !length_out)
        return TARVO_ERR_BAD_ARGUMENT;
    *name = nullptr;
    if (list->events.empty())
        return 0;
    const Event &e = list->events.back();
    *name = const_cast<char *>(e.path.c_str());
    *event = e.kind;
    *datatype = static_cast<tarvo_item_datatype_td>(e.datatype);
    bool old = e.kind == TARVO_EVENT_DELETE;
    *value = old ? bytes(e.old_value, e.has_old) : bytes(e.new_value, e.has_new);
    *length_out = old ? length(e.old_value, e.has_old) : length(e.new_value, e.has_new);
    return 0;
}

int tarvo_event_list_next_diff(tarvo_event_list_h_td list, char **name, tarvo_event_td *event,
                               tarvo_item_datatype_td *datatype, void **old_value,
                               uint32_t *old_length, void **new_value, uint32_t *new_length)
{
    if (!handle_is_live(list, HandleKind::EVENT_LIST))
        return TARVO_ERR_BAD_HANDLE;
    if (!name || !event || !datatype || !old_value || !old_length || !new_value || !new_length)
        return TARVO_ERR_BAD_ARGUMENT;
    *name = nullptr;
    if (list->pos == list->events.size())
        return 0;
    const Event &e = list->events[list->pos++];
    *name = const_cast<char *>(e.path.c_str());
    *event = e.kind;
    *datatype = static_cast<tarvo_item_datatype_td>(e.datatype);
    *old_value = bytes(e.old_value, e.has_old);
    *old_length = length(e.old_value, e.has_old);
    *new_value = bytes(e.new_value, e.has_new);
    *new_length = length(e.new_value, e.has_new);
    return 0;
}

void tarvo_event_list_free(tarvo_event_list_h_td list)
{
    if (!handle_is_live(list, HandleKind::EVENT_LIST))
        return;
    unregister_handle(list);
    delete list;
}

int tarvo_errors_list(tarvo_bind_h_td handle, uint32_t apply_errors, uint32_t *count,
                      tarvo_errors_list_h_td *list)
{
    if (apply_errors > 1 && bind_is_live(handle))
        return fail(handle, error(TARVO_ERR_BAD_ARGUMENT));
    return errors_list(handle, apply_errors ? ErrorList::APPLY_ERRORS : ErrorList::ERRORS,
                       count, list);
}

int tarvo_apply_errors_list(tarvo_bind_h_td handle, uint32_t *count,
                            tarvo_errors_list_h_td *list)
{
    return errors_list(handle, ErrorList::APPLY_ERRORS, count, list);
}

int tarvo_unscanned_errors_list(tarvo_bind_h_td handle, uint32_t *count,
                                tarvo_errors_list_h_td *list)
{
    return errors_list(handle, ErrorList::UNSCANNED, count, list);
}

int tarvo_errors_list_next(tarvo_errors_list_h_td list, tarvo_errors_list_entry_td *entry)
{
    if (!handle_is_live(list, HandleKind::ERRORS_LIST))
        return TARVO_ERR_BAD_HANDLE;
    if (!entry)
        return TARVO_ERR_BAD_ARGUMENT;
    *entry = tarvo_errors_list_entry_td{};
    if (list->pos == list->entries.size())
        return 0;
    const ErrorEntry &e = list->entries[list->pos++];
    entry->name = const_cast<char *>(e.path.c_str());
    entry->operations = e.operations;
    entry->value = bytes(e.value, true);
    entry->value_length = length(e.value, true);
    entry->delete_value = bytes(e.delete_value, true);
    entry->delete_value_length = length(e.delete_value, true);
    entry->datatype = static_cast<tarvo_item_datatype_td>(e.datatype);
    entry->error = static_cast<uint32_t>(e.code);
    entry->verifier_string = text_or_null(e.verifier_text);
    entry->prepared_error_string = text_or_null(e.prepared_text);
    return 0;
}

void tarvo_errors_list_free(tarvo_errors_list_h_td list)
{
    if (!handle_is_live(list, HandleKind::ERRORS_LIST))
        return;
    unregister_handle(list);
    delete list;
}

int tarvo_clear_apply_errors_list(tarvo_bind_h_td handle)
{
    return clear_errors(handle, ErrorList::APPLY_ERRORS);
}

int tarvo_clear_unscanned_errors_list(tarvo_bind_h_td handle)
{
    return clear_errors(handle, ErrorList::UNSCANNED);
}

}  // extern "C"
