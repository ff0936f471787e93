// The eight integer parsers: bases, signs, range edges of every width, and
// the rule that a failed parse leaves the result untouched.
#include <errno.h>
#include <stdlib.h>

#include <random>
#include <string>

#include <gtest/gtest.h>

#include "tarvocon.h"

namespace {

enum Width { U64, U32, U16, U8, I64, I32, I16, I8 };

constexpr uint64_t SENTINEL = 0xA5A5A5A5A5A5A5A5ull;

// Runs the parser of `width` on text into a result pre-filled with a
// sentinel; *value receives the result widened (signed ones sign-extended).
template <typename T>
int run(int (*parser)(const char *, T *), const char *text, int64_t *value,
        bool *untouched)
{
    T result;
    uint64_t fill = SENTINEL;
    memcpy(&result, &fill, sizeof result);
    int rc = parser(text, &result);
    T sentinel;
    memcpy(&sentinel, &fill, sizeof sentinel);
    *untouched = memcmp(&result, &sentinel, sizeof result) == 0;
    *value = (int64_t)result;
    return rc;
}

int parse(Width width, const char *text, int64_t *value, bool *untouched)
{
    switch (width) {
    case U64: return run(tarvocon_parse_uint64, text, value, untouched);
    case U32: return run(tarvocon_parse_uint32, text, value, untouched);
    case U16: return run(tarvocon_parse_uint16, text, value, untouched);
    case U8: return run(tarvocon_parse_uint8, text, value, untouched);
    case I64: return run(tarvocon_parse_int64, text, value, untouched);
    case I32: return run(tarvocon_parse_int32, text, value, untouched);
    case I16: return run(tarvocon_parse_int16, text, value, untouched);
    default: return run(tarvocon_parse_int8, text, value, untouched);
    }
}

struct ParseCase {
    Width width;
    const char *text;
    bool ok;
    int64_t value; // for unsigned 64-bit the bits of the value
};

const ParseCase CASES[] = {
    // bases
    {U64, "0", true, 0},
    {U64, "", true, 0},
    {U64, "0x", true, 0},
    {U64, "0X", true, 0},
    {U64, "010", true, 8},
    {U64, "08", false, 0},
    {U64, "0xff", true, 255},
    {U64, "0XaB", true, 171},
    {U64, "12a", false, 0},
    {U64, "1a", false, 0},
    {U64, "0x1G", false, 0},
    {U64, "0x1g", false, 0},
    {U64, "0x0x1", false, 0},
    {U64, "z", false, 0},
    {U64, "007", true, 7},
    // no blanks, no signs for the unsigned parsers
    {U64, " 1", false, 0},
    {U64, "1 ", false, 0},
    {U64, "-1", false, 0},
    {U64, "+1", false, 0},
    {U64, "1.0", false, 0},
    // 64-bit edges in every base
    {U64, "18446744073709551615", true, -1},
    {U64, "18446744073709551616", false, 0},
    {U64, "18446744073709551620", false, 0},
    {U64, "99999999999999999999", false, 0},
    {U64, "0xFFFFFFFFFFFFFFFF", true, -1},
    {U64, "0x10000000000000000", false, 0},
    {U64, "0x0000000000000000000001", true, 1},
    {U64, "01777777777777777777777", true, -1},
    {U64, "02000000000000000000000", false, 0},
    // narrow unsigned
    {U32, "4294967295", true, 4294967295},
    {U32, "4294967296", false, 0},
    {U32, "0xFFFFFFFF", true, 4294967295},
    {U32, "0x100000000", false, 0},
    {U32, "-1", false, 0},
    {U16, "65535", true, 65535},
    {U16, "65536", false, 0},
    {U16, "0xffff", true, 65535},
    {U16, "0x10000", false, 0},
    {U8, "255", true, 255},
    {U8, "256", false, 0},
    {U8, "0377", true, 255},
    {U8, "0400", false, 0},
    {U8, "0x100", false, 0},
    {U8, "+5", false, 0},
    // signed 64
    {I64, "-9223372036854775808", true, INT64_MIN},
    {I64, "-9223372036854775809", false, 0},
    {I64, "9223372036854775807", true, INT64_MAX},
    {I64, "9223372036854775808", false, 0},
    {I64, "-0x8000000000000000", true, INT64_MIN},
    {I64, "0x8000000000000000", false, 0},
    {I64, "-0x10", true, -16},
    {I64, "-010", true, -8},
    {I64, "+5", true, 5},
    {I64, "-", true, 0},
    {I64, "+", true, 0},
    {I64, "--1", false, 0},
    {I64, "+-1", false, 0},
    {I64, "-+1", false, 0},
    {I64, " -1", false, 0},
    {I64, "-18446744073709551615", false, 0},
    // narrow signed
    {I32, "-2147483648", true, INT32_MIN},
    {I32, "-2147483649", false, 0},
    {I32, "2147483647", true, INT32_MAX},
    {I32, "2147483648", false, 0},
    {I32, "0xFFFFFFFF", false, 0},
    {I32, "0x80000000", false, 0},
    {I32, "-0x80000000", true, INT32_MIN},
    {I16, "-0x8000", true, -32768},
    {I16, "0x8000", false, 0},
    {I16, "32767", true, 32767},
    {I16, "32768", false, 0},
    {I16, "-32769", false, 0},
    {I16, "-32768", true, -32768},
    {I8, "-128", true, -128},
    {I8, "127", true, 127},
    {I8, "128", false, 0},
    {I8, "-129", false, 0},
    {I8, "0x80", false, 0},
    {I8, "+5", true, 5},
    {I8, "-", true, 0},
    {I8, "0xff", false, 0},
    {I8, "-0x80", true, -128},
};

TEST(Parsers, TableOfTextsForEveryWidth)
{
    for (const ParseCase &c : CASES) {
        SCOPED_TRACE(std::string("width ") + std::to_string(c.width) +
                     " text '" + c.text + "'");
        int64_t value = 0;
        bool untouched = false;
        int rc = parse(c.width, c.text, &value, &untouched);
        if (c.ok) {
            EXPECT_EQ(rc, 0);
            EXPECT_EQ(value, c.value);
        } else {
            EXPECT_EQ(rc, TARVOCON_ERR_BAD_VALUE);
            EXPECT_TRUE(untouched) << "result written on failure";
        }
    }
}

TEST(Parsers, NullTextFailsForEveryWidth)
{
    for (Width w : {U64, U32, U16, U8, I64, I32, I16, I8}) {
        int64_t value = 0;
        bool untouched = false;
        EXPECT_EQ(parse(w, nullptr, &value, &untouched),
                  TARVOCON_ERR_BAD_VALUE);
        EXPECT_TRUE(untouched);
    }
}

// Random digit strings of every base against strtoull, which agrees with
// the parser on plain digit runs, overflow included.
TEST(Parsers, Uint64AgreesWithStrtoullOnRandomDigitRuns)
{
    std::mt19937_64 random(12345);
    const char *prefixes[] = {"", "0", "0x"};
    const char digits[] = "0123456789abcdefABCDEF";
    const int digit_count[] = {10, 8, 22};
    for (int n = 0; n < 20000; n++) {
        int base_choice = (int)(random() % 3);
        std::string text = prefixes[base_choice];
        size_t length = 1 + random() % 24;
        for (size_t i = 0; i < length; i++) {
            text += digits[random() % digit_count[base_choice]];
        }
        if (base_choice == 0 && text[0] == '0') {
            continue; // that would be octal
        }
        errno = 0;
        char *end = nullptr;
        unsigned long long expected = strtoull(text.c_str(), &end, 0);
        bool overflow = errno == ERANGE;
        uint64_t value = 0;
        int rc = tarvocon_parse_uint64(text.c_str(), &value);
        SCOPED_TRACE(text);
        if (overflow) {
            EXPECT_EQ(rc, TARVOCON_ERR_BAD_VALUE);
        } else {
            ASSERT_EQ(*end, '\0');
            EXPECT_EQ(rc, 0);
            EXPECT_EQ(value, expected);
        }
    }
}

} // namespace
