// Transactions, bulks, locks and the server controls (notifications, ping,
// the end of an in-service upgrade), and the routing of a bind's requests
// through its open transaction or bulk.
#include <chrono>
#include <climits>

#include "bind.h"
#include "paths.h"
#include "values.h"

namespace tarvo {
namespace {

constexpr uint32_t BULK_OPTIONS = TARVO_BULK_OPTION_ATOMIC | TARVO_BULK_OPTION_INITIAL_LOAD |
                                  TARVO_BULK_OPTION_UPDATE | TARVO_BULK_OPTION_ISSU |
                                  TARVO_BULK_OPTION_COMMIT_REPLACE |
                                  TARVO_BULK_OPTION_INT_ROLLBACK;

int64_t now_ns()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

bool in_bulk(const tarvo_bind_td &bind)
{
    return bind.pending && bind.pending->kind == Pending::Kind::BULK;
}

bool in_transaction(const tarvo_bind_td &bind)
{
    return bind.pending && bind.pending->kind == Pending::Kind::TRANSACTION;
}

// The batch a bulk's end applies, with the bulk's options.
Batch bulk_batch(const tarvo_bind_td &bind, std::vector<Op> ops)
{
    Batch b = bind_batch(bind);
    const uint32_t o = bind.pending->options;
    b.ops = std::move(ops);
    b.atomic = o & TARVO_BULK_OPTION_ATOMIC;
    b.undo_on_failure = !b.atomic && (o & TARVO_BULK_OPTION_INT_ROLLBACK);
    b.update = o & TARVO_BULK_OPTION_UPDATE;
    b.unscanned = o & TARVO_BULK_OPTION_ISSU;
    b.events = !(o & TARVO_BULK_OPTION_INITIAL_LOAD);
    return b;
}

// A bulk's view is built on its first read, by running the collected
// operations against it as a non-atomic end would.
Status bulk_view(tarvo_bind_td *bind)
{
    Pending &p = *bind->pending;
    if (p.view)
        return ok_status();
    auto view = std::make_unique<PendingStore>(*bind->store);
    Batch b = bulk_batch(*bind, p.bulk.ops());
    b.atomic = false;
    b.undo_on_failure = false;
    ApplyResult ignored;
    Status s = view->apply(b, &ignored);
    if (!s.ok() && is_store_failure(s.code))
        return s;
    p.view = std::move(view);
    return ok_status();
}

// The timeout: none for 0 and 0; a deadline past the clock's range is none
// in effect.
int64_t deadline(uint64_t seconds, uint64_t nanoseconds)
{
    if (!seconds && !nanoseconds)
        return 0;
    const int64_t now = now_ns();
    const uint64_t limit = static_cast<uint64_t>(INT64_MAX - now);
    if (seconds > limit / 1000000000u)
        return INT64_MAX;
    uint64_t span = seconds * 1000000000u + nanoseconds;
    return span > limit ? INT64_MAX : now + static_cast<int64_t>(span);
}

Status resolve_lock_path(const tarvo_bind_td &bind, const char *path, std::string *out)
{
    if (!path)
        return error(TARVO_ERR_BAD_ARGUMENT, "null path");
    ResolvedPath where;
    Status s = resolve_path(bind.bind_point, path, &where);
    if (s.ok())
        *out = where.path;
    return s;
}

Status take_lock(tarvo_bind_td &bind, const char *path, LockMode mode)
{
    std::string where;
    Status s = resolve_lock_path(bind, path, &where);
    if (s.ok())
        s = bind.store->lock(where, mode, bind.holder);
    bind.locked = bind.locked || s.ok();
    return s;
}

}  // namespace

Batch bind_batch(const tarvo_bind_td &bind)
{
    Batch b;
    b.verify = !bind.verification_suspended;
    b.writer = bind.holder;
    return b;
}

Status bind_view(tarvo_bind_td *bind, uint32_t access, Store **store, PendingStore **pending_only)
{
    *store = bind->store.get();
    *pending_only = nullptr;
    if ((access & TARVO_ACCESS_OPTION_NOBULK) && (access & TARVO_ACCESS_OPTION_BULK))
        return error(TARVO_ERR_BAD_OPTIONS, "committed-only and pending-only together");
    if (!bind->pending || (access & TARVO_ACCESS_OPTION_NOBULK))
        return ok_status();
    if (in_bulk(*bind)) {
        Status s = bulk_view(bind);
        if (!s.ok())
            return s;
    }
    if (access & TARVO_ACCESS_OPTION_BULK)
        *pending_only = bind->pending->view.get();
    else
        *store = bind->pending->view.get();
    return ok_status();
}

Status submit(tarvo_bind_td *bind, Op op, bool atomic, ApplyResult *result, bool *collected)
{
    if (collected)
        *collected = false;
    *result = ApplyResult{};
    if (bind->pending && bind->pending->kind == Pending::Kind::BULK && !bind->pending->view) {
        bind->pending->bulk.add(std::move(op));  // the common case: nothing to check yet
        if (collected)
            *collected = true;
        return ok_status();
    }
    Batch b = bind_batch(*bind);
    b.atomic = atomic;
    if (!bind->pending) {
        b.ops.push_back(std::move(op));
        return bind->store->apply(b, result);
    }
    Pending &p = *bind->pending;
    if (p.kind == Pending::Kind::TRANSACTION) {
        if (p.deadline_ns && now_ns() >= p.deadline_ns)
            return error(TARVO_ERR_TRANSACTION_TIMED_OUT,
                         "the transaction's timeout has passed; it can only end");
        // Checked now against what the bind sees; checked again at commit.
        b.atomic = true;
        b.ops.push_back(op);
        Status s = p.view->apply(b, result);
        if (s.ok())
            p.log.push_back(std::move(op));
        return s;
    }
    if (p.view) {
        Batch step = bulk_batch(*bind, {op});
        step.atomic = false;
        step.undo_on_failure = false;
        ApplyResult ignored;
        if (!p.view->apply(step, &ignored).ok())
            p.view.reset();  // built again at the next read
    }
    p.bulk.add(std::move(op));
    if (collected)
        *collected = true;
    return ok_status();
}

Status finish_bulk(tarvo_bind_td &bind, std::vector<Event> *changed)
{
    if (!in_bulk(bind))
        return error(TARVO_ERR_NO_BULK);
    Op replace;
    const bool replacing = bind.pending->options & TARVO_BULK_OPTION_COMMIT_REPLACE;
    if (replacing) {
        replace.kind = OpKind::DELETE_TREE;
        replace.path = bind.bind_point;
        replace.missing_ok = true;
        bind.pending->bulk.written_below(bind.bind_point, &replace.extra().match.except,
                                         &replace.extra().match.except_below);
    }
    Batch b = bulk_batch(bind, bind.pending->bulk.take());
    if (replacing)
        b.ops.push_back(std::move(replace));
    b.record_errors = true;
    b.report_changes = changed != nullptr;
    bind.pending.reset();
    ApplyResult result;
    Status s = bind.store->apply(b, &result);
    if (changed)
        *changed = std::move(result.changed);
    if (result.failures.empty() || is_store_failure(s.code))
        return s;
    const OpFailure &first = result.failures.front();
    std::string count = std::to_string(result.failures.size()) + " of " +
                        std::to_string(b.ops.size()) + " operations refused";
    std::string outcome = s.ok() ? "the others were applied" : "nothing was applied";
    return error(first.status.code, count + " (first: " +
                                        (first.status.detail.empty() ? first.path
                                                                     : first.status.detail) +
                                        "); " + outcome + "; see the errors list");
}

}  // namespace tarvo

