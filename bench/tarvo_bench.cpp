// Measures the client through its C interface. Data directory from
// TARVO_DATA_DIR; use an empty one.
//
//   tarvo_bench [N]        creating N items one request at a time, then a
//                          full datalist of that directory read batch by
//                          batch as the console does (in a child process, so
//                          that its peak memory is the listing's alone)
//   tarvo_bench bulk N     N creates in one bulk ended atomically
//   tarvo_bench sets N     N creates, then N sets each in its own committed
//                          transaction (only the sets are timed)
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

// CPU seconds (user and system) of this process so far: on a busy machine
// the wall time says more about the other processes.
double cpu_seconds()
{
    struct rusage ru;
    getrusage(RUSAGE_SELF, &ru);
    return ru.ru_utime.tv_sec + ru.ru_stime.tv_sec +
           (ru.ru_utime.tv_usec + ru.ru_stime.tv_usec) / 1e6;
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

int create(tarvo_bind_h_td h, unsigned long i)
{
    char path[64];
    std::snprintf(path, sizeof path, "item%07lu", i);
    uint32_t v = static_cast<uint32_t>(i);
    return tarvo_item_create(h, path, TARVO_DATATYPE_UINT32, &v, 4, 0, 0);
}

int bulk(unsigned long n)
{
    tarvo_bind_h_td h = nullptr;
    if (_tarvo_bind(&h, "/bench", 0))
        return 1;
    auto start = std::chrono::steady_clock::now();
    double cpu = cpu_seconds();
    int rc = tarvo_bulk_start(h, TARVO_BULK_OPTION_ATOMIC);
    for (unsigned long i = 0; i < n && !rc; ++i)
        rc = create(h, i);
    double collected = seconds_since(start), cpu_collected = cpu_seconds() - cpu;
    if (!rc)
        rc = tarvo_bulk_end(h);
    double t = seconds_since(start);
    std::printf("bulk: %lu creates in %.2f s, %.2f s CPU (collected: %.2f s, %.2f s CPU), rc 0x%x\n",
                n, t, cpu_seconds() - cpu, collected, cpu_collected, static_cast<unsigned>(rc));
    _tarvo_unbind(h);
    return rc ? 1 : 0;
}

int sets(unsigned long n)
{
    tarvo_bind_h_td h = nullptr;
    if (_tarvo_bind(&h, "/bench", 0) || tarvo_bulk_start(h, TARVO_BULK_OPTION_ATOMIC))
        return 1;
    int rc = 0;
    for (unsigned long i = 0; i < n && !rc; ++i)
        rc = create(h, i);
    if (rc || tarvo_bulk_end(h))
        return 1;
    auto start = std::chrono::steady_clock::now();
    double cpu = cpu_seconds();
    char path[64];
    for (unsigned long i = 0; i < n && !rc; ++i) {
        std::snprintf(path, sizeof path, "item%07lu", i);
        uint32_t v = static_cast<uint32_t>(i + 1);
        rc = tarvo_transaction_start(h, 300, 0, 0);
        if (!rc)
            rc = tarvo_item_set(h, path, TARVO_DATATYPE_UINT32, &v, 4, 0);
        if (!rc)
            rc = tarvo_transaction_commit(h);
    }
    std::printf("sets: %lu committed sets in %.2f s, %.2f s CPU, rc 0x%x\n", n,
                seconds_since(start), cpu_seconds() - cpu, static_cast<unsigned>(rc));
    _tarvo_unbind(h);
    return rc ? 1 : 0;
}

int main(int argc, char **argv)
{
    if (argc == 3 && std::string(argv[1]) == "bulk")
        return bulk(std::strtoul(argv[2], nullptr, 10));
    if (argc == 3 && std::string(argv[1]) == "sets")
        return sets(std::strtoul(argv[2], nullptr, 10));
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
