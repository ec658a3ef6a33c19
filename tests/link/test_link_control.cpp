// Link control against real devices: up/down, MTU, carrier, and speed/duplex on tap devices
// (whose link settings the kernel keeps as written).
#include <errno.h>
#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

#include "libnetwork.h"
#include "sandbox.h"

using sandbox::expect_line;
using sandbox::LogCapture;

namespace
{

// The test's own view of the link settings, independent of the library.
bool ethtool(const char *dev, struct ethtool_cmd &ecmd, unsigned int cmd)
{
    int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    struct ifreq ifr;
    memset(&ifr, 0, sizeof ifr);
    strncpy(ifr.ifr_name, dev, IFNAMSIZ - 1);
    ecmd.cmd = cmd;
    ifr.ifr_data = reinterpret_cast<char *>(&ecmd);
    bool ok = ioctl(fd, SIOCETHTOOL, &ifr) == 0;
    close(fd);
    return ok;
}

struct ethtool_cmd settings(const char *dev)
{
    struct ethtool_cmd ecmd;
    memset(&ecmd, 0, sizeof ecmd);
    EXPECT_TRUE(ethtool(dev, ecmd, ETHTOOL_GSET));
    return ecmd;
}

void force(const char *dev, int autoneg, int speed, int duplex, unsigned int advertising)
{
    struct ethtool_cmd ecmd = settings(dev);
    ecmd.autoneg = static_cast<__u8>(autoneg);
    ecmd.speed = static_cast<__u16>(speed);
    ecmd.duplex = static_cast<__u8>(duplex);
    ecmd.advertising = advertising;
    ASSERT_TRUE(ethtool(dev, ecmd, ETHTOOL_SSET));
}

std::string flags_of(const std::string &dev)
{
    return sandbox::sh_out("ip -o link show " + dev);
}

} // namespace

class Link : public ::testing::Test
{
  protected:
    void SetUp() override
    {
        REQUIRE_SANDBOX();
        sandbox::veth("lan1", "nb1", &peer_);
        sandbox::tap("tap0");
    }
    sandbox::Peer peer_;
};

TEST_F(Link, UpAndDown)
{
    sandbox::FdCheck fds;
    ASSERT_EQ(0, NET_IntfDown("lan1"));
    EXPECT_EQ(std::string::npos, flags_of("lan1").find(",UP")) << flags_of("lan1");
    EXPECT_NE(std::string::npos, flags_of("lan1").find("MULTICAST")) << "other flags kept";
    ASSERT_EQ(0, NET_IntfUp("lan1"));
    EXPECT_NE(std::string::npos, flags_of("lan1").find(",UP")) << flags_of("lan1");

    EXPECT_EQ(0, NET_IntfUp("lo")) << "bringing lo up is carried out";
    LogCapture log;
    EXPECT_EQ(-1, NET_IntfDown("lo"));
    EXPECT_EQ(std::vector<std::string>{expect_line("NET_IntfDown",
                                                   "\"You can't pull down interface lo \\n\"")},
              log.texts());
    EXPECT_NE(std::string::npos, flags_of("lo").find(",UP"));
}

TEST_F(Link, UpDownFailuresAndNulls)
{
    sandbox::FdCheck fds;
    LogCapture log;
    EXPECT_EQ(-1, NET_IntfUp("nosuchdev"));
    EXPECT_EQ(-1, NET_IntfDown(nullptr));
    EXPECT_EQ(-1, NET_IntfUp(nullptr));
    EXPECT_EQ(
        (std::vector<std::string>{
            expect_line("NET_IntfUp", "PL_IOCTL_ERROR_PRINT \"SIOCGIFFLAGS: No such device.\\n\""),
            expect_line("NET_IntfDown", "PL_PARAM_ERROR_PRINT \"pcIfName: (nil). \\n\""),
            expect_line("NET_IntfUp", "PL_PARAM_ERROR_PRINT \"pcIfName: (nil). \\n\""),
        }),
        log.texts());
    EXPECT_EQ(3, log.lines()[0].level);
}

TEST_F(Link, MtuBounds)
{
    struct Case {
        int mtu;
        int result;
    } cases[] = {{99, -1}, {100, 0}, {1500, 0}, {1501, -1}, {-1, -1}, {1280, 0}, {9000, -1}};
    sandbox::FdCheck fds;
    int expect = 1500;
    for (const Case &c : cases) {
        SCOPED_TRACE(c.mtu);
        LogCapture log;
        EXPECT_EQ(c.result, NET_SetMtu("lan1", c.mtu));
        if (c.result == 0)
            expect = c.mtu;
        else
            EXPECT_EQ(1u, log.lines().size());
        int mtu = 0;
        ASSERT_EQ(0, NET_GetMtu("lan1", &mtu));
        EXPECT_EQ(expect, mtu);
    }
}

