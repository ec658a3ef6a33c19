// Link callbacks of the LLDP agent: on link loss the agent's thread is cancelled (when one was
// registered) and the agent is stopped.
#include <stdio.h>

#include "libnetwork.h"
#include "base/log.h"

extern "C" {
int NET_LldpStop(void);
}

namespace
{

// "No thread": the 32-bit -1 of the device, kept as that literal on every platform.
constexpr unsigned long kNoLldpThread = 0xFFFFFFFF;

// 1 while a registered agent thread may be cancelled.
int g_iNetLldpThrdFlag = 0;

} // namespace

extern "C" {

unsigned long g_ulNetLldpThrd = kNoLldpThread;

int Net_LldpSetThread(unsigned long ulThread)
{
    g_ulNetLldpThrd = ulThread;
    g_iNetLldpThrdFlag = 1;
    return 0;
}

int Net_LldpLinkUpCB(void)
{
    return 0;
}

int Net_LldpLinkDownCB(void)
{
    if (g_iNetLldpThrdFlag == 1)
        pthreadCancel(g_ulNetLldpThrd);
    g_ulNetLldpThrd = kNoLldpThread;
    // The handle is gone: a second link loss must not cancel "no thread".
    g_iNetLldpThrdFlag = 0;
    return NET_LldpStop() != 0 ? -1 : 0;
}

int NET_LldpStop(void)
{
    FILE *pipe = popen("/usr/bin/lldpd stop", "r");
    if (pipe == nullptr)
        return -1;
    // Closed at once, unread: the command's own status is not looked at.
    pclose(pipe);
    return 0;
}

} // extern "C"