using namespace tarvo;

namespace {

template <typename Body> int on_bind(tarvo_bind_h_td handle, Body body)
{
    if (!bind_is_live(handle))
        return TARVO_ERR_BAD_HANDLE;
    return guarded([&] {
        Status s = body(*handle);
        return s.ok() ? 0 : fail(handle, s);
    });
}

Status commit(tarvo_bind_td &bind)
{
    if (!in_transaction(bind))
        return error(TARVO_ERR_NO_TRANSACTION);
    std::unique_ptr<Pending> p = std::move(bind.pending);
    if (p->deadline_ns && now_ns() >= p->deadline_ns)
        return error(TARVO_ERR_TRANSACTION_TIMED_OUT,
                     "nothing of the transaction's " + std::to_string(p->log.size()) +
                         " requests was applied");
    Batch b = bind_batch(bind);
    b.ops = std::move(p->log);
    b.events = !(p->options & TARVO_TRANSACTION_OPTION_INITIAL_LOAD);
    b.deadline_ns = p->deadline_ns;
    ApplyResult result;
    return bind.store->apply(b, &result);
}

Status end_bulk(tarvo_bind_td &bind) { return finish_bulk(bind, nullptr); }

Status start_bulk(tarvo_bind_td &bind, uint32_t options)
{
    if (options & ~BULK_OPTIONS)
        return error(TARVO_ERR_BAD_OPTIONS, "unknown bulk options " + std::to_string(options));
    if (in_transaction(bind))
        return error(TARVO_ERR_TRANS_AND_BULK, "a transaction is open on this bind");
    if (in_bulk(bind))
        return error(TARVO_ERR_BULK_OPEN);
    bind.pending = std::make_unique<Pending>();
    bind.pending->kind = Pending::Kind::BULK;
    bind.pending->options = options;
    return ok_status();
}

Status start_transaction(tarvo_bind_td &bind, uint64_t seconds, uint64_t nanoseconds,
                         uint32_t options)
{
    if (nanoseconds >= 1000000000u)
        return error(TARVO_ERR_BAD_ARGUMENT, "nanoseconds must be below one second");
    if (options & ~TARVO_TRANSACTION_OPTION_INITIAL_LOAD)
        return error(TARVO_ERR_BAD_OPTIONS,
                     "unknown transaction options " + std::to_string(options));
    if (in_bulk(bind))
        return error(TARVO_ERR_TRANS_AND_BULK, "a bulk operation is open on this bind");
    // A start while a transaction is open keeps its changes and restarts the
    // timeout.
    if (!bind.pending) {
        bind.pending = std::make_unique<Pending>();
        bind.pending->view = std::make_unique<PendingStore>(*bind.store);
    }
    bind.pending->options = options;
    bind.pending->deadline_ns = deadline(seconds, nanoseconds);
    return ok_status();
}

Status remove_ops(tarvo_bind_td &bind, const char *name, uint32_t kind)
{
    if (!in_bulk(bind))
        return error(TARVO_ERR_NO_BULK);
    if (!name || kind > TARVO_BULK_REMOVE_ALL)
        return error(TARVO_ERR_BAD_ARGUMENT);
    std::string path;
    if (*name) {
        ResolvedPath where;
        Status s = resolve_path(bind.bind_point, name, &where);
        if (!s.ok())
            return s;
        path = where.path;
    }
    if (!bind.pending->bulk.remove(path, kind))
        return error(TARVO_ERR_NOT_FOUND,
                     "no collected operation on " + (path.empty() ? "any item" : path));
    bind.pending->view.reset();
    return ok_status();
}

Status notification(tarvo_bind_td &bind, const tarvo_edm_notification_td *request)
{
    if (!request || !request->item_name)
        return error(TARVO_ERR_BAD_ARGUMENT, "null notification or item name");
    const uint32_t kind = request->event;
    if (kind != TARVO_EVENT_CREATE && kind != TARVO_EVENT_SET && kind != TARVO_EVENT_DELETE)
        return error(TARVO_ERR_BAD_ARGUMENT, "event kind " + std::to_string(kind));
    const int32_t datatype = static_cast<int32_t>(request->datatype);
    if (!is_storable(datatype))
        return error(TARVO_ERR_BAD_DATATYPE, "datatype " + datatype_name(datatype));
    ResolvedPath where;
    Status s = resolve_path(bind.bind_point, request->item_name, &where);
    if (s.ok() && where.dir_form)
        s = error(TARVO_ERR_BAD_PATH, std::string(request->item_name) + " is not an item path");
    if (!s.ok())
        return s;
    Op op;
    op.kind = OpKind::NOTIFY;
    op.path = where.path;
    op.datatype = datatype;
    op.extra().event = kind;
    struct Side {
        const void *value;
        uint32_t length;
        bool *has;
        std::string *bytes;
    } sides[] = {{request->old_value, request->old_length, &op.extra().has_old, &op.extra().old_value},
                 {request->new_value, request->new_length, &op.extra().has_new, &op.value}};
    for (Side &side : sides) {
        if (!side.value && side.length)
            return error(TARVO_ERR_BAD_ARGUMENT, "null value with a length");
        if (!side.value)
            continue;
        *side.has = true;
        side.bytes->assign(static_cast<const char *>(side.value), side.length);
        s = check_value(datatype, *side.bytes);
        if (!s.ok())
            return error(s.code, where.path + ": " + s.detail);
    }
    Batch b = bind_batch(bind);
    b.verify = false;
    b.ops.push_back(std::move(op));
    ApplyResult result;
    return bind.store->apply(b, &result);
}

Status ping(tarvo_bind_td &bind, uint32_t group, uint32_t plane, uint32_t roles,
            uint32_t versioned, int32_t target)
{
    if (group > TARVO_PING_GROUP_OTHER || plane > TARVO_PING_PLANE_LOCAL || !roles ||
        (roles & ~0xfu) || versioned > 1)
        return error(TARVO_ERR_BAD_ARGUMENT, "ping target out of range");
    if (target != 0)
        return error(TARVO_ERR_NOT_FOUND, "no server with id " + std::to_string(target) +
                                              " (this store has one, id 0)");
    const Plane wanted = plane == TARVO_PING_PLANE_ADMIN  ? Plane::ADMIN
                         : plane == TARVO_PING_PLANE_LOCAL ? Plane::LOCAL
                                                           : Plane::SHARED;
    if (!bind.scratchpad && wanted == bind.plane)
        return bind.store->ping();
    std::string dir;
    Status s = resolve_data_dir(&dir);
    std::unique_ptr<Store> store;
    StoreOptions options;
    options.busy_timeout_ms = static_cast<int>(bind.settings.busy_timeout_ms);
    if (s.ok())
        s = open_sqlite_store(plane_file(dir, wanted), options, &store);
    return s.ok() ? store->ping() : s;
}

Status issu_end(tarvo_bind_td &bind)
{
    uint64_t checked = 0, failures = 0;
    Status s = bind.store->end_issu(&checked, &failures);
    if (s.ok() && failures)
        return error(TARVO_ERR_VERIFY_FAILED,
                     std::to_string(failures) + " of " + std::to_string(checked) +
                         " unscanned items refused by the verifier rules; see the apply errors");
    return s;
}

}  // namespace

