// The one way an exported call reaches the kernel about an interface: a control socket, a
// zeroed struct ifreq carrying the name (at most 15 characters), one ioctl, and the socket
// closed on every path. Calls differ only in the socket kind, the request, the name of the
// descriptor in the open-failure line and the level of the request-failure line.
#pragma once

#include <net/if.h>
#include <sys/ioctl.h>

#include "base/log.h"
#include "base/unique_fd.h"

namespace netlib
{

enum class CtlSock {
    DgramCloexec,  // the usual control socket
    Dgram,         // the ethtool calls: no close-on-exec
    Stream,        // the older calls
    Dgram6Cloexec, // IPv6 address requests, which need the IPv6 family
    Dgram6,
};

// Name of the local holding the descriptor, as the open-failure line prints it.
enum class FdName { iFd, iSockFd, iSock, iSocketFd };

struct KernelCall {
    CallSite site;
    FdName fdName;
    int ioctlLevel;
    CtlSock sock;
};

inline KernelCall kernel_call(CallSite site, FdName fd, int ioctlLevel = NET_LVL_ERR,
                              CtlSock sock = CtlSock::DgramCloexec)
{
    return KernelCall{site, fd, ioctlLevel, sock};
}

// Opens the call's control socket; logs PL_OPEN_SOCKET_ERROR_PRINT when it cannot.
UniqueFd open_ctl_socket(const KernelCall &c);
// Zeroes ifr and copies the interface name, cut to 15 characters.
void ifreq_init(struct ifreq &ifr, const char *ifname);
// One request on fd; logs PL_IOCTL_ERROR_PRINT with strerror at the call's level on failure.
int ctl_ioctl(const KernelCall &c, int fd, unsigned long req, void *arg);

// One request on fd whose failure line is the caller's own: onFail() logs it (errno intact).
template <class OnFail> int ctl_ioctl_or(int fd, unsigned long req, void *arg, OnFail &&onFail)
{
    if (::ioctl(fd, req, arg) < 0) {
        onFail();
        return -1;
    }
    return 0;
}

// The whole pattern. prepare(ifr) runs once the socket is open and the name is set; it
// fills the request's input and returns non-zero (having logged) to stop before the ioctl.
template <class Prepare>
int ifreq_call(const KernelCall &c, const char *ifname, unsigned long req, struct ifreq &ifr,
               Prepare &&prepare)
{
    UniqueFd fd = open_ctl_socket(c);
    if (!fd.valid())
        return -1;
    ifreq_init(ifr, ifname);
    if (prepare(ifr) != 0)
        return -1;
    return ctl_ioctl(c, fd.get(), req, &ifr);
}

inline int ifreq_call(const KernelCall &c, const char *ifname, unsigned long req, struct ifreq &ifr)
{
    return ifreq_call(c, ifname, req, ifr, [](struct ifreq &) { return 0; });
}

} // namespace netlib
