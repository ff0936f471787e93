#include "settings.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

namespace tarvo {
namespace {

struct SettingDef {
    const char *name;
    uint64_t min;
    uint64_t max;
    bool text;  // a word, not a number
};

constexpr SettingDef DEFS[] = {
    {"batch_entries", 1, 1000000, false},
    {"batch_bytes", 1, 1ull << 30, false},
    {"event_window", 1, 1000000000, false},
    {"busy_timeout_ms", 0, 600000, false},
    {"shared_store", 0, 0, true},
};

const SettingDef *find_def(const std::string &name)
{
    for (const SettingDef &d : DEFS)
        if (name == d.name)
            return &d;
    return nullptr;
}

Status parse_value(const SettingDef &def, const std::string &text, uint64_t *out)
{
    if (def.text)
        return check_shared_store(text);
    if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos ||
        text.size() > 12)
        return error(TARVO_ERR_BAD_ARGUMENT,
                     std::string(def.name) + ": \"" + text + "\" is not a number");
    uint64_t v = std::strtoull(text.c_str(), nullptr, 10);
    if (v < def.min || v > def.max)
        return error(TARVO_ERR_BAD_ARGUMENT,
                     std::string(def.name) + " must lie in " + std::to_string(def.min) +
                         ".." + std::to_string(def.max));
    *out = v;
    return ok_status();
}

void assign(Settings *s, const std::string &name, uint64_t v, const std::string &text)
{
    if (name == "shared_store")
        s->shared_store = text;
    else if (name == "batch_entries")
        s->batch_entries = static_cast<uint32_t>(v);
    else if (name == "batch_bytes")
        s->batch_bytes = v;
    else if (name == "event_window")
        s->event_window = v;
    else
        s->busy_timeout_ms = static_cast<uint32_t>(v);
}

// mkdir -p. Every directory made here is private (0700, whatever the
// umask); directories that exist keep the mode they have.
Status make_dirs(const std::string &dir)
{
    for (size_t pos = 1; pos <= dir.size(); ++pos) {
        if (pos != dir.size() && dir[pos] != '/')
            continue;
        std::string part = dir.substr(0, pos);
        if (::mkdir(part.c_str(), 0700) == 0)
            ::chmod(part.c_str(), 0700);
        else if (errno != EEXIST)
            return error(TARVO_ERR_DATA_DIR,
                         "cannot create " + part + ": " + std::strerror(errno));
    }
    struct stat st;
    if (::stat(dir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode))
        return error(TARVO_ERR_DATA_DIR, dir + " is not a directory");
    // One the process may not write still serves the stores it may read
    // (docs/store.md); what cannot be written is refused, naming the file.
    if (::access(dir.c_str(), X_OK) != 0)
        return error(TARVO_ERR_DATA_DIR, "cannot use " + dir + ": " + std::strerror(errno));
    return ok_status();
}

Status write_all(int fd, const std::string &text)
{
    for (size_t done = 0; done < text.size();) {
        ssize_t n = ::write(fd, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return error(TARVO_ERR_DATA_DIR, std::strerror(errno));
        done += static_cast<size_t>(n);
    }
    return ok_status();
}

// Writes `text` to a new file of the store's file mode, whatever the umask.
Status write_private_file(const std::string &dir, const std::string &file,
                          const std::string &text)
{
    mode_t mode = store_file_mode(dir);
    int fd = ::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, mode);
    if (fd < 0)
        return error(TARVO_ERR_DATA_DIR, "cannot write " + file + ": " + std::strerror(errno));
    Status s = ::fchmod(fd, mode) == 0 ? write_all(fd, text)
                                       : error(TARVO_ERR_DATA_DIR, std::strerror(errno));
    if (s.ok() && ::fsync(fd) != 0)
        s = error(TARVO_ERR_DATA_DIR, std::strerror(errno));
    if (::close(fd) != 0 && s.ok())
        s = error(TARVO_ERR_DATA_DIR, std::strerror(errno));
    if (!s.ok())
        s.detail = "cannot write " + file + ": " + s.detail;
    return s;
}

// Where the data directory is; *ours says whether the client makes it
// when it is missing (an administrator makes /var/lib/tarvo).
Status locate(std::string *dir, bool *ours)
{
    const char *env = std::getenv("TARVO_DATA_DIR");
    *ours = true;
    if (env && *env) {
        *dir = env;
        return ok_status();
    }
    struct stat st;
    if (::stat("/var/lib/tarvo", &st) == 0 && S_ISDIR(st.st_mode) &&
        ::access("/var/lib/tarvo", W_OK | X_OK) == 0) {
        *dir = "/var/lib/tarvo";
        *ours = false;
        return ok_status();
    }
    const char *home = std::getenv("HOME");
    if (!home || !*home)
        return error(TARVO_ERR_DATA_DIR,
                     "neither TARVO_DATA_DIR nor HOME is set and /var/lib/tarvo is not writable");
    *dir = std::string(home) + "/.local/state/tarvo";
    return ok_status();
}

}  // namespace

