// Frames of the RFC probes: the IPv6 solicitation built whole (Ethernet and IPv6 headers
// included, since it leaves from the unspecified address), and the readers that decide
// whether a received frame objects to the address. No sockets here, so the fuzz target
// reaches every reader.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace netlib
{

// What a received frame means to a probe for an address.
enum class ProbeVerdict {
    Ignore,       // unrelated, malformed, or our own frame come back
    Conflict,     // another host uses the address
    Simultaneous, // another host probes for it too
};

// An ARP frame (Ethernet header first) against a probe for target sent from self: another
// MAC with sender address target is a conflict; another MAC's probe (sender 0.0.0.0) for
// target is a simultaneous probe. The other host's MAC goes to other.
ProbeVerdict arp_probe_verdict(const uint8_t *frame, size_t len, const uint8_t self[6],
                               const uint8_t target[4], uint8_t other[6]);

// Ethernet, IPv6 and ICMPv6 headers, the solicitation, and one nonce option.
constexpr size_t kDadFrameLen = 14 + 40 + 24 + 8;
constexpr size_t kDadNonceLen = 6;

// The RFC 4862 probe for target from mac: source ::, to target's solicited-node group (and
// its multicast MAC), hop limit 255, the RFC 7527 nonce option, checksum filled.
void dad_build_solicit(uint8_t frame[kDadFrameLen], const uint8_t mac[6], const uint8_t target[16],
                       const uint8_t nonce[kDadNonceLen]);
// The multicast MAC of target's solicited-node group, 33:33:ff:xx:xx:xx.
void dad_group_mac(uint8_t mac[6], const uint8_t target[16]);

// An IPv6 frame (Ethernet header first) against our probe for target: an advertisement for
// target from another MAC is a conflict (the other MAC from its target link-layer option,
// else the frame's source); a solicitation for target from :: whose nonce is not ours is a
// simultaneous probe. Frames with a wrong checksum or hop limit count for nothing.
ProbeVerdict dad_verdict(const uint8_t *frame, size_t len, const uint8_t self[6],
                         const uint8_t target[16], const uint8_t nonce[kDadNonceLen],
                         uint8_t other[6]);

} // namespace netlib
