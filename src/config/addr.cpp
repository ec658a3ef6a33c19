// Small editors of an interface's section: the stored IPv4 and IPv6 addresses.
#include <stdio.h>
#include <string.h>

#include "config/uci_access.h"
#include "libnetwork.h"
#include "base/log.h"

using namespace netlib;

namespace
{

constexpr unsigned int kIp6BufLen = 64;

} // namespace

extern "C" {

int NET_SetIpv4AddrCfg(const char *pcIfName, const char *pcIpv4Addr, const char *pcIpv4Mask)
{
    // The name is deliberately not checked here: a null name fails at the section lookup.
    if (pcIpv4Addr == nullptr || pcIpv4Mask == nullptr) {
        NET_LOGT(NET_LVL_ERR, PL_PARAM_ERROR_PRINT,
                 "pcIfName: %p, pcIpv4Addr: %p, pcIpv4Mask: %p.\n", (const void *)pcIfName,
                 (const void *)pcIpv4Addr, (const void *)pcIpv4Mask);
        return -1;
    }
    UciPackage pkg;
    struct uci_section *sec = open_section(NET_HERE, pkg, NET_GetUciNameByIfName(pcIfName));
    if (sec == nullptr)
        return -1;
    if (!set_logged(NET_HERE, sec, "ipaddr", pcIpv4Addr) ||
        !set_logged(NET_HERE, sec, "netmask", pcIpv4Mask))
        return -1;
    return commit_logged(NET_HERE, pkg);
}

int NET_SetIpv6AddrCfg(const char *pcIfName, const char *pcIPv6Addr, int iPrefixLen)
{
    NET_CHECK_ARGS(-1, "pcIfName: %p, pcIPv6Addr: %p.\n", pcIfName, pcIPv6Addr);
    UciPackage pkg;
    if (!open_network(NET_HERE, pkg))
        return -1;
    const char *secName = NET_GetUciNameByIfName(pcIfName);
    struct uci_section *sec = NET_GetSection(pkg.get(), secName);
    if (sec == nullptr) {
        pkg.reset();
        // Deliberately the bare name here, unlike the "section: %s.\n" of its siblings.
        NET_LOG(NET_LVL_ERR, "%s.\n", secName);
        return -1;
    }
    char buf[kIp6BufLen] = {0};
    snprintf(buf, sizeof buf, "%s/%d", pcIPv6Addr, iPrefixLen);
    if (!set_logged(NET_HERE, sec, "ip6addr", buf))
        return -1;
    return commit_logged(NET_HERE, pkg);
}

int NET_GetIpv6AddrCfg(const char *pcIfName, char *pcIPv6Addr)
{
    NET_CHECK_ARGS(-1, "pcIfName: %p, pcIPv6Addr: %p.\n", pcIfName, pcIPv6Addr);
    UciPackage pkg;
    struct uci_section *sec = open_section(NET_HERE, pkg, NET_GetUciNameByIfName(pcIfName));
    if (sec == nullptr)
        return -1;
    char buf[kIp6BufLen] = {0};
    if (NET_GetOption(sec, "ip6addr", buf, sizeof buf) != 0) {
        pkg.reset();
        NET_LOG(NET_LVL_ERR, "option: %s.\n", "ip6addr");
        return -1;
    }
    // The caller's buffer takes up to 63 characters; the prefix length is not returned.
    sscanf(buf, "%[^/]", pcIPv6Addr);
    // Deliberately a commit, not a free: a read here also refreshes the configuration backup.
    return commit_logged(NET_HERE, pkg);
}

} // extern "C"
