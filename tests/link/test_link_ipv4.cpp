// IPv4 addressing against real interfaces: addresses, masks, the other-port refusal,
// default gateways from the route table, the default-interface calls and the bridge test.
#include <string.h>

#include <string>

#include "libnetwork.h"
#include "sandbox.h"

using sandbox::expect_line;
using sandbox::LogCapture;

namespace
{

std::string ipv4_of(const std::string &dev)
{
    return sandbox::sh_out("ip -4 -o addr show dev " + dev + " | awk '{printf \"%s \", $4}'");
}

std::string routes()
{
    return sandbox::sh_out("ip -4 route show default");
}

} // namespace

class Ipv4 : public ::testing::Test
{
  protected:
    void SetUp() override
    {
        REQUIRE_SANDBOX();
        sandbox::veth("lan1", "nb1", &peer_);
        sandbox::veth("lan2", "nb2", &peer_);
        sandbox::addr_add("lan1", "192.168.1.10/24");
        sandbox::addr_add("lan2", "192.168.2.10/24");
    }
    sandbox::Peer peer_;
};

TEST_F(Ipv4, ReadAndSetAddressAndMask)
{
    sandbox::FdCheck fds;
    char addr[16] = {0}, mask[16] = {0};
    ASSERT_EQ(0, NET_GetIpv4Addr("lan1", addr, sizeof addr));
    ASSERT_EQ(0, NET_GetIpv4Mask("lan1", mask, sizeof mask));
    EXPECT_STREQ("192.168.1.10", addr);
    EXPECT_STREQ("255.255.255.0", mask);

    ASSERT_EQ(0, NET_SetIpv4Addr("lan1", "10.20.30.40"));
    ASSERT_EQ(0, NET_SetIpv4Mask("lan1", "255.255.0.0"));
    EXPECT_EQ("10.20.30.40/16 ", ipv4_of("lan1"));
    ASSERT_EQ(0, NET_GetIpv4Addr("lan1", addr, sizeof addr));
    EXPECT_STREQ("10.20.30.40", addr);

    // A short buffer: inet_ntop refuses, the call still reports the request's success.
    char small[8] = "unset";
    EXPECT_EQ(0, NET_GetIpv4Addr("lan1", small, sizeof small));
}

TEST_F(Ipv4, TextThatIsNoAddressSetsZero)
{
    // inet_pton answers 0 for "abc": the zeroed field goes to the kernel as 0.0.0.0, which
    // takes the address away, and the kernel's verdict is the result.
    EXPECT_EQ(0, NET_SetIpv4Addr("lan1", "abc"));
    EXPECT_EQ("", ipv4_of("lan1"));
}

TEST_F(Ipv4, SetFailuresShareOneText)
{
    sandbox::FdCheck fds;
    LogCapture log;
    EXPECT_EQ(-1, NET_SetIpv4Addr("nosuchdev", "10.0.0.1"));
    EXPECT_EQ(-1, NET_SetIpv4Mask("nosuchdev", "255.0.0.0"));
    // The mask call reports with the address call's text on purpose.
    EXPECT_EQ((std::vector<std::string>{
                  expect_line("NET_SetIpv4Addr", "\"ioctl(SIOCSIFADDR) failed!\\n\""),
                  expect_line("NET_SetIpv4Mask", "\"ioctl(SIOCSIFADDR) failed!\\n\""),
              }),
              log.texts());
}

TEST_F(Ipv4, ReadFailures)
{
    sandbox::FdCheck fds;
    char buf[16] = "keep";
    struct Case {
        const char *dev;
        std::vector<std::string> log;
    } cases[] = {
        {"wan-pppoe", {}}, // a PPPoE link that is down is polled silently
        {"nosuchdev",
         {expect_line("NET_GetIpv4Addr", "PL_IOCTL_ERROR_PRINT \"No such device.\\n\"")}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.dev);
        LogCapture log;
        EXPECT_EQ(-1, NET_GetIpv4Addr(c.dev, buf, sizeof buf));
        EXPECT_EQ(c.log, log.texts());
    }
    LogCapture log;
    EXPECT_EQ(-1, NET_GetIpv4Mask("wan-pppoe", buf, sizeof buf));
    EXPECT_EQ(1u, log.lines().size()) << "only the address read is silent";
    EXPECT_STREQ("keep", buf);
}

