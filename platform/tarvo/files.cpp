// Saved trees and diffs: file save and restore, and the configuration
// manager's calls on a bulk (delete areas, diffs added or merged, the end
// of a bulk that saves its changes) and on files (base and delta merges).
//
// Every file is read and checked whole before anything changes. A restore
// outside a bulk is one batch, applied in one store transaction as a bulk
// end is; inside a bulk its items are collected like any other write.
#include <algorithm>
#include <memory>
#include <unordered_map>

#include "bind.h"
#include "lists.h"
#include "path_match.h"
#include "paths.h"
#include "xfiles.h"

using namespace tarvo;

namespace {

constexpr uint32_t SAVE_OPTIONS = TARVO_SAVE_OPTION_REGEXP | TARVO_SAVE_OPTION_NOBULK |
                                  TARVO_SAVE_OPTION_BULK | TARVO_SAVE_OPTION_COMP |
                                  TARVO_SAVE_OPTION_NODELETES | TARVO_SAVE_OPTION_OLD_FORMAT;
constexpr uint32_t RESTORE_OPTIONS = TARVO_RESTORE_OPTION_ATOMIC | TARVO_RESTORE_OPTION_UPDATE |
                                     TARVO_RESTORE_OPTION_INITIAL_LOAD |
                                     TARVO_RESTORE_OPTION_OLD_FORMAT;
constexpr uint32_t END_OPTIONS = TARVO_CFGMGR_END_FORCELOWMEM | TARVO_CFGMGR_END_ATOMIC |
                                 TARVO_CFGMGR_END_COMMIT_REPLACE | TARVO_CFGMGR_END_OPENCONFIG;
constexpr uint32_t MERGE_OPTIONS = TARVO_CFGMGR_MERGE_REVERSE | TARVO_CFGMGR_MERGE_DISABLE_OPTIM;

bool in_bulk(const tarvo_bind_td &bind)
{
    return bind.pending && bind.pending->kind == Pending::Kind::BULK;
}

Status need_bulk(const tarvo_bind_td &bind)
{
    return in_bulk(bind) ? ok_status() : error(TARVO_ERR_NO_BULK);
}

Status need_name(const char *file)
{
    if (!file || !*file)
        return file_error(TARVO_ERR_BAD_ARGUMENT, TARVO_FILE_DETAIL_NO_NAME, "no file name given");
    return ok_status();
}

Status bad_options(uint32_t options, uint32_t known)
{
    if (options & ~known)
        return error(TARVO_ERR_BAD_OPTIONS, "unknown option bits " + std::to_string(options & ~known));
    return ok_status();
}

// A decoding failure names the file it came from.
Status in_file(const char *file, Status s)
{
    if (!s.ok() && s.detail.rfind(file, 0) != 0)
        s.detail = std::string(file) + ": " + s.detail;
    return s;
}

Status load_tree(const char *file, SavedTree *tree)
{
    std::string bytes;
    Status s = need_name(file);
    if (s.ok())
        s = read_file(file, &bytes);
    if (s.ok())
        s = decode_tree(bytes, tree);
    return in_file(file ? file : "", s);
}

Status load_diff(const char *file, Diff *diff)
{
    std::string bytes;
    Status s = need_name(file);
    if (s.ok())
        s = read_file(file, &bytes);
    if (s.ok())
        s = decode_diff(bytes, diff);
    return in_file(file ? file : "", s);
}

// A directory given by the caller ("" the bind point), in directory form.
Status directory(const tarvo_bind_td &bind, const char *path, std::string *dir)
{
    ResolvedPath where;
    Status s = resolve_path(bind.bind_point, path ? path : "", &where);
    if (s.ok())
        *dir = dir_form(where.path);
    return s;
}

// Compiled filters over relative paths. PathMatcher keeps a pointer to its
// PathMatch, so both live together and never move.
class Filters {
public:
    Status add(PathMatch::Kind kind, std::string text)
    {
        auto entry = std::make_unique<Entry>();
        entry->match.kind = text.empty() ? PathMatch::Kind::ALL : kind;
        entry->match.text = std::move(text);
        Status s = entry->matcher.compile(entry->match);
        if (s.ok())
            entries_.push_back(std::move(entry));
        return s;
    }
    bool any(std::string_view relative) const
    {
        return std::any_of(entries_.begin(), entries_.end(),
                           [&](const auto &e) { return e->matcher.matches(relative); });
    }
    bool all(std::string_view relative) const
    {
        return std::all_of(entries_.begin(), entries_.end(),
                           [&](const auto &e) { return e->matcher.matches(relative); });
    }

private:
    struct Entry {
        PathMatch match;
        PathMatcher matcher;
    };
    std::vector<std::unique_ptr<Entry>> entries_;
};

// ---- Save ----

struct SaveRequest {
    Filters filters;
    bool complement = false;
    bool pending_only = false;
    Store *view = nullptr;
    Store *committed = nullptr;
    SavedTree tree;
};

Status save_node(SaveRequest &r, const Node &node, std::string relative)
{
    if (r.filters.any(relative) == r.complement)
        return ok_status();
    if (r.pending_only) {
        // Only what the pending changes wrote: absent or different before.
        Node before;
        Status s = r.committed->lookup(node.path, &before);
        if (s.ok() && before.datatype == node.datatype && before.value == node.value)
            return ok_status();
        if (!s.ok() && s.code != TARVO_ERR_NOT_FOUND)
            return s;
    }
    r.tree.items.push_back(FileItem{std::move(relative), node.datatype, node.value});
    return ok_status();
}

Status save_subtree(SaveRequest &r, const std::string &dir)
{
    ScanQuery q;
    q.items = true;
    for (;;) {
        Page page;
        Status s = r.view->scan(dir, q, &page);
        for (size_t i = 0; s.ok() && i < page.entries.size(); ++i)
            s = save_node(r, page.entries[i], page.entries[i].path.substr(dir.size()));
        if (!s.ok() || !page.remain || page.entries.empty())
            return s;
        q.start = page.entries.back().path;
        q.exclusive = true;
    }
}

Status save(tarvo_bind_td &bind, const char *source, char **match, uint32_t count,
            uint32_t options, const char *file)
{
    Status s = need_name(file);
    if (s.ok())
        s = bad_options(options, SAVE_OPTIONS);
    if (s.ok() && (options & TARVO_SAVE_OPTION_NOBULK) && (options & TARVO_SAVE_OPTION_BULK))
        s = error(TARVO_ERR_BAD_OPTIONS, "committed-only and pending-only together");
    if (!s.ok())
        return s;
    if (!source || (count && !match))
        return error(TARVO_ERR_BAD_ARGUMENT);
    SaveRequest r;
    r.complement = options & TARVO_SAVE_OPTION_COMP;
    r.pending_only = options & TARVO_SAVE_OPTION_BULK;
    r.tree.version = (options & TARVO_SAVE_OPTION_OLD_FORMAT) ? XNF_OLD_VERSION : XNF_VERSION;
    const auto kind = (options & TARVO_SAVE_OPTION_REGEXP) ? PathMatch::Kind::REGEXP
                                                           : PathMatch::Kind::PREFIX;
    for (uint32_t i = 0; s.ok() && i < std::max(count, 1u); ++i)
        s = r.filters.add(kind, count && match[i] ? match[i] : "");
    ResolvedPath from;
    if (s.ok())
        s = resolve_path(bind.bind_point, source, &from);
    PendingStore *pending = nullptr;
    if (s.ok()) {
        uint32_t access = (options & TARVO_SAVE_OPTION_NOBULK) ? TARVO_ACCESS_OPTION_NOBULK : 0;
        s = bind_view(&bind, access, &r.view, &pending);
    }
    if (s.ok() && r.pending_only && !bind.pending)
        s = error(TARVO_ERR_NO_BULK, "nothing is pending on this bind");
    r.committed = bind.store.get();
    Node node;
    if (s.ok())
        s = r.view->lookup(from.path, &node);
    if (s.ok() && from.dir_form && !node.is_dir())
        s = error(TARVO_ERR_NOT_A_DIR, from.path);
    if (!s.ok())
        return s;
    AtomicFile out;
    s = out.open(file);
    if (!s.ok())
        return s;
    if (node.is_dir()) {
        r.tree.source = dir_form(from.path);
        s = save_subtree(r, r.tree.source);
    } else {
        r.tree.source = parent_dir(from.path);
        s = save_node(r, node, std::string(leaf_name(from.path)));
    }
    if (s.ok() && r.tree.items.empty())
        s = error(TARVO_ERR_NOT_FOUND, "nothing at " + from.path + " matches");
    if (r.tree.version == XNF_OLD_VERSION)
        r.tree.source.clear();
    return s.ok() ? out.commit(encode_tree(r.tree)) : s;
}

// ---- Restore ----

// Writes items below `dest` (directory form): in the open bulk, or as one
// batch. `update` sets existing items instead of refusing them.
Status restore_items(tarvo_bind_td &bind, const std::string &dest,
                     const std::vector<FileItem> &items, bool atomic, bool update, bool events)
{
    if (bind.pending && bind.pending->kind == Pending::Kind::TRANSACTION)
        return error(TARVO_ERR_TRANSACTION_OPEN, "a restore cannot run inside a transaction");
    std::vector<Op> ops;
    ops.reserve(items.size());
    for (const FileItem &item : items) {
        ResolvedPath where;
        Status s = resolve_path(dest, item.path, &where);
        if (!s.ok())
            return error(s.code, dest + item.path);
        Op op;
        op.kind = update ? OpKind::SET : OpKind::CREATE;
        op.create_missing = update;
        op.path = std::move(where.path);
        op.datatype = item.datatype;
        op.value = item.value;
        ops.push_back(std::move(op));
    }
    if (in_bulk(bind)) {
        for (Op &op : ops) {
            ApplyResult ignored;
            Status s = submit(&bind, std::move(op), true, &ignored);
            if (!s.ok())
                return s;
        }
        return ok_status();
    }
    Batch b = bind_batch(bind);
    const size_t total = ops.size();
    b.ops = std::move(ops);
    b.atomic = atomic;
    b.events = events;
    ApplyResult result;
    Status s = bind.store->apply(b, &result);
    if (!s.ok() || result.failures.empty())
        return s;
    const OpFailure &first = result.failures.front();
    return error(first.status.code,
                 std::to_string(result.failures.size()) + " of " + std::to_string(total) +
                     " items refused (first: " +
                     (first.status.detail.empty() ? first.path : first.status.detail) +
                     "); the others were restored");
}

Status restore(tarvo_bind_td &bind, const char *destination, const char *match, uint32_t options,
               const char *file)
{
    Status s = bad_options(options, RESTORE_OPTIONS);
    Filters filters;
    if (s.ok())
        s = filters.add(PathMatch::Kind::REGEXP, match ? match : "");
    std::string dest;
    if (s.ok())
        s = directory(bind, destination, &dest);
    SavedTree tree;
    if (s.ok())
        s = load_tree(file, &tree);
    if (!s.ok())
        return s;
    std::erase_if(tree.items, [&](const FileItem &item) { return !filters.all(item.path); });
    if (tree.items.empty())
        return error(TARVO_ERR_NOT_FOUND, std::string("no item of ") + file + " matches");
    return restore_items(bind, dest, tree.items, options & TARVO_RESTORE_OPTION_ATOMIC,
                         options & TARVO_RESTORE_OPTION_UPDATE,
                         !(options & TARVO_RESTORE_OPTION_INITIAL_LOAD));
}

// ---- Diffs ----

// The deepest directory above every path.
std::string common_dir(const std::vector<Event> &changes)
{
    std::string base = parent_dir(changes.front().path);
    for (const Event &e : changes)
        while (e.path.compare(0, base.size(), base) != 0)
            base = parent_dir(base);
    return base;
}

Diff diff_of(const std::vector<Event> &changes)
{
    Diff diff;
    diff.base = common_dir(changes);
    for (const Event &e : changes)
        diff.records.push_back(DiffRecord{e.kind, e.path.substr(diff.base.size()), e.datatype,
                                          e.has_old, e.has_new, e.old_value, e.new_value});
    return diff;
}

// The changes of a diff file, selected and with absolute paths.
Status diff_changes(const std::string &bind_point, const char *file, const char *destination,
                    const char *filter, const char *match, std::vector<DiffRecord> *out)
{
    Filters filters;
    Status s = filters.add(PathMatch::Kind::PREFIX, filter ? filter : "");
    if (s.ok())
        s = filters.add(PathMatch::Kind::REGEXP, match ? match : "");
    Diff diff;
    if (s.ok())
        s = load_diff(file, &diff);
    std::string root = diff.base;
    if (s.ok() && destination && *destination) {
        ResolvedPath where;
        s = resolve_path(bind_point, destination, &where);
        root = dir_form(where.path);
    }
    for (size_t i = 0; s.ok() && i < diff.records.size(); ++i) {
        DiffRecord &rec = diff.records[i];
        if (!filters.all(rec.path))
            continue;
        ResolvedPath where;
        s = resolve_path(root, rec.path, &where);
        if (!s.ok())
            return error(s.code, root + rec.path);
        rec.path = std::move(where.path);
        out->push_back(std::move(rec));
    }
    return s;
}

// Per item: the first old value and the last new one. A change that ends
// where it began disappears; one that changes the datatype stays a delete
// and a create.
std::vector<DiffRecord> collapse(const std::vector<DiffRecord> &in)
{
    struct Net {
        DiffRecord first, last;
    };
    std::vector<Net> nets;
    std::unordered_map<std::string, size_t> at;
    for (const DiffRecord &rec : in) {
        auto [it, fresh] = at.emplace(rec.path, nets.size());
        if (fresh)
            nets.push_back(Net{rec, rec});
        else
            nets[it->second].last = rec;
    }
    std::vector<DiffRecord> out;
    for (const Net &n : nets) {
        DiffRecord old_side{TARVO_EVENT_DELETE, n.first.path, n.first.datatype, true, false,
                            n.first.old_value, {}};
        DiffRecord new_side{TARVO_EVENT_CREATE, n.last.path, n.last.datatype, false, true, {},
                            n.last.new_value};
        const bool had = n.first.has_old, has = n.last.has_new;
        if (had && has && old_side.datatype == new_side.datatype) {
            if (old_side.old_value != new_side.new_value)
                out.push_back(DiffRecord{TARVO_EVENT_SET, n.first.path, n.first.datatype, true,
                                         true, old_side.old_value, new_side.new_value});
            continue;
        }
        if (had)
            out.push_back(std::move(old_side));
        if (has)
            out.push_back(std::move(new_side));
    }
    return out;
}

// The changes that undo `changes`, in the order that undoes them.
void turn_around(std::vector<DiffRecord> &changes)
{
    std::reverse(changes.begin(), changes.end());
    for (DiffRecord &c : changes) {
        std::swap(c.has_old, c.has_new);
        std::swap(c.old_value, c.new_value);
        c.kind = c.kind == TARVO_EVENT_CREATE   ? TARVO_EVENT_DELETE
                 : c.kind == TARVO_EVENT_DELETE ? TARVO_EVENT_CREATE
                                                : c.kind;
    }
}

// Adds changes (absolute paths) to the bind's bulk, or the changes that
// undo them.
Status add_changes(tarvo_bind_td &bind, std::vector<DiffRecord> changes, bool reverse)
{
    if (reverse)
        turn_around(changes);
    for (DiffRecord &c : changes) {
        Op op;
        op.kind = c.kind == TARVO_EVENT_CREATE ? OpKind::CREATE
                  : c.kind == TARVO_EVENT_SET  ? OpKind::SET
                                               : OpKind::DELETE;
        op.path = std::move(c.path);
        op.datatype = c.datatype;
        op.value = std::move(c.new_value);
        ApplyResult ignored;
        Status s = submit(&bind, std::move(op), true, &ignored);
        if (!s.ok())
            return s;
    }
    return ok_status();
}

Status add_diffs(tarvo_bind_td &bind, const char *destination, const char *filter,
                 const char *match, uint32_t reverse, const char *file)
{
    Status s = need_bulk(bind);
    std::vector<DiffRecord> changes;
    if (s.ok())
        s = diff_changes(bind.bind_point, file, destination, filter, match, &changes);
    if (s.ok() && changes.empty())
        s = error(TARVO_ERR_NOT_FOUND, std::string("no change of ") + file + " matches");
    return s.ok() ? add_changes(bind, std::move(changes), reverse != 0) : s;
}

Status merge_diffs(tarvo_bind_td &bind, char **files, uint32_t count, const char *destination,
                   const char *filter, const char *match, uint32_t flags)
{
    Status s = bad_options(flags, MERGE_OPTIONS);
    if (s.ok())
        s = need_bulk(bind);
    if (s.ok() && (!count || !files))
        s = need_name(nullptr);
    std::vector<DiffRecord> changes;
    for (uint32_t i = 0; s.ok() && i < count; ++i)
        s = diff_changes(bind.bind_point, files[i], destination, filter, match, &changes);
    if (!s.ok())
        return s;
    if (!(flags & TARVO_CFGMGR_MERGE_DISABLE_OPTIM))
        changes = collapse(changes);
    if (changes.empty())
        return error(TARVO_ERR_NOT_FOUND, "the diffs change nothing that matches");
    return add_changes(bind, std::move(changes), flags & TARVO_CFGMGR_MERGE_REVERSE);
}

// The merged changes of diff files as events, as a merge would add them.
Status merged_events(char **files, uint32_t count, bool reverse, std::vector<Event> *events)
{
    Status s = count && files ? ok_status() : need_name(nullptr);
    std::vector<DiffRecord> changes;
    for (uint32_t i = 0; s.ok() && i < count; ++i)
        s = diff_changes("/", files[i], "", "", "", &changes);
    if (!s.ok())
        return s;
    changes = collapse(changes);
    if (reverse)
        turn_around(changes);
    for (DiffRecord &c : changes) {
        Event e;
        e.kind = c.kind;
        e.path = std::move(c.path);
        e.datatype = c.datatype;
        e.has_old = c.has_old;
        e.has_new = c.has_new;
        e.old_value = std::move(c.old_value);
        e.new_value = std::move(c.new_value);
        events->push_back(std::move(e));
    }
    return ok_status();
}

Status end_bulk(tarvo_bind_td &bind, const char *file, uint32_t flags, uint32_t *saved)
{
    Status s = bad_options(flags, END_OPTIONS);
    if (s.ok())
        s = need_bulk(bind);
    // The file's place is tried first, so that a bulk whose diff could not
    // be kept is not ended.
    AtomicFile out;
    const bool keep = file && *file;
    if (s.ok() && keep)
        s = out.open(file);
    if (!s.ok())
        return s;
    if (flags & TARVO_CFGMGR_END_ATOMIC)
        bind.pending->options |= TARVO_BULK_OPTION_ATOMIC;
    if (flags & TARVO_CFGMGR_END_COMMIT_REPLACE)
        bind.pending->options |= TARVO_BULK_OPTION_COMMIT_REPLACE;
    std::vector<Event> changed;
    s = finish_bulk(bind, keep ? &changed : nullptr);
    if (!keep || changed.empty())
        return s;
    Status w = out.commit(encode_diff(diff_of(changed)));
    if (w.ok())
        *saved |= TARVO_CFGMGR_SAVED_CHANGES;
    else if (s.ok())
        s = error(w.code, "the bulk was ended, its diff not saved: " + w.detail);
    return s;
}

// ---- Base and delta ----

Status merge_trees(const char *base, const char *delta, SavedTree *merged)
{
    SavedTree over;
    Status s = load_tree(base, merged);
    if (s.ok())
        s = load_tree(delta, &over);
    if (!s.ok())
        return s;
    std::unordered_map<std::string, size_t> at;
    for (size_t i = 0; i < merged->items.size(); ++i)
        at.emplace(merged->items[i].path, i);
    for (FileItem &item : over.items) {
        auto found = at.find(item.path);
        if (found != at.end())
            merged->items[found->second] = std::move(item);
        else
            merged->items.push_back(std::move(item));
    }
    merged->version = XNF_VERSION;
    return ok_status();
}

Status restore_delta(tarvo_bind_td &bind, const char *base, const char *delta, const char *output,
                     uint32_t flags, uint32_t reserved, uint32_t *saved)
{
    Status s = bad_options(flags, TARVO_CFGMGR_RESTORE_DELTA_ATOMIC);
    if (s.ok() && reserved)
        s = error(TARVO_ERR_BAD_ARGUMENT, "reserved argument not 0");
    SavedTree merged;
    if (s.ok())
        s = merge_trees(base, delta, &merged);
    AtomicFile out;
    const bool keep = output && *output;
    if (s.ok() && keep)
        s = out.open(output);
    if (s.ok())
        s = restore_items(bind, bind.bind_point, merged.items,
                          flags & TARVO_CFGMGR_RESTORE_DELTA_ATOMIC, true, true);
    if (!s.ok() || !keep)
        return s;
    s = out.commit(encode_tree(merged));
    if (s.ok())
        *saved |= TARVO_CFGMGR_SAVED_CHANGES;
    else
        s.detail = "the items were restored, the merged tree not saved: " + s.detail;
    return s;
}

// ---- Delete marks ----

Status regexp_delete(tarvo_bind_td &bind, char **paths, uint32_t count, uint32_t flags)
{
    Status s = bad_options(flags, TARVO_CFGMGR_DELETE_REMOVE_ONLY);
    if (s.ok())
        s = need_bulk(bind);
    if (s.ok() && (!count || !paths))
        s = error(TARVO_ERR_BAD_ARGUMENT, "no path");
    std::vector<Op> ops;
    Filters filters;
    for (uint32_t i = 0; s.ok() && i < count; ++i) {
        if (!paths[i] || !*paths[i]) {
            s = error(TARVO_ERR_BAD_ARGUMENT, "empty pattern");
            break;
        }
        Op op;
        op.kind = OpKind::DELETE_TREE;
        op.path = bind.bind_point;
        op.missing_ok = true;
        op.extra().match.kind = PathMatch::Kind::REGEXP;
        op.extra().match.text = paths[i];
        s = filters.add(PathMatch::Kind::REGEXP, paths[i]);
        ops.push_back(std::move(op));
    }
    if (!s.ok())
        return s;
    if (!(flags & TARVO_CFGMGR_DELETE_REMOVE_ONLY)) {
        for (Op &op : ops) {
            ApplyResult ignored;
            s = submit(&bind, std::move(op), true, &ignored);
            if (!s.ok())
                return s;
        }
        return s;
    }
    const std::string &bp = bind.bind_point;
    uint32_t removed = bind.pending->bulk.remove_where([&](const Op &op) {
        std::string at = op.kind == OpKind::COPY ? op.extra().target : op.path;
        if (at.size() > 1 && at.back() == '/')
            at.pop_back();
        return at.size() > bp.size() && at.compare(0, bp.size(), bp) == 0 &&
               filters.any(std::string_view(at).substr(bp.size()));
    });
    bind.pending->view.reset();
    if (!removed)
        return error(TARVO_ERR_NOT_FOUND, "no collected operation matches");
    return ok_status();
}

Status add_deletes(tarvo_bind_td &bind, char **paths, uint32_t count, uint32_t flags)
{
    Status s = bad_options(flags, 0);
    if (s.ok())
        s = need_bulk(bind);
    if (s.ok() && (!count || !paths))
        s = error(TARVO_ERR_BAD_ARGUMENT, "no path");
    std::vector<Op> ops;
    for (uint32_t i = 0; s.ok() && i < count; ++i) {
        ResolvedPath where;
        s = paths[i] ? resolve_path(bind.bind_point, paths[i], &where)
                     : error(TARVO_ERR_BAD_ARGUMENT, "null path");
        Op op;
        op.kind = where.dir_form ? OpKind::DELETE_TREE : OpKind::DELETE;
        op.subtree = true;
        op.missing_ok = true;
        op.path = where.dir_form ? dir_form(where.path) : where.path;
        ops.push_back(std::move(op));
    }
    for (size_t i = 0; s.ok() && i < ops.size(); ++i) {
        ApplyResult ignored;
        s = submit(&bind, std::move(ops[i]), true, &ignored);
    }
    return s;
}

// ---- The C interface ----

// A failure with its detail word split off; the bind keeps the whole code
// so that tarvo_prepare_error_string(code | detail) finds its text.
int failed(tarvo_bind_td *bind, const Status &s, uint32_t *detail)
{
    uint32_t low = 0;
    const int32_t main = file_detail(s.code, &low);
    if (detail)
        *detail = low;
    if (bind) {
        bind->last_code = s.code;
        bind->last_text.clear();
        if (!s.detail.empty())
            bind->last_text = std::string(code_text(main)) + ": " + s.detail;
    }
    return main;
}

template <typename Body> int on_bind(tarvo_bind_h_td handle, uint32_t *detail, Body body)
{
    if (detail)
        *detail = 0;
    if (!bind_is_live(handle))
        return TARVO_ERR_BAD_HANDLE;
    return guarded([&] {
        Status s = body(*handle);
        return s.ok() ? 0 : failed(handle, s, detail);
    });
}

}  // namespace

