// The utility family's address functions and thin wrappers. They repeat members of the
// Socket_ family with their own differences: -1 for every failure, no logging, and IPv6
// served through the _with_af converters.
#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <string.h>
#include <sys/socket.h>

#include "libnetwork.h"
#include "socket/common.h"

extern "C" char *inet_ntoa_b(uint32_t uiAddr, char *pcBuf)
{
    if (pcBuf == nullptr)
        return nullptr;
    struct in_addr in;
    in.s_addr = uiAddr;
    strcpy(pcBuf, inet_ntoa(in));
    return pcBuf;
}

extern "C" char *socketaddr_tostr(const struct sockaddr *pstAddr)
{
    // Shared by every caller and only 32 bytes: a long IPv6 text does not fit and gives null.
    static char s_szIpv6Text[32];
    if (pstAddr == nullptr)
        return nullptr;
    if (pstAddr->sa_family == AF_INET)
        return inet_ntoa(reinterpret_cast<const struct sockaddr_in *>(pstAddr)->sin_addr);
    if (pstAddr->sa_family == AF_INET6 && is_support_ipv6() != 0) {
        memset(s_szIpv6Text, 0, sizeof s_szIpv6Text);
        return inet_ntop_with_af(AF_INET6,
                                 &reinterpret_cast<const struct sockaddr_in6 *>(pstAddr)->sin6_addr,
                                 s_szIpv6Text, sizeof s_szIpv6Text);
    }
    return nullptr;
}

extern "C" int make_addr_bystring(int iFamily, const char *pcAddr, unsigned short usPort,
                                  struct sockaddr *pstAddr)
{
    if (pstAddr == nullptr)
        return -1;
    auto *in4 = reinterpret_cast<struct sockaddr_in *>(pstAddr);
    auto *in6 = reinterpret_cast<struct sockaddr_in6 *>(pstAddr);
    if (iFamily == AF_INET) {
        // As in Make_AddrbyString, 255.255.255.255 is inet_addr's failure value and refused.
        in4->sin_addr.s_addr = pcAddr != nullptr ? inet_addr(pcAddr) : htonl(INADDR_ANY);
        if (in4->sin_addr.s_addr == INADDR_NONE)
            return -1;
        in4->sin_family = AF_INET;
        in4->sin_port = htons(usPort);
        return 0;
    }
    if (iFamily == AF_INET6) {
        if (pcAddr == nullptr) {
            memset(&in6->sin6_addr, 0, sizeof in6->sin6_addr);
        } else if (is_support_ipv6() == 0 || inet_pton_with_af(AF_INET6, pcAddr, &in6->sin6_addr,
                                                               sizeof in6->sin6_addr) != 0) {
            return -1;
        }
        in6->sin6_family = AF_INET6;
        in6->sin6_port = htons(usPort);
        return 0;
    }
    return -1;
}

extern "C" int socket_sendto(int iSock, const void *pBuf, int iLen, const struct sockaddr *pstAddr)
{
    return Socket_SendTo(iSock, pBuf, iLen, pstAddr);
}

extern "C" int socket_recvfrom(int iSock, void *pBuf, int iLen, struct sockaddr *pstAddr)
{
    if (iSock < 0 || pBuf == nullptr || pstAddr == nullptr || iLen <= 0)
        return -1;
    socklen_t len = netlib::kSockaddrStorageLen;
    return static_cast<int>(recvfrom(iSock, pBuf, static_cast<size_t>(iLen), 0, pstAddr, &len));
}

extern "C" int get_ipport(void)
{
    return 554;
}

// Deliberately AF_INET6 while Get_SocketFamily gives AF_INET: the two families differ.
extern "C" int get_socket_family(void)
{
    return is_support_ipv6() != 0 ? AF_INET6 : AF_INET;
}

extern "C" int socket_create(int iFamily, int iType, int iProtocol)
{
    return socket(iFamily, iType, iProtocol);
}

extern "C" int socket_bind(int iSock, const struct sockaddr *pstAddr)
{
    if (pstAddr == nullptr)
        return -1;
    if (pstAddr->sa_family == AF_INET)
        return bind(iSock, pstAddr, sizeof(struct sockaddr_in));
    if (pstAddr->sa_family == AF_INET6)
        return bind(iSock, pstAddr, sizeof(struct sockaddr_in6));
    return -1;
}

extern "C" int socket_listen(int iSock, int iBacklog)
{
    return listen(iSock, iBacklog) == 0 ? 0 : -1;
}

extern "C" int socket_reuse(int iSock)
{
    return Socket_Reuse(iSock);
}

extern "C" int set_socket_mcast_ttl(int iSock, int iTtl)
{
    return Socket_SetMcastTtl(iSock, iTtl);
}

extern "C" int set_socket_linger(int iSock, int iOnOff, int iSeconds)
{
    return Socket_SetLinger(iSock, iOnOff, iSeconds);
}

extern "C" int set_socket_keeplive(int iSock, int iOnOff, int iIdle, int iInterval, int iCount)
{
    // The same four options in the same order as Socket_SetKeepLive, silently; only the last
    // result is returned.
    setsockopt(iSock, SOL_SOCKET, SO_KEEPALIVE, &iOnOff, sizeof iOnOff);
    setsockopt(iSock, IPPROTO_TCP, TCP_KEEPIDLE, &iIdle, sizeof iIdle);
    setsockopt(iSock, IPPROTO_TCP, TCP_KEEPINTVL, &iInterval, sizeof iInterval);
    return setsockopt(iSock, IPPROTO_TCP, TCP_KEEPCNT, &iCount, sizeof iCount);
}
