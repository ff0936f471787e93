// golden_bag_store PATH HEX...: creates the item PATH (absolute, shared
// plane) of datatype bag holding the bytes written as hex digits in the
// remaining arguments (blanks and arguments split anywhere between digit
// pairs). The item database still checks the bag's header. Exit status 0,
// or 1 with a message.
#include <cctype>
#include <cstdio>
#include <string>
#include <vector>

#include "platform/tarvo.h"

int main(int argc, char **argv)
{
    if (argc < 3) {
        std::fprintf(stderr, "usage: golden_bag_store PATH HEX...\n");
        return 1;
    }
    std::string digits;
    for (int i = 2; i < argc; ++i)
        for (const char *p = argv[i]; *p != '\0'; ++p)
            if (std::isxdigit(static_cast<unsigned char>(*p)))
                digits += *p;
            else if (!std::isspace(static_cast<unsigned char>(*p))) {
                std::fprintf(stderr, "golden_bag_store: not hex: %c\n", *p);
                return 1;
            }
    if (digits.size() % 2 != 0) {
        std::fprintf(stderr, "golden_bag_store: odd number of hex digits\n");
        return 1;
    }
    std::vector<unsigned char> bytes;
    for (std::size_t i = 0; i < digits.size(); i += 2)
        bytes.push_back(static_cast<unsigned char>(std::stoul(digits.substr(i, 2), nullptr, 16)));

    tarvo_bind_h_td handle = nullptr;
    int rc = _tarvo_bind(&handle, "/", 0);
    if (rc == 0) {
        rc = tarvo_item_create(handle, argv[1], TARVO_DATATYPE_BAG, bytes.data(),
                               static_cast<uint32_t>(bytes.size()), 0, 0);
        _tarvo_unbind(handle);
    }
    if (rc != 0) {
        std::fprintf(stderr, "golden_bag_store: %s: error 0x%08x\n", argv[1],
                     static_cast<unsigned>(rc));
        return 1;
    }
    return 0;
}
