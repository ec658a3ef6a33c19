// The interface record through the real "network" file: the mode combinations written and
// read back (stored and live values), and the reading rules. The two-interface refusals are
// in the device suite.
#include <string.h>

#include <string>
#include <vector>

#include "libnetwork.h"
#include "sandbox.h"
#include "config_support.h"

using namespace cfgtest;
using sandbox::FdCheck;

namespace
{

const Lines kLanStart = {opt("ifname", "eth0"),
                         opt("proto", "static"),
                         opt("ipaddr", "192.168.1.70"),
                         opt("netmask", "255.255.0.0"),
                         opt("gateway", "192.168.1.254"),
                         item("dns", "192.168.1.1"),
                         opt("ip6addr", "2001:db8::40/64"),
                         opt("ip6gw", "2001:db8::1")};

NetEtherCfg record(int v4, int v6, const char *addr = "10.0.0.5",
                   const char *v6addr = "2001:db8:9::5")
{
    NetEtherCfg c;
    memset(&c, 0, sizeof c);
    strcpy(c.szIfName, "ignored");
    c.iCardType = 3;
    c.iIpv4Mode = v4;
    c.iMtu = 1400;
    strcpy(c.szIpv4Addr, addr);
    strcpy(c.szIpv4Mask, "255.255.255.0");
    strcpy(c.szIpv4Gateway, "10.0.0.1");
    c.iIpv6Mode = v6;
    strcpy(c.szIpv6Addr, v6addr);
    c.iIpv6PrefixLen = 64;
    strcpy(c.szIpv6Gateway, "2001:db8:9::1");
    strcpy(c.szDns1, "10.0.0.53");
    strcpy(c.szDns2, "10.0.0.54");
    return c;
}

// The record as one line, for readable comparisons.
std::string text(const NetEtherCfg &c)
{
    char buf[512];
    snprintf(
        buf, sizeof buf,
        "%.16s card=%d v4=%d mtu=%d %.16s/%.16s gw %.16s v6=%d %.46s/%d gw %.46s dns %.16s %.16s",
        c.szIfName, c.iCardType, c.iIpv4Mode, c.iMtu, c.szIpv4Addr, c.szIpv4Mask, c.szIpv4Gateway,
        c.iIpv6Mode, c.szIpv6Addr, c.iIpv6PrefixLen, c.szIpv6Gateway, c.szDns1, c.szDns2);
    return buf;
}

std::string read_back(const char *ifname, NetEtherCfg c = NetEtherCfg())
{
    EXPECT_EQ(0, NET_GetEtherCfg(ifname, &c));
    return text(c);
}

// The device's one port: live IPv4 and IPv6 state differing from what is stored.
class EtherCfg : public ::testing::Test
{
  protected:
    void SetUp() override
    {
        REQUIRE_SANDBOX();
        sandbox::veth("eth0", "nb0", &peer_);
        sandbox::set_mac("eth0", "02:11:22:33:44:55");
        sandbox::addr_add("eth0", "192.168.1.64/24");
        sandbox::addr_add("eth0", "2001:db8:1:0:11:22ff:fe33:4455/64"); // EUI-64 of the MAC
        sandbox::addr_add("eth0", "2001:db8:1::100/64");
        sandbox::must("ip route add default via 192.168.1.1 dev eth0 && "
                      "ip -6 route add default via fe80::1 dev eth0");
        sandbox::write_file("/etc/resolv.conf",
                            "# Interface lan\nnameserver 192.168.1.1\nnameserver 8.8.4.4\n");
        install({loopback(), {"interface", "lan", kLanStart}});
    }
    sandbox::Peer peer_;
};

} // namespace

TEST_F(EtherCfg, EveryModeCombinationThroughTheFile)
{
    const Lines newV4 = {opt("ipaddr", "10.0.0.5"), opt("netmask", "255.255.255.0"),
                         opt("gateway", "10.0.0.1")};
    const Lines oldV4 = {kLanStart[2], kLanStart[3], kLanStart[4]};
    const Lines v6 = {opt("ip6addr", "2001:db8:9::5/64"), opt("ip6gw", "2001:db8:9::1")};
    const std::string storedV4 = "10.0.0.5/255.255.255.0 gw 10.0.0.1";
    const std::string liveV4 = "192.168.1.64/255.255.255.0 gw 192.168.1.1";
    const std::string oldV4Text = "192.168.1.70/255.255.0.0 gw 192.168.1.254";
    const std::string storedV6 = "2001:db8:9::5/64 gw 2001:db8:9::1";
    const std::string dhcpv6 = "2001:db8:1::100/64 gw fe80::1";
    const std::string advertised = "2001:db8:1:0:11:22ff:fe33:4455/64 gw fe80::1";
    const std::string none6 = "/0 gw fe80::1";
    struct {
        int v4, v6;
        const char *proto;
        Lines v4Lines; // the IPv4 options left in the file
        std::string readV4, readV6;
    } cases[] = {
        {0, 1, "static", newV4, storedV4, storedV6}, {1, 1, "dhcp", {}, liveV4, storedV6},
        {5, 0, "dhcpv6", oldV4, oldV4Text, dhcpv6}, // neither written nor deleted
        {1, 2, "dhcpv6", {}, liveV4, advertised},    {7, 7, "dhcpv6", oldV4, oldV4Text, none6},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE("v4 " + std::to_string(c.v4) + " v6 " + std::to_string(c.v6));
        install({loopback(), {"interface", "lan", kLanStart}});
        FdCheck fds;
        NetEtherCfg in = record(c.v4, c.v6);
        ASSERT_EQ(0, NET_SetEtherCfg("eth0", &in));
        Lines lan = {kLanStart[0], opt("proto", c.proto)};
        lan.insert(lan.end(), c.v4Lines.begin(), c.v4Lines.end());
        if (c.v6 == 1)
            lan.insert(lan.end(), v6.begin(), v6.end());
        lan.insert(lan.end(), {opt("cardtype", "3"), opt("ipv4dhcp", std::to_string(c.v4)),
                               opt("ipv6dhcp", std::to_string(c.v6)), opt("mtu", "1400")});
        if (c.v4 != 1) // DHCP leaves no stored servers
            lan.insert(lan.end(), {item("dns", "10.0.0.53"), item("dns", "10.0.0.54")});
        EXPECT_EQ(uci_text({loopback(), {"interface", "lan", lan}}), stored());

        std::string dns = c.v4 == 1 ? "192.168.1.1 8.8.4.4" : "10.0.0.53 10.0.0.54";
        EXPECT_EQ("eth0 card=3 v4=" + std::to_string(c.v4) + " mtu=1400 " + c.readV4 +
                      " v6=" + std::to_string(c.v6) + " " + c.readV6 + " dns " + dns,
                  read_back("eth0"));
    }
}

