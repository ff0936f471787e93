#include "local_store.h"

#include "paths.h"
#include "values.h"

namespace tarvo {

struct LocalStore::Context {
    const WriteChecker *checker = nullptr;
    bool atomic = true;
    ApplyResult *result = nullptr;
    size_t op = 0;
};

namespace {

// Tree operations read the subtree in chunks of this many nodes, so that a
// huge subtree never has to fit in memory.
constexpr uint32_t CHUNK = 512;

std::string item_form(std::string_view dir)
{
    if (dir.size() > 1 && dir.back() == '/')
        dir.remove_suffix(1);
    return std::string(dir);
}

Event make_event(uint32_t kind, const std::string &path, int32_t datatype)
{
    Event e;
    e.kind = kind;
    e.path = path;
    e.datatype = datatype;
    return e;
}

}  // namespace

Status LocalStore::apply(const Batch &batch, const WriteChecker *checker,
                         ApplyResult *result)
{
    ApplyResult scratch;
    if (!result)
        result = &scratch;
    *result = ApplyResult{};
    Context ctx{checker, batch.atomic, result, 0};
    Status s = begin_write();
    if (!s.ok())
        return s;
    for (size_t i = 0; i < batch.ops.size(); ++i) {
        ctx.op = i;
        s = run_op(batch.ops[i], ctx);
        if (s.ok())
            continue;
        if (batch.atomic || is_store_failure(s.code)) {
            rollback_write();
            *result = ApplyResult{};
            result->failures.push_back({i, batch.ops[i].path, s});
            return s;
        }
        result->failures.push_back({i, batch.ops[i].path, s});
    }
    s = trim_events();
    if (s.ok())
        s = commit_write();
    if (!s.ok()) {
        rollback_write();
        *result = ApplyResult{};
    }
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
        return remove_item_at(op.path, ctx);
    case OpKind::DELETE_TREE:
        return delete_tree(op, ctx);
    case OpKind::DELETE_IF_EQUAL:
        return delete_if_equal(op, ctx);
    case OpKind::COPY:
        return copy(op, ctx);
    }
    return error(TARVO_ERR_BAD_ARGUMENT, "unknown operation");
}

Status LocalStore::create(const std::string &path, int32_t datatype,
                          const std::string &value, Context &ctx)
{
    Node node;
    Status s = lookup(path, &node);
    if (s.ok())
        return node.is_dir() ? error(TARVO_ERR_IS_DIR, path)
                             : error(TARVO_ERR_EXISTS, path);
    if (s.code != TARVO_ERR_NOT_FOUND)
        return s;
    // Walk down the ancestors until the first missing one; everything from
    // there on is created with the item.
    std::vector<std::string> missing;
    for (const std::string &dir : ancestor_dirs(path)) {
        if (missing.empty()) {
            std::string at = item_form(dir);
            s = lookup(at, &node);
            if (s.ok() && !node.is_dir())
                return error(TARVO_ERR_UNDER_ITEM,
                             path + " (" + at + " is an item)");
            if (s.ok())
                continue;
            if (s.code != TARVO_ERR_NOT_FOUND)
                return s;
        }
        missing.push_back(dir);
    }
    if (ctx.checker) {
        s = ctx.checker->check(path, datatype, value);
        if (!s.ok())
            return s;
    }
    for (const std::string &dir : missing) {
        s = put_node(Node{dir, TARVO_DATATYPE_DIR, {}});
        if (!s.ok())
            return s;
    }
    s = put_node(Node{path, datatype, value});
    if (!s.ok())
        return s;
    Event e = make_event(TARVO_EVENT_CREATE, path, datatype);
    e.has_new = true;
    e.new_value = value;
    ++ctx.result->changes;
    return append_event(e);
}

Status LocalStore::set(const std::string &path, int32_t datatype,
                       const std::string &value, bool create_missing,
                       Context &ctx)
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
                     path + " holds " + datatype_name(node.datatype) +
                         ", not " + datatype_name(datatype));
    if (ctx.checker) {
        s = ctx.checker->check(path, datatype, value);
        if (!s.ok())
            return s;
    }
    s = put_node(Node{path, datatype, value});
    if (!s.ok())
        return s;
    Event e = make_event(TARVO_EVENT_SET, path, datatype);
    e.has_old = true;
    e.old_value = std::move(node.value);
    e.has_new = true;
    e.new_value = value;
    ++ctx.result->changes;
    return append_event(e);
}

