// The library frame against real interfaces: naming, the interface list, MAC addresses,
// the port test and the network restart.
#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "libnetwork.h"
#include "sandbox.h"

using sandbox::expect_line;
using sandbox::LogCapture;

namespace
{

std::string ptr_text(const void *p)
{
    char buf[32];
    snprintf(buf, sizeof buf, "%p", p);
    return buf;
}

} // namespace

// Must stay the first test of the file: nothing has called NET_Init in this process yet.
TEST(Frame, FirstInterfaceIsEth0BeforeInit)
{
    EXPECT_STREQ("eth0", g_pcLan1Name);
}

TEST(Frame, InitAndNamesFollowTheDeviceKind)
{
    struct Case {
        const char *capNames;
        const char *first;
        int count;
        const char *second;
    } cases[] = {
        {"lan1,lan2", "lan1", 2, "lan2"},
        {"lan2,lan1", "lan1", 2, "lan2"}, // two interfaces always start from "lan1"
        {"eth0", "eth0", 1, ""},
        {"lan1", "lan1", 1, ""},
        {"lan2", "lan2", 1, ""}, // a single port may be named "lan2"
        {"wan0", "eth0", 1, ""}, // any other single name keeps "eth0"
        {"lan22", "eth0", 1, ""},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.capNames);
        sandbox::set_device(c.capNames);
        EXPECT_EQ(0, NET_Init());
        EXPECT_STREQ(c.first, g_pcLan1Name);
        NetIfNames names;
        memset(&names, 0x5a, sizeof names);
        ASSERT_EQ(0, NET_GetIntfNames(&names));
        EXPECT_EQ(c.count, names.iIfNum);
        EXPECT_STREQ(c.first, names.szFirstName);
        EXPECT_STREQ(c.second, names.szSecondName);
        if (c.count == 1) {
            const char zero[16] = {0};
            EXPECT_EQ(0, memcmp(zero, names.szSecondName, 16)) << "second name not all zero";
        }
    }
}

TEST(Frame, GetIntfNamesRefusesNull)
{
    LogCapture log;
    EXPECT_EQ(-1, NET_GetIntfNames(nullptr));
    EXPECT_EQ(std::vector<std::string>{expect_line(
                  "NET_GetIntfNames", "PL_PARAM_ERROR_PRINT \"pstIfNames: (nil). \\n\"")},
              log.texts());
    ASSERT_EQ(1u, log.lines().size());
    EXPECT_EQ(3, log.lines()[0].level);
}

class FrameNet : public ::testing::Test
{
  protected:
    void SetUp() override
    {
        REQUIRE_SANDBOX();
        // lan1: a veth to a neighbour, with IPv4 and IPv6; lan2: a tap with only a MAC.
        sandbox::veth("lan1", "peer1", &peer_);
        sandbox::set_mac("lan1", "02:11:22:33:44:01");
        sandbox::addr_add("lan1", "192.168.1.10/24");
        sandbox::addr_add("lan1", "2001:db8::10/64");
        sandbox::tap("lan2");
        sandbox::set_mac("lan2", "02:11:22:33:44:02");
    }
    sandbox::Peer peer_;
};

TEST_F(FrameNet, GetInterfacesListsEveryInterfaceButLoopback)
{
    sandbox::FdCheck fds;
    NetIfInfo info[8];
    ASSERT_EQ(2, NET_GetInterfaces(info, 8));
    const NetIfInfo *lan1 = strcmp(info[0].szIfName, "lan1") == 0 ? &info[0] : &info[1];
    const NetIfInfo *lan2 = lan1 == &info[0] ? &info[1] : &info[0];
    EXPECT_STREQ("lan1", lan1->szIfName);
    EXPECT_STREQ("192.168.1.10", lan1->szIpv4Addr);
    EXPECT_STREQ("255.255.255.0", lan1->szIpv4Mask);
    EXPECT_STREQ("192.168.1.255", lan1->szIpv4Broadcast);
    EXPECT_NE(std::string(), lan1->szIpv6Addr);
    const unsigned char mac1[6] = {0x02, 0x11, 0x22, 0x33, 0x44, 0x01};
    EXPECT_EQ(0, memcmp(mac1, lan1->aucMac, 6));

    // Link-layer entry only: listed, addresses empty, MAC filled.
    EXPECT_STREQ("lan2", lan2->szIfName);
    EXPECT_STREQ("", lan2->szIpv4Addr);
    EXPECT_STREQ("", lan2->szIpv6Addr);
    const unsigned char mac2[6] = {0x02, 0x11, 0x22, 0x33, 0x44, 0x02};
    EXPECT_EQ(0, memcmp(mac2, lan2->aucMac, 6));
    // Untouched elements beyond the count are zeroed.
    NetIfInfo zero;
    memset(&zero, 0, sizeof zero);
    EXPECT_EQ(0, memcmp(&zero, &info[2], sizeof zero));
}

