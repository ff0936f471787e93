#include "holder.h"

#include <signal.h>
#include <unistd.h>

#include <cerrno>

#include <cstdio>
#include <fstream>
#include <random>
#include <sstream>

namespace tarvo {
namespace {

std::string boot_id()
{
    static const std::string id = [] {
        std::ifstream in("/proc/sys/kernel/random/boot_id");
        std::string line;
        std::getline(in, line);
        return line;
    }();
    return id;
}

// The state letter and start time (field 22) of a process; false when it
// has no entry. The command name (field 2) may hold blanks and
// parentheses, so the fields are counted after its last ")".
bool process_stat(int64_t pid, char *state, int64_t *start)
{
    std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    size_t close = text.rfind(')');
    if (close == std::string::npos)
        return false;
    std::istringstream fields(text.substr(close + 1));
    std::string field;
    for (int index = 3; fields >> field; ++index) {
        if (index == 3)
            *state = field.empty() ? '?' : field[0];
        if (index == 22) {
            *start = std::strtoll(field.c_str(), nullptr, 10);
            return true;
        }
    }
    return false;
}

}  // namespace

std::string Holder::name() const
{
    return "bind " + bind_id + " of process " + std::to_string(pid);
}

Holder new_holder()
{
    Holder h;
    std::random_device random;
    std::uniform_int_distribution<uint64_t> bits;
    char id[17];
    std::snprintf(id, sizeof id, "%016llx", static_cast<unsigned long long>(bits(random)));
    h.bind_id = id;
    h.pid = getpid();
    char state = 0;
    process_stat(h.pid, &state, &h.start);
    h.boot = boot_id();
    return h;
}

bool holder_alive(const Holder &holder)
{
    if (holder.boot != boot_id())
        return false;
    char state = 0;
    int64_t start = -1;
    // Without /proc (start unknown) only the pid can be asked about.
    if (holder.start == 0)
        return kill(static_cast<pid_t>(holder.pid), 0) == 0 || errno == EPERM;
    if (!process_stat(holder.pid, &state, &start))
        return false;
    return start == holder.start && state != 'Z' && state != 'X';
}

}  // namespace tarvo
