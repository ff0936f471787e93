// The store interface: everything the API layer needs from the place where
// the items of one plane live. The embedded SQLite backend, the memory
// backend (scratchpad binds and tests) and a later distributed backend all
// implement it; nothing above this interface knows which one it talks to.
//
// Contract for every implementation:
// - Paths are canonical (see paths.h): items "/a/b", directories "/a/b/",
//   the root "/". Directories exist while they hold an item; the root always
//   exists.
// - Reads see committed data only and never keep a statement or a read
//   transaction open after they return, so a caller may abandon a listing at
//   any point.
// - apply() is the only write. It runs a Batch as one transaction: either the
//   whole batch is applied, or (atomic batch, or a store failure) nothing.
//   Every item change appends one event to the plane's event log in the same
//   transaction.
// - Results are Status values; a failure of the store itself is
//   TARVO_ERR_STORE (or BUSY, STORE_CORRUPT, NO_MEMORY) and leaves the data
//   as it was.
// - An instance is used from one thread at a time; several instances (in one
//   or several processes) may share one SQLite file.
#ifndef TARVO_STORE_H
#define TARVO_STORE_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "status.h"

namespace tarvo {

struct Node {
    std::string path;       // canonical; directories end in "/"
    int32_t datatype = 0;   // TARVO_DATATYPE_DIR for a directory
    std::string value;      // item bytes; empty for a directory
    bool is_dir() const { return datatype == TARVO_DATATYPE_DIR; }
};

// The children of one directory, by name.
struct ListQuery {
    std::string start;         // first name wanted; "" = from the first
    bool exclusive = false;    // start itself is not wanted
    bool reverse = false;      // descending byte order of names
    uint32_t max_entries = 1000;
    uint64_t max_bytes = 1u << 20;  // names and values; one entry at least
    bool with_values = true;
};

// Every node below one directory, by whole path.
struct ScanQuery {
    std::string start;         // first path wanted; "" = from the first
    bool exclusive = false;
    bool reverse = false;
    uint32_t max_entries = 1000;
    uint64_t max_bytes = 1u << 20;
    bool with_values = true;
    bool items = true;
    bool dirs = false;
};

struct Page {
    std::vector<Node> entries;
    bool remain = false;  // more entries exist past the last one returned
};

struct Event {
    uint64_t seq = 0;
    uint32_t kind = 0;      // TARVO_EVENT_CREATE, _SET or _DELETE
    std::string path;
    int32_t datatype = 0;
    bool has_old = false;
    std::string old_value;
    bool has_new = false;
    std::string new_value;
};

// Called by apply() for every item value it is about to create or set
// (verifier rules). A failure refuses that write.
class WriteChecker {
public:
    virtual ~WriteChecker() = default;
    virtual Status check(std::string_view path, int32_t datatype,
                         std::string_view value) const = 0;
};

// Filter of the tree operations over the path relative to the operation's
// directory ("x/y" below "/a/"); an empty function passes everything.
using PathFilter = std::function<bool(std::string_view relative)>;

enum class OpKind {
    CREATE,          // path, datatype, value: fails when anything is there
    SET,             // path, datatype, value; create_missing = set -create
    DELETE,          // path: one item
    DELETE_TREE,     // path (directory form): the items below, filtered
    DELETE_IF_EQUAL, // path, datatype, value
    COPY,            // path (item or directory form) to target, filtered
};

struct Op {
    OpKind kind = OpKind::CREATE;
    std::string path;
    int32_t datatype = 0;
    std::string value;
    bool create_missing = false;
    std::string target;
    PathFilter filter;
};

struct Batch {
    std::vector<Op> ops;
    // All or nothing. Otherwise a refused operation (or a refused item of a
    // tree operation) is recorded in ApplyResult::failures and the rest is
    // applied; a store failure still undoes everything.
    bool atomic = true;
};

struct OpFailure {
    size_t op = 0;
    std::string path;
    Status status;
};

struct ApplyResult {
    uint64_t changes = 0;  // items created, set or deleted
    std::vector<OpFailure> failures;
};

struct StoreStats {
    uint64_t items = 0;
    uint64_t dirs = 0;
    uint64_t events = 0;
    uint64_t first_event = 0;
    uint64_t last_event = 0;
};

class Store {
public:
    virtual ~Store() = default;

