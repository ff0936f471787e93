// Packed tuples: the value dialogue from a command file, building the
// tuple, and showing stored tuples argument by argument. The everyday
// dialogue, its end of file, get and match of packed items are golden item
// cases; these are the answers and tuples they do not reach.
#include <arpa/inet.h>
#include <stdio.h>
#include <string.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "capture.h"
#include "tarvocon.h"

namespace {

using testing::internal::CaptureStderr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStderr;
using testing::internal::GetCapturedStdout;

// Runs with a command file holding `lines`, as the console does under -f.
class CommandFile {
  public:
    explicit CommandFile(const std::string &lines) : lines_(lines)
    {
        file_ = fmemopen(lines_.data(), lines_.size(), "r");
        saved_from_file_ = tarvocon_from_file;
        saved_file_ = tarvocon_command_file;
        tarvocon_from_file = 1;
        tarvocon_command_file = file_;
    }
    ~CommandFile()
    {
        tarvocon_from_file = saved_from_file_;
        tarvocon_command_file = saved_file_;
        fclose(file_);
    }
    CommandFile(const CommandFile &) = delete;
    CommandFile &operator=(const CommandFile &) = delete;
    std::string rest()
    {
        std::string text;
        int c;
        while ((c = fgetc(file_)) != EOF) text += (char)c;
        return text;
    }

