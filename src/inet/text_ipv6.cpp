// IPv6 text. Input: up to eight groups of one to four hexadecimal digits separated by ":",
// at most one "::" standing for one or more zero groups, and optionally a dotted IPv4 tail
// in place of the last two groups. Output: lower-case groups without leading zeros, the
// first longest run of two or more zero groups as "::", and the dotted tail for the
// IPv4-compatible (::a.b.c.d) and IPv4-mapped (::ffff:a.b.c.d) forms.
#include <errno.h>
#include <string.h>

#include "inet/text.h"

namespace netlib
{

namespace
{

// Value of a hexadecimal digit, or -1.
struct HexTable {
    signed char v[256];
    constexpr HexTable() : v()
    {
        for (int i = 0; i < 256; ++i)
            v[i] = -1;
        for (int i = 0; i < 10; ++i)
            v['0' + i] = static_cast<signed char>(i);
        for (int i = 0; i < 6; ++i) {
            v['a' + i] = static_cast<signed char>(10 + i);
            v['A' + i] = static_cast<signed char>(10 + i);
        }
    }
};

constexpr HexTable kHex;

inline int hex_of(char c)
{
    return kHex.v[static_cast<unsigned char>(c)];
}

constexpr char kHexDigits[] = "0123456789abcdef";

// A group without leading zeros; returns the position after it.
inline char *put_group(char *w, unsigned g)
{
    if (g >= 0x1000)
        *w++ = kHexDigits[g >> 12];
    if (g >= 0x100)
        *w++ = kHexDigits[(g >> 8) & 0xf];
    if (g >= 0x10)
        *w++ = kHexDigits[(g >> 4) & 0xf];
    *w++ = kHexDigits[g & 0xf];
    return w;
}

struct ZeroRun {
    int base;
    int len;
};

// The first longest run of zero groups; base -1 when there is none of two or more.
ZeroRun longest_zero_run(const unsigned *g)
{
    ZeroRun best{-1, 0};
    int i = 0;
    while (i < 8) {
        if (g[i] != 0) {
            ++i;
            continue;
        }
        int start = i;
        while (i < 8 && g[i] == 0)
            ++i;
        if (i - start > best.len)
            best = ZeroRun{start, i - start};
    }
    if (best.len < 2)
        best.base = -1;
    return best;
}

} // namespace

int parse_ipv6(const char *src, unsigned char *out)
{
    if (src == nullptr || out == nullptr)
        return 0;
    unsigned char tmp[16];
    int n = 0;    // bytes filled
    int gap = -1; // where "::" stands, in bytes
    const char *p = src;
    // A leading ":" is only allowed as the first half of "::".
    if (*p == ':') {
        if (p[1] != ':')
            return 0;
        ++p;
    }
    const char *tok = p; // start of the current group, for a dotted tail
    for (;;) {
        unsigned v = 0;
        int nd = 0;
        int d;
        while ((d = hex_of(*p)) >= 0) {
            if (nd == 4)
                return 0;
            v = (v << 4) | static_cast<unsigned>(d);
            ++nd;
            ++p;
        }
        char c = *p;
        if (c == ':') {
            ++p;
            tok = p;
            if (nd == 0) {
                if (gap >= 0)
                    return 0;
                gap = n;
                continue;
            }
            // A group may not end the text with a single ":".
            if (*p == '\0' || n == 16)
                return 0;
            tmp[n++] = static_cast<unsigned char>(v >> 8);
            tmp[n++] = static_cast<unsigned char>(v);
            continue;
        }
        if (c == '\0') {
            if (nd != 0) {
                if (n == 16)
                    return 0;
                tmp[n++] = static_cast<unsigned char>(v >> 8);
                tmp[n++] = static_cast<unsigned char>(v);
            }
            break;
        }
        // The dotted tail runs from the group's start to the end of the text.
        if (c == '.' && n <= 12 && parse_ipv4(tok, tmp + n)) {
            n += 4;
            break;
        }
        return 0;
    }
    if (gap >= 0) {
        // "::" must stand for at least one group.
        if (n == 16)
            return 0;
        int tail = n - gap;
        memmove(tmp + 16 - tail, tmp + gap, static_cast<size_t>(tail));
        memset(tmp + gap, 0, static_cast<size_t>(16 - tail - gap));
    } else if (n != 16) {
        return 0;
    }
    memcpy(out, tmp, sizeof tmp);
    return 1;
}

size_t format_ipv6(const unsigned char *src, char *buf)
{
    unsigned g[8];
    for (int i = 0; i < 8; ++i)
        g[i] = (static_cast<unsigned>(src[2 * i]) << 8) | src[2 * i + 1];
    ZeroRun run = longest_zero_run(g);
    char *w = buf;
    for (int i = 0; i < 8; ++i) {
        if (run.base >= 0 && i >= run.base && i < run.base + run.len) {
            if (i == run.base)
                *w++ = ':';
            continue;
        }
        if (i != 0)
            *w++ = ':';
        // IPv4-compatible and IPv4-mapped addresses end in dotted form.
        if (i == 6 && run.base == 0 && (run.len == 6 || (run.len == 5 && g[5] == 0xffff))) {
            w += format_ipv4(src + 12, w);
            return static_cast<size_t>(w - buf);
        }
        w = put_group(w, g[i]);
    }
    if (run.base >= 0 && run.base + run.len == 8)
        *w++ = ':';
    *w = '\0';
    return static_cast<size_t>(w - buf);
}

char *ntop_ipv6(const unsigned char *src, char *dst, size_t size)
{
    if (src == nullptr || dst == nullptr)
        return nullptr;
    char tmp[kIpv6TextMax];
    size_t len = format_ipv6(src, tmp);
    if (len + 1 > size) {
        errno = ENOSPC;
        return nullptr;
    }
    memcpy(dst, tmp, len + 1);
    return dst;
}

} // namespace netlib
