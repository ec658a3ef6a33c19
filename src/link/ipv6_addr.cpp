// Adding and removing IPv6 addresses (SIOCGIFINDEX for the index, then SIOCSIFADDR or
// SIOCDIFADDR with the kernel's in6_ifreq, on an AF_INET6 datagram socket), and whether an
// address is the interface's own EUI-64 one.
#include <netinet/in.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <linux/ipv6.h>

#include "base/kcall.h"
#include "libnetwork.h"

using namespace netlib;

namespace
{

constexpr int kMinPrefix = 3;
constexpr int kMaxPrefix = 127; // a /128 host address is refused by design

// The usual pattern's socket, in the IPv6 family these requests need.
UniqueFd open_inet6_socket(CallSite site, FdName name, bool cloexec)
{
    return open_ctl_socket(
        kernel_call(site, name, NET_LVL_ERR, cloexec ? CtlSock::Dgram6Cloexec : CtlSock::Dgram6));
}

// Interface index by SIOCGIFINDEX (name cut to 15 characters); -1 when the request fails.
int ifindex_of(const KernelCall &c, int fd, const char *ifname)
{
    struct ifreq ifr;
    ifreq_init(ifr, ifname);
    if (ctl_ioctl(c, fd, SIOCGIFINDEX, &ifr) != 0)
        return -1;
    return ifr.ifr_ifindex;
}

int valid_prefix(int iPrefixLen)
{
    return iPrefixLen >= kMinPrefix && iPrefixLen <= kMaxPrefix;
}

// NET_AddIpv6Addr and NET_DelIpv6Addr: no close-on-exec; the text converted after the index.
int change_addr(CallSite site, const char *ifname, const char *text, int prefix, unsigned long req)
{
    KernelCall c = kernel_call(site, FdName::iSocketFd);
    UniqueFd fd = open_inet6_socket(site, FdName::iSocketFd, false);
    if (!fd.valid())
        return -1;
    int index = ifindex_of(c, fd.get(), ifname);
    if (index < 0)
        return -1;
    struct in6_ifreq req6;
    memset(&req6, 0, sizeof req6);
    if (INET_Ipv6StrToNum(text, &req6.ifr6_addr) != 0) {
        NET_LOGT_AT(site, NET_LVL_ERR, PL_CONVERT_IPV6_ADDR_ERROR_PRINT, "pstIpv6Addr: %s.\n",
                    text);
        return -1;
    }
    req6.ifr6_prefixlen = static_cast<unsigned int>(prefix);
    req6.ifr6_ifindex = index;
    return ctl_ioctl(c, fd.get(), req, &req6);
}

// add_ipv6_addr and del_ipv6_addr: the first interface, the socket family's own socket call,
// and no log line on any path.
int older_change_addr(const char *text, int prefix, unsigned long req)
{
    UniqueFd fd(socket_create(AF_INET6, SOCK_DGRAM, 0));
    if (!fd.valid())
        return -1;
    KernelCall c = kernel_call(NET_HERE, FdName::iSocketFd, NET_LVL_NONE);
    int index = ifindex_of(c, fd.get(), g_pcLan1Name);
    if (index < 0)
        return -1;
    struct in6_ifreq req6;
    memset(&req6, 0, sizeof req6);
    if (inet_pton_with_af(AF_INET6, text, &req6.ifr6_addr, sizeof req6.ifr6_addr) != 0)
        return -1;
    req6.ifr6_prefixlen = static_cast<unsigned int>(prefix);
    req6.ifr6_ifindex = index;
    return ctl_ioctl(c, fd.get(), req, &req6);
}

// Compares like strncmp: at most n bytes, ending early at a zero byte both hold, so the
// bytes after a common zero are not compared. Callers see a MAC with zero bytes match more.
bool same_as_string(const unsigned char *a, const unsigned char *b, size_t n)
{
    return strncmp(reinterpret_cast<const char *>(a), reinterpret_cast<const char *>(b), n) == 0;
}

} // namespace

