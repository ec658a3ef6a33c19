// ICMP ping: one echo request through a named interface, one reply read, its round trip.
#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/time.h>

#include "detect/frames.h"
#include "libnetwork.h"
#include "base/log.h"
#include "base/unique_fd.h"

namespace netlib
{

int net_SendIcmpPack(int iSockfd, const struct sockaddr_in *pstAddr)
{
    char buf[kIcmpBufLen] = {0};
    int size = 0;
    if (net_PackIcmpPkt(1, buf, &size) != 0) {
        NET_LOG(NET_LVL_ERR, "fail to pack icmp package.\n");
        return -1;
    }
    if (sendto(iSockfd, buf, static_cast<size_t>(size), 0,
               reinterpret_cast<const struct sockaddr *>(pstAddr), sizeof *pstAddr) < 0) {
        NET_LOG(NET_LVL_ERR, "Fail to sendto.\n");
        return -1;
    }
    return 0;
}

int net_RecvIcmpPkt(int iSockfd, IcmpTime *pstTimeInterv)
{
    char buf[kIcmpBufLen] = {0};
    struct sockaddr_in from;
    socklen_t fromLen = sizeof from;
    // One datagram, whatever it is; the socket's 2 s receive time-out bounds the wait.
    ssize_t got =
        recvfrom(iSockfd, buf, sizeof buf, 0, reinterpret_cast<struct sockaddr *>(&from), &fromLen);
    if (got < 0) {
        NET_LOG(NET_LVL_ERR, "Fail to recvfrom.\n");
        return -1;
    }
    struct timeval now;
    if (gettimeofday(&now, nullptr) != 0) {
        NET_LOG(NET_LVL_ERR, "Fail to gettimeofday.\n");
        return -1;
    }
    IcmpTime sent;
    if (net_UnPackIcmp(buf, static_cast<int>(got), &sent) != 0)
        return -1;
    IcmpTime arrived = {static_cast<int32_t>(now.tv_sec), static_cast<int32_t>(now.tv_usec)};
    *pstTimeInterv = icmp_interval(arrived, sent);
    return 0;
}

} // namespace netlib

using namespace netlib;

namespace
{

// The raw socket bound to the interface with both 2 s time-outs; logs and gives an invalid
// descriptor on failure.
UniqueFd open_icmp(const CallSite &site, const char *ifname, int proto)
{
    UniqueFd fd(socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, proto));
    if (!fd.valid()) {
        NET_LOGT_AT(site, NET_LVL_ERR, PL_OPEN_SOCKET_ERROR_PRINT, "iSockfd: %d\n", fd.get());
        return fd;
    }
    char dev[32] = {0};
    strncpy(dev, ifname, 15);
    if (setsockopt(fd.get(), SOL_SOCKET, SO_BINDTODEVICE, dev, sizeof dev) != 0) {
        fd.reset();
        NET_LOG_AT(site, NET_LVL_ERR, "bind network card fail.\n");
        return fd;
    }
    struct timeval limit = {2, 0};
    if (setsockopt(fd.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) != 0) {
        fd.reset();
        NET_LOG_AT(site, NET_LVL_ERR, "setsockopt SO_RCVTIMEO fail.\n");
        return fd;
    }
    if (setsockopt(fd.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit) != 0) {
        fd.reset();
        NET_LOG_AT(site, NET_LVL_ERR, "setsockopt SO_SNDTIMEO fail.\n");
    }
    return fd;
}

} // namespace

extern "C" int NET_Ping(const char *pcIfName, const char *pcHost, double *pdTime)
{
    NET_CHECK_ARGS(-1, "pcIfName :%p, pcHost: %p, pdTime: %p. \n", pcIfName, pcHost, pdTime);
    struct protoent *proto = getprotobyname("icmp");
    if (proto == nullptr) {
        NET_LOG(NET_LVL_ERR, "Fail to getprotobyname.\n");
        return -1;
    }
    UniqueFd fd = open_icmp(NET_HERE, pcIfName, proto->p_proto);
    if (!fd.valid())
        return -1;
    struct sockaddr_in to;
    memset(&to, 0, sizeof to);
    to.sin_family = AF_INET;
    to.sin_port = 0;
    // inet_addr's failure value is also 255.255.255.255: refused as well, deliberately.
    to.sin_addr.s_addr = inet_addr(pcHost);
    if (to.sin_addr.s_addr == INADDR_NONE) {
        fd.reset();
        NET_LOG(NET_LVL_ERR, "ip address error.\n");
        return -1;
    }
    if (net_SendIcmpPack(fd.get(), &to) != 0) {
        fd.reset();
        NET_LOG(NET_LVL_ERR, "send pack fail.\n");
        return -1;
    }
    IcmpTime interval;
    if (net_RecvIcmpPkt(fd.get(), &interval) != 0) {
        fd.reset();
        NET_LOG(NET_LVL_ERR, "recv pack fail.\n");
        return -1;
    }
    fd.reset();
    // 32-bit arithmetic, as the interval is carried; wraps rather than overflows.
    uint32_t usec =
        static_cast<uint32_t>(interval.iSec) * 1000000u + static_cast<uint32_t>(interval.iUsec);
    *pdTime = static_cast<double>(static_cast<int32_t>(usec));
    return 0;
}
