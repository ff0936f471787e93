// The memory backend: the same semantics as the SQLite store (it shares the
// write engine), kept in ordered maps. Used for scratchpad binds, which live
// only as long as their bind, and by the tests. A write transaction keeps an
// undo log so that a failed batch leaves the maps as they were.
#include <deque>
#include <map>
#include <optional>
#include <set>

#include "local_store.h"
#include "path_match.h"
#include "paths.h"

namespace tarvo {
namespace {

// The key of a node: its path without the final "/" of a directory, which
// gives the order of the store interface.
std::string node_key(std::string_view path)
{
    if (path.size() > 1 && path.back() == '/')
        path.remove_suffix(1);
    return std::string(path);
}

class MemoryStore final : public LocalStore {
public:
    explicit MemoryStore(const StoreOptions &options) : options_(options) {}

    Status lookup(std::string_view path, Node *node) override;
    Status list(std::string_view dir, const ListQuery &query, Page *page) override;
    Status scan(std::string_view dir, const ScanQuery &query, Page *page) override;
    Status events_after(uint64_t after, uint32_t max,
                        std::vector<Event> *events) override;
    Status find_events(std::string_view dir, const ScanQuery &query, EventPage *page) override
    {
        return find_events_in(events_, dir, query, page);
    }
    Status ping() override { return ok_status(); }
    Status stats(StoreStats *stats) override;

protected:
    Status begin_write() override;
    Status commit_write() override;
    void rollback_write() override;
    Status put_node(const Node &node) override;
    Status erase_node(std::string_view path) override;
    Status append_event(const Event &event) override;
    Status trim_events() override { return ok_status(); }  // done at commit
    Status last_event_seq(uint64_t *seq) override
    {
        *seq = next_seq_ - 1;
        return ok_status();
    }
    uint64_t event_window() const override { return options_.event_window; }
    Status get_record(Table table, std::string_view key, std::string *value) override;
    Status put_record(Table table, std::string_view key, std::string_view value) override;
    Status erase_record(Table table, std::string_view key) override;
    Status clear_records(Table table) override;
    Status read_records(Table table, std::string_view after, uint32_t max,
                        std::vector<Record> *records) override;

private:
    using Name = std::pair<std::string, std::string>;  // parent, name
    using RecordKey = std::pair<Table, std::string>;
    struct Undo {
        bool record = false;
        std::string key;            // node key
        RecordKey record_key;
        std::optional<Node> node;   // before
        std::optional<std::string> value;
    };

    Status fault();
    void raw_put(const Node &node);
    void raw_erase(const std::string &key);
    void remember_record(const RecordKey &key);
    // Adds a node to a page within the query's bounds; false when it is full.
    static bool add(Page *page, Node node, uint32_t max_entries, uint64_t max_bytes,
                    uint64_t *bytes);

