// What the fuzz targets share: the check that stops a run with the broken rule's name, and
// the addresses the frame readers are asked about.
#pragma once

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

namespace fuzzsupport
{

inline void require(bool ok, const char *what)
{
    if (!ok) {
        fprintf(stderr, "broken: %s\n", what);
        abort();
    }
}

// Our MAC, the IPv4 address probed for, and the IPv6 target.
const uint8_t kMac[6] = {0x02, 0x00, 0x00, 0x00, 0x01, 0x01};
const uint8_t kIp[4] = {192, 168, 1, 77};
const uint8_t kTarget[16] = {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x77};

} // namespace fuzzsupport
