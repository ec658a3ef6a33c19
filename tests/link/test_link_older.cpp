// The older direct-ioctl calls of both families against real interfaces: they agree with the
// kernel and with the exported calls, and refuse bad arguments quietly.
#include <arpa/inet.h>

#include <string.h>
#include <unistd.h>

#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "libnetwork.h"
#include "sandbox.h"

using sandbox::LogCapture;
using sandbox::must;

namespace
{

// The kernel tables' form of an address: 32 hexadecimal digits.
std::string hex_of(const char *text)
{
    unsigned char a[16];
    EXPECT_EQ(1, inet_pton(AF_INET6, text, a)) << text;
    std::string out;
    char two[3];
    for (unsigned char b : a) {
        snprintf(two, sizeof two, "%02x", b);
        out += two;
    }
    return out;
}

std::string text_of(const unsigned char *a)
{
    char buf[INET6_ADDRSTRLEN];
    return inet_ntop(AF_INET6, a, buf, sizeof buf);
}

// One line of /proc/net/if_inet6, read by the test on its own.
struct Row {
    std::string hex;
    int prefix;
    int flags;
};

std::vector<Row> rows_of(const std::string &dev)
{
    std::istringstream in(sandbox::read_file("/proc/net/if_inet6"));
    std::vector<Row> rows;
    std::string hex, idx, plen, scope, flags, name;
    while (in >> hex >> idx >> plen >> scope >> flags >> name)
        if (name == dev)
            rows.push_back(Row{hex, std::stoi(plen, nullptr, 16), std::stoi(flags, nullptr, 16)});
    return rows;
}

// Waits for a condition with a deadline.
bool wait_for(const std::function<bool()> &done, int ms = 5000)
{
    for (int waited = 0; waited < ms; waited += 50) {
        if (done())
            return true;
        usleep(50 * 1000);
    }
    return done();
}

bool has_link_local(const std::string &dev)
{
    for (const Row &r : rows_of(dev))
        if (r.hex.compare(0, 4, "fe80") == 0)
            return true;
    return false;
}

std::string addrs_of(const std::string &dev)
{
    return sandbox::sh_out("ip -6 -o addr show dev " + dev + " | awk '{print $4}'");
}

} // namespace

class Older6 : public ::testing::Test
{
  protected:
    void SetUp() override
    {
        REQUIRE_SANDBOX();
        sandbox::veth("lan1", "nb1");
        sandbox::veth("lan2", "nb2");
    }
};

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

TEST_F(Older6, OlderAddAndDeleteWorkOnTheFirstInterface)
{
    SKIP_IF_EMULATED(sandbox::ipv6_addr_requests_emulated(), "SIOCSIFADDR for IPv6");
    sandbox::set_device("lan1,lan2");
    NET_Init();
    sandbox::FdCheck fds;
    LogCapture log;
    EXPECT_EQ(0, add_ipv6_addr("2001:db8::9", 64));
    EXPECT_NE(std::string::npos, addrs_of("lan1").find("2001:db8::9/64"));
    EXPECT_EQ(-1, add_ipv6_addr("2001:db8::a", 128)) << "add checks the range";
    EXPECT_EQ(-1, add_ipv6_addr("2001:db8::a", 2));
    EXPECT_EQ(-1, add_ipv6_addr(nullptr, 64));
    EXPECT_EQ(-1, add_ipv6_addr("bad", 64));
    EXPECT_EQ(0, del_ipv6_addr("2001:db8::9", 64));
    EXPECT_EQ(std::string::npos, addrs_of("lan1").find("2001:db8::9/"));

    // Delete checks only the text: a /128 the kernel holds goes.
    sandbox::addr_add("lan1", "2001:db8::b/128");
    EXPECT_EQ(0, del_ipv6_addr("2001:db8::b", 128));
    EXPECT_EQ(std::string::npos, addrs_of("lan1").find("2001:db8::b/"));
    EXPECT_EQ(-1, del_ipv6_addr("2001:db8::b", 128)) << "gone already";
    EXPECT_EQ(-1, del_ipv6_addr(nullptr, 64));
    EXPECT_TRUE(log.texts().empty()) << "the older calls log nothing";
    EXPECT_EQ(std::string::npos, addrs_of("lan2").find("2001:")) << "lan2 untouched";
}

