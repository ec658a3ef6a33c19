// The IPv6 probe on a veth link to a neighbour namespace. A Linux neighbour answers a
// multicast solicitation without a source link-layer option only when it already has an
// entry for the sender, so the neighbour gets permanent entries for the device's addresses.
#include <netinet/icmp6.h>
#include <netinet/in.h>
#include <string.h>

#include <sstream>
#include <string>
#include <vector>

#include "libnetwork.h"
#include "sandbox.h"
#include "test_detect_support.h"

using namespace detecttest;
using sandbox::expect_line;
using sandbox::LogCapture;

namespace
{

using Ip6 = std::array<uint8_t, 16>;

Ip6 ip6(const char *text)
{
    Ip6 a{};
    inet_pton(AF_INET6, text, a.data());
    return a;
}

Bytes icmp6(uint8_t type, const Ip6 &target, size_t len = 24)
{
    Bytes m(24, 0);
    m[0] = type;
    m[4] = 0x60; // solicited, override
    memcpy(&m[8], target.data(), 16);
    m.resize(len);
    return m;
}

const std::string kFn = "NET_DetectIpv6Collision";

} // namespace

class Ndp : public ::testing::Test
{
  protected:
    void SetUp() override
    {
        REQUIRE_SANDBOX();
        sandbox::veth("lan1", "nb1", &peer_);
        sandbox::addr_add("lan1", "2001:db8::10/64");
        peer_.must("ip addr add 2001:db8::1/64 dev nb1 nodad");
        // Whichever of the device's addresses the kernel picks as the source.
        std::string mac = sandbox::sh_out("cat /sys/class/net/lan1/address");
        mac.erase(mac.find_last_not_of("\n") + 1);
        std::istringstream addrs(
            sandbox::sh_out("ip -6 -o addr show dev lan1 | awk '{print $4}' | cut -d/ -f1"));
        for (std::string a; std::getline(addrs, a);)
            peer_.must("ip -6 neigh replace " + a + " lladdr " + mac + " dev nb1 nud permanent");
    }

    sandbox::Peer peer_;
};

TEST_F(Ndp, HolderAnswersAndNobodyDoesNot)
{
    struct Case {
        const char *addr;
        int timeoutMs;
        int collision;
        std::vector<std::string> log;
    } cases[] = {
        {"2001:db8::1", 1000, 1, {expect_line(kFn, "\"The ipv6 address is collision.\\n\"")}},
        {"2001:db8::77", 200, 7, {}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.addr);
        sandbox::FdCheck fds;
        LogCapture log;
        int collision = 7;
        EXPECT_EQ(0, NET_DetectIpv6Collision("lan1", c.addr, c.timeoutMs, &collision));
        EXPECT_EQ(c.collision, collision);
        EXPECT_EQ(c.log, log.texts());
    }
}

TEST_F(Ndp, WaitIsSecondsPlusTheWholeTimeOutInMicroseconds)
{
    struct Case {
        int timeoutMs;
        double minSec, maxSec;
    } cases[] = {
        {2, 0.002, 0.1}, {0, 0.0, 0.05}, {1500, 2.45, 2.9}, // 1 s + 1.5 s
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.timeoutMs);
        int collision = 7;
        auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(0, NET_DetectIpv6Collision("lan1", "2001:db8::77", c.timeoutMs, &collision));
        double took = since(start);
        EXPECT_GE(took, c.minSec);
        EXPECT_LT(took, c.maxSec + sandbox::kLateSec);
        EXPECT_EQ(7, collision);
    }
}

