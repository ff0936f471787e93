// Fuzz target: the tuple library on arbitrary bytes. Whatever comes in,
// tuple_check answers without reading past the input. Each input is tried
// as it is and with its size field set to its length, so that mutations
// of the values are not all stopped at the size check. When it accepts, the
// format can be extracted and the tuple unpacked the way the console does
// it (every slot pointing at itself, "s" written "S"), and packing the
// unpacked values again gives the same bytes.
#include <platform/tuple.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

void check(bool condition) {
    if (!condition)
        std::abort();
}

struct Slots {
    tuple_arg slot[TUPLE_MAX_ARGS];
    bool is_string[TUPLE_MAX_ARGS] = {};
    size_t count = 0;
};

// The conversions of an extracted format, noting which are strings.
std::string unpack_format(const char *extracted, Slots &slots) {
    std::string format = extracted;
    for (size_t i = 0; i < format.size(); ++i) {
        char c = format[i];
        if (c == 's') {
            format[i] = 'S';
            slots.is_string[slots.count++] = true;
        } else if (c == 'd' || c == 'u' || c == 'N') {
            slots.count++;
        }
        check(slots.count <= TUPLE_MAX_ARGS);
    }
    return format;
}

std::string packing_format(const std::string &unpacking) {
    std::string format;
    for (size_t i = 0; i < unpacking.size(); ++i) {
        if (unpacking[i] >= '0' && unpacking[i] <= '9')
            continue;  // string lengths are not part of a packing format
        format += unpacking[i] == 'S' ? 's' : unpacking[i];
    }
    return format;
}

} // namespace

namespace {

void try_tuple(std::vector<uint8_t> bytes) {
    // `bytes` holds exactly the input: any read past it is caught by ASan.
    size_t size = bytes.size();
    const void *buf = bytes.empty() ? nullptr : bytes.data();
    if (tuple_check(buf, static_cast<uint32_t>(size)) != 0)
        return;
    const tuple_buf *tuple = static_cast<const tuple_buf *>(buf);
    check(tuple_size(tuple) == size);

    char *extracted = tuple_extract_format(tuple);
    check(extracted != nullptr);
    Slots slots;
    std::string format = unpack_format(extracted, slots);
    std::free(extracted);
    for (auto &slot : slots.slot)
        slot.ptr = &slot;
    uint32_t mask = 0;
    check(tuple_unpackv(tuple, &mask, format.c_str(), slots.slot) == 0);

    tuple_buf *again = tuple_packv(0, 0, mask, packing_format(format).c_str(), slots.slot);
    check(again != nullptr);
    check(tuple_size(again) == size && std::memcmp(again, buf, size) == 0);
    tuple_free(again);

    for (size_t i = 0; i < slots.count; ++i)
        if (slots.is_string[i] && slots.slot[i].str != nullptr && *slots.slot[i].str != '\0')
            std::free(slots.slot[i].str);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size > UINT32_MAX)
        return 0;
    std::vector<uint8_t> bytes(data, data + size);
    try_tuple(bytes);
    if (size >= 12) {
        for (size_t i = 0; i < 4; ++i)
            bytes[8 + i] = static_cast<uint8_t>(size >> (8 * (3 - i)));
        try_tuple(bytes);
    }
    return 0;
}
