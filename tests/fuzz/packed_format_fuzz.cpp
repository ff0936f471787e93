// Fuzz target: the packed format reader (the user's format as typed) and,
// when the bytes happen to form a tuple, the display of a stored tuple.
// A prepared format holds only the conversions %d, %s, %ld and %llu, fits
// its 100-byte buffer, and preparing it again changes nothing.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "tarvocon.h"

static void check(bool condition)
{
    if (!condition) {
        abort();
    }
}

static bool only_conversions(const char *format)
{
    static const char *const CONVERSIONS[] = {"%llu", "%ld", "%d", "%s"};
    while (*format != '\0') {
        bool matched = false;
        for (const char *conversion : CONVERSIONS) {
            size_t n = strlen(conversion);
            if (strncmp(format, conversion, n) == 0) {
                format += n;
                matched = true;
                break;
            }
        }
        if (!matched) {
            return false;
        }
    }
    return true;
}

static FILE *null_stream()
{
    static FILE *stream = fopen("/dev/null", "w");
    return stream;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::string format(reinterpret_cast<const char *>(data), size);
    format = format.substr(0, strlen(format.c_str()));
    char prepared[100];
    memset(prepared, 0x7F, sizeof prepared);
    // The illegal-character message goes to standard error; run with
    // -close_fd_mask=2 to keep it quiet.
    int rc = tarvocon_prepare_format(format.data(), prepared);
    check(rc == 0 || rc == 1);
    check(memchr(prepared, '\0', sizeof prepared) != nullptr);
    check(only_conversions(prepared));
    if (rc == 0) {
        char again[100];
        std::string copy = prepared;
        check(tarvocon_prepare_format(copy.data(), again) == 0);
        check(strcmp(again, prepared) == 0);
    }
    if (size >= 4 && tuple_check(data, (uint32_t)size) == 0) {
        tarvocon_page_print_packed((tuple_buf *)data, null_stream());
    }
    return 0;
}
