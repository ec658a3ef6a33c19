#include "base/kcall.h"

#include <errno.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace netlib
{

UniqueFd open_ctl_socket(const KernelCall &c)
{
    int family = AF_INET, type = SOCK_DGRAM;
    switch (c.sock) {
    case CtlSock::DgramCloexec:
        type = SOCK_DGRAM | SOCK_CLOEXEC;
        break;
    case CtlSock::Dgram:
        break;
    case CtlSock::Stream:
        type = SOCK_STREAM;
        break;
    case CtlSock::Dgram6Cloexec:
        family = AF_INET6;
        type = SOCK_DGRAM | SOCK_CLOEXEC;
        break;
    case CtlSock::Dgram6:
        family = AF_INET6;
        break;
    }
    int fd = ::socket(family, type, 0);
    if (fd < 0) {
        switch (c.fdName) {
        case FdName::iFd:
            NET_LOGT_AT(c.site, NET_LVL_ERR, PL_OPEN_SOCKET_ERROR_PRINT, "iFd: %d\n", fd);
            break;
        case FdName::iSockFd:
            NET_LOGT_AT(c.site, NET_LVL_ERR, PL_OPEN_SOCKET_ERROR_PRINT, "iSockFd: %d\n", fd);
            break;
        case FdName::iSock:
            NET_LOGT_AT(c.site, NET_LVL_ERR, PL_OPEN_SOCKET_ERROR_PRINT, "iSock: %d\n", fd);
            break;
        case FdName::iSocketFd:
            NET_LOGT_AT(c.site, NET_LVL_ERR, PL_OPEN_SOCKET_ERROR_PRINT, "iSocketFd: %d\n", fd);
            break;
        }
    }
    return UniqueFd(fd);
}

void ifreq_init(struct ifreq &ifr, const char *ifname)
{
    memset(&ifr, 0, sizeof ifr);
    // Bounded to 15 so the name stays terminated: a longer name is cut, not refused.
    strncpy(ifr.ifr_name, ifname, IFNAMSIZ - 1);
}

int ctl_ioctl(const KernelCall &c, int fd, unsigned long req, void *arg)
{
    if (::ioctl(fd, req, arg) < 0) {
        if (c.ioctlLevel != NET_LVL_NONE)
            NET_LOGT_AT(c.site, c.ioctlLevel, PL_IOCTL_ERROR_PRINT, "%s.\n", strerror(errno));
        return -1;
    }
    return 0;
}

} // namespace netlib
