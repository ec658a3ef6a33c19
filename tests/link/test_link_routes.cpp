// Static routes in the real kernel's table and in the real "network" file, the older
// kernel-only calls, and the active-interface record they route through.
#include <string.h>

#include <functional>
#include <string>
#include <vector>

#include "libnetwork.h"
#include "sandbox.h"
#include "../test_model_support.h"

using namespace modeltest;
using sandbox::FdCheck;
using sandbox::LogCapture;

namespace
{

std::string file(const std::vector<Section> &routes = {})
{
    std::vector<Section> s = {loopback(), {"interface", "lan", {opt("ifname", "eth0")}}};
    s.insert(s.end(), routes.begin(), routes.end());
    return uci_text(s);
}

Section route(const std::string &name, const std::string &target, const std::string &mask)
{
    return {"route", name, {opt("interface", "lan"), opt("target", target), opt("netmask", mask)}};
}

// Routes added through the kernel's route requests (protocol "boot"), in the kernel's order.
std::string kernel_routes(const std::string &dev = "eth0")
{
    return sandbox::sh_out("ip -4 route show dev " + dev + " proto boot");
}

std::string ioctl_failed(const std::string &func, const std::string &error)
{
    return tagged(func, "PL_IOCTL_ERROR_PRINT", error + ".\\n");
}

class Route : public ::testing::Test
{
  protected:
    void SetUp() override
    {
        REQUIRE_SANDBOX();
        sandbox::veth("eth0", "nb0", &peer_);
        sandbox::addr_add("eth0", "192.168.1.64/24");
        sandbox::write_file(kNetworkPath, file(), 0600);
    }
    sandbox::Peer peer_;
};

} // namespace

TEST_F(Route, HostAndNetworkRoutesInKernelAndFile)
{
    struct {
        const char *addr, *mask;
        std::string kernel; // the route's line
        Section stored;
    } cases[] = {
        {"10.9.8.7", "255.255.255.255", "10.9.8.7 scope link \n",
         route("eth0_0A090807", "10.9.8.7", "255.255.255.255")},
        {"10.1.0.0", "255.255.0.0", "10.1.0.0/16 scope link \n",
         route("eth0_0A010000", "10.1.0.0", "255.255.0.0")},
        // Not the host mask as text, so a network route (the kernel sees a /32 all the same);
        // a mask that is no address becomes all ones.
        {"10.2.3.0", "255.255.255.255 ", "10.2.3.0 scope link \n",
         route("eth0_0A020300", "10.2.3.0", "255.255.255.255 ")},
        {"10.3.0.0", "bogus", "10.3.0.0 scope link \n",
         route("eth0_0A030000", "10.3.0.0", "bogus")},
    };
    std::vector<Section> sections;
    std::string kernel;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.stored.name);
        FdCheck fds;
        LogCapture log;
        EXPECT_EQ(0, NET_IPv4SetRoute("eth0", c.addr, c.mask));
        EXPECT_EQ(Lines{}, log.texts());
        std::string now = kernel_routes();
        EXPECT_EQ(kernel.size() + c.kernel.size(), now.size());
        EXPECT_NE(std::string::npos, now.find(c.kernel)) << now;
        kernel = now;
        sections.push_back(c.stored);
        EXPECT_EQ(file(sections), stored());
    }
    for (size_t i = sizeof cases / sizeof cases[0]; i-- > 0;) {
        SCOPED_TRACE(cases[i].stored.name);
        EXPECT_EQ(0, NET_IPv4DelRoute("eth0", cases[i].addr, cases[i].mask));
        EXPECT_EQ(std::string::npos, kernel_routes().find(cases[i].kernel));
        sections.pop_back();
        EXPECT_EQ(file(sections), stored());
    }
    EXPECT_EQ("", kernel_routes());
}

TEST_F(Route, KernelFirstThenStore)
{
    const std::string n = ptr(nullptr), a = ptr("10.1.0.0"), m = ptr("255.255.0.0");
    struct {
        const char *what;
        std::string setup; // shell, before the call
        std::vector<Section> routes;
        std::function<int()> call;
        Lines log;
        std::string kernel; // afterwards; the file is never changed
    } cases[] = {
        {"an existing route fails at the kernel and stores nothing",
         "ip route add 10.1.0.0/16 dev eth0",
         {},
         [] { return NET_IPv4SetRoute("eth0", "10.1.0.0", "255.255.0.0"); },
         {ioctl_failed("NET_IPv4SetRoute", "File exists")},
         "10.1.0.0/16 scope link \n"},
        {"a route only in the file is not removed",
         "",
         {route("eth0_0A010000", "10.1.0.0", "255.255.0.0")},
         [] { return NET_IPv4DelRoute("eth0", "10.1.0.0", "255.255.0.0"); },
         {ioctl_failed("NET_IPv4DelRoute", "No such process")},
         ""},
        {"the kernel route stays when storing fails",
         "rm /etc/config/network",
         {},
         [] { return NET_IPv4SetRoute("eth0", "10.1.0.0", "255.255.0.0"); },
         no_package("NET_SetRouteCfg") +
             Lines{plain("NET_IPv4SetRoute", "add route config failed \\n")},
         "10.1.0.0/16 scope link \n"},
        {"removed from the kernel though not stored",
         "ip route add 10.1.0.0/16 dev eth0",
         {},
         [] { return NET_IPv4DelRoute("eth0", "10.1.0.0", "255.255.0.0"); },
         no_section("NET_DelRouteCfg", "eth0_0A010000") +
             Lines{plain("NET_IPv4DelRoute", "delete route config failed \\n")},
         ""},
        {"host bits outside the mask: the kernel's verdict",
         "",
         {},
         [] { return NET_IPv4SetRoute("eth0", "10.1.2.3", "255.255.0.0"); },
         {ioctl_failed("NET_IPv4SetRoute", "Invalid argument")},
         ""},
        {"null name",
         "",
         {},
         [] { return NET_IPv4DelRoute(nullptr, "10.1.0.0", "255.255.0.0"); },
         {param("NET_IPv4DelRoute",
                "pcIfName: " + n + ", pcAddr: " + a + ", pcMask: " + m + ". \\n")},
         ""},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        sandbox::write_file(kNetworkPath, file(c.routes), 0600);
        sandbox::must("ip route flush dev eth0 proto boot; " + c.setup);
        const std::string before = sandbox::read_file(kNetworkPath);
        FdCheck fds;
        LogCapture log;
        EXPECT_EQ(-1, c.call());
        EXPECT_EQ(c.log, log.texts());
        EXPECT_EQ(c.kernel, kernel_routes());
        EXPECT_EQ(before, sandbox::read_file(kNetworkPath));
    }
}

