// IPv6 addressing against real interfaces: addresses added with nodad, routes and default
// routes added with `ip -6 route`, and the kernel's own tables read back independently.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <string.h>
#include <sys/resource.h>
#include <unistd.h>

#include <functional>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "libnetwork.h"
#include "sandbox.h"

using sandbox::expect_line;
using sandbox::LogCapture;
using sandbox::must;

namespace
{

std::string ptr_text(const void *p)
{
    char buf[32];
    snprintf(buf, sizeof buf, "%p", p);
    return buf;
}

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

class Ipv6 : public ::testing::Test
{
  protected:
    void SetUp() override
    {
        REQUIRE_SANDBOX();
        sandbox::veth("lan1", "nb1");
        sandbox::veth("lan2", "nb2");
    }
};

TEST_F(Ipv6, ListSkipsLinkLocalAndOtherInterfaces)
{
    ASSERT_TRUE(wait_for([] { return has_link_local("lan1"); })) << "no link-local address";
    sandbox::FdCheck fds;
    NetIpv6AddrList list;
    memset(&list, 0x5a, sizeof list);
    ASSERT_EQ(0, NET_GetIpv6AddrList("lan1", &list));
    EXPECT_EQ(0, list.iNum) << "only a link-local address";
    NetIpv6AddrList zero;
    memset(&zero, 0, sizeof zero);
    EXPECT_EQ(0, memcmp(&zero, &list, sizeof zero)) << "the whole list is cleared";

    sandbox::addr_add("lan1", "2001:db8::10/64");
    sandbox::addr_add("lan1", "2001:db8:0:1::abcd/56");
    sandbox::addr_add("lan2", "2001:db8:2::1/64");
    ASSERT_EQ(0, NET_GetIpv6AddrList("lan1", &list));
    ASSERT_EQ(2, list.iNum);
    std::set<std::string> seen;
    for (int i = 0; i < list.iNum; ++i) {
        const NetIpv6AddrEntry &e = list.astAddr[i];
        seen.insert(e.szAddr);
        EXPECT_EQ(std::string(e.szAddr), text_of(e.aucAddr)) << "text and bytes agree";
        EXPECT_EQ(strcmp(e.szAddr, "2001:db8::10") == 0 ? 64 : 56, e.iPrefixLen) << e.szAddr;
    }
    EXPECT_EQ((std::set<std::string>{"2001:db8::10", "2001:db8:0:1::abcd"}), seen);
}

TEST_F(Ipv6, ListStopsAtThirtyTwoEntries)
{
    std::set<std::string> added;
    for (int i = 0; i < 40; ++i) {
        std::string a = "2001:db8::" + std::to_string(100 + i);
        sandbox::addr_add("lan1", a + "/64");
        added.insert(a);
    }
    sandbox::FdCheck fds;
    NetIpv6AddrList list;
    ASSERT_EQ(0, NET_GetIpv6AddrList("lan1", &list));
    ASSERT_EQ(32, list.iNum);
    std::set<std::string> seen;
    for (const NetIpv6AddrEntry &e : list.astAddr) {
        EXPECT_EQ(1u, added.count(e.szAddr)) << e.szAddr;
        EXPECT_EQ(64, e.iPrefixLen);
        seen.insert(e.szAddr);
    }
    EXPECT_EQ(32u, seen.size()) << "no entry twice";
}

TEST_F(Ipv6, ListTakesTheRoutePrefixOverTheAddressPrefix)
{
    // Without its own prefix route the address is covered by a /48 route of the interface.
    must("ip addr add 2001:db8:1:2::5/64 dev lan1 nodad noprefixroute");
    must("ip -6 route add 2001:db8:1::/48 dev lan1");
    // A route of the other interface that would match more closely is not consulted.
    must("ip -6 route add 2001:db8:1:2::/60 dev lan2");
    NetIpv6AddrList list;
    ASSERT_EQ(0, NET_GetIpv6AddrList("lan1", &list));
    ASSERT_EQ(1, list.iNum);
    EXPECT_STREQ("2001:db8:1:2::5", list.astAddr[0].szAddr);
    EXPECT_EQ(48, list.astAddr[0].iPrefixLen);
}

TEST_F(Ipv6, PrefixOfAnAddressFromTheRouteTable)
{
    struct Case {
        const char *routes; // added to lan1 (or lan2 where named)
        const char *addr;
        int prefix; // 0: none found, the caller's value stays
    } cases[] = {
        {"2001:db8:1::/48", "2001:db8:1:2::5", 48},
        {"2001:db8:1::/48", "2001:db8:2::5", 0},
        // Whole hexadecimal digits only: /46 compares 11 digits, so 123f matches 1230::/46.
        {"2001:db8:1230::/46", "2001:db8:123f::1", 46},
        // Below 4 bits nothing is compared: the first such route matches any address.
        {"4000::/2", "2001:db8::1", 2},
        // A route of another interface does not count.
        {"2001:db8:1::/48 dev lan2", "2001:db8:1::5", 0},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.routes);
        std::string route = c.routes;
        if (route.find(" dev ") == std::string::npos)
            route += " dev lan1";
        must("ip -6 route add " + route);
        sandbox::FdCheck fds;
        LogCapture log;
        int prefix = -7;
        EXPECT_EQ(0, NET_GetIpv6Prefix("lan1", hex_of(c.addr).c_str(), &prefix));
        EXPECT_EQ(c.prefix == 0 ? -7 : c.prefix, prefix);
        EXPECT_TRUE(log.texts().empty());
        must("ip -6 route del " + route);
    }
}

