// Conversion between text and binary addresses, in the library's three layers: the INET_
// calls over the C library, Inet_PtoN/Inet_NtoP over our own text forms, and the _with_af
// calls of the socket helpers.
#include <arpa/inet.h>
#include <string.h>
#include <sys/socket.h>

#include "inet/text.h"
#include "libnetwork.h"
#include "base/log.h"

using namespace netlib;

namespace
{

constexpr int kAfInet = 2;
constexpr int kAfInet6 = 10;
static_assert(kAfInet == AF_INET && kAfInet6 == AF_INET6, "socket family values");

int str_to_num(int af, const char *pcStr, void *pvAddr)
{
    return inet_pton(af, pcStr, pvAddr) == 1 ? 0 : -1;
}

int num_to_str(int af, const void *pvAddr, char *pcBuf, unsigned int uiLen)
{
    return inet_ntop(af, pvAddr, pcBuf, uiLen) != nullptr ? 0 : -1;
}

// The socket helpers' IPv4 text: a text longer than size is refused; otherwise at most
// size - 1 characters are copied and the rest of those size - 1 bytes zeroed, so a text of
// size - 1 or size characters comes out unterminated (size: cut by one). Callers zero their
// buffers, so only a text of exactly size characters reaches them unterminated.
char *ntop_ipv4_bounded(const unsigned char *src, char *dst, int size)
{
    char tmp[kIpv4TextMax];
    size_t len = format_ipv4(src, tmp);
    size_t room = static_cast<size_t>(size);
    if (len > room)
        return nullptr;
    size_t n = len < room - 1 ? len : room - 1;
    memcpy(dst, tmp, n);
    memset(dst + n, 0, room - 1 - n);
    return dst;
}

} // namespace

extern "C" {

int INET_Ipv4StrToNum(const char *pcStr, void *pvAddr)
{
    if (pcStr == nullptr || pvAddr == nullptr) {
        NET_LOGT(NET_LVL_ERR, PL_PARAM_ERROR_PRINT, "\n");
        return -2;
    }
    return str_to_num(AF_INET, pcStr, pvAddr);
}

int INET_Ipv6StrToNum(const char *pcStr, void *pvAddr)
{
    if (pcStr == nullptr || pvAddr == nullptr) {
        NET_LOGT(NET_LVL_ERR, PL_PARAM_ERROR_PRINT, "\n");
        return -2;
    }
    return str_to_num(AF_INET6, pcStr, pvAddr);
}

int INET_Ipv4NumToStr(const void *pvAddr, char *pcBuf, unsigned int uiLen)
{
    if (pvAddr == nullptr || pcBuf == nullptr) {
        NET_LOGT(NET_LVL_ERR, PL_PARAM_ERROR_PRINT, "\n");
        return -2;
    }
    return num_to_str(AF_INET, pvAddr, pcBuf, uiLen);
}

int INET_Ipv6NumToStr(const void *pvAddr, char *pcBuf, unsigned int uiLen)
{
    if (pvAddr == nullptr || pcBuf == nullptr) {
        NET_LOGT(NET_LVL_ERR, PL_PARAM_ERROR_PRINT, "\n");
        return -2;
    }
    return num_to_str(AF_INET6, pvAddr, pcBuf, uiLen);
}

int Inet_PtoN(int iAf, const char *pcSrc, void *pvDst)
{
    unsigned char *dst = static_cast<unsigned char *>(pvDst);
    switch (iAf) {
    case kAfInet:
        return parse_ipv4(pcSrc, dst);
    case kAfInet6:
        return parse_ipv6(pcSrc, dst);
    default:
        // An unknown family answers like a success; callers test the family themselves.
        return 1;
    }
}

char *Inet_NtoP(int iAf, const void *pvSrc, char *pcDst, unsigned int uiSize)
{
    const unsigned char *src = static_cast<const unsigned char *>(pvSrc);
    switch (iAf) {
    case kAfInet:
        return ntop_ipv4(src, pcDst, uiSize);
    case kAfInet6:
        return ntop_ipv6(src, pcDst, uiSize);
    default:
        return nullptr;
    }
}

int inet_pton_with_af(int iAf, const char *pcSrc, void *pvDst, int iSize)
{
    if (pcSrc == nullptr || pvDst == nullptr || iSize < 1)
        return -1;
    unsigned char *dst = static_cast<unsigned char *>(pvDst);
    // A destination smaller than the address is refused rather than overrun.
    if (iAf == kAfInet)
        return iSize >= 4 && parse_ipv4(pcSrc, dst) ? 0 : -1;
    if (iAf == kAfInet6 && is_support_ipv6())
        return iSize >= 16 && parse_ipv6(pcSrc, dst) ? 0 : -1;
    return -1;
}

char *inet_ntop_with_af(int iAf, const void *pvSrc, char *pcDst, int iSize)
{
    if (pvSrc == nullptr || pcDst == nullptr || iSize < 1)
        return nullptr;
    const unsigned char *src = static_cast<const unsigned char *>(pvSrc);
    if (iAf == kAfInet)
        return ntop_ipv4_bounded(src, pcDst, iSize);
    if (iAf == kAfInet6 && is_support_ipv6())
        return ntop_ipv6(src, pcDst, static_cast<size_t>(iSize));
    return nullptr;
}

} // extern "C"
