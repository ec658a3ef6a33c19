// Building the IPv6 probe and reading received ARP and IPv6 frames strictly within the
// bytes received.
#include "detect/rfc_frames.h"

#include <string.h>

namespace netlib
{

namespace
{

// Ethernet.
constexpr size_t kEthSrc = 6, kEthType = 12, kEthLen = 14;
// ARP after the Ethernet header.
constexpr size_t kArpOp = 20, kArpSha = 22, kArpSpa = 28, kArpTpa = 38, kArpEnd = 42;
// IPv6 after the Ethernet header, then ICMPv6.
constexpr size_t kIp6 = kEthLen, kIp6Plen = kIp6 + 4, kIp6Next = kIp6 + 6, kIp6Hops = kIp6 + 7;
constexpr size_t kIp6Src = kIp6 + 8, kIp6Dst = kIp6 + 24, kIcmp = kIp6 + 40;
constexpr size_t kNdHead = 24, kNdTarget = 8;
constexpr uint8_t kNs = 135, kNa = 136, kOptTargetMac = 2, kOptNonce = 14;

uint16_t get16(const uint8_t *p)
{
    return static_cast<uint16_t>(p[0] << 8 | p[1]);
}

bool all_zero(const uint8_t *p, size_t n)
{
    for (size_t i = 0; i < n; ++i)
        if (p[i] != 0)
            return false;
    return true;
}

// The ICMPv6 checksum over the pseudo-header and len bytes of msg, with its own field as is.
uint16_t icmp6_sum(const uint8_t src[16], const uint8_t dst[16], const uint8_t *msg, size_t len)
{
    uint32_t sum = 0;
    for (size_t i = 0; i < 16; i += 2)
        sum += get16(src + i) + get16(dst + i);
    sum += static_cast<uint32_t>(len >> 16) + static_cast<uint32_t>(len & 0xffff) + 58;
    for (size_t i = 0; i + 1 < len; i += 2)
        sum += get16(msg + i);
    if (len % 2 != 0)
        sum += static_cast<uint32_t>(msg[len - 1]) << 8;
    while (sum >> 16)
        sum = (sum & 0xffff) + (sum >> 16);
    return static_cast<uint16_t>(~sum);
}

// The first option of type in the options of an ND message; nullptr if absent. A zero
// length makes the whole message invalid (RFC 4861), reported through *bad.
const uint8_t *nd_option(const uint8_t *opts, size_t len, uint8_t type, bool *bad)
{
    const uint8_t *found = nullptr;
    for (size_t off = 0; off + 2 <= len;) {
        size_t optLen = static_cast<size_t>(opts[off + 1]) * 8;
        if (optLen == 0 || off + optLen > len) {
            *bad = true;
            return nullptr;
        }
        if (opts[off] == type && found == nullptr)
            found = opts + off;
        off += optLen;
    }
    return found;
}

} // namespace

ProbeVerdict arp_probe_verdict(const uint8_t *frame, size_t len, const uint8_t self[6],
                               const uint8_t target[4], uint8_t other[6])
{
    static const uint8_t kArpEth[8] = {0x00, 0x01, 0x08, 0x00, 6, 4};
    if (len < kArpEnd || get16(frame + kEthType) != 0x0806 ||
        memcmp(frame + kEthLen, kArpEth, 6) != 0)
        return ProbeVerdict::Ignore;
    uint16_t op = get16(frame + kArpOp);
    if ((op != 1 && op != 2) || memcmp(frame + kArpSha, self, 6) == 0)
        return ProbeVerdict::Ignore;
    ProbeVerdict v = ProbeVerdict::Ignore;
    if (memcmp(frame + kArpSpa, target, 4) == 0)
        v = ProbeVerdict::Conflict;
    else if (op == 1 && all_zero(frame + kArpSpa, 4) && memcmp(frame + kArpTpa, target, 4) == 0)
        v = ProbeVerdict::Simultaneous;
    if (v != ProbeVerdict::Ignore)
        memcpy(other, frame + kArpSha, 6);
    return v;
}

void dad_group_mac(uint8_t mac[6], const uint8_t target[16])
{
    mac[0] = 0x33, mac[1] = 0x33, mac[2] = 0xff;
    memcpy(mac + 3, target + 13, 3);
}

void dad_build_solicit(uint8_t frame[kDadFrameLen], const uint8_t mac[6], const uint8_t target[16],
                       const uint8_t nonce[kDadNonceLen])
{
    memset(frame, 0, kDadFrameLen);
    dad_group_mac(frame, target);
    memcpy(frame + kEthSrc, mac, 6);
    frame[kEthType] = 0x86, frame[kEthType + 1] = 0xdd;
    frame[kIp6] = 0x60;
    frame[kIp6Plen + 1] = kDadFrameLen - kIcmp;
    frame[kIp6Next] = 58;
    frame[kIp6Hops] = 255;
    // Source :: stays zero; the destination is ff02::1:ffXX:XXXX.
    uint8_t *dst = frame + kIp6Dst;
    dst[0] = 0xff, dst[1] = 0x02, dst[11] = 0x01, dst[12] = 0xff;
    memcpy(dst + 13, target + 13, 3);
    uint8_t *msg = frame + kIcmp;
    msg[0] = kNs;
    memcpy(msg + kNdTarget, target, 16);
    msg[kNdHead] = kOptNonce;
    msg[kNdHead + 1] = 1;
    memcpy(msg + kNdHead + 2, nonce, kDadNonceLen);
    uint16_t sum = icmp6_sum(frame + kIp6Src, dst, msg, kDadFrameLen - kIcmp);
    msg[2] = static_cast<uint8_t>(sum >> 8), msg[3] = static_cast<uint8_t>(sum);
}

ProbeVerdict dad_verdict(const uint8_t *frame, size_t len, const uint8_t self[6],
                         const uint8_t target[16], const uint8_t nonce[kDadNonceLen],
                         uint8_t other[6])
{
    // Padding after the IPv6 payload is allowed; extension headers are not for ND here.
    if (len < kIcmp + kNdHead || get16(frame + kEthType) != 0x86dd || (frame[kIp6] >> 4) != 6 ||
        frame[kIp6Next] != 58 || frame[kIp6Hops] != 255)
        return ProbeVerdict::Ignore;
    size_t plen = get16(frame + kIp6Plen);
    const uint8_t *msg = frame + kIcmp;
    if (plen < kNdHead || plen > len - kIcmp || msg[1] != 0 || (msg[0] != kNs && msg[0] != kNa) ||
        memcmp(msg + kNdTarget, target, 16) != 0 ||
        icmp6_sum(frame + kIp6Src, frame + kIp6Dst, msg, plen) != 0)
        return ProbeVerdict::Ignore;
    bool bad = false;
    if (msg[0] == kNa) {
        const uint8_t *mac = nd_option(msg + kNdHead, plen - kNdHead, kOptTargetMac, &bad);
        if (bad || memcmp(frame + kEthSrc, self, 6) == 0)
            return ProbeVerdict::Ignore;
        memcpy(other, mac != nullptr ? mac + 2 : frame + kEthSrc, 6);
        return ProbeVerdict::Conflict;
    }
    // A solicitation from an address is someone resolving the target, not probing for it.
    if (!all_zero(frame + kIp6Src, 16))
        return ProbeVerdict::Ignore;
    const uint8_t *opt = nd_option(msg + kNdHead, plen - kNdHead, kOptNonce, &bad);
    if (bad || (opt != nullptr && opt[1] == 1 && memcmp(opt + 2, nonce, kDadNonceLen) == 0))
        return ProbeVerdict::Ignore;
    memcpy(other, frame + kEthSrc, 6);
    return ProbeVerdict::Simultaneous;
}

} // namespace netlib
