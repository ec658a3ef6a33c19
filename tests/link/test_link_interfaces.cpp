// The library frame against real interfaces: naming, the interface list (also through its
// name index for long lists), MAC addresses, the bridge and port tests, the network restart;
// the resolver file at its real path, and the DHCP switches (stored configuration only).
#include <ifaddrs.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include "link_support.h"

using namespace linktest;

namespace
{

// The interface list walked the plain way: linear search, inet_ntop.
std::vector<NetIfInfo> reference_list(unsigned int max)
{
    std::vector<NetIfInfo> out;
    struct ifaddrs *list = nullptr;
    EXPECT_EQ(0, getifaddrs(&list));
    for (struct ifaddrs *ifa = list; ifa != nullptr && out.size() != max; ifa = ifa->ifa_next) {
        if (ifa->ifa_addr == nullptr || (ifa->ifa_flags & IFF_LOOPBACK) != 0)
            continue;
        int af = ifa->ifa_addr->sa_family;
        if (af != AF_INET && af != AF_INET6 && af != AF_PACKET)
            continue;
        NetIfInfo *e = nullptr;
        for (auto &x : out)
            if (strcmp(x.szIfName, ifa->ifa_name) == 0)
                e = &x;
        if (e == nullptr) {
            out.emplace_back();
            e = &out.back();
            memset(e, 0, sizeof *e);
            strncpy(e->szIfName, ifa->ifa_name, 15);
        }
        auto text = [af](const struct sockaddr *sa, char *t) {
            const sockaddr_in6 *v6 = reinterpret_cast<const sockaddr_in6 *>(sa);
            const sockaddr_in *v4 = reinterpret_cast<const sockaddr_in *>(sa);
            if (sa != nullptr) // the texts fit their fields
                inet_ntop(af,
                          af == AF_INET ? static_cast<const void *>(&v4->sin_addr) : &v6->sin6_addr,
                          t, 46);
        };
        if (af == AF_INET) {
            text(ifa->ifa_addr, e->szIpv4Addr);
            text(ifa->ifa_netmask, e->szIpv4Mask);
            text(ifa->ifa_broadaddr, e->szIpv4Broadcast);
        } else if (af == AF_INET6) {
            text(ifa->ifa_addr, e->szIpv6Addr);
            text(ifa->ifa_netmask, e->szIpv6Mask);
        } else {
            memcpy(e->aucMac, reinterpret_cast<const sockaddr_ll *>(ifa->ifa_addr)->sll_addr, 6);
        }
    }
    freeifaddrs(list);
    return out;
}

// Compares NET_GetInterfaces with the plain walk for each element count: entries up to the
// count are the walk's, the rest of the array is zeroed, nothing beyond it is written.
void expect_plain_walk(std::initializer_list<unsigned int> maxes)
{
    for (unsigned int max : maxes) {
        SCOPED_TRACE(max);
        std::vector<NetIfInfo> got(max + 1);
        memset(got.data(), 0x5a, got.size() * sizeof(NetIfInfo));
        int n = NET_GetInterfaces(got.data(), max);
        std::vector<NetIfInfo> want = reference_list(max);
        ASSERT_EQ(want.size(), static_cast<size_t>(n));
        want.resize(max); // zeroed
        for (unsigned int i = 0; i < max; ++i)
            EXPECT_EQ(0, memcmp(&want[i], &got[i], sizeof(NetIfInfo))) << i;
        EXPECT_EQ(0x5a, reinterpret_cast<unsigned char *>(&got[max])[0]) << "wrote past the count";
    }
}

const std::string kResolv = "/etc/resolv.conf";
const std::string P1 = NETLIB_PUBLIC_DNS1;
const std::string P2 = NETLIB_PUBLIC_DNS2;

// "# Interface <name>" and a "nameserver" line for each of the space-separated servers.
std::string block(const std::string &name, const std::string &servers)
{
    std::string out = "# Interface " + name + "\n";
    std::istringstream in(servers);
    for (std::string s; in >> s;)
        out += "nameserver " + (s == "-" ? std::string() : s) + "\n";
    return out;
}

} // namespace

// Must stay the first test of the file: nothing has called NET_Init in this process yet.
TEST(Frame, FirstInterfaceIsEth0BeforeInit)
{
    EXPECT_STREQ("eth0", g_pcLan1Name);
}

