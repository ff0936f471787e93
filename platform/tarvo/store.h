// The store interface: everything the API layer needs from the place where
// the items of one plane live. The embedded SQLite backend, the memory
// backend (scratchpad binds and tests) and a later distributed backend all
// implement it; nothing above this interface knows which one it talks to.
// Everything crossing it is plain data (no callbacks), so that a backend may
// live in another process or on other machines.
//
// Contract for every implementation:
// - Paths are canonical (see paths.h): items "/a/b", directories "/a/b/",
//   the root "/". Directories exist while they hold an item; the root always
//   exists.
// - Order: names and paths in byte order, where a directory is placed by its
//   path without the final "/" (so "/a/b/" comes before "/a/b-x").
// - Reads see committed data only and never keep a statement or a read
//   transaction open after they return, so a caller may abandon a listing at
//   any point. One read call sees one snapshot.
// - apply() is the only write of items. It runs a Batch as one store
//   transaction, and reads inside that transaction everything that decides
//   it: the items, the verifier rules, the locks of other holders, the
//   deadline. Either the whole batch is applied, or (atomic batch, or a
//   store failure) nothing. Every item change appends one event to the
//   plane's event log in the same transaction (unless the batch says not).
// - Locks are taken and released by their own calls, each one store
//   transaction; a lock of a holder whose process is gone never blocks.
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

// A filter over the paths of a tree operation or a find, relative to the
// operation's directory ("x/y" below "/a/"; a directory as "x/", with its
// final "/"). Plain data: a backend evaluates it.
struct PathMatch {
    enum class Kind : uint32_t {
        ALL,         // every path
        PREFIX,      // paths beginning with text
        EXACT,       // the path equal to text
        REGEXP,      // paths that the RE2 pattern text matches as a whole
        NOT_REGEXP,  // paths that it does not match
    };
    Kind kind = Kind::ALL;
    std::string text;
    // Relative paths left out whatever the kind says, sorted, and relative
    // paths left out with everything below them (what a replacing bulk
    // wrote and copied).
    std::vector<std::string> except;
    std::vector<std::string> except_below;
};

// The filter of an iterator: name globs and datatypes joined by OR, AND
// and NOT, as a list of terms in which every term's operands come before it
// (the last term is the root; no terms: everything passes). Plain data: a
// backend evaluates it next to the data.
struct NodeFilter {
    enum class Op : uint32_t { NAME, DATATYPE, OR, AND, NOT };
    struct Term {
        Op op = Op::NAME;
        std::string glob;        // NAME: over the path relative to the scanned
                                 // directory, or its last component when the
                                 // glob holds no "/"
        int32_t datatype = 0;    // DATATYPE
        uint32_t left = 0;       // OR, AND, NOT: indexes of earlier terms
        uint32_t right = 0;      // OR, AND
    };
    std::vector<Term> terms;
};

// Every node below one directory, by whole path, kept by the match, the
// depth rule and the filter.
struct ScanQuery {
    std::string start;         // first path wanted; "" = from the first
    bool exclusive = false;
    bool reverse = false;
    uint32_t max_entries = 1000;
    uint64_t max_bytes = 1u << 20;
    bool with_values = true;
    bool items = true;
    bool dirs = false;
    PathMatch match;          // over the path relative to the directory
    bool norecurse = false;   // PREFIX or ALL: no "/" past the end of the text
                              // (but a directory's own final one)
    NodeFilter filter;
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

// A page of events: whole paths only (the events of one path are never
// split between pages), at least one path when any remain.
struct EventPage {
    std::vector<Event> events;
    bool remain = false;
};

// Who holds a lock or makes a write: a bind of some process. The pid alone
// does not say it (pids are reused): the process start time and the boot
// of the machine go with it, and a random id tells the binds of one process
// apart.
struct Holder {
    std::string bind_id;   // 16 hex digits, random per bind
    int64_t pid = 0;
    int64_t start = 0;     // process start, clock ticks after boot
    std::string boot;      // the machine's boot id
    std::string name() const;  // "bind <id> of process <pid>"
};

enum class LockMode : uint32_t { READ = 1, WRITE = 2 };

struct Lock {
    std::string path;      // canonical item form ("/" for the root)
    LockMode mode = LockMode::READ;
    Holder holder;
    int64_t acquired_ns = 0;
};

enum class OpKind : uint32_t {
    CREATE,          // path, datatype, value: fails when anything is there
    SET,             // path, datatype, value; create_missing = set -create
    DELETE,          // path: one item (with subtree: or a directory)
    DELETE_TREE,     // path (directory form): the items below, filtered
    DELETE_IF_EQUAL, // path, datatype, value
    COPY,            // path (item or directory form) to target, filtered
    NOTIFY,          // path, datatype: an event and no change of data
};

// The parts of an operation that only tree operations and notifications
// use; kept apart so that the many creates and sets of a bulk stay small.
struct OpExtra {
    std::string target;        // COPY: destination
    PathMatch match;           // DELETE_TREE, COPY: which paths
    uint32_t event = 0;        // NOTIFY: the event's kind
    bool has_old = false;      // NOTIFY: the values it carries (the new one
    bool has_new = false;      // in Op::value)
    std::string old_value;
};

struct Op {
    OpKind kind = OpKind::CREATE;
    int32_t datatype = 0;
    bool create_missing = false;
    bool subtree = false;      // DELETE of a directory deletes its subtree
    bool missing_ok = false;   // DELETE_TREE of a missing directory is no error
    std::string path;
    std::string value;

