#include <platform/tuple.h>

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

struct TupleDeleter {
    void operator()(tuple_buf *t) const { tuple_free(t); }
};
using Tuple = std::unique_ptr<tuple_buf, TupleDeleter>;

struct Text {
    char *p;
    ~Text() { std::free(p); }
};

std::vector<uint8_t> bytes(const tuple_buf *t) {
    const uint8_t *p = reinterpret_cast<const uint8_t *>(t);
    return std::vector<uint8_t>(p, p + tuple_size(t));
}

tuple_arg u32(uint32_t v) { tuple_arg a{}; a.u32 = v; return a; }
tuple_arg u64(uint64_t v) { tuple_arg a{}; a.u64 = v; return a; }
tuple_arg str(const char *s) { tuple_arg a{}; a.str = const_cast<char *>(s); return a; }

// Unpacks with every slot pointing at itself, as the console does.
struct Unpacked {
    int rc = -1;
    uint32_t mask = 0;
    std::vector<tuple_arg> slots;
    std::vector<bool> is_string;
    ~Unpacked() {
        for (size_t i = 0; i < slots.size(); ++i)
            if (rc == 0 && is_string[i] && slots[i].str != nullptr && *slots[i].str != '\0')
                std::free(slots[i].str);
    }
};

std::unique_ptr<Unpacked> unpack(const tuple_buf *t) {
    auto out = std::make_unique<Unpacked>();
    Text format{tuple_extract_format(t)};
    if (format.p == nullptr)
        return out;
    std::string f = format.p;
    for (char &c : f)
        if (c == 's') c = 'S';
    out->slots.resize(TUPLE_MAX_ARGS);
    for (auto &slot : out->slots)
        slot.ptr = &slot;
    for (size_t i = 0, n = 0; i < f.size(); ++i)
        if (f[i] == 'S' || f[i] == 'd' || f[i] == 'u' || f[i] == 'N')
            out->is_string.push_back(f[i] == 'S'), ++n;
    out->is_string.resize(TUPLE_MAX_ARGS, false);
    out->rc = tuple_unpackv(t, &out->mask, f.c_str(), out->slots.data());
    return out;
}

TEST(Tuple, FormatsAsStored) {
    in_addr_t address = inet_addr("10.0.0.1");
    struct Case {
        const char *format;
        std::vector<tuple_arg> args;
        const char *extracted;
    };
    const Case cases[] = {
        {"%d", {u32(0xDEADBEEF)}, "%d"},
        {"d", {u32(0)}, "%d"},
        {"%ld", {u32(0xFFFFFFFF)}, "%ld"},
        {"%llu", {u64(0x0123456789ABCDEFull)}, "%llu"},
        {"%s", {str("hello world")}, "%11s"},
        {"%s", {str("")}, "%0s"},
        {"N", {u32(address)}, "N"},
        {"%d%s%ld%llu", {u32(7), str("ab"), u32(9), u64(UINT64_MAX)}, "%d%2s%ld%llu"},
        {"%5s%12d", {str("x y"), u32(3)}, "%3s%d"},  // widths given are ignored
        {"", {}, ""},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.format);
        std::vector<tuple_arg> args = c.args;
        Tuple t(tuple_packv(0, 0, 0xFFFFFFFF, c.format, args.data()));
        ASSERT_TRUE(t);
        EXPECT_EQ(tuple_check(t.get(), tuple_size(t.get())), 0);
        Text format{tuple_extract_format(t.get())};
        ASSERT_NE(format.p, nullptr);
        EXPECT_STREQ(format.p, c.extracted);
        // Values come back as RandomTuplesRoundTripExactly checks.
        auto got = unpack(t.get());
        ASSERT_EQ(got->rc, 0);
        EXPECT_EQ(got->mask, c.args.empty() ? 0u : (1u << c.args.size()) - 1);
    }
}

