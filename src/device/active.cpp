// The interface and the client address the device is serving right now. Applications set
// both from one thread; nothing here is locked.
#include <string.h>

#include "base/ports.h"
#include "libnetwork.h"
#include "base/log.h"

namespace
{

char g_szActiveIf[16];
char g_szActiveClientIp[46];
constexpr size_t kClientCopyLen = 3;

} // namespace

extern "C" {

char *get_active_interface(void)
{
    // Literal names, not g_pcLan1Name: a two-interface device starts from "lan1" even when
    // its first interface was told to be "lan2".
    if (g_szActiveIf[0] == '\0')
        strncpy(g_szActiveIf, CAP_IsDoubleIntfSupport() == 1 ? netlib::kLan1 : netlib::kEth0,
                sizeof g_szActiveIf - 1);
    return g_szActiveIf;
}

int set_active_interface(const char *pcIfName)
{
    if (pcIfName == nullptr) {
        NET_LOG(NET_LVL_ERR, "Invalid input param, %s: %p \n", "pcIfName", (const void *)pcIfName);
        return -1;
    }
    memset(g_szActiveIf, 0, sizeof g_szActiveIf);
    strncpy(g_szActiveIf, pcIfName, sizeof g_szActiveIf - 1);
    return 0;
}

int get_active_clientip(char *pcClientIp)
{
    if (pcClientIp == nullptr) {
        NET_LOG(NET_LVL_ERR, "Invalid input param, %s: %p \n", "pcClientIp", (void *)pcClientIp);
        return -1;
    }
    // Only three characters, padded like strncpy and unterminated: callers get "192" of
    // "192.168.1.5", and the port choice of the driver table rests on that.
    size_t n = strnlen(g_szActiveClientIp, kClientCopyLen);
    memcpy(pcClientIp, g_szActiveClientIp, n);
    memset(pcClientIp + n, 0, kClientCopyLen - n);
    return 0;
}

int set_active_clientip(const char *pcClientIp)
{
    if (pcClientIp == nullptr) {
        NET_LOG(NET_LVL_ERR, "Invalid input param, %s: %p \n", "pcClientIp",
                (const void *)pcClientIp);
        return -1;
    }
    memset(g_szActiveClientIp, 0, sizeof g_szActiveClientIp);
    strncpy(g_szActiveClientIp, pcClientIp, sizeof g_szActiveClientIp - 1);
    return 0;
}

} // extern "C"