Plane plane_of_options(uint32_t options)
{
    if (options & TARVO_BIND_OPTION_LOCAL_PLANE)
        return Plane::LOCAL;
    if (options & TARVO_BIND_OPTION_ADMIN_PLANE)
        return Plane::ADMIN;
    return Plane::SHARED;
}

const char *plane_name(Plane plane)
{
    switch (plane) {
    case Plane::LOCAL:
        return "local";
    case Plane::ADMIN:
        return "admin";
    default:
        return "shared";
    }
}

const std::vector<Plane> &all_planes()
{
    static const std::vector<Plane> planes = {Plane::SHARED, Plane::LOCAL, Plane::ADMIN};
    return planes;
}

Status locate_data_dir(std::string *dir)
{
    bool ours = false;
    return locate(dir, &ours);
}

Status resolve_data_dir(std::string *dir)
{
    bool ours = false;
    Status s = locate(dir, &ours);
    return s.ok() && ours ? make_dirs(*dir) : s;
}

mode_t store_file_mode(const std::string &dir)
{
    struct stat st;
    if (::stat(dir.c_str(), &st) == 0 && (st.st_mode & S_IWGRP))
        return 0660;
    return 0600;
}

std::string plane_file(const std::string &dir, Plane plane)
{
    return dir + "/" + plane_name(plane) + ".db";
}

Status load_settings(const std::string &dir, Settings *settings)
{
    *settings = Settings{};
    const std::string file = dir + "/settings";
    // Absent means defaults; a file this user may not read must not
    // silently give other settings than the other users of the store have.
    struct stat st;
    if (::stat(file.c_str(), &st) != 0 && errno == ENOENT)
        return ok_status();
    std::ifstream in(file);
    if (!in)
        return error(TARVO_ERR_DATA_DIR, "cannot read " + file);
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        std::istringstream words(line);
        std::string name, value, extra;
        if (!(words >> name) || name[0] == '#')
            continue;
        const SettingDef *def = find_def(name);
        uint64_t v = 0;
        Status s = def && (words >> value) && !(words >> extra)
                       ? parse_value(*def, value, &v)
                       : error(TARVO_ERR_BAD_ARGUMENT, "unknown setting");
        if (!s.ok())
            return error(TARVO_ERR_STORE_CORRUPT, dir + "/settings line " +
                                                      std::to_string(number) + ": " + s.detail);
        assign(settings, name, v, value);
    }
    return ok_status();
}

