// Link control against real devices: up/down, MTU, carrier, and speed/duplex on a tap device
// (whose link settings the kernel keeps as written); the older calls beside the ones they
// mirror; and the log lines of refusals and failures across the link calls.
#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <memory>
#include <utility>

#include "link_support.h"

using namespace linktest;

namespace
{

// The test's own view of the link settings.
struct ethtool_cmd settings(const char *dev, const struct ethtool_cmd *set = nullptr)
{
    struct ethtool_cmd ecmd;
    memset(&ecmd, 0, sizeof ecmd);
    if (set != nullptr)
        ecmd = *set;
    ecmd.cmd = set != nullptr ? ETHTOOL_SSET : ETHTOOL_GSET;
    struct ifreq ifr;
    memset(&ifr, 0, sizeof ifr);
    strncpy(ifr.ifr_name, dev, IFNAMSIZ - 1);
    ifr.ifr_data = reinterpret_cast<char *>(&ecmd);
    int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(0, ioctl(fd, SIOCETHTOOL, &ifr)) << strerror(errno);
    close(fd);
    return ecmd;
}

void force(int autoneg, int speed, int duplex, unsigned int advertising)
{
    struct ethtool_cmd e = settings("tap0");
    e.autoneg = static_cast<__u8>(autoneg);
    e.speed = static_cast<__u16>(speed);
    e.duplex = static_cast<__u8>(duplex);
    e.advertising = advertising;
    settings("tap0", &e);
}

const char *const kStored = "config interface 'lan1'\n\toption ipv4dhcp '1'\n\n"
                            "config interface 'ghost'\n\toption ipv4dhcp '0'\n";

enum : unsigned { kEthtool = 1, kIpv6Requests = 2, kNoDescriptors = 4, kLast = 8 };

char buf[64];
NetSpeedDuplexMode mode;
int mtu;
NetIpv6AddrList list;
const char kLan1[] = "lan1", kAddr6[] = "2001:db8::1";

bool is_up(const char *dev)
{
    return sandbox::sh_out(std::string("ip -o link show ") + dev).find(",UP") != std::string::npos;
}

} // namespace

TEST_F(LinkNet, UpAndDown)
{
    struct Case {
        int (*down)(const char *);
        int (*up)(const char *);
    } cases[] = {{NET_IntfDown, NET_IntfUp}, {if_down, if_up}};
    for (const Case &c : cases) {
        sandbox::FdCheck fds;
        ASSERT_EQ(0, c.down("lan1"));
        EXPECT_FALSE(is_up("lan1"));
        EXPECT_NE(std::string::npos, sandbox::sh_out("ip -o link show lan1").find("MULTICAST"))
            << "other flags kept";
        ASSERT_EQ(0, c.up("lan1"));
        EXPECT_TRUE(is_up("lan1"));
        EXPECT_EQ(-1, c.up("nosuchdev"));
    }
    EXPECT_EQ(0, NET_IntfUp("lo"));
    EXPECT_EQ(-1, NET_IntfDown("lo")) << "the loopback stays up";
    EXPECT_TRUE(is_up("lo"));
}

TEST_F(LinkNet, MtuBoundsAndTheOlderCalls)
{
    struct Case {
        int (*set)(const char *, int);
        int mtu;
        int result;
    } cases[] = {{NET_SetMtu, 99, -1},   {NET_SetMtu, 100, 0}, {NET_SetMtu, 1500, 0},
                 {NET_SetMtu, 1501, -1}, {set_mtu, 1400, 0},   {set_mtu, 0, -1}};
    sandbox::FdCheck fds;
    int expect = 1500;
    for (const Case &c : cases) {
        SCOPED_TRACE(c.mtu);
        EXPECT_EQ(c.result, c.set("lan1", c.mtu));
        if (c.result == 0)
            expect = c.mtu;
        int mtu = 0, older = 0;
        ASSERT_EQ(0, NET_GetMtu("lan1", &mtu));
        ASSERT_EQ(0, get_mtu("lan1", &older));
        EXPECT_EQ(expect, mtu);
        EXPECT_EQ(expect, older);
    }
    EXPECT_EQ(std::make_pair(-1, -1),
              std::make_pair(get_mtu("nosuchdev", &mtu), get_mtu("lan1", nullptr)));
}

