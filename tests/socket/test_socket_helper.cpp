// The Socket_ family on real sockets: exact reads against a neighbour that stops or closes,
// connect and accept with time-outs, the one-call server and client, address building and
// the family's mixed failure values with their log lines.
#include <sys/resource.h>

#include <string>
#include <vector>

#include "libnetwork.h"
#include "test_socket_support.h"

using sandbox::expect_line;
using sandbox::LogCapture;
using namespace socktest;

namespace
{

// A neighbour's TCP connection to us: ours is the accepted side.
struct NeighbourConn {
    Fd ours;
    Fd theirs;
};

NeighbourConn neighbour_conn(const sandbox::Peer &peer)
{
    unsigned short port = 0;
    struct sockaddr_in here = ipv4("10.9.0.1", 0);
    Fd l = listener(sa(here), sizeof here, &port);
    NeighbourConn c;
    c.theirs = socket_in(peer, AF_INET, SOCK_STREAM);
    struct sockaddr_in to = ipv4("10.9.0.1", port);
    EXPECT_EQ(0, connect(c.theirs.get(), sa(to), sizeof to)) << strerror(errno);
    c.ours.reset(accept4(l.get(), nullptr, nullptr, SOCK_CLOEXEC));
    return c;
}

} // namespace

using SocketHelperNet = NeighbourLink;

// ---- Exact reads and writes -----------------------------------------------------------------

TEST_F(SocketHelperNet, ReadnDropsPartialDataWhenThePeerGoesQuiet)
{
    sandbox::FdCheck fds;
    NeighbourConn c = neighbour_conn(peer_);
    ASSERT_EQ(4, write(c.theirs.get(), "half", 4));
    char buf[8] = {0};
    Stopwatch sw;
    EXPECT_EQ(-1, Socket_Readn(c.ours.get(), buf, 8)); // the four bytes are not reported
    EXPECT_GE(sw.ms(), 9900);
    EXPECT_LT(sw.ms(), 12000 + sandbox::kLateMs);
}

TEST(SocketHelper, ReadnAndWriteMoveWholeBuffers)
{
    REQUIRE_SANDBOX();
    sandbox::FdCheck fds;
    TcpPair p = tcp_pair();
    std::vector<char> out(200000), in(200000);
    for (size_t i = 0; i < out.size(); ++i)
        out[i] = static_cast<char>(i * 7);
    std::thread reader([&] { EXPECT_EQ(200000, Socket_Readn(p.server.get(), in.data(), 200000)); });
    EXPECT_EQ(200000, Socket_Write(p.client.get(), out.data(), 200000));
    reader.join();
    EXPECT_EQ(out, in);

    // A peer that closes early: what came is the count.
    ASSERT_EQ(3, write(p.client.get(), "abc", 3));
    p.client.reset();
    EXPECT_EQ(3, Socket_Readn(p.server.get(), in.data(), 8));
    EXPECT_EQ(0, memcmp(in.data(), "abc", 3));
}

