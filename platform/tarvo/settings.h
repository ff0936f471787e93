// The data directory and the store settings kept in it.
//
// The data directory is TARVO_DATA_DIR when set (created when missing), else
// /var/lib/tarvo when it exists and is writable, else
// $HOME/.local/state/tarvo (created). It holds one database file per plane
// (shared.db, local.db, admin.db) and the text file "settings", one
// "<name> <value>" line per setting that differs from its default.
//
// Everything the client creates there is private whatever the umask: the
// directories 0700, the files store_file_mode() (0600, or 0660 in a
// directory its group may write, which is how an administrator shares a
// store with a group).
#ifndef TARVO_SETTINGS_H
#define TARVO_SETTINGS_H

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "status.h"

namespace tarvo {

enum class Plane { SHARED, LOCAL, ADMIN };

struct Settings {
    uint32_t batch_entries = 1000;      // entries per list batch
    uint64_t batch_bytes = 1u << 20;    // names and values per list batch
    uint64_t event_window = 10000;      // events kept per plane
    uint32_t busy_timeout_ms = 5000;    // wait for another process's write
    std::string shared_store = "sqlite";  // or etcd://HOST:PORT[,...][/PREFIX]
};

// The plane a bind options word selects.
Plane plane_of_options(uint32_t options);
const char *plane_name(Plane plane);
const std::vector<Plane> &all_planes();

// Finds (and creates when needed) the data directory. DATA_DIR on failure.
Status resolve_data_dir(std::string *dir);
// Finds the data directory without creating or checking it (for tools that
// only read). DATA_DIR when there is no candidate at all.
Status locate_data_dir(std::string *dir);
// The mode of the files the client creates in `dir`.
mode_t store_file_mode(const std::string &dir);
std::string plane_file(const std::string &dir, Plane plane);

// The settings of a data directory; defaults when the file is absent.
// STORE_CORRUPT for a line that cannot be read, DATA_DIR for a file that
// cannot be.
Status load_settings(const std::string &dir, Settings *settings);
// Writes one setting (a temporary file renamed into place). BAD_ARGUMENT for
// an unknown name or a value out of range.
Status save_setting(const std::string &dir, const std::string &name,
                    const std::string &value);
// The value of one setting as text; BAD_ARGUMENT for an unknown name.
Status setting_text(const Settings &settings, const std::string &name,
                    std::string *value);
const std::vector<std::string> &setting_names();

// Where the shared plane lives: TARVO_SHARED_STORE when set and not empty,
// else the shared_store setting.
std::string shared_store_of(const Settings &settings);
// "sqlite", or an etcd location; BAD_ARGUMENT naming what is wrong.
Status check_shared_store(const std::string &text);
// The members ("host:port") and the prefix ("tarvo" when none is given) of
// etcd://HOST:PORT[,HOST:PORT...][/PREFIX]; BAD_ARGUMENT otherwise.
Status parse_etcd_location(const std::string &text, std::vector<std::string> *endpoints,
                           std::string *prefix);

}  // namespace tarvo

#endif