TEST_F(Route, OlderCallsTouchOnlyTheKernel)
{
    sandbox::veth("eth1", "nb1", &peer_);
    ASSERT_EQ(0, set_active_interface(""));
    struct {
        std::function<int()> call;
        int result;
        std::string out, dev, kernel;
    } cases[] = {
        {[] { return set_route1("10.4.0.0", "255.255.0.0", 0, "eth0"); }, 0, "", "eth0",
         "10.4.0.0/16 scope link \n"},
        // The host flag wins over the mask.
        {[] { return set_route1("10.5.0.0", "255.255.0.0", 7, "eth0"); }, 0, "", "eth0",
         "10.5.0.0 scope link \n"},
        // An address that does not convert is requested as 0.0.0.0.
        {[] { return set_route1("bogus", "255.255.255.0", 0, "eth0"); }, 0, "inet_aton fail.\n",
         "eth0", "0.0.0.0/24 scope link \n"},
        {[] { return set_route1("10.4.0.0", "255.255.0.0", 0, "eth0"); }, -1,
         "set_route ioctl error and errno=17\n", "eth0", ""},
        // The silent one routes through the active interface.
        {[] { return set_route("10.6.0.0", "255.255.0.0", 0); }, 0, "", "eth0",
         "10.6.0.0/16 scope link \n"},
        {[] { return set_active_interface("eth1") + set_route("10.7.0.1", "bogus", 1); }, 0, "",
         "eth1", "10.7.0.1 scope link \n"},
        {[] { return set_route("10.7.0.1", "255.255.255.255", 1); }, -1, "", "eth1", ""},
        {[] { return set_route(nullptr, "255.255.0.0", 0); }, -1, "", "eth1", ""},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.kernel + c.out);
        FdCheck fds;
        LogCapture log;
        testing::internal::CaptureStdout();
        EXPECT_EQ(c.result, c.call());
        EXPECT_EQ(c.out, testing::internal::GetCapturedStdout());
        EXPECT_EQ(Lines{}, log.texts()) << "no log calls";
        EXPECT_NE(std::string::npos, kernel_routes(c.dev).find(c.kernel));
    }
    EXPECT_EQ(file(), stored());
}

TEST(ActiveInterface, LiteralDefaultsAndBoundedCopies)
{
    struct {
        const char *device, *lan1, *expected;
    } defaults[] = {
        {"eth0", "eth0", "eth0"},
        {"lan1,lan2", "lan2", "lan1"}, // "lan1" even when the first interface is "lan2"
    };
    for (const auto &d : defaults) {
        sandbox::set_device(d.device);
        g_pcLan1Name = d.lan1;
        ASSERT_EQ(0, set_active_interface(""));
        EXPECT_STREQ(d.expected, get_active_interface());
        sandbox::set_device("eth0,lan2"); // filled once: a later change is not seen
        EXPECT_STREQ(d.expected, get_active_interface());
    }
    ASSERT_EQ(0, set_active_interface("abcdefghijklmnopqrst"));
    EXPECT_STREQ("abcdefghijklmno", get_active_interface());

    struct {
        const char *client;
        const char expected[6];
    } clients[] = {
        {"192.168.1.100", {'1', '9', '2', 'x', 'x', '\0'}}, // three characters, unterminated
        {"1.", {'1', '.', '\0', 'x', 'x', '\0'}},           // padded up to three
    };
    for (const auto &c : clients) {
        ASSERT_EQ(0, set_active_clientip(c.client));
        char buf[6] = "xxxxx";
        ASSERT_EQ(0, get_active_clientip(buf));
        EXPECT_EQ(0, memcmp(c.expected, buf, sizeof buf)) << c.client;
    }
    const std::string n = ptr(nullptr);
    LogCapture log;
    EXPECT_EQ(-1, set_active_interface(nullptr));
    EXPECT_EQ(-1, set_active_clientip(nullptr));
    EXPECT_EQ(-1, get_active_clientip(nullptr));
    EXPECT_EQ(
        (Lines{plain("set_active_interface", "Invalid input param, pcIfName: " + n + " \\n"),
               plain("set_active_clientip", "Invalid input param, pcClientIp: " + n + " \\n"),
               plain("get_active_clientip", "Invalid input param, pcClientIp: " + n + " \\n")}),
        log.texts());
    EXPECT_STREQ("abcdefghijklmno", get_active_interface());
}
