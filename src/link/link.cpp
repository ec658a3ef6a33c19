// Interface up and down, and the MTU.
#include <errno.h>
#include <string.h>

#include "base/kcall.h"
#include "libnetwork.h"

using namespace netlib;

namespace
{

// Reads the flags, sets or clears IFF_UP leaving every other flag as read, writes them back.
int change_up_flag(CallSite site, const char *ifname, bool up)
{
    UniqueFd fd = open_ctl_socket(kernel_call(site, FdName::iSockFd));
    if (!fd.valid())
        return -1;
    struct ifreq ifr;
    ifreq_init(ifr, ifname);
    if (ctl_ioctl_or(fd.get(), SIOCGIFFLAGS, &ifr, [&] {
            NET_LOGT_AT(site, NET_LVL_ERR, PL_IOCTL_ERROR_PRINT, "SIOCGIFFLAGS: %s.\n",
                        strerror(errno));
        }) != 0)
        return -1;
    if (up)
        ifr.ifr_flags = static_cast<short>(ifr.ifr_flags | IFF_UP);
    else
        ifr.ifr_flags = static_cast<short>(ifr.ifr_flags & ~IFF_UP);
    return ctl_ioctl_or(fd.get(), SIOCSIFFLAGS, &ifr, [&] {
        NET_LOGT_AT(site, NET_LVL_ERR, PL_IOCTL_ERROR_PRINT, "SIOCSIFFLAGS: %s.\n",
                    strerror(errno));
    });
}

} // namespace

extern "C" {

int NET_IntfUp(const char *pcIfName)
{
    NET_CHECK_ARGS(-1, "pcIfName: %p. \n", pcIfName);
    return change_up_flag(NET_HERE, pcIfName, true);
}

int NET_IntfDown(const char *pcIfName)
{
    NET_CHECK_ARGS(-1, "pcIfName: %p. \n", pcIfName);
    if (strcmp(pcIfName, "lo") == 0) {
        NET_LOG(NET_LVL_ERR, "You can't pull down interface lo \n");
        return -1;
    }
    return change_up_flag(NET_HERE, pcIfName, false);
}

int NET_GetMtu(const char *pcIfName, int *iMtuVal)
{
    NET_CHECK_ARGS(-1, "pcIfName: %p, iMtuVal: %p. \n", pcIfName, iMtuVal);
    struct ifreq ifr;
    if (ifreq_call(kernel_call(NET_HERE, FdName::iSockFd, NET_LVL_DEBUG), pcIfName, SIOCGIFMTU,
                   ifr) != 0)
        return -1;
    *iMtuVal = ifr.ifr_mtu;
    return 0;
}

int NET_SetMtu(const char *pcIfName, int iMtuVal)
{
    // Jumbo frames are refused even where the hardware could take them.
    if (pcIfName == nullptr || iMtuVal < 100 || iMtuVal > 1500) {
        NET_LOGT(NET_LVL_ERR, PL_PARAM_ERROR_PRINT, "pcIfName: %p, iMtuVal: %d. \n",
                 (const void *)pcIfName, iMtuVal);
        return -1;
    }
    struct ifreq ifr;
    return ifreq_call(kernel_call(NET_HERE, FdName::iSockFd), pcIfName, SIOCSIFMTU, ifr,
                      [&](struct ifreq &r) {
                          r.ifr_mtu = iMtuVal;
                          return 0;
                      });
}

} // extern "C"
