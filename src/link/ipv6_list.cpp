// The IPv6 addresses of an interface and the prefix lengths the route table gives them.
#include <net/if.h>
#include <stdio.h>
#include <string.h>

#include "link/proc_tables.h"
#include "libnetwork.h"
#include "base/log.h"

using namespace netlib;

namespace
{

int route_prefix(void *ctx, const char *pcHexAddr, int *piPrefix)
{
    return NET_GetIpv6Prefix(static_cast<const char *>(ctx), pcHexAddr, piPrefix);
}

} // namespace

extern "C" {

int NET_GetIpv6AddrList(const char *pcIfName, NetIpv6AddrList *pstIpv6AddrList)
{
    NET_CHECK_ARGS(-1, "pcIfName: %p, pstIpv6AddrList: %p. \n", pcIfName, pstIpv6AddrList);
    memset(pstIpv6AddrList, 0, sizeof *pstIpv6AddrList);
    unsigned int index = if_nametoindex(pcIfName);
    if (index == 0) {
        NET_LOG(NET_LVL_ERR, "can not find index. \n");
        return -1;
    }
    TableFile fp(kIfInet6Path);
    if (fp.get() == nullptr) {
        NET_LOG(NET_LVL_ERR, "can not find file. \n");
        return -1;
    }
    read_ipv6_list(fp.get(), index, *pstIpv6AddrList, route_prefix, const_cast<char *>(pcIfName));
    return 0;
}

int NET_GetIpv6Prefix(const char *pcIfName, const char *pcIpv6Addr, int *piPrefix)
{
    NET_CHECK_ARGS(-1, "pcIfName: %p, pcIpv6Addr: %p, piPrefix :%p. \n", pcIfName, pcIpv6Addr,
                   piPrefix);
    TableFile fp(kIpv6RoutePath);
    if (fp.get() == nullptr) {
        NET_LOG(NET_LVL_ERR, "can not find file. \n");
        return -1;
    }
    // Found or not, the answer is 0: the prefix is written only when a route covers it.
    read_ipv6_prefix(fp.get(), pcIfName, pcIpv6Addr, piPrefix);
    return 0;
}

int get_ipv6addr_num(const char *pcIfName, unsigned char *pucAddr1, int *piPrefix1,
                     unsigned char *pucAddr2, int *piPrefix2)
{
    if (pcIfName == nullptr || pucAddr1 == nullptr || piPrefix1 == nullptr || pucAddr2 == nullptr ||
        piPrefix2 == nullptr)
        return -1;
    unsigned int index = if_nametoindex(pcIfName);
    if (index == 0)
        return -1;
    TableFile fp(kIfInet6Path);
    if (fp.get() == nullptr)
        return -1;
    return read_ipv6_first_two(fp.get(), index, pucAddr1, piPrefix1, pucAddr2, piPrefix2) > 0 ? 0
                                                                                              : -1;
}

int get_route_ipv6_addrlist(const char *pcIfName, NetIpv6AddrInfoList *pstList)
{
    if (pcIfName == nullptr || pstList == nullptr)
        return -1;
    NetIpv6AddrInfoList all;
    memset(&all, 0, sizeof all);
    memset(pstList, 0, sizeof *pstList);
    if (get_all_ipv6addr(pcIfName, &all) <= 0)
        return 0;
    // Flags 0: neither permanent nor tentative, i.e. learned from a router advertisement.
    int kept = 0;
    for (int i = 0; i < all.iNum; ++i)
        if (all.astAddr[i].iFlags == 0)
            pstList->astAddr[kept++] = all.astAddr[i];
    pstList->iNum = kept;
    return kept;
}

} // extern "C"
