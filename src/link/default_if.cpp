// The default interface (always g_pcLan1Name) and the bridge test.
#include <string.h>
#include <stdio.h>
#include <unistd.h>

#include "libnetwork.h"
#include "base/log.h"

extern "C" {

int NET_IPv4GetDefIfAddr(char *pcIpv4Addr, unsigned int uiLen)
{
    if (NET_GetIpv4Addr(g_pcLan1Name, pcIpv4Addr, uiLen) != 0) {
        NET_LOG(NET_LVL_ERR, "Get default ip address failed. \n");
        return -1;
    }
    return 0;
}

int NET_IPv4GetDefIfMask(char *pcIpv4Mask, unsigned int uiLen)
{
    if (NET_GetIpv4Mask(g_pcLan1Name, pcIpv4Mask, uiLen) != 0) {
        NET_LOG(NET_LVL_ERR, "Get default ip netmask failed. \n");
        return -1;
    }
    return 0;
}

// "Gatway": the exported name callers link against, misspelt on purpose.
int NET_IPv4SetDefGatway(const char *pcGateway)
{
    if (NET_SetIpv4Gateway(g_pcLan1Name, pcGateway) != 0) {
        NET_LOG(NET_LVL_ERR, "Set default gateway failed. \n");
        return -1;
    }
    return 0;
}

// "Gatway": the exported name callers link against, misspelt on purpose.
int NET_IPv4DelDefGatway(const char *pcGateway)
{
    if (NET_DelIpv4Gateway(g_pcLan1Name, pcGateway) != 0) {
        NET_LOG(NET_LVL_ERR, "Delete default gateway failed. \n");
        return -1;
    }
    return 0;
}

int NET_IPv4GetDefGateway(char *pcGateway, unsigned int uiLen)
{
    if (NET_GetIpv4Gateway(g_pcLan1Name, pcGateway, uiLen) != 0) {
        NET_LOG(NET_LVL_ERR, "Get ipv4 gateway failed. \n");
        return -1;
    }
    return 0;
}

int NET_IsBridge(const char *pcIfName)
{
    NET_CHECK_ARGS(0, "pcIfName: %p. \n", pcIfName);
    char path[128];
    snprintf(path, sizeof path, "/sys/class/net/%s/bridge", pcIfName);
    return access(path, F_OK) == 0 ? 1 : 0;
}

} // extern "C"
