// Subnet and same-network checks against real interfaces (addresses, prefixes, MACs) and the
// stored records of the other interface, and the two ports' conflict refusals.
#include <string.h>

#include <functional>
#include <string>
#include <vector>

#include "libnetwork.h"
#include "sandbox.h"
#include "../config/config_support.h"

using namespace cfgtest;
using sandbox::FdCheck;
using sandbox::LogCapture;

namespace
{

Section lan(const std::string &name, const std::string &dhcp, const std::string &addr,
            const std::string &v6 = "")
{
    Section s{"interface",
              name,
              {opt("ipv4dhcp", dhcp), opt("ipaddr", addr), opt("netmask", "255.255.255.0"),
               opt("ipv6dhcp", "1")}};
    if (!v6.empty())
        s.lines.push_back(opt("ip6addr", v6));
    return s;
}

// A two-interface device: lan1 192.168.1.10/24 and lan2 192.168.2.10/24 live and stored.
class Subnet : public ::testing::Test
{
  protected:
    void SetUp() override
    {
        REQUIRE_SANDBOX();
        sandbox::set_device("lan1,lan2");
        NET_Init();
        sandbox::veth("lan1", "nb1", &peer_);
        sandbox::veth("lan2", "nb2", &peer_);
        sandbox::addr_add("lan1", "192.168.1.10/24");
        sandbox::addr_add("lan2", "192.168.2.10/24");
        install({lan("lan1", "0", "192.168.1.10"), lan("lan2", "0", "192.168.2.10")});
    }
    // Replaces the global IPv6 addresses of an interface.
    static void ipv6_of(const std::string &dev, const Lines &cidrs)
    {
        sandbox::must("ip -6 addr flush dev " + dev + " scope global");
        for (const std::string &c : cidrs)
            sandbox::addr_add(dev, c);
    }
    sandbox::Peer peer_;
};

} // namespace

TEST_F(Subnet, Ipv4AgainstTheOtherInterfacesRecord)
{
    enum Lan2 { Static, Dhcp, Missing };
    struct {
        Lan2 lan2;
        const char *ifname, *addr, *mask;
        int result;
    } cases[] = {
        {Static, "lan1", "192.168.2.20", "255.255.255.0", 0},
        {Static, "lan1", "192.168.2.20", "255.255.255.252", 1}, // each side its own mask
        {Static, "lan1", "192.168.3.1", "255.255.255.0", 1},
        {Static, "wan0", "192.168.2.20", "255.255.255.0", 1},
        // The other interface in DHCP mode answers with its live address, not the stored one.
        {Dhcp, "lan1", "192.168.2.20", "255.255.255.0", 0},
        // No record: all ones on the other side.
        {Missing, "lan1", "192.168.2.20", "255.255.255.0", 1},
        {Missing, "lan1", "255.255.255.255", "255.255.255.255", 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.ifname) + " " + c.addr + "/" + c.mask);
        std::vector<Section> s = {lan("lan1", "0", "192.168.1.10")};
        if (c.lan2 != Missing)
            s.push_back(c.lan2 == Dhcp ? lan("lan2", "1", "10.9.9.9")
                                       : lan("lan2", "0", "192.168.2.10"));
        install(s);
        FdCheck fds;
        EXPECT_EQ(c.result, NET_IsIpv4SubnetValid(c.ifname, c.addr, c.mask));
    }
    sandbox::set_device("lan1");
    EXPECT_EQ(1, NET_IsIpv4SubnetValid("lan1", "192.168.2.10", "255.255.255.0"));
}

