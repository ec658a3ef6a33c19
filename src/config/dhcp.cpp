// Switching an interface between DHCP and a static address. Only the stored mode changes:
// the network service applies it on its next restart; no client is started or stopped.
#include "libnetwork.h"
#include "base/log.h"

extern "C" {

int NET_EnableDhcp(const char *pcIfName)
{
    if (NET_EnableDhcpCfg(pcIfName) != 0) {
        NET_LOG(NET_LVL_ERR, "Enable dhcp mode failed. \n");
        return -1;
    }
    return 0;
}

int NET_DisableDhcp(const char *pcIfName)
{
    if (NET_DisableDhcpCfg(pcIfName) != 0) {
        NET_LOG(NET_LVL_ERR, "Disable dhcp mode failed. \n");
        return -1;
    }
    return 0;
}

} // extern "C"
