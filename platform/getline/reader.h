/*
 * The two kinds of line reader behind getline_data: the editor (standard
 * input is a terminal) and the plain reader (anything else).
 */
#ifndef TARVO_GETLINE_READER_H
#define TARVO_GETLINE_READER_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace tarvo::getline {

struct ReadResult {
    std::string line;
    uint8_t status;  // GETLINE_ENTER ... GETLINE_DISCARD
};

class Reader {
public:
    virtual ~Reader() = default;
    /* One line, or nothing at the end of input or on a read error. */
    virtual std::optional<ReadResult> read(const std::string &prompt,
                                           const char *prefill) = 0;
    virtual void add_history(const std::string &line) = 0;
    /* Loads the history kept under `name` and keeps it from then on; 0 or
     * an errno value (the history then lives in memory only). */
    virtual int keep_history(const std::string &name) = 0;
};

/* Null when the terminal cannot be set up for editing. */
std::unique_ptr<Reader> make_editor();
std::unique_ptr<Reader> make_plain_reader();

} // namespace tarvo::getline

#endif
