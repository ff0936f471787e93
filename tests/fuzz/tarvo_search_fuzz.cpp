// Fuzz target: finds, iterator filters and event finds over patterns and
// paths. The input is "<flags>\n<match text>\n<glob>\n<path>\n<path>...".
// The paths become items of a memory store (each set once more, so that
// paths have several events). For a find query built from the flags:
// - no pattern or glob hangs or crashes the store (RE2: linear time);
// - a pattern that does not compile is BAD_PATTERN, nothing else fails;
// - every node the query keeps lies in the key range the selector narrowed
//   the scan to (backends read only that range);
// - pages of a few entries, continued after the last path, deliver exactly
//   the kept nodes of a full walk, in order, once each;
// - event pages deliver every kept event once and never split a path.
#include <stdint.h>
#include <stdlib.h>

#include <string>
#include <vector>

#include "path_match.h"
#include "paths.h"
#include "store.h"

using namespace tarvo;

static void check(bool condition)
{
    if (!condition)
        abort();
}

static std::vector<std::string> lines(const std::string &input)
{
    std::vector<std::string> out;
    size_t from = 0;
    while (from <= input.size()) {
        size_t end = input.find('\n', from);
        if (end == std::string::npos)
            end = input.size();
        std::string line = input.substr(from, end - from);
        out.push_back(line.substr(0, line.find('\0')));
        from = end + 1;
    }
    return out;
}

static std::string key_of(const Node &n)
{
    return n.is_dir() && n.path.size() > 1 ? n.path.substr(0, n.path.size() - 1) : n.path;
}

static ScanQuery query_from(uint8_t flags, const std::string &text, const std::string &glob)
{
    static const PathMatch::Kind KINDS[] = {PathMatch::Kind::ALL, PathMatch::Kind::PREFIX,
                                            PathMatch::Kind::EXACT, PathMatch::Kind::REGEXP,
                                            PathMatch::Kind::NOT_REGEXP};
    ScanQuery q;
    q.match.kind = KINDS[flags % 5];
    q.match.text = text;
    q.dirs = flags & 0x08;
    q.norecurse = flags & 0x10;
    q.reverse = flags & 0x20;
    if (flags & 0x40) {
        using Op = NodeFilter::Op;
        q.filter.terms.push_back({Op::NAME, glob, 0, 0, 0});
        q.filter.terms.push_back({Op::DATATYPE, "", TARVO_DATATYPE_DIR, 0, 0});
        q.filter.terms.push_back({(flags & 0x80) ? Op::AND : Op::OR, "", 0, 0, 1});
        q.filter.terms.push_back({Op::NOT, "", 0, 2, 0});
    }
    q.max_entries = 1 + flags % 3;
    return q;
}

// Every node below dir, the plain walk without any narrowing.
static std::vector<Node> full_walk(Store &store, const std::string &dir, bool reverse)
{
    ScanQuery all;
    all.dirs = true;
    all.reverse = reverse;
    all.max_entries = 100000;
    Page page;
    check(store.scan(dir, all, &page).ok() && !page.remain);
    return page.entries;
}

static void check_scan(Store &store, const std::string &dir, ScanQuery q)
{
    NodeSelector selector;
    Status s = selector.compile(dir, q);
    if (!s.ok()) {
        check(s.code == TARVO_ERR_BAD_PATTERN);
        return;
    }
    std::vector<std::string> expected;
    for (const Node &n : full_walk(store, dir, q.reverse)) {
        if (n.is_dir() && !q.dirs)
            continue;
        std::string key = key_of(n);
        if (selector.keeps(key, n.datatype)) {
            check(selector.in_range(key));
            expected.push_back(n.path);
        }
    }
    std::vector<std::string> paged;
    for (int pages = 0;; pages++) {
        check(pages <= 1000);
        Page page;
        check(store.scan(dir, q, &page).ok());
        check(page.entries.size() <= q.max_entries);
        for (const Node &n : page.entries)
            paged.push_back(n.path);
        if (!page.remain)
            break;
        check(!page.entries.empty());
        q.start = page.entries.back().path;
        q.exclusive = true;
    }
    check(paged == expected);
}

static void check_events(Store &store, const std::string &dir, ScanQuery q)
{
    NodeSelector selector;
    if (!selector.compile(dir, q).ok())
        return;
    q.filter.terms.clear();
    size_t expected = 0;
    std::vector<Event> log;
    check(store.events_after(0, 100000, &log).ok());
    for (const Event &e : log)
        expected += selector.keeps(e.path, e.datatype) ? 1 : 0;
    size_t seen = 0;
    std::string last_path;
    for (int pages = 0;; pages++) {
        check(pages <= 1000);
        EventPage page;
        check(store.find_events(dir, q, &page).ok());
        if (!page.events.empty()) {
            check(page.events.front().path != last_path);  // a path is never split
            last_path = page.events.back().path;
        }
        seen += page.events.size();
        if (!page.remain)
            break;
        check(!page.events.empty());
        q.start = last_path;
        q.exclusive = true;
    }
    check(seen == expected);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::vector<std::string> in = lines(std::string(reinterpret_cast<const char *>(data), size));
    if (in.size() < 3 || in[0].empty())
        return 0;
    uint8_t flags = static_cast<uint8_t>(in[0][0]);
    StoreOptions options;
    std::unique_ptr<Store> store = new_memory_store(options);
    Batch batch;
    batch.atomic = false;
    const std::string value("\1\0\0\0", 4);
    for (size_t i = 3; i < in.size() && i < 40; i++) {
        ResolvedPath where;
        if (!resolve_path("/d/", in[i], &where).ok() || where.dir_form || where.path == "/")
            continue;
        Op op;
        op.kind = OpKind::SET;
        op.create_missing = true;
        op.datatype = TARVO_DATATYPE_UINT32;
        op.path = where.path;
        op.value = value;
        batch.ops.push_back(op);
        batch.ops.push_back(op);
    }
    ApplyResult result;
    check(store->apply(batch, &result).ok());
    ScanQuery q = query_from(flags, in[1], in[2]);
    for (const char *dir : {"/", "/d/"}) {
        check_scan(*store, dir, q);
        check_events(*store, dir, q);
    }
    return 0;
}
