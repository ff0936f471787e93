// LocalStore: the engine shared by the single-node backends (SQLite, memory)
// and by the client's buffer of pending changes. It turns a Batch into
// checks and primitive node writes inside one backend transaction, keeps the
// directory nodes in step with the items (a directory node exists while
// something lies below it), appends the events, and keeps locks, error lists
// and the unscanned list as records. Backends supply the reads of the Store
// interface and the primitives below; reads made inside a write transaction
// see its writes.
#ifndef TARVO_LOCAL_STORE_H
#define TARVO_LOCAL_STORE_H

#include <memory>

#include "store.h"

namespace tarvo {

class VerifierSet;
class PathMatcher;

class LocalStore : public Store {
public:
    LocalStore();
    ~LocalStore() override;

    Status apply(const Batch &batch, ApplyResult *result) final;
    Status lock(std::string_view path, LockMode mode, const Holder &holder) override;
    Status unlock(std::string_view path, const Holder &holder) override;
    Status unlock_all(const Holder &holder) override;
    Status locks(std::vector<Lock> *locks) override;
    Status errors(ErrorList list, uint64_t after, uint32_t max,
                  std::vector<ErrorEntry> *entries) override;
    Status clear_errors(ErrorList list) override;
    Status end_issu(uint64_t *checked, uint64_t *failures) override;
    Status check(std::vector<std::string> *problems) override;

protected:
    // Tables of records beside the nodes: small keyed values in key order.
    enum class Table : uint32_t { META = 0, LOCKS = 1, ERRORS = 2, APPLY_ERRORS = 3, UNSCANNED = 4 };
    struct Record {
        std::string key, value;
    };

    virtual Status begin_write() = 0;
    virtual Status commit_write() = 0;
    virtual void rollback_write() = 0;
    virtual Status put_node(const Node &node) = 0;   // insert or replace
    // Inserts a node where none is; when one is there, *existed is set and
    // *found holds it. The default looks first.
    virtual Status insert_node(const Node &node, bool *existed, Node *found);
    virtual Status erase_node(std::string_view path) = 0;
    // Appends an event with its seq, or (seq 0) the next one.
    virtual Status append_event(const Event &event) = 0;
    virtual Status trim_events() = 0;  // keep about the configured window
    virtual Status last_event_seq(uint64_t *seq) = 0;
    // Events kept per plane; a batch writes no more than these.
    virtual uint64_t event_window() const { return UINT64_MAX; }
    virtual Status get_record(Table table, std::string_view key, std::string *value) = 0;
    virtual Status put_record(Table table, std::string_view key, std::string_view value) = 0;
    virtual Status erase_record(Table table, std::string_view key) = 0;
    virtual Status clear_records(Table table) = 0;
    // Records with a key above `after`, in key order, at most `max`.
    virtual Status read_records(Table table, std::string_view after, uint32_t max,
                                std::vector<Record> *records) = 0;
    // The verifier rules as of the current transaction: the cached set while
    // the generation record has not changed.
    Status current_rules(const VerifierSet **rules);
    // Whether a lock record's holder still counts; by default while its
    // process lives on this machine.
    virtual bool lock_alive(const Holder &holder);

private:
    struct Context;
    Status run_batch(const Batch &batch, Context &ctx);
    Status run_op(const Op &op, Context &ctx);
    Status create(const std::string &path, int32_t datatype, const std::string &value,
                  Context &ctx);
    Status set(const std::string &path, int32_t datatype, const std::string &value,
               bool create_missing, Context &ctx);
    Status write_item(const Node &node, const Node *before, Context &ctx);
    Status item_written(const Node &node, const Node *before, Context &ctx);
    Status missing_dirs(const std::string &path, std::vector<std::string> *missing,
                        Context &ctx);
    void rules_touched(const std::string &path, Context &ctx);
    Status may_write(const std::string &path, int32_t datatype, const std::string &value,
                     Context &ctx);
    Status remove_item(const Node &item, Context &ctx);
    Status remove_item_at(const Op &op, Context &ctx);
    Status delete_tree(const Op &op, Context &ctx);
    Status delete_if_equal(const Op &op, Context &ctx);
    Status copy(const Op &op, Context &ctx);
    Status copy_item(const Node &item, const std::string &target, Context &ctx);
    Status notify(const Op &op, Context &ctx);
    Status event(uint32_t kind, const Node &node, const std::string *old_value,
                 const std::string *new_value, Context &ctx);
    Status write_events(Context &ctx);
    void note_failure(Context &ctx, const std::string &path, const Status &status,
                      const Op &op, const Node *item);
    Status write_errors(Table table, bool replace, const std::vector<ErrorEntry> &entries);
    Status blocking_locks(const Holder &writer, std::vector<Lock> *out);
    Status live_locks(std::vector<Lock> *out);
    Status prune_dirs(std::string dir);
    Status remove_empty_dirs_below(const std::string &dir);
    Status has_children(std::string_view dir, bool *any);

    std::unique_ptr<VerifierSet> rules_;
    std::string rules_generation_;  // of rules_; empty: not loaded
};

// Serialized forms of the records (shared with tests).
std::string encode_lock(const Lock &lock);
bool decode_lock(std::string_view key, std::string_view value, Lock *lock);

}  // namespace tarvo

#endif
