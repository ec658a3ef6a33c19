// The function tables handed to applications that do not link by name. Callers index the
// tables, so an entry never moves.
#include <stdlib.h>
#include <string.h>

#include "libnetwork.h"
#include "base/log.h"

extern "C" {

int drv_net_GetSetDefaultEthCB(NetDriverInterface *pstDrvIf)
{
    if (pstDrvIf == nullptr) {
        NET_LOG(NET_LVL_ERR, "Invalid input param, %s: %p \n", "pstDrvIf",
                static_cast<void *>(pstDrvIf));
        return -1;
    }
    // The present configuration keeps the default card in "network"; the older one in
    // g_szDefNetCard. The package opened for this test is not released: each table a caller
    // creates holds one package open for the life of the process.
    if (NET_CreatePackage("network") != nullptr) {
        pstDrvIf->pfnGetDefNetCard = drv_net_GetDefNetCard;
        pstDrvIf->pfnSetDefNetCard = NET_SetDefNetCard;
    } else {
        pstDrvIf->pfnGetDefNetCard = drv_net_GetDefaultEth;
        pstDrvIf->pfnSetDefNetCard = drv_net_SetDefaultEth;
    }
    return 0;
}

int createNetInterface(NetDriverInterface **ppstDrvIf)
{
    NET_CHECK_ARGS(-1, "ppstDrvIf: %p. \n", ppstDrvIf);
    // Not cleared: entries the library leaves unset hold whatever malloc returned.
    NetDriverInterface *t = static_cast<NetDriverInterface *>(malloc(sizeof *t));
    if (t == nullptr) {
        NET_LOG(NET_LVL_ERR, "malloc() fail.\n");
        return -1;
    }
    NET_Init();
    t->pfnGetEthName = drv_net_GetEthName;
    t->pfnGetMacAddr = NET_GetMacAddr;
    t->pfnSetMtu = NET_SetMtu;
    t->pfnGetMtu = NET_GetMtu;
    t->pfnSetHostIPEx = drv_net_SetHostIPEx;
    t->pfnGetHostIPEx = drv_net_GetHostIPEx;
    t->pfnSetIpv4Gateway = NET_SetIpv4Gateway;
    t->pfnGetIpv4Gateway = NET_GetIpv4Gateway;
    t->pfnGetLinkStatus = drv_net_GetLinkStatus;
    drv_net_GetSetDefaultEthCB(t);
    t->pfnDelIpv6Addr = NET_DelIpv6Addr;
    t->pfnAddIpv6Addr = NET_AddIpv6Addr;
    t->pfnGetIpv6Addr = drv_net_GetIpv6Addr;
    t->pfnSetIpv6Gateway = drv_net_SetIpv6Gateway;
    t->pfnGetIpv6Gateway = NET_GetIpv6Gateway;
    t->pfnGetDnsServer = NET_GetDnsServer;
    t->pfnSetDnsServer = NET_SetDnsServer;
    t->pfnCheckIpv4Collision = drv_net_CheckIpv4Collision;
    t->pfnCheckIpv6Collision = drv_net_CheckIpv6Collision;
    t->pfnGetScopeGlobalAddr6 = drv_net_GetScopeGlobalAddr6;
    t->pfnSetSpeedDuplex = drv_net_SetSpeedDuplex;
    t->pfnGetSpeedDuplex = drv_net_GetSpeedDuplex;
    t->pfnGetMaxSupportSpeed = drv_net_GetMaxSupportSpeedx;
    t->pfnDelIpv4Gateway = NET_DelIpv4Gateway;
    t->pfnGetIpv6AddrList = drv_net_GetIpv6AddrList;
    t->pfnIsIpv6RouteAdviseAddr = NET_IsIpv6RouteAdviseAddr;
    t->pfnPing = NET_Ping;
    memset(t->apfnNull18, 0, sizeof t->apfnNull18);
    *ppstDrvIf = t;
    return 0;
}

int createNetCfgInterface(NetCfgInterface *pstCfgIf)
{
    if (pstCfgIf == nullptr) {
        NET_LOG(NET_LVL_ERR, "null pointer.\n");
        return -1;
    }
    pstCfgIf->pfnGetDdnsCfg = NET_GetDdnsCfg;
    pstCfgIf->pfnGetPppoeCfg = NET_GetPppoeCfg;
    pstCfgIf->pfnGetPortCfg = NET_GetPortCfg;
    pstCfgIf->pfnGetIpcConfig = drv_net_GetIpcConfig;
    return 0;
}

} // extern "C"
