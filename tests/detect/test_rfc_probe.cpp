// The RFC probes on a veth link to a neighbour namespace: what the neighbour holds, what it
// sends during our probe, our own frames reflected by a hairpin bridge, a link without
// carrier. The neighbour keeps no entry for the device: a quiet host is the case they are for.
#include <errno.h>

#include "detect_support.h"
#include "libnetwork.h"
#include "sandbox.h"

using namespace detecttest;

namespace
{

enum Family { V4, V6 };

// Probes 200 ms in all (no random wait, 3 probes 50 ms apart, 100 ms after).
const NetProbeOpts kFast = {0, 3, 50, 50, 100, -1, -1};
// 6 s in all: a conflict that ends it early shows by seconds.
const NetProbeOpts kLong = {0, 3, 2000, 2000, 2000, -1, -1};
constexpr double kFastSec = 0.2, kLongSec = 6.0;

int probe(Family f, const char *addr, const NetProbeOpts &opts, NetProbeResult &res,
          const char *ifname = "lan1")
{
    return f == V4 ? NET_ProbeIpv4(ifname, addr, &opts, &res)
                   : NET_ProbeIpv6(ifname, addr, &opts, &res);
}

// True where joining a link-layer group is not carried (qemu's user-mode emulator answers
// ENOPROTOOPT): the IPv6 probe cannot listen for its solicited-node group there.
bool v6_emulated()
{
    int fd = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(ETH_P_IPV6));
    struct packet_mreq mr = {};
    mr.mr_ifindex = 1;
    mr.mr_type = PACKET_MR_ALLMULTI;
    bool emulated = setsockopt(fd, SOL_PACKET, PACKET_ADD_MEMBERSHIP, &mr, sizeof mr) != 0 &&
                    errno == ENOPROTOOPT;
    close(fd);
    return emulated;
}

Mac res_mac(const NetProbeResult &r)
{
    Mac m;
    memcpy(m.data(), r.aucMac, 6);
    return m;
}

} // namespace

class RfcProbe : public ::testing::Test
{
  protected:
    void SetUp() override
    {
        REQUIRE_SANDBOX();
        sandbox::veth("lan1", "nb1", &peer_);
        // An address for the first release's IPv6 probe to send from; the new ones need none.
        sandbox::must("ip addr add 2001:db8::10/64 dev lan1 nodad");
        peer_.must("ip addr add 192.168.1.1/24 dev nb1 && ip addr add 2001:db8::1/64 dev nb1 "
                   "nodad && ip link set nb1 address 02:00:00:00:01:02");
    }

    sandbox::Peer peer_;
    const Mac nb_ = {0x02, 0x00, 0x00, 0x00, 0x01, 0x02};
};

TEST_F(RfcProbe, HolderNamedFreeAddressTakesTheMinimum)
{
    struct Case {
        Family family;
        const char *addr;
        int outcome;
    } cases[] = {
        {V4, "192.168.1.1", NET_PROBE_CONFLICT},
        {V6, "2001:db8::1", NET_PROBE_CONFLICT},
        {V4, "192.168.1.99", NET_PROBE_FREE},
        {V6, "2001:db8::99", NET_PROBE_FREE},
    };
    for (const Case &c : cases) {
        if (c.family == V6 && v6_emulated())
            continue;
        SCOPED_TRACE(c.addr);
        for (int run = 0; run < 3; ++run) {
            sandbox::FdCheck fds;
            bool free = c.outcome == NET_PROBE_FREE;
            NetProbeResult r;
            auto start = std::chrono::steady_clock::now();
            EXPECT_EQ(0, probe(c.family, c.addr, free ? kFast : kLong, r));
            double took = since(start);
            EXPECT_EQ(c.outcome, r.iOutcome);
            EXPECT_EQ(free ? kNoMac : nb_, res_mac(r));
            if (free) {
                EXPECT_EQ(3, r.iProbesSent);
                EXPECT_GE(took, kFastSec);
                EXPECT_LT(took, kFastSec + sandbox::kLateSec);
            } else {
                // The answer to the first probe ends it.
                EXPECT_EQ(1, r.iProbesSent);
                EXPECT_LT(took, kLongSec - 1.0);
                EXPECT_LE(r.iConflictUs, r.iElapsedUs);
            }
        }
    }
}

