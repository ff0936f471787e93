// Completion benchmark: TAB and "?" at a path position, from the key to the
// redrawn line, in a directory of N items (default 100,000) and, as the
// reference, in a directory of 10 items; and TAB on a command keyword,
// which asks nothing of the database. Prints milliseconds.
//
//   completion_bench CONSOLE [N] [RUNS]    (default 100000 items, 20 runs)
//
// The items are created through the client beforehand (one request each,
// which takes a while for large N); the console then runs at a
// pseudo-terminal on that data directory, bound to "/".
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <pty.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "platform/tarvo.h"

namespace {

using Clock = std::chrono::steady_clock;
const char PROMPT[] = "tarvocon:/> ";

// Reads from the terminal until `text` appears in `seen` at or after
// `from`; false on timeout.
bool WaitFor(int fd, const std::string &text, std::string &seen, size_t from = 0,
             int timeout_ms = 10000)
{
    auto deadline = Clock::now() + std::chrono::milliseconds(timeout_ms);
    while (seen.find(text, from) == std::string::npos) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now())
                        .count();
        if (left <= 0)
            return false;
        pollfd p = {fd, POLLIN, 0};
        if (poll(&p, 1, static_cast<int>(left)) <= 0)
            continue;
        char buffer[65536];
        ssize_t n = read(fd, buffer, sizeof(buffer));
        if (n <= 0)
            return false;
        seen.append(buffer, static_cast<size_t>(n));
    }
    return true;
}

// Reads whatever arrives until the terminal has been quiet for 100 ms.
void Drain(int fd, std::string &seen)
{
    for (;;) {
        pollfd p = {fd, POLLIN, 0};
        if (poll(&p, 1, 100) <= 0)
            return;
        char buffer[65536];
        ssize_t n = read(fd, buffer, sizeof(buffer));
        if (n <= 0)
            return;
        seen.append(buffer, static_cast<size_t>(n));
    }
}

bool CreateItems(const char *directory, int n)
{
    tarvo_bind_h_td h = nullptr;
    if (_tarvo_bind(&h, "/", 0) != 0)
        return false;
    for (int i = 0; i < n; i++) {
        char path[64];
        snprintf(path, sizeof path, "%si%07d", directory, i);
        uint32_t value = static_cast<uint32_t>(i);
        if (tarvo_item_create(h, path, TARVO_DATATYPE_UINT32, &value, 4, 0, 0) != 0) {
            _tarvo_unbind(h);
            return false;
        }
    }
    _tarvo_unbind(h);
    return true;
}

struct Console {
    int master = -1;
    pid_t pid = -1;
    std::string seen;
};

bool Start(Console &console, const char *program)
{
    struct winsize size = {24, 80, 0, 0};
    console.pid = forkpty(&console.master, nullptr, nullptr, &size);
    if (console.pid < 0)
        return false;
    if (console.pid == 0) {
        setenv("TERM", "xterm", 1);
        execl(program, program, static_cast<char *>(nullptr));
        _exit(127);
    }
    if (!WaitFor(console.master, "bind point>/", console.seen))
        return false;
    (void)!write(console.master, "\r", 1);
    return WaitFor(console.master, PROMPT, console.seen);
}

void Stop(Console &console)
{
    (void)!write(console.master, "quit\r", 5);
    Drain(console.master, console.seen);
    int status;
    waitpid(console.pid, &status, 0);
    close(console.master);
}

// Types `line`, then measures `key` until the texts of `shown` have
// appeared after it, in order; the line is then discarded with Ctrl-C.
// Milliseconds, or -1.
double Measure(Console &console, const std::string &line, const char *key,
               const std::vector<std::string> &shown)
{
    (void)!write(console.master, line.data(), line.size());
    Drain(console.master, console.seen);
    size_t mark = console.seen.size();
    auto start = Clock::now();
    (void)!write(console.master, key, 1);
    bool ok = true;
    for (const std::string &text : shown) {
        ok = ok && WaitFor(console.master, text, console.seen, mark);
        mark = ok ? console.seen.find(text, mark) + text.size() : mark;
    }
    double ms = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
    (void)!write(console.master, "\x03", 1);
    size_t after = console.seen.size();
    ok = ok && WaitFor(console.master, PROMPT, console.seen, after);
    Drain(console.master, console.seen);
    return ok ? ms : -1;
}

void Report(const char *what, std::vector<double> times)
{
    if (times.empty()) {
        printf("%-46s no result\n", what);
        return;
    }
    std::sort(times.begin(), times.end());
    printf("%-46s %zu runs: min %6.1f ms, median %6.1f ms, max %6.1f ms\n", what,
           times.size(), times.front(), times[times.size() / 2], times.back());
}

} // namespace

int main(int argc, char **argv)
{
    if (argc < 2) {
        fprintf(stderr, "usage: %s CONSOLE [N] [RUNS]\n", argv[0]);
        return 2;
    }
    int n = argc > 2 ? atoi(argv[2]) : 100000;
    int runs = argc > 3 ? atoi(argv[3]) : 20;
    char base[] = "/tmp/tarvocon-completion-bench.XXXXXX";
    if (mkdtemp(base) == nullptr) {
        perror("mkdtemp");
        return 1;
    }
    setenv("TARVO_DATA_DIR", base, 1);
    auto start = Clock::now();
    if (!CreateItems("/big/", n) || !CreateItems("/small/", 10)) {
        fprintf(stderr, "could not create the items\n");
        return 1;
    }
    printf("created %d + 10 items in %.1f s\n", n,
           std::chrono::duration<double>(Clock::now() - start).count());

    Console console;
    if (!Start(console, argv[1])) {
        fprintf(stderr, "the console did not start\n");
        return 1;
    }
    // The first batch of /big/ holds i0000000 .. i0000999: TAB completes
    // to their common part, "?" lists them, then the line comes back.
    struct {
        const char *what;
        std::string line;
        const char *key;
        std::vector<std::string> shown;
    } cases[] = {
        {"TAB, keyword (no database)", "li", "\t", {PROMPT, "list"}},
        {"TAB, path in a directory of 10 items", "get /small/", "\t",
         {PROMPT, "get /small/i00000"}},
        {"TAB, path in the large directory", "get /big/", "\t", {PROMPT, "get /big/i0000"}},
        {"\"?\", path in a directory of 10 items", "get /small/", "?",
         {"/small/i0000009", PROMPT, "get /small/"}},
        {"\"?\", path in the large directory", "get /big/", "?",
         {"/big/i0000999", PROMPT, "get /big/"}},
    };
    bool ok = true;
    for (const auto &c : cases) {
        std::vector<double> times;
        for (int i = 0; i < runs; i++) {
            double ms = Measure(console, c.line, c.key, c.shown);
            if (ms >= 0)
                times.push_back(ms);
        }
        ok = ok && !times.empty();
        Report(c.what, times);
    }
    Stop(console);
    std::string cleanup = std::string("rm -rf ") + base;
    (void)!system(cleanup.c_str());
    return ok ? 0 : 1;
}
