// Item requests: get, get_inh, get_items, create, set, delete (item,
// subtree, everything, pattern), conditional delete, verify and copy. Each
// request resolves its paths against the bind point, checks its arguments and
// the value, then hands one operation to the store, or to the bind's open
// transaction or bulk (submit, control.cpp). Reads see what the bind sees.
#include <cstdlib>
#include <cstring>

#include "bind.h"
#include "lists.h"
#include "path_match.h"
#include "paths.h"
#include "values.h"
#include "verifiers.h"

using namespace tarvo;

namespace {

std::string bytes_of(const void *value, uint32_t length)
{
    return value ? std::string(static_cast<const char *>(value), length) : std::string();
}

// Resolves the path of an item to be written: not a directory path.
Status item_path(const tarvo_bind_td *bind, const char *path, ResolvedPath *out)
{
    Status s = resolve_path(bind->bind_point, path, out);
    if (!s.ok())
        return s;
    if (out->dir_form)
        return error(TARVO_ERR_BAD_PATH,
                     (out->is_root() ? std::string("/") : out->path + "/") +
                         " is a directory path, not an item path");
    return ok_status();
}

// The checked value of a write request.
Status typed_value(int32_t datatype, const void *value, uint32_t length, std::string *out)
{
    if (!value && length)
        return error(TARVO_ERR_BAD_ARGUMENT, "null value with a length");
    *out = bytes_of(value, length);
    return check_value(datatype, *out);
}

// The store or view the bind's reads go to (with no access options).
Store &reader(tarvo_bind_td *bind, Status *s)
{
    Store *store = nullptr;
    PendingStore *pending = nullptr;
    *s = bind_view(bind, 0, &store, &pending);
    return *store;
}

// Runs one operation; in a non-atomic tree operation, item failures are
// reported as the result after the rest has been applied. *collected is set
// when a bulk only collected it.
Status run(tarvo_bind_td *bind, Op op, bool atomic, ApplyResult *result,
           bool *collected = nullptr)
{
    Status s = submit(bind, std::move(op), atomic, result, collected);
    if (!s.ok() || result->failures.empty())
        return s;
    const OpFailure &first = result->failures.front();
    if (result->failures.size() == 1 && result->changes == 0)
        return first.status;
    // Some items were written: the text says how many, and names the first
    // refusal.
    return error(first.status.code,
                 (first.status.detail.empty() ? first.path : first.status.detail) + " (" +
                     std::to_string(result->failures.size()) + " refused, " +
                     std::to_string(result->changes) + " written)");
}

Status run(tarvo_bind_td *bind, Op op)
{
    ApplyResult result;
    return run(bind, std::move(op), true, &result);
}

Status write_item(tarvo_bind_td *bind, OpKind kind, const char *path, int32_t datatype,
                  const void *value, uint32_t length, bool create_missing)
{
    if (!path)
        return error(TARVO_ERR_BAD_ARGUMENT, "null path");
    ResolvedPath where;
    Status s = item_path(bind, path, &where);
    if (!s.ok())
        return s;
    Op op;
    op.kind = kind;
    op.datatype = datatype;
    op.create_missing = create_missing;
    s = typed_value(datatype, value, length, &op.value);
    if (!s.ok())
        return error(s.code, where.path + ": " + s.detail);
    op.path = std::move(where.path);
    return run(bind, std::move(op));
}

// A pattern over relative paths (whole match), or its complement, as the
// filter of a tree operation; BAD_PATTERN now rather than at apply time.
Status pattern_match(const std::string &pattern, bool complement, PathMatch *match)
{
    match->kind = complement ? PathMatch::Kind::NOT_REGEXP : PathMatch::Kind::REGEXP;
    match->text = pattern;
    PathMatcher compiled;
    return compiled.compile(*match);
}

Status delete_everything(tarvo_bind_td *bind, bool atomic)
{
    Node node;
    const std::string &bp = bind->bind_point;
    Status s;
    Store &view = reader(bind, &s);
    if (s.ok())
        s = view.lookup(bp == "/" ? bp : bp.substr(0, bp.size() - 1), &node);
    if (s.code == TARVO_ERR_NOT_FOUND)
        return ok_status();  // nothing below a bind point that does not exist
    if (!s.ok())
        return s;
    if (!node.is_dir())
        return error(TARVO_ERR_NOT_A_DIR, node.path);
    Op op;
    op.kind = OpKind::DELETE_TREE;
    op.path = bind->bind_point;
    ApplyResult result;
    return run(bind, std::move(op), atomic, &result);
}

Status delete_matching(tarvo_bind_td *bind, const char *pattern, uint32_t options)
{
    Op op;
    op.kind = OpKind::DELETE_TREE;
    op.path = bind->bind_point;
    Status s = pattern_match(pattern, options & TARVO_WRITE_OPTION_COMP_REGEXP, &op.extra().match);
    if (!s.ok())
        return s;
    ApplyResult result;
    bool collected = false;
    s = run(bind, std::move(op), options & TARVO_WRITE_OPTION_ATOMIC, &result, &collected);
    if (s.code == TARVO_ERR_NOT_FOUND || (s.ok() && !collected && result.changes == 0))
        return error(TARVO_ERR_NOT_FOUND,
                     std::string("no item below ") + bind->bind_point + " matches " + pattern);
    return s;
}

Status delete_path(tarvo_bind_td *bind, const char *path, uint32_t options)
{
    if (options & (TARVO_WRITE_OPTION_REGEXP | TARVO_WRITE_OPTION_COMP_REGEXP))
        return delete_matching(bind, path, options);
    bool atomic = options & TARVO_WRITE_OPTION_ATOMIC;
    if (!*path)
        return delete_everything(bind, atomic);
    ResolvedPath where;
    Status s = resolve_path(bind->bind_point, path, &where);
    if (!s.ok())
        return s;
    // An item path may name a directory: the store decides when it runs.
    Op op;
    op.path = where.path;
    op.kind = where.dir_form ? OpKind::DELETE_TREE : OpKind::DELETE;
    op.subtree = true;
    if (where.dir_form)
        op.path = dir_form(where.path);
    ApplyResult result;
    return run(bind, std::move(op), atomic, &result);
}

Status copy_paths(tarvo_bind_td *bind, const char *source, const char *destination,
                  const char *match, uint32_t options)
{
    ResolvedPath from, to;
    Status s = resolve_path(bind->bind_point, source, &from);
    if (s.ok())
        s = resolve_path(bind->bind_point, destination, &to);
    if (!s.ok())
        return s;
    Op op;
    op.kind = OpKind::COPY;
    op.path = from.path;
    std::string filter_text = match ? match : "";
    if (options & (TARVO_WRITE_OPTION_REGEXP | TARVO_WRITE_OPTION_COMP_REGEXP)) {
        s = pattern_match(filter_text, options & TARVO_WRITE_OPTION_COMP_REGEXP, &op.extra().match);
        if (!s.ok())
            return s;
    } else if (!filter_text.empty()) {
        op.extra().match.kind = PathMatch::Kind::PREFIX;
        op.extra().match.text = filter_text;
    }
    Node src, dst;
    Store &view = reader(bind, &s);
    if (s.ok())
        s = view.lookup(from.path, &src);
    if (!s.ok())
        return s;
    if (!src.is_dir() && from.dir_form)
        return error(TARVO_ERR_NOT_A_DIR, from.path);
    // An item copied onto a directory lands inside it, as with cp.
    bool into_dir = src.is_dir() || to.dir_form || (view.lookup(to.path, &dst).ok() && dst.is_dir());
    op.extra().target = into_dir ? dir_form(to.path) : to.path;
    ApplyResult result;
    bool collected = false;
    s = run(bind, std::move(op), options & TARVO_WRITE_OPTION_ATOMIC, &result, &collected);
    if (s.ok() && !collected && result.changes == 0)
        return error(TARVO_ERR_NOT_FOUND, "nothing below " + from.path + " matches \"" +
                                              filter_text + "\"");
    return s;
}

// Inheritance buffer: u32 record count, u32 layout version; then per record
// u8 level, u8 position, u16 zero, u32 local item length, u32 group name
// length (NUL included, 0 for none), u32 datatype, the group name, the
// local item bytes. This store has no inheritance: one record, level 0.
Status inheritance(const Node &item, void **buffer, uint32_t *length)
{
    const uint32_t size = 8 + 16 + static_cast<uint32_t>(item.value.size());
    auto *out = static_cast<unsigned char *>(std::calloc(1, size));
    if (!out)
        return error(TARVO_ERR_NO_MEMORY);
    const uint32_t count = 1, version = 1, local = static_cast<uint32_t>(item.value.size()),
                   group = 0;
    const int32_t datatype = item.datatype;
    std::memcpy(out, &count, 4);
    std::memcpy(out + 4, &version, 4);
    std::memcpy(out + 8 + 4, &local, 4);
    std::memcpy(out + 8 + 8, &group, 4);
    std::memcpy(out + 8 + 12, &datatype, 4);
    if (local)
        std::memcpy(out + 8 + 16, item.value.data(), local);
    *buffer = out;
    *length = size;
    return ok_status();
}

Status get_item(tarvo_bind_td *bind, const char *path, tarvo_item_datatype_td *datatype,
                void **value, uint32_t *length, uint32_t access)
{
    Status s;
    ResolvedPath where;
    s = resolve_path(bind->bind_point, path, &where);
    if (!s.ok())
        return s;
    Store *store = nullptr;
    PendingStore *pending = nullptr;
    s = bind_view(bind, access, &store, &pending);
    if (!s.ok())
        return s;
    Node node;
    if (access & TARVO_ACCESS_OPTION_BULK)
        s = pending ? pending->lookup_pending(where.path, &node)
                    : error(TARVO_ERR_NOT_FOUND, where.path + " has no pending change");
    else
        s = store->lookup(where.path, &node);
    if (!s.ok())
        return s;
    if (where.dir_form && !node.is_dir())
        return error(TARVO_ERR_NOT_A_DIR, node.path);
    if (*datatype != 0 && *datatype != node.datatype)
        return error(TARVO_ERR_WRONG_DATATYPE, where.path + " holds " +
                                                   datatype_name(node.datatype) + ", not " +
                                                   datatype_name(*datatype));
    *value = nullptr;
    *length = 0;
    if (!node.is_dir()) {
        *value = std::malloc(node.value.size() ? node.value.size() : 1);
        if (!*value)
            return error(TARVO_ERR_NO_MEMORY);
        std::memcpy(*value, node.value.data(), node.value.size());
        *length = static_cast<uint32_t>(node.value.size());
    }
    *datatype = static_cast<tarvo_item_datatype_td>(node.datatype);
    return ok_status();
}

Status verify_item(tarvo_bind_td *bind, const char *path, int32_t datatype, const void *value,
                   uint32_t length)
{
    ResolvedPath where;
    Status s = item_path(bind, path, &where);
    if (!s.ok())
        return s;
    std::string bytes;
    s = typed_value(datatype, value, length, &bytes);
    if (!s.ok())
        return error(s.code, where.path + ": " + s.detail);
    Node node;
    Store &view = reader(bind, &s);
    if (s.ok())
        s = view.lookup(where.path, &node);
    if (s.ok() && node.is_dir())
        return error(TARVO_ERR_IS_DIR, where.path);
    if (s.ok() && node.datatype != datatype)
        return error(TARVO_ERR_WRONG_DATATYPE, where.path + " holds " +
                                                   datatype_name(node.datatype) + ", not " +
                                                   datatype_name(datatype));
    if (!s.ok() && s.code != TARVO_ERR_NOT_FOUND)
        return s;
    if (bind->verification_suspended)
        return ok_status();
    VerifierSet rules;
    s = rules.load(view);
    return s.ok() ? rules.check(where.path, datatype, bytes) : s;
}

Status get_items(tarvo_bind_td *bind, char **names, const char *path, uint32_t count,
                 uint32_t flags, std::vector<ListEntry> *entries)
{
    std::string base = bind->bind_point;
    if (!((flags & TARVO_ACCESS_OPTION_GET_ITEMS_SINGLE_NODE) && !*path)) {
        ResolvedPath dir;
        Status s = resolve_path(bind->bind_point, path, &dir);
        if (!s.ok())
            return s;
        base = dir_form(dir.path);
    }
    for (uint32_t i = 0; i < count; ++i) {
        if (!names[i])
            return error(TARVO_ERR_BAD_ARGUMENT, "null name " + std::to_string(i));
        ResolvedPath where;
        Status s = resolve_path(base, names[i], &where);
        if (!s.ok())
            return s;
        Node node;
        Store &view = reader(bind, &s);
        if (s.ok())
            s = view.lookup(where.path, &node);
        if (s.code == TARVO_ERR_NOT_FOUND)
            continue;
        if (!s.ok())
            return s;
        entries->push_back(ListEntry{names[i], node.datatype, std::move(node.value)});
    }
    return ok_status();
}

}  // namespace

