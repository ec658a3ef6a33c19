// The interface settings of the old layout: addresses in section "lan" of "network", modes,
// card type, MTU, IPv6 gateway and DNS servers in section "tcpip" of the package "tcpip".
#include <stdio.h>
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

// DHCP is "true"; every other IPv4 mode is written as "false".
constexpr Word kOldIpv4Modes[] = {{0, "false"}, {1, "true"}};
// "true" is the address set by hand, "false" DHCPv6; a mode the old firmware had no word for
// (router advertisement) is kept as its number so that it survives a round trip.
constexpr Word kOldIpv6Modes[] = {{1, "true"}, {0, "false"}};

// The IPv6 mode is read first but written second. The IPv6 gateway is written, never read:
// the reader takes it from "lan". As in the interface record, no stored MTU is the default.
constexpr Field kOldTcpipFields[] = {
    NET_FIELD_WORDS(NetEtherCfg, "ipv6mode", iIpv6Mode, FieldKind::WordOrInt, kRead, kOldIpv6Modes),
    NET_FIELD_WORDS(NetEtherCfg, "ipv4dhcpmode", iIpv4Mode, FieldKind::Word, kBoth, kOldIpv4Modes),
    NET_FIELD_WORDS(NetEtherCfg, "ipv6mode", iIpv6Mode, FieldKind::WordOrInt, kWrite,
                    kOldIpv6Modes),
    NET_FIELD(NetEtherCfg, "ipv6gateway", szIpv6Gateway, FieldKind::Text, kWrite),
    NET_FIELD(NetEtherCfg, "cardtype", iCardType, FieldKind::Int, kBoth),
    NET_FIELD_PRESET(NetEtherCfg, "mtu", iMtu, FieldKind::Int, kBoth, kDefaultMtu),
};
static_assert(fields_fit(kOldTcpipFields, sizeof(NetEtherCfg)), "old TCP/IP table");

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
    read_fields(sec, kOldTcpipFields, pstEtherCfg);
    DnsPair pair{pstEtherCfg, false};
    for_each_list_value(sec, "dns", take_dns, &pair);
    return 0;
}

int NET_SetOldTcpipCfg(const NetEtherCfg *pstEtherCfg)
{
    NET_CHECK_ARGS(-1, "pstEtherCfg: %p.\n", pstEtherCfg);
    UciPackage pkg;
    struct uci_section *sec =
        open_old_section_for_write(NET_HERE, pkg, kOldTcpipPkg, "tcpip", "tcpip");
    if (sec == nullptr || write_fields(sec, kOldTcpipFields, pstEtherCfg) != 0 ||
        write_dns(NET_HERE, sec, *pstEtherCfg) != 0)
        return -1;
    return commit_logged(NET_HERE, pkg);
}

} // extern "C"