extern "C" {

int tarvo_transaction_start(tarvo_bind_h_td h, uint64_t seconds, uint64_t nanoseconds,
                            uint32_t options)
{
    return on_bind(h, [&](tarvo_bind_td &b) {
        return start_transaction(b, seconds, nanoseconds, options);
    });
}

int tarvo_transaction_commit(tarvo_bind_h_td h) { return on_bind(h, commit); }

int tarvo_transaction_abort(tarvo_bind_h_td h)
{
    return on_bind(h, [](tarvo_bind_td &b) {
        if (!in_transaction(b))
            return error(TARVO_ERR_NO_TRANSACTION);
        b.pending.reset();
        return ok_status();
    });
}

int tarvo_bulk_start(tarvo_bind_h_td h, uint32_t options)
{
    return on_bind(h, [&](tarvo_bind_td &b) { return start_bulk(b, options); });
}

int tarvo_bulk_end(tarvo_bind_h_td h) { return on_bind(h, end_bulk); }

int tarvo_bulk_abort(tarvo_bind_h_td h)
{
    return on_bind(h, [](tarvo_bind_td &b) {
        if (!in_bulk(b))
            return error(TARVO_ERR_NO_BULK);
        b.pending.reset();
        return ok_status();
    });
}

int tarvo_bulk_get_options(tarvo_bind_h_td h, uint32_t *options)
{
    return on_bind(h, [&](tarvo_bind_td &b) {
        if (!options)
            return error(TARVO_ERR_BAD_ARGUMENT);
        if (!in_bulk(b))
            return error(TARVO_ERR_NO_BULK);
        *options = b.pending->options;
        return ok_status();
    });
}

int tarvo_bulk_set_options(tarvo_bind_h_td h, uint32_t options)
{
    return on_bind(h, [&](tarvo_bind_td &b) {
        if (!in_bulk(b))
            return error(TARVO_ERR_NO_BULK);
        if (options & ~BULK_OPTIONS)
            return error(TARVO_ERR_BAD_OPTIONS, "unknown bulk options " + std::to_string(options));
        b.pending->options = options;
        b.pending->view.reset();
        return ok_status();
    });
}

int tarvo_bulk_remove_op2(tarvo_bind_h_td h, const char *name, uint32_t kind)
{
    return on_bind(h, [&](tarvo_bind_td &b) { return remove_ops(b, name, kind); });
}

int tarvo_bulk_num_ops(tarvo_bind_h_td h, uint32_t *count)
{
    return on_bind(h, [&](tarvo_bind_td &b) {
        if (!count)
            return error(TARVO_ERR_BAD_ARGUMENT);
        if (!in_bulk(b))
            return error(TARVO_ERR_NO_BULK);
        *count = b.pending->bulk.count();
        return ok_status();
    });
}

int tarvo_item_rdlock(tarvo_bind_h_td h, const char *path)
{
    return on_bind(h, [&](tarvo_bind_td &b) {
        return take_lock(b, path, LockMode::READ);
    });
}

int tarvo_item_wrlock(tarvo_bind_h_td h, const char *path)
{
    return on_bind(h, [&](tarvo_bind_td &b) {
        return take_lock(b, path, LockMode::WRITE);
    });
}

int tarvo_item_unlock(tarvo_bind_h_td h, const char *path)
{
    return on_bind(h, [&](tarvo_bind_td &b) {
        std::string where;
        Status s = resolve_lock_path(b, path, &where);
        return s.ok() ? b.store->unlock(where, b.holder) : s;
    });
}

int tarvo_edm_notification_generate(tarvo_bind_h_td h, const tarvo_edm_notification_td *request)
{
    return on_bind(h, [&](tarvo_bind_td &b) { return notification(b, request); });
}

int tarvo_ping(tarvo_bind_h_td h, uint32_t group, uint32_t plane, uint32_t roles,
               uint32_t versioned, int32_t target_id)
{
    return on_bind(h, [&](tarvo_bind_td &b) {
        return ping(b, group, plane, roles, versioned, target_id);
    });
}

int tarvo_cfgmgr_issu_mdr_end(tarvo_bind_h_td h) { return on_bind(h, issu_end); }

}  // extern "C"
