// Detection on the wire: ARP and IPv6 probes for an address, gratuitous ARP, one ping, the MAC
// collision monitor for a while, and the subnet checks against a port and the other port.
#include <errno.h>
#include <pthread.h>
#include <string.h>
#include <time.h>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#endif

#include "args.h"
#include "cli.h"
#include "guard.h"
#include "json.h"
#include "libnetwork.h"

namespace
{

int probe_result(const Ctx &c, const char *ifn, const char *addr, long ms, bool collision)
{
    if (c.json)
        Json()
            .begin_object()
            .str("interface", ifn)
            .str("address", addr)
            .num("timeout_ms", ms)
            .boolean("collision", collision)
            .end_object()
            .print();
    else if (collision)
        printf("%s on %s: in use (another host answered)\n", addr, ifn);
    else
        printf("%s on %s: free (no answer within %ld ms)\n", addr, ifn, ms);
    return 0;
}

const char *const kOutcomes[] = {"free", "conflict", "simultaneous", "not-sent", "no-interface"};

// The RFC probe of either family, --fast and --count over the RFC timings. Exit status 0
// free, 1 another host objects, 2 the probe could not be made.
int rfc_probe(Ctx &c, Args &a, bool v6)
{
    bool fast = a.flag("--fast");
    const char *count = nullptr;
    if (!a.option("--count", &count))
        return kExitUsage;
    const char *ifn = a.need("INTERFACE"), *addr = a.need("ADDRESS");
    long probes = -1;
    if (!a.end() || !check_ifname(c, "INTERFACE", ifn) ||
        !(v6 ? check_ipv6(c, "ADDRESS", addr) : check_ipv4(c, "ADDRESS", addr)) ||
        (count != nullptr && !parse_long(c, "--count", count, 1, 16, &probes)))
        return kExitUsage;
    NetProbeOpts opts = NET_PROBE_OPTS_RFC;
    if (fast)
        opts = NET_PROBE_OPTS_FAST;
    opts.iProbeNum = static_cast<int32_t>(probes);
    NetProbeResult r;
    int rc = v6 ? NET_ProbeIpv6(ifn, addr, &opts, &r) : NET_ProbeIpv4(ifn, addr, &opts, &r);
    bool made = rc == 0, other = made && r.iOutcome != NET_PROBE_FREE;
    char mac[18] = "";
    snprintf(mac, sizeof mac, "%02x:%02x:%02x:%02x:%02x:%02x", r.aucMac[0], r.aucMac[1],
             r.aucMac[2], r.aucMac[3], r.aucMac[4], r.aucMac[5]);
    int outcome = r.iOutcome >= 0 && r.iOutcome <= NET_PROBE_NO_INTERFACE ? r.iOutcome : 3;
    if (c.json) {
        Json j;
        j.begin_object()
            .str("interface", ifn)
            .str("address", addr)
            .str("method", v6 ? "rfc4862" : "rfc5227")
            .str("outcome", kOutcomes[outcome])
            .str("mac", other ? mac : nullptr)
            .num("probes_sent", r.iProbesSent);
        if (other)
            j.real("conflict_ms", r.iConflictUs / 1000.0);
        else
            j.null("conflict_ms");
        j.real("elapsed_ms", r.iElapsedUs / 1000.0)
            .str("error", made ? nullptr : strerror(r.iErrno))
            .end_object()
            .print();
    } else if (r.iOutcome == NET_PROBE_CONFLICT) {
        printf("%s on %s: in use by %s (its frame after %.1f ms, %d probe(s) sent)\n", addr, ifn,
               mac, r.iConflictUs / 1000.0, r.iProbesSent);
    } else if (r.iOutcome == NET_PROBE_SIMULTANEOUS) {
        printf("%s on %s: %s probes for it too (after %.1f ms, %d probe(s) sent)\n", addr, ifn, mac,
               r.iConflictUs / 1000.0, r.iProbesSent);
    } else if (made) {
        printf("%s on %s: free (%d probe(s), no objection in %.1f ms)\n", addr, ifn, r.iProbesSent,
               r.iElapsedUs / 1000.0);
    }
    if (!made) {
        fail(c, "INTERFACE '%s': %s: %s", ifn,
             r.iOutcome == NET_PROBE_NO_INTERFACE ? "no such interface" : "probe not sent",
             strerror(r.iErrno));
        return kExitUsage;
    }
    return other ? kExitFail : 0;
}

int probe(Ctx &c, Args &a)
{
    if (a.flag("--rfc"))
        return rfc_probe(c, a, false);
    const char *text = "500";
    if (!a.option("--timeout", &text))
        return kExitUsage;
    const char *ifn = a.need("INTERFACE"), *addr = a.need("ADDRESS");
    long ms = 0;
    if (!a.end() || !check_ifname(c, "INTERFACE", ifn) || !check_ipv4(c, "ADDRESS", addr) ||
        !parse_long(c, "--timeout", text, 0, 60000, &ms))
        return kExitUsage;
    int collision = 0;
    if (NET_DetectIpv4Collision(ifn, addr, static_cast<int>(ms), &collision) != 0)
        return fail(c, "INTERFACE '%s' cannot send the probe (no such interface, or down)", ifn);
    return probe_result(c, ifn, addr, ms, collision == 1);
}

int probe6(Ctx &c, Args &a)
{
    if (a.flag("--dad"))
        return rfc_probe(c, a, true);
    const char *text = "500";
    if (!a.option("--timeout", &text))
        return kExitUsage;
    const char *ifn = a.need("INTERFACE"), *addr = a.need("ADDRESS");
    long ms = 0;
    if (!a.end() || !check_ifname(c, "INTERFACE", ifn) || !check_ipv6(c, "ADDRESS", addr) ||
        !parse_long(c, "--timeout", text, 0, 60000, &ms))
        return kExitUsage;
    int collision = 0;
    if (NET_DetectIpv6Collision(ifn, addr, static_cast<int>(ms), &collision) != 0)
        return fail(c, "INTERFACE '%s' cannot send the solicitation", ifn);
    return probe_result(c, ifn, addr, ms, collision == 1);
}

// RFC 5227 announcements of an address the port is taking.
int announce_rfc(Ctx &c, Args &a)
{
    bool fast = a.flag("--fast");
    const char *ifn = a.need("INTERFACE"), *addr = a.need("ADDRESS");
    if (!a.end() || !check_ifname(c, "INTERFACE", ifn) || !check_ipv4(c, "ADDRESS", addr))
        return kExitUsage;
    NetProbeOpts opts = NET_PROBE_OPTS_RFC;
    if (fast)
        opts = NET_PROBE_OPTS_FAST;
    if (NET_AnnounceIpv4(ifn, addr, &opts) != 0)
        return fail(c, "INTERFACE '%s' cannot announce %s (no such interface, down, or no carrier)",
                    ifn, addr);
    if (c.json)
        Json()
            .begin_object()
            .str("interface", ifn)
            .str("address", addr)
            .num("sent", 2)
            .end_object()
            .print();
    else
        printf("%s: %s announced twice\n", ifn, addr);
    return 0;
}

int announce(Ctx &c, Args &a)
{
    if (a.flag("--rfc"))
        return announce_rfc(c, a);
    const char *ifn = a.need("INTERFACE");
    if (!a.end() || !check_ifname(c, "INTERFACE", ifn))
        return kExitUsage;
    if (NET_SendGratuitousPack(ifn) != 0)
        return fail(c, "INTERFACE '%s' cannot announce itself (no IPv4 address?)", ifn);
    if (c.json)
        Json().begin_object().str("interface", ifn).boolean("sent", true).end_object().print();
    else
        printf("%s: gratuitous ARP sent\n", ifn);
    return 0;
}

int ping(Ctx &c, Args &a)
{
    const char *ifn = a.need("INTERFACE"), *host = a.need("HOST");
    if (!a.end() || !check_ifname(c, "INTERFACE", ifn) || !check_ipv4(c, "HOST", host))
        return kExitUsage;
    double us = 0;
    if (NET_Ping(ifn, host, &us) != 0)
        return fail(c, "HOST '%s' did not answer through %s within 2 s", host, ifn);
    if (c.json)
        Json()
            .begin_object()
            .str("interface", ifn)
            .str("host", host)
            .boolean("reply", true)
            .num("time_us", static_cast<long>(us))
            .end_object()
            .print();
    else
        printf("reply from %s through %s: time %.3f ms\n", host, ifn, us / 1000.0);
    return 0;
}

void sleep_ms(long ms)
{
    struct timespec ts = {ms / 1000, (ms % 1000) * 1000000L};
    nanosleep(&ts, nullptr);
}

#if defined(__SANITIZE_ADDRESS__)
// Cancelling unwinds the library's frames without the sanitizer unpoisoning them; it would
// then trip over their stale marks as the thread ends. Clear them on the way out.
struct AfterCancel {
    ~AfterCancel()
    {
        pthread_attr_t attr;
        void *low = nullptr;
        size_t size = 0;
        if (pthread_getattr_np(pthread_self(), &attr) != 0)
            return;
        pthread_attr_getstack(&attr, &low, &size);
        pthread_attr_destroy(&attr);
        char *here = static_cast<char *>(__builtin_frame_address(0));
        __asan_unpoison_memory_region(low, static_cast<size_t>(here - static_cast<char *>(low)));
    }
};
#else
struct AfterCancel {
};
#endif

// The monitor as an application runs it: a thread of its own, cancelled when done.
void *monitor(void *ifname)
{
    [[maybe_unused]] AfterCancel clean;
    return net_DetectMacCollisionThread(ifname);
}

int macmon(Ctx &c, Args &a)
{
    const char *text = "3";
    if (!a.option("--seconds", &text))
        return kExitUsage;
    const char *ifn = a.need("INTERFACE");
    long secs = 0;
    if (!a.end() || !check_ifname(c, "INTERFACE", ifn) ||
        !parse_long(c, "--seconds", text, 1, 3600, &secs))
        return kExitUsage;
    pthread_t thread;
    if (pthread_create(&thread, nullptr, monitor, const_cast<char *>(ifn)) != 0)
        return fail(c, "the monitor thread cannot start");
    bool seen = false, started = false;
    int status = 0;
    for (long t = 0; t < secs * 10; ++t) {
        sleep_ms(100);
        if (NET_GetMacCollStatus(ifn, &status) == 0) {
            started = true;
            seen = seen || status == 1;
        }
    }
    pthread_cancel(thread);
    pthread_join(thread, nullptr);
    if (!started)
        return fail(c, "INTERFACE '%s' cannot be monitored (no such interface?)", ifn);
    if (c.json)
        Json()
            .begin_object()
            .str("interface", ifn)
            .num("seconds", secs)
            .boolean("collision_seen", seen)
            .num("status", status)
            .end_object()
            .print();
    else if (seen)
        printf("%s: collision: another station sent ARP with this port's MAC (status now %d)\n",
               ifn, status);
    else
        printf("%s: no other station used this port's MAC in %ld s\n", ifn, secs);
    return 0;
}

bool is_v6(const char *addr)
{
    return strchr(addr, ':') != nullptr;
}

int subnet_same(Ctx &c, Args &a)
{
    const char *ifn = a.need("INTERFACE"), *addr = a.need("ADDRESS");
    if (!a.end() || !check_ifname(c, "INTERFACE", ifn) ||
        !(is_v6(addr) ? check_ipv6(c, "ADDRESS", addr) : check_ipv4(c, "ADDRESS", addr)))
        return kExitUsage;
    bool same =
        (is_v6(addr) ? NET_IsIpv6SameSubnet(ifn, addr) : NET_IsIpv4SameSubnet(ifn, addr)) == 1;
    if (c.json)
        Json()
            .begin_object()
            .str("interface", ifn)
            .str("address", addr)
            .boolean("same", same)
            .end_object()
            .print();
    else
        printf("%s %s in the subnet of %s\n", addr, same ? "lies" : "does not lie", ifn);
    return same ? 0 : kExitFail;
}

int subnet_valid(Ctx &c, Args &a)
{
    const char *ifn = a.need("INTERFACE"), *addr = a.need("ADDRESS"), *mask = a.need("MASK");
    if (!a.end() || !guard::port(c, "INTERFACE", ifn, false))
        return kExitUsage;
    int ok;
    if (is_v6(addr)) {
        long prefix = 0;
        if (!check_ipv6(c, "ADDRESS", addr) || !parse_long(c, "MASK", mask, 0, 128, &prefix))
            return kExitUsage;
        ok = NET_IsIpv6SubnetValid(ifn, addr, static_cast<int>(prefix));
    } else {
        if (!check_ipv4(c, "ADDRESS", addr) || !check_mask(c, "MASK", mask))
            return kExitUsage;
        ok = NET_IsIpv4SubnetValid(ifn, addr, mask);
    }
    if (c.json)
        Json()
            .begin_object()
            .str("interface", ifn)
            .str("address", addr)
            .str("mask", mask)
            .boolean("valid", ok == 1)
            .end_object()
            .print();
    else
        printf("%s/%s for %s: %s\n", addr, mask, ifn,
               ok == 1 ? "acceptable (outside the other port's subnet)"
                       : "refused (inside the other port's subnet)");
    return ok == 1 ? 0 : kExitFail;
}

int subnet_owner(Ctx &c, Args &a)
{
    const char *addr = a.need("ADDRESS");
    if (!a.end() || !check_ipv4(c, "ADDRESS", addr))
        return kExitUsage;
    char ifn[16] = {0};
    bool found = NET_GetIfNameByIp(addr, ifn, sizeof ifn) == 0;
    if (c.json)
        Json()
            .begin_object()
            .str("address", addr)
            .str("interface", found ? ifn : nullptr)
            .end_object()
            .print();
    else if (found)
        printf("%s is held by %s\n", addr, ifn);
    else
        printf("%s is held by no interface\n", addr);
    return 0;
}

const Command kCommands[] = {
    {"probe", "INTERFACE ADDRESS", "ARP probe: does another host hold this IPv4 address?",
     "--timeout MS waits that long for an answer (default 500).\n"
     "--rfc probes as RFC 5227 says (up to 7 s; --fast: 200..350 ms; --count N probes) and\n"
     "names the other host; exit status 1 in use, 0 free, 2 not sent.",
     probe},
    {"probe6", "INTERFACE ADDRESS", "neighbour solicitation: does another host hold it?",
     "--timeout MS: waits MS/1000 s plus MS ms (default 500).\n"
     "--dad: RFC 4862 detection from :: with a nonce (up to 2 s; --fast: 100..150 ms; --count\n"
     "N solicitations), naming the other host; exit status 1 in use, 0 free, 2 not sent.",
     probe6},
    {"announce", "INTERFACE [ADDRESS]", "send one gratuitous ARP for the port's address",
     "--rfc ADDRESS: two RFC 5227 announcements of ADDRESS, 2 s apart (--fast: 100 ms).", announce},
    {"ping", "INTERFACE HOST", "one ICMP echo to a numeric IPv4 host (waits up to 2 s)",
     "Replies are matched by the whole process id: run it where pids stay below 65536.", ping},
    {"macmon", "INTERFACE", "watch for another station using the port's MAC",
     "--seconds N watches for N seconds (default 3), then stops the monitor.", macmon},
    {"subnet same", "INTERFACE ADDRESS", "whether the address lies in the port's live subnet",
     nullptr, subnet_same},
    {"subnet valid", "INTERFACE ADDRESS MASK|PREFIX",
     "whether the address stays outside the other port's subnet", nullptr, subnet_valid},
    {"subnet owner", "ADDRESS", "the interface that holds an IPv4 address", nullptr, subnet_owner},
};

} // namespace

CommandList detect_commands()
{
    return {kCommands, sizeof kCommands / sizeof kCommands[0]};
}
