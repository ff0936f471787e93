/*
 * A system-log sender that can never hold the caller up.
 *
 * Lines go as RFC 3164 datagrams ("<pri>Mmm dd hh:mm:ss tarvocon[pid]: text")
 * to the local log socket, sent without blocking. When no log daemon listens,
 * or its queue is full, the line is dropped silently: a console must keep
 * working on a node whose logger is down.
 *
 * syslog(3) is not used because its socket is blocking: a stalled daemon
 * would stall every error message of the console.
 *
 * Thread safety: none; the message printer is used from one thread at a time.
 */
#ifndef TARVO_MSG_SYSLOG_SINK_H
#define TARVO_MSG_SYSLOG_SINK_H

#include <string>
#include <string_view>

namespace tarvo::msg {

class SyslogSink {
public:
    explicit SyslogSink(std::string socket_path = "/dev/log",
                        std::string ident = "tarvocon");
    ~SyslogSink();
    SyslogSink(const SyslogSink &) = delete;
    SyslogSink &operator=(const SyslogSink &) = delete;

    /* Sends one line at `priority` (facility | level). Returns true when the
     * datagram was handed to the daemon, false when it was dropped. */
    bool send(int priority, std::string_view text);

    /* The datagram send() builds for `text` at the current time. */
    std::string format(int priority, std::string_view text) const;

private:
    bool connect_socket();
    void close_socket();

    std::string socket_path_;
    std::string ident_;
    int fd_ = -1;
};

/* The sink vel_printmsg uses; tests may point it at their own socket. */
SyslogSink &printer_sink();
void set_printer_sink_path(const std::string &socket_path);

} // namespace tarvo::msg

#endif
