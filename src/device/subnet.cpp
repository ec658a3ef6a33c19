// IPv4 subnet checks: against the other interface's stored record and the interface's live
// subnet, and which interface owns an address.
#include <arpa/inet.h>
#include <string.h>

#include "libnetwork.h"
#include "base/log.h"
#include "base/ports.h"

namespace
{

using netlib::kLan2;

const char *text_or_null(const char *s)
{
    return s != nullptr ? s : "(null)";
}

// The other interface's stored address and mask; both stay empty when it has no record.
void other_stored_ipv4(const char *other, char (&addr)[16], char (&mask)[16])
{
    NetEtherCfg cfg;
    memset(&cfg, 0, sizeof cfg);
    if (NET_GetEtherCfg(other, &cfg) != 0)
        return;
    memcpy(addr, cfg.szIpv4Addr, strnlen(cfg.szIpv4Addr, sizeof addr - 1));
    memcpy(mask, cfg.szIpv4Mask, strnlen(cfg.szIpv4Mask, sizeof mask - 1));
}

// Copies ifname into the caller's buffer when it holds addr, as text.
bool ipv4_owner(const char *ifname, const char *addr, char *out, int len)
{
    char held[16] = {0};
    if (NET_GetIpv4Addr(ifname, held, sizeof held) != 0 || strcmp(held, addr) != 0)
        return false;
    strncpy(out, ifname, len > 0 ? static_cast<size_t>(len - 1) : 0);
    return true;
}

// Looks for addr in ifname's IPv6 list, but only when listing it failed: callers asking for
// an IPv6 owner get an answer only from an interface whose list cannot be read.
bool ipv6_owner(const char *ifname, const char *addr, char *out, int len)
{
    NetIpv6AddrList list;
    memset(&list, 0, sizeof list);
    if (NET_GetIpv6AddrList(ifname, &list) == 0)
        return false;
    for (int i = 0; i < list.iNum && i < 32; ++i) {
        if (strcmp(list.astAddr[i].szAddr, addr) == 0) {
            strncpy(out, ifname, len > 0 ? static_cast<size_t>(len - 1) : 0);
            return true;
        }
    }
    return false;
}

} // namespace

extern "C" {

int NET_IsIpv4SubnetValid(const char *pcIfName, const char *pcIpv4Addr, const char *pcIpv4Mask)
{
    NET_CHECK_ARGS(0, "pcIfName:%p, pcIpv4Addr:%p, pcIpv4Mask:%p \n", pcIfName, pcIpv4Addr,
                   pcIpv4Mask);
    const char *other = netlib::other_interface(pcIfName);
    if (other == nullptr)
        return 1;
    char otherAddr[16] = {0};
    char otherMask[16] = {0};
    other_stored_ipv4(other, otherAddr, otherMask);
    // An empty or invalid text is all ones and takes part as it is.
    in_addr_t mine = inet_addr(pcIpv4Addr) & inet_addr(pcIpv4Mask);
    in_addr_t theirs = inet_addr(otherAddr) & inet_addr(otherMask);
    return mine != theirs ? 1 : 0;
}

int NET_IsIpv4SameSubnet(const char *pcIfName, const char *pcIpv4Addr)
{
    NET_CHECK_ARGS(0, "pcIfName:%p, pcIpv4Addr:%p. \n", pcIfName, pcIpv4Addr);
    char addr[16] = {0};
    char mask[16] = {0};
    if (NET_GetIpv4Addr(pcIfName, addr, sizeof addr) != 0) {
        NET_LOG(NET_LVL_DEBUG, "Get ip addr failed. \n");
        return 0;
    }
    if (NET_GetIpv4Mask(pcIfName, mask, sizeof mask) != 0) {
        NET_LOG(NET_LVL_DEBUG, "Get ip mask failed. \n");
        return 0;
    }
    in_addr_t diff = inet_addr(pcIpv4Addr) ^ inet_addr(addr);
    return (diff & inet_addr(mask)) == 0 ? 1 : 0;
}

int NET_IsSameNet(const char *pcIpv4Addr, int *pbIsSame)
{
    NET_CHECK_ARGS(-1, "pcIpv4Addr:%p, pbIsSame:%p. \n", pcIpv4Addr, pbIsSame);
    *pbIsSame = NET_IsIpv4SameSubnet(g_pcLan1Name, pcIpv4Addr);
    return 0;
}

int NET_GetIfNameByIp(const char *pcIpAddr, char *pcIfName, int iLen)
{
    // Only the name buffer is tested: deliberate, a null address ends as an invalid one below.
    if (pcIfName == nullptr) {
        NET_LOGT(NET_LVL_ERR, PL_PARAM_ERROR_PRINT, "pcIpAddr: %p, pcIfName: %p. \n",
                 (const void *)pcIpAddr, (void *)pcIfName);
        return -1;
    }
    bool two = CAP_IsDoubleIntfSupport() == 1;
    if (INET_IsIpv4AddrValid(pcIpAddr) == 1) {
        if (ipv4_owner(g_pcLan1Name, pcIpAddr, pcIfName, iLen) ||
            (two && ipv4_owner(kLan2, pcIpAddr, pcIfName, iLen)))
            return 0;
    } else if (INET_IsIpv6AddrValid(pcIpAddr) != 1) {
        NET_LOG(NET_LVL_ERR, "Invalid Ipv4 or Ipv6 address, pcIpAddr:%s. \n",
                text_or_null(pcIpAddr));
        return -1;
    } else if (ipv6_owner(g_pcLan1Name, pcIpAddr, pcIfName, iLen) ||
               (two && ipv6_owner(kLan2, pcIpAddr, pcIfName, iLen))) {
        return 0;
    }
    NET_LOG(NET_LVL_ERR, "Can not find interface name, pcIpAddr:%s. \n", pcIpAddr);
    return -1;
}

} // extern "C"
