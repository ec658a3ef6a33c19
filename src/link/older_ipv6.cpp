// Older IPv6 calls: the kernel tables' hexadecimal address form, validity, and thin readers
// over the listing calls.
#include <net/if.h>
#include <stdio.h>
#include <string.h>

#include "link/proc_tables.h"
#include "libnetwork.h"

using namespace netlib;

namespace
{

constexpr int kHexDigits = 32;

int hex_value(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

} // namespace

extern "C" {

int convert_ipv6str_tonum(const char *pcStr, unsigned char *pucAddr)
{
    if (pcStr == nullptr || pucAddr == nullptr)
        return -1;
    unsigned char addr[16];
    for (int i = 0; i < kHexDigits; ++i) {
        int v = hex_value(pcStr[i]); // a terminator before 32 digits fails here
        if (v < 0)
            return -1;
        if (i % 2 == 0)
            addr[i / 2] = static_cast<unsigned char>(v << 4);
        else
            addr[i / 2] = static_cast<unsigned char>(addr[i / 2] | v);
    }
    memcpy(pucAddr, addr, sizeof addr);
    return 0;
}

int convert_ipv6num_tostr(const unsigned char *pucAddr, char *pcStr, int iLen)
{
    if (pucAddr == nullptr || pcStr == nullptr || iLen <= kHexDigits)
        return -1;
    static const char kHex[] = "0123456789abcdef";
    for (int i = 0; i < 16; ++i) {
        pcStr[2 * i] = kHex[pucAddr[i] >> 4];
        pcStr[2 * i + 1] = kHex[pucAddr[i] & 0x0f];
    }
    pcStr[kHexDigits] = '\0';
    return 0;
}

int check_ipv6_valid(const char *pcIpv6Addr)
{
    if (pcIpv6Addr == nullptr)
        return -1; // silently, as the other older calls
    return INET_IsIpv6AddrValid(pcIpv6Addr) == 1 ? 0 : -1;
}

int get_one_right_ipv6_addr(const char *pcIfName, char *pcIpv6Addr, unsigned int uiLen,
                            int *piPrefix)
{
    if (pcIfName == nullptr || pcIpv6Addr == nullptr || uiLen == 0)
        return -1;
    NetIpv6AddrList list;
    if (NET_GetIpv6AddrList(pcIfName, &list) != 0)
        return -1;
    for (int i = 0; i < list.iNum; ++i) {
        const NetIpv6AddrEntry &e = list.astAddr[i];
        if (INET_IsIpv6AddrValid(e.szAddr) != 1)
            continue;
        snprintf(pcIpv6Addr, uiLen, "%s", e.szAddr);
        if (piPrefix != nullptr)
            *piPrefix = e.iPrefixLen;
        return 0;
    }
    return -1;
}

int get_all_ipv6addr(const char *pcIfName, NetIpv6AddrInfoList *pstList)
{
    if (pcIfName == nullptr || pstList == nullptr)
        return -1;
    memset(pstList, 0, sizeof *pstList);
    unsigned int index = if_nametoindex(pcIfName);
    if (index == 0)
        return -1;
    TableFile fp(kIfInet6Path);
    if (fp.get() == nullptr)
        return -1;
    return read_ipv6_all(fp.get(), index, *pstList);
}

int get_dns(char *pcDns1, unsigned int uiLen1, char *pcDns2, unsigned int uiLen2)
{
    if (pcDns1 == nullptr || pcDns2 == nullptr || uiLen1 == 0 || uiLen2 == 0)
        return -1;
    memset(pcDns1, 0, uiLen1);
    memset(pcDns2, 0, uiLen2);
    // One short of each length: the block reader adds no terminator.
    return NET_GetDnsServer(g_pcLan1Name, pcDns1, uiLen1 - 1, pcDns2, uiLen2 - 1) == 0 ? 0 : -1;
}

} // extern "C"
