// Stored DNS servers, static routes, MTU and gateway, on the real file as the uci tool
// writes it: each editor's effect on the file, its failures and their log lines.
#include <functional>
#include <string>
#include <vector>

#include "libnetwork.h"
#include "sandbox.h"
#include "config_support.h"

using namespace modeltest;
using sandbox::FdCheck;
using sandbox::LogCapture;

namespace
{

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

} // namespace

TEST(CfgRoute, RouteSectionNames)
{
    REQUIRE_SANDBOX();
    struct {
        const char *ifName, *addr, *mask;
        Section expected;
    } cases[] = {
        // The interface's own name in the section name, its section name in "interface".
        {"eth0", "224.0.0.0", "240.0.0.0", route("eth0_E0000000", "lan", "224.0.0.0", "240.0.0.0")},
        {"lan2", "10.1.0.0", "255.255.0.0",
         route("lan2_0A010000", "lan2", "10.1.0.0", "255.255.0.0")},
        // Any default route is the one section "gateway"; nothing is validated.
        {"eth0", "192.168.5.0", "0.0.0.0", route("gateway", "lan", "192.168.5.0", "0.0.0.0")},
        {"eth0", "bogus", "255.0.0.0 ", route("eth0_FFFFFFFF", "lan", "bogus", "255.0.0.0 ")},
    };
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
    const std::string i = ptr("eth0"), n = ptr(nullptr), a = ptr("1.2.3.4");
    const Lines dns2 = {"192.168.1.1", "8.8.8.8"};
    const Lines dns4 = {"192.168.1.1", "8.8.8.8", "8.8.8.8", "9.9.9.9"};
    const Lines dns5 = {"192.168.1.1", "8.8.8.8", "8.8.8.8", "9.9.9.9", "1.0.0.1"};
    const Lines dnsB = {"192.168.1.1", "1.0.0.1"};
    const Section gw = route("gateway", "lan2", "10.9.0.0", "0.0.0.0");
    struct {
        const char *what;
        std::function<int()> call;
        int result;
        Section lan;
        std::vector<Section> routes;
        Lines log;
    } steps[] = {
        {"append master",
         [] { return NET_SetDnsCfg("eth0", "8.8.8.8", nullptr); },
         0,
         lan("192.168.1.1", dns2),
         {},
         {}},
        {"duplicates are kept",
         [] { return NET_SetDnsCfg("eth0", "8.8.8.8", "9.9.9.9"); },
         0,
         lan("192.168.1.1", dns4),
         {},
         {}},
        {"slaver only",
         [] { return NET_SetDnsCfg("eth0", nullptr, "1.0.0.1"); },
         0,
         lan("192.168.1.1", dns5),
         {},
         {}},
        {"delete every copy",
         [] { return NET_DelDnsCfg("eth0", "8.8.8.8", "9.9.9.9"); },
         0,
         lan("192.168.1.1", dnsB),
         {},
         {}},
        {"master not stored",
         [] { return NET_DelDnsCfg("eth0", "7.7.7.7", nullptr); },
         -1,
         lan("192.168.1.1", dnsB),
         {},
         {plain("NET_DelUciList", "Delete uci list failed, list: dns.\\n"),
          plain("NET_DelDnsCfg", "Delete master dns failed \\n")}},
        {"slave not stored: the master stays too",
         [] { return NET_DelDnsCfg("eth0", "192.168.1.1", "7.7.7.7"); },
         -1,
         lan("192.168.1.1", dnsB),
         {},
         {plain("NET_DelUciList", "Delete uci list failed, list: dns.\\n"),
          plain("NET_DelDnsCfg", "Delete slave dns failed \\n")}},
        {"no servers",
         [] { return NET_SetDnsCfg("eth0", nullptr, nullptr); },
         -1,
         lan("192.168.1.1", dnsB),
         {},
         {param("NET_SetDnsCfg",
                "pcIfName: " + i + ", pcMaster: " + n + ", pcSlaver: " + n + ".\\n")}},
        {"mtu too small",
         [] { return NET_SetMtuCfg("eth0", 99); },
         -1,
         lan("192.168.1.1", dnsB),
         {},
         {param("NET_SetMtuCfg", "pcIfName: " + i + ", iMtuVal: 99.\\n")}},
        {"mtu too big",
         [] { return NET_SetMtuCfg("eth0", 1501); },
         -1,
         lan("192.168.1.1", dnsB),
         {},
         {param("NET_SetMtuCfg", "pcIfName: " + i + ", iMtuVal: 1501.\\n")}},
        {"mtu 100",
         [] { return NET_SetMtuCfg("eth0", 100); },
         0,
         lan("192.168.1.1", dnsB, "100"),
         {},
         {}},
        {"default mtu is not stored",
         [] { return NET_SetMtuCfg("eth0", 1500); },
         0,
         lan("192.168.1.1", dnsB),
         {},
         {}},
        {"no mtu to delete",
         [] { return NET_SetMtuCfg("eth0", 1500); },
         0,
         lan("192.168.1.1", dnsB),
         {},
         {plain("NET_SetMtuCfg", "There is no mtu opt \\n")}},
        {"gateway, not validated",
         [] { return NET_SetGatewayCfg("eth0", "10.0.0.1x"); },
         0,
         lan("10.0.0.1x", dnsB),
         {},
         {}},
        {"delete gateway", [] { return NET_DelGatewayCfg("eth0"); }, 0, lan(nullptr, dnsB), {}, {}},
        {"no gateway to delete",
         [] { return NET_DelGatewayCfg("eth0"); },
         -1,
         lan(nullptr, dnsB),
         {},
         {plain("NET_DelGatewayCfg", "Delete ipv4 gateway failed \\n")}},
        {"no interface section",
         [] { return NET_SetGatewayCfg("lan2", "10.0.0.1"); },
         -1,
         lan(nullptr, dnsB),
         {},
         no_section("NET_SetGatewayCfg", "lan2")},
        {"route",
         [] { return NET_SetRouteCfg("eth0", "10.1.0.0", "255.255.0.0"); },
         0,
         lan(nullptr, dnsB),
         {route("eth0_0A010000", "lan", "10.1.0.0", "255.255.0.0")},
         {}},
        {"same route again",
         [] { return NET_SetRouteCfg("eth0", "10.1.0.0", "255.255.0.0"); },
         0,
         lan(nullptr, dnsB),
         {route("eth0_0A010000", "lan", "10.1.0.0", "255.255.0.0")},
         {}},
        {"another mask: the same section",
         [] { return NET_SetRouteCfg("eth0", "10.1.0.0", "255.255.255.0"); },
         0,
         lan(nullptr, dnsB),
         {route("eth0_0A010000", "lan", "10.1.0.0", "255.255.255.0")},
         {}},
        {"default route",
         [] { return NET_SetRouteCfg("lan2", "10.9.0.0", "0.0.0.0"); },
         0,
         lan(nullptr, dnsB),
         {route("eth0_0A010000", "lan", "10.1.0.0", "255.255.255.0"), gw},
         {}},
        {"delete by destination, any mask",
         [] { return NET_DelRouteCfg("eth0", "10.1.0.0", "255.0.0.0"); },
         0,
         lan(nullptr, dnsB),
         {gw},
         {}},
        {"route not stored",
         [] { return NET_DelRouteCfg("eth0", "10.1.0.0", "255.255.0.0"); },
         -1,
         lan(nullptr, dnsB),
         {gw},
         no_section("NET_DelRouteCfg", "eth0_0A010000")},
        {"null mask",
         [] { return NET_SetRouteCfg("eth0", "1.2.3.4", nullptr); },
         -1,
         lan(nullptr, dnsB),
         {gw},
         {param("NET_SetRouteCfg",
                "pcIfName: " + i + ", pcAddr: " + a + ", pcMask: " + n + ".\\n")}},
    };
    for (const auto &s : steps) {
        SCOPED_TRACE(s.what);
        FdCheck fds;
        LogCapture log;
        EXPECT_EQ(s.result, s.call());
        EXPECT_EQ(s.log, log.texts());
        EXPECT_EQ(file(s.lan, s.routes), stored());
    }
}

