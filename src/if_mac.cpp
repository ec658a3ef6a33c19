// Hardware addresses of interfaces, as text and as raw bytes.
#include <net/if.h>
#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "kcall.h"
#include "libnetwork.h"

using namespace netlib;

extern "C" {

int NET_GetMacAddr(const char *pcIfName, char *pcMacAddr, unsigned int uiLen)
{
    if (pcIfName == nullptr || pcMacAddr == nullptr) {
        NET_LOGT(NET_LVL_ERR, PL_PARAM_ERROR_PRINT, "pcIfName: %p, pcMacAddr: %p. \n",
                 (const void *)pcIfName, (void *)pcMacAddr);
        return -1;
    }
    struct ifreq ifr;
    // An interface without a hardware address is routine: logged at debug level.
    if (ifreq_call(kernel_call(NET_HERE, FdName::iFd, NET_LVL_DEBUG), pcIfName, SIOCGIFHWADDR,
                   ifr) != 0)
        return -1;
    const unsigned char *m = reinterpret_cast<const unsigned char *>(ifr.ifr_hwaddr.sa_data);
    // A short buffer gets a cut, terminated text and the call still succeeds.
    snprintf(pcMacAddr, uiLen, "%02X:%02X:%02X:%02X:%02X:%02X", m[0], m[1], m[2], m[3], m[4], m[5]);
    return 0;
}

int get_mac_num(const char *pcIfName, unsigned char *pucMac, int iLen)
{
    if (pcIfName == nullptr || pucMac == nullptr || strcmp(pcIfName, "lo") == 0 || iLen <= 5)
        return -1;
    UniqueFd fd(socket(AF_INET, SOCK_STREAM, 0));
    if (!fd.valid()) {
        perror("Socket");
        return -1;
    }
    struct ifreq ifr;
    ifreq_init(ifr, pcIfName);
    if (ioctl(fd.get(), SIOCGIFHWADDR, &ifr) < 0)
        return -1;
    memcpy(pucMac, ifr.ifr_hwaddr.sa_data, 6);
    return 0;
}

int NET_GetMacAddrNum(const char *pcIfName, unsigned char *pucMacAddr, unsigned int uiLen)
{
    return get_mac_num(pcIfName, pucMacAddr, static_cast<int>(uiLen)) == 0 ? 0 : -1;
}

} // extern "C"