TEST_F(RfcProbe, QuietNeighbourMissedByTheFirstReleaseNamedByDad)
{
    SKIP_IF_EMULATED(v6_emulated(), "PACKET_ADD_MEMBERSHIP");
    peer_.must("ip -6 neigh flush dev nb1");
    int collision = 0;
    EXPECT_EQ(0, NET_DetectIpv6Collision("lan1", "2001:db8::1", 500, &collision));
    EXPECT_EQ(0, collision);
    NetProbeResult r;
    EXPECT_EQ(0, NET_ProbeIpv6("lan1", "2001:db8::1", &kFast, &r));
    EXPECT_EQ(NET_PROBE_CONFLICT, r.iOutcome);
    EXPECT_EQ(nb_, res_mac(r));
}

TEST_F(RfcProbe, WhatTheNeighbourSendsDuringOurProbe)
{
    const Ip4 target = ip4("192.168.1.77"), none = ip4("0.0.0.0");
    struct Case {
        const char *what;
        Bytes frame;
        int outcome;
        Mac mac;
    } cases[] = {
        {"its probe for the target", arp_frame(1, kBroadcast, nb_, none, kNoMac, target),
         NET_PROBE_SIMULTANEOUS, nb_},
        {"its gratuitous ARP", arp_frame(1, kBroadcast, nb_, target, kNoMac, target),
         NET_PROBE_CONFLICT, nb_},
        {"a question for the target from an address",
         arp_frame(1, kBroadcast, nb_, ip4("192.168.1.1"), kNoMac, target), NET_PROBE_FREE, kNoMac},
    };
    const NetProbeOpts opts = {0, 3, 1000, 1000, 1000, -1, -1};
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        int fd = -1;
        as_peer(peer_, [&] { fd = arp_socket("nb1"); });
        ASSERT_GE(fd, 0);
        auto ours = [&](const Bytes &f) {
            return arp_op(f) == 1 && memcmp(&f[38], target.data(), 4) == 0;
        };
        bool sent = false;
        std::thread nb([&] { sent = await(fd, 3000, ours, nullptr) && send_all(fd, {c.frame}); });
        NetProbeResult r;
        EXPECT_EQ(0, NET_ProbeIpv4("lan1", "192.168.1.77", &opts, &r));
        nb.join();
        close(fd);
        EXPECT_TRUE(sent);
        EXPECT_EQ(c.outcome, r.iOutcome);
        EXPECT_EQ(c.mac, res_mac(r));
        EXPECT_EQ(c.outcome == NET_PROBE_FREE ? 3 : 1, r.iProbesSent);
    }
}

TEST_F(RfcProbe, NeighbourKernelRunningDadForTheSameAddress)
{
    SKIP_IF_EMULATED(v6_emulated(), "PACKET_ADD_MEMBERSHIP");
    // The neighbour's kernel probes after a random wait of up to a second.
    const NetProbeOpts opts = {0, 2, 1500, 1500, 1500, -1, -1};
    peer_.must("(sleep 0.1; ip addr add 2001:db8::55/64 dev nb1) >/dev/null 2>&1 &");
    NetProbeResult r;
    EXPECT_EQ(0, NET_ProbeIpv6("lan1", "2001:db8::55", &opts, &r));
    EXPECT_EQ(NET_PROBE_SIMULTANEOUS, r.iOutcome);
    EXPECT_EQ(nb_, res_mac(r));
}

TEST_F(RfcProbe, OwnFramesReflectedByAHairpinBridgeDoNotCount)
{
    peer_.must("ip addr flush dev nb1 && ip link add br0 type bridge mcast_snooping 0 && "
               "ip link set nb1 master br0 && bridge link set dev nb1 hairpin on && "
               "ip link set br0 up");
    struct Case {
        Family family;
        const char *addr;
    } cases[] = {{V4, "192.168.1.77"}, {V6, "2001:db8::77"}};
    for (const Case &c : cases) {
        if (c.family == V6 && v6_emulated())
            continue;
        SCOPED_TRACE(c.addr);
        long before = std::stol(sandbox::sh_out("cat /sys/class/net/lan1/statistics/rx_packets"));
        NetProbeResult r;
        EXPECT_EQ(0, probe(c.family, c.addr, kFast, r));
        EXPECT_EQ(NET_PROBE_FREE, r.iOutcome);
        // The probes did come back.
        long after = std::stol(sandbox::sh_out("cat /sys/class/net/lan1/statistics/rx_packets"));
        EXPECT_GE(after - before, 3);
    }
}

