// The embedded backend: one SQLite database file per plane, in WAL mode so
// that readers in other processes never wait for a writer. Every write is a
// BEGIN IMMEDIATE transaction (writers queue on the busy timeout instead of
// deadlocking on a lock upgrade); every read is a single statement that is
// reset before the call returns. Opening a store for a bind only reads when
// the schema is there; only a file without one takes the write lock.
#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <thread>
#include <unordered_map>

#include "local_store.h"
#include "path_match.h"
#include "paths.h"
#include "settings.h"

namespace tarvo {
namespace {

constexpr int SCHEMA_VERSION = 2;

// Version 2. One row per node, keyed by its path (a directory without its
// final "/"), so that writing an item touches one b-tree; the event log
// appends at the end of its table and has no index; locks, error lists and
// the unscanned list are records (see docs/store.md).
constexpr const char *SCHEMA_SQL = R"sql(
CREATE TABLE meta(key TEXT PRIMARY KEY, value TEXT NOT NULL) WITHOUT ROWID;
CREATE TABLE nodes(
  path TEXT PRIMARY KEY,
  datatype INTEGER NOT NULL,
  value BLOB) WITHOUT ROWID;
CREATE TABLE events(
  seq INTEGER PRIMARY KEY,
  kind INTEGER NOT NULL,
  path TEXT NOT NULL,
  datatype INTEGER NOT NULL,
  old_value BLOB,
  new_value BLOB,
  time_ns INTEGER NOT NULL);
CREATE TABLE records(
  tab INTEGER NOT NULL,
  key BLOB NOT NULL,
  value BLOB NOT NULL,
  PRIMARY KEY(tab, key)) WITHOUT ROWID;
)sql";

constexpr const char *TABLES[] = {"meta", "nodes", "events", "records"};

// The key of a node: its canonical path without the final "/" of a
// directory.
std::string_view node_key(std::string_view path)
{
    if (path.size() > 1 && path.back() == '/')
        path.remove_suffix(1);
    return path;
}

// The errno a statement of this thread left: SQLite keeps the system's
// reason for some failures (sqlite3_system_errno) but not for a write that
// fails inside a commit, where it returns as soon as write(2) fails.
thread_local int step_errno = 0;

// The system's reason for a failed file operation, or 0.
int system_reason(sqlite3 *db, int rc)
{
    int sys = db ? sqlite3_system_errno(db) : 0;
    if (sys == 0 && (rc == SQLITE_IOERR_WRITE || rc == SQLITE_IOERR_FSYNC ||
                     rc == SQLITE_IOERR_TRUNCATE))
        sys = step_errno;
    int primary = rc & 0xff;
    bool file_failure = primary == SQLITE_IOERR || primary == SQLITE_FULL ||
                        primary == SQLITE_CANTOPEN;
    return file_failure ? sys : 0;
}

Status sqlite_error(sqlite3 *db, int rc, std::string_view what)
{
    int32_t code;
    switch (rc & 0xff) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
        code = TARVO_ERR_BUSY;
        break;
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
        code = TARVO_ERR_STORE_CORRUPT;
        break;
    case SQLITE_NOMEM:
        code = TARVO_ERR_NO_MEMORY;
        break;
    case SQLITE_CANTOPEN:
    case SQLITE_PERM:
    case SQLITE_READONLY:
    case SQLITE_AUTH:
        code = TARVO_ERR_DATA_DIR;
        break;
    default:
        code = TARVO_ERR_STORE;
    }
    std::string msg = db ? sqlite3_errmsg(db) : sqlite3_errstr(rc);
    // "disk I/O error" alone does not tell a full disk (ENOSPC) or a file
    // size limit (EFBIG) from a failing device; the system's reason does.
    if (int sys = system_reason(db, rc))
        msg += std::string(" (") + std::strerror(sys) + ")";
    return error(code, std::string(what) + ": " + msg);
}

// A cached prepared statement in use. The destructor resets it, so no
// statement stays active (and no read transaction stays open) once the
// function that used it returns.
class Statement {
public:
    explicit Statement(sqlite3_stmt *stmt) : stmt_(stmt) {}
    ~Statement()
    {
        sqlite3_reset(stmt_);
        sqlite3_clear_bindings(stmt_);
    }
    Statement(const Statement &) = delete;
    Statement &operator=(const Statement &) = delete;

    void text(int i, std::string_view v)
    {
        sqlite3_bind_text(stmt_, i, v.data(), static_cast<int>(v.size()),
                          SQLITE_TRANSIENT);
    }
    // The text must stay in place until the statement is done with.
    void text_in_place(int i, std::string_view v)
    {
        sqlite3_bind_text(stmt_, i, v.data(), static_cast<int>(v.size()), SQLITE_STATIC);
    }
    void blob(int i, std::string_view v, bool null)
    {
        if (null)
            sqlite3_bind_null(stmt_, i);
        else
            sqlite3_bind_blob(stmt_, i, v.empty() ? "" : v.data(),
                              static_cast<int>(v.size()), SQLITE_STATIC);
    }
    void integer(int i, int64_t v) { sqlite3_bind_int64(stmt_, i, v); }
    int step()
    {
        errno = 0;
        int rc = sqlite3_step(stmt_);
        step_errno = errno;
        return rc;
    }
    std::string column(int i)
    {
        const void *p = sqlite3_column_blob(stmt_, i);
        int n = sqlite3_column_bytes(stmt_, i);
        return p ? std::string(static_cast<const char *>(p), n) : std::string();
    }
    // Valid until the next step.
    std::string_view view(int i)
    {
        const void *p = sqlite3_column_blob(stmt_, i);
        int n = sqlite3_column_bytes(stmt_, i);
        return p ? std::string_view(static_cast<const char *>(p), n) : std::string_view();
    }
    bool is_null(int i) { return sqlite3_column_type(stmt_, i) == SQLITE_NULL; }
    int64_t int_column(int i) { return sqlite3_column_int64(stmt_, i); }

private:
    sqlite3_stmt *stmt_;
};

int64_t now_ns()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

class SqliteStore final : public LocalStore {
public:
    SqliteStore(sqlite3 *db, std::string file, const StoreOptions &options)
        : db_(db), file_(std::move(file)), options_(options)
    {
    }
    ~SqliteStore() override
    {
        for (auto &entry : cache_)
            sqlite3_finalize(entry.second);
        for (auto &entry : fixed_)
            sqlite3_finalize(entry.second);
        sqlite3_close(db_);
    }

