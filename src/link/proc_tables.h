// Readers of the text tables the interface calls parse: the kernel's "/proc/net/if_inet6"
// and "/proc/net/ipv6_route", and the blocks of "/etc/resolv.conf". Each works on an open
// stream, so the exported calls own the files and a fuzz target can feed any bytes.
#pragma once

#include <stddef.h>
#include <stdio.h>

#include "libnetwork.h"

namespace netlib
{

constexpr const char kIfInet6Path[] = "/proc/net/if_inet6";
constexpr const char kIpv6RoutePath[] = "/proc/net/ipv6_route";
constexpr const char kResolvPath[] = "/etc/resolv.conf";

// Closes a table file on every path out of a call.
class UniqueFile
{
  public:
    explicit UniqueFile(FILE *fp) : fp_(fp) {}
    ~UniqueFile()
    {
        if (fp_ != nullptr)
            fclose(fp_);
    }
    UniqueFile(const UniqueFile &) = delete;
    UniqueFile &operator=(const UniqueFile &) = delete;
    FILE *get() const { return fp_; }

  private:
    FILE *fp_;
};

// A kernel table open for reading through a buffer on the caller's stack: no fstat and no
// allocation to set the stream up. Reads take the block /proc reports (1 KiB) unless told
// otherwise: the kernel builds a table only as far as it is read, and readers that stop at
// an early match gain nothing from larger reads. Closed on every path out of a call.
class TableFile
{
  public:
    explicit TableFile(const char *path, size_t readLen = 1024) : fp_(fopen(path, "r"))
    {
        if (fp_ != nullptr)
            setvbuf(fp_, buf_, _IOFBF, readLen < sizeof buf_ ? readLen : sizeof buf_);
    }
    ~TableFile()
    {
        if (fp_ != nullptr)
            fclose(fp_);
    }
    TableFile(const TableFile &) = delete;
    TableFile &operator=(const TableFile &) = delete;
    FILE *get() const { return fp_; }

  private:
    char buf_[4096]; // outlives the stream: fclose runs in the destructor's body
    FILE *fp_;
};

// One line of "/proc/net/if_inet6"; the device name is skipped.
struct IfInet6Line {
    char szAddr[33]; // 32 hexadecimal digits
    unsigned int uiIndex;
    unsigned int uiPrefix;
    unsigned int uiScope;
    unsigned int uiFlags;
};

// The exported calls scan with spaces between the fields, the older calls without.
enum class Inet6Scan { Spaced, Compact };

// Scans one line; the number of fields read (5 for a whole line, EOF at the end).
int scan_if_inet6(FILE *fp, Inet6Scan kind, IfInet6Line &line);

// One line of "/proc/net/ipv6_route".
struct Ipv6RouteLine {
    char szDst[33];
    unsigned int uiDstLen;
    char szSrc[33];
    char szSrcLen[3];
    char szNextHop[33];
    char szMetric[9];
    char szRefCnt[9];
    char szUse[9];
    char szFlags[9];
    char szDev[21];
};

// Scans one line; the number of fields read (10 for a whole line).
int scan_ipv6_route(FILE *fp, Ipv6RouteLine &line);

// Asks for the route prefix of an address given as 32 hexadecimal digits; 0 when asked.
typedef int (*PrefixLookup)(void *ctx, const char *pcHexAddr, int *piPrefix);

// The interface's addresses (link-local left out) into the cleared list, at most 32.
void read_ipv6_list(FILE *fp, unsigned int uiIndex, NetIpv6AddrList &list, PrefixLookup lookup,
                    void *ctx);
// Prefix length of the interface's route that covers the address; 1 found, 0 not.
int read_ipv6_prefix(FILE *fp, const char *pcIfName, const char *pcHexAddr, int *piPrefix);

enum class NextHop { Any, NotLinkLocal };
// Next hop of the interface's first default route of the kind; 0 found, -1 not (or a next
// hop that is not 32 hexadecimal digits).
int read_ipv6_default_nexthop(FILE *fp, const char *pcIfName, NextHop kind,
                              unsigned char aucNextHop[16]);

// Every address of the interface, in table order, at most 32; the count.
int read_ipv6_all(FILE *fp, unsigned int uiIndex, NetIpv6AddrInfoList &list);
// The first two addresses of the interface; how many were found (0 to 2), -1 on a
// conversion failure.
int read_ipv6_first_two(FILE *fp, unsigned int uiIndex, unsigned char aucAddr1[16], int *piPrefix1,
                        unsigned char aucAddr2[16], int *piPrefix2);

// The servers of the block opened by a line containing pcMarker: the first into pcMaster,
// the second into pcSlave, each cut to its length and not terminated. Buffers stay
// untouched when there is no such block.
void read_resolv_block(FILE *fp, const char *pcMarker, char *pcMaster, size_t uiMasterLen,
                       char *pcSlave, size_t uiSlaveLen);

} // namespace netlib
