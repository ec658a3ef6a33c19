// Frames on the wire, on a veth link to a neighbour namespace: the ARP and IPv6 probes, the
// gratuitous ARP, ping and the MAC collision monitor. The neighbour's kernel answers for its
// own addresses; sockets in its namespace see what the device sends (checked byte for byte)
// and craft what it should hear. Monitor slots are never freed, so each test relies on
// running in a process of its own (as ctest runs them).
#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <netinet/icmp6.h>
#include <netinet/in.h>
#include <netinet/ip.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <functional>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "libnetwork.h"
#include "detect_support.h"
#include "sandbox.h"

using sandbox::expect_line;
using sandbox::LogCapture;

using namespace detecttest;

namespace
{

// A veth link to a neighbour: "lan1" here (192.168.1.10/24, 2001:db8::10/64) and "nb1" there
// (MAC 02:00:00:00:01:02, 192.168.1.1/24, 2001:db8::1/64). A Linux neighbour answers a
// multicast solicitation without a source link-layer option only when it already has an
// entry for the sender, so the neighbour gets permanent entries for the device's addresses.
class NeighbourLink : public ::testing::Test
{
  protected:
    void SetUp() override
    {
        REQUIRE_SANDBOX();
        sandbox::veth("lan1", "nb1", &peer_);
        peer_.must("ip link set nb1 address 02:00:00:00:01:02 && "
                   "ip addr add 192.168.1.1/24 dev nb1 && "
                   "ip addr add 2001:db8::1/64 dev nb1 nodad");
        sandbox::addr_add("lan1", "192.168.1.10/24");
        sandbox::addr_add("lan1", "2001:db8::10/64");
        std::string
            mac = sandbox::read_file("/sys/class/net/lan1/address"),
            addrs = sandbox::sh_out(
                "ip -6 -o addr show dev lan1 | awk '{print $4}' | cut -d/ -f1 | tr '\\n' ' '");
        peer_.must("for a in " + addrs + "; do ip -6 neigh replace $a lladdr " + mac.substr(0, 17) +
                   " dev nb1 nud permanent; done");
        own_ = mac_of("lan1");
    }
    sandbox::Peer peer_;
    Mac own_{};
};

const Ip4 kDevIp = ip4("192.168.1.10");
const Ip4 kFree = ip4("192.168.1.77");
const Mac kPeerMac = {0x02, 0, 0, 0, 0x01, 0x02};
const int kFiftyMinutes = 50 * 60 * 1000;

int probe(int family, const char *addr, int timeoutMs, int *collision)
{
    return family == 4 ? NET_DetectIpv4Collision("lan1", addr, timeoutMs, collision)
                       : NET_DetectIpv6Collision("lan1", addr, timeoutMs, collision);
}

Bytes icmp6(uint8_t type, const char *target, size_t len = 24)
{
    Bytes m(24, 0);
    m[0] = type;
    m[4] = 0x60; // solicited, override
    inet_pton(AF_INET6, target, &m[8]);
    m.resize(len);
    return m;
}

uint16_t checksum(const Bytes &b)
{
    uint32_t sum = 0;
    for (size_t i = 0; i < b.size(); i += 2)
        sum += static_cast<uint32_t>(b[i] << 8 | (i + 1 < b.size() ? b[i + 1] : 0));
    while (sum >> 16)
        sum = (sum & 0xffff) + (sum >> 16);
    return static_cast<uint16_t>(~sum);
}

// An answer to an echo request: its type, identifier moved by idDelta, cut to len.
Bytes as_reply(Bytes icmp, uint8_t type, int idDelta, size_t len)
{
    icmp[0] = type;
    uint16_t id = static_cast<uint16_t>((icmp[4] << 8 | icmp[5]) + idDelta);
    icmp[4] = static_cast<uint8_t>(id >> 8), icmp[5] = static_cast<uint8_t>(id);
    if (len != 0)
        icmp.resize(len);
    icmp[2] = icmp[3] = 0;
    uint16_t sum = checksum(icmp);
    icmp[2] = static_cast<uint8_t>(sum >> 8), icmp[3] = static_cast<uint8_t>(sum);
    return icmp;
}

struct PingRun {
    int result = -2;
    double time = -1;
    int pid = 0;
    char log[2][160] = {};
};

// NET_Ping as pid 1 of a new pid namespace: replies are matched by the whole process id.
PingRun ping_as_pid1(const char *ifname, const char *host)
{
    void *mem =
        mmap(nullptr, sizeof(PingRun), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    PingRun *run = new (mem) PingRun;
    pid_t child = fork();
    if (child == 0) {
        pid_t init = unshare(CLONE_NEWPID) == 0 ? fork() : -1;
        if (init == 0) {
            LogCapture log;
            run->result = NET_Ping(ifname, host, &run->time);
            run->pid = getpid();
            for (size_t i = 0; i < log.texts().size() && i < 2; ++i)
                snprintf(run->log[i], sizeof run->log[i], "%s", log.texts()[i].c_str());
            _exit(0);
        }
        int st = 0;
        _exit(init > 0 && waitpid(init, &st, 0) == init && WIFEXITED(st) ? WEXITSTATUS(st) : 12);
    }
    int st = 0;
    waitpid(child, &st, 0);
    EXPECT_TRUE(WIFEXITED(st) && WEXITSTATUS(st) == 0) << "pid namespace child failed";
    PingRun out = *run;
    munmap(mem, sizeof(PingRun));
    return out;
}

// The monitor paces itself with sleep(): a second per frame, two more after a collision.
// This process's sleep() (the library's call binds to it) waits 3 ms per second asked and
// counts the requests, so fifty frames take a moment and the test knows when one was handled.
std::atomic<int> g_sleep1{0}, g_sleep2{0}, g_sleepOther{0};

using Leveled = std::vector<std::pair<int, std::string>>;

Leveled leveled(const LogCapture &log)
{
    Leveled out;
    for (const sandbox::LogLine &l : log.lines())
        out.emplace_back(l.level, sandbox::without_line(l.text));
    return out;
}

std::pair<int, std::string> line(int level, const std::string &msg,
                                 const std::string &func = "net_DetectMacCollisionThread")
{
    return {level, sandbox::expect_line(func, msg)};
}

bool wait_until(const std::function<bool()> &done)
{
    auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    for (; !done(); std::this_thread::sleep_for(std::chrono::milliseconds(2)))
        if (std::chrono::steady_clock::now() > end)
            return false;
    return true;
}

// A monitor thread as the application starts it; cancelled at the end when still running.
class Monitor
{
  public:
    explicit Monitor(const std::string &name)
        : name_(name), started_(pthread_create(&thread_, nullptr, sandbox::mac_monitor_thread,
                                               const_cast<char *>(name_.c_str())) == 0)
    {
    }
    ~Monitor()
    {
        if (started_)
            pthread_cancel(thread_), pthread_join(thread_, nullptr);
    }
    // The thread reached its loop: it names itself just before.
    bool watching()
    {
        return wait_until([this] {
            char name[16] = {0};
            return pthread_getname_np(thread_, name, sizeof name) == 0 &&
                   strcmp(name, "detecMAC") == 0;
        });
    }

  private:
    std::string name_;
    pthread_t thread_{};
    bool started_;
};

int status_of(const char *name)
{
    int st = -7;
    return NET_GetMacCollStatus(name, &st) == 0 ? st : -1;
}

} // namespace

extern "C" unsigned int sleep(unsigned int seconds)
{
    ++(seconds == 1 ? g_sleep1 : seconds == 2 ? g_sleep2 : g_sleepOther);
    usleep(seconds * 3000);
    return 0;
}

class Detect : public NeighbourLink
{
  protected:
    struct Outcome {
        int result = -2;
        int collision = 7; // the caller's value, kept unless a host claims the address
        double seconds = 0;
        Bytes seen;            // the frame the neighbour waited for
        bool answered = false; // seen, and the reply sent
    };
    using Match = std::function<bool(const Bytes &)>;
    using Reply = std::function<bool(int fd, const Bytes &seen)>;

