// What the RFC probes share: a packet socket bound to one interface, the timing of the
// probes with its random waits, and the loop that sends on schedule while it listens.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "base/log.h"
#include "base/unique_fd.h"
#include "detect/rfc_frames.h"
#include "libnetwork.h"

namespace netlib
{

// Timings in milliseconds, every field resolved.
struct ProbeTiming {
    int waitMs, num, minMs, maxMs, endWaitMs, annNum, annIntervalMs;
};

constexpr ProbeTiming kRfc5227 = {1000, 3, 1000, 2000, 2000, 2, 2000};
constexpr ProbeTiming kRfc4862 = {1000, 1, 1000, 1000, 1000, 2, 2000};

// The caller's options over the RFC values; false (logged) when out of range.
bool probe_timing(const CallSite &site, const NetProbeOpts *opts, const ProbeTiming &rfc,
                  ProbeTiming &out);

// The interface as a probe sees it: a packet socket of one protocol bound to it, its index
// and MAC. Closed with the object.
struct ProbeLink {
    UniqueFd fd;
    int ifindex = 0;
    uint8_t mac[6] = {0};
};

// Opens link for protocol (ETH_P_ARP, ETH_P_IPV6) on ifname. NET_PROBE_FREE when ready,
// else NET_PROBE_NO_INTERFACE or NET_PROBE_NOT_SENT with *err set (logged under site).
int probe_link_open(const CallSite &site, const char *ifname, uint16_t protocol, ProbeLink &link,
                    int *err);
// Sends one frame to dst after checking the interface is up with carrier: a frame the
// kernel would drop without a word counts as not sent. 0, or an errno value.
int probe_link_send(const ProbeLink &link, const uint8_t *frame, size_t len, const uint8_t dst[6]);

// Decides what a received frame means; ctx is the probe's own.
using ProbeReader = ProbeVerdict (*)(const uint8_t *frame, size_t len, const void *ctx,
                                     uint8_t other[6]);

// Microseconds on the monotonic clock.
int64_t probe_now_us();
// len random bytes from getrandom, else /dev/urandom.
void probe_random_bytes(uint8_t *buf, size_t len);
// A uniformly random count of milliseconds in [lo, hi], from getrandom (else /dev/urandom).
int probe_random_ms(int lo, int hi);
// Sleeps ms milliseconds, interruptions resumed.
void probe_sleep_ms(int ms);

// Runs the probe: timing.num copies of frame sent on schedule, every received frame read
// meanwhile, until one objects or the last wait ends. Fills res; 0 made, -1 not sent.
int probe_run(const CallSite &site, const ProbeLink &link, const ProbeTiming &timing,
              const uint8_t *frame, size_t len, const uint8_t dst[6], ProbeReader reader,
              const void *ctx, int64_t startUs, NetProbeResult &res);

// res reset to "not sent, EINVAL": a call that stops early never reads as free.
void probe_result_reset(NetProbeResult &res);

} // namespace netlib
