// PathMatcher: the compiled form of a PathMatch (store.h), the filter of the
// tree operations over relative paths.
#ifndef TARVO_PATH_MATCH_H
#define TARVO_PATH_MATCH_H

#include <memory>

#include "store.h"

namespace re2 {
class RE2;
}

namespace tarvo {

class PathMatcher {
public:
    PathMatcher();
    ~PathMatcher();
    // BAD_PATTERN when a pattern does not compile.
    Status compile(const PathMatch &match);
    bool matches(std::string_view relative) const;

private:
    const PathMatch *match_ = nullptr;
    std::unique_ptr<re2::RE2> re_;
};

}  // namespace tarvo

#endif
