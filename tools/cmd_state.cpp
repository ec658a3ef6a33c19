// The state a checkpoint holds, stored and live, in one print: per port the link, MTU,
// addresses, default and static routes and stored DHCP modes; the "network" package; the
// resolver file. Everything is sorted, so two prints of the same state are byte-identical
// and scripts can compare them whole.
#include <arpa/inet.h>
#include <net/if.h>
#include <net/route.h>
#include <stdlib.h>
#include <string.h>

#include <uci.h>

#include <algorithm>
#include <string>
#include <vector>

#include "args.h"
#include "cli.h"
#include "json.h"
#include "libnetwork.h"
#include "package.h"

namespace
{

struct Route {
    uint32_t dest, mask, gw; // network order, as the kernel's table holds them
};

struct Addr6 {
    std::string addr;
    int prefix;
};

struct Port {
    std::string name;
    bool exists = false;
    bool up = false;
    int mtu = 0;
    std::string addr, mask, gateway; // "" when absent
    std::vector<Addr6> ipv6;
    std::vector<Route> routes;
    bool dhcp4 = false, dhcp6 = false;
    std::string proto; // stored; "" when absent
};

bool read_file(const char *path, std::string *out)
{
    FILE *f = fopen(path, "re");
    if (f == nullptr)
        return false;
    char buf[4096];
    size_t n;
    out->clear();
    while ((n = fread(buf, 1, sizeof buf, f)) > 0)
        out->append(buf, n);
    fclose(f);
    return true;
}

std::string dotted(uint32_t net)
{
    char text[INET_ADDRSTRLEN];
    inet_ntop(AF_INET, &net, text, sizeof text);
    return text;
}

// The port's IPv4 routes of the main table but the default route (shown as the gateway) and
// the subnet route the kernel adds with the address itself.
std::vector<Route> routes_of(const Port &p)
{
    std::vector<Route> out;
    FILE *f = fopen("/proc/net/route", "re");
    if (f == nullptr)
        return out;
    uint32_t addr = 0, mask = 0;
    inet_pton(AF_INET, p.addr.c_str(), &addr);
    inet_pton(AF_INET, p.mask.c_str(), &mask);
    char line[256], ifn[IFNAMSIZ + 1];
    unsigned int dest, gw, flags, rmask;
    while (fgets(line, sizeof line, f) != nullptr) {
        // The kernel prints each address as the number its network-order bytes make.
        if (sscanf(line, "%16s %x %x %x %*d %*d %*d %x", ifn, &dest, &gw, &flags, &rmask) != 5 ||
            p.name != ifn || (dest == 0 && rmask == 0))
            continue;
        bool subnet =
            !(flags & RTF_GATEWAY) && !p.addr.empty() && rmask == mask && dest == (addr & mask);
        if (!subnet)
            out.push_back({dest, rmask, (flags & RTF_GATEWAY) ? gw : 0});
    }
    fclose(f);
    std::sort(out.begin(), out.end(), [](const Route &a, const Route &b) {
        if (a.dest != b.dest)
            return ntohl(a.dest) < ntohl(b.dest);
        if (a.mask != b.mask)
            return ntohl(a.mask) < ntohl(b.mask);
        return ntohl(a.gw) < ntohl(b.gw);
    });
    return out;
}

Port read_port(const char *ifn)
{
    Port p;
    p.name = ifn;
    p.dhcp4 = NET_IsDhcpMode(ifn) == 1;
    p.dhcp6 = NET_IsDhcpv6Mode(ifn) == 1;
    Package pkg("network");
    struct uci_section *s =
        pkg.get() ? NET_GetSection(pkg.get(), NET_GetUciNameByIfName(ifn)) : nullptr;
    char proto[64] = {0};
    if (s != nullptr && NET_GetOption(s, "proto", proto, sizeof proto) == 0)
        p.proto = proto;
    p.exists = NET_GetMtu(ifn, &p.mtu) == 0;
    if (!p.exists)
        return p;
    std::string flags;
    if (read_file(("/sys/class/net/" + p.name + "/flags").c_str(), &flags))
        p.up = (strtoul(flags.c_str(), nullptr, 16) & IFF_UP) != 0;
    char addr[16] = {0}, mask[16] = {0}, gw[16] = {0};
    if (NET_GetIpv4Addr(ifn, addr, sizeof addr) == 0 && strcmp(addr, "0.0.0.0") != 0) {
        p.addr = addr;
        if (NET_GetIpv4Mask(ifn, mask, sizeof mask) == 0)
            p.mask = mask;
    }
    if (NET_GetIpv4Gateway(ifn, gw, sizeof gw) == 0)
        p.gateway = gw;
    static NetIpv6AddrList list;
    memset(&list, 0, sizeof list);
    if (NET_GetIpv6AddrList(ifn, &list) == 0)
        for (int i = 0; i < list.iNum && i < 32; ++i)
            p.ipv6.push_back({list.astAddr[i].szAddr, list.astAddr[i].iPrefixLen});
    std::sort(p.ipv6.begin(), p.ipv6.end(), [](const Addr6 &a, const Addr6 &b) {
        return a.addr != b.addr ? a.addr < b.addr : a.prefix < b.prefix;
    });
    p.routes = routes_of(p);
    return p;
}

const char *opt(const std::string &s)
{
    return s.empty() ? nullptr : s.c_str();
}

void port_json(Json &j, const Port &p)
{
    j.begin_object().str("name", p.name).boolean("exists", p.exists);
    if (p.exists)
        j.boolean("up", p.up).num("mtu", p.mtu);
    else
        j.null("up").null("mtu");
    j.str("address", opt(p.addr)).str("netmask", opt(p.mask)).begin_array("ipv6");
    for (const Addr6 &a : p.ipv6)
        j.begin_object().str("address", a.addr).num("prefix", a.prefix).end_object();
    j.end_array().str("gateway", opt(p.gateway)).begin_array("routes");
    for (const Route &r : p.routes)
        j.begin_object()
            .str("destination", dotted(r.dest))
            .str("netmask", dotted(r.mask))
            .str("gateway", r.gw ? dotted(r.gw).c_str() : nullptr)
            .end_object();
    j.end_array()
        .begin_object("dhcp")
        .boolean("ipv4", p.dhcp4)
        .boolean("ipv6", p.dhcp6)
        .str("proto", opt(p.proto))
        .end_object()
        .end_object();
}

void port_text(const Port &p)
{
    char head[64] = "absent";
    if (p.exists)
        snprintf(head, sizeof head, "%s mtu %d", p.up ? "up" : "down", p.mtu);
    printf("%s: %s, proto %s, dhcp ipv4 %s ipv6 %s\n", p.name.c_str(), head,
           or_dash(p.proto.c_str()), p.dhcp4 ? "on" : "off", p.dhcp6 ? "on" : "off");
    if (!p.exists)
        return;
    if (!p.addr.empty())
        printf("  inet %s netmask %s\n", p.addr.c_str(), or_dash(p.mask.c_str()));
    for (const Addr6 &a : p.ipv6)
        printf("  inet6 %s/%d\n", a.addr.c_str(), a.prefix);
    if (!p.gateway.empty())
        printf("  default via %s\n", p.gateway.c_str());
    for (const Route &r : p.routes)
        printf("  route %s netmask %s%s%s\n", dotted(r.dest).c_str(), dotted(r.mask).c_str(),
               r.gw ? " via " : "", r.gw ? dotted(r.gw).c_str() : "");
}

// FNV-1a, 64 bits: tells two package files apart whatever the options shown hide.
std::string digest(const std::string &data)
{
    uint64_t h = 14695981039346656037ull;
    for (unsigned char ch : data)
        h = (h ^ ch) * 1099511628211ull;
    char text[24];
    snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(h));
    return text;
}