TEST(CfgRoute, CommitFailuresChangeNothing)
{
    REQUIRE_SANDBOX();
    install({loopback(), kStart, route("eth0_0A010000", "lan", "10.1.0.0", "255.255.0.0")});
    const std::string before = stored();
    struct {
        int (*call)();
        std::string own;
    } cases[] = {
        {[] { return NET_SetRouteCfg("eth0", "10.2.0.0", "255.255.0.0"); },
         tagged("NET_SetRouteCfg", "PL_COMMIT_ERROR_PRINT", "\\n")},
        {[] { return NET_DelRouteCfg("eth0", "10.1.0.0", "255.255.0.0"); },
         plain("NET_DelRouteCfg", "\\n")},
        {[] { return NET_DelDnsCfg("eth0", "192.168.1.1", nullptr); },
         plain("NET_DelDnsCfg", "commit failed\\n")},
        {[] { return NET_SetMtuCfg("eth0", 1400); }, plain("NET_SetMtuCfg", "commit failed\\n")},
    };
    ReadOnlyConfig ro;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.own);
        FdCheck fds;
        LogCapture log;
        EXPECT_EQ(-1, c.call());
        EXPECT_EQ((Lines{plain("NET_UciCommit", "commit failed\\n"), c.own}), log.texts());
        EXPECT_EQ(before, stored());
    }
}
