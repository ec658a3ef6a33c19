// The other port of a two-interface device, and the refusal of an address it holds.
#pragma once

#include "base/log.h"

namespace netlib
{

// "lan2" for the first interface, the first interface for "lan2", else none (null); only
// on a device whose capability answer is exactly 1.
const char *other_interface(const char *ifname);

// True (and logged under the caller's name) when the other interface holds addr.
bool held_by_other_interface(CallSite site, const char *ifname, const char *addr);

} // namespace netlib
