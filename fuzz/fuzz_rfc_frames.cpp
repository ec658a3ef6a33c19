// The RFC probes' readers on arbitrary received bytes, each given an exactly sized copy so
// the sanitizer sees any read past what was received. The answers are checked against the
// fields where the frames place them, and the IPv6 probe we build must read back as our own
// with our nonce and as someone else's probe with any other.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <vector>

#include "detect/rfc_frames.h"
#include "fuzz_support.h"

using namespace netlib;
using namespace fuzzsupport;

namespace
{

const uint8_t kNonce[kDadNonceLen] = {1, 2, 3, 4, 5, 6};

void arp(const std::vector<uint8_t> &f)
{
    uint8_t other[6] = {0};
    ProbeVerdict v = arp_probe_verdict(f.data(), f.size(), kMac, kIp, other);
    if (v == ProbeVerdict::Ignore)
        return;
    require(f.size() >= 42 && f[12] == 0x08 && f[13] == 0x06, "ARP length and type");
    require(memcmp(other, &f[22], 6) == 0 && memcmp(other, kMac, 6) != 0, "ARP sender");
    require(v == ProbeVerdict::Conflict ? memcmp(&f[28], kIp, 4) == 0
                                        : f[21] == 1 && memcmp(&f[38], kIp, 4) == 0,
            "ARP conflict from the address, or a probe for it");
}

void nd(const std::vector<uint8_t> &f)
{
    uint8_t other[6] = {0};
    ProbeVerdict v = dad_verdict(f.data(), f.size(), kMac, kTarget, kNonce, other);
    if (v == ProbeVerdict::Ignore)
        return;
    require(f.size() >= 78 && f[20] == 58 && f[21] == 255 && memcmp(&f[62], kTarget, 16) == 0 &&
                f[54] == (v == ProbeVerdict::Conflict ? 136 : 135),
            "IPv6 length, protocol, hops, ND type and target");
}

// Our solicitation with a nonce from the input: ours when it matches, another's when not.
void own(const std::vector<uint8_t> &f)
{
    if (f.size() < kDadNonceLen + 6)
        return;
    uint8_t frame[kDadFrameLen], other[6];
    dad_build_solicit(frame, f.data() + kDadNonceLen, kTarget, f.data());
    std::vector<uint8_t> copy(frame, frame + sizeof frame);
    bool same = memcmp(f.data(), kNonce, kDadNonceLen) == 0;
    ProbeVerdict v = dad_verdict(copy.data(), copy.size(), kMac, kTarget, kNonce, other);
    require(v == (same ? ProbeVerdict::Ignore : ProbeVerdict::Simultaneous), "own probe");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    std::vector<uint8_t> rest(data + 1, data + size);
    switch (data[0] % 3) {
    case 0:
        arp(rest);
        break;
    case 1:
        nd(rest);
        break;
    default:
        own(rest);
        break;
    }
    return 0;
}
