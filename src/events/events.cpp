// Kernel events: one rtnetlink socket per NET_EventOpen, handed to the caller for its own
// poll loop. The library keeps, per descriptor, the followed interfaces' last state (so a
// link message can be told apart into up, carrier and MTU changes) in a table keyed by the
// descriptor; no thread of its own.
#include <errno.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>

#include "base/log.h"
#include "base/unique_fd.h"
#include "events/netlink_walk.h"
#include "events/watch.h"
#include "libnetwork.h"

using namespace netlib;

namespace
{

constexpr int kMaxDescriptors = 64;
// Large enough for any link message without statistics; the kernel sizes its dump parts to
// the reader's buffer.
constexpr size_t kBufLen = 8192;

struct Slot {
    int fd;
    Watch *watch; // null: free
};

pthread_mutex_t g_lock = PTHREAD_MUTEX_INITIALIZER;
Slot g_slots[kMaxDescriptors];

uint64_t now_ns()
{
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<uint64_t>(ts.tv_sec) * 1000000000u + static_cast<uint64_t>(ts.tv_nsec);
}

Watch *find_watch(int fd)
{
    Watch *w = nullptr;
    pthread_mutex_lock(&g_lock);
    for (Slot &s : g_slots)
        if (s.watch != nullptr && s.fd == fd)
            w = s.watch;
    pthread_mutex_unlock(&g_lock);
    return w;
}

// Takes w into the table. A slot left by a descriptor closed without NET_EventClose has the
// same number as the new one: it is freed here.
bool add_watch(int fd, Watch *w)
{
    bool added = false;
    pthread_mutex_lock(&g_lock);
    for (Slot &s : g_slots) {
        if (s.watch != nullptr && s.fd == fd) {
            free(s.watch);
            s.watch = nullptr;
        }
    }
    for (Slot &s : g_slots) {
        if (s.watch == nullptr) {
            s = Slot{fd, w};
            added = true;
            break;
        }
    }
    pthread_mutex_unlock(&g_lock);
    return added;
}

Watch *take_watch(int fd)
{
    Watch *w = nullptr;
    pthread_mutex_lock(&g_lock);
    for (Slot &s : g_slots) {
        if (s.watch != nullptr && s.fd == fd) {
            w = s.watch;
            s.watch = nullptr;
        }
    }
    pthread_mutex_unlock(&g_lock);
    return w;
}

// One datagram from the kernel (never from another process); its length, 0 for one to skip,
// or -1 with errno. A datagram cut short counts as lost (ENOBUFS).
ssize_t receive(int fd, uint8_t *buf, int flags)
{
    sockaddr_nl from = {};
    iovec iov = {buf, kBufLen};
    msghdr mh = {};
    mh.msg_name = &from;
    mh.msg_namelen = sizeof from;
    mh.msg_iov = &iov;
    mh.msg_iovlen = 1;
    ssize_t n = recvmsg(fd, &mh, flags);
    if (n < 0)
        return -1;
    if (mh.msg_flags & MSG_TRUNC) {
        errno = ENOBUFS;
        return -1;
    }
    return from.nl_pid == 0 ? n : 0;
}

// The followed interfaces' present state, from a dump on a socket of its own (the event
// socket must carry nothing but events).
bool learn_links(Watch &w)
{
    UniqueFd s(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
    if (!s.valid()) {
        NET_LOG(NET_LVL_ERR, "socket(NETLINK_ROUTE) failed: %s.\n", strerror(errno));
        return false;
    }
    struct {
        nlmsghdr h;
        ifinfomsg ifi;
        nlattr ext;
        uint32_t extMask;
    } req = {};
    req.h.nlmsg_len = sizeof req;
    req.h.nlmsg_type = RTM_GETLINK;
    req.h.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    req.h.nlmsg_seq = 1;
    req.ifi.ifi_family = AF_UNSPEC;
    req.ext.nla_len = sizeof req.ext + sizeof req.extMask;
    req.ext.nla_type = IFLA_EXT_MASK;
    req.extMask = RTEXT_FILTER_SKIP_STATS;
    if (send(s.get(), &req, sizeof req, 0) != static_cast<ssize_t>(sizeof req)) {
        NET_LOG(NET_LVL_ERR, "interface dump request failed: %s.\n", strerror(errno));
        return false;
    }
    alignas(nlmsghdr) uint8_t buf[kBufLen];
    uint64_t now = now_ns();
    for (;;) {
        ssize_t n = receive(s.get(), buf, 0);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0) {
            NET_LOG(NET_LVL_ERR, "interface dump failed: %s.\n", strerror(errno));
            return false;
        }
        NlMsgWalk walk(buf, static_cast<size_t>(n));
        NlMsg msg;
        while (walk.next(&msg)) {
            if (msg.type == NLMSG_DONE)
                return true;
            if (msg.type == NLMSG_ERROR) {
                NET_LOG(NET_LVL_ERR, "interface dump refused.\n");
                return false;
            }
            watch_message(w, msg, now, true);
        }
    }
}

// After a loss nothing queued can be trusted against the state: drop it, learn the state
// afresh and tell the caller to do the same.
void overrun(int fd, Watch &w)
{
    alignas(nlmsghdr) uint8_t buf[kBufLen];
    // Bounded, so a flood of changes cannot keep the caller here.
    for (int i = 0; i < 100000; ++i)
        if (receive(fd, buf, MSG_DONTWAIT) < 0 && errno != EINTR && errno != ENOBUFS)
            break;
    watch_forget(w);
    if (w.mask & NET_EVENT_LINK)
        learn_links(w);
    watch_overrun(w, now_ns());
}

} // namespace

