#include "base/ports.h"

#include <string.h>

#include "companion.h"
#include "libnetwork.h"

extern "C" {
// Settled by NET_Init; "eth0" until then.
const char *g_pcLan1Name = netlib::kEth0;
}

namespace netlib
{

const char *other_interface(const char *ifname)
{
    if (CAP_IsDoubleIntfSupport() != 1)
        return nullptr;
    if (strcmp(ifname, g_pcLan1Name) == 0)
        return kLan2;
    if (strcmp(ifname, kLan2) == 0)
        return g_pcLan1Name;
    return nullptr;
}

const char *uci_section_of(const char *ifname)
{
    if (ifname != nullptr && strcmp(ifname, kEth0) == 0)
        return kEth0Section;
    return ifname;
}

} // namespace netlib
