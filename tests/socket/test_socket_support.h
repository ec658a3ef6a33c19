// What the socket family suites share: descriptors that close themselves, loopback and
// neighbour endpoints, standard-output capture, TCP counters and a stopwatch.
#pragma once

#include <arpa/inet.h>
#include <ctype.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sched.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

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
    int release()
    {
        int fd = fd_;
        fd_ = -1;
        return fd;
    }
    void reset(int fd = -1)
    {
        if (fd_ >= 0)
            close(fd_);
        fd_ = fd;
    }

  private:
    int fd_;
};

inline struct sockaddr_in ipv4(const char *text, unsigned short port)
{
    struct sockaddr_in a;
    memset(&a, 0, sizeof a);
    a.sin_family = AF_INET;
    a.sin_port = htons(port);
    inet_pton(AF_INET, text, &a.sin_addr);
    return a;
}

inline struct sockaddr_in6 ipv6(const char *text, unsigned short port)
{
    struct sockaddr_in6 a;
    memset(&a, 0, sizeof a);
    a.sin6_family = AF_INET6;
    a.sin6_port = htons(port);
    inet_pton(AF_INET6, text, &a.sin6_addr);
    return a;
}

template <class T> const struct sockaddr *sa(const T &a)
{
    return reinterpret_cast<const struct sockaddr *>(&a);
}
template <class T> struct sockaddr *sa(T &a)
{
    return reinterpret_cast<struct sockaddr *>(&a);
}

// A listening TCP socket on addr (port 0: any); *port gets the port.
inline Fd listener(const struct sockaddr *addr, socklen_t len, unsigned short *port)
{
    Fd fd(socket(addr->sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
    int on = 1;
    setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    EXPECT_EQ(0, bind(fd.get(), addr, len)) << strerror(errno);
    EXPECT_EQ(0, listen(fd.get(), 8)) << strerror(errno);
    struct sockaddr_in6 bound;
    socklen_t blen = sizeof bound;
    getsockname(fd.get(), sa(bound), &blen);
    *port = ntohs(bound.sin6_port); // same offset in both families
    return fd;
}

// A port on 127.0.0.1 that nobody listens on (bound, never listening, so it stays free).
class ClosedPort
{
  public:
    ClosedPort()
    {
        struct sockaddr_in a = ipv4("127.0.0.1", 0);
        holder_.reset(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        bind(holder_.get(), sa(a), sizeof a);
        socklen_t len = sizeof a;
        getsockname(holder_.get(), sa(a), &len);
        port_ = ntohs(a.sin_port);
    }
    unsigned short port() const { return port_; }

  private:
    Fd holder_;
    unsigned short port_ = 0;
};

// A port number free on 127.0.0.1 right now.
inline unsigned short free_port()
{
    return ClosedPort().port();
}

// A connected TCP pair over loopback: client and the accepted server side.
struct TcpPair {
    Fd client;
    Fd server;
};

inline TcpPair tcp_pair()
{
    unsigned short port = 0;
    struct sockaddr_in any = ipv4("127.0.0.1", 0);
    Fd l = listener(sa(any), sizeof any, &port);
    struct sockaddr_in to = ipv4("127.0.0.1", port);
    TcpPair p;
    p.client.reset(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(0, connect(p.client.get(), sa(to), sizeof to));
    p.server.reset(accept4(l.get(), nullptr, nullptr, SOCK_CLOEXEC));
    return p;
}

// A socket that lives in the neighbour's network namespace (made by a thread that enters it;
// the socket keeps that namespace for good).
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

// Standard output of this process while it lives (the C library's buffer included).
class StdoutCapture
{
  public:
    StdoutCapture()
    {
        fflush(stdout);
        saved_ = dup(STDOUT_FILENO);
        FILE *tmp = tmpfile();
        file_ = tmp;
        dup2(fileno(tmp), STDOUT_FILENO);
    }
    ~StdoutCapture() { stop(); }
    StdoutCapture(const StdoutCapture &) = delete;
    StdoutCapture &operator=(const StdoutCapture &) = delete;

    // Everything printed so far; stops the capture.
    std::string text()
    {
        stop();
        return text_;
    }

  private:
    void stop()
    {
        if (saved_ < 0)
            return;
        fflush(stdout);
        dup2(saved_, STDOUT_FILENO);
        close(saved_);
        saved_ = -1;
        rewind(file_);
        char buf[4096];
        size_t n;
        while ((n = fread(buf, 1, sizeof buf, file_)) > 0)
            text_.append(buf, n);
        fclose(file_);
    }
    int saved_ = -1;
    FILE *file_ = nullptr;
    std::string text_;
};

// The _api family's framed diagnostic, as printed, with the line number left blank.
inline std::string api_frame(const std::string &func, const std::string &msg)
{
    return "\n\n=======src/socketapi.cpp: " + func + ":line::===========\n" + msg +
           std::string(44, '*') + "\n\n";
}

// The printed text with every ":line:<digits>:" blanked to ":line::".
inline std::string without_api_lines(const std::string &text)
{
    static const std::string kMark = ":line:";
    std::string out;
    size_t from = 0;
    for (size_t at; (at = text.find(kMark, from)) != std::string::npos;) {
        size_t end = at + kMark.size();
        while (end < text.size() && isdigit(static_cast<unsigned char>(text[end])))
            ++end;
        out.append(text, from, at + kMark.size() - from);
        from = end;
    }
    return out + text.substr(from);
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

} // namespace socktest