TEST_F(Ipv6, PrefixComparesAtMostThirtyTwoRoutesOfTheInterface)
{
    // The table lists routes in address order: n non-matching /48 routes of lan1 come
    // before 3000::/4, and routes of lan2 between them do not count.
    for (int i = 1; i <= 10; ++i)
        must("ip -6 route add 2001:db8:" + std::to_string(100 + i) + "::/48 dev lan2");
    struct Case {
        int before;
        int prefix;
    } cases[] = {{31, 4}, {32, -7}};
    for (const Case &c : cases) {
        SCOPED_TRACE(c.before);
        for (int i = 1; i <= c.before; ++i)
            sandbox::sh("ip -6 route add 2001:db8:" + std::to_string(i) +
                        "::/48 dev lan1 2>/dev/null");
        must("ip -6 route add 3000::/4 dev lan1");
        int prefix = -7;
        EXPECT_EQ(0, NET_GetIpv6Prefix("lan1", hex_of("3001::1").c_str(), &prefix));
        EXPECT_EQ(c.prefix, prefix);
        must("ip -6 route del 3000::/4 dev lan1");
    }
}

TEST_F(Ipv6, DefaultGatewayByKind)
{
    sandbox::addr_add("lan1", "2001:db8::5/64");
    sandbox::addr_add("lan2", "2001:db8:2::5/64");
    struct Case {
        const char *name;
        std::vector<std::string> routes;
        int result;          // NET_GetIpv6Gateway on lan1
        const char *gateway; // its text
        int numResult;       // get_ipv6_gateway_num on lan1
        const char *numGateway;
    } cases[] = {
        {"link-local next hop", {"default via fe80::1 dev lan1"}, 0, "fe80::1", -1, "::"},
        {"global next hop",
         {"default via 2001:db8::1 dev lan1"},
         0,
         "2001:db8::1",
         0,
         "2001:db8::1"},
        {"link-local first, then global",
         {"default via fe80::1 dev lan1 metric 100", "default via 2001:db8::1 dev lan1 metric 200"},
         0,
         "fe80::1",
         0,
         "2001:db8::1"},
        {"febf is link-local too", {"default via febf::1 dev lan1"}, 0, "febf::1", -1, "::"},
        {"fec0 is not", {"default via fec0::1 dev lan1 onlink"}, 0, "fec0::1", 0, "fec0::1"},
        {"other interface only", {"default via 2001:db8:2::1 dev lan2"}, -1, "", -1, "::"},
        {"no default route", {"2001:db8:9::/48 via 2001:db8::1 dev lan1"}, -1, "", -1, "::"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        for (const std::string &r : c.routes)
            must("ip -6 route add " + r);
        sandbox::FdCheck fds;
        LogCapture log;
        char gw[46] = {0};
        EXPECT_EQ(c.result, NET_GetIpv6Gateway("lan1", gw, sizeof gw));
        EXPECT_STREQ(c.gateway, gw);
        unsigned char num[16];
        memset(num, 0x5a, sizeof num);
        EXPECT_EQ(c.numResult, get_ipv6_gateway_num("lan1", num));
        EXPECT_EQ(c.numGateway, text_of(num)) << "all zero when none was found";
        EXPECT_TRUE(log.texts().empty());
        for (const std::string &r : c.routes)
            must("ip -6 route del " + r);
    }
}

TEST_F(Ipv6, ReaderRefusalsAreLogged)
{
    must("ip -6 route add default via 2001:db8::1 dev lan1 onlink");
    static NetIpv6AddrList list;
    static int prefix;
    static char small[8];
    const std::string lan1 = ptr_text("lan1");
    struct Case {
        const char *name;
        std::function<int()> call;
        std::vector<std::string> lines;
    } cases[] = {
        {"list: unknown interface",
         [] { return NET_GetIpv6AddrList("nosuchdev", &list); },
         {expect_line("NET_GetIpv6AddrList", "\"can not find index. \\n\"")}},
        {"list: null name",
         [] { return NET_GetIpv6AddrList(nullptr, &list); },
         {expect_line("NET_GetIpv6AddrList", "PL_PARAM_ERROR_PRINT \"pcIfName: (nil), "
                                             "pstIpv6AddrList: " +
                                                 ptr_text(&list) + ". \\n\"")}},
        {"prefix: null address",
         [] { return NET_GetIpv6Prefix("lan1", nullptr, &prefix); },
         {expect_line("NET_GetIpv6Prefix",
                      "PL_PARAM_ERROR_PRINT \"pcIfName: " + lan1 +
                          ", pcIpv6Addr: (nil), piPrefix :" + ptr_text(&prefix) + ". \\n\"")}},
        {"gateway: null buffer",
         [] { return NET_GetIpv6Gateway("lan1", nullptr, 46); },
         {expect_line("NET_GetIpv6Gateway", "PL_PARAM_ERROR_PRINT \"pcIfName: " + lan1 +
                                                ", pstIpv6Gateway: (nil). \\n\"")}},
        {"gateway: the text does not fit",
         [] { return NET_GetIpv6Gateway("lan1", small, sizeof small); },
         {}},
        {"older gateway: null name",
         [] { return get_ipv6_gateway_num(nullptr, reinterpret_cast<unsigned char *>(small)); },
         {}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        sandbox::FdCheck fds;
        LogCapture log;
        memset(&list, 0x5a, sizeof list);
        EXPECT_EQ(-1, c.call());
        EXPECT_EQ(c.lines, log.texts());
        for (const sandbox::LogLine &l : log.lines())
            EXPECT_EQ(3, l.level);
    }
    memset(&list, 0x5a, sizeof list);
    NET_GetIpv6AddrList("nosuchdev", &list);
    EXPECT_EQ(0, list.iNum) << "cleared before the index is asked";
}

TEST_F(Ipv6, AddAndDeleteAddresses)
{
    SKIP_IF_EMULATED(sandbox::ipv6_addr_requests_emulated(), "SIOCSIFADDR for IPv6");
    struct Case {
        const char *addr;
        int prefix;
    } cases[] = {{"2001:db8::7", 64}, {"2001:db8:5::1", 3}, {"2001:db8:6::1", 127}};
    sandbox::FdCheck fds;
    LogCapture log;
    for (const Case &c : cases) {
        SCOPED_TRACE(c.addr);
        std::string cidr = std::string(c.addr) + "/" + std::to_string(c.prefix);
        ASSERT_EQ(0, NET_AddIpv6Addr("lan1", c.addr, c.prefix));
        EXPECT_NE(std::string::npos, addrs_of("lan1").find(cidr)) << addrs_of("lan1");
        EXPECT_EQ(0, NET_DelIpv6Addr("lan1", c.addr, c.prefix));
        EXPECT_EQ(std::string::npos, addrs_of("lan1").find(cidr)) << addrs_of("lan1");
    }
    EXPECT_TRUE(log.texts().empty());
}

TEST_F(Ipv6, PrefixRangeIsRefusedBeforeASocket)
{
    struct Case {
        const char *name;
        std::function<int()> call;
        std::string line; // the one line logged while no descriptor is left
    } cases[] = {
        {"add /128", [] { return NET_AddIpv6Addr("lan1", "2001:db8::1", 128); },
         expect_line("NET_AddIpv6Addr", "PL_PARAM_ERROR_PRINT \"pcIfName: " + ptr_text("lan1") +
                                            ", pstIpv6Addr: " + ptr_text("2001:db8::1") +
                                            ", iPrefixLen: 128.\\n\"")},
        {"del /2", [] { return NET_DelIpv6Addr("lan1", "2001:db8::1", 2); },
         expect_line("NET_DelIpv6Addr", "PL_PARAM_ERROR_PRINT \"pcIfName: " + ptr_text("lan1") +
                                            ", pstIpv6Addr: " + ptr_text("2001:db8::1") +
                                            ", iPrefixLen: 2.\\n\"")},
        {"add null address", [] { return NET_AddIpv6Addr("lan1", nullptr, 64); },
         expect_line("NET_AddIpv6Addr", "PL_PARAM_ERROR_PRINT \"pcIfName: " + ptr_text("lan1") +
                                            ", pstIpv6Addr: (nil), iPrefixLen: 64.\\n\"")},
        {"add /3 opens a socket", [] { return NET_AddIpv6Addr("lan1", "2001:db8::1", 3); },
         expect_line("NET_AddIpv6Addr", "PL_OPEN_SOCKET_ERROR_PRINT \"iSocketFd: -1\\n\"")},
        {"del /127 opens a socket", [] { return NET_DelIpv6Addr("lan1", "2001:db8::1", 127); },
         expect_line("NET_DelIpv6Addr", "PL_OPEN_SOCKET_ERROR_PRINT \"iSocketFd: -1\\n\"")},
        {"set-local text converted first",
         [] { return NET_SetLocalIpv6Addr("lan1", "2001:db8::zz", 64); },
         expect_line("NET_SetLocalIpv6Addr",
                     "PL_CONVERT_IPV6_ADDR_ERROR_PRINT \"pcIpv6Addr: 2001:db8::zz.\\n\"")},
        {"set-local opens a socket", [] { return NET_SetLocalIpv6Addr("lan1", "2001:db8::1", 64); },
         expect_line("NET_SetLocalIpv6Addr", "PL_OPEN_SOCKET_ERROR_PRINT \"iSock: -1\\n\"")},
        {"set-local null name", [] { return NET_SetLocalIpv6Addr(nullptr, "2001:db8::1", 64); },
         expect_line("NET_SetLocalIpv6Addr", "PL_PARAM_ERROR_PRINT \"pcIfName: (nil), "
                                             "pcIpv6Addr: " +
                                                 ptr_text("2001:db8::1") + ". \\n\"")},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        LogCapture log;
        int result;
        {
            sandbox::NoMoreDescriptors none;
            result = c.call();
        }
        EXPECT_EQ(-1, result);
        EXPECT_EQ(std::vector<std::string>{c.line}, log.texts());
        ASSERT_FALSE(log.lines().empty());
        EXPECT_EQ(3, log.lines()[0].level);
    }
    EXPECT_EQ(std::string::npos, addrs_of("lan1").find("2001:db8::1/")) << "nothing added";
}

TEST_F(Ipv6, RequestFailuresAreLogged)
{
    SKIP_IF_EMULATED(sandbox::ipv6_addr_requests_emulated(), "SIOCSIFADDR for IPv6");
    sandbox::addr_add("lan1", "2001:db8::5/64");
    struct Case {
        const char *name;
        std::function<int()> call;
        std::string line;
    } cases[] = {
        {"add on a missing interface: the index first",
         [] { return NET_AddIpv6Addr("nosuchdev", "not-an-address", 64); },
         expect_line("NET_AddIpv6Addr", "PL_IOCTL_ERROR_PRINT \"No such device.\\n\"")},
        {"add with a bad text", [] { return NET_AddIpv6Addr("lan1", "not-an-address", 64); },
         expect_line("NET_AddIpv6Addr",
                     "PL_CONVERT_IPV6_ADDR_ERROR_PRINT \"pstIpv6Addr: not-an-address.\\n\"")},
        {"delete an address that is not there",
         [] { return NET_DelIpv6Addr("lan1", "2001:db8::6", 64); },
         expect_line("NET_DelIpv6Addr",
                     "PL_IOCTL_ERROR_PRINT \"Cannot assign requested address.\\n\"")},
        {"delete with another prefix length",
         [] { return NET_DelIpv6Addr("lan1", "2001:db8::5", 48); },
         expect_line("NET_DelIpv6Addr",
                     "PL_IOCTL_ERROR_PRINT \"Cannot assign requested address.\\n\"")},
        {"set-local on a missing interface",
         [] { return NET_SetLocalIpv6Addr("nosuchdev", "2001:db8::1", 64); },
         expect_line("NET_SetLocalIpv6Addr", "PL_IOCTL_ERROR_PRINT \"No such device.\\n\"")},
        {"set-local prefix beyond 128 reaches the kernel",
         [] { return NET_SetLocalIpv6Addr("lan1", "2001:db8::1", 129); },
         expect_line("NET_SetLocalIpv6Addr", "PL_IOCTL_ERROR_PRINT \"Invalid argument.\\n\"")},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        sandbox::FdCheck fds;
        LogCapture log;
        EXPECT_EQ(-1, c.call());
        EXPECT_EQ(std::vector<std::string>{c.line}, log.texts());
        ASSERT_FALSE(log.lines().empty());
        EXPECT_EQ(3, log.lines()[0].level);
    }
    EXPECT_NE(std::string::npos, addrs_of("lan1").find("2001:db8::5/64"));
}

TEST_F(Ipv6, SetLocalTakesAnyPrefixLength)
{
    sandbox::FdCheck fds;
    LogCapture log;
    EXPECT_EQ(0, NET_SetLocalIpv6Addr("lan1", "2001:db8::128", 128));
    EXPECT_EQ(0, NET_SetLocalIpv6Addr("lan1", "2001:db8:1::2", 2));
    std::string addrs = addrs_of("lan1");
    EXPECT_NE(std::string::npos, addrs.find("2001:db8::128/128")) << addrs;
    EXPECT_NE(std::string::npos, addrs.find("2001:db8:1::2/2")) << addrs;
    EXPECT_TRUE(log.texts().empty());
}
