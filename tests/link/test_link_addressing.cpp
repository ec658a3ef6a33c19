// Addressing against real interfaces: IPv4 addresses, masks, the other-port refusal, default
// gateways, the default-interface calls, the end-to-end address change and static routes
// (kernel and "network" file); IPv6 addresses, prefixes and gateways read back from the
// kernel's own tables; the older calls beside the ones they mirror.
#include <set>
#include <utility>

#include "link_support.h"
#include "../config/config_support.h"

using namespace linktest;
using cfgtest::opt;
using cfgtest::Section;

namespace
{

std::string routes()
{
    return sandbox::sh_out("ip -4 route show default");
}

// Routes added through the kernel's route requests (protocol "boot").
std::string kernel_routes(const std::string &dev = "eth0")
{
    return sandbox::sh_out("ip -4 route show dev " + dev + " proto boot");
}

std::string network(const std::vector<Section> &routes = {})
{
    std::vector<Section> s = {cfgtest::loopback(), {"interface", "lan", {opt("ifname", "eth0")}}};
    s.insert(s.end(), routes.begin(), routes.end());
    return cfgtest::uci_text(s);
}

Section route(const std::string &name, const std::string &target, const std::string &mask)
{
    return {"route", name, {opt("interface", "lan"), opt("target", target), opt("netmask", mask)}};
}

const char *const kStored = "config interface 'lan1'\n\toption proto 'static'\n"
                            "\toption ipv4dhcp '0'\n\toption ipaddr '192.168.1.10'\n"
                            "\toption netmask '255.255.255.0'\n\n"
                            "config interface 'lan2'\n\toption proto 'dhcp'\n"
                            "\toption ipv4dhcp '1'\n";

} // namespace

TEST_F(LinkNet, AddressAndMaskAndTheOlderCalls)
{
    sandbox::FdCheck fds;
    char buf[16], old[16], bc[16];
    unsigned int num = 0;
    ASSERT_EQ(0, NET_GetIpv4Addr("lan1", buf, sizeof buf));
    ASSERT_EQ(0, get_ipaddr("lan1", old, sizeof old));
    EXPECT_EQ("192.168.1.10 192.168.1.10", std::string(buf) + " " + old);
    ASSERT_EQ(0, NET_GetIpv4Mask("lan1", buf, sizeof buf));
    ASSERT_EQ(0, get_netmask("lan1", old, sizeof old));
    ASSERT_EQ(0, get_broadcast_addr("lan1", bc, sizeof bc));
    EXPECT_EQ("255.255.255.0 255.255.255.0 192.168.1.255", std::string(buf) + " " + old + " " + bc);
    ASSERT_EQ(0, get_ipaddr1("lan1", &num));
    EXPECT_EQ(inet_addr("192.168.1.10"), num);
    ASSERT_EQ(0, NET_SetIpv4Addr("lan1", "10.20.30.40"));
    ASSERT_EQ(0, NET_SetIpv4Mask("lan1", "255.255.0.0"));
    EXPECT_EQ("10.20.30.40/16 ", ipv4_of("lan1"));
    ASSERT_EQ(0, set_ipaddr("lan1", "10.9.8.7"));
    ASSERT_EQ(0, set_netmask("lan1", "255.0.0.0"));
    EXPECT_EQ("10.9.8.7/8 ", ipv4_of("lan1"));

    // A short buffer: inet_ntop refuses, the call still reports the request's success; the
    // older call refuses it.
    char small[8] = "unset";
    EXPECT_EQ(0, NET_GetIpv4Addr("lan1", small, sizeof small));
    EXPECT_EQ(std::make_pair(-1, -1),
              std::make_pair(get_ipaddr("lan1", small, 4), get_ipaddr(nullptr, small, 8)));
    // inet_pton answers 0 for "abc": 0.0.0.0 goes to the kernel, which takes the address away.
    EXPECT_EQ(0, NET_SetIpv4Addr("lan1", "abc"));
    EXPECT_EQ("", ipv4_of("lan1"));
    EXPECT_EQ(-1, set_ipaddr("lan1", "1.2.3.4.5")) << "the older call checks the text";
    EXPECT_EQ(-1, get_ipaddr1("nosuchdev", &num));
}

