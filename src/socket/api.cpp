// The _api family: the oldest socket wrappers. They print their diagnostics to standard
// output in their own framed format instead of logging, and several failure results are
// printf's character count, which the family's callers test for.
#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include "libnetwork.h"
#include "socket/common.h"

namespace
{

// The path printed is this file's place in the source tree, whatever directory builds it.
constexpr const char kSourcePath[] = "src/socketapi.cpp";
constexpr const char kTrailer[] = "********************************************\n\n";
static_assert(sizeof kTrailer == 44 + 2 + 1, "44 asterisks and two newlines");

} // namespace

// One framed diagnostic on behalf of the named function; printf's count is the result.
#define API_PRINT_IN(fn, msg, ...)                                                                 \
    printf("\n\n=======%s: %s:line:%d:===========\n" msg "%s", kSourcePath, (fn), __LINE__,        \
           ##__VA_ARGS__, kTrailer)
#define API_PRINT(msg, ...) API_PRINT_IN(__func__, msg, ##__VA_ARGS__)

extern "C" int socket_api(int iFamily, int iType, int iProtocol)
{
    int fd = socket(iFamily, iType, iProtocol);
    if (fd < 0)
        API_PRINT("sockfd=%d,errno %d", fd, errno);
    return fd;
}

extern "C" int connect_api(int iSock, const struct sockaddr *pstAddr, unsigned int uiLen)
{
    int r = connect(iSock, pstAddr, uiLen);
    if (r < 0)
        API_PRINT("connect errno %d", errno);
    return r;
}

extern "C" int accept_api(int iSock, struct sockaddr *pstAddr, unsigned int *puiLen)
{
    int r = accept(iSock, pstAddr, puiLen);
    if (r < 0)
        API_PRINT("accept error %d", errno);
    return r;
}

extern "C" int bind_api(int iSock, const struct sockaddr *pstAddr, unsigned int uiLen)
{
    int r = bind(iSock, pstAddr, uiLen);
    if (r < 0)
        API_PRINT("bind error %d", errno);
    return r;
}

extern "C" int listen_api(int iSock, int iBacklog)
{
    int r = listen(iSock, iBacklog);
    if (r < 0)
        API_PRINT("listen error %d", errno);
    return r;
}

extern "C" int setsockopt_api(int iSock, int iLevel, int iOpt, const void *pVal, unsigned int uiLen)
{
    int r = setsockopt(iSock, iLevel, iOpt, pVal, uiLen);
    if (r < 0)
        API_PRINT("setsockopt error %d", errno);
    return r;
}

// The next four deliberately fail with the print's (positive) character count.
extern "C" int getsockopt_api(int iSock, int iLevel, int iOpt, void *pVal, unsigned int *puiLen)
{
    int r = getsockopt(iSock, iLevel, iOpt, pVal, puiLen);
    if (r < 0)
        return API_PRINT("getsockopt errno %d", errno);
    return r;
}

extern "C" int getsockname_api(int iSock, struct sockaddr *pstAddr, unsigned int *puiLen)
{
    int r = getsockname(iSock, pstAddr, puiLen);
    if (r < 0)
        return API_PRINT("getsockname error");
    return r;
}

extern "C" int close_api(int iSock)
{
    int r = close(iSock);
    if (r < 0)
        return API_PRINT("close error %d", errno);
    return r;
}

extern "C" int inet_pton_api(int iFamily, const char *pcSrc, void *pDst)
{
    if (pcSrc == nullptr || pDst == nullptr) {
        // The C library would fault on these; report them as a failed conversion instead.
        return API_PRINT("inet_pton error for %s,errno %d", "(null)", EFAULT);
    }
    int r = inet_pton(iFamily, pcSrc, pDst);
    if (r < 0)
        return API_PRINT("inet_pton error for %s,errno %d", pcSrc, errno);
    if (r == 0)
        return API_PRINT("inet_pton error for %s", pcSrc);
    return r;
}

extern "C" int close_nowait_api(int iSock)
{
    struct linger lg = {1, 0};
    if (setsockopt(iSock, SOL_SOCKET, SO_LINGER, &lg, sizeof lg) < 0)
        API_PRINT("setsockopt error %d", errno); // closes anyway
    return close(iSock);
}

extern "C" int readn_api(int iSock, void *pBuf, int iLen)
{
    netlib::Transfer t = netlib::read_exact_strict(iSock, pBuf, iLen);
    if (t.failedErrno != 0)
        API_PRINT("recv errno %d", t.failedErrno);
    return t.result;
}

extern "C" int write_api(int iSock, void *pBuf, int iLen)
{
    netlib::Transfer t = netlib::write_all(iSock, pBuf, iLen);
    if (t.failedErrno != 0)
        API_PRINT("Send() error, 0x%x\n", t.failedErrno);
    return t.result;
}

extern "C" int writen_api(int iSock, void *pBuf, int iLen)
{
    struct timeval sndTimeout = {10, 0};
    if (setsockopt(iSock, SOL_SOCKET, SO_SNDTIMEO, &sndTimeout, sizeof sndTimeout) != 0)
        API_PRINT("setsockopt error %d", errno); // goes on regardless
    struct timeval tv = {5, 0};
    bool ready = false;
    if (netlib::select_one(iSock, netlib::Wait::Write, &tv, &ready) <= 0) {
        API_PRINT("select failed %d\n", errno);
        return -1;
    }
    if (!ready) {
        API_PRINT("write errno %d", errno);
        return -1;
    }
    return write_api(iSock, pBuf, iLen);
}

extern "C" int connectwithtimeout_api(int iSock, const struct sockaddr *pstAddr, int iAddrLen,
                                      struct timeval *pstTimeout)
{
    struct timeval saved = {0, 0};
    if (pstTimeout != nullptr)
        saved = *pstTimeout;
    if (netlib::set_nonblocking(iSock, 1) < 0)
        API_PRINT("ioctl error %d", errno);
    int ret = connect(iSock, pstAddr, static_cast<socklen_t>(iAddrLen));
    if (ret == -1 && errno == EINPROGRESS) {
        bool ready = false;
        ret = -1;
        if (netlib::select_one(iSock, netlib::Wait::Write, pstTimeout, &ready) > 0)
            ret = netlib::pending_error(iSock) == 0 ? 0 : -1;
    }
    if (netlib::set_nonblocking(iSock, 0) < 0)
        API_PRINT("ioctl error %d", errno);
    // select leaves the time left in it; the caller gets its own value back.
    if (pstTimeout != nullptr)
        *pstTimeout = saved;
    return ret;
}

extern "C" int tcp_srv_com(int iPort)
{
    int sock = socket_api(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (sock < 0)
        return -1;
    int on = 1;
    struct sockaddr_in addr;
    memset(&addr, 0, sizeof addr);
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_ANY);
    addr.sin_port = htons(static_cast<unsigned short>(iPort));
    if (setsockopt_api(sock, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) < 0 ||
        bind_api(sock, reinterpret_cast<struct sockaddr *>(&addr), sizeof addr) < 0 ||
        listen_api(sock, 24) < 0) {
        close_api(sock);
        return -1;
    }
    return sock;
}

namespace
{

// One client attempt's options; a failure is reported and the attempt goes on.
void set_client_options(int sock, const char *fn)
{
    struct Opt {
        int level;
        int name;
        int value;
    } const opts[] = {
        {SOL_SOCKET, SO_KEEPALIVE, 1},
        {IPPROTO_TCP, TCP_KEEPCNT, 2},
        {IPPROTO_TCP, TCP_KEEPIDLE, 10},
        {IPPROTO_TCP, TCP_KEEPINTVL, 4},
    };
    for (const Opt &o : opts)
        if (setsockopt_api(sock, o.level, o.name, &o.value, sizeof o.value) < 0)
            API_PRINT_IN(fn, "setsockopt_api");
}

// The client loop of tcp_cli_com and tcp_cli_com_enhance. pcPort is the port text of the
// enhanced call (read again on every attempt, and printed); otherwise *pusPort is used.
int client_loop(const char *fn, const char *pcIpAddr, const unsigned short *pusPort,
                const char *pcPort, int *piSock, int iRetry)
{
    int failures = 0;
    for (;;) {
        unsigned short port = 0;
        if (pcPort != nullptr) {
            int n = atoi(pcPort);
            API_PRINT_IN(fn, "%s %d", pcIpAddr, n);
            port = static_cast<unsigned short>(n);
        } else {
            port = *pusPort;
        }
        int sock = socket_api(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (sock < 0)
            return -1;
        struct sockaddr_in addr;
        memset(&addr, 0, sizeof addr);
        addr.sin_family = AF_INET;
        addr.sin_port = htons(port);
        inet_pton_api(AF_INET, pcIpAddr, &addr.sin_addr); // a bad text connects to 0.0.0.0
        set_client_options(sock, fn);
        struct timeval tv = {5, 0};
        if (connectwithtimeout_api(sock, reinterpret_cast<struct sockaddr *>(&addr), sizeof addr,
                                   &tv) == 0) {
            if (pcPort != nullptr)
                API_PRINT_IN(fn, "connect ok");
            *piSock = sock;
            return 0;
        }
        if (iRetry != 0)
            ++failures;
        sleep(5);
        close_api(sock);
        // A count of 0 retries without limit; a negative count allows one attempt.
        if (iRetry != 0 && failures >= iRetry)
            return -1;
    }
}

} // namespace

extern "C" int tcp_cli_com(const char *pcIpAddr, unsigned short *pusPort, int *piSock, int iRetry)
{
    if (pcIpAddr == nullptr || pusPort == nullptr || piSock == nullptr)
        return -1;
    return client_loop(__func__, pcIpAddr, pusPort, nullptr, piSock, iRetry);
}

extern "C" int tcp_cli_com_enhance(const char *pcIpAddr, const char *pcPort, int *piSock,
                                   int iRetry)
{
    if (pcIpAddr == nullptr || pcPort == nullptr || piSock == nullptr)
        return -1;
    return client_loop(__func__, pcIpAddr, nullptr, pcPort, piSock, iRetry);
}

extern "C" char *kv_find_last_string(char *pcSrc, const char *pcStr)
{
    if (pcSrc == nullptr || pcStr == nullptr) {
        API_PRINT("(NULL == src) || (NULL == str)");
        return nullptr;
    }
    // An empty search string would never advance: there is no last occurrence to give.
    if (pcSrc[0] == '\0' || pcStr[0] == '\0')
        return nullptr;
    size_t step = strlen(pcStr);
    char *last = nullptr;
    for (char *p = strstr(pcSrc, pcStr); p != nullptr; p = strstr(p + step, pcStr))
        last = p;
    return last;
}

extern "C" int kv_div_string(char *pcSrc, const char *pcBeg, const char *pcEnd, void *pOut,
                             int iSize)
{
    if (pcSrc == nullptr || pcBeg == nullptr || pcEnd == nullptr || pOut == nullptr)
        return -1;
    char *out = static_cast<char *>(pOut);
    if (pcEnd[0] == '\0') {
        char *beg = kv_find_last_string(pcSrc, pcBeg);
        if (beg == nullptr) {
            API_PRINT("not find beg");
            return -2;
        }
        // Deliberate: one character past the marker's start, and the size is not consulted.
        strcpy(out, beg + 1);
        return 0;
    }
    char *beg = strstr(pcSrc, pcBeg);
    if (beg == nullptr) {
        API_PRINT("not find beg");
        return -2;
    }
    beg += strlen(pcBeg);
    const char *end = strstr(beg, pcEnd);
    if (end == nullptr) {
        API_PRINT("not find aft");
        return -2;
    }
    int len = static_cast<int>(end - beg);
    if (len > iSize) {
        API_PRINT("size not big %d %d", len, iSize);
        return -2;
    }
    // Deliberate: with len == iSize the terminator lands one past; callers pass one less.
    memcpy(out, beg, static_cast<size_t>(len));
    out[len] = '\0';
    return 0;
}
