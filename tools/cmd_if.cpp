// Interfaces and link: names, the kernel's interface list, hardware addresses, TCP ports in
// use, the network restart, and link state (up/down, MTU, carrier, speed and duplex).
#include <string.h>

#include "args.h"
#include "cli.h"
#include "guard.h"
#include "json.h"
#include "libnetwork.h"
#include "speed.h"

namespace
{

int names(Ctx &c, Args &a)
{
    if (!a.end())
        return kExitUsage;
    NetIfNames n;
    memset(&n, 0, sizeof n);
    if (NET_GetIntfNames(&n) != 0)
        return fail(c, "cannot read the interface names");
    if (c.json) {
        Json j;
        j.begin_object().num("count", n.iIfNum).begin_array("names").str(nullptr, n.szFirstName);
        if (n.iIfNum == 2)
            j.str(nullptr, n.szSecondName);
        j.end_array().end_object().print();
    } else if (n.iIfNum == 2) {
        printf("2 interfaces: %s %s\n", n.szFirstName, n.szSecondName);
    } else {
        printf("1 interface: %s\n", n.szFirstName);
    }
    return 0;
}

void mac_text(const unsigned char *m, char *out, size_t len)
{
    snprintf(out, len, "%02X:%02X:%02X:%02X:%02X:%02X", m[0], m[1], m[2], m[3], m[4], m[5]);
}

int interfaces(Ctx &c, Args &a)
{
    if (!a.end())
        return kExitUsage;
    NetIfInfo info[32];
    int n = NET_GetInterfaces(info, 32);
    Json j;
    j.begin_object().begin_array("interfaces");
    for (int i = 0; i < n; ++i) {
        const NetIfInfo &f = info[i];
        char mac[18];
        mac_text(f.aucMac, mac, sizeof mac);
        if (c.json) {
            j.begin_object()
                .str("name", f.szIfName)
                .str("ipv4", f.szIpv4Addr)
                .str("netmask", f.szIpv4Mask)
                .str("broadcast", f.szIpv4Broadcast)
                .str("ipv6", f.szIpv6Addr)
                .str("ipv6_mask", f.szIpv6Mask)
                .str("mac", mac)
                .end_object();
            continue;
        }
        printf("%-10s mac %s\n", f.szIfName, mac);
        if (f.szIpv4Addr[0] != '\0')
            printf("%-10s inet %s netmask %s broadcast %s\n", "", f.szIpv4Addr, f.szIpv4Mask,
                   or_dash(f.szIpv4Broadcast));
        if (f.szIpv6Addr[0] != '\0')
            printf("%-10s inet6 %s netmask %s\n", "", f.szIpv6Addr, f.szIpv6Mask);
    }
    if (c.json)
        j.end_array().end_object().print();
    return 0;
}

int mac(Ctx &c, Args &a)
{
    const char *ifn = a.need("INTERFACE");
    if (!a.end() || !check_ifname(c, "INTERFACE", ifn))
        return kExitUsage;
    char text[18] = {0};
    if (NET_GetMacAddr(ifn, text, sizeof text) != 0)
        return fail(c, "INTERFACE '%s' has no hardware address (no such interface?)", ifn);
    if (c.json)
        Json().begin_object().str("interface", ifn).str("mac", text).end_object().print();
    else
        printf("%s\n", text);
    return 0;
}

int port_used(Ctx &c, Args &a)
{
    const char *text = a.need("PORT");
    long port = 0;
    if (!a.end() || !parse_long(c, "PORT", text, 1, 65535, &port))
        return kExitUsage;
    bool used = NET_IsPortUsed(static_cast<unsigned short>(port)) == 1;
    if (c.json)
        Json().begin_object().num("port", port).boolean("used", used).end_object().print();
    else
        printf("tcp port %ld is %s\n", port, used ? "in use" : "free");
    return 0;
}

int restart(Ctx &c, Args &a)
{
    if (!a.end())
        return kExitUsage;
    if (NET_Restart() != 0)
        return fail(c, "the network script \"/etc/init.d/network restart\" failed");
    if (c.json)
        Json().begin_object().boolean("restarted", true).end_object().print();
    else
        printf("network restarted\n");
    return 0;
}

bool link_one(const Ctx &c, Json &j, const char *ifn)
{
    int mtu = 0, linked = 0;
    if (NET_GetMtu(ifn, &mtu) != 0)
        return false;
    NetSpeedDuplexMode mode = NET_SPEED_DUPLEX_AUTO;
    bool haveLink = NET_GetPortLinkStatus(ifn, &linked) == 0;
    bool haveMode = NET_GetSpeedDuplex(ifn, &mode) == 0;
    char mac[18] = {0};
    NET_GetMacAddr(ifn, mac, sizeof mac);
    if (c.json) {
        j.begin_object().str("interface", ifn).num("mtu", mtu);
        haveLink ? j.boolean("carrier", linked == 1) : j.null("carrier");
        j.str("speed_duplex", haveMode ? speed_name(mode) : nullptr).str("mac", mac).end_object();
    } else if (c.brief) {
        printf("%-16s %-8s %-17s mtu %d\n", ifn, link_state(ifn), or_dash(mac), mtu);
    } else {
        printf("%s: mtu %d carrier %s speed/duplex %s mac %s\n", ifn, mtu,
               haveLink ? (linked == 1 ? "yes" : "no") : "unknown",
               haveMode ? speed_name(mode) : "unknown", or_dash(mac));
    }
    return true;
}

int link_show(Ctx &c, Args &a)
{
    if (a.remaining() != 1 || c.brief)
        return show_list(c, a, link_one);
    const char *ifn = a.need("INTERFACE");
    if (!a.end() || !check_ifname(c, "INTERFACE", ifn))
        return kExitUsage;
    int mtu = 0, linked = 0;
    NetSpeedDuplexMode mode = NET_SPEED_DUPLEX_AUTO, best = NET_SPEED_DUPLEX_AUTO;
    bool haveMtu = NET_GetMtu(ifn, &mtu) == 0;
    if (!haveMtu)
        return fail(c, "INTERFACE '%s' cannot be read (no such interface?)", ifn);
    bool haveLink = NET_GetPortLinkStatus(ifn, &linked) == 0;
    bool haveMode = NET_GetSpeedDuplex(ifn, &mode) == 0;
    bool haveBest = NET_GetSupportSpeed(ifn, &best) == 0;
    if (c.json) {
        Json j;
        j.begin_object().str("interface", ifn).num("mtu", mtu);
        haveLink ? j.boolean("carrier", linked == 1) : j.null("carrier");
        j.str("speed_duplex", haveMode ? speed_name(mode) : nullptr);
        j.str("max_speed", haveBest ? speed_name(best) : nullptr);
        j.end_object().print();
        return 0;
    }
    printf("%s: mtu %d carrier %s speed/duplex %s best %s\n", ifn, mtu,
           haveLink ? (linked == 1 ? "yes" : "no") : "unknown",
           haveMode ? speed_name(mode) : "unknown", haveBest ? speed_name(best) : "unknown");
    return 0;
}

int link_updown(Ctx &c, Args &a, bool up)
{
    const char *ifn = a.need("INTERFACE");
    if (!a.end() || !guard::port(c, "INTERFACE", ifn, false))
        return kExitUsage;
    int rc = up ? NET_IntfUp(ifn) : NET_IntfDown(ifn);
    if (rc != 0)
        return fail(c, "INTERFACE '%s' could not be set %s", ifn, up ? "up" : "down");
    if (c.json)
        Json().begin_object().str("interface", ifn).boolean("up", up).end_object().print();
    else
        printf("%s is %s\n", ifn, up ? "up" : "down");
    return 0;
}

int link_up(Ctx &c, Args &a)
{
    return link_updown(c, a, true);
}
int link_down(Ctx &c, Args &a)
{
    return link_updown(c, a, false);
}

int link_mtu(Ctx &c, Args &a)
{
    const char *ifn = a.need("INTERFACE");
    const char *text = a.need("MTU");
    long mtu = 0;
    if (!a.end() || !guard::port(c, "INTERFACE", ifn, false) ||
        !parse_long(c, "MTU", text, 100, 1500, &mtu))
        return kExitUsage;
    if (NET_SetMtu(ifn, static_cast<int>(mtu)) != 0)
        return fail(c, "INTERFACE '%s' refused MTU %ld", ifn, mtu);
    if (c.json)
        Json().begin_object().str("interface", ifn).num("mtu", mtu).end_object().print();
    else
        printf("%s mtu %ld\n", ifn, mtu);
    return 0;
}

int link_speed(Ctx &c, Args &a)
{
    const char *ifn = a.need("INTERFACE");
    const char *text = a.need("MODE");
    if (!a.end() || !guard::port(c, "INTERFACE", ifn, false))
        return kExitUsage;
    NetSpeedDuplexMode mode;
    if (!speed_parse(text, &mode))
        return bad_arg(c, "MODE", text, "is not one of " SPEED_NAMES);
    if (NET_SetSpeedDuplex(ifn, mode) != 0)
        return fail(c, "INTERFACE '%s' refused speed/duplex %s", ifn, text);
    if (c.json)
        Json().begin_object().str("interface", ifn).str("speed_duplex", text).end_object().print();
    else
        printf("%s speed/duplex %s\n", ifn, text);
    return 0;
}

const Command kCommands[] = {
    {"names", "", "the device's interface names", nullptr, names},
    {"interfaces", "", "every interface the kernel lists, with addresses and MAC", nullptr,
     interfaces},
    {"mac", "INTERFACE", "hardware address of an interface", nullptr, mac},
    {"port-used", "PORT", "whether a TCP port is taken on this host", nullptr, port_used},
    {"restart", "", "restart the network service (/etc/init.d/network restart)", nullptr, restart},
    {"link show", "[INTERFACE...]", "MTU, carrier, speed and duplex of a port",
     "Without INTERFACE every interface the kernel lists; -br: one line per interface.", link_show},
    {"link up", "INTERFACE", "set the interface up", nullptr, link_up},
    {"link down", "INTERFACE", "set the interface down (not lo)", nullptr, link_down},
    {"link mtu", "INTERFACE MTU", "set the MTU (100 to 1500)", nullptr, link_mtu},
    {"link speed", "INTERFACE MODE", "force speed and duplex, or auto-negotiation",
     "MODE is one of " SPEED_NAMES ".", link_speed},
};

} // namespace

CommandList if_commands()
{
    return {kCommands, sizeof kCommands / sizeof kCommands[0]};
}
