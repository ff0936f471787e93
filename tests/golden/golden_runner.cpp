// golden_runner: runs the golden cases of one suite folder in one process.
//
//   golden_runner CONSOLE STORE_TOOL SOURCE_ROOT SUITE_DIR [PATTERN]
//
// Every SUITE_DIR/<case>.cmd is a case, run in name order. PATTERN (or the
// environment variable GOLDEN_CASE) is a shell pattern of the case names to
// run, e.g. "cd_options" or "interactive_*". STORE_TOOL may be "".
//
// A case is <case>.cmd with the optional files .out .err .args .setup .prep
// .wrap .status .stdin beside it; docs/testing.md describes them, the
// placeholders @TMP@ @SRC@ @CMD@ @RLIMIT@ and the environment each case runs
// in (a fresh temporary directory, its working directory and HOME, removed
// afterwards).
//
// Environment of the runner itself:
//   UPDATE_GOLDEN=1   write the actual outputs into the expected files (to
//                     start a case; then check every line by hand)
//   GOLDEN_KEEP=1     keep the temporary directory of a failed case
//   GOLDEN_TIMEOUT=N  seconds each program of a case may run (default 20);
//                     one still running then is killed and the case fails
//   GOLDEN_SHARED_STORE=etcd://HOST:PORT[,...]
//                     keep the shared plane of every case on that etcd
//                     cluster, under a prefix of the case's own; the cases
//                     listed in tests/golden/embedded_only are skipped
//
// Prints one line per case ("ok" or "FAILED") and, for a failed case, what
// differs. Exit status 0 when every case passed, 1 when one failed, 2 on a
// usage error or when no case matches PATTERN.
#include <fcntl.h>
#include <fnmatch.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

struct Options {
    std::string console;
    std::string store_tool;
    std::string src;
    std::string suite_dir;
    std::string pattern;
    double time_limit = 20;
    bool update = false;
    bool keep = false;
    std::string shared_store;  // etcd location without a prefix, or ""
};

// ---------------------------------------------------------------- texts

bool read_file(const std::string &path, std::string *text)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return false;
    std::ostringstream buffer;
    buffer << in.rdbuf();
    *text = buffer.str();
    return !in.bad();
}

bool write_file(const std::string &path, const std::string &text)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
    return static_cast<bool>(out.flush());
}

void replace_all(std::string *text, const std::string &from, const std::string &to)
{
    if (from.empty())
        return;
    std::string result;
    std::size_t start = 0;
    for (std::size_t at; (at = text->find(from, start)) != std::string::npos;
         start = at + from.size())
        result.append(*text, start, at - start).append(to);
    result.append(*text, start, std::string::npos);
    *text = std::move(result);
}

// Inputs of a case: the placeholders become the case's own paths.
std::string substitute(std::string text, const std::string &tmp, const std::string &src)
{
    replace_all(&text, "@TMP@", tmp);
    replace_all(&text, "@SRC@", src);
    return text;
}

// Outputs of a case: what differs from run to run becomes a placeholder.
std::string normalize(std::string text, const std::string &tmp, const std::string &src)
{
    replace_all(&text, tmp, "@TMP@");
    replace_all(&text, src, "@SRC@");
    static const std::string RLIMIT = "tarvocon rlimit set to ";
    std::string result;
    std::size_t start = 0;
    for (std::size_t at; (at = text.find(RLIMIT, start)) != std::string::npos;) {
        std::size_t end = at + RLIMIT.size();
        std::size_t digits = end;
        while (digits < text.size() && text[digits] >= '0' && text[digits] <= '9')
            ++digits;
        result.append(text, start, end - start);
        result.append(digits > end ? "@RLIMIT@" : "");
        start = digits;
    }
    result.append(text, start, std::string::npos);
    return result;
}