TEST_F(LinkNet, CarrierFollowsTheCable)
{
    SKIP_IF_EMULATED(sandbox::ethtool_emulated(), "SIOCETHTOOL");
    sandbox::FdCheck fds;
    auto linked = [](const char *dev) {
        int l = -1;
        return NET_GetPortLinkStatus(dev, &l) == 0 ? l : -1;
    };
    EXPECT_EQ(1, linked("lan1"));
    peer_.must("ip link set nb1 down");
    EXPECT_EQ(0, linked("lan1")) << "the neighbour pulled its end";
    sandbox::link_up("tap0");
    EXPECT_EQ(0, linked("tap0")) << "nothing attached to the tap";
    EXPECT_EQ(-1, linked("nosuchdev"));
}

TEST_F(LinkNet, SpeedAndDuplexRoundTrip)
{
    SKIP_IF_EMULATED(sandbox::ethtool_emulated(), "SIOCETHTOOL");
    struct Case {
        int mode, speed, duplex;
    } cases[] = {{1, 10, 0}, {2, 10, 1}, {3, 100, 0}, {4, 100, 1}, {5, 1000, 1}};
    sandbox::FdCheck fds;
    for (const Case &c : cases) {
        SCOPED_TRACE(c.mode);
        ASSERT_EQ(0, NET_SetSpeedDuplex("tap0", static_cast<NetSpeedDuplexMode>(c.mode)));
        struct ethtool_cmd e = settings("tap0");
        EXPECT_EQ((std::vector<int>{AUTONEG_DISABLE, c.speed, c.duplex}),
                  (std::vector<int>{e.autoneg, e.speed, e.duplex}));
        NetSpeedDuplexMode got = NET_SPEED_DUPLEX_AUTO;
        ASSERT_EQ(0, NET_GetSpeedDuplex("tap0", &got));
        EXPECT_EQ(c.mode, got);
    }
    // Auto-negotiation advertises everything.
    force(AUTONEG_DISABLE, 100, DUPLEX_FULL, ADVERTISED_100baseT_Full);
    ASSERT_EQ(0, NET_SetSpeedDuplex("tap0", NET_SPEED_DUPLEX_AUTO));
    struct ethtool_cmd e = settings("tap0");
    EXPECT_EQ(AUTONEG_ENABLE, e.autoneg);
    EXPECT_EQ(0x203Fu, e.advertising);
    EXPECT_EQ(100, e.speed) << "speed left as read";
    // Read back as auto, also when negotiated at gigabit.
    for (int speed : {100, 1000}) {
        force(AUTONEG_ENABLE, speed, DUPLEX_FULL, 0x203F);
        NetSpeedDuplexMode got = NET_SPEED_DUPLEX_10_HALF;
        ASSERT_EQ(0, NET_GetSpeedDuplex("tap0", &got));
        EXPECT_EQ(NET_SPEED_DUPLEX_AUTO, got);
    }
}

TEST_F(LinkNet, InvalidModeLeaksItsSocketOnPurpose)
{
    SKIP_IF_EMULATED(sandbox::ethtool_emulated(), "SIOCETHTOOL");
    force(AUTONEG_DISABLE, 100, DUPLEX_FULL, 0);
    int before = sandbox::open_fd_count();
    EXPECT_EQ(-1, NET_SetSpeedDuplex("tap0", static_cast<NetSpeedDuplexMode>(6)));
    EXPECT_EQ(before + 1, sandbox::open_fd_count()) << "the invalid-mode path leaves one open";
    EXPECT_EQ(100, settings("tap0").speed) << "nothing written";
    // The mode is only checked after the read: a missing port fails on the read, no leak.
    sandbox::FdCheck fds;
    EXPECT_EQ(-1, NET_SetSpeedDuplex("nosuchdev", static_cast<NetSpeedDuplexMode>(6)));
}

TEST_F(LinkNet, SupportSpeedComesFromTheAdvertisingMask)
{
    SKIP_IF_EMULATED(sandbox::ethtool_emulated(), "SIOCETHTOOL");
    struct Case {
        unsigned int advertising;
        int speed, result, mode;
    } cases[] = {
        {ADVERTISED_1000baseT_Full | ADVERTISED_100baseT_Full, 100, 0, 5}, // runs at 100
        {ADVERTISED_100baseT_Full | ADVERTISED_10baseT_Full, 100, 0, 4},
        {ADVERTISED_1000baseT_Half | ADVERTISED_100baseT_Half, 100, -1, 0},
        {ADVERTISED_10baseT_Full, 10, -1, 0},
    };
    sandbox::FdCheck fds;
    for (const Case &c : cases) {
        SCOPED_TRACE(c.advertising);
        force(AUTONEG_ENABLE, c.speed, DUPLEX_FULL, c.advertising);
        NetSpeedDuplexMode got = NET_SPEED_DUPLEX_AUTO;
        EXPECT_EQ(c.result, NET_GetSupportSpeed("tap0", &got));
        EXPECT_EQ(c.result == 0 ? c.mode : got, got);
    }
}

