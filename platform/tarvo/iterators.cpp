// Iterator filters and iterators.
//
// A filter handle is a node of a tree the caller builds; the iterator turns
// the tree into a NodeFilter (plain data, operands first) that the store
// evaluates while it scans. The iterator reads the subtree chunk by chunk
// with a keyset start, keeping the current chunk and the one before, so its
// entries stay valid until the following call and no subtree has to fit in
// memory.
#include <cstdlib>
#include <cstring>

#include "lists.h"
#include "path_match.h"
#include "paths.h"

struct tarvo_iterator_filter_td {
    tarvo::NodeFilter::Op op = tarvo::NodeFilter::Op::NAME;
    std::string glob;
    int32_t datatype = 0;
    tarvo_iterator_filter_td *left = nullptr;
    tarvo_iterator_filter_td *right = nullptr;
};

struct tarvo_iterator_td {
    tarvo_bind_td *bind = nullptr;
    std::string dir;
    tarvo::ScanQuery query;
    std::vector<tarvo::Node> current, previous;
    size_t pos = 0;
    bool exhausted = false;
};

namespace tarvo {
namespace {

// Operands before the node that uses them, without recursion (a filter
// joined from many options is a deep tree).
void flatten(const tarvo_iterator_filter_td *root, NodeFilter *out)
{
    struct Frame {
        const tarvo_iterator_filter_td *node;
        bool expanded;
    };
    std::vector<Frame> stack{{root, false}};
    std::vector<uint32_t> done;  // term indexes of finished operands
    while (!stack.empty()) {
        Frame f = stack.back();
        stack.pop_back();
        const tarvo_iterator_filter_td *n = f.node;
        if (!f.expanded && (n->left || n->right)) {
            stack.push_back({n, true});
            if (n->right)
                stack.push_back({n->right, false});
            stack.push_back({n->left, false});
            continue;
        }
        NodeFilter::Term t;
        t.op = n->op;
        t.glob = n->glob;
        t.datatype = n->datatype;
        if (n->right) {
            t.right = done.back();
            done.pop_back();
        }
        if (n->left) {
            t.left = done.back();
            done.pop_back();
        }
        out->terms.push_back(std::move(t));
        done.push_back(static_cast<uint32_t>(out->terms.size() - 1));
    }
}

void free_filter(tarvo_iterator_filter_td *root, bool recursive)
{
    std::vector<tarvo_iterator_filter_td *> stack{root};
    while (!stack.empty()) {
        tarvo_iterator_filter_td *n = stack.back();
        stack.pop_back();
        if (recursive) {
            for (tarvo_iterator_filter_td *child : {n->left, n->right})
                if (child && handle_is_live(child, HandleKind::FILTER))
                    stack.push_back(child);
        }
        unregister_handle(n);
        delete n;
    }
}

int new_filter(tarvo_iterator_filter_td node, tarvo_iterator_filter_h_td *out)
{
    return guarded([&] {
        auto *made = new tarvo_iterator_filter_td(std::move(node));
        register_handle(made, HandleKind::FILTER);
        *out = made;
        return 0;
    });
}

bool known_datatype(int32_t code)
{
#define TARVO_KNOWN(id, c, name, width, is_signed) code == (c) ||
    return TARVO_DATATYPE_LIST(TARVO_KNOWN) false;
#undef TARVO_KNOWN
}

// The subtree to walk: a directory, or an item alone (walked as the entry
// of its parent directory that is equal to its name).
Status start_walk(tarvo_iterator_td *it, const char *subtree)
{
    ResolvedPath where;
    Status s = resolve_path(it->bind->bind_point, subtree ? subtree : "", &where);
    if (!s.ok())
        return s;
    Store *store = nullptr;
    PendingStore *pending = nullptr;
    s = bind_view(it->bind, 0, &store, &pending);
    if (!s.ok())
        return s;
    Node node;
    s = store->lookup(where.path, &node);
    if (!s.ok())
        return s;
    if (node.is_dir()) {
        it->dir = dir_form(where.path);
        return ok_status();
    }
    if (where.dir_form)
        return error(TARVO_ERR_NOT_A_DIR, where.path);
    it->dir = parent_dir(where.path);
    it->query.match.kind = PathMatch::Kind::EXACT;
    it->query.match.text = std::string(leaf_name(where.path));
    return ok_status();
}

Status fetch(tarvo_iterator_td *it)
{
    Store *store = nullptr;
    PendingStore *pending = nullptr;
    Status s = bind_view(it->bind, 0, &store, &pending);
    if (!s.ok())
        return s;
    Page page;
    s = store->scan(it->dir, it->query, &page);
    if (!s.ok())
        return s;
    it->previous.swap(it->current);
    it->current = std::move(page.entries);
    it->pos = 0;
    it->exhausted = !page.remain;
    if (!it->current.empty()) {
        it->query.start = it->current.back().path;
        it->query.exclusive = true;
    }
    return ok_status();
}

// The next entry, fetching a chunk when the current one is used up; null at
// the end.
int next_node(tarvo_bind_h_td handle, tarvo_iterator_h_td it, const Node **node)
{
    *node = nullptr;
    if (it->pos == it->current.size()) {
        if (it->exhausted)
            return 0;
        if (!bind_is_live(it->bind))
            return TARVO_ERR_BAD_HANDLE;
        Status s = fetch(it);
        if (!s.ok())
            return fail(handle, s);
        if (it->current.empty())
            return 0;
    }
    *node = &it->current[it->pos++];
    return 0;
}

bool usable(tarvo_bind_h_td handle, tarvo_iterator_h_td it)
{
    return bind_is_live(handle) && handle_is_live(it, HandleKind::ITERATOR) && it->bind == handle;
}

}  // namespace
}  // namespace tarvo

