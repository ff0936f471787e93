// Datatype names, value building, the string helpers and the preparation
// of packed formats, where a command line cannot reach them.
#include <string.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tarvocon.h"

namespace {

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

TEST(Datatype, NamesAreWholeAndCaseInsensitive)
{
    struct Case {
        const char *token;
        int expected; // 0 for an unknown name
    };
    const Case cases[] = {
        {"int8", 8},     {"INT16", 10},     {"Int32", 12},   {"int64", 13},
        {"uint8", 9},    {"uint16", 11},    {"UINT32", 1},   {"Uint32", 1},
        {"uint64", 2},   {"STRING", 3},     {"packed", 5},   {"PACKED", 5},
        {"Bag", 7},      {"u32", 0},        {"uint32 ", 0},  {" uint32", 0},
        {"dir", 0},      {"", 0},           {"int", 0},      {"uint3", 0},
        {"stringx", 0},  {"external item", 0},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.token);
        std::string token = c.token;
        tarvo_item_datatype_td datatype = (tarvo_item_datatype_td)99;
        CaptureStderr();
        int rc = tarvocon_get_datatype(token.data(), &datatype);
        std::string err = GetCapturedStderr();
        if (c.expected != 0) {
            EXPECT_EQ(rc, 0);
            EXPECT_EQ((int)datatype, c.expected);
            EXPECT_EQ(err, "");
        } else {
            EXPECT_EQ(rc, 1);
            EXPECT_EQ((int)datatype, 99) << "result changed on failure";
            EXPECT_EQ(err, "[Tarvocon] Unrecognised datatype (" +
                               token + ")\n");
        }
    }
}

// Values that build are stored and shown by the golden item cases; a
// value that fails reports, returns its code and owns nothing.
TEST(MakeValue, FailuresReportAndOwnNothing)
{
    const std::string bad_integer = "[Tarvocon] Warning: bad integer format "
                                    "or integer value is out of range.\n";
    const std::string internal = "[Tarvocon] An internal error has occurred\n";
    struct Case {
        int datatype;
        const char *token;
        int rc;
        const std::string &message;
    };
    const Case cases[] = {
        {TARVO_DATATYPE_UINT32, "4294967296", TARVOCON_ERR_BAD_VALUE, bad_integer},
        {TARVO_DATATYPE_UINT64, "18446744073709551616", TARVOCON_ERR_BAD_VALUE, bad_integer},
        {TARVO_DATATYPE_INT16, "0x8000", TARVOCON_ERR_BAD_VALUE, bad_integer},
        {TARVO_DATATYPE_INT64, "9223372036854775808", TARVOCON_ERR_BAD_VALUE, bad_integer},
        {TARVO_DATATYPE_UINT32, "12abc", TARVOCON_ERR_BAD_VALUE, bad_integer},
        // datatypes without a conversion
        {-3, "1", 1, internal}, {-1, "1", 1, internal}, {0, "1", 1, internal},
        {4, "1", 1, internal},  {6, "1", 1, internal},  {14, "1", 1, internal},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(std::to_string(c.datatype) + " " + c.token);
        std::string token = c.token;
        uint64_t scratch = 0;
        void *value = &scratch;
        uint32_t length = 77;
        CaptureStderr();
        int rc = tarvocon_make_value((tarvo_item_datatype_td)c.datatype, token.data(),
                                     &scratch, &value, &length);
        EXPECT_EQ(GetCapturedStderr(), c.message);
        EXPECT_EQ(rc, c.rc);
        EXPECT_EQ(value, nullptr) << "a failed value owns nothing";
    }
}

TEST(TerminateString, CopiesAtMostLengthBytesAndTerminates)
{
    struct Case {
        const char *source;
        size_t source_size;
        uint32_t length;
        const char *expected;
    };
    const Case cases[] = {
        {"abcdef", 7, 3, "abc"},   {"abcdef", 7, 0, ""},
        {"abcdef", 7, 6, "abcdef"}, {"ab", 3, 5, "ab"},
        {"a\0bc", 5, 4, "a"},       {"xyz", 3, 3, "xyz"}, // no NUL in source
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.expected);
        std::vector<char> source(c.source, c.source + c.source_size);
        char *copy = nullptr;
        tarvocon_terminate_string(source.data(), &copy, c.length);
        ASSERT_NE(copy, nullptr);
        EXPECT_STREQ(copy, c.expected);
        // Every byte up to and including index length is set: the rest of
        // a short source is NUL-filled.
        for (uint32_t i = (uint32_t)strlen(c.expected); i <= c.length; i++) {
            EXPECT_EQ(copy[i], '\0') << "byte " << i;
        }
        free(copy);
    }
}

TEST(PrepareFormat, RewritesTheUsersFormat)
{
    struct Case {
        const char *format;
        int rc;
        const char *prepared;
        const char *lowered; // the token afterwards
        const char *message; // standard error
    };
    const char *illegal = "[Tarvocon] Format string contains illegal character (";
    const Case cases[] = {
        {"%%d", 0, "%d", "%%d", ""},
        {"S", 0, "%s", "s", ""},
        {"lu", 1, "", "lu", "l)\n"},
        {"dllx", 1, "%d", "dllx", "l)\n"},
        {"dl", 1, "%d", "dl", "l)\n"},
        {"d\tS", 1, "%d", "d\ts", "\t)\n"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.format);
        std::string format = c.format;
        char prepared[100];
        memset(prepared, 'Z', sizeof prepared);
        CaptureStderr();
        int rc = tarvocon_prepare_format(format.data(), prepared);
        std::string err = GetCapturedStderr();
        EXPECT_EQ(rc, c.rc);
        EXPECT_STREQ(prepared, c.prepared);
        EXPECT_EQ(format, c.lowered);
        EXPECT_EQ(err, c.message[0] ? std::string(illegal) + c.message : "");
    }
}

std::string repeat(const std::string &text, int times)
{
    std::string result;
    for (int i = 0; i < times; i++) {
        result += text;
    }
    return result;
}

// The prepared format stops after the conversion that takes it past 95
// characters; the rest is dropped silently.
TEST(PrepareFormat, LongFormatsAreCutAfterTheConversionCrossing95)
{
    struct Case {
        std::string format;
        std::string prepared;
    };
    const Case cases[] = {
        {repeat("d", 60), repeat("%d", 48)},
        {repeat("s", 60), repeat("%s", 48)},
        {repeat("llu", 30), repeat("%llu", 24)},
        // 31 "%ld" are 93 characters; the next "%llu" makes 97.
        {repeat("ld", 31) + "llud", repeat("%ld", 31) + "%llu"},
        // the bad character after the cut is never looked at
        {repeat("d", 60) + "x", repeat("%d", 48)},
    };
    for (const Case &c : cases) {
        std::string format = c.format;
        char prepared[100];
        CaptureStderr();
        EXPECT_EQ(tarvocon_prepare_format(format.data(), prepared), 0);
        EXPECT_EQ(GetCapturedStderr(), "");
        EXPECT_EQ(std::string(prepared), c.prepared);
        EXPECT_LE(strlen(prepared), 99u);
    }
}

} // namespace