// The first line of `text`, split at blanks and tabs.
std::vector<std::string> split_args(const std::string &text)
{
    std::vector<std::string> words;
    std::string word;
    for (char c : text.substr(0, text.find('\n'))) {
        if (c == ' ' || c == '\t') {
            if (!word.empty())
                words.push_back(std::move(word));
            word.clear();
        } else
            word += c;
    }
    if (!word.empty())
        words.push_back(std::move(word));
    return words;
}

// ---------------------------------------------------------------- diff

// The text made visible line by line for a diff: tabs as ^I, other control
// bytes as ^X, bytes above 127 as M-x, and "$" where a line ends with a
// newline, so that a lost blank or tab shows.
std::string visible(const std::string &text)
{
    std::string out;
    for (unsigned char c : text) {
        if (c == '\n') {
            out += "$\n";
            continue;
        }
        if (c >= 128) {
            out += "M-";
            c -= 128;
        }
        if (c < 32)
            out += '^', out += static_cast<char>(c + 64);
        else if (c == 127)
            out += "^?";
        else
            out += static_cast<char>(c);
    }
    return out;
}

// ---------------------------------------------------------------- processes

struct Program {
    std::vector<std::string> argv;
    std::vector<std::string> env;
    std::string cwd;
    std::string in = "/dev/null", out = "/dev/null", err = "/dev/null";
};

struct Ending {
    int status = 0; // exit status, or 128 + signal
    bool timed_out = false;
};

std::vector<char *> c_strings(std::vector<std::string> &strings)
{
    std::vector<char *> pointers;
    for (std::string &s : strings)
        pointers.push_back(s.data());
    pointers.push_back(nullptr);
    return pointers;
}

// Starts `program` as the leader of a new process group, its standard
// streams on the named files. Returns its pid, or -1 with `*error` set.
pid_t start(Program program, std::string *error)
{
    const std::string *files[3] = {&program.in, &program.out, &program.err};
    int fds[3] = {-1, -1, -1};
    for (int i = 0; i < 3; ++i) {
        int flags = i == 0 ? O_RDONLY : O_WRONLY | O_CREAT | O_TRUNC;
        fds[i] = open(files[i]->c_str(), flags | O_CLOEXEC, 0644);
        if (fds[i] < 0) {
            *error = "cannot open " + *files[i] + ": " + std::strerror(errno);
            for (int j = 0; j < i; ++j)
                close(fds[j]);
            return -1;
        }
    }
    std::vector<char *> argv = c_strings(program.argv), envp = c_strings(program.env);
    pid_t pid = fork();
    if (pid == 0) {
        // Only async-signal-safe calls from here on.
        sigset_t none;
        sigemptyset(&none);
        sigprocmask(SIG_SETMASK, &none, nullptr);
        setpgid(0, 0);
        for (int fd = 0; fd < 3; ++fd)
            dup2(fds[fd], fd);
        if (chdir(program.cwd.c_str()) == 0)
            execve(argv[0], argv.data(), envp.data());
        static const char FAILED[] = "golden_runner: cannot start the program\n";
        (void)!write(2, FAILED, sizeof FAILED - 1);
        _exit(127);
    }
    if (pid > 0)
        setpgid(pid, pid); // also here: the child may not have run yet
    else
        *error = "cannot start " + program.argv[0] + ": " + std::strerror(errno);
    for (int fd : fds)
        close(fd);
    return pid;
}

int status_of(const siginfo_t &info)
{
    return info.si_code == CLD_EXITED ? info.si_status : 128 + info.si_status;
}