TEST(Frame, InitAndNamesFollowTheDeviceKind)
{
    // Two interfaces always start from "lan1"; a single port may be "lan1" or "lan2", any
    // other single name keeps "eth0".
    const char *cases[][3] = {{"lan1,lan2", "lan1", "lan2"}, {"lan2,lan1", "lan1", "lan2"},
                              {"eth0", "eth0", ""},          {"lan1", "lan1", ""},
                              {"lan2", "lan2", ""},          {"wan0", "eth0", ""},
                              {"lan22", "eth0", ""}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c[0]);
        sandbox::set_device(c[0]);
        EXPECT_EQ(0, NET_Init());
        EXPECT_STREQ(c[1], g_pcLan1Name);
        NetIfNames names, want;
        memset(&names, 0x5a, sizeof names);
        memset(&want, 0, sizeof want);
        want.iIfNum = *c[2] ? 2 : 1;
        strcpy(want.szFirstName, c[1]);
        strcpy(want.szSecondName, c[2]);
        ASSERT_EQ(0, NET_GetIntfNames(&names));
        EXPECT_EQ(0, memcmp(&want, &names, sizeof want)) << names.szFirstName << names.szSecondName;
    }
}

// Short lists walk plainly, long ones (sixty more interfaces) through the name index; lan1
// has two IPv4 addresses, of which the last is reported; tap0 has only a MAC.
TEST_F(LinkNet, InterfaceListIsThePlainWalk)
{
    sandbox::sh("sysctl -qw net.ipv6.conf.default.accept_dad=0");
    sandbox::addr_add("lan1", "10.1.2.3/8");
    sandbox::addr_add("lan1", "2001:db8::10/64");
    ASSERT_TRUE(wait_for([] { return link_locals("") == 2; }));
    sandbox::FdCheck fds;
    expect_plain_walk({8, 3, 1, 0});

    must("for i in $(seq 0 29); do printf 'link add fa%s type veth peer name fb%s\\n"
         "link set fa%s up\\nlink set fb%s up\\naddr add 10.77.%s.1/24 dev fa%s\\n"
         "addr add 2001:db8:77:%s::1/64 dev fb%s\\n' $i $i $i $i $i $i $i $i; done >/tmp/b; "
         "ip -batch /tmp/b");
    ASSERT_TRUE(wait_for([] { return link_locals("") == 62; }));
    expect_plain_walk({200, 63, 40, 33});
    EXPECT_EQ(0, NET_GetInterfaces(nullptr, 4));
}

// The MAC text for every buffer length: what snprintf would have written, byte for byte.
TEST_F(LinkNet, MacTextIsWhatSnprintfWrites)
{
    sandbox::FdCheck fds;
    for (unsigned int len = 0; len <= 20; ++len) {
        SCOPED_TRACE(len);
        char want[24], got[24];
        memset(want, 0x5a, sizeof want);
        memset(got, 0x5a, sizeof got);
        snprintf(want, len, "02:11:22:33:44:01");
        ASSERT_EQ(0, NET_GetMacAddr("lan1", got, len));
        EXPECT_EQ(0, memcmp(want, got, sizeof want));
    }
    // The older pair: a buffer shorter than the text is refused; a written MAC is live.
    char buf[18];
    EXPECT_EQ(-1, get_mac("lan1", buf, 17));
    ASSERT_EQ(0, get_mac("lan1", buf, sizeof buf));
    EXPECT_STREQ("02:11:22:33:44:01", buf);
    ASSERT_EQ(0, set_mac("lan1", "02:00:00:00:00:99"));
    ASSERT_EQ(0, NET_GetMacAddr("lan1", buf, sizeof buf));
    EXPECT_STREQ("02:00:00:00:00:99", buf);
    EXPECT_EQ(-3, set_mac("lan1", "02:00:00:00:00") + set_mac("lan1", "02:00:00:00:00:01x") +
                      get_mac("nosuchdev", buf, sizeof buf));
}

TEST_F(LinkNet, LongNamesAreCutTo15Characters)
{
    sandbox::veth("abcdefghijklmno", "peer2", &peer_);
    sandbox::set_mac("abcdefghijklmno", "02:aa:bb:cc:dd:ee");
    const char *name = "abcdefghijklmnoVWXYZ";
    char buf[32] = "";
    unsigned char mac[6] = {0};
    EXPECT_EQ(0, NET_GetMacAddr(name, buf, sizeof buf) + NET_GetMacAddrNum(name, mac, sizeof mac));
    EXPECT_EQ("02:AA:BB:CC:DD:EE 238", std::string(buf) + " " + std::to_string(mac[5]));
}

