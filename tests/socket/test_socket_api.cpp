// The _api family: its framed diagnostics on standard output, the failure results that are
// print counts, the TCP endpoints against a neighbour and a closed port, and the string
// cutters.
#include <string>
#include <vector>

#include "libnetwork.h"
#include "test_socket_support.h"

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
    return {r, without_api_lines(cap.text())};
}

} // namespace

using SocketApiNet = NeighbourLink;

// ---- Plain wrappers ----------------------------------------------------------------------------

TEST(SocketApi, FailedWrappersPrintOneFramedLine)
{
    REQUIRE_SANDBOX();
    sandbox::FdCheck fds;
    struct sockaddr_in a = ipv4("127.0.0.1", 1);
    unsigned int len = sizeof a;
    int v = 0;
    unsigned int vlen = sizeof v;
    struct Case {
        const char *func;
        std::function<int()> call;
        const char *msg;
        bool countIsResult; // failure gives the print's character count
    } cases[] = {
        {"socket_api", [] { return socket_api(12345, SOCK_STREAM, 0); }, "sockfd=-1,errno 97",
         false},
        {"connect_api", [&] { return connect_api(-1, sa(a), len); }, "connect errno 9", false},
        {"accept_api", [&] { return accept_api(-1, sa(a), &len); }, "accept error 9", false},
        {"bind_api", [&] { return bind_api(-1, sa(a), len); }, "bind error 9", false},
        {"listen_api", [] { return listen_api(-1, 1); }, "listen error 9", false},
        {"setsockopt_api", [&] { return setsockopt_api(-1, SOL_SOCKET, SO_REUSEADDR, &v, 4); },
         "setsockopt error 9", false},
        {"getsockopt_api", [&] { return getsockopt_api(-1, SOL_SOCKET, SO_TYPE, &v, &vlen); },
         "getsockopt errno 9", true},
        {"getsockname_api", [&] { return getsockname_api(-1, sa(a), &len); }, "getsockname error",
         true},
        {"close_api", [] { return close_api(-1); }, "close error 9", true},
        {"inet_pton_api", [&] { return inet_pton_api(AF_INET, "1.2.3", &v); },
         "inet_pton error for 1.2.3", true},
        {"inet_pton_api", [&] { return inet_pton_api(12345, "1.2.3.4", &v); },
         "inet_pton error for 1.2.3.4,errno 97", true},
        {"inet_pton_api", [&] { return inet_pton_api(AF_INET, nullptr, &v); },
         "inet_pton error for (null),errno 14", true},
    };
    for (const Case &c : cases) {
        std::string raw;
        int r;
        {
            StdoutCapture cap;
            r = c.call();
            raw = cap.text();
        }
        EXPECT_EQ(api_frame(c.func, c.msg), without_api_lines(raw)) << c.func;
        // A printed count is positive, like a success.
        int want = c.countIsResult ? static_cast<int>(raw.size()) : -1;
        EXPECT_EQ(want, r) << c.func;
    }
}

TEST(SocketApi, CloseNowaitResetsThePeer)
{
    REQUIRE_SANDBOX();
    sandbox::FdCheck fds;
    TcpPair p = tcp_pair();
    ASSERT_EQ(3, write(p.client.get(), "abc", 3));
    EXPECT_EQ(0, close_nowait_api(p.client.release()));
    char buf[8];
    bool reset = false;
    for (int i = 0; i < 3 && !reset; ++i) { // the bytes that made it may come first
        ssize_t n = recv(p.server.get(), buf, sizeof buf, 0);
        if (n == 0)
            break;
        reset = n < 0 && errno == ECONNRESET;
    }
    EXPECT_TRUE(reset);

    Printed bad = printed([] { return close_nowait_api(-1); });
    EXPECT_EQ(-1, bad.result);
    EXPECT_EQ(api_frame("close_nowait_api", "setsockopt error 9"), bad.out);
}

// ---- Exact reads and writes ------------------------------------------------------------------

