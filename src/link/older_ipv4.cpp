// The older direct-ioctl calls. They keep their own conventions: a stream socket for the
// requests, nothing in the log (perror when the socket cannot be had), 0 or -1.
#include <arpa/inet.h>
#include <net/if.h>
#include <net/route.h>
#include <netinet/in.h>
#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "link/proc_tables.h"
#include "link/route_table.h"
#include "base/kcall.h"
#include "libnetwork.h"

using namespace netlib;

namespace
{

// One interface request on a stream socket; prepare fills the input.
template <class Prepare>
int older_request(const char *ifname, unsigned long req, struct ifreq &ifr, Prepare &&prepare)
{
    if (ifname == nullptr)
        return -1;
    UniqueFd fd(socket(AF_INET, SOCK_STREAM, 0));
    if (!fd.valid()) {
        perror("Socket");
        return -1;
    }
    ifreq_init(ifr, ifname);
    if (prepare(ifr) != 0)
        return -1;
    return ioctl(fd.get(), req, &ifr) < 0 ? -1 : 0;
}

int older_get(const char *ifname, unsigned long req, struct ifreq &ifr)
{
    return older_request(ifname, req, ifr, [](struct ifreq &) { return 0; });
}

struct in_addr *ifr_in(struct ifreq &ifr)
{
    return &reinterpret_cast<struct sockaddr_in *>(&ifr.ifr_addr)->sin_addr;
}

int older_get_text(const char *ifname, unsigned long req, char *out, int len)
{
    if (out == nullptr || len <= 0)
        return -1;
    struct ifreq ifr;
    if (older_get(ifname, req, ifr) != 0)
        return -1;
    return inet_ntop(AF_INET, ifr_in(ifr), out, static_cast<socklen_t>(len)) != nullptr ? 0 : -1;
}

int older_set_addr(const char *ifname, const char *text, unsigned long req)
{
    if (text == nullptr)
        return -1;
    struct ifreq ifr;
    return older_request(ifname, req, ifr, [&](struct ifreq &r) {
        r.ifr_addr.sa_family = AF_INET;
        return inet_aton(text, ifr_in(r)) != 0 ? 0 : -1;
    });
}

int older_route(const char *ifname, const char *gateway, unsigned long req)
{
    struct in_addr gw;
    if (ifname == nullptr || gateway == nullptr || inet_aton(gateway, &gw) == 0)
        return -1;
    UniqueFd fd(socket(AF_INET, SOCK_STREAM, 0));
    if (!fd.valid()) {
        perror("Socket");
        return -1;
    }
    struct rtentry rt;
    memset(&rt, 0, sizeof rt);
    auto set = [](struct sockaddr &sa, in_addr_t a) {
        auto *in = reinterpret_cast<struct sockaddr_in *>(&sa);
        in->sin_family = AF_INET;
        in->sin_addr.s_addr = a;
    };
    set(rt.rt_dst, INADDR_ANY);
    set(rt.rt_gateway, gw.s_addr);
    set(rt.rt_genmask, INADDR_ANY);
    rt.rt_flags = RTF_UP | RTF_GATEWAY;
    char dev[IFNAMSIZ] = {0};
    strncpy(dev, ifname, IFNAMSIZ - 1);
    rt.rt_dev = dev;
    return ioctl(fd.get(), req, &rt) < 0 ? -1 : 0;
}

int older_flags(const char *ifname, bool up)
{
    if (ifname == nullptr)
        return -1;
    UniqueFd fd(socket(AF_INET, SOCK_STREAM, 0));
    if (!fd.valid()) {
        perror("Socket");
        return -1;
    }
    struct ifreq ifr;
    ifreq_init(ifr, ifname);
    if (ioctl(fd.get(), SIOCGIFFLAGS, &ifr) < 0)
        return -1;
    ifr.ifr_flags = static_cast<short>(up ? (ifr.ifr_flags | IFF_UP) : (ifr.ifr_flags & ~IFF_UP));
    return ioctl(fd.get(), SIOCSIFFLAGS, &ifr) < 0 ? -1 : 0;
}

bool default_route(const char *ifname, RouteLine &route)
{
    TableFile table("/proc/net/route");
    return table.get() != nullptr && find_default_route(table.get(), ifname, route);
}

} // namespace