extern "C" {

int tarvo_file_save3(tarvo_bind_h_td handle, const char *source, char **match, uint32_t count,
                     uint32_t options, const char *file, uint32_t *detail)
{
    return on_bind(handle, detail, [&](tarvo_bind_td &b) {
        return save(b, source, match, count, options, file);
    });
}

int tarvo_file_restore3(tarvo_bind_h_td handle, const char *destination, const char *match,
                        uint32_t options, const char *file, uint32_t *detail)
{
    return on_bind(handle, detail, [&](tarvo_bind_td &b) {
        return restore(b, destination, match, options, file);
    });
}

int tarvo_cfgmgr_bulk_regexp_delete(tarvo_bind_h_td handle, char **paths, uint32_t count,
                                    uint32_t flags)
{
    return on_bind(handle, nullptr,
                   [&](tarvo_bind_td &b) { return regexp_delete(b, paths, count, flags); });
}

int tarvo_cfgmgr_add_deletes(tarvo_bind_h_td handle, char **paths, uint32_t count, uint32_t flags)
{
    return on_bind(handle, nullptr,
                   [&](tarvo_bind_td &b) { return add_deletes(b, paths, count, flags); });
}

int tarvo_cfgmgr_remove_deletes(tarvo_bind_h_td handle, uint32_t flags)
{
    return on_bind(handle, nullptr, [&](tarvo_bind_td &b) {
        Status s = bad_options(flags, 0);
        if (s.ok())
            s = need_bulk(b);
        if (!s.ok())
            return s;
        uint32_t removed = b.pending->bulk.remove("", TARVO_BULK_REMOVE_DELETES);
        b.pending->view.reset();
        return removed ? ok_status() : error(TARVO_ERR_NOT_FOUND, "no collected delete");
    });
}

int tarvo_cfgmgr_bulk_add_diffs2(tarvo_bind_h_td handle, const char *destination,
                                 const char *filter, const char *match, uint32_t reverse,
                                 const char *file, uint32_t *detail)
{
    return on_bind(handle, detail, [&](tarvo_bind_td &b) {
        return add_diffs(b, destination, filter, match, reverse, file);
    });
}

int tarvo_cfgmgr_bulk_end2(tarvo_bind_h_td handle, const char *file, uint32_t flags,
                           uint32_t *detail, uint32_t *saved)
{
    uint32_t ignored = 0;
    uint32_t *bits = saved ? saved : &ignored;
    *bits = 0;
    return on_bind(handle, detail,
                   [&](tarvo_bind_td &b) { return end_bulk(b, file, flags, bits); });
}

int tarvo_cfgmgr_file_merge_diffs4(tarvo_bind_h_td handle, char **files, uint32_t count,
                                   const char *destination, const char *filter,
                                   const char *match, uint32_t flags, uint32_t *detail,
                                   void *reserved)
{
    return on_bind(handle, detail, [&](tarvo_bind_td &b) {
        if (reserved)
            return error(TARVO_ERR_BAD_ARGUMENT, "reserved argument not null");
        return merge_diffs(b, files, count, destination, filter, match, flags);
    });
}

int tarvo_cfgmgr_event_list_from_file(char **files, uint32_t count, uint32_t reverse,
                                      tarvo_event_list_h_td *list, uint32_t *detail)
{
    if (detail)
        *detail = 0;
    if (!list)
        return TARVO_ERR_BAD_ARGUMENT;
    *list = nullptr;
    return guarded([&] {
        std::vector<Event> events;
        Status s = merged_events(files, count, reverse != 0, &events);
        if (!s.ok())
            return failed(nullptr, s, detail);
        *list = new_event_list(std::move(events), false);
        return 0;
    });
}

int tarvo_cfgmgr_file_merge_delta(const char *base, const char *delta, const char *output,
                                  uint32_t flags, uint32_t *detail)
{
    if (detail)
        *detail = 0;
    return guarded([&] {
        Status s = flags ? error(TARVO_ERR_BAD_OPTIONS) : need_name(output);
        SavedTree merged;
        if (s.ok())
            s = merge_trees(base, delta, &merged);
        AtomicFile out;
        if (s.ok())
            s = out.open(output);
        if (s.ok())
            s = out.commit(encode_tree(merged));
        return s.ok() ? 0 : failed(nullptr, s, detail);
    });
}

int tarvo_cfgmgr_file_restore_delta(tarvo_bind_h_td handle, const char *base, const char *delta,
                                    const char *output, uint32_t flags, uint32_t reserved,
                                    uint32_t *detail, uint32_t *saved)
{
    uint32_t ignored = 0;
    uint32_t *bits = saved ? saved : &ignored;
    *bits = 0;
    return on_bind(handle, detail, [&](tarvo_bind_td &b) {
        return restore_delta(b, base, delta, output, flags, reserved, bits);
    });
}

}  // extern "C"
