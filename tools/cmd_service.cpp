// Stored services and accounts: service ports and port mapping, DDNS, PPPoE; each shown as a
// record and changed with KEY=VALUE pairs. Passwords show as stars unless asked for.
#include <string.h>

#include "args.h"
#include "cli.h"
#include "fields.h"
#include "json.h"
#include "libnetwork.h"

namespace
{

const Field kPortFields[] = {
    FIELD_PORT(NetPortCfg, "http", usHttpPort),
    FIELD_PORT(NetPortCfg, "rtsp", usRtspPort),
    FIELD_PORT(NetPortCfg, "https", usHttpsPort),
    FIELD_PORT(NetPortCfg, "sdc", usSdcPort),
    FIELD_PORT(NetPortCfg, "prisrv", usPriSrvPort),
    FIELD_INT(NetPortCfg, "mapping", iPortMapEnable),
    FIELD_INT(NetPortCfg, "mode", iPortMapMode),
    FIELD_TEXT(NetPortCfg, "alias", szAlias),
    FIELD_PORT(NetPortCfg, "ext-http", usExtHttpPort),
    FIELD_PORT(NetPortCfg, "ext-rtsp", usExtRtspPort),
    FIELD_PORT(NetPortCfg, "ext-https", usExtHttpsPort),
    FIELD_PORT(NetPortCfg, "ext-sdc", usExtSdcPort),
    FIELD_PORT(NetPortCfg, "ext-prisrv", usExtPriSrvPort),
};

const Field kDdnsFields[] = {
    FIELD_INT(NetDdnsCfg, "enable", iEnable),
    FIELD_INT(NetDdnsCfg, "type", iType),
    FIELD_TEXT(NetDdnsCfg, "server", szServerDomain),
    FIELD_TEXT(NetDdnsCfg, "domain", szDdnsDomain),
    FIELD_PORT(NetDdnsCfg, "port", usPort),
    FIELD_TEXT(NetDdnsCfg, "user", szUserName),
    FIELD_SECRET(NetDdnsCfg, "password", szPassword),
};

const Field kPppoeFields[] = {
    FIELD_INT(NetPppoeCfg, "enable", iEnable),
    FIELD_TEXT(NetPppoeCfg, "interface", szInterface),
    FIELD_TEXT(NetPppoeCfg, "user", szUserName),
    FIELD_SECRET(NetPppoeCfg, "password", szPassword),
};

template <size_t N> constexpr int count(const Field (&)[N])
{
    return static_cast<int>(N);
}

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

int show_record(Ctx &c, Args &a, const Record &r)
{
    if (!a.end())
        return kExitUsage;
    std::vector<unsigned char> rec(r.size, 0);
    if (r.get(rec.data()) != 0)
        return fail(c, "the stored section %s is missing from package network", r.section);
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
        return fail(c, "the stored section %s is missing from package network", r.section);
    if (!apply_fields(c, r.fields, r.count, pairs, rec.data()))
        return kExitUsage;
    if (r.set(rec.data()) != 0)
        return fail(c, "the record could not be stored");
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
};

} // namespace

CommandList service_commands()
{
    return {kCommands, sizeof kCommands / sizeof kCommands[0]};
}