template <typename T> std::vector<T *> sorted(struct uci_list *list, T *(*to)(uci_element *))
{
    std::vector<T *> out;
    struct uci_element *e;
    uci_foreach_element(list, e)
    {
        out.push_back(to(e));
    }
    std::sort(out.begin(), out.end(),
              [](const T *a, const T *b) { return strcmp(a->e.name, b->e.name) < 0; });
    return out;
}

struct uci_section *to_section(uci_element *e)
{
    return uci_to_section(e);
}
struct uci_option *to_option(uci_element *e)
{
    return uci_to_option(e);
}

const char *shown(const Ctx &c, const char *option, const char *value)
{
    return strstr(option, "password") != nullptr ? secret(c, value) : value;
}

// Sections by name, options by name; a list keeps its order, which means something.
void package_out(const Ctx &c, Json &j)
{
    std::string file;
    bool haveFile = read_file("/etc/config/network", &file);
    Package pkg("network");
    if (!haveFile && pkg.get() == nullptr) {
        if (c.json)
            j.null("package");
        else
            printf("package network: absent\n");
        return;
    }
    std::string sum = haveFile ? digest(file) : "";
    if (c.json)
        j.begin_object("package").str("digest", opt(sum)).begin_array("sections");
    else
        printf("package network (digest %s):\n", haveFile ? sum.c_str() : "- no file");
    std::vector<struct uci_section *> sections;
    if (pkg.get() != nullptr)
        sections = sorted(&pkg.get()->sections, to_section);
    for (struct uci_section *s : sections) {
        if (c.json)
            j.begin_object().str("name", s->e.name).str("type", s->type).begin_object("options");
        else
            printf("  network.%s=%s\n", s->e.name, s->type);
        for (struct uci_option *o : sorted(&s->options, to_option)) {
            const char *name = o->e.name;
            if (o->type == UCI_TYPE_STRING) {
                if (c.json)
                    j.str(name, shown(c, name, o->v.string));
                else
                    printf("  network.%s.%s='%s'\n", s->e.name, name, shown(c, name, o->v.string));
                continue;
            }
            if (c.json)
                j.begin_array(name);
            else
                printf("  network.%s.%s=", s->e.name, name);
            struct uci_element *e;
            const char *sep = "";
            uci_foreach_element(&o->v.list, e)
            {
                if (c.json)
                    j.str(nullptr, shown(c, name, e->name));
                else
                    printf("%s'%s'", sep, shown(c, name, e->name));
                sep = " ";
            }
            if (c.json)
                j.end_array();
            else
                printf("\n");
        }
        if (c.json)
            j.end_object().end_object();
    }
    if (c.json)
        j.end_array().end_object();
}