    const OpExtra &extra() const { return extra_ ? *extra_ : none(); }
    OpExtra &extra()
    {
        if (!extra_)
            extra_ = std::make_unique<OpExtra>();
        return *extra_;
    }

    Op() = default;
    Op(const Op &other) { *this = other; }
    Op &operator=(const Op &other)
    {
        kind = other.kind;
        datatype = other.datatype;
        create_missing = other.create_missing;
        subtree = other.subtree;
        missing_ok = other.missing_ok;
        path = other.path;
        value = other.value;
        extra_ = other.extra_ ? std::make_unique<OpExtra>(*other.extra_) : nullptr;
        return *this;
    }
    Op(Op &&) = default;
    Op &operator=(Op &&) = default;

private:
    static const OpExtra &none()
    {
        static const OpExtra empty;
        return empty;
    }
    std::unique_ptr<OpExtra> extra_;
};

// Error lists kept by a plane. ERRORS holds the refusals of the last bulk
// end; APPLY_ERRORS accumulates the refusals of the issu end until cleared;
// UNSCANNED lists the items an issu bulk wrote without verification.
enum class ErrorList : uint32_t { ERRORS = 0, APPLY_ERRORS = 1, UNSCANNED = 2 };

struct ErrorEntry {
    uint64_t seq = 0;          // order within the list
    std::string path;
    uint32_t operations = 0;   // 0x1 create, 0x2 set, 0x4 delete
    int32_t datatype = 0;
    std::string value;         // created or set value
    std::string delete_value;  // the value a delete removed or would have
    int32_t code = 0;
    std::string verifier_text; // the rule's words when a rule refused it
    std::string prepared_text; // "<text of the code>: <detail>"
};

struct Batch {
    std::vector<Op> ops;
    // All or nothing, ending at the first refusal. Otherwise a refused
    // operation (or a refused item of a tree operation) is recorded in
    // ApplyResult::failures and the rest is applied; a store failure still
    // undoes everything.
    bool atomic = true;
    // Not atomic, but undo everything when anything was refused (after
    // trying every operation, so that every refusal is known).
    bool undo_on_failure = false;
    bool verify = true;          // check the verifier rules
    bool update = false;         // CREATE of an existing item sets it
    bool unscanned = false;      // no rules; created and set items are
                                 // listed in ErrorList::UNSCANNED
    bool events = true;          // append events
    bool record_errors = false;  // the refusals replace ErrorList::ERRORS
    bool report_changes = false; // ApplyResult::changed lists every change
    Holder writer;               // locks of other holders refuse its writes
    int64_t deadline_ns = 0;     // wall clock; past it: TRANSACTION_TIMED_OUT
};

struct OpFailure {
    size_t op = 0;
    std::string path;
    Status status;
};

struct ApplyResult {
    uint64_t changes = 0;  // items created, set or deleted
    // With Batch::report_changes, each change of an applied batch as the
    // event it appends (seq 0), whether or not events are kept.
    std::vector<Event> changed;
    std::vector<OpFailure> failures;
};

struct StoreStats {
    uint64_t items = 0;
    uint64_t dirs = 0;
    uint64_t events = 0;
    uint64_t first_event = 0;
    uint64_t last_event = 0;
    uint64_t locks = 0;
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
    // The only write of items; see the contract at the top.
    virtual Status apply(const Batch &batch, ApplyResult *result) = 0;
    // Events with a sequence number above `after`, oldest first, at most
    // `max` of them.
    virtual Status events_after(uint64_t after, uint32_t max,
                                std::vector<Event> *events) = 0;
    // The logged events of the items below `dir` that the query's match
    // keeps (start, exclusive, reverse, max_entries, max_bytes and match as
    // for scan; the other fields are not used), ordered by path and then
    // sequence (both descending with reverse). A page ends only between
    // paths, once a bound is reached.
    virtual Status find_events(std::string_view dir, const ScanQuery &query,
                               EventPage *page) = 0;

