#include "paths.h"

namespace tarvo {
namespace {

// Checks the components of an absolute path; a trailing "/" is allowed.
Status check_components(std::string_view path)
{
    size_t pos = 1;
    while (pos < path.size()) {
        size_t end = path.find('/', pos);
        if (end == std::string_view::npos)
            end = path.size();
        std::string_view comp = path.substr(pos, end - pos);
        if (comp.empty())
            return error(TARVO_ERR_BAD_PATH,
                         "empty path component in " + std::string(path));
        if (comp == "." || comp == "..")
            return error(TARVO_ERR_BAD_PATH, std::string("\"")
                                                 .append(comp)
                                                 .append("\" is not allowed in ")
                                                 .append(path));
        pos = end + 1;
    }
    return ok_status();
}

Status check_length(std::string_view path)
{
    if (path.size() > TARVO_MAX_PATH)
        return error(TARVO_ERR_PATH_TOO_LONG,
                     "path of " + std::to_string(path.size()) +
                         " characters, at most " +
                         std::to_string(TARVO_MAX_PATH) + " allowed");
    return ok_status();
}

}  // namespace

Status normalize_bind_point(std::string_view path, std::string *out)
{
    std::string written = path.empty() || path[0] != '/' ? "/" : "";
    written += path;
    Status s = check_components(written);
    if (!s.ok())
        return s;
    s = check_length(written);
    if (!s.ok())
        return s;
    *out = dir_form(written);
    return ok_status();
}

Status resolve_path(std::string_view bind_point, std::string_view user,
                    ResolvedPath *out)
{
    std::string full;
    if (!user.empty() && user[0] == '/')
        full = user;
    else
        full = std::string(bind_point) + std::string(user);
    Status s = check_components(full);
    if (!s.ok())
        return s;
    s = check_length(full);
    if (!s.ok())
        return s;
    out->dir_form = user.empty() || full.back() == '/';
    if (full.size() > 1 && full.back() == '/')
        full.pop_back();
    out->path = std::move(full);
    return ok_status();
}

std::string dir_form(std::string_view canonical)
{
    std::string d(canonical);
    if (d.empty() || d.back() != '/')
        d += '/';
    return d;
}

std::string parent_dir(std::string_view path)
{
    if (path.size() > 1 && path.back() == '/')
        path.remove_suffix(1);
    size_t slash = path.rfind('/');
    if (slash == std::string_view::npos)
        return "/";
    return std::string(path.substr(0, slash + 1));
}

std::string_view leaf_name(std::string_view path)
{
    if (path.size() > 1 && path.back() == '/')
        path.remove_suffix(1);
    size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

std::vector<std::string> ancestor_dirs(std::string_view path)
{
    std::vector<std::string> dirs;
    if (path.size() > 1 && path.back() == '/')
        path.remove_suffix(1);
    for (size_t pos = path.find('/', 1); pos != std::string_view::npos;
         pos = path.find('/', pos + 1))
        dirs.emplace_back(path.substr(0, pos + 1));
    return dirs;
}

std::string subtree_end(std::string_view dir)
{
    std::string end(dir);
    end.back() = static_cast<char>('/' + 1);
    return end;
}

}  // namespace tarvo
