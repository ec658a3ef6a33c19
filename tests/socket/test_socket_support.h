// What the socket suite shares: descriptors that close themselves, loopback and neighbour
// endpoints, standard-output capture, the TCP attempt counter and a stopwatch.
#pragma once

#include <arpa/inet.h>
#include <ctype.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sched.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <utility>

#include "sandbox.h"

namespace socktest
{

// A descriptor owned by a test.
class Fd
{
  public:
    explicit Fd(int fd = -1) : fd_(fd) {}
    ~Fd() { reset(); }
    Fd(Fd &&o) noexcept : fd_(o.release()) {}
    Fd &operator=(Fd &&o) noexcept
    {
        reset(o.release());
        return *this;
    }
    int get() const { return fd_; }
    int release() { return std::exchange(fd_, -1); }
    void reset(int fd = -1)
    {
        if (fd_ >= 0)
            close(fd_);
        fd_ = fd;
    }

  private:
    int fd_;
};

// Either family in one storage, from text ("10.0.0.1" or "::1") and port.
inline struct sockaddr_in6 addr(const char *text, unsigned short port)
{
    struct sockaddr_in6 a;
    memset(&a, 0, sizeof a);
    if (strchr(text, ':') == nullptr) {
        auto *v4 = reinterpret_cast<struct sockaddr_in *>(&a);
        v4->sin_family = AF_INET;
        v4->sin_port = htons(port);
        inet_pton(AF_INET, text, &v4->sin_addr);
    } else {
        a.sin6_family = AF_INET6;
        a.sin6_port = htons(port);
        inet_pton(AF_INET6, text, &a.sin6_addr);
    }
    return a;
}

template <class T> struct sockaddr *sa(T &a)
{
    return reinterpret_cast<struct sockaddr *>(&a);
}
inline socklen_t len_of(const struct sockaddr_in6 &a)
{
    return a.sin6_family == AF_INET ? sizeof(sockaddr_in) : sizeof a;
}
inline unsigned short port_of(int fd)
{
    struct sockaddr_in6 a;
    socklen_t len = sizeof a;
    getsockname(fd, sa(a), &len);
    return ntohs(a.sin6_port); // same offset in both families
}

// A listening TCP socket at text (port 0: any).
inline Fd listener(const char *text, unsigned short port = 0)
{
    struct sockaddr_in6 a = addr(text, port);
    Fd fd(socket(a.sin6_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
    int on = 1;
    setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    EXPECT_EQ(0, bind(fd.get(), sa(a), len_of(a))) << text << ": " << strerror(errno);
    EXPECT_EQ(0, listen(fd.get(), 8)) << strerror(errno);
    return fd;
}

// A port on 127.0.0.1 that nobody listens on (bound, never listening, so it stays free).
class ClosedPort
{
  public:
    ClosedPort() : holder_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        struct sockaddr_in6 a = addr("127.0.0.1", 0);
        bind(holder_.get(), sa(a), len_of(a));
        port_ = port_of(holder_.get());
    }
    unsigned short port() const { return port_; }

  private:
    Fd holder_;
    unsigned short port_ = 0;
};

// A connected TCP pair: client and the accepted server side. With a peer, the client
// lives in the neighbour's namespace and connects to here.
struct TcpPair {
    Fd client;
    Fd server;
};

// A socket in the neighbour's network namespace (made by a thread that enters it; the socket
// keeps that namespace for good).
inline Fd socket_in(const sandbox::Peer &peer, int domain, int type)
{
    int fd = -1;
    std::thread t([&] {
        std::string ns = "/proc/" + std::to_string(peer.pid()) + "/ns/net";
        int nsfd = open(ns.c_str(), O_RDONLY | O_CLOEXEC);
        if (nsfd >= 0 && setns(nsfd, CLONE_NEWNET) == 0)
            fd = socket(domain, type | SOCK_CLOEXEC, 0);
        if (nsfd >= 0)
            close(nsfd);
    });
    t.join();
    return Fd(fd);
}

inline TcpPair tcp_pair(const char *here = "127.0.0.1", const sandbox::Peer *peer = nullptr)
{
    Fd l = listener(here);
    struct sockaddr_in6 to = addr(here, port_of(l.get()));
    TcpPair p;
    p.client = peer ? socket_in(*peer, to.sin6_family, SOCK_STREAM)
                    : Fd(socket(to.sin6_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(0, connect(p.client.get(), sa(to), len_of(to))) << strerror(errno);
    p.server.reset(accept4(l.get(), nullptr, nullptr, SOCK_CLOEXEC));
    return p;
}

// A neighbour's socket listening at text.
inline Fd neighbour_listener(const sandbox::Peer &peer, const char *text, unsigned short port)
{
    struct sockaddr_in6 a = addr(text, port);
    Fd l = socket_in(peer, a.sin6_family, SOCK_STREAM);
    EXPECT_EQ(0, bind(l.get(), sa(a), len_of(a))) << strerror(errno);
    EXPECT_EQ(0, listen(l.get(), 16));
    return l;
}

// A veth link to a neighbour: "eth0" here (10.9.0.1/24, 2001:db8:9::1/64) and "peer0" there
// (10.9.0.2/24, 2001:db8:9::2/64). 10.9.0.77 is on the link but nobody answers for it.
class NeighbourLink : public ::testing::Test
{
  protected:
    void SetUp() override
    {
        REQUIRE_SANDBOX();
        sandbox::veth("eth0", "peer0", &peer_);
        sandbox::addr_add("eth0", "10.9.0.1/24");
        sandbox::addr_add("eth0", "2001:db8:9::1/64");
        peer_.must("ip addr add 10.9.0.2/24 dev peer0 && "
                   "ip addr add 2001:db8:9::2/64 dev peer0 nodad");
    }
    sandbox::Peer peer_;
};

// Standard output of this process while it lives (the C library's buffer included), with
// every ":line:<digits>:" of the _api family's frames blanked to ":line::".
class StdoutCapture
{
  public:
    StdoutCapture() : saved_(dup(STDOUT_FILENO)), file_(tmpfile())
    {
        fflush(stdout);
        dup2(fileno(file_), STDOUT_FILENO);
    }
    ~StdoutCapture() { text(); }
    StdoutCapture(const StdoutCapture &) = delete;
    StdoutCapture &operator=(const StdoutCapture &) = delete;

    // Everything printed so far, as printed; stops the capture.
    const std::string &raw()
    {
        if (saved_ >= 0) {
            fflush(stdout);
            dup2(saved_, STDOUT_FILENO);
            close(saved_);
            saved_ = -1;
            rewind(file_);
            char buf[4096];
            for (size_t n; (n = fread(buf, 1, sizeof buf, file_)) > 0;)
                raw_.append(buf, n);
            fclose(file_);
        }
        return raw_;
    }
    std::string text()
    {
        const std::string &t = raw();
        std::string out;
        size_t from = 0;
        for (size_t at; (at = t.find(":line:", from)) != std::string::npos;) {
            out.append(t, from, at + 6 - from);
            for (from = at + 6; from < t.size() && isdigit(static_cast<unsigned char>(t[from]));)
                ++from;
        }
        return out + t.substr(from);
    }

  private:
    int saved_;
    FILE *file_;
    std::string raw_;
};

// The _api family's framed diagnostic, as printed, with the line number left blank.
inline std::string api_frame(const std::string &func, const std::string &msg)
{
    return "\n\n=======src/socketapi.cpp: " + func + ":line::===========\n" + msg +
           std::string(44, '*') + "\n\n";
}

// The namespace's count of TCP connection attempts (SYNs sent by connect).
inline long tcp_active_opens()
{
    std::ifstream in("/proc/net/snmp");
    std::string header, values;
    while (std::getline(in, header) && std::getline(in, values)) {
        if (header.rfind("Tcp:", 0) != 0)
            continue;
        std::istringstream h(header), v(values);
        std::string name, value;
        while (h >> name && v >> value)
            if (name == "ActiveOpens")
                return std::stol(value);
    }
    return -1;
}

class Stopwatch
{
  public:
    double ms() const
    {
        return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start_)
            .count();
    }

  private:
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

inline bool is_nonblocking(int fd)
{
    return (fcntl(fd, F_GETFL) & O_NONBLOCK) != 0;
}

inline int sockopt(int fd, int level, int name)
{
    int v = -1;
    socklen_t len = sizeof v;
    getsockopt(fd, level, name, &v, &len);
    return v;
}

} // namespace socktest
