// The ARP probe and the gratuitous ARP on a veth link to a neighbour namespace: the
// neighbour's kernel answers probes for its own address, and a packet socket there sees
// what the device sends and crafts what it should hear.
#include <string.h>

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

const Ip4 kDevIp = ip4("192.168.1.10");
const Ip4 kPeerIp = ip4("192.168.1.1");
const Ip4 kFree = ip4("192.168.1.77");
const Mac kPeerMac = {0x02, 0, 0, 0, 0x01, 0x02};
const Mac kOtherMac = {0x02, 0, 0, 0, 0x09, 0x99};

// The probe the device must send for target: a request claiming no address.
Bytes probe_for(const Mac &own, const Ip4 &target)
{
    return arp_frame(1, kBroadcast, own, Ip4{0, 0, 0, 0}, kNoMac, target);
}

bool is_probe_for(const Bytes &f, const Ip4 &target)
{
    return f.size() >= 42 && arp_op(f) == 1 && memcmp(&f[28], "\0\0\0\0", 4) == 0 &&
           memcmp(&f[38], target.data(), 4) == 0;
}

Bytes prefix(Bytes f, size_t n)
{
    f.resize(n);
    return f;
}

} // namespace

class ArpProbe : public ::testing::Test
{
  protected:
    void SetUp() override
    {
        REQUIRE_SANDBOX();
        sandbox::veth("lan1", "nb1", &peer_);
        peer_.must("ip link set nb1 address 02:00:00:00:01:02");
        sandbox::addr_add("lan1", "192.168.1.10/24");
        peer_.must("ip addr add 192.168.1.1/24 dev nb1");
        own_ = mac_of("lan1");
    }

    struct Outcome {
        int result = -2;
        int collision = 7; // the caller's value, kept unless a host claims the address
        double seconds = 0;
        Bytes probe; // as the neighbour saw it
        int peerStatus = -1;
    };

    // Probes target while the neighbour answers the probe with frames.
    Outcome probe_answered(const Ip4 &target, const std::vector<Bytes> &frames, int timeoutMs)
    {
        Outcome o;
        PeerTask peer(peer_, [&](const std::function<void()> &ready, int out) {
            int fd = arp_socket("nb1");
            if (fd < 0)
                return 2;
            ready();
            Bytes seen;
            if (!await(
                    fd, 3000, [&](const Bytes &f) { return is_probe_for(f, target); }, &seen))
                return 3;
            put_bytes(out, seen);
            return send_all(fd, frames) ? 0 : 4;
        });
        EXPECT_TRUE(peer.ready());
        char text[16];
        inet_ntop(AF_INET, target.data(), text, sizeof text);
        {
            sandbox::FdCheck fds;
            auto start = std::chrono::steady_clock::now();
            o.result = NET_DetectIpv4Collision("lan1", text, timeoutMs, &o.collision);
            o.seconds = since(start);
        }
        o.peerStatus = peer.wait();
        o.probe = peer.output();
        return o;
    }

    Bytes claim(const Ip4 &addr) const { return arp_frame(2, own_, kPeerMac, addr, own_, kDevIp); }
    Bytes noise() const
    {
        return arp_frame(1, kBroadcast, kPeerMac, kPeerIp, kNoMac, ip4("192.168.1.200"));
    }

    sandbox::Peer peer_;
    Mac own_{};
};

TEST_F(ArpProbe, OwnerAnswersAndNobodyDoesNot)
{
    struct Case {
        const char *what;
        const char *addr;
        int timeoutMs;
        int collision;
        double minSec, maxSec;
    } cases[] = {
        {"the neighbour's kernel owns it", "192.168.1.1", 2000, 1, 0.0, 1.0},
        {"nobody owns it: the whole wait", "192.168.1.77", 300, 7, 0.28, 1.0},
        {"time-out 0: at once", "192.168.1.77", 0, 7, 0.0, 0.1},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        sandbox::FdCheck fds;
        LogCapture log;
        int collision = 7;
        auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(0, NET_DetectIpv4Collision("lan1", c.addr, c.timeoutMs, &collision));
        double took = since(start);
        EXPECT_EQ(c.collision, collision);
        EXPECT_GE(took, c.minSec);
        EXPECT_LT(took, c.maxSec + sandbox::kLateSec);
        EXPECT_TRUE(log.texts().empty());
    }
}