    // Runs call while a socket in the neighbour's namespace (ARP: on dev; IPv6: in the
    // target's solicited-node group) waits for the first frame that matches and replies.
    Outcome answered(int domain, int proto, const Match &match, const Reply &reply,
                     const std::function<int(int *)> &call, const char *dev = "nb1")
    {
        Outcome o;
        int fd = -1;
        struct ipv6_mreq req;
        as_peer(peer_, [&] {
            req.ipv6mr_interface = peerIndex_ = if_nametoindex(dev);
            fd = domain == AF_PACKET ? arp_socket(dev) : socket(domain, SOCK_RAW, proto);
        });
        inet_pton(AF_INET6, "ff02::1:ff00:77", &req.ipv6mr_multiaddr);
        int hops = 255;
        EXPECT_TRUE(fd >= 0 &&
                    (domain != AF_INET6 ||
                     (!setsockopt(fd, IPPROTO_IPV6, IPV6_JOIN_GROUP, &req, sizeof req) &&
                      !setsockopt(fd, IPPROTO_IPV6, IPV6_MULTICAST_HOPS, &hops, sizeof hops))));
        std::thread peer(
            [&] { o.answered = await(fd, 3000, match, &o.seen) && reply(fd, o.seen); });
        {
            sandbox::FdCheck fds;
            auto start = std::chrono::steady_clock::now();
            o.result = call(&o.collision);
            o.seconds = since(start);
        }
        peer.join();
        close(fd);
        return o;
    }