    // Makes the store usable for binds: reads the schema, creating it (and
    // switching the file to WAL) only when the file has none.
    Status open_for_binds();
    // Only reads; NOT_FOUND when the file holds no schema yet.
    Status open_for_reading();
    // From now on every write fails with DATA_DIR and `why`.
    void refuse_writes(std::string why) { read_only_ = std::move(why); }

    Status lookup(std::string_view path, Node *node) override;
    Status list(std::string_view dir, const ListQuery &query, Page *page) override;
    Status scan(std::string_view dir, const ScanQuery &query, Page *page) override;
    Status events_after(uint64_t after, uint32_t max,
                        std::vector<Event> *events) override;
    Status find_events(std::string_view dir, const ScanQuery &query, EventPage *page) override;
    Status ping() override;
    Status check(std::vector<std::string> *problems) override;
    Status stats(StoreStats *stats) override;

protected:
    Status begin_write() override
    {
        // SQLite would begin on a read-only connection and fail only at the
        // first page it writes, with a text that names no reason.
        if (!read_only_.empty())
            return error(TARVO_ERR_DATA_DIR, "cannot write " + file_ + ": " + read_only_);
        return run("BEGIN IMMEDIATE", "begin");
    }
    Status commit_write() override;
    void rollback_write() override
    {
        if (!sqlite3_get_autocommit(db_))
            run("ROLLBACK", "rollback");
    }
    Status put_node(const Node &node) override;
    Status insert_node(const Node &node, bool *existed, Node *found) override;
    Status erase_node(std::string_view path) override;
    Status append_event(const Event &event) override;
    Status trim_events() override;
    Status last_event_seq(uint64_t *seq) override;
    uint64_t event_window() const override { return options_.event_window; }
    Status get_record(Table table, std::string_view key, std::string *value) override;
    Status put_record(Table table, std::string_view key, std::string_view value) override;
    Status erase_record(Table table, std::string_view key) override;
    Status clear_records(Table table) override;
    Status read_records(Table table, std::string_view after, uint32_t max,
                        std::vector<Record> *records) override;

private:
    // A read transaction around reads of several statements, so that they
    // see one snapshot; nothing when a write transaction is already open.
    class ReadSnapshot {
    public:
        explicit ReadSnapshot(sqlite3 *db) : db_(sqlite3_get_autocommit(db) ? db : nullptr)
        {
            if (db_ && sqlite3_exec(db_, "BEGIN", nullptr, nullptr, nullptr) != SQLITE_OK)
                db_ = nullptr;
        }
        ~ReadSnapshot()
        {
            if (db_)
                sqlite3_exec(db_, "COMMIT", nullptr, nullptr, nullptr);
        }

    private:
        sqlite3 *db_;
    };

    Status exec(const char *sql, std::string_view what);
    // One statement without results, prepared once.
    Status run(const char *sql, std::string_view what);
    // Statements built at run time are cached by their text; fixed ones
    // (string literals) by the literal's address, which costs no hashing of
    // the text.
    Status prepare(const std::string &sql, sqlite3_stmt **stmt);
    Status prepare(const char *sql, sqlite3_stmt **stmt);
    Status injected_fault();
    Status error_of(int rc, std::string_view what)
    {
        return sqlite_error(db_, rc, std::string(what) + " on " + file_);
    }
    void configure();
    Status count_objects(int64_t *objects);
    Status switch_to_wal();
    Status ensure_wal();
    Status create_schema();
    Status check_schema();
    Status read_page(Statement &st, uint32_t max_entries, uint64_t max_bytes,
                     const NodeSelector *selector, Page *page);
    Status list_dir(const std::string &dir, const ListQuery &q, Page *page);
    int64_t trim_step() const
    {
        return std::max<int64_t>(1, static_cast<int64_t>(options_.event_window / 8));
    }
    Status step_done(Statement &st, std::string_view what)
    {
        int rc = st.step();
        return rc == SQLITE_DONE ? ok_status() : error_of(rc, what);
    }

    sqlite3 *db_;
    std::string file_;
    StoreOptions options_;
    std::unordered_map<std::string, sqlite3_stmt *> cache_;
    std::unordered_map<const char *, sqlite3_stmt *> fixed_;
    bool trim_due_ = false;  // an event with a sequence at a trim step was added
    std::string read_only_;  // why writes are refused; empty: they are not
};

Status SqliteStore::exec(const char *sql, std::string_view what)
{
    int rc = sqlite3_exec(db_, sql, nullptr, nullptr, nullptr);
    return rc == SQLITE_OK ? ok_status() : error_of(rc, what);
}

Status SqliteStore::run(const char *sql, std::string_view what)
{
    sqlite3_stmt *raw = nullptr;
    Status s = prepare(sql, &raw);
    if (!s.ok())
        return s;
    Statement st(raw);
    return step_done(st, what);
}

Status SqliteStore::prepare(const char *sql, sqlite3_stmt **stmt)
{
    auto it = fixed_.find(sql);
    if (it != fixed_.end()) {
        *stmt = it->second;
        return ok_status();
    }
    int rc = sqlite3_prepare_v3(db_, sql, -1, SQLITE_PREPARE_PERSISTENT, stmt, nullptr);
    if (rc != SQLITE_OK)
        return error_of(rc, "prepare");
    fixed_.emplace(sql, *stmt);
    return ok_status();
}

Status SqliteStore::prepare(const std::string &sql, sqlite3_stmt **stmt)
{
    auto it = cache_.find(sql);
    if (it != cache_.end()) {
        *stmt = it->second;
        return ok_status();
    }
    int rc = sqlite3_prepare_v3(db_, sql.c_str(), -1, SQLITE_PREPARE_PERSISTENT,
                                stmt, nullptr);
    if (rc != SQLITE_OK)
        return error_of(rc, "prepare");
    cache_.emplace(sql, *stmt);
    return ok_status();
}

Status SqliteStore::injected_fault()
{
    if (options_.faults && options_.faults->fail_write())
        return error(TARVO_ERR_STORE, "injected write fault on " + file_);
    return ok_status();
}

void SqliteStore::configure()
{
    sqlite3_busy_timeout(db_, options_.busy_timeout_ms);
    sqlite3_extended_result_codes(db_, 1);
}