// Refusals come before a socket is opened: with none left, socket() prints "Socket: ...".
TEST_F(LinkNet, MacBytes)
{
    struct Case {
        const char *name;
        unsigned int len;
        bool nullBuf;
        int result;
        bool opensSocket;
    } cases[] = {
        {"lan1", 6, false, 0, true},        {"lan1", 7, false, 0, true},
        {"lan1", 5, false, -1, false},      {"lo", 16, false, -1, false},
        {nullptr, 16, false, -1, false},    {"lan1", 16, true, -1, false},
        {"nosuchdev", 16, false, -1, true},
    };
    sandbox::FdCheck fds;
    const unsigned char want[7] = {0x02, 0x11, 0x22, 0x33, 0x44, 0x01, 0}, zero[7] = {0};
    for (const Case &c : cases) {
        SCOPED_TRACE(std::string(c.name ? c.name : "(null)") + " " + std::to_string(c.len));
        unsigned char mac[16] = {0};
        EXPECT_EQ(c.result, NET_GetMacAddrNum(c.name, c.nullBuf ? nullptr : mac, c.len));
        EXPECT_EQ(0, memcmp(c.result == 0 ? want : zero, mac, 7)) << "six bytes written, no more";
        ::testing::internal::CaptureStderr();
        {
            sandbox::NoMoreDescriptors limit;
            EXPECT_EQ(-1, NET_GetMacAddrNum(c.name, c.nullBuf ? nullptr : mac, c.len));
        }
        EXPECT_EQ(c.opensSocket,
                  ::testing::internal::GetCapturedStderr().rfind("Socket: ", 0) == 0);
    }
}

TEST_F(LinkNet, BridgeTest)
{
    sandbox::bridge("br0");
    EXPECT_EQ(1, NET_IsBridge("br0"));
    EXPECT_EQ(0, NET_IsBridge("tap0") + NET_IsBridge("nosuchdev") + NET_IsBridge(nullptr));
}

TEST(Frame, IsPortUsed)
{
    REQUIRE_SANDBOX();
    sandbox::FdCheck fds;
    struct sockaddr_in a = {AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {0}};
    socklen_t len = sizeof a;
    int srv = socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_EQ(0, bind(srv, reinterpret_cast<sockaddr *>(&a), len));
    ASSERT_EQ(0, listen(srv, 1));
    getsockname(srv, reinterpret_cast<sockaddr *>(&a), &len);
    unsigned short port = ntohs(a.sin_port);
    EXPECT_EQ(1, NET_IsPortUsed(port)) << "held by a listening socket";
    close(srv);
    EXPECT_EQ(0, NET_IsPortUsed(port)) << "free again (no connection ever went through it)";
    // A UDP socket on the port says nothing about TCP.
    int udp = socket(AF_INET, SOCK_DGRAM, 0);
    ASSERT_EQ(0, bind(udp, reinterpret_cast<sockaddr *>(&a), sizeof a));
    EXPECT_EQ(0, NET_IsPortUsed(port));
    close(udp);
}

TEST(Frame, RestartReportsTheScriptStatus)
{
    REQUIRE_SANDBOX();
    sandbox::write_script("/etc/init.d/network", "echo \"$@\" > /tmp/restart-args");
    EXPECT_EQ(0, NET_Restart());
    EXPECT_EQ("restart\n", sandbox::read_file("/tmp/restart-args"));
    for (const char *body : {"exit 3", "kill -9 $$"}) { // a failure and a signal
        sandbox::write_script("/etc/init.d/network", body);
        EXPECT_EQ(-1, NET_Restart()) << body;
    }
    must("rm /etc/init.d/network");
    EXPECT_EQ(-1, NET_Restart()) << "missing script";
}

