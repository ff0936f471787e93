#include "bind.h"

#include <mutex>
#include <unordered_map>

namespace tarvo {
namespace {

std::mutex registry_mutex;
std::unordered_map<const void *, HandleKind> &registry()
{
    static auto *handles = new std::unordered_map<const void *, HandleKind>();
    return *handles;
}

StoreFactory &factory()
{
    static auto *f = new StoreFactory();
    return *f;
}

}  // namespace

void register_handle(const void *handle, HandleKind kind)
{
    std::lock_guard<std::mutex> lock(registry_mutex);
    registry()[handle] = kind;
}

void unregister_handle(const void *handle)
{
    std::lock_guard<std::mutex> lock(registry_mutex);
    registry().erase(handle);
}

bool handle_is_live(const void *handle, HandleKind kind)
{
    std::lock_guard<std::mutex> lock(registry_mutex);
    auto it = registry().find(handle);
    return it != registry().end() && it->second == kind;
}

void set_store_factory(StoreFactory f) { factory() = std::move(f); }

Status open_bind_store(const tarvo_bind_td &bind, const std::string &data_dir,
                       std::unique_ptr<Store> *store)
{
    if (factory())
        return factory()(bind, data_dir, store);
    StoreOptions options;
    options.event_window = bind.settings.event_window;
    options.busy_timeout_ms = static_cast<int>(bind.settings.busy_timeout_ms);
    if (bind.scratchpad) {
        *store = new_memory_store(options);
        return ok_status();
    }
    if (bind.plane == Plane::SHARED) {
        const std::string location = shared_store_of(bind.settings);
        if (location != "sqlite") {
            Status s = check_shared_store(location);
            return s.ok() ? open_etcd_store(location, options, store) : s;
        }
    }
    return open_sqlite_store(plane_file(data_dir, bind.plane), options, store);
}

int32_t fail(tarvo_bind_td *bind, const Status &status)
{
    bind->last_code = status.code;
    // Without a detail there is nothing to say beyond the code's own text.
    bind->last_text.clear();
    if (!status.detail.empty())
        bind->last_text = std::string(code_text(status.code)) + ": " + status.detail;
    return status.code;
}

}  // namespace tarvo