TEST_F(ArpProbe, ProbeFrameOnTheWire)
{
    Outcome o = probe_answered(kFree, {}, 200);
    EXPECT_EQ(0, o.result);
    EXPECT_EQ(0, o.peerStatus);
    EXPECT_EQ(probe_for(own_, kFree), o.probe);
}

TEST_F(ArpProbe, OnlyAReplyToUsFromTheOwnerCounts)
{
    std::vector<Bytes> cuts;
    for (size_t n = 14; n < 38; ++n)
        cuts.push_back(prefix(claim(kFree), n));
    Bytes fullOp1 = claim(kFree);
    fullOp1[21] = 1;
    struct Case {
        const char *what;
        std::vector<Bytes> frames;
        int collision;
    } cases[] = {
        {"a reply to our MAC for the address", {claim(kFree)}, 1},
        {"cut after the target hardware address", {prefix(claim(kFree), 38)}, 1},
        {"cut anywhere before it", cuts, 7},
        {"another host's probe for it",
         {arp_frame(1, kBroadcast, kPeerMac, {0, 0, 0, 0}, kNoMac, kFree)},
         7},
        {"a request that is otherwise a claim", {fullOp1}, 7},
        {"a reply to broadcast",
         {arp_frame(2, kBroadcast, kPeerMac, kFree, kBroadcast, kDevIp)},
         7},
        {"a reply to another MAC",
         {arp_frame(2, kBroadcast, kPeerMac, kFree, kOtherMac, kDevIp)},
         7},
        {"a reply for another address", {claim(kPeerIp)}, 7},
        // The earlier frame leaves a claim's bytes behind in any reused buffer; the short
        // one carries only the operation.
        {"a short reply after a claim-like request", {fullOp1, prefix(claim(kFree), 22)}, 7},
        {"a reply cut inside the target hardware address", {prefix(claim(kFree), 37)}, 7},
        {"garbled frames", garbage_arp(200, own_, 11), 7},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        LogCapture log;
        Outcome o = probe_answered(kFree, c.frames, c.collision == 1 ? 2000 : 300);
        EXPECT_EQ(0, o.peerStatus);
        EXPECT_EQ(0, o.result);
        EXPECT_EQ(c.collision, o.collision);
        EXPECT_TRUE(log.texts().empty());
    }
}

TEST_F(ArpProbe, FiftyFramesEndTheListening)
{
    struct Case {
        int before;
        int collision;
    } cases[] = {{49, 1}, {50, 7}};
    for (const Case &c : cases) {
        SCOPED_TRACE(c.before);
        std::vector<Bytes> frames(static_cast<size_t>(c.before), noise());
        frames.push_back(claim(kFree));
        Outcome o = probe_answered(kFree, frames, 6000);
        EXPECT_EQ(0, o.result);
        EXPECT_EQ(c.collision, o.collision);
        EXPECT_LT(o.seconds, 1.0 + sandbox::kLateSec) << "the bound, not the time-out, ends it";
    }
}