TEST_F(LinkNet, BlocksWrittenPerInterface)
{
    const char *null = nullptr;
    const std::string l1 = block("lan1", "10.0.0.1 10.0.0.9"), pub = " " + P1 + " " + P2;
    const std::string n = block("lan", "9.9.9.9");
    struct Case {
        const char *device, *ifname, *master, *slave;
        std::string before, after; // before "none": no file
    } cases[] = {
        // One interface: the block "lan" with the public resolvers when two servers were given.
        {"eth0", "eth0", "192.168.1.1", "0.0.0.0", n, block("lan", "192.168.1.1" + pub)},
        {"eth0", "eth0", "192.168.1.1", null, n, block("lan", "192.168.1.1")},
        {"eth0", "eth0", null, "10.0.0.1", n, block("lan", "10.0.0.1")},
        {"eth0", "eth0", "192.168.1.1", "2001:db8::53", n,
         block("lan", "192.168.1.1 2001:db8::53" + pub)},
        {"eth0", "eth0", P1.c_str(), "10.0.0.1", n, block("lan", P1 + " 10.0.0.1 " + P2)},
        {"eth0", "eth0", "10.0.0.1", P2.c_str(), n, block("lan", "10.0.0.1 " + P2 + " " + P1)},
        {"eth0", "eth0", "", "::", n, block("lan", pub)}, // empty and "::" are no servers
        {"eth0", "lan2", "1.1.1.1", "2.2.2.2", n, ""},    // another name: the file emptied
        // Two interfaces: the other's block is kept, always with two lines.
        {"lan1,lan2", "lan2", "10.0.0.2", "10.0.0.3", l1, l1 + block("lan2", "10.0.0.2 10.0.0.3")},
        {"lan1,lan2", "lan1", "192.168.1.1", "0.0.0.0",
         block("lan1", "10.0.0.1") + block("lan2", "10.0.0.2 10.0.0.3"),
         block("lan1", "192.168.1.1") + block("lan2", "10.0.0.2 10.0.0.3")},
        {"lan1,lan2", "lan2", "10.0.0.2", null, block("lan1", "10.0.0.1"),
         block("lan1", "10.0.0.1 -") + block("lan2", "10.0.0.2")},
        {"lan1,lan2", "lan2", "10.0.0.2", null, "",
         block("lan1", "- -") + block("lan2", "10.0.0.2")},
        {"lan1,lan2", "lan2", "10.0.0.2", null, "none",
         block("lan1", "") + block("lan2", "10.0.0.2")},
        {"lan1,lan2", "eth0", "10.0.0.4", "::", l1,
         l1 + block("lan2", "10.0.0.4")}, // any other name
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.after);
        device(c.device);
        sandbox::write_file(kResolv, c.before);
        if (c.before == "none")
            unlink(kResolv.c_str());
        sandbox::FdCheck fds;
        EXPECT_EQ(0, NET_SetDnsServer(c.ifname, c.master, c.slave));
        EXPECT_EQ(c.after, sandbox::read_file(kResolv));
    }
}

// A server text with a line break would write lines of its own into the resolver's file (a
// "search" or "options" line, more servers); it names no server and is left out.
TEST_F(LinkNet, ServerTextsThatSpanLinesAreNotWritten)
{
    device("eth0");
    ASSERT_EQ(0, NET_SetDnsServer("eth0", "192.0.2.1\nsearch evil.example", "192.0.2.2"));
    EXPECT_EQ(block("lan", "192.0.2.2 " + P1 + " " + P2), sandbox::read_file(kResolv));
    ASSERT_EQ(0, NET_SetDnsServer("eth0", "192.0.2.1", "192.0.2.2\r\noptions ndots:15"));
    EXPECT_EQ(block("lan", "192.0.2.1 " + P1 + " " + P2), sandbox::read_file(kResolv));
}

TEST_F(LinkNet, BlocksReadBack)
{
    const char *two =
        "search example.com\n# Interface lan1\nnameserver 10.0.0.1\noptions rotate\n"
        "nameserver    10.0.0.9\nnameserver 10.0.0.8\n# Interface lan2\nnameserver 10.0.0.2\n";
    // The file (null: none), the interface, and the servers it reads.
    const char *cases[][4] = {
        {two, "lan1", "10.0.0.1", "10.0.0.9"}, // other lines skipped, a third server ignored
        {two, "lan2", "10.0.0.2", ""},         // the block ends at the end of file
        {"# Interface lan2\n# Interface lan1\nnameserver 10.0.0.1\n", "lan2", "", ""},
        {"# Interface lan1\nnameserver \nnameserver 10.0.0.3\n", "lan1", "", "10.0.0.3"},
        // The marker is a substring test: section "lan" finds the "lan1" block.
        {"# Interface lan1\nnameserver 10.0.0.1\n", "eth0", "10.0.0.1", ""},
        {two, "lan3", "", ""},
        {"", "lan1", "", ""},
        {nullptr, "lan1", "", ""},
    };
    // Values are copied without a terminator and cut to the length.
    for (unsigned int len : {15u, 4u}) {
        for (const auto &c : cases) {
            SCOPED_TRACE(std::string(c[0] ? c[0] : "no file") + c[1] + std::to_string(len));
            if (c[0] != nullptr)
                sandbox::write_file(kResolv, c[0]);
            else
                unlink(kResolv.c_str());
            sandbox::FdCheck fds;
            char master[32], slave[32];
            memset(master, 'x', sizeof master);
            memset(slave, 'x', sizeof slave);
            EXPECT_EQ(c[0] ? 0 : -1, NET_GetDnsServer(c[1], master, len, slave, len));
            std::string m = std::string(c[2]).substr(0, len), s = std::string(c[3]).substr(0, len);
            EXPECT_EQ(m + std::string(len + 2 - m.size(), 'x'), std::string(master, len + 2));
            EXPECT_EQ(s + std::string(len + 2 - s.size(), 'x'), std::string(slave, len + 2));
        }
    }
}

