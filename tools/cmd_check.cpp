// Validators: the library's lawfulness checks of addresses, masks, ports, domain and host
// names, as a device application would judge user input. The exit status is the answer for
// scripts (0 valid, 1 not); the output says which check said no.
#include <string.h>

#include <string>
#include <vector>

#include "args.h"
#include "cli.h"
#include "json.h"
#include "libnetwork.h"

namespace
{

struct Verdict {
    const char *check; // the library function asked
    int answer;        // 1 yes, 0 no
};

int report(const Ctx &c, const char *kind, const char *value, const std::vector<Verdict> &v)
{
    bool valid = true;
    for (const Verdict &x : v)
        valid = valid && x.answer == 1;
    if (c.json) {
        Json j;
        j.begin_object().str("kind", kind).str("value", value).boolean("valid", valid);
        j.begin_object("checks");
        for (const Verdict &x : v)
            j.boolean(x.check, x.answer == 1);
        j.end_object().end_object().print();
        return valid ? 0 : kExitFail;
    }
    printf("%s '%s': %s (", kind, value, valid ? "valid" : "invalid");
    for (size_t i = 0; i < v.size(); ++i)
        printf("%s%s %s", i ? ", " : "", v[i].check, v[i].answer == 1 ? "yes" : "no");
    printf(")\n");
    return valid ? 0 : kExitFail;
}

const char *one_value(Args &a)
{
    const char *v = a.need("VALUE");
    return a.end() ? v : nullptr;
}

int ipv4(Ctx &c, Args &a)
{
    const char *v = one_value(a);
    if (v == nullptr)
        return kExitUsage;
    uint32_t num = 0;
    int parsed = is_string_ipaddr_ipv4(v, &num);
    std::vector<Verdict> r = {{"INET_IsIpv4AddrValid", INET_IsIpv4AddrValid(v)},
                              {"is_ipaddr_lawful", is_ipaddr_lawful(v)}};
    r.push_back({"is_address_valid", parsed == 1 ? is_address_valid(num) : 0});
    return report(c, "ipv4", v, r);
}

int ipv6(Ctx &c, Args &a)
{
    const char *v = one_value(a);
    if (v == nullptr)
        return kExitUsage;
    return report(c, "ipv6", v, {{"INET_IsIpv6AddrValid", INET_IsIpv6AddrValid(v)}});
}

int addr(Ctx &c, Args &a)
{
    const char *v = a.need("ADDRESS");
    const char *mask = a.take();
    if (!a.end())
        return kExitUsage;
    std::vector<Verdict> r = {{"INET_IsIpaddrValid", INET_IsIpaddrValid(v)}};
    if (mask != nullptr) {
        uint32_t an = 0, mn = 0;
        if (is_string_ipaddr_ipv4(mask, &mn) != 1)
            return bad_arg(c, "NETMASK", mask, "is not a dotted IPv4 netmask");
        int parsed = is_string_ipaddr_ipv4(v, &an);
        r.push_back({"is_ip_valid", parsed == 1 ? is_ip_valid(an, mn) : 0});
    }
    return report(c, "address", v, r);
}

int mask(Ctx &c, Args &a)
{
    const char *v = one_value(a);
    if (v == nullptr)
        return kExitUsage;
    if (strchr(v, ':') != nullptr)
        return report(c, "mask", v, {{"is_v6_mask_valid", is_v6_mask_valid(v)}});
    uint32_t num = 0;
    int parsed = is_string_ipaddr_ipv4(v, &num);
    return report(c, "mask", v, {{"is_mask_valid", parsed == 1 ? is_mask_valid(num) : 0}});
}

int port(Ctx &c, Args &a)
{
    const char *v = one_value(a);
    if (v == nullptr)
        return kExitUsage;
    long n = 0;
    if (!parse_long(c, "VALUE", v, -2147483647L - 1, 2147483647L, &n))
        return kExitUsage;
    return report(c, "port", v,
                  {{"is_port_legal", is_port_legal(static_cast<int>(n))},
                   {"is_port_lawful", is_port_lawful(static_cast<unsigned int>(n))}});
}

int domain(Ctx &c, Args &a)
{
    const char *v = one_value(a);
    if (v == nullptr)
        return kExitUsage;
    return report(c, "domain", v, {{"is_domain_valid", is_domain_valid(v)}});
}

int hostname(Ctx &c, Args &a)
{
    const char *v = one_value(a);
    if (v == nullptr)
        return kExitUsage;
    return report(c, "hostname", v, {{"is_hostname_valid", is_hostname_valid(v)}});
}

const Command kCommands[] = {
    {"check ipv4", "VALUE", "a dotted IPv4 address, lawful and unicast", nullptr, ipv4},
    {"check ipv6", "VALUE", "an IPv6 address fit to configure", nullptr, ipv6},
    {"check addr", "ADDRESS [NETMASK]",
     "any configurable address; with NETMASK, not the network"
     " or broadcast address",
     nullptr, addr},
    {"check mask", "VALUE", "an IPv4 netmask (prefix 1 to 30) or an IPv6 netmask", nullptr, mask},
    {"check port", "VALUE", "a port number (1 to 65535)", nullptr, port},
    {"check domain", "VALUE", "a domain name (empty, or up to 64 characters)", nullptr, domain},
    {"check hostname", "VALUE", "a host name (empty, or up to 255 characters)", nullptr, hostname},
};

} // namespace

CommandList check_commands()
{
    return {kCommands, sizeof kCommands / sizeof kCommands[0]};
}
