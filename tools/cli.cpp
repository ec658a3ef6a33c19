// Helpers shared by the subcommands: error lines and argument checks. The checks use the
// library's own validators, so the tool refuses what the library would call malformed.
#include "cli.h"

#include <arpa/inet.h>
#include <errno.h>
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "args.h"
#include "json.h"
#include "libnetwork.h"

int fail(const Ctx &c, const char *fmt, ...)
{
    fprintf(stderr, "netlibctl %s: ", c.cmd.c_str());
    va_list ap;
    va_start(ap, fmt);
    vfprintf(stderr, fmt, ap);
    va_end(ap);
    fputc('\n', stderr);
    return kExitFail;
}

int bad_arg(const Ctx &c, const char *arg, const char *value, const char *why)
{
    fprintf(stderr, "netlibctl %s: %s '%s' %s\n", c.cmd.c_str(), arg, value, why);
    return kExitUsage;
}

bool check_ifname(const Ctx &c, const char *arg, const char *value)
{
    size_t n = strlen(value);
    if (n == 0 || n > 15) {
        bad_arg(c, arg, value, "is not an interface name (1 to 15 characters)");
        return false;
    }
    return true;
}

bool check_ipv4(const Ctx &c, const char *arg, const char *value)
{
    if (INET_IsIpv4AddrValid(value) != 1) {
        bad_arg(c, arg, value, "is not a dotted IPv4 address");
        return false;
    }
    return true;
}

bool check_ipv6(const Ctx &c, const char *arg, const char *value)
{
    unsigned char bin[16];
    if (INET_Ipv6StrToNum(value, bin) != 0) {
        bad_arg(c, arg, value, "is not an IPv6 address");
        return false;
    }
    return true;
}

bool check_mask(const Ctx &c, const char *arg, const char *value)
{
    uint32_t mask = 0;
    if (INET_Ipv4StrToNum(value, &mask) != 0) {
        bad_arg(c, arg, value, "is not a dotted IPv4 netmask");
        return false;
    }
    // Leading ones only; 0.0.0.0 and 255.255.255.255 count (default and host routes).
    uint32_t inverted = ~ntohl(mask);
    if ((inverted & (inverted + 1)) != 0) {
        bad_arg(c, arg, value, "is not a netmask (leading one bits only)");
        return false;
    }
    return true;
}

bool parse_long(const Ctx &c, const char *arg, const char *value, long lo, long hi, long *out)
{
    char *end = nullptr;
    errno = 0;
    long v = strtol(value, &end, 10);
    if (*value == '\0' || *end != '\0' || errno != 0 || v < lo || v > hi) {
        char why[96];
        snprintf(why, sizeof why, "is not a number from %ld to %ld", lo, hi);
        bad_arg(c, arg, value, why);
        return false;
    }
    *out = v;
    return true;
}

int show_list(const Ctx &c, Args &a, ShowOne one)
{
    std::vector<std::string> names;
    for (const char *n = a.take(); n != nullptr; n = a.take())
        names.push_back(n);
    if (!a.end())
        return kExitUsage;
    for (const std::string &n : names)
        if (!check_ifname(c, "INTERFACE", n.c_str()))
            return kExitUsage;
    if (names.empty()) {
        static NetIfInfo info[32];
        int n = NET_GetInterfaces(info, 32);
        for (int i = 0; i < n; ++i)
            names.push_back(info[i].szIfName);
    }
    Json j;
    j.begin_object().begin_array("interfaces");
    int rc = 0;
    for (const std::string &n : names)
        if (!one(c, j, n.c_str()))
            rc = fail(c, "INTERFACE '%s' does not exist", n.c_str());
    j.end_array().end_object();
    if (c.json)
        j.print();
    return rc;
}

const char *link_state(const char *ifn)
{
    int linked = 0;
    if (NET_GetPortLinkStatus(ifn, &linked) != 0)
        return "UNKNOWN";
    return linked == 1 ? "UP" : "DOWN";
}

const char *secret(const Ctx &c, const char *value)
{
    if (c.secrets || value[0] == '\0')
        return value;
    return "********";
}

const char *or_dash(const char *s)
{
    return s != nullptr && s[0] != '\0' ? s : "-";
}
