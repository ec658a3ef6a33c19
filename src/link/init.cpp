// The library frame: which interfaces the device has, and the network restart.
#include <stdlib.h>
#include <string.h>

#include "libnetwork.h"
#include "base/log.h"
#include "base/ports.h"

using netlib::kEth0;
using netlib::kLan1;
using netlib::kLan2;

extern "C" {

int NET_Init(void)
{
    g_pcLan1Name = CAP_GetNetIntfNum() >= 2 ? kLan1 : kEth0;

    // A one-interface device may be told its single port is "lan1" or "lan2"; a
    // two-interface device always starts from "lan1".
    char name[16] = {0};
    if (CAP_GetNetIntfNum() == 1 && CAP_GetNetIntfName(0, sizeof name, name) == 0) {
        if (strcmp(name, kLan1) == 0)
            g_pcLan1Name = kLan1;
        else if (strcmp(name, kLan2) == 0)
            g_pcLan1Name = kLan2;
    }
    return 0;
}

int NET_GetIntfNames(NetIfNames *pstIfNames)
{
    NET_CHECK_ARGS(-1, "pstIfNames: %p. \n", pstIfNames);
    NetIfNames names;
    memset(&names, 0, sizeof names);
    if (CAP_IsDoubleIntfSupport() != 0) {
        names.iIfNum = 2;
        strncpy(names.szFirstName, g_pcLan1Name, sizeof names.szFirstName - 1);
        // Always "lan2", even if the first name is "lan2" too (NET_Init never makes it so).
        strncpy(names.szSecondName, kLan2, sizeof names.szSecondName - 1);
    } else {
        names.iIfNum = 1;
        strncpy(names.szFirstName, g_pcLan1Name, sizeof names.szFirstName - 1);
    }
    memcpy(pstIfNames, &names, sizeof names);
    return 0;
}

int NET_Restart(void)
{
    return system("/etc/init.d/network restart") == 0 ? 0 : -1;
}

} // extern "C"