    Outcome arp_answered(const std::vector<Bytes> &frames, int timeoutMs)
    {
        auto isProbe = [](const Bytes &f) {
            return f.size() >= 42 && f[21] == 1 && memcmp(&f[28], "\0\0\0\0", 4) == 0 &&
                   memcmp(&f[38], kFree.data(), 4) == 0;
        };
        return answered(
            AF_PACKET, 0, isProbe, [&](int fd, const Bytes &) { return send_all(fd, frames); },
            [&](int *c) { return probe(4, "192.168.1.77", timeoutMs, c); });
    }

    Bytes claim(const Ip4 &addr) const { return arp_frame(2, own_, kPeerMac, addr, own_, kDevIp); }
    unsigned peerIndex_ = 0; // of dev, in the neighbour's namespace
};

// ---- The probes --------------------------------------------------------------------------

TEST_F(Detect, ProbesFindTheOwnerAndWaitOutNobody)
{
    struct Case {
        int family;
        const char *addr;
        int timeoutMs;
        int collision;
        double sec; // nominal wait: at once for an owner, else the whole time-out
    } cases[] = {
        {4, "192.168.1.1", 2000, 1, 0},    {4, "192.168.1.77", 300, 7, 0.3},
        {4, "192.168.1.77", 0, 7, 0},      {6, "2001:db8::1", 1000, 1, 0},
        {6, "2001:db8::77", 2, 7, 0.002},  {6, "2001:db8::77", 0, 7, 0},
        {6, "2001:db8::77", 1500, 7, 2.5}, // IPv6: a second plus the time-out in microseconds
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(std::string(c.addr) + " " + std::to_string(c.timeoutMs));
        sandbox::FdCheck fds;
        int collision = 7;
        auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(0, probe(c.family, c.addr, c.timeoutMs, &collision));
        EXPECT_EQ(c.collision, collision);
        EXPECT_GE(since(start), c.sec * 0.9);
        EXPECT_LT(since(start), c.sec + sandbox::kLateSec);
    }
}

// Both probes put the whole time-out into the microsecond field of their wait; the C library
// reads that field as 32 bits, so over 35 minutes it wrapped negative, select refused the wait
// on every pass and the probe never returned.
TEST_F(Detect, ProbesAnsweredWithinAnHourLongWait)
{
    for (int family : {4, 6}) {
        SCOPED_TRACE(family);
        sandbox::FdCheck fds;
        int collision = 7;
        auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(0, probe(family, family == 4 ? "192.168.1.1" : "2001:db8::1", kFiftyMinutes,
                           &collision));
        EXPECT_EQ(1, collision) << "the neighbour holds the address";
        EXPECT_LT(since(start), 1.0 + sandbox::kLateSec);
    }
}

TEST_F(Detect, ArpProbeFrameAndWhatCounts)
{
    EXPECT_EQ(arp_frame(1, kBroadcast, own_, Ip4{0, 0, 0, 0}, kNoMac, kFree),
              arp_answered({}, 200).seen)
        << "a request for the address that claims none";
    std::vector<Bytes> cuts;
    for (size_t n = 14; n < 38; ++n)
        cuts.push_back(cut(claim(kFree), n));
    Bytes request = claim(kFree);
    request[21] = 1;
    const Bytes noise =
        arp_frame(1, kBroadcast, kPeerMac, ip4("192.168.1.1"), kNoMac, ip4("192.168.1.200"));
    struct Case {
        const char *what;
        std::vector<Bytes> frames;
        int collision;
    } cases[] = {
        {"a reply to our MAC for the address", {claim(kFree)}, 1},
        {"cut after the target hardware address", {cut(claim(kFree), 38)}, 1},
        {"cut anywhere before it", cuts, 7},
        {"another host's probe for it",
         {arp_frame(1, kBroadcast, kPeerMac, {0, 0, 0, 0}, kNoMac, kFree)},
         7},
        {"a request that is otherwise a claim", {request}, 7},
        {"a reply to broadcast",
         {arp_frame(2, kBroadcast, kPeerMac, kFree, kBroadcast, kDevIp)},
         7},
        {"a reply to another MAC",
         {arp_frame(2, kBroadcast, kPeerMac, kFree, {2, 0, 0, 0, 9, 0x99}, kDevIp)},
         7},
        {"a reply for another address", {claim(ip4("192.168.1.1"))}, 7},
        // The earlier frame leaves a claim's bytes behind in any reused buffer; the short
        // one carries only the operation.
        {"a short reply after a claim-like request", {request, cut(claim(kFree), 22)}, 7},
        {"garbled frames", garbage_arp(200, own_, 11), 7},
        {"49 other frames first", std::vector<Bytes>(49, noise), 1},
        {"50 other frames end the listening", std::vector<Bytes>(50, noise), 7},
    };
    for (Case &c : cases) {
        SCOPED_TRACE(c.what);
        if (c.frames.size() >= 49)
            c.frames.push_back(claim(kFree));
        Outcome o = arp_answered(c.frames, c.collision == 1 ? 6000 : 300);
        EXPECT_TRUE(o.answered);
        EXPECT_EQ(0, o.result);
        EXPECT_EQ(c.collision, o.collision);
        EXPECT_LT(o.seconds, 1.0 + sandbox::kLateSec) << "a claim or the bound ends it";
    }
}

TEST_F(Detect, NdpOnlyAnAdvertisementForTheTargetCounts)
{
    const char *target = "2001:db8::77";
    struct Case {
        const char *what;
        std::vector<Bytes> msgs;
        int collision;
    } cases[] = {
        {"an advertisement for it", {icmp6(136, target)}, 1},
        {"options behind: still for it", {icmp6(136, target, 32)}, 1},
        {"an advertisement for another target", {icmp6(136, "2001:db8::78")}, 7},
        {"a solicitation for it", {icmp6(135, target)}, 7},
        {"cut inside the target", {icmp6(136, target, 23), icmp6(136, target, 4)}, 7},
        {"an echo reply", {icmp6(129, target)}, 7},
    };
    // The neighbour hears the solicitation in the target's group and answers by hand, to all.
    auto solicitation = [&](const Bytes &m) {
        return m.size() == 24 && m[0] == 135 && memcmp(&m[8], &icmp6(135, target)[8], 16) == 0;
    };
    struct sockaddr_in6 all;
    memset(&all, 0, sizeof all);
    all.sin6_family = AF_INET6;
    inet_pton(AF_INET6, "ff02::1", &all.sin6_addr);
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        auto toAll = [&](int fd, const Bytes &) {
            all.sin6_scope_id = peerIndex_;
            return send_all(fd, c.msgs, &all);
        };
        Outcome o = answered(AF_INET6, IPPROTO_ICMPV6, solicitation, toAll,
                             [&](int *col) { return probe(6, target, 300, col); });
        EXPECT_TRUE(o.answered);
        EXPECT_EQ(0, o.result);
        EXPECT_EQ(c.collision, o.collision);
    }
}

