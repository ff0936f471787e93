// Helpers shared by the client's tests: a fresh data directory per test and
// short forms of the C calls.
#ifndef TARVO_TEST_UTIL_H
#define TARVO_TEST_UTIL_H

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "platform/tarvo.h"
#include "test_helpers.h"

namespace tarvo_test {

// Points TARVO_DATA_DIR at a new empty directory for the test's lifetime.
class DataDir : public tarvo::test::TempDir {
public:
    DataDir() { setenv("TARVO_DATA_DIR", path().c_str(), 1); }
};

inline std::string str(const char *s) { return std::string(s, strlen(s) + 1); }

// One bind for the test's lifetime.
class Bound {
public:
    explicit Bound(const char *point = "/", uint32_t options = 0)
    {
        EXPECT_EQ(0, _tarvo_bind(&h, point, options));
    }
    ~Bound()
    {
        if (h)
            _tarvo_unbind(h);
    }
    int create_u32(const char *path, uint32_t v)
    {
        return tarvo_item_create(h, path, TARVO_DATATYPE_UINT32, &v, 4, 0, 0);
    }
    int create_str(const char *path, const char *v)
    {
        return tarvo_item_create(h, path, TARVO_DATATYPE_STRING, v, strlen(v) + 1, 0, 0);
    }
    // Datatype and bytes of an item, or the error code as datatype 0.
    std::pair<int, std::string> get(const char *path)
    {
        tarvo_item_datatype_td dt = static_cast<tarvo_item_datatype_td>(0);
        void *value = nullptr;
        uint32_t len = 0;
        int rc = tarvo_item_get(h, path, &dt, &value, &len, 0);
        if (rc)
            return {rc, ""};
        std::string bytes(static_cast<char *>(value) ? static_cast<char *>(value) : "", len);
        free(value);
        return {dt, bytes};
    }
    std::string error_text(int code)
    {
        char *text = nullptr;
        if (tarvo_prepare_error_string(h, code, &text))
            return "";
        std::string t = text;
        free(text);
        return t;
    }
    // Every entry of a directory ("name:datatype"), through chunked reads.
    std::vector<std::string> names(const char *dir, uint32_t chunk = 7, uint32_t access = 0)
    {
        std::vector<std::string> out;
        tarvo_list_h_td list = nullptr;
        int rc = tarvo_chunk_list(h, dir, "", chunk, &list, access);
        if (rc) {
            out.push_back("error " + std::to_string(rc));
            return out;
        }
        char *name;
        tarvo_item_datatype_td dt;
        while (tarvo_list_next(list, &name, &dt, nullptr) == 0 && name)
            out.push_back(std::string(name) + ":" + std::to_string(dt));
        tarvo_list_free(list);
        return out;
    }
    tarvo_bind_h_td h = nullptr;
};

}  // namespace tarvo_test

#endif
