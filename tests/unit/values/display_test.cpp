// The item display, the hex dump and match, written to a memory stream and
// compared byte for byte with the documented formats.
#include <string.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "capture.h"
#include "tarvocon.h"

namespace {

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

std::vector<unsigned char> le(uint64_t value, size_t width)
{
    std::vector<unsigned char> bytes(width);
    memcpy(bytes.data(), &value, width);
    return bytes;
}

std::vector<unsigned char> text(const char *s, size_t size)
{
    return std::vector<unsigned char>(s, s + size);
}

struct ItemCase {
    const char *what;
    int datatype;
    tarvo_event_td event;
    std::vector<unsigned char> value; // empty: no value pointer
    uint32_t length;                  // as given, may differ from the bytes
    std::string expected;
};

std::string print_item(const ItemCase &c)
{
    MemStream out;
    char name[] = "a";
    void *value = c.value.empty() ? nullptr : (void *)c.value.data();
    tarvocon_page_print_item((tarvo_item_datatype_td)c.datatype, c.event,
                             name, c.length, value, out.get());
    return out.str();
}

// The everyday datatypes and values are shown by the golden item cases;
// these are the lengths and codes a command line cannot produce.
TEST(PrintItem, Table)
{
    const ItemCase cases[] = {
        {"uint32 max", 1, 0, le(0xFFFFFFFF, 4), 4,
         "[uint32 (len 4)] \t'a' 4294967295 (0xFFFFFFFF)\n"},
        {"string cut by length", 3, 0, text("hello", 6), 3,
         "[string (len 3)] \t'a' \"hel\"\n"},
        {"string cut by NUL", 3, 0, text("he\0llo", 7), 7,
         "[string (len 7)] \t'a' \"he\"\n"},
        {"int8 -1", 8, 0, le(0xFF, 1), 1,
         "[int8 (len 1)] \t\t'a'  -1 (0xFF)\n"},
        {"int32 min", 12, 0, le(0x80000000, 4), 4,
         "[int32 (len 4)] \t'a' -2147483648 (0x80000000)\n"},
        {"int64 small", 13, 0, le(42, 8), 8, "[int64 (len 8)] \t'a' 42\n"},
        // longer than the width: the width is read from the start and the
        // length printed as given
        {"uint16 in 4 bytes", 11, 0, le(0x00010002, 4), 4,
         "[uint16 (len 4)] \t'a'     2 (0x0002)\n"},
        // shorter than the width: the missing bytes count as zero
        {"uint32 in 2 bytes", 1, 0, le(0x1234, 2), 2,
         "[uint32 (len 2)] \t'a'       4660 (0x00001234)\n"},
        {"int64 in 1 byte", 13, 0, le(0xFF, 1), 1,
         "[int64 (len 1)] \t'a' 255\n"},
        // no value to show
        {"dir with bytes", -3, 0, le(1, 4), 4, "[dir]\t\t\t'a'\n"},
        {"external item", -2, 0, {}, 0, "[external item]\t\t'a'\n"},
        {"external dir", -1, 0, {}, 0, "[external dir]\t\t'a'\n"},
        {"string length 0", 3, 0, text("x", 2), 0, "[string] \t\t'a'\n"},
        {"string null value", 3, 0, {}, 5, "[string] \t\t'a'\n"},
        {"packed", 5, 0, {}, 0, "[packed] \t\t'a'\n"},
        {"bag", 7, 0, {}, 0, "[bag] \t\t\t'a'\n"},
        {"code 6", 6, 0, {}, 0, "[unknown] \t\t'a'\n"},
        // event prefixes use the first bit set
        {"set", 1, TARVO_EVENT_SET, le(305419896, 4), 4,
         "SET    [uint32 (len 4)] \t'a'  305419896 (0x12345678)\n"},
        {"create and set", 1, TARVO_EVENT_CREATE | TARVO_EVENT_SET,
         le(1, 4), 4, "CREATE [uint32 (len 4)] \t'a'          1 (0x00000001)\n"},
        {"delete", 3, TARVO_EVENT_DELETE, {}, 0, "DELETE [string] \t\t'a'\n"},
        {"set and delete", -3, TARVO_EVENT_SET | TARVO_EVENT_DELETE, {}, 0,
         "SET    [dir]\t\t\t'a'\n"},
        {"other bits only", -3, 8, {}, 0, "[dir]\t\t\t'a'\n"},
        {"unknown code with event", 6, TARVO_EVENT_DELETE, text("A", 1), 1,
         "DELETE [unknown (len 1)] \t'a'\n00000000 : 41 " +
             std::string(15 * 3, ' ') + ": A" + std::string(15, ' ') + "\n"},
    };
    for (const ItemCase &c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(print_item(c), c.expected);
    }
}

std::string dump(int datatype, const std::vector<unsigned char> &value,
                 uint32_t length, const char *prefix = "")
{
    MemStream out;
    char name[] = "n";
    tarvocon_dump_item((tarvo_item_datatype_td)datatype, name, prefix, length,
                       value.empty() ? nullptr : (void *)value.data(),
                       out.get());
    return out.str();
}

TEST(DumpItem, HeadersByDatatype)
{
    struct Case {
        int datatype;
        bool value;
        std::string header;
    };
    const Case cases[] = {
        {2, true, "[uint64 (len 4)] \t'n'\n"},
        {5, true, "[packed (len 4)] \t'n'\n"},
        {7, true, "[bag (len 4)] \t'n'\n"},
        {13, true, "[unknown (len 4)] \t'n'\n"},
        {0, true, "[unknown (len 4)] \t'n'\n"},
        {1, false, "[uint32] \t\t'n'\n"},
        {3, false, "[string] \t\t'n'\n"},
        {7, false, "[bag] \t\t\t'n'\n"},
        {8, false, "[unknown] \t\t'n'\n"},
        {-2, true, "[external item]\t\t'n'\n"},
        {-1, false, "[external dir]\t\t'n'\n"},
    };
    const std::string line =
        "00000000 : 00 FF 7F 20 " + std::string(12 * 3, ' ') + ": ... " + // 0x7F (DEL) is not printable
        std::string(12, ' ') + "\n";
    for (const Case &c : cases) {
        SCOPED_TRACE(c.datatype);
        std::vector<unsigned char> bytes = {0x00, 0xFF, 0x7F, 0x20};
        std::string expected = c.header;
        if (c.value && c.datatype >= 0) { // the three valueless codes are negative
            expected += line;
        }
        EXPECT_EQ(dump(c.datatype, c.value ? bytes : std::vector<unsigned char>{},
                       c.value ? 4 : 0),
                  expected);
    }
}

TEST(DumpItem, ExactlySixteenBytesAndAPrefix)
{
    std::vector<unsigned char> bytes(16, 'x');
    EXPECT_EQ(dump(1, bytes, 16, "SET    "),
              "SET    [uint32 (len 16)] \t'n'\n00000000 : " +
                  [] {
                      std::string s;
                      for (int i = 0; i < 16; i++) s += "78 ";
                      return s;
                  }() +
                  ": xxxxxxxxxxxxxxxx\n");
}

struct MatchCase {
    const char *what;
    int datatype;
    const char *token;
    std::vector<unsigned char> real;
    int rc;
    std::string out;
    std::string err;
};

TEST(CheckMatch, VerdictsByDatatype)
{
    const std::string not_recognised =
        "[Tarvocon] Tarvo returned unrecognised datatype (";
    const MatchCase cases[] = {
        {"uint32 out of range", 1, "4294967296", le(1, 4),
         TARVOCON_ERR_BAD_VALUE,
         "Values did not match. Tarvo value 0x1. Your value 4294967296\n",
         ""},
        {"string prefix", 3, "ab", text("abc", 4), 1,
         "Values did not match. Tarvo value \"abc\". Your value \"ab\"\n", ""},
        {"bag", 7, "1", le(1, 4), 1, "", not_recognised + "7)\n"},
        {"external item", -2, "1", {}, 1, "",
         not_recognised + "4294967294)\n"},
        {"code 6", 6, "1", le(1, 4), 1, "", not_recognised + "6)\n"},
    };
    for (const MatchCase &c : cases) {
        SCOPED_TRACE(c.what);
        MemStream out;
        char name[] = "item";
        std::string token = c.token;
        CaptureStderr();
        int rc = tarvocon_check_match(
            name, (tarvo_item_datatype_td)c.datatype, token.data(),
            c.real.empty() ? nullptr : (void *)c.real.data(), out.get());
        EXPECT_EQ(GetCapturedStderr(), c.err);
        EXPECT_EQ(rc, c.rc);
        EXPECT_EQ(out.str(), c.out);
    }
}

} // namespace
