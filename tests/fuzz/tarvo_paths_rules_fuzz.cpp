// Fuzz target: the item database client's path resolution, globs and
// verifier rules. The input is "<rule>\n<path>\n<value bytes>". A resolved
// path is absolute, canonical and at most 1023 characters; every other
// outcome is BAD_PATH or PATH_TOO_LONG. A glob without wildcards matches
// exactly itself. A rule, however garbled, only ever accepts or refuses with
// VERIFY_FAILED.
#include <stdint.h>
#include <stdlib.h>

#include <string>

#include "paths.h"
#include "verifiers.h"

static void check(bool condition)
{
    if (!condition)
        abort();
}

static void check_resolution(const std::string &bind_point, const std::string &path)
{
    tarvo::ResolvedPath r;
    tarvo::Status s = tarvo::resolve_path(bind_point, path, &r);
    if (!s.ok()) {
        check(s.code == TARVO_ERR_BAD_PATH || s.code == TARVO_ERR_PATH_TOO_LONG);
        return;
    }
    check(!r.path.empty() && r.path[0] == '/' && r.path.size() <= tarvo::TARVO_MAX_PATH);
    check(r.path == "/" || r.path.back() != '/');
    check(r.path.find("//") == std::string::npos);
    check((r.path + "/").find("/./") == std::string::npos);
    check((r.path + "/").find("/../") == std::string::npos);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::string input(reinterpret_cast<const char *>(data), size);
    size_t first = input.find('\n');
    size_t second = first == std::string::npos ? first : input.find('\n', first + 1);
    std::string rule = input.substr(0, first);
    std::string path = first == std::string::npos ? "" : input.substr(first + 1, second - first - 1);
    std::string value = second == std::string::npos ? "" : input.substr(second + 1);
    // C strings: the interface never sees a NUL inside a path.
    rule = rule.substr(0, rule.find('\0'));
    path = path.substr(0, path.find('\0'));

    check_resolution("/", path);
    check_resolution("/a/b/", path);
    std::string bind_point;
    tarvo::Status s = tarvo::normalize_bind_point(rule, &bind_point);
    if (s.ok()) {
        check(bind_point[0] == '/' && bind_point.back() == '/');
        check_resolution(bind_point, path);
    }

    if (path.find_first_of("*?") == std::string::npos)
        check(tarvo::glob_match(path, path));
    tarvo::glob_match(rule, path);

    tarvo::VerifierSet rules;
    rules.add("/tarvo/verifiers/fuzz", rule);
    for (int32_t datatype : {TARVO_DATATYPE_UINT32, TARVO_DATATYPE_STRING, TARVO_DATATYPE_INT8,
                             TARVO_DATATYPE_INT64, TARVO_DATATYPE_BAG}) {
        tarvo::Status v = rules.check("/" + path, datatype, value);
        check(v.ok() || v.code == TARVO_ERR_VERIFY_FAILED);
    }
    return 0;
}
