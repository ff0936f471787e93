// The C interface of the line editor.

#include <platform/getline.h>

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "reader.h"

struct getline_data {
    std::unique_ptr<tarvo::getline::Reader> reader;
};

namespace {

char *heap_copy(const std::string &text) {
    char *copy = static_cast<char *>(std::malloc(text.size() + 1));
    if (copy != nullptr)
        std::memcpy(copy, text.c_str(), text.size() + 1);
    return copy;
}

} // namespace

extern "C" getline_data *getline_init(void) {
    auto data = std::make_unique<getline_data>();
    data->reader = ::isatty(STDIN_FILENO) ? tarvo::getline::make_editor()
                                          : tarvo::getline::make_plain_reader();
    if (!data->reader)
        return nullptr;
    return data.release();
}

extern "C" void getline_free(getline_data *gl) { delete gl; }

extern "C" char *qn_getline(getline_data *gl, const char *prompt, const char *prefill,
                            uint8_t *status) {
    if (gl == nullptr)
        return nullptr;
    auto result = gl->reader->read(prompt != nullptr ? prompt : "", prefill);
    if (!result)
        return nullptr;
    if (status != nullptr)
        *status = result->status;
    return heap_copy(result->line);
}

extern "C" void getline_histadd(getline_data *gl, const char *line) {
    if (gl == nullptr || line == nullptr || *line == '\0')
        return;
    gl->reader->add_history(line);
}

extern "C" int getline_history_keep(getline_data *gl, const char *name) {
    if (gl == nullptr || name == nullptr)
        return EINVAL;
    return gl->reader->keep_history(name);
}

extern "C" int yes_or_no(getline_data *gl, const char *question, int default_answer,
                         int insist) {
    if (gl == nullptr)
        return 0;
    std::string prompt = std::string(question != nullptr ? question : "") + " (y/n) ";
    for (;;) {
        auto answer = gl->reader->read(prompt, nullptr);
        if (!answer || answer->status == GETLINE_DISCARD)
            return 0;
        if (answer->status != GETLINE_ENTER)
            continue;  // TAB or "?" at a yes/no question: ask again
        size_t first = answer->line.find_first_not_of(" \t");
        if (first == std::string::npos) {
            if (!insist)
                return default_answer ? 1 : 0;
            continue;
        }
        char c = static_cast<char>(std::tolower(static_cast<unsigned char>(answer->line[first])));
        if (c == 'y')
            return 1;
        if (c == 'n')
            return 0;
    }
}
