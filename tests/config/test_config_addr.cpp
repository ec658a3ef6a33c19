// Address and DHCP mode editors of an interface's section, on the real "network" file.
#include <string.h>

#include <string>

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
    char addr[64];
    memset(addr, 'X', sizeof addr);
    EXPECT_EQ(0, NET_GetIpv6AddrCfg("eth0", addr));
    EXPECT_STREQ("2001:db8::5", addr);
    // A result longer than 63 characters is cut there.
    ASSERT_EQ(0, NET_SetIpv6AddrCfg("eth0", std::string(70, 'a').c_str(), 128));
    EXPECT_EQ(0, NET_GetIpv6AddrCfg("eth0", addr));
    EXPECT_EQ(std::string(63, 'a'), addr);
    // No "/": the whole text, and the read changes nothing.
    install(lan_hand("\toption ip6addr \"2001:db8::9\"\n"));
    EXPECT_EQ(0, NET_GetIpv6AddrCfg("eth0", addr));
    EXPECT_STREQ("2001:db8::9", addr);
    EXPECT_EQ(lan_hand("\toption ip6addr \"2001:db8::9\"\n"), stored());
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
