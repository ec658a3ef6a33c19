// Writing one interface's whole record into its section, after checking it against the other
// interface of a two-interface device.
#include <stdio.h>
#include <string.h>

#include "config/uci_access.h"
#include "base/ports.h"
#include "libnetwork.h"
#include "base/log.h"

using namespace netlib;

namespace
{

constexpr int kIpv4Dhcp = 1;
constexpr int kIpv4Static = 0;
constexpr int kIpv6Manual = 1;

// The refusals callers test for.
constexpr int kIpv4Exists = -20;
constexpr int kIpv6Exists = -21;
constexpr int kIpv4SameSubnet = -22;
constexpr int kIpv6SameSubnet = -23;

// The record's texts, terminated: a field that fills its array is taken whole and no byte
// past it is read.
struct EtherTexts {
    char addr[17];
    char mask[17];
    char gateway[17];
    char v6addr[47];
    char v6gateway[47];
    char dns1[17];
    char dns2[17];
};

template <size_t N, size_t M> void take(char (&dst)[N], const char (&src)[M])
{
    static_assert(N == M + 1, "one byte more than the field");
    memcpy(dst, src, strnlen(src, M));
}

EtherTexts texts_of(const NetEtherCfg &cfg)
{
    EtherTexts t;
    memset(&t, 0, sizeof t);
    take(t.addr, cfg.szIpv4Addr);
    take(t.mask, cfg.szIpv4Mask);
    take(t.gateway, cfg.szIpv4Gateway);
    take(t.v6addr, cfg.szIpv6Addr);
    take(t.v6gateway, cfg.szIpv6Gateway);
    take(t.dns1, cfg.szDns1);
    take(t.dns2, cfg.szDns2);
    return t;
}

// The refusals against the other interface's record; 0 when the record may be written.
int check_other_interface(CallSite site, const char *ifname, const NetEtherCfg &cfg,
                          const EtherTexts &mine)
{
    if (CAP_IsDoubleIntfSupport() != 1)
        return 0;
    // A name that has no other interface reads a null name, which fails (and says so).
    const char *other = other_interface(ifname);
    NetEtherCfg theirs;
    memset(&theirs, 0, sizeof theirs);
    if (NET_GetEtherCfg(other, &theirs) != 0)
        return 0;
    EtherTexts old = texts_of(theirs);
    // The section name, not the interface name, on purpose: "eth0" asks as "lan".
    const char *secName = NET_GetUciNameByIfName(ifname);
    if (cfg.iIpv4Mode == kIpv4Static) {
        if (old.addr[0] != '\0' && strcmp(mine.addr, old.addr) == 0) {
            NET_LOG_AT(site, NET_LVL_ERR,
                       "Ipaddr config is exist, pcOtherIfName:%s, ipaddr:%s, oldipaddr:%s. \n",
                       other, mine.addr, old.addr);
            return kIpv4Exists;
        }
        if (NET_IsIpv4SubnetValid(secName, mine.addr, mine.mask) != 1) {
            NET_LOG_AT(
                site, NET_LVL_ERR,
                "Ipaddr is in the same subnet, pcOtherIfName:%s, ipaddr:%s, oldipaddr:%s. \n",
                other, mine.addr, old.addr);
            return kIpv4SameSubnet;
        }
    }
    if (cfg.iIpv6Mode == kIpv6Manual) {
        if (old.v6addr[0] != '\0' && strcmp(mine.v6addr, old.v6addr) == 0) {
            NET_LOG_AT(site, NET_LVL_ERR,
                       "Ipv6 addr config is exist, pcOtherIfName:%s, ipaddr:%s, oldipaddr:%s. \n",
                       other, mine.v6addr, old.v6addr);
            return kIpv6Exists;
        }
        if (NET_IsIpv6SubnetValid(secName, mine.v6addr, cfg.iIpv6PrefixLen) != 1) {
            NET_LOG_AT(
                site, NET_LVL_ERR,
                "Ipv6addr is in the same subnet, pcOtherIfName:%s, ipaddr:%s, oldipaddr:%s. \n",
                other, mine.v6addr, old.v6addr);
            return kIpv6SameSubnet;
        }
    }
    return 0;
}

bool set_all(struct uci_section *sec, const char *const (&pairs)[6])
{
    for (size_t i = 0; i < 6; i += 2)
        if (NET_SetOption(sec, pairs[i], pairs[i + 1]) != 0)
            return false;
    return true;
}

// The IPv4 half; an invalid static address skips its three options without failing.
bool write_ipv4(struct uci_section *sec, const NetEtherCfg &cfg, const EtherTexts &t)
{
    if (cfg.iIpv4Mode != kIpv4Static || INET_IsIpv4AddrValid(t.addr) != 1)
        return true;
    const char *const pairs[6] = {"ipaddr", t.addr, "netmask", t.mask, "gateway", t.gateway};
    return set_all(sec, pairs);
}

// The list is rewritten whole; both servers are appended even when empty.
bool write_dns(struct uci_section *sec, const EtherTexts &t)
{
    NET_DelOption(sec, "dns");
    return NET_SetUciList(sec, "dns", t.dns1) == 0 && NET_SetUciList(sec, "dns", t.dns2) == 0;
}

// The IPv6 half and "proto", which follows the IPv6 mode first.
bool write_ipv6_and_proto(struct uci_section *sec, const NetEtherCfg &cfg, const EtherTexts &t)
{
    if (cfg.iIpv6Mode != kIpv6Manual) {
        if (NET_SetOption(sec, "proto", "dhcpv6") != 0)
            return false;
        NET_DelOption(sec, "ip6addr");
        NET_DelOption(sec, "ip6gw");
        return true;
    }
    if (INET_IsIpv6AddrValid(t.v6addr) == 1) {
        char withPrefix[64] = {0};
        snprintf(withPrefix, sizeof withPrefix, "%s/%d", t.v6addr, cfg.iIpv6PrefixLen);
        if (NET_SetOption(sec, "ip6addr", withPrefix) != 0 ||
            NET_SetOption(sec, "ip6gw", t.v6gateway) != 0)
            return false;
    }
    return NET_SetOption(sec, "proto", cfg.iIpv4Mode == kIpv4Dhcp ? "dhcp" : "static") == 0;
}

// Every option in its order; false on the first failed write (already logged by the layer).
bool write_record(struct uci_section *sec, const NetEtherCfg &cfg, const EtherTexts &t)
{
    if (write_int(sec, "cardtype", cfg.iCardType) != 0 ||
        write_int(sec, "ipv4dhcp", cfg.iIpv4Mode) != 0 ||
        write_int(sec, "ipv6dhcp", cfg.iIpv6Mode) != 0 || !write_ipv4(sec, cfg, t) ||
        write_int(sec, "mtu", cfg.iMtu) != 0 || !write_dns(sec, t) ||
        !write_ipv6_and_proto(sec, cfg, t))
        return false;
    // DHCP leaves no static address and no stored servers behind.
    if (cfg.iIpv4Mode == kIpv4Dhcp) {
        NET_DelOption(sec, "ipaddr");
        NET_DelOption(sec, "netmask");
        NET_DelOption(sec, "gateway");
        NET_DelOption(sec, "dns");
    }
    return true;
}

} // namespace

extern "C" {

int NET_SetEtherCfg(const char *pcIfName, const NetEtherCfg *pstEtherCfg)
{
    if (pcIfName == nullptr || pstEtherCfg == nullptr) {
        NET_LOGT(NET_LVL_ERR, PL_PARAM_ERROR_PRINT, "pcIfName: %p.\n", (const void *)pcIfName);
        return -1;
    }
    EtherTexts texts = texts_of(*pstEtherCfg);
    // Refusals come before the package is opened, so they change nothing.
    int refusal = check_other_interface(NET_HERE, pcIfName, *pstEtherCfg, texts);
    if (refusal != 0)
        return refusal;
    UciPackage pkg;
    struct uci_section *sec = open_section(NET_HERE, pkg, NET_GetUciNameByIfName(pcIfName));
    if (sec == nullptr)
        return -1;
    if (!write_record(sec, *pstEtherCfg, texts))
        return -1;
    return commit_logged(NET_HERE, pkg);
}

} // extern "C"
