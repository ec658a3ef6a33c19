// Static direct routes (no gateway) through an interface: the exported pair changes the
// kernel first and the stored route second; the two older calls touch the kernel only.
#include <arpa/inet.h>
#include <errno.h>
#include <net/route.h>
#include <netinet/in.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>

#include "base/kcall.h"
#include "libnetwork.h"

using namespace netlib;

namespace
{

void set_inet(struct sockaddr &sa, struct in_addr addr)
{
    auto *in = reinterpret_cast<struct sockaddr_in *>(&sa);
    in->sin_family = AF_INET;
    in->sin_addr = addr;
}

struct in_addr addr_of(in_addr_t value)
{
    struct in_addr a;
    a.s_addr = value;
    return a;
}

// A direct route: destination and mask, no gateway, the device by name.
struct rtentry direct_route(struct in_addr dst, struct in_addr mask, bool host, const char *dev)
{
    struct rtentry rt;
    memset(&rt, 0, sizeof rt);
    set_inet(rt.rt_dst, dst);
    set_inet(rt.rt_genmask, mask);
    rt.rt_flags = host ? (RTF_UP | RTF_HOST) : RTF_UP;
    rt.rt_dev = const_cast<char *>(dev);
    return rt;
}

// The kernel half of the exported pair. The texts are not validated: inet_addr turns a
// malformed one into 255.255.255.255 and the kernel decides. Host route exactly when the mask
// is written "255.255.255.255": a text comparison on purpose.
int exported_route_request(CallSite site, const char *ifname, const char *addr, const char *mask,
                           unsigned long req)
{
    KernelCall c = kernel_call(site, FdName::iSockFd);
    UniqueFd fd = open_ctl_socket(c);
    if (!fd.valid())
        return -1;
    bool host = strcmp(mask, "255.255.255.255") == 0;
    struct rtentry rt =
        direct_route(addr_of(inet_addr(addr)), addr_of(inet_addr(mask)), host, ifname);
    return ctl_ioctl(c, fd.get(), req, &rt);
}

bool null_route_args(CallSite site, const char *ifname, const char *addr, const char *mask)
{
    if (ifname != nullptr && addr != nullptr && mask != nullptr)
        return false;
    NET_LOGT_AT(site, NET_LVL_ERR, PL_PARAM_ERROR_PRINT, "pcIfName: %p, pcAddr: %p, pcMask: %p. \n",
                (const void *)ifname, (const void *)addr, (const void *)mask);
    return true;
}

// The older calls' conversion: a failure leaves 0.0.0.0.
struct in_addr aton_or_zero(const char *text, bool report)
{
    struct in_addr a;
    a.s_addr = 0;
    if (inet_aton(text, &a) == 0) {
        a.s_addr = 0;
        if (report)
            puts("inet_aton fail.");
    }
    return a;
}

} // namespace

extern "C" {

int NET_IPv4SetRoute(const char *pcIfName, const char *pcAddr, const char *pcMask)
{
    if (null_route_args(NET_HERE, pcIfName, pcAddr, pcMask))
        return -1;
    if (exported_route_request(NET_HERE, pcIfName, pcAddr, pcMask, SIOCADDRT) != 0)
        return -1;
    // The kernel route stays when storing fails.
    if (NET_SetRouteCfg(pcIfName, pcAddr, pcMask) != 0) {
        NET_LOG(NET_LVL_ERR, "add route config failed \n");
        return -1;
    }
    return 0;
}

int NET_IPv4DelRoute(const char *pcIfName, const char *pcAddr, const char *pcMask)
{
    if (null_route_args(NET_HERE, pcIfName, pcAddr, pcMask))
        return -1;
    // A route the kernel no longer holds stops here, so its stored copy stays.
    if (exported_route_request(NET_HERE, pcIfName, pcAddr, pcMask, SIOCDELRT) != 0)
        return -1;
    if (NET_DelRouteCfg(pcIfName, pcAddr, pcMask) != 0) {
        NET_LOG(NET_LVL_ERR, "delete route config failed \n");
        return -1;
    }
    return 0;
}

int set_route1(const char *pcAddr, const char *pcMask, int iHost, const char *pcIfName)
{
    if (pcAddr == nullptr || pcMask == nullptr)
        return -1;
    UniqueFd fd(socket(AF_INET, SOCK_DGRAM, 0));
    if (!fd.valid())
        return -1;
    struct in_addr dst = aton_or_zero(pcAddr, true);
    struct in_addr mask = aton_or_zero(pcMask, true);
    struct rtentry rt = direct_route(dst, mask, iHost != 0, pcIfName);
    if (ioctl(fd.get(), SIOCADDRT, &rt) < 0) {
        printf("set_route ioctl error and errno=%d\n", errno);
        return -1;
    }
    return 0;
}

int set_route(const char *pcAddr, const char *pcMask, int iHost)
{
    if (pcAddr == nullptr || pcMask == nullptr)
        return -1;
    UniqueFd fd(socket(AF_INET, SOCK_DGRAM, 0));
    if (!fd.valid())
        return -1;
    struct rtentry rt = direct_route(aton_or_zero(pcAddr, false), aton_or_zero(pcMask, false),
                                     iHost != 0, get_active_interface());
    return ioctl(fd.get(), SIOCADDRT, &rt) < 0 ? -1 : 0;
}

} // extern "C"
