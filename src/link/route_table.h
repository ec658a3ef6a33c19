// Reader of the kernel's IPv4 route table ("/proc/net/route").
#pragma once

#include <stdint.h>
#include <stdio.h>

namespace netlib
{

struct RouteLine {
    char ifname[128];
    uint32_t dest;    // network order, as the kernel prints it
    uint32_t gateway; // network order
    uint32_t flags;
};

// Scans one line with "%s\t%X\t%X\t%X"; false when any field is missing (the header line).
bool parse_route_line(const char *line, RouteLine &out);

// The first default route (destination 0, flags exactly up|gateway) of ifname, or of any
// interface when ifname is null. Lines are read 128 bytes at a time. True when found.
bool find_default_route(FILE *table, const char *ifname, RouteLine &out);

} // namespace netlib