TEST_F(RfcProbe, ProbesThatCannotBeMadeNeverReadAsFree)
{
    const NetProbeOpts minAboveMax = {0, 3, 200, 100, 100, -1, -1};
    struct Case {
        const char *what;
        const char *setup;
        bool inPeer;
        Family family;
        const char *ifname;
        const char *addr;
        const NetProbeOpts *opts;
        int outcome, err;
    } cases[] = {
        {"no carrier", "ip link set nb1 down", true, V4, "lan1", "192.168.1.1", &kFast,
         NET_PROBE_NOT_SENT, ENOLINK},
        {"no carrier", "ip link set nb1 down", true, V6, "lan1", "2001:db8::1", &kFast,
         NET_PROBE_NOT_SENT, ENOLINK},
        {"interface down", "ip link set lan1 down", false, V4, "lan1", "192.168.1.1", &kFast,
         NET_PROBE_NOT_SENT, ENETDOWN},
        {"no such interface", "true", false, V4, "nosuch0", "192.168.1.1", &kFast,
         NET_PROBE_NO_INTERFACE, ENODEV},
        {"no Ethernet address", "true", false, V4, "lo", "127.0.0.2", &kFast, NET_PROBE_NOT_SENT,
         EAFNOSUPPORT},
        {"shortest gap above the longest", "true", false, V4, "lan1", "192.168.1.1", &minAboveMax,
         NET_PROBE_NOT_SENT, EINVAL},
    };
    for (const Case &c : cases) {
        if (c.family == V6 && v6_emulated())
            continue;
        SCOPED_TRACE(std::string(c.what) + (c.family == V4 ? " v4" : " v6"));
        if (c.inPeer)
            peer_.must(c.setup);
        else
            sandbox::must(c.setup);
        sandbox::FdCheck fds;
        NetProbeResult r;
        memset(&r, 0x5a, sizeof r);
        EXPECT_EQ(-1, probe(c.family, c.addr, *c.opts, r, c.ifname));
        EXPECT_EQ(c.outcome, r.iOutcome);
        EXPECT_EQ(c.err, r.iErrno);
        EXPECT_EQ(0, r.iProbesSent);
        peer_.sh("ip link set nb1 up");
        sandbox::sh("ip link set lan1 up");
    }
    sandbox::LogCapture log;
    NetProbeResult r;
    EXPECT_EQ(-1, NET_ProbeIpv4("lan1", nullptr, nullptr, &r));
    EXPECT_EQ(-1, NET_ProbeIpv6("lan1", "2001:db8::1", nullptr, nullptr));
    EXPECT_EQ(-1, NET_AnnounceIpv4(nullptr, "192.168.1.1", nullptr));
    EXPECT_EQ(3u, log.texts().size());
}

TEST_F(RfcProbe, AnnouncementsSpacedAsAsked)
{
    const Ip4 addr = ip4("192.168.1.20");
    const Mac self = mac_of("lan1");
    const NetProbeOpts opts = {-1, -1, -1, -1, -1, 3, 300};
    int fd = -1;
    as_peer(peer_, [&] { fd = arp_socket("nb1"); });
    ASSERT_GE(fd, 0);
    auto announce = [&](const Bytes &f) {
        return f == arp_frame(1, kBroadcast, self, addr, kNoMac, addr);
    };
    int seen = 0;
    std::thread nb([&] {
        while (seen < 3 && await(fd, 3000, announce, nullptr))
            ++seen;
    });
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(0, NET_AnnounceIpv4("lan1", "192.168.1.20", &opts));
    EXPECT_GE(since(start), 0.6);
    nb.join();
    close(fd);
    EXPECT_EQ(3, seen);
}