    StoreOptions options_;
    std::map<std::string, Node, std::less<>> nodes_;  // by node key
    std::set<Name> names_;
    std::map<RecordKey, std::string> records_;
    std::deque<Event> events_;
    uint64_t next_seq_ = 1;
    std::vector<Undo> undo_;
    size_t events_mark_ = 0;
    uint64_t seq_mark_ = 1;
};

Status MemoryStore::fault()
{
    if (options_.faults && options_.faults->fail_write())
        return error(TARVO_ERR_STORE, "injected write fault in memory store");
    return ok_status();
}

Status MemoryStore::lookup(std::string_view path, Node *node)
{
    if (path == "/") {
        *node = Node{"/", TARVO_DATATYPE_DIR, {}};
        return ok_status();
    }
    auto it = nodes_.find(node_key(path));
    if (it == nodes_.end())
        return error(TARVO_ERR_NOT_FOUND, std::string(path));
    *node = it->second;
    return ok_status();
}

bool MemoryStore::add(Page *page, Node node, uint32_t max_entries, uint64_t max_bytes,
                      uint64_t *bytes)
{
    if (page->entries.size() >= max_entries || (!page->entries.empty() && *bytes >= max_bytes)) {
        page->remain = true;
        return false;
    }
    *bytes += node.path.size() + node.value.size();
    page->entries.push_back(std::move(node));
    return true;
}

Status MemoryStore::list(std::string_view dir, const ListQuery &q, Page *page)
{
    *page = Page{};
    if (dir != "/") {
        Node node;
        Status s = lookup(dir.substr(0, dir.size() - 1), &node);
        if (!s.ok())
            return s;
        if (!node.is_dir())
            return error(TARVO_ERR_NOT_A_DIR, node.path);
    }
    const std::string d(dir);
    uint64_t bytes = 0;
    auto emit = [&](const Name &name) {
        Node node = nodes_.at(name.first + name.second);
        if (!q.with_values)
            node.value.clear();
        return add(page, std::move(node), q.max_entries, q.max_bytes, &bytes);
    };
    if (!q.reverse) {
        auto it = q.start.empty() ? names_.lower_bound({d, ""})
                  : q.exclusive   ? names_.upper_bound({d, q.start})
                                  : names_.lower_bound({d, q.start});
        for (; it != names_.end() && it->first == d; ++it)
            if (!emit(*it))
                break;
    } else {
        auto it = q.start.empty() ? names_.lower_bound({d + '\0', ""})
                  : q.exclusive   ? names_.lower_bound({d, q.start})
                                  : names_.upper_bound({d, q.start});
        while (it != names_.begin()) {
            --it;
            if (it->first != d || !emit(*it))
                break;
        }
    }
    return ok_status();
}

Status MemoryStore::scan(std::string_view dir, const ScanQuery &q, Page *page)
{
    *page = Page{};
    const std::string lo(dir), hi = subtree_end(dir), start = node_key(q.start);
    NodeSelector selector;
    Status s = selector.compile(dir, q);
    if (!s.ok())
        return s;
    uint64_t bytes = 0;
    auto wanted = [&](const Node &n) {
        return (n.is_dir() ? q.dirs : q.items) && selector.keeps(node_key(n.path), n.datatype);
    };
    auto emit = [&](const Node &n) {
        Node copy = n;
        if (!q.with_values)
            copy.value.clear();
        return add(page, std::move(copy), q.max_entries, q.max_bytes, &bytes);
    };
    if (!q.reverse) {
        auto it = nodes_.upper_bound(lo);
        if (!q.start.empty()) {
            auto from = q.exclusive ? nodes_.upper_bound(start) : nodes_.lower_bound(start);
            // A start before the subtree changes nothing.
            if (from == nodes_.end() || from->first > lo)
                it = from;
        }
        for (; it != nodes_.end() && it->first < hi; ++it)
            if (wanted(it->second) && !emit(it->second))
                break;
    } else {
        auto it = nodes_.lower_bound(hi);
        if (!q.start.empty()) {
            auto to = q.exclusive ? nodes_.lower_bound(start) : nodes_.upper_bound(start);
            if (to != nodes_.end() && to->first < hi)
                it = to;
        }
        while (it != nodes_.begin()) {
            --it;
            if (it->first <= lo)
                break;
            if (wanted(it->second) && !emit(it->second))
                break;
        }
    }
    return ok_status();
}

Status MemoryStore::events_after(uint64_t after, uint32_t max, std::vector<Event> *events)
{
    for (const Event &e : events_) {
        if (events->size() >= max)
            break;
        if (e.seq > after)
            events->push_back(e);
    }
    return ok_status();
}

Status MemoryStore::stats(StoreStats *out)
{
    *out = StoreStats{};
    for (const auto &entry : nodes_)
        ++(entry.second.is_dir() ? out->dirs : out->items);
    out->events = events_.size();
    if (!events_.empty()) {
        out->first_event = events_.front().seq;
        out->last_event = events_.back().seq;
    }
    std::vector<Lock> held;
    Status s = locks(&held);
    out->locks = held.size();
    return s;
}

Status MemoryStore::begin_write()
{
    undo_.clear();
    events_mark_ = events_.size();
    seq_mark_ = next_seq_;
    return ok_status();
}

Status MemoryStore::commit_write()
{
    Status s = fault();
    if (!s.ok())
        return s;
    undo_.clear();
    while (events_.size() > options_.event_window)
        events_.pop_front();
    return ok_status();
}

void MemoryStore::rollback_write()
{
    for (auto it = undo_.rbegin(); it != undo_.rend(); ++it) {
        if (it->record) {
            if (it->value)
                records_[it->record_key] = *it->value;
            else
                records_.erase(it->record_key);
        } else if (it->node) {
            raw_put(*it->node);
        } else {
            raw_erase(it->key);
        }
    }
    undo_.clear();
    events_.resize(events_mark_);
    next_seq_ = seq_mark_;
}

void MemoryStore::raw_put(const Node &node)
{
    nodes_[node_key(node.path)] = node;
    names_.insert({parent_dir(node.path), std::string(leaf_name(node.path))});
}

void MemoryStore::raw_erase(const std::string &key)
{
    nodes_.erase(key);
    names_.erase({parent_dir(key), std::string(leaf_name(key))});
}

Status MemoryStore::put_node(const Node &node)
{
    Status s = fault();
    if (!s.ok())
        return s;
    std::string key = node_key(node.path);
    auto it = nodes_.find(key);
    Undo u;
    u.key = key;
    if (it != nodes_.end())
        u.node = it->second;
    undo_.push_back(std::move(u));
    raw_put(node);
    return ok_status();
}

Status MemoryStore::erase_node(std::string_view path)
{
    Status s = fault();
    if (!s.ok())
        return s;
    auto it = nodes_.find(node_key(path));
    if (it == nodes_.end())
        return ok_status();
    const std::string key = it->first;
    Undo u;
    u.key = key;
    u.node = it->second;
    undo_.push_back(std::move(u));
    raw_erase(key);
    return ok_status();
}

Status MemoryStore::append_event(const Event &event)
{
    Status s = fault();
    if (!s.ok())
        return s;
    if (event.seq)
        next_seq_ = event.seq;
    events_.push_back(event);
    events_.back().seq = next_seq_++;
    return ok_status();
}

void MemoryStore::remember_record(const RecordKey &key)
{
    Undo u;
    u.record = true;
    u.record_key = key;
    auto it = records_.find(key);
    if (it != records_.end())
        u.value = it->second;
    undo_.push_back(std::move(u));
}

Status MemoryStore::get_record(Table table, std::string_view key, std::string *value)
{
    auto it = records_.find({table, std::string(key)});
    if (it == records_.end())
        return error(TARVO_ERR_NOT_FOUND);
    *value = it->second;
    return ok_status();
}

Status MemoryStore::put_record(Table table, std::string_view key, std::string_view value)
{
    Status s = fault();
    if (!s.ok())
        return s;
    RecordKey k{table, std::string(key)};
    remember_record(k);
    records_[k] = std::string(value);
    return ok_status();
}

Status MemoryStore::erase_record(Table table, std::string_view key)
{
    Status s = fault();
    if (!s.ok())
        return s;
    RecordKey k{table, std::string(key)};
    remember_record(k);
    records_.erase(k);
    return ok_status();
}

Status MemoryStore::clear_records(Table table)
{
    Status s = fault();
    if (!s.ok())
        return s;
    auto it = records_.lower_bound({table, ""});
    while (it != records_.end() && it->first.first == table) {
        remember_record(it->first);
        it = records_.erase(it);
    }
    return ok_status();
}

Status MemoryStore::read_records(Table table, std::string_view after, uint32_t max,
                                 std::vector<Record> *records)
{
    auto it = records_.upper_bound({table, std::string(after)});
    for (; it != records_.end() && it->first.first == table && records->size() < max; ++it)
        records->push_back(Record{it->first.second, it->second});
    return ok_status();
}

}  // namespace

std::unique_ptr<Store> new_memory_store(const StoreOptions &options)
{
    return std::make_unique<MemoryStore>(options);
}

}  // namespace tarvo
