#include "local_store.h"

#include <chrono>
#include <cstring>
#include <deque>
#include <unordered_set>

#include "holder.h"
#include "path_match.h"
#include "paths.h"
#include "values.h"
#include "verifiers.h"

namespace tarvo {

struct LocalStore::Context {
    const Batch *batch = nullptr;
    ApplyResult *result = nullptr;
    size_t op = 0;
    std::vector<Lock> blocking;       // live locks of other holders
    bool verify = false;
    const VerifierSet *rules = nullptr;  // read at the first check
    bool rules_written = false;       // the batch wrote below VERIFIER_DIR
    std::vector<ErrorEntry> errors;   // for the error list, when recorded
    // Directories this batch has seen to exist; forgotten at any delete.
    std::unordered_set<std::string> known_dirs;
    // The batch's events, written at its end: only the last event_window()
    // of them, the ones the log keeps.
    std::deque<Event> events;
    uint64_t events_dropped = 0;
};

namespace {

// Tree operations read the subtree in chunks of this many nodes, so that a
// huge subtree never has to fit in memory.
constexpr uint32_t CHUNK = 512;
constexpr const char *RULES_GENERATION = "verifier_generation";

std::string item_form(std::string_view dir)
{
    if (dir.size() > 1 && dir.back() == '/')
        dir.remove_suffix(1);
    return std::string(dir);
}

int64_t now_ns()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

// `lock` (a canonical item path, "/" for the root) covers `path`.
bool covers(std::string_view lock, std::string_view path)
{
    if (lock == "/")
        return true;
    return path.substr(0, lock.size()) == lock &&
           (path.size() == lock.size() || path[lock.size()] == '/');
}

bool below_rules(std::string_view path)
{
    std::string_view dir = VERIFIER_DIR;
    return path.substr(0, dir.size()) == dir;
}

uint32_t op_bits(const Op &op)
{
    switch (op.kind) {
    case OpKind::CREATE:
        return TARVO_EVENT_CREATE;
    case OpKind::SET:
    case OpKind::COPY:
        return TARVO_EVENT_SET;
    case OpKind::NOTIFY:
        return op.extra().event;
    default:
        return TARVO_EVENT_DELETE;
    }
}

// Records are short sequences of fields: integers as 8 bytes, texts with a
// 4-byte length in front (both in the machine's byte order: a store file
// does not move between machines of different byte order).
class Writer {
public:
    Writer &num(int64_t v)
    {
        out_.append(reinterpret_cast<const char *>(&v), 8);
        return *this;
    }
    Writer &text(std::string_view t)
    {
        uint32_t n = static_cast<uint32_t>(t.size());
        out_.append(reinterpret_cast<const char *>(&n), 4);
        out_.append(t);
        return *this;
    }
    std::string take() { return std::move(out_); }

private:
    std::string out_;
};

class Reader {
public:
    explicit Reader(std::string_view in) : in_(in) {}
    int64_t num()
    {
        int64_t v = 0;
        if (in_.size() < 8) {
            bad_ = true;
            return 0;
        }
        std::memcpy(&v, in_.data(), 8);
        in_.remove_prefix(8);
        return v;
    }
    std::string text()
    {
        uint32_t n = 0;
        if (in_.size() < 4) {
            bad_ = true;
            return {};
        }
        std::memcpy(&n, in_.data(), 4);
        in_.remove_prefix(4);
        if (in_.size() < n) {
            bad_ = true;
            return {};
        }
        std::string t(in_.substr(0, n));
        in_.remove_prefix(n);
        return t;
    }
    bool ok() const { return !bad_; }

private:
    std::string_view in_;
    bool bad_ = false;
};

std::string lock_key(std::string_view path, std::string_view bind_id)
{
    std::string key(path);
    key += '\0';
    key += bind_id;
    return key;
}

std::string seq_key(uint64_t seq)
{
    char key[17];
    std::snprintf(key, sizeof key, "%016llx", static_cast<unsigned long long>(seq));
    return key;
}

std::string encode_error(const ErrorEntry &e)
{
    return Writer()
        .text(e.path)
        .num(e.operations)
        .num(e.datatype)
        .text(e.value)
        .text(e.delete_value)
        .num(e.code)
        .text(e.verifier_text)
        .text(e.prepared_text)
        .take();
}

bool decode_error(std::string_view key, std::string_view value, ErrorEntry *e)
{
    Reader r(value);
    e->seq = std::strtoull(std::string(key).c_str(), nullptr, 16);
    e->path = r.text();
    e->operations = static_cast<uint32_t>(r.num());
    e->datatype = static_cast<int32_t>(r.num());
    e->value = r.text();
    e->delete_value = r.text();
    e->code = static_cast<int32_t>(r.num());
    e->verifier_text = r.text();
    e->prepared_text = r.text();
    return r.ok();
}

}  // namespace

std::string encode_lock(const Lock &lock)
{
    return Writer()
        .num(static_cast<int64_t>(lock.mode))
        .num(lock.holder.pid)
        .num(lock.holder.start)
        .text(lock.holder.boot)
        .num(lock.acquired_ns)
        .take();
}

bool decode_lock(std::string_view key, std::string_view value, Lock *lock)
{
    size_t nul = key.find('\0');
    if (nul == std::string_view::npos)
        return false;
    lock->path = std::string(key.substr(0, nul));
    lock->holder.bind_id = std::string(key.substr(nul + 1));
    Reader r(value);
    lock->mode = static_cast<LockMode>(r.num());
    lock->holder.pid = r.num();
    lock->holder.start = r.num();
    lock->holder.boot = r.text();
    lock->acquired_ns = r.num();
    return r.ok();
}

LocalStore::LocalStore() = default;
LocalStore::~LocalStore() = default;

// ---- Batches ----

Status LocalStore::apply(const Batch &batch, ApplyResult *result)
{
    ApplyResult scratch;
    if (!result)
        result = &scratch;
    *result = ApplyResult{};
    Context ctx;
    ctx.batch = &batch;
    ctx.result = result;
    ctx.verify = batch.verify && !batch.unscanned;
    Status s = begin_write();
    if (!s.ok())
        return s;
    s = run_batch(batch, ctx);
    bool undone = !s.ok() || (batch.undo_on_failure && !result->failures.empty());
    if (!undone) {
        s = write_events(ctx);
        if (s.ok() && batch.record_errors)
            s = write_errors(Table::ERRORS, true, ctx.errors);
        if (s.ok() && ctx.rules_written) {
            std::string gen;
            Status g = get_record(Table::META, RULES_GENERATION, &gen);
            if (g.ok() || g.code == TARVO_ERR_NOT_FOUND)
                s = put_record(Table::META, RULES_GENERATION,
                               std::to_string(std::strtoull(gen.c_str(), nullptr, 10) + 1));
            else
                s = g;
        }
        if (s.ok())
            s = trim_events();
        if (s.ok())
            s = commit_write();
        if (s.ok())
            return s;
    }
    rollback_write();
    if (ctx.rules_written)
        rules_generation_.clear();
    if (is_store_failure(s.code) || s.code == TARVO_ERR_TRANSACTION_TIMED_OUT) {
        *result = ApplyResult{};
        return s;
    }
    // Refused: nothing was applied, but the refusals are kept.
    result->changes = 0;
    result->changed.clear();
    if (batch.record_errors) {
        Status w = begin_write();
        if (w.ok())
            w = write_errors(Table::ERRORS, true, ctx.errors);
        if (w.ok())
            w = commit_write();
        if (!w.ok())
            rollback_write();
    }
    return s.ok() ? result->failures.front().status : s;
}

Status LocalStore::run_batch(const Batch &batch, Context &ctx)
{
    if (batch.deadline_ns && now_ns() >= batch.deadline_ns)
        return error(TARVO_ERR_TRANSACTION_TIMED_OUT, "the timeout passed before the commit");
    Status s = blocking_locks(batch.writer, &ctx.blocking);
    if (!s.ok())
        return s;
    for (size_t i = 0; i < batch.ops.size(); ++i) {
        ctx.op = i;
        const Op &op = batch.ops[i];
        s = run_op(op, ctx);
        if (s.ok())
            continue;
        if (is_store_failure(s.code))
            return s;
        Node item;
        bool known = (op.kind == OpKind::DELETE || op.kind == OpKind::DELETE_IF_EQUAL) &&
                     batch.record_errors && lookup(op.path, &item).ok() && !item.is_dir();
        note_failure(ctx, op.path, s, op, known ? &item : nullptr);
        if (batch.atomic)
            return s;
    }
    return ok_status();
}

void LocalStore::note_failure(Context &ctx, const std::string &path, const Status &status,
                              const Op &op, const Node *item)
{
    ctx.result->failures.push_back({ctx.op, path, status});
    if (!ctx.batch->record_errors)
        return;
    ErrorEntry e;
    e.path = path;
    e.operations = op_bits(op);
    e.datatype = op.datatype;
    e.value = op.value;
    if (item) {
        e.datatype = item->datatype;
        if (op.kind == OpKind::COPY)
            e.value = item->value;
        else
            e.delete_value = item->value;
    }
    e.code = status.code;
    if (status.code == TARVO_ERR_VERIFY_FAILED)
        e.verifier_text = status.detail;
    e.prepared_text = std::string(code_text(status.code)) +
                      (status.detail.empty() ? "" : ": " + status.detail);
    ctx.errors.push_back(std::move(e));
}

Status LocalStore::write_errors(Table table, bool replace, const std::vector<ErrorEntry> &entries)
{
    Status s = replace ? clear_records(table) : ok_status();
    uint64_t seq = 0;
    std::string last;
    const std::string counter = "seq." + std::to_string(static_cast<uint32_t>(table));
    if (s.ok() && !replace) {
        Status g = get_record(Table::META, counter, &last);
        if (g.ok())
            seq = std::strtoull(last.c_str(), nullptr, 10);
        else if (g.code != TARVO_ERR_NOT_FOUND)
            s = g;
    }
    for (const ErrorEntry &e : entries) {
        if (!s.ok())
            break;
        s = put_record(table, seq_key(++seq), encode_error(e));
    }
    if (s.ok() && !replace && !entries.empty())
        s = put_record(Table::META, counter, std::to_string(seq));
    return s;
}

Status LocalStore::run_op(const Op &op, Context &ctx)
{
    switch (op.kind) {
    case OpKind::CREATE:
        return create(op.path, op.datatype, op.value, ctx);
    case OpKind::SET:
        return set(op.path, op.datatype, op.value, op.create_missing, ctx);
    case OpKind::DELETE:
        return remove_item_at(op, ctx);
    case OpKind::DELETE_TREE:
        return delete_tree(op, ctx);
    case OpKind::DELETE_IF_EQUAL:
        return delete_if_equal(op, ctx);
    case OpKind::COPY:
        return copy(op, ctx);
    case OpKind::NOTIFY:
        return notify(op, ctx);
    }
    return error(TARVO_ERR_BAD_ARGUMENT, "unknown operation");
}

// ---- Checks ----

Status LocalStore::current_rules(const VerifierSet **rules)
{
    std::string gen;
    Status s = get_record(Table::META, RULES_GENERATION, &gen);
    if (s.code == TARVO_ERR_NOT_FOUND)
        gen = "0";
    else if (!s.ok())
        return s;
    if (!rules_ || gen != rules_generation_) {
        auto loaded = std::make_unique<VerifierSet>();
        s = loaded->load(*this);
        if (!s.ok())
            return s;
        rules_ = std::move(loaded);
        rules_generation_ = gen;
    }
    *rules = rules_.get();
    return ok_status();
}

// Locks of other holders and verifier rules, both read inside the write.
Status LocalStore::may_write(const std::string &path, int32_t datatype, const std::string &value,
                             Context &ctx)
{
    for (const Lock &lock : ctx.blocking)
        if (covers(lock.path, path))
            return error(TARVO_ERR_LOCKED,
                         path + " is " + (lock.mode == LockMode::WRITE ? "write" : "read") +
                             "-locked by " + lock.holder.name() + " (lock on " + lock.path + ")");
    if (!ctx.verify || datatype == TARVO_DATATYPE_DIR)
        return ok_status();
    if (!ctx.rules) {
        Status s = current_rules(&ctx.rules);
        if (!s.ok())
            return s;
    }
    return ctx.rules->size() ? ctx.rules->check(path, datatype, value) : ok_status();
}

Status LocalStore::blocking_locks(const Holder &writer, std::vector<Lock> *out)
{
    std::vector<Lock> all;
    Status s = live_locks(&all);
    for (Lock &lock : all)
        if (lock.holder.bind_id != writer.bind_id)
            out->push_back(std::move(lock));
    return s;
}

// ---- Item writes ----

// A write below the rules' directory changes the rules for the rest of the
// batch.
void LocalStore::rules_touched(const std::string &path, Context &ctx)
{
    if (!below_rules(path))
        return;
    ctx.rules_written = true;
    ctx.rules = nullptr;
    rules_generation_.clear();
}

Status LocalStore::event(uint32_t kind, const Node &node, const std::string *old_value,
                         const std::string *new_value, Context &ctx)
{
    if (!ctx.batch->events && !ctx.batch->report_changes)
        return ok_status();
    Event e;
    e.kind = kind;
    e.path = node.path;
    e.datatype = node.datatype;
    if (old_value) {
        e.has_old = true;
        e.old_value = *old_value;
    }
    if (new_value) {
        e.has_new = true;
        e.new_value = *new_value;
    }
    if (ctx.batch->report_changes)
        ctx.result->changed.push_back(e);
    if (!ctx.batch->events)
        return ok_status();
    ctx.events.push_back(std::move(e));
    if (ctx.events.size() > event_window()) {
        ctx.events.pop_front();
        ++ctx.events_dropped;
    }
    return ok_status();
}

// A batch of more changes than the log keeps writes only the events the log
// keeps, under the sequence numbers they would have had.
Status LocalStore::write_events(Context &ctx)
{
    uint64_t seq = 0;
    if (ctx.events_dropped) {
        Status s = last_event_seq(&seq);
        if (!s.ok())
            return s;
        seq += ctx.events_dropped;
    }
    for (Event &e : ctx.events) {
        e.seq = ctx.events_dropped ? ++seq : 0;
        Status s = append_event(e);
        if (!s.ok())
            return s;
    }
    return ok_status();
}

// Writes an item over `before`.
Status LocalStore::write_item(const Node &node, const Node *before, Context &ctx)
{
    Status s = put_node(node);
    return s.ok() ? item_written(node, before, ctx) : s;
}

// What follows the write of an item (created when `before` is null): its
// event and, in an issu bulk, its unscanned record.
Status LocalStore::item_written(const Node &node, const Node *before, Context &ctx)
{
    ++ctx.result->changes;
    rules_touched(node.path, ctx);
    if (ctx.batch->unscanned) {
        std::string had;
        Status g = get_record(Table::UNSCANNED, node.path, &had);
        if (!g.ok() && g.code != TARVO_ERR_NOT_FOUND)
            return g;
        uint32_t bits = before ? TARVO_EVENT_SET : TARVO_EVENT_CREATE;
        if (g.ok())
            bits |= static_cast<uint32_t>(std::strtoul(had.c_str(), nullptr, 10));
        Status s = put_record(Table::UNSCANNED, node.path, std::to_string(bits));
        if (!s.ok())
            return s;
    }
    return before ? event(TARVO_EVENT_SET, node, &before->value, &node.value, ctx)
                  : event(TARVO_EVENT_CREATE, node, nullptr, &node.value, ctx);
}

Status LocalStore::insert_node(const Node &node, bool *existed, Node *found)
{
    Status s = lookup(node.path, found);
    *existed = s.ok();
    if (s.code == TARVO_ERR_NOT_FOUND)
        return put_node(node);
    return s;
}

// The directories above `path` that do not exist yet, nearest first;
// UNDER_ITEM when an item is above.
Status LocalStore::missing_dirs(const std::string &path, std::vector<std::string> *missing,
                                Context &ctx)
{
    Node node;
    for (std::string dir = parent_dir(path); dir != "/"; dir = parent_dir(dir)) {
        if (ctx.known_dirs.count(dir))
            break;
        std::string at = item_form(dir);
        Status s = lookup(at, &node);
        if (s.ok() && !node.is_dir())
            return error(TARVO_ERR_UNDER_ITEM, path + " (" + at + " is an item)");
        if (s.ok()) {
            ctx.known_dirs.insert(dir);
            break;
        }
        if (s.code != TARVO_ERR_NOT_FOUND)
            return s;
        missing->push_back(dir);
    }
    return ok_status();
}

// The item goes in first, so that the key tells whether something is
// there already; a refusal after that takes it out again.
Status LocalStore::create(const std::string &path, int32_t datatype, const std::string &value,
                          Context &ctx)
{
    std::vector<std::string> missing;
    Status s = missing_dirs(path, &missing, ctx);
    if (!s.ok())
        return s;
    Node item{path, datatype, value}, there;
    bool existed = false;
    s = insert_node(item, &existed, &there);
    if (!s.ok())
        return s;
    if (existed && !there.is_dir() && ctx.batch->update)
        return set(path, datatype, value, false, ctx);
    if (existed)
        return there.is_dir() ? error(TARVO_ERR_IS_DIR, path) : error(TARVO_ERR_EXISTS, path);
    s = may_write(path, datatype, value, ctx);
    if (!s.ok()) {
        Status undo = erase_node(path);
        return undo.ok() ? s : undo;
    }
    for (const std::string &dir : missing) {
        s = put_node(Node{dir, TARVO_DATATYPE_DIR, {}});
        if (!s.ok())
            return s;
        ctx.known_dirs.insert(dir);
    }
    return item_written(item, nullptr, ctx);
}

Status LocalStore::set(const std::string &path, int32_t datatype, const std::string &value,
                       bool create_missing, Context &ctx)
{
    Node node;
    Status s = lookup(path, &node);
    if (s.code == TARVO_ERR_NOT_FOUND && create_missing)
        return create(path, datatype, value, ctx);
    if (s.code == TARVO_ERR_NOT_FOUND)
        return error(TARVO_ERR_NOT_FOUND, path);
    if (!s.ok())
        return s;
    if (node.is_dir())
        return error(TARVO_ERR_IS_DIR, path);
    if (node.datatype != datatype)
        return error(TARVO_ERR_WRONG_DATATYPE,
                     path + " holds " + datatype_name(node.datatype) + ", not " +
                         datatype_name(datatype));
    s = may_write(path, datatype, value, ctx);
    if (!s.ok())
        return s;
    return write_item(Node{path, datatype, value}, &node, ctx);
}

Status LocalStore::remove_item(const Node &item, Context &ctx)
{
    ctx.known_dirs.clear();
    Status s = may_write(item.path, TARVO_DATATYPE_DIR, {}, ctx);
    if (s.ok())
        s = erase_node(item.path);
    if (s.ok())
        s = event(TARVO_EVENT_DELETE, item, &item.value, nullptr, ctx);
    if (!s.ok())
        return s;
    ++ctx.result->changes;
    rules_touched(item.path, ctx);
    return prune_dirs(parent_dir(item.path));
}

Status LocalStore::remove_item_at(const Op &op, Context &ctx)
{
    Node node;
    Status s = lookup(op.path, &node);
    if (s.code == TARVO_ERR_NOT_FOUND)
        return error(TARVO_ERR_NOT_FOUND, op.path);
    if (!s.ok())
        return s;
    if (node.is_dir() && op.subtree) {
        Op tree = op;
        tree.kind = OpKind::DELETE_TREE;
        tree.path = node.path;
        return delete_tree(tree, ctx);
    }
    if (node.is_dir())
        return error(TARVO_ERR_IS_DIR, op.path);
    return remove_item(node, ctx);
}

Status LocalStore::delete_tree(const Op &op, Context &ctx)
{
    ctx.known_dirs.clear();
    const std::string dir = dir_form(op.path);
    PathMatcher matcher;
    Status s = matcher.compile(op.extra().match);
    if (!s.ok())
        return s;
    Node node;
    if (dir != "/") {
        s = lookup(item_form(dir), &node);
        if (s.code == TARVO_ERR_NOT_FOUND)
            return op.missing_ok ? ok_status() : error(TARVO_ERR_NOT_FOUND, dir);
        if (!s.ok())
            return s;
        if (!node.is_dir())
            return error(TARVO_ERR_NOT_A_DIR, item_form(dir));
    }
    ScanQuery q;
    q.max_entries = CHUNK;
    q.max_bytes = UINT64_MAX;
    for (;;) {
        Page page;
        s = scan(dir, q, &page);
        if (!s.ok())
            return s;
        for (const Node &item : page.entries) {
            q.start = item.path;
            q.exclusive = true;
            if (!matcher.matches(std::string_view(item.path).substr(dir.size())))
                continue;
            s = may_write(item.path, TARVO_DATATYPE_DIR, {}, ctx);
            if (!s.ok() && !ctx.batch->atomic) {
                note_failure(ctx, item.path, s, op, &item);  // a locked item stays
                continue;
            }
            if (s.ok())
                s = erase_node(item.path);
            if (s.ok())
                s = event(TARVO_EVENT_DELETE, item, &item.value, nullptr, ctx);
            if (!s.ok())
                return s;
            ++ctx.result->changes;
            rules_touched(item.path, ctx);
        }
        if (!page.remain)
            break;
    }
    s = remove_empty_dirs_below(dir);
    if (!s.ok())
        return s;
    return prune_dirs(dir);
}

// Deepest first: in descending path order a directory comes after every
// directory below it.
Status LocalStore::remove_empty_dirs_below(const std::string &dir)
{
    ScanQuery q;
    q.items = false;
    q.dirs = true;
    q.reverse = true;
    q.with_values = false;
    q.max_entries = CHUNK;
    for (;;) {
        Page page;
        Status s = scan(dir, q, &page);
        if (!s.ok())
            return s;
        for (const Node &d : page.entries) {
            q.start = d.path;
            q.exclusive = true;
            bool any = false;
            s = has_children(d.path, &any);
            if (s.ok() && !any)
                s = erase_node(d.path);
            if (!s.ok())
                return s;
        }
        if (!page.remain)
            return ok_status();
    }
}

Status LocalStore::prune_dirs(std::string dir)
{
    while (dir != "/") {
        bool any = false;
        Status s = has_children(dir, &any);
        if (!s.ok())
            return s;
        if (any)
            break;
        s = erase_node(dir);
        if (!s.ok())
            return s;
        dir = parent_dir(dir);
    }
    return ok_status();
}

Status LocalStore::has_children(std::string_view dir, bool *any)
{
    ListQuery q;
    q.max_entries = 1;
    q.with_values = false;
    Page page;
    Status s = list(dir, q, &page);
    if (s.code == TARVO_ERR_NOT_FOUND) {
        *any = false;
        return ok_status();
    }
    *any = !page.entries.empty();
    return s;
}

Status LocalStore::delete_if_equal(const Op &op, Context &ctx)
{
    Node node;
    Status s = lookup(op.path, &node);
    if (s.code == TARVO_ERR_NOT_FOUND)
        return error(TARVO_ERR_NOT_FOUND, op.path);
    if (!s.ok())
        return s;
    if (node.is_dir())
        return error(TARVO_ERR_IS_DIR, op.path);
    if (node.datatype != op.datatype || node.value != op.value)
        return error(TARVO_ERR_VALUE_DIFFERS,
                     op.path + (node.datatype != op.datatype
                                    ? " holds " + datatype_name(node.datatype)
                                    : " holds another value"));
    return remove_item(node, ctx);
}

Status LocalStore::copy_item(const Node &item, const std::string &target, Context &ctx)
{
    if (target.size() > TARVO_MAX_PATH)
        return error(TARVO_ERR_PATH_TOO_LONG, target);
    return set(target, item.datatype, item.value, true, ctx);
}

Status LocalStore::copy(const Op &op, Context &ctx)
{
    PathMatcher matcher;
    Status s = matcher.compile(op.extra().match);
    if (!s.ok())
        return s;
    Node src;
    s = lookup(item_form(op.path), &src);
    if (s.code == TARVO_ERR_NOT_FOUND)
        return error(TARVO_ERR_NOT_FOUND, op.path);
    if (!s.ok())
        return s;
    if (!src.is_dir()) {
        std::string target = op.extra().target;
        if (target.back() == '/')
            target += leaf_name(src.path);
        if (!matcher.matches(leaf_name(src.path)))
            return ok_status();
        return copy_item(src, target, ctx);
    }
    const std::string from = dir_form(src.path);
    const std::string to = dir_form(op.extra().target);
    // Overlapping trees would have the copy read what it has just written.
    if (to.compare(0, from.size(), from) == 0 || from.compare(0, to.size(), to) == 0)
        return error(TARVO_ERR_BAD_ARGUMENT,
                     "source " + from + " and destination " + to + " overlap");
    ScanQuery q;
    q.max_entries = CHUNK;
    q.max_bytes = 4u << 20;
    for (;;) {
        Page page;
        s = scan(from, q, &page);
        if (!s.ok())
            return s;
        for (const Node &item : page.entries) {
            q.start = item.path;
            q.exclusive = true;
            std::string rel = item.path.substr(from.size());
            if (!matcher.matches(rel))
                continue;
            s = copy_item(item, to + rel, ctx);
            if (s.ok())
                continue;
            if (ctx.batch->atomic || is_store_failure(s.code))
                return s;
            note_failure(ctx, to + rel, s, op, &item);
        }
        if (!page.remain)
            return ok_status();
    }
}

Status LocalStore::notify(const Op &op, Context &ctx)
{
    Node node{op.path, op.datatype, {}};
    const OpExtra &x = op.extra();
    return event(x.event, node, x.has_old ? &x.old_value : nullptr,
                 x.has_new ? &op.value : nullptr, ctx);
}

// ---- Locks ----

bool LocalStore::lock_alive(const Holder &holder) { return holder_alive(holder); }

Status LocalStore::live_locks(std::vector<Lock> *out)
{
    std::vector<Record> records;
    std::string after;
    for (;;) {
        records.clear();
        Status s = read_records(Table::LOCKS, after, CHUNK, &records);
        if (!s.ok())
            return s;
        for (const Record &r : records) {
            Lock lock;
            if (decode_lock(r.key, r.value, &lock) && lock_alive(lock.holder))
                out->push_back(std::move(lock));
        }
        if (records.size() < CHUNK)
            return ok_status();
        after = records.back().key;
    }
}

Status LocalStore::lock(std::string_view path, LockMode mode, const Holder &holder)
{
    Status s = begin_write();
    if (!s.ok())
        return s;
    // Locks of holders that are gone are dropped on the way.
    std::vector<Record> records;
    s = read_records(Table::LOCKS, "", UINT32_MAX, &records);
    LockMode held = LockMode::READ;
    bool holds = false;
    for (const Record &r : records) {
        if (!s.ok())
            break;
        Lock other;
        if (!decode_lock(r.key, r.value, &other) || !lock_alive(other.holder)) {
            s = erase_record(Table::LOCKS, r.key);
            continue;
        }
        if (other.holder.bind_id == holder.bind_id) {
            if (other.path == path) {
                holds = true;
                held = other.mode;
            }
            continue;
        }
        bool overlap = covers(other.path, path) || covers(path, other.path);
        if (overlap && (other.mode == LockMode::WRITE || mode == LockMode::WRITE))
            s = error(TARVO_ERR_LOCKED,
                      std::string(path) + " is " +
                          (other.mode == LockMode::WRITE ? "write" : "read") + "-locked by " +
                          other.holder.name() + " (lock on " + other.path + ")");
    }
    if (s.ok() && !(holds && held >= mode)) {
        Lock lock{std::string(path), mode, holder, now_ns()};
        s = put_record(Table::LOCKS, lock_key(path, holder.bind_id), encode_lock(lock));
    }
    if (s.ok())
        s = commit_write();
    if (!s.ok())
        rollback_write();
    return s;
}

Status LocalStore::unlock(std::string_view path, const Holder &holder)
{
    Status s = begin_write();
    if (!s.ok())
        return s;
    std::string value;
    const std::string key = lock_key(path, holder.bind_id);
    s = get_record(Table::LOCKS, key, &value);
    if (s.code == TARVO_ERR_NOT_FOUND)
        s = error(TARVO_ERR_NOT_LOCKED, std::string(path));
    if (s.ok())
        s = erase_record(Table::LOCKS, key);
    if (s.ok())
        s = commit_write();
    if (!s.ok())
        rollback_write();
    return s;
}

Status LocalStore::unlock_all(const Holder &holder)
{
    Status s = begin_write();
    if (!s.ok())
        return s;
    std::vector<Record> records;
    s = read_records(Table::LOCKS, "", UINT32_MAX, &records);
    for (const Record &r : records) {
        Lock lock;
        if (!s.ok())
            break;
        if (!decode_lock(r.key, r.value, &lock) || lock.holder.bind_id == holder.bind_id)
            s = erase_record(Table::LOCKS, r.key);
    }
    if (s.ok())
        s = commit_write();
    if (!s.ok())
        rollback_write();
    return s;
}

Status LocalStore::locks(std::vector<Lock> *out) { return live_locks(out); }

// ---- Error lists and the issu end ----

Status LocalStore::errors(ErrorList list, uint64_t after, uint32_t max,
                          std::vector<ErrorEntry> *entries)
{
    std::vector<Record> records;
    if (list == ErrorList::UNSCANNED) {
        // Keys are paths here; `after` counts entries already read.
        Status s = read_records(Table::UNSCANNED, "", UINT32_MAX, &records);
        if (!s.ok())
            return s;
        for (size_t i = after; i < records.size() && entries->size() < max; ++i) {
            ErrorEntry e;
            e.seq = i + 1;
            e.path = records[i].key;
            e.operations = static_cast<uint32_t>(std::strtoul(records[i].value.c_str(), nullptr, 10));
            e.code = TARVO_ERR_UNSCANNED;
            Node node;
            if (lookup(e.path, &node).ok() && !node.is_dir()) {
                e.datatype = node.datatype;
                e.value = node.value;
            }
            entries->push_back(std::move(e));
        }
        return ok_status();
    }
    Table table = list == ErrorList::ERRORS ? Table::ERRORS : Table::APPLY_ERRORS;
    Status s = read_records(table, after ? seq_key(after) : "", max, &records);
    for (const Record &r : records) {
        ErrorEntry e;
        if (decode_error(r.key, r.value, &e))
            entries->push_back(std::move(e));
    }
    return s;
}

Status LocalStore::clear_errors(ErrorList list)
{
    Table table = list == ErrorList::ERRORS         ? Table::ERRORS
                  : list == ErrorList::APPLY_ERRORS ? Table::APPLY_ERRORS
                                                    : Table::UNSCANNED;
    Status s = begin_write();
    if (s.ok())
        s = clear_records(table);
    if (s.ok())
        s = commit_write();
    if (!s.ok())
        rollback_write();
    return s;
}

Status LocalStore::end_issu(uint64_t *checked, uint64_t *failures)
{
    *checked = *failures = 0;
    Status s = begin_write();
    if (!s.ok())
        return s;
    std::vector<Record> records;
    std::vector<ErrorEntry> refused;
    const VerifierSet *rules = nullptr;
    s = read_records(Table::UNSCANNED, "", UINT32_MAX, &records);
    if (s.ok())
        s = current_rules(&rules);
    for (const Record &r : records) {
        if (!s.ok())
            break;
        Node node;
        Status found = lookup(r.key, &node);
        if (found.code == TARVO_ERR_NOT_FOUND || (found.ok() && node.is_dir()))
            continue;  // deleted since: nothing left to verify
        if (!found.ok()) {
            s = found;
            break;
        }
        ++*checked;
        Status v = rules->check(node.path, node.datatype, node.value);
        if (v.ok())
            continue;
        ErrorEntry e;
        e.path = node.path;
        e.operations = static_cast<uint32_t>(std::strtoul(r.value.c_str(), nullptr, 10));
        e.datatype = node.datatype;
        e.value = node.value;
        e.code = v.code;
        e.verifier_text = v.detail;
        e.prepared_text = std::string(code_text(v.code)) + ": " + v.detail;
        refused.push_back(std::move(e));
    }
    if (s.ok())
        s = write_errors(Table::APPLY_ERRORS, false, refused);
    if (s.ok())
        s = clear_records(Table::UNSCANNED);
    if (s.ok())
        s = commit_write();
    if (!s.ok()) {
        rollback_write();
        *checked = 0;
        return s;
    }
    *failures = refused.size();
    return s;
}

// ---- Consistency ----

Status LocalStore::check(std::vector<std::string> *problems)
{
    ScanQuery q;
    q.dirs = true;
    q.max_entries = CHUNK;
    q.max_bytes = UINT64_MAX;
    for (;;) {
        Page page;
        Status s = scan("/", q, &page);
        if (!s.ok())
            return s;
        for (const Node &node : page.entries) {
            q.start = node.path;
            q.exclusive = true;
            if (node.is_dir()) {
                bool any = false;
                s = has_children(node.path, &any);
                if (!s.ok())
                    return s;
                if (!any)
                    problems->push_back("empty directory " + node.path);
            } else {
                Status v = check_value(node.datatype, node.value);
                if (!v.ok())
                    problems->push_back("item " + node.path + ": " + code_text(v.code) + " (" +
                                        v.detail + ")");
            }
            for (const std::string &dir : ancestor_dirs(node.path)) {
                Node up;
                s = lookup(item_form(dir), &up);
                if (s.code == TARVO_ERR_NOT_FOUND || (s.ok() && !up.is_dir()))
                    problems->push_back("missing directory " + dir + " above " + node.path);
                else if (!s.ok())
                    return s;
            }
        }
        if (!page.remain)
            return ok_status();
    }
}

}  // namespace tarvo
