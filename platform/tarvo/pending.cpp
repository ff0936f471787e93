#include "pending.h"

#include <algorithm>
#include <functional>

#include "path_match.h"
#include "paths.h"

namespace tarvo {
namespace {

std::string node_key(std::string_view path)
{
    if (path.size() > 1 && path.back() == '/')
        path.remove_suffix(1);
    return std::string(path);
}

bool comes_before(const std::string &a, const std::string &b, bool reverse)
{
    return reverse ? b < a : a < b;
}

bool page_full(const Page &page, uint32_t max_entries, uint64_t max_bytes, uint64_t bytes)
{
    return page.entries.size() >= max_entries || (!page.entries.empty() && bytes >= max_bytes);
}

// Merges the base store's entries (fetched page by page) with the pending
// nodes of the same range, both in the query's order. A base entry whose key
// has a pending change gives way to it (a tombstone hides it). `overlay`
// holds the pending nodes from the query's start on, at least one more than
// the page can take, so that the page is decided before it runs out.
class Merge {
public:
    using Fetch = std::function<Status(Page *)>;
    Merge(const std::map<std::string, std::optional<Node>> &changes, Fetch fetch)
        : changes_(changes), fetch_(std::move(fetch))
    {
    }

    Status run(const std::vector<const Node *> &overlay, bool reverse, uint32_t max_entries,
               uint64_t max_bytes, bool with_values, Page *page)
    {
        *page = Page{};
        uint64_t bytes = 0;
        size_t next_overlay = 0;
        for (;;) {
            const Node *base = nullptr;
            Status s = peek_base(&base);
            if (!s.ok())
                return s;
            const Node *mine = next_overlay < overlay.size() ? overlay[next_overlay] : nullptr;
            if (!base && !mine)
                return ok_status();
            bool take_mine = mine && (!base || comes_before(node_key(mine->path),
                                                            node_key(base->path), reverse));
            if (page_full(*page, max_entries, max_bytes, bytes)) {
                page->remain = true;
                return ok_status();
            }
            Node node = take_mine ? *mine : *base;
            if (take_mine)
                ++next_overlay;
            else
                ++base_pos_;
            if (!with_values)
                node.value.clear();
            bytes += node.path.size() + node.value.size();
            page->entries.push_back(std::move(node));
        }
    }

private:
    Status peek_base(const Node **out)
    {
        for (;;) {
            while (base_pos_ < base_.entries.size()) {
                const Node &n = base_.entries[base_pos_];
                if (!changes_.count(node_key(n.path))) {
                    *out = &n;
                    return ok_status();
                }
                ++base_pos_;
            }
            *out = nullptr;
            if (base_done_)
                return ok_status();
            Status s = fetch_(&base_);
            if (!s.ok())
                return s;
            base_pos_ = 0;
            base_done_ = !base_.remain || base_.entries.empty();
        }
    }