// Waits until process `pid` ends, at most `limit` seconds; then kills its
// process group. The ended process is left unreaped, so that its process
// group id cannot be taken by another process before end_group().
Ending wait_for_end(pid_t pid, double limit)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(limit);
    sigset_t child;
    sigemptyset(&child);
    sigaddset(&child, SIGCHLD);
    Ending ending;
    for (;;) {
        siginfo_t info{};
        if (waitid(P_PID, pid, &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid == pid) {
            ending.status = status_of(info);
            return ending;
        }
        auto left = deadline - std::chrono::steady_clock::now();
        if (left <= std::chrono::nanoseconds(0))
            break;
        auto ns = std::chrono::duration_cast<std::chrono::nanoseconds>(left).count();
        timespec wait = {static_cast<time_t>(ns / 1'000'000'000), static_cast<long>(ns % 1'000'000'000)};
        sigtimedwait(&child, nullptr, &wait); // SIGCHLD is blocked: it waits here
    }
    ending.timed_out = true;
    kill(-pid, SIGKILL);
    siginfo_t info{};
    waitid(P_PID, pid, &info, WEXITED | WNOWAIT);
    ending.status = status_of(info);
    return ending;
}

// Kills what is left of the process group of `pid` and reaps `pid`.
void end_group(pid_t pid)
{
    kill(-pid, SIGKILL);
    waitpid(pid, nullptr, 0);
}

// Runs `program` to its end (or its time limit), its process group with it.
Ending run_to_end(const Program &program, double limit, std::string *error)
{
    pid_t pid = start(program, error);
    if (pid < 0)
        return {127, false};
    Ending ending = wait_for_end(pid, limit);
    end_group(pid);
    return ending;
}

std::string seconds(double limit)
{
    char text[32];
    std::snprintf(text, sizeof text, "%g s", limit);
    return text;
}

// The file `name` is found as in the directories of `path`.
std::string find_in_path(const std::string &name, const std::string &path)
{
    std::stringstream dirs(path);
    for (std::string dir; std::getline(dirs, dir, ':');)
        if (access((dir + "/" + name).c_str(), X_OK) == 0)
            return dir + "/" + name;
    return name;
}

// ---------------------------------------------------------------- cases

class Case {
public:
    Case(const Options &options, const std::string &name)
        : o_(options), name_(name), base_(options.suite_dir + "/" + name)
    {
    }
    ~Case();
    Case(const Case &) = delete;
    Case &operator=(const Case &) = delete;

    // Runs the case and removes its temporary directory; true when it
    // passed. report() says what went wrong.
    bool run();
    const std::string &report() const { return report_; }

private:
    bool has(const char *ext) const { return fs::exists(base_ + ext); }
    std::string bash() const
    {
        return find_in_path("bash", o_.src + "/tests/golden/bin:/usr/local/bin:/usr/bin:/bin");
    }
    std::vector<std::string> environment() const;
    std::string input(const char *ext, const std::string &to);
    bool prepare();
    bool run_setup();
    Ending run_console();
    bool make_directory();
    void compare(const Ending &ending);
    void compare_stream(const char *ext, const char *what, const std::string &actual);
    void finish();
    void note(const std::string &message) { report_ += "golden: " + message + "\n"; }
    void fail(const std::string &message)
    {
        note(message);
        passed_ = false;
    }

    const Options &o_;
    std::string name_, base_, tmp_;
    pid_t prep_ = -1;
    bool passed_ = true;
    std::string report_;
};

Case::~Case()
{
    finish();
}

// Ends what the .prep script left running, then removes the temporary
// directory (or keeps it, for a failed case under GOLDEN_KEEP).
void Case::finish()
{
    if (prep_ > 0)
        end_group(prep_);
    prep_ = -1;
    if (!passed_ && o_.keep && !tmp_.empty())
        note("kept " + tmp_);
    else if (!tmp_.empty()) {
        std::error_code ignored;
        fs::remove_all(tmp_, ignored);
    }
    tmp_.clear();
}

std::vector<std::string> Case::environment() const
{
    std::vector<std::string> env = {
        "PATH=" + o_.src + "/tests/golden/bin:/usr/local/bin:/usr/bin:/bin",
        "HOME=" + tmp_,
        "LC_ALL=C",
        "TERM=dumb",
        "TARVO_DATA_DIR=" + tmp_ + "/data",
        "TARVO_BAG_PATH=" + o_.src + "/platform/bag/schemas:" + o_.src + "/tests/golden/schemas"};
    if (!o_.shared_store.empty())
        env.push_back("TARVO_SHARED_STORE=" + o_.shared_store + "/golden-" +
                      std::to_string(getpid()) + "/" + fs::path(o_.suite_dir).filename().string() +
                      "/" + name_);
    for (const char *var : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS"}) {
        const char *value = getenv(var);
        if (value != nullptr && *value != '\0')
            env.push_back(std::string(var) + "=" + value);
    }
    return env;
}