Status save_setting(const std::string &dir, const std::string &name, const std::string &value)
{
    const SettingDef *def = find_def(name);
    if (!def)
        return error(TARVO_ERR_BAD_ARGUMENT, "unknown setting " + name);
    uint64_t v = 0;
    Status s = parse_value(*def, value, &v);
    if (!s.ok())
        return s;
    Settings current;
    s = load_settings(dir, &current);
    if (!s.ok())
        return s;
    assign(&current, name, v, value);
    const Settings defaults;
    std::ostringstream out;
    for (const SettingDef &d : DEFS) {
        std::string mine, dflt;
        setting_text(current, d.name, &mine);
        setting_text(defaults, d.name, &dflt);
        if (mine != dflt)
            out << d.name << ' ' << mine << '\n';
    }
    std::string tmp = dir + "/settings.tmp." + std::to_string(::getpid());
    s = write_private_file(dir, tmp, out.str());
    if (!s.ok()) {
        std::remove(tmp.c_str());
        return s;
    }
    if (std::rename(tmp.c_str(), (dir + "/settings").c_str()) != 0) {
        std::remove(tmp.c_str());
        return error(TARVO_ERR_DATA_DIR, "cannot replace " + dir + "/settings");
    }
    return ok_status();
}

Status setting_text(const Settings &s, const std::string &name, std::string *value)
{
    if (name == "batch_entries")
        *value = std::to_string(s.batch_entries);
    else if (name == "batch_bytes")
        *value = std::to_string(s.batch_bytes);
    else if (name == "event_window")
        *value = std::to_string(s.event_window);
    else if (name == "busy_timeout_ms")
        *value = std::to_string(s.busy_timeout_ms);
    else if (name == "shared_store")
        *value = s.shared_store;
    else
        return error(TARVO_ERR_BAD_ARGUMENT, "unknown setting " + name);
    return ok_status();
}

Status parse_etcd_location(const std::string &text, std::vector<std::string> *endpoints,
                           std::string *prefix)
{
    const std::string scheme = "etcd://";
    if (text.compare(0, scheme.size(), scheme) != 0)
        return error(TARVO_ERR_BAD_ARGUMENT,
                     "shared_store: \"" + text +
                         "\" is neither sqlite nor etcd://HOST:PORT[,HOST:PORT...][/PREFIX]");
    std::string members = text.substr(scheme.size());
    size_t slash = members.find('/');
    *prefix = slash == std::string::npos ? std::string() : members.substr(slash + 1);
    members.resize(std::min(slash, members.size()));
    if (prefix->empty())
        *prefix = "tarvo";
    if (prefix->find('|') != std::string::npos)
        return error(TARVO_ERR_BAD_ARGUMENT, "shared_store: an etcd prefix holds no '|'");
    endpoints->clear();
    std::istringstream list(members);
    std::string member;
    while (std::getline(list, member, ',')) {
        size_t colon = member.rfind(':');
        if (colon == std::string::npos || colon == 0 || colon + 1 == member.size() ||
            member.find_first_not_of("0123456789", colon + 1) != std::string::npos)
            return error(TARVO_ERR_BAD_ARGUMENT,
                         "shared_store: etcd member \"" + member + "\" is not HOST:PORT");
        endpoints->push_back(member);
    }
    if (endpoints->empty() || members.back() == ',')
        return error(TARVO_ERR_BAD_ARGUMENT, "shared_store: no etcd member in \"" + text + "\"");
    return ok_status();
}

Status check_shared_store(const std::string &text)
{
    if (text == "sqlite")
        return ok_status();
    std::vector<std::string> endpoints;
    std::string prefix;
    return parse_etcd_location(text, &endpoints, &prefix);
}

std::string shared_store_of(const Settings &settings)
{
    const char *env = std::getenv("TARVO_SHARED_STORE");
    return env && *env ? std::string(env) : settings.shared_store;
}

const std::vector<std::string> &setting_names()
{
    static const std::vector<std::string> names = [] {
        std::vector<std::string> v;
        for (const SettingDef &d : DEFS)
            v.push_back(d.name);
        return v;
    }();
    return names;
}

}  // namespace tarvo
