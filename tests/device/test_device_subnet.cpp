// Subnet and same-network checks against real interfaces (addresses, prefixes, MACs) and
// the stored records of the other interface.
#include <string.h>

#include <string>
#include <vector>

#include "libnetwork.h"
#include "sandbox.h"
#include "../config/config_support.h"

using namespace modeltest;
using sandbox::FdCheck;
using sandbox::LogCapture;

namespace
{

Section lan(const std::string &name, const std::string &dhcp, const std::string &addr)
{
    return {"interface",
            name,
            {opt("ipv4dhcp", dhcp), opt("ipaddr", addr), opt("netmask", "255.255.255.0"),
             opt("ipv6dhcp", "1")}};
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
        Lines log;
    } cases[] = {
        {Static, "lan1", "192.168.2.20", "255.255.255.0", 0, {}},
        // Each side is masked with its own mask.
        {Static, "lan1", "192.168.2.20", "255.255.255.252", 1, {}},
        {Static, "lan1", "192.168.3.1", "255.255.255.0", 1, {}},
        {Static, "lan2", "192.168.1.99", "255.255.255.0", 0, {}},
        {Static, "wan0", "192.168.2.20", "255.255.255.0", 1, {}},
        // The other interface in DHCP mode answers with its live address, not the stored one.
        {Dhcp, "lan1", "192.168.2.20", "255.255.255.0", 0, {}},
        {Dhcp, "lan1", "10.9.9.1", "255.0.0.0", 1, {}},
        // No record: all ones on the other side.
        {Missing, "lan1", "192.168.2.20", "255.255.255.0", 1,
         no_section("NET_GetEtherCfg", "lan2")},
        {Missing, "lan1", "255.255.255.255", "255.255.255.255", 0,
         no_section("NET_GetEtherCfg", "lan2")},
        {Static,
         "lan1",
         nullptr,
         "255.255.255.0",
         0,
         {param("NET_IsIpv4SubnetValid", "pcIfName:" + ptr("lan1") +
                                             ", pcIpv4Addr:" + ptr(nullptr) +
                                             ", pcIpv4Mask:" + ptr("255.255.255.0") + " \\n")}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.ifname) + " " + (c.addr ? c.addr : "null") + "/" + c.mask);
        std::vector<Section> s = {lan("lan1", "0", "192.168.1.10")};
        if (c.lan2 != Missing)
            s.push_back(lan("lan2", c.lan2 == Dhcp ? "1" : "0", "10.9.9.9"));
        if (c.lan2 == Static)
            s.back() = lan("lan2", "0", "192.168.2.10");
        install(s);
        FdCheck fds;
        LogCapture log;
        EXPECT_EQ(c.result, NET_IsIpv4SubnetValid(c.ifname, c.addr, c.mask));
        EXPECT_EQ(c.log, log.texts());
    }
    sandbox::set_device("lan1");
    EXPECT_EQ(1, NET_IsIpv4SubnetValid("lan1", "192.168.2.10", "255.255.255.0"));
}

TEST_F(Subnet, Ipv6AgainstTheOtherInterfacesLivePrefixes)
{
    const std::string iPrefix = "PL_PARAM_ERROR_PRINT";
    struct {
        Lines lan2;
        const char *addr;
        int prefix;
        int result;
        Lines log;
    } cases[] = {
        // New prefix shorter: only zero bytes and bits are looked for in the entry beyond it,
        // so a /61 inside the new /48 counts as different unless its extra bits are zero.
        {{"2001:db8:2::10/61"}, "2001:db8:2::1", 48, 0, {}},
        {{"2001:db8:2:8::10/61"}, "2001:db8:2::1", 48, 1, {}},
        {{"2001:db8:2:8::10/61"}, "2001:db8:2:8::1", 48, 1, {}},
        {{"2001:db8:2:0:1000::10/67"}, "2001:db8:2::1", 64, 0, {}},
        {{"2001:db8:2:0:2000::10/67"}, "2001:db8:2::1", 64, 1, {}},
        // New prefix longer: the same test on the new address's extra bytes and bits.
        {{"2001:db8:2::10/61"}, "2001:db8:2::1", 64, 0, {}},
        {{"2001:db8:2::10/61"}, "2001:db8:2:7::1", 64, 1, {}},
        {{"2001:db8:2::10/61"}, "2001:db8:2:0:7fff::1", 65, 0, {}},
        {{"2001:db8:2::10/61"}, "2001:db8:2:0:8000::1", 65, 1, {}},
        {{"2001:db8:2::10/61"}, "2001:db8:3::1", 127, 1, {}},
        // Valid as soon as one entry differs; no entries at all is valid.
        {{"2001:db8:2::10/64", "2001:db8:5::10/64"}, "2001:db8:2::99", 64, 1, {}},
        {{}, "2001:db8:2::1", 64, 1, {}},
        // -7 to -1 are zero whole bytes; 128 and -8 are refused.
        {{"2001:db8:2::10/61"}, "::", -1, 1, {}},
        {{"2001:db8:2::10/61"},
         "2001:db8:2::1",
         128,
         0,
         {param("NET_IsIpv6SubnetValid", "iPrefix:128. \\n")}},
        {{"2001:db8:2::10/61"},
         "2001:db8:2::1",
         -8,
         0,
         {param("NET_IsIpv6SubnetValid", "iPrefix:-8. \\n")}},
        {{"2001:db8:2::10/61"},
         "2001:db8::zz",
         64,
         0,
         {tagged("NET_IsIpv6SubnetValid", "PL_CONVERT_IPV6_ADDR_ERROR_PRINT",
                 "pcIpv6Addr:2001:db8::zz.\\n")}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.addr) + "/" + std::to_string(c.prefix) + " against " +
                     (c.lan2.empty() ? "nothing" : c.lan2[0]));
        ipv6_of("lan2", c.lan2);
        FdCheck fds;
        LogCapture log;
        EXPECT_EQ(c.result, NET_IsIpv6SubnetValid("lan1", c.addr, c.prefix));
        EXPECT_EQ(c.log, log.texts());
    }
    // No other interface: the list request of a null name fails.
    LogCapture log;
    EXPECT_EQ(0, NET_IsIpv6SubnetValid("wan0", "2001:db8:2::1", 64));
    EXPECT_EQ(1u, log.texts().size());
    sandbox::set_device("lan1");
    EXPECT_EQ(1, NET_IsIpv6SubnetValid("wan0", "2001:db8:2::1", 64));
}

