// ICMP ping through a veth link to a neighbour namespace. Replies are matched by the whole
// process id, so every ping that must succeed runs as pid 1 of a pid namespace of its own
// (nothing mounted there); it reports back through a pipe.
#include <netinet/in.h>
#include <netinet/ip.h>
#include <netinet/ip_icmp.h>
#include <sched.h>
#include <sys/time.h>
#include <sys/wait.h>

#include <cmath>
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

struct PingRun {
    int result = -2;
    double time = -1;
    int pid = 0;
    double seconds = 0;
    std::vector<std::string> log;
};

// NET_Ping(ifname, host) as pid 1 of a new pid namespace.
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
            double t = -1;
            auto start = std::chrono::steady_clock::now();
            int r = NET_Ping(ifname, host, &t);
            std::ostringstream out;
            out.precision(17);
            out << r << ' ' << t << ' ' << getpid() << ' ' << since(start) << '\n';
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
    ssize_t n;
    while ((n = read(fds[0], buf, sizeof buf)) > 0)
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

uint16_t checksum(const Bytes &b)
{
    uint32_t sum = 0;
    for (size_t i = 0; i + 1 < b.size(); i += 2)
        sum += static_cast<uint32_t>(b[i] << 8 | b[i + 1]);
    if (b.size() % 2)
        sum += static_cast<uint32_t>(b.back() << 8);
    while (sum >> 16)
        sum = (sum & 0xffff) + (sum >> 16);
    return static_cast<uint16_t>(~sum);
}

// What the neighbour sends back for an echo request (ICMP bytes), after a delay.
struct Answer {
    int delayMs;
    std::function<Bytes(const Bytes &)> make;
    bool ipOptions = false; // sent with a longer IP header
};

Bytes as_reply(Bytes icmp, uint8_t type = 0, int idDelta = 0, size_t len = 0)
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

const std::string kFn = "NET_Ping";

} // namespace

class Ping : public ::testing::Test
{
  protected:
    void SetUp() override
    {
        REQUIRE_SANDBOX();
        sandbox::veth("lan1", "nb1", &peer_);
        sandbox::addr_add("lan1", "192.168.1.10/24");
        peer_.must("ip addr add 192.168.1.1/24 dev nb1");
    }

    // Pings the neighbour as pid 1 while a raw socket there sees the request and sends the
    // answers; the request's ICMP bytes come back in *request.
    PingRun ping_answered(const std::vector<Answer> &answers, Bytes *request)
    {
        PeerTask peer(peer_, [&](const std::function<void()> &ready, int out) {
            int fd = socket(AF_INET, SOCK_RAW, IPPROTO_ICMP);
            if (fd < 0)
                return 2;
            ready();
            Bytes ip;
            auto echo = [](const Bytes &d) {
                return d.size() > 20 && d.size() > size_t((d[0] & 15) * 4) &&
                       d[(d[0] & 15) * 4] == 8;
            };
            if (!await(fd, 3000, echo, &ip))
                return 3;
            Bytes icmp(ip.begin() + (ip[0] & 15) * 4, ip.end());
            put_bytes(out, icmp);
            struct sockaddr_in to;
            memset(&to, 0, sizeof to);
            to.sin_family = AF_INET;
            inet_pton(AF_INET, "192.168.1.10", &to.sin_addr);
            int optFd = socket(AF_INET, SOCK_RAW, IPPROTO_ICMP);
            const uint8_t nops[8] = {IPOPT_NOP, IPOPT_NOP, IPOPT_NOP, IPOPT_NOP,
                                     IPOPT_NOP, IPOPT_NOP, IPOPT_NOP, IPOPT_END};
            // An emulator that cannot carry IP options sends the short header.
            if (setsockopt(optFd, IPPROTO_IP, IP_OPTIONS, nops, sizeof nops) != 0)
                optFd = fd;
            for (const Answer &a : answers) {
                std::this_thread::sleep_for(std::chrono::milliseconds(a.delayMs));
                Bytes m = a.make(icmp);
                if (sendto(a.ipOptions ? optFd : fd, m.data(), m.size(), 0,
                           reinterpret_cast<sockaddr *>(&to), sizeof to) < 0)
                    return 4;
            }
            return 0;
        });
        EXPECT_TRUE(peer.ready());
        PingRun run = ping_as_pid1("lan1", "192.168.1.1");
        EXPECT_EQ(0, peer.wait());
        *request = peer.output();
        return run;
    }

    sandbox::Peer peer_;
};

