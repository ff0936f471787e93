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

Status FaultStore::lookup(std::string_view path, Node *node)
{
    return should_fail() ? injected() : inner_->lookup(path, node);
}

Status FaultStore::list(std::string_view dir, const ListQuery &query, Page *page)
{
    return should_fail() ? injected() : inner_->list(dir, query, page);
}

Status FaultStore::scan(std::string_view dir, const ScanQuery &query, Page *page)
{
    return should_fail() ? injected() : inner_->scan(dir, query, page);
}

Status FaultStore::apply(const Batch &batch, const WriteChecker *checker, ApplyResult *result)
{
    return should_fail() ? injected() : inner_->apply(batch, checker, result);
}

Status FaultStore::events_after(uint64_t after, uint32_t max, std::vector<Event> *events)
{
    return should_fail() ? injected() : inner_->events_after(after, max, events);
}

Status FaultStore::check(std::vector<std::string> *problems)
{
    return should_fail() ? injected() : inner_->check(problems);
}

Status FaultStore::stats(StoreStats *stats)
{
    return should_fail() ? injected() : inner_->stats(stats);
}

}  // namespace tarvo
