// Measures the client through its C interface: creating N items one request
// at a time, then a full datalist of that directory read batch by batch as
// the console does (in a child process, so that its peak memory is the
// listing's alone). Usage: tarvo_bench [N] (data directory from
// TARVO_DATA_DIR; use an empty one).
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "platform/tarvo.h"

namespace {

double seconds_since(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

long peak_kib()
{
    struct rusage ru;
    getrusage(RUSAGE_SELF, &ru);
    return ru.ru_maxrss;
}

int list_all(unsigned long expected)
{
    tarvo_bind_h_td h = nullptr;
    if (_tarvo_bind(&h, "/bench", 0))
        return 1;
    auto start = std::chrono::steady_clock::now();
    std::string next;
    unsigned long total = 0, batches = 0, bytes = 0;
    for (;;) {
        uint32_t count = 0xFFFFFFFF;
        tarvo_datalist_h_td list = nullptr;
        int rc = tarvo_datalist(h, "", next.c_str(), &count, &list,
                                next.empty() ? 0 : TARVO_ACCESS_OPTION_NEXT);
        if (rc)
            return 2;
        char *name;
        tarvo_item_datatype_td dt;
        void *value;
        uint32_t len;
        while (tarvo_datalist_next(list, &name, &dt, &value, &len, nullptr) == 0 && name) {
            ++total;
            bytes += len;
        }
        int more = 0;
        tarvo_datalist_get_more_flag(list, &more);
        if (more && tarvo_datalist_last(list, &name, &dt, &value, &len, nullptr) == 0 && name)
            next = name;
        tarvo_datalist_free(list);
        ++batches;
        if (!more)
            break;
    }
    std::printf("datalist: %lu entries (%lu value bytes) in %lu batches, %.2f s, peak RSS %ld KiB\n",
                total, bytes, batches, seconds_since(start), peak_kib());
    _tarvo_unbind(h);
    return total == expected ? 0 : 3;
}

}  // namespace

int main(int argc, char **argv)
{
    unsigned long n = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 100000;
    tarvo_bind_h_td h = nullptr;
    if (_tarvo_bind(&h, "/bench", 0)) {
        std::fprintf(stderr, "bind failed\n");
        return 1;
    }
    auto start = std::chrono::steady_clock::now();
    char path[64];
    for (unsigned long i = 0; i < n; ++i) {
        std::snprintf(path, sizeof path, "item%07lu", i);
        uint64_t v = i;
        if (tarvo_item_create(h, path, TARVO_DATATYPE_UINT64, &v, 8, 0, 0)) {
            std::fprintf(stderr, "create %s failed\n", path);
            return 1;
        }
    }
    double t = seconds_since(start);
    std::printf("create: %lu items in %.2f s (%.0f per second), peak RSS %ld KiB\n", n, t, n / t,
                peak_kib());
    _tarvo_unbind(h);
    std::fflush(stdout);
    pid_t pid = fork();
    if (pid == 0) {
        int rc = list_all(n);
        std::fflush(stdout);
        _exit(rc);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}