// Reads the case's file `ext` with the placeholders replaced; writes it to
// `to` in the temporary directory unless `to` is empty.
std::string Case::input(const char *ext, const std::string &to)
{
    std::string text;
    if (!read_file(base_ + ext, &text))
        fail("cannot read " + base_ + ext);
    text = substitute(std::move(text), tmp_, o_.src);
    if (!to.empty() && !write_file(to, text))
        fail("cannot write " + to);
    return text;
}

// The .prep script, left running in its own process group until the case
// ends (a script may start a program that the case's console meets).
bool Case::prepare()
{
    Program prep;
    prep.argv = {bash(), base_ + ".prep"};
    prep.env = environment();
    prep.env.push_back("TARVOCTL=" + o_.store_tool);
    prep.env.push_back("TARVOCON=" + o_.console);
    prep.cwd = tmp_;
    std::string error;
    prep_ = start(prep, &error);
    if (prep_ < 0) {
        fail(error);
        return false;
    }
    Ending ending = wait_for_end(prep_, o_.time_limit);
    if (ending.timed_out)
        fail(base_ + ".prep did not end within " + seconds(o_.time_limit) + " and was killed");
    else if (ending.status != 0)
        fail(base_ + ".prep failed (exit status " + std::to_string(ending.status) + ")");
    return passed_;
}

bool Case::run_setup()
{
    Program setup;
    setup.argv = {o_.console, "-f", tmp_ + "/setup.cmd"};
    input(".setup", setup.argv[2]);
    setup.env = environment();
    setup.cwd = tmp_;
    std::string error;
    Ending ending = run_to_end(setup, o_.time_limit, &error);
    if (!error.empty())
        fail(error);
    else if (ending.timed_out)
        fail(base_ + ".setup: the console did not end within " + seconds(o_.time_limit) +
             " and was killed");
    return passed_;
}

Ending Case::run_console()
{
    Program console;
    const std::string cmd_file = tmp_ + "/" + name_ + ".cmd";
    input(".cmd", cmd_file);
    std::vector<std::string> args = {"-f", cmd_file};
    if (has(".args")) {
        std::string line = input(".args", "");
        replace_all(&line, "@CMD@", cmd_file);
        args = split_args(line);
    }
    console.argv = {o_.console};
    console.env = environment();
    // A case that must start the console under a limit or as another user
    // does so in its .wrap script, which gets the console's command line.
    if (has(".wrap")) {
        console.argv = {bash(), base_ + ".wrap", o_.console};
        console.env.push_back("TARVOCTL=" + o_.store_tool);
    }
    console.argv.insert(console.argv.end(), args.begin(), args.end());
    console.cwd = tmp_;
    if (has(".stdin"))
        console.in = base_ + ".stdin";
    console.out = tmp_ + "/actual.out";
    console.err = tmp_ + "/actual.err";
    std::string error;
    Ending ending = run_to_end(console, o_.time_limit, &error);
    if (!error.empty())
        fail(error);
    if (ending.timed_out)
        fail("the console did not end within " + seconds(o_.time_limit) + " and was killed");
    return ending;
}