TEST_F(LinkNet, OtherPortRefusesItsAddressOnTwoPortDevices)
{
    device("lan1,lan2");
    {
        sandbox::FdCheck fds;
        EXPECT_EQ(-1, NET_SetIpv4Addr("lan2", "192.168.1.10"));
        EXPECT_EQ("192.168.2.10/24 ", ipv4_of("lan2")) << "kernel untouched";
    }
    // And the other way round; a third name is never checked, nor is the mask.
    EXPECT_EQ(-1, NET_SetIpv4Addr("lan1", "192.168.2.10"));
    sandbox::veth("wan0", "nb3", &peer_);
    EXPECT_EQ(0, NET_SetIpv4Addr("wan0", "192.168.1.10"));
    EXPECT_EQ(0, NET_SetIpv4Mask("lan2", "255.255.0.0"));
    // One-port device: not checked at all.
    device("lan1");
    EXPECT_EQ(0, NET_SetIpv4Addr("lan2", "192.168.1.10"));
    // The check compares the text with the live address.
    EXPECT_EQ(1, INET_IsIpv4AddrExist("lan2", "192.168.1.10"));
    EXPECT_EQ(0, INET_IsIpv4AddrExist("nosuchdev", "192.168.1.10"));
    EXPECT_EQ(0, INET_IsIpv4AddrExist("lan2", "192.168.001.010"));
    EXPECT_EQ(0, INET_IsIpv4AddrExist(nullptr, "192.168.1.10"));
}

