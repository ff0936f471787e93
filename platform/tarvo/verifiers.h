// Verifier rules: string items below /tarvo/verifiers/ of a plane, each
//   <path-glob> <datatype> [<min>..<max> | /<RE2>/]
// A create or set whose absolute path matches the glob must have that
// datatype and, when given, an integer value within min..max (inclusive) or
// a string value that the RE2 pattern matches as a whole. Globs: "*" any run
// of characters within one component, "**" any run including "/", "?" one
// character other than "/"; everything else stands for itself.
//
// A rule that cannot be read is loaded anyway and refuses every write its
// glob covers, naming the rule, so that a mistake in a rule is reported
// where it matters instead of being skipped silently.
#ifndef TARVO_VERIFIERS_H
#define TARVO_VERIFIERS_H

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "store.h"

namespace tarvo {

inline constexpr const char *VERIFIER_DIR = "/tarvo/verifiers/";

bool glob_match(std::string_view pattern, std::string_view path);

class VerifierSet final {
public:
    VerifierSet();
    ~VerifierSet();
    // Adds the rule kept in item `item` with text `text` (no trailing NUL).
    void add(const std::string &item, std::string_view text);
    // Replaces the rules by those stored in `store`.
    Status load(Store &store);
    size_t size() const;
    Status check(std::string_view path, int32_t datatype,
                 std::string_view value) const;

    struct Rule;  // a parsed rule (verifiers.cpp)

private:
    std::vector<std::unique_ptr<Rule>> rules_;
};

}  // namespace tarvo

#endif