TEST(SocketApi, ReadAndWriteFailuresArePrinted)
{
    REQUIRE_SANDBOX();
    TcpPair p = tcp_pair();
    ASSERT_EQ(2, write(p.client.get(), "xy", 2));
    Printed r = printed([&] { return readn_api(p.server.get(), nullptr, 4); });
    EXPECT_EQ(-1, r.result);
    EXPECT_EQ(api_frame("readn_api", "recv errno 14"), r.out);

    shutdown(p.client.get(), SHUT_WR);
    char x[] = "x";
    Printed w = printed([&] { return write_api(p.client.get(), x, 1); });
    EXPECT_EQ(-1, w.result);
    EXPECT_EQ(api_frame("write_api", "Send() error, 0x20\n"), w.out);

    char data[] = "hello";
    Printed ok = printed([&] { return writen_api(p.server.get(), data, 5); });
    EXPECT_EQ(5, ok.result);
    EXPECT_EQ("", ok.out);
    // The peer closed after five bytes: the count, silently.
    TcpPair q = tcp_pair();
    ASSERT_EQ(5, write(q.client.get(), data, 5));
    q.client.reset();
    char buf[16];
    Printed closed = printed([&] { return readn_api(q.server.get(), buf, 16); });
    EXPECT_EQ(5, closed.result);
    EXPECT_EQ("", closed.out);

    int pfd[2];
    ASSERT_EQ(0, pipe2(pfd, O_CLOEXEC));
    Fd rd(pfd[0]), wr(pfd[1]);
    Printed np = printed([&] { return writen_api(wr.get(), data, 5); });
    EXPECT_EQ(-1, np.result);
    EXPECT_EQ(api_frame("writen_api", "setsockopt error 88") +
                  api_frame("write_api", "Send() error, 0x58\n"),
              np.out);
    Printed bad = printed([&] { return writen_api(-1, data, 5); });
    EXPECT_EQ(-1, bad.result);
    EXPECT_EQ(api_frame("writen_api", "setsockopt error 9") +
                  api_frame("writen_api", "select failed 9\n"),
              bad.out);
}

// ---- Connect with a time value ----------------------------------------------------------------