TEST_F(Ipv4, OtherPortRefusesItsAddressOnTwoPortDevices)
{
    sandbox::set_device("lan1,lan2");
    NET_Init();
    {
        LogCapture log;
        sandbox::FdCheck fds;
        EXPECT_EQ(-1, NET_SetIpv4Addr("lan2", "192.168.1.10"));
        EXPECT_EQ(
            (std::vector<std::string>{
                expect_line("INET_IsIpv4AddrExist", "\"Default lan ip address is existed.\\n\""),
                expect_line("NET_SetIpv4Addr", "\"Ipaddr is exist, pcOtherIfName:lan1, "
                                               "ipaddr:192.168.1.10. \\n\""),
            }),
            log.texts());
        EXPECT_EQ("192.168.2.10/24 ", ipv4_of("lan2")) << "kernel untouched";
    }
    // And the other way round; a third name is never checked.
    EXPECT_EQ(-1, NET_SetIpv4Addr("lan1", "192.168.2.10"));
    sandbox::veth("wan0", "nb3", &peer_);
    EXPECT_EQ(0, NET_SetIpv4Addr("wan0", "192.168.1.10"));

    // The mask call has no such check.
    EXPECT_EQ(0, NET_SetIpv4Mask("lan2", "255.255.0.0"));

    // One-port device: not checked at all.
    sandbox::set_device("lan1");
    NET_Init();
    EXPECT_EQ(0, NET_SetIpv4Addr("lan2", "192.168.1.10"));
}

TEST_F(Ipv4, AddressExistIsATextComparison)
{
    struct Case {
        const char *dev;
        const char *addr;
        int result;
    } cases[] = {
        {"lan1", "192.168.1.10", 1},  {"lan1", "192.168.001.010", 0},
        {"lan1", "192.168.1.1", 0},   {"nosuchdev", "192.168.1.10", 0},
        {nullptr, "192.168.1.10", 0}, {"lan1", nullptr, 0},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(std::string(c.dev ? c.dev : "(null)") + " " + (c.addr ? c.addr : "(null)"));
        EXPECT_EQ(c.result, INET_IsIpv4AddrExist(c.dev, c.addr));
    }
}

TEST_F(Ipv4, DefaultGatewayLifecycle)
{
    sandbox::FdCheck fds;
    char gw[16] = {0};
    ASSERT_EQ(0, NET_GetIpv4Gateway("lan1", gw, sizeof gw));
    EXPECT_STREQ("", gw) << "no default route: success, buffer untouched";

    ASSERT_EQ(0, NET_SetIpv4Gateway("lan1", "192.168.1.1"));
    EXPECT_EQ("default via 192.168.1.1 dev lan1 \n", routes());
    ASSERT_EQ(0, NET_GetIpv4Gateway("lan1", gw, sizeof gw));
    EXPECT_STREQ("192.168.1.1", gw);
    char other[16] = {0};
    ASSERT_EQ(0, NET_GetIpv4Gateway("lan2", other, sizeof other));
    EXPECT_STREQ("", other) << "another interface's default route is not ours";

    LogCapture log;
    EXPECT_EQ(-1, NET_SetIpv4Gateway("lan1", "192.168.1.1"));
    ASSERT_EQ(1u, log.lines().size());
    EXPECT_EQ(7, log.lines()[0].level) << "an existing route is routine";
    EXPECT_EQ(expect_line("NET_SetIpv4Gateway", "PL_IOCTL_ERROR_PRINT \"File exists.\\n\""),
              log.texts()[0]);

    log.clear();
    ASSERT_EQ(0, NET_DelIpv4Gateway("lan1", "192.168.1.1"));
    EXPECT_EQ("", routes());
    EXPECT_EQ(-1, NET_DelIpv4Gateway("lan1", "192.168.1.1"));
    ASSERT_EQ(1u, log.lines().size());
    EXPECT_EQ(3, log.lines()[0].level);
}

TEST_F(Ipv4, ZeroGatewayIsANoOpOnlyWhenSetting)
{
    LogCapture log;
    EXPECT_EQ(0, NET_SetIpv4Gateway("lan1", "0.0.0.0"));
    EXPECT_EQ("", routes());
    EXPECT_EQ(
        std::vector<std::string>{expect_line("NET_SetIpv4Gateway", "\"Invalid gateway ip. \\n\"")},
        log.texts());
    EXPECT_EQ(7, log.lines()[0].level);
    log.clear();
    EXPECT_EQ(-1, NET_DelIpv4Gateway("lan1", "0.0.0.0")) << "the request is made";
    EXPECT_EQ(1u, log.lines().size());

    log.clear();
    EXPECT_EQ(-1, NET_DelIpv4Gateway(nullptr, "1.2.3.4"));
    EXPECT_EQ(
        std::vector<std::string>{expect_line("NET_DelIpv4Gateway", "PL_PARAM_ERROR_PRINT \"\\n\"")},
        log.texts());
}

