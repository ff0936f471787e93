// strlwr and the IPv4 text conversions.

#include <platform/os.h>

#include <arpa/inet.h>
#include <cctype>
#include <cstring>
#include <string>

extern "C" char *strlwr(char *s) {
    if (s == nullptr)
        return nullptr;
    for (char *p = s; *p != '\0'; ++p)
        *p = static_cast<char>(std::tolower(static_cast<unsigned char>(*p)));
    return s;
}

extern "C" in_addr_t qn_inet_addr(const char *cp) {
    if (cp == nullptr)
        return INADDR_NONE;
    // Blanks around an address typed at a prompt are forgiven; anything else
    // that is not four decimal parts (no leading zeros, no shorthand forms
    // such as "10.1") is not an address.
    std::string text(cp);
    size_t first = text.find_first_not_of(" \t");
    size_t last = text.find_last_not_of(" \t");
    if (first == std::string::npos)
        return INADDR_NONE;
    text = text.substr(first, last - first + 1);
    in_addr addr{};
    if (::inet_pton(AF_INET, text.c_str(), &addr) != 1)
        return INADDR_NONE;
    return addr.s_addr;
}

extern "C" char *inet_ntoa_r(struct in_addr in, char *buf, int buflen) {
    if (buf == nullptr || buflen <= 0)
        return nullptr;
    if (::inet_ntop(AF_INET, &in, buf, static_cast<socklen_t>(buflen)) == nullptr)
        return nullptr;
    return buf;
}