TEST(Tuple, ByteLayoutIsFixed) {
    // "%d%s%lluN" with 0x01020304, "hi", 5 and 192.168.0.1, the third absent.
    std::vector<tuple_arg> args = {u32(0x01020304), str("hi"), u64(5), u32(inet_addr("192.168.0.1"))};
    Tuple t(tuple_packv(0, 0, 0xB, "%d%s%lluN", args.data()));
    ASSERT_TRUE(t);
    const std::vector<uint8_t> expected = {
        'T', 'U', 'P', 'L', 1, 4, 0, 9,   // magic, version, 4 conversions, format length 9
        0, 0, 0, 39,                      // total size
        0, 0, 0, 0x0B,                    // presence mask
        '%', 'd', '%', 's', '%', 'l', 'l', 'u', 'N',
        1, 2, 3, 4,                       // %d, big-endian
        0, 0, 0, 2, 'h', 'i',             // %s: length and bytes
        192, 168, 0, 1,                   // N, network order; %llu absent
    };
    EXPECT_EQ(bytes(t.get()), expected);
}

TEST(Tuple, PresenceMask) {
    std::vector<tuple_arg> args = {u32(1), u32(2), str("three"), str(nullptr), u64(5)};
    Tuple t(tuple_packv(0, 0, 0b10101, "%d%d%s%s%llu", args.data()));
    ASSERT_TRUE(t);
    Text format{tuple_extract_format(t.get())};
    EXPECT_STREQ(format.p, "%d%d%5s%0s%llu");
    auto got = unpack(t.get());
    ASSERT_EQ(got->rc, 0);
    EXPECT_EQ(got->mask, 0b10101u);
    EXPECT_EQ(got->slots[0].u32, 1u);
    EXPECT_EQ(got->slots[1].u32, 0u);  // absent integers read as 0
    EXPECT_STREQ(got->slots[2].str, "three");
    EXPECT_EQ(got->slots[3].str, nullptr);
    EXPECT_EQ(got->slots[4].u64, 5u);

    // A null string is absent even when the mask says present; mask bits
    // past the last conversion are dropped.
    Tuple all(tuple_packv(0, 0, 0xFFFFFFFF, "%d%d%s%s%llu", args.data()));
    ASSERT_TRUE(all);
    EXPECT_EQ(unpack(all.get())->mask, 0b10111u);
}

TEST(Tuple, StringsKeepTheirLengthAndContent) {
    std::string big(100000, 'q');
    big[500] = '\t';
    big[99999] = '\xff';
    std::vector<tuple_arg> args = {str(big.c_str()), str(""), str("a\"b\\c")};
    Tuple t(tuple_packv(0, 0, 0xFFFFFFFF, "sss", args.data()));
    ASSERT_TRUE(t);
    Text format{tuple_extract_format(t.get())};
    EXPECT_STREQ(format.p, "%100000s%0s%5s");
    auto got = unpack(t.get());
    ASSERT_EQ(got->rc, 0);
    EXPECT_EQ(std::string(got->slots[0].str), big);
    ASSERT_NE(got->slots[1].str, nullptr);  // present and empty, not freed
    EXPECT_STREQ(got->slots[1].str, "");
    EXPECT_STREQ(got->slots[2].str, "a\"b\\c");
}

TEST(Tuple, UnpacksIntoSeparateMemory) {
    std::vector<tuple_arg> args = {u32(42), u64(1ull << 40), str("text"), u32(htonl(0x0A000001))};
    Tuple t(tuple_packv(0, 0, 0xFFFFFFFF, "%ld%llu%sN", args.data()));
    ASSERT_TRUE(t);
    uint32_t a = 0, address = 0;
    uint64_t b = 0;
    char *s = nullptr;
    tuple_arg slots[4];
    slots[0].ptr = &a;
    slots[1].ptr = &b;
    slots[2].ptr = &s;
    slots[3].ptr = &address;
    uint32_t mask = 0;
    ASSERT_EQ(tuple_unpackv(t.get(), &mask, "%ld%llu%4SN", slots), 0);
    EXPECT_EQ(a, 42u);
    EXPECT_EQ(b, 1ull << 40);
    EXPECT_STREQ(s, "text");
    EXPECT_EQ(ntohl(address), 0x0A000001u);
    EXPECT_EQ(mask, 0xFu);
    std::free(s);
}