TEST_F(LinkNet, DefaultGatewaysAndTheOlderCalls)
{
    sandbox::FdCheck fds;
    char gw[16] = {0}, dev[16];
    ASSERT_EQ(0, NET_GetIpv4Gateway("lan1", gw, sizeof gw));
    EXPECT_STREQ("", gw) << "no default route: success, buffer untouched";
    EXPECT_EQ(std::make_pair(-1, -1), std::make_pair(get_gateway("lan1", gw, sizeof gw),
                                                     get_gateway_devname(dev, sizeof dev)))
        << "the older calls say none";
    EXPECT_EQ(0, NET_SetIpv4Gateway("lan1", "0.0.0.0")) << "nothing to set";
    EXPECT_EQ("", routes());

    ASSERT_EQ(0, NET_SetIpv4Gateway("lan1", "192.168.1.1"));
    EXPECT_EQ("default via 192.168.1.1 dev lan1 \n", routes());
    char other[16] = {0};
    EXPECT_EQ(0, NET_GetIpv4Gateway("lan1", gw, 16) + NET_GetIpv4Gateway("lan2", other, 16));
    EXPECT_EQ("192.168.1.1|", std::string(gw) + "|" + other) << "lan1's default is not lan2's";
    EXPECT_EQ(-1, NET_SetIpv4Gateway("lan1", "192.168.1.1")) << "exists already";
    ASSERT_EQ(0, NET_DelIpv4Gateway("lan1", "192.168.1.1"));
    EXPECT_EQ("", routes());
    EXPECT_EQ(-1, NET_DelIpv4Gateway("lan1", "192.168.1.1"));
    EXPECT_EQ(-1, NET_DelIpv4Gateway("lan1", "0.0.0.0")) << "deleting zero is requested";

    ASSERT_EQ(0, set_gateway("lan1", "192.168.1.2"));
    ASSERT_EQ(0, get_gateway("lan1", gw, sizeof gw) + get_gateway_devname(dev, sizeof dev));
    EXPECT_EQ("192.168.1.2 lan1", std::string(gw) + " " + dev);
    ASSERT_EQ(0, del_gateway("lan1", "192.168.1.2"));
    EXPECT_EQ(std::make_pair(-1, -1),
              std::make_pair(del_gateway("lan1", "192.168.1.2"), set_gateway("lan1", "gateway")));

    // 0.0.0.0/32 via a gateway has destination 0 but is a host route: not a default one.
    must("ip route add 0.0.0.0/32 via 192.168.1.1 dev lan1");
    ASSERT_EQ(0, NET_GetIpv4Gateway("lan1", gw, sizeof gw));
    EXPECT_STREQ("192.168.1.2", gw) << "untouched";
    must("ip route add default via 192.168.1.254 dev lan1");
    ASSERT_EQ(0, NET_GetIpv4Gateway("lan1", gw, sizeof gw));
    EXPECT_STREQ("192.168.1.254", gw);
    must("ip route del default dev lan1; ip route del 0.0.0.0/32 dev lan1");

    // Through the default interface, lan1 on a two-port device.
    device("lan1,lan2");
    char buf[16];
    ASSERT_EQ(0, NET_IPv4GetDefIfAddr(buf, sizeof buf));
    EXPECT_STREQ("192.168.1.10", buf);
    ASSERT_EQ(0, NET_IPv4GetDefIfMask(buf, sizeof buf));
    EXPECT_STREQ("255.255.255.0", buf);
    ASSERT_EQ(0, NET_IPv4SetDefGatway("192.168.1.1"));
    ASSERT_EQ(0, NET_IPv4GetDefGateway(buf, sizeof buf));
    EXPECT_STREQ("192.168.1.1", buf);
    ASSERT_EQ(0, NET_IPv4DelDefGatway("192.168.1.1"));
    EXPECT_EQ("", routes());
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

// The end-to-end change: refusals first, then the stored address, then the kernel, with no
// roll-back of the stored address when the kernel refuses.
TEST_F(LinkNet, SetAddrStoresThenSetsLive)
{
    const std::string twoPort = "config interface 'lan2'\n\toption ipv4dhcp '0'\n";
    struct Case {
        const char *what, *device;
        std::string stored;
        const char *dev, *addr, *mask;
        int result;
        const char *storedAfter; // a line the file then holds; null: the file is unchanged
        const char *live;        // the device's addresses then
    } cases[] = {
        {"the other port's address", "lan1,lan2", twoPort, "lan2", "192.168.1.10", "255.255.255.0",
         -1, nullptr, "192.168.2.10/24 "},
        {"DHCP mode refuses", "eth0", kStored, "lan2", "10.2.2.2", "255.0.0.0", -1, nullptr,
         "192.168.2.10/24 "},
        {"a one-port device does not check", "lan1", twoPort, "lan2", "192.168.1.10",
         "255.255.255.0", 0, "ipaddr '192.168.1.10'", "192.168.1.10/24 "},
        {"stored, then live", "eth0", kStored, "lan1", "10.1.1.5", "255.255.0.0", 0,
         "\toption netmask '255.255.0.0'\n", "10.1.1.5/16 "},
        {"the kernel refuses: stored all the same", "eth0",
         "config interface 'ghost'\n\toption ipv4dhcp '0'\n", "ghost", "10.3.3.3", "255.0.0.0", -1,
         "ipaddr '10.3.3.3'", ""},
        // The mask request never goes out: the kernel gives the address its classful mask.
        {"a mask that does not convert", "eth0", kStored, "lan1", "10.4.4.4", "255.0.0", -1,
         "ipaddr '10.4.4.4'", "10.4.4.4/8 "},
        {"no section", "eth0", "", "lan1", "10.5.5.5", "255.0.0.0", -1, nullptr, "10.4.4.4/8 "},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        device(c.device);
        sandbox::write_file(cfgtest::kPath, c.stored);
        sandbox::FdCheck fds;
        EXPECT_EQ(c.result, NET_IPv4SetAddr(c.dev, c.addr, c.mask));
        std::string file = cfgtest::stored();
        EXPECT_TRUE(c.storedAfter ? file.find(c.storedAfter) != std::string::npos
                                  : file == c.stored)
            << file;
        EXPECT_EQ(c.live, ipv4_of(c.dev));
    }
}

// Static routes go to the kernel first, then to the file; a failure at either leaves the
// other as it was. The older calls touch only the kernel.
TEST_F(LinkNet, StaticRoutes)
{
    sandbox::veth("eth0", "nb0", &peer_);
    sandbox::write_file(cfgtest::kPath, network(), 0600);
    // Not the host mask as text: a network route (the kernel sees a /32 all the same); a mask
    // that is no address becomes all ones.
    const char *cases[][4] = {{"10.9.8.7", "255.255.255.255", "10.9.8.7 ", "0A090807"},
                              {"10.1.0.0", "255.255.0.0", "10.1.0.0/16 ", "0A010000"},
                              {"10.2.3.0", "255.255.255.255 ", "10.2.3.0 ", "0A020300"},
                              {"10.3.0.0", "bogus", "10.3.0.0 ", "0A030000"}};
    std::vector<Section> sections;
    for (const auto &c : cases) {
        sandbox::FdCheck fds;
        EXPECT_EQ(0, NET_IPv4SetRoute("eth0", c[0], c[1])) << c[0];
        EXPECT_NE(std::string::npos, kernel_routes().find(std::string(c[2]) + "scope link"))
            << c[0];
        sections.push_back(route(std::string("eth0_") + c[3], c[0], c[1]));
        EXPECT_EQ(network(sections), cfgtest::stored());
    }
    for (size_t i = 4; i-- > 0; sections.pop_back()) {
        EXPECT_EQ(0, NET_IPv4DelRoute("eth0", cases[i][0], cases[i][1])) << cases[i][0];
        EXPECT_EQ(network(std::vector<Section>(sections.begin(), sections.end() - 1)),
                  cfgtest::stored());
    }
    EXPECT_EQ("", kernel_routes());

    struct {
        const char *setup;         // shell, before the call
        bool stored, set;          // whether the file holds 10.1.0.0/16; which call
        const char *addr, *kernel; // afterwards; the file is never changed
    } failures[] = {
        {"ip route add 10.1.0.0/16 dev eth0", false, true, "10.1.0.0", "10.1.0.0/16 scope link \n"},
        {"", true, false, "10.1.0.0", ""}, // only in the file: not removed
        {"rm /etc/config/network", false, true, "10.1.0.0", "10.1.0.0/16 scope link \n"},
        {"ip route add 10.1.0.0/16 dev eth0", false, false, "10.1.0.0", ""},
        {"", false, true, "10.1.2.3", ""}, // host bits outside the mask: the kernel's verdict
        {"", false, false, nullptr, ""},
    };
    for (const auto &c : failures) {
        SCOPED_TRACE(std::string(c.setup) + (c.set ? " set " : " delete ") +
                     (c.addr ? c.addr : ""));
        std::vector<Section> routes;
        if (c.stored)
            routes.push_back(route("eth0_0A010000", "10.1.0.0", "255.255.0.0"));
        sandbox::write_file(cfgtest::kPath, network(routes), 0600);
        must(std::string("ip route flush dev eth0 proto boot; ") + c.setup);
        const std::string before = sandbox::read_file(cfgtest::kPath);
        sandbox::FdCheck fds;
        EXPECT_EQ(-1, c.set ? NET_IPv4SetRoute("eth0", c.addr, "255.255.0.0")
                            : NET_IPv4DelRoute("eth0", c.addr, "255.255.0.0"));
        EXPECT_EQ(c.kernel, kernel_routes());
        EXPECT_EQ(before, sandbox::read_file(cfgtest::kPath));
    }

    sandbox::write_file(cfgtest::kPath, network(), 0600);
    must("ip route flush dev eth0 proto boot");
    ASSERT_EQ(0, set_active_interface(""));
    struct {
        std::function<int()> call;
        int result;
        const char *dev, *kernel;
    } older[] = {
        {CALL(set_route1("10.4.0.0", "255.255.0.0", 0, "eth0")), 0, "eth0", "10.4.0.0/16 "},
        {CALL(set_route1("10.5.0.0", "255.255.0.0", 7, "eth0")), 0, "eth0", "10.5.0.0 "}, // host
        {CALL(set_route1("bogus", "255.255.255.0", 0, "eth0")), 0, "eth0", "0.0.0.0/24 "},
        {CALL(set_route1("10.4.0.0", "255.255.0.0", 0, "eth0")), -1, "eth0", ""},
        // The silent one routes through the active interface.
        {CALL(set_route("10.6.0.0", "255.255.0.0", 0)), 0, "eth0", "10.6.0.0/16 "},
        {CALL(set_active_interface("lan2") + set_route("10.7.0.1", "bogus", 1)), 0, "lan2",
         "10.7.0.1 "},
        {CALL(set_route("10.7.0.1", "255.255.255.255", 1)), -1, "lan2", ""},
    };
    for (const auto &c : older) {
        sandbox::FdCheck fds;
        EXPECT_EQ(c.result, c.call()) << c.kernel;
        EXPECT_NE(std::string::npos, kernel_routes(c.dev).find(c.kernel)) << c.kernel;
    }
    EXPECT_EQ(network(), cfgtest::stored());
}

TEST(ActiveInterface, LiteralDefaultsAndBoundedCopies)
{
    // "lan1" on two ports even when the first is "lan2"; read once: a later change is not seen.
    const char *defaults[][3] = {{"eth0", "eth0", "eth0"}, {"lan1,lan2", "lan2", "lan1"}};
    for (const auto &d : defaults) {
        sandbox::set_device(d[0]);
        g_pcLan1Name = d[1];
        ASSERT_EQ(0, set_active_interface(""));
        for (int i = 0; i < 2; ++i, sandbox::set_device("eth0,lan2"))
            EXPECT_STREQ(d[2], get_active_interface());
    }
    ASSERT_EQ(0, set_active_interface("abcdefghijklmnopqrst"));
    EXPECT_EQ(-1, set_active_interface(nullptr));
    EXPECT_STREQ("abcdefghijklmno", get_active_interface());
    // The client address: three characters, unterminated; a shorter one padded up to three.
    for (const char *client : {"192.168.1.100", "1."}) {
        ASSERT_EQ(0, set_active_clientip(client));
        char buf[6] = "xxxxx";
        ASSERT_EQ(0, get_active_clientip(buf));
        EXPECT_EQ(client[1] == '.' ? std::string("1.\0xx", 5) : "192xx", std::string(buf, 5));
    }
    EXPECT_EQ(-1, set_active_clientip(nullptr));
    EXPECT_EQ(-1, get_active_clientip(nullptr));
}

TEST_F(LinkNet, ListSkipsLinkLocalAndOtherInterfaces)
{
    ASSERT_TRUE(wait_for([] { return link_locals("lan1") == 1; })) << "no link-local address";
    sandbox::FdCheck fds;
    NetIpv6AddrList list, zero;
    memset(&list, 0x5a, sizeof list);
    memset(&zero, 0, sizeof zero);
    ASSERT_EQ(0, NET_GetIpv6AddrList("lan1", &list));
    EXPECT_EQ(0, memcmp(&zero, &list, sizeof zero)) << "only a link-local: the list is cleared";
    memset(&list, 0x5a, sizeof list);
    EXPECT_EQ(-1, NET_GetIpv6AddrList("nosuchdev", &list));
    EXPECT_EQ(0, list.iNum) << "cleared before the index is asked";

    sandbox::addr_add("lan1", "2001:db8::10/64");
    sandbox::addr_add("lan1", "2001:db8:0:1::abcd/56");
    sandbox::addr_add("lan2", "2001:db8:2::1/64");
    ASSERT_EQ(0, NET_GetIpv6AddrList("lan1", &list));
    ASSERT_EQ(2, list.iNum);
    std::set<std::string> seen; // the text, the bytes as text, the prefix
    for (int i = 0; i < list.iNum; ++i)
        seen.insert(std::string(list.astAddr[i].szAddr) + " " + text_of(list.astAddr[i].aucAddr) +
                    " " + std::to_string(list.astAddr[i].iPrefixLen));
    EXPECT_EQ((std::set<std::string>{"2001:db8::10 2001:db8::10 64",
                                     "2001:db8:0:1::abcd 2001:db8:0:1::abcd 56"}),
              seen);

    for (int i = 0; i < 40; ++i)
        sandbox::addr_add("lan2", "2001:db8::" + std::to_string(100 + i) + "/64");
    ASSERT_EQ(0, NET_GetIpv6AddrList("lan2", &list));
    ASSERT_EQ(32, list.iNum) << "stops at thirty-two";
    seen.clear();
    for (const NetIpv6AddrEntry &e : list.astAddr)
        seen.insert(e.szAddr);
    EXPECT_EQ(32u, seen.size()) << "no entry twice";
}

TEST_F(LinkNet, ListTakesTheRoutePrefixOverTheAddressPrefix)
{
    // Without its own prefix route the address is covered by a /48 route of the interface.
    must("ip addr add 2001:db8:1:2::5/64 dev lan1 nodad noprefixroute");
    must("ip -6 route add 2001:db8:1::/48 dev lan1");
    // A route of the other interface that would match more closely is not consulted.
    must("ip -6 route add 2001:db8:1:2::/60 dev lan2");
    NetIpv6AddrList list;
    ASSERT_EQ(0, NET_GetIpv6AddrList("lan1", &list));
    EXPECT_EQ("1 2001:db8:1:2::5/48", std::to_string(list.iNum) + " " + list.astAddr[0].szAddr +
                                          "/" + std::to_string(list.astAddr[0].iPrefixLen));
}

TEST_F(LinkNet, PrefixOfAnAddressFromTheRouteTable)
{
    struct Case {
        const char *route, *addr;
        int prefix; // 0: none found, the caller's value stays
    } cases[] = {
        {"2001:db8:1::/48 dev lan1", "2001:db8:1:2::5", 48},
        {"2001:db8:1::/48 dev lan1", "2001:db8:2::5", 0},
        // Whole hexadecimal digits only: /46 compares 11 digits, so 123f matches 1230::/46.
        {"2001:db8:1230::/46 dev lan1", "2001:db8:123f::1", 46},
        // Below 4 bits nothing is compared: the first such route matches any address.
        {"4000::/2 dev lan1", "2001:db8::1", 2},
        {"2001:db8:1::/48 dev lan2", "2001:db8:1::5", 0}, // another interface's
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.route);
        must(std::string("ip -6 route add ") + c.route);
        sandbox::FdCheck fds;
        int prefix = -7;
        EXPECT_EQ(0, NET_GetIpv6Prefix("lan1", hex_of(c.addr).c_str(), &prefix));
        EXPECT_EQ(c.prefix == 0 ? -7 : c.prefix, prefix);
        must(std::string("ip -6 route del ") + c.route);
    }
    // At most thirty-two routes of the interface are compared; the table lists them in address
    // order, so n non-matching /48 routes come before 3000::/4. Routes of lan2 do not count.
    for (int i = 1; i <= 10; ++i)
        must("ip -6 route add 2001:db8:" + std::to_string(100 + i) + "::/48 dev lan2");
    must("ip -6 route add 3000::/4 dev lan1");
    for (int before : {31, 32}) {
        for (int i = 1; i <= before; ++i)
            sandbox::sh("ip -6 route add 2001:db8:" + std::to_string(i) +
                        "::/48 dev lan1 2>/dev/null");
        int prefix = -7;
        EXPECT_EQ(0, NET_GetIpv6Prefix("lan1", hex_of("3001::1").c_str(), &prefix));
        EXPECT_EQ(before == 31 ? 4 : -7, prefix) << before;
    }
}

