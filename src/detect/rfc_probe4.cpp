// RFC 5227 for an IPv4 address the caller is about to use: probes (sender 0.0.0.0) while
// listening for any host that claims it or probes for it too, and the announcements after.
#include <linux/if_ether.h>
#include <string.h>

#include "detect/frames.h"
#include "detect/rfc_link.h"
#include "libnetwork.h"

using namespace netlib;

namespace
{

const uint8_t kBroadcast[6] = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff};

struct Arp4 {
    uint8_t self[6];
    uint8_t target[4];
};

ProbeVerdict read_arp(const uint8_t *frame, size_t len, const void *ctx, uint8_t other[6])
{
    const Arp4 *p = static_cast<const Arp4 *>(ctx);
    return arp_probe_verdict(frame, len, p->self, p->target, other);
}

} // namespace

extern "C" NET_API int NET_ProbeIpv4(const char *pcIfName, const char *pcAddr,
                                     const NetProbeOpts *pstOpts, NetProbeResult *pstRes)
{
    NET_CHECK_ARGS(-1, "pcIfName: %p, pcAddr: %p, pstRes: %p.\n", pcIfName, pcAddr, pstRes);
    int64_t start = probe_now_us();
    probe_result_reset(*pstRes);
    Arp4 ctx;
    ProbeTiming timing;
    if (INET_Ipv4StrToNum(pcAddr, ctx.target) != 0) {
        NET_LOG(NET_LVL_ERR, "pcAddr: %s is no IPv4 address.\n", pcAddr);
        return -1;
    }
    if (!probe_timing(NET_HERE, pstOpts, kRfc5227, timing))
        return -1;
    ProbeLink link;
    int outcome = probe_link_open(NET_HERE, pcIfName, ETH_P_ARP, link, &pstRes->iErrno);
    if (outcome != NET_PROBE_FREE) {
        pstRes->iOutcome = outcome;
        return -1;
    }
    memcpy(ctx.self, link.mac, 6);
    uint8_t probe[kArpFrameLen];
    arp_build_probe(probe, link.mac, ctx.target);
    return probe_run(NET_HERE, link, timing, probe, sizeof probe, kBroadcast, read_arp, &ctx, start,
                     *pstRes);
}

extern "C" NET_API int NET_AnnounceIpv4(const char *pcIfName, const char *pcAddr,
                                        const NetProbeOpts *pstOpts)
{
    NET_CHECK_ARGS(-1, "pcIfName: %p, pcAddr: %p.\n", pcIfName, pcAddr);
    uint8_t ip[4];
    ProbeTiming timing;
    if (INET_Ipv4StrToNum(pcAddr, ip) != 0) {
        NET_LOG(NET_LVL_ERR, "pcAddr: %s is no IPv4 address.\n", pcAddr);
        return -1;
    }
    if (!probe_timing(NET_HERE, pstOpts, kRfc5227, timing))
        return -1;
    ProbeLink link;
    int err = 0;
    if (probe_link_open(NET_HERE, pcIfName, ETH_P_ARP, link, &err) != NET_PROBE_FREE)
        return -1;
    uint8_t frame[kArpFrameLen];
    arp_build_announce(frame, link.mac, ip);
    for (int i = 0; i < timing.annNum; ++i) {
        if (i > 0)
            probe_sleep_ms(timing.annIntervalMs);
        err = probe_link_send(link, frame, sizeof frame, kBroadcast);
        if (err != 0) {
            NET_LOG(NET_LVL_ERR, "announcement %d of %d not sent: %s.\n", i + 1, timing.annNum,
                    strerror(err));
            return -1;
        }
    }
    return 0;
}
