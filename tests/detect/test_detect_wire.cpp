// The probes, the gratuitous ARP and ping on a veth link to a neighbour namespace: the
// neighbour's kernel answers for its own addresses, and sockets there see what the device
// sends (checked byte for byte) and craft what it should hear.
#include <netinet/icmp6.h>
#include <netinet/in.h>
#include <netinet/ip.h>
#include <sched.h>
#include <sys/time.h>
#include <sys/wait.h>

#include <cmath>
#include <sstream>
#include <string>
#include <vector>

#include "libnetwork.h"
#include "test_detect_support.h"

using namespace detecttest;
using sandbox::expect_line;
using sandbox::LogCapture;

namespace
{

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
    double seconds = 0;
    std::vector<std::string> log;
};

// NET_Ping as pid 1 of a new pid namespace: replies are matched by the whole process id.
PingRun ping_as_pid1(const char *ifname, const char *host)
{
    int fds[2];
    PingRun run;
    if (pipe(fds) != 0)
        return run;
    pid_t child = fork();
    if (child == 0) {
        close(fds[0]);
        if (unshare(CLONE_NEWPID) != 0)
            _exit(10);
        pid_t init = fork();
        if (init == 0) {
            LogCapture log;
            auto start = std::chrono::steady_clock::now();
            run.result = NET_Ping(ifname, host, &run.time);
            std::ostringstream out;
            out.precision(17);
            out << run.result << ' ' << run.time << ' ' << getpid() << ' ' << since(start) << '\n';
            for (const std::string &l : log.texts())
                out << l << '\n';
            std::string s = out.str();
            _exit(write(fds[1], s.data(), s.size()) == static_cast<ssize_t>(s.size()) ? 0 : 11);
        }
        int st = 0;
        _exit(init > 0 && waitpid(init, &st, 0) == init && WIFEXITED(st) ? WEXITSTATUS(st) : 12);
    }
    close(fds[1]);
    std::string all;
    char buf[512];
    for (ssize_t n; (n = read(fds[0], buf, sizeof buf)) > 0;)
        all.append(buf, static_cast<size_t>(n));
    close(fds[0]);
    int st = 0;
    waitpid(child, &st, 0);
    EXPECT_TRUE(WIFEXITED(st) && WEXITSTATUS(st) == 0) << "pid namespace child failed";
    std::istringstream in(all);
    in >> run.result >> run.time >> run.pid >> run.seconds;
    in.ignore(1);
    for (std::string l; std::getline(in, l);)
        run.log.push_back(l);
    return run;
}

} // namespace

class Detect : public NeighbourLink
{
  protected:
    struct Outcome {
        int result = -2;
        int collision = 7; // the caller's value, kept unless a host claims the address
        double seconds = 0;
        Bytes seen; // what the neighbour saw
        bool answered = false;
    };

    // Runs call while a socket in the neighbour's namespace waits for the frame that
    // matches, keeps it and sends frames back.
    Outcome answered(int domain, int proto, const std::function<bool(const Bytes &)> &match,
                     const std::vector<Bytes> &frames, const std::function<int(int *)> &call)
    {
        Outcome o;
        int fd = -1;
        struct ipv6_mreq req;
        as_peer(peer_, [&] {
            req.ipv6mr_interface = if_nametoindex("nb1");
            fd = domain == AF_PACKET ? arp_socket("nb1") : socket(domain, SOCK_RAW, proto);
        });
        inet_pton(AF_INET6, "ff02::1:ff00:77", &req.ipv6mr_multiaddr);
        int hops = 255;
        EXPECT_TRUE(fd >= 0 &&
                    (domain == AF_PACKET ||
                     (setsockopt(fd, IPPROTO_IPV6, IPV6_JOIN_GROUP, &req, sizeof req) == 0 &&
                      setsockopt(fd, IPPROTO_IPV6, IPV6_MULTICAST_HOPS, &hops, sizeof hops) == 0)));
        std::thread peer([&] {
            if (!await(fd, 3000, match, &o.seen))
                return;
            struct sockaddr_in6 all;
            memset(&all, 0, sizeof all);
            all.sin6_family = AF_INET6;
            inet_pton(AF_INET6, "ff02::1", &all.sin6_addr);
            all.sin6_scope_id = req.ipv6mr_interface;
            o.answered = domain == AF_PACKET ? send_all(fd, frames) : true;
            for (const Bytes &m : domain == AF_PACKET ? std::vector<Bytes>{} : frames)
                o.answered &= sendto(fd, m.data(), m.size(), 0, reinterpret_cast<sockaddr *>(&all),
                                     sizeof all) >= 0;
        });
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
        return answered(AF_PACKET, 0, isProbe, frames,
                        [&](int *c) { return probe(4, "192.168.1.77", timeoutMs, c); });
    }