TEST_F(Older6, OlderFirstTwoAddressesInTableOrder)
{
    sandbox::addr_add("lan1", "2001:db8::1/64");
    sandbox::addr_add("lan1", "2001:db8::2/60");
    sandbox::addr_add("lan1", "2001:db8::3/56");
    std::vector<Row> rows = rows_of("lan1");
    ASSERT_GE(rows.size(), 3u);
    unsigned char a1[16], a2[16];
    int p1 = 0, p2 = 0;
    EXPECT_EQ(0, get_ipv6addr_num("lan1", a1, &p1, a2, &p2));
    EXPECT_EQ(rows[0].hex, hex_of(text_of(a1).c_str()));
    EXPECT_EQ(rows[0].prefix, p1);
    EXPECT_EQ(rows[1].hex, hex_of(text_of(a2).c_str()));
    EXPECT_EQ(rows[1].prefix, p2);

    sandbox::addr_add("lan2", "2001:db8:2::1/64");
    must("ip -6 addr flush dev lan2 scope link");
    ASSERT_EQ(1u, rows_of("lan2").size());
    memset(a2, 0x5a, sizeof a2);
    p2 = -7;
    EXPECT_EQ(0, get_ipv6addr_num("lan2", a1, &p1, a2, &p2)) << "one address is enough";
    EXPECT_EQ("2001:db8:2::1", text_of(a1));
    EXPECT_EQ(-7, p2) << "the second stays untouched";

    must("ip -6 addr flush dev lan2");
    EXPECT_EQ(-1, get_ipv6addr_num("lan2", a1, &p1, a2, &p2)) << "no address";
    EXPECT_EQ(-1, get_ipv6addr_num("nosuchdev", a1, &p1, a2, &p2));
    EXPECT_EQ(-1, get_ipv6addr_num("lan1", a1, &p1, a2, nullptr));
}

TEST_F(Older6, OlderListsAndRouterAdvertisedAddresses)
{
    // Without duplicate detection a dynamic address (finite lifetime) ends with flags 0,
    // as one learned from a router advertisement; a nodad permanent one keeps 0x82.
    must("sysctl -qw net.ipv6.conf.lan1.dad_transmits=0");
    must("ip addr add 2001:db8::20/64 dev lan1 valid_lft 3600 preferred_lft 3600");
    sandbox::addr_add("lan1", "2001:db8::30/64");
    ASSERT_TRUE(wait_for([] {
        for (const Row &r : rows_of("lan1"))
            if (r.hex == hex_of("2001:db8::20") && r.flags == 0)
                return true;
        return false;
    })) << "the dynamic address stays tentative";

    NetIpv6AddrInfoList all;
    memset(&all, 0x5a, sizeof all);
    std::vector<Row> rows = rows_of("lan1");
    ASSERT_EQ(static_cast<int>(rows.size()), get_all_ipv6addr("lan1", &all));
    ASSERT_EQ(static_cast<int>(rows.size()), all.iNum);
    for (size_t i = 0; i < rows.size(); ++i) {
        EXPECT_EQ(rows[i].hex, hex_of(text_of(all.astAddr[i].aucAddr).c_str()));
        EXPECT_EQ(rows[i].prefix, all.astAddr[i].iPrefixLen);
        EXPECT_EQ(rows[i].flags, all.astAddr[i].iFlags);
    }

    NetIpv6AddrInfoList ra;
    memset(&ra, 0x5a, sizeof ra);
    ASSERT_EQ(1, get_route_ipv6_addrlist("lan1", &ra));
    EXPECT_EQ(1, ra.iNum);
    EXPECT_EQ("2001:db8::20", text_of(ra.astAddr[0].aucAddr));
    EXPECT_EQ(64, ra.astAddr[0].iPrefixLen);
    EXPECT_EQ(0, ra.astAddr[0].iFlags);

    EXPECT_EQ(0, get_route_ipv6_addrlist("nosuchdev", &ra));
    EXPECT_EQ(0, ra.iNum);
    EXPECT_EQ(-1, get_route_ipv6_addrlist("lan1", nullptr));
    EXPECT_EQ(-1, get_all_ipv6addr("nosuchdev", &all));
    EXPECT_EQ(-1, get_all_ipv6addr(nullptr, &all));
}

