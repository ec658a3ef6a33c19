// Single settings of an interface's section: the "dns" server list, the MTU and the IPv4
// gateway.
#include <stdio.h>

#include "config/uci_access.h"
#include "libnetwork.h"
#include "base/log.h"

using namespace netlib;

namespace
{

constexpr int kMinMtu = 100;
constexpr int kDefaultMtu = 1500;
constexpr const char *kDnsList = "dns";

// Opens "network" and finds the interface's section ("lan" for "eth0").
struct uci_section *open_if_section(CallSite site, UciPackage &pkg, const char *ifname)
{
    return open_section(site, pkg, NET_GetUciNameByIfName(ifname));
}

} // namespace

extern "C" {

int NET_SetDnsCfg(const char *pcIfName, const char *pcMaster, const char *pcSlaver)
{
    if (pcIfName == nullptr || (pcMaster == nullptr && pcSlaver == nullptr)) {
        NET_LOGT(NET_LVL_ERR, PL_PARAM_ERROR_PRINT, "pcIfName: %p, pcMaster: %p, pcSlaver: %p.\n",
                 (const void *)pcIfName, (const void *)pcMaster, (const void *)pcSlaver);
        return -1;
    }
    UciPackage pkg;
    struct uci_section *sec = open_if_section(NET_HERE, pkg, pcIfName);
    if (sec == nullptr)
        return -1;
    // Appended to what is stored, duplicates too: callers delete the old servers first.
    if (pcMaster != nullptr && NET_SetUciList(sec, kDnsList, pcMaster) != 0) {
        pkg.reset();
        NET_LOG(NET_LVL_ERR, "master: %s.\n", kDnsList);
        return -1;
    }
    if (pcSlaver != nullptr && NET_SetUciList(sec, kDnsList, pcSlaver) != 0) {
        pkg.reset();
        NET_LOG(NET_LVL_ERR, "slaver: %s.\n", kDnsList);
        return -1;
    }
    return commit_logged(NET_HERE, pkg);
}

int NET_DelDnsCfg(const char *pcIfName, const char *pcMaster, const char *pcSlaver)
{
    if (pcIfName == nullptr || pcMaster == nullptr) {
        NET_LOGT(NET_LVL_ERR, PL_PARAM_ERROR_PRINT, "pcIfName: %p, pcMaster: %p, pcSlaver: %p.\n",
                 (const void *)pcIfName, (const void *)pcMaster, (const void *)pcSlaver);
        return -1;
    }
    UciPackage pkg;
    struct uci_section *sec = open_if_section(NET_HERE, pkg, pcIfName);
    if (sec == nullptr)
        return -1;
    if (NET_DelUciList(sec, kDnsList, pcMaster) != 0) {
        pkg.reset();
        NET_LOG(NET_LVL_ERR, "Delete master dns failed \n");
        return -1;
    }
    if (pcSlaver != nullptr && NET_DelUciList(sec, kDnsList, pcSlaver) != 0) {
        pkg.reset();
        NET_LOG(NET_LVL_ERR, "Delete slave dns failed \n");
        return -1;
    }
    return commit_logged(NET_HERE, pkg);
}

int NET_SetMtuCfg(const char *pcIfName, int iMtuVal)
{
    if (pcIfName == nullptr || iMtuVal < kMinMtu || iMtuVal > kDefaultMtu) {
        NET_LOGT(NET_LVL_ERR, PL_PARAM_ERROR_PRINT, "pcIfName: %p, iMtuVal: %d.\n",
                 (const void *)pcIfName, iMtuVal);
        return -1;
    }
    UciPackage pkg;
    struct uci_section *sec = open_if_section(NET_HERE, pkg, pcIfName);
    if (sec == nullptr)
        return -1;
    // The default is never stored, only implied by absence.
    if (iMtuVal == kDefaultMtu) {
        if (NET_DelOption(sec, "mtu") != 0)
            NET_LOG(NET_LVL_DEBUG, "There is no mtu opt \n");
    } else {
        char text[8] = {0};
        snprintf(text, sizeof text, "%d", iMtuVal);
        if (NET_SetOption(sec, "mtu", text) != 0) {
            pkg.reset();
            NET_LOG(NET_LVL_ERR, "option: %s, value: %s.\n", "mtu", text);
            return -1;
        }
    }
    return commit_logged(NET_HERE, pkg);
}

int NET_SetGatewayCfg(const char *pcIfName, const char *pcGateway)
{
    NET_CHECK_ARGS(-1, "pcIfName: %p, pcGateway: %p.\n", pcIfName, pcGateway);
    UciPackage pkg;
    struct uci_section *sec = open_if_section(NET_HERE, pkg, pcIfName);
    if (sec == nullptr)
        return -1;
    if (NET_SetOption(sec, "gateway", pcGateway) != 0) {
        pkg.reset();
        NET_LOG(NET_LVL_ERR, "option: %s, value: %s.\n", "gateway", pcGateway);
        return -1;
    }
    return commit_logged(NET_HERE, pkg);
}

int NET_DelGatewayCfg(const char *pcIfName)
{
    NET_CHECK_ARGS(-1, "pcIfName: %p.\n", pcIfName);
    UciPackage pkg;
    struct uci_section *sec = open_if_section(NET_HERE, pkg, pcIfName);
    if (sec == nullptr)
        return -1;
    if (NET_DelOption(sec, "gateway") != 0) {
        pkg.reset();
        NET_LOG(NET_LVL_ERR, "Delete ipv4 gateway failed \n");
        return -1;
    }
    return commit_logged(NET_HERE, pkg);
}

} // extern "C"
