// The utility family on real sockets: reads that end on a quiet peer, chunked sending,
// endpoints by host name, the peer's address, multicast membership on a veth link, and the
// members that repeat the Socket_ family with their own results and no logging.
#include <net/if.h>
#include <netdb.h>

#include <algorithm>
#include <string>
#include <vector>

#include "libnetwork.h"
#include "test_socket_support.h"

using sandbox::LogCapture;
using namespace socktest;

namespace
{

struct Printed {
    int result;
    std::string out;
};

template <class F> Printed printed(F &&call)
{
    StdoutCapture cap;
    int r = call();
    return {r, cap.text()};
}

// A neighbour's socket, bound (and listening for TCP) at addr.
Fd neighbour_listener(const sandbox::Peer &peer, const struct sockaddr *addr, socklen_t len)
{
    Fd l = socket_in(peer, addr->sa_family, SOCK_STREAM);
    EXPECT_EQ(0, bind(l.get(), addr, len)) << strerror(errno);
    EXPECT_EQ(0, listen(l.get(), 4));
    return l;
}

std::string maddr(const char *dev)
{
    return sandbox::sh_out(std::string("ip maddr show dev ") + dev);
}

} // namespace

class SocketUtilNet : public NeighbourLink
{
  protected:
    // The neighbour connects to us at here:port; ours is the accepted side.
    void neighbour_connects(int family, const char *here, const char *from)
    {
        unsigned short port = 0;
        struct sockaddr_in6 at6 = ipv6(here, 0);
        struct sockaddr_in at4 = ipv4(here, 0);
        bool v4 = family == AF_INET;
        listener_ =
            v4 ? listener(sa(at4), sizeof at4, &port) : listener(sa(at6), sizeof at6, &port);
        const char *to = here;
        if (!v4 && strcmp(here, "::") == 0)
            to = strchr(from, ':') ? "2001:db8:9::1" : "10.9.0.1";
        bool fromV4 = strchr(from, ':') == nullptr;
        theirs_ = socket_in(peer_, fromV4 ? AF_INET : AF_INET6, SOCK_STREAM);
        struct sockaddr_in t4 = ipv4(to, port);
        struct sockaddr_in6 t6 = ipv6(to, port);
        int r = fromV4 ? connect(theirs_.get(), sa(t4), sizeof t4)
                       : connect(theirs_.get(), sa(t6), sizeof t6);
        ASSERT_EQ(0, r) << strerror(errno);
        ours_.reset(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
    }
    sandbox::FdCheck fdCheck_; // after the members below are closed
    Fd listener_, theirs_, ours_;
};

// ---- Reads, writes and chunks ------------------------------------------------------------------

TEST_F(SocketUtilNet, ReadnAnswersWhatCameWhenThePeerGoesQuiet)
{
    neighbour_connects(AF_INET, "10.9.0.1", "10.9.0.2");
    ASSERT_EQ(3, write(theirs_.get(), "abc", 3));
    char buf[8] = {0};
    Stopwatch sw;
    EXPECT_EQ(3, readn(ours_.get(), buf, 8)); // unlike Socket_Readn, not an error
    EXPECT_GE(sw.ms(), 9900);
    EXPECT_LT(sw.ms(), 12000 + sandbox::kLateMs);
    EXPECT_EQ(0, memcmp(buf, "abc", 3));
    ASSERT_EQ(2, write(theirs_.get(), "de", 2));
    theirs_.reset();
    sw = Stopwatch();
    EXPECT_EQ(2, readn(ours_.get(), buf, 8)) << "a close ends the read at once";
    EXPECT_LT(sw.ms(), 1000 + sandbox::kLateMs);
}

TEST(SocketUtil, ReadnAndWritenBadInput)
{
    REQUIRE_SANDBOX();
    TcpPair p = tcp_pair();
    char buf[4] = {0};
    struct Case {
        int sock;
        char *buf;
        int len;
    } reads[] = {{0, buf, 4},
                 {-1, buf, 4},
                 {p.server.get(), nullptr, 4},
                 {p.server.get(), buf, 0},
                 {p.server.get(), buf, -1}};
    for (const Case &c : reads)
        EXPECT_EQ(-1, readn(c.sock, c.buf, c.len)) << c.sock << " " << c.len;
    Case writes[] = {
        {0, buf, 4}, {-2, buf, 4}, {p.client.get(), nullptr, 4}, {p.client.get(), buf, -1}};
    for (const Case &c : writes) {
        EXPECT_EQ(-1, writen(c.sock, c.buf, c.len)) << c.sock << " " << c.len;
        EXPECT_EQ(-1, rtspserver_writen(c.sock, c.buf, c.len)) << c.sock << " " << c.len;
    }
    EXPECT_EQ(0, writen(p.client.get(), buf, 0));
    EXPECT_EQ(4, rtspserver_writen(p.client.get(), "RTSP", 4));
    EXPECT_EQ(4, readn(p.server.get(), buf, 4));
    shutdown(p.client.get(), SHUT_WR);
    EXPECT_EQ(-1, writen(p.client.get(), "x", 1)); // EPIPE, and no SIGPIPE
}

TEST(SocketUtil, SendDataInSmallPacketsChunks)
{
    REQUIRE_SANDBOX();
    sandbox::FdCheck fds;
    struct Case {
        unsigned len, chunk;
        std::vector<int> pieces;
    } cases[] = {
        {10, 4, {4, 4, 2}},
        {8, 4, {4, 4}},
        {3, 10, {3}},
        {3, 1, {1, 1, 1}},
    };
    const char data[] = "0123456789";
    for (const Case &c : cases) {
        int sv[2];
        ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, sv));
        Fd a(sv[0]), b(sv[1]);
        EXPECT_EQ(static_cast<int>(c.len), send_data_insmall_packet(a.get(), data, c.len, c.chunk));
        std::vector<int> got;
        std::string all;
        char buf[32];
        for (ssize_t n; (n = recv(b.get(), buf, sizeof buf, MSG_DONTWAIT)) > 0;) {
            got.push_back(static_cast<int>(n));
            all.append(buf, static_cast<size_t>(n));
        }
        EXPECT_EQ(c.pieces, got) << c.len << "/" << c.chunk;
        EXPECT_EQ(std::string(data, c.len), all);
    }
    int sv[2];
    ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, sv));
    Fd a(sv[0]), b(sv[1]);
    EXPECT_EQ(0, send_data_insmall_packet(-1, data, 10, 4));
    EXPECT_EQ(0, send_data_insmall_packet(a.get(), nullptr, 10, 4));
    EXPECT_EQ(0, send_data_insmall_packet(a.get(), data, 0, 4));
    EXPECT_EQ(0, send_data_insmall_packet(a.get(), data, 10, 0));
    b.reset();
    EXPECT_EQ(0, send_data_insmall_packet(a.get(), data, 10, 4)); // the first piece fails
}