TEST_F(FrameNet, GetInterfacesStopsAtTheElementCount)
{
    // The kernel lists the link-layer entries first, so one element stops the walk right
    // after the first interface's MAC: its addresses, listed later, never arrive.
    NetIfInfo info[2];
    memset(info, 0x5a, sizeof info);
    ASSERT_EQ(1, NET_GetInterfaces(info, 1));
    EXPECT_TRUE(strcmp(info[0].szIfName, "lan1") == 0 || strcmp(info[0].szIfName, "lan2") == 0);
    EXPECT_STREQ("", info[0].szIpv4Addr);
    EXPECT_STREQ("", info[0].szIpv6Addr);
    EXPECT_EQ(0x02, info[0].aucMac[0]);
    EXPECT_EQ(0x5a, reinterpret_cast<unsigned char *>(&info[1])[0]) << "wrote past the count";

    EXPECT_EQ(0, NET_GetInterfaces(info, 0));
}

TEST_F(FrameNet, GetInterfacesReportsTheLastAddressOfAFamily)
{
    sandbox::addr_add("lan1", "10.1.2.3/8");
    std::string order = sandbox::sh_out("ip -4 -o addr show dev lan1 | awk '{print $4}'");
    std::string last = order.substr(order.rfind('\n', order.size() - 2) + 1);
    last = last.substr(0, last.find('/'));
    NetIfInfo info[4];
    ASSERT_EQ(2, NET_GetInterfaces(info, 4));
    const NetIfInfo *lan1 = strcmp(info[0].szIfName, "lan1") == 0 ? &info[0] : &info[1];
    EXPECT_EQ(last, lan1->szIpv4Addr);
}

TEST(Frame, GetInterfacesRefusesNull)
{
    LogCapture log;
    EXPECT_EQ(0, NET_GetInterfaces(nullptr, 4));
    EXPECT_EQ(std::vector<std::string>{expect_line(
                  "NET_GetInterfaces", "PL_PARAM_ERROR_PRINT \"pstNetIfArray: (nil). \\n\"")},
              log.texts());
}

TEST_F(FrameNet, GetMacAddrTextAndTruncation)
{
    struct Case {
        unsigned int len;
        const char *text;
    } cases[] = {
        {18, "02:11:22:33:44:01"},
        {64, "02:11:22:33:44:01"},
        {8, "02:11:2"}, // two bytes, their colon and the first digit of the third
        {1, ""},
    };
    sandbox::FdCheck fds;
    for (const Case &c : cases) {
        SCOPED_TRACE(c.len);
        char buf[64];
        memset(buf, '#', sizeof buf);
        ASSERT_EQ(0, NET_GetMacAddr("lan1", buf, c.len));
        EXPECT_STREQ(c.text, buf);
        if (c.len < sizeof buf) {
            EXPECT_EQ('#', buf[c.len]) << "wrote past the buffer";
        }
    }
}

TEST_F(FrameNet, LongNamesAreCutTo15Characters)
{
    sandbox::veth("abcdefghijklmno", "peer2", &peer_);
    sandbox::set_mac("abcdefghijklmno", "02:aa:bb:cc:dd:ee");
    char buf[32];
    ASSERT_EQ(0, NET_GetMacAddr("abcdefghijklmnoVWXYZ", buf, sizeof buf));
    EXPECT_STREQ("02:AA:BB:CC:DD:EE", buf);
    unsigned char mac[6] = {0};
    ASSERT_EQ(0, NET_GetMacAddrNum("abcdefghijklmnoVWXYZ", mac, sizeof mac));
    EXPECT_EQ(0xee, mac[5]);
}

TEST_F(FrameNet, GetMacAddrFailures)
{
    sandbox::FdCheck fds;
    char buf[32];
    {
        LogCapture log;
        EXPECT_EQ(-1, NET_GetMacAddr(nullptr, buf, sizeof buf));
        EXPECT_EQ(std::vector<std::string>{expect_line(
                      "NET_GetMacAddr", "PL_PARAM_ERROR_PRINT \"pcIfName: (nil), pcMacAddr: " +
                                            ptr_text(buf) + ". \\n\"")},
                  log.texts());
    }
    {
        LogCapture log;
        EXPECT_EQ(-1, NET_GetMacAddr("nosuchdev", buf, sizeof buf));
        ASSERT_EQ(1u, log.lines().size());
        EXPECT_EQ(7, log.lines()[0].level) << "a missing interface is routine";
        EXPECT_EQ(expect_line("NET_GetMacAddr", "PL_IOCTL_ERROR_PRINT \"No such device.\\n\""),
                  log.texts()[0]);
    }
    {
        LogCapture log;
        sandbox::NoMoreDescriptors limit;
        EXPECT_EQ(-1, NET_GetMacAddr("lan1", buf, sizeof buf));
        EXPECT_EQ(std::vector<std::string>{expect_line(
                      "NET_GetMacAddr", "PL_OPEN_SOCKET_ERROR_PRINT \"iFd: -1\\n\"")},
                  log.texts());
    }
}

