// The saved-tree and diff readers against hostile files whose checksums are
// right (a golden case cannot make those): each is refused with its detail
// word, and nothing is allocated for a length before it is checked. The
// header is built here from the documented layout (docs/files.md), not with
// the writer's code.
#include <gtest/gtest.h>

#include <string>

#include "platform/tarvo.h"
#include "xfiles.h"

namespace {

using tarvo::crc32c;

std::string le(uint64_t v, int bytes)
{
    std::string out;
    for (int i = 0; i < bytes; ++i)
        out.push_back(static_cast<char>(v >> (8 * i)));
    return out;
}

std::string varint(uint64_t v)
{
    std::string out;
    while (v >= 0x80) {
        out.push_back(static_cast<char>(v | 0x80));
        v >>= 7;
    }
    out.push_back(static_cast<char>(v));
    return out;
}

std::string text(const std::string &s) { return varint(s.size()) + s; }

std::string file(const char *magic, uint16_t version, uint32_t count, const std::string &body)
{
    std::string h = std::string(magic) + le(version, 2) + le(32, 2) + le(count, 4) +
                    le(body.size(), 8) + le(crc32c(body), 4);
    return h + le(crc32c(h), 4) + body;
}

const std::string U32 = le(7, 4);
// One version 2 item record after the source "/s/".
std::string item2(const std::string &path, uint64_t datatype, const std::string &value,
                  uint64_t shared = 0)
{
    return varint(shared) + text(path) + varint(datatype) + text(value);
}

uint32_t detail_of(const tarvo::Status &s)
{
    uint32_t detail = 0;
    tarvo::file_detail(s.code, &detail);
    return detail;
}

TEST(Files, HostileSavedTreesAreRefused)
{
    const std::string src = text("/s/");
    const std::string deep = [] {
        std::string p = "d";
        while (p.size() + 2 <= 1022)  // "/" + p fits in 1023
            p += "/d";
        return p;
    }();
    struct Case {
        const char *what;
        std::string bytes;
        uint32_t detail;  // 0: accepted
    } cases[] = {
        {"good", file("TARVOXNF", 2, 1, src + item2("a", 1, U32)), 0},
        {"deepest path", file("TARVOXNF", 2, 1, src + item2(deep, 1, U32)), 0},
        {"path one step too deep", file("TARVOXNF", 2, 1, src + item2(deep + "/e", 1, U32)),
         TARVO_FILE_DETAIL_RECORD},
        {"path over its bound",
         file("TARVOXNF", 2, 1, src + item2(std::string(1024, 'a'), 1, U32)),
         TARVO_FILE_DETAIL_LENGTH},
        {"newer version", file("TARVOXNF", 3, 1, src + item2("a", 1, U32)),
         TARVO_FILE_DETAIL_VERSION},
        {"version 0", file("TARVOXNF", 0, 0, ""), TARVO_FILE_DETAIL_VERSION},
        {"diff magic", file("TARVOXND", 1, 0, text("/")), TARVO_FILE_DETAIL_MAGIC},
        {"huge value length", file("TARVOXNF", 2, 1, src + varint(0) + text("a") + varint(1) +
                                                         varint(uint64_t{1} << 40)),
         TARVO_FILE_DETAIL_LENGTH},
        {"value past the end", file("TARVOXNF", 2, 1, src + varint(0) + text("a") + varint(1) +
                                                          varint(100) + "abcd"),
         TARVO_FILE_DETAIL_TRUNCATED},
        {"overlong number", file("TARVOXNF", 2, 1, src + std::string(11, '\xff')),
         TARVO_FILE_DETAIL_RECORD},
        {"count above the records", file("TARVOXNF", 2, 1000000, src + item2("a", 1, U32)),
         TARVO_FILE_DETAIL_TRUNCATED},
        {"count below the records", file("TARVOXNF", 2, 0, src + item2("a", 1, U32)),
         TARVO_FILE_DETAIL_RECORD},
        {"shares more than the path before", file("TARVOXNF", 2, 1, src + item2("a", 1, U32, 5)),
         TARVO_FILE_DETAIL_RECORD},
        {"dot-dot component", file("TARVOXNF", 2, 1, src + item2("a/../b", 1, U32)),
         TARVO_FILE_DETAIL_RECORD},
        {"absolute path", file("TARVOXNF", 2, 1, src + item2("/a", 1, U32)),
         TARVO_FILE_DETAIL_RECORD},
        {"directory datatype", file("TARVOXNF", 2, 1, src + item2("a", 0xfffffffd, "")),
         TARVO_FILE_DETAIL_RECORD},
        {"uint32 of 3 bytes", file("TARVOXNF", 2, 1, src + item2("a", 1, "abc")),
         TARVO_FILE_DETAIL_RECORD},
        {"string without its NUL", file("TARVOXNF", 2, 1, src + item2("a", 3, "abc")),
         TARVO_FILE_DETAIL_RECORD},
        {"bag without a header", file("TARVOXNF", 2, 1, src + item2("a", 7, "not a bag")),
         TARVO_FILE_DETAIL_RECORD},
        {"relative source", file("TARVOXNF", 2, 0, text("s/")), TARVO_FILE_DETAIL_RECORD},
        {"version 1 path over its bound",
         file("TARVOXNF", 1, 1, le(60000, 2) + std::string(60000, 'a')),
         TARVO_FILE_DETAIL_LENGTH},
        {"version 1 good", file("TARVOXNF", 1, 1, le(1, 2) + "a" + le(1, 4) + le(4, 4) + U32), 0},
    };
    for (const Case &c : cases) {
        tarvo::SavedTree tree;
        EXPECT_EQ(detail_of(tarvo::decode_tree(c.bytes, &tree)), c.detail) << c.what;
    }
}

TEST(Files, HostileDiffsAreRefused)
{
    const std::string base = text("/b/");
    auto rec = [](uint8_t kind, uint8_t flags, const std::string &rest) {
        return std::string(1, static_cast<char>(kind)) + std::string(1, static_cast<char>(flags)) +
               text("a") + varint(1) + rest;
    };
    struct Case {
        const char *what;
        std::string bytes;
        uint32_t detail;
    } cases[] = {
        {"good set", file("TARVOXND", 1, 1, base + rec(2, 3, text(U32) + text(U32))), 0},
        {"create with an old value", file("TARVOXND", 1, 1, base + rec(1, 3, text(U32) + text(U32))),
         TARVO_FILE_DETAIL_RECORD},
        {"delete without its value", file("TARVOXND", 1, 1, base + rec(4, 0, "")),
         TARVO_FILE_DETAIL_RECORD},
        {"unknown kind", file("TARVOXND", 1, 1, base + rec(8, 2, text(U32))),
         TARVO_FILE_DETAIL_RECORD},
        {"base not a directory", file("TARVOXND", 1, 0, text("/b")), TARVO_FILE_DETAIL_RECORD},
        {"version 2", file("TARVOXND", 2, 0, base), TARVO_FILE_DETAIL_VERSION},
        {"tree magic", file("TARVOXNF", 1, 0, ""), TARVO_FILE_DETAIL_MAGIC},
    };
    for (const Case &c : cases) {
        tarvo::Diff diff;
        EXPECT_EQ(detail_of(tarvo::decode_diff(c.bytes, &diff)), c.detail) << c.what;
    }
}

// A write that cannot be completed leaves the file that was there.
TEST(Files, FailedWriteKeepsTheOldFile)
{
    char dir[] = "/tmp/tarvo_files_XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    const std::string target = std::string(dir) + "/t.xnf";
    {
        tarvo::AtomicFile f;
        ASSERT_TRUE(f.open(target).ok());
        ASSERT_TRUE(f.commit("old").ok());
    }
    {
        tarvo::AtomicFile f;
        ASSERT_TRUE(f.open(target).ok());
        // Abandoned before its commit, as by a failure half way.
    }
    std::string bytes;
    ASSERT_TRUE(tarvo::read_file(target, &bytes).ok());
    EXPECT_EQ(bytes, "old");
    EXPECT_EQ(std::system((std::string("test $(ls -A ") + dir + " | wc -l) = 1").c_str()), 0)
        << "the temporary file stays behind";
    std::system((std::string("rm -rf ") + dir).c_str());
}

}  // namespace