// ---- Endpoints by host name
// ----------------------------------------------------------------------

TEST_F(SocketUtilNet, IpConnectWithTimeout)
{
    sandbox::FdCheck fds;
    EXPECT_EQ(-1, ip_connect_withtimeout(nullptr, 80, 100));
    Stopwatch sw;
    EXPECT_EQ(-1, ip_connect_withtimeout("10.9.0.77", 80, 300)); // nobody answers
    EXPECT_GE(sw.ms(), 290);
    EXPECT_LT(sw.ms(), 1500 + sandbox::kLateMs);

    struct sockaddr_in there = ipv4("10.9.0.2", 8000);
    Fd l = neighbour_listener(peer_, sa(there), sizeof there);
    Fd s(ip_connect_withtimeout("10.9.0.2", 8000, 1000));
    ASSERT_GT(s.get(), 2);
    EXPECT_TRUE(is_nonblocking(s.get())); // left so, deliberately
    struct sockaddr_in6 t6 = ipv6("2001:db8:9::2", 8006);
    Fd l6 = neighbour_listener(peer_, sa(t6), sizeof t6);
    Fd s6(ip_connect_withtimeout("2001:db8:9::2", 8006, -1));
    ASSERT_GT(s6.get(), 2);
    EXPECT_FALSE(is_nonblocking(s6.get()));
}

