// The RFC probes' packet socket, timing and send-while-listening loop.
#include "detect/rfc_link.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <poll.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <time.h>
#include <arpa/inet.h>

namespace netlib
{

namespace
{

constexpr int kMaxMs = 60000, kMaxCount = 16;

int pick(int32_t given, int rfc)
{
    return given < 0 ? rfc : static_cast<int>(given);
}

bool in_range(int v, int lo, int hi)
{
    return v >= lo && v <= hi;
}

// Whether the interface is up with carrier: 0, or why not.
int link_state(const ProbeLink &link)
{
    struct ifreq ifr;
    memset(&ifr, 0, sizeof ifr);
    if (if_indextoname(static_cast<unsigned>(link.ifindex), ifr.ifr_name) == nullptr)
        return ENODEV;
    if (ioctl(link.fd.get(), SIOCGIFFLAGS, &ifr) != 0)
        return errno;
    if ((ifr.ifr_flags & IFF_UP) == 0)
        return ENETDOWN;
    return (ifr.ifr_flags & IFF_RUNNING) == 0 ? ENOLINK : 0;
}

int finish(NetProbeResult &res, int64_t startUs, int outcome, int err)
{
    res.iOutcome = outcome;
    res.iErrno = err;
    res.iElapsedUs = static_cast<int32_t>(probe_now_us() - startUs);
    return outcome == NET_PROBE_NOT_SENT || outcome == NET_PROBE_NO_INTERFACE ? -1 : 0;
}

} // namespace

bool probe_timing(const CallSite &site, const NetProbeOpts *opts, const ProbeTiming &rfc,
                  ProbeTiming &out)
{
    out = rfc;
    if (opts != nullptr)
        out = {pick(opts->iProbeWaitMs, rfc.waitMs),
               pick(opts->iProbeNum, rfc.num),
               pick(opts->iProbeMinMs, rfc.minMs),
               pick(opts->iProbeMaxMs, rfc.maxMs),
               pick(opts->iAnnounceWaitMs, rfc.endWaitMs),
               pick(opts->iAnnounceNum, rfc.annNum),
               pick(opts->iAnnounceIntervalMs, rfc.annIntervalMs)};
    bool ok = in_range(out.waitMs, 0, kMaxMs) && in_range(out.num, 1, kMaxCount) &&
              in_range(out.minMs, 0, kMaxMs) && in_range(out.maxMs, out.minMs, kMaxMs) &&
              in_range(out.endWaitMs, 0, kMaxMs) && in_range(out.annNum, 1, kMaxCount) &&
              in_range(out.annIntervalMs, 0, kMaxMs);
    if (!ok)
        NET_LOG_AT(site, NET_LVL_ERR,
                   "options out of range: wait %d, probes %d, %d..%d apart, then %d; announce "
                   "%d, %d apart.\n",
                   out.waitMs, out.num, out.minMs, out.maxMs, out.endWaitMs, out.annNum,
                   out.annIntervalMs);
    return ok;
}

int probe_link_open(const CallSite &site, const char *ifname, uint16_t protocol, ProbeLink &link,
                    int *err)
{
    size_t n = strnlen(ifname, IFNAMSIZ);
    if (n == 0 || n >= IFNAMSIZ) {
        NET_LOG_AT(site, NET_LVL_ERR, "no interface named '%.32s'.\n", ifname);
        *err = ENODEV;
        return NET_PROBE_NO_INTERFACE;
    }
    // Unbound until the end: a protocol given here would queue frames of every interface.
    link.fd.reset(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0));
    struct ifreq ifr;
    memset(&ifr, 0, sizeof ifr);
    memcpy(ifr.ifr_name, ifname, n);
    if (!link.fd.valid() || ioctl(link.fd.get(), SIOCGIFINDEX, &ifr) != 0) {
        *err = errno;
        bool none = link.fd.valid() && (errno == ENODEV || errno == ENXIO);
        NET_LOG_AT(site, NET_LVL_ERR, "%s: %s.\n", ifname,
                   none ? "no such interface" : strerror(*err));
        return none ? NET_PROBE_NO_INTERFACE : NET_PROBE_NOT_SENT;
    }
    link.ifindex = ifr.ifr_ifindex;
    if (ioctl(link.fd.get(), SIOCGIFHWADDR, &ifr) != 0 ||
        ifr.ifr_hwaddr.sa_family != ARPHRD_ETHER) {
        *err = EAFNOSUPPORT;
        NET_LOG_AT(site, NET_LVL_ERR, "%s: no Ethernet address to probe from.\n", ifname);
        return NET_PROBE_NOT_SENT;
    }
    memcpy(link.mac, ifr.ifr_hwaddr.sa_data, 6);
    struct sockaddr_ll at;
    memset(&at, 0, sizeof at);
    at.sll_family = AF_PACKET;
    at.sll_protocol = htons(protocol);
    at.sll_ifindex = link.ifindex;
    if (bind(link.fd.get(), reinterpret_cast<sockaddr *>(&at), sizeof at) != 0) {
        *err = errno;
        NET_LOG_AT(site, NET_LVL_ERR, "%s: bind: %s.\n", ifname, strerror(*err));
        return NET_PROBE_NOT_SENT;
    }
    return NET_PROBE_FREE;
}

