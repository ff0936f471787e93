#include "syslog_sink.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace tarvo::msg {

SyslogSink::SyslogSink(std::string socket_path, std::string ident)
    : socket_path_(std::move(socket_path)), ident_(std::move(ident)) {}

SyslogSink::~SyslogSink() { close_socket(); }

void SyslogSink::close_socket() {
    if (fd_ >= 0) {
        ::close(fd_);
        fd_ = -1;
    }
}

bool SyslogSink::connect_socket() {
    sockaddr_un addr{};
    if (socket_path_.size() >= sizeof(addr.sun_path))
        return false;
    fd_ = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd_ < 0)
        return false;
    addr.sun_family = AF_UNIX;
    std::memcpy(addr.sun_path, socket_path_.c_str(), socket_path_.size() + 1);
    if (::connect(fd_, reinterpret_cast<sockaddr *>(&addr), sizeof(addr)) != 0) {
        close_socket();
        return false;
    }
    return true;
}

std::string SyslogSink::format(int priority, std::string_view text) const {
    char stamp[32];
    std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    std::strftime(stamp, sizeof(stamp), "%b %e %H:%M:%S", &local);
    char head[96];
    std::snprintf(head, sizeof(head), "<%d>%s %s[%d]: ", priority, stamp,
                  ident_.c_str(), static_cast<int>(::getpid()));
    std::string line(head);
    line.append(text);
    // The daemon adds its own line end; a trailing one would show as an
    // empty record in some log readers.
    while (!line.empty() && line.back() == '\n')
        line.pop_back();
    return line;
}

bool SyslogSink::send(int priority, std::string_view text) {
    std::string line = format(priority, text);
    // One reconnect covers a daemon that restarted since the last message.
    for (int attempt = 0; attempt < 2; ++attempt) {
        if (fd_ < 0 && !connect_socket())
            return false;
        ssize_t sent = ::send(fd_, line.data(), line.size(),
                              MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent >= 0)
            return true;
        if (errno == EAGAIN || errno == EWOULDBLOCK || errno == EMSGSIZE)
            return false;  // daemon busy or line too long: drop it
        close_socket();
    }
    return false;
}

namespace {
SyslogSink *&sink_slot() {
    static SyslogSink *sink = nullptr;
    return sink;
}
} // namespace

SyslogSink &printer_sink() {
    SyslogSink *&sink = sink_slot();
    if (sink == nullptr)
        sink = new SyslogSink();  // lives until exit: messages may be
                                  // printed from exit handlers
    return *sink;
}

void set_printer_sink_path(const std::string &socket_path) {
    SyslogSink *&sink = sink_slot();
    delete sink;
    sink = new SyslogSink(socket_path);
}

} // namespace tarvo::msg