TEST_F(Detect, GratuitousArpOneAnnouncementOnTheWire)
{
    sandbox::veth("lan2", "nb2", &peer_);
    for (const char *dev : {"lan1", "lan2"}) { // lan2 has no address: refused, nothing sent
        SCOPED_TRACE(dev);
        std::vector<Bytes> frames;
        auto all = [&](const Bytes &f) { return frames.push_back(f), false; };
        Outcome o = answered(
            AF_PACKET, 0, all, nullptr, [&](int *) { return NET_SendGratuitousPack(dev); },
            dev[3] == '1' ? "nb1" : "nb2");
        EXPECT_EQ(dev[3] == '1' ? 0 : -1, o.result);
        std::vector<Bytes> want{arp_frame(1, kBroadcast, own_, kDevIp, kNoMac, kDevIp)};
        EXPECT_EQ(dev[3] == '1' ? want : std::vector<Bytes>{}, frames) << "one frame per call";
    }
}

// ---- Ping ------------------------------------------------------------------------------------

TEST_F(Detect, PingWhatTheFirstPacketBackDecides)
{
    struct Answer {
        int delayMs;
        uint8_t type;   // 0: an echo reply
        int idDelta;    // added to the request's identifier
        size_t len;     // 0: the request's length
        bool ipOptions; // sent with a longer IP header
    };
    const std::string unpack =
        expect_line("net_UnPackIcmp", "\"cann't get send time from icmp pack.\\n\"");
    const std::string none = expect_line("net_RecvIcmpPkt", "\"Fail to recvfrom.\\n\"");
    struct Case {
        const char *what;
        std::vector<Answer> answers;
        int result;
        double minTime, maxTime; // of pdTime, when it succeeds
        double sec;              // the call's nominal wait
        std::string line;        // logged before "recv pack fail."
    } cases[] = {
        {"the neighbour's kernel answers", {}, 0, 1, 5e5, 0, ""},
        {"a reply 1.5 s late: microseconds", {{1500, 0, 0, 0, false}}, 0, 1.45e6, 1.9e6, 1.5, ""},
        {"no answer within 2 s", {}, -1, 0, 0, 2.0, none},
        // The kernel never hands a raw ICMP socket less than 8 bytes of ICMP, nor a header
        // length past the data: those readers are left to the fuzz target. A reply cut to
        // its header is taken, its missing send time read as zero.
        {"a reply of the header alone", {{0, 0, 0, 8, false}}, 0, -2.2e9, 2.2e9, 0, ""},
        {"another process's reply", {{0, 0, 1, 0, false}}, -1, 0, 0, 0, unpack},
        {"the same behind IP options", {{0, 0, 1, 0, true}}, -1, 0, 0, 0, unpack},
        {"unreachable first", {{0, 3, 0, 0, false}, {10, 0, 0, 0, false}}, -1, 0, 0, 0, unpack},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        peer_.must(std::string("echo ") + (c.answers.empty() && c.result == 0 ? "0" : "1") +
                   " > /proc/sys/net/ipv4/icmp_echo_ignore_all");
        struct timeval now;
        gettimeofday(&now, nullptr);
        int optFd = -1;
        as_peer(peer_, [&] { optFd = socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_ICMP); });
        const uint8_t nops[8] = {IPOPT_NOP, IPOPT_NOP, IPOPT_NOP, IPOPT_NOP,
                                 IPOPT_NOP, IPOPT_NOP, IPOPT_NOP, IPOPT_END};
        // An emulator that cannot carry IP options sends the short header.
        bool options = setsockopt(optFd, IPPROTO_IP, IP_OPTIONS, nops, sizeof nops) == 0;
        auto echo = [](const Bytes &d) {
            return d.size() > 20 && d.size() > size_t((d[0] & 15) * 4) && d[(d[0] & 15) * 4] == 8;
        };
        auto reply = [&](int fd, const Bytes &ip) {
            Bytes request(ip.begin() + (ip[0] & 15) * 4, ip.end());
            struct sockaddr_in to;
            memset(&to, 0, sizeof to);
            to.sin_family = AF_INET;
            inet_pton(AF_INET, "192.168.1.10", &to.sin_addr);
            bool sent = true;
            for (const Answer &a : c.answers) {
                std::this_thread::sleep_for(std::chrono::milliseconds(a.delayMs));
                Bytes m = as_reply(request, a.type, a.idDelta, a.len);
                sent &= sendto(a.ipOptions && options ? optFd : fd, m.data(), m.size(), 0,
                               reinterpret_cast<sockaddr *>(&to), sizeof to) >= 0;
            }
            return sent;
        };
        PingRun run;
        Outcome o = answered(AF_INET, IPPROTO_ICMP, echo, reply, [&](int *) {
            run = ping_as_pid1("lan1", "192.168.1.1");
            return run.result;
        });
        close(optFd);
        ASSERT_TRUE(o.answered);
        const Bytes request(o.seen.begin() + (o.seen[0] & 15) * 4, o.seen.end());
        EXPECT_EQ(1, run.pid);
        EXPECT_EQ(c.result, run.result);
        EXPECT_GE(o.seconds, c.sec * 0.96);
        EXPECT_LT(o.seconds, c.sec + sandbox::kLateSec);
        if (c.result == 0) {
            EXPECT_GE(run.time, c.minTime);
            EXPECT_LT(run.time, c.maxTime);
            EXPECT_EQ(std::floor(run.time), run.time) << "whole microseconds";
        } else {
            EXPECT_EQ(-1, run.time) << "untouched on failure";
            EXPECT_EQ(c.line, run.log[0]);
            EXPECT_EQ(expect_line("NET_Ping", "\"recv pack fail.\\n\""), run.log[1]);
        }
        // The request: 64 bytes, identifier 1 (the pid), sequence 1, the send time in host
        // order at 8, zero data, a valid checksum.
        ASSERT_EQ(64u, request.size());
        EXPECT_EQ((Bytes{8, 0}), Bytes(request.begin(), request.begin() + 2));
        EXPECT_EQ(0, checksum(request));
        EXPECT_EQ((Bytes{0, 1, 0, 1}), Bytes(request.begin() + 4, request.begin() + 8));
        int32_t sec, usec;
        memcpy(&sec, &request[8], 4);
        memcpy(&usec, &request[12], 4);
        EXPECT_LE(std::abs(sec - static_cast<int32_t>(now.tv_sec)), 5);
        EXPECT_TRUE(usec >= 0 && usec < 1000000) << usec;
        EXPECT_EQ(Bytes(48, 0), Bytes(request.begin() + 16, request.end()));
    }
}

