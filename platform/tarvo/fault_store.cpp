#include "store.h"

namespace tarvo {

FaultStore::FaultStore(std::unique_ptr<Store> inner) : inner_(std::move(inner)) {}

bool FaultStore::should_fail()
{
    ++calls_;
    return fail_all_ || (fail_at_ && calls_ == fail_at_);
}

namespace {
Status injected() { return error(TARVO_ERR_STORE, "injected store fault"); }
}  // namespace

#define TARVO_FORWARD(call) return should_fail() ? injected() : inner_->call

Status FaultStore::lookup(std::string_view path, Node *node) { TARVO_FORWARD(lookup(path, node)); }
Status FaultStore::list(std::string_view dir, const ListQuery &query, Page *page)
{
    TARVO_FORWARD(list(dir, query, page));
}
Status FaultStore::scan(std::string_view dir, const ScanQuery &query, Page *page)
{
    TARVO_FORWARD(scan(dir, query, page));
}
Status FaultStore::apply(const Batch &batch, ApplyResult *result)
{
    TARVO_FORWARD(apply(batch, result));
}
Status FaultStore::events_after(uint64_t after, uint32_t max, std::vector<Event> *events)
{
    TARVO_FORWARD(events_after(after, max, events));
}
Status FaultStore::find_events(std::string_view dir, const ScanQuery &query, EventPage *page)
{
    TARVO_FORWARD(find_events(dir, query, page));
}
Status FaultStore::lock(std::string_view path, LockMode mode, const Holder &holder)
{
    TARVO_FORWARD(lock(path, mode, holder));
}
Status FaultStore::unlock(std::string_view path, const Holder &holder)
{
    TARVO_FORWARD(unlock(path, holder));
}
Status FaultStore::unlock_all(const Holder &holder) { TARVO_FORWARD(unlock_all(holder)); }
Status FaultStore::locks(std::vector<Lock> *locks) { TARVO_FORWARD(locks(locks)); }
Status FaultStore::errors(ErrorList list, uint64_t after, uint32_t max,
                          std::vector<ErrorEntry> *entries)
{
    TARVO_FORWARD(errors(list, after, max, entries));
}
Status FaultStore::clear_errors(ErrorList list) { TARVO_FORWARD(clear_errors(list)); }
Status FaultStore::end_issu(uint64_t *checked, uint64_t *failures)
{
    TARVO_FORWARD(end_issu(checked, failures));
}
Status FaultStore::ping() { TARVO_FORWARD(ping()); }
Status FaultStore::check(std::vector<std::string> *problems) { TARVO_FORWARD(check(problems)); }
Status FaultStore::stats(StoreStats *stats) { TARVO_FORWARD(stats(stats)); }

#undef TARVO_FORWARD

}  // namespace tarvo