TEST_F(FrameNet, GetMacAddrNumRefusals)
{
    struct Case {
        const char *name;
        unsigned int len;
        bool nullBuf;
        int result;
    } cases[] = {
        {"lan1", 6, false, 0},  {"lan1", 7, false, 0},        {"lan1", 5, false, -1},
        {"lan1", 0, false, -1}, {"lo", 16, false, -1},        {nullptr, 16, false, -1},
        {"lan1", 16, true, -1}, {"nosuchdev", 16, false, -1},
    };
    sandbox::FdCheck fds;
    LogCapture log;
    for (const Case &c : cases) {
        SCOPED_TRACE(std::string(c.name ? c.name : "(null)") + " " + std::to_string(c.len));
        unsigned char mac[16] = {0};
        EXPECT_EQ(c.result, NET_GetMacAddrNum(c.name, c.nullBuf ? nullptr : mac, c.len));
        if (c.result == 0) {
            const unsigned char want[6] = {0x02, 0x11, 0x22, 0x33, 0x44, 0x01};
            EXPECT_EQ(0, memcmp(want, mac, 6));
            EXPECT_EQ(0, mac[6]) << "more than six bytes written";
        }
    }
    EXPECT_TRUE(log.lines().empty()) << "the older call logs nothing";
}

TEST_F(FrameNet, GetMacAddrNumRefusesBeforeOpeningASocket)
{
    // With no descriptor left, any socket() would fail and print "Socket: ..." on stderr.
    ::testing::internal::CaptureStderr();
    {
        sandbox::NoMoreDescriptors limit;
        EXPECT_EQ(-1, NET_GetMacAddrNum("lo", reinterpret_cast<unsigned char *>(this), 16));
        unsigned char mac[8];
        EXPECT_EQ(-1, NET_GetMacAddrNum("lan1", mac, 5));
    }
    EXPECT_EQ("", ::testing::internal::GetCapturedStderr());

    ::testing::internal::CaptureStderr();
    {
        sandbox::NoMoreDescriptors limit;
        unsigned char mac[8];
        EXPECT_EQ(-1, NET_GetMacAddrNum("lan1", mac, 8));
    }
    EXPECT_EQ(0u, ::testing::internal::GetCapturedStderr().rfind("Socket: ", 0));
}

TEST(Frame, IsPortUsed)
{
    REQUIRE_SANDBOX();
    sandbox::FdCheck fds;
    int srv = socket(AF_INET, SOCK_STREAM, 0);
    struct sockaddr_in a;
    memset(&a, 0, sizeof a);
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(0, bind(srv, reinterpret_cast<sockaddr *>(&a), sizeof a));
    ASSERT_EQ(0, listen(srv, 1));
    socklen_t len = sizeof a;
    getsockname(srv, reinterpret_cast<sockaddr *>(&a), &len);
    unsigned short port = ntohs(a.sin_port);

    EXPECT_EQ(1, NET_IsPortUsed(port)) << "held by a listening socket";
    close(srv);
    EXPECT_EQ(0, NET_IsPortUsed(port)) << "free again (no connection ever went through it)";

    // A UDP socket on the port says nothing about TCP.
    int udp = socket(AF_INET, SOCK_DGRAM, 0);
    a.sin_port = htons(port);
    ASSERT_EQ(0, bind(udp, reinterpret_cast<sockaddr *>(&a), sizeof a));
    EXPECT_EQ(0, NET_IsPortUsed(port));
    close(udp);

    LogCapture log;
    {
        sandbox::NoMoreDescriptors limit;
        EXPECT_EQ(0, NET_IsPortUsed(port)) << "cannot tell: reported free";
    }
    EXPECT_EQ(std::vector<std::string>{expect_line(
                  "NET_IsPortUsed", "PL_OPEN_SOCKET_ERROR_PRINT \"iSocketFd: -1\\n\"")},
              log.texts());
}

TEST(Frame, RestartReportsTheScriptStatus)
{
    REQUIRE_SANDBOX();
    struct Case {
        const char *body;
        int result;
    } cases[] = {
        {"echo \"$@\" > /tmp/restart-args; exit 0", 0},
        {"exit 3", -1},
        {"kill -9 $$", -1},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.body);
        sandbox::write_script("/etc/init.d/network", c.body);
        EXPECT_EQ(c.result, NET_Restart());
    }
    EXPECT_EQ("restart\n", sandbox::read_file("/tmp/restart-args"));
    sandbox::must("rm /etc/init.d/network");
    EXPECT_EQ(-1, NET_Restart()) << "missing script";
}
