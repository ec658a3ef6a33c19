// The utility family's multicast membership and loop-back. IPv4 memberships name the
// interface by its address, read from the caller's socket; IPv6 ones by interface index.
#include <net/if.h>
#include <netinet/in.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "base/kcall.h"
#include "libnetwork.h"

namespace
{

// The interface's IPv4 address through the caller's socket; the wildcard address when the
// request fails (callers see the wildcard, not an error).
struct in_addr interface_addr(int sock, const char *ifname)
{
    struct ifreq ifr;
    netlib::ifreq_init(ifr, ifname != nullptr ? ifname : "");
    ioctl(sock, SIOCGIFADDR, &ifr);
    return reinterpret_cast<const struct sockaddr_in *>(&ifr.ifr_addr)->sin_addr;
}

int ipv4_membership(int sock, int option, struct in_addr group, struct in_addr iface)
{
    struct ip_mreq req;
    req.imr_multiaddr = group;
    req.imr_interface = iface;
    return setsockopt(sock, IPPROTO_IP, option, &req, sizeof req);
}

int ipv6_membership(int sock, int option, const struct sockaddr *group, const char *ifname)
{
    if (is_support_ipv6() == 0)
        return -1;
    struct ipv6_mreq req;
    req.ipv6mr_multiaddr = reinterpret_cast<const struct sockaddr_in6 *>(group)->sin6_addr;
    req.ipv6mr_interface = ifname != nullptr ? if_nametoindex(ifname) : 0;
    return setsockopt(sock, IPPROTO_IPV6, option, &req, sizeof req);
}

int set_loop(int sock, int level, int option, int loop)
{
    // One byte in both families; where the IPv6 option refuses it the caller sees -1.
    unsigned char value = static_cast<unsigned char>(loop);
    return setsockopt(sock, level, option, &value, sizeof value);
}

} // namespace

// iLen has no role beyond being positive.
extern "C" int mcast_join(int iSock, const struct sockaddr_in *pstGroup, int iLen)
{
    if (iSock < 1 || pstGroup == nullptr || iLen <= 0)
        return -1;
    return ipv4_membership(iSock, IP_ADD_MEMBERSHIP, pstGroup->sin_addr,
                           interface_addr(iSock, g_pcLan1Name));
}

extern "C" int mcast_join_ex(int iSock, const struct sockaddr *pstGroup, const char *pcIfName)
{
    if (iSock < 1 || pstGroup == nullptr)
        return -1;
    if (pstGroup->sa_family == AF_INET)
        return ipv4_membership(iSock, IP_ADD_MEMBERSHIP,
                               reinterpret_cast<const struct sockaddr_in *>(pstGroup)->sin_addr,
                               interface_addr(iSock, pcIfName));
    return ipv6_membership(iSock, IPV6_JOIN_GROUP, pstGroup, pcIfName);
}

// iLen is ignored; the socket is not tested here.
extern "C" int mcast_leave(int iSock, const struct sockaddr_in *pstGroup, int iLen)
{
    (void)iLen;
    if (pstGroup == nullptr)
        return -1;
    struct in_addr any;
    any.s_addr = htonl(INADDR_ANY);
    return ipv4_membership(iSock, IP_DROP_MEMBERSHIP, pstGroup->sin_addr, any);
}

// Always on the first LAN interface: there is no interface argument.
extern "C" int mcast_leave_ex(int iSock, const struct sockaddr *pstGroup)
{
    if (iSock < 1 || pstGroup == nullptr)
        return -1;
    if (pstGroup->sa_family == AF_INET)
        return ipv4_membership(iSock, IP_DROP_MEMBERSHIP,
                               reinterpret_cast<const struct sockaddr_in *>(pstGroup)->sin_addr,
                               interface_addr(iSock, g_pcLan1Name));
    return ipv6_membership(iSock, IPV6_LEAVE_GROUP, pstGroup, g_pcLan1Name);
}

extern "C" int mcast_setloop(int iSock, int iLoop)
{
    if (iSock < 1)
        return -1;
    return set_loop(iSock, IPPROTO_IP, IP_MULTICAST_LOOP, iLoop);
}

extern "C" int mcast_setloop_ex(int iSock, int iLoop, int iFamily)
{
    if (iSock < 1)
        return -1;
    if (iFamily == AF_INET)
        return set_loop(iSock, IPPROTO_IP, IP_MULTICAST_LOOP, iLoop);
    return set_loop(iSock, IPPROTO_IPV6, IPV6_MULTICAST_LOOP, iLoop);
}
