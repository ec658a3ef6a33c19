// What one event descriptor keeps: the interfaces it follows, their last known state (the
// kernel announces a link's whole state, so a change is the difference from the last one),
// and the events of the last datagram not yet read. No sockets here: the fuzz target feeds
// it datagrams directly.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "events/netlink_walk.h"
#include "libnetwork.h"

namespace netlib
{

constexpr unsigned kWatchNames = 8;  // names a descriptor may be filtered to
constexpr unsigned kWatchLinks = 64; // interfaces whose state it keeps
constexpr unsigned kWatchQueue = 16; // events of one datagram (a link message makes at most 5)

struct WatchLink {
    int32_t index;
    uint32_t state; // NET_EVENT_F_UP, NET_EVENT_F_CARRIER
    int32_t mtu;
    char name[16];
};

struct Watch {
    unsigned mask;
    unsigned nnames;
    char names[kWatchNames][16];
    unsigned nlinks;
    WatchLink links[kWatchLinks];
    unsigned head, count;
    bool lost; // the queue was full: an overrun follows what is queued
    uint64_t lostNs;
    NetEvent queue[kWatchQueue];
};

// An empty watch following `mask` for the names (none: every interface).
void watch_init(Watch &w, unsigned mask, const char *const *names, unsigned nnames);
// One message of a datagram. `learn`: a dump answer, which updates the known state silently.
void watch_message(Watch &w, const NlMsg &msg, uint64_t nowNs, bool learn);
// Forgets the interfaces' state and queues an overrun (after a re-read of the state).
void watch_forget(Watch &w);
void watch_overrun(Watch &w, uint64_t nowNs);
// The oldest queued event; false when there is none.
bool watch_pop(Watch &w, NetEvent *ev);

} // namespace netlib
