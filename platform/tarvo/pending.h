// The changes a bind makes inside an open transaction or bulk, before they
// reach the store.
//
// PendingStore is the bind's view: the committed data of a base store with
// the pending changes laid over it. It is a LocalStore, so a request is run
// against it with the same checks as against the store itself, and its
// nodes (items, directories that appear or go, tombstones) are kept in
// ordered maps; reads merge them with the base store's pages in the order of
// the store interface.
//
// BulkLog is a bulk's list of operations, collapsed per item as they arrive
// (create then set is one create, create then delete is nothing). Tree
// operations (subtree deletes, copies) stay single entries; an operation
// never merges with one that came before a tree operation that may touch it.
#ifndef TARVO_PENDING_H
#define TARVO_PENDING_H

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <unordered_map>

#include "local_store.h"

namespace tarvo {

class PendingStore final : public LocalStore {
public:
    explicit PendingStore(Store &base) : base_(base) {}

    Status lookup(std::string_view path, Node *node) override;
    Status list(std::string_view dir, const ListQuery &query, Page *page) override;
    Status scan(std::string_view dir, const ScanQuery &query, Page *page) override;
    // The pending events (what the changes would announce), oldest first.
    Status events_after(uint64_t after, uint32_t max, std::vector<Event> *events) override;
    // The pending events alone (the log of the base holds the committed ones).
    Status find_events(std::string_view dir, const ScanQuery &query, EventPage *page) override;
    // The pending events in the order they were made.
    const std::vector<Event> &pending_events() const { return events_; }
    Status ping() override { return base_.ping(); }
    Status stats(StoreStats *stats) override;

    // The pending changes alone: a node the changes wrote (NOT_FOUND for an
    // untouched or deleted path); the children they wrote in a directory.
    Status lookup_pending(std::string_view path, Node *node);
    Status list_pending(std::string_view dir, const ListQuery &query, Page *page);
    Status scan_pending(std::string_view dir, const ScanQuery &query, Page *page);

protected:
    Status begin_write() override;
    Status commit_write() override;
    void rollback_write() override;
    Status put_node(const Node &node) override;
    Status erase_node(std::string_view path) override;
    Status append_event(const Event &event) override;
    Status trim_events() override { return ok_status(); }
    Status last_event_seq(uint64_t *seq) override
    {
        *seq = events_.size();
        return ok_status();
    }
    // Locks come from the base store; no other record is kept here.
    Status get_record(Table table, std::string_view key, std::string *value) override;
    Status put_record(Table, std::string_view, std::string_view) override { return ok_status(); }
    Status erase_record(Table, std::string_view) override { return ok_status(); }
    Status clear_records(Table) override { return ok_status(); }
    Status read_records(Table table, std::string_view after, uint32_t max,
                        std::vector<Record> *records) override;

private:
    using Name = std::pair<std::string, std::string>;  // parent, name
    struct Undo {
        std::string key;
        bool had = false;
        std::optional<Node> before;  // the change held before (nullopt: a tombstone)
    };
    void set_change(const std::string &key, std::optional<Node> node);
    Status pending_nodes(std::string_view dir, const ScanQuery &q, size_t limit,
                         std::vector<const Node *> *overlay);
    Status directory_exists(std::string_view dir);

    Store &base_;
    std::map<std::string, std::optional<Node>> changes_;  // node key -> node or tombstone
    std::set<Name> names_;                                 // the keys of changes_ by name
    std::vector<Event> events_;
    std::vector<Undo> undo_;
    size_t events_mark_ = 0;
};

class BulkLog {
public:
    void add(Op op);
    // Removes the operations of `kind` (TARVO_BULK_REMOVE_*) on `path`, or on
    // every path when it is empty; the number removed.
    uint32_t remove(const std::string &path, uint32_t kind);
    // Removes the operations `chosen` selects; the number removed.
    uint32_t remove_where(const std::function<bool(const Op &)> &chosen);
    uint32_t count() const { return static_cast<uint32_t>(ops_.size()) - dead_; }
    // The operations in the order the end applies them: copied, or moved
    // out (the log is empty afterwards).
    std::vector<Op> ops() const;
    std::vector<Op> take();
    // Paths the bulk writes (creates, sets) and destinations of its copies,
    // relative to `dir`, sorted: what a replacing end keeps.
    void written_below(const std::string &dir, std::vector<std::string> *items,
                       std::vector<std::string> *trees) const;

private:
    static constexpr uint32_t NONE = UINT32_MAX;
    bool may_fold(const Op &op, uint32_t last) const;
    uint32_t last_on(const std::string &path, uint64_t *hash) const;

    // The operations in order, kept as the batch the end applies; removed
    // ones are marked dead and left out then.
    std::vector<Op> ops_;
    std::vector<uint32_t> previous_;  // the operation before, on the same item
    std::vector<bool> live_;
    uint32_t dead_ = 0;
    // The last live operation on each item, by a hash of its path (checked
    // against the path: a collision only keeps two operations apart), in an
    // open-addressing table: no allocation per operation.
    class LastOps {
    public:
        uint32_t find(uint64_t hash) const;  // NONE when absent
        void set(uint64_t hash, uint32_t index);
        void clear() { *this = LastOps(); }

    private:
        size_t slot(uint64_t key) const;
        std::vector<uint64_t> keys_;  // 0: free
        std::vector<uint32_t> values_;
        size_t used_ = 0;
    };
    LastOps last_;
    std::unordered_map<std::string, uint32_t> subtree_delete_;  // "/a/" -> last delete of /a
    uint32_t tree_op_ = 0;    // operations before the last tree operation stay as they are
    bool any_tree_op_ = false;
};

}  // namespace tarvo

#endif
