// The driver tables and adapters: a C program calls the runtime table by position against
// real devices, and every adapter's null-pointer answer is checked here.
#include <string.h>

#include <string>

#include "libnetwork.h"
#include "sandbox.h"

using sandbox::expect_line;
using sandbox::LogCapture;

namespace
{

const char *kNetwork = "config interface 'lan1'\n"
                       "\toption ipv4dhcp '0'\n"
                       "\n"
                       "config interface 'lan2'\n"
                       "\toption ipv4dhcp '0'\n";

std::string ptr_text(const void *p)
{
    char buf[32];
    snprintf(buf, sizeof buf, "%p", p);
    return buf;
}

} // namespace

class DrvTable : public ::testing::Test
{
  protected:
    void SetUp() override
    {
        REQUIRE_SANDBOX();
#if defined(__arm__)
        GTEST_SKIP() << "the C caller runs natively only: no binfmt emulation here";
#endif
        sandbox::set_device("lan1,lan2");
        sandbox::veth("lan1", "nb1", &peer_);
        sandbox::veth("lan2", "nb2", &peer_);
        sandbox::addr_add("lan1", "192.168.1.10/24");
        sandbox::addr_add("lan1", "2001:db8:1::10/64");
        peer_.must("ip addr add 192.168.1.1/24 dev nb1");
        sandbox::tap("tap0");
    }

    // Runs the C caller in a pid namespace of its own, where the ping's id matches.
    void run_c_caller(const char *mode)
    {
        std::string bin = std::string(NETLIB_BINARY_DIR) + "/tests/c_drv_table";
        std::string out =
            sandbox::sh_out("unshare --pid --fork " + bin + " lan1 192.168.1.1 192.168.1.77 " +
                            mode + " 2>&1; echo status=$?");
        EXPECT_NE(std::string::npos, out.find("status=0")) << out;
        EXPECT_EQ(std::string::npos, out.find("FAIL")) << out;
    }
    sandbox::Peer peer_;
};

TEST_F(DrvTable, CCallerByPositionWithThePresentConfiguration)
{
    sandbox::write_file("/etc/config/network", kNetwork);
    run_c_caller("network");
}

TEST_F(DrvTable, CCallerByPositionWithTheOlderConfiguration)
{
    // No "network" package: entries 11 and 12 are the older pair over g_szDefNetCard.
    run_c_caller("older");
}

TEST(DrvTableNull, TablesRefuseNull)
{
    LogCapture log;
    EXPECT_EQ(-1, createNetCfgInterface(nullptr));
    EXPECT_EQ(
        std::vector<std::string>{expect_line("createNetCfgInterface", "\"null pointer.\\n\"")},
        log.texts());
    NetCfgInterface cfg;
    memset(&cfg, 0, sizeof cfg);
    ASSERT_EQ(0, createNetCfgInterface(&cfg));
    EXPECT_EQ(reinterpret_cast<void *>(NET_GetDdnsCfg),
              reinterpret_cast<void *>(cfg.pfnGetDdnsCfg));
    EXPECT_EQ(reinterpret_cast<void *>(drv_net_GetIpcConfig),
              reinterpret_cast<void *>(cfg.pfnGetIpcConfig));
}

TEST(DrvAdapters, NullPointersAreNamed)
{
    char buf[16];
    int n = 0;
    NetSpeedDuplexMode m;
    NetIpv6AddrList list;
    LogCapture log;
    struct Case {
        int result;
        const char *name;
        const void *value;
    } cases[] = {
        {drv_net_GetEthName(nullptr, 16, &n), "pcEthName", nullptr},
        {drv_net_GetEthName(buf, 16, nullptr), "piEthNum", nullptr},
        {drv_net_GetIpv6Addr("lan1", nullptr, 16, &n), "pHostIp", nullptr},
        {drv_net_GetScopeGlobalAddr6("lan1", nullptr, 16, &n), "plinklocal", nullptr},
        {drv_net_GetIpv6AddrList(nullptr, &list), "pEthName", nullptr},
        {drv_net_GetIpv6AddrList("lan1", nullptr), "pstIpv6AddrList", nullptr},
        {drv_net_GetSpeedDuplex("lan1", nullptr), "enSpeedDupMode", nullptr},
        {drv_net_GetMaxSupportSpeedx(nullptr, &m), "pcIfName", nullptr},
        {drv_net_CheckIpv4Collision("lan1", "1.2.3.4", nullptr), "pbIsCollision", nullptr},
        {drv_net_GetLinkStatus(nullptr), "pcIfName", nullptr},
    };
    for (const Case &c : cases)
        EXPECT_EQ(-1, c.result) << c.name;
    std::vector<std::string> texts = log.texts();
    ASSERT_EQ(sizeof cases / sizeof cases[0], texts.size());
    for (size_t i = 0; i < texts.size(); ++i) {
        EXPECT_NE(std::string::npos,
                  texts[i].find("\"Invalid input param, " + std::string(cases[i].name) + ": " +
                                ptr_text(cases[i].value) + " \\n\""))
            << texts[i];
    }
    EXPECT_EQ(-2, drv_net_SetDefaultEth(nullptr));
    EXPECT_EQ(-2, drv_net_GetDefaultEth(nullptr, 16));
    EXPECT_EQ(0, drv_net_SetIpv6Gateway(nullptr, nullptr)) << "ignores its arguments";
}