// A name with two addresses, the first of which refuses: a blocking call stops there.
TEST(SocketUtil, IpConnectBlockingTriesOnlyTheFirstAddress)
{
    REQUIRE_SANDBOX();
    sandbox::FdCheck fds;
    sandbox::write_file("/etc/hosts", "127.0.0.1 twice\n127.0.0.2 twice\n");
    struct addrinfo hints, *res = nullptr;
    memset(&hints, 0, sizeof hints);
    hints.ai_socktype = SOCK_STREAM;
    ASSERT_EQ(0, getaddrinfo("twice", "1", &hints, &res));
    ASSERT_NE(nullptr, res->ai_next);
    char second[16];
    inet_ntop(AF_INET, &reinterpret_cast<sockaddr_in *>(res->ai_next->ai_addr)->sin_addr, second,
              sizeof second);
    freeaddrinfo(res);

    unsigned short port = 0;
    struct sockaddr_in at = ipv4(second, 0);
    Fd l = listener(sa(at), sizeof at, &port); // only the second address answers
    long before = tcp_active_opens();
    EXPECT_EQ(-1, ip_connect_withtimeout("twice", port, -1));
    EXPECT_EQ(1, tcp_active_opens() - before);
    Fd s(ip_connect_withtimeout("twice", port, 1000));
    EXPECT_GT(s.get(), 2);
    EXPECT_EQ(3, tcp_active_opens() - before);
}

TEST_F(SocketUtilNet, TcpBindConnectFromALocalAddress)
{
    sandbox::FdCheck fds;
    struct sockaddr_in there = ipv4("10.9.0.2", 9000);
    Fd l = neighbour_listener(peer_, sa(there), sizeof there);
    unsigned short local = free_port();
    Printed p = printed([&] { return tcp_bind_connect("10.9.0.2", 9000, "10.9.0.1", local, 0); });
    Fd s(p.result);
    ASSERT_GT(s.get(), 2);
    EXPECT_EQ("", p.out);
    struct sockaddr_in me;
    socklen_t len = sizeof me;
    getsockname(s.get(), sa(me), &len);
    EXPECT_EQ(local, ntohs(me.sin_port));
    EXPECT_EQ(ipv4("10.9.0.1", 0).sin_addr.s_addr, me.sin_addr.s_addr);
    int cnt = 0;
    len = sizeof cnt;
    getsockopt(s.get(), IPPROTO_TCP, 6, &cnt, &len);
    EXPECT_EQ(2, cnt);

    // A local address is required: without a usable one every bind fails.
    const char *badLocal[] = {"not-an-address", "", nullptr, "10.9.0.300"};
    for (const char *local : badLocal) {
        EXPECT_EQ(-1, tcp_bind_connect("10.9.0.2", 9000, local, 0, 0)) << (local ? local : "null");
        EXPECT_EQ(-1, udp_bind_connect("10.9.0.2", 9000, local, 0)) << (local ? local : "null");
    }
    EXPECT_EQ(-1, tcp_bind_connect(nullptr, 9000, "10.9.0.1", 0, 0));
}

TEST(SocketUtil, TcpBindConnectListens)
{
    REQUIRE_SANDBOX();
    sandbox::FdCheck fds;
    unsigned short port = free_port();
    Fd srv(tcp_bind_connect("127.0.0.1", 1, "127.0.0.1", port, 1));
    ASSERT_GT(srv.get(), 2);
    int acc = 0;
    socklen_t len = sizeof acc;
    getsockopt(srv.get(), SOL_SOCKET, SO_ACCEPTCONN, &acc, &len);
    EXPECT_EQ(1, acc);
    Fd srv6(tcp_bind_connect("::1", 1, "::1", port, 1));
    EXPECT_GT(srv6.get(), 2);
}

// Slow on purpose: three attempts, a second apart. They reuse one socket, so the kernel may
// answer one of them at once without sending anything: count the reports, not the SYNs.
TEST(SocketUtil, TcpBindConnectRetriesThreeTimesAndSaysSo)
{
    REQUIRE_SANDBOX();
    sandbox::FdCheck fds;
    ClosedPort closed;
    Stopwatch sw;
    Printed p =
        printed([&] { return tcp_bind_connect("127.0.0.1", closed.port(), "127.0.0.1", 0, 0); });
    EXPECT_EQ(-1, p.result);
    EXPECT_GE(sw.ms(), 2900);
    // One report per attempt: "tcp_bind_connect,<line>[<socket>  127.0.0.1:<port>  <n>]!!!...".
    std::string want = "  127.0.0.1:" + std::to_string(closed.port()) + "  ";
    for (const char *n : {"1]", "2]", "3]"})
        EXPECT_NE(std::string::npos, p.out.find(want + n)) << p.out;
    EXPECT_EQ(3, std::count(p.out.begin(), p.out.end(), '\n')) << p.out;
}

