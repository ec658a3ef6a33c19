// The older string validators (is_string*, check_str_*, is_v6_*): quick tests of what an
// address text is, thin layers over inet_pton and the converters and checks beside them.
// None logs.
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

constexpr int kPortMax = 65535;

bool is_ipv6_multicast(const unsigned char *a)
{
    return a[0] == 0xff;
}

bool is_all_zero(const unsigned char *a, size_t n)
{
    for (size_t i = 0; i < n; ++i) {
        if (a[i] != 0)
            return false;
    }
    return true;
}

// The mask has no one bit after its leading run of n ones.
bool is_contiguous_mask(const unsigned char *m, int n)
{
    for (int bit = n; bit < 128; ++bit) {
        if ((m[bit / 8] >> (7 - bit % 8)) & 1)
            return false;
    }
    return true;
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

int check_str_ipv4(const char *pcStr)
{
    return is_string_ipaddr_ipv4(pcStr, nullptr) == 1 ? 0 : -1;
}

int check_str_ipv6(const char *pcStr)
{
    unsigned char addr[16];
    return is_string_ipaddr_ipv6(pcStr, addr) == 1 ? 0 : -1;
}

int is_port_legal(int iPort)
{
    return (iPort >= 1 && iPort <= kPortMax && is_port_lawful(static_cast<unsigned>(iPort))) ? 1
                                                                                             : 0;
}

int is_stringipv6_multicast(const char *pcStr, void *pvAddr)
{
    if (pcStr == nullptr || pvAddr == nullptr)
        return 0;
    if (is_string_ipaddr_ipv6(pcStr, pvAddr) != 1)
        return 0;
    const unsigned char *a = static_cast<const unsigned char *>(pvAddr);
    // :: means that no group is set, as 0.0.0.0 does for is_stringip_multicast.
    return (is_all_zero(a, 16) || is_ipv6_multicast(a)) ? 1 : 0;
}

int is_v6_addr_valid(const char *pcStr)
{
    if (pcStr == nullptr)
        return 0;
    return INET_IsIpv6AddrValid(pcStr);
}

int is_v6_mask_valid(const char *pcMask)
{
    unsigned char mask[16];
    if (is_string_ipaddr_ipv6(pcMask, mask) != 1)
        return 0;
    int n = convert_ipv6_netmask_num(mask);
    return (n >= 1 && is_contiguous_mask(mask, n)) ? 1 : 0;
}

int is_v6_addr_multicast(const char *pcStr)
{
    unsigned char addr[16];
    if (is_string_ipaddr_ipv6(pcStr, addr) != 1)
        return 0;
    return is_ipv6_multicast(addr) ? 1 : 0;
}

} // extern "C"
