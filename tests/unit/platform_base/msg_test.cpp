#include <platform/msg.h>

#include <gtest/gtest.h>

#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <set>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "error_texts.h"
#include "syslog_sink.h"
#include "test_helpers.h"

namespace {

vel_msg_state_td g_state = {1, 0};

vel_msgdef_td make_def(const char *format, const char *mnemonic = "SC_TEST",
                       vel_msg_state_td *state = nullptr) {
    return vel_msgdef_td{0, format, state, "TARVO", "TARVO", mnemonic,
                         4u << 16, 0, 0x23200c2};
}

using tarvo::test::capture_output;

// A datagram socket standing in for the log daemon.
class FakeLogDaemon {
public:
    FakeLogDaemon() {
        path_ = std::filesystem::temp_directory_path() /
                ("tarvo-log-" + std::to_string(getpid()));
        std::filesystem::remove(path_);
        fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_un addr{};
        addr.sun_family = AF_UNIX;
        std::strncpy(addr.sun_path, path_.c_str(), sizeof(addr.sun_path) - 1);
        if (bind(fd_, reinterpret_cast<sockaddr *>(&addr), sizeof(addr)) != 0)
            ADD_FAILURE() << "bind " << path_ << ": " << std::strerror(errno);
        tarvo::msg::set_printer_sink_path(path_);
    }
    ~FakeLogDaemon() {
        close(fd_);
        std::filesystem::remove(path_);
        tarvo::msg::set_printer_sink_path("/dev/log");
    }
    // The next datagram, or "" when none arrives.
    std::string receive() {
        char buf[8192];
        ssize_t n = recv(fd_, buf, sizeof(buf), MSG_DONTWAIT);
        return n < 0 ? std::string() : std::string(buf, static_cast<size_t>(n));
    }
    const std::string &path() const { return path_; }

private:
    std::string path_;
    int fd_ = -1;
};

TEST(Printer, AddsNewlineOnlyWhenMissing) {
    struct Case { const char *format; const char *arg; const char *expected; };
    const Case cases[] = {
        {"plain", nullptr, "plain\n"},
        {"ends in newline\n", nullptr, "ends in newline\n"},
        {"", nullptr, "\n"},
        {"\nBag decoding error: %s\n", "truncated", "\nBag decoding error: truncated\n"},
        {"While x:\n%s", "detail text", "While x:\ndetail text\n"},
        {"%s", "arg ends in newline\n", "arg ends in newline\n"},
        {"two\n\n", nullptr, "two\n\n"},
    };
    for (const Case &c : cases) {
        vel_msgdef_td def = make_def(c.format);
        std::string text = capture_output({2}, [&] {
            if (c.arg)
                vel_printmsg(&def, 4, c.arg);
            else
                vel_printmsg(&def, 4);
        });
        EXPECT_EQ(text, c.expected) << "format: " << c.format;
    }
}

TEST(Printer, ArgumentsOrderCountAndErrno) {
    vel_msgdef_td def = make_def("copy %s to %s: %u (%c)");
    EXPECT_EQ(capture_output({2}, [&] { vel_printmsg(&def, 4, "/a", "/b", 42u, 'x'); }),
              "copy /a to /b: 42 (x)\n");
    std::string long_text(20000, 'q');
    vel_msgdef_td long_def = make_def("[%s]");
    EXPECT_EQ(capture_output({2}, [&] { vel_printmsg(&long_def, 5, long_text.c_str()); }),
              "[" + long_text + "]\n");
    // What standard output holds unflushed comes first.
    vel_msgdef_td error = make_def("the error");
    EXPECT_EQ(capture_output({1, 2}, [&] {
                  std::printf("listing line without newline ");
                  std::fputs("partial", stdout);
                  vel_printmsg(&error, 4);
                  std::printf("after\n");
              }),
              "listing line without newline partialthe error\nafter\n");
    // Every print is counted, and errno survives it.
    vel_msgdef_td counted = make_def("counted", "SC_COUNTED", &g_state);
    uint32_t before = g_state.print_count;
    int saved_errno = -1;
    capture_output({2}, [&] {
        errno = ENOENT;
        vel_printmsg(&counted, 4);
        vel_printmsg(&counted, 4);
        saved_errno = errno;
    });
    EXPECT_EQ(saved_errno, ENOENT);
    EXPECT_EQ(g_state.print_count, before + 2);
    EXPECT_EQ(g_state.enabled, 1u);
}

// "Mmm dd hh:mm:ss", the day padded with a blank.
bool looks_like_time_stamp(const std::string &t) {
    auto digit = [&](size_t i) { return t[i] >= '0' && t[i] <= '9'; };
    return t.size() == 15 && std::isupper(static_cast<unsigned char>(t[0])) &&
           std::islower(static_cast<unsigned char>(t[1])) && t[3] == ' ' &&
           (t[4] == ' ' || digit(4)) && digit(5) && t[6] == ' ' && digit(7) && digit(8) &&
           t[9] == ':' && digit(10) && digit(11) && t[12] == ':' && digit(13) && digit(14);
}

TEST(Printer, SendsTheMessageToTheSystemLog) {
    FakeLogDaemon daemon;
    struct Case { int severity; const char *mnemonic; int priority; };
    const Case cases[] = {
        {3, "ATTR_INIT_FAIL", 8 + 3},
        {4, "SC_MISSNAME", 8 + 4},
        {5, "SC_BIND", 8 + 5},
        {6, "MEM_LOW", 8 + 6},
        {42, "ODD", 8 + 5},
    };
    for (const Case &c : cases) {
        vel_msgdef_td def = make_def("Could not bind: %s\n", c.mnemonic);
        capture_output({2}, [&] { vel_printmsg(&def, c.severity, "no library"); });
        std::string line = daemon.receive();
        // "<pri>Mmm dd hh:mm:ss tarvocon[pid]: TARVO-<sev>-<MNEMONIC>: text"
        std::string head = std::string("<").append(std::to_string(c.priority)).append(">");
        std::string tail = " tarvocon[" + std::to_string(getpid()) + "]: TARVO-" +
                           std::to_string(c.severity) + "-" + c.mnemonic +
                           ": Could not bind: no library";
        ASSERT_EQ(line.size(), head.size() + 15 + tail.size()) << line;
        EXPECT_EQ(line.substr(0, head.size()), head);
        EXPECT_TRUE(looks_like_time_stamp(line.substr(head.size(), 15))) << line;
        EXPECT_EQ(line.substr(head.size() + 15), tail);
    }
    EXPECT_EQ(daemon.receive(), "");
}

TEST(Printer, NeverBlocksOrFailsWithoutADaemon) {
    vel_msgdef_td def = make_def("message %d");
    // Nobody listens at the socket path.
    tarvo::msg::set_printer_sink_path("/nonexistent/tarvo/log");
    EXPECT_EQ(capture_output({2}, [&] { vel_printmsg(&def, 4, 1); }), "message 1\n");
    tarvo::msg::set_printer_sink_path("/dev/log");
    // A daemon that never reads: its queue fills, and printing goes on.
    FakeLogDaemon daemon;
    auto start = std::chrono::steady_clock::now();
    std::string text = capture_output({2}, [&] {
        for (int i = 0; i < 2000; ++i)
            vel_printmsg(&def, 4, i);
    });
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
    EXPECT_NE(text.find("message 1999\n"), std::string::npos);
}

TEST(ErrorTexts, EveryCodeIsListedOnceWithItsOwnText) {
    std::set<int32_t> codes;
    std::set<std::string> texts;
    for (const auto &entry : tarvo::msg::error_table()) {
        EXPECT_TRUE(codes.insert(entry.code).second) << "duplicate code " << entry.name;
        EXPECT_TRUE(texts.insert(entry.text).second) << "duplicate text " << entry.text;
        EXPECT_STRNE(entry.text, "");
        EXPECT_EQ(std::string(entry.text).find("0x"), std::string::npos) << entry.name;
        EXPECT_STREQ(errcode_strerror(entry.code), entry.text);
    }
}

TEST(ErrorTexts, UnknownCodesAndDetailWords) {
    struct Case { uint32_t code; const char *expected; };
    const Case cases[] = {
        {0x12345678u, "unknown error 0x12345678"},
        {0xffffffffu, "unknown error 0xffffffff"},
        {0x0u, "unknown error 0x00000000"},
        {0x5eu, "unknown error 0x0000005e"},
        // A detail word in the low byte of a known code names both; one
        // without a text is shown by number.
        {0x4081ba07u, "damaged or foreign file: checksum does not match"},
        {0x8081c67eu, "store is damaged (detail 126)"},
        {0x408186ffu, "no such item or directory (detail 255)"},
    };
    for (const Case &c : cases)
        EXPECT_STREQ(errcode_strerror(static_cast<int32_t>(c.code)), c.expected);
    // The listed 0x5f is not taken as detail 0x5f of code 0.
    EXPECT_STREQ(errcode_strerror(0x5f), "operation not supported");
}

} // namespace
