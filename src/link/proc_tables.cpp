// Readers of "/proc/net/if_inet6", "/proc/net/ipv6_route" and the "/etc/resolv.conf" blocks.
#include "link/proc_tables.h"

#include <string.h>
#include <sys/socket.h>

namespace netlib
{

namespace
{

constexpr int kInet6Fields = 5;
constexpr int kRouteFields = 10;
constexpr int kMaxEntries = 32;
constexpr const char kAnyDst[] = "00000000000000000000000000000000";

// fe80::/10: the top ten bits.
bool is_link_local(const unsigned char *a)
{
    return a[0] == 0xfe && (a[1] & 0xc0) == 0x80;
}

size_t smaller(size_t a, size_t b)
{
    return a < b ? a : b;
}

} // namespace

int scan_if_inet6(FILE *fp, Inet6Scan kind, IfInet6Line &line)
{
    if (kind == Inet6Scan::Compact)
        return fscanf(fp, "%32s%x%x%x%x%*[^\n]\n", line.szAddr, &line.uiIndex, &line.uiPrefix,
                      &line.uiScope, &line.uiFlags);
    return fscanf(fp, "%32s %x %x %x %x%*[^\n]\n", line.szAddr, &line.uiIndex, &line.uiPrefix,
                  &line.uiScope, &line.uiFlags);
}

int scan_ipv6_route(FILE *fp, Ipv6RouteLine &line)
{
    // The trailing "[^\n]" is matched literally: it stops the scan after the device name and
    // the next scan skips the line end as white space, so every line is read whole.
    return fscanf(fp, "%32s %x %32s %02s %32s %8s %8s %8s %8s %20s[^\n]\n", line.szDst,
                  &line.uiDstLen, line.szSrc, line.szSrcLen, line.szNextHop, line.szMetric,
                  line.szRefCnt, line.szUse, line.szFlags, line.szDev);
}

void read_ipv6_list(FILE *fp, unsigned int uiIndex, NetIpv6AddrList &list, PrefixLookup lookup,
                    void *ctx)
{
    int count = 0;
    IfInet6Line l;
    while (count < kMaxEntries && scan_if_inet6(fp, Inet6Scan::Spaced, l) == kInet6Fields) {
        if (l.uiIndex != uiIndex)
            continue;
        unsigned char addr[16];
        if (convert_ipv6str_tonum(l.szAddr, addr) != 0)
            break; // what was gathered is kept
        if (strncmp(l.szAddr, "fe80", 4) == 0)
            continue; // link-local addresses are never listed
        char text[64] = {0};
        if (inet_ntop_with_af(AF_INET6, addr, text, sizeof text) == nullptr)
            continue;
        NetIpv6AddrEntry &e = list.astAddr[count];
        memcpy(e.aucAddr, addr, sizeof e.aucAddr);
        memcpy(e.szAddr, text, sizeof e.szAddr - 1); // at most 63 characters
        e.iPrefixLen = static_cast<int>(l.uiPrefix);
        // The route table's prefix wins over the address table's when it has one.
        int prefix = 0;
        if (lookup(ctx, l.szAddr, &prefix) == 0 && prefix != 0)
            e.iPrefixLen = prefix;
        ++count;
    }
    list.iNum = count;
}

int read_ipv6_prefix(FILE *fp, const char *pcIfName, const char *pcHexAddr, int *piPrefix)
{
    int compared = 0;
    Ipv6RouteLine r;
    while (compared < kMaxEntries && scan_ipv6_route(fp, r) == kRouteFields) {
        if (strcmp(r.szDev, pcIfName) != 0 || r.uiDstLen == 0)
            continue;
        // Whole hexadecimal digits only: a prefix below 4 compares nothing and matches.
        if (strncmp(r.szDst, pcHexAddr, r.uiDstLen / 4) == 0) {
            *piPrefix = static_cast<int>(r.uiDstLen);
            return 1;
        }
        ++compared;
    }
    return 0;
}

int read_ipv6_default_nexthop(FILE *fp, const char *pcIfName, NextHop kind,
                              unsigned char aucNextHop[16])
{
    Ipv6RouteLine r;
    while (scan_ipv6_route(fp, r) == kRouteFields) {
        if (strcmp(r.szDst, kAnyDst) != 0 || r.uiDstLen != 0 || strcmp(r.szDev, pcIfName) != 0)
            continue;
        unsigned char hop[16];
        if (convert_ipv6str_tonum(r.szNextHop, hop) != 0)
            return -1;
        if (kind == NextHop::NotLinkLocal && is_link_local(hop))
            continue;
        memcpy(aucNextHop, hop, sizeof hop);
        return 0;
    }
    return -1;
}

int read_ipv6_all(FILE *fp, unsigned int uiIndex, NetIpv6AddrInfoList &list)
{
    int count = 0;
    IfInet6Line l;
    while (count < kMaxEntries && scan_if_inet6(fp, Inet6Scan::Compact, l) == kInet6Fields) {
        if (l.uiIndex != uiIndex)
            continue;
        NetIpv6AddrInfo &e = list.astAddr[count];
        if (convert_ipv6str_tonum(l.szAddr, e.aucAddr) != 0) {
            memset(&e, 0, sizeof e);
            break;
        }
        e.iPrefixLen = static_cast<int>(l.uiPrefix);
        e.iScope = static_cast<int>(l.uiScope);
        e.iFlags = static_cast<int>(l.uiFlags);
        ++count;
    }
    list.iNum = count;
    return count;
}

int read_ipv6_first_two(FILE *fp, unsigned int uiIndex, unsigned char aucAddr1[16], int *piPrefix1,
                        unsigned char aucAddr2[16], int *piPrefix2)
{
    int found = 0;
    IfInet6Line l;
    while (found < 2 && scan_if_inet6(fp, Inet6Scan::Compact, l) == kInet6Fields) {
        if (l.uiIndex != uiIndex)
            continue;
        unsigned char *addr = found == 0 ? aucAddr1 : aucAddr2;
        int *prefix = found == 0 ? piPrefix1 : piPrefix2;
        if (convert_ipv6str_tonum(l.szAddr, addr) != 0)
            return -1;
        *prefix = static_cast<int>(l.uiPrefix);
        ++found;
    }
    return found;
}

void read_resolv_block(FILE *fp, const char *pcMarker, char *pcMaster, size_t uiMasterLen,
                       char *pcSlave, size_t uiSlaveLen)
{
    char line[128];
    bool inBlock = false;
    while (!inBlock && fgets(line, sizeof line, fp) != nullptr)
        inBlock = strstr(line, pcMarker) != nullptr; // anywhere in the line
    if (!inBlock)
        return;
    int values = 0;
    while (values < 2 && fgets(line, sizeof line, fp) != nullptr) {
        if (strstr(line, "nameserver") == nullptr) {
            if (strstr(line, "Interface") != nullptr)
                break; // the next interface's block
            continue;
        }
        const char *value = strchr(line, ' ');
        if (value == nullptr)
            continue;
        while (*value == ' ')
            ++value;
        size_t len = strcspn(value, "\n");
        // No terminator is added: callers pass zeroed buffers.
        if (values == 0)
            strncpy(pcMaster, value, smaller(uiMasterLen, len));
        else
            strncpy(pcSlave, value, smaller(uiSlaveLen, len));
        ++values;
    }
}

} // namespace netlib