// ---- Refusals --------------------------------------------------------------------------------

// The lines log readers match when a call is refused; nothing is sent or changed.
TEST_F(Detect, DetectLogLines)
{
    sandbox::veth("lan2", "nb2", &peer_);
    int collision = 7;
    double t = -1;
    const char *lan1 = "lan1", *v6 = "2001:db8::1";
    // The parameter lines print the pointers.
    auto params = [](const char *fmt, const void *a, const void *b, const void *c) {
        char text[200];
        snprintf(text, sizeof text, fmt, a, b, c);
        return std::string(text);
    };
    const char *v6Params = "NET_DetectIpv6Collision PL_PARAM_ERROR_PRINT \"pcIfName:%p, "
                           "pcIpv6Addr:%p, pbIsCollision:%p \\n\"";
    const char *pingParams =
        "NET_Ping PL_PARAM_ERROR_PRINT \"pcIfName :%p, pcHost: %p, pdTime: %p. \\n\"";
    // "<function> <message>|...", as log readers match them.
    struct Case {
        std::function<int()> call;
        std::string lines;
    } cases[] = {
        {[&] { return NET_DetectIpv4Collision(nullptr, "192.168.1.1", 100, &collision); },
         "NET_DetectIpv4Collision \"iTimeoutMsec: 100.\\n\""},
        {[&] { return NET_DetectIpv4Collision("lan1", "192.168.1.1", -1, &collision); },
         "NET_DetectIpv4Collision \"iTimeoutMsec: -1.\\n\""},
        {[&] { return NET_DetectIpv4Collision("lan1", "192.168.1.300", 100, &collision); },
         "NET_DetectIpv4Collision \"pcIpAddr: 192.168.1.300.\\n\""},
        {[&] { return NET_DetectIpv4Collision("lan2", "192.168.1.1", 100, &collision); },
         "NET_GetIpv4Addr PL_IOCTL_ERROR_PRINT \"Cannot assign requested address.\\n\"|"
         "NET_DetectIpv4Collision \"Get local ipv4addr error, ifName: lan2.\\n\""},
        {[&] { return NET_DetectIpv4Collision("nosuch0", "192.168.1.1", 100, &collision); },
         "NET_GetIpv4Addr PL_IOCTL_ERROR_PRINT \"No such device.\\n\"|"
         "NET_DetectIpv4Collision \"Get local ipv4addr error, ifName: nosuch0.\\n\""},
        {[&] { return NET_DetectIpv4Collision("lo", "127.0.0.1", 100, &collision); },
         "NET_DetectIpv4Collision \"Get local macaddr error, ifName: lo.\\n\""},
        {[] { return NET_SendGratuitousPack(""); },
         "NET_SendGratuitousPack \"Input is not right\""},
        {[] { return NET_SendGratuitousPack("lo"); },
         "NET_SendGratuitousPack \"Get local macaddr error, ifName: lo.\\n\""},
        {[&] { return NET_DetectIpv6Collision(nullptr, v6, 100, &collision); },
         params(v6Params, nullptr, v6, &collision)},
        {[&] { return NET_DetectIpv6Collision(lan1, v6, 100, nullptr); },
         params(v6Params, lan1, v6, nullptr)},
        {[&] { return NET_DetectIpv6Collision("nosuch0", v6, 100, &collision); },
         "NET_DetectIpv6Collision \"bind network card fail.\\n\""},
        {[&] { return NET_DetectIpv6Collision("lan1", "2001:db8::g", 100, &collision); },
         "NET_DetectIpv6Collision \"INET_Ipv6StrToNum failed.\\n\""},
        {[&] { return NET_Ping(lan1, nullptr, &t); }, params(pingParams, lan1, nullptr, &t)},
        {[&] { return NET_Ping("lan1", "255.255.255.255", &t); },
         "NET_Ping \"ip address error.\\n\""},
        {[&] { return NET_Ping("lan1", "peer.example", &t); }, "NET_Ping \"ip address error.\\n\""},
        {[&] { return NET_Ping("nosuch0", "192.168.1.1", &t); },
         "NET_Ping \"bind network card fail.\\n\""},
        {[&] { return -1 - NET_DetectIpv6Collision("lan1", v6, 1000, &collision); },
         "NET_DetectIpv6Collision \"The ipv6 address is collision.\\n\""},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(&c - cases);
        sandbox::FdCheck fds;
        LogCapture log;
        EXPECT_EQ(-1, c.call());
        std::vector<std::string> want;
        for (size_t at = 0, end; at < c.lines.size(); at = end + 1) {
            end = std::min(c.lines.find('|', at), c.lines.size());
            size_t sp = c.lines.find(' ', at);
            want.push_back(
                expect_line(c.lines.substr(at, sp - at), c.lines.substr(sp + 1, end - sp - 1)));
        }
        EXPECT_EQ(want, log.texts());
        EXPECT_EQ(&c == &cases[16] ? 1 : 7, collision);
        EXPECT_EQ(-1, t);
    }
}