using namespace tarvo;

extern "C" {

int tarvo_iterator_filter_name(const char *pattern, tarvo_iterator_filter_h_td *filter)
{
    if (!pattern || !filter)
        return TARVO_ERR_BAD_ARGUMENT;
    tarvo_iterator_filter_td node;
    node.op = NodeFilter::Op::NAME;
    node.glob = pattern;
    // A glob that RE2 cannot take is refused now, not at the walk.
    NodeSelector check;
    ScanQuery q;
    q.filter.terms.push_back(NodeFilter::Term{NodeFilter::Op::NAME, node.glob, 0, 0, 0});
    if (!check.compile("/", q).ok())
        return TARVO_ERR_BAD_PATTERN;
    return new_filter(std::move(node), filter);
}

int tarvo_iterator_filter_datatype(tarvo_item_datatype_td datatype,
                                   tarvo_iterator_filter_h_td *filter)
{
    if (!filter || !known_datatype(datatype))
        return TARVO_ERR_BAD_ARGUMENT;
    tarvo_iterator_filter_td node;
    node.op = NodeFilter::Op::DATATYPE;
    node.datatype = datatype;
    return new_filter(std::move(node), filter);
}

int tarvo_iterator_filter_combine(tarvo_iterator_filter_h_td filter,
                                  tarvo_iterator_filter_h_td second, uint32_t operation,
                                  tarvo_iterator_filter_h_td *result)
{
    if (!result || !handle_is_live(filter, HandleKind::FILTER) || filter == second)
        return TARVO_ERR_BAD_ARGUMENT;
    tarvo_iterator_filter_td node;
    node.left = filter;
    switch (operation) {
    case TARVO_ITERATOR_FILTER_OR:
    case TARVO_ITERATOR_FILTER_AND:
        if (!handle_is_live(second, HandleKind::FILTER))
            return TARVO_ERR_BAD_ARGUMENT;
        node.op = operation == TARVO_ITERATOR_FILTER_OR ? NodeFilter::Op::OR : NodeFilter::Op::AND;
        node.right = second;
        break;
    case TARVO_ITERATOR_FILTER_NOT:
        if (second)
            return TARVO_ERR_BAD_ARGUMENT;
        node.op = NodeFilter::Op::NOT;
        break;
    default:
        return TARVO_ERR_BAD_ARGUMENT;
    }
    return new_filter(std::move(node), result);
}

void tarvo_iterator_filter_free(tarvo_iterator_filter_h_td filter, uint32_t recursive)
{
    if (handle_is_live(filter, HandleKind::FILTER))
        free_filter(filter, recursive != 0);
}

int tarvo_iterator_create(tarvo_bind_h_td handle, const char *subtree,
                          tarvo_iterator_filter_h_td filter, uint32_t options,
                          tarvo_iterator_h_td *iterator)
{
    if (!bind_is_live(handle))
        return TARVO_ERR_BAD_HANDLE;
    if (!iterator || (filter && !handle_is_live(filter, HandleKind::FILTER)) ||
        (options & ~(TARVO_ITERATOR_OPTION_EDM | TARVO_ITERATOR_OPTION_DATALIST)))
        return fail(handle, error(TARVO_ERR_BAD_ARGUMENT));
    *iterator = nullptr;
    return guarded([&] {
        auto it = std::make_unique<tarvo_iterator_td>();
        it->bind = handle;
        it->query.dirs = true;
        it->query.with_values = (options & TARVO_ITERATOR_OPTION_DATALIST) != 0;
        it->query.max_entries = handle->settings.batch_entries;
        it->query.max_bytes = handle->settings.batch_bytes;
        if (filter)
            flatten(filter, &it->query.filter);
        Status s = start_walk(it.get(), subtree);
        if (s.ok())
            s = fetch(it.get());
        if (!s.ok())
            return fail(handle, s);
        register_handle(it.get(), HandleKind::ITERATOR);
        *iterator = it.release();
        return 0;
    });
}

int tarvo_iterator_next(tarvo_bind_h_td handle, tarvo_iterator_h_td iterator, char **name,
                        tarvo_item_datatype_td *datatype, void *reserved)
{
    if (!usable(handle, iterator))
        return TARVO_ERR_BAD_HANDLE;
    if (!name || !datatype || reserved)
        return TARVO_ERR_BAD_ARGUMENT;
    return guarded([&] {
        const Node *node = nullptr;
        int rc = next_node(handle, iterator, &node);
        *name = node ? const_cast<char *>(node->path.c_str()) : nullptr;
        if (node)
            *datatype = static_cast<tarvo_item_datatype_td>(node->datatype);
        return rc;
    });
}

int tarvo_iterator_next_data(tarvo_bind_h_td handle, tarvo_iterator_h_td iterator, char **name,
                             tarvo_item_datatype_td *datatype, void *reserved, void **value,
                             uint32_t *length)
{
    if (!usable(handle, iterator))
        return TARVO_ERR_BAD_HANDLE;
    if (!name || !datatype || reserved || !value || !length)
        return TARVO_ERR_BAD_ARGUMENT;
    return guarded([&] {
        *value = nullptr;
        *length = 0;
        const Node *node = nullptr;
        int rc = next_node(handle, iterator, &node);
        *name = node ? const_cast<char *>(node->path.c_str()) : nullptr;
        if (rc != 0 || !node)
            return rc;
        *datatype = static_cast<tarvo_item_datatype_td>(node->datatype);
        if (node->is_dir())
            return 0;
        if (iterator->query.with_values) {
            *value = const_cast<char *>(node->value.data());
            *length = static_cast<uint32_t>(node->value.size());
            return 0;
        }
        // Read now: the item may have changed or gone since the chunk.
        Store *store = nullptr;
        PendingStore *pending = nullptr;
        Status s = bind_view(handle, 0, &store, &pending);
        Node now;
        if (s.ok())
            s = store->lookup(node->path, &now);
        if (s.code == TARVO_ERR_NOT_FOUND)
            return 0;
        if (!s.ok())
            return fail(handle, s);
        void *copy = std::malloc(now.value.empty() ? 1 : now.value.size());
        if (!copy)
            return static_cast<int>(TARVO_ERR_NO_MEMORY);
        std::memcpy(copy, now.value.data(), now.value.size());
        *value = copy;
        *length = static_cast<uint32_t>(now.value.size());
        return 0;
    });
}

int tarvo_iterator_free(tarvo_bind_h_td handle, tarvo_iterator_h_td iterator)
{
    (void)handle;  // an iterator outlives nothing; its bind may be gone
    if (!handle_is_live(iterator, HandleKind::ITERATOR))
        return TARVO_ERR_BAD_HANDLE;
    unregister_handle(iterator);
    delete iterator;
    return 0;
}

}  // extern "C"
