// An interface's DHCP mode as stored: the queries, and the switch between DHCP and a static
// address. Only the stored "proto" changes: the network service applies it on its next
// restart; no client is started or stopped here.
#include <string.h>

#include "config/uci_access.h"
#include "libnetwork.h"
#include "base/log.h"

using namespace netlib;

namespace
{

constexpr unsigned int kModeBufLen = 16;

// 1 when the option of the interface's section holds exactly "1"; every problem reads as 0.
int is_mode_one(CallSite site, const char *pcIfName, const char *optName)
{
    UciPackage pkg;
    struct uci_section *sec = open_section(site, pkg, NET_GetUciNameByIfName(pcIfName));
    if (sec == nullptr)
        return 0;
    char buf[kModeBufLen] = {0};
    int found = NET_GetOption(sec, optName, buf, sizeof buf);
    pkg.reset();
    if (found != 0) {
        NET_LOG_AT(site, NET_LVL_ERR, "option: %s.\n", optName);
        return 0;
    }
    return strcmp(buf, "1") == 0 ? 1 : 0;
}

} // namespace

extern "C" {

int NET_IsDhcpMode(const char *pcIfName)
{
    NET_CHECK_ARGS(0, "pcIfName: %p.\n", pcIfName);
    return is_mode_one(NET_HERE, pcIfName, "ipv4dhcp");
}

// Deliberately reads "ipv6dhcp" = 1 as DHCPv6, while the record calls read 1 as a manual
// address: each keeps its own meaning of the value.
int NET_IsDhcpv6Mode(const char *pcIfName)
{
    NET_CHECK_ARGS(0, "pcIfName: %p.\n", pcIfName);
    return is_mode_one(NET_HERE, pcIfName, "ipv6dhcp");
}

// Only "proto" changes; "ipv4dhcp", and so NET_IsDhcpMode, stays as stored.
int NET_EnableDhcpCfg(const char *pcIfName)
{
    NET_CHECK_ARGS(-1, "pcIfName: %p.\n", pcIfName);
    if (NET_IsDhcpMode(pcIfName) == 1)
        return 0;
    UciPackage pkg;
    struct uci_section *sec = open_section(NET_HERE, pkg, NET_GetUciNameByIfName(pcIfName));
    if (sec == nullptr)
        return -1;
    const char *proto = NET_IsDhcpv6Mode(pcIfName) == 1 ? "dhcpv6" : "dhcp";
    if (!set_logged(NET_HERE, sec, "proto", proto))
        return -1;
    return commit_logged(NET_HERE, pkg);
}

int NET_DisableDhcpCfg(const char *pcIfName)
{
    NET_CHECK_ARGS(-1, "pcIfName: %p.\n", pcIfName);
    // An absent or unreadable "ipv4dhcp" counts as static already.
    if (NET_IsDhcpMode(pcIfName) == 0)
        return 0;
    UciPackage pkg;
    struct uci_section *sec = open_section(NET_HERE, pkg, NET_GetUciNameByIfName(pcIfName));
    if (sec == nullptr)
        return -1;
    const char *proto = NET_IsDhcpv6Mode(pcIfName) == 1 ? "dhcpv6" : "static";
    if (!set_logged(NET_HERE, sec, "proto", proto))
        return -1;
    if (pkg.commit() != 0) {
        NET_LOG(NET_LVL_ERR, "\n"); // log readers see an empty message here
        return -1;
    }
    return 0;
}

int NET_EnableDhcp(const char *pcIfName)
{
    if (NET_EnableDhcpCfg(pcIfName) != 0) {
        NET_LOG(NET_LVL_ERR, "Enable dhcp mode failed. \n");
        return -1;
    }
    return 0;
}

int NET_DisableDhcp(const char *pcIfName)
{
    if (NET_DisableDhcpCfg(pcIfName) != 0) {
        NET_LOG(NET_LVL_ERR, "Disable dhcp mode failed. \n");
        return -1;
    }
    return 0;
}

} // extern "C"