class MacMonitor : public ::testing::Test
{
  protected:
    void SetUp() override { REQUIRE_SANDBOX(); }

    // Sends frames from the neighbour's dev and waits until the monitors handled them
    // (each handled frame ends in one 1 s pause per monitor).
    void send_from_peer(const std::string &dev, const std::vector<Bytes> &frames, int monitors)
    {
        int want = g_sleep1 + monitors * static_cast<int>(frames.size());
        as_peer(peer_, [&] {
            int fd = arp_socket(dev);
            EXPECT_TRUE(fd >= 0 && send_all(fd, frames));
            close(fd);
        });
        ASSERT_TRUE(wait_until([&] { return g_sleep1 >= want; })) << "handled too few";
    }

    sandbox::Peer peer_;
};

// A collision stands until fifty other frames came. Frames are read within the bytes
// received: a MAC cut short is no collision, garbage is just another station, and nothing
// stops the monitor.
TEST_F(MacMonitor, CollisionStandsUntilFiftyOtherFrames)
{
    sandbox::veth("lan1", "nb1", &peer_);
    const Mac own = mac_of("lan1");
    auto from = [](const Mac &sha, int n) {
        return std::vector<Bytes>(
            n, arp_frame(1, kBroadcast, sha, ip4("192.168.1.50"), kNoMac, ip4("192.168.1.1")));
    };
    const Mac other = {0x02, 0, 0, 0, 0x01, 0x02};
    std::vector<Bytes> cuts, oversized = from(own, 1);
    for (size_t n = 14; n < 28; ++n)
        cuts.push_back(cut(from(own, 1)[0], n)); // our MAC at 22 incomplete or missing
    oversized[0].resize(1400, 0xee);
    const auto collision = line(6, "\"Mac addr collision\"");
    const auto cleared = line(6, "\"Mac addr get right\"");
    Monitor m("lan1");
    ASSERT_TRUE(m.watching());
    EXPECT_EQ(0, status_of("lan1"));
    struct Step {
        const char *what;
        std::vector<Bytes> frames;
        int collisions, status;
        Leveled log;
    } steps[] = {
        {"our MAC cut short of its sixth byte", cuts, 0, 0, {}},
        {"a station with our MAC", from(own, 1), 1, 1, {collision}},
        {"49 others do not clear it", from(other, 49), 0, 1, {}},
        {"the 50th does", from(other, 1), 0, 0, {cleared}},
        {"others while clear change nothing", from(other, 5), 0, 0, {}},
        {"the shortest frame that carries our MAC", {cut(from(own, 1)[0], 28)}, 1, 1, {collision}},
        {"30 garbled frames", garbage_arp(30, own, 7), 0, 1, {}},
        {"an oversized frame with our MAC restarts the count", oversized, 1, 1, {collision}},
        {"49 more others", garbage_arp(49, own, 8), 0, 1, {}},
        {"the 50th since the latest collision", from(other, 1), 0, 0, {cleared}},
        {"a garbled burst while clear", garbage_arp(100, own, 9), 0, 0, {}},
    };
    for (const Step &s : steps) {
        SCOPED_TRACE(s.what);
        LogCapture log;
        int collisions = g_sleep2;
        send_from_peer("nb1", s.frames, 1);
        EXPECT_EQ(s.collisions, g_sleep2 - collisions) << "two more seconds after each collision";
        EXPECT_EQ(s.status, status_of("lan1"));
        EXPECT_EQ(s.log, leveled(log));
    }
    EXPECT_EQ(0, g_sleepOther.load());
    EXPECT_TRUE(m.watching()) << "still watching";
}

