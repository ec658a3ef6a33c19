// The record editors on the real "network" file: addresses and DHCP modes of an interface,
// stored DNS servers, routes, MTU and gateway, service ports, port mapping, DDNS and PPPoE.
// Their refusals are in the access suite's table.
#include <string.h>

#include <functional>
#include <string>
#include <vector>

#include "libnetwork.h"
#include "sandbox.h"
#include "config_support.h"

using namespace cfgtest;
using sandbox::FdCheck;

namespace
{

// A package with the section "lan" alone, written by hand; and as a commit writes it.
std::string lan_hand(const std::string &options)
{
    return "# one interface\nconfig interface lan\n" + options;
}
std::string lan_committed(const std::string &options)
{
    return "\nconfig interface 'lan'\n" + options + "\n";
}

// The "lan" section: fixed head, then gateway (if any), the dns items, the mtu (if any).
Section lan(const char *gw, const Lines &dns, const char *mtu = nullptr)
{
    Section s{"interface", "lan", {opt("ifname", "eth0"), opt("ipaddr", "192.168.1.64")}};
    if (gw != nullptr)
        s.lines.push_back(opt("gateway", gw));
    for (const std::string &d : dns)
        s.lines.push_back(item("dns", d));
    if (mtu != nullptr)
        s.lines.push_back(opt("mtu", mtu));
    return s;
}

Section route(const std::string &name, const std::string &iface, const std::string &target,
              const std::string &mask)
{
    return {"route", name, {opt("interface", iface), opt("target", target), opt("netmask", mask)}};
}

std::string file(const Section &lanSection, const std::vector<Section> &routes = {})
{
    std::vector<Section> s = {loopback(), lanSection};
    s.insert(s.end(), routes.begin(), routes.end());
    return uci_text(s);
}

const Section kStart = lan("192.168.1.1", {"192.168.1.1"});

Section port(const char *http, const char *rtsp)
{
    return {"port",
            "port",
            {opt("httpport", http), opt("rtspport", rtsp), opt("httpsport", "443"),
             opt("prisrvport", "8001")}};
}

Section mapping(const std::string &mode, const std::string &alias, const Lines &ext)
{
    Section s{"portmapping", "portmapping", {opt("enable", "1"), opt("mode", mode)}};
    if (!alias.empty())
        s.lines.push_back(opt("alias", alias));
    s.lines.insert(s.lines.end(), ext.begin(), ext.end());
    s.lines.push_back(opt("extprisrvport", "9001"));
    return s;
}

Lines ext(const char *http, const char *rtsp, const char *https, const char *sdc)
{
    return {opt("exthttpport", http), opt("extrtspport", rtsp), opt("exthttpsport", https),
            opt("extsdcport", sdc)};
}

Section pppoe(const char *enable, const char *ifname, const std::string &password)
{
    return {"pppoe",
            "pppoe",
            {opt("enable", enable), opt("interface", ifname), opt("username", "dsl-user"),
             opt("password", password)}};
}

std::vector<Section> services()
{
    return {port("80", "554"),
            mapping("1", "front door", ext("8080", "8554", "8443", "8000")),
            {"ddns", "ddns", {opt("enable", "0"), opt("port", "80"), opt("username", "owner")}},
            pppoe("1", "eth0", "p#ss w;rd")};
}

std::string text(const NetPortCfg &c)
{
    char buf[256];
    snprintf(buf, sizeof buf, "%d %d %d %d %d %d map %d %d '%.64s' %d %d %d %d %d", c.usHttpPort,
             c.usRtspPort, c.usHttpsPort, c.usSdcPort, c.usSparePort, c.usPriSrvPort,
             c.iPortMapEnable, c.iPortMapMode, c.szAlias, c.usExtHttpPort, c.usExtRtspPort,
             c.usExtHttpsPort, c.usExtSdcPort, c.usExtPriSrvPort);
    return buf;
}

} // namespace

TEST(CfgAddr, Ipv4AddressAndMaskAreStoredUnvalidated)
{
    REQUIRE_SANDBOX();
    install(lan_hand("\toption ipaddr '192.168.1.64'\n\toption netmask '255.255.255.0'\n"
                     "\toption proto static\n"));
    FdCheck fds;
    EXPECT_EQ(0, NET_SetIpv4AddrCfg("eth0", "10.0.0.7", "999.0.0.0"));
    EXPECT_EQ(lan_committed("\toption ipaddr '10.0.0.7'\n\toption netmask '999.0.0.0'\n"
                            "\toption proto 'static'\n"),
              stored());
}