TEST_F(Link, MtuLogLines)
{
    LogCapture log;
    char name[] = "lan1";
    EXPECT_EQ(-1, NET_SetMtu(name, 1501));
    char ptr[32];
    snprintf(ptr, sizeof ptr, "%p", static_cast<void *>(name));
    EXPECT_EQ(expect_line("NET_SetMtu", std::string("PL_PARAM_ERROR_PRINT \"pcIfName: ") + ptr +
                                            ", iMtuVal: 1501. \\n\""),
              log.texts().at(0));
    log.clear();
    int mtu = 0;
    EXPECT_EQ(-1, NET_GetMtu("nosuchdev", &mtu));
    ASSERT_EQ(1u, log.lines().size());
    EXPECT_EQ(7, log.lines()[0].level) << "a missing interface is routine for the MTU read";
    log.clear();
    EXPECT_EQ(-1, NET_SetMtu("nosuchdev", 1400));
    EXPECT_EQ(3, log.lines().at(0).level);
}

TEST_F(Link, CarrierFollowsTheCable)
{
    if (sandbox::ethtool_emulated())
        GTEST_SKIP() << "SIOCETHTOOL is not carried by this emulator";
    sandbox::FdCheck fds;
    int linked = -1;
    ASSERT_EQ(0, NET_GetPortLinkStatus("lan1", &linked));
    EXPECT_EQ(1, linked);
    peer_.must("ip link set nb1 down");
    ASSERT_EQ(0, NET_GetPortLinkStatus("lan1", &linked));
    EXPECT_EQ(0, linked) << "the neighbour pulled its end";
    sandbox::link_up("tap0");
    ASSERT_EQ(0, NET_GetPortLinkStatus("tap0", &linked));
    EXPECT_EQ(0, linked) << "nothing attached to the tap";
    EXPECT_EQ(-1, NET_GetPortLinkStatus("nosuchdev", &linked));
    EXPECT_EQ(-1, NET_GetPortLinkStatus("lan1", nullptr));
}

TEST_F(Link, ForcedModesRoundTrip)
{
    if (sandbox::ethtool_emulated())
        GTEST_SKIP() << "SIOCETHTOOL is not carried by this emulator";
    sandbox::FdCheck fds;
    struct Case {
        int mode;
        int speed;
        int duplex;
    } cases[] = {{1, 10, 0}, {2, 10, 1}, {3, 100, 0}, {4, 100, 1}, {5, 1000, 1}};
    for (const Case &c : cases) {
        SCOPED_TRACE(c.mode);
        ASSERT_EQ(0, NET_SetSpeedDuplex("tap0", static_cast<NetSpeedDuplexMode>(c.mode)));
        struct ethtool_cmd e = settings("tap0");
        EXPECT_EQ(AUTONEG_DISABLE, e.autoneg);
        EXPECT_EQ(c.speed, e.speed);
        EXPECT_EQ(c.duplex, e.duplex);
        NetSpeedDuplexMode got = NET_SPEED_DUPLEX_AUTO;
        ASSERT_EQ(0, NET_GetSpeedDuplex("tap0", &got));
        EXPECT_EQ(c.mode, got);
    }
}

TEST_F(Link, AutoNegotiationAdvertisesEverything)
{
    if (sandbox::ethtool_emulated())
        GTEST_SKIP() << "SIOCETHTOOL is not carried by this emulator";
    force("tap0", AUTONEG_DISABLE, 100, DUPLEX_FULL, ADVERTISED_100baseT_Full);
    ASSERT_EQ(0, NET_SetSpeedDuplex("tap0", NET_SPEED_DUPLEX_AUTO));
    struct ethtool_cmd e = settings("tap0");
    EXPECT_EQ(AUTONEG_ENABLE, e.autoneg);
    EXPECT_EQ(0x203Fu, e.advertising);
    EXPECT_EQ(100, e.speed) << "speed left as read";
    NetSpeedDuplexMode got = NET_SPEED_DUPLEX_10_HALF;
    ASSERT_EQ(0, NET_GetSpeedDuplex("tap0", &got));
    EXPECT_EQ(NET_SPEED_DUPLEX_AUTO, got);

    // Auto-negotiated gigabit is still reported as auto.
    force("tap0", AUTONEG_ENABLE, 1000, DUPLEX_FULL, 0x203F);
    ASSERT_EQ(0, NET_GetSpeedDuplex("tap0", &got));
    EXPECT_EQ(NET_SPEED_DUPLEX_AUTO, got);
}

