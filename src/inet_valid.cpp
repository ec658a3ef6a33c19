// Quick tests of what an address text is, over the C library's inet_pton. Silent.
#include <arpa/inet.h>
#include <string.h>
#include <sys/socket.h>

#include "libnetwork.h"

namespace
{

// Where is_stringip_ipv6 stops looking: the length of the longest plain IPv6 text.
constexpr int kIpv6ShapeScan = 39;

// 224.0.0.0 to 224.0.0.18: the local network control block as far as it is refused.
bool is_reserved_local_group(const unsigned char *b)
{
    return b[0] == 224 && b[1] == 0 && b[2] == 0 && b[3] <= 18;
}

} // namespace

extern "C" {

int is_string_ipaddr_ipv4(const char *pcStr, uint32_t *puiAddr)
{
    if (pcStr == nullptr || pcStr[0] == '\0')
        return 0;
    struct in_addr addr;
    if (inet_pton(AF_INET, pcStr, &addr) != 1)
        return 0;
    if (puiAddr != nullptr)
        memcpy(puiAddr, &addr, sizeof addr);
    return 1;
}

int is_string_ipaddr_ipv6(const char *pcStr, void *pvAddr)
{
    if (pcStr == nullptr || pvAddr == nullptr)
        return 0;
    return inet_pton(AF_INET6, pcStr, pvAddr) == 1 ? 1 : 0;
}

int is_stringip_multicast(const char *pcStr, uint32_t *puiAddr)
{
    if (pcStr == nullptr || puiAddr == nullptr)
        return 0;
    if (!is_string_ipaddr_ipv4(pcStr, puiAddr))
        return 0;
    unsigned char b[4];
    memcpy(b, puiAddr, sizeof b);
    // 0.0.0.0 means that no group is set, and is accepted deliberately.
    if (b[0] == 0 && b[1] == 0 && b[2] == 0 && b[3] == 0)
        return 1;
    if (b[0] < 224 || b[0] > 239)
        return 0;
    return is_reserved_local_group(b) ? 0 : 1;
}

int is_stringip_ipv6(const char *pcStr)
{
    if (pcStr == nullptr)
        return 0;
    // A shape test only: two colons within the first 39 characters.
    int colons = 0;
    for (int i = 0; i < kIpv6ShapeScan && pcStr[i] != '\0'; ++i) {
        if (pcStr[i] == ':' && ++colons == 2)
            return 1;
    }
    return 0;
}

} // extern "C"