TEST_F(LinkNet, DefaultGatewayByKind)
{
    sandbox::addr_add("lan1", "2001:db8::5/64");
    sandbox::addr_add("lan2", "2001:db8:2::5/64");
    struct Case {
        const char *route, *second; // added to the route table
        int result;                 // NET_GetIpv6Gateway on lan1, and its text
        const char *gateway;
        int numResult; // get_ipv6_gateway_num on lan1, and its address ("::": all zero)
        const char *numGateway;
    } cases[] = {
        {"default via fe80::1 dev lan1", "", 0, "fe80::1", -1, "::"},
        {"default via 2001:db8::1 dev lan1", "", 0, "2001:db8::1", 0, "2001:db8::1"},
        // The link-local one first, then the global one.
        {"default via fe80::1 dev lan1 metric 100", "default via 2001:db8::1 dev lan1 metric 200",
         0, "fe80::1", 0, "2001:db8::1"},
        {"default via febf::1 dev lan1", "", 0, "febf::1", -1, "::"},            // link-local too
        {"default via fec0::1 dev lan1 onlink", "", 0, "fec0::1", 0, "fec0::1"}, // is not
        {"default via 2001:db8:2::1 dev lan2", "", -1, "", -1, "::"},            // another's
        {"2001:db8:9::/48 via 2001:db8::1 dev lan1", "", -1, "", -1, "::"},      // no default
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.route);
        must(std::string("ip -6 route add ") + c.route);
        if (*c.second)
            must(std::string("ip -6 route add ") + c.second);
        sandbox::FdCheck fds;
        char gw[46] = {0};
        EXPECT_EQ(c.result, NET_GetIpv6Gateway("lan1", gw, sizeof gw));
        EXPECT_STREQ(c.gateway, gw);
        unsigned char num[16];
        memset(num, 0x5a, sizeof num);
        EXPECT_EQ(c.numResult, get_ipv6_gateway_num("lan1", num));
        EXPECT_EQ(c.numGateway, text_of(num));
        must(std::string("ip -6 route del ") + c.route);
        if (*c.second)
            must(std::string("ip -6 route del ") + c.second);
    }
    must("ip -6 route add default via 2001:db8::1 dev lan1");
    char small[8];
    EXPECT_EQ(-1, NET_GetIpv6Gateway("lan1", small, sizeof small)) << "the text does not fit";
    EXPECT_EQ(-1, get_ipv6_gateway_num(nullptr, reinterpret_cast<unsigned char *>(small)));
}

