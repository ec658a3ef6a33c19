// Stored static routes: one "route" section per interface and destination, named from both,
// and the single "gateway" section of the default route.
#include <arpa/inet.h>
#include <stdio.h>
#include <string.h>

#include "config/uci_access.h"
#include "libnetwork.h"
#include "base/log.h"

using namespace netlib;

namespace
{

constexpr unsigned int kRouteNameLen = 32;

// "<ifname>_<ADDR>" (the interface name, not its section name; the destination as a host
// order number in eight upper-case hex digits), or "gateway" for the mask 0.0.0.0. A
// destination that does not convert becomes FFFFFFFF.
int net_ConvertRouteName(const char *pcIfName, const char *pcAddr, const char *pcMask,
                         char *pcRtName, unsigned int uiLen)
{
    if (pcIfName == nullptr || pcRtName == nullptr || (pcAddr == nullptr && pcMask == nullptr)) {
        NET_LOGT(NET_LVL_ERR, PL_PARAM_ERROR_PRINT,
                 "pcIfName: %p, pcAddr: %p, pcMask: %p, pcRtName: %p.\n", (const void *)pcIfName,
                 (const void *)pcAddr, (const void *)pcMask, (void *)pcRtName);
        return -1;
    }
    if (pcMask != nullptr && strcmp(pcMask, "0.0.0.0") == 0) {
        strncpy(pcRtName, "gateway", uiLen - 1);
        return 0;
    }
    if (pcAddr == nullptr)
        return 0;
    snprintf(pcRtName, uiLen, "%s_%08X", pcIfName, (unsigned int)ntohl(inet_addr(pcAddr)));
    return 0;
}

// Sets one route option; a failure frees the package and is logged with the value.
bool set_route_option(CallSite site, UciPackage &pkg, struct uci_section *sec, const char *name,
                      const char *value)
{
    if (NET_SetOption(sec, name, value) == 0)
        return true;
    pkg.reset();
    NET_LOG_AT(site, NET_LVL_ERR, "option: %s, value: %s.\n", name, value);
    return false;
}

bool null_route_args(CallSite site, const char *ifname, const char *addr, const char *mask)
{
    if (ifname != nullptr && addr != nullptr && mask != nullptr)
        return false;
    NET_LOGT_AT(site, NET_LVL_ERR, PL_PARAM_ERROR_PRINT, "pcIfName: %p, pcAddr: %p, pcMask: %p.\n",
                (const void *)ifname, (const void *)addr, (const void *)mask);
    return true;
}

} // namespace

extern "C" {

int NET_SetRouteCfg(const char *pcIfName, const char *pcAddr, const char *pcMask)
{
    if (null_route_args(NET_HERE, pcIfName, pcAddr, pcMask))
        return -1;
    UciPackage pkg;
    if (!open_network(NET_HERE, pkg))
        return -1;
    char name[kRouteNameLen] = {0};
    if (net_ConvertRouteName(pcIfName, pcAddr, pcMask, name, sizeof name) != 0) {
        // The package stays open on this exit and the next: one descriptor per failed call.
        pkg.release();
        NET_LOG(NET_LVL_ERR, "Convert route name failed, addr: %s mask: %s.\n", pcAddr, pcMask);
        return -1;
    }
    struct uci_section *sec = NET_CreateAndGetSection(pkg.get(), "route", name);
    if (sec == nullptr) {
        pkg.release();
        NET_LOG(NET_LVL_ERR, "section: %s, value: %s.\n", "route", name);
        return -1;
    }
    if (!set_route_option(NET_HERE, pkg, sec, "interface", NET_GetUciNameByIfName(pcIfName)) ||
        !set_route_option(NET_HERE, pkg, sec, "target", pcAddr) ||
        !set_route_option(NET_HERE, pkg, sec, "netmask", pcMask))
        return -1;
    if (pkg.commit() != 0) {
        NET_LOGT(NET_LVL_ERR, PL_COMMIT_ERROR_PRINT, "\n");
        return -1;
    }
    return 0;
}

int NET_DelRouteCfg(const char *pcIfName, const char *pcAddr, const char *pcMask)
{
    if (null_route_args(NET_HERE, pcIfName, pcAddr, pcMask))
        return -1;
    UciPackage pkg;
    if (!open_network(NET_HERE, pkg))
        return -1;
    char name[kRouteNameLen] = {0};
    if (net_ConvertRouteName(pcIfName, pcAddr, pcMask, name, sizeof name) != 0) {
        pkg.reset();
        NET_LOG(NET_LVL_ERR, "Convert route name failed, addr: %s mask: %s.\n", pcAddr, pcMask);
        return -1;
    }
    struct uci_section *sec = find_section(NET_HERE, pkg, name);
    if (sec == nullptr)
        return -1;
    if (NET_DelSection(sec) != 0) {
        pkg.reset();
        NET_LOG(NET_LVL_ERR, "Delete section failed.\n");
        return -1;
    }
    if (pkg.commit() != 0) {
        NET_LOG(NET_LVL_ERR, "\n");
        return -1;
    }
    return 0;
}

} // extern "C"