TEST(CfgAddr, Ipv6AddressIsStoredWithItsPrefixAndReadWithout)
{
    REQUIRE_SANDBOX();
    install(lan_hand("\toption ip6addr '2001:db8::40/64'\n\toption proto static\n"));
    FdCheck fds;
    ASSERT_EQ(0, NET_SetIpv6AddrCfg("eth0", "2001:db8::5", 64));
    EXPECT_EQ(lan_committed("\toption ip6addr '2001:db8::5/64'\n\toption proto 'static'\n"),
              stored());
    // No "/": the whole text; longer than 63 characters: cut there. The read changes nothing.
    for (const std::string &v : {std::string("2001:db8::9"), std::string(70, 'a')}) {
        const std::string hand = lan_hand("\toption ip6addr \"" + v + "\"\n");
        install(hand);
        char addr[64];
        EXPECT_EQ(0, NET_GetIpv6AddrCfg("eth0", addr));
        EXPECT_EQ(v.substr(0, 63), addr);
        EXPECT_EQ(hand, stored());
    }
}

TEST(CfgAddr, ModeQueriesAnswerOneOnlyForExactlyOne)
{
    REQUIRE_SANDBOX();
    struct {
        const char *stored; // null: option absent
        int mode;
    } cases[] = {{"1", 1}, {"0", 0}, {"01", 0}, {" 1", 0}, {nullptr, 0}};
    struct {
        int (*query)(const char *);
        const char *option;
    } queries[] = {{NET_IsDhcpMode, "ipv4dhcp"}, {NET_IsDhcpv6Mode, "ipv6dhcp"}};
    for (const auto &q : queries) {
        SCOPED_TRACE(q.option);
        for (const auto &c : cases) {
            install(lan_hand(c.stored
                                 ? std::string("\toption ") + q.option + " '" + c.stored + "'\n"
                                 : "\toption proto dhcp\n"));
            EXPECT_EQ(c.mode, q.query("eth0")) << (c.stored ? c.stored : "-");
        }
        // Every error reads as "not DHCP".
        EXPECT_EQ(0, q.query("lan1"));
        sandbox::must("rm /etc/config/network");
        EXPECT_EQ(0, q.query("eth0"));
    }
}

TEST(CfgAddr, DhcpSwitchesChangeOnlyProto)
{
    REQUIRE_SANDBOX();
    const std::string v4on = "\toption ipv4dhcp '1'\n", v4off = "\toption ipv4dhcp '0'\n";
    const std::string v6on = "\toption ipv6dhcp '1'\n", v6off = "\toption ipv6dhcp '0'\n";
    struct {
        int (*change)(const char *);
        const char *oldProto;
        std::string modes;
        const char *newProto; // null: the file stays byte for byte
    } cases[] = {
        {NET_EnableDhcpCfg, "static", v4on + v6off, nullptr},
        {NET_EnableDhcpCfg, "static", v4off + v6off, "dhcp"},
        {NET_EnableDhcpCfg, "static", v4off + v6on, "dhcpv6"},
        {NET_DisableDhcpCfg, "dhcp", v4off + v6on, nullptr},
        {NET_DisableDhcpCfg, "dhcp", v4on + v6off, "static"},
        {NET_DisableDhcpCfg, "dhcp", v4on + v6on, "dhcpv6"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.modes);
        const std::string hand =
            lan_hand("\toption proto " + std::string(c.oldProto) + "\n" + c.modes);
        install(hand);
        FdCheck fds;
        EXPECT_EQ(0, c.change("eth0"));
        // "ipv4dhcp" and "ipv6dhcp" stay as they were.
        EXPECT_EQ(c.newProto ? lan_committed("\toption proto '" + std::string(c.newProto) + "'\n" +
                                             c.modes)
                             : hand,
                  stored());
    }
}

TEST(CfgRoute, RouteSectionNames)
{
    REQUIRE_SANDBOX();
    // clang-format off
    struct {
        const char *ifName, *addr, *mask;
        Section expected;
    } cases[] = {
        // The interface's own name in the section name, its section name in "interface".
        {"eth0", "224.0.0.0", "240.0.0.0", route("eth0_E0000000", "lan", "224.0.0.0", "240.0.0.0")},
        {"lan2", "10.1.0.0", "255.255.0.0", route("lan2_0A010000", "lan2", "10.1.0.0", "255.255.0.0")},
        // Any default route is the one section "gateway"; nothing is validated.
        {"eth0", "192.168.5.0", "0.0.0.0", route("gateway", "lan", "192.168.5.0", "0.0.0.0")},
        {"eth0", "bogus", "255.0.0.0 ", route("eth0_FFFFFFFF", "lan", "bogus", "255.0.0.0 ")},
    };
    // clang-format on
    for (const auto &c : cases) {
        SCOPED_TRACE(c.expected.name);
        install({loopback(), kStart});
        FdCheck fds;
        EXPECT_EQ(0, NET_SetRouteCfg(c.ifName, c.addr, c.mask));
        EXPECT_EQ(file(kStart, {c.expected}), stored());
    }
}