TEST_F(LinkNet, AddAndDeleteAddresses)
{
    SKIP_IF_EMULATED(sandbox::ipv6_addr_requests_emulated(), "SIOCSIFADDR for IPv6");
    struct Case {
        int (*add)(const char *, const char *, int);
        const char *addr;
        int prefix;
    } cases[] = {{NET_AddIpv6Addr, "2001:db8::7", 64},
                 {NET_AddIpv6Addr, "2001:db8:5::1", 3},
                 {NET_AddIpv6Addr, "2001:db8:6::1", 127},
                 {NET_SetLocalIpv6Addr, "2001:db8::8", 128},
                 {NET_SetLocalIpv6Addr, "2001:db8:1::2", 2}};
    sandbox::FdCheck fds;
    for (const Case &c : cases) {
        SCOPED_TRACE(c.addr);
        std::string cidr = std::string(c.addr) + "/" + std::to_string(c.prefix);
        ASSERT_EQ(0, c.add("lan1", c.addr, c.prefix));
        EXPECT_NE(std::string::npos, ipv6_of("lan1").find(cidr)) << ipv6_of("lan1");
        if (c.add == NET_SetLocalIpv6Addr)
            continue; // any length, where the delete takes 3 to 127 only
        EXPECT_EQ(-1, NET_DelIpv6Addr("lan1", c.addr, c.prefix == 64 ? 48 : 64))
            << "another prefix length is another address";
        EXPECT_EQ(0, NET_DelIpv6Addr("lan1", c.addr, c.prefix));
        EXPECT_EQ(std::string::npos, ipv6_of("lan1").find(cidr)) << ipv6_of("lan1");
    }
}