// The lines the calls log when they refuse or fail: log readers match these texts, their tags
// and levels (7 where the failure is routine and polled).
TEST_F(LinkNet, LinkLogLines)
{
    const std::string lan1 = ptr_text(kLan1), addr6 = ptr_text(kAddr6);
    using S = const std::string &;
    auto line = [](const char *f, S tag, S m) { return expect_line(f, tag + "\"" + m + "\\n\""); };
    auto plain = [&](const char *f, S m) { return line(f, "", m); };
    auto param = [&](const char *f, S m) { return line(f, "PL_PARAM_ERROR_PRINT ", m); };
    auto ioctl_err = [&](const char *f, S m) { return line(f, "PL_IOCTL_ERROR_PRINT ", m + "."); };
    auto no_socket = [&](const char *f, S fd) {
        return line(f, "PL_OPEN_SOCKET_ERROR_PRINT ", fd + ": -1");
    };
    auto check = [](int result, int level, unsigned flags, const std::function<int()> &call,
                    const std::vector<std::string> &lines) {
        SCOPED_TRACE(lines.empty() ? "silent" : lines.back());
        if (((flags & kEthtool) != 0 && sandbox::ethtool_emulated()) ||
            ((flags & kIpv6Requests) != 0 && sandbox::ipv6_addr_requests_emulated()))
            return;
        device("eth0");
        sandbox::write_file("/etc/config/network", kStored);
        LogCapture log;
        std::unique_ptr<sandbox::NoMoreDescriptors> none;
        if ((flags & kNoDescriptors) != 0)
            none.reset(new sandbox::NoMoreDescriptors);
        int got = call();
        none.reset();
        rmdir("/etc/resolv.conf"); // the unwritable-file row's directory
        EXPECT_EQ(result, got);
        std::vector<std::string> texts = log.texts();
        if ((flags & kLast) != 0 && texts.size() > lines.size()) // earlier lines: calls below
            texts.erase(texts.begin(), texts.end() - lines.size());
        EXPECT_EQ(lines, texts);
        EXPECT_EQ(level, log.lines().empty() ? 0 : log.lines().back().level); // 7: routine
    };
    // A null argument: one check for every call, naming the arguments.
    check(-1, 3, 0, CALL(NET_GetMacAddr(nullptr, buf, 8)),
          {param("NET_GetMacAddr", "pcIfName: (nil), pcMacAddr: " + ptr_text(buf) + ". ")});
    check(-1, 3, 0, CALL(NET_IntfDown("lo")),
          {plain("NET_IntfDown", "You can't pull down interface lo ")});
    check(-1, 7, 0, CALL(NET_GetMtu("nosuchdev", &mtu)),
          {ioctl_err("NET_GetMtu", "No such device")});
    check(-1, 3, kEthtool,
          CALL(force(AUTONEG_DISABLE, 1000, DUPLEX_HALF, 0), NET_GetSpeedDuplex("tap0", &mode)),
          {plain("NET_GetSpeedDuplex", "Unknown speed duplex type, speed=1000, duplex=0.")});
    check(-1, 3, kEthtool, CALL(force(2, 100, DUPLEX_FULL, 0), NET_GetSpeedDuplex("tap0", &mode)),
          {plain("NET_GetSpeedDuplex", "Unknown autoneg type, autoneg=2.")});
    check(-1, 3, kEthtool, CALL(NET_SetSpeedDuplex("tap0", static_cast<NetSpeedDuplexMode>(6))),
          {plain("NET_SetSpeedDuplex", "Invalid input enMode: 6.")});
    check(-1, 3, kEthtool,
          CALL(force(AUTONEG_ENABLE, 10, DUPLEX_FULL, 0), NET_GetSupportSpeed("tap0", &mode)),
          {plain("NET_GetSupportSpeed", "Unknown type.")});
    check(-1, 7, 0, CALL(NET_GetMacAddr("nosuchdev", buf, 32)),
          {ioctl_err("NET_GetMacAddr", "No such device")});
    check(-1, 3, kNoDescriptors, CALL(NET_GetMacAddr("lan1", buf, 32)),
          {no_socket("NET_GetMacAddr", "iFd")});
    // The mask call reports with the address call's text.
    check(-1, 3, 0, CALL(NET_SetIpv4Addr("nosuchdev", "10.0.0.1")),
          {plain("NET_SetIpv4Addr", "ioctl(SIOCSIFADDR) failed!")});
    check(-1, 3, 0, CALL(NET_SetIpv4Mask("nosuchdev", "255.0.0.0")),
          {plain("NET_SetIpv4Mask", "ioctl(SIOCSIFADDR) failed!")});
    // A PPPoE link that is down is polled: its address read is silent.
    check(-1, 0, 0, CALL(NET_GetIpv4Addr("wan-pppoe", buf, 16)), {});
    check(-1, 3, 0, CALL(device("lan1,lan2"), NET_SetIpv4Addr("lan2", "192.168.1.10")),
          {plain("INET_IsIpv4AddrExist", "Default lan ip address is existed."),
           plain("NET_SetIpv4Addr", "Ipaddr is exist, pcOtherIfName:lan1, ipaddr:192.168.1.10. ")});
    check(
        -1, 7, kLast,
        CALL(NET_SetIpv4Gateway("lan1", "192.168.1.1"), NET_SetIpv4Gateway("lan1", "192.168.1.1")),
        {ioctl_err("NET_SetIpv4Gateway", "File exists")});
    check(0, 7, 0, CALL(NET_SetIpv4Gateway("lan1", "0.0.0.0")),
          {plain("NET_SetIpv4Gateway", "Invalid gateway ip. ")});
    check(-1, 3, 0, CALL(NET_DelIpv4Gateway(nullptr, "1.2.3.4")),
          {param("NET_DelIpv4Gateway", "")});
    // A one-port device whose "eth0" does not exist: each call adds a line of its own.
    check(-1, 3, kLast, CALL(NET_IPv4GetDefIfAddr(buf, 16)),
          {plain("NET_IPv4GetDefIfAddr", "Get default ip address failed. ")});
    check(-1, 7, 0, CALL(NET_IPv4SetAddr("lan1", "10.2.2.2", "255.0.0.0")),
          {plain("NET_IPv4SetAddr", "in dhcp mode, do not need set address ")});
    check(-1, 7, kLast, CALL(NET_IPv4SetAddr("ghost", "10.3.3.3", "255.0.0.0")),
          {plain("NET_IPv4SetAddr", "ioctl(SIOCSIFADDR) failed, No such device ")});
    check(-1, 3, 0, CALL(NET_GetIpv6AddrList("nosuchdev", &list)),
          {plain("NET_GetIpv6AddrList", "can not find index. ")});
    // The prefix range is refused before a socket is opened.
    check(-1, 3, kNoDescriptors, CALL(NET_AddIpv6Addr(kLan1, kAddr6, 128)),
          {param("NET_AddIpv6Addr",
                 "pcIfName: " + lan1 + ", pstIpv6Addr: " + addr6 + ", iPrefixLen: 128.")});
    check(-1, 3, kNoDescriptors, CALL(NET_AddIpv6Addr(kLan1, kAddr6, 3)),
          {no_socket("NET_AddIpv6Addr", "iSocketFd")});
    check(-1, 3, kNoDescriptors, CALL(NET_SetLocalIpv6Addr("lan1", "2001:db8::zz", 64)),
          {expect_line("NET_SetLocalIpv6Addr",
                       "PL_CONVERT_IPV6_ADDR_ERROR_PRINT \"pcIpv6Addr: 2001:db8::zz.\\n\"")});
    check(-1, 3, kNoDescriptors, CALL(NET_SetLocalIpv6Addr("lan1", kAddr6, 64)),
          {no_socket("NET_SetLocalIpv6Addr", "iSock")});
    check(-1, 3, kIpv6Requests, CALL(NET_AddIpv6Addr("lan1", "not-an-address", 64)),
          {expect_line("NET_AddIpv6Addr",
                       "PL_CONVERT_IPV6_ADDR_ERROR_PRINT \"pstIpv6Addr: not-an-address.\\n\"")});
    check(-1, 3, 0, CALL(NET_SetDnsServer(nullptr, "1.1.1.1", "2.2.2.2")),
          {param("NET_SetDnsServer", "")});
    // A directory in the file's place: opening it for writing fails.
    check(-1, 3, 0,
          CALL(unlink("/etc/resolv.conf"), mkdir("/etc/resolv.conf", 0755),
               NET_SetDnsServer("eth0", "1.1.1.1", "2.2.2.2")),
          {plain("NET_EnableDnsServer", "Open dns config file failed. "),
           plain("NET_SetDnsServer", "set dns err")});
    check(-1, 3, kLast, CALL(NET_EnableDhcp("lan7")),
          {plain("NET_EnableDhcp", "Enable dhcp mode failed. ")});
}