TEST_F(Subnet, Ipv6AgainstTheOtherInterfacesLivePrefixes)
{
    struct {
        Lines lan2;
        const char *addr;
        int prefix, result;
    } cases[] = {
        // New prefix shorter: only zero bytes and bits are looked for in the entry beyond it,
        // so a /61 inside the new /48 counts as different unless its extra bits are zero.
        {{"2001:db8:2::10/61"}, "2001:db8:2::1", 48, 0},
        {{"2001:db8:2:8::10/61"}, "2001:db8:2::1", 48, 1},
        // New prefix longer: the same test on the new address's extra bytes and bits.
        {{"2001:db8:2::10/61"}, "2001:db8:2:7::1", 64, 1},
        {{"2001:db8:2::10/61"}, "2001:db8:2:0:7fff::1", 65, 0},
        {{"2001:db8:2::10/61"}, "2001:db8:2:0:8000::1", 65, 1},
        // Valid as soon as one entry differs; no entries at all is valid.
        {{"2001:db8:2::10/64", "2001:db8:5::10/64"}, "2001:db8:2::99", 64, 1},
        {{}, "2001:db8:2::1", 64, 1},
        {{"2001:db8:2::10/61"}, "::", -1, 1}, // -7 to -1 are zero whole bytes
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.addr) + "/" + std::to_string(c.prefix));
        ipv6_of("lan2", c.lan2);
        FdCheck fds;
        EXPECT_EQ(c.result, NET_IsIpv6SubnetValid("lan1", c.addr, c.prefix));
    }
    // No other interface: the list request of a null name fails, unless there is no other.
    EXPECT_EQ(0, NET_IsIpv6SubnetValid("wan0", "2001:db8:2::1", 64));
    sandbox::set_device("lan1");
    EXPECT_EQ(1, NET_IsIpv6SubnetValid("wan0", "2001:db8:2::1", 64));
}

TEST_F(Subnet, SameSubnetAndOwner)
{
    struct {
        const char *cidr, *addr;
        int result;
    } v6[] = {
        {"2001:db8:1::10/61", "2001:db8:1:7::1", 1},
        {"2001:db8:1::10/61", "2001:db8:1:8::1", 0},
        {"2001:db8:1::10/61", "2001:db8:2::1", 0},
    };
    for (const auto &c : v6) {
        SCOPED_TRACE(std::string(c.addr) + " in " + c.cidr);
        ipv6_of("lan1", {c.cidr});
        EXPECT_EQ(c.result, NET_IsIpv6SameSubnet("lan1", c.addr));
    }
    ipv6_of("lan1", {"2001:db8:1::10/64"});
    FdCheck fds;
    EXPECT_EQ(1, NET_IsIpv4SameSubnet("lan1", "192.168.1.20"));
    EXPECT_EQ(0, NET_IsIpv4SameSubnet("lan1", "192.168.2.20"));
    int same = -1;
    EXPECT_EQ(0, NET_IsSameNet("192.168.1.99", &same)); // the first interface
    EXPECT_EQ(1, same);
    struct {
        const char *addr;
        unsigned int size;
        int result;
        const char *name;
    } owners[] = {
        {"192.168.1.10", 16, 0, "lan1"},
        {"192.168.2.10", 3, 0, "la"}, // cut
        {"192.168.3.10", 16, -1, ""},
        // IPv6 is searched only when listing fails: the interface's own address is not found.
        {"2001:db8:1::10", 16, -1, ""},
    };
    for (const auto &c : owners) {
        SCOPED_TRACE(c.addr);
        char name[16] = {0};
        EXPECT_EQ(c.result, NET_GetIfNameByIp(c.addr, name, c.size));
        EXPECT_STREQ(c.name, name);
    }
    // On a one-interface device "lan2" is not asked.
    sandbox::set_device("lan1");
    char name[16] = {0};
    EXPECT_EQ(-1, NET_GetIfNameByIp("192.168.2.10", name, sizeof name));
}

TEST_F(Subnet, RouteAdvertisedAddressCarriesTheMac)
{
    struct {
        const char *mac, *addr;
        int result;
    } cases[] = {
        {"00:11:22:33:44:55", "2001:db8::ff11:22ff:fe33:4455", 1}, // byte 8 is not looked at
        {"00:11:22:33:44:55", "fe80::211:22fe:fe33:4455", 0},
        {"00:11:22:33:44:55", "fe80::211:22ff:fe33:4456", 0},
        // Zero bytes end the short string comparisons: what follows a common zero is free.
        {"02:00:00:33:00:55", "fe80::ff:fe33:66", 1},
        {"02:00:00:33:00:55", "not an address", 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.mac) + " " + c.addr);
        sandbox::set_mac("lan1", c.mac);
        FdCheck fds;
        EXPECT_EQ(c.result, NET_IsIpv6RouteAdviseAddr("lan1", c.addr));
    }
    EXPECT_EQ(0, NET_IsIpv6RouteAdviseAddr("nosuch0", "fe80::ff:fe33:55"));
}