TEST(CfgRoute, EditorsInSequence)
{
    REQUIRE_SANDBOX();
    install({loopback(), kStart});
    const Lines dns2 = {"192.168.1.1", "8.8.8.8"};
    const Lines dns4 = {"192.168.1.1", "8.8.8.8", "8.8.8.8", "9.9.9.9"};
    const Lines dns5 = {"192.168.1.1", "8.8.8.8", "8.8.8.8", "9.9.9.9", "1.0.0.1"};
    const Lines dnsB = {"192.168.1.1", "1.0.0.1"};
    const Section r1 = route("eth0_0A010000", "lan", "10.1.0.0", "255.255.0.0");
    const Section r2 = route("eth0_0A010000", "lan", "10.1.0.0", "255.255.255.0");
    const Section gw = route("gateway", "lan2", "10.9.0.0", "0.0.0.0");
    // clang-format off
    struct {
        const char *what;
        std::function<int()> call;
        Section lan;
        std::vector<Section> routes;
    } steps[] = {
        {"append master", [] { return NET_SetDnsCfg("eth0", "8.8.8.8", nullptr); }, lan("192.168.1.1", dns2), {}},
        {"duplicates are kept", [] { return NET_SetDnsCfg("eth0", "8.8.8.8", "9.9.9.9"); }, lan("192.168.1.1", dns4), {}},
        {"slaver only", [] { return NET_SetDnsCfg("eth0", nullptr, "1.0.0.1"); }, lan("192.168.1.1", dns5), {}},
        {"delete every copy", [] { return NET_DelDnsCfg("eth0", "8.8.8.8", "9.9.9.9"); }, lan("192.168.1.1", dnsB), {}},
        {"mtu 100", [] { return NET_SetMtuCfg("eth0", 100); }, lan("192.168.1.1", dnsB, "100"), {}},
        {"default mtu is not stored", [] { return NET_SetMtuCfg("eth0", 1500); }, lan("192.168.1.1", dnsB), {}},
        {"gateway, not validated", [] { return NET_SetGatewayCfg("eth0", "10.0.0.1x"); }, lan("10.0.0.1x", dnsB), {}},
        {"delete gateway", [] { return NET_DelGatewayCfg("eth0"); }, lan(nullptr, dnsB), {}},
        {"route", [] { return NET_SetRouteCfg("eth0", "10.1.0.0", "255.255.0.0"); }, lan(nullptr, dnsB), {r1}},
        {"another mask: the same section", [] { return NET_SetRouteCfg("eth0", "10.1.0.0", "255.255.255.0"); }, lan(nullptr, dnsB), {r2}},
        {"default route", [] { return NET_SetRouteCfg("lan2", "10.9.0.0", "0.0.0.0"); }, lan(nullptr, dnsB), {r2, gw}},
        {"delete by destination, any mask", [] { return NET_DelRouteCfg("eth0", "10.1.0.0", "255.0.0.0"); }, lan(nullptr, dnsB), {gw}},
    };
    // clang-format on
    for (const auto &s : steps) {
        SCOPED_TRACE(s.what);
        FdCheck fds;
        EXPECT_EQ(0, s.call());
        EXPECT_EQ(file(s.lan, s.routes), stored());
    }
}

TEST(CfgServices, ReadsBothPortSections)
{
    REQUIRE_SANDBOX();
    install(services());
    FdCheck fds;
    NetPortCfg cfg = {};
    cfg.usSparePort = 0x7777; // never read
    ASSERT_EQ(0, NET_GetPortCfg(&cfg));
    EXPECT_EQ("80 554 443 8000 30583 8001 map 1 1 'front door' 8080 8554 8443 8000 9001",
              text(cfg));
}

