// The driver tables and adapters: a C program calls the runtime table by position against
// real devices; the adapters' own decisions (null pointers, cut names, normalised modes,
// deleting only the current address) are checked here.
#include <string.h>

#include <string>

#include "libnetwork.h"
#include "sandbox.h"

// Runs the C caller (tests/c_drv_table.c) in a pid namespace of its own, where the ping's id
// matches, with the package present ("network") or absent ("older").
TEST(DrvTable, CCallerByPosition)
{
    REQUIRE_SANDBOX();
#if defined(__arm__)
    GTEST_SKIP() << "the C caller runs natively only: no binfmt emulation here";
#endif
    sandbox::Peer peer;
    sandbox::set_device("lan1,lan2");
    sandbox::veth("lan1", "nb1", &peer);
    sandbox::veth("lan2", "nb2", &peer);
    sandbox::addr_add("lan1", "192.168.1.10/24");
    sandbox::addr_add("lan1", "2001:db8:1::10/64");
    peer.must("ip addr add 192.168.1.1/24 dev nb1");
    sandbox::tap("tap0");
    for (const char *mode : {"older", "network"}) {
        if (strcmp(mode, "network") == 0)
            sandbox::write_file("/etc/config/network", "config interface 'lan1'\n\toption "
                                                       "ipv4dhcp '0'\n\nconfig interface "
                                                       "'lan2'\n\toption ipv4dhcp '0'\n");
        std::string out = sandbox::sh_out("unshare --pid --fork " NETLIB_BINARY_DIR
                                          "/tests/c_drv_table lan1 192.168.1.1 192.168.1.77 " +
                                          std::string(mode) + " 2>&1; echo status=$?");
        EXPECT_NE(std::string::npos, out.find("status=0")) << mode << "\n" << out;
    }
}

// The refusals of null pointers and the lines log readers match for them.
TEST(DrvAdapters, NullPointersAndCutNames)
{
    char buf[16];
    int n = 0;
    NetSpeedDuplexMode m;
    NetIpv6AddrList list;
    sandbox::LogCapture log;
    const std::pair<int, const char *> cases[] = {
        {createNetCfgInterface(nullptr), "createNetCfgInterface][] \"null pointer.\\n\""},
        {drv_net_GetEthName(nullptr, 16, &n), "pcEthName"},
        {drv_net_GetEthName(buf, 16, nullptr), "piEthNum"},
        {drv_net_GetIpv6Addr("lan1", nullptr, 16, &n), "pHostIp"},
        {drv_net_GetScopeGlobalAddr6("lan1", nullptr, 16, &n), "plinklocal"},
        {drv_net_GetIpv6AddrList(nullptr, &list), "pEthName"},
        {drv_net_GetIpv6AddrList("lan1", nullptr), "pstIpv6AddrList"},
        {drv_net_GetSpeedDuplex("lan1", nullptr), "enSpeedDupMode"},
        {drv_net_GetMaxSupportSpeedx(nullptr, &m), "pcIfName"},
        {drv_net_CheckIpv4Collision("lan1", "1.2.3.4", nullptr), "pbIsCollision"},
        {drv_net_GetLinkStatus(nullptr), "pcIfName"},
    };
    const std::vector<std::string> texts = log.texts();
    ASSERT_EQ(sizeof cases / sizeof cases[0], texts.size());
    for (size_t i = 0; i < texts.size(); ++i) {
        EXPECT_EQ(-1, cases[i].first) << cases[i].second;
        std::string line = cases[i].second;
        if (i > 0)
            line = "\"Invalid input param, " + line + ": (nil) \\n\"";
        EXPECT_NE(std::string::npos, texts[i].find(line)) << texts[i];
    }
    EXPECT_EQ(-2, drv_net_SetDefaultEth(nullptr));
    EXPECT_EQ(-2, drv_net_GetDefaultEth(nullptr, 16));
    EXPECT_EQ(0, drv_net_SetIpv6Gateway(nullptr, nullptr)) << "ignores its arguments";
    NetCfgInterface cfg;
    ASSERT_EQ(0, createNetCfgInterface(&cfg));
    EXPECT_EQ(reinterpret_cast<void *>(drv_net_GetIpcConfig),
              reinterpret_cast<void *>(cfg.pfnGetIpcConfig));

    sandbox::set_device("lan1,lan2");
    NET_Init();
    char small[6];
    memset(small, '#', sizeof small);
    ASSERT_EQ(0, drv_net_GetEthName(small, 4, &n)); // cut, without a terminator
    EXPECT_EQ(0, memcmp("lan1##", small, 6));
    ASSERT_EQ(0, drv_net_SetDefaultEth("abcdefghijklmnopqrst"));
    char card[32] = {0};
    ASSERT_EQ(0, drv_net_GetDefaultEth(card, sizeof card));
    EXPECT_STREQ("abcdefghijklmno", card);
}

TEST(DrvAdapters, SpeedModesAreNormalisedAndOnlyTheCurrentAddressDeleted)
{
    REQUIRE_SANDBOX();
    SKIP_IF_EMULATED(sandbox::ethtool_emulated(), "SIOCETHTOOL");
    sandbox::tap("tap0");
    for (auto c : {std::make_pair(-1, 0), std::make_pair(6, 0), std::make_pair(5, 5)}) {
        SCOPED_TRACE(c.first);
        sandbox::FdCheck fds; // never the invalid-mode leak: the adapter normalises first
        ASSERT_EQ(0, drv_net_SetSpeedDuplex("tap0", static_cast<NetSpeedDuplexMode>(c.first)));
        NetSpeedDuplexMode m = NET_SPEED_DUPLEX_10_HALF;
        ASSERT_EQ(0, drv_net_GetSpeedDuplex("tap0", &m));
        EXPECT_EQ(c.second, m);
    }
    NetSpeedDuplexMode m;
    EXPECT_EQ(-1, drv_net_GetMaxSupportSpeedx("nosuchdev", &m));

    SKIP_IF_EMULATED(sandbox::ipv6_addr_requests_emulated(), "SIOCDIFADDR for IPv6");
    sandbox::link_up("tap0");
    sandbox::addr_add("tap0", "2001:db8:1111:2222:3333:4444:5555:6666/64");
    // The current address is read into 32 characters: a 39-character one never matches in
    // full, and the comparison stays within what was read.
    EXPECT_EQ(-1, drv_net_DelIpv6Address("tap0", "2001:db8:1111:2222:3333:4444:5555:6666"));
    EXPECT_EQ(-1, drv_net_DelIpv6Address("tap0", "2001:db8:9::1"));
    sandbox::must("ip -6 addr flush dev tap0 scope global");
    sandbox::addr_add("tap0", "2001:db8:1::10/64");
    EXPECT_EQ(0, drv_net_DelIpv6Address("tap0", "2001:db8:1::10"));
    EXPECT_EQ(std::string::npos,
              sandbox::sh_out("ip -6 addr show dev tap0").find("2001:db8:1::10"));
}
