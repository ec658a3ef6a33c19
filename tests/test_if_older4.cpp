// The older direct-ioctl calls against a real interface: they agree with the kernel and
// with the exported calls, and refuse bad arguments quietly.
#include <arpa/inet.h>

#include <string>

#include "libnetwork.h"
#include "sandbox.h"

class Older4 : public ::testing::Test
{
  protected:
    void SetUp() override
    {
        REQUIRE_SANDBOX();
        sandbox::veth("eth0", "nb0", &peer_);
        sandbox::set_mac("eth0", "02:aa:bb:cc:dd:01");
        sandbox::addr_add("eth0", "192.168.7.20/24");
    }
    sandbox::Peer peer_;
};

TEST_F(Older4, ReadersAgreeWithTheKernel)
{
    sandbox::FdCheck fds;
    sandbox::LogCapture log;
    char buf[32];
    ASSERT_EQ(0, get_ipaddr("eth0", buf, sizeof buf));
    EXPECT_STREQ("192.168.7.20", buf);
    ASSERT_EQ(0, get_netmask("eth0", buf, sizeof buf));
    EXPECT_STREQ("255.255.255.0", buf);
    ASSERT_EQ(0, get_broadcast_addr("eth0", buf, sizeof buf));
    EXPECT_STREQ("192.168.7.255", buf);
    ASSERT_EQ(0, get_mac("eth0", buf, sizeof buf));
    EXPECT_STREQ("02:AA:BB:CC:DD:01", buf);
    unsigned int num = 0;
    ASSERT_EQ(0, get_ipaddr1("eth0", &num));
    EXPECT_EQ(inet_addr("192.168.7.20"), num);
    int mtu = 0;
    ASSERT_EQ(0, get_mtu("eth0", &mtu));
    EXPECT_EQ(1500, mtu);
    EXPECT_TRUE(log.lines().empty()) << "the older calls log nothing";
}

TEST_F(Older4, WritersChangeTheKernel)
{
    sandbox::FdCheck fds;
    ASSERT_EQ(0, set_ipaddr("eth0", "10.9.8.7"));
    ASSERT_EQ(0, set_netmask("eth0", "255.0.0.0"));
    ASSERT_EQ(0, set_mtu("eth0", 1400));
    ASSERT_EQ(0, set_mac("eth0", "02:00:00:00:00:99"));
    EXPECT_NE(std::string::npos, sandbox::sh_out("ip -o addr show dev eth0").find("10.9.8.7/8"));
    char mac[18];
    ASSERT_EQ(0, NET_GetMacAddr("eth0", mac, sizeof mac));
    EXPECT_STREQ("02:00:00:00:00:99", mac);
    int mtu = 0;
    ASSERT_EQ(0, NET_GetMtu("eth0", &mtu));
    EXPECT_EQ(1400, mtu);

    ASSERT_EQ(0, set_gateway("eth0", "10.0.0.1"));
    char gw[16], dev[16];
    ASSERT_EQ(0, get_gateway("eth0", gw, sizeof gw));
    EXPECT_STREQ("10.0.0.1", gw);
    ASSERT_EQ(0, get_gateway_devname(dev, sizeof dev));
    EXPECT_STREQ("eth0", dev);
    ASSERT_EQ(0, del_gateway("eth0", "10.0.0.1"));
    EXPECT_EQ(-1, get_gateway("eth0", gw, sizeof gw)) << "no default route";
    EXPECT_EQ(-1, get_gateway_devname(dev, sizeof dev));

    ASSERT_EQ(0, if_down("eth0"));
    EXPECT_EQ(std::string::npos, sandbox::sh_out("ip -o link show eth0").find(",UP"));
    ASSERT_EQ(0, if_up("eth0"));
}

TEST_F(Older4, BadArgumentsAreRefused)
{
    sandbox::FdCheck fds;
    char buf[32];
    int mtu;
    unsigned int num;
    struct Case {
        const char *what;
        int result;
    } cases[] = {
        {"get_ipaddr null name", get_ipaddr(nullptr, buf, 32)},
        {"get_ipaddr zero length", get_ipaddr("eth0", buf, 0)},
        {"get_ipaddr short buffer", get_ipaddr("eth0", buf, 4)},
        {"get_mac short buffer", get_mac("eth0", buf, 17)},
        {"get_mac missing", get_mac("nosuchdev", buf, 32)},
        {"get_mtu null out", get_mtu("eth0", nullptr)},
        {"get_ipaddr1 missing", get_ipaddr1("nosuchdev", &num)},
        {"set_ipaddr bad text", set_ipaddr("eth0", "1.2.3.4.5")},
        {"set_netmask null", set_netmask("eth0", nullptr)},
        {"set_mac bad text", set_mac("eth0", "02:00:00:00:00")},
        {"set_mac trailing text", set_mac("eth0", "02:00:00:00:00:01x")},
        {"set_mtu zero", set_mtu("eth0", 0)},
        {"set_gateway bad text", set_gateway("eth0", "gateway")},
        {"del_gateway absent", del_gateway("eth0", "192.168.7.1")},
        {"if_up missing", if_up("nosuchdev")},
        {"get_mtu missing", get_mtu("nosuchdev", &mtu)},
    };
    for (const Case &c : cases)
        EXPECT_EQ(c.result, -1) << c.what;
}

TEST(Older4Subnet, SameSubnet)
{
    struct Case {
        const char *a, *b, *mask;
        int result;
    } cases[] = {
        {"192.168.1.10", "192.168.1.200", "255.255.255.0", 1},
        {"192.168.1.10", "192.168.2.10", "255.255.255.0", 0},
        {"192.168.1.10", "192.168.2.10", "255.255.0.0", 1},
        {"10.0.0.1", "11.0.0.1", "0.0.0.0", 1},
        {"10.0.0.1", "bad", "255.0.0.0", -1},
        {nullptr, "10.0.0.1", "255.0.0.0", -1},
    };
    for (const Case &c : cases)
        EXPECT_EQ(c.result, isSameSubnet(c.a, c.b, c.mask)) << (c.a ? c.a : "(null)") << " " << c.b;
}
