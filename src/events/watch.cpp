#include "events/watch.h"

#include <linux/if_addr.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <string.h>
#include <sys/socket.h>

// The carrier bit, in <linux/if.h>, which cannot be included beside <net/if.h>.
#ifndef IFF_LOWER_UP
#define IFF_LOWER_UP 0x10000
#endif

namespace netlib
{

namespace
{

bool followed(const Watch &w, const char *name)
{
    if (w.nnames == 0)
        return true;
    for (unsigned i = 0; i < w.nnames; ++i)
        if (strcmp(w.names[i], name) == 0)
            return true;
    return false;
}

WatchLink *find_link(Watch &w, int32_t index)
{
    for (unsigned i = 0; i < w.nlinks; ++i)
        if (w.links[i].index == index)
            return &w.links[i];
    return nullptr;
}

void drop_link(Watch &w, WatchLink *l)
{
    *l = w.links[--w.nlinks];
}

// The interface's name: known, else asked of the kernel ("" when it is gone).
void name_of(Watch &w, int32_t index, char name[16])
{
    name[0] = '\0';
    if (WatchLink *l = find_link(w, index)) {
        memcpy(name, l->name, 16);
        return;
    }
    char buf[IF_NAMESIZE] = "";
    if (index > 0 && if_indextoname(static_cast<unsigned>(index), buf) != nullptr)
        memcpy(name, buf, 16);
}

// A zeroed event at the end of the queue, or null when it is full (an overrun then follows).
NetEvent *emit(Watch &w, int kind, int32_t index, const char *name, uint64_t nowNs)
{
    if (w.count == kWatchQueue) {
        w.lost = true;
        w.lostNs = nowNs;
        return nullptr;
    }
    NetEvent *ev = &w.queue[(w.head + w.count++) % kWatchQueue];
    memset(ev, 0, sizeof *ev);
    ev->iKind = kind;
    ev->iIfIndex = index;
    strncpy(ev->szIfName, name, sizeof ev->szIfName - 1);
    ev->ullTimeNs = nowNs;
    return ev;
}

void emit_link(Watch &w, int kind, const WatchLink &l, uint64_t nowNs)
{
    if (!(w.mask & NET_EVENT_LINK))
        return;
    if (NetEvent *ev = emit(w, kind, l.index, l.name, nowNs)) {
        ev->uiFlags = l.state;
        ev->iMtu = l.mtu;
    }
}

void on_link(Watch &w, const NlMsg &msg, uint64_t nowNs, bool learn)
{
    NlAttr t[IFLA_MTU + 1];
    if (!nl_attr_table(msg, sizeof(ifinfomsg), t, IFLA_MTU + 1))
        return;
    ifinfomsg ifi;
    memcpy(&ifi, msg.data, sizeof ifi);
    WatchLink now = {};
    now.index = ifi.ifi_index;
    now.state = ((ifi.ifi_flags & IFF_UP) ? NET_EVENT_F_UP : 0) |
                ((ifi.ifi_flags & IFF_LOWER_UP) ? NET_EVENT_F_CARRIER : 0);
    uint32_t mtu = 0;
    if (nl_attr_u32(t[IFLA_MTU], &mtu))
        now.mtu = static_cast<int32_t>(mtu);
    if (!nl_attr_str(t[IFLA_IFNAME], now.name, sizeof now.name))
        name_of(w, now.index, now.name);

    WatchLink *l = find_link(w, now.index);
    if (msg.type == RTM_DELLINK) {
        if (l != nullptr || followed(w, now.name))
            emit_link(w, NET_EVENT_LINK_DEL, l != nullptr ? *l : now, nowNs);
        if (l != nullptr)
            drop_link(w, l);
        return;
    }
    if (l == nullptr) {
        if (!followed(w, now.name))
            return;
        if (w.nlinks < kWatchLinks)
            w.links[w.nlinks++] = now;
        if (!learn)
            emit_link(w, NET_EVENT_LINK_NEW, now, nowNs);
        return;
    }
    WatchLink was = *l;
    *l = now;
    if (learn)
        return;
    if (strcmp(was.name, now.name) != 0) {
        if (w.mask & NET_EVENT_LINK) {
            if (NetEvent *ev = emit(w, NET_EVENT_RENAME, now.index, now.name, nowNs)) {
                ev->uiFlags = now.state;
                ev->iMtu = now.mtu;
                memcpy(ev->szAddr, was.name, sizeof was.name);
            }
        }
        if (!followed(w, now.name)) {
            drop_link(w, l);
            return;
        }
    }
    uint32_t changed = was.state ^ now.state;
    if (changed & NET_EVENT_F_UP)
        emit_link(w, (now.state & NET_EVENT_F_UP) ? NET_EVENT_LINK_UP : NET_EVENT_LINK_DOWN, now,
                  nowNs);
    if (changed & NET_EVENT_F_CARRIER)
        emit_link(w,
                  (now.state & NET_EVENT_F_CARRIER) ? NET_EVENT_CARRIER_ON : NET_EVENT_CARRIER_OFF,
                  now, nowNs);
    if (was.mtu != now.mtu && now.mtu > 0)
        emit_link(w, NET_EVENT_MTU, now, nowNs);
}

unsigned family_bit(int family, unsigned v4, unsigned v6)
{
    return family == AF_INET ? v4 : family == AF_INET6 ? v6 : 0;
}

void on_addr(Watch &w, const NlMsg &msg, uint64_t nowNs)
{
    NlAttr t[IFA_FLAGS + 1];
    if (!nl_attr_table(msg, sizeof(ifaddrmsg), t, IFA_FLAGS + 1))
        return;
    ifaddrmsg ifa;
    memcpy(&ifa, msg.data, sizeof ifa);
    if (!(w.mask & family_bit(ifa.ifa_family, NET_EVENT_IPV4_ADDR, NET_EVENT_IPV6_ADDR)))
        return;
    // IPv4 keeps the interface's own address in IFA_LOCAL (IFA_ADDRESS is the peer of a
    // point-to-point link); IPv6 sends IFA_ADDRESS alone.
    char addr[46];
    const NlAttr &own =
        ifa.ifa_family == AF_INET && t[IFA_LOCAL].data ? t[IFA_LOCAL] : t[IFA_ADDRESS];
    if (!nl_attr_addr(own, ifa.ifa_family, addr))
        return;
    char name[16];
    int32_t index = static_cast<int32_t>(ifa.ifa_index);
    name_of(w, index, name);
    if (!followed(w, name))
        return;
    uint32_t kflags = ifa.ifa_flags;
    nl_attr_u32(t[IFA_FLAGS], &kflags);
    int kind = msg.type == RTM_NEWADDR ? NET_EVENT_ADDR_ADD : NET_EVENT_ADDR_DEL;
    if (NetEvent *ev = emit(w, kind, index, name, nowNs)) {
        ev->iFamily = ifa.ifa_family;
        ev->iPrefixLen = ifa.ifa_prefixlen;
        ev->uiFlags = ((kflags & IFA_F_TENTATIVE) ? NET_EVENT_F_TENTATIVE : 0) |
                      ((kflags & IFA_F_DADFAILED) ? NET_EVENT_F_DADFAILED : 0) |
                      ((kflags & IFA_F_DEPRECATED) ? NET_EVENT_F_DEPRECATED : 0);
        memcpy(ev->szAddr, addr, sizeof addr);
    }
}

void on_route(Watch &w, const NlMsg &msg, uint64_t nowNs)
{
    NlAttr t[RTA_TABLE + 1];
    if (!nl_attr_table(msg, sizeof(rtmsg), t, RTA_TABLE + 1))
        return;
    rtmsg rt;
    memcpy(&rt, msg.data, sizeof rt);
    if (!(w.mask & family_bit(rt.rtm_family, NET_EVENT_IPV4_ROUTE, NET_EVENT_IPV6_ROUTE)))
        return;
    // The main table's unicast routes: the local and multicast ones every address brings
    // along are the kernel's business.
    uint32_t table = rt.rtm_table;
    nl_attr_u32(t[RTA_TABLE], &table);
    if (table != RT_TABLE_MAIN || rt.rtm_type != RTN_UNICAST)
        return;
    uint32_t oif = 0;
    nl_attr_u32(t[RTA_OIF], &oif);
    char name[16];
    name_of(w, static_cast<int32_t>(oif), name);
    if (w.nnames > 0 && (oif == 0 || !followed(w, name)))
        return;
    char dst[46], gw[46] = "";
    if (!nl_attr_addr(t[RTA_DST], rt.rtm_family, dst)) {
        static const uint8_t zero[16] = {};
        if (t[RTA_DST].data != nullptr || rt.rtm_dst_len != 0 ||
            !nl_attr_addr(NlAttr{RTA_DST, zero, rt.rtm_family == AF_INET ? 4u : 16u}, rt.rtm_family,
                          dst))
            return;
    }
    if (t[RTA_GATEWAY].data != nullptr && !nl_attr_addr(t[RTA_GATEWAY], rt.rtm_family, gw))
        return;
    int kind = msg.type == RTM_NEWROUTE ? NET_EVENT_ROUTE_ADD : NET_EVENT_ROUTE_DEL;
    if (NetEvent *ev = emit(w, kind, static_cast<int32_t>(oif), name, nowNs)) {
        ev->iFamily = rt.rtm_family;
        ev->iPrefixLen = rt.rtm_dst_len;
        memcpy(ev->szAddr, dst, sizeof dst);
        memcpy(ev->szGateway, gw, sizeof gw);
    }
}

} // namespace

void watch_init(Watch &w, unsigned mask, const char *const *names, unsigned nnames)
{
    memset(&w, 0, sizeof w);
    w.mask = mask;
    for (unsigned i = 0; i < nnames && i < kWatchNames; ++i) {
        strncpy(w.names[i], names[i], sizeof w.names[i] - 1);
        w.nnames = i + 1;
    }
}

void watch_message(Watch &w, const NlMsg &msg, uint64_t nowNs, bool learn)
{
    switch (msg.type) {
    case RTM_NEWLINK:
    case RTM_DELLINK:
        on_link(w, msg, nowNs, learn);
        break;
    case RTM_NEWADDR:
    case RTM_DELADDR:
        if (!learn)
            on_addr(w, msg, nowNs);
        break;
    case RTM_NEWROUTE:
    case RTM_DELROUTE:
        if (!learn)
            on_route(w, msg, nowNs);
        break;
    default:
        break;
    }
}

void watch_forget(Watch &w)
{
    w.nlinks = 0;
    w.head = w.count = 0;
    w.lost = false;
}

void watch_overrun(Watch &w, uint64_t nowNs)
{
    emit(w, NET_EVENT_OVERRUN, 0, "", nowNs);
}

bool watch_pop(Watch &w, NetEvent *ev)
{
    if (w.count == 0) {
        if (!w.lost)
            return false;
        w.lost = false;
        watch_overrun(w, w.lostNs);
    }
    *ev = w.queue[w.head];
    w.head = (w.head + 1) % kWatchQueue;
    --w.count;
    return true;
}

} // namespace netlib
