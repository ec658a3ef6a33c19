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
TEST(DrvAdapters, NullPointers)
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
    NetCfgInterface cfg;
    ASSERT_EQ(0, createNetCfgInterface(&cfg));
    EXPECT_EQ(reinterpret_cast<void *>(drv_net_GetIpcConfig),
              reinterpret_cast<void *>(cfg.pfnGetIpcConfig));
}

// Rows in order on one device: names cut without a terminator, speed modes normalised before
// they reach the device (so never the invalid-mode descriptor leak), and of the IPv6
// addresses only the current one deleted, read into 32 characters, so a 39-character one
// never matches in full.
TEST(DrvAdapters, Table)
{
    REQUIRE_SANDBOX();
    SKIP_IF_EMULATED(sandbox::ethtool_emulated(), "SIOCETHTOOL");
    SKIP_IF_EMULATED(sandbox::ipv6_addr_requests_emulated(), "SIOCDIFADDR for IPv6");
    sandbox::set_device("lan1,lan2");
    NET_Init();
    sandbox::tap("tap0");
    sandbox::link_up("tap0");
    char small[6] = {'#', '#', '#', '#', '#', '#'}, card[32] = {0};
    int n = 0;
    NetSpeedDuplexMode m;
    const auto speed = [&m](int set) {
        sandbox::FdCheck fds;
        m = NET_SPEED_DUPLEX_10_HALF;
        const int rc = drv_net_SetSpeedDuplex("tap0", static_cast<NetSpeedDuplexMode>(set));
        return rc == 0 && drv_net_GetSpeedDuplex("tap0", &m) == 0 ? static_cast<int>(m) : -9;
    };
    const auto del = [](const char *have, const char *gone) {
        sandbox::must("ip -6 addr flush dev tap0 scope global");
        sandbox::addr_add("tap0", std::string(have) + "/64");
        const int rc = drv_net_DelIpv6Address("tap0", gone);
        return sandbox::sh_out("ip -6 addr show dev tap0").find(have) == std::string::npos ? rc
                                                                                           : -rc;
    };
    const char *full = "2001:db8:1111:2222:3333:4444:5555:6666";
    const struct {
        const char *what;
        int got, want;
    } rows[] = {
        // clang-format off
        {"null default card", drv_net_SetDefaultEth(nullptr), -2},
        {"null buffer", drv_net_GetDefaultEth(nullptr, 16), -2},
        {"gateway ignores its arguments", drv_net_SetIpv6Gateway(nullptr, nullptr), 0},
        {"name cut at 4", drv_net_GetEthName(small, 4, &n) + memcmp("lan1##", small, 6), 0},
        {"card stored cut", drv_net_SetDefaultEth("abcdefghijklmnopqrst"), 0},
        {"card read", drv_net_GetDefaultEth(card, sizeof card) + strcmp("abcdefghijklmno", card), 0},
        {"mode -1", speed(-1), 0},
        {"mode 6", speed(6), 0},
        {"mode 5", speed(5), 5},
        {"no device", drv_net_GetMaxSupportSpeedx("nosuchdev", &m), -1},
        {"39 characters: kept", del(full, full), 1},
        {"not the current: kept", del(full, "2001:db8:9::1"), 1},
        {"the current: deleted", del("2001:db8:1::10", "2001:db8:1::10"), 0},
        // clang-format on
    };
    for (const auto &r : rows)
        EXPECT_EQ(r.want, r.got) << r.what;
}
