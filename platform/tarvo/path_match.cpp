#include "path_match.h"

#include <re2/re2.h>

#include <algorithm>

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
    case PathMatch::Kind::REGEXP:
    case PathMatch::Kind::NOT_REGEXP: {
        bool hit = RE2::FullMatch(re2::StringPiece(rel.data(), rel.size()), *re_);
        return hit == (match_->kind == PathMatch::Kind::REGEXP);
    }
    }
    return false;
}

}  // namespace tarvo