  private:
    std::string lines_;
    FILE *file_;
    uint32_t saved_from_file_;
    FILE *saved_file_;
};

std::string show(tuple_buf *tuple)
{
    MemStream out;
    tarvocon_page_print_packed(tuple, out.get());
    return out.str();
}

struct DialogueCase {
    const char *what;
    const char *format;
    std::string lines;
    int rc;
    std::string echo;  // standard output
    std::string shown; // the built tuple, shown
    std::string err;
};

TEST(CreatePacked, ValuesFromTheCommandFile)
{
    const std::string bad_integer =
        "[Tarvocon] Warning: bad integer format or integer value is out of "
        "range.\n";
    const DialogueCase cases[] = {
        {"blanks then quotes", "s", "  \"x y\"  \n", 0,
         "Item datum:   \"x y\"  \n", "\t[string] \t  \"x y\"\n", ""},
        {"inner quote kept", "s", "\"a\"b\"\n", 0, "Item datum: \"a\"b\"\n",
         "\t[string] \t  \"a\"b\"\n", ""},
        {"lone quote kept", "s", "\"\n", 0, "Item datum: \"\n",
         "\t[string] \t  \"\"\"\n", ""},
        {"small uint64", "llu", "5\n", 0, "Item datum: 5\n",
         "\t[uint64] \t  00000005\n", ""},
        {"ulong too big", "ld", "0x100000000\n", TARVOCON_ERR_BAD_VALUE,
         "Item datum: 0x100000000\n", "", bad_integer},
    };
    for (const DialogueCase &c : cases) {
        SCOPED_TRACE(c.what);
        CommandFile file(c.lines);
        std::string format = c.format;
        tuple_buf *tuple = nullptr;
        uint32_t size = 0;
        CaptureStdout();
        CaptureStderr();
        int rc = tarvocon_create_packed(format.data(), &tuple, &size);
        EXPECT_EQ(GetCapturedStderr(), c.err);
        EXPECT_EQ(GetCapturedStdout(), c.echo);
        ASSERT_EQ(rc, c.rc);
        if (rc == 0) {
            ASSERT_NE(tuple, nullptr);
            EXPECT_EQ(size, tuple_size(tuple));
            EXPECT_EQ(show(tuple), c.shown);
            tuple_free(tuple);
        } else {
            EXPECT_EQ(tuple, nullptr);
        }
    }
}

// Values are read for the first 32 conversions only and the tuple holds
// those 32; the line for a 33rd stays in the file.
TEST(CreatePacked, AtMost32ValuesAreRead)
{
    std::string lines;
    std::string shown;
    for (int i = 1; i <= 33; i++) {
        lines += std::to_string(i) + "\n";
        char line[64];
        snprintf(line, sizeof line, "\t[uint] \t\t  0x%8.8X\n", i);
        if (i <= 32) shown += line;
    }
    CommandFile file(lines);
    std::string format(33, 'd');
    tuple_buf *tuple = nullptr;
    uint32_t size = 0;
    CaptureStdout();
    ASSERT_EQ(tarvocon_create_packed(format.data(), &tuple, &size), 0);
    GetCapturedStdout();
    EXPECT_EQ(show(tuple), shown);
    EXPECT_EQ(file.rest(), "33\n");
    tuple_free(tuple);
}

tuple_buf *pack(const char *format, uint32_t mask, tuple_arg *args)
{
    tuple_buf *tuple = tuple_packv(0, 0, mask, format, args);
    EXPECT_NE(tuple, nullptr) << format;
    return tuple;
}

TEST(PrintPacked, StoredTuplesShowEveryKind)
{
    char hello[] = "hello";
    struct Case {
        const char *format;
        uint32_t mask;
        std::vector<tuple_arg> args;
        std::string shown;
    };
    tuple_arg u5{}, big{}, addr{}, u64{}, s_hello{};
    u5.u32 = 5;
    big.u32 = 0xFFFFFFFF;
    addr.u32 = htonl(0x0A000001); // 10.0.0.1
    u64.u64 = 12345678901ull;
    s_hello.str = hello;
    const Case cases[] = {
        {"%d%s", 0x1, {u5, s_hello},
         "\t[uint] \t\t  0x00000005\n\t[string] \t  value not present\n"},
        {"%N", 0xFFFFFFFF, {addr}, "\t[inaddr] \t  0x0A000001\n"},
        {"%ld", 0xFFFFFFFF, {big}, "\t[ulong] \t  0xFFFFFFFF\n"},
        {"%llu", 0xFFFFFFFF, {u64}, "\t[uint64] \t  12345678901\n"},
        {"%d%ld%s%N%llu", 0, {u5, big, s_hello, addr, u64},
         "\t[uint] \t\t  value not present\n"
         "\t[ulong] \t  value not present\n"
         "\t[string] \t  value not present\n"
         "\t[inaddr] \t  value not present\n"
         "\t[uint64] \t  value not present\n"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.format);
        std::vector<tuple_arg> args = c.args;
        tuple_buf *tuple = pack(c.format, c.mask, args.data());
        ASSERT_NE(tuple, nullptr);
        EXPECT_EQ(show(tuple), c.shown);
        tuple_free(tuple);
    }
}

TEST(PrintPackedValue, SlotsByKind)
{
    MemStream out;
    tuple_arg slot{};
    slot.str = nullptr;
    tarvocon_page_print_packed_value(TARVOCON_PACKED_STRING, &slot, 4, 1,
                                     out.get());
    slot.u32 = 7;
    tarvocon_page_print_packed_value(0, &slot, 0, 1, out.get());
    tarvocon_page_print_packed_value(6, &slot, 0, 1, out.get());
    slot.str = strdup("abcdef");
    tarvocon_page_print_packed_value(TARVOCON_PACKED_STRING, &slot, 2, 1,
                                     out.get());
    EXPECT_EQ(slot.str, nullptr) << "a shown string of non-zero length is freed";
    EXPECT_EQ(out.str(), "\t[string] \t  NULL\n\t[string] \t  \"ab\"\n");
}

TEST(PrintItem, DamagedPackedValueShowsOnlyItsHeader)
{
    unsigned char garbage[12] = {0xFF, 0xFF, 0xFF, 0xFF, 1, 2, 3, 4};
    MemStream out;
    char name[] = "p";
    CaptureStderr();
    tarvocon_page_print_item(TARVO_DATATYPE_PACKED, 0, name, sizeof garbage,
                             garbage, out.get());
    EXPECT_EQ(GetCapturedStderr(),
              "[Tarvocon] Unable to extract format string from packed tuple\n");
    EXPECT_EQ(out.str(), "[packed (len 12)] \t'p'\n");
}

} // namespace
