// The kernel's interface list, one element per interface, loopback left out.
#include <arpa/inet.h>
#include <ifaddrs.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <string.h>

#include "libnetwork.h"
#include "net_log.h"

namespace
{

// The element already holding this name among the first count, or a new one.
NetIfInfo *element_for(NetIfInfo *array, unsigned int &count, const char *name)
{
    for (unsigned int i = 0; i < count; ++i) {
        if (strcmp(array[i].szIfName, name) == 0)
            return &array[i];
    }
    NetIfInfo *e = &array[count++];
    strncpy(e->szIfName, name, sizeof e->szIfName - 1);
    return e;
}

void put_ipv4(const struct sockaddr *sa, char *out, socklen_t len)
{
    if (sa != nullptr)
        inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in *>(sa)->sin_addr, out, len);
}

void put_ipv6(const struct sockaddr *sa, char *out, socklen_t len)
{
    if (sa != nullptr)
        inet_ntop(AF_INET6, &reinterpret_cast<const sockaddr_in6 *>(sa)->sin6_addr, out, len);
}

// Later entries of one family overwrite earlier ones: the last address listed wins.
void fill(NetIfInfo *e, const struct ifaddrs *ifa)
{
    switch (ifa->ifa_addr->sa_family) {
    case AF_INET:
        put_ipv4(ifa->ifa_addr, e->szIpv4Addr, sizeof e->szIpv4Addr);
        put_ipv4(ifa->ifa_netmask, e->szIpv4Mask, sizeof e->szIpv4Mask);
        put_ipv4(ifa->ifa_broadaddr, e->szIpv4Broadcast, sizeof e->szIpv4Broadcast);
        break;
    case AF_INET6:
        put_ipv6(ifa->ifa_addr, e->szIpv6Addr, sizeof e->szIpv6Addr);
        put_ipv6(ifa->ifa_netmask, e->szIpv6Mask, sizeof e->szIpv6Mask);
        break;
    case AF_PACKET:
        memcpy(e->aucMac, reinterpret_cast<const sockaddr_ll *>(ifa->ifa_addr)->sll_addr,
               sizeof e->aucMac);
        break;
    }
}

bool listed(const struct ifaddrs *ifa)
{
    if (ifa->ifa_addr == nullptr || (ifa->ifa_flags & IFF_LOOPBACK) != 0)
        return false;
    int family = ifa->ifa_addr->sa_family;
    return family == AF_INET || family == AF_INET6 || family == AF_PACKET;
}

} // namespace

extern "C" int NET_GetInterfaces(NetIfInfo *pstNetIfArray, unsigned int uiNum)
{
    if (pstNetIfArray == nullptr) {
        NET_LOGT(NET_LVL_ERR, PL_PARAM_ERROR_PRINT, "pstNetIfArray: %p. \n", (void *)pstNetIfArray);
        return 0;
    }
    struct ifaddrs *list = nullptr;
    if (getifaddrs(&list) == -1) {
        NET_LOG(NET_LVL_ERR, "get net interface failed!");
        return 0;
    }
    memset(pstNetIfArray, 0, sizeof(NetIfInfo) * uiNum);
    unsigned int count = 0;
    // The bound is tested before each entry: once the last element is taken the walk ends,
    // even if more addresses of that same interface follow.
    for (const struct ifaddrs *ifa = list; ifa != nullptr && count != uiNum; ifa = ifa->ifa_next) {
        if (listed(ifa))
            fill(element_for(pstNetIfArray, count, ifa->ifa_name), ifa);
    }
    freeifaddrs(list);
    return static_cast<int>(count);
}