TEST(Tuple, FormatsThatCannotBePacked) {
    std::vector<tuple_arg> args(40, u32(1));
    const char *bad[] = {"%", "5", "%5", "x", "lu", "%lx", "%S", "d ", "%D", "l", "ll", "%llx"};
    for (const char *format : bad)
        EXPECT_EQ(tuple_packv(0, 0, 0xFFFFFFFF, format, args.data()), nullptr) << format;
    EXPECT_EQ(tuple_packv(0, 0, 0xFFFFFFFF, nullptr, args.data()), nullptr);
    EXPECT_EQ(tuple_packv(1, 0, 0xFFFFFFFF, "%d", args.data()), nullptr);
    EXPECT_EQ(tuple_packv(0, 1, 0xFFFFFFFF, "%d", args.data()), nullptr);
    EXPECT_EQ(tuple_packv(0, 0, 0xFFFFFFFF, "%d", nullptr), nullptr);

    std::string thirty_two, thirty_three;
    for (int i = 0; i < 32; ++i)
        thirty_two += "%d";
    thirty_three = thirty_two + "d";
    Tuple most(tuple_packv(0, 0, 0xFFFFFFFF, thirty_two.c_str(), args.data()));
    ASSERT_TRUE(most);
    EXPECT_EQ(unpack(most.get())->mask, 0xFFFFFFFFu);
    EXPECT_EQ(tuple_packv(0, 0, 0xFFFFFFFF, thirty_three.c_str(), args.data()), nullptr);
}

TEST(Tuple, UnpackFormatMustMatchTheTuple) {
    std::vector<tuple_arg> args = {u32(1), str("xy")};
    Tuple t(tuple_packv(0, 0, 0xFFFFFFFF, "%d%s", args.data()));
    ASSERT_TRUE(t);
    tuple_arg slots[TUPLE_MAX_ARGS];
    for (auto &slot : slots)
        slot.ptr = &slot;
    uint32_t mask = 0;
    const char *wrong[] = {"%d", "%d%2S%d", "%ld%2S", "%2S%d", "%d%llu", "%d%2Q", ""};
    for (const char *format : wrong) {
        EXPECT_EQ(tuple_unpackv(t.get(), &mask, format, slots), TUPLE_ERR_FORMAT) << format;
        for (auto &slot : slots)
            slot.ptr = &slot;
    }
    EXPECT_EQ(tuple_unpackv(t.get(), &mask, nullptr, slots), TUPLE_ERR_FORMAT);
    slots[1].ptr = nullptr;
    EXPECT_EQ(tuple_unpackv(t.get(), &mask, "%d%2S", slots), TUPLE_ERR_FORMAT);
    EXPECT_EQ(tuple_unpackv(nullptr, &mask, "%d%2S", slots), TUPLE_ERR_CORRUPT);
}

// A valid tuple's bytes with one change applied.
std::vector<uint8_t> damaged(std::vector<uint8_t> b, size_t at, uint8_t value) {
    b[at] = value;
    return b;
}

