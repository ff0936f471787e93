#include "registry.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>

#include "platform/bag.h"

#ifndef TARVO_BAG_DEFAULT_PATH
#define TARVO_BAG_DEFAULT_PATH "/usr/local/share/tarvo/bags"
#endif

namespace tarvo_bag {

namespace {

constexpr std::uintmax_t MAX_SCHEMA_FILE = 1u << 20;

std::vector<std::string> split_path(const std::string &path)
{
    std::vector<std::string> folders;
    std::stringstream in(path);
    std::string folder;
    while (std::getline(in, folder, ':'))
        if (!folder.empty())
            folders.push_back(folder);
    return folders;
}

} // namespace

const Registry &Registry::global()
{
    static std::once_flag once;
    static std::unique_ptr<Registry> registry;
    std::call_once(once, [] {
        const char *env = std::getenv("TARVO_BAG_PATH");
        registry = load(env != nullptr && *env != '\0' ? env : TARVO_BAG_DEFAULT_PATH);
    });
    return *registry;
}

std::unique_ptr<Registry> Registry::load(const std::string &path)
{
    auto registry = std::make_unique<Registry>();
    for (const std::string &folder : split_path(path))
        registry->load_folder(folder);
    return registry;
}

void Registry::load_folder(const std::string &folder)
{
    namespace fs = std::filesystem;
    std::error_code ec;
    std::vector<fs::path> files;
    for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
        const fs::path &p = it->path();
        if (p.extension() == ".x" && it->is_regular_file(ec))
            files.push_back(p);
    }
    std::sort(files.begin(), files.end());
    for (const fs::path &p : files) {
        std::string name = p.filename().string();
        if (std::find(seen_file_names_.begin(), seen_file_names_.end(), name) !=
            seen_file_names_.end())
            continue;
        seen_file_names_.push_back(name);
        load_file(p.string());
    }
}

void Registry::load_file(const std::string &file)
{
    std::error_code ec;
    auto size = std::filesystem::file_size(file, ec);
    if (!ec && size > MAX_SCHEMA_FILE) {
        diagnostics_ += file + ":1: expected a schema file of at most 1 MiB\n";
        return;
    }
    std::ifstream in(file, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    if (!in) {
        diagnostics_ += file + ":1: expected a readable schema file (" +
                        std::strerror(errno) + ")\n";
        return;
    }
    ParseResult parsed = parse_schema(text.str(), file);
    if (!parsed.schema) {
        diagnostics_ += parsed.error + "\n";
        return;
    }
    for (const BagDeclaration &decl : parsed.schema->bags) {
        Key key{decl.name, decl.major, decl.minor};
        auto it = bags_.find(key);
        if (it != bags_.end()) {
            const RegisteredBag &first = it->second;
            diagnostics_ += file + ":" + std::to_string(decl.line) +
                            ": expected a new bag version, '" + decl.name +
                            "' version " + std::to_string(decl.major) + "." +
                            std::to_string(decl.minor) + " is already declared in " +
                            first.schema->file + ":" +
                            std::to_string(first.declaration->line) + "\n";
            continue;
        }
        bags_.emplace(key, RegisteredBag{&decl, parsed.schema});
    }
}

int Registry::find(std::string_view name, int64_t major, int64_t minor,
                   const RegisteredBag **bag) const
{
    if (major >= 0 && major <= INT32_MAX && minor >= 0 && minor <= INT32_MAX) {
        auto it = bags_.find(Key{std::string(name), int32_t(major), int32_t(minor)});
        if (it != bags_.end()) {
            *bag = &it->second;
            return 0;
        }
    }
    /* Keys sort by name first, so any version of the name is at or after
     * (name, INT32_MIN, INT32_MIN). */
    auto it = bags_.lower_bound(Key{std::string(name), INT32_MIN, INT32_MIN});
    if (it != bags_.end() && std::get<0>(it->first) == name)
        return BAG_ERR_VERSION;
    return BAG_ERR_TYPE_NOT_REGISTERED;
}

std::vector<const RegisteredBag *> Registry::all() const
{
    std::vector<const RegisteredBag *> list;
    for (const auto &entry : bags_)
        list.push_back(&entry.second);
    return list;
}

} // namespace tarvo_bag

extern "C" const char *bag_schema_diagnostics(void)
{
    const std::string &text = tarvo_bag::Registry::global().diagnostics();
    return text.empty() ? nullptr : text.c_str();
}