// Refusals of the device's calls with the lines log readers match; the stored file stays as
// it was.
TEST_F(Subnet, DeviceLogLines)
{
    static const char kLan1[] = "lan1", kMask[] = "255.255.255.0";
    sandbox::addr_add("lan2", "2001:db8:2::10/64");
    install({lan("lan1", "0", "192.168.1.10", "2001:db8:1::10/64"),
             lan("lan2", "0", "192.168.2.10", "2001:db8:2::10/64")});
    const std::string before = stored();
    auto ether = [](const char *ifname, int v4, const char *addr, const char *mask,
                    const char *v6) {
        NetEtherCfg c;
        memset(&c, 0, sizeof c);
        c.iIpv4Mode = v4;
        c.iIpv6Mode = 1;
        c.iIpv6PrefixLen = 64;
        c.iMtu = 1500;
        strcpy(c.szIpv4Addr, addr);
        strcpy(c.szIpv4Mask, mask);
        strcpy(c.szIpv6Addr, v6);
        return NET_SetEtherCfg(ifname, &c);
    };
    const std::string other = ", pcOtherIfName:lan2, ipaddr:";
    const auto refused = [&](const std::string &what, const char *addr, const char *old) {
        return Lines{
            plain("NET_SetEtherCfg", what + other + addr + ", oldipaddr:" + old + ". \\n")};
    };
    // clang-format off
    struct {
        std::function<int()> call;
        int result;
        Lines lines;
    } cases[] = {
        {[&] { return ether("lan1", 0, "192.168.2.10", kMask, "2001:db8:1::1"); }, -20, refused("Ipaddr config is exist", "192.168.2.10", "192.168.2.10")},
        {[&] { return ether("lan1", 0, "192.168.2.99", kMask, "2001:db8:1::1"); }, -22, refused("Ipaddr is in the same subnet", "192.168.2.99", "192.168.2.10")},
        // DHCP is not checked; then the IPv6 checks.
        {[&] { return ether("lan1", 1, "192.168.2.10", kMask, "2001:db8:2::10"); }, -21, refused("Ipv6 addr config is exist", "2001:db8:2::10", "2001:db8:2::10")},
        {[&] { return ether("lan1", 0, "192.168.2.99", "255.255.255.252", "2001:db8:2::99"); }, -23, refused("Ipv6addr is in the same subnet", "2001:db8:2::99", "2001:db8:2::10")},
        {[] { return NET_IsIpv4SubnetValid(kLan1, nullptr, kMask); }, 0,
         {param("NET_IsIpv4SubnetValid", "pcIfName:" + ptr(kLan1) + ", pcIpv4Addr:" + ptr(nullptr) + ", pcIpv4Mask:" + ptr(kMask) + " \\n")}},
        {[] { return NET_IsIpv6SubnetValid("lan1", "2001:db8:2::1", 128); }, 0, {param("NET_IsIpv6SubnetValid", "iPrefix:128. \\n")}},
        {[] { return NET_IsIpv6SubnetValid("lan1", "2001:db8::zz", 64); }, 0,
         {tagged("NET_IsIpv6SubnetValid", "PL_CONVERT_IPV6_ADDR_ERROR_PRINT", "pcIpv6Addr:2001:db8::zz.\\n")}},
        {[] { ipv6_of("lan1", {"2001:db8:1::10/128"}); return NET_IsIpv6SameSubnet("lan1", "2001:db8:1::10"); }, 0,
         {param("net_IsIpv6SameSubnet", "iPrefix:128. \\n")}},
        {[] { return NET_IsIpv4SameSubnet("nosuch0", "192.168.1.20"); }, 0,
         {tagged("NET_GetIpv4Addr", "PL_IOCTL_ERROR_PRINT", "No such device.\\n"), plain("NET_IsIpv4SameSubnet", "Get ip addr failed. \\n")}},
        {[] { char n[16]; return NET_GetIfNameByIp("192.168.3.10", n, 16); }, -1,
         {plain("NET_GetIfNameByIp", "Can not find interface name, pcIpAddr:192.168.3.10. \\n")}},
        {[] { char n[16]; return NET_GetIfNameByIp(nullptr, n, 16); }, -1,
         {param("INET_IsIpv4AddrValid", "\\n"), param("INET_IsIpv6AddrValid", "\\n"),
          plain("NET_GetIfNameByIp", "Invalid Ipv4 or Ipv6 address, pcIpAddr:(null). \\n")}},
    };
    // clang-format on
    for (size_t i = 0; i < sizeof cases / sizeof cases[0]; ++i) {
        SCOPED_TRACE(i);
        FdCheck fds;
        LogCapture log;
        EXPECT_EQ(cases[i].result, cases[i].call());
        EXPECT_EQ(cases[i].lines, log.texts());
        EXPECT_EQ(before, stored());
    }
}