TEST_F(Ping, RoundTripToTheNeighbour)
{
    Bytes request;
    struct timeval now;
    gettimeofday(&now, nullptr);
    PingRun run = ping_answered({}, &request);
    EXPECT_EQ(1, run.pid);
    EXPECT_EQ(0, run.result);
    EXPECT_TRUE(run.log.empty());
    // Microseconds, a whole number: a veth round trip is well under a second.
    EXPECT_GT(run.time, 0);
    EXPECT_LT(run.time, 500000);
    EXPECT_EQ(std::floor(run.time), run.time);

    // The request: 64 bytes, identifier 1 (the pid), sequence 1, the send time in host order
    // at 8, zero data, a valid checksum.
    ASSERT_EQ(64u, request.size());
    EXPECT_EQ(8, request[0]);
    EXPECT_EQ(0, request[1]);
    EXPECT_EQ(0, checksum(request));
    EXPECT_EQ((Bytes{0, 1, 0, 1}), Bytes(request.begin() + 4, request.begin() + 8));
    int32_t sec, usec;
    memcpy(&sec, &request[8], 4);
    memcpy(&usec, &request[12], 4);
    EXPECT_LE(std::abs(sec - static_cast<int32_t>(now.tv_sec)), 5);
    EXPECT_GE(usec, 0);
    EXPECT_LT(usec, 1000000);
    EXPECT_EQ(Bytes(48, 0), Bytes(request.begin() + 16, request.end()));
}

TEST_F(Ping, WhatTheFirstPacketBackDecides)
{
    peer_.must("echo 1 > /proc/sys/net/ipv4/icmp_echo_ignore_all");
    const std::string recvFail = expect_line(kFn, "\"recv pack fail.\\n\"");
    struct Case {
        const char *what;
        std::vector<Answer> answers;
        int result;
        double minTime, maxTime; // of pdTime, when it succeeds
        double minSec, maxSec;   // of the call
        std::vector<std::string> log;
    } cases[] = {
        {"a reply after 1.5 s counts in microseconds",
         {{1500, [](const Bytes &r) { return as_reply(r); }}},
         0,
         1.45e6,
         1.9e6,
         1.45,
         1.95,
         {}},
        {"no answer within 2 s",
         {},
         -1,
         0,
         0,
         1.95,
         2.6,
         {expect_line("net_RecvIcmpPkt", "\"Fail to recvfrom.\\n\""), recvFail}},
        // The kernel never hands a raw ICMP socket less than 8 bytes of ICMP, nor a header
        // length past the data: those readers are left to the fuzz target. A reply cut to
        // its header is taken, its missing send time read as zero.
        {"a reply of the header alone",
         {{0, [](const Bytes &r) { return as_reply(r, 0, 0, 8); }}},
         0,
         -2.2e9,
         2.2e9,
         0,
         1,
         {}},
        {"another process's reply",
         {{0, [](const Bytes &r) { return as_reply(r, 0, 1); }}},
         -1,
         0,
         0,
         0,
         1,
         {expect_line("net_UnPackIcmp", "\"cann't get send time from icmp pack.\\n\""), recvFail}},
        {"another process's reply behind IP options",
         {{0, [](const Bytes &r) { return as_reply(r, 0, 1); }, true}},
         -1,
         0,
         0,
         0,
         1,
         {expect_line("net_UnPackIcmp", "\"cann't get send time from icmp pack.\\n\""), recvFail}},
        {"an unreachable message first",
         {{0, [](const Bytes &r) { return as_reply(r, 3); }},
          {10, [](const Bytes &r) { return as_reply(r); }}},
         -1,
         0,
         0,
         0,
         1,
         {expect_line("net_UnPackIcmp", "\"cann't get send time from icmp pack.\\n\""), recvFail}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        Bytes request;
        PingRun run = ping_answered(c.answers, &request);
        EXPECT_EQ(c.result, run.result);
        EXPECT_EQ(c.log, run.log);
        EXPECT_GE(run.seconds, c.minSec);
        EXPECT_LT(run.seconds, c.maxSec + sandbox::kLateSec);
        if (c.result == 0) {
            EXPECT_GE(run.time, c.minTime);
            EXPECT_LT(run.time, c.maxTime);
        } else {
            EXPECT_EQ(-1, run.time) << "untouched on failure";
        }
    }
}

TEST_F(Ping, Refusals)
{
    double t = -1;
    const char *lan1 = "lan1";
    char params[160];
    snprintf(params, sizeof params,
             "PL_PARAM_ERROR_PRINT \"pcIfName :%p, pcHost: %p, pdTime: %p. \\n\"",
             (const void *)lan1, (void *)nullptr, (void *)&t);
    struct Case {
        const char *ifname;
        const char *host;
        std::vector<std::string> log;
    } cases[] = {
        {lan1, nullptr, {expect_line(kFn, params)}},
        {"lan1", "255.255.255.255", {expect_line(kFn, "\"ip address error.\\n\"")}},
        {"lan1", "peer.example", {expect_line(kFn, "\"ip address error.\\n\"")}},
        {"nosuch0", "192.168.1.1", {expect_line(kFn, "\"bind network card fail.\\n\"")}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.host ? c.host : "(null)");
        sandbox::FdCheck fds;
        LogCapture log;
        EXPECT_EQ(-1, NET_Ping(c.ifname, c.host, &t));
        EXPECT_EQ(c.log, log.texts());
        EXPECT_EQ(-1, t);
    }
}
