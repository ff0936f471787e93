#include "path_match.h"

#include <re2/re2.h>

#include <algorithm>

#include "paths.h"

namespace tarvo {

PathMatcher::PathMatcher() = default;
PathMatcher::~PathMatcher() = default;

Status PathMatcher::compile(const PathMatch &match)
{
    match_ = &match;
    re_.reset();
    if (match.kind != PathMatch::Kind::REGEXP && match.kind != PathMatch::Kind::NOT_REGEXP)
        return ok_status();
    RE2::Options options;
    options.set_log_errors(false);
    re_ = std::make_unique<RE2>(match.text, options);
    if (!re_->ok())
        return error(TARVO_ERR_BAD_PATTERN, match.text + ": " + re_->error());
    return ok_status();
}

bool PathMatcher::matches(std::string_view rel) const
{
    if (!match_)
        return true;
    if (!match_->except.empty() &&
        std::binary_search(match_->except.begin(), match_->except.end(), rel))
        return false;
    for (const std::string &top : match_->except_below)
        if (rel.substr(0, top.size()) == top && (rel.size() == top.size() || rel[top.size()] == '/'))
            return false;
    switch (match_->kind) {
    case PathMatch::Kind::ALL:
        return true;
    case PathMatch::Kind::PREFIX:
        return rel.substr(0, match_->text.size()) == match_->text;
    case PathMatch::Kind::EXACT:
        return rel == match_->text;
    case PathMatch::Kind::REGEXP:
    case PathMatch::Kind::NOT_REGEXP: {
        bool hit = RE2::FullMatch(re2::StringPiece(rel.data(), rel.size()), *re_);
        return hit == (match_->kind == PathMatch::Kind::REGEXP);
    }
    }
    return false;
}

std::string glob_pattern(std::string_view glob)
{
    std::string re;
    for (size_t i = 0; i < glob.size(); i++) {
        char c = glob[i];
        if (c == '*' && i + 1 < glob.size() && glob[i + 1] == '*') {
            re += ".*";
            i++;
        } else if (c == '*') {
            re += "[^/]*";
        } else if (c == '?') {
            re += "[^/]";
        } else {
            re += RE2::QuoteMeta(re2::StringPiece(&glob[i], 1));
        }
    }
    return re;
}

namespace {

// The first string above every string that begins with `prefix`; empty when
// there is none (a prefix of 0xFF bytes only).
std::string prefix_end(std::string prefix)
{
    while (!prefix.empty() && static_cast<unsigned char>(prefix.back()) == 0xFF)
        prefix.pop_back();
    if (!prefix.empty())
        prefix.back() = static_cast<char>(prefix.back() + 1);
    return prefix;
}

// A directory's key is its path without the final "/", so it may sort below
// a lower bound its path satisfies ("/a/b" < "/a/b/"). Cutting the bound
// before its first byte not above "/" gives a bound that every such key
// satisfies too.
std::string dir_safe_bound(const std::string &min)
{
    size_t cut = 0;
    while (cut < min.size() && static_cast<unsigned char>(min[cut]) > '/')
        cut++;
    return min.substr(0, cut);
}

}  // namespace

NodeSelector::NodeSelector() = default;
NodeSelector::~NodeSelector() = default;

void NodeSelector::narrow_range(const std::string &min, const std::string &max,
                                bool max_inclusive)
{
    std::string low = dir_ + (query_->dirs ? dir_safe_bound(min) : min);
    if (low > lo) {
        lo = low;
        lo_inclusive = true;
    }
    if (max.empty())
        return;
    std::string high = dir_ + max;
    if (high < hi || (high == hi && !max_inclusive)) {
        hi = high;
        hi_inclusive = max_inclusive;
    }
}

Status NodeSelector::compile(std::string_view dir, const ScanQuery &q)
{
    dir_ = std::string(dir);
    query_ = &q;
    lo = dir_;
    lo_inclusive = false;
    hi = subtree_end(dir);
    hi_inclusive = false;
    Status s = matcher_.compile(q.match);
    if (!s.ok())
        return s;
    const std::string &text = q.match.text;
    switch (q.match.kind) {
    case PathMatch::Kind::PREFIX:
    case PathMatch::Kind::EXACT:
        narrow_range(text, prefix_end(text), false);
        break;
    case PathMatch::Kind::REGEXP: {
        std::string min, max;
        if (matcher_.pattern()->PossibleMatchRange(&min, &max, 64))
            narrow_range(min, max, true);
        break;
    }
    default:
        break;
    }
    globs_.clear();
    whole_path_.clear();
    const auto &terms = q.filter.terms;
    for (size_t i = 0; i < terms.size(); i++) {
        const NodeFilter::Term &t = terms[i];
        bool binary = t.op == NodeFilter::Op::OR || t.op == NodeFilter::Op::AND;
        if ((binary || t.op == NodeFilter::Op::NOT) && (t.left >= i || (binary && t.right >= i)))
            return error(TARVO_ERR_BAD_ARGUMENT, "filter term refers forward");
        globs_.emplace_back();
        whole_path_.push_back(t.glob.find('/') != std::string::npos);
        if (t.op != NodeFilter::Op::NAME)
            continue;
        RE2::Options options;
        options.set_log_errors(false);
        options.set_encoding(RE2::Options::EncodingLatin1);
        globs_.back() = std::make_unique<RE2>(glob_pattern(t.glob), options);
        if (!globs_.back()->ok())
            return error(TARVO_ERR_BAD_PATTERN, t.glob + ": " + globs_.back()->error());
    }
    results_.assign(terms.size(), 0);
    return ok_status();
}

bool NodeSelector::in_range(std::string_view key) const
{
    bool above = lo_inclusive ? key >= lo : key > lo;
    bool below = hi_inclusive ? key <= hi : key < hi;
    return above && below;
}

// Terms come operands first, so one pass in order evaluates the tree
// without recursion, however deep it is.
bool NodeSelector::filter_keeps(std::string_view rel, int32_t datatype) const
{
    const auto &terms = query_->filter.terms;
    if (terms.empty())
        return true;
    size_t slash = rel.rfind('/');
    std::string_view last = slash == std::string_view::npos ? rel : rel.substr(slash + 1);
    for (size_t i = 0; i < terms.size(); i++) {
        const NodeFilter::Term &t = terms[i];
        bool r = false;
        switch (t.op) {
        case NodeFilter::Op::NAME: {
            std::string_view subject = whole_path_[i] ? rel : last;
            r = RE2::FullMatch(re2::StringPiece(subject.data(), subject.size()), *globs_[i]);
            break;
        }
        case NodeFilter::Op::DATATYPE:
            r = t.datatype == datatype;
            break;
        case NodeFilter::Op::OR:
            r = results_[t.left] || results_[t.right];
            break;
        case NodeFilter::Op::AND:
            r = results_[t.left] && results_[t.right];
            break;
        case NodeFilter::Op::NOT:
            r = !results_[t.left];
            break;
        }
        results_[i] = r;
    }
    return results_.back() != 0;
}

bool NodeSelector::keeps(std::string_view key, int32_t datatype) const
{
    if (key.size() <= dir_.size() || key.substr(0, dir_.size()) != dir_)
        return false;
    std::string_view rel = key.substr(dir_.size());
    const bool dir = datatype == TARVO_DATATYPE_DIR;
    std::string_view shown = rel;  // a directory is matched as shown: with its "/"
    if (dir) {
        scratch_.assign(rel);
        scratch_ += '/';
        shown = scratch_;
    }
    const PathMatch &m = query_->match;
    if (query_->norecurse && m.kind != PathMatch::Kind::REGEXP &&
        m.kind != PathMatch::Kind::NOT_REGEXP) {
        size_t slash = shown.find('/', std::min(m.text.size(), shown.size()));
        if (slash != std::string_view::npos && slash + 1 != shown.size())
            return false;
    }
    if (!matcher_.matches(shown))
        return false;
    return filter_keeps(rel, datatype);
}

void cut_event_page(std::vector<EventKey> *keys, const ScanQuery &q, bool *remain)
{
    *remain = false;
    std::vector<EventKey> &k = *keys;
    std::sort(k.begin(), k.end(), [&](const EventKey &a, const EventKey &b) {
        if (a.path != b.path)
            return q.reverse ? a.path > b.path : a.path < b.path;
        return q.reverse ? a.seq > b.seq : a.seq < b.seq;
    });
    const std::string start = q.start;
    size_t first = 0;
    if (!start.empty()) {
        while (first < k.size()) {
            const std::string &p = k[first].path;
            bool before = q.reverse ? (q.exclusive ? p >= start : p > start)
                                    : (q.exclusive ? p <= start : p < start);
            if (!before)
                break;
            first++;
        }
    }
    size_t end = first;
    uint64_t bytes = 0;
    while (end < k.size()) {
        size_t group = end;
        uint64_t group_bytes = 0;
        while (group < k.size() && k[group].path == k[end].path) {
            group_bytes += k[group].path.size() + k[group].bytes;
            group++;
        }
        if (end > first && (group - first > q.max_entries || bytes + group_bytes > q.max_bytes)) {
            *remain = true;
            break;
        }
        bytes += group_bytes;
        end = group;
    }
    k.erase(k.begin() + static_cast<std::ptrdiff_t>(end), k.end());
    k.erase(k.begin(), k.begin() + static_cast<std::ptrdiff_t>(first));
}

}  // namespace tarvo