// A plain read: in WAL mode it never waits for a writer. A file that is not
// a database fails here with SQLITE_NOTADB.
Status SqliteStore::count_objects(int64_t *objects)
{
    sqlite3_stmt *raw = nullptr;
    Status s = prepare("SELECT count(*) FROM sqlite_master", &raw);
    if (!s.ok())
        return s;
    Statement st(raw);
    int rc = st.step();
    if (rc != SQLITE_ROW)
        return error_of(rc, "schema");
    *objects = st.int_column(0);
    return ok_status();
}

// Switching a new file to WAL while another process does the same can fail
// with SQLITE_BUSY at once, without the busy handler, to avoid a deadlock;
// such a switch is retried for as long as the busy timeout allows.
Status SqliteStore::switch_to_wal()
{
    Status s;
    for (int waited = 0;; waited += 10) {
        s = exec("PRAGMA journal_mode=WAL", "journal mode");
        if (s.code != TARVO_ERR_BUSY || waited >= options_.busy_timeout_ms)
            return s;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

// Asking for the journal mode takes no lock; only a store that is not in WAL
// mode yet (which this client never leaves behind) is switched.
Status SqliteStore::ensure_wal()
{
    sqlite3_stmt *raw = nullptr;
    Status s = prepare("PRAGMA journal_mode", &raw);
    if (!s.ok())
        return s;
    std::string mode;
    {
        Statement st(raw);
        int rc = st.step();
        if (rc != SQLITE_ROW)
            return error_of(rc, "journal mode");
        mode = st.column(0);
    }
    return mode == "wal" ? ok_status() : switch_to_wal();
}

Status SqliteStore::open_for_binds()
{
    configure();
    int64_t objects = 0;
    Status s = count_objects(&objects);
    if (s.ok())
        s = objects == 0 ? create_schema() : ensure_wal();
    // synchronous is a setting of this connection; it touches no file.
    if (s.ok())
        s = exec("PRAGMA synchronous=NORMAL", "synchronous");
    return s.ok() ? check_schema() : s;
}

Status SqliteStore::open_for_reading()
{
    configure();
    int64_t objects = 0;
    Status s = count_objects(&objects);
    if (s.ok() && objects == 0)
        return error(TARVO_ERR_NOT_FOUND, file_ + " holds no store yet");
    return s.ok() ? check_schema() : s;
}

// The file had no schema when it was read. Another process may be creating
// it at the same moment, so the count is taken again under the write lock
// and the schema created only by the first one to get it.
Status SqliteStore::create_schema()
{
    Status s = switch_to_wal();
    if (s.ok())
        s = exec("BEGIN IMMEDIATE", "begin");
    if (!s.ok())
        return s;
    int64_t objects = 0;
    s = count_objects(&objects);
    if (s.ok() && objects == 0) {
        s = exec(SCHEMA_SQL, "create schema");
        std::string meta = "INSERT INTO meta VALUES('schema_version','" +
                           std::to_string(SCHEMA_VERSION) + "')";
        if (s.ok())
            s = exec(meta.c_str(), "create schema");
    }
    if (s.ok())
        return exec("COMMIT", "commit");
    rollback_write();
    return s;
}

Status SqliteStore::check_schema()
{
    sqlite3_stmt *raw = nullptr;
    Status s = prepare("SELECT count(*) FROM sqlite_master WHERE type='table' AND name=?1", &raw);
    if (!s.ok())
        return s;
    for (const char *table : TABLES) {
        Statement st(raw);
        st.text(1, table);
        int rc = st.step();
        if (rc != SQLITE_ROW)
            return error_of(rc, "schema");
        if (st.int_column(0) != 1)
            return error(TARVO_ERR_STORE_CORRUPT,
                         file_ + " is not a store of this client (no table " + table + ")");
    }
    s = prepare("SELECT value FROM meta WHERE key='schema_version'", &raw);
    if (!s.ok())
        return s;
    Statement st(raw);
    int rc = st.step();
    if (rc != SQLITE_ROW && rc != SQLITE_DONE)
        return error_of(rc, "schema version");
    std::string version = rc == SQLITE_ROW ? st.column(0) : "none";
    if (version != std::to_string(SCHEMA_VERSION))
        return error(TARVO_ERR_STORE_CORRUPT,
                     file_ + " has schema version " + version + ", this client reads version " +
                         std::to_string(SCHEMA_VERSION));
    return ok_status();
}

Status SqliteStore::lookup(std::string_view path, Node *node)
{
    if (path == "/") {
        *node = Node{"/", TARVO_DATATYPE_DIR, {}};
        return ok_status();
    }
    sqlite3_stmt *raw = nullptr;
    Status s = prepare("SELECT datatype, value FROM nodes WHERE path=?1", &raw);
    if (!s.ok())
        return s;
    Statement st(raw);
    st.text_in_place(1, node_key(path));
    int rc = st.step();
    if (rc == SQLITE_DONE)
        return error(TARVO_ERR_NOT_FOUND, std::string(path));
    if (rc != SQLITE_ROW)
        return error_of(rc, "lookup");
    node->datatype = static_cast<int32_t>(st.int_column(0));
    node->path = std::string(node_key(path));
    if (node->is_dir())
        node->path += '/';
    node->value = st.column(1);
    return ok_status();
}

// Reads rows (path, datatype, value) into the page until a bound is reached;
// one row past the bound tells whether entries remain.
Status SqliteStore::read_page(Statement &st, uint32_t max_entries, uint64_t max_bytes,
                              const NodeSelector *selector, Page *page)
{
    uint64_t bytes = 0;
    for (;;) {
        int rc = st.step();
        if (rc == SQLITE_DONE)
            return ok_status();
        if (rc != SQLITE_ROW)
            return error_of(rc, "read");
        if (selector && !selector->keeps(st.view(0), static_cast<int32_t>(st.int_column(1))))
            continue;
        if (page->entries.size() >= max_entries ||
            (!page->entries.empty() && bytes >= max_bytes)) {
            page->remain = true;
            return ok_status();
        }
        Node node{st.column(0), static_cast<int32_t>(st.int_column(1)), st.column(2)};
        if (node.is_dir())
            node.path += '/';
        bytes += node.path.size() + node.value.size();
        page->entries.push_back(std::move(node));
    }
}

Status SqliteStore::list(std::string_view dir, const ListQuery &q, Page *page)
{
    *page = Page{};
    ReadSnapshot snapshot(db_);
    if (dir != "/") {
        Node node;
        Status s = lookup(dir.substr(0, dir.size() - 1), &node);
        if (!s.ok())
            return s;
        if (!node.is_dir())
            return error(TARVO_ERR_NOT_A_DIR, node.path);
    }
    return list_dir(std::string(dir), q, page);
}

// The children of `dir` are the keys "<dir><name>" without a further "/".
// The keys of a subdirectory's contents lie among them, in the range
// "<dir><name>/" to "<dir><name>0"; the walk jumps over each such range.
Status SqliteStore::list_dir(const std::string &dir, const ListQuery &q, Page *page)
{
    std::string bound = !q.start.empty() ? dir + q.start : q.reverse ? subtree_end(dir) : dir;
    bool inclusive = !q.start.empty() && !q.exclusive;
    const std::string end = q.reverse ? dir : subtree_end(dir);
    uint64_t bytes = 0;
    const std::string value = q.with_values ? "value" : "NULL";
    page->entries.reserve(std::min<uint32_t>(q.max_entries, 1024));
    for (;;) {
        std::string sql = "SELECT path, datatype, " + value + " FROM nodes WHERE ";
        if (!q.reverse)
            sql += inclusive ? "path>=?1 AND path<?2 ORDER BY path"
                             : "path>?1 AND path<?2 ORDER BY path";
        else
            sql += inclusive ? "path<=?1 AND path>?2 ORDER BY path DESC"
                             : "path<?1 AND path>?2 ORDER BY path DESC";
        sqlite3_stmt *raw = nullptr;
        Status s = prepare(sql, &raw);
        if (!s.ok())
            return s;
        Statement st(raw);
        st.text(1, bound);
        st.text(2, end);
        bool jumped = false;
        for (;;) {
            int rc = st.step();
            if (rc == SQLITE_DONE)
                return ok_status();
            if (rc != SQLITE_ROW)
                return error_of(rc, "list");
            std::string key = st.column(0);
            size_t slash = key.find('/', dir.size());
            if (slash != std::string::npos) {
                // Inside a subdirectory: continue past (or before) its range.
                bound = key.substr(0, slash) + (q.reverse ? "/" : "0");
                inclusive = !q.reverse;
                jumped = true;
                break;
            }
            if (page->entries.size() >= q.max_entries ||
                (!page->entries.empty() && bytes >= q.max_bytes)) {
                page->remain = true;
                return ok_status();
            }
            Node node{std::move(key), static_cast<int32_t>(st.int_column(1)), st.column(2)};
            if (node.is_dir())
                node.path += '/';
            bytes += node.path.size() + node.value.size();
            page->entries.push_back(std::move(node));
        }
        if (!jumped)
            return ok_status();
    }
}

// The selector narrows the range from the match and keeps the rows that
// pass it; without a selective query the page is one LIMITed read.
Status SqliteStore::scan(std::string_view dir, const ScanQuery &q, Page *page)
{
    *page = Page{};
    if (!q.items && !q.dirs)
        return ok_status();
    NodeSelector selector;
    Status s = selector.compile(dir, q);
    if (!s.ok())
        return s;
    const bool selective = q.match.kind != PathMatch::Kind::ALL || q.norecurse ||
                           !q.filter.terms.empty();
    // One lower and one upper bound: given two, SQLite may seek by the
    // looser one and make every page read from the start of the range.
    std::string lo = selector.lo, hi = selector.hi;
    bool lo_inclusive = selector.lo_inclusive, hi_inclusive = selector.hi_inclusive;
    const std::string start(node_key(q.start));
    if (!q.start.empty() && !q.reverse && (start > lo || (start == lo && q.exclusive))) {
        lo = start;
        lo_inclusive = !q.exclusive;
    }
    if (!q.start.empty() && q.reverse && (start < hi || (start == hi && q.exclusive))) {
        hi = start;
        hi_inclusive = !q.exclusive;
    }
    std::string sql = "SELECT path, datatype, ";
    sql += q.with_values ? "value" : "NULL";
    sql += lo_inclusive ? " FROM nodes WHERE path>=?1" : " FROM nodes WHERE path>?1";
    sql += hi_inclusive ? " AND path<=?2" : " AND path<?2";
    if (!q.items)
        sql += " AND datatype=-3";
    else if (!q.dirs)
        sql += " AND datatype<>-3";
    sql += q.reverse ? " ORDER BY path DESC" : " ORDER BY path";
    if (!selective)
        sql += " LIMIT ?3";
    sqlite3_stmt *raw = nullptr;
    s = prepare(sql, &raw);
    if (!s.ok())
        return s;
    Statement st(raw);
    st.text(1, lo);
    st.text(2, hi);
    if (!selective)
        st.integer(3, static_cast<int64_t>(q.max_entries) + 1);
    return read_page(st, q.max_entries, q.max_bytes, selective ? &selector : nullptr, page);
}

// Two passes in one snapshot: the keys of the matching events (no values)
// decide the page, then the page's events are read by sequence number, so
// the values of the window never sit in memory together.
Status SqliteStore::find_events(std::string_view dir, const ScanQuery &q, EventPage *page)
{
    *page = EventPage{};
    NodeSelector selector;
    Status s = selector.compile(dir, q);
    if (!s.ok())
        return s;
    ReadSnapshot snapshot(db_);
    std::string sql = "SELECT seq, path, datatype, length(old_value), length(new_value) FROM events";
    sql += selector.lo_inclusive ? " WHERE path>=?1" : " WHERE path>?1";
    sql += selector.hi_inclusive ? " AND path<=?2" : " AND path<?2";
    sqlite3_stmt *raw = nullptr;
    s = prepare(sql, &raw);
    if (!s.ok())
        return s;
    std::vector<EventKey> keys;
    {
        Statement st(raw);
        st.text(1, selector.lo);
        st.text(2, selector.hi);
        for (;;) {
            int rc = st.step();
            if (rc == SQLITE_DONE)
                break;
            if (rc != SQLITE_ROW)
                return error_of(rc, "events");
            std::string_view path = st.view(1);
            if (!selector.keeps(path, static_cast<int32_t>(st.int_column(2))))
                continue;
            keys.push_back(EventKey{std::string(path), static_cast<uint64_t>(st.int_column(0)),
                                    static_cast<uint64_t>(st.int_column(3) + st.int_column(4)),
                                    0});
        }
    }
    cut_event_page(&keys, q, &page->remain);
    s = prepare("SELECT kind, path, datatype, old_value, new_value FROM events WHERE seq=?1",
                &raw);
    if (!s.ok())
        return s;
    for (const EventKey &key : keys) {
        Statement st(raw);
        st.integer(1, static_cast<int64_t>(key.seq));
        int rc = st.step();
        if (rc != SQLITE_ROW)
            return error_of(rc == SQLITE_DONE ? SQLITE_CORRUPT : rc, "event");
        Event e;
        e.seq = key.seq;
        e.kind = static_cast<uint32_t>(st.int_column(0));
        e.path = st.column(1);
        e.datatype = static_cast<int32_t>(st.int_column(2));
        e.has_old = !st.is_null(3);
        e.old_value = st.column(3);
        e.has_new = !st.is_null(4);
        e.new_value = st.column(4);
        page->events.push_back(std::move(e));
    }
    return ok_status();
}

Status SqliteStore::put_node(const Node &node)
{
    Status s = injected_fault();
    sqlite3_stmt *raw = nullptr;
    if (s.ok())
        s = prepare("INSERT OR REPLACE INTO nodes(path, datatype, value) VALUES(?1, ?2, ?3)", &raw);
    if (!s.ok())
        return s;
    Statement st(raw);
    st.text_in_place(1, node_key(node.path));
    st.integer(2, node.datatype);
    st.blob(3, node.value, node.is_dir());
    return step_done(st, "write");
}

Status SqliteStore::insert_node(const Node &node, bool *existed, Node *found)
{
    *existed = false;
    Status s = injected_fault();
    sqlite3_stmt *raw = nullptr;
    if (s.ok())
        s = prepare("INSERT INTO nodes(path, datatype, value) VALUES(?1, ?2, ?3)", &raw);
    if (!s.ok())
        return s;
    int rc;
    {
        Statement st(raw);
        st.text_in_place(1, node_key(node.path));
        st.integer(2, node.datatype);
        st.blob(3, node.value, node.is_dir());
        rc = st.step();
    }
    if (rc == SQLITE_DONE)
        return ok_status();
    if (rc != SQLITE_CONSTRAINT_PRIMARYKEY)
        return error_of(rc, "write");
    *existed = true;
    return lookup(node.path, found);
}

Status SqliteStore::erase_node(std::string_view path)
{
    Status s = injected_fault();
    sqlite3_stmt *raw = nullptr;
    if (s.ok())
        s = prepare("DELETE FROM nodes WHERE path=?1", &raw);
    if (!s.ok())
        return s;
    Statement st(raw);
    st.text_in_place(1, node_key(path));
    return step_done(st, "delete");
}

Status SqliteStore::append_event(const Event &e)
{
    Status s = injected_fault();
    sqlite3_stmt *raw = nullptr;
    if (s.ok())
        s = prepare("INSERT INTO events(kind, path, datatype, old_value, new_value, time_ns, seq) "
                    "VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7)", &raw);
    if (!s.ok())
        return s;
    Statement st(raw);
    if (e.seq) {
        st.integer(7, static_cast<int64_t>(e.seq));
        trim_due_ = true;  // sequence numbers were skipped: a step may be among them
    }
    st.integer(1, e.kind);
    st.text_in_place(2, e.path);
    st.integer(3, e.datatype);
    st.blob(4, e.old_value, !e.has_old);
    st.blob(5, e.new_value, !e.has_new);
    st.integer(6, now_ns());
    s = step_done(st, "event");
    if (s.ok() && sqlite3_last_insert_rowid(db_) % trim_step() == 0)
        trim_due_ = true;
    return s;
}

// The log is cut back to the window when a sequence number at a step of an
// eighth of the window is written (by whichever process writes it), so that
// most writes neither look at nor touch the oldest page of the log. The
// newest event is never deleted, so sequence numbers are never reused.
Status SqliteStore::trim_events()
{
    if (!trim_due_)
        return ok_status();
    trim_due_ = false;
    sqlite3_stmt *raw = nullptr;
    Status s = prepare("SELECT (SELECT min(seq) FROM events), (SELECT max(seq) FROM events)", &raw);
    if (!s.ok())
        return s;
    int64_t first = 0, last = 0;
    {
        Statement st(raw);
        int rc = st.step();
        if (rc != SQLITE_ROW)
            return error_of(rc, "trim events");
        first = st.int_column(0);
        last = st.int_column(1);
    }
    const int64_t window = static_cast<int64_t>(options_.event_window);
    if (last - first + 1 <= window)
        return ok_status();
    s = prepare("DELETE FROM events WHERE seq <= ?1", &raw);
    if (!s.ok())
        return s;
    Statement st(raw);
    st.integer(1, last - window);
    return step_done(st, "trim events");
}

Status SqliteStore::last_event_seq(uint64_t *seq)
{
    sqlite3_stmt *raw = nullptr;
    Status s = prepare("SELECT ifnull(max(seq), 0) FROM events", &raw);
    if (!s.ok())
        return s;
    Statement st(raw);
    int rc = st.step();
    if (rc != SQLITE_ROW)
        return error_of(rc, "events");
    *seq = static_cast<uint64_t>(st.int_column(0));
    return ok_status();
}

Status SqliteStore::commit_write()
{
    Status s = injected_fault();
    return s.ok() ? run("COMMIT", "commit") : s;
}

Status SqliteStore::get_record(Table table, std::string_view key, std::string *value)
{
    sqlite3_stmt *raw = nullptr;
    Status s = prepare("SELECT value FROM records WHERE tab=?1 AND key=?2", &raw);
    if (!s.ok())
        return s;
    Statement st(raw);
    st.integer(1, static_cast<int64_t>(table));
    st.blob(2, key, false);
    int rc = st.step();
    if (rc == SQLITE_DONE)
        return error(TARVO_ERR_NOT_FOUND);
    if (rc != SQLITE_ROW)
        return error_of(rc, "record");
    *value = st.column(0);
    return ok_status();
}

Status SqliteStore::put_record(Table table, std::string_view key, std::string_view value)
{
    Status s = injected_fault();
    sqlite3_stmt *raw = nullptr;
    if (s.ok())
        s = prepare("INSERT OR REPLACE INTO records(tab, key, value) VALUES(?1, ?2, ?3)", &raw);
    if (!s.ok())
        return s;
    Statement st(raw);
    st.integer(1, static_cast<int64_t>(table));
    st.blob(2, key, false);
    st.blob(3, value, false);
    return step_done(st, "write record");
}

Status SqliteStore::erase_record(Table table, std::string_view key)
{
    Status s = injected_fault();
    sqlite3_stmt *raw = nullptr;
    if (s.ok())
        s = prepare("DELETE FROM records WHERE tab=?1 AND key=?2", &raw);
    if (!s.ok())
        return s;
    Statement st(raw);
    st.integer(1, static_cast<int64_t>(table));
    st.blob(2, key, false);
    return step_done(st, "delete record");
}

Status SqliteStore::clear_records(Table table)
{
    Status s = injected_fault();
    sqlite3_stmt *raw = nullptr;
    if (s.ok())
        s = prepare("DELETE FROM records WHERE tab=?1", &raw);
    if (!s.ok())
        return s;
    Statement st(raw);
    st.integer(1, static_cast<int64_t>(table));
    return step_done(st, "clear records");
}

Status SqliteStore::read_records(Table table, std::string_view after, uint32_t max,
                                 std::vector<Record> *records)
{
    sqlite3_stmt *raw = nullptr;
    Status s = prepare("SELECT key, value FROM records WHERE tab=?1 AND key>?2 ORDER BY key "
                       "LIMIT ?3", &raw);
    if (!s.ok())
        return s;
    Statement st(raw);
    st.integer(1, static_cast<int64_t>(table));
    st.blob(2, after, false);
    st.integer(3, max);
    for (;;) {
        int rc = st.step();
        if (rc == SQLITE_DONE)
            return ok_status();
        if (rc != SQLITE_ROW)
            return error_of(rc, "records");
        records->push_back(Record{st.column(0), st.column(1)});
    }
}

Status SqliteStore::events_after(uint64_t after, uint32_t max,
                                 std::vector<Event> *events)
{
    sqlite3_stmt *raw = nullptr;
    Status s = prepare("SELECT seq, kind, path, datatype, old_value, new_value FROM events "
                       "WHERE seq > ?1 ORDER BY seq LIMIT ?2", &raw);
    if (!s.ok())
        return s;
    Statement st(raw);
    st.integer(1, static_cast<int64_t>(after));
    st.integer(2, max);
    for (;;) {
        int rc = st.step();
        if (rc == SQLITE_DONE)
            return ok_status();
        if (rc != SQLITE_ROW)
            return error_of(rc, "events");
        Event e;
        e.seq = static_cast<uint64_t>(st.int_column(0));
        e.kind = static_cast<uint32_t>(st.int_column(1));
        e.path = st.column(2);
        e.datatype = static_cast<int32_t>(st.int_column(3));
        e.has_old = !st.is_null(4);
        e.old_value = st.column(4);
        e.has_new = !st.is_null(5);
        e.new_value = st.column(5);
        events->push_back(std::move(e));
    }
}

Status SqliteStore::ping()
{
    sqlite3_stmt *raw = nullptr;
    Status s = prepare("SELECT value FROM meta WHERE key='schema_version'", &raw);
    if (!s.ok())
        return s;
    Statement st(raw);
    int rc = st.step();
    return rc == SQLITE_ROW ? ok_status() : error_of(rc, "ping");
}

Status SqliteStore::check(std::vector<std::string> *problems)
{
    sqlite3_stmt *raw = nullptr;
    Status s = prepare("PRAGMA integrity_check", &raw);
    if (!s.ok())
        return s;
    {
        Statement st(raw);
        for (int rc = st.step(); rc != SQLITE_DONE; rc = st.step()) {
            if (rc != SQLITE_ROW)
                return error_of(rc, "integrity check");
            std::string line = st.column(0);
            if (line != "ok")
                problems->push_back("sqlite: " + line);
        }
    }
    s = prepare("SELECT path FROM nodes", &raw);
    if (!s.ok())
        return s;
    {
        Statement st(raw);
        for (int rc = st.step(); rc != SQLITE_DONE; rc = st.step()) {
            if (rc != SQLITE_ROW)
                return error_of(rc, "check");
            std::string path = st.column(0);
            ResolvedPath resolved;
            if (path.empty() || path[0] != '/' || path.back() == '/' ||
                !resolve_path("/", path, &resolved).ok() || resolved.path != path)
                problems->push_back("node key \"" + path + "\" is not a canonical path");
        }
    }
    return LocalStore::check(problems);
}

Status SqliteStore::stats(StoreStats *out)
{
    sqlite3_stmt *raw = nullptr;
    Status s = prepare("SELECT (SELECT count(*) FROM nodes WHERE datatype<>-3),"
                       " (SELECT count(*) FROM nodes WHERE datatype=-3),"
                       " (SELECT count(*) FROM events),"
                       " (SELECT ifnull(min(seq),0) FROM events),"
                       " (SELECT ifnull(max(seq),0) FROM events)", &raw);
    if (!s.ok())
        return s;
    {
        Statement st(raw);
        int rc = st.step();
        if (rc != SQLITE_ROW)
            return error_of(rc, "stats");
        out->items = st.int_column(0);
        out->dirs = st.int_column(1);
        out->events = st.int_column(2);
        out->first_event = st.int_column(3);
        out->last_event = st.int_column(4);
    }
    std::vector<Lock> held;
    s = locks(&held);
    out->locks = held.size();
    return s;
}

// Creates a missing store file with the store's file mode before SQLite
// opens it: SQLite would make it 0644 less the umask, and it gives the -wal
// and -shm files the mode of the database file.
Status create_store_file(const std::string &file)
{
    size_t slash = file.rfind('/');
    std::string dir = slash == std::string::npos ? "." : file.substr(0, slash);
    if (slash == 0)
        dir = "/";
    mode_t mode = store_file_mode(dir);
    int fd = ::open(file.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, mode);
    if (fd < 0) {
        // An existing file (or whatever is in its place) is SQLite's to judge.
        if (errno == EEXIST)
            return ok_status();
        return error(TARVO_ERR_DATA_DIR, "cannot create " + file + ": " + std::strerror(errno));
    }
    int rc = ::fchmod(fd, mode);
    ::close(fd);
    if (rc != 0)
        return error(TARVO_ERR_DATA_DIR, "cannot set the mode of " + file);
    return ok_status();
}

// Opens `name` (the file, or a URI for it) for the store in `file`.
Status open_connection(const std::string &name, const std::string &file, int flags,
                       sqlite3 **db)
{
    int rc = sqlite3_open_v2(name.c_str(), db, flags | SQLITE_OPEN_NOMUTEX, nullptr);
    if (rc == SQLITE_OK)
        return ok_status();
    Status s = error(TARVO_ERR_DATA_DIR, "cannot open " + file + ": " +
                                             (*db ? sqlite3_errmsg(*db) : sqlite3_errstr(rc)));
    sqlite3_close(*db);
    *db = nullptr;
    return s;
}

// What the read-only open looks at to tell whether a file changed under it.
struct FileState {
    bool exists = false;
    dev_t dev = 0;
    ino_t ino = 0;
    off_t size = 0;
    struct timespec mtime {};
    struct timespec ctime {};
};

FileState file_state(const std::string &file)
{
    FileState f;
    struct stat st;
    if (::stat(file.c_str(), &st) != 0)
        return f;
    f.exists = true;
    f.dev = st.st_dev;
    f.ino = st.st_ino;
    f.size = st.st_size;
    f.mtime = st.st_mtim;
    f.ctime = st.st_ctim;
    return f;
}

// What a writer changes. SQLite running as root gives an opened -wal and
// -shm their store's owner again, which changes their ctime only.
bool same_content(const FileState &a, const FileState &b)
{
    return a.exists == b.exists && a.dev == b.dev && a.ino == b.ino && a.size == b.size &&
           a.mtime.tv_sec == b.mtime.tv_sec && a.mtime.tv_nsec == b.mtime.tv_nsec;
}

bool same(const FileState &a, const FileState &b)
{
    return a.exists == b.exists && a.dev == b.dev && a.ino == b.ino && a.size == b.size &&
           a.mtime.tv_sec == b.mtime.tv_sec && a.mtime.tv_nsec == b.mtime.tv_nsec &&
           a.ctime.tv_sec == b.ctime.tv_sec && a.ctime.tv_nsec == b.ctime.tv_nsec;
}

// A file name as an SQLite URI path (RFC 3986 percent-encoding).
std::string uri_path(const std::string &file)
{
    static const char HEX[] = "0123456789ABCDEF";
    std::string out;
    for (unsigned char c : file) {
        if (std::isalnum(c) || std::strchr("/-._~", c)) {
            out += static_cast<char>(c);
        } else {
            out += '%';
            out += HEX[c >> 4];
            out += HEX[c & 15];
        }
    }
    return out;
}

// The system's VFS, except that it opens every file read-only and creates
// and deletes none: SQLite would otherwise create a missing -wal even for a
// read-only connection.
const char *read_only_vfs()
{
    static const char NAME[] = "tarvo-read-only";
    static sqlite3_vfs *base = nullptr;
    static sqlite3_vfs vfs;
    static std::once_flag once;
    std::call_once(once, [] {
        base = sqlite3_vfs_find(nullptr);
        vfs = *base;  // same methods and pAppData: they only see this copy
        vfs.zName = NAME;
        vfs.xOpen = [](sqlite3_vfs *, const char *name, sqlite3_file *file, int flags,
                       int *out_flags) {
            flags &= ~(SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
            return base->xOpen(base, name, file, flags | SQLITE_OPEN_READONLY, out_flags);
        };
        vfs.xDelete = [](sqlite3_vfs *, const char *, int) { return SQLITE_IOERR_DELETE; };
        sqlite3_vfs_register(&vfs, 0);
    });
    return NAME;
}

// How SQLite answers a read-only open when a process died in the middle of
// a write and left the journal's index in need of repair: only a read-write
// open repairs it, and a read must not write the user's files.
bool needs_recovery(sqlite3 *db)
{
    switch (sqlite3_extended_errcode(db)) {
    case SQLITE_PROTOCOL:
    case SQLITE_READONLY_RECOVERY:
    case SQLITE_READONLY_CANTINIT:
    case SQLITE_BUSY_RECOVERY:
        return true;
    default:
        return false;
    }
}

// One read-only pass over the store file; *recover tells that it failed
// only because the journal needs a repair.
Status read_once(const std::string &file, bool immutable,
                 const std::function<Status(Store &)> &read, bool *recover)
{
    std::string uri = "file:" + uri_path(file) + "?vfs=" + read_only_vfs() +
                      (immutable ? "&immutable=1" : "&readonly_shm=1");
    sqlite3 *db = nullptr;
    Status s = open_connection(uri, file, SQLITE_OPEN_READONLY | SQLITE_OPEN_URI, &db);
    if (!s.ok())
        return s;
    SqliteStore store(db, file, StoreOptions{});
    s = store.open_for_reading();
    *recover = !s.ok() && needs_recovery(db);
    return s.ok() ? read(store) : s;
}

// Whether a process has the store open: each connection holds a read lock
// on byte 128 of -shm (SQLite's "dead man switch") for as long as it has.
// No one: the journal was left by a process that died, and its index may
// need a repair that makes a read-only open retry for seconds and fail.
// (Closing the descriptor drops this process's own locks on the file, so
// read_sqlite_store is for processes without a bind to that store.)
bool journal_in_use(const std::string &shm)
{
    int fd = ::open(shm.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return true;  // SQLite's open reports it
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_start = 128;
    lock.l_len = 1;
    bool used = fcntl(fd, F_GETLK, &lock) != 0 || lock.l_type != F_UNLCK;
    ::close(fd);
    return used;
}

Status copy_file(const std::string &from, const std::string &to)
{
    std::error_code ec;
    std::filesystem::copy_file(from, to, ec);
    if (ec)
        return error(TARVO_ERR_DATA_DIR, "cannot copy " + from + ": " + ec.message());
    return ok_status();
}

// Reads a copy of the store file and its journal made in TMPDIR (or /tmp),
// where SQLite repairs the journal's index as any read-write open does; the
// user's files stay as they are. Errors name the user's file.
Status read_recovered_copy(const std::string &file, const std::function<Status(Store &)> &read)
{
    const char *tmp = std::getenv("TMPDIR");
    std::string dir = std::string(tmp && *tmp ? tmp : "/tmp") + "/tarvo-read.XXXXXX";
    if (!mkdtemp(dir.data()))
        return error(TARVO_ERR_DATA_DIR, "cannot make a directory to read a copy of " + file +
                                             ": " + std::strerror(errno));
    const std::string copy = dir + "/store.db";
    Status s = copy_file(file, copy);
    if (s.ok())
        s = copy_file(file + "-wal", copy + "-wal");
    sqlite3 *db = nullptr;
    if (s.ok())
        s = open_connection(copy, file, SQLITE_OPEN_READWRITE, &db);
    if (s.ok()) {
        SqliteStore store(db, file, StoreOptions{});
        s = store.open_for_reading();
        if (s.ok())
            s = read(store);
    }
    std::error_code ignored;
    std::filesystem::remove_all(dir, ignored);
    return s;
}


// Why this process may not write the store in `file` (false), or true when
// it may. Only an existing file is judged; a missing one is created, or its
// creation fails with the reason.
bool may_write_store(const std::string &file, std::string *why)
{
    std::string dir = std::filesystem::path(file).parent_path().string();
    if (dir.empty())
        dir = ".";
    if (::access(file.c_str(), F_OK) != 0)
        return true;
    if (::access(dir.c_str(), W_OK) != 0) {
        *why = "this process may not write " + dir + " (" + std::strerror(errno) + ")";
        return false;
    }
    if (::access(file.c_str(), W_OK) != 0) {
        *why = "this process may not write the file (" + std::string(std::strerror(errno)) + ")";
        return false;
    }
    return true;
}

// A bind to a store this process may only read. SQLite reads a store in WAL
// mode only through its -wal and -shm files; a process that may not write
// must not create them (they would belong to it, and the store's writers
// could not use them), so the store is read only while they exist: while a
// process that may write has it open, or after one died with it open.
// Reading the database file alone (as immutable) would not see another
// process's writes and could read a checkpoint half done.
Status open_read_only_store(const std::string &file, const std::string &why,
                            const StoreOptions &options, std::unique_ptr<Store> *store)
{
    if (::access(file.c_str(), R_OK) != 0)
        return error(TARVO_ERR_DATA_DIR, "cannot read " + file + ": " + std::strerror(errno));
    if (!file_state(file + "-wal").exists || !file_state(file + "-shm").exists)
        return error(TARVO_ERR_DATA_DIR,
                     "cannot read " + file + ": " + why +
                         ", and the store can be read without writing only while its -wal "
                         "and -shm files exist (while a process that may write has it open)");
    std::string uri = "file:" + uri_path(file) + "?vfs=" + read_only_vfs() + "&readonly_shm=1";
    sqlite3 *db = nullptr;
    Status s = open_connection(uri, file, SQLITE_OPEN_READONLY | SQLITE_OPEN_URI, &db);
    if (!s.ok())
        return s;
    auto opened = std::make_unique<SqliteStore>(db, file, options);
    s = opened->open_for_reading();
    if (!s.ok() && needs_recovery(db))
        return error(TARVO_ERR_DATA_DIR, "cannot read " + file + ": " + why +
                                             ", and its journal needs a repair that only a "
                                             "process that may write can make");
    if (s.code == TARVO_ERR_NOT_FOUND)
        return error(TARVO_ERR_DATA_DIR, "cannot create the store in " + file + ": " + why);
    if (!s.ok())
        return s;
    opened->refuse_writes(why);
    *store = std::move(opened);
    return ok_status();
}
}  // namespace

Status open_sqlite_store(const std::string &file, const StoreOptions &options,
                         std::unique_ptr<Store> *store)
{
    std::string why;
    if (!may_write_store(file, &why))
        return open_read_only_store(file, why, options, store);
    Status s = create_store_file(file);
    sqlite3 *db = nullptr;
    if (s.ok())
        s = open_connection(file, file, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, &db);
    if (!s.ok())
        return s;
    auto opened = std::make_unique<SqliteStore>(db, file, options);
    s = opened->open_for_binds();
    if (!s.ok())
        return s;
    *store = std::move(opened);
    return ok_status();
}

// With a journal (-wal and -shm present: the store is open somewhere, or a
// process died with it open) SQLite reads the store with the index opened
// read-only and takes read locks only. Without one the database file holds
// everything and is read as immutable, which creates no journal; such a read
// is only sound if no process opened the store and wrote the file meanwhile,
// so it is repeated when one did. It is repeated too when the journal went
// away between the look at the files and the open (its last user closed the
// store), which makes the open fail. A journal left by a process killed in a
// write may need a repair no read-only open can make; then a copy is read.
Status read_sqlite_store(const std::string &file, const std::function<Status(Store &)> &read)
{
    constexpr int ATTEMPTS = 5;
    for (int attempt = 1;; ++attempt) {
        FileState db = file_state(file);
        FileState wal = file_state(file + "-wal");
        FileState shm = file_state(file + "-shm");
        if (!db.exists)
            return error(TARVO_ERR_NOT_FOUND, file + " does not exist");
        // What a process killed in its very first bind leaves behind.
        if (db.size == 0)
            return error(TARVO_ERR_NOT_FOUND, file + " is empty");
        Status s;
        // The last user of a store removes -shm a moment before -wal.
        bool again = wal.size > 0 && !shm.exists;
        if (again) {
            s = error(TARVO_ERR_STORE, file + "-wal holds changes but " + file +
                                           "-shm is missing; a bind recovers them");
        } else {
            bool immutable = !wal.exists || !shm.exists;
            bool recover = !immutable && !journal_in_use(file + "-shm");
            if (!recover)
                s = read_once(file, immutable, read, &recover);
            if (recover)
                s = read_recovered_copy(file, read);
            if (recover)
                again = !same_content(db, file_state(file)) ||
                        !same_content(wal, file_state(file + "-wal"));
            else if (immutable)
                again = !same(db, file_state(file)) || !same(wal, file_state(file + "-wal"));
            else
                again = !s.ok() && !file_state(file + "-shm").exists;
        }
        if (!again)
            return s;
        if (attempt == ATTEMPTS)
            return s.ok() ? error(TARVO_ERR_BUSY, file + " kept changing while it was read") : s;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

}  // namespace tarvo
