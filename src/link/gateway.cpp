// The default IPv4 gateway of an interface: set and delete through the kernel's route
// requests, read from the route table.
#include <arpa/inet.h>
#include <net/route.h>
#include <netinet/in.h>
#include <string.h>

#include "link/proc_tables.h"
#include "link/route_table.h"
#include "inet/text.h"
#include "base/kcall.h"
#include "libnetwork.h"

using namespace netlib;

namespace
{

void set_inet(struct sockaddr &sa, in_addr_t addr)
{
    auto *in = reinterpret_cast<struct sockaddr_in *>(&sa);
    in->sin_family = AF_INET;
    in->sin_addr.s_addr = addr;
}

// A default route through ifname via gateway; the text is not validated: inet_addr turns a
// malformed one into 255.255.255.255 and the kernel decides.
int default_route_request(const KernelCall &c, const char *ifname, const char *gateway,
                          unsigned long req)
{
    UniqueFd fd = open_ctl_socket(c);
    if (!fd.valid())
        return -1;
    struct rtentry rt;
    memset(&rt, 0, sizeof rt);
    set_inet(rt.rt_dst, INADDR_ANY);
    set_inet(rt.rt_gateway, inet_addr(gateway));
    set_inet(rt.rt_genmask, INADDR_ANY);
    rt.rt_flags = RTF_UP | RTF_GATEWAY;
    rt.rt_dev = const_cast<char *>(ifname);
    return ctl_ioctl(c, fd.get(), req, &rt);
}

} // namespace

extern "C" {

int NET_SetIpv4Gateway(const char *pcIfName, const char *pcGateway)
{
    NET_CHECK_ARGS(-1, "pcIfName: %p, pcGateway: %p. \n", pcIfName, pcGateway);
    // No gateway is a success.
    if (strcmp(pcGateway, "0.0.0.0") == 0) {
        NET_LOG(NET_LVL_DEBUG, "Invalid gateway ip. \n");
        return 0;
    }
    // An identical route already there makes the kernel refuse: routine, debug level.
    return default_route_request(kernel_call(NET_HERE, FdName::iFd, NET_LVL_DEBUG), pcIfName,
                                 pcGateway, SIOCADDRT);
}

int NET_DelIpv4Gateway(const char *pcIfName, const char *pcGateway)
{
    if (pcIfName == nullptr || pcGateway == nullptr) {
        NET_LOGT(NET_LVL_ERR, PL_PARAM_ERROR_PRINT, "\n");
        return -1;
    }
    return default_route_request(kernel_call(NET_HERE, FdName::iFd), pcIfName, pcGateway,
                                 SIOCDELRT);
}

int NET_GetIpv4Gateway(const char *pcIfName, char *pcGateway, unsigned int uiLen)
{
    NET_CHECK_ARGS(-1, "pcIfName: %p, pcGateway: %p. \n", pcIfName, pcGateway);
    TableFile table("/proc/net/route");
    if (table.get() == nullptr) {
        NET_LOG(NET_LVL_DEBUG, "open /proc/net/route failed");
        return -1;
    }
    RouteLine route;
    // No default route is no error: the buffer is left as the caller gave it.
    if (find_default_route(table.get(), pcIfName, route)) {
        // Our formatter prints what inet_ntop prints, bound included, without printf.
        ntop_ipv4(reinterpret_cast<const unsigned char *>(&route.gateway), pcGateway, uiLen);
    }
    return 0;
}

} // extern "C"
