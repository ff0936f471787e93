// tarvoctl: administration of a data directory.
//   tarvoctl [-d datadir] setting <name> [<value>]   read or change a setting
//   tarvoctl [-d datadir] check                      integrity of every plane
//   tarvoctl [-d datadir] info                       files, counts, settings, locks
// Exit status 0 on success, 1 when a check finds problems or a request
// fails, 2 for a usage error.
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "settings.h"
#include "store.h"

using namespace tarvo;

namespace {

int usage()
{
    std::fprintf(stderr,
                 "usage: tarvoctl [-d datadir] setting <name> [<value>]\n"
                 "       tarvoctl [-d datadir] check\n"
                 "       tarvoctl [-d datadir] info\n");
    return 2;
}

int report(const Status &s)
{
    std::fprintf(stderr, "tarvoctl: %s%s%s\n", code_text(s.code), s.detail.empty() ? "" : ": ",
                 s.detail.c_str());
    return 1;
}

int setting(const std::string &dir, const std::vector<std::string> &args)
{
    if (args.empty() || args.size() > 2)
        return usage();
    if (args.size() == 2) {
        Status s = save_setting(dir, args[0], args[1]);
        return s.ok() ? 0 : report(s);
    }
    Settings settings;
    std::string value;
    Status s = load_settings(dir, &settings);
    if (s.ok())
        s = setting_text(settings, args[0], &value);
    if (!s.ok())
        return report(s);
    std::printf("%s\n", value.c_str());
    return 0;
}

int check(const std::string &dir)
{
    int result = 0;
    for (Plane plane : all_planes()) {
        std::unique_ptr<Store> store;
        std::string file = plane_file(dir, plane);
        Status s = open_sqlite_store_existing(file, StoreOptions{}, &store);
        if (s.code == TARVO_ERR_NOT_FOUND) {
            std::printf("%s: not created yet\n", plane_name(plane));
            continue;
        }
        std::vector<std::string> problems;
        if (s.ok())
            s = store->check(&problems);
        if (!s.ok()) {
            std::printf("%s: %s: %s\n", plane_name(plane), code_text(s.code), s.detail.c_str());
            result = 1;
            continue;
        }
        std::printf("%s: %s\n", plane_name(plane), problems.empty() ? "ok" : "damaged");
        for (const std::string &p : problems)
            std::printf("  %s\n", p.c_str());
        if (!problems.empty())
            result = 1;
    }
    return result;
}

int info(const std::string &dir)
{
    std::printf("data directory: %s\n", dir.c_str());
    Settings settings;
    Status s = load_settings(dir, &settings);
    if (!s.ok())
        return report(s);
    for (const std::string &name : setting_names()) {
        std::string value;
        setting_text(settings, name, &value);
        std::printf("setting %s %s\n", name.c_str(), value.c_str());
    }
    int result = 0;
    for (Plane plane : all_planes()) {
        std::string file = plane_file(dir, plane);
        std::unique_ptr<Store> store;
        s = open_sqlite_store_existing(file, StoreOptions{}, &store);
        if (s.code == TARVO_ERR_NOT_FOUND) {
            std::printf("plane %s: not created yet\n", plane_name(plane));
            continue;
        }
        StoreStats stats;
        if (s.ok())
            s = store->stats(&stats);
        if (!s.ok()) {
            std::printf("plane %s: %s: %s\n", plane_name(plane), code_text(s.code),
                        s.detail.c_str());
            result = 1;
            continue;
        }
        struct stat st {};
        ::stat(file.c_str(), &st);
        std::printf("plane %s: %s, %lld bytes, %llu items, %llu directories, %llu events "
                    "(sequence %llu..%llu), %llu locks\n",
                    plane_name(plane), file.c_str(), static_cast<long long>(st.st_size),
                    static_cast<unsigned long long>(stats.items),
                    static_cast<unsigned long long>(stats.dirs),
                    static_cast<unsigned long long>(stats.events),
                    static_cast<unsigned long long>(stats.first_event),
                    static_cast<unsigned long long>(stats.last_event),
                    static_cast<unsigned long long>(stats.locks));
        // Who holds what, for an engineer wondering why a write is refused.
        std::vector<Lock> held;
        if (stats.locks && store->locks(&held).ok())
            for (const Lock &lock : held)
                std::printf("  %s-lock on %s by %s\n",
                            lock.mode == LockMode::WRITE ? "write" : "read", lock.path.c_str(),
                            lock.holder.name().c_str());
    }
    return result;
}

}  // namespace

int main(int argc, char **argv)
{
    std::vector<std::string> args(argv + 1, argv + argc);
    std::string dir;
    if (args.size() >= 2 && args[0] == "-d") {
        dir = args[1];
        args.erase(args.begin(), args.begin() + 2);
        ::setenv("TARVO_DATA_DIR", dir.c_str(), 1);
    }
    if (args.empty())
        return usage();
    Status s = resolve_data_dir(&dir);
    if (!s.ok())
        return report(s);
    std::string command = args[0];
    args.erase(args.begin());
    if (command == "setting")
        return setting(dir, args);
    if (command == "check" && args.empty())
        return check(dir);
    if (command == "info" && args.empty())
        return info(dir);
    return usage();
}