void resolv_out(const Ctx &c, Json &j)
{
    std::string text;
    bool have = read_file("/etc/resolv.conf", &text);
    if (c.json) {
        j.str("resolv_conf", have ? text.c_str() : nullptr);
        return;
    }
    if (!have) {
        printf("/etc/resolv.conf: absent\n");
        return;
    }
    printf("/etc/resolv.conf:\n");
    for (size_t a = 0, b; a < text.size(); a = b + 1) {
        b = text.find('\n', a);
        if (b == std::string::npos)
            b = text.size();
        printf("  %s\n", text.substr(a, b - a).c_str());
    }
}

int state(Ctx &c, Args &a)
{
    c.json = a.flag("--json") || c.json;
    const char *only = a.take();
    if (!a.end() || (only != nullptr && !check_ifname(c, "INTERFACE", only)))
        return kExitUsage;
    std::vector<std::string> names;
    if (only != nullptr) {
        names.push_back(only);
    } else {
        NetIfNames n;
        memset(&n, 0, sizeof n);
        if (NET_GetIntfNames(&n) != 0)
            return fail(c, "cannot read the interface names");
        names.push_back(n.szFirstName);
        if (n.iIfNum == 2)
            names.push_back(n.szSecondName);
        std::sort(names.begin(), names.end());
    }
    std::vector<Port> ports;
    for (const std::string &n : names)
        ports.push_back(read_port(n.c_str()));
    if (only != nullptr && !ports[0].exists)
        return fail(c, "INTERFACE '%s' does not exist", only);
    Json j;
    j.begin_object().begin_array("ports");
    for (const Port &p : ports) {
        if (c.json)
            port_json(j, p);
        else
            port_text(p);
    }
    if (c.json)
        j.end_array();
    package_out(c, j);
    resolv_out(c, j);
    if (c.json)
        j.end_object().print();
    return 0;
}

const Command kCommands[] = {
    {"state", "[--json] [INTERFACE]", "the stored and live state a checkpoint holds, sorted",
     "Per port (the device's, or INTERFACE): up or down, MTU, IPv4 address and netmask,\n"
     "IPv6 addresses but link-local, the default gateway, the other routes of the port but\n"
     "the subnet route of its address, the stored proto and DHCP modes. Then the package\n"
     "\"network\" (a digest of the file, its sections and options sorted by name) and\n"
     "/etc/resolv.conf. Two prints of the same state are byte for byte the same; with --json\n"
     "absent values are null.",
     state},
};

} // namespace

CommandList state_commands()
{
    return {kCommands, sizeof kCommands / sizeof kCommands[0]};
}
