// The older string validators, kept for the services that still call them. Each is a thin
// layer over the converters and checks beside it; none logs.
#include <string.h>

#include "libnetwork.h"

namespace
{

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
