// The Socket_ family's thin wrappers: socket options, create, bind, listen, datagrams and
// close, each with its own result and debug line.
#include <errno.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <stdio.h>
#include <sys/socket.h>
#include <unistd.h>

#include "libnetwork.h"
#include "base/log.h"
#include "socket/common.h"

extern "C" int Socket_GetSockOpt(int iSock, int iLevel, int iOpt, void *pVal, unsigned int *puiLen)
{
    if (getsockopt(iSock, iLevel, iOpt, pVal, puiLen) != 0) {
        NET_LOG(NET_LVL_DEBUG, "getsockopt errno %d", errno);
        return 1;
    }
    return 0;
}

extern "C" int Socket_SetSockOpt(int iSock, int iLevel, int iOpt, const void *pVal,
                                 unsigned int uiLen)
{
    if (setsockopt(iSock, iLevel, iOpt, pVal, uiLen) != 0) {
        NET_LOG(NET_LVL_DEBUG, "setsockopt error %d", errno);
        return 1;
    }
    return 0;
}

extern "C" int Socket_GetSockName(int iSock, struct sockaddr *pstAddr, unsigned int *puiLen)
{
    if (getsockname(iSock, pstAddr, puiLen) != 0) {
        NET_LOG(NET_LVL_ERR, "getsockname error");
        return 1;
    }
    return 0;
}

extern "C" int Socket_Reuse(int iSock)
{
    int on = 1;
    return setsockopt(iSock, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
}

extern "C" int Socket_SetMcastTtl(int iSock, int iTtl)
{
    return setsockopt(iSock, IPPROTO_IP, IP_MULTICAST_TTL, &iTtl, sizeof iTtl);
}

extern "C" int Socket_SetLinger(int iSock, int iOnOff, int iSeconds)
{
    struct linger lg = {iOnOff, iSeconds};
    return setsockopt(iSock, SOL_SOCKET, SO_LINGER, &lg, sizeof lg);
}

extern "C" void Socket_SetKeepLive(int iSock, int iOnOff, int iIdle, int iInterval, int iCount)
{
    // Reported with puts, not the log; the last text names TCP_KEEPINTVL although it is the
    // probe count: callers that read standard output match these texts.
    if (setsockopt(iSock, SOL_SOCKET, SO_KEEPALIVE, &iOnOff, sizeof iOnOff) != 0)
        puts("set_socket_keeplive: SO_KEEPALIVE, setsockopt ERROR :");
    if (setsockopt(iSock, IPPROTO_TCP, TCP_KEEPIDLE, &iIdle, sizeof iIdle) != 0)
        puts("set_socket_keeplive: TCP_KEEPIDLE setsockopt ERROR :");
    if (setsockopt(iSock, IPPROTO_TCP, TCP_KEEPINTVL, &iInterval, sizeof iInterval) != 0)
        puts("set_socket_keeplive: TCP_KEEPINTVL, setsockopt ERROR :");
    if (setsockopt(iSock, IPPROTO_TCP, TCP_KEEPCNT, &iCount, sizeof iCount) != 0)
        puts("set_socket_keeplive: TCP_KEEPINTVL,setsockopt ERROR :");
}

extern "C" int Socket_Create(int iFamily, int iType, int iProtocol)
{
    int fd = socket(iFamily, iType, iProtocol);
    if (fd < 0)
        NET_LOG(NET_LVL_DEBUG, "socket_create failed:errno %d\n", errno);
    return fd;
}

extern "C" int Socket_Bind(int iSock, const struct sockaddr *pstAddr)
{
    if (pstAddr == nullptr || (pstAddr->sa_family != AF_INET && pstAddr->sa_family != AF_INET6))
        return 1;
    // 28 bytes for both families: the kernel takes the IPv4 part of the longer length.
    return bind(iSock, pstAddr, netlib::kSockaddrStorageLen);
}

extern "C" int Socket_Listen(int iSock, int iBacklog)
{
    int r = listen(iSock, iBacklog);
    if (r != 0)
        NET_LOG(NET_LVL_DEBUG, "socket_listen failed: errno %d\n", errno);
    return r;
}

extern "C" int Socket_SendTo(int iSock, const void *pBuf, int iLen, const struct sockaddr *pstAddr)
{
    // No argument tests; a null address simply names no destination (connected sockets).
    // A negative length would reach the kernel as a huge one and send past the buffer.
    if (iLen < 0) {
        errno = EINVAL;
        return -1;
    }
    socklen_t len = pstAddr != nullptr ? netlib::sockaddr_len(pstAddr) : 0;
    return static_cast<int>(sendto(iSock, pBuf, static_cast<size_t>(iLen), 0, pstAddr, len));
}

extern "C" int Socket_RecvFrom(int iSock, void *pBuf, int iLen, struct sockaddr *pstAddr)
{
    if (iSock < 0 || pBuf == nullptr || pstAddr == nullptr || iLen <= 0) {
        NET_LOG(NET_LVL_DEBUG, "socket_recvfrom param failed\n");
        return -1;
    }
    socklen_t len = netlib::kSockaddrStorageLen;
    return static_cast<int>(recvfrom(iSock, pBuf, static_cast<size_t>(iLen), 0, pstAddr, &len));
}

extern "C" int Socket_Close(int iSock)
{
    if (close(iSock) != 0) {
        NET_LOG(NET_LVL_ERR, "close error %d", errno);
        return 1;
    }
    return 0;
}
