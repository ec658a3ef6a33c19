// IPv6 prefix checks: against the other interface's live prefixes, against the interface's
// own, and the EUI-64 test of an autoconfigured address.
#include <string.h>

#include "device/subnet.h"
#include "libnetwork.h"
#include "base/log.h"
#include "base/ports.h"

using namespace netlib;

namespace
{

// Kernel entries carry 0 to 128; bound anything else to the 16 bytes there are.
int clamp_bytes(int bytes)
{
    return bytes < 0 ? 0 : (bytes > 16 ? 16 : bytes);
}

bool any_nonzero(const unsigned char *a, int from, int to)
{
    for (int i = clamp_bytes(from); i < clamp_bytes(to); ++i)
        if (a[i] != 0)
            return true;
    return false;
}

unsigned int top_bits_at(const unsigned char *a, int index, int bits)
{
    return index >= 0 && index < 16 ? top_bits(a[index], bits) : 0;
}

// Whether the new address (whole bytes N, bits n) stands apart from one entry (E, e). Beyond
// the shorter prefix only zero bytes are looked for, not compared, so callers see more
// addresses accepted than a full comparison would.
bool differs_from_entry(const unsigned char *mine, PrefixSplit n, const unsigned char *entry,
                        PrefixSplit e)
{
    if (e.bytes < n.bytes) {
        if (memcmp(mine, entry, clamp_bytes(e.bytes)) != 0)
            return true;
        if (any_nonzero(mine, e.bytes, n.bytes))
            return true;
        return top_bits_at(mine, n.bytes, n.bits) != 0;
    }
    if (memcmp(mine, entry, clamp_bytes(n.bytes)) != 0)
        return true;
    if (any_nonzero(entry, n.bytes, e.bytes))
        return true;
    return top_bits_at(entry, e.bytes, e.bits) != 0;
}

// Converts one list entry's text; a failure is logged with its index.
bool entry_addr(CallSite site, const NetIpv6AddrList &list, int index, struct in6_addr &out)
{
    if (INET_Ipv6StrToNum(list.astAddr[index].szAddr, &out) == 0)
        return true;
    NET_LOGT_AT(site, NET_LVL_ERR, PL_CONVERT_IPV6_ADDR_ERROR_PRINT,
                "index:%d stIpv6AddrList ipv6Addr:%s.\n", index, list.astAddr[index].szAddr);
    return false;
}

} // namespace

int net_IsIpv6SameSubnet(struct in6_addr stAddr1, struct in6_addr stAddr2, int iPrefix)
{
    PrefixSplit s = split_prefix(iPrefix);
    if (prefix_too_long(s)) {
        NET_LOGT(NET_LVL_ERR, PL_PARAM_ERROR_PRINT, "iPrefix:%d. \n", iPrefix);
        return 0;
    }
    const unsigned char *a = stAddr1.s6_addr;
    const unsigned char *b = stAddr2.s6_addr;
    if (memcmp(a, b, s.bytes) != 0)
        return 0;
    return top_bits(a[s.bytes], s.bits) == top_bits(b[s.bytes], s.bits) ? 1 : 0;
}

extern "C" {

int NET_IsIpv6SubnetValid(const char *pcIfName, const char *pcIpv6Addr, int iPrefix)
{
    if (pcIfName == nullptr || pcIpv6Addr == nullptr) {
        // "Ipv4" in the text is what log readers match on.
        NET_LOGT(NET_LVL_ERR, PL_PARAM_ERROR_PRINT, "pcIfName:%p, pcIpv4Addr:%p\n",
                 (const void *)pcIfName, (const void *)pcIpv6Addr);
        return 0;
    }
    PrefixSplit mine = split_prefix(iPrefix);
    // 128 is refused on purpose.
    if (prefix_too_long(mine)) {
        NET_LOGT(NET_LVL_ERR, PL_PARAM_ERROR_PRINT, "iPrefix:%d. \n", iPrefix);
        return 0;
    }
    if (CAP_IsDoubleIntfSupport() != 1)
        return 1;
    // No other interface: the list request below fails on the null name.
    const char *other = netlib::other_interface(pcIfName);
    struct in6_addr addr;
    if (INET_Ipv6StrToNum(pcIpv6Addr, &addr) != 0) {
        NET_LOGT(NET_LVL_ERR, PL_CONVERT_IPV6_ADDR_ERROR_PRINT, "pcIpv6Addr:%s.\n", pcIpv6Addr);
        return 0;
    }
    NetIpv6AddrList list;
    memset(&list, 0, sizeof list);
    if (NET_GetIpv6AddrList(other, &list) != 0)
        return 0;
    if (list.iNum == 0)
        return 1;
    // Valid as soon as it stands apart from any one entry that converts.
    for (int i = 0; i < list.iNum && i < 32; ++i) {
        struct in6_addr entry;
        if (!entry_addr(NET_HERE, list, i, entry))
            continue;
        if (differs_from_entry(addr.s6_addr, mine, entry.s6_addr,
                               split_prefix(list.astAddr[i].iPrefixLen)))
            return 1;
    }
    return 0;
}

int NET_IsIpv6SameSubnet(const char *pcIfName, const char *pcIpv6Addr)
{
    NET_CHECK_ARGS(0, "pcIfName:%p, pcIpv6Addr:%p. \n", pcIfName, pcIpv6Addr);
    struct in6_addr addr;
    if (INET_Ipv6StrToNum(pcIpv6Addr, &addr) != 0) {
        NET_LOGT(NET_LVL_ERR, PL_CONVERT_IPV6_ADDR_ERROR_PRINT, "pcIpv6Addr:%s.\n", pcIpv6Addr);
        return 0;
    }
    NetIpv6AddrList list;
    memset(&list, 0, sizeof list);
    if (NET_GetIpv6AddrList(pcIfName, &list) != 0)
        return 0;
    for (int i = 0; i < list.iNum && i < 32; ++i) {
        struct in6_addr entry;
        if (!entry_addr(NET_HERE, list, i, entry))
            continue;
        if (net_IsIpv6SameSubnet(addr, entry, list.astAddr[i].iPrefixLen) == 1)
            return 1;
    }
    return 0;
}

} // extern "C"
