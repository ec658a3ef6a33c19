// The library's own text forms of addresses: dotted decimal for IPv4; for IPv6 the RFC 4291
// input forms (hexadecimal groups in either case, one "::", an embedded dotted IPv4 tail)
// and the RFC 5952 output (lower case, the first longest run of two or more zero groups
// written as "::"). They accept and print exactly what the C library's inet_pton and
// inet_ntop do, without its formatting machinery.
#pragma once

#include <stddef.h>

namespace netlib
{

constexpr size_t kIpv4TextMax = 16; // "255.255.255.255" and its terminator
constexpr size_t kIpv6TextMax = 46; // the longest mapped form and its terminator

// Parse a whole NUL-terminated text into 4 (or 16) bytes in network order. 1 on success
// with out written; 0 otherwise, out untouched. Null pointers give 0.
int parse_ipv4(const char *src, unsigned char *out);
int parse_ipv6(const char *src, unsigned char *out);

// Write the text form and its terminator into buf (at least kIpv4TextMax / kIpv6TextMax
// bytes); return the text's length.
size_t format_ipv4(const unsigned char *src, char *buf);
size_t format_ipv6(const unsigned char *src, char *buf);

// Format into dst when the text and its terminator fit in size bytes: dst, else null with
// errno ENOSPC and dst untouched. Null pointers give null.
char *ntop_ipv4(const unsigned char *src, char *dst, size_t size);
char *ntop_ipv6(const unsigned char *src, char *dst, size_t size);

} // namespace netlib