TEST(SocketUtil, UdpBindConnect)
{
    REQUIRE_SANDBOX();
    sandbox::FdCheck fds;
    Fd rx(socket(AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    struct sockaddr_in6 at = ipv6("::1", 0);
    ASSERT_EQ(0, bind(rx.get(), sa(at), sizeof at));
    socklen_t len = sizeof at;
    getsockname(rx.get(), sa(at), &len);
    unsigned short local = free_port();
    Fd s(udp_bind_connect("::1", ntohs(at.sin6_port), "::1", local));
    ASSERT_GT(s.get(), 2);
    ASSERT_EQ(4, send(s.get(), "ping", 4, 0));
    char buf[8];
    struct sockaddr_in6 from;
    len = sizeof from;
    EXPECT_EQ(4, recvfrom(rx.get(), buf, sizeof buf, 0, sa(from), &len));
    EXPECT_EQ(local, ntohs(from.sin6_port));
}

// ---- The peer's address
// --------------------------------------------------------------------------

TEST_F(SocketUtilNet, PeerAddrReportsMappedPeersAsIpv4)
{
    struct Case {
        int family;
        const char *here, *from;
        bool v4;
    } cases[] = {
        {AF_INET, "10.9.0.1", "10.9.0.2", true},
        {AF_INET6, "::", "10.9.0.2", true}, // dual-stack listener: ::ffff:10.9.0.2
        {AF_INET6, "::", "2001:db8:9::2", false},
    };
    for (const Case &c : cases) {
        neighbour_connects(c.family, c.here, c.from);
        NetPeerAddr peer;
        memset(&peer, 0x5A, sizeof peer);
        ASSERT_EQ(0, get_peer_addr(ours_.get(), &peer)) << c.from;
        NetPeerAddr want;
        memset(&want, 0, sizeof want);
        if (c.v4)
            inet_pton(AF_INET, c.from, &want.uiIpv4Addr);
        else
            inet_pton(AF_INET6, c.from, want.aucIpv6Addr);
        EXPECT_EQ(0, memcmp(&want, &peer, sizeof peer)) << c.from;
        ours_.reset();
        theirs_.reset();
        listener_.reset();
    }
    NetPeerAddr peer;
    memset(&peer, 0x5A, sizeof peer);
    EXPECT_EQ(-1, get_peer_addr(0, &peer));
    NetPeerAddr zero;
    memset(&zero, 0, sizeof zero);
    EXPECT_EQ(0, memcmp(&zero, &peer, sizeof peer)); // zeroed first
    EXPECT_EQ(-1, get_peer_addr(3, nullptr));
    Fd lone(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(-1, get_peer_addr(lone.get(), &peer));
}

// ---- Multicast --------------------------------------------------------------------------------

TEST_F(SocketUtilNet, MulticastJoinAndLeaveOnTheFirstInterface)
{
    sandbox::FdCheck fds;
    ASSERT_EQ(0, NET_Init());
    ASSERT_STREQ("eth0", g_pcLan1Name);
    sandbox::must("ip route add 224.0.0.0/4 dev eth0"); // where a wildcard leave looks
    Fd u(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    struct sockaddr_in group = ipv4("239.1.2.3", 0);
    EXPECT_EQ(0, mcast_join(u.get(), &group, sizeof group));
    EXPECT_NE(std::string::npos, maddr("eth0").find("inet  239.1.2.3")) << maddr("eth0");
    EXPECT_EQ(0, mcast_leave(u.get(), &group, 0));
    EXPECT_EQ(std::string::npos, maddr("eth0").find("239.1.2.3"));

    EXPECT_EQ(0, mcast_join_ex(u.get(), sa(group), "eth0"));
    EXPECT_NE(std::string::npos, maddr("eth0").find("239.1.2.3"));
    EXPECT_EQ(0, mcast_leave_ex(u.get(), sa(group)));
    EXPECT_EQ(std::string::npos, maddr("eth0").find("239.1.2.3"));

    Fd u6(socket(AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    struct sockaddr_in6 g6 = ipv6("ff15::1234", 0);
    EXPECT_EQ(0, mcast_join_ex(u6.get(), sa(g6), "eth0"));
    EXPECT_NE(std::string::npos, maddr("eth0").find("inet6 ff15::1234")) << maddr("eth0");
    EXPECT_EQ(0, mcast_leave_ex(u6.get(), sa(g6)));
    EXPECT_EQ(std::string::npos, maddr("eth0").find("ff15::1234"));

    // Bad input: -1 without touching the kernel.
    EXPECT_EQ(-1, mcast_join(0, &group, 16));
    EXPECT_EQ(-1, mcast_join(u.get(), nullptr, 16));
    EXPECT_EQ(-1, mcast_join(u.get(), &group, 0));
    EXPECT_EQ(-1, mcast_join(u.get(), &group, -16));
    EXPECT_EQ(-1, mcast_join_ex(0, sa(group), "eth0"));
    EXPECT_EQ(-1, mcast_join_ex(u.get(), nullptr, "eth0"));
    EXPECT_EQ(-1, mcast_leave(u.get(), nullptr, 0));
    EXPECT_EQ(-1, mcast_leave_ex(0, sa(group)));
    EXPECT_EQ(-1, mcast_leave_ex(u.get(), nullptr));
    // A name that is cut and names nothing: no interface address, so the group's route
    // decides the interface.
    EXPECT_EQ(0, mcast_join_ex(u.get(), sa(group), "a-name-far-longer-than-fifteen"));
    EXPECT_NE(std::string::npos, maddr("eth0").find("239.1.2.3"));
    EXPECT_EQ(0, mcast_leave(u.get(), &group, 0));
}

// ---- The repeated members: their own results, no logging ---------------------------------------

TEST(SocketUtil, AddressTextsAndTheirBuffers)
{
    char buf[16];
    uint32_t a;
    inet_pton(AF_INET, "192.168.10.200", &a);
    EXPECT_EQ(buf, inet_ntoa_b(a, buf));
    EXPECT_STREQ("192.168.10.200", buf);
    EXPECT_EQ(nullptr, inet_ntoa_b(a, nullptr));

    struct sockaddr_in v4 = ipv4("10.0.0.9", 0);
    struct sockaddr_in6 shortV6 = ipv6("2001:db8::9", 0), other = ipv6("ff02::1", 0);
    struct sockaddr_in6 longV6 = ipv6("2001:db8:1111:2222:3333:4444:5555:6666", 0);
    EXPECT_STREQ("10.0.0.9", socketaddr_tostr(sa(v4)));
    char *shared = socketaddr_tostr(sa(shortV6));
    EXPECT_STREQ("2001:db8::9", shared);
    EXPECT_EQ(shared, socketaddr_tostr(sa(other)));
    EXPECT_STREQ("ff02::1", shared);
    EXPECT_EQ(nullptr, socketaddr_tostr(sa(longV6))); // 38 characters do not fit in 32 bytes
    EXPECT_EQ(nullptr, socketaddr_tostr(nullptr));
    other.sin6_family = AF_UNIX;
    EXPECT_EQ(nullptr, socketaddr_tostr(sa(other)));
}

TEST(SocketUtil, MakeAddrByStringFailsWithMinusOneOnly)
{
    struct Case {
        int family;
        const char *text;
        int result;
    } cases[] = {
        {AF_INET, "10.1.1.1", 0},  {AF_INET, nullptr, 0},    {AF_INET, "255.255.255.255", -1},
        {AF_INET, "x", -1},        {AF_INET6, "fe80::1", 0}, {AF_INET6, nullptr, 0},
        {AF_INET6, "1.2.3.4", -1}, {AF_UNIX, nullptr, -1},   {AF_UNIX, "1.2.3.4", -1},
    };
    for (const Case &c : cases) {
        struct sockaddr_in6 s;
        memset(&s, 0, sizeof s);
        EXPECT_EQ(c.result, make_addr_bystring(c.family, c.text, 554, sa(s)))
            << c.family << " " << (c.text ? c.text : "(null)");
        if (c.result == 0) {
            EXPECT_EQ(c.family, s.sin6_family);
            EXPECT_EQ(htons(554), s.sin6_port);
        }
    }
    EXPECT_EQ(-1, make_addr_bystring(AF_INET, "1.2.3.4", 1, nullptr)); // Make_AddrbyString: 1
}

TEST_F(SocketUtilNet, ConnectAndAcceptWithTimeoutsSilently)
{
    sandbox::FdCheck fds;
    LogCapture log;
    struct sockaddr_in silent = ipv4("10.9.0.77", 80);
    Fd s(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    Stopwatch sw;
    EXPECT_EQ(-1, socket_connect_withtimeout(s.get(), sa(silent), 100)); // Socket_ gives 1
    EXPECT_GE(sw.ms(), 95);
    EXPECT_FALSE(is_nonblocking(s.get()));
    EXPECT_EQ(-1, socket_connect_withtimeout(s.get(), nullptr, 100));
    EXPECT_EQ(-1, socket_connect_withtimeout(-1, sa(silent), 100));

    Fd s2(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    struct timeval tv = {0, 150000};
    EXPECT_EQ(-1, connect_with_timeout(s2.get(), sa(silent), 16, &tv));
    EXPECT_EQ(150000, tv.tv_usec); // restored
    EXPECT_EQ(-1, connect_with_timeout(s2.get(), nullptr, 16, &tv));

    struct sockaddr_in there = ipv4("10.9.0.2", 7000);
    Fd l = neighbour_listener(peer_, sa(there), sizeof there);
    Fd c1(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)), c2(socket(AF_INET, SOCK_STREAM, 0));
    EXPECT_EQ(0, socket_connect_withtimeout(c1.get(), sa(there), 1000));
    EXPECT_EQ(0, connect_with_timeout(c2.get(), sa(there), 16, nullptr));

    struct sockaddr_in6 from;
    EXPECT_EQ(-1, socket_accept_with_timeout(0, sa(from), 10));
    Fd mine(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    struct sockaddr_in here = ipv4("10.9.0.1", 7001);
    ASSERT_EQ(0, socket_bind(mine.get(), sa(here)));
    ASSERT_EQ(0, socket_listen(mine.get(), 4));
    sw = Stopwatch();
    EXPECT_EQ(-1, socket_accept_with_timeout(mine.get(), sa(from), 120));
    EXPECT_GE(sw.ms(), 115);
    Fd in = socket_in(peer_, AF_INET, SOCK_STREAM);
    ASSERT_EQ(0, connect(in.get(), sa(here), sizeof here));
    Fd acc(socket_accept_with_timeout(mine.get(), sa(from), 1000));
    EXPECT_GT(acc.get(), 2);
    EXPECT_EQ(ipv4("10.9.0.2", 0).sin_addr.s_addr,
              reinterpret_cast<sockaddr_in &>(from).sin_addr.s_addr);
    EXPECT_TRUE(log.texts().empty()); // this family logs nothing
}

TEST(SocketUtil, ThinWrappers)
{
    REQUIRE_SANDBOX();
    sandbox::FdCheck fds;
    LogCapture log;
    EXPECT_EQ(554, get_ipport());
    EXPECT_EQ(-1, socket_create(12345, SOCK_DGRAM, 0));
    Fd u(socket_create(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    Fd t(socket_create(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ASSERT_GT(u.get(), 2);
    struct sockaddr_in exact = ipv4("127.0.0.1", 0); // 16 bytes are enough here
    EXPECT_EQ(0, socket_bind(u.get(), sa(exact)));
    EXPECT_EQ(-1, socket_bind(u.get(), nullptr));
    struct sockaddr_in6 unix_family;
    memset(&unix_family, 0, sizeof unix_family);
    unix_family.sin6_family = AF_UNIX;
    EXPECT_EQ(-1, socket_bind(t.get(), sa(unix_family)));
    EXPECT_EQ(-1, socket_listen(u.get(), 1));
    EXPECT_EQ(0, socket_reuse(t.get()));
    EXPECT_EQ(0, set_socket_linger(t.get(), 1, 0));
    EXPECT_EQ(0, set_socket_keeplive(t.get(), 1, 10, 4, 2));
    EXPECT_EQ(-1, set_socket_keeplive(u.get(), 1, 10, 4, 2)); // the last option is TCP's

    struct sockaddr_in6 to, from;
    socklen_t len = sizeof to;
    getsockname(u.get(), sa(to), &len);
    char buf[8];
    EXPECT_EQ(3, socket_sendto(u.get(), "abc", 3, sa(to)));
    EXPECT_EQ(3, socket_recvfrom(u.get(), buf, sizeof buf, sa(from)));
    EXPECT_EQ(-1, socket_recvfrom(u.get(), buf, 0, sa(from)));
    EXPECT_EQ(-1, socket_recvfrom(u.get(), nullptr, 8, sa(from)));
    EXPECT_EQ(-1, socket_recvfrom(u.get(), buf, 8, nullptr));
    EXPECT_EQ(-1, socket_recvfrom(-1, buf, 8, sa(from)));
    EXPECT_EQ(-1, socket_sendto(u.get(), "abc", -3, sa(to)));
    EXPECT_TRUE(log.texts().empty());
}