TEST_F(ArpProbe, Refusals)
{
    sandbox::veth("lan2", "nb2", &peer_);
    int collision = 7;
    const std::string f = "NET_DetectIpv4Collision";
    struct Case {
        const char *ifname;
        const char *addr;
        int timeoutMs;
        int *out;
        std::vector<std::string> log;
    } cases[] = {
        {nullptr, "192.168.1.1", 100, &collision, {expect_line(f, "\"iTimeoutMsec: 100.\\n\"")}},
        {"lan1", nullptr, 100, &collision, {expect_line(f, "\"iTimeoutMsec: 100.\\n\"")}},
        {"lan1", "192.168.1.1", -1, &collision, {expect_line(f, "\"iTimeoutMsec: -1.\\n\"")}},
        {"lan1", "192.168.1.1", 100, nullptr, {expect_line(f, "\"iTimeoutMsec: 100.\\n\"")}},
        {"lan1",
         "192.168.1.300",
         100,
         &collision,
         {expect_line(f, "\"pcIpAddr: 192.168.1.300.\\n\"")}},
        {"lan2",
         "192.168.1.1",
         100,
         &collision,
         {expect_line("NET_GetIpv4Addr",
                      "PL_IOCTL_ERROR_PRINT \"Cannot assign requested address.\\n\""),
          expect_line(f, "\"Get local ipv4addr error, ifName: lan2.\\n\"")}},
        {"nosuch0",
         "192.168.1.1",
         100,
         &collision,
         {expect_line("NET_GetIpv4Addr", "PL_IOCTL_ERROR_PRINT \"No such device.\\n\""),
          expect_line(f, "\"Get local ipv4addr error, ifName: nosuch0.\\n\"")}},
        {"lo",
         "127.0.0.1",
         100,
         &collision,
         {expect_line(f, "\"Get local macaddr error, ifName: lo.\\n\"")}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(std::string(c.ifname ? c.ifname : "(null)") + " " +
                     (c.addr ? c.addr : "(null)"));
        sandbox::FdCheck fds;
        LogCapture log;
        EXPECT_EQ(-1, NET_DetectIpv4Collision(c.ifname, c.addr, c.timeoutMs, c.out));
        EXPECT_EQ(c.log, log.texts());
        EXPECT_EQ(7, collision);
    }
}

// ---- Gratuitous ARP ---------------------------------------------------------------------

class Gratuitous : public ArpProbe
{
  protected:
    // Every ARP frame the neighbour receives on dev within msec of being ready while
    // send() runs here.
    std::vector<Bytes> heard_on(const std::string &dev, int msec, const std::function<int()> &send,
                                int *result)
    {
        PeerTask peer(peer_, [&](const std::function<void()> &ready, int out) {
            int fd = arp_socket(dev);
            if (fd < 0)
                return 2;
            ready();
            await(
                fd, msec,
                [&](const Bytes &f) {
                    uint32_t len = static_cast<uint32_t>(f.size());
                    put_bytes(out, Bytes(reinterpret_cast<uint8_t *>(&len),
                                         reinterpret_cast<uint8_t *>(&len) + 4));
                    put_bytes(out, f);
                    return false;
                },
                nullptr);
            return 0;
        });
        EXPECT_TRUE(peer.ready());
        *result = send();
        EXPECT_EQ(0, peer.wait());
        Bytes all = peer.output();
        std::vector<Bytes> frames;
        for (size_t at = 0; at + 4 <= all.size();) {
            uint32_t len;
            memcpy(&len, &all[at], 4);
            frames.emplace_back(all.begin() + static_cast<long>(at + 4),
                                all.begin() + static_cast<long>(at + 4 + len));
            at += 4 + len;
        }
        return frames;
    }
};

TEST_F(Gratuitous, OneAnnouncementOnTheWire)
{
    sandbox::FdCheck fds;
    LogCapture log;
    int result = -2;
    auto frames = heard_on(
        "nb1", 400, [] { return NET_SendGratuitousPack("lan1"); }, &result);
    EXPECT_EQ(0, result);
    ASSERT_EQ(1u, frames.size()) << "exactly one frame per call";
    EXPECT_EQ(arp_frame(1, kBroadcast, own_, kDevIp, kNoMac, kDevIp), frames[0]);
    EXPECT_TRUE(log.texts().empty());
}

TEST_F(Gratuitous, RefusalsSendNothing)
{
    sandbox::veth("lan2", "nb2", &peer_);
    const std::string f = "NET_SendGratuitousPack";
    struct Case {
        const char *ifname;
        std::vector<std::string> log;
    } cases[] = {
        {"", {expect_line(f, "\"Input is not right\"")}},
        {"lan2",
         {expect_line("NET_GetIpv4Addr",
                      "PL_IOCTL_ERROR_PRINT \"Cannot assign requested address.\\n\""),
          expect_line(f, "\"Get local ipv4addr error, ifName: lan2.\\n\"")}},
        {"lo", {expect_line(f, "\"Get local macaddr error, ifName: lo.\\n\"")}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.ifname);
        sandbox::FdCheck fds;
        LogCapture log;
        int result = -2;
        auto frames = heard_on(
            "nb2", 300, [&] { return NET_SendGratuitousPack(c.ifname); }, &result);
        EXPECT_EQ(-1, result);
        EXPECT_EQ(c.log, log.texts());
        EXPECT_TRUE(frames.empty());
    }
}
