// The interface settings of the old layout: addresses in section "lan" of "network", modes,
// card type, MTU, IPv6 gateway and DNS servers in section "tcpip" of the package "tcpip".
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "config/ether.h"
#include "libnetwork.h"
#include "migrate/old.h"
#include "base/log.h"

using namespace netlib;

namespace
{

constexpr int kDefaultMtu = 1500;
constexpr unsigned int kIp6BufLen = 64;
constexpr int kIpv6Manual = 1;
constexpr int kIpv6Dhcpv6 = 0;

// "true" is the address set by hand, "false" DHCPv6; a mode the old firmware had no word for
// (router advertisement) is kept as its number so that it survives a round trip.
void read_ipv6_mode(struct uci_section *sec, int32_t *mode)
{
    char buf[kNumBufLen] = {0};
    if (NET_GetOption(sec, "ipv6mode", buf, sizeof buf) != 0)
        return;
    if (strcmp(buf, "true") == 0) {
        *mode = kIpv6Manual;
    } else if (strcmp(buf, "false") == 0) {
        *mode = kIpv6Dhcpv6;
    } else {
        char *end = nullptr;
        long value = strtol(buf, &end, 10);
        if (end != buf && *end == '\0')
            *mode = static_cast<int32_t>(value);
    }
}

int write_ipv6_mode(struct uci_section *sec, int32_t mode)
{
    if (mode == kIpv6Manual || mode == kIpv6Dhcpv6)
        return write_bool(sec, "ipv6mode", mode == kIpv6Manual);
    return write_int(sec, "ipv6mode", mode);
}

struct DnsPair {
    NetEtherCfg *cfg;
    bool seenFirst;
};

// As the interface record reads its list: the first server, then the last of the others.
void take_dns(const char *value, void *ctx)
{
    DnsPair &pair = *static_cast<DnsPair *>(ctx);
    char *field = pair.seenFirst ? pair.cfg->szDns2 : pair.cfg->szDns1;
    strncpy(field, value, sizeof pair.cfg->szDns1 - 1);
    pair.seenFirst = true;
}

void read_lan(struct uci_section *sec, NetEtherCfg &cfg)
{
    NET_GetOption(sec, "ipaddr", cfg.szIpv4Addr, sizeof cfg.szIpv4Addr);
    NET_GetOption(sec, "netmask", cfg.szIpv4Mask, sizeof cfg.szIpv4Mask);
    NET_GetOption(sec, "gateway", cfg.szIpv4Gateway, sizeof cfg.szIpv4Gateway);
    char text[kIp6BufLen] = {0};
    if (NET_GetOption(sec, "ip6addr", text, sizeof text) == 0) {
        sscanf(text, "%45[^/]", cfg.szIpv6Addr);
        sscanf(text, "%*[^/]/%d", &cfg.iIpv6PrefixLen);
    }
    NET_GetOption(sec, "ip6gw", cfg.szIpv6Gateway, sizeof cfg.szIpv6Gateway);
}

int write_tcpip(struct uci_section *sec, const NetEtherCfg &cfg)
{
    if (write_bool(sec, "ipv4dhcpmode", cfg.iIpv4Mode == 1) != 0 ||
        write_ipv6_mode(sec, cfg.iIpv6Mode) != 0 ||
        write_text(sec, "ipv6gateway", cfg.szIpv6Gateway, sizeof cfg.szIpv6Gateway) != 0 ||
        write_int(sec, "cardtype", cfg.iCardType) != 0 || write_int(sec, "mtu", cfg.iMtu) != 0)
        return -1;
    return 0;
}

// Both servers, master first, replacing what the list held; empty ones too, so that the
// second never moves up to the first place.
int write_dns(CallSite site, struct uci_section *sec, const NetEtherCfg &cfg)
{
    NET_DelOption(sec, "dns");
    if (NET_SetUciList(sec, "dns", field_text(cfg.szDns1, sizeof cfg.szDns1).text) != 0) {
        NET_LOG_AT(site, NET_LVL_ERR, "NET_SetUciList szMasterDnsSrv fail.\n");
        return -1;
    }
    if (NET_SetUciList(sec, "dns", field_text(cfg.szDns2, sizeof cfg.szDns2).text) != 0) {
        NET_LOG_AT(site, NET_LVL_ERR, "NET_SetUciList szSlaveDnsSrv fail.\n");
        return -1;
    }
    return 0;
}

} // namespace

extern "C" {

int NET_GetOldEthCfg(NetEtherCfg *pstEtherCfg)
{
    NET_CHECK_ARGS(-1, "pstEtherCfg: %p.\n", pstEtherCfg);
    {
        UciPackage pkg;
        struct uci_section *sec = open_section(NET_HERE, pkg, "lan");
        if (sec == nullptr)
            return -1;
        read_lan(sec, *pstEtherCfg);
    }
    if (NET_GetOldTcpipCfg(pstEtherCfg) != 0) {
        NET_LOG(NET_LVL_ERR, "NET_GetOldTcpipCfg fail.\n");
        return -1;
    }
    return 0;
}

int NET_GetOldTcpipCfg(NetEtherCfg *pstEtherCfg)
{
    NET_CHECK_ARGS(-1, "pstEtherCfg: %p.\n", pstEtherCfg);
    UciPackage pkg;
    struct uci_section *sec = open_old_section(NET_HERE, pkg, kOldTcpipPkg, "tcpip");
    if (sec == nullptr)
        return -1;
    NetEtherCfg &cfg = *pstEtherCfg;
    read_ipv6_mode(sec, &cfg.iIpv6Mode);
    read_bool(sec, "ipv4dhcpmode", &cfg.iIpv4Mode);
    read_int(sec, "cardtype", &cfg.iCardType);
    // As in the interface record: no stored MTU is the default one.
    cfg.iMtu = kDefaultMtu;
    read_int(sec, "mtu", &cfg.iMtu);
    DnsPair pair{&cfg, false};
    for_each_list_value(sec, "dns", take_dns, &pair);
    return 0;
}

int NET_SetOldTcpipCfg(const NetEtherCfg *pstEtherCfg)
{
    NET_CHECK_ARGS(-1, "pstEtherCfg: %p.\n", pstEtherCfg);
    UciPackage pkg;
    struct uci_section *sec =
        open_old_section_for_write(NET_HERE, pkg, kOldTcpipPkg, "tcpip", "tcpip");
    if (sec == nullptr || write_tcpip(sec, *pstEtherCfg) != 0 ||
        write_dns(NET_HERE, sec, *pstEtherCfg) != 0)
        return -1;
    return commit_logged(NET_HERE, pkg);
}

} // extern "C"