TEST(Tuple, DamagedBytesAreRefused) {
    std::vector<tuple_arg> args = {u32(7), str("abc")};
    Tuple t(tuple_packv(0, 0, 0xFFFFFFFF, "%d%s", args.data()));
    ASSERT_TRUE(t);
    const std::vector<uint8_t> good = bytes(t.get());
    ASSERT_EQ(good.size(), 16u + 4 + 4 + 4 + 3);
    auto with_total = [](std::vector<uint8_t> b) {
        b[11] = static_cast<uint8_t>(b.size());
        return b;
    };
    std::vector<uint8_t> trailing = good;
    trailing.push_back(0);
    std::vector<uint8_t> nul_in_string = damaged(good, good.size() - 2, 0);
    std::vector<uint8_t> wide_format = good;  // "%5d%s": not the stored spelling
    wide_format.insert(wide_format.begin() + 17, '5');
    wide_format[7] = 5;
    struct Case { const char *name; std::vector<uint8_t> data; };
    const Case cases[] = {
        {"magic", damaged(good, 0, 't')},
        {"version", damaged(good, 4, 2)},
        {"too few conversions", damaged(good, 5, 1)},
        {"too many conversions", damaged(good, 5, 33)},
        {"format length past the end", damaged(good, 7, 200)},
        {"format length short", damaged(good, 7, 3)},
        {"total size", damaged(good, 11, 99)},
        {"mask bit past the last argument", damaged(good, 15, 7)},
        {"unknown conversion", damaged(good, 17, 'x')},
        {"string longer than the tuple", damaged(good, 27, 200)},
        {"string shorter, bytes left over", damaged(good, 27, 2)},
        {"trailing byte", with_total(trailing)},
        {"NUL inside a string", nul_in_string},
        {"non-canonical format text", with_total(wide_format)},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(tuple_check(c.data.data(), static_cast<uint32_t>(c.data.size())),
                  TUPLE_ERR_CORRUPT) << c.name;
    }
    // Every cut of the tuple is refused, and so is a cut of what it claims.
    for (size_t len = 0; len < good.size(); ++len) {
        std::vector<uint8_t> cut(good.begin(), good.begin() + static_cast<long>(len));
        EXPECT_EQ(tuple_check(cut.empty() ? nullptr : cut.data(), static_cast<uint32_t>(len)),
                  TUPLE_ERR_CORRUPT) << len;
    }
    EXPECT_EQ(tuple_check(good.data(), static_cast<uint32_t>(good.size())), 0);
    // A damaged tuple read back from the store can be neither shown nor
    // unpacked.
    std::vector<uint8_t> bad = damaged(good, 17, 'x');
    const tuple_buf *bad_tuple = reinterpret_cast<const tuple_buf *>(bad.data());
    EXPECT_EQ(tuple_extract_format(bad_tuple), nullptr);
    tuple_arg slots[2];
    slots[0].ptr = &slots[0];
    slots[1].ptr = &slots[1];
    uint32_t mask = 0;
    EXPECT_EQ(tuple_unpackv(bad_tuple, &mask, "%d%3S", slots), TUPLE_ERR_CORRUPT);
}

TEST(Tuple, RandomTuplesRoundTripExactly) {
    std::mt19937_64 rng(20240611);
    const char *conversions[] = {"%d", "%ld", "%llu", "%s", "N"};
    for (int round = 0; round < 2000; ++round) {
        size_t n = rng() % (TUPLE_MAX_ARGS + 1);
        std::string format;
        std::vector<int> kinds;
        std::vector<std::string> texts(n);
        std::vector<tuple_arg> args(n);
        for (size_t i = 0; i < n; ++i) {
            int k = static_cast<int>(rng() % 5);
            kinds.push_back(k);
            format += conversions[k];
            if (k == 3) {
                texts[i] = std::string(rng() % 40, 'a' + static_cast<char>(rng() % 26));
                args[i].str = texts[i].data();
            } else if (k == 2) {
                args[i].u64 = rng();
            } else {
                args[i].u64 = 0;
                args[i].u32 = static_cast<uint32_t>(rng());
            }
        }
        uint32_t mask = static_cast<uint32_t>(rng());
        Tuple t(tuple_packv(0, 0, mask, format.c_str(), args.data()));
        ASSERT_TRUE(t) << format;
        ASSERT_EQ(tuple_check(t.get(), tuple_size(t.get())), 0);
        auto got = unpack(t.get());
        ASSERT_EQ(got->rc, 0);
        uint32_t expected_mask = n == 32 ? mask : mask & ((1u << n) - 1);
        ASSERT_EQ(got->mask, expected_mask);
        // Packing what came out gives the same bytes again.
        std::vector<tuple_arg> again(got->slots.begin(), got->slots.begin() + static_cast<long>(n));
        Tuple repacked(tuple_packv(0, 0, got->mask, format.c_str(), again.data()));
        ASSERT_TRUE(repacked);
        ASSERT_EQ(bytes(repacked.get()), bytes(t.get())) << format;
        for (size_t i = 0; i < n; ++i) {
            if ((expected_mask >> i & 1u) == 0)
                continue;
            if (kinds[i] == 3)
                ASSERT_EQ(std::string(got->slots[i].str), texts[i]);
            else if (kinds[i] == 2)
                ASSERT_EQ(got->slots[i].u64, args[i].u64);
            else
                ASSERT_EQ(got->slots[i].u32, args[i].u32);
        }
    }
}

} // namespace