TEST_F(MacMonitor, SlotsByNameThreeAtMost)
{
    for (int i = 0; i < 3; ++i)
        sandbox::veth("eth" + std::to_string(i), "p" + std::to_string(i), &peer_);
    struct Start {
        const char *name;
        bool runs;
        Leveled log;
    } starts[] = {
        {"eth0", true, {}},
        {"eth1", true, {}},
        {"eth0", false, {line(7, "\"had created Mac collsion thread of 'eth0'\"")}},
        // Matches the first listed name it begins: the MAC of eth0, the slot "eth".
        {"eth", true, {}},
        {"et", false, {line(3, "\"IfName more than 3, not support!\"")}},
        {"wlan0", false, {line(3, "\"can't find the device\\n\"")}},
    };
    std::vector<std::unique_ptr<Monitor>> running;
    for (const Start &s : starts) {
        SCOPED_TRACE(s.name);
        LogCapture log;
        if (s.runs) { // ends at once otherwise: called here, not on a thread of its own
            running.push_back(std::make_unique<Monitor>(s.name));
            EXPECT_TRUE(running.back()->watching());
        } else {
            EXPECT_EQ(nullptr, net_DetectMacCollisionThread(const_cast<char *>(s.name)));
        }
        EXPECT_EQ(s.log, leveled(log));
    }
    // A frame with eth0's MAC, arriving on eth1: the monitors hear every interface.
    const Mac eth0 = mac_of("eth0");
    send_from_peer("p1", {arp_frame(2, kBroadcast, eth0, ip4("10.0.0.9"), kNoMac, ip4("10.0.0.1"))},
                   3);
    struct Lookup {
        const char *name;
        int status;
    } lookups[] = {{"eth0", 1}, {"eth", 1}, {"eth1", 0}, {"eth2", -1}, {"et", -1}};
    for (const Lookup &l : lookups)
        EXPECT_EQ(l.status, status_of(l.name)) << l.name;
}

