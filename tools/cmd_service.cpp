// Stored services and accounts: service ports and port mapping, DDNS, PPPoE; each shown as a
// record and changed with KEY=VALUE pairs. Passwords show as stars unless asked for.
#include <string.h>

#include "args.h"
#include "cli.h"
#include "fields.h"
#include "guard.h"
#include "json.h"
#include "libnetwork.h"

const Field kPppoeFields[4] = {
    FIELD_BOOL(NetPppoeCfg, "enable", iEnable),
    FIELD_TEXT(NetPppoeCfg, "interface", szInterface),
    FIELD_TEXT(NetPppoeCfg, "user", szUserName),
    FIELD_SECRET(NetPppoeCfg, "password", szPassword),
};

namespace
{

const Field kPortFields[] = {
    FIELD_PORT(NetPortCfg, "http", usHttpPort),
    FIELD_PORT(NetPortCfg, "rtsp", usRtspPort),
    FIELD_PORT(NetPortCfg, "https", usHttpsPort),
    FIELD_PORT(NetPortCfg, "sdc", usSdcPort),
    FIELD_PORT(NetPortCfg, "prisrv", usPriSrvPort),
    FIELD_BOOL(NetPortCfg, "mapping", iPortMapEnable),
    FIELD_INT(NetPortCfg, "mode", iPortMapMode),
    FIELD_TEXT(NetPortCfg, "alias", szAlias),
    FIELD_PORT(NetPortCfg, "ext-http", usExtHttpPort),
    FIELD_PORT(NetPortCfg, "ext-rtsp", usExtRtspPort),
    FIELD_PORT(NetPortCfg, "ext-https", usExtHttpsPort),
    FIELD_PORT(NetPortCfg, "ext-sdc", usExtSdcPort),
    FIELD_PORT(NetPortCfg, "ext-prisrv", usExtPriSrvPort),
};

const Field kDdnsFields[] = {
    FIELD_BOOL(NetDdnsCfg, "enable", iEnable),
    FIELD_INT(NetDdnsCfg, "type", iType),
    FIELD_TEXT(NetDdnsCfg, "server", szServerDomain),
    FIELD_TEXT(NetDdnsCfg, "domain", szDdnsDomain),
    FIELD_PORT(NetDdnsCfg, "port", usPort),
    FIELD_TEXT(NetDdnsCfg, "user", szUserName),
    FIELD_SECRET(NetDdnsCfg, "password", szPassword),
};

void print_record(const Ctx &c, const char *title, const Field *f, int n, const void *rec)
{
    Json j;
    if (c.json)
        j.begin_object();
    else
        printf("%s\n", title);
    print_fields(c, j, f, n, rec);
    if (c.json)
        j.end_object().print();
}

// Each record's Get and Set, adapted to one shape.
struct Record {
    const char *title;
    const char *section; // for the error line
    const Field *fields;
    int count;
    size_t size;
    int (*get)(void *);
    int (*set)(const void *);
};

int get_ports(void *r)
{
    return NET_GetPortCfg(static_cast<NetPortCfg *>(r));
}
int set_ports(const void *r)
{
    return NET_SetPortCfg(*static_cast<const NetPortCfg *>(r));
}
int get_ddns(void *r)
{
    return NET_GetDdnsCfg(static_cast<NetDdnsCfg *>(r));
}
int set_ddns(const void *r)
{
    return NET_SetDdnsCfg(static_cast<const NetDdnsCfg *>(r));
}
int get_pppoe(void *r)
{
    return NET_GetPppoeCfg(static_cast<NetPppoeCfg *>(r));
}
int set_pppoe(const void *r)
{
    return NET_SetPppoeCfg(*static_cast<const NetPppoeCfg *>(r));
}

const Record kPorts = {"service ports and port mapping",
                       "\"port\" or \"portmapping\"",
                       kPortFields,
                       count(kPortFields),
                       sizeof(NetPortCfg),
                       get_ports,
                       set_ports};
const Record kDdns = {"DDNS account",     "\"ddns\"", kDdnsFields, count(kDdnsFields),
                      sizeof(NetDdnsCfg), get_ddns,   set_ddns};
const Record kPppoe = {"PPPoE account",     "\"pppoe\"", kPppoeFields, count(kPppoeFields),
                       sizeof(NetPppoeCfg), get_pppoe,   set_pppoe};

int missing(const Ctx &c, const Record &r)
{
    std::string why = guard::package_trouble("network");
    if (!why.empty())
        return fail(c, "package network cannot be loaded: %s", why.c_str());
    return fail(c, "the stored section %s is missing from package network", r.section);
}

int show_record(Ctx &c, Args &a, const Record &r)
{
    if (!a.end())
        return kExitUsage;
    std::vector<unsigned char> rec(r.size, 0);
    if (r.get(rec.data()) != 0)
        return missing(c, r);
    print_record(c, r.title, r.fields, r.count, rec.data());
    return 0;
}

int set_record(Ctx &c, Args &a, const Record &r)
{
    std::vector<const char *> pairs = rest(a);
    if (!a.end())
        return kExitUsage;
    if (pairs.empty()) {
        fprintf(stderr, "netlibctl %s: missing KEY=VALUE\n", c.cmd.c_str());
        return kExitUsage;
    }
    std::vector<unsigned char> rec(r.size, 0);
    if (r.get(rec.data()) != 0)
        return missing(c, r);
    for (const char *p : pairs)
        for (int i = 0; i < r.count; ++i)
            if (r.fields[i].kind == Kind::Port &&
                std::string(p, strcspn(p, "=")) == r.fields[i].key &&
                !guard::service_port(c, r.fields[i].key, p + strcspn(p, "=") + 1))
                return kExitUsage;
    if (!apply_fields(c, r.fields, r.count, pairs, rec.data()))
        return kExitUsage;
    if (r.set(rec.data()) != 0)
        return fail(c, "the record could not be stored: %s",
                    guard::store_failure("network").c_str());
    // Read back: what the store kept, which is not always all that was given.
    std::vector<unsigned char> back(r.size, 0);
    if (r.get(back.data()) != 0)
        return fail(c, "the record cannot be read back");
    print_record(c, r.title, r.fields, r.count, back.data());
    return 0;
}

int ports_show(Ctx &c, Args &a)
{
    return show_record(c, a, kPorts);
}
int ports_set(Ctx &c, Args &a)
{
    return set_record(c, a, kPorts);
}
int ddns_show(Ctx &c, Args &a)
{
    return show_record(c, a, kDdns);
}
int ddns_set(Ctx &c, Args &a)
{
    return set_record(c, a, kDdns);
}
int pppoe_show(Ctx &c, Args &a)
{
    return show_record(c, a, kPppoe);
}
int pppoe_set(Ctx &c, Args &a)
{
    return set_record(c, a, kPppoe);
}

int defcard_show(Ctx &c, Args &a)
{
    if (!a.end())
        return kExitUsage;
    char card[17] = {0};
    if (NET_GetDefNetCard(16, card) != 0)
        return fail(c, "no default card is stored (section \"defnetcard\")");
    if (c.json)
        Json().begin_object().str("defcard", card[0] ? card : nullptr).end_object().print();
    else
        printf("default card: %s\n", card[0] ? card : "- (one-port device)");
    return 0;
}

int defcard_set(Ctx &c, Args &a)
{
    const char *name = a.need("INTERFACE");
    if (!a.end() || !guard::port(c, "INTERFACE", name, false))
        return kExitUsage;
    if (NET_SetDefNetCard(name) != 0)
        return fail(c, "INTERFACE '%s' could not be stored as the default card: %s", name,
                    guard::store_failure("network").c_str());
    if (c.json)
        Json().begin_object().str("defcard", name).end_object().print();
    else
        printf("default card: %s stored (kept on two-port devices only)\n", name);
    return 0;
}

int summary(Ctx &c, Args &a)
{
    if (!a.end())
        return kExitUsage;
    NetIpcConfig cfg;
    memset(&cfg, 0, sizeof cfg);
    if (drv_net_GetIpcConfig(&cfg) != 0)
        return fail(c, "the stored settings of the ports cannot be read");
    Json j;
    j.begin_object().num("ports", cfg.iPortNum).begin_array("settings");
    for (int i = 0; i < cfg.iPortNum && i < 2; ++i) {
        const NetEtherCfg &e = cfg.astEtherCfg[i];
        if (c.json)
            j.begin_object()
                .str("interface", e.szIfName)
                .num("ipv4_mode", e.iIpv4Mode)
                .str("ipv4_address", e.szIpv4Addr)
                .str("ipv4_netmask", e.szIpv4Mask)
                .str("ipv4_gateway", e.szIpv4Gateway)
                .num("mtu", e.iMtu)
                .num("ipv6_mode", e.iIpv6Mode)
                .str("ipv6_address", e.szIpv6Addr)
                .end_object();
        else
            printf("%s: %s %s netmask %s gateway %s mtu %d\n", e.szIfName,
                   e.iIpv4Mode == 1 ? "dhcp" : "static", or_dash(e.szIpv4Addr),
                   or_dash(e.szIpv4Mask), or_dash(e.szIpv4Gateway), e.iMtu);
    }
    if (c.json)
        j.end_array().end_object().print();
    return 0;
}

int lldp(Ctx &c, Args &a, bool up)
{
    if (!a.end())
        return kExitUsage;
    if ((up ? Net_LldpLinkUpCB() : Net_LldpLinkDownCB()) != 0)
        return fail(c, "\"/usr/bin/lldpd stop\" could not be started");
    if (c.json)
        Json().begin_object().boolean("link_up", up).end_object().print();
    else
        printf("link-%s callback done%s\n", up ? "up" : "down", up ? "" : " (LLDP agent stopped)");
    return 0;
}

int lldp_up(Ctx &c, Args &a)
{
    return lldp(c, a, true);
}
int lldp_down(Ctx &c, Args &a)
{
    return lldp(c, a, false);
}

const Command kCommands[] = {
    {"ports show", "", "service ports and port mapping (NetPortCfg)", nullptr, ports_show},
    {"ports set", "KEY=VALUE...", "change the service ports and store them",
     "Keys: http, rtsp, https, sdc, prisrv, mapping, mode, alias, ext-http, ext-rtsp,\n"
     "ext-https, ext-sdc, ext-prisrv. The store keeps HTTP, RTSP and the mapping; in mode 0\n"
     "the external ports are the standard ones. The record is read back after storing.",
     ports_set},
    {"ddns show", "", "the DDNS account (password hidden)", nullptr, ddns_show},
    {"ddns set", "KEY=VALUE...", "change the DDNS account and store it",
     "Keys: enable, type, server, domain, port, user, password.", ddns_set},
    {"pppoe show", "", "the PPPoE account (password hidden)", nullptr, pppoe_show},
    {"pppoe set", "KEY=VALUE...", "change the PPPoE account and store it",
     "Keys: enable, interface, user, password.", pppoe_set},
    {"defcard show", "", "the stored default network card (two-port devices)", nullptr,
     defcard_show},
    {"defcard set", "INTERFACE", "store the default network card", nullptr, defcard_set},
    {"summary", "", "port count and stored settings of every port (drv_net_GetIpcConfig)", nullptr,
     summary},
    {"lldp up", "", "the LLDP agent's link-up callback", nullptr, lldp_up},
    {"lldp down", "", "the link-down callback: stops the LLDP agent (/usr/bin/lldpd stop)", nullptr,
     lldp_down},
};

} // namespace

CommandList service_commands()
{
    return {kCommands, sizeof kCommands / sizeof kCommands[0]};
}