TEST_F(LinkNet, WrittenBlocksReadBack)
{
    device("lan1,lan2");
    ASSERT_EQ(0, NET_SetDnsServer("lan1", "192.168.1.1", "192.168.1.2"));
    ASSERT_EQ(0, NET_SetDnsServer("lan2", "10.0.0.2", "2001:db8::53"));
    const std::string file = sandbox::read_file(kResolv);
    EXPECT_EQ(0, create_resolv_file());
    EXPECT_EQ(file, sandbox::read_file(kResolv)) << "an existing file is left alone";
    char m[46] = {0}, s[46] = {0};
    ASSERT_EQ(0, NET_GetDnsServer("lan2", m, sizeof m - 1, s, sizeof s - 1));
    EXPECT_EQ("10.0.0.2 2001:db8::53", std::string(m) + " " + s);
    char d1[8], d2[32];
    EXPECT_EQ(0, get_dns(d1, sizeof d1, d2, sizeof d2));
    EXPECT_EQ("192.168 192.168.1.2", std::string(d1) + " " + d2) << "cut and terminated";
    EXPECT_EQ(-1, get_dns(d1, 0, d2, sizeof d2));
}

TEST_F(LinkNet, ExistingServerLines)
{
    sandbox::write_file(kResolv, block("lan1", "10.0.0.1") + block("lan2", "10.0.0.2 10.0.0.3") +
                                     block("lan", "10.0.0.7"));
    // One interface: section "lan" finds the "lan1" block; the second buffer is untouched.
    for (const char *kind : {"lan1,lan2", "eth0"}) {
        device(kind);
        char one[128] = {0}, two[128] = "untouched";
        EXPECT_EQ(0, net_GetExistNameserver(one, sizeof one, two, sizeof two));
        EXPECT_STREQ("nameserver 10.0.0.1\nnameserver \n", one);
        EXPECT_STREQ(kind[0] == 'e' ? "untouched" : "nameserver 10.0.0.2\nnameserver 10.0.0.3\n",
                     two);
    }
    char small[16], two[128];
    EXPECT_EQ(0, net_GetExistNameserver(small, sizeof small, two, sizeof two));
    EXPECT_STREQ("nameserver 10.0", small) << "bounded by the length";
}

// The DHCP switches change the stored proto only, and only when the mode changes.
TEST_F(LinkNet, DhcpSwitchesChangeOnlyTheStoredProto)
{
    struct Case {
        const char *name;
        int (*call)(const char *);
        const char *ifname, *ipv4dhcp, *ipv6dhcp;
        int result;
        const char *proto;
    } cases[] = {
        {"enable from static", NET_EnableDhcp, "lan1", "0", "0", 0, "dhcp"},
        {"enable with DHCPv6", NET_EnableDhcp, "lan1", "0", "1", 0, "dhcpv6"},
        {"enable when already DHCP", NET_EnableDhcp, "lan1", "1", "0", 0, "static"},
        {"disable from DHCP", NET_DisableDhcp, "lan1", "1", "0", 0, "static"},
        {"disable with DHCPv6", NET_DisableDhcp, "lan1", "1", "1", 0, "dhcpv6"},
        {"disable when already static", NET_DisableDhcp, "lan1", "0", "1", 0, "static"},
        {"enable, no section", NET_EnableDhcp, "lan7", "0", "0", -1, "static"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        sandbox::write_file("/etc/config/network",
                            std::string("config interface 'lan1'\n\toption proto 'static'\n") +
                                "\toption ipv4dhcp '" + c.ipv4dhcp + "'\n\toption ipv6dhcp '" +
                                c.ipv6dhcp + "'\n");
        sandbox::FdCheck fds;
        EXPECT_EQ(c.result, c.call(c.ifname));
        EXPECT_EQ(std::string("proto '") + c.proto + "'\n",
                  sandbox::sh_out("grep -o \"proto '[a-z0-9]*'\" /etc/config/network"));
    }
    EXPECT_EQ("192.168.1.10/24 ", ipv4_of("lan1")) << "the kernel is not touched";
}