TEST_F(SocketApiNet, ConnectWithTimeoutKeepsTheCallersTimeValue)
{
    sandbox::FdCheck fds;
    Fd s(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    struct sockaddr_in silent = ipv4("10.9.0.77", 80);
    struct timeval tv = {0, 200000};
    Stopwatch sw;
    Printed p = printed([&] { return connectwithtimeout_api(s.get(), sa(silent), 16, &tv); });
    EXPECT_EQ(-1, p.result);
    EXPECT_GE(sw.ms(), 190);
    EXPECT_LT(sw.ms(), 1000 + sandbox::kLateMs);
    EXPECT_EQ(0, tv.tv_sec);
    EXPECT_EQ(200000, tv.tv_usec);
    EXPECT_FALSE(is_nonblocking(s.get()));
    EXPECT_EQ("", p.out);

    Fd l = socket_in(peer_, AF_INET, SOCK_STREAM);
    struct sockaddr_in there = ipv4("10.9.0.2", 554);
    ASSERT_EQ(0, bind(l.get(), sa(there), sizeof there));
    ASSERT_EQ(0, listen(l.get(), 4));
    Fd c(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(0, connectwithtimeout_api(c.get(), sa(there), 16, nullptr)); // no limit
    EXPECT_FALSE(is_nonblocking(c.get()));

    Printed bad = printed([&] { return connectwithtimeout_api(-1, sa(there), 16, &tv); });
    EXPECT_EQ(-1, bad.result);
    EXPECT_EQ(api_frame("connectwithtimeout_api", "ioctl error 9") +
                  api_frame("connectwithtimeout_api", "ioctl error 9"),
              bad.out);
}

// ---- TCP endpoints ---------------------------------------------------------------------------

TEST(SocketApi, TcpSrvCom)
{
    REQUIRE_SANDBOX();
    sandbox::FdCheck fds;
    unsigned short port = free_port();
    Fd srv(tcp_srv_com(port));
    ASSERT_GT(srv.get(), 2);
    EXPECT_TRUE(fcntl(srv.get(), F_GETFD) & FD_CLOEXEC);
    Printed again = printed([&] { return tcp_srv_com(port); });
    EXPECT_EQ(-1, again.result); // and the refused socket is closed
    EXPECT_EQ(api_frame("bind_api", "bind error 98"), again.out);
}

TEST(SocketApi, TcpCliComAndItsEnhancedForm)
{
    REQUIRE_SANDBOX();
    sandbox::FdCheck fds;
    unsigned short port = 0;
    struct sockaddr_in any = ipv4("127.0.0.1", 0);
    Fd l = listener(sa(any), sizeof any, &port);
    int sock = -1;
    Printed p = printed([&] { return tcp_cli_com("127.0.0.1", &port, &sock, 1); });
    Fd s1(sock);
    EXPECT_EQ(0, p.result);
    EXPECT_EQ("", p.out);
    int cnt = 0;
    socklen_t len = sizeof cnt;
    getsockopt(s1.get(), IPPROTO_TCP, 6, &cnt, &len);
    EXPECT_EQ(2, cnt);

    std::string text = std::to_string(port);
    Printed e = printed([&] { return tcp_cli_com_enhance("127.0.0.1", text.c_str(), &sock, 1); });
    Fd s2(sock);
    EXPECT_EQ(0, e.result);
    EXPECT_EQ(api_frame("tcp_cli_com_enhance", "127.0.0.1 " + text) +
                  api_frame("tcp_cli_com_enhance", "connect ok"),
              e.out);

    EXPECT_EQ(-1, tcp_cli_com(nullptr, &port, &sock, 1));
    EXPECT_EQ(-1, tcp_cli_com("127.0.0.1", nullptr, &sock, 1));
    EXPECT_EQ(-1, tcp_cli_com("127.0.0.1", &port, nullptr, 1));
    EXPECT_EQ(-1, tcp_cli_com_enhance("127.0.0.1", nullptr, &sock, 1));
}

// Slow on purpose: two attempts with a 5 s pause after each.
TEST(SocketApi, TcpCliComRetryCountAgainstAClosedPort)
{
    REQUIRE_SANDBOX();
    sandbox::FdCheck fds;
    ClosedPort closed;
    unsigned short port = closed.port();
    int sock = -7;
    long before = tcp_active_opens();
    Stopwatch sw;
    Printed p = printed([&] { return tcp_cli_com("127.0.0.1", &port, &sock, 2); });
    EXPECT_EQ(-1, p.result);
    EXPECT_EQ(2, tcp_active_opens() - before);
    EXPECT_GE(sw.ms(), 9900);
    EXPECT_LT(sw.ms(), 12000 + sandbox::kLateMs);
    EXPECT_EQ(-7, sock);
    EXPECT_EQ("", p.out); // a refused connect is not printed
}

// ---- String cutters ----------------------------------------------------------------------------

TEST(SocketApi, DivString)
{
    struct Case {
        const char *text, *beg, *end;
        int size;
        int result;
        const char *piece; // expected output, when 0
        const char *msg;   // expected print, or null
    } cases[] = {
        {"key=value;", "=", ";", 16, 0, "value", nullptr},
        {"dir/file", "/", "", 1, 0, "file", nullptr}, // size not consulted
        {"a/b/c", "/", "", 0, 0, "c", nullptr},
        {"x::y::z", "::", "", 8, 0, ":z", nullptr}, // from one past the marker's start
        {"k=12345;", "=", ";", 5, 0, "12345", nullptr},
        {"k=12345;", "=", ";", 4, -2, nullptr, "size not big 5 4"},
        {"k=;", "=", ";", 0, 0, "", nullptr},
        {"k=1;", "=", ";", -1, -2, nullptr, "size not big 1 -1"},
        {"a;b=c", "=", ";", 16, -2, nullptr, "not find aft"},
        {"abc", "x", ";", 16, -2, nullptr, "not find beg"},
        {"abc", "x", "", 16, -2, nullptr, "not find beg"},
    };
    for (const Case &c : cases) {
        std::string text = c.text;
        // Exactly size + 1 bytes for the bounded case (the terminator may land at size).
        std::vector<char> out(c.size >= 0 && c.end[0] != '\0' ? c.size + 1 : 16, '#');
        Printed p =
            printed([&] { return kv_div_string(&text[0], c.beg, c.end, out.data(), c.size); });
        EXPECT_EQ(c.result, p.result) << c.text;
        if (c.piece != nullptr) {
            EXPECT_STREQ(c.piece, out.data()) << c.text;
        }
        EXPECT_EQ(c.msg ? api_frame("kv_div_string", c.msg) : "", p.out) << c.text;
    }
    char t[] = "a=b;", o[4];
    Printed nulls = printed([&] {
        return kv_div_string(nullptr, "=", ";", o, 3) + kv_div_string(t, nullptr, ";", o, 3) +
               kv_div_string(t, "=", nullptr, o, 3) + kv_div_string(t, "=", ";", nullptr, 3);
    });
    EXPECT_EQ(-4, nulls.result);
    EXPECT_EQ("", nulls.out);
}
