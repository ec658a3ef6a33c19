// Live addressing: IPv4 address and mask (end to end or kernel only), default gateways, IPv6
// addresses, static routes, and the resolver file's per-interface blocks.
#include <string.h>

#include <string>

#include "args.h"
#include "cli.h"
#include "guard.h"
#include "json.h"
#include "libnetwork.h"
#include "package.h"

namespace
{

bool exists(const char *ifn)
{
    int mtu = 0;
    return NET_GetMtu(ifn, &mtu) == 0;
}

int no_such(const Ctx &c, const char *ifn)
{
    return fail(c, "INTERFACE '%s' does not exist", ifn);
}

// The device's other port: lan1 <-> lan2 on a two-port device, none otherwise.
const char *other_port(const char *ifn)
{
    NetIfNames n;
    memset(&n, 0, sizeof n);
    if (NET_GetIntfNames(&n) != 0 || n.iIfNum != 2)
        return nullptr;
    if (strcmp(ifn, n.szFirstName) == 0)
        return "lan2";
    if (strcmp(ifn, "lan2") == 0)
        return g_pcLan1Name;
    return nullptr;
}

// Prefix length of a dotted netmask, for "ADDRESS/LEN".
int mask_len(const char *mask)
{
    uint32_t m = 0;
    return INET_Ipv4StrToNum(mask, &m) == 0 ? __builtin_popcount(m) : 0;
}

bool addr_one(const Ctx &c, Json &j, const char *ifn)
{
    if (!exists(ifn))
        return false;
    char addr[16] = {0}, mask[16] = {0}, gw[16] = {0};
    bool haveAddr = NET_GetIpv4Addr(ifn, addr, sizeof addr) == 0;
    bool haveMask = haveAddr && NET_GetIpv4Mask(ifn, mask, sizeof mask) == 0;
    NET_GetIpv4Gateway(ifn, gw, sizeof gw);
    if (c.json)
        j.begin_object()
            .str("interface", ifn)
            .str("address", haveAddr ? addr : nullptr)
            .str("netmask", haveMask ? mask : nullptr)
            .str("gateway", gw)
            .end_object();
    else if (c.brief && haveAddr)
        printf("%-16s %-8s %s/%d\n", ifn, link_state(ifn), addr, mask_len(mask));
    else if (c.brief)
        printf("%-16s %s\n", ifn, link_state(ifn));
    else if (!haveAddr)
        printf("%s: no IPv4 address\n", ifn);
    else
        printf("%s: %s netmask %s gateway %s\n", ifn, addr, or_dash(mask), or_dash(gw));
    return true;
}

int addr_show(Ctx &c, Args &a)
{
    if (a.remaining() != 1 || c.brief)
        return show_list(c, a, addr_one);
    const char *ifn = a.need("INTERFACE");
    if (!a.end() || !check_ifname(c, "INTERFACE", ifn))
        return kExitUsage;
    if (!exists(ifn))
        return no_such(c, ifn);
    char addr[16] = {0}, mask[16] = {0}, gw[16] = {0};
    bool haveAddr = NET_GetIpv4Addr(ifn, addr, sizeof addr) == 0;
    bool haveMask = haveAddr && NET_GetIpv4Mask(ifn, mask, sizeof mask) == 0;
    NET_GetIpv4Gateway(ifn, gw, sizeof gw);
    if (c.json) {
        Json()
            .begin_object()
            .str("interface", ifn)
            .str("address", haveAddr ? addr : nullptr)
            .str("netmask", haveMask ? mask : nullptr)
            .str("gateway", gw[0] ? gw : nullptr)
            .end_object()
            .print();
    } else if (!haveAddr) {
        printf("%s: no IPv4 address\n", ifn);
    } else {
        printf("%s: %s netmask %s gateway %s\n", ifn, addr, or_dash(mask), or_dash(gw));
    }
    return 0;
}

// The address stored for the port, "" when none can be read.
std::string stored_address(const char *ifn)
{
    Package p("network");
    struct uci_section *s =
        p.get() ? NET_GetSection(p.get(), NET_GetUciNameByIfName(ifn)) : nullptr;
    char buf[64] = {0};
    return s != nullptr && NET_GetOption(s, "ipaddr", buf, sizeof buf - 1) == 0 ? buf : "";
}

int addr_set(Ctx &c, Args &a)
{
    const char *ifn = a.need("INTERFACE"), *addr = a.need("ADDRESS"), *mask = a.need("NETMASK");
    if (!a.end() || !guard::port(c, "INTERFACE", ifn) || !guard::address(c, "ADDRESS", addr) ||
        !guard::mask(c, "NETMASK", mask) || !guard::host(c, "ADDRESS", addr, mask))
        return kExitUsage;
    if (NET_IPv4SetAddr(ifn, addr, mask) != 0) {
        const char *other = other_port(ifn);
        if (other != nullptr && INET_IsIpv4AddrExist(other, addr) == 1)
            return fail(c, "ADDRESS '%s' is held by the other port %s", addr, other);
        if (NET_IsDhcpMode(ifn) == 1)
            return fail(c, "INTERFACE '%s' is in DHCP mode: its address is not set by hand", ifn);
        if (!exists(ifn))
            return no_such(c, ifn);
        // A failed commit leaves its change pending, where a read would still find it.
        std::string why = guard::store_failure("network");
        if (stored_address(ifn) == addr)
            return fail(c, "ADDRESS '%s' was stored but could not be set live on %s", addr, ifn);
        return fail(c, "ADDRESS '%s' could not be stored for %s: %s", addr, ifn, why.c_str());
    }
    if (c.json)
        Json()
            .begin_object()
            .str("interface", ifn)
            .str("address", addr)
            .str("netmask", mask)
            .boolean("stored", true)
            .boolean("live", true)
            .end_object()
            .print();
    else
        printf("%s: %s netmask %s stored and set live\n", ifn, addr, mask);
    return guard::keep_default_route(c, ifn);
}

int addr_set_live(Ctx &c, Args &a)
{
    const char *ifn = a.need("INTERFACE"), *addr = a.need("ADDRESS");
    const char *mask = a.take();
    // 0.0.0.0 takes the address away.
    if (!a.end() || !guard::port(c, "INTERFACE", ifn, false) || !check_ipv4(c, "ADDRESS", addr) ||
        (strcmp(addr, "0.0.0.0") != 0 && !guard::address(c, "ADDRESS", addr)) ||
        (mask != nullptr &&
         (!guard::mask(c, "NETMASK", mask) || !guard::host(c, "ADDRESS", addr, mask))))
        return kExitUsage;
    if (NET_SetIpv4Addr(ifn, addr) != 0) {
        const char *other = other_port(ifn);
        if (other != nullptr && INET_IsIpv4AddrExist(other, addr) == 1)
            return fail(c, "ADDRESS '%s' is held by the other port %s", addr, other);
        return exists(ifn) ? fail(c, "ADDRESS '%s' could not be set on %s", addr, ifn)
                           : no_such(c, ifn);
    }
    if (mask != nullptr && NET_SetIpv4Mask(ifn, mask) != 0)
        return fail(c, "NETMASK '%s' could not be set on %s", mask, ifn);
    if (c.json)
        Json()
            .begin_object()
            .str("interface", ifn)
            .str("address", addr)
            .str("netmask", mask)
            .boolean("stored", false)
            .boolean("live", true)
            .end_object()
            .print();
    else
        printf("%s: %s%s%s set live (not stored)\n", ifn, addr, mask ? " netmask " : "",
               mask ? mask : "");
    return 0;
}

int gateway_show(Ctx &c, Args &a)
{
    const char *ifn = a.need("INTERFACE");
    if (!a.end() || !check_ifname(c, "INTERFACE", ifn))
        return kExitUsage;
    char gw[16] = {0};
    if (NET_GetIpv4Gateway(ifn, gw, sizeof gw) != 0)
        return fail(c, "the route table cannot be read");
    if (c.json)
        Json()
            .begin_object()
            .str("interface", ifn)
            .str("gateway", gw[0] ? gw : nullptr)
            .end_object()
            .print();
    else
        printf("%s: gateway %s\n", ifn, gw[0] ? gw : "none");
    return 0;
}

int gateway_change(Ctx &c, Args &a, bool add)
{
    const char *ifn = a.need("INTERFACE"), *gw = a.need("GATEWAY");
    if (!a.end() || !guard::port(c, "INTERFACE", ifn, false) || !guard::address(c, "GATEWAY", gw))
        return kExitUsage;
    int rc = add ? NET_SetIpv4Gateway(ifn, gw) : NET_DelIpv4Gateway(ifn, gw);
    char now[16] = {0};
    if (rc != 0 && add && NET_GetIpv4Gateway(ifn, now, sizeof now) == 0 && now[0] != '\0')
        return fail(c, "GATEWAY '%s': %s already has a default route, via %s", gw, ifn, now);
    if (rc != 0 && add && NET_IsIpv4SameSubnet(ifn, gw) != 1)
        return fail(c, "GATEWAY '%s' is unreachable: outside the subnet of %s", gw, ifn);
    if (rc != 0)
        return fail(c,
                    add ? "GATEWAY '%s' could not be added on %s (the kernel refused the route)"
                        : "GATEWAY '%s' is not a default route of %s",
                    gw, ifn);
    if (c.json)
        Json()
            .begin_object()
            .str("interface", ifn)
            .str("gateway", gw)
            .boolean("present", add)
            .end_object()
            .print();
    else
        printf("%s: default route via %s %s\n", ifn, gw, add ? "added" : "deleted");
    return 0;
}

int gateway_add(Ctx &c, Args &a)
{
    return gateway_change(c, a, true);
}
int gateway_del(Ctx &c, Args &a)
{
    return gateway_change(c, a, false);
}

bool addr6_one(const Ctx &c, Json &j, const char *ifn)
{
    static NetIpv6AddrList list;
    memset(&list, 0, sizeof list);
    if (!exists(ifn) || NET_GetIpv6AddrList(ifn, &list) != 0)
        return false;
    char gw[64] = {0};
    NET_GetIpv6Gateway(ifn, gw, sizeof gw);
    if (c.json)
        j.begin_object().str("interface", ifn).begin_array("addresses");
    else if (c.brief)
        printf("%-16s %-8s", ifn, link_state(ifn));
    else if (list.iNum == 0)
        printf("%s: no IPv6 address but link-local\n", ifn);
    for (int i = 0; i < list.iNum && i < 32; ++i) {
        const NetIpv6AddrEntry &e = list.astAddr[i];
        if (c.json)
            j.begin_object().str("address", e.szAddr).num("prefix", e.iPrefixLen).end_object();
        else if (c.brief)
            printf(" %s/%d", e.szAddr, e.iPrefixLen);
        else
            printf("%s: inet6 %s/%d\n", ifn, e.szAddr, e.iPrefixLen);
    }
    if (c.json)
        j.end_array().str("gateway", gw).end_object();
    else if (c.brief)
        printf("\n");
    else
        printf("%s: IPv6 gateway %s\n", ifn, gw[0] ? gw : "none");
    return true;
}

int addr6_show(Ctx &c, Args &a)
{
    if (a.remaining() != 1 || c.brief)
        return show_list(c, a, addr6_one);
    const char *ifn = a.need("INTERFACE");
    if (!a.end() || !check_ifname(c, "INTERFACE", ifn))
        return kExitUsage;
    if (!exists(ifn))
        return no_such(c, ifn);
    static NetIpv6AddrList list;
    memset(&list, 0, sizeof list);
    if (NET_GetIpv6AddrList(ifn, &list) != 0)
        return fail(c, "the IPv6 addresses of %s cannot be read", ifn);
    char gw[64] = {0};
    bool haveGw = NET_GetIpv6Gateway(ifn, gw, sizeof gw) == 0;
    Json j;
    j.begin_object().str("interface", ifn).begin_array("addresses");
    if (!c.json && list.iNum == 0)
        printf("%s: no IPv6 address but link-local\n", ifn);
    for (int i = 0; i < list.iNum && i < 32; ++i) {
        const NetIpv6AddrEntry &e = list.astAddr[i];
        if (c.json)
            j.begin_object().str("address", e.szAddr).num("prefix", e.iPrefixLen).end_object();
        else
            printf("%s: inet6 %s/%d\n", ifn, e.szAddr, e.iPrefixLen);
    }
    j.end_array().str("gateway", haveGw ? gw : nullptr).end_object();
    if (c.json)
        j.print();
    else
        printf("%s: IPv6 gateway %s\n", ifn, haveGw ? gw : "none");
    return 0;
}

int addr6_change(Ctx &c, Args &a, bool add)
{
    const char *ifn = a.need("INTERFACE"), *addr = a.need("ADDRESS"), *text = a.need("PREFIX");
    long prefix = 0;
    if (!a.end() || !guard::port(c, "INTERFACE", ifn, false) || !check_ipv6(c, "ADDRESS", addr) ||
        !parse_long(c, "PREFIX", text, 3, 127, &prefix))
        return kExitUsage;
    int p = static_cast<int>(prefix);
    int rc = add ? NET_AddIpv6Addr(ifn, addr, p) : NET_DelIpv6Addr(ifn, addr, p);
    if (rc != 0)
        return fail(c, "ADDRESS '%s/%d' could not be %s %s", addr, p,
                    add ? "added to" : "deleted from", ifn);
    if (c.json)
        Json()
            .begin_object()
            .str("interface", ifn)
            .str("address", addr)
            .num("prefix", prefix)
            .boolean("present", add)
            .end_object()
            .print();
    else
        printf("%s: %s/%d %s\n", ifn, addr, p, add ? "added" : "deleted");
    return 0;
}

int addr6_add(Ctx &c, Args &a)
{
    return addr6_change(c, a, true);
}
int addr6_del(Ctx &c, Args &a)
{
    return addr6_change(c, a, false);
}

int route_change(Ctx &c, Args &a, bool add)
{
    const char *ifn = a.need("INTERFACE"), *dest = a.need("DESTINATION"), *mask = a.need("NETMASK");
    if (!a.end() || !guard::port(c, "INTERFACE", ifn) || !check_ipv4(c, "DESTINATION", dest) ||
        !check_mask(c, "NETMASK", mask))
        return kExitUsage;
    int rc = add ? NET_IPv4SetRoute(ifn, dest, mask) : NET_IPv4DelRoute(ifn, dest, mask);
    std::string dropped = rc != 0 ? guard::drop_pending("network") : "";
    if (rc != 0)
        return fail(c,
                    add ? "DESTINATION '%s' netmask %s: the route could not be added on %s%s%s"
                        : "DESTINATION '%s' netmask %s: no such route on %s%s%s",
                    dest, mask, ifn, dropped.empty() ? "" : "; ", dropped.c_str());
    if (c.json)
        Json()
            .begin_object()
            .str("interface", ifn)
            .str("destination", dest)
            .str("netmask", mask)
            .boolean("present", add)
            .end_object()
            .print();
    else
        printf("%s: route to %s netmask %s %s (live and stored)\n", ifn, dest, mask,
               add ? "added" : "deleted");
    return 0;
}

int route_add(Ctx &c, Args &a)
{
    return route_change(c, a, true);
}
int route_del(Ctx &c, Args &a)
{
    return route_change(c, a, false);
}

int resolv_show(Ctx &c, Args &a)
{
    const char *ifn = a.need("INTERFACE");
    if (!a.end() || !guard::port(c, "INTERFACE", ifn, false))
        return kExitUsage;
    // The library copies without a terminator: zeroed buffers one byte longer than declared.
    char master[47] = {0}, slave[47] = {0};
    if (NET_GetDnsServer(ifn, master, 46, slave, 46) != 0)
        return fail(c, "\"/etc/resolv.conf\" cannot be read");
    if (c.json)
        Json()
            .begin_object()
            .str("interface", ifn)
            .str("master", master[0] ? master : nullptr)
            .str("slave", slave[0] ? slave : nullptr)
            .end_object()
            .print();
    else
        printf("%s: nameservers %s %s\n", ifn, or_dash(master), or_dash(slave));
    return 0;
}

bool check_server(const Ctx &c, const char *arg, const char *value)
{
    unsigned char bin[16];
    if (INET_Ipv4StrToNum(value, bin) == 0 || INET_Ipv6StrToNum(value, bin) == 0)
        return true;
    bad_arg(c, arg, value, "is not an IPv4 or IPv6 address");
    return false;
}

int resolv_set(Ctx &c, Args &a)
{
    const char *ifn = a.need("INTERFACE"), *master = a.need("MASTER");
    const char *slave = a.take();
    if (!a.end() || !guard::port(c, "INTERFACE", ifn, false) ||
        !check_server(c, "MASTER", master) ||
        (slave != nullptr && !check_server(c, "SLAVE", slave)))
        return kExitUsage;
    if (NET_SetDnsServer(ifn, master, slave) != 0)
        return fail(c, "\"/etc/resolv.conf\" could not be written");
    if (c.json)
        Json()
            .begin_object()
            .str("interface", ifn)
            .str("master", master)
            .str("slave", slave)
            .end_object()
            .print();
    else
        printf("%s: nameservers %s %s written to /etc/resolv.conf\n", ifn, master, or_dash(slave));
    return 0;
}

const Command kCommands[] = {
    {"addr show", "[INTERFACE...]", "live IPv4 address, netmask and default gateway",
     "Without INTERFACE every interface the kernel lists; -br: one line per interface.", addr_show},
    {"addr set", "INTERFACE ADDRESS NETMASK", "store the address, then set it live",
     "Refused while the port is in DHCP mode or when the other port holds the address\n"
     "(NET_IPv4SetAddr).",
     addr_set},
    {"addr set-live", "INTERFACE ADDRESS [NETMASK]", "set the address in the kernel only",
     "Nothing is stored (NET_SetIpv4Addr, NET_SetIpv4Mask).", addr_set_live},
    {"gateway show", "INTERFACE", "the interface's default gateway", nullptr, gateway_show},
    {"gateway add", "INTERFACE GATEWAY", "add a default route through the interface", nullptr,
     gateway_add},
    {"gateway del", "INTERFACE GATEWAY", "delete that default route", nullptr, gateway_del},
    {"addr6 show", "[INTERFACE...]", "IPv6 addresses (link-local left out) and gateway",
     "Without INTERFACE every interface the kernel lists; -br: one line per interface.",
     addr6_show},
    {"addr6 add", "INTERFACE ADDRESS PREFIX", "add an IPv6 address (prefix 3 to 127)", nullptr,
     addr6_add},
    {"addr6 del", "INTERFACE ADDRESS PREFIX", "delete an IPv6 address", nullptr, addr6_del},
    {"route add", "INTERFACE DESTINATION NETMASK", "add a direct route, then store it",
     "A host route exactly when NETMASK is 255.255.255.255.", route_add},
    {"route del", "INTERFACE DESTINATION NETMASK", "delete the route, then its stored copy",
     nullptr, route_del},
    {"resolv show", "INTERFACE", "the interface's servers in /etc/resolv.conf", nullptr,
     resolv_show},
    {"resolv set", "INTERFACE MASTER [SLAVE]", "rewrite the interface's block of /etc/resolv.conf",
     "The other interface's block is kept. On a one-port device the public resolver pair\n"
     "follows when both servers are given.",
     resolv_set},
};

} // namespace

CommandList addr_commands()
{
    return {kCommands, sizeof kCommands / sizeof kCommands[0]};
}