    // The item or directory at `path` (canonical item form, or "/"); its
    // Node.path tells which. NOT_FOUND when neither exists.
    virtual Status lookup(std::string_view path, Node *node) = 0;
    // Children of directory `dir` in name order; subdirectories come as
    // directory nodes. NOT_FOUND for a missing directory, NOT_A_DIR when the
    // path is an item.
    virtual Status list(std::string_view dir, const ListQuery &query,
                        Page *page) = 0;
    // Nodes below directory `dir` in path order (empty page when missing).
    virtual Status scan(std::string_view dir, const ScanQuery &query,
                        Page *page) = 0;
    // The only write; see the contract at the top.
    virtual Status apply(const Batch &batch, const WriteChecker *checker,
                         ApplyResult *result) = 0;
    // Events with a sequence number above `after`, oldest first, at most
    // `max` of them.
    virtual Status events_after(uint64_t after, uint32_t max,
                                std::vector<Event> *events) = 0;
    // Consistency check of the data; one line per problem found.
    virtual Status check(std::vector<std::string> *problems) = 0;
    virtual Status stats(StoreStats *stats) = 0;
};

// Points where a backend consults an injected fault plan: before each
// primitive write and before commit. Used by tests only.
class FaultPlan {
public:
    virtual ~FaultPlan() = default;
    virtual bool fail_write() = 0;
};

struct StoreOptions {
    uint64_t event_window = 10000;   // events kept per plane
    int busy_timeout_ms = 5000;
    FaultPlan *faults = nullptr;     // not owned
};

// Opens (creating on first use) the SQLite store in `file`. A missing file
// is created with store_file_mode() of its directory; an empty file, or one
// without tables, gets the schema. When the schema is there the open only
// reads, so it never waits for a writer. DATA_DIR when the file cannot be
// opened or created, STORE_CORRUPT when it is not a store of this schema
// version.
Status open_sqlite_store(const std::string &file, const StoreOptions &options,
                         std::unique_ptr<Store> *store);

// Runs `read` on a read-only open of the store in `file` (for checks and
// reports) and returns its result. Creates and changes no file: not the
// store, not its -wal or -shm. NOT_FOUND when the file is absent, empty or
// holds no tables (a store not created yet); BUSY when the file kept
// changing under a read that needed it to stay still.
Status read_sqlite_store(const std::string &file,
                         const std::function<Status(Store &)> &read);

// A private, empty in-memory store.
std::unique_ptr<Store> new_memory_store(const StoreOptions &options);

// A store that forwards to `inner` and fails chosen calls with
// TARVO_ERR_STORE before they reach it (tests).
class FaultStore : public Store {
public:
    explicit FaultStore(std::unique_ptr<Store> inner);
    // The n-th following call (1 = the next one) of any kind fails; 0 never.
    void fail_call(uint64_t n) { fail_at_ = n ? calls_ + n : 0; }
    // Every call from now on fails (until cleared with false).
    void fail_all(bool on) { fail_all_ = on; }
    uint64_t calls() const { return calls_; }
    Store &inner() { return *inner_; }

    Status lookup(std::string_view path, Node *node) override;
    Status list(std::string_view dir, const ListQuery &query,
                Page *page) override;
    Status scan(std::string_view dir, const ScanQuery &query,
                Page *page) override;
    Status apply(const Batch &batch, const WriteChecker *checker,
                 ApplyResult *result) override;
    Status events_after(uint64_t after, uint32_t max,
                        std::vector<Event> *events) override;
    Status check(std::vector<std::string> *problems) override;
    Status stats(StoreStats *stats) override;

private:
    bool should_fail();
    std::unique_ptr<Store> inner_;
    uint64_t calls_ = 0;
    uint64_t fail_at_ = 0;
    bool fail_all_ = false;
};

}  // namespace tarvo

#endif
