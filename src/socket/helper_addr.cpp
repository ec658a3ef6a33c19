// The Socket_ family's address functions: building socket addresses from text, their text
// form, the strict address-text tests and the family switch.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <string.h>
#include <sys/socket.h>

#include "libnetwork.h"
#include "base/log.h"

extern "C" int Make_AddrbyString(int iFamily, const char *pcAddr, unsigned short usPort,
                                 struct sockaddr *pstAddr)
{
    if (pstAddr == nullptr)
        return 1;
    auto *in4 = reinterpret_cast<struct sockaddr_in *>(pstAddr);
    auto *in6 = reinterpret_cast<struct sockaddr_in6 *>(pstAddr);
    if (pcAddr == nullptr) {
        if (iFamily == AF_INET) {
            in4->sin_addr.s_addr = htonl(INADDR_ANY);
            in4->sin_family = AF_INET;
            in4->sin_port = htons(usPort);
            return 0;
        }
        if (iFamily == AF_INET6) {
            memset(&in6->sin6_addr, 0, sizeof in6->sin6_addr);
            in6->sin6_family = AF_INET6;
            in6->sin6_port = htons(usPort);
            return 0;
        }
        return 1;
    }
    if (iFamily == AF_INET) {
        // Deliberate: the all-ones value is inet_addr's failure, so 255.255.255.255 is
        // refused too, and it stays written.
        in4->sin_addr.s_addr = inet_addr(pcAddr);
        if (in4->sin_addr.s_addr == INADDR_NONE)
            return -1;
        in4->sin_family = AF_INET;
        in4->sin_port = htons(usPort);
        return 0;
    }
    if (iFamily == AF_INET6) {
        if (Inet_PtoN(AF_INET6, pcAddr, &in6->sin6_addr) != 1)
            return -1;
        in6->sin6_family = AF_INET6;
        in6->sin6_port = htons(usPort);
        return 0;
    }
    return -1;
}

extern "C" char *Socket_AddrtoStr(const struct sockaddr *pstAddr)
{
    // Shared by every caller and not thread-safe, as documented.
    static char s_szIpv6Text[128];
    if (pstAddr == nullptr)
        return nullptr;
    if (pstAddr->sa_family == AF_INET)
        return inet_ntoa(reinterpret_cast<const struct sockaddr_in *>(pstAddr)->sin_addr);
    if (pstAddr->sa_family == AF_INET6) {
        memset(s_szIpv6Text, 0, sizeof s_szIpv6Text);
        return Inet_NtoP(AF_INET6,
                         &reinterpret_cast<const struct sockaddr_in6 *>(pstAddr)->sin6_addr,
                         s_szIpv6Text, sizeof s_szIpv6Text);
    }
    return nullptr;
}

// Deliberately 0, while is_support_ipv6 of the utility family answers 1: this family and its
// callers work on IPv4.
extern "C" int Is_SupportIpv6(void)
{
    return 0;
}

extern "C" int Get_IpPort(void)
{
    return 554;
}

extern "C" int Get_SocketFamily(void)
{
    return Is_SupportIpv6() != 0 ? AF_INET6 : AF_INET;
}