TEST(DrvAdapters, NamesJoinedAndActiveInterfaceDefault)
{
    sandbox::set_device("lan1,lan2");
    NET_Init();
    char names[64];
    int num = 0;
    LogCapture log;
    ASSERT_EQ(0, drv_net_GetEthName(names, sizeof names, &num));
    EXPECT_STREQ("lan1::lan2", names);
    EXPECT_EQ(2, num);
    EXPECT_EQ(
        std::vector<std::string>{expect_line("drv_net_GetEthName", "\"EthNum:%d, Eth:%s.\\n\"")}
            .size(),
        log.texts().size());
    EXPECT_EQ(3, log.lines().at(0).level) << "an information line at the error level, kept";

    // Cut by the caller's length, without a terminator when it does not fit.
    char small[6];
    memset(small, '#', sizeof small);
    ASSERT_EQ(0, drv_net_GetEthName(small, 4, &num));
    EXPECT_EQ(0, memcmp("lan1##", small, 6));

    // The older default-card pair.
    ASSERT_EQ(0, drv_net_SetDefaultEth("abcdefghijklmnopqrst"));
    char card[32];
    memset(card, 0, sizeof card);
    ASSERT_EQ(0, drv_net_GetDefaultEth(card, sizeof card));
    EXPECT_STREQ("abcdefghijklmno", card);
}

TEST(DrvAdapters, SpeedModesAreNormalised)
{
    REQUIRE_SANDBOX();
#if defined(__arm__)
    GTEST_SKIP() << "SIOCETHTOOL is not carried by the emulator";
#endif
    sandbox::tap("tap0");
    struct Case {
        int given;
        int read;
    } cases[] = {{9, 0}, {-1, 0}, {3, 3}, {5, 5}, {6, 0}, {1, 1}};
    for (const Case &c : cases) {
        SCOPED_TRACE(c.given);
        sandbox::FdCheck fds; // never the invalid-mode leak: the adapter normalises first
        ASSERT_EQ(0, drv_net_SetSpeedDuplex("tap0", static_cast<NetSpeedDuplexMode>(c.given)));
        NetSpeedDuplexMode m = NET_SPEED_DUPLEX_10_HALF;
        ASSERT_EQ(0, drv_net_GetSpeedDuplex("tap0", &m));
        EXPECT_EQ(c.read, m);
    }
    LogCapture log;
    NetSpeedDuplexMode m;
    EXPECT_EQ(-1, drv_net_GetMaxSupportSpeedx("nosuchdev", &m));
    EXPECT_EQ(expect_line("drv_net_GetMaxSupportSpeedx", "\"NET_GetSpeedDuplex fail.\\n\""),
              log.texts().back());
}

TEST(DrvAdapters, DeleteOnlyTheCurrentAddress)
{
    REQUIRE_SANDBOX();
    SKIP_IF_EMULATED(sandbox::ipv6_addr_requests_emulated(), "SIOCDIFADDR for IPv6");
    sandbox::tap("tap0");
    sandbox::link_up("tap0");
    sandbox::addr_add("tap0", "2001:db8:1111:2222:3333:4444:5555:6666/64");
    // The current address is read into 32 characters: a 39-character one never matches
    // in full, and the comparison stays within what was read.
    EXPECT_EQ(-1, drv_net_DelIpv6Address("tap0", "2001:db8:1111:2222:3333:4444:5555:6666"));
    EXPECT_EQ(-1, drv_net_DelIpv6Address("tap0", "2001:db8:9::1"));
    sandbox::must("ip -6 addr flush dev tap0 scope global");
    sandbox::addr_add("tap0", "2001:db8:1::10/64");
    EXPECT_EQ(0, drv_net_DelIpv6Address("tap0", "2001:db8:1::10"));
    EXPECT_EQ(std::string::npos,
              sandbox::sh_out("ip -6 addr show dev tap0").find("2001:db8:1::10"));
}
