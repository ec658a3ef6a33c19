#include "device/two_port.h"

#include <string.h>

#include "libnetwork.h"

namespace netlib
{

const char *other_interface(const char *ifname)
{
    // Exactly 1: a third name, such as a PPPoE link, is never checked.
    if (CAP_IsDoubleIntfSupport() != 1)
        return nullptr;
    if (strcmp(ifname, g_pcLan1Name) == 0)
        return "lan2";
    if (strcmp(ifname, "lan2") == 0)
        return g_pcLan1Name;
    return nullptr;
}

bool held_by_other_interface(CallSite site, const char *ifname, const char *addr)
{
    const char *other = other_interface(ifname);
    if (other == nullptr || INET_IsIpv4AddrExist(other, addr) == 0)
        return false;
    NET_LOG_AT(site, NET_LVL_ERR, "Ipaddr is exist, pcOtherIfName:%s, ipaddr:%s. \n", other, addr);
    return true;
}

} // namespace netlib