TEST(CfgServices, AbsentPortOptionsKeepTheCallersValuesExceptTheDefaults)
{
    REQUIRE_SANDBOX();
    const std::string alias(70, 'a');
    install("config port 'port'\n\toption rtspport '70000'\n"
            "config portmapping 'portmapping'\n\toption alias '" +
            alias + "'\n");
    NetPortCfg cfg, expect;
    memset(&cfg, 0x11, sizeof cfg);
    cfg.szAlias[64] = '\0'; // zeroed by the caller, as callers do
    ASSERT_EQ(0, NET_GetPortCfg(&cfg));
    memset(&expect, 0x11, sizeof expect);
    expect.usRtspPort = 70000 & 0xFFFF; // the low 16 bits
    expect.usSdcPort = 8000;
    expect.usPriSrvPort = 9000;
    expect.usExtPriSrvPort = 9000;
    memcpy(expect.szAlias, alias.c_str(), 64);
    expect.szAlias[64] = '\0';
    EXPECT_EQ(0, memcmp(&expect, &cfg, sizeof cfg));
    // Without the mapping section the call fails, the ports read so far filled in.
    install("config port 'port'\n\toption httpport 8081\n");
    EXPECT_EQ(-1, NET_GetPortCfg(&cfg));
    EXPECT_EQ(8081, cfg.usHttpPort);
}

TEST(CfgServices, SetWritesHttpRtspAndTheMappingOnly)
{
    REQUIRE_SANDBOX();
    struct {
        int mode;
        const char *alias;
        Lines extPorts; // as stored
    } cases[] = {
        // Mode 0 stores the standard external ports whatever the record says.
        {0, "gate", ext("80", "554", "443", "8000")},
        {2, "", ext("8081", "8555", "8444", "8001")},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.mode);
        install(services());
        NetPortCfg cfg = {81, 555, 444, 8002, 1, 9002, 1, c.mode, "", 8081, 8555, 8444, 8001, 9003};
        strcpy(cfg.szAlias, c.alias);
        FdCheck fds;
        ASSERT_EQ(0, NET_SetPortCfg(cfg));
        // "httpsport", "prisrvport" and "extprisrvport" stay as they were; an empty alias
        // goes away, as an empty value does in UCI.
        std::vector<Section> expect = services();
        expect[0] = port("81", "555");
        expect[1] = mapping(std::to_string(c.mode), c.alias, c.extPorts);
        EXPECT_EQ(uci_text(expect), stored());
    }
}

// One field of each kind: int, port, text that fits, text cut at the field size, word.
TEST(CfgServices, DdnsAndPppoeFieldsAreReadByKind)
{
    REQUIRE_SANDBOX();
    const std::string user(40, 'u');
    install("config ddns ddns\n\toption type 7\n\toption port '8245'\n"
            "\toption serverdomain \"members.example.net\"\n\toption username '" +
            user + "'\nconfig pppoe pppoe\n\toption interface 'eth0'\n");
    FdCheck fds;
    NetDdnsCfg d = {};
    NetPppoeCfg p = {};
    ASSERT_EQ(0, NET_GetDdnsCfg(&d));
    ASSERT_EQ(0, NET_GetPppoeCfg(&p));
    EXPECT_EQ(7, d.iType);
    EXPECT_EQ(8245, d.usPort);
    EXPECT_STREQ("members.example.net", d.szServerDomain);
    EXPECT_EQ(user.substr(0, 32), d.szUserName);
    EXPECT_STREQ("eth0", p.szInterface);
    // An empty section leaves the record as it was.
    install("config ddns 'ddns'\n");
    NetDdnsCfg before;
    memset(&d, 0x5a, sizeof d);
    memcpy(&before, &d, sizeof d);
    EXPECT_EQ(0, NET_GetDdnsCfg(&d));
    EXPECT_EQ(0, memcmp(&before, &d, sizeof d));
}

TEST(CfgServices, SettersStoreEveryFieldAsGiven)
{
    REQUIRE_SANDBOX();
    install(services());
    FdCheck fds;
    NetDdnsCfg d = {1, 7, "dyn.example.org", "door.example.org", 8245, "me", "pa'ss \"w\""};
    ASSERT_EQ(0, NET_SetDdnsCfg(&d));
    // A full field without a terminator is stored whole, and nothing past it.
    NetPppoeCfg p = {0, "ppp0", "dsl-user", ""};
    memset(p.szPassword, 'p', sizeof p.szPassword);
    ASSERT_EQ(0, NET_SetPppoeCfg(p));
    std::vector<Section> expect = services();
    expect[2].lines = {opt("enable", "1"),
                       opt("port", "8245"),
                       opt("username", "me"),
                       opt("type", "7"),
                       opt("serverdomain", "dyn.example.org"),
                       opt("ddnsdomain", "door.example.org"),
                       opt("password", "pa'\\''ss \"w\"")};
    expect[3] = pppoe("0", "ppp0", std::string(17, 'p'));
    EXPECT_EQ(uci_text(expect), stored());
}
