// Stored DNS servers, static routes, MTU and gateway, on the real file: each editor's effect
// on the file. Their refusals are in the access suite's table.
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
    const Lines dns2 = {"192.168.1.1", "8.8.8.8"};
    const Lines dns4 = {"192.168.1.1", "8.8.8.8", "8.8.8.8", "9.9.9.9"};
    const Lines dns5 = {"192.168.1.1", "8.8.8.8", "8.8.8.8", "9.9.9.9", "1.0.0.1"};
    const Lines dnsB = {"192.168.1.1", "1.0.0.1"};
    const Section r1 = route("eth0_0A010000", "lan", "10.1.0.0", "255.255.0.0");
    const Section r2 = route("eth0_0A010000", "lan", "10.1.0.0", "255.255.255.0");
    const Section gw = route("gateway", "lan2", "10.9.0.0", "0.0.0.0");
    struct {
        const char *what;
        std::function<int()> call;
        Section lan;
        std::vector<Section> routes;
    } steps[] = {
        {"append master",
         [] { return NET_SetDnsCfg("eth0", "8.8.8.8", nullptr); },
         lan("192.168.1.1", dns2),
         {}},
        {"duplicates are kept",
         [] { return NET_SetDnsCfg("eth0", "8.8.8.8", "9.9.9.9"); },
         lan("192.168.1.1", dns4),
         {}},
        {"slaver only",
         [] { return NET_SetDnsCfg("eth0", nullptr, "1.0.0.1"); },
         lan("192.168.1.1", dns5),
         {}},
        {"delete every copy",
         [] { return NET_DelDnsCfg("eth0", "8.8.8.8", "9.9.9.9"); },
         lan("192.168.1.1", dnsB),
         {}},
        {"mtu 100", [] { return NET_SetMtuCfg("eth0", 100); }, lan("192.168.1.1", dnsB, "100"), {}},
        {"default mtu is not stored",
         [] { return NET_SetMtuCfg("eth0", 1500); },
         lan("192.168.1.1", dnsB),
         {}},
        {"gateway, not validated",
         [] { return NET_SetGatewayCfg("eth0", "10.0.0.1x"); },
         lan("10.0.0.1x", dnsB),
         {}},
        {"delete gateway", [] { return NET_DelGatewayCfg("eth0"); }, lan(nullptr, dnsB), {}},
        {"route",
         [] { return NET_SetRouteCfg("eth0", "10.1.0.0", "255.255.0.0"); },
         lan(nullptr, dnsB),
         {r1}},
        {"another mask: the same section",
         [] { return NET_SetRouteCfg("eth0", "10.1.0.0", "255.255.255.0"); },
         lan(nullptr, dnsB),
         {r2}},
        {"default route",
         [] { return NET_SetRouteCfg("lan2", "10.9.0.0", "0.0.0.0"); },
         lan(nullptr, dnsB),
         {r2, gw}},
        {"delete by destination, any mask",
         [] { return NET_DelRouteCfg("eth0", "10.1.0.0", "255.0.0.0"); },
         lan(nullptr, dnsB),
         {gw}},
    };
    for (const auto &s : steps) {
        SCOPED_TRACE(s.what);
        FdCheck fds;
        EXPECT_EQ(0, s.call());
        EXPECT_EQ(file(s.lan, s.routes), stored());
    }
}