extern "C" {

int NET_SetLocalIpv6Addr(const char *pcIfName, const char *pcIpv6Addr, int iPrefixLen)
{
    NET_CHECK_ARGS(-1, "pcIfName: %p, pcIpv6Addr: %p. \n", pcIfName, pcIpv6Addr);
    // Converted before any socket is opened.
    struct in6_addr addr;
    if (INET_Ipv6StrToNum(pcIpv6Addr, &addr) < 0) {
        NET_LOGT(NET_LVL_ERR, PL_CONVERT_IPV6_ADDR_ERROR_PRINT, "pcIpv6Addr: %s.\n", pcIpv6Addr);
        return -1;
    }
    KernelCall c = kernel_call(NET_HERE, FdName::iSock);
    UniqueFd fd = open_inet6_socket(c.site, FdName::iSock, true);
    if (!fd.valid())
        return -1;
    int index = ifindex_of(c, fd.get(), pcIfName);
    if (index < 0)
        return -1;
    // The prefix length goes to the kernel as given: no range check on this call.
    struct in6_ifreq req6;
    memset(&req6, 0, sizeof req6);
    req6.ifr6_addr = addr;
    req6.ifr6_prefixlen = static_cast<unsigned int>(iPrefixLen);
    req6.ifr6_ifindex = index;
    return ctl_ioctl(c, fd.get(), SIOCSIFADDR, &req6);
}

int NET_AddIpv6Addr(const char *pcIfName, const char *pstIpv6Addr, int iPrefixLen)
{
    if (pcIfName == nullptr || pstIpv6Addr == nullptr || !valid_prefix(iPrefixLen)) {
        NET_LOGT(NET_LVL_ERR, PL_PARAM_ERROR_PRINT,
                 "pcIfName: %p, pstIpv6Addr: %p, iPrefixLen: %d.\n", (const void *)pcIfName,
                 (const void *)pstIpv6Addr, iPrefixLen);
        return -1;
    }
    return change_addr(NET_HERE, pcIfName, pstIpv6Addr, iPrefixLen, SIOCSIFADDR);
}

int NET_DelIpv6Addr(const char *pcIfName, const char *pstIpv6Addr, int iPrefixLen)
{
    if (pcIfName == nullptr || pstIpv6Addr == nullptr || !valid_prefix(iPrefixLen)) {
        NET_LOGT(NET_LVL_ERR, PL_PARAM_ERROR_PRINT,
                 "pcIfName: %p, pstIpv6Addr: %p, iPrefixLen: %d.\n", (const void *)pcIfName,
                 (const void *)pstIpv6Addr, iPrefixLen);
        return -1;
    }
    return change_addr(NET_HERE, pcIfName, pstIpv6Addr, iPrefixLen, SIOCDIFADDR);
}

int add_ipv6_addr(const char *pcIpv6Addr, int iPrefixLen)
{
    if (pcIpv6Addr == nullptr || !valid_prefix(iPrefixLen))
        return -1;
    return older_change_addr(pcIpv6Addr, iPrefixLen, SIOCSIFADDR);
}

int del_ipv6_addr(const char *pcIpv6Addr, int iPrefixLen)
{
    // Only the text is checked here: the kernel judges the prefix length.
    if (pcIpv6Addr == nullptr)
        return -1;
    return older_change_addr(pcIpv6Addr, iPrefixLen, SIOCDIFADDR);
}

// Whether the address is the one the interface's MAC makes under a router's prefix (EUI-64).
int NET_IsIpv6RouteAdviseAddr(const char *pcIfName, const char *pcIpv6Addr)
{
    NET_CHECK_ARGS(0, "pcIfName: %p, pcIpv6Addr: %p. \n", pcIfName, pcIpv6Addr);
    struct in6_addr addr;
    if (INET_Ipv6StrToNum(pcIpv6Addr, &addr) != 0)
        return 0;
    unsigned char mac[6] = {0};
    if (NET_GetMacAddrNum(pcIfName, mac, sizeof mac) != 0)
        return 0;
    // Byte 8 (its universal/local bit inverted in EUI-64) is not looked at.
    const unsigned char *a = addr.s6_addr;
    return same_as_string(&a[9], &mac[1], 2) && a[11] == 0xFF && a[12] == 0xFE &&
                   same_as_string(&a[13], &mac[3], 3)
               ? 1
               : 0;
}

} // extern "C"