TEST_F(Ipv4, OnlyPlainDefaultRoutesCount)
{
    // 0.0.0.0/32 via a gateway: destination 0 but flags up|gateway|host (7).
    sandbox::must("ip route add 0.0.0.0/32 via 192.168.1.1 dev lan1");
    char gw[16] = {0};
    ASSERT_EQ(0, NET_GetIpv4Gateway("lan1", gw, sizeof gw));
    EXPECT_STREQ("", gw);
    sandbox::must("ip route add default via 192.168.1.254 dev lan1");
    ASSERT_EQ(0, NET_GetIpv4Gateway("lan1", gw, sizeof gw));
    EXPECT_STREQ("192.168.1.254", gw);
}

TEST_F(Ipv4, DefaultInterfaceCalls)
{
    sandbox::set_device("lan1,lan2");
    NET_Init();
    char buf[16] = {0};
    ASSERT_EQ(0, NET_IPv4GetDefIfAddr(buf, sizeof buf));
    EXPECT_STREQ("192.168.1.10", buf);
    ASSERT_EQ(0, NET_IPv4GetDefIfMask(buf, sizeof buf));
    EXPECT_STREQ("255.255.255.0", buf);
    ASSERT_EQ(0, NET_IPv4SetDefGatway("192.168.1.1"));
    ASSERT_EQ(0, NET_IPv4GetDefGateway(buf, sizeof buf));
    EXPECT_STREQ("192.168.1.1", buf);
    ASSERT_EQ(0, NET_IPv4DelDefGatway("192.168.1.1"));
    EXPECT_EQ("", routes());

    // A one-port device whose "eth0" does not exist: each reports its own line too.
    sandbox::set_device("eth0");
    NET_Init();
    struct Case {
        const char *func;
        const char *msg;
        int (*call)(char *);
    } cases[] = {
        {"NET_IPv4GetDefIfAddr", "\"Get default ip address failed. \\n\"",
         [](char *b) { return NET_IPv4GetDefIfAddr(b, 16); }},
        {"NET_IPv4GetDefIfMask", "\"Get default ip netmask failed. \\n\"",
         [](char *b) { return NET_IPv4GetDefIfMask(b, 16); }},
        {"NET_IPv4SetDefGatway", "\"Set default gateway failed. \\n\"",
         [](char *) { return NET_IPv4SetDefGatway("10.0.0.1"); }},
        {"NET_IPv4DelDefGatway", "\"Delete default gateway failed. \\n\"",
         [](char *) { return NET_IPv4DelDefGatway("10.0.0.1"); }},
        {"NET_IPv4GetDefGateway", "\"Get ipv4 gateway failed. \\n\"",
         [](char *) { return NET_IPv4GetDefGateway(nullptr, 16); }},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.func);
        LogCapture log;
        EXPECT_EQ(-1, c.call(buf));
        ASSERT_FALSE(log.texts().empty());
        EXPECT_EQ(expect_line(c.func, c.msg), log.texts().back());
        EXPECT_EQ(3, log.lines().back().level);
    }
}

TEST(Ipv4Bridge, BridgeTest)
{
    REQUIRE_SANDBOX();
    sandbox::bridge("br0");
    sandbox::tap("tap0");
    EXPECT_EQ(1, NET_IsBridge("br0"));
    EXPECT_EQ(0, NET_IsBridge("tap0"));
    EXPECT_EQ(0, NET_IsBridge("nosuchdev"));
    LogCapture log;
    EXPECT_EQ(0, NET_IsBridge(nullptr));
    EXPECT_EQ(std::vector<std::string>{expect_line(
                  "NET_IsBridge", "PL_PARAM_ERROR_PRINT \"pcIfName: (nil). \\n\"")},
              log.texts());
}

// The end-to-end change: refusals first, then the stored address, then the kernel.
class Ipv4SetAddr : public Ipv4
{
  protected:
    void SetUp() override
    {
        Ipv4::SetUp();
        if (IsSkipped())
            return;
        sandbox::write_file("/etc/config/network", kConfig);
    }
    static constexpr const char *kConfig = "\n"
                                           "config interface 'lan1'\n"
                                           "\toption proto 'static'\n"
                                           "\toption ipv4dhcp '0'\n"
                                           "\toption ipaddr '192.168.1.10'\n"
                                           "\toption netmask '255.255.255.0'\n"
                                           "\n"
                                           "config interface 'lan2'\n"
                                           "\toption proto 'dhcp'\n"
                                           "\toption ipv4dhcp '1'\n";
};

