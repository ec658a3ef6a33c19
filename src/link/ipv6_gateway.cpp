// The IPv6 default gateway of an interface, from the kernel's route table.
#include <arpa/inet.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>

#include "link/proc_tables.h"
#include "libnetwork.h"
#include "base/log.h"

using namespace netlib;

extern "C" {

int NET_GetIpv6Gateway(const char *pcIfName, char *pstIpv6Gateway, unsigned int uiLen)
{
    NET_CHECK_ARGS(-1, "pcIfName: %p, pstIpv6Gateway: %p. \n", pcIfName, pstIpv6Gateway);
    TableFile fp(kIpv6RoutePath);
    if (fp.get() == nullptr) {
        NET_LOG(NET_LVL_ERR, "cannot open %s\n", kIpv6RoutePath);
        return -1;
    }
    // Unlike the IPv4 reader, no default route is a failure; a link-local next hop is fine.
    unsigned char hop[16];
    if (read_ipv6_default_nexthop(fp.get(), pcIfName, NextHop::Any, hop) != 0)
        return -1;
    return inet_ntop(AF_INET6, hop, pstIpv6Gateway, uiLen) != nullptr ? 0 : -1;
}

int get_ipv6_gateway_num(const char *pcIfName, unsigned char *pucGateway)
{
    if (pcIfName == nullptr || pucGateway == nullptr)
        return -1;
    memset(pucGateway, 0, 16);
    TableFile fp(kIpv6RoutePath);
    if (fp.get() == nullptr) {
        // The older calls print instead of logging.
        printf("cannot open %s\n", kIpv6RoutePath);
        return -1;
    }
    return read_ipv6_default_nexthop(fp.get(), pcIfName, NextHop::NotLinkLocal, pucGateway);
}

} // extern "C"
