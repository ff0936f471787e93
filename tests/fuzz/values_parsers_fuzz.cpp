// Fuzz target: the console's integer parsers. Besides not crashing, the
// eight parsers must agree with each other on every text: a narrow parser
// accepts exactly what the 64-bit one accepts within its range, and a
// leading "-" negates the unsigned magnitude.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "tarvocon.h"

static void check(bool condition)
{
    if (!condition) {
        abort();
    }
}

template <typename T>
static void check_unsigned_narrow(int (*parser)(const char *, T *),
                                  const char *text, int wide_rc,
                                  uint64_t wide)
{
    T value = 0;
    int rc = parser(text, &value);
    bool fits = wide_rc == 0 && wide <= (uint64_t)(T)~(T)0;
    check((rc == 0) == fits);
    check(rc == 0 || rc == TARVOCON_ERR_BAD_VALUE);
    if (rc == 0) {
        check(value == (T)wide);
    }
}

template <typename T>
static void check_signed_narrow(int (*parser)(const char *, T *),
                                const char *text, int wide_rc, int64_t wide)
{
    T value = 0;
    int rc = parser(text, &value);
    bool fits = wide_rc == 0 && wide == (int64_t)(T)wide;
    check((rc == 0) == fits);
    if (rc == 0) {
        check(value == (T)wide);
    }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::string text(reinterpret_cast<const char *>(data), size);
    text = text.substr(0, strlen(text.c_str())); // up to the first NUL
    const char *t = text.c_str();

    uint64_t u64 = 0;
    int u64_rc = tarvocon_parse_uint64(t, &u64);
    check(u64_rc == 0 || u64_rc == TARVOCON_ERR_BAD_VALUE);
    check_unsigned_narrow(tarvocon_parse_uint32, t, u64_rc, u64);
    check_unsigned_narrow(tarvocon_parse_uint16, t, u64_rc, u64);
    check_unsigned_narrow(tarvocon_parse_uint8, t, u64_rc, u64);

    int64_t i64 = 0;
    int i64_rc = tarvocon_parse_int64(t, &i64);
    if (t[0] != '-' && t[0] != '+') {
        check((i64_rc == 0) == (u64_rc == 0 && u64 <= (uint64_t)INT64_MAX));
    }
    if (t[0] == '-') {
        uint64_t magnitude = 0;
        int rc = tarvocon_parse_uint64(t + 1, &magnitude);
        check((i64_rc == 0) == (rc == 0 && magnitude <= 0x8000000000000000ull));
        if (i64_rc == 0) {
            check((uint64_t)i64 == 0 - magnitude);
        }
    }
    check_signed_narrow(tarvocon_parse_int32, t, i64_rc, i64);
    check_signed_narrow(tarvocon_parse_int16, t, i64_rc, i64);
    check_signed_narrow(tarvocon_parse_int8, t, i64_rc, i64);

    // Plain digit runs agree with the C library.
    if (u64_rc == 0 && t[0] != '\0' && strspn(t, "0123456789") == text.size() &&
        t[0] != '0') {
        check(strtoull(t, nullptr, 10) == u64);
    }
    return 0;
}