extern "C" {

NET_API int NET_EventOpen(const char *const *ifnames, unsigned int uiMask)
{
    if (uiMask == 0 || (uiMask & ~NET_EVENT_ALL) != 0) {
        NET_LOG(NET_LVL_ERR, "uiMask: 0x%x names no event kinds.\n", uiMask);
        return -1;
    }
    unsigned nnames = 0;
    if (ifnames != nullptr) {
        for (; ifnames[nnames] != nullptr; ++nnames) {
            size_t len = strlen(ifnames[nnames]);
            if (nnames == kWatchNames || len == 0 || len > 15) {
                NET_LOG(NET_LVL_ERR,
                        "ifnames: more than %u names, or a name not of 1 to 15 "
                        "characters.\n",
                        kWatchNames);
                return -1;
            }
        }
        if (nnames == 0) {
            NET_LOG(NET_LVL_ERR, "ifnames: empty list (NULL follows every interface).\n");
            return -1;
        }
    }
    // Watch is a few KiB: on the heap rather than the caller's stack.
    struct WatchPtr {
        Watch *p;
        ~WatchPtr() { free(p); }
    } w{static_cast<Watch *>(calloc(1, sizeof(Watch)))};
    if (w.p == nullptr) {
        NET_LOG(NET_LVL_ERR, "out of memory.\n");
        return -1;
    }
    watch_init(*w.p, uiMask, ifnames, nnames);

    UniqueFd fd(socket(AF_NETLINK, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, NETLINK_ROUTE));
    if (!fd.valid()) {
        NET_LOG(NET_LVL_ERR, "socket(NETLINK_ROUTE) failed: %s.\n", strerror(errno));
        return -1;
    }
    sockaddr_nl sa = {};
    sa.nl_family = AF_NETLINK;
    sa.nl_groups = ((uiMask & NET_EVENT_LINK) ? RTMGRP_LINK : 0) |
                   ((uiMask & NET_EVENT_IPV4_ADDR) ? RTMGRP_IPV4_IFADDR : 0) |
                   ((uiMask & NET_EVENT_IPV6_ADDR) ? RTMGRP_IPV6_IFADDR : 0) |
                   ((uiMask & NET_EVENT_IPV4_ROUTE) ? RTMGRP_IPV4_ROUTE : 0) |
                   ((uiMask & NET_EVENT_IPV6_ROUTE) ? RTMGRP_IPV6_ROUTE : 0);
    if (bind(fd.get(), reinterpret_cast<sockaddr *>(&sa), sizeof sa) != 0) {
        NET_LOG(NET_LVL_ERR, "bind to the event groups failed: %s.\n", strerror(errno));
        return -1;
    }
    // Joined first, then the state read: a change in between is seen at worst twice, never lost.
    if ((uiMask & NET_EVENT_LINK) && !learn_links(*w.p))
        return -1;
    if (!add_watch(fd.get(), w.p)) {
        NET_LOG(NET_LVL_ERR, "more than %d event descriptors open.\n", kMaxDescriptors);
        return -1;
    }
    w.p = nullptr; // the table owns it now
    return fd.release();
}

NET_API int NET_EventRead(int iFd, NetEvent *pstEvent)
{
    NET_CHECK_ARGS(-1, "pstEvent: %p.\n", pstEvent);
    Watch *w = find_watch(iFd);
    if (w == nullptr) {
        NET_LOG(NET_LVL_ERR, "iFd: %d is not an open event descriptor.\n", iFd);
        return -1;
    }
    alignas(nlmsghdr) uint8_t buf[kBufLen];
    while (!watch_pop(*w, pstEvent)) {
        ssize_t n = receive(iFd, buf, MSG_DONTWAIT);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            if (errno == EAGAIN || errno == EWOULDBLOCK)
                return 0;
            if (errno == ENOBUFS) {
                overrun(iFd, *w);
                continue;
            }
            NET_LOG(NET_LVL_ERR, "reading events failed: %s.\n", strerror(errno));
            return -1;
        }
        uint64_t now = now_ns();
        NlMsgWalk walk(buf, static_cast<size_t>(n));
        NlMsg msg;
        while (walk.next(&msg))
            watch_message(*w, msg, now, false);
    }
    return 1;
}

NET_API int NET_EventClose(int iFd)
{
    Watch *w = take_watch(iFd);
    if (w == nullptr) {
        NET_LOG(NET_LVL_ERR, "iFd: %d is not an open event descriptor.\n", iFd);
        return -1;
    }
    free(w);
    close(iFd);
    return 0;
}

} // extern "C"
