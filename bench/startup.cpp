// Start-up benchmark: starts the console at a pseudo-terminal, answers the
// initial bind question with "/" and measures the time until the first
// command prompt appears; then quits it. Prints the figures in milliseconds.
//
//   startup_bench CONSOLE [RUNS]    (default 50 runs)
//
// Two figures: every start on a fresh data directory (the store is created,
// as at the first start on a new machine), and every start on the same,
// existing data directory (the usual case).
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <numeric>
#include <poll.h>
#include <pty.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

// Reads from the terminal until `text` has been seen; false on timeout.
bool WaitFor(int fd, const std::string &text, std::string &seen,
             int timeout_ms) {
    auto deadline = Clock::now() + std::chrono::milliseconds(timeout_ms);
    while (seen.find(text) == std::string::npos) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                        deadline - Clock::now())
                        .count();
        if (left <= 0)
            return false;
        pollfd p = {fd, POLLIN, 0};
        if (poll(&p, 1, static_cast<int>(left)) <= 0)
            continue;
        char buffer[4096];
        ssize_t n = read(fd, buffer, sizeof(buffer));
        if (n <= 0)
            return false;
        seen.append(buffer, static_cast<size_t>(n));
    }
    return true;
}

// One run; the milliseconds to the first command prompt, or -1.
double RunOnce(const char *console, const std::string &data_dir) {
    int master = -1;
    auto start = Clock::now();
    pid_t pid = forkpty(&master, nullptr, nullptr, nullptr);
    if (pid < 0)
        return -1;
    if (pid == 0) {
        setenv("TARVO_DATA_DIR", data_dir.c_str(), 1);
        // The console keeps its history under HOME: not the user's own.
        setenv("HOME", data_dir.c_str(), 1);
        execl(console, console, static_cast<char *>(nullptr));
        _exit(127);
    }
    std::string seen;
    double ms = -1;
    if (WaitFor(master, "bind point>/", seen, 10000)) {
        (void)!write(master, "\r", 1);
        if (WaitFor(master, "tarvocon:/> ", seen, 10000))
            ms = std::chrono::duration<double, std::milli>(Clock::now() - start)
                     .count();
    }
    (void)!write(master, "quit\r", 5);
    std::string rest;
    WaitFor(master, "\x01never", rest, 2000); // drain until the console ends
    int status;
    waitpid(pid, &status, 0);
    close(master);
    return ms;
}

} // namespace

int main(int argc, char **argv) {
    if (argc < 2) {
        fprintf(stderr, "usage: %s CONSOLE [RUNS]\n", argv[0]);
        return 2;
    }
    int runs = argc > 2 ? atoi(argv[2]) : 50;
    char base[] = "/tmp/tarvocon-bench.XXXXXX";
    if (mkdtemp(base) == nullptr) {
        perror("mkdtemp");
        return 1;
    }
    auto measure = [&](bool fresh) {
        std::vector<double> times;
        for (int i = 0; i < runs; i++) {
            std::string dir = std::string(base) + "/" +
                              (fresh ? "run" + std::to_string(i) : "shared");
            double ms = RunOnce(argv[1], dir);
            if (ms < 0) {
                fprintf(stderr, "run %d: no prompt\n", i);
                continue;
            }
            times.push_back(ms);
        }
        if (times.empty())
            return false;
        std::sort(times.begin(), times.end());
        double mean =
            std::accumulate(times.begin(), times.end(), 0.0) / times.size();
        printf("start-up to the first prompt, %s data directory, %zu runs: "
               "min %.1f ms, median %.1f ms, mean %.1f ms, max %.1f ms\n",
               fresh ? "fresh" : "existing", times.size(), times.front(),
               times[times.size() / 2], mean, times.back());
        return true;
    };
    bool ok = measure(true) && measure(false);
    std::string cleanup = std::string("rm -rf ") + base;
    (void)!system(cleanup.c_str());
    return ok ? 0 : 1;
}
