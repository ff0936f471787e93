#include "verifiers.h"

#include <re2/re2.h>

#include <cerrno>
#include <cstdlib>

#include "values.h"

namespace tarvo {

struct VerifierSet::Rule {
    std::string item;      // where the rule is stored
    std::string text;      // as stored
    std::string glob;      // empty: the rule covers nothing
    std::string problem;   // why the rule is malformed, or empty
    int32_t datatype = 0;
    bool has_range = false;
    int64_t smin = 0, smax = 0;
    uint64_t umin = 0, umax = 0;
    std::unique_ptr<RE2> pattern;

    std::string name() const { return "rule " + item + " (" + text + ")"; }
};

namespace {

std::vector<std::string> split_words(std::string_view text, size_t max_words)
{
    std::vector<std::string> words;
    size_t pos = 0;
    while (pos < text.size() && words.size() + 1 < max_words) {
        size_t start = text.find_first_not_of(" \t", pos);
        if (start == std::string_view::npos)
            return words;
        size_t end = text.find_first_of(" \t", start);
        if (end == std::string_view::npos)
            end = text.size();
        words.emplace_back(text.substr(start, end - start));
        pos = end;
    }
    size_t start = text.find_first_not_of(" \t", pos);
    if (start != std::string_view::npos) {
        size_t end = text.find_last_not_of(" \t");
        words.emplace_back(text.substr(start, end - start + 1));
    }
    return words;
}

bool parse_signed(const std::string &text, int64_t *out)
{
    if (text.empty())
        return false;
    char *end = nullptr;
    errno = 0;
    long long v = std::strtoll(text.c_str(), &end, 0);
    if (errno || *end)
        return false;
    *out = v;
    return true;
}

bool parse_unsigned(const std::string &text, uint64_t *out)
{
    if (text.empty() || text[0] == '-')
        return false;
    char *end = nullptr;
    errno = 0;
    unsigned long long v = std::strtoull(text.c_str(), &end, 0);
    if (errno || *end)
        return false;
    *out = v;
    return true;
}

void parse_constraint(VerifierSet::Rule &rule, const std::string &c);

}  // namespace

bool glob_match(std::string_view pattern, std::string_view path)
{
    // match[j]: pattern[0..i) matches path[0..j). Rows over the pattern.
    const size_t n = path.size();
    std::vector<char> match(n + 1, 0), next(n + 1, 0);
    match[0] = 1;
    for (size_t i = 0; i < pattern.size();) {
        std::fill(next.begin(), next.end(), 0);
        if (pattern[i] == '*') {
            bool cross = i + 1 < pattern.size() && pattern[i + 1] == '*';
            for (size_t j = 0; j <= n; ++j) {
                if (match[j])
                    next[j] = 1;
                else if (j > 0 && next[j - 1] && (cross || path[j - 1] != '/'))
                    next[j] = 1;
            }
            i += cross ? 2 : 1;
        } else {
            for (size_t j = 1; j <= n; ++j)
                next[j] = match[j - 1] &&
                          (pattern[i] == '?' ? path[j - 1] != '/' : pattern[i] == path[j - 1]);
            ++i;
        }
        match.swap(next);
    }
    return match[n];
}

namespace {

void parse_constraint(VerifierSet::Rule &rule, const std::string &c)
{
    if (c.size() >= 2 && c.front() == '/' && c.back() == '/') {
        if (rule.datatype != TARVO_DATATYPE_STRING) {
            rule.problem = "a pattern needs datatype string";
            return;
        }
        RE2::Options options;
        options.set_log_errors(false);
        rule.pattern = std::make_unique<RE2>(c.substr(1, c.size() - 2), options);
        if (!rule.pattern->ok())
            rule.problem = "bad pattern: " + rule.pattern->error();
        return;
    }
    size_t dots = c.find("..");
    if (dots == std::string::npos) {
        rule.problem = "\"" + c + "\" is neither <min>..<max> nor /<pattern>/";
        return;
    }
    if (!integer_width(rule.datatype)) {
        rule.problem = "a range needs an integer datatype";
        return;
    }
    std::string lo = c.substr(0, dots), hi = c.substr(dots + 2);
    bool good = is_signed_integer(rule.datatype)
                    ? parse_signed(lo, &rule.smin) && parse_signed(hi, &rule.smax) &&
                          rule.smin <= rule.smax
                    : parse_unsigned(lo, &rule.umin) && parse_unsigned(hi, &rule.umax) &&
                          rule.umin <= rule.umax;
    if (!good)
        rule.problem = "bad range \"" + c + "\"";
    rule.has_range = true;
}

}  // namespace

VerifierSet::VerifierSet() = default;
VerifierSet::~VerifierSet() = default;

size_t VerifierSet::size() const { return rules_.size(); }

void VerifierSet::add(const std::string &item, std::string_view text)
{
    auto rule = std::make_unique<Rule>();
    rule->item = item;
    rule->text = std::string(text);
    std::vector<std::string> words = split_words(text, 3);
    if (!words.empty())
        rule->glob = words[0];
    if (words.size() < 2) {
        rule->problem = "a rule is \"<path-glob> <datatype> [<min>..<max> | /<RE2>/]\"";
    } else if (auto dt = parse_datatype(words[1]); !dt || !is_storable(*dt)) {
        rule->problem = "unknown datatype \"" + words[1] + "\"";
    } else {
        rule->datatype = *dt;
        if (words.size() == 3)
            parse_constraint(*rule, words[2]);
    }
    rules_.push_back(std::move(rule));
}

Status VerifierSet::load(Store &store)
{
    rules_.clear();
    ScanQuery q;
    q.max_entries = 1000;
    for (;;) {
        Page page;
        Status s = store.scan(VERIFIER_DIR, q, &page);
        if (!s.ok())
            return s;
        for (const Node &node : page.entries) {
            q.start = node.path;
            q.exclusive = true;
            // Only string items are rules; anything else kept there is not
            // a rule and is left alone.
            if (node.datatype != TARVO_DATATYPE_STRING || node.value.empty())
                continue;
            add(node.path, std::string_view(node.value).substr(0, node.value.size() - 1));
        }
        if (!page.remain)
            return ok_status();
    }
}

Status VerifierSet::check(std::string_view path, int32_t datatype, std::string_view value) const
{
    for (const auto &rule : rules_) {
        if (rule->glob.empty() || !glob_match(rule->glob, path))
            continue;
        auto refuse = [&](const std::string &why) {
            return error(TARVO_ERR_VERIFY_FAILED,
                         std::string(path) + ": " + rule->name() + ": " + why);
        };
        if (!rule->problem.empty())
            return refuse("malformed rule: " + rule->problem);
        if (datatype != rule->datatype)
            return refuse("datatype must be " + datatype_name(rule->datatype) + ", not " +
                          datatype_name(datatype));
        if (rule->has_range) {
            int64_t s = 0;
            uint64_t u = 0;
            if (!integer_value(datatype, value, &s, &u))
                return refuse("value is not an integer");
            if (is_signed_integer(datatype) && (s < rule->smin || s > rule->smax))
                return refuse("value " + std::to_string(s) + " is outside " +
                              std::to_string(rule->smin) + ".." + std::to_string(rule->smax));
            if (!is_signed_integer(datatype) && (u < rule->umin || u > rule->umax))
                return refuse("value " + std::to_string(u) + " is outside " +
                              std::to_string(rule->umin) + ".." + std::to_string(rule->umax));
        }
        if (rule->pattern) {
            std::string_view text = value.empty() ? value : value.substr(0, value.size() - 1);
            if (!RE2::FullMatch(re2::StringPiece(text.data(), text.size()), *rule->pattern))
                return refuse("value \"" + std::string(text) + "\" does not match the pattern");
        }
    }
    return ok_status();
}

}  // namespace tarvo