extern "C" {

int tarvo_item_get(tarvo_bind_h_td handle, const char *path, tarvo_item_datatype_td *datatype,
                   void **value, uint32_t *length, uint32_t access_options)
{
    if (!bind_is_live(handle))
        return TARVO_ERR_BAD_HANDLE;
    if (!path || !datatype || !value || !length)
        return fail(handle, error(TARVO_ERR_BAD_ARGUMENT));
    return guarded([&] {
        Status s = get_item(handle, path, datatype, value, length, access_options);
        return s.ok() ? 0 : fail(handle, s);
    });
}

int tarvo_item_get_inh(tarvo_bind_h_td handle, const char *path, uint32_t *levels,
                       void **buffer, uint32_t *length, uint32_t options)
{
    (void)options;
    if (!bind_is_live(handle))
        return TARVO_ERR_BAD_HANDLE;
    if (!path || !levels || !buffer || !length)
        return fail(handle, error(TARVO_ERR_BAD_ARGUMENT));
    return guarded([&] {
        ResolvedPath where;
        Node node;
        Status s = item_path(handle, path, &where);
        if (s.ok()) {
            Store &view = reader(handle, &s);
            if (s.ok())
                s = view.lookup(where.path, &node);
        }
        if (s.ok() && node.is_dir())
            s = error(TARVO_ERR_IS_DIR, where.path);
        if (s.ok())
            s = inheritance(node, buffer, length);
        if (!s.ok())
            return fail(handle, s);
        *levels = 1;
        return 0;
    });
}

int tarvo_get_items(tarvo_bind_h_td handle, char **names, const char *path, uint32_t count,
                    tarvo_datalist_h_td *list, uint32_t flags)
{
    if (!bind_is_live(handle))
        return TARVO_ERR_BAD_HANDLE;
    if (!list || !path || (!names && count))
        return fail(handle, error(TARVO_ERR_BAD_ARGUMENT));
    return guarded([&] {
        std::vector<ListEntry> entries;
        Status s = get_items(handle, names, path, count, flags, &entries);
        if (!s.ok())
            return fail(handle, s);
        *list = new_complete_datalist(std::move(entries));
        return 0;
    });
}

int tarvo_item_create(tarvo_bind_h_td handle, const char *path, tarvo_item_datatype_td datatype,
                      const void *value, uint32_t length, uint32_t options, uint32_t options2)
{
    (void)options;
    (void)options2;
    if (!bind_is_live(handle))
        return TARVO_ERR_BAD_HANDLE;
    return guarded([&] {
        Status s = write_item(handle, OpKind::CREATE, path, datatype, value, length, false);
        return s.ok() ? 0 : fail(handle, s);
    });
}

int tarvo_item_set(tarvo_bind_h_td handle, const char *path, tarvo_item_datatype_td datatype,
                   const void *value, uint32_t length, uint32_t set_options)
{
    if (!bind_is_live(handle))
        return TARVO_ERR_BAD_HANDLE;
    return guarded([&] {
        Status s = write_item(handle, OpKind::SET, path, datatype, value, length,
                              set_options & TARVO_SET_OPTION_CREATE);
        return s.ok() ? 0 : fail(handle, s);
    });
}

int tarvo_item_delete(tarvo_bind_h_td handle, const char *path, uint32_t options)
{
    if (!bind_is_live(handle))
        return TARVO_ERR_BAD_HANDLE;
    if (!path)
        return fail(handle, error(TARVO_ERR_BAD_ARGUMENT));
    return guarded([&] {
        Status s = delete_path(handle, path, options);
        return s.ok() ? 0 : fail(handle, s);
    });
}

int tarvo_item_conditional_delete(tarvo_bind_h_td handle, const char *path,
                                  tarvo_item_datatype_td datatype, const void *value,
                                  uint32_t length, uint32_t options)
{
    (void)options;
    if (!bind_is_live(handle))
        return TARVO_ERR_BAD_HANDLE;
    if (!path || (!value && length))
        return fail(handle, error(TARVO_ERR_BAD_ARGUMENT));
    return guarded([&] {
        ResolvedPath where;
        Status s = item_path(handle, path, &where);
        if (s.ok() && !is_storable(datatype))
            s = error(TARVO_ERR_BAD_DATATYPE, "datatype " + datatype_name(datatype));
        if (s.ok()) {
            Op op;
            op.kind = OpKind::DELETE_IF_EQUAL;
            op.path = where.path;
            op.datatype = datatype;
            op.value = bytes_of(value, length);
            s = run(handle, std::move(op));
        }
        return s.ok() ? 0 : fail(handle, s);
    });
}

int tarvo_item_verify(tarvo_bind_h_td handle, const char *path, tarvo_item_datatype_td datatype,
                      const void *value, uint32_t length, uint32_t options)
{
    (void)options;
    if (!bind_is_live(handle))
        return TARVO_ERR_BAD_HANDLE;
    if (!path)
        return fail(handle, error(TARVO_ERR_BAD_ARGUMENT));
    return guarded([&] {
        Status s = verify_item(handle, path, datatype, value, length);
        return s.ok() ? 0 : fail(handle, s);
    });
}

int tarvo_copy(tarvo_bind_h_td handle, const char *source, const char *destination,
               const char *match, uint32_t options)
{
    if (!bind_is_live(handle))
        return TARVO_ERR_BAD_HANDLE;
    if (!source || !destination)
        return fail(handle, error(TARVO_ERR_BAD_ARGUMENT));
    return guarded([&] {
        Status s = copy_paths(handle, source, destination, match, options);
        return s.ok() ? 0 : fail(handle, s);
    });
}

}  // extern "C"
