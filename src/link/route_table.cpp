#include "link/route_table.h"

#include <net/route.h>
#include <string.h>

namespace netlib
{

bool parse_route_line(const char *line, RouteLine &out)
{
    unsigned int dest = 0, gw = 0, flags = 0;
    // ifname has room for a whole 128-byte line, so "%s" cannot overflow it.
    if (sscanf(line, "%s\t%X\t%X\t%X", out.ifname, &dest, &gw, &flags) != 4)
        return false;
    out.dest = dest;
    out.gateway = gw;
    out.flags = flags;
    return true;
}

bool find_default_route(FILE *table, const char *ifname, RouteLine &out)
{
    char line[128];
    while (fgets(line, sizeof line, table) != nullptr) {
        // A default route that carries any flag beyond up and gateway is passed over.
        if (parse_route_line(line, out) && out.dest == 0 && out.flags == (RTF_UP | RTF_GATEWAY) &&
            (ifname == nullptr || strcmp(out.ifname, ifname) == 0))
            return true;
    }
    return false;
}

} // namespace netlib
