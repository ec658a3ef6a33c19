// Prefix arithmetic shared by the IPv6 subnet checks.
#pragma once

#include <netinet/in.h>

namespace netlib
{

// A prefix length split into whole bytes and remaining bits, with C's division toward zero:
// -7 to -1 give zero bytes and negative bits, which then compare nothing.
struct PrefixSplit {
    int bytes;
    int bits;
};

inline PrefixSplit split_prefix(int prefix)
{
    return PrefixSplit{prefix / 8, prefix % 8};
}

// Whole bytes of 16 or more, taken as unsigned, are refused (so 128 is, and any negative
// count of bytes).
inline bool prefix_too_long(PrefixSplit s)
{
    return static_cast<unsigned int>(s.bytes) >= 16;
}

// The top `bits` bits of a byte; nothing for 0 or a negative count.
inline unsigned int top_bits(unsigned char byte, int bits)
{
    return bits > 0 ? static_cast<unsigned int>(byte) >> (8 - bits) : 0;
}

} // namespace netlib

// 1 when both addresses share the first iPrefix bits (0 to 127), else 0.
int net_IsIpv6SameSubnet(struct in6_addr stAddr1, struct in6_addr stAddr2, int iPrefix);