    Bytes claim(const Ip4 &addr) const { return arp_frame(2, own_, kPeerMac, addr, own_, kDevIp); }
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
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        // The neighbour hears the solicitation in the target's group and answers by hand.
        Outcome o = answered(
            AF_INET6, IPPROTO_ICMPV6,
            [&](const Bytes &m) {
                return m.size() == 24 && m[0] == 135 &&
                       memcmp(&m[8], &icmp6(135, target)[8], 16) == 0;
            },
            c.msgs, [&](int *col) { return probe(6, target, 300, col); });
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
        int fd = -1;
        as_peer(peer_, [&] { fd = arp_socket(std::string("nb") + dev[3]); });
        std::vector<Bytes> frames;
        std::thread peer([&] {
            await(fd, 400, [&](const Bytes &f) {
                frames.push_back(f);
                return false;
            });
        });
        {
            sandbox::FdCheck fds;
            EXPECT_EQ(dev[3] == '1' ? 0 : -1, NET_SendGratuitousPack(dev));
        }
        peer.join();
        close(fd);
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
        int fd = -1, optFd = -1;
        as_peer(peer_, [&] {
            fd = socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_ICMP);
            optFd = socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_ICMP);
        });
        const uint8_t nops[8] = {IPOPT_NOP, IPOPT_NOP, IPOPT_NOP, IPOPT_NOP,
                                 IPOPT_NOP, IPOPT_NOP, IPOPT_NOP, IPOPT_END};
        // An emulator that cannot carry IP options sends the short header.
        int withOptions = setsockopt(optFd, IPPROTO_IP, IP_OPTIONS, nops, sizeof nops) ? fd : optFd;
        Bytes request;
        bool sent = false;
        std::thread peer([&] {
            Bytes ip;
            auto echo = [](const Bytes &d) {
                return d.size() > 20 && d.size() > size_t((d[0] & 15) * 4) &&
                       d[(d[0] & 15) * 4] == 8;
            };
            if (!await(fd, 3000, echo, &ip))
                return;
            request.assign(ip.begin() + (ip[0] & 15) * 4, ip.end());
            struct sockaddr_in to;
            memset(&to, 0, sizeof to);
            to.sin_family = AF_INET;
            inet_pton(AF_INET, "192.168.1.10", &to.sin_addr);
            sent = true;
            for (const Answer &a : c.answers) {
                std::this_thread::sleep_for(std::chrono::milliseconds(a.delayMs));
                Bytes m = as_reply(request, a.type, a.idDelta, a.len);
                sent &= sendto(a.ipOptions ? withOptions : fd, m.data(), m.size(), 0,
                               reinterpret_cast<sockaddr *>(&to), sizeof to) >= 0;
            }
        });
        PingRun run = ping_as_pid1("lan1", "192.168.1.1");
        peer.join();
        close(fd);
        close(optFd);
        EXPECT_TRUE(sent);
        EXPECT_EQ(1, run.pid);
        EXPECT_EQ(c.result, run.result);
        EXPECT_GE(run.seconds, c.sec * 0.96);
        EXPECT_LT(run.seconds, c.sec + sandbox::kLateSec);
        if (c.result == 0) {
            EXPECT_GE(run.time, c.minTime);
            EXPECT_LT(run.time, c.maxTime);
            EXPECT_EQ(std::floor(run.time), run.time) << "whole microseconds";
        } else {
            EXPECT_EQ(-1, run.time) << "untouched on failure";
            EXPECT_EQ((std::vector<std::string>{c.line,
                                                expect_line("NET_Ping", "\"recv pack fail.\\n\"")}),
                      run.log);
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
