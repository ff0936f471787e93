// Shared by the saved-tree and diff fuzz targets. Each input is decoded as
// it is, and once more with its header repaired (body length and both
// checksums made to match), so that mutations of the records get past the
// checksums. Whatever a decoder accepts must encode and decode again to the
// same records.
#ifndef TARVO_FILES_FUZZ_H
#define TARVO_FILES_FUZZ_H

#include <stdlib.h>

#include <string>
#include <string_view>

#include "xfiles.h"

namespace files_fuzz {

inline void check(bool condition)
{
    if (!condition)
        abort();
}

inline void put(std::string &bytes, size_t at, uint64_t v, int n)
{
    for (int i = 0; i < n; ++i)
        bytes[at + i] = static_cast<char>(v >> (8 * i));
}

inline std::string repaired(std::string bytes)
{
    if (bytes.size() < 32)
        return bytes;
    const std::string_view body = std::string_view(bytes).substr(32);
    put(bytes, 16, body.size(), 8);
    put(bytes, 24, tarvo::crc32c(body), 4);
    put(bytes, 28, tarvo::crc32c(std::string_view(bytes).substr(0, 28)), 4);
    return bytes;
}

// A refusal carries a file code with a detail word.
inline void check_refusal(const tarvo::Status &s)
{
    uint32_t detail = 0;
    const int32_t main = tarvo::file_detail(s.code, &detail);
    check(main == TARVO_ERR_BAD_FILE && detail >= TARVO_FILE_DETAIL_MAGIC &&
          detail <= TARVO_FILE_DETAIL_TOO_LARGE);
    check(!s.detail.empty());
}

template <typename Decode> void run(const uint8_t *data, size_t size, Decode decode)
{
    const std::string input(reinterpret_cast<const char *>(data), size);
    for (const std::string &bytes : {input, repaired(input)})
        decode(bytes);
}

}  // namespace files_fuzz

#endif
