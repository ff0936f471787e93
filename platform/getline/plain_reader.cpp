// Reading lines when standard input is not a terminal (pipes, files).

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <platform/getline.h>

#include "reader.h"

namespace tarvo::getline {

namespace {

class PlainReader final : public Reader {
public:
    std::optional<ReadResult> read(const std::string &prompt, const char *) override {
        // The pre-filled text cannot be edited here; the line read is the
        // whole answer.
        std::fputs(prompt.c_str(), stdout);
        std::fflush(stdout);
        char *buffer = nullptr;
        size_t size = 0;
        ssize_t got = ::getline(&buffer, &size, stdin);
        if (got < 0) {
            std::free(buffer);
            return std::nullopt;
        }
        std::string line(buffer, static_cast<size_t>(got));
        std::free(buffer);
        if (!line.empty() && line.back() == '\n')
            line.pop_back();
        return ReadResult{std::move(line), GETLINE_ENTER};
    }

    // Nothing to recall without a terminal; kept so callers need not care.
    void add_history(const std::string &) override {}
    int keep_history(const std::string &) override { return ENOTTY; }
};

} // namespace

std::unique_ptr<Reader> make_plain_reader() { return std::make_unique<PlainReader>(); }

} // namespace tarvo::getline