TEST_F(Link, UnmappedSettingsAreRefused)
{
    if (sandbox::ethtool_emulated())
        GTEST_SKIP() << "SIOCETHTOOL is not carried by this emulator";
    struct Case {
        int autoneg, speed, duplex;
        const char *log;
    } cases[] = {
        {AUTONEG_DISABLE, 1000, DUPLEX_HALF,
         "\"Unknown speed duplex type, speed=1000, duplex=0.\\n\""},
        {AUTONEG_DISABLE, 2500, DUPLEX_FULL,
         "\"Unknown speed duplex type, speed=2500, duplex=1.\\n\""},
        {2, 100, DUPLEX_FULL, "\"Unknown autoneg type, autoneg=2.\\n\""},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.log);
        force("tap0", c.autoneg, c.speed, c.duplex, 0);
        LogCapture log;
        NetSpeedDuplexMode got = NET_SPEED_DUPLEX_AUTO;
        EXPECT_EQ(-1, NET_GetSpeedDuplex("tap0", &got));
        EXPECT_EQ(std::vector<std::string>{expect_line("NET_GetSpeedDuplex", c.log)}, log.texts());
    }
}

TEST_F(Link, InvalidModeLeaksItsSocketOnPurpose)
{
    if (sandbox::ethtool_emulated())
        GTEST_SKIP() << "SIOCETHTOOL is not carried by this emulator";
    force("tap0", AUTONEG_DISABLE, 100, DUPLEX_FULL, 0);
    int before = sandbox::open_fd_count();
    LogCapture log;
    EXPECT_EQ(-1, NET_SetSpeedDuplex("tap0", static_cast<NetSpeedDuplexMode>(6)));
    EXPECT_EQ(before + 1, sandbox::open_fd_count()) << "the invalid-mode path leaves one open";
    EXPECT_EQ(std::vector<std::string>{expect_line("NET_SetSpeedDuplex",
                                                   "\"Invalid input enMode: 6.\\n\"")},
              log.texts());
    EXPECT_EQ(100, settings("tap0").speed) << "nothing written";

    // The mode is only checked after the read: a missing port fails on the read, no leak.
    sandbox::FdCheck fds;
    log.clear();
    EXPECT_EQ(-1, NET_SetSpeedDuplex("nosuchdev", static_cast<NetSpeedDuplexMode>(6)));
    EXPECT_EQ(
        std::vector<std::string>{expect_line(
            "NET_SetSpeedDuplex", "PL_IOCTL_ERROR_PRINT \"SIOCETHTOOL: No such device.\\n\"")},
        log.texts());
}

TEST_F(Link, SupportSpeedComesFromTheAdvertisingMask)
{
    if (sandbox::ethtool_emulated())
        GTEST_SKIP() << "SIOCETHTOOL is not carried by this emulator";
    struct Case {
        unsigned int advertising;
        int speed;
        int result;
        int mode;
    } cases[] = {
        {ADVERTISED_1000baseT_Full | ADVERTISED_100baseT_Full, 100, 0, 5}, // runs at 100
        {ADVERTISED_100baseT_Full | ADVERTISED_10baseT_Full, 100, 0, 4},
        {ADVERTISED_1000baseT_Half | ADVERTISED_100baseT_Half, 100, -1, 0},
        {ADVERTISED_10baseT_Full, 10, -1, 0},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.advertising);
        force("tap0", AUTONEG_ENABLE, c.speed, DUPLEX_FULL, c.advertising);
        LogCapture log;
        NetSpeedDuplexMode got = NET_SPEED_DUPLEX_AUTO;
        EXPECT_EQ(c.result, NET_GetSupportSpeed("tap0", &got));
        if (c.result == 0)
            EXPECT_EQ(c.mode, got);
        else
            EXPECT_EQ(std::vector<std::string>{expect_line("NET_GetSupportSpeed",
                                                           "\"Unknown type.\\n\"")},
                      log.texts());
    }
    LogCapture log;
    NetSpeedDuplexMode got;
    EXPECT_EQ(-1, NET_GetSupportSpeed("nosuchdev", &got));
    EXPECT_EQ(7, log.lines().at(0).level);
}
