// Item paths. An absolute path starts with "/"; a directory path ends with
// "/". A path without a leading "/" is relative to the bind point. Every
// component is non-empty, and "." and ".." are refused (the client does not
// interpret them). A resolved path holds at most TARVO_MAX_PATH characters.
//
// Canonical forms used inside the client and the stores: an item "/a/b", a
// directory "/a/b/", the root "/".
#ifndef TARVO_PATHS_H
#define TARVO_PATHS_H

#include <string>
#include <string_view>
#include <vector>

#include "status.h"

namespace tarvo {

inline constexpr size_t TARVO_MAX_PATH = 1023;

struct ResolvedPath {
    std::string path;         // canonical, no trailing "/" except the root
    bool dir_form = false;    // the caller wrote a directory path (or "")
    bool is_root() const { return path == "/"; }
};

// The bind point in directory form ("/" for "" or "/"). A relative bind path
// is taken from the root. BAD_PATH or PATH_TOO_LONG.
Status normalize_bind_point(std::string_view path, std::string *out);

// `user` resolved against `bind_point` (directory form). The empty path is
// the bind point itself. BAD_PATH or PATH_TOO_LONG.
Status resolve_path(std::string_view bind_point, std::string_view user,
                    ResolvedPath *out);

// "/a/b" -> "/a/b/"; "/" stays.
std::string dir_form(std::string_view canonical);
// "/a/b" or "/a/b/" -> "/a/"; the root's parent is the root.
std::string parent_dir(std::string_view path);
// "/a/b" or "/a/b/" -> "b"; the root gives "".
std::string_view leaf_name(std::string_view path);
// Every directory strictly above `path`, root excluded, outermost first:
// "/a/b/c" -> "/a/", "/a/b/".
std::vector<std::string> ancestor_dirs(std::string_view path);
// The first string greater than every path below directory `dir` ("/a/" ->
// "/a0"): the exclusive upper bound of a subtree range.
std::string subtree_end(std::string_view dir);

}  // namespace tarvo

#endif
