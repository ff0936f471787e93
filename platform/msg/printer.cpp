// vel_printmsg: standard error for the user, the system log for the node.

#include <platform/msg.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <string>
#include <syslog.h>
#include <unistd.h>

#include "syslog_sink.h"

namespace {

std::string format_text(const char *format, va_list args) {
    std::string text(256, '\0');
    va_list again;
    va_copy(again, args);
    int needed = std::vsnprintf(text.data(), text.size(), format, args);
    if (needed < 0) {
        va_end(again);
        return format;  // an unusable format still tells the user something
    }
    if (static_cast<size_t>(needed) >= text.size()) {
        text.resize(static_cast<size_t>(needed) + 1);
        std::vsnprintf(text.data(), text.size(), format, again);
    }
    va_end(again);
    text.resize(static_cast<size_t>(needed));
    return text;
}

// One write(2) for the whole message, so that lines of several processes
// writing to one terminal or file do not interleave inside a message.
void write_all(int fd, const std::string &text) {
    size_t done = 0;
    while (done < text.size()) {
        ssize_t n = ::write(fd, text.data() + done, text.size() - done);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return;  // nothing sensible to report an error on
        }
        done += static_cast<size_t>(n);
    }
}

int log_level(int severity) {
    // The message severities use the syslog level numbers (3 error ...
    // 6 informational); anything outside the range is logged as notice.
    if (severity < LOG_EMERG || severity > LOG_DEBUG)
        return LOG_NOTICE;
    return severity;
}

} // namespace

extern "C" void vel_printmsg(const vel_msgdef_td *def, int severity, ...) {
    if (def == nullptr || def->format == nullptr)
        return;
    int saved_errno = errno;

    va_list args;
    va_start(args, severity);
    std::string text = format_text(def->format, args);
    va_end(args);

    std::fflush(stdout);
    std::fflush(stderr);
    std::string shown = text;
    if (shown.empty() || shown.back() != '\n')
        shown.push_back('\n');
    write_all(STDERR_FILENO, shown);

    const char *facility = def->facility != nullptr ? def->facility : "TARVO";
    const char *mnemonic = def->mnemonic != nullptr ? def->mnemonic : "";
    std::string logged = std::string(facility) + "-" +
                         std::to_string(severity) + "-" + mnemonic + ": " +
                         text;
    tarvo::msg::printer_sink().send(LOG_USER | log_level(severity), logged);

    if (def->state != nullptr)
        ++def->state->print_count;
    errno = saved_errno;  // callers often print strerror(errno) afterwards
}
