// "apply": what the network service does at start, through the library. For each port it reads
// the stored settings and sets them live: link up, MTU, and in static mode the address,
// netmask, default gateway and resolver servers. A port in DHCP mode is reported as such and
// left to the DHCP client that the network script runs.
#include <string.h>

#include <string>
#include <vector>

#include "args.h"
#include "cli.h"
#include "guard.h"
#include "json.h"
#include "libnetwork.h"
#include "package.h"

namespace
{

struct Stored {
    bool configured = false;
    bool dhcp = false;
    std::string proto, address, netmask, gateway, dns1, dns2;
    std::string address6; // a static IPv6 address, with prefix6
    int prefix6 = 0;
    int mtu = 1500;
};

std::string option(struct uci_section *s, const char *name)
{
    char buf[128] = {0};
    if (NET_GetOption(s, name, buf, sizeof buf) != 0)
        return "";
    return buf;
}

Stored read_stored(const char *ifn)
{
    Stored st;
    {
        Package p("network");
        struct uci_section *s =
            p.get() ? NET_GetSection(p.get(), NET_GetUciNameByIfName(ifn)) : nullptr;
        if (s == nullptr)
            return st;
        st.configured = true;
        st.proto = option(s, "proto");
        // "proto" is the switch the DHCP calls turn; the record's mode number decides when
        // proto names neither.
        st.dhcp = st.proto == "dhcp" || (st.proto != "static" && option(s, "ipv4dhcp") == "1");
        st.address = option(s, "ipaddr");
        st.netmask = option(s, "netmask");
        st.gateway = option(s, "gateway");
    }
    NetEtherCfg e;
    memset(&e, 0, sizeof e);
    if (NET_GetEtherCfg(ifn, &e) == 0) {
        st.mtu = e.iMtu;
        if (e.iIpv6Mode == 1) {
            st.address6 = std::string(e.szIpv6Addr, strnlen(e.szIpv6Addr, sizeof e.szIpv6Addr));
            st.prefix6 = e.iIpv6PrefixLen;
        }
        if (!st.dhcp && e.iIpv4Mode != 1) {
            st.dns1 = std::string(e.szDns1, strnlen(e.szDns1, sizeof e.szDns1));
            st.dns2 = std::string(e.szDns2, strnlen(e.szDns2, sizeof e.szDns2));
        }
    }
    return st;
}

// "stored NAME 'VALUE' RULE", the value escaped: each stored value that cannot be applied.
using Faults = std::vector<std::string>;

bool usable(Faults *f, const char *name, const std::string &value, const std::string &fault)
{
    if (fault.empty())
        return true;
    f->push_back(std::string("stored ") + name + " '" + guard::escaped(value) + "' " + fault);
    return false;
}

// Sets the static settings live; appends each failure's text.
void apply_static(const char *ifn, const Stored &st, Faults *f)
{
    bool addr =
        !st.address.empty() && usable(f, "address", st.address, guard::address_fault(st.address));
    bool mask = addr && usable(f, "netmask", st.netmask, guard::mask_fault(st.netmask));
    uint32_t a = 0, m = 0;
    if (mask && is_string_ipaddr_ipv4(st.address.c_str(), &a) == 1 &&
        is_string_ipaddr_ipv4(st.netmask.c_str(), &m) == 1 && is_ip_valid(a, m) != 1)
        addr = mask = usable(f, "address", st.address,
                             "is the network or broadcast address of netmask " + st.netmask);
    if (addr && INET_IsIpv4AddrExist(ifn, st.address.c_str()) != 1 &&
        NET_SetIpv4Addr(ifn, st.address.c_str()) != 0)
        f->push_back("address " + st.address + " could not be set");
    else if (mask && NET_SetIpv4Mask(ifn, st.netmask.c_str()) != 0)
        f->push_back("netmask " + st.netmask + " could not be set");
    if (!st.gateway.empty() && st.gateway != "0.0.0.0" &&
        usable(f, "gateway", st.gateway, guard::address_fault(st.gateway))) {
        char now[16] = {0};
        NET_GetIpv4Gateway(ifn, now, sizeof now);
        if (st.gateway != now && NET_SetIpv4Gateway(ifn, st.gateway.c_str()) != 0)
            f->push_back("gateway " + st.gateway + " could not be added");
    }
    std::string dns[2] = {st.dns1, st.dns2};
    for (std::string &d : dns)
        if (!d.empty() &&
            !usable(f, "dns server", d,
                    INET_IsIpv4AddrValid(d.c_str()) == 1 ? "" : "is not a dotted IPv4 address"))
            d.clear();
    if ((!dns[0].empty() || !dns[1].empty()) &&
        NET_EnableDnsServer(ifn, dns[0].c_str(), dns[1].c_str()) != 0)
        f->push_back("the resolver file could not be written");
}

bool holds_ipv6(const char *ifn, const std::string &addr)
{
    static NetIpv6AddrList list;
    memset(&list, 0, sizeof list);
    if (NET_GetIpv6AddrList(ifn, &list) != 0)
        return false;
    unsigned char want[16], have[16];
    if (INET_Ipv6StrToNum(addr.c_str(), want) != 0)
        return false;
    for (int i = 0; i < list.iNum && i < 32; ++i)
        if (INET_Ipv6StrToNum(list.astAddr[i].szAddr, have) == 0 && memcmp(want, have, 16) == 0)
            return true;
    return false;
}

Faults apply_port(const char *ifn, const Stored &st)
{
    if (NET_IntfUp(ifn) != 0)
        return {"the link cannot be set up (no such interface?)"};
    Faults f;
    if (usable(&f, "MTU", std::to_string(st.mtu),
               st.mtu >= 100 && st.mtu <= 1500 ? "" : "is not from 100 to 1500") &&
        NET_SetMtu(ifn, st.mtu) != 0)
        f.push_back("MTU " + std::to_string(st.mtu) + " could not be set");
    // The IPv6 address of the manual mode, whatever the IPv4 mode.
    if (!st.address6.empty() &&
        usable(&f, "IPv6 address", st.address6,
               INET_IsIpv6AddrValid(st.address6.c_str()) == 1 ? "" : "is not an IPv6 address") &&
        usable(&f, "IPv6 prefix", std::to_string(st.prefix6),
               st.prefix6 >= 1 && st.prefix6 <= 128 ? "" : "is not from 1 to 128") &&
        !holds_ipv6(ifn, st.address6) && NET_AddIpv6Addr(ifn, st.address6.c_str(), st.prefix6) != 0)
        f.push_back("IPv6 address " + st.address6 + "/" + std::to_string(st.prefix6) +
                    " could not be added");
    if (!st.dhcp)
        apply_static(ifn, st, &f);
    return f;
}

void print_port(const Ctx &c, Json &j, const char *ifn, const Stored &st)
{
    const char *mode = !st.configured ? "none" : st.dhcp ? "dhcp" : "static";
    if (c.json) {
        j.begin_object().str("interface", ifn).str("mode", mode);
        if (st.configured) {
            j.str("proto", st.proto).num("mtu", st.mtu);
            if (!st.address6.empty())
                j.str("address6", st.address6).num("prefix6", st.prefix6);
            if (!st.dhcp)
                j.str("address", st.address)
                    .str("netmask", st.netmask)
                    .str("gateway", st.gateway)
                    .str("dns1", st.dns1)
                    .str("dns2", st.dns2);
        }
        j.end_object();
        return;
    }
    if (!st.configured)
        printf("%s none (no stored section %s)\n", ifn, NET_GetUciNameByIfName(ifn));
    else if (st.dhcp)
        printf("%s dhcp mtu %d%s%s (address left to the DHCP client)\n", ifn, st.mtu,
               st.address6.empty() ? "" : " inet6 ", guard::escaped(st.address6).c_str());
    else
        printf("%s static %s netmask %s gateway %s mtu %d dns %s %s%s%s\n", ifn,
               or_dash(guard::escaped(st.address).c_str()),
               or_dash(guard::escaped(st.netmask).c_str()),
               or_dash(guard::escaped(st.gateway).c_str()), st.mtu,
               or_dash(guard::escaped(st.dns1).c_str()), or_dash(guard::escaped(st.dns2).c_str()),
               st.address6.empty() ? "" : " inet6 ", guard::escaped(st.address6).c_str());
}

int apply(Ctx &c, Args &a)
{
    std::vector<std::string> ports;
    for (const char *p = a.take(); p != nullptr; p = a.take()) {
        if (!guard::port(c, "INTERFACE", p))
            return kExitUsage;
        ports.push_back(p);
    }
    if (!a.end())
        return kExitUsage;
    if (ports.empty()) {
        NetIfNames n;
        memset(&n, 0, sizeof n);
        NET_GetIntfNames(&n);
        ports.push_back(n.szFirstName);
        if (n.iIfNum == 2)
            ports.push_back(n.szSecondName);
    }
    {
        Package p("network");
        if (p.get() == nullptr)
            return fail(c, "package network cannot be loaded: %s",
                        guard::package_trouble("network").c_str());
    }
    int rc = 0;
    Json j;
    j.begin_object().begin_array("ports");
    for (const std::string &port : ports) {
        Stored st = read_stored(port.c_str());
        for (const std::string &err : st.configured ? apply_port(port.c_str(), st) : Faults())
            rc = fail(c, "INTERFACE '%s': %s", port.c_str(), err.c_str());
        print_port(c, j, port.c_str(), st);
    }
    if (c.json)
        j.end_array().end_object().print();
    return rc;
}

const Command kCommands[] = {
    {"apply", "[INTERFACE...]", "set the stored settings of the ports live",
     "What the network service does at start: link up, MTU and a manual IPv6 address; in\n"
     "static mode the IPv4 address, netmask, gateway and resolver servers. Each port prints\n"
     "one line that starts with its name and mode (static, dhcp or none); a DHCP port is left\n"
     "to the DHCP client.",
     apply},
};

} // namespace

CommandList apply_commands()
{
    return {kCommands, sizeof kCommands / sizeof kCommands[0]};
}
