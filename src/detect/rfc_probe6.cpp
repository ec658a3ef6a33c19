// RFC 4862 duplicate address detection for an IPv6 address the caller is about to use:
// solicitations from :: carrying an RFC 7527 nonce, sent as whole frames because the
// kernel's own sockets will not send from the unspecified address.
#include <errno.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <string.h>
#include <sys/socket.h>

#include "detect/rfc_link.h"
#include "libnetwork.h"

using namespace netlib;

namespace
{

struct Dad6 {
    uint8_t self[6];
    uint8_t target[16];
    uint8_t nonce[kDadNonceLen];
};

ProbeVerdict read_nd(const uint8_t *frame, size_t len, const void *ctx, uint8_t other[6])
{
    const Dad6 *p = static_cast<const Dad6 *>(ctx);
    return dad_verdict(frame, len, p->self, p->target, p->nonce, other);
}

} // namespace

extern "C" NET_API int NET_ProbeIpv6(const char *pcIfName, const char *pcAddr,
                                     const NetProbeOpts *pstOpts, NetProbeResult *pstRes)
{
    NET_CHECK_ARGS(-1, "pcIfName: %p, pcAddr: %p, pstRes: %p.\n", pcIfName, pcAddr, pstRes);
    int64_t start = probe_now_us();
    probe_result_reset(*pstRes);
    Dad6 ctx;
    ProbeTiming timing;
    if (INET_Ipv6StrToNum(pcAddr, ctx.target) != 0) {
        NET_LOG(NET_LVL_ERR, "pcAddr: %s is no IPv6 address.\n", pcAddr);
        return -1;
    }
    if (!probe_timing(NET_HERE, pstOpts, kRfc4862, timing))
        return -1;
    ProbeLink link;
    int outcome = probe_link_open(NET_HERE, pcIfName, ETH_P_IPV6, link, &pstRes->iErrno);
    if (outcome != NET_PROBE_FREE) {
        pstRes->iOutcome = outcome;
        return -1;
    }
    // Another host's probe goes to the solicited-node group: have the interface accept it
    // for as long as the socket lives.
    uint8_t group[6];
    dad_group_mac(group, ctx.target);
    struct packet_mreq mr;
    memset(&mr, 0, sizeof mr);
    mr.mr_ifindex = link.ifindex;
    mr.mr_type = PACKET_MR_MULTICAST;
    mr.mr_alen = 6;
    memcpy(mr.mr_address, group, 6);
    if (setsockopt(link.fd.get(), SOL_PACKET, PACKET_ADD_MEMBERSHIP, &mr, sizeof mr) != 0) {
        pstRes->iErrno = errno;
        NET_LOG(NET_LVL_ERR, "%s: cannot join the solicited-node group: %s.\n", pcIfName,
                strerror(errno));
        return -1;
    }
    memcpy(ctx.self, link.mac, 6);
    // Fresh per call: a solicitation that comes back with it is our own.
    probe_random_bytes(ctx.nonce, kDadNonceLen);
    uint8_t frame[kDadFrameLen];
    dad_build_solicit(frame, link.mac, ctx.target, ctx.nonce);
    return probe_run(NET_HERE, link, timing, frame, sizeof frame, group, read_nd, &ctx, start,
                     *pstRes);
}
