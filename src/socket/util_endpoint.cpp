// The utility family's endpoints by host name: connect with a time-out, bound TCP and UDP
// sockets, and the peer's address.
#include <errno.h>
#include <netdb.h>
#include <netinet/in.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include "libnetwork.h"
#include "socket/common.h"
#include "base/unique_fd.h"

namespace
{

// getaddrinfo's list, freed on every path.
class AddrList
{
  public:
    // A null host resolves to nothing (getaddrinfo would give the loopback addresses).
    AddrList(const char *host, unsigned short port, int socktype)
    {
        if (host == nullptr)
            return;
        char service[16];
        snprintf(service, sizeof service, "%u", static_cast<unsigned>(port));
        struct addrinfo hints;
        memset(&hints, 0, sizeof hints);
        hints.ai_family = AF_UNSPEC;
        hints.ai_socktype = socktype;
        if (getaddrinfo(host, service, &hints, &list_) != 0)
            list_ = nullptr;
    }
    ~AddrList()
    {
        if (list_ != nullptr)
            freeaddrinfo(list_);
    }
    AddrList(const AddrList &) = delete;
    AddrList &operator=(const AddrList &) = delete;

    const struct addrinfo *first() const { return list_; }

  private:
    struct addrinfo *list_ = nullptr;
};

netlib::UniqueFd open_for(const struct addrinfo *ai)
{
    return netlib::UniqueFd(socket(ai->ai_family, ai->ai_socktype, ai->ai_protocol));
}

// Non-blocking connect within the time-out; the socket stays non-blocking either way.
bool connect_nonblocking(int fd, const struct addrinfo *ai, int timeoutMs)
{
    netlib::set_nonblocking(fd, 1); // a failure shows as a blocking connect
    if (connect(fd, ai->ai_addr, ai->ai_addrlen) == 0)
        return true;
    if (errno != EINPROGRESS)
        return false;
    struct timeval tv = netlib::ms_timeval(timeoutMs);
    bool ready = false;
    return netlib::select_one(fd, netlib::Wait::Write, &tv, &ready) > 0 && ready &&
           netlib::pending_error(fd) == 0;
}

// The local family of the bound endpoints; 0 (every bind then fails) for anything else.
int local_family(const char *pcLocalAddr)
{
    unsigned char scratch[16];
    if (is_string_ipaddr_ipv4(pcLocalAddr, nullptr) != 0)
        return AF_INET;
    if (pcLocalAddr != nullptr && is_string_ipaddr_ipv6(pcLocalAddr, scratch) != 0)
        return AF_INET6;
    return 0;
}

bool bind_local(int fd, int family, const char *pcLocalAddr, unsigned short usLocalPort)
{
    struct sockaddr_in6 local; // 28 bytes, zeroed
    memset(&local, 0, sizeof local);
    auto *sa = reinterpret_cast<struct sockaddr *>(&local);
    make_addr_bystring(family, pcLocalAddr, usLocalPort, sa); // a failure leaves family 0
    return socket_bind(fd, sa) == 0;
}

// Up to three connects of 5 s, a second apart, each failure reported on standard output.
bool connect_with_retries(int fd, const struct addrinfo *ai, const char *pcHost,
                          unsigned short usPort)
{
    for (int attempt = 1; attempt <= 3; ++attempt) {
        struct timeval tv = {5, 0};
        if (connectwithtimeout_api(fd, ai->ai_addr, static_cast<int>(ai->ai_addrlen), &tv) == 0)
            return true;
        printf("%s,%d[%d  %s:%d  %d]!!!!!!!!!!!!!\n", "tcp_bind_connect", __LINE__, fd, pcHost,
               usPort, attempt);
        sleep(1);
    }
    return false;
}

} // namespace

extern "C" int ip_connect_withtimeout(const char *pcHost, unsigned short usPort, int iTimeoutMs)
{
    AddrList list(pcHost, usPort, SOCK_STREAM);
    for (const struct addrinfo *ai = list.first(); ai != nullptr; ai = ai->ai_next) {
        netlib::UniqueFd fd = open_for(ai);
        if (!fd.valid())
            continue;
        if (iTimeoutMs == -1) {
            // Blocking: only the first socket that opens is tried, deliberately.
            if (connect(fd.get(), ai->ai_addr, ai->ai_addrlen) == 0)
                return fd.release();
            return -1;
        }
        if (connect_nonblocking(fd.get(), ai, iTimeoutMs))
            return fd.release(); // left non-blocking, deliberately
    }
    return -1;
}

extern "C" int tcp_bind_connect(const char *pcHost, unsigned short usPort, const char *pcLocalAddr,
                                unsigned short usLocalPort, char cListen)
{
    AddrList list(pcHost, usPort, SOCK_STREAM);
    if (list.first() == nullptr)
        return -1;
    int family = local_family(pcLocalAddr);
    for (const struct addrinfo *ai = list.first(); ai != nullptr; ai = ai->ai_next) {
        netlib::UniqueFd fd = open_for(ai);
        if (!fd.valid() || !bind_local(fd.get(), family, pcLocalAddr, usLocalPort))
            continue;
        if (cListen == 0) {
            set_socket_keeplive(fd.get(), 1, 10, 4, 2);
            if (connect_with_retries(fd.get(), ai, pcHost, usPort))
                return fd.release();
        } else if (listen(fd.get(), 20) == 0) {
            return fd.release();
        }
    }
    return -1;
}

extern "C" int udp_bind_connect(const char *pcHost, unsigned short usPort, const char *pcLocalAddr,
                                unsigned short usLocalPort)
{
    AddrList list(pcHost, usPort, SOCK_DGRAM);
    if (list.first() == nullptr)
        return -1;
    int family = local_family(pcLocalAddr);
    for (const struct addrinfo *ai = list.first(); ai != nullptr; ai = ai->ai_next) {
        netlib::UniqueFd fd = open_for(ai);
        if (!fd.valid() || !bind_local(fd.get(), family, pcLocalAddr, usLocalPort))
            continue;
        if (connect(fd.get(), ai->ai_addr, ai->ai_addrlen) == 0)
            return fd.release();
    }
    return -1;
}

extern "C" int get_peer_addr(int iSock, NetPeerAddr *pstPeer)
{
    if (pstPeer != nullptr)
        memset(pstPeer, 0, sizeof *pstPeer);
    if (iSock < 1 || pstPeer == nullptr)
        return -1;
    struct sockaddr_storage peer;
    socklen_t len = sizeof peer;
    if (getpeername(iSock, reinterpret_cast<struct sockaddr *>(&peer), &len) != 0)
        return -1;
    if (peer.ss_family == AF_INET) {
        const auto *in4 = reinterpret_cast<const struct sockaddr_in *>(&peer);
        memcpy(&pstPeer->uiIpv4Addr, &in4->sin_addr, 4);
    } else if (peer.ss_family == AF_INET6) {
        const auto *a = reinterpret_cast<const struct sockaddr_in6 *>(&peer)->sin6_addr.s6_addr;
        static const unsigned char kMappedPrefix[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};
        if (memcmp(a, kMappedPrefix, sizeof kMappedPrefix) == 0)
            memcpy(&pstPeer->uiIpv4Addr, a + 12, 4);
        else
            memcpy(pstPeer->aucIpv6Addr, a, 16);
    }
    return 0;
}
