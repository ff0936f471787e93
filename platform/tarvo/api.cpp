// Binding, error texts and the per-bind verification switch.
#include <cstdlib>
#include <cstring>

#include "bind.h"
#include "holder.h"
#include "paths.h"

using namespace tarvo;

namespace {

Status make_bind(const char *path, uint32_t options, std::unique_ptr<tarvo_bind_td> *out)
{
    auto bind = std::make_unique<tarvo_bind_td>();
    Status s = normalize_bind_point(path, &bind->bind_point);
    if (!s.ok())
        return s;
    bind->options = options;
    bind->plane = plane_of_options(options);
    bind->scratchpad = (options & TARVO_BIND_OPTION_SCRATCHPAD) != 0;
    bind->holder = new_holder();
    std::string dir;
    s = resolve_data_dir(&dir);
    if (s.ok())
        s = load_settings(dir, &bind->settings);
    // A scratchpad needs no data directory; it only borrows its settings.
    if (!s.ok() && !bind->scratchpad)
        return s;
    s = open_bind_store(*bind, dir, &bind->store);
    if (!s.ok())
        return s;
    *out = std::move(bind);
    return ok_status();
}

}  // namespace

extern "C" {

namespace {
// The last failed bind of each thread, for tarvo_prepare_error_string(NULL).
thread_local int32_t bind_failure_code = 0;
thread_local std::string bind_failure_text;
}  // namespace

int _tarvo_bind(tarvo_bind_h_td *handle, const char *path, uint32_t options)
{
    if (!handle || !path)
        return TARVO_ERR_BAD_ARGUMENT;
    *handle = nullptr;
    return guarded([&] {
        std::unique_ptr<tarvo_bind_td> bind;
        Status s = make_bind(path, options, &bind);
        if (!s.ok()) {
            bind_failure_code = s.code;
            bind_failure_text = s.detail;
            return s.code;
        }
        register_handle(bind.get(), HandleKind::BIND);
        *handle = bind.release();
        return 0;
    });
}

int _tarvo_unbind(tarvo_bind_h_td handle)
{
    if (!bind_is_live(handle))
        return TARVO_ERR_BAD_HANDLE;
    unregister_handle(handle);
    // Whatever was pending is dropped; the locks go with the bind.
    guarded([&] {
        handle->pending.reset();
        if (handle->locked)
            handle->store->unlock_all(handle->holder);
        return 0;
    });
    delete handle;
    return 0;
}

int tarvo_bind_get_options(tarvo_bind_h_td handle, uint32_t *options)
{
    if (!bind_is_live(handle))
        return TARVO_ERR_BAD_HANDLE;
    if (!options)
        return TARVO_ERR_BAD_ARGUMENT;
    *options = handle->options;
    return 0;
}

int tarvo_prepare_error_string(tarvo_bind_h_td handle, int32_t code, char **text)
{
    if (!handle && text) {
        *text = nullptr;
        if (code == 0 || code != bind_failure_code || bind_failure_text.empty())
            return TARVO_ERR_NOT_FOUND;
        *text = strdup(bind_failure_text.c_str());
        return *text ? 0 : TARVO_ERR_NO_MEMORY;
    }
    if (!bind_is_live(handle))
        return TARVO_ERR_BAD_HANDLE;
    if (!text)
        return TARVO_ERR_BAD_ARGUMENT;
    *text = nullptr;
    if (code == 0 || code != handle->last_code || handle->last_text.empty())
        return TARVO_ERR_NOT_FOUND;
    *text = strdup(handle->last_text.c_str());
    return *text ? 0 : TARVO_ERR_NO_MEMORY;
}

int tarvo_verification_suspend(tarvo_bind_h_td handle)
{
    if (!bind_is_live(handle))
        return TARVO_ERR_BAD_HANDLE;
    handle->verification_suspended = true;
    return 0;
}

int tarvo_verification_resume(tarvo_bind_h_td handle)
{
    if (!bind_is_live(handle))
        return TARVO_ERR_BAD_HANDLE;
    handle->verification_suspended = false;
    return 0;
}

}  // extern "C"
