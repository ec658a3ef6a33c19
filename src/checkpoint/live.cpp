#include "checkpoint/live.h"

#include <errno.h>
#include <linux/if_addr.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>

#include "base/log.h"
#include "base/unique_fd.h"
#include "events/netlink_walk.h"

namespace netlib
{

namespace
{

// The kernel sizes its dump parts to the reader's buffer.
constexpr size_t kBufLen = 8192;

// One request: header, fixed part, attributes.
struct Req {
    alignas(nlmsghdr) uint8_t buf[128];
    nlmsghdr *h() { return reinterpret_cast<nlmsghdr *>(buf); }
    Req(uint16_t type, uint16_t flags, const void *head, size_t headLen)
    {
        memset(buf, 0, sizeof buf);
        h()->nlmsg_len = NLMSG_LENGTH(headLen);
        h()->nlmsg_type = type;
        h()->nlmsg_flags = static_cast<uint16_t>(flags | NLM_F_REQUEST);
        memcpy(NLMSG_DATA(h()), head, headLen);
    }
    void put(uint16_t type, const void *data, size_t len)
    {
        size_t off = NLMSG_ALIGN(h()->nlmsg_len);
        nlattr a = {static_cast<uint16_t>(NLA_HDRLEN + len), type};
        memcpy(buf + off, &a, sizeof a);
        memcpy(buf + off + NLA_HDRLEN, data, len);
        h()->nlmsg_len = static_cast<uint32_t>(off + NLA_ALIGN(NLA_HDRLEN + len));
    }
};

typedef void (*OnMsg)(const NlMsg &msg, void *ctx);

// Sends the request and reads the answer: each dump message goes to onMsg. 0 when the dump
// ended or the kernel acknowledged, else the errno it answered with.
int talk(int fd, Req &r, OnMsg onMsg, void *ctx)
{
    static uint32_t seq;
    uint32_t mine = __atomic_add_fetch(&seq, 1, __ATOMIC_RELAXED);
    r.h()->nlmsg_seq = mine;
    if (send(fd, r.buf, r.h()->nlmsg_len, 0) < 0)
        return errno;
    alignas(nlmsghdr) uint8_t buf[kBufLen];
    for (;;) {
        ssize_t n = recv(fd, buf, sizeof buf, 0);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return errno;
        }
        NlMsgWalk walk(buf, static_cast<size_t>(n));
        NlMsg m;
        while (walk.next(&m)) {
            if (m.seq != mine)
                continue;
            if (m.type == NLMSG_DONE)
                return 0;
            if (m.type == NLMSG_ERROR) {
                int e = -EPROTO;
                if (m.len >= sizeof e)
                    memcpy(&e, m.data, sizeof e);
                return -e;
            }
            if (onMsg != nullptr)
                onMsg(m, ctx);
        }
    }
}

size_t addr_len(uint8_t family)
{
    return family == AF_INET ? 4 : 16;
}

bool take(const NlAttr &a, uint8_t family, uint8_t *out)
{
    if (a.data == nullptr || a.len != addr_len(family))
        return false;
    memcpy(out, a.data, a.len);
    return true;
}

struct Capture {
    CkptFixed *f;
    int index[kCkptPorts];
    bool full;
};

CkptPort *port_of(Capture &c, uint32_t index)
{
    for (unsigned i = 0; i < c.f->nports; ++i)
        if (c.index[i] > 0 && static_cast<uint32_t>(c.index[i]) == index)
            return &c.f->ports[i];
    return nullptr;
}

void on_link(const NlMsg &m, void *ctx)
{
    Capture &c = *static_cast<Capture *>(ctx);
    NlAttr t[IFLA_MTU + 1];
    char name[16];
    if (!nl_attr_table(m, sizeof(ifinfomsg), t, IFLA_MTU + 1) ||
        !nl_attr_str(t[IFLA_IFNAME], name, sizeof name))
        return;
    ifinfomsg ifi;
    memcpy(&ifi, m.data, sizeof ifi);
    for (unsigned i = 0; i < c.f->nports; ++i) {
        CkptPort &p = c.f->ports[i];
        if (strcmp(p.name, name) != 0)
            continue;
        c.index[i] = ifi.ifi_index;
        p.present = 1;
        p.up = (ifi.ifi_flags & IFF_UP) ? 1 : 0;
        nl_attr_u32(t[IFLA_MTU], &p.mtu);
    }
}

// IPv4 addresses, and the IPv6 ones given by hand (permanent, global): the kernel and router
// advertisements keep the others.
void on_addr(const NlMsg &m, void *ctx)
{
    Capture &c = *static_cast<Capture *>(ctx);
    NlAttr t[IFA_FLAGS + 1];
    if (!nl_attr_table(m, sizeof(ifaddrmsg), t, IFA_FLAGS + 1))
        return;
    ifaddrmsg ifa;
    memcpy(&ifa, m.data, sizeof ifa);
    CkptPort *p = port_of(c, ifa.ifa_index);
    uint32_t flags = ifa.ifa_flags;
    nl_attr_u32(t[IFA_FLAGS], &flags);
    if (p == nullptr || (ifa.ifa_family == AF_INET6 &&
                         (ifa.ifa_scope != RT_SCOPE_UNIVERSE || !(flags & IFA_F_PERMANENT))))
        return;
    if (p->naddrs == kCkptAddrs) {
        c.full = true;
        return;
    }
    CkptAddr a = {};
    a.family = ifa.ifa_family;
    a.prefix = ifa.ifa_prefixlen;
    bool own = ifa.ifa_family == AF_INET ? take(t[IFA_LOCAL], AF_INET, a.addr)
                                         : take(t[IFA_ADDRESS], AF_INET6, a.addr);
    if (!own)
        return;
    if (ifa.ifa_family == AF_INET)
        a.hasBrd = take(t[IFA_BROADCAST], AF_INET, a.brd);
    p->addrs[p->naddrs++] = a;
}

// The main table's unicast routes that someone set: not the kernel's own, not a router's.
void on_route(const NlMsg &m, void *ctx)
{
    Capture &c = *static_cast<Capture *>(ctx);
    NlAttr t[RTA_TABLE + 1];
    if (!nl_attr_table(m, sizeof(rtmsg), t, RTA_TABLE + 1))
        return;
    rtmsg rt;
    memcpy(&rt, m.data, sizeof rt);
    uint32_t table = rt.rtm_table, oif = 0;
    nl_attr_u32(t[RTA_TABLE], &table);
    nl_attr_u32(t[RTA_OIF], &oif);
    CkptPort *p = port_of(c, oif);
    if (p == nullptr || table != RT_TABLE_MAIN || rt.rtm_type != RTN_UNICAST ||
        rt.rtm_protocol == RTPROT_KERNEL || rt.rtm_protocol == RTPROT_RA ||
        rt.rtm_protocol == RTPROT_REDIRECT || (rt.rtm_flags & RTM_F_CLONED) ||
        t[RTA_MULTIPATH].data != nullptr || (rt.rtm_family != AF_INET && rt.rtm_family != AF_INET6))
        return;
    if (p->nroutes == kCkptRoutes) {
        c.full = true;
        return;
    }
    CkptRoute r = {};
    r.family = rt.rtm_family;
    r.dstLen = rt.rtm_dst_len;
    r.protocol = rt.rtm_protocol;
    r.scope = rt.rtm_scope;
    take(t[RTA_DST], r.family, r.dst);
    r.hasGw = take(t[RTA_GATEWAY], r.family, r.gw);
    nl_attr_u32(t[RTA_PRIORITY], &r.priority);
    p->routes[p->nroutes++] = r;
}

int dump(int fd, uint16_t type, size_t headLen, OnMsg onMsg, Capture &c)
{
    // Zeroed, as large as the largest kind: the family (AF_UNSPEC) leads every one.
    static_assert(sizeof(ifinfomsg) >= sizeof(rtmsg) && sizeof(ifinfomsg) >= sizeof(ifaddrmsg),
                  "fixed parts");
    uint8_t head[sizeof(ifinfomsg)] = {};
    Req r(type, NLM_F_DUMP, head, headLen);
    if (type == RTM_GETLINK) {
        uint32_t mask = RTEXT_FILTER_SKIP_STATS;
        r.put(IFLA_EXT_MASK, &mask, sizeof mask);
    }
    return talk(fd, r, onMsg, &c);
}

// 0; E2BIG when a port holds more than a record keeps (the rest read, the line logged);
// else the errno of the failed dump.
int capture(int fd, CkptFixed &f)
{
    Capture c = {&f, {}, false};
    for (unsigned i = 0; i < f.nports; ++i) {
        CkptPort &p = f.ports[i];
        char name[16];
        memcpy(name, p.name, sizeof name);
        memset(&p, 0, sizeof p);
        memcpy(p.name, name, sizeof name);
    }
    int err = dump(fd, RTM_GETLINK, sizeof(ifinfomsg), on_link, c);
    if (err == 0)
        err = dump(fd, RTM_GETADDR, sizeof(ifaddrmsg), on_addr, c);
    if (err == 0)
        err = dump(fd, RTM_GETROUTE, sizeof(rtmsg), on_route, c);
    if (err != 0) {
        ckpt_log(NET_HERE, "reading the live state failed", strerror(err));
        return err;
    }
    if (c.full) {
        ckpt_log(NET_HERE, "a port holds more addresses or routes than a checkpoint keeps");
        return E2BIG;
    }
    return 0;
}

UniqueFd open_rtnl()
{
    UniqueFd fd(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
    if (!fd.valid())
        ckpt_log(NET_HERE, "socket(NETLINK_ROUTE)", strerror(errno));
    return fd;
}

int change_addr(int fd, uint16_t type, int index, const CkptAddr &a)
{
    ifaddrmsg ifa = {};
    ifa.ifa_family = a.family;
    ifa.ifa_prefixlen = a.prefix;
    ifa.ifa_index = static_cast<uint32_t>(index);
    uint16_t flags = NLM_F_ACK;
    if (type == RTM_NEWADDR)
        flags |= NLM_F_CREATE | NLM_F_REPLACE;
    Req r(type, flags, &ifa, sizeof ifa);
    size_t len = addr_len(a.family);
    r.put(IFA_LOCAL, a.addr, len);
    r.put(IFA_ADDRESS, a.addr, len);
    if (a.hasBrd && type == RTM_NEWADDR)
        r.put(IFA_BROADCAST, a.brd, 4);
    return talk(fd, r, nullptr, nullptr);
}

int change_route(int fd, uint16_t type, int index, const CkptRoute &rt)
{
    rtmsg m = {};
    m.rtm_family = rt.family;
    m.rtm_dst_len = rt.dstLen;
    m.rtm_table = RT_TABLE_MAIN;
    m.rtm_type = RTN_UNICAST;
    uint16_t flags = NLM_F_ACK;
    if (type == RTM_NEWROUTE) {
        flags |= NLM_F_CREATE | NLM_F_REPLACE;
        m.rtm_protocol = rt.protocol;
        m.rtm_scope = rt.scope;
    } else {
        m.rtm_scope = RT_SCOPE_NOWHERE; // any scope, any origin
    }
    Req r(type, flags, &m, sizeof m);
    size_t len = addr_len(rt.family);
    if (rt.dstLen > 0)
        r.put(RTA_DST, rt.dst, len);
    if (rt.hasGw)
        r.put(RTA_GATEWAY, rt.gw, len);
    r.put(RTA_OIF, &index, sizeof index);
    if (rt.priority != 0)
        r.put(RTA_PRIORITY, &rt.priority, sizeof rt.priority);
    return talk(fd, r, nullptr, nullptr);
}

template <class T> bool holds(const T *items, unsigned n, const T &x)
{
    for (unsigned i = 0; i < n; ++i)
        if (memcmp(&items[i], &x, sizeof x) == 0)
            return true;
    return false;
}

uint32_t family_bit(uint8_t family)
{
    return family == AF_INET ? NET_CKPT_R_IPV4 : NET_CKPT_R_IPV6;
}

} // namespace

void ckpt_log(CallSite site, const char *what, const char *detail)
{
    NET_LOG_AT(site, NET_LVL_ERR, "checkpoint: %s%s%s.\n", what, detail ? ": " : "",
               detail ? detail : "");
}

void CkptOutcome::fail(uint32_t bit, const char *port, const char *what, int err)
{
    res.uiFailed |= bit;
    if (port[0] != '\0' && res.szFailedPort[0] == '\0')
        strncpy(res.szFailedPort, port, sizeof res.szFailedPort - 1);
    if (res.szDetail[0] == '\0')
        snprintf(res.szDetail, sizeof res.szDetail, "%s%s%s: %s", port, port[0] ? " " : "", what,
                 strerror(err));
}

bool ckpt_capture(CkptFixed &f)
{
    UniqueFd fd = open_rtnl();
    return fd.valid() && capture(fd.get(), f) == 0;
}

void ckpt_restore_live(const CkptFixed &want, CkptOutcome &out)
{
    const uint32_t live =
        NET_CKPT_R_LINK | NET_CKPT_R_MTU | NET_CKPT_R_IPV4 | NET_CKPT_R_IPV6 | NET_CKPT_R_ROUTES;
    CkptFixed now;
    memcpy(&now, &want, sizeof now);
    UniqueFd fd = open_rtnl();
    if (want.nports > 0)
        out.tried |= live;
    // Past what a record keeps, the first ones are put right and the failure is told.
    int err = fd.valid() ? capture(fd.get(), now) : errno;
    if (err == E2BIG)
        out.fail(NET_CKPT_R_IPV4 | NET_CKPT_R_IPV6 | NET_CKPT_R_ROUTES, "", "live state", err);
    else if (err != 0) {
        if (want.nports > 0)
            out.fail(live, want.ports[0].name, "live state unreadable", err);
        return;
    }
    int index[kCkptPorts] = {};
    // Link and MTU first, so addresses and routes go onto a working link; then addresses:
    // those added since go (deleting a primary may take its secondaries along), then every
    // recorded one is set, which also brings back any taken along.
    for (unsigned i = 0; i < want.nports; ++i) {
        const CkptPort &w = want.ports[i], &n = now.ports[i];
        if (!w.present)
            continue;
        ++out.res.iPorts;
        index[i] = static_cast<int>(if_nametoindex(w.name));
        if (!n.present || index[i] == 0) {
            out.fail(live, w.name, "interface", ENODEV);
            continue;
        }
        if (w.up && !n.up && NET_IntfUp(w.name) != 0)
            out.fail(NET_CKPT_R_LINK, w.name, "up", errno);
        if (w.mtu != n.mtu && NET_SetMtu(w.name, static_cast<int>(w.mtu)) != 0)
            out.fail(NET_CKPT_R_MTU, w.name, "mtu", errno ? errno : EINVAL);
        for (unsigned k = 0; k < n.naddrs; ++k) {
            const CkptAddr &a = n.addrs[k];
            int err =
                holds(w.addrs, w.naddrs, a) ? 0 : change_addr(fd.get(), RTM_DELADDR, index[i], a);
            if (err != 0 && err != EADDRNOTAVAIL)
                out.fail(family_bit(a.family), w.name, "address removal", err);
        }
        for (unsigned k = 0; k < w.naddrs; ++k)
            if (int err = change_addr(fd.get(), RTM_NEWADDR, index[i], w.addrs[k]))
                out.fail(family_bit(w.addrs[k].family), w.name, "address", err);
    }
    // Routes as they stand after the address changes: those added since go, recorded ones
    // are set.
    err = capture(fd.get(), now);
    if (err == E2BIG)
        out.fail(NET_CKPT_R_ROUTES, "", "routes", err);
    else if (err != 0) {
        out.fail(NET_CKPT_R_ROUTES, want.ports[0].name, "routes unreadable", err);
        return;
    }
    // Every port's new routes go before any recorded one is set: a default route another
    // port gained since would otherwise stand beside the recorded one and refuse it.
    for (unsigned i = 0; i < want.nports; ++i) {
        const CkptPort &w = want.ports[i], &n = now.ports[i];
        for (unsigned k = 0; w.present && index[i] != 0 && k < n.nroutes; ++k)
            if (!holds(w.routes, w.nroutes, n.routes[k]))
                if (int err = change_route(fd.get(), RTM_DELROUTE, index[i], n.routes[k]))
                    if (err != ESRCH)
                        out.fail(NET_CKPT_R_ROUTES, w.name, "route removal", err);
    }
    for (unsigned i = 0; i < want.nports; ++i) {
        const CkptPort &w = want.ports[i], &n = now.ports[i];
        if (!w.present || index[i] == 0)
            continue;
        for (unsigned k = 0; k < w.nroutes; ++k)
            if (!holds(n.routes, n.nroutes, w.routes[k]))
                if (int err = change_route(fd.get(), RTM_NEWROUTE, index[i], w.routes[k]))
                    out.fail(NET_CKPT_R_ROUTES, w.name, "route", err);
        if (!w.up && n.up && NET_IntfDown(w.name) != 0)
            out.fail(NET_CKPT_R_LINK, w.name, "down", errno);
    }
}

} // namespace netlib