TEST_F(Ipv4SetAddr, ConfigurationFirstThenKernel)
{
    sandbox::FdCheck fds;
    ASSERT_EQ(0, NET_IPv4SetAddr("lan1", "10.1.1.5", "255.255.0.0"));
    std::string file = sandbox::read_file("/etc/config/network");
    EXPECT_NE(std::string::npos, file.find("\toption ipaddr '10.1.1.5'\n")) << file;
    EXPECT_NE(std::string::npos, file.find("\toption netmask '255.255.0.0'\n")) << file;
    EXPECT_EQ("10.1.1.5/16 ", ipv4_of("lan1"));
}

TEST_F(Ipv4SetAddr, DhcpModeRefusesAndChangesNothing)
{
    LogCapture log;
    EXPECT_EQ(-1, NET_IPv4SetAddr("lan2", "10.2.2.2", "255.0.0.0"));
    EXPECT_EQ(kConfig, sandbox::read_file("/etc/config/network"));
    EXPECT_EQ("192.168.2.10/24 ", ipv4_of("lan2"));
    EXPECT_EQ(std::vector<std::string>{expect_line(
                  "NET_IPv4SetAddr", "\"in dhcp mode, do not need set address \\n\"")},
              log.texts());
    EXPECT_EQ(7, log.lines()[0].level);
}

TEST_F(Ipv4SetAddr, OtherPortRefusalWritesNoConfiguration)
{
    sandbox::set_device("lan1,lan2");
    NET_Init();
    sandbox::write_file("/etc/config/network", "config interface 'lan2'\n"
                                               "\toption ipv4dhcp '0'\n");
    LogCapture log;
    EXPECT_EQ(-1, NET_IPv4SetAddr("lan2", "192.168.1.10", "255.255.255.0"));
    EXPECT_EQ("config interface 'lan2'\n\toption ipv4dhcp '0'\n",
              sandbox::read_file("/etc/config/network"));
    EXPECT_EQ(expect_line("NET_IPv4SetAddr",
                          "\"Ipaddr is exist, pcOtherIfName:lan1, ipaddr:192.168.1.10. \\n\""),
              log.texts().back());

    // A one-port device does not check: stored and set.
    sandbox::set_device("lan1");
    NET_Init();
    EXPECT_EQ(0, NET_IPv4SetAddr("lan2", "192.168.1.10", "255.255.255.0"));
    EXPECT_NE(std::string::npos,
              sandbox::read_file("/etc/config/network").find("ipaddr '192.168.1.10'"));
}

TEST_F(Ipv4SetAddr, KernelFailureKeepsTheStoredAddress)
{
    sandbox::write_file("/etc/config/network", "config interface 'ghost'\n"
                                               "\toption ipv4dhcp '0'\n");
    LogCapture log;
    EXPECT_EQ(-1, NET_IPv4SetAddr("ghost", "10.3.3.3", "255.0.0.0"));
    EXPECT_NE(std::string::npos,
              sandbox::read_file("/etc/config/network").find("ipaddr '10.3.3.3'"))
        << "no roll-back of the configuration";
    EXPECT_EQ(expect_line("NET_IPv4SetAddr", "\"ioctl(SIOCSIFADDR) failed, No such device \\n\""),
              log.texts().back());
    EXPECT_EQ(7, log.lines().back().level);

    // A mask that does not convert leaves the new address in force.
    log.clear();
    sandbox::write_file("/etc/config/network", kConfig);
    EXPECT_EQ(-1, NET_IPv4SetAddr("lan1", "10.4.4.4", "255.0.0"));
    EXPECT_EQ(expect_line("NET_IPv4SetAddr", "\"pcIpv4Mask: 255.0.0.\\n\""), log.texts().back());
    // The mask request never went out; the kernel gave the new address its classful mask.
    EXPECT_EQ("10.4.4.4/8 ", ipv4_of("lan1"));
}

TEST_F(Ipv4SetAddr, MissingSectionOrNullStopsBeforeTheKernel)
{
    LogCapture log;
    EXPECT_EQ(-1, NET_IPv4SetAddr("lan1", nullptr, "255.0.0.0"));
    sandbox::write_file("/etc/config/network", "");
    EXPECT_EQ(-1, NET_IPv4SetAddr("lan1", "10.5.5.5", "255.0.0.0"));
    EXPECT_EQ(expect_line("NET_IPv4SetAddr", "\"write network config file failed \\n\""),
              log.texts().back());
    EXPECT_EQ("192.168.1.10/24 ", ipv4_of("lan1"));
}
