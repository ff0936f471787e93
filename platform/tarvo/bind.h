// The bind record behind a tarvo_bind_h_td, the registry that validates
// handles, and the helpers every API entry point uses.
//
// Handles are validated by looking them up in a registry of live handles, so
// a freed or made-up handle gives TARVO_ERR_BAD_HANDLE without ever being
// dereferenced. The registry is guarded by a mutex; a bind itself is used by
// one thread at a time (the caller's promise in tarvo.h).
#ifndef TARVO_BIND_H
#define TARVO_BIND_H

#include <functional>
#include <memory>
#include <new>
#include <string>

#include "pending.h"
#include "settings.h"
#include "store.h"

namespace tarvo {

// The bind's open transaction or bulk.
struct Pending {
    enum class Kind { TRANSACTION, BULK };
    Kind kind = Kind::TRANSACTION;
    uint32_t options = 0;
    int64_t deadline_ns = 0;             // transaction; 0: no timeout
    std::vector<Op> log;                 // transaction: the accepted requests
    BulkLog bulk;                        // bulk: the collected operations
    std::unique_ptr<PendingStore> view;  // always for a transaction; for a
                                         // bulk from its first read on
};

}  // namespace tarvo

struct tarvo_bind_td {
    uint32_t options = 0;
    std::string bind_point;  // directory form, "/" for the root
    tarvo::Plane plane = tarvo::Plane::SHARED;
    bool scratchpad = false;
    tarvo::Settings settings;
    std::unique_ptr<tarvo::Store> store;
    bool verification_suspended = false;
    tarvo::Holder holder;                      // identity for locks and writes
    bool locked = false;                       // has taken a lock (unbind releases)
    std::unique_ptr<tarvo::Pending> pending;   // open transaction or bulk
    int32_t last_code = 0;   // the last failure, for tarvo_prepare_error_string
    std::string last_text;
};

namespace tarvo {

// Kinds of handle the registry knows.
enum class HandleKind { BIND, LIST, DATALIST, EVENT_LIST, ERRORS_LIST, FILTER, ITERATOR };

void register_handle(const void *handle, HandleKind kind);
void unregister_handle(const void *handle);
bool handle_is_live(const void *handle, HandleKind kind);

inline bool bind_is_live(const tarvo_bind_td *bind)
{
    return bind && handle_is_live(bind, HandleKind::BIND);
}

// Opens the store of a new bind. Tests replace it to put a memory or
// fault-injecting store behind the API; an empty function restores the
// default (SQLite file of the plane, memory store for a scratchpad).
using StoreFactory = std::function<Status(const tarvo_bind_td &bind,
                                          const std::string &data_dir,
                                          std::unique_ptr<Store> *store)>;
void set_store_factory(StoreFactory factory);
Status open_bind_store(const tarvo_bind_td &bind, const std::string &data_dir,
                       std::unique_ptr<Store> *store);

// A batch carrying the bind's own options: verification, writer.
Batch bind_batch(const tarvo_bind_td &bind);

// The data the bind's reads see with `access` options: the store
// (TARVO_ACCESS_OPTION_NOBULK, or nothing pending), the pending changes laid
// over it, or the pending changes alone (TARVO_ACCESS_OPTION_BULK: then
// *pending_only is set and *store is the pending view, or null when nothing
// is pending).
Status bind_view(tarvo_bind_td *bind, uint32_t access, Store **store, PendingStore **pending_only);

// Runs one write request of the bind: at once, or checked against the
// bind's view and buffered in its open transaction (always atomic there),
// or collected in its open bulk (*collected set; nothing is checked yet).
Status submit(tarvo_bind_td *bind, Op op, bool atomic, ApplyResult *result,
              bool *collected = nullptr);

// Ends the bind's open bulk (NO_BULK without one) and closes it whatever
// the result; *changed (when not null) receives the changes applied.
Status finish_bulk(tarvo_bind_td &bind, std::vector<Event> *changed);

// Records a failure as the bind's last one and returns its code. The
// prepared text is "<text of the code>: <detail>".
int32_t fail(tarvo_bind_td *bind, const Status &status);

// Runs an entry point's body; memory exhaustion inside becomes
// TARVO_ERR_NO_MEMORY instead of an exception crossing the C interface.
template <typename Body> int guarded(Body body)
{
    try {
        return body();
    } catch (const std::bad_alloc &) {
        return TARVO_ERR_NO_MEMORY;
    } catch (...) {
        return TARVO_ERR_STORE;
    }
}

}  // namespace tarvo

#endif