int probe_link_send(const ProbeLink &link, const uint8_t *frame, size_t len, const uint8_t dst[6])
{
    int state = link_state(link);
    if (state != 0)
        return state;
    struct sockaddr_ll to;
    memset(&to, 0, sizeof to);
    to.sll_family = AF_PACKET;
    to.sll_ifindex = link.ifindex;
    to.sll_halen = 6;
    memcpy(to.sll_addr, dst, 6);
    ssize_t got =
        sendto(link.fd.get(), frame, len, 0, reinterpret_cast<sockaddr *>(&to), sizeof to);
    if (got < 0)
        return errno;
    return static_cast<size_t>(got) == len ? 0 : EIO;
}

int64_t probe_now_us()
{
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000000 + ts.tv_nsec / 1000;
}

void probe_random_bytes(uint8_t *buf, size_t len)
{
    if (getrandom(buf, len, GRND_NONBLOCK) == static_cast<ssize_t>(len))
        return;
    UniqueFd fd(open("/dev/urandom", O_RDONLY | O_CLOEXEC));
    // Without either source the waits fall to their minimum, which the RFCs allow.
    if (!fd.valid() || read(fd.get(), buf, len) != static_cast<ssize_t>(len))
        memset(buf, 0, len);
}

int probe_random_ms(int lo, int hi)
{
    if (hi <= lo)
        return lo;
    uint32_t r = 0;
    probe_random_bytes(reinterpret_cast<uint8_t *>(&r), sizeof r);
    return lo + static_cast<int>(r % static_cast<uint32_t>(hi - lo + 1));
}

void probe_sleep_ms(int ms)
{
    struct timespec ts = {ms / 1000, (ms % 1000) * 1000000L};
    while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
    }
}

void probe_result_reset(NetProbeResult &res)
{
    memset(&res, 0, sizeof res);
    res.iOutcome = NET_PROBE_NOT_SENT;
    res.iErrno = EINVAL;
    res.iConflictUs = -1;
}

int probe_run(const CallSite &site, const ProbeLink &link, const ProbeTiming &timing,
              const uint8_t *frame, size_t len, const uint8_t dst[6], ProbeReader reader,
              const void *ctx, int64_t startUs, NetProbeResult &res)
{
    // Listening starts before the first probe's random wait and lasts to the end.
    int64_t next = startUs + probe_random_ms(0, timing.waitMs) * 1000LL, end = 0;
    uint8_t buf[2048];
    for (;;) {
        int64_t now = probe_now_us();
        if (res.iProbesSent < timing.num && now >= next) {
            int err = probe_link_send(link, frame, len, dst);
            if (err != 0) {
                NET_LOG_AT(site, NET_LVL_ERR, "probe %d not sent: %s.\n", res.iProbesSent + 1,
                           strerror(err));
                return finish(res, startUs, NET_PROBE_NOT_SENT, err);
            }
            if (++res.iProbesSent < timing.num)
                next = now + probe_random_ms(timing.minMs, timing.maxMs) * 1000LL;
            else
                end = now + timing.endWaitMs * 1000LL;
            continue;
        }
        if (res.iProbesSent == timing.num && now >= end) {
            // Free only if the link was there to hear an objection until the end.
            int err = link_state(link);
            if (err != 0)
                NET_LOG_AT(site, NET_LVL_ERR, "link lost while listening: %s.\n", strerror(err));
            return finish(res, startUs, err != 0 ? NET_PROBE_NOT_SENT : NET_PROBE_FREE, err);
        }
        int64_t left = (res.iProbesSent < timing.num ? next : end) - now;
        struct timespec ts = {static_cast<time_t>(left / 1000000),
                              static_cast<long>(left % 1000000) * 1000};
        struct pollfd p = {link.fd.get(), POLLIN, 0};
        if (ppoll(&p, 1, &ts, nullptr) <= 0)
            continue;
        for (;;) {
            struct sockaddr_ll from;
            socklen_t fromLen = sizeof from;
            ssize_t got = recvfrom(link.fd.get(), buf, sizeof buf, MSG_DONTWAIT,
                                   reinterpret_cast<sockaddr *>(&from), &fromLen);
            if (got < 0 && (errno == EAGAIN || errno == EINTR))
                break;
            if (got < 0) {
                // The interface went away or down under the probe.
                int err = errno;
                NET_LOG_AT(site, NET_LVL_ERR, "listening failed: %s.\n", strerror(err));
                return finish(res, startUs, NET_PROBE_NOT_SENT, err);
            }
            // Our own frames as the kernel hands them back on the way out.
            if (from.sll_pkttype == PACKET_OUTGOING)
                continue;
            ProbeVerdict v = reader(buf, static_cast<size_t>(got), ctx, res.aucMac);
            if (v == ProbeVerdict::Ignore)
                continue;
            res.iConflictUs = static_cast<int32_t>(probe_now_us() - startUs);
            return finish(res, startUs,
                          v == ProbeVerdict::Conflict ? NET_PROBE_CONFLICT : NET_PROBE_SIMULTANEOUS,
                          0);
        }
    }
}

} // namespace netlib