void Case::compare_stream(const char *ext, const char *what, const std::string &actual)
{
    std::string expected;
    if (has(ext) && !read_file(base_ + ext, &expected))
        fail("cannot read " + base_ + ext);
    if (expected == actual)
        return;
    fail(std::string("standard ") + what + " differs (" + base_ + ext + "):");
    const std::string a = tmp_ + "/expected" + ext, b = tmp_ + "/visible" + ext,
                      diff = tmp_ + "/diff" + ext;
    std::string error;
    if (!write_file(a, visible(expected)) || !write_file(b, visible(actual))) {
        fail("cannot write the texts to compare into " + tmp_);
        return;
    }
    Program program;
    program.argv = {find_in_path("diff", "/usr/bin:/bin"), "-u", "--label", "expected",
                    "--label", "actual", a, b};
    program.cwd = tmp_;
    program.out = diff;
    run_to_end(program, o_.time_limit, &error);
    std::string text;
    read_file(diff, &text);
    // At most 200 lines of it: a case that prints nothing at all must not
    // bury the other reports.
    std::size_t end = 0;
    for (int lines = 0; lines < 200 && end < text.size(); ++lines) {
        std::size_t newline = text.find('\n', end);
        end = newline == std::string::npos ? text.size() : newline + 1;
    }
    if (end < text.size())
        text = text.substr(0, end) + "... more lines in the difference\n";
    report_ += error.empty() ? text : error + "\n";
}

void Case::compare(const Ending &ending)
{
    std::string out, err;
    read_file(tmp_ + "/actual.out", &out);
    read_file(tmp_ + "/actual.err", &err);
    out = normalize(std::move(out), tmp_, o_.src);
    err = normalize(std::move(err), tmp_, o_.src);
    std::string expected_status = "0";
    if (has(".status")) {
        read_file(base_ + ".status", &expected_status);
        std::erase_if(expected_status, [](char c) { return c == ' ' || c == '\n'; });
    }
    const std::string status = std::to_string(ending.status);
    if (o_.update && passed_) {
        bool written = write_file(base_ + ".out", out) && write_file(base_ + ".err", err);
        if (ending.status != 0 || has(".status"))
            written = written && write_file(base_ + ".status", status + "\n");
        if (written)
            note("updated " + base_ + " (check every line by hand)");
        else
            fail("cannot write the expected files of " + base_);
        return;
    }
    compare_stream(".out", "output", out);
    compare_stream(".err", "error", err);
    if (status != expected_status)
        fail("exit status " + status + ", expected " + expected_status);
}

// The case's temporary directory, with its data directory in it.
bool Case::make_directory()
{
    const char *parent = getenv("TMPDIR");
    std::string pattern = std::string(parent != nullptr && *parent != '\0' ? parent : "/tmp") +
                          "/golden.XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
        fail("cannot make a temporary directory in " + pattern + ": " + std::strerror(errno));
        return false;
    }
    tmp_ = pattern;
    if (mkdir((tmp_ + "/data").c_str(), 0755) != 0)
        fail("cannot make " + tmp_ + "/data: " + std::strerror(errno));
    return passed_;
}

bool Case::run()
{
    if (make_directory() && (!has(".prep") || prepare()) && (!has(".setup") || run_setup()))
        compare(run_console());
    finish();
    return passed_;
}

// ---------------------------------------------------------------- suite

std::vector<std::string> case_names(const Options &o, std::string *error)
{
    std::vector<std::string> names;
    std::error_code ec;
    for (const fs::directory_entry &entry : fs::directory_iterator(o.suite_dir, ec)) {
        const fs::path &path = entry.path();
        if (path.extension() == ".cmd" && entry.is_regular_file() &&
            (o.pattern.empty() || fnmatch(o.pattern.c_str(), path.stem().c_str(), 0) == 0))
            names.push_back(path.stem().string());
    }
    if (ec)
        *error = "cannot read " + o.suite_dir + ": " + ec.message();
    std::sort(names.begin(), names.end());
    return names;
}

// The cases of the suite that need the embedded store ("suite/case" lines of
// tests/golden/embedded_only; "#" starts a comment).
std::vector<std::string> embedded_only(const Options &o)
{
    std::vector<std::string> names;
    std::ifstream in(o.src + "/tests/golden/embedded_only");
    const std::string suite = fs::path(o.suite_dir).filename().string() + "/";
    std::string line;
    while (std::getline(in, line)) {
        line = line.substr(0, line.find('#'));
        line.erase(line.find_last_not_of(" \t") + 1);
        if (line.compare(0, suite.size(), suite) == 0)
            names.push_back(line.substr(suite.size()));
    }
    return names;
}

