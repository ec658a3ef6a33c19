// Whether a text is an address fit for the configuration: the socket helpers' strict
// parsers, plus the IPv6 addresses that cannot be configured.
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
