// netlibctl: see and drive the network library from a shell. It calls only the library's
// exported functions, so it exercises the same interface as a device application.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "libnetwork.h"

namespace {

struct Options {
    bool json = false;
};

// Minimal JSON string quoting for the few characters that can occur here.
std::string jstr(const char *s)
{
    std::string out = "\"";
    for (; *s != '\0'; ++s) {
        if (*s == '"' || *s == '\\')
            out += '\\';
        out += *s;
    }
    return out + "\"";
}

int fail(const char *cmd, const char *what)
{
    fprintf(stderr, "netlibctl %s: %s\n", cmd, what);
    return 1;
}

int cmd_names(const Options &o, int, char **)
{
    NetIfNames n;
    memset(&n, 0, sizeof n);
    if (NET_GetIntfNames(&n) != 0)
        return fail("names", "cannot read the interface names");
    if (o.json)
        printf("{\"count\":%d,\"first\":%s,\"second\":%s}\n", n.iIfNum,
               jstr(n.szFirstName).c_str(), jstr(n.szSecondName).c_str());
    else if (n.iIfNum == 2)
        printf("2 interfaces: %s %s\n", n.szFirstName, n.szSecondName);
    else
        printf("1 interface: %s\n", n.szFirstName);
    return 0;
}

std::string mac_text(const unsigned char *m)
{
    char buf[18];
    snprintf(buf, sizeof buf, "%02x:%02x:%02x:%02x:%02x:%02x", m[0], m[1], m[2], m[3], m[4],
             m[5]);
    return buf;
}

int cmd_interfaces(const Options &o, int, char **)
{
    NetIfInfo info[32];
    int n = NET_GetInterfaces(info, 32);
    if (o.json) {
        printf("{\"interfaces\":[");
        for (int i = 0; i < n; ++i)
            printf("%s{\"name\":%s,\"ipv4\":%s,\"netmask\":%s,\"broadcast\":%s,\"ipv6\":%s,"
                   "\"ipv6_mask\":%s,\"mac\":%s}",
                   i ? "," : "", jstr(info[i].szIfName).c_str(), jstr(info[i].szIpv4Addr).c_str(),
                   jstr(info[i].szIpv4Mask).c_str(), jstr(info[i].szIpv4Broadcast).c_str(),
                   jstr(info[i].szIpv6Addr).c_str(), jstr(info[i].szIpv6Mask).c_str(),
                   jstr(mac_text(info[i].aucMac).c_str()).c_str());
        printf("]}\n");
        return 0;
    }
    for (int i = 0; i < n; ++i) {
        printf("%-16s mac %s\n", info[i].szIfName, mac_text(info[i].aucMac).c_str());
        if (info[i].szIpv4Addr[0] != '\0')
            printf("%-16s inet %s netmask %s broadcast %s\n", "", info[i].szIpv4Addr,
                   info[i].szIpv4Mask, info[i].szIpv4Broadcast);
        if (info[i].szIpv6Addr[0] != '\0')
            printf("%-16s inet6 %s netmask %s\n", "", info[i].szIpv6Addr, info[i].szIpv6Mask);
    }
    return 0;
}

int cmd_mac(const Options &o, int argc, char **argv)
{
    if (argc != 1)
        return fail("mac", "expects one argument: INTERFACE");
    char mac[18] = {0};
    if (NET_GetMacAddr(argv[0], mac, sizeof mac) != 0)
        return fail("mac", ("no hardware address for interface '" + std::string(argv[0]) + "'")
                               .c_str());
    if (o.json)
        printf("{\"interface\":%s,\"mac\":%s}\n", jstr(argv[0]).c_str(), jstr(mac).c_str());
    else
        printf("%s\n", mac);
    return 0;
}

int cmd_port_used(const Options &o, int argc, char **argv)
{
    char *end = nullptr;
    long port = argc == 1 ? strtol(argv[0], &end, 10) : -1;
    if (argc != 1 || *end != '\0' || port < 1 || port > 65535)
        return fail("port-used", "expects one argument: PORT (1-65535)");
    int used = NET_IsPortUsed(static_cast<unsigned short>(port));
    if (o.json)
        printf("{\"port\":%ld,\"used\":%s}\n", port, used ? "true" : "false");
    else
        printf("tcp port %ld is %s\n", port, used ? "in use" : "free");
    return 0;
}

int cmd_restart(const Options &o, int, char **)
{
    int rc = NET_Restart();
    if (o.json)
        printf("{\"restarted\":%s}\n", rc == 0 ? "true" : "false");
    else if (rc == 0)
        printf("network restarted\n");
    return rc == 0 ? 0 : fail("restart", "the network script failed");
}

struct Command {
    const char *name;
    const char *usage;
    const char *help;
    int (*run)(const Options &, int, char **);
};

const Command kCommands[] = {
    {"names", "names", "the device's interface names", cmd_names},
    {"interfaces", "interfaces", "every interface with its addresses and MAC", cmd_interfaces},
    {"mac", "mac INTERFACE", "the hardware address of an interface", cmd_mac},
    {"port-used", "port-used PORT", "whether a TCP port is taken on this host", cmd_port_used},
    {"restart", "restart", "restart the network service", cmd_restart},
};

void usage(FILE *out)
{
    fprintf(out, "usage: netlibctl [--json] COMMAND [ARGS...]\n\ncommands:\n");
    for (const Command &c : kCommands)
        fprintf(out, "  %-22s %s\n", c.usage, c.help);
    fprintf(out, "\n'netlibctl COMMAND --help' describes one command.\n");
}

} // namespace

int main(int argc, char **argv)
{
    Options o;
    int i = 1;
    for (; i < argc && argv[i][0] == '-'; ++i) {
        if (strcmp(argv[i], "--json") == 0) {
            o.json = true;
        } else if (strcmp(argv[i], "--help") == 0 || strcmp(argv[i], "-h") == 0) {
            usage(stdout);
            return 0;
        } else {
            fprintf(stderr, "netlibctl: unknown option '%s'\n", argv[i]);
            return 2;
        }
    }
    if (i >= argc) {
        usage(stderr);
        return 2;
    }
    for (const Command &c : kCommands) {
        if (strcmp(argv[i], c.name) != 0)
            continue;
        if (i + 1 < argc && strcmp(argv[i + 1], "--help") == 0) {
            printf("usage: netlibctl [--json] %s\n%s\n", c.usage, c.help);
            return 0;
        }
        NET_Init();
        return c.run(o, argc - i - 1, argv + i + 1);
    }
    fprintf(stderr, "netlibctl: unknown command '%s'\n", argv[i]);
    return 2;
}
