// Address and DHCP mode editors of an interface's section, on the real "network" file.
#include <string.h>

#include <string>

#include "libnetwork.h"
#include "sandbox.h"
#include "config_support.h"

using namespace cfgtest;
using sandbox::FdCheck;
using sandbox::LogCapture;

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

TEST(CfgAddr, SetIpv4AddrStoresAddressAndMaskOnly)
{
    REQUIRE_SANDBOX();
    install();
    FdCheck fds;
    EXPECT_EQ(0, NET_SetIpv4AddrCfg("eth0", "10.0.0.7", "999.0.0.0")); // not validated
    std::string lan = block(kCommitted, "lan");
    lan.replace(lan.find("192.168.1.64"), 12, "10.0.0.7");
    lan.replace(lan.find("255.255.255.0"), 13, "999.0.0.0");
    EXPECT_EQ(with_block(kCommitted, "lan", lan), stored());
}

TEST(CfgAddr, SetIpv4AddrRefusals)
{
    REQUIRE_SANDBOX();
    install();
    const char *addr = "10.0.0.7", *mask = "255.0.0.0";
    const std::string N = ptr_text(nullptr);
    struct {
        const char *ifName, *addr, *mask;
        Lines lines;
    } cases[] = {
        {"eth0",
         nullptr,
         mask,
         {param("NET_SetIpv4AddrCfg", "pcIfName: " + ptr_text("eth0") + ", pcIpv4Addr: " + N +
                                          ", pcIpv4Mask: " + ptr_text(mask) + ".\\n")}},
        {"eth0",
         addr,
         nullptr,
         {param("NET_SetIpv4AddrCfg", "pcIfName: " + ptr_text("eth0") + ", pcIpv4Addr: " +
                                          ptr_text(addr) + ", pcIpv4Mask: " + N + ".\\n")}},
        // The name is not checked up front: it fails at the section lookup.
        {nullptr,
         addr,
         mask,
         {param("NET_GetSection", "pstPackage: PKG, pcSecName: " + N + ".\\n"),
          plain("NET_SetIpv4AddrCfg", "section: (null).\\n")}},
        {"lan9", addr, mask, no_section("NET_SetIpv4AddrCfg", "lan9")},
    };
    for (auto &c : cases) {
        FdCheck fds;
        LogCapture log;
        EXPECT_EQ(-1, NET_SetIpv4AddrCfg(c.ifName, c.addr, c.mask));
        Lines got = log.texts();
        for (std::string &l : got) { // the package's address differs from run to run
            size_t at = l.find("pstPackage: 0x");
            if (at != std::string::npos)
                l.replace(at + 12, l.find(',', at) - at - 12, "PKG");
        }
        EXPECT_EQ(c.lines, got);
    }
    EXPECT_EQ(kHandWritten, stored());
}

TEST(CfgAddr, Ipv6AddressIsStoredWithItsPrefixAndReadWithout)
{
    REQUIRE_SANDBOX();
    install();
    FdCheck fds;
    ASSERT_EQ(0, NET_SetIpv6AddrCfg("eth0", "2001:db8::5", 64));
    std::string lan = block(kCommitted, "lan");
    lan.replace(lan.find("2001:db8::40/64"), 15, "2001:db8::5/64");
    EXPECT_EQ(with_block(kCommitted, "lan", lan), stored());
    char addr[64];
    memset(addr, 'X', sizeof addr);
    EXPECT_EQ(0, NET_GetIpv6AddrCfg("eth0", addr));
    EXPECT_STREQ("2001:db8::5", addr);
    // A result longer than 63 characters is cut there.
    const std::string longAddr(70, 'a');
    ASSERT_EQ(0, NET_SetIpv6AddrCfg("eth0", longAddr.c_str(), 128));
    EXPECT_EQ(0, NET_GetIpv6AddrCfg("eth0", addr));
    EXPECT_EQ(std::string(63, 'a'), addr);
}

TEST(CfgAddr, GetIpv6AddrReadsByCommitting)
{
    REQUIRE_SANDBOX();
    install(lan_hand("\toption ip6addr \"2001:db8::9\"\n"));
    char addr[64] = {0};
    {
        FdCheck fds;
        EXPECT_EQ(0, NET_GetIpv6AddrCfg("eth0", addr)); // no "/": the whole text
        EXPECT_STREQ("2001:db8::9", addr);
        EXPECT_EQ(lan_hand("\toption ip6addr \"2001:db8::9\"\n"), stored()); // nothing changed
    }
    {
        // The read ends in a commit, so a commit failure fails it after the copy.
        ReadOnlyConfig readOnly;
        LogCapture log;
        memset(addr, 0, sizeof addr);
        EXPECT_EQ(-1, NET_GetIpv6AddrCfg("eth0", addr));
        EXPECT_STREQ("2001:db8::9", addr);
        EXPECT_EQ(commit_failed("NET_GetIpv6AddrCfg"), log.texts());
    }
    install(lan_hand("\toption proto static\n"));
    LogCapture log;
    EXPECT_EQ(-1, NET_GetIpv6AddrCfg("eth0", addr));
    EXPECT_EQ(-1, NET_SetIpv6AddrCfg("lan2", "2001:db8::1", 64));
    EXPECT_EQ((Lines{plain("NET_GetIpv6AddrCfg", "option: ip6addr.\\n"),
                     plain("NET_GetSection", "lan2.\\n"), plain("NET_SetIpv6AddrCfg", "lan2.\\n")}),
              log.texts());
}