bool parse_options(int argc, char **argv, Options *o)
{
    if (argc < 5 || argc > 6) {
        std::fprintf(stderr, "usage: golden_runner CONSOLE STORE_TOOL SOURCE_ROOT SUITE_DIR "
                             "[PATTERN]\n");
        return false;
    }
    // The programs of a case run in its temporary directory.
    auto absolute = [](const char *path) {
        return *path == '\0' ? std::string() : fs::absolute(path).string();
    };
    o->console = absolute(argv[1]);
    o->store_tool = absolute(argv[2]);
    o->src = absolute(argv[3]);
    o->suite_dir = absolute(argv[4]);
    while (o->suite_dir.size() > 1 && o->suite_dir.back() == '/')
        o->suite_dir.pop_back();
    const char *pattern = argc == 6 ? argv[5] : getenv("GOLDEN_CASE");
    o->pattern = pattern != nullptr ? pattern : "";
    const char *update = getenv("UPDATE_GOLDEN"), *keep = getenv("GOLDEN_KEEP"),
               *limit = getenv("GOLDEN_TIMEOUT");
    o->update = update != nullptr && std::strcmp(update, "1") == 0;
    o->keep = keep != nullptr && *keep != '\0' && std::strcmp(keep, "0") != 0;
    const char *shared = getenv("GOLDEN_SHARED_STORE");
    o->shared_store = shared != nullptr ? shared : "";
    if (limit != nullptr && *limit != '\0') {
        char *end = nullptr;
        o->time_limit = std::strtod(limit, &end);
        if (*end != '\0' || !(o->time_limit > 0)) {
            std::fprintf(stderr, "golden_runner: GOLDEN_TIMEOUT is not a number of seconds: %s\n",
                         limit);
            return false;
        }
    }
    return true;
}

} // namespace

int main(int argc, char **argv)
{
    Options options;
    if (!parse_options(argc, argv, &options))
        return 2;
    std::string error;
    const std::vector<std::string> names = case_names(options, &error);
    const std::string suite = fs::path(options.suite_dir).filename().string();
    if (!error.empty() || names.empty()) {
        std::fprintf(stderr, "golden_runner: %s\n",
                     !error.empty() ? error.c_str()
                                    : ("no case of " + options.suite_dir + " matches '" +
                                       options.pattern + "'").c_str());
        return 2;
    }

    // SIGCHLD stays blocked so that wait_for_end() can wait for it; the
    // programs started get an empty mask.
    signal(SIGCHLD, SIG_DFL);
    sigset_t child;
    sigemptyset(&child);
    sigaddset(&child, SIGCHLD);
    sigprocmask(SIG_BLOCK, &child, nullptr);

    int failed = 0;
    const std::vector<std::string> skipped =
        options.shared_store.empty() ? std::vector<std::string>() : embedded_only(options);
    for (const std::string &name : names) {
        if (std::find(skipped.begin(), skipped.end(), name) != skipped.end()) {
            std::printf("%-6s %s/%s (embedded store only)\n", "skip", suite.c_str(), name.c_str());
            continue;
        }
        const auto begin = std::chrono::steady_clock::now();
        Case one(options, name);
        const bool passed = one.run();
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
        std::printf("%-6s %s/%s (%.2f s)\n", passed ? "ok" : "FAILED", suite.c_str(), name.c_str(),
                    took.count());
        std::fputs(one.report().c_str(), stdout);
        std::fflush(stdout);
        failed += !passed;
    }
    std::printf("%s: %zu case%s, %d failed\n", suite.c_str(), names.size(),
                names.size() == 1 ? "" : "s", failed);
    return failed == 0 ? 0 : 1;
}
