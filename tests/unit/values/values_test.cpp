// Datatype names, value building, the string helpers and the preparation
// of packed formats.
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

TEST(MakeValue, IntegersAreStoredAtTheirWidthInTheScratchWord)
{
    struct Case {
        tarvo_item_datatype_td datatype;
        const char *token;
        uint32_t length;
        std::vector<unsigned char> bytes; // little-endian host
    };
    const Case cases[] = {
        {TARVO_DATATYPE_UINT32, "4294967295", 4, {0xFF, 0xFF, 0xFF, 0xFF}},
        {TARVO_DATATYPE_UINT32, "0x12345678", 4, {0x78, 0x56, 0x34, 0x12}},
        {TARVO_DATATYPE_UINT64, "0x0102030405060708", 8,
         {8, 7, 6, 5, 4, 3, 2, 1}},
        {TARVO_DATATYPE_INT8, "-1", 1, {0xFF}},
        {TARVO_DATATYPE_INT8, "+5", 1, {5}},
        {TARVO_DATATYPE_UINT8, "0377", 1, {0xFF}},
        {TARVO_DATATYPE_INT16, "-2", 2, {0xFE, 0xFF}},
        {TARVO_DATATYPE_UINT16, "0xBEEF", 2, {0xEF, 0xBE}},
        {TARVO_DATATYPE_INT32, "-2147483648", 4, {0, 0, 0, 0x80}},
        {TARVO_DATATYPE_INT64, "-1", 8,
         {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.token);
        std::string token = c.token;
        uint64_t scratch = 0xDEADBEEFDEADBEEFull;
        void *value = nullptr;
        uint32_t length = 0;
        ASSERT_EQ(tarvocon_make_value(c.datatype, token.data(), &scratch,
                                      &value, &length),
                  0);
        EXPECT_EQ(value, (void *)&scratch);
        EXPECT_EQ(length, c.length);
        EXPECT_EQ(memcmp(value, c.bytes.data(), c.length), 0);
    }
}

TEST(MakeValue, StringIsTheTokenWithItsTerminator)
{
    char token[] = "abc";
    uint64_t scratch = 0;
    void *value = nullptr;
    uint32_t length = 0;
    ASSERT_EQ(tarvocon_make_value(TARVO_DATATYPE_STRING, token, &scratch,
                                  &value, &length),
              0);
    EXPECT_EQ(value, (void *)token);
    EXPECT_EQ(length, 4u);
    char empty[] = "";
    ASSERT_EQ(tarvocon_make_value(TARVO_DATATYPE_STRING, empty, &scratch,
                                  &value, &length),
              0);
    EXPECT_EQ(length, 1u);
}

TEST(MakeValue, OutOfRangeIntegersReportAndReturnTheParserCode)
{
    struct Case {
        tarvo_item_datatype_td datatype;
        const char *token;
    };
    const Case cases[] = {
        {TARVO_DATATYPE_UINT32, "4294967296"}, {TARVO_DATATYPE_UINT32, "-1"},
        {TARVO_DATATYPE_UINT64, "18446744073709551616"},
        {TARVO_DATATYPE_INT8, "128"},          {TARVO_DATATYPE_UINT8, "256"},
        {TARVO_DATATYPE_INT16, "0x8000"},      {TARVO_DATATYPE_UINT16, "65536"},
        {TARVO_DATATYPE_INT32, "2147483648"},
        {TARVO_DATATYPE_INT64, "9223372036854775808"},
        {TARVO_DATATYPE_UINT32, "12abc"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.token);
        std::string token = c.token;
        uint64_t scratch = 0;
        void *value = &scratch;
        uint32_t length = 77;
        CaptureStderr();
        int rc = tarvocon_make_value(c.datatype, token.data(), &scratch,
                                     &value, &length);
        EXPECT_EQ(GetCapturedStderr(),
                  "[Tarvocon] Warning: bad integer format or integer value "
                  "is out of range.\n");
        EXPECT_EQ(rc, TARVOCON_ERR_BAD_VALUE);
        EXPECT_EQ(value, nullptr) << "a failed value owns nothing";
    }
}

TEST(MakeValue, DatatypeWithoutConversionIsAnInternalError)
{
    for (int code : {-3, -2, -1, 0, 4, 6, 14}) {
        char token[] = "1";
        uint64_t scratch = 0;
        void *value = nullptr;
        uint32_t length = 0;
        CaptureStderr();
        int rc = tarvocon_make_value((tarvo_item_datatype_td)code, token,
                                     &scratch, &value, &length);
        EXPECT_EQ(GetCapturedStderr(),
                  "[Tarvocon] An internal error has occurred\n");
        EXPECT_EQ(rc, 1);
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

TEST(MakeUppercase, OnlyLowerCaseSBecomesUpperCase)
{
    struct Case {
        const char *in;
        const char *out;
    };
    const Case cases[] = {
        {"%d%12s", "%d%12S"}, {"%ld%llu", "%ld%llu"}, {"sSs", "SSS"},
        {"", ""},             {"%5s%0s%N", "%5S%0S%N"},
    };
    for (const Case &c : cases) {
        std::string text = c.in;
        tarvocon_make_uppercase(text.data());
        EXPECT_EQ(text, c.out);
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
        {"dsld", 0, "%d%s%ld", "dsld", ""},
        {"%D%LLU", 0, "%d%llu", "%d%llu", ""},
        {"%%d", 0, "%d", "%%d", ""},
        {"", 0, "", "", ""},
        {"S", 0, "%s", "s", ""},
        {"d s", 1, "%d", "d s", " )\n"},
        {"lu", 1, "", "lu", "l)\n"},
        {"x", 1, "", "x", "x)\n"},
        {"dllx", 1, "%d", "dllx", "l)\n"},
        {"dl", 1, "%d", "dl", "l)\n"},
        {"%5d", 1, "", "%5d", "5)\n"},
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
