// The Ethernet link through the kernel's legacy ethtool requests: carrier, speed, duplex.
#include <errno.h>
#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <string.h>

#include "base/kcall.h"
#include "libnetwork.h"

using namespace netlib;

namespace
{

// The ethtool calls open their socket without close-on-exec.
KernelCall ethtool_call(CallSite site, int level = NET_LVL_ERR)
{
    return kernel_call(site, FdName::iFd, level, CtlSock::Dgram);
}

// ETHTOOL_GSET into ecmd through the pattern.
int read_settings(const KernelCall &c, const char *ifname, struct ethtool_cmd &ecmd)
{
    memset(&ecmd, 0, sizeof ecmd);
    ecmd.cmd = ETHTOOL_GSET;
    struct ifreq ifr;
    return ifreq_call(c, ifname, SIOCETHTOOL, ifr, [&](struct ifreq &r) {
        r.ifr_data = reinterpret_cast<char *>(&ecmd);
        return 0;
    });
}

struct ModeRow {
    int mode;
    unsigned short speed;
    unsigned char duplex;
};

// No 1000 Mbit/s half duplex, on purpose.
constexpr ModeRow kModes[] = {
    {NET_SPEED_DUPLEX_10_HALF, SPEED_10, DUPLEX_HALF},
    {NET_SPEED_DUPLEX_10_FULL, SPEED_10, DUPLEX_FULL},
    {NET_SPEED_DUPLEX_100_HALF, SPEED_100, DUPLEX_HALF},
    {NET_SPEED_DUPLEX_100_FULL, SPEED_100, DUPLEX_FULL},
    {NET_SPEED_DUPLEX_1000_FULL, SPEED_1000, DUPLEX_FULL},
};

// 10, 100 and 1000 Mbit/s in both duplexes, and pause.
constexpr unsigned int kAutoAdvertising = 0x203F;

void apply_mode(struct ethtool_cmd &ecmd, int mode)
{
    if (mode == NET_SPEED_DUPLEX_AUTO) {
        ecmd.autoneg = AUTONEG_ENABLE;
        ecmd.advertising = kAutoAdvertising;
        return;
    }
    for (const ModeRow &row : kModes) {
        if (row.mode == mode) {
            ecmd.autoneg = AUTONEG_DISABLE;
            ecmd.speed = row.speed; // the 16-bit field only: the high half stays as read
            ecmd.duplex = row.duplex;
        }
    }
}

} // namespace

extern "C" {

int NET_GetPortLinkStatus(const char *pcDevName, int *pbIsLinked)
{
    NET_CHECK_ARGS(-1, "pcDevName: %p, pbIsLinked: %p. \n", pcDevName, pbIsLinked);
    struct ethtool_value link;
    link.cmd = ETHTOOL_GLINK;
    link.data = 0;
    struct ifreq ifr;
    if (ifreq_call(ethtool_call(NET_HERE), pcDevName, SIOCETHTOOL, ifr, [&](struct ifreq &r) {
            r.ifr_data = reinterpret_cast<char *>(&link);
            return 0;
        }) != 0)
        return -1;
    *pbIsLinked = link.data != 0 ? 1 : 0;
    return 0;
}

int NET_GetSupportSpeed(const char *pcIfName, NetSpeedDuplexMode *penMode)
{
    NET_CHECK_ARGS(-1, "pcIfName: %p, penMode: %p. \n", pcIfName, penMode);
    struct ethtool_cmd ecmd;
    if (read_settings(ethtool_call(NET_HERE, NET_LVL_DEBUG), pcIfName, ecmd) != 0)
        return -1;
    // From what the port advertises, not what it supports: deliberate.
    if ((ecmd.advertising & ADVERTISED_1000baseT_Full) != 0) {
        *penMode = NET_SPEED_DUPLEX_1000_FULL;
    } else if ((ecmd.advertising & ADVERTISED_100baseT_Full) != 0) {
        *penMode = NET_SPEED_DUPLEX_100_FULL;
    } else {
        NET_LOG(NET_LVL_ERR, "Unknown type.\n");
        return -1;
    }
    return 0;
}

int NET_SetSpeedDuplex(const char *pcIfName, NetSpeedDuplexMode enMode)
{
    NET_CHECK_ARGS(-1, "pcIfName: %p. \n", pcIfName);
    UniqueFd fd = open_ctl_socket(ethtool_call(NET_HERE));
    if (!fd.valid())
        return -1;
    struct ethtool_cmd ecmd;
    memset(&ecmd, 0, sizeof ecmd);
    ecmd.cmd = ETHTOOL_GSET;
    struct ifreq ifr;
    ifreq_init(ifr, pcIfName);
    ifr.ifr_data = reinterpret_cast<char *>(&ecmd);
    const CallSite site = NET_HERE;
    auto fail = [site] {
        NET_LOGT_AT(site, NET_LVL_ERR, PL_IOCTL_ERROR_PRINT, "SIOCETHTOOL: %s.\n", strerror(errno));
    };
    if (ctl_ioctl_or(fd.get(), SIOCETHTOOL, &ifr, fail) != 0)
        return -1;
    // The mode is checked only after the read, and this path leaves the socket open: a
    // caller passing a value outside the table loses one descriptor per call.
    if (static_cast<int>(enMode) < 0 || static_cast<int>(enMode) > 5) {
        NET_LOG(NET_LVL_ERR, "Invalid input enMode: %d.\n", static_cast<int>(enMode));
        fd.release();
        return -1;
    }
    apply_mode(ecmd, enMode);
    ecmd.cmd = ETHTOOL_SSET;
    return ctl_ioctl_or(fd.get(), SIOCETHTOOL, &ifr, fail);
}

int NET_GetSpeedDuplex(const char *pcIfName, NetSpeedDuplexMode *penMode)
{
    NET_CHECK_ARGS(-1, "pcIfName: %p, penMode: %p. \n", pcIfName, penMode);
    struct ethtool_cmd ecmd;
    if (read_settings(ethtool_call(NET_HERE, NET_LVL_DEBUG), pcIfName, ecmd) != 0)
        return -1;
    if (ecmd.autoneg == AUTONEG_ENABLE) {
        *penMode = NET_SPEED_DUPLEX_AUTO; // whatever speed was negotiated
        return 0;
    }
    if (ecmd.autoneg != AUTONEG_DISABLE) {
        NET_LOG(NET_LVL_ERR, "Unknown autoneg type, autoneg=%d.\n", ecmd.autoneg);
        return -1;
    }
    for (const ModeRow &row : kModes) {
        if (row.speed == ecmd.speed && row.duplex == ecmd.duplex) {
            *penMode = static_cast<NetSpeedDuplexMode>(row.mode);
            return 0;
        }
    }
    NET_LOG(NET_LVL_ERR, "Unknown speed duplex type, speed=%d, duplex=%d.\n", ecmd.speed,
            ecmd.duplex);
    return -1;
}

} // extern "C"
