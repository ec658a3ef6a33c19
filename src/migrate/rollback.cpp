// Roll-back to the old layout, for a device about to return to firmware that knows only that
// one: the settings go back into the old packages and "network" loses the new sections.
// Nothing is restarted and nothing reboots.
#include <string.h>

#include "config/uci_access.h"
#include "base/ports.h"
#include "libnetwork.h"
#include "base/log.h"

using namespace netlib;

namespace
{

constexpr const char kMarkerSec[] = "net_version";
// The multicast route of "eth0" (224.0.0.0), which the old layout never had.
constexpr const char kMulticastRouteSec[] = "eth0_E0000000";

// The new-layout sections, deleted in this order; each must be there.
constexpr const char *const kNewSections[] = {"ddns", "pppoe", "port", "portmapping"};

// The interface section as the old layout keeps it: a bridge without the mode options.
int strip_interface(CallSite site, struct uci_section *sec)
{
    if (NET_SetOption(sec, "type", "bridge") != 0)
        return -1;
    if (NET_DelOption(sec, "cardtype") != 0) {
        NET_LOG_AT(site, NET_LVL_ERR, "NET_DelOption: %s fail.\n", "cardtype");
        return -1;
    }
    NET_DelOption(sec, "ipv4dhcp");
    NET_DelOption(sec, "ipv6dhcp");
    return 0;
}

int strip_sections(CallSite site, UciPackage &pkg)
{
    for (const char *name : kNewSections) {
        struct uci_section *sec = NET_GetSection(pkg.get(), name);
        if (sec == nullptr) {
            NET_LOG_AT(site, NET_LVL_ERR, "section: %s.\n", name);
            return -1;
        }
        if (NET_DelSection(sec) != 0) {
            NET_LOG_AT(site, NET_LVL_ERR, "Delete section failed.\n");
            return -1;
        }
    }
    struct uci_section *marker = NET_GetSection(pkg.get(), kMarkerSec);
    if (marker != nullptr && NET_DelSection(marker) != 0) {
        NET_LOG_AT(site, NET_LVL_ERR, "Delete section failed.\n");
        return -1;
    }
    // A route that stays behind does the old firmware no harm: the roll-back goes on.
    struct uci_section *route = NET_GetSection(pkg.get(), kMulticastRouteSec);
    if (route != nullptr && NET_DelSection(route) != 0)
        NET_LOG_AT(site, NET_LVL_ERR, "Delete section failed, %s.\n", kMulticastRouteSec);
    return 0;
}

} // namespace

extern "C" {

int NET_IsNetConfigBack(int iVersion, int *pbCfgBack)
{
    NET_CHECK_ARGS(-2, "pbCfgBack:%p \n", pbCfgBack);
    if (iVersion < 0 || iVersion > 2) {
        // Log readers match "eror" as spelt.
        NET_LOG(NET_LVL_ERR, "network version eror.\n");
        return -1;
    }
    *pbCfgBack = 0;
    UciPackage pkg;
    pkg.reset(NET_CreatePackage(kNetworkPkg));
    if (pkg.get() == nullptr) {
        NET_LOGT(NET_LVL_ERR, PL_CREATE_PACKAGE_ERROR_PRINT, "file: %s.\n", kNetworkPkg);
        return -1;
    }
    struct uci_section *marker = NET_GetSection(pkg.get(), kMarkerSec);
    if (marker == nullptr)
        return 0;
    char single[8] = {0};
    const bool stampedSingle = NET_GetOption(marker, "single", single, sizeof single) == 0;
    pkg.reset();
    // Only a caller of the old layout (0) on a "single" stamp rolls back; a marker without
    // "single" is accepted by a caller of version 2 alone.
    if (stampedSingle) {
        if (iVersion == 0)
            *pbCfgBack = 1;
        return 0;
    }
    return iVersion == 2 ? 0 : -1;
}

int NET_NetConfigBackToOld(void)
{
    NetEtherCfg ether;
    NetPortCfg port;
    NetDdnsCfg ddns;
    NetPppoeCfg pppoe;
    memset(&ether, 0, sizeof ether);
    memset(&port, 0, sizeof port);
    memset(&ddns, 0, sizeof ddns);
    memset(&pppoe, 0, sizeof pppoe);
    if (NET_GetEtherCfg(g_pcLan1Name, &ether) != 0) {
        NET_LOG(NET_LVL_ERR, "get eth configure fail.\n");
        return -1;
    }
    if (NET_GetPortCfg(&port) != 0) {
        NET_LOG(NET_LVL_ERR, "get port configure fail.\n");
        return -1;
    }
    if (NET_GetDdnsCfg(&ddns) != 0) {
        NET_LOG(NET_LVL_ERR, "get ddns configure fail.\n");
        return -1;
    }
    if (NET_GetPppoeCfg(&pppoe) != 0) {
        NET_LOG(NET_LVL_ERR, "get pppoe configure fail.\n");
        return -1;
    }
    // "network" is stripped and committed before the old packages are written: a failure
    // after it leaves the steps already done in place.
    if (NET_NetBackToOldEthCfg(&ether) != 0) {
        NET_LOGT(NET_LVL_ERR, PL_SET_OPTION_ERROR_PRINT, "file: %s.\n", "network");
        return -1;
    }
    if (NET_SetOldDdnsCfg(&ddns) != 0) {
        NET_LOGT(NET_LVL_ERR, PL_SET_OPTION_ERROR_PRINT, "file: %s.\n", "ddns");
        return -1;
    }
    if (NET_SetOldPppoeCfg(&pppoe) != 0) {
        NET_LOGT(NET_LVL_ERR, PL_SET_OPTION_ERROR_PRINT, "file: %s.\n", "pppoe");
        return -1;
    }
    if (NET_SetOldPortCfg(&port) != 0) {
        NET_LOGT(NET_LVL_ERR, PL_SET_OPTION_ERROR_PRINT, "file: %s.\n", "port");
        return -1;
    }
    return 0;
}

int NET_NetBackToOldEthCfg(NetEtherCfg *pstEtherCfg)
{
    if (pstEtherCfg == nullptr) {
        NET_LOG(NET_LVL_ERR, "pstEtherCfg: %p.\n", (void *)pstEtherCfg);
        return -2;
    }
    UciPackage pkg;
    pkg.reset(NET_CreatePackage(kNetworkPkg));
    if (pkg.get() == nullptr) {
        NET_LOGT(NET_LVL_ERR, PL_CREATE_PACKAGE_ERROR_PRINT, "file: %s.\n", kNetworkPkg);
        return -1;
    }
    // Non-zero here, where the conversion asks for exactly 1: a capability answer of 2
    // rolls back as two ports but converts as one.
    const char *lanSec = CAP_IsDoubleIntfSupport() != 0 ? netlib::kLan1 : netlib::kEth0Section;
    struct uci_section *lan = NET_GetSection(pkg.get(), lanSec);
    if (lan == nullptr) {
        NET_LOG(NET_LVL_ERR, "section: %s.\n", lanSec);
        return -1;
    }
    if (strip_interface(NET_HERE, lan) != 0 || strip_sections(NET_HERE, pkg) != 0)
        return -1;
    if (pkg.commit() != 0) {
        NET_LOG(NET_LVL_ERR, "NET_UciCommit fail.\n");
        return -1;
    }
    if (NET_SetOldTcpipCfg(pstEtherCfg) != 0) {
        NET_LOG(NET_LVL_ERR, "NET_SetOldTcpipCfg fail.\n");
        return -1;
    }
    return 0;
}

} // extern "C"
