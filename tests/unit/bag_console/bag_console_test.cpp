// The console's bag display and choice lines on bags built by hand: the
// header failure report (a bag the item database would never store), the
// event prefix in the header line, and choice lines with extreme numbers.
#include <gtest/gtest.h>

#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tarvocon.h"
#include "test_helpers.h"

namespace {

using tarvo::test::capture_output;

std::vector<uint8_t> hex(const std::string &digits)
{
    std::vector<uint8_t> out;
    std::string clean;
    for (char c : digits)
        if (c != ' ')
            clean += c;
    for (size_t i = 0; i + 1 < clean.size(); i += 2)
        out.push_back(uint8_t(std::stoul(clean.substr(i, 2), nullptr, 16)));
    return out;
}

/* The display's stream output and its reports. */
struct Shown {
    std::string stream;
    std::string reports;
};

Shown show(std::vector<uint8_t> bag, const char *prefix)
{
    Shown shown;
    char *text = nullptr;
    size_t size = 0;
    shown.reports = capture_output({2}, [&] {
        FILE *stream = open_memstream(&text, &size);
        char name[] = "item";
        tarvocon_print_bag(reinterpret_cast<bag_td *>(bag.data()), uint32_t(bag.size()),
                           name, prefix, stream);
        fclose(stream);
    });
    shown.stream.assign(text, size);
    free(text);
    return shown;
}

/* g_count 1.0 holding 7 */
const char COUNT_BAG[] =
    "54424147 00000001 00000001 00000000 00000004 00000007 675f636f 756e7400 00000007";

TEST(BagDisplay, HeaderFaultsPrintNothingButTheReport)
{
    struct Case {
        const char *what;
        std::vector<uint8_t> bag;
        const char *report;
    } cases[] = {
        {"wrong magic", hex("58424147 00000001 00000001 00000000 00000000 00000001 61000000"),
         "\nError reading bag header: bag header is damaged\n"},
        {"cut short", hex("54424147 00000001"), "\nError reading bag header: bag is truncated\n"},
        {"longer than its header says", hex(std::string(COUNT_BAG) + "00000000"),
         "\nError reading bag header: bag header is damaged\n"},
    };
    for (const Case &c : cases) {
        Shown shown = show(c.bag, "");
        EXPECT_EQ(shown.stream, "") << c.what;
        EXPECT_EQ(shown.reports, c.report) << c.what;
    }
}

TEST(BagDisplay, PrefixAndTokens)
{
    Shown shown = show(hex(COUNT_BAG), "SET    ");
    EXPECT_EQ(shown.reports, "");
    EXPECT_EQ(shown.stream, "SET    [bag (len 36)] \t'item' (g_count v1.0 XDR)\n"
                            "  [int32 (len 4)]\t'count'\t         7 (0x00000007)\n"
                            "[end bag]\n");
}

// The choice line of every kind is shown by the golden bag dialogues; these
// are the bounds and values no schema there has.
TEST(BagChoiceLine, SignedAndUnsignedNumbers)
{
    bag_token_td opaque{};
    opaque.name = "field";
    opaque.type = BAG_TOKEN_OPAQUE;
    opaque.min_length = -1;
    opaque.max_length = 4000000000u;
    bag_token_td choice = opaque;
    choice.type = BAG_TOKEN_UNION_CHOICE;
    choice.value.u32 = 0xFFFFFFFFu;
    EXPECT_EQ(capture_output({1}, [&] { tarvocon_print_bag_choice(&opaque, "OPAQUE"); }),
              "OPAQUE field: (min length -1) (max length 4000000000) \n");
    EXPECT_EQ(capture_output({1}, [&] { tarvocon_print_bag_choice(&choice, "UnionChoice"); }),
              "UnionChoice field: (value -1) \n");
}

} // namespace

int main(int argc, char **argv)
{
    setenv("TARVO_BAG_PATH", TARVO_BAG_TEST_PATH, 1);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
