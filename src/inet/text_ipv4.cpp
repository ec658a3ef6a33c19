// Dotted-decimal IPv4 text: four decimal parts of 0 to 255, no leading zeros, nothing else.
#include <errno.h>
#include <string.h>

#include "inet/text.h"

namespace netlib
{

namespace
{

inline unsigned digit_of(char c)
{
    return static_cast<unsigned char>(c) - '0';
}

// Decimal text of one part, without printf.
inline char *put_octet(char *w, unsigned v)
{
    if (v >= 100) {
        *w++ = static_cast<char>('0' + v / 100);
        v %= 100;
        *w++ = static_cast<char>('0' + v / 10);
    } else if (v >= 10) {
        *w++ = static_cast<char>('0' + v / 10);
    }
    *w++ = static_cast<char>('0' + v % 10);
    return w;
}

} // namespace

int parse_ipv4(const char *src, unsigned char *out)
{
    if (src == nullptr || out == nullptr)
        return 0;
    unsigned char tmp[4];
    const char *p = src;
    for (int i = 0; i < 4; ++i) {
        unsigned v = digit_of(*p);
        if (v > 9)
            return 0;
        ++p;
        // "0" stands alone; otherwise up to two more digits.
        if (v != 0) {
            for (int k = 0; k < 2; ++k) {
                unsigned d = digit_of(*p);
                if (d > 9)
                    break;
                v = v * 10 + d;
                ++p;
            }
        }
        if (v > 255 || digit_of(*p) <= 9)
            return 0;
        tmp[i] = static_cast<unsigned char>(v);
        if (i < 3) {
            if (*p != '.')
                return 0;
            ++p;
        }
    }
    if (*p != '\0')
        return 0;
    memcpy(out, tmp, sizeof tmp);
    return 1;
}

size_t format_ipv4(const unsigned char *src, char *buf)
{
    char *w = put_octet(buf, src[0]);
    for (int i = 1; i < 4; ++i) {
        *w++ = '.';
        w = put_octet(w, src[i]);
    }
    *w = '\0';
    return static_cast<size_t>(w - buf);
}

char *ntop_ipv4(const unsigned char *src, char *dst, size_t size)
{
    if (src == nullptr || dst == nullptr)
        return nullptr;
    char tmp[kIpv4TextMax];
    size_t len = format_ipv4(src, tmp);
    if (len + 1 > size) {
        errno = ENOSPC;
        return nullptr;
    }
    memcpy(dst, tmp, len + 1);
    return dst;
}

} // namespace netlib