TEST_F(LinkNet, OlderAddAndDeleteWorkOnTheFirstInterface)
{
    SKIP_IF_EMULATED(sandbox::ipv6_addr_requests_emulated(), "SIOCSIFADDR for IPv6");
    device("lan1,lan2");
    sandbox::FdCheck fds;
    EXPECT_EQ(0, add_ipv6_addr("2001:db8::9", 64));
    EXPECT_NE(std::string::npos, ipv6_of("lan1").find("2001:db8::9/64"));
    EXPECT_EQ(-3, add_ipv6_addr("2001:db8::a", 128) + add_ipv6_addr("2001:db8::a", 2) +
                      add_ipv6_addr("bad", 64))
        << "add checks the range and the text";
    EXPECT_EQ(0, del_ipv6_addr("2001:db8::9", 64));
    EXPECT_EQ(std::string::npos, ipv6_of("lan1").find("2001:db8::9/"));
    // Delete checks only the text: a /128 the kernel holds goes.
    sandbox::addr_add("lan1", "2001:db8::b/128");
    EXPECT_EQ(0, del_ipv6_addr("2001:db8::b", 128));
    EXPECT_EQ(std::string::npos, ipv6_of("lan1").find("2001:db8::b/"));
    EXPECT_EQ(-1, del_ipv6_addr("2001:db8::b", 128)) << "gone already";
    EXPECT_EQ(std::string::npos, ipv6_of("lan2").find("2001:")) << "lan2 untouched";
}

