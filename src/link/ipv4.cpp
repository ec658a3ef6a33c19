// Live IPv4 address and mask of an interface, and the end-to-end address change.
#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <string.h>

#include "inet/text.h"
#include "base/kcall.h"
#include "libnetwork.h"
#include "link/ipv4.h"
#include "base/ports.h"

using namespace netlib;

namespace
{

struct sockaddr_in *ifr_in(struct ifreq &ifr)
{
    return reinterpret_cast<struct sockaddr_in *>(&ifr.ifr_addr);
}

// Reads one address-kind request into text; the failure line is the call's own.
int get_ipv4_text(const KernelCall &c, const char *ifname, unsigned long req, char *out,
                  unsigned int len)
{
    struct ifreq ifr;
    if (ifreq_call(c, ifname, req, ifr) != 0)
        return -1;
    // Our formatter prints what inet_ntop prints, bound included, without printf.
    ntop_ipv4(reinterpret_cast<const unsigned char *>(&ifr_in(ifr)->sin_addr), out, len);
    return 0;
}

// Address or mask into the kernel alone. Only a negative inet_pton answer fails: a text that
// is no address (0) leaves the zeroed field, so callers that pass one get 0.0.0.0 set.
int set_ipv4_kernel_only(CallSite site, const char *ifname, const char *text, unsigned long req)
{
    UniqueFd fd = open_ctl_socket(kernel_call(site, FdName::iSock));
    if (!fd.valid())
        return -1;
    struct ifreq ifr;
    ifreq_init(ifr, ifname);
    ifr.ifr_addr.sa_family = AF_INET;
    if (inet_pton(AF_INET, text, &ifr_in(ifr)->sin_addr) < 0) {
        fd.reset();
        if (req == SIOCSIFADDR)
            NET_LOG_AT(site, NET_LVL_ERR, "convert address failed \n");
        else
            NET_LOG_AT(site, NET_LVL_ERR, "Convert address failed. \n");
        return -1;
    }
    // Both requests report with the address call's text on purpose: log readers match on it.
    return ctl_ioctl_or(fd.get(), req, &ifr,
                        [&] { NET_LOG_AT(site, NET_LVL_ERR, "ioctl(SIOCSIFADDR) failed!\n"); });
}

} // namespace

extern "C" {

int NET_GetIpv4Addr(const char *pcIfName, char *pcIpv4Addr, unsigned int uiLen)
{
    NET_CHECK_ARGS(-1, "pcIfName: %p, pcIpv4Addr: %p. \n", pcIfName, pcIpv4Addr);
    // Polling a PPPoE link that is down must leave no log trail.
    int level = strcmp(pcIfName, "wan-pppoe") == 0 ? NET_LVL_NONE : NET_LVL_ERR;
    return get_ipv4_text(kernel_call(NET_HERE, FdName::iSock, level), pcIfName, SIOCGIFADDR,
                         pcIpv4Addr, uiLen);
}

int NET_GetIpv4Mask(const char *pcIfName, char *pcIpv4Mask, unsigned int uiLen)
{
    NET_CHECK_ARGS(-1, "pcIfName: %p, pcIpv4Mask: %p. \n", pcIfName, pcIpv4Mask);
    return get_ipv4_text(kernel_call(NET_HERE, FdName::iSock), pcIfName, SIOCGIFNETMASK, pcIpv4Mask,
                         uiLen);
}

int NET_SetIpv4Addr(const char *pcIfName, const char *pcIpv4Addr)
{
    NET_CHECK_ARGS(-1, "pcIfName: %p, pcIpv4Addr: %p. \n", pcIfName, pcIpv4Addr);
    if (held_by_other_interface(NET_HERE, pcIfName, pcIpv4Addr))
        return -1;
    return set_ipv4_kernel_only(NET_HERE, pcIfName, pcIpv4Addr, SIOCSIFADDR);
}

int NET_SetIpv4Mask(const char *pcIfName, const char *pcIpv4Mask)
{
    NET_CHECK_ARGS(-1, "pcIfName: %p, pcIpv4Mask: %p. \n", pcIfName, pcIpv4Mask);
    return set_ipv4_kernel_only(NET_HERE, pcIfName, pcIpv4Mask, SIOCSIFNETMASK);
}

int INET_IsIpv4AddrExist(const char *pcIfName, const char *pcIpv4Addr)
{
    NET_CHECK_ARGS(0, "pcIfName: %p, pcIpv4Addr: %p. \n", pcIfName, pcIpv4Addr);
    char held[16] = {0};
    if (NET_GetIpv4Addr(pcIfName, held, sizeof held) != 0)
        return 0;
    // A text comparison: "192.168.001.010" is not "192.168.1.10".
    if (strcmp(held, pcIpv4Addr) != 0)
        return 0;
    NET_LOG(NET_LVL_DEBUG, "Default lan ip address is existed.\n");
    return 1;
}

} // extern "C"

namespace netlib
{

bool held_by_other_interface(CallSite site, const char *ifname, const char *addr)
{
    const char *other = other_interface(ifname);
    if (other == nullptr || INET_IsIpv4AddrExist(other, addr) == 0)
        return false;
    NET_LOG_AT(site, NET_LVL_ERR, "Ipaddr is exist, pcOtherIfName:%s, ipaddr:%s. \n", other, addr);
    return true;
}

} // namespace netlib