    const std::map<std::string, std::optional<Node>> &changes_;
    Fetch fetch_;
    Page base_;
    size_t base_pos_ = 0;
    bool base_done_ = false;
};

}  // namespace

// ---- Reads ----

Status PendingStore::lookup(std::string_view path, Node *node)
{
    if (path == "/") {
        *node = Node{"/", TARVO_DATATYPE_DIR, {}};
        return ok_status();
    }
    auto it = changes_.find(node_key(path));
    if (it == changes_.end())
        return base_.lookup(path, node);
    if (!it->second)
        return error(TARVO_ERR_NOT_FOUND, std::string(path));
    *node = *it->second;
    return ok_status();
}

Status PendingStore::directory_exists(std::string_view dir)
{
    if (dir == "/")
        return ok_status();
    Node node;
    Status s = lookup(dir.substr(0, dir.size() - 1), &node);
    if (s.ok() && !node.is_dir())
        return error(TARVO_ERR_NOT_A_DIR, node.path);
    return s;
}

Status PendingStore::list(std::string_view dir, const ListQuery &q, Page *page)
{
    *page = Page{};
    Status s = directory_exists(dir);
    if (!s.ok())
        return s;
    const std::string d(dir);
    std::vector<const Node *> overlay;
    auto keep = [&](const Name &name) {
        if (name.first != d)
            return false;
        const std::optional<Node> &node = changes_.at(name.first + name.second);
        if (node)
            overlay.push_back(&*node);
        return overlay.size() <= q.max_entries;
    };
    if (!q.reverse) {
        auto it = q.start.empty() ? names_.lower_bound({d, ""})
                  : q.exclusive   ? names_.upper_bound({d, q.start})
                                  : names_.lower_bound({d, q.start});
        for (; it != names_.end() && keep(*it); ++it) {
        }
    } else {
        auto it = q.start.empty() ? names_.lower_bound({d + '\0', ""})
                  : q.exclusive   ? names_.lower_bound({d, q.start})
                                  : names_.upper_bound({d, q.start});
        while (it != names_.begin() && keep(*--it)) {
        }
    }
    ListQuery bq = q;
    bq.max_entries = q.max_entries + 1;
    Merge merge(changes_, [&](Page *base) {
        Status r = base_.list(dir, bq, base);
        if (r.code == TARVO_ERR_NOT_FOUND || r.code == TARVO_ERR_NOT_A_DIR) {
            *base = Page{};  // the directory is new, or was an item
            return ok_status();
        }
        if (r.ok() && !base->entries.empty()) {
            bq.start = std::string(leaf_name(base->entries.back().path));
            bq.exclusive = true;
        }
        return r;
    });
    return merge.run(overlay, q.reverse, q.max_entries, q.max_bytes, q.with_values, page);
}

// The pending nodes of a scan's range that the query keeps, from its start
// on, in its order; at most `limit`.
Status PendingStore::pending_nodes(std::string_view dir, const ScanQuery &q, size_t limit,
                                   std::vector<const Node *> *overlay)
{
    NodeSelector selector;
    Status s = selector.compile(dir, q);
    if (!s.ok())
        return s;
    const std::string lo(dir), hi = subtree_end(dir), start = node_key(q.start);
    auto keep = [&](const std::pair<const std::string, std::optional<Node>> &entry) {
        const std::optional<Node> &node = entry.second;
        if (node && (node->is_dir() ? q.dirs : q.items) && selector.keeps(entry.first, node->datatype))
            overlay->push_back(&*node);
        return overlay->size() < limit;
    };
    if (!q.reverse) {
        auto it = changes_.upper_bound(lo);
        if (!q.start.empty() && start > lo)
            it = q.exclusive ? changes_.upper_bound(start) : changes_.lower_bound(start);
        for (; it != changes_.end() && it->first < hi && keep(*it); ++it) {
        }
    } else {
        auto it = changes_.lower_bound(hi);
        if (!q.start.empty() && start < hi)
            it = q.exclusive ? changes_.lower_bound(start) : changes_.upper_bound(start);
        while (it != changes_.begin()) {
            --it;
            if (it->first <= lo || !keep(*it))
                break;
        }
    }
    return ok_status();
}

Status PendingStore::scan(std::string_view dir, const ScanQuery &q, Page *page)
{
    *page = Page{};
    std::vector<const Node *> overlay;
    Status s = pending_nodes(dir, q, size_t{q.max_entries} + 1, &overlay);
    if (!s.ok())
        return s;
    ScanQuery bq = q;
    bq.max_entries = q.max_entries + 1;
    Merge merge(changes_, [&](Page *base) {
        Status r = base_.scan(dir, bq, base);
        if (r.ok() && !base->entries.empty()) {
            bq.start = base->entries.back().path;
            bq.exclusive = true;
        }
        return r;
    });
    return merge.run(overlay, q.reverse, q.max_entries, q.max_bytes, q.with_values, page);
}

Status PendingStore::scan_pending(std::string_view dir, const ScanQuery &q, Page *page)
{
    *page = Page{};
    std::vector<const Node *> overlay;
    Status s = pending_nodes(dir, q, size_t{q.max_entries} + 1, &overlay);
    if (!s.ok())
        return s;
    uint64_t bytes = 0;
    for (const Node *node : overlay) {
        if (page_full(*page, q.max_entries, q.max_bytes, bytes)) {
            page->remain = true;
            break;
        }
        Node copy = *node;
        if (!q.with_values)
            copy.value.clear();
        bytes += copy.path.size() + copy.value.size();
        page->entries.push_back(std::move(copy));
    }
    return ok_status();
}

Status PendingStore::find_events(std::string_view dir, const ScanQuery &q, EventPage *page)
{
    return find_events_in(events_, dir, q, page);
}

Status PendingStore::lookup_pending(std::string_view path, Node *node)
{
    auto it = changes_.find(node_key(path));
    if (it == changes_.end() || !it->second)
        return error(TARVO_ERR_NOT_FOUND, std::string(path) + " has no pending change");
    *node = *it->second;
    return ok_status();
}

Status PendingStore::list_pending(std::string_view dir, const ListQuery &q, Page *page)
{
    *page = Page{};
    Status s = directory_exists(dir);
    if (!s.ok())
        return s;
    const std::string d(dir);
    std::vector<const Node *> overlay;
    for (auto it = names_.lower_bound({d, ""}); it != names_.end() && it->first == d; ++it) {
        const std::string &name = it->second;
        bool wanted = q.start.empty() ||
                      (q.reverse ? (q.exclusive ? name < q.start : name <= q.start)
                                 : (q.exclusive ? name > q.start : name >= q.start));
        const std::optional<Node> &node = changes_.at(d + name);
        if (node && wanted)
            overlay.push_back(&*node);
    }
    if (q.reverse)
        std::reverse(overlay.begin(), overlay.end());
    // The pending nodes alone: merged with an empty base.
    const std::map<std::string, std::optional<Node>> none;
    Merge merge(none, [](Page *base) {
        *base = Page{};
        return ok_status();
    });
    return merge.run(overlay, q.reverse, q.max_entries, q.max_bytes, q.with_values, page);
}

Status PendingStore::events_after(uint64_t after, uint32_t max, std::vector<Event> *events)
{
    for (const Event &e : events_) {
        if (events->size() >= max)
            break;
        if (e.seq > after)
            events->push_back(e);
    }
    return ok_status();
}

Status PendingStore::stats(StoreStats *out)
{
    *out = StoreStats{};
    for (const auto &entry : changes_)
        if (entry.second)
            ++(entry.second->is_dir() ? out->dirs : out->items);
    out->events = events_.size();
    return ok_status();
}

// ---- Writes into the overlay ----

Status PendingStore::begin_write()
{
    undo_.clear();
    events_mark_ = events_.size();
    return ok_status();
}

Status PendingStore::commit_write()
{
    undo_.clear();
    return ok_status();
}

void PendingStore::rollback_write()
{
    for (auto it = undo_.rbegin(); it != undo_.rend(); ++it) {
        if (it->had) {
            changes_[it->key] = it->before;
        } else {
            changes_.erase(it->key);
            names_.erase({parent_dir(it->key), std::string(leaf_name(it->key))});
        }
    }
    undo_.clear();
    events_.resize(events_mark_);
}

void PendingStore::set_change(const std::string &key, std::optional<Node> node)
{
    auto it = changes_.find(key);
    Undo u{key, it != changes_.end(), {}};
    if (u.had)
        u.before = it->second;
    undo_.push_back(std::move(u));
    changes_[key] = std::move(node);
    names_.insert({parent_dir(key), std::string(leaf_name(key))});
}

Status PendingStore::put_node(const Node &node)
{
    set_change(node_key(node.path), node);
    return ok_status();
}

Status PendingStore::erase_node(std::string_view path)
{
    set_change(node_key(path), std::nullopt);
    return ok_status();
}

Status PendingStore::append_event(const Event &event)
{
    events_.push_back(event);
    events_.back().seq = events_.size();
    return ok_status();
}

Status PendingStore::get_record(Table, std::string_view, std::string *)
{
    return error(TARVO_ERR_NOT_FOUND);
}

Status PendingStore::read_records(Table table, std::string_view after, uint32_t max,
                                  std::vector<Record> *records)
{
    if (table != Table::LOCKS)
        return ok_status();
    std::vector<Lock> held;
    Status s = base_.locks(&held);
    for (const Lock &lock : held) {
        std::string key = lock.path + '\0' + lock.holder.bind_id;
        if (key > after && records->size() < max)
            records->push_back(Record{key, encode_lock(lock)});
    }
    return s;
}

// ---- The bulk log ----

namespace {

bool writes(const Op &op) { return op.kind == OpKind::CREATE || op.kind == OpKind::SET; }

bool deletes(const Op &op)
{
    return op.kind == OpKind::DELETE || op.kind == OpKind::DELETE_IF_EQUAL;
}

enum class Fold { KEPT, MERGED, CANCELLED };

// Folds `next` into `last`, the last operation held on the same item, in
// place (the item's path in `last` stays where it is).
Fold fold(Op &last, Op &next)
{
    if (writes(last) && next.kind == OpKind::SET && next.datatype == last.datatype) {
        last.value = std::move(next.value);
        last.create_missing = last.create_missing || next.create_missing;
        return Fold::MERGED;
    }
    if (last.kind == OpKind::CREATE && next.kind == OpKind::DELETE)
        return Fold::CANCELLED;  // created and deleted: nothing happened
    if (last.kind == OpKind::SET && next.kind == OpKind::DELETE) {
        last.kind = OpKind::DELETE;
        last.value.clear();
        last.create_missing = false;
        last.subtree = next.subtree;
        return Fold::MERGED;
    }
    return Fold::KEPT;
}

}  // namespace

// An operation on an item may fold into the last one held on that item
// unless a tree operation, or a delete of a directory above the item, came
// in between (it may have changed what the later operation meets).
bool BulkLog::may_fold(const Op &op, uint32_t last) const
{
    if (any_tree_op_ && tree_op_ > last)
        return false;
    if (subtree_delete_.empty())
        return true;
    for (const std::string &dir : ancestor_dirs(op.path)) {
        auto it = subtree_delete_.find(dir);
        if (it != subtree_delete_.end() && it->second > last)
            return false;
    }
    return true;
}

size_t BulkLog::LastOps::slot(uint64_t key) const
{
    const size_t mask = keys_.size() - 1;
    size_t i = key & mask;
    while (keys_[i] && keys_[i] != key)
        i = (i + 1) & mask;
    return i;
}

uint32_t BulkLog::LastOps::find(uint64_t hash) const
{
    const uint64_t key = hash | 1;  // 0 marks a free slot
    if (keys_.empty())
        return NONE;
    size_t i = slot(key);
    return keys_[i] ? values_[i] : NONE;
}

void BulkLog::LastOps::set(uint64_t hash, uint32_t index)
{
    if (2 * (used_ + 1) > keys_.size()) {
        LastOps bigger;
        bigger.keys_.assign(keys_.empty() ? 1024 : 2 * keys_.size(), 0);
        bigger.values_.assign(bigger.keys_.size(), NONE);
        for (size_t i = 0; i < keys_.size(); ++i)
            if (keys_[i]) {
                size_t j = bigger.slot(keys_[i]);
                bigger.keys_[j] = keys_[i];
                bigger.values_[j] = values_[i];
                ++bigger.used_;
            }
        *this = std::move(bigger);
    }
    const uint64_t key = hash | 1;
    size_t i = slot(key);
    if (!keys_[i]) {
        keys_[i] = key;
        ++used_;
    }
    values_[i] = index;
}

uint32_t BulkLog::last_on(const std::string &path, uint64_t *hash) const
{
    *hash = std::hash<std::string>()(path);
    uint32_t last = last_.find(*hash);
    if (last == NONE || ops_[last].path != path)
        return NONE;
    return last;
}

void BulkLog::add(Op op)
{
    const uint32_t at = static_cast<uint32_t>(ops_.size());
    if (op.kind == OpKind::DELETE_TREE || op.kind == OpKind::COPY) {
        tree_op_ = at;
        any_tree_op_ = true;
        ops_.push_back(std::move(op));
        previous_.push_back(NONE);
        live_.push_back(true);
        return;
    }
    uint64_t hash = 0;
    const uint32_t last = last_on(op.path, &hash);
    if (last != NONE && may_fold(op, last)) {
        Fold folded = fold(ops_[last], op);
        if (folded == Fold::MERGED)
            return;
        if (folded == Fold::CANCELLED) {
            live_[last] = false;
            ++dead_;
            last_.set(hash, previous_[last]);
            return;
        }
    }
    if (op.kind == OpKind::DELETE && op.subtree)  // the item may be a directory
        subtree_delete_[op.path + "/"] = at;
    ops_.push_back(std::move(op));
    previous_.push_back(last);
    live_.push_back(true);
    last_.set(hash, at);
}

uint32_t BulkLog::remove(const std::string &path, uint32_t kind)
{
    return remove_where([&](const Op &op) {
        bool creates = writes(op) || op.kind == OpKind::COPY;
        bool dels = deletes(op) || op.kind == OpKind::DELETE_TREE;
        const std::string &at = op.kind == OpKind::COPY ? op.extra().target : op.path;
        bool here = path.empty() || node_key(at) == node_key(path);
        return here && (kind == TARVO_BULK_REMOVE_ALL ||
                        (kind == TARVO_BULK_REMOVE_CREATES && creates) ||
                        (kind == TARVO_BULK_REMOVE_DELETES && dels));
    });
}

uint32_t BulkLog::remove_where(const std::function<bool(const Op &)> &chosen)
{
    uint32_t removed = 0;
    for (size_t i = 0; i < ops_.size(); ++i) {
        if (live_[i] && chosen(ops_[i])) {
            live_[i] = false;
            ++removed;
        }
    }
    // What is left is not folded into any more: later operations start anew.
    last_.clear();
    any_tree_op_ = true;
    tree_op_ = static_cast<uint32_t>(ops_.size());
    dead_ += removed;
    return removed;
}

std::vector<Op> BulkLog::ops() const
{
    std::vector<Op> out;
    out.reserve(count());
    for (size_t i = 0; i < ops_.size(); ++i)
        if (live_[i])
            out.push_back(ops_[i]);
    return out;
}

std::vector<Op> BulkLog::take()
{
    std::vector<Op> out = std::move(ops_);
    if (dead_) {
        size_t kept = 0;
        // An Op moved onto itself would lose its strings.
        for (size_t i = 0; i < out.size(); ++i) {
            if (!live_[i])
                continue;
            if (kept != i)
                out[kept] = std::move(out[i]);
            ++kept;
        }
        out.resize(kept);
    }
    *this = BulkLog();
    return out;
}

void BulkLog::written_below(const std::string &dir, std::vector<std::string> *items,
                            std::vector<std::string> *trees) const
{
    auto relative = [&dir](const std::string &path, std::string *rel) {
        if (path.size() <= dir.size() || path.compare(0, dir.size(), dir) != 0)
            return false;
        *rel = node_key(path.substr(dir.size()));
        return true;
    };
    std::string rel;
    for (size_t i = 0; i < ops_.size(); ++i) {
        const Op &op = ops_[i];
        if (!live_[i])
            continue;
        if (writes(op) && relative(op.path, &rel))
            items->push_back(rel);
        else if (op.kind == OpKind::COPY && relative(op.extra().target, &rel))
            trees->push_back(rel);
    }
    std::sort(items->begin(), items->end());
}

}  // namespace tarvo