TEST_F(LinkNet, OlderFirstTwoAddressesInTableOrder)
{
    sandbox::addr_add("lan1", "2001:db8::1/64");
    sandbox::addr_add("lan1", "2001:db8::2/60");
    sandbox::addr_add("lan1", "2001:db8::3/56");
    std::vector<Row> rows = rows_of("lan1");
    ASSERT_GE(rows.size(), 3u);
    unsigned char a1[16], a2[16];
    int p1 = 0, p2 = 0;
    EXPECT_EQ(0, get_ipv6addr_num("lan1", a1, &p1, a2, &p2));
    EXPECT_EQ(rows[0].hex + std::to_string(rows[0].prefix) + rows[1].hex +
                  std::to_string(rows[1].prefix),
              hex_of(text_of(a1).c_str()) + std::to_string(p1) + hex_of(text_of(a2).c_str()) +
                  std::to_string(p2));

    sandbox::addr_add("lan2", "2001:db8:2::1/64");
    must("ip -6 addr flush dev lan2 scope link");
    ASSERT_EQ(1u, rows_of("lan2").size());
    p2 = -7;
    EXPECT_EQ(0, get_ipv6addr_num("lan2", a1, &p1, a2, &p2)) << "one address is enough";
    EXPECT_EQ("2001:db8:2::1 -7", text_of(a1) + " " + std::to_string(p2)) << "second untouched";
    must("ip -6 addr flush dev lan2");
    EXPECT_EQ(std::make_pair(-1, -1),
              std::make_pair(get_ipv6addr_num("lan2", a1, &p1, a2, &p2),
                             get_ipv6addr_num("nosuchdev", a1, &p1, a2, &p2)));

    // The first address that is neither link-local nor loopback.
    char text[64], small[6];
    must("ip addr add fe80::99/64 dev lan2 nodad");
    EXPECT_EQ(std::make_pair(-1, -1),
              std::make_pair(get_one_right_ipv6_addr("lan2", text, sizeof text, &p1),
                             get_one_right_ipv6_addr("lo", text, sizeof text, &p1)));
    sandbox::addr_add("lan2", "2001:db8::44/56");
    EXPECT_EQ(0, get_one_right_ipv6_addr("lan2", text, sizeof text, &p1));
    EXPECT_EQ("2001:db8::44/56", std::string(text) + "/" + std::to_string(p1));
    EXPECT_EQ(0, get_one_right_ipv6_addr("lan2", small, sizeof small, nullptr));
    EXPECT_STREQ("2001:", small) << "cut and terminated";
    EXPECT_EQ(-1, get_one_right_ipv6_addr("lan2", text, 0, &p1));
}

