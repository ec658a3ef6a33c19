// Hardware addresses of interfaces, as text and as raw bytes.
#include <net/if.h>
#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "base/kcall.h"
#include "libnetwork.h"

using namespace netlib;

namespace
{

constexpr size_t kMacTextLen = 17; // "%02X:%02X:%02X:%02X:%02X:%02X"

// What snprintf(out, len, "%02X:%02X:%02X:%02X:%02X:%02X", ...) writes, without printf: at
// most len - 1 characters and a terminator, nothing at all when len is 0.
void put_mac_text(const unsigned char *m, char *out, unsigned int len)
{
    static const char kHex[] = "0123456789ABCDEF";
    char text[kMacTextLen + 1];
    for (int i = 0; i < 6; ++i) {
        text[3 * i] = kHex[m[i] >> 4];
        text[3 * i + 1] = kHex[m[i] & 0xf];
        text[3 * i + 2] = ':';
    }
    if (len == 0)
        return;
    size_t n = len - 1 < kMacTextLen ? len - 1 : kMacTextLen;
    memcpy(out, text, n);
    out[n] = '\0';
}

} // namespace

extern "C" {

int NET_GetMacAddr(const char *pcIfName, char *pcMacAddr, unsigned int uiLen)
{
    NET_CHECK_ARGS(-1, "pcIfName: %p, pcMacAddr: %p. \n", pcIfName, pcMacAddr);
    struct ifreq ifr;
    // An interface without a hardware address is routine: logged at debug level.
    if (ifreq_call(kernel_call(NET_HERE, FdName::iFd, NET_LVL_DEBUG), pcIfName, SIOCGIFHWADDR,
                   ifr) != 0)
        return -1;
    const unsigned char *m = reinterpret_cast<const unsigned char *>(ifr.ifr_hwaddr.sa_data);
    // A short buffer gets a cut, terminated text and the call still succeeds.
    put_mac_text(m, pcMacAddr, uiLen);
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