TEST_F(Subnet, SameSubnetOfTheInterfacesOwnAddresses)
{
    struct {
        const char *cidr, *addr;
        int result;
        Lines log;
    } cases[] = {
        {"2001:db8:1::10/61", "2001:db8:1:7::1", 1, {}},
        {"2001:db8:1::10/61", "2001:db8:1:8::1", 0, {}},
        {"2001:db8:1:0:2000::10/67", "2001:db8:1:0:3fff::1", 1, {}},
        {"2001:db8:1:0:2000::10/67", "2001:db8:1:0:4000::1", 0, {}},
        {"2001:db8:1::10/128",
         "2001:db8:1::10",
         0,
         {param("net_IsIpv6SameSubnet", "iPrefix:128. \\n")}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.addr) + " in " + c.cidr);
        ipv6_of("lan1", {c.cidr});
        FdCheck fds;
        LogCapture log;
        EXPECT_EQ(c.result, NET_IsIpv6SameSubnet("lan1", c.addr));
        EXPECT_EQ(c.log, log.texts());
    }
}

TEST_F(Subnet, Ipv4SameSubnetAndOwner)
{
    ipv6_of("lan1", {"2001:db8:1::10/64"});
    const std::string noDev =
        tagged("NET_GetIpv4Addr", "PL_IOCTL_ERROR_PRINT", "No such device.\\n");
    struct {
        const char *what;
        int (*call)(char *);
        int result;
        const char *name;
        Lines log;
    } cases[] = {
        {"same", [](char *) { return NET_IsIpv4SameSubnet("lan1", "192.168.1.20"); }, 1, "", {}},
        {"other", [](char *) { return NET_IsIpv4SameSubnet("lan1", "192.168.2.20"); }, 0, "", {}},
        {"no device",
         [](char *) { return NET_IsIpv4SameSubnet("nosuch0", "192.168.1.20"); },
         0,
         "",
         {noDev, plain("NET_IsIpv4SameSubnet", "Get ip addr failed. \\n")}},
        {"first interface",
         [](char *) {
             int same = -1;
             return NET_IsSameNet("192.168.1.99", &same) == 0 ? same : -1;
         },
         1,
         "",
         {}},
        {"owner lan1",
         [](char *b) { return NET_GetIfNameByIp("192.168.1.10", b, 16); },
         0,
         "lan1",
         {}},
        {"owner lan2, cut",
         [](char *b) { return NET_GetIfNameByIp("192.168.2.10", b, 3); },
         0,
         "la",
         {}},
        {"nobody",
         [](char *b) { return NET_GetIfNameByIp("192.168.3.10", b, 16); },
         -1,
         "",
         {plain("NET_GetIfNameByIp", "Can not find interface name, pcIpAddr:192.168.3.10. \\n")}},
        // IPv6 is searched only when listing fails: the interface's own address is not found.
        {"ipv6",
         [](char *b) { return NET_GetIfNameByIp("2001:db8:1::10", b, 16); },
         -1,
         "",
         {plain("Is_IpV4Addr", "The str_ipv4(2001:db8:1::10) form not accord with IPv4!\\n"),
          plain("NET_GetIfNameByIp", "Can not find interface name, pcIpAddr:2001:db8:1::10. \\n")}},
        {"invalid",
         [](char *b) { return NET_GetIfNameByIp(nullptr, b, 16); },
         -1,
         "",
         {param("INET_IsIpv4AddrValid", "\\n"), param("INET_IsIpv6AddrValid", "\\n"),
          plain("NET_GetIfNameByIp", "Invalid Ipv4 or Ipv6 address, pcIpAddr:(null). \\n")}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        char name[16] = {0};
        FdCheck fds;
        LogCapture log;
        EXPECT_EQ(c.result, c.call(name));
        EXPECT_STREQ(c.name, name);
        EXPECT_EQ(c.log, log.texts());
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
        {"00:11:22:33:44:55", "fe80::211:22ff:fe33:4455", 1},
        {"00:11:22:33:44:55", "2001:db8::ff11:22ff:fe33:4455", 1}, // byte 8 is not looked at
        {"00:11:22:33:44:55", "fe80::211:23ff:fe33:4455", 0},
        {"00:11:22:33:44:55", "fe80::211:22fe:fe33:4455", 0},
        {"00:11:22:33:44:55", "fe80::211:22ff:fe33:4456", 0},
        // Zero bytes end the short string comparisons: what follows a common zero is free.
        {"02:00:00:33:00:55", "fe80::ff:fe33:55", 1},
        {"02:00:00:33:00:55", "fe80::99ff:fe33:55", 1},
        {"02:00:00:33:00:55", "fe80::ff:fe33:66", 1},
        {"02:00:00:33:00:55", "fe80::ff:fe34:55", 0},
        {"02:00:00:33:00:55", "fe80::1:ff:fe33:55", 0},
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