TEST_F(LinkNet, OlderListsAndRouterAdvertisedAddresses)
{
    // Without duplicate detection a dynamic address (finite lifetime) ends with flags 0,
    // as one learned from a router advertisement; a nodad permanent one keeps 0x82.
    must("sysctl -qw net.ipv6.conf.lan1.dad_transmits=0");
    must("ip addr add 2001:db8::20/64 dev lan1 valid_lft 3600 preferred_lft 3600");
    sandbox::addr_add("lan1", "2001:db8::30/64");
    // The link-local address may still be in its detection (flag 0x40) on a slow machine:
    // the listing below must not change between the two reads.
    ASSERT_TRUE(wait_for([] {
        bool dynamic = false;
        for (const Row &r : rows_of("lan1")) {
            if (r.flags & 0x40)
                return false;
            dynamic = dynamic || (r.hex == hex_of("2001:db8::20") && r.flags == 0);
        }
        return dynamic;
    })) << "an address stays tentative";

    // Every address in the kernel's order, with prefix and flags.
    NetIpv6AddrInfoList all;
    std::string want, got;
    for (const Row &r : rows_of("lan1"))
        want += r.hex + "/" + std::to_string(r.prefix) + "/" + std::to_string(r.flags) + " ";
    int n = get_all_ipv6addr("lan1", &all);
    for (int i = 0; i < all.iNum; ++i)
        got += hex_of(text_of(all.astAddr[i].aucAddr).c_str()) + "/" +
               std::to_string(all.astAddr[i].iPrefixLen) + "/" +
               std::to_string(all.astAddr[i].iFlags) + " ";
    EXPECT_EQ(want, got);
    EXPECT_EQ(all.iNum, n);
    NetIpv6AddrInfoList ra;
    ASSERT_EQ(1, get_route_ipv6_addrlist("lan1", &ra));
    EXPECT_EQ(1, ra.iNum);
    EXPECT_EQ("2001:db8::20/64/0", text_of(ra.astAddr[0].aucAddr) + "/" +
                                       std::to_string(ra.astAddr[0].iPrefixLen) + "/" +
                                       std::to_string(ra.astAddr[0].iFlags));
    EXPECT_EQ(-1, get_route_ipv6_addrlist("nosuchdev", &ra) + ra.iNum +
                      get_all_ipv6addr("nosuchdev", &all));
}

TEST(Older6Text, HexAddressConversionsAndChecks)
{
    // Refused (-1, nothing written): 31 digits, a non-digit; digits after 32 are ignored.
    const char *cases[][2] = {{"20010db8000000000000000000000001", "2001:db8::1"},
                              {"FE80000000000000020000FFFE000001", "fe80::200:ff:fe00:1"},
                              {"20010db800000000000000000000001", ""},
                              {"20010db8000000000000000000000g01", ""},
                              {"20010db80000000000000000000000011", "2001:db8::1"}};
    for (const auto &c : cases) {
        unsigned char a[16] = {0x5a};
        char back[33] = "";
        EXPECT_EQ(*c[1] ? 0 : -1, convert_ipv6str_tonum(c[0], a)) << c[0];
        EXPECT_EQ(*c[1] ? c[1] : "5a00::", text_of(a)) << c[0];
        EXPECT_EQ(-1, convert_ipv6num_tostr(a, back, 32)) << "no room for the terminator";
        ASSERT_EQ(0, convert_ipv6num_tostr(a, back, sizeof back));
        EXPECT_EQ(hex_of(text_of(a).c_str()), back) << "lower case, 32 digits, terminated";
    }
    for (const char *text : {"2001:db8::1", "::2"})
        EXPECT_EQ(0, check_ipv6_valid(text)) << text;
    for (const char *text : {"fe80::1", "FE80::1", "::", "::1", "2001:db8::g", "1.2.3.4"})
        EXPECT_EQ(-1, check_ipv6_valid(text)) << text;
}
