// Kernel events as they happen, in the manner of `ip monitor`: one line (or one JSON object)
// per event, flushed at once so a pipe sees it at once. SIGINT and SIGTERM end it with 0.
#include <poll.h>
#include <signal.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>

#include <string>
#include <vector>

#include "args.h"
#include "cli.h"
#include "json.h"
#include "libnetwork.h"

namespace
{

volatile sig_atomic_t g_stop = 0;

void on_signal(int)
{
    g_stop = 1;
}

const char *kind_name(int kind)
{
    static const char *const names[] = {
        "",       "overrun",  "link-up",  "link-down", "carrier-on", "carrier-off", "mtu",
        "rename", "link-new", "link-del", "addr-add",  "addr-del",   "route-add",   "route-del"};
    return kind > 0 && kind < static_cast<int>(sizeof names / sizeof *names) ? names[kind] : "?";
}

// Wall-clock time of the event, from its monotonic stamp: "2026-11-25T07:50:56.123456Z".
std::string wall_time(uint64_t monoNs)
{
    struct timespec mono, real;
    clock_gettime(CLOCK_MONOTONIC, &mono);
    clock_gettime(CLOCK_REALTIME, &real);
    int64_t ago = (static_cast<int64_t>(mono.tv_sec) * 1000000000 + mono.tv_nsec) -
                  static_cast<int64_t>(monoNs);
    int64_t at = static_cast<int64_t>(real.tv_sec) * 1000000000 + real.tv_nsec - ago;
    time_t sec = static_cast<time_t>(at / 1000000000);
    struct tm tm;
    gmtime_r(&sec, &tm);
    char buf[48];
    size_t n = strftime(buf, sizeof buf, "%Y-%m-%dT%H:%M:%S", &tm);
    snprintf(buf + n, sizeof buf - n, ".%06ldZ", static_cast<long>(at % 1000000000 / 1000));
    return buf;
}

std::string flag_words(uint32_t f)
{
    std::string s;
    const struct {
        uint32_t bit;
        const char *word;
    } words[] = {{NET_EVENT_F_TENTATIVE, "tentative"},
                 {NET_EVENT_F_DADFAILED, "dadfailed"},
                 {NET_EVENT_F_DEPRECATED, "deprecated"}};
    for (const auto &w : words)
        if (f & w.bit)
            s += std::string(s.empty() ? "" : " ") + w.word;
    return s;
}

bool is_link(int kind)
{
    return kind >= NET_EVENT_LINK_UP && kind <= NET_EVENT_LINK_DEL;
}

void print_json(const NetEvent &e)
{
    Json j;
    j.begin_object()
        .str("time", wall_time(e.ullTimeNs))
        .num("mono_ns", static_cast<long>(e.ullTimeNs))
        .str("kind", kind_name(e.iKind));
    if (e.iKind != NET_EVENT_OVERRUN)
        j.str("interface", e.szIfName).num("index", e.iIfIndex);
    if (is_link(e.iKind))
        j.num("mtu", e.iMtu)
            .boolean("up", e.uiFlags & NET_EVENT_F_UP)
            .boolean("carrier", e.uiFlags & NET_EVENT_F_CARRIER);
    if (e.iKind == NET_EVENT_RENAME)
        j.str("old_name", e.szAddr);
    if (e.iFamily != 0) {
        j.str("family", e.iFamily == AF_INET ? "inet" : "inet6")
            .str(e.iKind >= NET_EVENT_ROUTE_ADD ? "destination" : "address", e.szAddr)
            .num("prefix", e.iPrefixLen);
    }
    if (e.iKind == NET_EVENT_ADDR_ADD || e.iKind == NET_EVENT_ADDR_DEL) {
        j.begin_array("flags");
        std::string words = flag_words(e.uiFlags);
        for (size_t at = 0; at < words.size();) {
            size_t end = words.find(' ', at);
            end = end == std::string::npos ? words.size() : end;
            j.str(nullptr, words.substr(at, end - at));
            at = end + 1;
        }
        j.end_array();
    }
    if (e.iKind >= NET_EVENT_ROUTE_ADD)
        j.str("gateway", e.szGateway[0] ? e.szGateway : nullptr);
    j.end_object().print();
}

void print_line(const NetEvent &e)
{
    std::string t = wall_time(e.ullTimeNs);
    if (e.iKind == NET_EVENT_OVERRUN) {
        printf("%s overrun (events were lost: read the state afresh)\n", t.c_str());
        return;
    }
    printf("%s %s %s", t.c_str(), e.szIfName[0] ? e.szIfName : "-", kind_name(e.iKind));
    if (e.iKind == NET_EVENT_MTU)
        printf(" %d", e.iMtu);
    else if (e.iKind == NET_EVENT_RENAME)
        printf(" from %s", e.szAddr);
    else if (e.iFamily != 0)
        printf(" %s/%d", e.szAddr, e.iPrefixLen);
    if (e.szGateway[0])
        printf(" via %s", e.szGateway);
    std::string flags = flag_words(e.uiFlags);
    if (!is_link(e.iKind) && !flags.empty())
        printf(" %s", flags.c_str());
    printf("\n");
}

int monitor(Ctx &c, Args &a)
{
    bool json = a.flag("--json") || c.json;
    std::vector<const char *> names;
    while (const char *n = a.take()) {
        if (!check_ifname(c, "IFACE", n))
            return kExitUsage;
        names.push_back(n);
    }
    if (!a.end())
        return kExitUsage;
    names.push_back(nullptr);

    // The signals stay blocked except inside ppoll, so a stop request is never missed.
    struct sigaction sa = {};
    sa.sa_handler = on_signal;
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
    sigset_t stop, waiting;
    sigemptyset(&stop);
    sigaddset(&stop, SIGINT);
    sigaddset(&stop, SIGTERM);
    sigprocmask(SIG_BLOCK, &stop, &waiting);
    sigdelset(&waiting, SIGINT);
    sigdelset(&waiting, SIGTERM);

    int fd = NET_EventOpen(names.size() > 1 ? names.data() : nullptr, NET_EVENT_ALL);
    if (fd < 0)
        return fail(c, "cannot open the kernel's events (see -v)");
    int status = 0;
    while (!g_stop) {
        NetEvent e;
        int r = NET_EventRead(fd, &e);
        if (r < 0) {
            status = fail(c, "reading events failed (see -v)");
            break;
        }
        if (r == 1) {
            json ? print_json(e) : print_line(e);
            fflush(stdout);
            continue;
        }
        struct pollfd p = {fd, POLLIN, 0};
        ppoll(&p, 1, nullptr, &waiting);
    }
    NET_EventClose(fd);
    return status;
}

const Command kCommands[] = {
    {"monitor", "[--json] [IFACE...]", "print the kernel's events as they happen, until Ctrl-C",
     "One line (or with --json one object) per event, with its time; all interfaces when none\n"
     "is named. SIGINT or SIGTERM ends it with status 0. Kinds:\n"
     "  link-up, link-down    the interface was set up or down\n"
     "  carrier-on,           the other end of the cable appeared or went away (unplugged,\n"
     "  carrier-off           or the neighbour's side went down)\n"
     "  mtu                   the MTU changed (the new value)\n"
     "  rename                the interface got a new name (from the old one)\n"
     "  link-new, link-del    an interface appeared or was removed\n"
     "  addr-add, addr-del    an address was added (or its flags changed) or removed; flags:\n"
     "                        tentative (duplicate detection running), dadfailed (another\n"
     "                        host holds it: unusable), deprecated (preferred lifetime over)\n"
     "  route-add, route-del  a unicast route of the main table, destination/prefix [via GW]\n"
     "  overrun               the kernel dropped events: read the state afresh",
     monitor},
};

} // namespace

CommandList monitor_commands()
{
    return {kCommands, sizeof kCommands / sizeof *kCommands};
}
