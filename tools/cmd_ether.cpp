// The stored settings of one interface: the whole record (NetEtherCfg), the single-option
// editors beside it, and the DHCP switches, which take effect at the next network restart.
#include <string.h>

#include <string>
#include <vector>

#include "args.h"
#include "cli.h"
#include "guard.h"
#include "json.h"
#include "libnetwork.h"
#include "package.h"

namespace
{

const char *v4_mode(int m)
{
    return m == 1 ? "dhcp" : m == 0 ? "static" : "other";
}
const char *v6_mode(int m)
{
    return m == 1 ? "static" : m == 0 ? "dhcpv6" : m == 2 ? "ra" : "other";
}

void print_record(const Ctx &c, const char *ifn, const NetEtherCfg &e)
{
    const char *sec = NET_GetUciNameByIfName(ifn);
    if (c.json) {
        Json()
            .begin_object()
            .str("interface", ifn)
            .str("section", sec)
            .num("card_type", e.iCardType)
            .num("ipv4_mode", e.iIpv4Mode)
            .num("mtu", e.iMtu)
            .str("ipv4_address", e.szIpv4Addr)
            .str("ipv4_netmask", e.szIpv4Mask)
            .str("ipv4_gateway", e.szIpv4Gateway)
            .num("ipv6_mode", e.iIpv6Mode)
            .str("ipv6_address", e.szIpv6Addr)
            .value("ipv6_prefix",
                   e.szIpv6Addr[0] ? Json().num(nullptr, e.iIpv6PrefixLen) : Json().null(nullptr))
            .str("ipv6_gateway", e.szIpv6Gateway)
            .str("dns1", e.szDns1)
            .str("dns2", e.szDns2)
            .end_object()
            .print();
        return;
    }
    printf("%s (section %s)\n", ifn, sec ? sec : "?");
    printf("  card type  %d\n", e.iCardType);
    printf("  ipv4       %s (%d) %s netmask %s gateway %s\n", v4_mode(e.iIpv4Mode), e.iIpv4Mode,
           or_dash(e.szIpv4Addr), or_dash(e.szIpv4Mask), or_dash(e.szIpv4Gateway));
    printf("  mtu        %d\n", e.iMtu);
    printf("  ipv6       %s (%d) %s/%d gateway %s\n", v6_mode(e.iIpv6Mode), e.iIpv6Mode,
           or_dash(e.szIpv6Addr), e.iIpv6PrefixLen, or_dash(e.szIpv6Gateway));
    printf("  dns        %s %s\n", or_dash(e.szDns1), or_dash(e.szDns2));
}

bool read_record(const Ctx &c, const char *ifn, NetEtherCfg *e)
{
    memset(e, 0, sizeof *e);
    if (NET_GetEtherCfg(ifn, e) == 0)
        return true;
    std::string why = guard::package_trouble("network");
    if (!why.empty())
        fail(c, "INTERFACE '%s': package network cannot be loaded: %s", ifn, why.c_str());
    else
        fail(c, "INTERFACE '%s' has no stored section %s in package network", ifn,
             NET_GetUciNameByIfName(ifn));
    return false;
}

int show(Ctx &c, Args &a)
{
    const char *ifn = a.need("INTERFACE");
    if (!a.end() || !guard::port(c, "INTERFACE", ifn))
        return kExitUsage;
    NetEtherCfg e;
    if (!read_record(c, ifn, &e))
        return kExitFail;
    print_record(c, ifn, e);
    return 0;
}

bool copy_text(const Ctx &c, const char *key, const char *value, char *field, size_t size)
{
    if (strlen(value) >= size) {
        bad_arg(c, key, value, "is too long");
        return false;
    }
    memset(field, 0, size);
    memcpy(field, value, strlen(value));
    return true;
}

bool mode_value(const Ctx &c, const char *key, const char *value, const char *const names[3],
                int32_t *out)
{
    for (int i = 0; i < 3; ++i)
        if (names[i] != nullptr && strcmp(value, names[i]) == 0) {
            *out = i;
            return true;
        }
    long n = 0;
    if (!parse_long(c, key, value, 0, names[2] != nullptr ? 2 : 1, &n))
        return false;
    *out = static_cast<int32_t>(n);
    return true;
}

bool empty_or(bool (*check)(const Ctx &, const char *, const char *), const Ctx &c, const char *key,
              const char *value)
{
    return value[0] == '\0' || check(c, key, value);
}

// Applies one KEY=VALUE to the record; false (reported) for an unknown key or a bad value.
bool apply_pair(const Ctx &c, const char *pair, NetEtherCfg *e)
{
    static const char *const kV4[3] = {"static", "dhcp", nullptr};
    static const char *const kV6[3] = {"dhcpv6", "static", "ra"};
    const char *eq = strchr(pair, '=');
    if (eq == nullptr) {
        bad_arg(c, "SETTING", pair, "is not KEY=VALUE");
        return false;
    }
    std::string key(pair, eq - pair);
    const char *v = eq + 1;
    const char *k = key.c_str();
    long n = 0;
    if (key == "cardtype") {
        if (!parse_long(c, k, v, -1000000, 1000000, &n))
            return false;
        e->iCardType = static_cast<int32_t>(n);
        return true;
    }
    if (key == "ipv4mode")
        return mode_value(c, k, v, kV4, &e->iIpv4Mode);
    if (key == "ipv6mode")
        return mode_value(c, k, v, kV6, &e->iIpv6Mode);
    if (key == "mtu") {
        if (!parse_long(c, k, v, 100, 1500, &n))
            return false;
        e->iMtu = static_cast<int32_t>(n);
        return true;
    }
    if (key == "prefix6") {
        if (!parse_long(c, k, v, 1, 128, &n))
            return false;
        e->iIpv6PrefixLen = static_cast<int32_t>(n);
        return true;
    }
    if (key == "addr")
        return empty_or(guard::address, c, k, v) && copy_text(c, k, v, e->szIpv4Addr, 16);
    if (key == "mask")
        return empty_or(guard::mask, c, k, v) && copy_text(c, k, v, e->szIpv4Mask, 16);
    if (key == "gateway")
        return empty_or(guard::address, c, k, v) && copy_text(c, k, v, e->szIpv4Gateway, 16);
    if (key == "dns1")
        return empty_or(check_ipv4, c, k, v) && copy_text(c, k, v, e->szDns1, 16);
    if (key == "dns2")
        return empty_or(check_ipv4, c, k, v) && copy_text(c, k, v, e->szDns2, 16);
    if (key == "addr6")
        return empty_or(check_ipv6, c, k, v) && copy_text(c, k, v, e->szIpv6Addr, 46);
    if (key == "gateway6")
        return empty_or(check_ipv6, c, k, v) && copy_text(c, k, v, e->szIpv6Gateway, 46);
    bad_arg(c, "KEY", k,
            "is not one of cardtype, ipv4mode, addr, mask, gateway, mtu, "
            "ipv6mode, addr6, prefix6, gateway6, dns1, dns2");
    return false;
}

// The stored options a KEY=VALUE of "ether set" may change.
void owned_options(const char *pair, std::vector<std::string> *keep)
{
    static const struct {
        const char *key;
        const char *options[6];
    } kOwned[] = {
        {"cardtype", {"cardtype"}},
        {"ipv4mode", {"ipv4dhcp", "proto", "ipaddr", "netmask", "gateway", "dns"}},
        {"ipv6mode", {"ipv6dhcp", "proto", "ip6addr", "ip6gw"}},
        {"addr", {"ipaddr"}},
        {"mask", {"netmask"}},
        {"gateway", {"gateway"}},
        {"mtu", {"mtu"}},
        {"addr6", {"ip6addr"}},
        {"prefix6", {"ip6addr"}},
        {"gateway6", {"ip6gw"}},
        {"dns1", {"dns"}},
        {"dns2", {"dns"}},
    };
    std::string key(pair, strcspn(pair, "="));
    for (const auto &o : kOwned)
        if (key == o.key)
            for (const char *opt : o.options)
                if (opt != nullptr)
                    keep->push_back(opt);
}

const char *refusal(int rc)
{
    switch (rc) {
    case -20:
        return "the other port holds this IPv4 address";
    case -21:
        return "the other port holds this IPv6 address";
    case -22:
        return "the IPv4 address lies in the other port's subnet";
    case -23:
        return "the IPv6 address lies in the other port's subnet";
    default:
        return nullptr;
    }
}

// Writes the record whole, then puts back every option of the section that `keep` does not
// name, so that only the fields given change. 0, the library's refusal, or -1 with *why.
int store_fields(const char *ifn, const NetEtherCfg &e, const std::vector<std::string> &keep,
                 std::string *why)
{
    const char *sec = NET_GetUciNameByIfName(ifn);
    std::vector<guard::OptionCopy> before = guard::section_options("network", sec);
    int rc = NET_SetEtherCfg(ifn, &e);
    if (rc != 0) {
        if (refusal(rc) == nullptr)
            *why = "the record could not be stored: " + guard::store_failure("network");
        return rc;
    }
    if (guard::restore_options("network", sec, before, keep, why))
        return 0;
    *why = "the record was stored, but the fields not given changed too: " + *why;
    return -1;
}

int set(Ctx &c, Args &a)
{
    const char *ifn = a.need("INTERFACE");
    std::vector<const char *> pairs;
    for (const char *p = a.take(); p != nullptr; p = a.take())
        pairs.push_back(p);
    if (!a.end() || !guard::port(c, "INTERFACE", ifn))
        return kExitUsage;
    if (pairs.empty()) {
        fprintf(stderr, "netlibctl %s: missing KEY=VALUE\n", c.cmd.c_str());
        return kExitUsage;
    }
    NetEtherCfg e;
    if (!read_record(c, ifn, &e))
        return kExitFail;
    std::vector<std::string> keep;
    for (const char *p : pairs) {
        if (!apply_pair(c, p, &e))
            return kExitUsage;
        owned_options(p, &keep);
    }
    if (e.szIpv4Addr[0] != '\0' && e.szIpv4Mask[0] != '\0' &&
        !guard::host(c, "addr", e.szIpv4Addr, e.szIpv4Mask))
        return kExitUsage;
    std::string why;
    int rc = store_fields(ifn, e, keep, &why);
    if (rc != 0)
        return refusal(rc) ? fail(c, "INTERFACE '%s' refused (%d): %s", ifn, rc, refusal(rc))
                           : fail(c, "INTERFACE '%s': %s", ifn, why.c_str());
    NetEtherCfg back;
    if (!read_record(c, ifn, &back))
        return kExitFail;
    print_record(c, ifn, back);
    return 0;
}

int stored(const Ctx &c, const char *ifn, const char *what, const char *value)
{
    if (c.json)
        Json()
            .begin_object()
            .str("interface", ifn)
            .str("setting", what)
            .str("value", value)
            .end_object()
            .print();
    else
        printf("%s: %s %s stored\n", ifn, what, value ? value : "removed");
    return 0;
}

int store_fail(const Ctx &c, const char *ifn, const char *what)
{
    std::string why = guard::store_failure("network");
    Package p("network");
    if (p.get() != nullptr && NET_GetSection(p.get(), NET_GetUciNameByIfName(ifn)) == nullptr)
        why = std::string("package network has no section ") + NET_GetUciNameByIfName(ifn);
    return fail(c, "INTERFACE '%s': %s could not be stored: %s", ifn, what, why.c_str());
}

int addr(Ctx &c, Args &a)
{
    const char *ifn = a.need("INTERFACE"), *ad = a.need("ADDRESS"), *mask = a.need("NETMASK");
    if (!a.end() || !guard::port(c, "INTERFACE", ifn) || !guard::address(c, "ADDRESS", ad) ||
        !guard::mask(c, "NETMASK", mask) || !guard::host(c, "ADDRESS", ad, mask))
        return kExitUsage;
    if (NET_SetIpv4AddrCfg(ifn, ad, mask) != 0)
        return store_fail(c, ifn, "the address");
    std::string v = std::string(ad) + "/" + mask;
    return stored(c, ifn, "address", v.c_str());
}

int addr6(Ctx &c, Args &a)
{
    const char *ifn = a.need("INTERFACE"), *ad = a.need("ADDRESS"), *text = a.need("PREFIX");
    long prefix = 0;
    if (!a.end() || !guard::port(c, "INTERFACE", ifn) || !check_ipv6(c, "ADDRESS", ad) ||
        !parse_long(c, "PREFIX", text, 1, 128, &prefix))
        return kExitUsage;
    if (NET_SetIpv6AddrCfg(ifn, ad, static_cast<int>(prefix)) != 0)
        return store_fail(c, ifn, "the IPv6 address");
    std::string v = std::string(ad) + "/" + text;
    return stored(c, ifn, "ipv6 address", v.c_str());
}

int mtu(Ctx &c, Args &a)
{
    const char *ifn = a.need("INTERFACE"), *text = a.need("MTU");
    long n = 0;
    if (!a.end() || !guard::port(c, "INTERFACE", ifn) || !parse_long(c, "MTU", text, 100, 1500, &n))
        return kExitUsage;
    if (NET_SetMtuCfg(ifn, static_cast<int>(n)) != 0)
        return store_fail(c, ifn, "the MTU");
    return stored(c, ifn, "mtu", text);
}

int gateway(Ctx &c, Args &a)
{
    const char *ifn = a.need("INTERFACE"), *gw = a.need("GATEWAY");
    if (!a.end() || !guard::port(c, "INTERFACE", ifn))
        return kExitUsage;
    if (strcmp(gw, "none") == 0) {
        if (NET_DelGatewayCfg(ifn) != 0)
            return fail(c, "INTERFACE '%s' has no stored gateway", ifn);
        return stored(c, ifn, "gateway", nullptr);
    }
    if (!guard::address(c, "GATEWAY", gw))
        return kExitUsage;
    if (NET_SetGatewayCfg(ifn, gw) != 0)
        return store_fail(c, ifn, "the gateway");
    return stored(c, ifn, "gateway", gw);
}

int dns_change(Ctx &c, Args &a, bool add)
{
    const char *ifn = a.need("INTERFACE"), *master = a.need("MASTER");
    const char *slave = a.take();
    if (!a.end() || !guard::port(c, "INTERFACE", ifn) || !check_ipv4(c, "MASTER", master) ||
        (slave != nullptr && !check_ipv4(c, "SLAVE", slave)))
        return kExitUsage;
    int rc = add ? NET_SetDnsCfg(ifn, master, slave) : NET_DelDnsCfg(ifn, master, slave);
    if (rc != 0 && (add || guard::pending("network")))
        return store_fail(c, ifn, "the servers");
    if (rc != 0)
        return fail(c, "MASTER '%s'%s%s is not in the stored dns list of %s", master,
                    slave ? " or SLAVE " : "", slave ? slave : "", ifn);
    std::string v = std::string(master) + (slave ? std::string(" ") + slave : "");
    if (c.json)
        Json()
            .begin_object()
            .str("interface", ifn)
            .str("setting", "dns")
            .str("value", v)
            .boolean("present", add)
            .end_object()
            .print();
    else
        printf("%s: dns %s %s\n", ifn, v.c_str(), add ? "appended" : "removed");
    return 0;
}

int dns_add(Ctx &c, Args &a)
{
    return dns_change(c, a, true);
}
int dns_del(Ctx &c, Args &a)
{
    return dns_change(c, a, false);
}

int route_change(Ctx &c, Args &a, bool add)
{
    const char *ifn = a.need("INTERFACE"), *dest = a.need("DESTINATION"), *mask = a.need("NETMASK");
    if (!a.end() || !guard::port(c, "INTERFACE", ifn) || !check_ipv4(c, "DESTINATION", dest) ||
        !check_mask(c, "NETMASK", mask))
        return kExitUsage;
    int rc = add ? NET_SetRouteCfg(ifn, dest, mask) : NET_DelRouteCfg(ifn, dest, mask);
    if (rc != 0 && (add || guard::pending("network")))
        return store_fail(c, ifn, "the route");
    if (rc != 0)
        return fail(c, "DESTINATION '%s' has no stored route on %s", dest, ifn);
    std::string v = std::string(dest) + "/" + mask;
    if (c.json)
        Json()
            .begin_object()
            .str("interface", ifn)
            .str("setting", "route")
            .str("value", v)
            .boolean("present", add)
            .end_object()
            .print();
    else
        printf("%s: route %s %s (stored only)\n", ifn, v.c_str(), add ? "stored" : "removed");
    return 0;
}

int route_add(Ctx &c, Args &a)
{
    return route_change(c, a, true);
}
int route_del(Ctx &c, Args &a)
{
    return route_change(c, a, false);
}

// "proto" is what the network script acts on; the two queries read the mode numbers.
std::string stored_proto(const char *ifn)
{
    Package p("network");
    if (p.get() == nullptr)
        return "";
    struct uci_section *s = NET_GetSection(p.get(), NET_GetUciNameByIfName(ifn));
    char proto[64] = {0};
    if (s == nullptr || NET_GetOption(s, "proto", proto, sizeof proto) != 0)
        return "";
    return proto;
}

// DHCP as the network script reads the stored mode (see "apply").
bool stored_dhcp(const char *ifn)
{
    std::string proto = stored_proto(ifn);
    return proto == "dhcp" || (proto != "static" && NET_IsDhcpMode(ifn) == 1);
}

int dhcp_show(Ctx &c, Args &a)
{
    const char *ifn = a.need("INTERFACE");
    if (!a.end() || !guard::port(c, "INTERFACE", ifn))
        return kExitUsage;
    bool v4 = NET_IsDhcpMode(ifn) == 1, v6 = NET_IsDhcpv6Mode(ifn) == 1;
    std::string proto = stored_proto(ifn);
    if (c.json)
        Json()
            .begin_object()
            .str("interface", ifn)
            .str("proto", proto.empty() ? nullptr : proto.c_str())
            .boolean("ipv4dhcp", v4)
            .boolean("ipv6dhcp", v6)
            .end_object()
            .print();
    else
        printf("%s: proto %s, ipv4dhcp %s, ipv6dhcp %s\n", ifn, or_dash(proto.c_str()),
               v4 ? "yes" : "no", v6 ? "yes" : "no");
    return 0;
}

int dhcp_switch(Ctx &c, Args &a, bool on)
{
    const char *ifn = a.need("INTERFACE");
    if (!a.end() || !guard::port(c, "INTERFACE", ifn))
        return kExitUsage;
    bool was = stored_dhcp(ifn);
    if ((on ? NET_EnableDhcp(ifn) : NET_DisableDhcp(ifn)) != 0)
        return store_fail(c, ifn, "the mode");
    // "proto" can say DHCP while the mode number says static (the switch then sees nothing
    // to do): the record, written with a static mode, sets both.
    NetEtherCfg e;
    if (!on && stored_dhcp(ifn) && read_record(c, ifn, &e)) {
        e.iIpv4Mode = 0;
        std::string why;
        int rc = store_fields(ifn, e, {"ipv4dhcp", "proto"}, &why);
        if (rc != 0)
            return fail(c, "INTERFACE '%s': DHCP stays on: %s", ifn,
                        refusal(rc) ? refusal(rc) : why.c_str());
    }
    if (stored_dhcp(ifn) != on)
        return fail(
            c, "INTERFACE '%s': DHCP stays %s: proto is %s (ether set %s ipv4mode=%s writes both)",
            ifn, on ? "off" : "on", or_dash(stored_proto(ifn).c_str()), ifn,
            on ? "dhcp" : "static");
    std::string proto = stored_proto(ifn);
    if (c.json)
        Json()
            .begin_object()
            .str("interface", ifn)
            .boolean("dhcp", on)
            .str("proto", proto.c_str())
            .end_object()
            .print();
    else if (was == on)
        printf("%s: DHCP already %s (proto %s); nothing changed\n", ifn, on ? "on" : "off",
               or_dash(proto.c_str()));
    else
        printf("%s: DHCP %s stored (proto %s); it takes effect at the next network restart\n", ifn,
               on ? "on" : "off", or_dash(proto.c_str()));
    return 0;
}

int dhcp_on(Ctx &c, Args &a)
{
    return dhcp_switch(c, a, true);
}
int dhcp_off(Ctx &c, Args &a)
{
    return dhcp_switch(c, a, false);
}

const Command kCommands[] = {
    {"ether show", "INTERFACE", "the stored record of an interface (NetEtherCfg)",
     "In the automatic modes the addresses come from the live interface.", show},
    {"ether set", "INTERFACE KEY=VALUE...", "change fields of the stored record, only those",
     "Keys: cardtype, ipv4mode (static|dhcp|N), addr, mask, gateway, mtu, ipv6mode\n"
     "(dhcpv6|static|ra|N), addr6, prefix6, gateway6, dns1, dns2. On a two-port device an\n"
     "address the other port holds, or one in its subnet, is refused.",
     set},
    {"ether addr", "INTERFACE ADDRESS NETMASK", "store the IPv4 address and netmask only", nullptr,
     addr},
    {"ether addr6", "INTERFACE ADDRESS PREFIX", "store the IPv6 address only", nullptr, addr6},
    {"ether mtu", "INTERFACE MTU", "store the MTU (1500, the default, is stored as absent)",
     nullptr, mtu},
    {"ether gateway", "INTERFACE GATEWAY|none", "store or remove the IPv4 gateway", nullptr,
     gateway},
    {"ether dns-add", "INTERFACE MASTER [SLAVE]", "append servers to the stored dns list", nullptr,
     dns_add},
    {"ether dns-del", "INTERFACE MASTER [SLAVE]", "remove servers from the stored dns list",
     nullptr, dns_del},
    {"ether route-add", "INTERFACE DESTINATION NETMASK", "store a static route (not live)", nullptr,
     route_add},
    {"ether route-del", "INTERFACE DESTINATION NETMASK", "remove a stored static route", nullptr,
     route_del},
    {"dhcp show", "INTERFACE", "the stored address modes and proto", nullptr, dhcp_show},
    {"dhcp on", "INTERFACE", "store DHCP mode (applied at the next network restart)", nullptr,
     dhcp_on},
    {"dhcp off", "INTERFACE", "store a static address mode (applied at the next restart)", nullptr,
     dhcp_off},
};

} // namespace

CommandList ether_commands()
{
    return {kCommands, sizeof kCommands / sizeof kCommands[0]};
}