TEST_F(EtherCfg, InvalidAddressesAreSkipped)
{
    NetEtherCfg in = record(0, 1, "10.0.0.256", "fe80::5");
    ASSERT_EQ(0, NET_SetEtherCfg("eth0", &in));
    Lines lan = kLanStart;
    lan.erase(lan.begin() + 5); // the dns list moves to the end
    lan.insert(lan.end(), {opt("cardtype", "3"), opt("ipv4dhcp", "0"), opt("ipv6dhcp", "1"),
                           opt("mtu", "1400"), item("dns", "10.0.0.53"), item("dns", "10.0.0.54")});
    EXPECT_EQ(uci_text({loopback(), {"interface", "lan", lan}}), stored());
}

// What the mode table does not read: absent options keep the caller's values (no mtu is 1500),
// the last of several servers is the second, an address without a prefix length.
TEST_F(EtherCfg, ReadingRules)
{
    NetEtherCfg preset;
    memset(&preset, 0, sizeof preset);
    preset.iCardType = 42;
    preset.iIpv6Mode = 1;
    preset.iIpv6PrefixLen = 99;
    install({{"interface",
              "lan",
              {item("dns", "10.0.0.1"), item("dns", "10.0.0.2"), item("dns", "10.0.0.3"),
               opt("ip6addr", "2001:db8::7")}}});
    EXPECT_EQ("eth0 card=42 v4=0 mtu=1500 / gw  v6=1 2001:db8::7/99 gw  dns 10.0.0.1 10.0.0.3",
              read_back("eth0", preset));
}

// The automatic IPv6 modes need the live list; without it the package stays open.
TEST_F(EtherCfg, AutomaticIpv6ModeOfAMissingDeviceFails)
{
    LeakAllowed leak;
    install({{"interface", "nosuch0", {opt("ipv6dhcp", "2")}}});
    NetEtherCfg c = record(0, 0);
    EXPECT_EQ(-1, NET_GetEtherCfg("nosuch0", &c));
}

// Only the two ports of a two-interface device are checked against each other.
TEST_F(EtherCfg, OtherNamesAndOneInterfaceDevicesWriteUnchecked)
{
    sandbox::set_device("lan1,lan2");
    NET_Init();
    sandbox::veth("lan2", "nb2", &peer_);
    sandbox::addr_add("lan2", "192.168.2.10/24");
    const Lines lan2 = {opt("ipv4dhcp", "0"), opt("ipaddr", "192.168.2.10"),
                        opt("netmask", "255.255.255.0")};
    install({{"interface", "lan1", {}}, {"interface", "lan2", lan2}, {"interface", "wan0", {}}});
    NetEtherCfg in = record(0, 1, "192.168.2.10");
    EXPECT_EQ(0, NET_SetEtherCfg("wan0", &in));
    EXPECT_EQ(-20, NET_SetEtherCfg("lan1", &in));
    sandbox::set_device("lan1");
    NET_Init();
    EXPECT_EQ(0, NET_SetEtherCfg("lan1", &in));
    // Both written whole, the same way.
    const Lines written = {opt("cardtype", "3"),
                           opt("ipv4dhcp", "0"),
                           opt("ipv6dhcp", "1"),
                           opt("ipaddr", "192.168.2.10"),
                           opt("netmask", "255.255.255.0"),
                           opt("gateway", "10.0.0.1"),
                           opt("mtu", "1400"),
                           item("dns", "10.0.0.53"),
                           item("dns", "10.0.0.54"),
                           opt("ip6addr", "2001:db8:9::5/64"),
                           opt("ip6gw", "2001:db8:9::1"),
                           opt("proto", "static")};
    EXPECT_EQ(uci_text({{"interface", "lan1", written},
                        {"interface", "lan2", lan2},
                        {"interface", "wan0", written}}),
              stored());
}
