// The end-to-end address change: configuration first, kernel second.
#include <errno.h>
#include <netinet/in.h>
#include <string.h>

#include "link/ipv4.h"
#include "base/kcall.h"
#include "libnetwork.h"

using namespace netlib;

extern "C" {

int NET_IPv4SetAddr(const char *pcIfName, const char *pcIpv4Addr, const char *pcIpv4Mask)
{
    NET_CHECK_ARGS(-1, "pcIfName: %p, pcIpv4Addr: %p, pcIpv4Mask: %p. \n", pcIfName, pcIpv4Addr,
                   pcIpv4Mask);
    if (held_by_other_interface(NET_HERE, pcIfName, pcIpv4Addr))
        return -1;
    if (NET_IsDhcpMode(pcIfName) == 1) {
        NET_LOG(NET_LVL_DEBUG, "in dhcp mode, do not need set address \n");
        return -1;
    }
    // Configuration first, kernel second; a later kernel failure does not roll it back.
    if (NET_SetIpv4AddrCfg(pcIfName, pcIpv4Addr, pcIpv4Mask) != 0) {
        NET_LOG(NET_LVL_DEBUG, "write network config file failed \n");
        return -1;
    }
    UniqueFd fd = open_ctl_socket(kernel_call(NET_HERE, FdName::iSock));
    if (!fd.valid())
        return -1;
    struct ifreq ifr;
    ifreq_init(ifr, pcIfName);
    ifr.ifr_addr.sa_family = AF_INET;
    if (INET_Ipv4StrToNum(pcIpv4Addr,
                          &reinterpret_cast<struct sockaddr_in *>(&ifr.ifr_addr)->sin_addr) < 0) {
        NET_LOG(NET_LVL_ERR, "pcIpv4Addr: %s.\n", pcIpv4Addr);
        return -1;
    }
    const CallSite site = NET_HERE;
    if (ctl_ioctl_or(fd.get(), SIOCSIFADDR, &ifr, [site] {
            NET_LOG_AT(site, NET_LVL_DEBUG, "ioctl(SIOCSIFADDR) failed, %s \n", strerror(errno));
        }) != 0)
        return -1;
    ifr.ifr_addr.sa_family = AF_INET;
    if (INET_Ipv4StrToNum(pcIpv4Mask,
                          &reinterpret_cast<struct sockaddr_in *>(&ifr.ifr_addr)->sin_addr) < 0) {
        NET_LOG(NET_LVL_ERR, "pcIpv4Mask: %s.\n", pcIpv4Mask);
        return -1; // the new address stays in force
    }
    return ctl_ioctl(kernel_call(NET_HERE, FdName::iSock), fd.get(), SIOCSIFNETMASK, &ifr);
}

} // extern "C"
