// Resolution of paths against the bind point, and the refusal of paths that
// cannot be built or would not fit the 1024-byte buffer.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "tarvocon.h"

namespace {

const char kFailed[] = "<SC_PATHCREATE>";

// The resolved path, or kFailed after the message was checked.
std::string Resolve(const std::string &bind, const std::string &local) {
    snprintf(tarvocon_bind_point, sizeof(tarvocon_bind_point), "%s",
             bind.c_str());
    // Guard bytes after the 1024-byte buffer catch writes past it.
    char buffer[TARVOCON_PATH_SIZE + 16];
    memset(buffer, 'G', sizeof(buffer));
    testing::internal::CaptureStderr();
    int result = tarvocon_create_path(local.c_str(), buffer);
    std::string messages = testing::internal::GetCapturedStderr();
    for (size_t i = TARVOCON_PATH_SIZE; i < sizeof(buffer); i++)
        EXPECT_EQ(buffer[i], 'G') << "written past the buffer at " << i;
    if (result != 0) {
        EXPECT_EQ(result, 1);
        EXPECT_EQ(messages,
                  "[Tarvocon] Unable to create full path from path supplied\n"
                  "Current dir: " + bind + "\nPath supplied " + local + "\n");
        return kFailed;
    }
    EXPECT_EQ(messages, "");
    EXPECT_LT(strnlen(buffer, TARVOCON_PATH_SIZE), size_t{TARVOCON_PATH_SIZE});
    return buffer;
}

TEST(CreatePath, Table) {
    struct {
        const char *bind;
        const char *local;
        const char *expected;
    } cases[] = {
        {"/a/b/", "c", "/a/b/c/"},
        {"/a/b/", "../c", "/a/c/"},
        {"/a/b/", "..", "/a/"},
        {"/a/b/", "../..", "/"},
        {"/a/b/", "../../..", kFailed},
        {"/a/b/", "./c/", "/a/b/c/"},
        {"/a/b/", ".", "/a/b/"},
        {"/a/b/", "c//d", "/a/b/c/d/"},
        {"/a/b/", "c/./d/..", "/a/b/c/"},
        {"/a/b/", "/x", "/x/"},
        {"/a/b/", "/x/", "/x/"},
        {"/a/b/", "/a/../b", "/a/../b/"},
        {"/a/b/", "", "/a/b/"},
        {"/", "..", kFailed},
        {"/", "../x", kFailed},
        {"/", "x", "/x/"},
        // Names that only begin with dots are names.
        {"/a/", "...", "/a/.../"},
        {"/a/", "..x/.y", "/a/..x/.y/"},
        // A bind point without its closing slash is joined as it stands.
        {"/a", "b", "/ab/"},
        {"/a", "..", "/"},
        // The empty bind point of a scratchpad connection.
        {"", "x", "x/"},
        {"", "..", kFailed},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.bind) + " + " + c.local);
        EXPECT_EQ(Resolve(c.bind, c.local), c.expected);
    }
}

TEST(CreatePath, PathsThatDoNotFitAreRefused) {
    std::string bind = "/" + std::string(1000, 'b') + "/";  // 1002 characters
    struct {
        std::string bind;
        std::string local;
        std::string expected;
    } cases[] = {
        // 1002 + 20 + "/" = 1023 characters fit exactly.
        {bind, std::string(20, 'c'), bind + std::string(20, 'c') + "/"},
        {bind, std::string(21, 'c'), kFailed},
        {bind, std::string(20, 'c') + "/d", kFailed},
        {bind, std::string(400, 'c'), kFailed},
        // Climbing first makes room.
        {bind, "../" + std::string(21, 'c'), "/" + std::string(21, 'c') + "/"},
        {"/", "/" + std::string(1021, 'x'), "/" + std::string(1021, 'x') + "/"},
        {"/", "/" + std::string(1022, 'x'), kFailed},
        {"/", "/" + std::string(1021, 'x') + "/", "/" + std::string(1021, 'x') + "/"},
        {"/", "/" + std::string(1022, 'x') + "/", kFailed},
        {"/", "/" + std::string(2000, 'x'), kFailed},
        {"/", std::string(2000, 'x'), kFailed},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::to_string(c.bind.size()) + " + " +
                     std::to_string(c.local.size()));
        EXPECT_EQ(Resolve(c.bind, c.local), c.expected);
    }
}

} // namespace
