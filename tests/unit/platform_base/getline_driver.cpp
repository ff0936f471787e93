// Drives the line editor for the terminal tests. Arguments are steps run in
// order; readers are numbered from 0 and made at start (--readers N).
//   read R          qn_getline on reader R with prompt "R> "
//   prefill R TEXT  the same, with TEXT pre-filled
//   loop R          reads on reader R until no line comes back
//   yesno R D I     yes_or_no(R, "Proceed", D, I)
//   modes           prints whether the terminal is back in its normal modes
//   sigchld         installs a SIGCHLD handler without SA_RESTART (as the
//                   console does) and starts a child that ends 0.3 s later,
//                   in the middle of the next read
// Each read prints [status=S line="..."] (control characters as \xNN), or
// [null]; entered non-empty lines go into the reader's history, as the
// console does. With --job PIDFILE the steps run in a child process group
// made the terminal's foreground job, as a shell would run them (PIDFILE
// receives its process id). With --log FILE (first), results go to FILE instead of the
// terminal, so that the screen shows only what the editor drew.

#include <platform/getline.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <csignal>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>
#include <vector>

namespace {

FILE *g_log = stdout;

std::string shown(const char *line) {
    std::string out;
    for (const char *p = line; *p; ++p) {
        unsigned char c = static_cast<unsigned char>(*p);
        if (c < 0x20 || c == 0x7f || c == '\\' || c == '"') {
            char buf[8];
            std::snprintf(buf, sizeof(buf), "\\x%02x", c);
            out += buf;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out;
}

// Returns false when no line came back.
bool read_one(getline_data *gl, int reader, const char *prefill) {
    std::string prompt = std::to_string(reader) + "> ";
    uint8_t status = 0;
    char *line = qn_getline(gl, prompt.c_str(), prefill, &status);
    if (line == nullptr) {
        std::fprintf(g_log, "[null]\n");
        std::fflush(g_log);
        return false;
    }
    std::fprintf(g_log, "[status=%u line=\"%s\" length=%zu]\n", status, shown(line).c_str(),
                 std::strlen(line));
    std::fflush(g_log);
    if (status == GETLINE_ENTER)
        getline_histadd(gl, line);
    std::free(line);
    return true;
}

void print_modes() {
    termios t{};
    if (tcgetattr(STDIN_FILENO, &t) != 0) {
        std::fprintf(g_log, "[modes none]\n");
    } else {
        std::fprintf(g_log, "[modes icanon=%d echo=%d isig=%d intr=%d]\n", (t.c_lflag & ICANON) != 0,
                     (t.c_lflag & ECHO) != 0, (t.c_lflag & ISIG) != 0, t.c_cc[VINTR]);
    }
    std::fflush(g_log);
}

// Returns in the job's process; the driver's own process waits for the
// job to end and exits with its status.
void run_as_job(const char *pid_file) {
    std::fflush(nullptr);
    pid_t job = fork();
    if (job < 0)
        std::exit(2);
    if (job > 0) {
        setpgid(job, job);
        tcsetpgrp(STDIN_FILENO, job);
        int status = 0;
        while (waitpid(job, &status, 0) < 0) {
        }
        std::exit(WIFEXITED(status) ? WEXITSTATUS(status) : 3);
    }
    setpgid(0, 0);
    while (tcgetpgrp(STDIN_FILENO) != getpid())
        usleep(1000);
    FILE *f = std::fopen(pid_file, "w");
    if (f != nullptr) {
        std::fprintf(f, "%d\n", static_cast<int>(getpid()));
        std::fclose(f);
    }
}

} // namespace

int main(int argc, char **argv) {
    int readers = 1;
    int i = 1;
    if (argc > 2 && std::strcmp(argv[1], "--log") == 0) {
        g_log = std::fopen(argv[2], "w");
        if (g_log == nullptr)
            return 2;
        i = 3;
    }
    if (argc > i + 1 && std::strcmp(argv[i], "--job") == 0) {
        run_as_job(argv[i + 1]);
        i += 2;
    }
    if (argc > i + 1 && std::strcmp(argv[i], "--readers") == 0) {
        readers = std::atoi(argv[i + 1]);
        i += 2;
    }
    std::vector<getline_data *> gl;
    for (int r = 0; r < readers; ++r) {
        gl.push_back(getline_init());
        if (gl.back() == nullptr) {
            std::printf("[init failed]\n");
            return 2;
        }
    }
    auto reader = [&](const char *arg) { return gl.at(static_cast<size_t>(std::atoi(arg))); };
    for (; i < argc; ++i) {
        std::string step = argv[i];
        if (step == "read" && i + 1 < argc) {
            read_one(reader(argv[i + 1]), std::atoi(argv[i + 1]), nullptr);
            i += 1;
        } else if (step == "prefill" && i + 2 < argc) {
            read_one(reader(argv[i + 1]), std::atoi(argv[i + 1]), argv[i + 2]);
            i += 2;
        } else if (step == "loop" && i + 1 < argc) {
            while (read_one(reader(argv[i + 1]), std::atoi(argv[i + 1]), nullptr)) {
            }
            i += 1;
        } else if (step == "yesno" && i + 3 < argc) {
            int answer = yes_or_no(reader(argv[i + 1]), "Proceed", std::atoi(argv[i + 2]),
                                   std::atoi(argv[i + 3]));
            std::fprintf(g_log, "[answer=%d]\n", answer);
            std::fflush(g_log);
            i += 3;
        } else if (step == "sigchld") {
            struct sigaction action {};
            action.sa_handler = [](int) {
                int status;
                while (waitpid(-1, &status, WNOHANG) > 0) {
                }
            };
            sigemptyset(&action.sa_mask);
            sigaction(SIGCHLD, &action, nullptr);
            if (fork() == 0) {
                usleep(300000);
                _exit(0);
            }
        } else if (step == "modes") {
            print_modes();
        } else {
            std::fprintf(g_log, "[bad step %s]\n", step.c_str());
            return 2;
        }
    }
    for (getline_data *g : gl)
        getline_free(g);
    std::fprintf(g_log, "[done]\n");
    std::fclose(g_log);
    return 0;
}