TEST_F(Ndp, OnlyAnAdvertisementForTheTargetCounts)
{
    const Ip6 target = ip6("2001:db8::77");
    struct Case {
        const char *what;
        std::vector<Bytes> msgs;
        int collision;
    } cases[] = {
        {"an advertisement for it", {icmp6(136, target)}, 1},
        {"an advertisement for another target", {icmp6(136, ip6("2001:db8::78"))}, 7},
        {"a solicitation for it", {icmp6(135, target)}, 7},
        {"cut inside the target", {icmp6(136, target, 23), icmp6(136, target, 4)}, 7},
        {"an echo reply", {icmp6(129, target)}, 7},
        {"options behind: still for it", {icmp6(136, target, 32)}, 1},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        // The neighbour hears the solicitation in the target's group and answers by hand.
        PeerTask peer(peer_, [&](const std::function<void()> &ready, int) {
            int fd = socket(AF_INET6, SOCK_RAW, IPPROTO_ICMPV6);
            unsigned idx = if_nametoindex("nb1");
            struct ipv6_mreq req;
            inet_pton(AF_INET6, "ff02::1:ff00:77", &req.ipv6mr_multiaddr);
            req.ipv6mr_interface = idx;
            int hops = 255;
            if (fd < 0 || setsockopt(fd, IPPROTO_IPV6, IPV6_JOIN_GROUP, &req, sizeof req) != 0 ||
                setsockopt(fd, IPPROTO_IPV6, IPV6_MULTICAST_HOPS, &hops, sizeof hops) != 0)
                return 2;
            ready();
            auto solicit = [&](const Bytes &m) {
                return m.size() == 24 && m[0] == 135 && memcmp(&m[8], target.data(), 16) == 0;
            };
            if (!await(fd, 3000, solicit, nullptr))
                return 3;
            struct sockaddr_in6 all;
            memset(&all, 0, sizeof all);
            all.sin6_family = AF_INET6;
            inet_pton(AF_INET6, "ff02::1", &all.sin6_addr);
            all.sin6_scope_id = idx;
            for (const Bytes &m : c.msgs)
                if (sendto(fd, m.data(), m.size(), 0, reinterpret_cast<sockaddr *>(&all),
                           sizeof all) < 0)
                    return 4;
            return 0;
        });
        ASSERT_TRUE(peer.ready());
        int collision = 7;
        EXPECT_EQ(0, NET_DetectIpv6Collision("lan1", "2001:db8::77", 300, &collision));
        EXPECT_EQ(0, peer.wait());
        EXPECT_EQ(c.collision, collision);
    }
}

// Both probes put the whole time-out into the microsecond field of their wait; the C library
// reads that field as 32 bits, so over 35 minutes it wrapped negative, select refused the wait
// on every pass and the probe never returned.
TEST_F(Ndp, ProbesAnsweredWithinAnHourLongWait)
{
    sandbox::addr_add("lan1", "192.168.1.10/24");
    peer_.must("ip addr add 192.168.1.1/24 dev nb1");
    const int kFiftyMinutes = 50 * 60 * 1000;
    struct Case {
        const char *what;
        std::function<int(int *)> probe;
    } cases[] = {
        {"ARP",
         [&](int *c) { return NET_DetectIpv4Collision("lan1", "192.168.1.1", kFiftyMinutes, c); }},
        {"NDP",
         [&](int *c) { return NET_DetectIpv6Collision("lan1", "2001:db8::1", kFiftyMinutes, c); }},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        sandbox::FdCheck fds;
        int collision = 7;
        auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(0, c.probe(&collision));
        EXPECT_EQ(1, collision) << "the neighbour holds the address";
        EXPECT_LT(since(start), 3.0 + sandbox::kLateSec);
    }
}

TEST_F(Ndp, Refusals)
{
    int collision = 7;
    // The parameter line prints the three pointers.
    auto params = [](const char *ifname, const char *addr, int *out) {
        char text[200];
        snprintf(text, sizeof text,
                 "PL_PARAM_ERROR_PRINT \"pcIfName:%p, pcIpv6Addr:%p, pbIsCollision:%p \\n\"",
                 (const void *)ifname, (const void *)addr, (void *)out);
        return expect_line(kFn, text);
    };
    const char *addr = "2001:db8::1";
    struct Case {
        const char *ifname;
        const char *addr;
        int *out;
        std::vector<std::string> log;
    } cases[] = {
        {nullptr, addr, &collision, {params(nullptr, addr, &collision)}},
        {"lan1", nullptr, &collision, {params("lan1", nullptr, &collision)}},
        {"lan1", addr, nullptr, {params("lan1", addr, nullptr)}},
        {"nosuch0", addr, &collision, {expect_line(kFn, "\"bind network card fail.\\n\"")}},
        {"lan1", "2001:db8::g", &collision, {expect_line(kFn, "\"INET_Ipv6StrToNum failed.\\n\"")}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(std::string(c.ifname ? c.ifname : "(null)") + " " +
                     (c.addr ? c.addr : "(null)"));
        sandbox::FdCheck fds;
        LogCapture log;
        EXPECT_EQ(-1, NET_DetectIpv6Collision(c.ifname, c.addr, 100, c.out));
        EXPECT_EQ(c.log, log.texts());
        EXPECT_EQ(7, collision);
    }
}
