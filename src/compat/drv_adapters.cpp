// The driver table's adapters: each turns the caller's argument list into one or two NET_
// calls, checks its pointers, and answers 0 or -1 (the default-card pair: -2 for null).
#include <string.h>

#include "base/ports.h"
#include "libnetwork.h"
#include "base/log.h"

namespace
{

// Every adapter logs its first null pointer by the parameter's name.
#define DRV_REQUIRE(ptr)                                                                           \
    do {                                                                                           \
        if ((ptr) == nullptr) {                                                                    \
            NET_LOG(NET_LVL_ERR, "Invalid input param, %s: %p \n", #ptr,                           \
                    static_cast<const void *>(ptr));                                               \
            return -1;                                                                             \
        }                                                                                          \
    } while (0)

// Values 1 to 5 pass; anything else means auto-negotiation.
NetSpeedDuplexMode normalised(int mode)
{
    return mode >= NET_SPEED_DUPLEX_10_HALF && mode <= NET_SPEED_DUPLEX_1000_FULL
               ? static_cast<NetSpeedDuplexMode>(mode)
               : NET_SPEED_DUPLEX_AUTO;
}

bool is_link_local(const char *text)
{
    return strncmp(text, "fe80", 4) == 0;
}

// The first listed address that is not link-local and whose route-advertised answer is
// (wantRa) or is not (!wantRa) exactly 1.
int pick_ipv6(const char *ifname, char *out, unsigned int len, int *prefix, bool wantRa)
{
    NetIpv6AddrList list;
    memset(&list, 0, sizeof list);
    if (NET_GetIpv6AddrList(ifname, &list) != 0) {
        NET_LOG(NET_LVL_ERR, "NET_GetIpv6AddrList() fail.\n");
        return -1;
    }
    for (int i = 0; i < list.iNum && i < 32; ++i) {
        const NetIpv6AddrEntry &e = list.astAddr[i];
        if (is_link_local(e.szAddr))
            continue;
        if ((NET_IsIpv6RouteAdviseAddr(ifname, e.szAddr) == 1) != wantRa)
            continue;
        strncpy(out, e.szAddr, len);
        *prefix = e.iPrefixLen;
        return 0;
    }
    return -1;
}

} // namespace