// Monitors that end during set-up, and refused look-ups: the lines log readers match.
TEST_F(MacMonitor, SetUpEndingsAndLookups)
{
    auto threads = [] {
        return sandbox::sh_out("ls /proc/" + std::to_string(getpid()) + "/task | wc -l");
    };
    std::string before = threads();
    EXPECT_EQ(0, NET_CreateMacCollThread(nullptr)); // does nothing
    EXPECT_EQ(0, NET_CreateMacCollThread(const_cast<char *>("lan1")));
    EXPECT_EQ(before, threads());
    // Set-ups that end: no argument; only the loopback, an empty list, so no MAC at all; a
    // tunnel, which has no hardware address (listed by its IPv4 address, MAC all zero).
    struct Ending {
        const char *arg, *setup, *msg;
    } endings[] = {
        {nullptr, "true", "\"parameter 'pvArgv' is null!\""},
        {"lan1", "true", "\"Get interface Mac failed, pcSourceMacAddr: (nil).\""},
        {"tun0", "ip tuntap add dev tun0 mode tun && ip addr add 10.9.9.9/32 dev tun0",
         "\"Mac address can not be set zero. \\n\""},
    };
    for (const Ending &e : endings) {
        sandbox::must(e.setup);
        LogCapture log;
        EXPECT_EQ(nullptr, net_DetectMacCollisionThread(const_cast<char *>(e.arg)));
        EXPECT_EQ(Leveled{line(3, e.msg)}, leveled(log));
    }
    // Refused look-ups: none of the endings took a slot.
    int st = 5;
    struct Lookup {
        const char *name;
        int *out;
        const char *msg;
    } lookups[] = {
        {nullptr, &st, "\"parameter is null\""},
        {"lan1", nullptr, "\"parameter is null\""},
        {"tun0", &st, "\"can't find Mac Collsion thread of 'tun0'!\""},
        {"lan1", &st, "\"can't find Mac Collsion thread of 'lan1'!\""},
    };
    for (const Lookup &l : lookups) {
        LogCapture log;
        EXPECT_EQ(-1, NET_GetMacCollStatus(l.name, l.out));
        EXPECT_EQ(Leveled{line(3, l.msg, "NET_GetMacCollStatus")}, leveled(log));
        EXPECT_EQ(5, st);
    }
}
