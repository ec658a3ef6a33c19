// Whether a text is an address fit for the configuration: the strict parsers of the socket
// helper family (Is_IpV4Addr, Is_IpV6Addr, here because the validators are built on them),
// plus the IPv6 addresses that cannot be configured.
#include <arpa/inet.h>
#include <string.h>

#include "libnetwork.h"
#include "base/log.h"

namespace
{

// Link-local addresses are not configured by hand. Only these two spellings are caught;
// a mixed spelling ("Fe80") goes on to the parser, deliberately.
bool is_link_local_text(const char *s)
{
    return strncmp(s, "FE80", 4) == 0 || strncmp(s, "fe80", 4) == 0;
}

// :: and ::1 are not addresses of a device; any other ::x is.
bool is_unspecified_or_loopback(const unsigned char *a)
{
    for (int i = 0; i < 14; ++i) {
        if (a[i] != 0)
            return false;
    }
    return a[14] == 0 && a[15] <= 1;
}

} // namespace

extern "C" int Is_IpV4Addr(const char *pcAddr, void *pAddr)
{
    if (pcAddr == nullptr) {
        NET_LOG(NET_LVL_DEBUG, "is_string_ipaddr_ipv4, input is null!\n");
        return 0;
    }
    if (pcAddr[0] == '\0') {
        NET_LOG(NET_LVL_INFO, "NULL entry\n");
        return 0;
    }
    struct in_addr addr;
    int r = inet_pton(AF_INET, pcAddr, &addr);
    if (r == 0) {
        NET_LOG(NET_LVL_DEBUG, "The str_ipv4(%s) form not accord with IPv4!\n", pcAddr);
        return 0;
    }
    if (r < 0) {
        NET_LOG(NET_LVL_DEBUG, "is_string_ipaddr_ipv4, inet_pton err!\n");
        return 0;
    }
    if (pAddr != nullptr)
        memcpy(pAddr, &addr, sizeof addr);
    return 1;
}

extern "C" int Is_IpV6Addr(const char *pcAddr, void *pAddr)
{
    if (pcAddr == nullptr || pAddr == nullptr) {
        NET_LOG(NET_LVL_DEBUG, "is_string_ipaddr_ipv6, input is null!\n");
        return 0;
    }
    int r = inet_pton(AF_INET6, pcAddr, pAddr);
    if (r < 0)
        NET_LOG(NET_LVL_DEBUG, "is_string_ipaddr_ipv6, inet_pton err!\n");
    return r == 1 ? 1 : 0;
}

extern "C" {

int INET_IsIpv4AddrValid(const char *pcStr)
{
    if (pcStr == nullptr) {
        NET_LOGT(NET_LVL_ERR, PL_PARAM_ERROR_PRINT, "\n");
        return 0;
    }
    unsigned char addr[4];
    return Is_IpV4Addr(pcStr, addr) == 1 ? 1 : 0;
}

int INET_IsIpv6AddrValid(const char *pcStr)
{
    if (pcStr == nullptr) {
        NET_LOGT(NET_LVL_ERR, PL_PARAM_ERROR_PRINT, "\n");
        return 0;
    }
    if (is_link_local_text(pcStr))
        return 0;
    unsigned char addr[16];
    if (Is_IpV6Addr(pcStr, addr) != 1)
        return 0;
    return is_unspecified_or_loopback(addr) ? 0 : 1;
}

int INET_IsIpaddrValid(const char *pcStr)
{
    if (pcStr == nullptr) {
        NET_LOGT(NET_LVL_ERR, PL_PARAM_ERROR_PRINT, "\n");
        return 0;
    }
    return (INET_IsIpv4AddrValid(pcStr) == 1 || INET_IsIpv6AddrValid(pcStr) == 1) ? 1 : 0;
}

} // extern "C"