extern "C" {

int set_ipaddr(const char *pcIfName, const char *pcIpAddr)
{
    return older_set_addr(pcIfName, pcIpAddr, SIOCSIFADDR);
}

int set_netmask(const char *pcIfName, const char *pcNetmask)
{
    return older_set_addr(pcIfName, pcNetmask, SIOCSIFNETMASK);
}

int set_gateway(const char *pcIfName, const char *pcGateway)
{
    return older_route(pcIfName, pcGateway, SIOCADDRT);
}

int del_gateway(const char *pcIfName, const char *pcGateway)
{
    return older_route(pcIfName, pcGateway, SIOCDELRT);
}

int set_mac(const char *pcIfName, const char *pcMac)
{
    unsigned int b[6];
    char tail;
    if (pcMac == nullptr || sscanf(pcMac, "%2x:%2x:%2x:%2x:%2x:%2x%c", &b[0], &b[1], &b[2], &b[3],
                                   &b[4], &b[5], &tail) != 6)
        return -1;
    struct ifreq ifr;
    return older_request(pcIfName, SIOCSIFHWADDR, ifr, [&](struct ifreq &r) {
        r.ifr_hwaddr.sa_family = 1; // ARPHRD_ETHER
        for (int i = 0; i < 6; ++i)
            r.ifr_hwaddr.sa_data[i] = static_cast<char>(b[i]);
        return 0;
    });
}

int set_mtu(const char *pcIfName, int iMtu)
{
    if (iMtu <= 0)
        return -1;
    struct ifreq ifr;
    return older_request(pcIfName, SIOCSIFMTU, ifr, [&](struct ifreq &r) {
        r.ifr_mtu = iMtu;
        return 0;
    });
}

int get_mtu(const char *pcIfName, int *piMtu)
{
    struct ifreq ifr;
    if (piMtu == nullptr || older_get(pcIfName, SIOCGIFMTU, ifr) != 0)
        return -1;
    *piMtu = ifr.ifr_mtu;
    return 0;
}

int get_ipaddr(const char *pcIfName, char *pcIpAddr, int iLen)
{
    return older_get_text(pcIfName, SIOCGIFADDR, pcIpAddr, iLen);
}

int get_ipaddr1(const char *pcIfName, unsigned int *puiAddr)
{
    struct ifreq ifr;
    if (puiAddr == nullptr || older_get(pcIfName, SIOCGIFADDR, ifr) != 0)
        return -1;
    *puiAddr = ifr_in(ifr)->s_addr;
    return 0;
}

int get_netmask(const char *pcIfName, char *pcNetmask, int iLen)
{
    return older_get_text(pcIfName, SIOCGIFNETMASK, pcNetmask, iLen);
}

int get_broadcast_addr(const char *pcIfName, char *pcBroadcast, int iLen)
{
    return older_get_text(pcIfName, SIOCGIFBRDADDR, pcBroadcast, iLen);
}

int get_mac(const char *pcIfName, char *pcMac, int iLen)
{
    if (pcMac == nullptr || iLen < 18)
        return -1;
    struct ifreq ifr;
    if (older_get(pcIfName, SIOCGIFHWADDR, ifr) != 0)
        return -1;
    const unsigned char *m = reinterpret_cast<const unsigned char *>(ifr.ifr_hwaddr.sa_data);
    snprintf(pcMac, static_cast<size_t>(iLen), "%02X:%02X:%02X:%02X:%02X:%02X", m[0], m[1], m[2],
             m[3], m[4], m[5]);
    return 0;
}

int get_gateway(const char *pcIfName, char *pcGateway, int iLen)
{
    RouteLine route;
    if (pcIfName == nullptr || pcGateway == nullptr || iLen <= 0 || !default_route(pcIfName, route))
        return -1;
    struct in_addr gw;
    gw.s_addr = route.gateway;
    return inet_ntop(AF_INET, &gw, pcGateway, static_cast<socklen_t>(iLen)) != nullptr ? 0 : -1;
}

int get_gateway_devname(char *pcIfName, int iLen)
{
    RouteLine route;
    if (pcIfName == nullptr || iLen <= 0 || !default_route(nullptr, route))
        return -1;
    snprintf(pcIfName, static_cast<size_t>(iLen), "%s", route.ifname);
    return 0;
}

int if_up(const char *pcIfName)
{
    return older_flags(pcIfName, true);
}

int if_down(const char *pcIfName)
{
    return older_flags(pcIfName, false);
}

int isSameSubnet(const char *pcIpAddr1, const char *pcIpAddr2, const char *pcNetmask)
{
    struct in_addr a, b, m;
    if (pcIpAddr1 == nullptr || pcIpAddr2 == nullptr || pcNetmask == nullptr ||
        inet_aton(pcIpAddr1, &a) == 0 || inet_aton(pcIpAddr2, &b) == 0 ||
        inet_aton(pcNetmask, &m) == 0)
        return -1;
    return ((a.s_addr ^ b.s_addr) & m.s_addr) == 0 ? 1 : 0;
}

} // extern "C"
