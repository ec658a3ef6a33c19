// Configuration layouts: which one is stored, the old layout's records, the conversion at
// start, and the roll-back checks and roll-back.
#include <string.h>

#include <string>

#include "args.h"
#include "cli.h"
#include "fields.h"
#include "guard.h"
#include "json.h"
#include "layout.h"
#include "libnetwork.h"
#include "package.h"

std::string stored_layout(std::string *version)
{
    Package p("network");
    if (p.get() == nullptr)
        return "none";
    struct uci_section *marker = NET_GetSection(p.get(), "net_version");
    bool ddns = NET_GetSection(p.get(), "ddns") != nullptr;
    if (marker == nullptr)
        return ddns ? "unmarked" : "old";
    char single[16] = {0}, dbl[16] = {0};
    if (NET_GetOption(marker, "single", single, sizeof single) == 0) {
        *version = single;
        return "single";
    }
    if (NET_GetOption(marker, "double", dbl, sizeof dbl) == 0)
        *version = dbl;
    return "double";
}

namespace
{

int show(Ctx &c, Args &a)
{
    if (!a.end())
        return kExitUsage;
    std::string version;
    std::string layout = stored_layout(&version);
    if (c.json)
        Json()
            .begin_object()
            .str("layout", layout)
            .str("version", version.empty() ? nullptr : version.c_str())
            .end_object()
            .print();
    else
        printf("package network: %s layout%s%s\n", layout.c_str(), version.empty() ? "" : " ",
               version.c_str());
    return 0;
}

const Field kEthFields[] = {
    FIELD_INT(NetEtherCfg, "cardtype", iCardType),
    FIELD_INT(NetEtherCfg, "ipv4mode", iIpv4Mode),
    FIELD_INT(NetEtherCfg, "mtu", iMtu),
    FIELD_TEXT(NetEtherCfg, "addr", szIpv4Addr),
    FIELD_TEXT(NetEtherCfg, "mask", szIpv4Mask),
    FIELD_TEXT(NetEtherCfg, "gateway", szIpv4Gateway),
    FIELD_INT(NetEtherCfg, "ipv6mode", iIpv6Mode),
    FIELD_TEXT(NetEtherCfg, "addr6", szIpv6Addr),
    FIELD_INT(NetEtherCfg, "prefix6", iIpv6PrefixLen),
    FIELD_TEXT(NetEtherCfg, "gateway6", szIpv6Gateway),
    FIELD_TEXT(NetEtherCfg, "dns1", szDns1),
    FIELD_TEXT(NetEtherCfg, "dns2", szDns2),
};
const Field kPortFields[] = {
    FIELD_PORT(NetPortCfg, "http", usHttpPort),
    FIELD_PORT(NetPortCfg, "rtsp", usRtspPort),
    FIELD_PORT(NetPortCfg, "https", usHttpsPort),
    FIELD_BOOL(NetPortCfg, "mapping", iPortMapEnable),
    FIELD_INT(NetPortCfg, "mode", iPortMapMode),
    FIELD_PORT(NetPortCfg, "ext-http", usExtHttpPort),
    FIELD_PORT(NetPortCfg, "ext-rtsp", usExtRtspPort),
};
const Field kDdnsFields[] = {
    FIELD_BOOL(NetDdnsCfg, "enable", iEnable),
    FIELD_INT(NetDdnsCfg, "type", iType),
    FIELD_TEXT(NetDdnsCfg, "domain", szDdnsDomain),
    FIELD_PORT(NetDdnsCfg, "port", usPort),
    FIELD_TEXT(NetDdnsCfg, "user", szUserName),
    FIELD_SECRET(NetDdnsCfg, "password", szPassword),
};

// One record of the old layout: read, then shown under its name (or null when unreadable).
template <class R>
bool old_record(const Ctx &c, Json &j, const char *name, int (*get)(R *), const Field *f, int n)
{
    R rec;
    memset(&rec, 0, sizeof rec);
    bool ok = get(&rec) == 0;
    if (c.json) {
        if (!ok) {
            j.null(name);
            return false;
        }
        j.begin_object(name);
        print_fields(c, j, f, n, &rec);
        j.end_object();
    } else if (ok) {
        printf("%s\n", name);
        print_fields(c, j, f, n, &rec);
    } else {
        printf("%s: not readable\n", name);
    }
    return ok;
}

int old(Ctx &c, Args &a)
{
    if (!a.end())
        return kExitUsage;
    Json j;
    j.begin_object();
    bool any = old_record(c, j, "ethernet", NET_GetOldEthCfg, kEthFields, count(kEthFields));
    any = old_record(c, j, "ports", NET_GetOldPortCfg, kPortFields, count(kPortFields)) || any;
    any = old_record(c, j, "ddns", NET_GetOldDdnsCfg, kDdnsFields, count(kDdnsFields)) || any;
    any = old_record(c, j, "pppoe", NET_GetOldPppoeCfg, kPppoeFields, count(kPppoeFields)) || any;
    j.end_object();
    if (c.json)
        j.print();
    return any ? 0 : fail(c, "no record of the old layout is readable");
}

int convert(Ctx &c, Args &a)
{
    if (!a.end())
        return kExitUsage;
    std::string v1, v2;
    std::string before = stored_layout(&v1);
    std::string why = before == "none" ? guard::package_trouble("network") : "";
    int rc = NET_ConvertConfig();
    std::string after = stored_layout(&v2);
    if (rc != 0 && before == "none")
        return fail(c, "nothing to convert: package network cannot be loaded: %s", why.c_str());
    if (rc != 0)
        return fail(c, "the conversion of the %s layout failed (package now: %s layout)",
                    before.c_str(), after.c_str());
    if (c.json)
        Json()
            .begin_object()
            .str("before", before)
            .str("after", after)
            .str("version", v2.empty() ? nullptr : v2.c_str())
            .end_object()
            .print();
    else
        printf("package network: %s layout before, %s layout%s%s after\n", before.c_str(),
               after.c_str(), v2.empty() ? "" : " ", v2.c_str());
    return 0;
}

int check_back(Ctx &c, Args &a)
{
    const char *text = a.need("VERSION");
    long version = 0;
    if (!a.end() || !parse_long(c, "VERSION", text, 0, 2, &version))
        return kExitUsage;
    int back = 0;
    int rc = NET_IsNetConfigBack(static_cast<int>(version), &back);
    if (rc != 0)
        return fail(c,
                    "VERSION '%s' does not match the stored marker (or the package is "
                    "unreadable)",
                    text);
    if (c.json)
        Json()
            .begin_object()
            .num("version", version)
            .boolean("roll_back", back == 1)
            .end_object()
            .print();
    else
        printf("firmware of layout version %ld: %s\n", version,
               back == 1 ? "roll back to the old layout first" : "no roll-back needed");
    return 0;
}

int rollback(Ctx &c, Args &a)
{
    if (!a.end())
        return kExitUsage;
    std::string v1, v2;
    std::string before = stored_layout(&v1);
    if (NET_NetConfigBackToOld() != 0)
        return fail(c, "the roll-back failed part way (package now: %s layout)",
                    stored_layout(&v2).c_str());
    std::string after = stored_layout(&v2);
    if (c.json)
        Json().begin_object().str("before", before).str("after", after).end_object().print();
    else
        printf("package network: %s layout before, %s layout after\n", before.c_str(),
               after.c_str());
    return 0;
}

const Command kCommands[] = {
    {"layout show", "", "which layout the stored package is in (marker and sections)", nullptr,
     show},
    {"layout old", "", "the records the old layout's packages hold (tcpip, port, ddns, pppoe)",
     nullptr, old},
    {"layout convert", "", "the conversion at start (NET_ConvertConfig)",
     "Old layout or one-port layout to what the hardware needs; a conversion regenerates the\n"
     "package, writes the settings back, restarts the network on two-port hardware and ends\n"
     "in SYS_Reboot. An unmarked one-port package is only stamped.",
     convert},
    {"layout check-back", "VERSION", "whether firmware of layout VERSION (0-2) needs a roll-back",
     nullptr, check_back},
    {"layout rollback", "", "write the settings to the old packages and strip \"network\"",
     "No restart and no reboot follow.", rollback},
};

} // namespace

CommandList mig_commands()
{
    return {kCommands, sizeof kCommands / sizeof kCommands[0]};
}