// The family's failures: results that differ from call to call (-1, 1, counts), and the
// lines log readers match, with their levels.
TEST(SocketHelper, SocketLogLines)
{
    REQUIRE_SANDBOX();
    sandbox::FdCheck fds;
    TcpPair p = tcp_pair();
    TcpPair shut = tcp_pair();
    shutdown(shut.client.get(), SHUT_WR);
    ASSERT_EQ(2, write(p.client.get(), "xy", 2));
    int pfd[2];
    ASSERT_EQ(0, pipe2(pfd, O_CLOEXEC));
    Fd rd(pfd[0]), wr(pfd[1]);
    ASSERT_EQ(1, write(wr.get(), "x", 1)); // readable, but not a socket
    Fd udp(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ClosedPort closed;
    struct sockaddr_in to = ipv4("127.0.0.1", closed.port());
    struct sockaddr_in6 addr;
    unsigned int alen = sizeof addr;
    int v = 1;
    unsigned int vlen = sizeof v;
    char buf[16] = "RETR file\r\n";
    uint32_t out = 0;
    unsigned char b6[16];
    const std::string conPara = "\"connect_with_timeout para error\\n\"";
    const std::string accPara = "\"socket_accept_with_timeout: param err.\\n\"";
    struct Line {
        const char *func;
        std::string msg;
        int level;
    };
    struct Case {
        std::function<int()> call;
        int result;
        std::vector<Line> lines;
    } cases[] = {
        {[&] { return Socket_Readn(p.server.get(), nullptr, 4); },
         -1,
         {{"Socket_Readn", "\"recv errno 14\"", 7}}},
        {[&] { return Socket_Write(shut.client.get(), buf, 1); },
         -1, // and no SIGPIPE
         {{"Socket_Write", "\"Send() error, 0x20\\n\"", 7}}},
        // Not a socket: the option fails and the write goes on to fail in send.
        {[&] { return Socket_WritetoFtp(wr.get(), buf, 11); },
         -1,
         {{"Socket_WritetoFtp", "\"setsockopt error 88\"", 7},
          {"Socket_Write", "\"Send() error, 0x58\\n\"", 7}}},
        {[&] { return Socket_WritetoFtp(-1, buf, 11); },
         -1,
         {{"Socket_WritetoFtp", "\"setsockopt error 9\"", 7},
          {"Socket_WritetoFtp", "\"select failed 9\\n\"", 7}}},
        {[&] { return Socket_ConnectwithTimeout(udp.get(), nullptr, 100); },
         1,
         {{"Socket_ConnectwithTimeout", conPara, 7}}},
        {[&] { return Socket_ConnectwithTimeout(-1, sa(to), 100); },
         1,
         {{"Socket_ConnectwithTimeout", conPara, 7}}},
        {[&] { return Socket_AcceptWithTimeout(0, nullptr, 10); },
         -1,
         {{"Socket_AcceptWithTimeout", accPara, 7}}},
        {[&] { return Socket_AcceptWithTimeout(-4, nullptr, 10); },
         -1,
         {{"Socket_AcceptWithTimeout", accPara, 7}}},
        {[&] { return Socket_AcceptWithTimeout(rd.get(), sa(addr), 10); },
         -1,
         {{"Socket_AcceptWithTimeout", "\"socket_accept_with_timeout failed: errno 88\\n\"", 7}}},
        {[&] { return Socket_AcceptWithTimeout(rd.get(), nullptr, -1); },
         -1,
         {{"Socket_AcceptWithTimeout", "\"socket_accept_with_timeout failed NULL: errno 88\\n\"",
           7}}},
        {[&] { return Socket_GetSockOpt(-1, SOL_SOCKET, SO_TYPE, &v, &vlen); },
         1,
         {{"Socket_GetSockOpt", "\"getsockopt errno 9\"", 7}}},
        {[&] { return Socket_SetSockOpt(-1, SOL_SOCKET, SO_REUSEADDR, &v, sizeof v); },
         1,
         {{"Socket_SetSockOpt", "\"setsockopt error 9\"", 7}}},
        {[&] { return Socket_GetSockName(-1, sa(addr), &alen); },
         1,
         {{"Socket_GetSockName", "\"getsockname error\"", 3}}},
        {[] { return Socket_Close(-1); }, 1, {{"Socket_Close", "\"close error 9\"", 3}}},
        {[] { return Socket_Create(12345, SOCK_STREAM, 0); },
         -1,
         {{"Socket_Create", "\"socket_create failed:errno 97\\n\"", 7}}},
        {[&] { return Socket_Listen(udp.get(), 5); },
         -1,
         {{"Socket_Listen", "\"socket_listen failed: errno 95\\n\"", 7}}},
        {[&] { return Socket_RecvFrom(-1, buf, 4, sa(addr)); },
         -1,
         {{"Socket_RecvFrom", "\"socket_recvfrom param failed\\n\"", 7}}},
        {[] { return Socket_Reuse(-1); }, -1, {}}, // the plain setsockopt result, not 1
        {[&] { return Is_IpV4Addr(nullptr, &out); },
         0,
         {{"Is_IpV4Addr", "\"is_string_ipaddr_ipv4, input is null!\\n\"", 7}}},
        {[&] { return Is_IpV4Addr("", &out); }, 0, {{"Is_IpV4Addr", "\"NULL entry\\n\"", 6}}},
        {[&] { return Is_IpV4Addr("010.0.0.1", &out); },
         0,
         {{"Is_IpV4Addr", "\"The str_ipv4(010.0.0.1) form not accord with IPv4!\\n\"", 7}}},
        {[] { return Is_IpV6Addr("::1", nullptr); },
         0,
         {{"Is_IpV6Addr", "\"is_string_ipaddr_ipv6, input is null!\\n\"", 7}}},
        {[] { return Is_IpV6Addr(nullptr, nullptr); },
         0,
         {{"Is_IpV6Addr", "\"is_string_ipaddr_ipv6, input is null!\\n\"", 7}}},
        {[&] { return Is_IpV6Addr("1.2.3.4", b6); }, 0, {}},
    };
    for (size_t i = 0; i < sizeof cases / sizeof cases[0]; ++i) {
        SCOPED_TRACE(i);
        LogCapture log;
        EXPECT_EQ(cases[i].result, cases[i].call());
        std::vector<std::string> want, got = log.texts();
        std::vector<int> levels, gotLevels;
        for (const Line &l : cases[i].lines) {
            want.push_back(expect_line(l.func, l.msg));
            levels.push_back(l.level);
        }
        for (const sandbox::LogLine &l : log.lines())
            gotLevels.push_back(l.level);
        EXPECT_EQ(want, got);
        EXPECT_EQ(levels, gotLevels);
    }
    EXPECT_EQ(0u, out);
}

// Descriptors beyond select's set size are waited for without writing past the set.
TEST(SocketHelper, WaitsWorkOnDescriptorsAboveTheSelectLimit)
{
    REQUIRE_SANDBOX();
    struct rlimit saved, more;
    getrlimit(RLIMIT_NOFILE, &saved);
    more = saved;
    more.rlim_cur = saved.rlim_max < 2048 ? saved.rlim_max : 2048;
    if (more.rlim_cur <= 1600)
        GTEST_SKIP() << "descriptor limit too low";
    setrlimit(RLIMIT_NOFILE, &more);
    {
        TcpPair p = tcp_pair();
        Fd high(dup2(p.server.get(), 1500));
        ASSERT_EQ(1500, high.get());
        ASSERT_EQ(8, write(p.client.get(), "12345678", 8));
        char buf[8];
        EXPECT_EQ(8, Socket_Readn(high.get(), buf, 8));
        ASSERT_EQ(8, write(p.client.get(), "abcdefgh", 8));
        EXPECT_EQ(8, readn(high.get(), buf, 8));
        EXPECT_EQ(-1, Socket_AcceptWithTimeout(high.get(), nullptr, 50)); // not listening: time-out
    }
    setrlimit(RLIMIT_NOFILE, &saved);
}

// ---- Connect and accept with a time-out ---------------------------------------------------

TEST_F(SocketHelperNet, ConnectToASilentNeighbourTimesOutInMilliseconds)
{
    sandbox::FdCheck fds;
    Fd s(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    struct sockaddr_in silent = ipv4("10.9.0.77", 80);
    Stopwatch sw;
    EXPECT_EQ(1, Socket_ConnectwithTimeout(s.get(), sa(silent), 5));
    EXPECT_GE(sw.ms(), 4);
    EXPECT_LT(sw.ms(), 500 + sandbox::kLateMs);
    EXPECT_FALSE(is_nonblocking(s.get())); // switched back
}

TEST_F(SocketHelperNet, ConnectReachesTheNeighbour)
{
    sandbox::FdCheck fds;
    Fd l = socket_in(peer_, AF_INET, SOCK_STREAM);
    struct sockaddr_in there = ipv4("10.9.0.2", 8554);
    ASSERT_EQ(0, bind(l.get(), sa(there), sizeof there));
    ASSERT_EQ(0, listen(l.get(), 4));
    Fd s(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(0, Socket_ConnectwithTimeout(s.get(), sa(there), 2000));
    EXPECT_FALSE(is_nonblocking(s.get()));
    Fd blocking(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(0, Socket_ConnectwithTimeout(blocking.get(), sa(there), -1));
}

TEST(SocketHelper, AcceptWithTimeout)
{
    REQUIRE_SANDBOX();
    sandbox::FdCheck fds;
    unsigned short port = 0;
    struct sockaddr_in any = ipv4("127.0.0.1", 0);
    Fd l = listener(sa(any), sizeof any, &port);
    {
        LogCapture log;
        Stopwatch sw;
        EXPECT_EQ(-1, Socket_AcceptWithTimeout(l.get(), nullptr, 150));
        EXPECT_GE(sw.ms(), 140);
        EXPECT_EQ(
            std::vector<std::string>{expect_line("Socket_AcceptWithTimeout", "\"time out.\\n\"")},
            log.texts());
    }
    struct sockaddr_in to = ipv4("127.0.0.1", port);
    Fd c1(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)), c2(socket(AF_INET, SOCK_STREAM, 0));
    ASSERT_EQ(0, connect(c1.get(), sa(to), sizeof to));
    ASSERT_EQ(0, connect(c2.get(), sa(to), sizeof to));
    struct sockaddr_in6 from;
    memset(&from, 0xAA, sizeof from);
    Fd a1(Socket_AcceptWithTimeout(l.get(), sa(from), 1000));
    EXPECT_GT(a1.get(), 0);
    EXPECT_EQ(AF_INET, reinterpret_cast<sockaddr_in &>(from).sin_family);
    EXPECT_EQ(htonl(INADDR_LOOPBACK), reinterpret_cast<sockaddr_in &>(from).sin_addr.s_addr);
    Fd a2(Socket_AcceptWithTimeout(l.get(), nullptr, -1));
    EXPECT_GT(a2.get(), 0);
}

// ---- One-call server and client -------------------------------------------------------------

TEST(SocketHelper, TcpSrvComListensOnEveryAddress)
{
    REQUIRE_SANDBOX();
    sandbox::FdCheck fds;
    unsigned short port = free_port();
    Fd srv(Socket_TcpSrvCom(port));
    ASSERT_GT(srv.get(), 2);
    int on = 0;
    socklen_t len = sizeof on;
    getsockopt(srv.get(), SOL_SOCKET, SO_REUSEADDR, &on, &len);
    EXPECT_EQ(1, on);
    EXPECT_TRUE(fcntl(srv.get(), F_GETFD) & FD_CLOEXEC);
    struct sockaddr_in to = ipv4("127.0.0.1", port);
    Fd c(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(0, connect(c.get(), sa(to), sizeof to));
    EXPECT_EQ(1, Socket_TcpSrvCom(port)); // taken: 1, not -1, and nothing left open
}

TEST(SocketHelper, TcpCliComConnectsWithKeepAlive)
{
    REQUIRE_SANDBOX();
    sandbox::FdCheck fds;
    unsigned short port = 0;
    struct sockaddr_in any = ipv4("127.0.0.1", 0);
    Fd l = listener(sa(any), sizeof any, &port);
    int iPort = port, sock = -1;
    ASSERT_EQ(0, Socket_TcpCliCom("127.0.0.1", &iPort, &sock, 1));
    Fd s(sock);
    struct Opt {
        int level, name, want;
    } opts[] = {{SOL_SOCKET, SO_KEEPALIVE, 1},
                {IPPROTO_TCP, 6 /* probe count */, 2},
                {IPPROTO_TCP, 4 /* TCP_KEEPIDLE */, 10},
                {IPPROTO_TCP, 5 /* TCP_KEEPINTVL */, 4}};
    for (const Opt &o : opts) {
        int v = -1;
        socklen_t len = sizeof v;
        getsockopt(s.get(), o.level, o.name, &v, &len);
        EXPECT_EQ(o.want, v) << o.name;
    }
    EXPECT_FALSE(is_nonblocking(s.get()));
    int dummy = 0;
    EXPECT_EQ(1, Socket_TcpCliCom(nullptr, &iPort, &dummy, 1));
    EXPECT_EQ(1, Socket_TcpCliCom("127.0.0.1", nullptr, &dummy, 1));
    EXPECT_EQ(1, Socket_TcpCliCom("127.0.0.1", &iPort, nullptr, 1));
}

// Slow on purpose: each failed attempt is followed by a 5 s pause.
TEST(SocketHelper, TcpCliComRetryCountAgainstAClosedPort)
{
    REQUIRE_SANDBOX();
    sandbox::FdCheck fds;
    ClosedPort closed;
    struct Case {
        int retry;
        long attempts;
    } cases[] = {{2, 2}, {-1, 1}};
    for (const Case &c : cases) {
        int port = closed.port(), sock = -7;
        long before = tcp_active_opens();
        Stopwatch sw;
        EXPECT_EQ(1, Socket_TcpCliCom("127.0.0.1", &port, &sock, c.retry));
        EXPECT_EQ(c.attempts, tcp_active_opens() - before) << c.retry;
        EXPECT_GE(sw.ms(), c.attempts * 5000 - 100) << c.retry;
        EXPECT_LT(sw.ms(), c.attempts * 5000 + 2000 + sandbox::kLateMs) << c.retry;
        EXPECT_EQ(-7, sock);
    }
}

// ---- Socket options and thin wrappers ------------------------------------------------------

TEST(SocketHelper, BindAndDatagramsInBothFamilies)
{
    REQUIRE_SANDBOX();
    sandbox::FdCheck fds;
    struct sockaddr_in6 unix_family;
    memset(&unix_family, 0, sizeof unix_family);
    unix_family.sin6_family = AF_UNIX;
    EXPECT_EQ(1, Socket_Bind(3, nullptr));
    EXPECT_EQ(1, Socket_Bind(3, sa(unix_family)));

    struct Case {
        int family;
        const char *text;
    } cases[] = {{AF_INET, "127.0.0.1"}, {AF_INET6, "::1"}};
    for (const Case &c : cases) {
        struct sockaddr_in6 a, b, from;
        memset(&a, 0, sizeof a);
        ASSERT_EQ(0, Make_AddrbyString(c.family, c.text, 0, sa(a)));
        b = a;
        Fd rx(Socket_Create(c.family, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        Fd tx(Socket_Create(c.family, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        ASSERT_EQ(0, Socket_Bind(rx.get(), sa(a)));
        unsigned int len = sizeof b;
        ASSERT_EQ(0, Socket_GetSockName(rx.get(), sa(b), &len));
        EXPECT_EQ(5, Socket_SendTo(tx.get(), "hello", 5, sa(b)));
        char buf[16];
        memset(&from, 0, sizeof from);
        EXPECT_EQ(5, Socket_RecvFrom(rx.get(), buf, sizeof buf, sa(from)));
        EXPECT_EQ(c.family, from.sin6_family);
        EXPECT_EQ(-1, Socket_SendTo(tx.get(), "x", -1, sa(b))); // never past the buffer
    }
    char buf[4];
    struct sockaddr_in6 from;
    EXPECT_EQ(-1, Socket_RecvFrom(3, nullptr, 4, sa(from)));
    EXPECT_EQ(-1, Socket_RecvFrom(3, buf, 0, sa(from)));
    EXPECT_EQ(-1, Socket_RecvFrom(3, buf, 4, nullptr));
}

// ---- Addresses ---------------------------------------------------------------------------------

TEST(SocketHelperAddr, MakeAddrbyString)
{
    struct Case {
        int family;
        const char *text;
        int result;
        const char *back; // the address as text afterwards, or null
    } cases[] = {
        {AF_INET, "192.168.1.2", 0, "192.168.1.2"},
        {AF_INET, nullptr, 0, "0.0.0.0"},
        {AF_INET, "255.255.255.255", -1, nullptr}, // inet_addr's failure value
        {AF_INET, "192.168.1", 0, "192.168.0.1"},  // inet_addr's short forms
        {AF_INET, "nonsense", -1, nullptr},
        {AF_INET6, "2001:db8::1", 0, "2001:db8::1"},
        {AF_INET6, nullptr, 0, "::"},
        {AF_INET6, "2001:db8::g", -1, nullptr},
        {AF_UNIX, nullptr, 1, nullptr},
        {AF_UNIX, "x", -1, nullptr},
    };
    for (const Case &c : cases) {
        struct sockaddr_in6 a;
        memset(&a, 0, sizeof a);
        EXPECT_EQ(c.result, Make_AddrbyString(c.family, c.text, 8080, sa(a)))
            << (c.text ? c.text : "(null)");
        if (c.back == nullptr)
            continue;
        EXPECT_EQ(c.family, a.sin6_family);
        EXPECT_EQ(htons(8080), a.sin6_port);
        EXPECT_STREQ(c.back, Socket_AddrtoStr(sa(a)));
    }
    struct sockaddr_in a;
    memset(&a, 0, sizeof a);
    Make_AddrbyString(AF_INET, "255.255.255.255", 1, sa(a));
    EXPECT_EQ(0xFFFFFFFFu, a.sin_addr.s_addr); // left written
    EXPECT_EQ(0, a.sin_family);
    EXPECT_EQ(1, Make_AddrbyString(AF_INET, "1.2.3.4", 1, nullptr));
}

TEST(SocketHelperAddr, AddrtoStrSharesItsBuffers)
{
    struct sockaddr_in6 v6a = ipv6("2001:db8::a", 0), v6b = ipv6("fe80::b", 0);
    struct sockaddr_in v4 = ipv4("10.1.2.3", 0);
    char *first = Socket_AddrtoStr(sa(v6a));
    ASSERT_NE(nullptr, first);
    EXPECT_STREQ("2001:db8::a", first);
    EXPECT_EQ(first, Socket_AddrtoStr(sa(v6b))); // the same static buffer, overwritten
    EXPECT_STREQ("fe80::b", first);
    EXPECT_STREQ("10.1.2.3", Socket_AddrtoStr(sa(v4)));
    struct sockaddr_in6 other = v6a;
    other.sin6_family = AF_UNIX;
    EXPECT_EQ(nullptr, Socket_AddrtoStr(sa(other)));
    EXPECT_EQ(nullptr, Socket_AddrtoStr(nullptr));
}

TEST(SocketHelperAddr, IpAddrTextsAndTheFamilySwitch)
{
    unsigned char out[16] = {0};
    EXPECT_EQ(1, Is_IpV6Addr("::ffff:1.2.3.4", out));
    EXPECT_EQ(0xff, out[10]);
    EXPECT_EQ(4, out[15]);
    uint32_t v4 = 0;
    EXPECT_EQ(1, Is_IpV4Addr("10.0.0.1", nullptr));
    EXPECT_EQ(1, Is_IpV4Addr("10.0.0.1", &v4));
    EXPECT_EQ(htonl(0x0A000001u), v4);
    EXPECT_EQ(0, Is_IpV4Addr("1.2.3", &v4));

    EXPECT_EQ(0, Is_SupportIpv6());
    EXPECT_EQ(AF_INET, Get_SocketFamily()); // while get_socket_family gives AF_INET6
    EXPECT_EQ(AF_INET6, get_socket_family());
    EXPECT_EQ(554, Get_IpPort());
}