    // Locks on the subtree at `path` (canonical item form). LOCKED, naming
    // the holder, when another live holder's lock conflicts; taking a lock
    // the holder has already is no error, and a read lock becomes a write
    // lock.
    virtual Status lock(std::string_view path, LockMode mode,
                        const Holder &holder) = 0;
    // NOT_LOCKED when the holder has no lock at `path`.
    virtual Status unlock(std::string_view path, const Holder &holder) = 0;
    virtual Status unlock_all(const Holder &holder) = 0;
    // The locks of live holders, by path.
    virtual Status locks(std::vector<Lock> *locks) = 0;

    // Entries of an error list with a sequence above `after`, at most `max`.
    virtual Status errors(ErrorList list, uint64_t after, uint32_t max,
                          std::vector<ErrorEntry> *entries) = 0;
    virtual Status clear_errors(ErrorList list) = 0;
    // End of an in-service upgrade: checks every unscanned item against
    // the verifier rules, appends the refusals to APPLY_ERRORS, empties
    // UNSCANNED. `failures` counts the refusals.
    virtual Status end_issu(uint64_t *checked, uint64_t *failures) = 0;

    // A cheap request that proves the store answers.
    virtual Status ping() = 0;
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
// reads, so it never waits for a writer. A store the process may not write
// (the file or its directory) is opened read-only while its -wal and -shm
// exist, and its writes fail with DATA_DIR. DATA_DIR when the file cannot be
// opened, created or read, STORE_CORRUPT when it is not a store of this
// schema version.
Status open_sqlite_store(const std::string &file, const StoreOptions &options,
                         std::unique_ptr<Store> *store);

// Runs `read` on a read-only open of the store in `file` (for checks and
// reports) and returns its result. Creates and changes no file: not the
// store, not its -wal or -shm. NOT_FOUND when the file is absent, empty or
// holds no tables (a store not created yet); BUSY when the file kept
// changing under a read that needed it to stay still. A journal that a
// process killed with the store open left behind is read from a copy in
// TMPDIR (or /tmp), which costs the store's size there. For a process
// without a bind to that store (tools, checks).
Status read_sqlite_store(const std::string &file,
                         const std::function<Status(Store &)> &read);

// Opens the store kept on an etcd cluster at `location`
// ("etcd://HOST:PORT[,HOST:PORT...][/PREFIX]"), after one request that
// proves a member answers (TARVO_ERR_STORE naming the location otherwise,
// within the client's connect and request timeouts per member).
// TARVO_ERR_NOT_SUPPORTED in a build without the etcd backend.
Status open_etcd_store(const std::string &location, const StoreOptions &options,
                       std::unique_ptr<Store> *store);

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
    Status apply(const Batch &batch, ApplyResult *result) override;
    Status events_after(uint64_t after, uint32_t max,
                        std::vector<Event> *events) override;
    Status find_events(std::string_view dir, const ScanQuery &query,
                       EventPage *page) override;
    Status lock(std::string_view path, LockMode mode,
                const Holder &holder) override;
    Status unlock(std::string_view path, const Holder &holder) override;
    Status unlock_all(const Holder &holder) override;
    Status locks(std::vector<Lock> *locks) override;
    Status errors(ErrorList list, uint64_t after, uint32_t max,
                  std::vector<ErrorEntry> *entries) override;
    Status clear_errors(ErrorList list) override;
    Status end_issu(uint64_t *checked, uint64_t *failures) override;
    Status ping() override;
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
