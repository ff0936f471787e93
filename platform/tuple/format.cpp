#include "format.h"

#include <cctype>

namespace tarvo::tuple {

namespace {

bool starts_with(std::string_view text, size_t at, std::string_view word) {
    return text.substr(at, word.size()) == word;
}

} // namespace

std::optional<std::vector<Kind>> parse_format(std::string_view format, StringLetter letter,
                                              size_t limit) {
    std::vector<Kind> kinds;
    size_t i = 0;
    while (i < format.size()) {
        if (format[i] == '%')
            ++i;
        while (i < format.size() && std::isdigit(static_cast<unsigned char>(format[i])))
            ++i;
        if (i >= format.size())
            return std::nullopt;  // '%' or digits with no conversion
        Kind kind;
        if (starts_with(format, i, "llu")) {
            kind = Kind::U64;
            i += 3;
        } else if (starts_with(format, i, "ld")) {
            kind = Kind::LONG32;
            i += 2;
        } else if (format[i] == 'd') {
            kind = Kind::U32;
            ++i;
        } else if (format[i] == 'N') {
            kind = Kind::ADDRESS;
            ++i;
        } else if (format[i] == 's' || (format[i] == 'S' && letter == StringLetter::UNPACKING)) {
            kind = Kind::STRING;
            ++i;
        } else {
            return std::nullopt;
        }
        if (kinds.size() == limit)
            return std::nullopt;
        kinds.push_back(kind);
    }
    return kinds;
}

std::string_view canonical(Kind kind) {
    switch (kind) {
    case Kind::U32: return "%d";
    case Kind::LONG32: return "%ld";
    case Kind::U64: return "%llu";
    case Kind::STRING: return "%s";
    case Kind::ADDRESS: return "N";
    }
    return "";
}

std::string canonical_format(const std::vector<Kind> &kinds) {
    std::string text;
    for (Kind kind : kinds)
        text += canonical(kind);
    return text;
}

size_t fixed_width(Kind kind) {
    switch (kind) {
    case Kind::U32:
    case Kind::LONG32:
    case Kind::ADDRESS: return 4;
    case Kind::U64: return 8;
    case Kind::STRING: return 0;
    }
    return 0;
}

} // namespace tarvo::tuple