extern "C" {

int drv_net_GetEthName(char *pcEthName, unsigned int uiLen, int *piEthNum)
{
    DRV_REQUIRE(pcEthName);
    DRV_REQUIRE(piEthNum);
    int num = CAP_GetNetIntfNum();
    char joined[64] = {0};
    for (int i = 0; i < num; ++i) {
        char name[16] = {0};
        if (CAP_GetNetIntfName(i, sizeof name, name) != 0) {
            NET_LOG(NET_LVL_ERR, "Get network interface name failed:%d. \n", i);
            return -1;
        }
        if (i > 0)
            strncat(joined, "::", sizeof joined - 1 - strlen(joined));
        strncat(joined, name, sizeof joined - 1 - strlen(joined));
    }
    // An information line at the error level: log readers filtering errors see it.
    NET_LOG(NET_LVL_ERR, "EthNum:%d, Eth:%s.\n", num, joined);
    strncpy(pcEthName, joined, uiLen);
    *piEthNum = num;
    return 0;
}

int drv_net_SetHostIPEx(const char *pcIfName, const char *pcIpAddr, const char *pcMask)
{
    DRV_REQUIRE(pcIfName);
    DRV_REQUIRE(pcIpAddr);
    DRV_REQUIRE(pcMask);
    // Kernel only: no stored configuration is written here.
    if (NET_SetIpv4Addr(pcIfName, pcIpAddr) != 0 || NET_SetIpv4Mask(pcIfName, pcMask) != 0)
        return -1;
    return 0;
}

int drv_net_GetHostIPEx(const char *pcIfName, char *pcIpAddr, unsigned int uiIpLen, char *pcMask,
                        unsigned int uiMaskLen)
{
    DRV_REQUIRE(pcIfName);
    DRV_REQUIRE(pcIpAddr);
    DRV_REQUIRE(pcMask);
    if (NET_GetIpv4Addr(pcIfName, pcIpAddr, uiIpLen) != 0 ||
        NET_GetIpv4Mask(pcIfName, pcMask, uiMaskLen) != 0)
        return -1;
    return 0;
}

int drv_net_GetLinkStatus(const char *pcIfName)
{
    DRV_REQUIRE(pcIfName);
    int linked = 0;
    if (NET_GetPortLinkStatus(pcIfName, &linked) != 0 || linked != 1)
        return -1;
    return 0;
}

int drv_net_CheckIpv4Collision(const char *pcIfName, const char *pcIpAddr, int *pbIsCollision)
{
    DRV_REQUIRE(pcIfName);
    DRV_REQUIRE(pcIpAddr);
    DRV_REQUIRE(pbIsCollision);
    return NET_DetectIpv4Collision(pcIfName, pcIpAddr, 500, pbIsCollision) == 0 ? 0 : -1;
}

int drv_net_CheckIpv6Collision(const char *pcIfName, const char *pcIpv6Addr, int *pbIsCollision)
{
    DRV_REQUIRE(pcIfName);
    DRV_REQUIRE(pcIpv6Addr);
    DRV_REQUIRE(pbIsCollision);
    return NET_DetectIpv6Collision(pcIfName, pcIpv6Addr, 2, pbIsCollision) == 0 ? 0 : -1;
}

int drv_net_GetIpv6Addr(const char *pcIfName, char *pHostIp, unsigned int uiLen, int *piIpv6Mask)
{
    DRV_REQUIRE(pcIfName);
    DRV_REQUIRE(pHostIp);
    DRV_REQUIRE(piIpv6Mask);
    return pick_ipv6(pcIfName, pHostIp, uiLen, piIpv6Mask, false);
}

// "plinklocal", though the address it returns is a global one learned from router
// advertisements: log readers match the parameter name.
int drv_net_GetScopeGlobalAddr6(const char *pcIfName, char *plinklocal, unsigned int uiLen,
                                int *piIpv6Mask)
{
    DRV_REQUIRE(pcIfName);
    DRV_REQUIRE(plinklocal);
    DRV_REQUIRE(piIpv6Mask);
    return pick_ipv6(pcIfName, plinklocal, uiLen, piIpv6Mask, true);
}

int drv_net_DelIpv6Address(const char *pcIfName, const char *pcIpv6Addr)
{
    DRV_REQUIRE(pcIfName);
    DRV_REQUIRE(pcIpv6Addr);
    // 32 characters as read, plus a terminator the comparison below can stop at.
    char current[33] = {0};
    int prefix = 0;
    if (drv_net_GetIpv6Addr(pcIfName, current, sizeof current - 1, &prefix) != 0)
        return -1;
    // Only the current address, compared over the given text's length.
    if (strncmp(current, pcIpv6Addr, strlen(pcIpv6Addr)) != 0)
        return -1;
    return NET_DelIpv6Addr(pcIfName, pcIpv6Addr, prefix);
}

int drv_net_GetIpv6AddrList(const char *pEthName, NetIpv6AddrList *pstIpv6AddrList)
{
    DRV_REQUIRE(pEthName);
    DRV_REQUIRE(pstIpv6AddrList);
    NetIpv6AddrList list;
    memset(&list, 0, sizeof list);
    if (NET_GetIpv6AddrList(pEthName, &list) != 0) {
        NET_LOG(NET_LVL_ERR, "NET_GetIpv6AddrList fail.\n");
        return -1;
    }
    pstIpv6AddrList->iNum = list.iNum;
    for (int i = 0; i < list.iNum && i < 32; ++i) {
        pstIpv6AddrList->astAddr[i].iPrefixLen = list.astAddr[i].iPrefixLen;
        strncpy(pstIpv6AddrList->astAddr[i].szAddr, list.astAddr[i].szAddr, 63);
    }
    return 0;
}

int drv_net_SetIpv6Gateway(const char *pcIfName, const char *pcGateway)
{
    (void)pcIfName;
    (void)pcGateway;
    return 0;
}

int drv_net_SetSpeedDuplex(const char *pcIfName, NetSpeedDuplexMode enMode)
{
    DRV_REQUIRE(pcIfName);
    if (NET_SetSpeedDuplex(pcIfName, normalised(enMode)) != 0) {
        NET_LOG(NET_LVL_ERR, "NET_GetSpeedDuplex fail.\n");
        return -1;
    }
    return 0;
}

int drv_net_GetSpeedDuplex(const char *pcIfName, NetSpeedDuplexMode *enSpeedDupMode)
{
    DRV_REQUIRE(pcIfName);
    DRV_REQUIRE(enSpeedDupMode);
    NetSpeedDuplexMode mode = NET_SPEED_DUPLEX_AUTO;
    if (NET_GetSpeedDuplex(pcIfName, &mode) != 0) {
        NET_LOG(NET_LVL_ERR, "NET_GetSpeedDuplex fail.\n");
        return -1;
    }
    *enSpeedDupMode = normalised(mode);
    return 0;
}

// Its failure line names NET_GetSpeedDuplex too: log readers cannot tell the two apart.
int drv_net_GetMaxSupportSpeedx(const char *pcIfName, NetSpeedDuplexMode *enSpeedDupMode)
{
    DRV_REQUIRE(pcIfName);
    DRV_REQUIRE(enSpeedDupMode);
    NetSpeedDuplexMode mode = NET_SPEED_DUPLEX_AUTO;
    if (NET_GetSupportSpeed(pcIfName, &mode) != 0) {
        NET_LOG(NET_LVL_ERR, "NET_GetSpeedDuplex fail.\n");
        return -1;
    }
    *enSpeedDupMode = normalised(mode);
    return 0;
}

int drv_net_GetDefNetCard(char *pcNetDefCard, unsigned int uiLen)
{
    DRV_REQUIRE(pcNetDefCard);
    return NET_GetDefNetCard(uiLen, pcNetDefCard);
}

int drv_net_SetDefaultEth(const char *pcNetDefCard)
{
    if (pcNetDefCard == nullptr) {
        NET_LOG(NET_LVL_ERR, "Invalid input param, %s: %p \n", "pcNetDefCard",
                static_cast<const void *>(pcNetDefCard));
        return -2;
    }
    strncpy(g_szDefNetCard, pcNetDefCard, sizeof g_szDefNetCard - 1);
    return 0;
}

int drv_net_GetDefaultEth(char *pcNetDefCard, unsigned int uiLen)
{
    if (pcNetDefCard == nullptr) {
        NET_LOG(NET_LVL_ERR, "Invalid input param, %s: %p \n", "pcNetDefCard",
                static_cast<const void *>(pcNetDefCard));
        return -2;
    }
    strncpy(pcNetDefCard, g_szDefNetCard, uiLen);
    return 0;
}

int update_active_interface(void)
{
    char client[46] = {0};
    if (get_active_clientip(client) != 0)
        return -1;
    // get_active_clientip copies only three characters, so lan2 is chosen on those alone.
    if (NET_IsIpv4SameSubnet(netlib::kLan2, client) == 1)
        return set_active_interface(netlib::kLan2);
    return set_active_interface(g_pcLan1Name);
}

} // extern "C"
