// The driver interface table: created as a device application creates it, then asked entry by
// entry. Each answer names the entry's number and the function found there.
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

#include "args.h"
#include "cli.h"
#include "json.h"
#include "libnetwork.h"
#include "speed.h"

namespace
{

// The table, freed as its caller must.
class Table
{
  public:
    Table()
    {
#if defined(__SANITIZE_ADDRESS__)
        // Creating a table leaves one package open on purpose; not a leak of ours to report.
        __lsan_disable();
#endif
        if (createNetInterface(&t_) != 0)
            t_ = nullptr;
#if defined(__SANITIZE_ADDRESS__)
        __lsan_enable();
#endif
    }
    ~Table()
    {
        free(t_);
    }
    Table(const Table &) = delete;
    Table &operator=(const Table &) = delete;
    const NetDriverInterface *operator->() const
    {
        return t_;
    }
    const NetDriverInterface *get() const
    {
        return t_;
    }

  private:
    NetDriverInterface *t_ = nullptr;
};

// One answer: entry number, the function in it, the result and what it gave, as words for a
// person and as a typed JSON value (null when the call failed).
struct Answer {
    int entry;
    const char *function;
    int result;
    std::string value;
    Json json;
};

Json text(const char *s)
{
    return std::move(Json().str(nullptr, s));
}
Json number(long n)
{
    return std::move(Json().num(nullptr, n));
}
Json flag(bool b)
{
    return std::move(Json().boolean(nullptr, b));
}
// The value of a call that answered, else null.
Json if_ok(int rc, const Json &v)
{
    return rc == 0 ? v : std::move(Json().null(nullptr));
}
// {"k1":"v1","k2":"v2"}: pairs of texts.
Json pair(const char *k1, const char *v1, const char *k2, const char *v2)
{
    return std::move(Json().begin_object().str(k1, v1).str(k2, v2).end_object());
}

void print(const Ctx &c, Json &j, const Answer &a)
{
    if (c.json) {
        j.begin_object()
            .num("entry", a.entry)
            .str("function", a.function)
            .num("result", a.result)
            .value("value", a.json)
            .end_object();
        return;
    }
    printf("  %3d  %-28s %3d  %s\n", a.entry, a.function, a.result, a.value.c_str());
}

// Null entries 18 to 45, counted.
int null_entries(const NetDriverInterface *t)
{
    int n = 0;
    for (NetReservedFn f : t->apfnNull18)
        n += f == nullptr;
    return n;
}

// The entry's function by name when it is the one the table promises, else "?".
#define FN(entry, fn) (t->entry == fn ? #fn : "?")

const char *defcard_function(const NetDriverInterface *t)
{
    if (t->pfnGetDefNetCard == drv_net_GetDefNetCard)
        return "drv_net_GetDefNetCard";
    if (t->pfnGetDefNetCard == drv_net_GetDefaultEth)
        return "drv_net_GetDefaultEth";
    return "?";
}

std::vector<Answer> ask(const NetDriverInterface *t, const char *ifn)
{
    std::vector<Answer> out;
    char a[128], b[128];
    int n = 0, rc;

    memset(a, 0, sizeof a);
    rc = t->pfnGetEthName(a, sizeof a - 1, &n);
    Json names;
    names.begin_object().num("count", n).begin_array("names");
    for (const char *p = a; rc == 0 && *p != '\0';) {
        const char *sep = strstr(p, "::");
        std::string one = sep != nullptr ? std::string(p, sep - p) : std::string(p);
        names.str(nullptr, one);
        p = sep != nullptr ? sep + 2 : p + one.size();
    }
    out.push_back({2, FN(pfnGetEthName, drv_net_GetEthName), rc,
                   std::string(a) + " (" + std::to_string(n) + ")",
                   if_ok(rc, names.end_array().end_object())});

    memset(a, 0, sizeof a);
    rc = t->pfnGetMacAddr(ifn, a, 18);
    out.push_back({3, FN(pfnGetMacAddr, NET_GetMacAddr), rc, a, if_ok(rc, text(a))});

    int mtu = 0;
    rc = t->pfnGetMtu(ifn, &mtu);
    out.push_back({5, FN(pfnGetMtu, NET_GetMtu), rc, std::to_string(mtu), if_ok(rc, number(mtu))});

    memset(a, 0, sizeof a);
    memset(b, 0, sizeof b);
    rc = t->pfnGetHostIPEx(ifn, a, 16, b, 16);
    out.push_back({7, FN(pfnGetHostIPEx, drv_net_GetHostIPEx), rc, std::string(a) + " " + b,
                   if_ok(rc, pair("address", a, "netmask", b))});

    memset(a, 0, sizeof a);
    rc = t->pfnGetIpv4Gateway(ifn, a, 16);
    out.push_back({9, FN(pfnGetIpv4Gateway, NET_GetIpv4Gateway), rc, a, if_ok(rc, text(a))});

    rc = t->pfnGetLinkStatus(ifn);
    out.push_back({10, FN(pfnGetLinkStatus, drv_net_GetLinkStatus), rc,
                   rc == 0 ? "link up" : "link down", flag(rc == 0)});

    memset(a, 0, sizeof a);
    rc = t->pfnGetDefNetCard(a, 16);
    out.push_back({11, defcard_function(t), rc, a, if_ok(rc, text(a))});

    memset(a, 0, sizeof a);
    int prefix = 0;
    rc = t->pfnGetIpv6Addr(ifn, a, 64, &prefix);
    out.push_back(
        {15, FN(pfnGetIpv6Addr, drv_net_GetIpv6Addr), rc,
         rc == 0 ? a + ("/" + std::to_string(prefix)) : "",
         if_ok(rc, Json().begin_object().str("address", a).num("prefix", prefix).end_object())});

    memset(a, 0, sizeof a);
    rc = t->pfnGetIpv6Gateway(ifn, a, 64);
    out.push_back({17, FN(pfnGetIpv6Gateway, NET_GetIpv6Gateway), rc, a, if_ok(rc, text(a))});

    out.push_back(
        {18, "(entries 18 to 45)", 0, std::to_string(null_entries(t)) + " of 28 null",
         std::move(Json().begin_object().num("null", null_entries(t)).num("of", 28).end_object())});

    memset(a, 0, sizeof a);
    memset(b, 0, sizeof b);
    rc = t->pfnGetDnsServer(ifn, a, 46, b, 46);
    out.push_back({46, FN(pfnGetDnsServer, NET_GetDnsServer), rc, std::string(a) + " " + b,
                   if_ok(rc, pair("master", a, "slave", b))});

    NetSpeedDuplexMode mode = NET_SPEED_DUPLEX_AUTO;
    rc = t->pfnGetSpeedDuplex(ifn, &mode);
    out.push_back({52, FN(pfnGetSpeedDuplex, drv_net_GetSpeedDuplex), rc,
                   rc == 0 ? speed_name(mode) : "", if_ok(rc, text(speed_name(mode)))});

    mode = NET_SPEED_DUPLEX_AUTO;
    rc = t->pfnGetMaxSupportSpeed(ifn, &mode);
    out.push_back({53, FN(pfnGetMaxSupportSpeed, drv_net_GetMaxSupportSpeedx), rc,
                   rc == 0 ? speed_name(mode) : "", if_ok(rc, text(speed_name(mode)))});

    static NetIpv6AddrList list;
    memset(&list, 0, sizeof list);
    rc = t->pfnGetIpv6AddrList(ifn, &list);
    std::string addrs;
    Json all;
    all.begin_array();
    for (int i = 0; rc == 0 && i < list.iNum && i < 32; ++i) {
        addrs += (i ? " " : "") + std::string(list.astAddr[i].szAddr) + "/" +
                 std::to_string(list.astAddr[i].iPrefixLen);
        all.begin_object()
            .str("address", list.astAddr[i].szAddr)
            .num("prefix", list.astAddr[i].iPrefixLen)
            .end_object();
    }
    out.push_back({55, FN(pfnGetIpv6AddrList, drv_net_GetIpv6AddrList), rc, addrs,
                   if_ok(rc, all.end_array())});
    return out;
}

const char *first_port()
{
    static NetIfNames n;
    memset(&n, 0, sizeof n);
    NET_GetIntfNames(&n);
    return n.szFirstName;
}

int show(Ctx &c, Args &a)
{
    const char *ifn = a.take();
    if (!a.end() || (ifn != nullptr && !check_ifname(c, "INTERFACE", ifn)))
        return kExitUsage;
    if (ifn == nullptr)
        ifn = first_port();
    Table t;
    if (t.get() == nullptr)
        return fail(c, "the table could not be created");
    Json j;
    if (c.json)
        j.begin_object().str("interface", ifn).begin_array("entries");
    else
        printf("driver table asked about %s:\n  %3s  %-28s %3s  %s\n", ifn, "#", "function", "rc",
               "answer");
    for (const Answer &x : ask(t.get(), ifn))
        print(c, j, x);
    if (c.json)
        j.end_array().end_object().print();
    return 0;
}

int probe(Ctx &c, Args &a)
{
    const char *ifn = a.need("INTERFACE"), *addr = a.need("ADDRESS");
    bool v6 = addr != nullptr && strchr(addr, ':') != nullptr;
    if (!a.end() || !check_ifname(c, "INTERFACE", ifn) ||
        !(v6 ? check_ipv6(c, "ADDRESS", addr) : check_ipv4(c, "ADDRESS", addr)))
        return kExitUsage;
    Table t;
    if (t.get() == nullptr)
        return fail(c, "the table could not be created");
    int collision = 0;
    int rc = v6 ? t->pfnCheckIpv6Collision(ifn, addr, &collision)
                : t->pfnCheckIpv4Collision(ifn, addr, &collision);
    const NetDriverInterface *tp = t.get();
    const char *fn =
        v6 ? (tp->pfnCheckIpv6Collision == drv_net_CheckIpv6Collision ? "drv_net_CheckIpv6Collision"
                                                                      : "?")
           : (tp->pfnCheckIpv4Collision == drv_net_CheckIpv4Collision ? "drv_net_CheckIpv4Collision"
                                                                      : "?");
    Answer x{
        v6 ? 49 : 48, fn, rc,
        rc != 0          ? ""
        : collision == 1 ? "in use"
                         : "free",
        if_ok(rc, std::move(Json().begin_object().boolean("in_use", collision == 1).end_object()))};
    Json j;
    if (!c.json)
        printf("  %3s  %-28s %3s  %s\n", "#", "function", "rc", "answer");
    print(c, j, x);
    if (c.json)
        j.print();
    return rc == 0 ? 0 : fail(c, "INTERFACE '%s' cannot send the probe", ifn);
}

int ping(Ctx &c, Args &a)
{
    const char *ifn = a.need("INTERFACE"), *host = a.need("HOST");
    if (!a.end() || !check_ifname(c, "INTERFACE", ifn) || !check_ipv4(c, "HOST", host))
        return kExitUsage;
    Table t;
    if (t.get() == nullptr)
        return fail(c, "the table could not be created");
    double us = 0;
    int rc = t->pfnPing(ifn, host, &us);
    char words[64] = {0};
    if (rc == 0)
        snprintf(words, sizeof words, "%.0f us", us);
    Answer x{56, t->pfnPing == NET_Ping ? "NET_Ping" : "?", rc, words,
             if_ok(rc, std::move(Json().begin_object().real("time_us", us).end_object()))};
    Json j;
    if (!c.json)
        printf("  %3s  %-28s %3s  %s\n", "#", "function", "rc", "answer");
    print(c, j, x);
    if (c.json)
        j.print();
    return rc == 0 ? 0 : fail(c, "HOST '%s' did not answer through %s within 2 s", host, ifn);
}

int cfg(Ctx &c, Args &a)
{
    if (!a.end())
        return kExitUsage;
    NetCfgInterface t;
    memset(&t, 0, sizeof t);
    if (createNetCfgInterface(&t) != 0)
        return fail(c, "the configuration table could not be filled");
    NetDdnsCfg ddns;
    NetPppoeCfg pppoe;
    NetPortCfg port;
    NetIpcConfig ipc;
    memset(&ddns, 0, sizeof ddns);
    memset(&pppoe, 0, sizeof pppoe);
    memset(&port, 0, sizeof port);
    memset(&ipc, 0, sizeof ipc);
    Answer answers[] = {
        {1, "NET_GetDdnsCfg", t.pfnGetDdnsCfg(&ddns), "", Json()},
        {2, "NET_GetPppoeCfg", t.pfnGetPppoeCfg(&pppoe), "", Json()},
        {3, "NET_GetPortCfg", t.pfnGetPortCfg(&port), "", Json()},
        {4, "drv_net_GetIpcConfig", t.pfnGetIpcConfig(&ipc), "", Json()},
    };
    Json v[4];
    v[0].begin_object()
        .boolean("enable", ddns.iEnable != 0)
        .str("user", ddns.szUserName)
        .str("password", secret(c, ddns.szPassword))
        .end_object();
    v[1].begin_object()
        .boolean("enable", pppoe.iEnable != 0)
        .str("interface", pppoe.szInterface)
        .end_object();
    v[2].begin_object()
        .num("http", port.usHttpPort)
        .num("rtsp", port.usRtspPort)
        .num("https", port.usHttpsPort)
        .end_object();
    v[3].begin_object().num("ports", ipc.iPortNum).begin_array("interfaces");
    for (int i = 0; i < ipc.iPortNum && i < 2; ++i)
        v[3].begin_object()
            .str("interface", ipc.astEtherCfg[i].szIfName)
            .str("ipv4_address", ipc.astEtherCfg[i].szIpv4Addr)
            .end_object();
    v[3].end_array().end_object();
    for (int i = 0; i < 4; ++i)
        answers[i].json = if_ok(answers[i].result, v[i]);
    answers[0].value = std::string("enable ") + std::to_string(ddns.iEnable) + " user " +
                       or_dash(ddns.szUserName) + " password " +
                       or_dash(secret(c, ddns.szPassword));
    answers[1].value = std::string("enable ") + std::to_string(pppoe.iEnable) + " interface " +
                       or_dash(pppoe.szInterface);
    answers[2].value = "http " + std::to_string(port.usHttpPort) + " rtsp " +
                       std::to_string(port.usRtspPort) + " https " +
                       std::to_string(port.usHttpsPort);
    answers[3].value = std::to_string(ipc.iPortNum) + " port(s):";
    for (int i = 0; i < ipc.iPortNum && i < 2; ++i)
        answers[3].value += std::string(" ") + ipc.astEtherCfg[i].szIfName + " " +
                            or_dash(ipc.astEtherCfg[i].szIpv4Addr);
    Json j;
    if (c.json)
        j.begin_object().begin_array("entries");
    else
        printf("configuration table:\n  %3s  %-28s %3s  %s\n", "#", "function", "rc", "answer");
    for (const Answer &x : answers)
        print(c, j, x);
    if (c.json)
        j.end_array().end_object().print();
    return 0;
}

const Command kCommands[] = {
    {"drv show", "[INTERFACE]", "create the runtime table and ask its reading entries",
     "INTERFACE defaults to the first port. Entries 18 to 45 are counted as null.", show},
    {"drv probe", "INTERFACE ADDRESS", "a collision probe through entry 48 (IPv4) or 49 (IPv6)",
     nullptr, probe},
    {"drv ping", "INTERFACE HOST", "one ping through entry 56", nullptr, ping},
    {"drv cfg", "", "fill the configuration table and ask its four readers", nullptr, cfg},
};

} // namespace

CommandList drv_commands()
{
    return {kCommands, sizeof kCommands / sizeof kCommands[0]};
}
