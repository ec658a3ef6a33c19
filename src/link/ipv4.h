// The address refusal shared by the kernel-only and the end-to-end address change.
#pragma once

#include "base/log.h"

namespace netlib
{

// True (and logged under the caller's name) when the other port holds addr live.
bool held_by_other_interface(CallSite site, const char *ifname, const char *addr);

} // namespace netlib