TEST_F(Older6, OlderOneRightAddress)
{
    char text[64];
    int prefix = -7;
    ASSERT_TRUE(wait_for([] { return has_link_local("lan1"); }));
    EXPECT_EQ(-1, get_one_right_ipv6_addr("lan1", text, sizeof text, &prefix)) << "link-local";
    sandbox::addr_add("lan1", "2001:db8::44/56");
    EXPECT_EQ(0, get_one_right_ipv6_addr("lan1", text, sizeof text, &prefix));
    EXPECT_STREQ("2001:db8::44", text);
    EXPECT_EQ(56, prefix);
    char small[6];
    EXPECT_EQ(0, get_one_right_ipv6_addr("lan1", small, sizeof small, nullptr));
    EXPECT_STREQ("2001:", small) << "cut and terminated";
    EXPECT_EQ(-1, get_one_right_ipv6_addr("lo", text, sizeof text, &prefix)) << "::1 is not";
    EXPECT_EQ(-1, get_one_right_ipv6_addr("lan1", text, 0, &prefix));
}

TEST(Older6Text, HexAddressConversions)
{
    struct Case {
        const char *hex;
        int result;
        const char *text; // of the 16 bytes when converted
    } cases[] = {
        {"20010db8000000000000000000000001", 0, "2001:db8::1"},
        {"FE80000000000000020000FFFE000001", 0, "fe80::200:ff:fe00:1"},
        {"00000000000000000000000000000000", 0, "::"},
        {"20010db800000000000000000000001", -1, nullptr},  // 31 digits
        {"20010db8000000000000000000000g01", -1, nullptr}, // not a digit
        {"", -1, nullptr},
        {"20010db80000000000000000000000011", 0, "2001:db8::1"}, // digits after 32 ignored
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.hex);
        unsigned char a[16];
        memset(a, 0x5a, sizeof a);
        ASSERT_EQ(c.result, convert_ipv6str_tonum(c.hex, a));
        if (c.text != nullptr) {
            EXPECT_EQ(c.text, text_of(a));
            char back[33];
            ASSERT_EQ(0, convert_ipv6num_tostr(a, back, sizeof back));
            EXPECT_EQ(hex_of(c.text), back) << "lower case, 32 digits, terminated";
        } else {
            EXPECT_EQ(0x5a, a[0]) << "nothing written on failure";
        }
    }
    unsigned char a[16] = {0};
    char out[33];
    EXPECT_EQ(-1, convert_ipv6num_tostr(a, out, 32)) << "no room for the terminator";
    EXPECT_EQ(-1, convert_ipv6num_tostr(nullptr, out, 33));
    EXPECT_EQ(-1, convert_ipv6str_tonum(nullptr, a));
}

TEST(Older6Text, CheckValid)
{
    struct Case {
        const char *text;
        int result;
    } cases[] = {{"2001:db8::1", 0},  {"::2", 0},      {"fe80::1", -1},
                 {"FE80::1", -1},     {"::", -1},      {"::1", -1},
                 {"2001:db8::g", -1}, {"1.2.3.4", -1}, {nullptr, -1}};
    for (const Case &c : cases) {
        SCOPED_TRACE(c.text ? c.text : "(null)");
        EXPECT_EQ(c.result, check_ipv6_valid(c.text));
    }
}