TEST(CfgAddr, ModeQueriesAnswerOneOnlyForExactlyOne)
{
    REQUIRE_SANDBOX();
    struct {
        const char *stored; // null: option absent
        int mode;
    } cases[] = {{"1", 1}, {"0", 0}, {"01", 0}, {" 1", 0}, {"1 ", 0}, {"2", 0}, {nullptr, 0}};
    struct {
        int (*query)(const char *);
        const char *func, *option;
    } queries[] = {{NET_IsDhcpMode, "NET_IsDhcpMode", "ipv4dhcp"},
                   {NET_IsDhcpv6Mode, "NET_IsDhcpv6Mode", "ipv6dhcp"}};
    for (const auto &q : queries) {
        for (const auto &c : cases) {
            install(lan_hand(c.stored
                                 ? std::string("\toption ") + q.option + " '" + c.stored + "'\n"
                                 : "\toption proto dhcp\n"));
            FdCheck fds;
            LogCapture log;
            EXPECT_EQ(c.mode, q.query("eth0")) << q.func << " " << (c.stored ? c.stored : "-");
            EXPECT_EQ(c.stored ? Lines{}
                               : Lines{plain(q.func, std::string("option: ") + q.option + ".\\n")},
                      log.texts());
        }
        // Every error reads as "not DHCP".
        LogCapture log;
        EXPECT_EQ(0, q.query(nullptr));
        EXPECT_EQ(0, q.query("lan1"));
        sandbox::must("rm /etc/config/network");
        EXPECT_EQ(0, q.query("eth0"));
        Lines expect = {param(q.func, "pcIfName: " + ptr_text(nullptr) + ".\\n")};
        for (const std::string &l : no_section(q.func, "lan1"))
            expect.push_back(l);
        for (const std::string &l : no_package(q.func))
            expect.push_back(l);
        EXPECT_EQ(expect, log.texts());
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
        Lines lines;
    } cases[] = {
        {NET_EnableDhcpCfg, "static", v4on + v6off, nullptr, {}},
        {NET_EnableDhcpCfg, "static", v4off + v6off, "dhcp", {}},
        {NET_EnableDhcpCfg, "static", v4off + v6on, "dhcpv6", {}},
        {NET_EnableDhcpCfg,
         "static",
         "",
         "dhcp",
         {plain("NET_IsDhcpMode", "option: ipv4dhcp.\\n"),
          plain("NET_IsDhcpv6Mode", "option: ipv6dhcp.\\n")}},
        {NET_DisableDhcpCfg, "dhcp", v4off + v6on, nullptr, {}},
        {NET_DisableDhcpCfg,
         "dhcp",
         "",
         nullptr,
         {plain("NET_IsDhcpMode", "option: ipv4dhcp.\\n")}},
        {NET_DisableDhcpCfg, "dhcp", v4on + v6off, "static", {}},
        {NET_DisableDhcpCfg, "dhcp", v4on + v6on, "dhcpv6", {}},
    };
    for (const auto &c : cases) {
        const std::string hand =
            lan_hand("\toption proto " + std::string(c.oldProto) + "\n" + c.modes);
        install(hand);
        FdCheck fds;
        LogCapture log;
        EXPECT_EQ(0, c.change("eth0")) << c.modes;
        EXPECT_EQ(c.lines, log.texts()) << c.modes;
        // "ipv4dhcp" and "ipv6dhcp" stay as they were.
        EXPECT_EQ(c.newProto ? lan_committed("\toption proto '" + std::string(c.newProto) + "'\n" +
                                             c.modes)
                             : hand,
                  stored());
    }
}

TEST(CfgAddr, DhcpSwitchFailures)
{
    REQUIRE_SANDBOX();
    install(lan_hand("\toption ipv4dhcp '1'\n\toption ipv6dhcp '0'\n"));
    LogCapture log;
    EXPECT_EQ(-1, NET_EnableDhcpCfg(nullptr));
    EXPECT_EQ(-1, NET_DisableDhcpCfg(nullptr));
    {
        ReadOnlyConfig readOnly;
        EXPECT_EQ(-1, NET_DisableDhcpCfg("eth0"));
    }
    const std::string N = ptr_text(nullptr);
    Lines expect = {param("NET_EnableDhcpCfg", "pcIfName: " + N + ".\\n"),
                    param("NET_DisableDhcpCfg", "pcIfName: " + N + ".\\n")};
    for (const std::string &l : commit_failed("NET_DisableDhcpCfg", "\\n")) // deliberately bare
        expect.push_back(l);
    EXPECT_EQ(expect, log.texts());
    log.clear();
    sandbox::must("rm /etc/config/network");
    EXPECT_EQ(-1, NET_SetIpv4AddrCfg("eth0", "10.0.0.1", "255.0.0.0"));
    EXPECT_EQ(no_package("NET_SetIpv4AddrCfg"), log.texts());
}