Status LocalStore::remove_item(const Node &item, Context &ctx)
{
    Status s = erase_node(item.path);
    if (!s.ok())
        return s;
    Event e = make_event(TARVO_EVENT_DELETE, item.path, item.datatype);
    e.has_old = true;
    e.old_value = item.value;
    s = append_event(e);
    if (!s.ok())
        return s;
    ++ctx.result->changes;
    return prune_dirs(parent_dir(item.path));
}

Status LocalStore::remove_item_at(const std::string &path, Context &ctx)
{
    Node node;
    Status s = lookup(path, &node);
    if (s.code == TARVO_ERR_NOT_FOUND)
        return error(TARVO_ERR_NOT_FOUND, path);
    if (!s.ok())
        return s;
    if (node.is_dir())
        return error(TARVO_ERR_IS_DIR, path);
    return remove_item(node, ctx);
}

Status LocalStore::delete_tree(const Op &op, Context &ctx)
{
    const std::string dir = dir_form(op.path);
    Node node;
    if (dir != "/") {
        Status s = lookup(item_form(dir), &node);
        if (s.code == TARVO_ERR_NOT_FOUND)
            return error(TARVO_ERR_NOT_FOUND, dir);
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
        Status s = scan(dir, q, &page);
        if (!s.ok())
            return s;
        for (const Node &item : page.entries) {
            q.start = item.path;
            q.exclusive = true;
            std::string_view rel = std::string_view(item.path).substr(dir.size());
            if (op.filter && !op.filter(rel))
                continue;
            s = erase_node(item.path);
            if (s.ok()) {
                Event e = make_event(TARVO_EVENT_DELETE, item.path, item.datatype);
                e.has_old = true;
                e.old_value = item.value;
                s = append_event(e);
            }
            if (!s.ok())
                return s;
            ++ctx.result->changes;
        }
        if (!page.remain)
            break;
    }
    Status s = remove_empty_dirs_below(dir);
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

Status LocalStore::copy_item(const Node &item, const std::string &target,
                             Context &ctx)
{
    if (target.size() > TARVO_MAX_PATH)
        return error(TARVO_ERR_PATH_TOO_LONG, target);
    return set(target, item.datatype, item.value, true, ctx);
}

Status LocalStore::copy(const Op &op, Context &ctx)
{
    Node src;
    Status s = lookup(item_form(op.path), &src);
    if (s.code == TARVO_ERR_NOT_FOUND)
        return error(TARVO_ERR_NOT_FOUND, op.path);
    if (!s.ok())
        return s;
    if (!src.is_dir()) {
        std::string target = op.target;
        if (target.back() == '/')
            target += leaf_name(src.path);
        if (op.filter && !op.filter(leaf_name(src.path)))
            return ok_status();
        return copy_item(src, target, ctx);
    }
    const std::string from = dir_form(src.path);
    const std::string to = dir_form(op.target);
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
            if (op.filter && !op.filter(rel))
                continue;
            s = copy_item(item, to + rel, ctx);
            if (s.ok())
                continue;
            if (ctx.atomic || is_store_failure(s.code))
                return s;
            ctx.result->failures.push_back({ctx.op, to + rel, s});
        }
        if (!page.remain)
            return ok_status();
    }
}

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
                    problems->push_back("item " + node.path + ": " +
                                        code_text(v.code) + " (" + v.detail + ")");
            }
            for (const std::string &dir : ancestor_dirs(node.path)) {
                Node up;
                s = lookup(item_form(dir), &up);
                if (s.code == TARVO_ERR_NOT_FOUND || (s.ok() && !up.is_dir()))
                    problems->push_back("missing directory " + dir + " above " +
                                        node.path);
                else if (!s.ok())
                    return s;
            }
        }
        if (!page.remain)
            return ok_status();
    }
}

}  // namespace tarvo
