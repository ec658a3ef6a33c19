// The utility family's data path and waits: reads and writes with time-outs, chunked
// sending, and connect and accept with a time-out. Nothing here logs.
#include <errno.h>
#include <sys/socket.h>

#include "libnetwork.h"
#include "socket/common.h"

using netlib::select_one;
using netlib::Wait;

extern "C" int readn(int iSock, void *pBuf, int iLen)
{
    if (iSock < 1 || pBuf == nullptr || iLen < 1)
        return -1;
    char *p = static_cast<char *>(pBuf);
    int left = iLen;
    while (left > 0) {
        struct timeval tv = {10, 0};
        bool ready = false;
        int r = select_one(iSock, Wait::Read, &tv, &ready);
        if (r < 0)
            return -1;
        if (r == 0)
            break; // a quiet peer ends the read; what came so far is the answer
        ssize_t n = recv(iSock, p, static_cast<size_t>(left), 0);
        if (n == 0)
            break;
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return -1;
        }
        p += n;
        left -= static_cast<int>(n);
    }
    return iLen - left;
}

namespace
{

int write_waiting(int sock, const void *buf, int len)
{
    if (sock < 1 || buf == nullptr || len < 0)
        return -1;
    const char *p = static_cast<const char *>(buf);
    int left = len;
    while (left > 0) {
        struct timeval tv = {10, 0};
        bool ready = false;
        if (select_one(sock, Wait::Write, &tv, &ready) < 1)
            return -1;
        ssize_t n = send(sock, p, static_cast<size_t>(left), MSG_NOSIGNAL);
        if (n < 0) {
            if (errno != EINTR)
                return -1;
            n = 0;
        }
        p += n;
        left -= static_cast<int>(n);
    }
    return len;
}

} // namespace

extern "C" int writen(int iSock, const void *pBuf, int iLen)
{
    return write_waiting(iSock, pBuf, iLen);
}

extern "C" int rtspserver_writen(int iSock, const void *pBuf, int iLen)
{
    return write_waiting(iSock, pBuf, iLen);
}

extern "C" int send_data_insmall_packet(int iSock, const void *pBuf, unsigned int uiLen,
                                        unsigned int uiChunk)
{
    if (iSock < 0 || pBuf == nullptr || uiLen == 0 || uiChunk == 0)
        return 0;
    const char *p = static_cast<const char *>(pBuf);
    unsigned int sent = 0;
    for (;;) {
        unsigned int piece = uiLen - sent < uiChunk ? uiLen - sent : uiChunk;
        if (sent >= uiLen || piece < 1)
            return static_cast<int>(sent);
        int w = writen(iSock, p + sent, static_cast<int>(piece));
        if (w >= 0 && static_cast<unsigned int>(w) == piece) {
            sent += piece;
            continue;
        }
        return static_cast<int>(sent + (w > 0 ? static_cast<unsigned int>(w) : 0));
    }
}

extern "C" int socket_connect_withtimeout(int iSock, const struct sockaddr *pstAddr, int iTimeoutMs)
{
    if (pstAddr == nullptr || iSock < 0)
        return -1;
    socklen_t len = netlib::sockaddr_len(pstAddr);
    if (iTimeoutMs == -1)
        return connect(iSock, pstAddr, len);
    netlib::set_nonblocking(iSock, 1); // a failure shows as a blocking connect
    int ret = connect(iSock, pstAddr, len);
    if (ret == -1 && errno == EINPROGRESS) {
        struct timeval tv = netlib::ms_timeval(iTimeoutMs);
        bool ready = false;
        ret = -1;
        if (select_one(iSock, Wait::Write, &tv, &ready) > 0 && netlib::pending_error(iSock) == 0)
            ret = 0;
    }
    netlib::set_nonblocking(iSock, 0);
    return ret;
}

extern "C" int connect_with_timeout(int iSock, const struct sockaddr *pstAddr, int iAddrLen,
                                    struct timeval *pstTimeout)
{
    if (pstAddr == nullptr)
        return -1;
    struct timeval saved = {0, 0};
    if (pstTimeout != nullptr)
        saved = *pstTimeout;
    netlib::set_nonblocking(iSock, 1);
    int ret = connect(iSock, pstAddr, static_cast<socklen_t>(iAddrLen));
    if (ret == -1 && errno == EINPROGRESS) {
        bool ready = false;
        ret = -1;
        if (select_one(iSock, Wait::Write, pstTimeout, &ready) > 0 &&
            netlib::pending_error(iSock) == 0)
            ret = 0;
    }
    netlib::set_nonblocking(iSock, 0);
    if (pstTimeout != nullptr)
        *pstTimeout = saved;
    return ret;
}

extern "C" int socket_accept_with_timeout(int iSock, struct sockaddr *pstAddr, int iTimeoutMs)
{
    if (iSock <= 0) // descriptor 0 is refused, as in Socket_AcceptWithTimeout
        return -1;
    if (iTimeoutMs != -1) {
        struct timeval tv = netlib::ms_timeval(iTimeoutMs);
        bool ready = false;
        if (select_one(iSock, Wait::Read, &tv, &ready) <= 0 || !ready)
            return -1;
    }
    if (pstAddr == nullptr)
        return accept(iSock, nullptr, nullptr);
    socklen_t len = netlib::kSockaddrStorageLen;
    return accept(iSock, pstAddr, &len);
}
