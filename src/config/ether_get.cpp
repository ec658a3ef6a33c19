// Reading one interface's record: stored options, and in the automatic modes the live
// state of the interface instead.
#include <stdio.h>
#include <string.h>

#include "config/ether.h"
#include "config/uci_access.h"
#include "libnetwork.h"
#include "base/log.h"

using namespace netlib;

namespace
{

constexpr int kIpv4Dhcp = 1;
constexpr int kIpv6Manual = 1;
constexpr int kIpv6Dhcpv6 = 0;
constexpr int kIpv6RouterAdvert = 2;
constexpr int kDefaultMtu = 1500;
constexpr unsigned int kIp6BufLen = 64;

// DHCP: what the interface holds now. Failures are logged and leave the field as it was.
void read_live_ipv4(CallSite site, const char *ifname, NetEtherCfg &cfg)
{
    if (NET_GetIpv4Addr(ifname, cfg.szIpv4Addr, sizeof cfg.szIpv4Addr) != 0)
        NET_LOG_AT(site, NET_LVL_ERR, "NET_GetIpv4Addr() fail: %s.\n", ifname);
    if (NET_GetIpv4Mask(ifname, cfg.szIpv4Mask, sizeof cfg.szIpv4Mask) != 0)
        NET_LOG_AT(site, NET_LVL_ERR, "NET_GetIpv4Mask() fail: %s.\n", ifname);
    if (NET_GetIpv4Gateway(ifname, cfg.szIpv4Gateway, sizeof cfg.szIpv4Gateway) != 0)
        NET_LOG_AT(site, NET_LVL_ERR, "NET_GetIpv4Gateway() fail: %s.\n", ifname);
}

void read_ipv4(CallSite site, const char *ifname, struct uci_section *sec, NetEtherCfg &cfg)
{
    if (cfg.iIpv4Mode == kIpv4Dhcp) {
        read_live_ipv4(site, ifname, cfg);
        return;
    }
    NET_GetOption(sec, "ipaddr", cfg.szIpv4Addr, sizeof cfg.szIpv4Addr);
    NET_GetOption(sec, "netmask", cfg.szIpv4Mask, sizeof cfg.szIpv4Mask);
    NET_GetOption(sec, "gateway", cfg.szIpv4Gateway, sizeof cfg.szIpv4Gateway);
}

// Manual: "address/prefix"; without a "/" the prefix length stays as it was.
void read_stored_ipv6(struct uci_section *sec, NetEtherCfg &cfg)
{
    char text[kIp6BufLen] = {0};
    if (NET_GetOption(sec, "ip6addr", text, sizeof text) == 0) {
        sscanf(text, "%45[^/]", cfg.szIpv6Addr);
        sscanf(text, "%*[^/]/%d", &cfg.iIpv6PrefixLen);
    }
    NET_GetOption(sec, "ip6gw", cfg.szIpv6Gateway, sizeof cfg.szIpv6Gateway);
}

// Automatic: the first live address, link-local left out, that was (mode 2) or was not
// (mode 0) formed from a router advertisement; then the live gateway.
int read_live_ipv6(CallSite site, const char *ifname, NetEtherCfg &cfg)
{
    NetIpv6AddrList list;
    memset(&list, 0, sizeof list);
    if (NET_GetIpv6AddrList(ifname, &list) != 0) {
        NET_LOG_AT(site, NET_LVL_ERR, "NET_GetIpv6AddrList() fail.\n");
        return -1;
    }
    bool wantAdvertised = cfg.iIpv6Mode == kIpv6RouterAdvert;
    bool wantOther = cfg.iIpv6Mode == kIpv6Dhcpv6;
    for (int i = 0; (wantAdvertised || wantOther) && i < list.iNum && i < 32; ++i) {
        const NetIpv6AddrEntry &e = list.astAddr[i];
        if (strncmp(e.szAddr, "fe80", 4) == 0)
            continue;
        bool advertised = NET_IsIpv6RouteAdviseAddr(ifname, e.szAddr) == 1;
        if (advertised != wantAdvertised)
            continue;
        strncpy(cfg.szIpv6Addr, e.szAddr, sizeof cfg.szIpv6Addr - 1);
        cfg.iIpv6PrefixLen = e.iPrefixLen;
        break;
    }
    NET_GetIpv6Gateway(ifname, cfg.szIpv6Gateway, sizeof cfg.szIpv6Gateway);
    return 0;
}

struct DnsPair {
    char *first;
    char *second;
    size_t len;
    bool seenFirst;
};

// The first value is server 1; every later one overwrites server 2, so the last one wins.
void take_dns(const char *value, void *ctx)
{
    DnsPair &pair = *static_cast<DnsPair *>(ctx);
    strncpy(pair.seenFirst ? pair.second : pair.first, value, pair.len);
    pair.seenFirst = true;
}

void read_dns(const char *ifname, struct uci_section *sec, NetEtherCfg &cfg)
{
    const size_t len = sizeof cfg.szDns1 - 1;
    if (cfg.iIpv4Mode == kIpv4Dhcp) {
        NET_GetDnsServer(ifname, cfg.szDns1, len, cfg.szDns2, len);
        return;
    }
    DnsPair pair{cfg.szDns1, cfg.szDns2, len, false};
    for_each_list_value(sec, "dns", take_dns, &pair);
}

} // namespace

extern "C" {

int NET_GetEtherCfg(const char *pcIfName, NetEtherCfg *pstEtherCfg)
{
    NET_CHECK_ARGS(-1, "pcIfName: %p, pstEtherCfg: %p.\n", pcIfName, pstEtherCfg);
    NetEtherCfg &cfg = *pstEtherCfg;
    UciPackage pkg;
    struct uci_section *sec = open_section(NET_HERE, pkg, NET_GetUciNameByIfName(pcIfName));
    if (sec == nullptr)
        return -1;
    read_int(sec, "cardtype", &cfg.iCardType);
    read_int(sec, "ipv4dhcp", &cfg.iIpv4Mode);
    read_int(sec, "ipv6dhcp", &cfg.iIpv6Mode);
    read_ipv4(NET_HERE, pcIfName, sec, cfg);
    if (cfg.iIpv6Mode == kIpv6Manual) {
        read_stored_ipv6(sec, cfg);
    } else if (read_live_ipv6(NET_HERE, pcIfName, cfg) != 0) {
        // The package stays open on this exit: callers see one descriptor more per failed read.
        pkg.release();
        return -1;
    }
    cfg.iMtu = kDefaultMtu;
    read_int(sec, "mtu", &cfg.iMtu);
    read_dns(pcIfName, sec, cfg);
    strncpy(cfg.szIfName, pcIfName, sizeof cfg.szIfName - 1);
    pkg.reset();
    return 0;
}

} // extern "C"
