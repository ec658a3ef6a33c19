#include "guard.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <uci.h>

#include <algorithm>

#include "libnetwork.h"
#include "package.h"

namespace guard
{

namespace
{

// Larger packages are refused by the store when it loads them.
constexpr long kMaxPackageBytes = 4L * 1024 * 1024;

// The store keeps section names of these characters only.
bool uci_name(const char *s)
{
    if (s == nullptr || *s == '\0')
        return false;
    for (; *s != '\0'; ++s)
        if (!((*s >= 'a' && *s <= 'z') || (*s >= 'A' && *s <= 'Z') || (*s >= '0' && *s <= '9') ||
              *s == '_'))
            return false;
    return true;
}

bool refuse(const Ctx &c, const char *arg, const std::string &value, const std::string &why)
{
    bad_arg(c, arg, escaped(value).c_str(), why.c_str());
    return false;
}

bool dotted(const std::string &value, uint32_t *num)
{
    return is_string_ipaddr_ipv4(value.c_str(), num) == 1;
}

struct uci_option *find(struct uci_section *s, const std::string &name)
{
    struct uci_element *e;
    uci_foreach_element(&s->options, e)
    {
        if (name == e->name)
            return uci_to_option(e);
    }
    return nullptr;
}

OptionCopy copy_of(struct uci_option *o)
{
    OptionCopy oc;
    oc.name = o->e.name;
    oc.present = true;
    oc.list = o->type == UCI_TYPE_LIST;
    if (!oc.list) {
        oc.values.push_back(o->v.string);
        return oc;
    }
    struct uci_element *e;
    uci_foreach_element(&o->v.list, e)
    {
        oc.values.push_back(e->name);
    }
    return oc;
}

bool same(const OptionCopy &a, const OptionCopy &b)
{
    return a.present == b.present && (!a.present || (a.list == b.list && a.values == b.values));
}

} // namespace

bool port(const Ctx &c, const char *arg, const char *value, bool stored)
{
    if (!check_ifname(c, arg, value))
        return false;
    NetIfNames n;
    memset(&n, 0, sizeof n);
    if (NET_GetIntfNames(&n) != 0)
        return refuse(c, arg, value, "cannot be checked: the device's names cannot be read");
    std::string names = n.szFirstName;
    bool known = strcmp(value, n.szFirstName) == 0;
    if (n.iIfNum == 2) {
        names += std::string(", ") + n.szSecondName;
        known = known || strcmp(value, n.szSecondName) == 0;
    }
    if (!known)
        return refuse(c, arg, value, "is not an interface of this device (" + names + ")");
    const char *sec = NET_GetUciNameByIfName(value);
    if (stored && !uci_name(sec))
        return refuse(c, arg, value,
                      "has no section name the store keeps ('" + escaped(sec ? sec : "") +
                          "': letters, digits and '_' only)");
    return true;
}

std::string address_fault(const std::string &value)
{
    uint32_t num = 0;
    if (INET_IsIpv4AddrValid(value.c_str()) != 1 || !dotted(value, &num))
        return "is not a dotted IPv4 address";
    if (is_ipaddr_lawful(value.c_str()) != 1)
        return "is not a lawful address (four numbers up to 255, the last not 0)";
    if (num == 0 || is_address_valid(num) != 1)
        return "is not a unicast address (first number 1 to 223, not 127)";
    return "";
}

std::string mask_fault(const std::string &value)
{
    uint32_t num = 0;
    if (!dotted(value, &num))
        return "is not a dotted IPv4 netmask";
    if (is_mask_valid(num) != 1)
        return "is not a netmask of prefix length 1 to 30";
    return "";
}

bool address(const Ctx &c, const char *arg, const char *value)
{
    std::string why = address_fault(value);
    return why.empty() || refuse(c, arg, value, why);
}

bool mask(const Ctx &c, const char *arg, const char *value)
{
    if (!check_mask(c, arg, value))
        return false;
    std::string why = mask_fault(value);
    return why.empty() || refuse(c, arg, value, why);
}

bool host(const Ctx &c, const char *arg, const char *addr, const char *m)
{
    uint32_t a = 0, n = 0;
    if (!dotted(addr, &a) || !dotted(m, &n) || is_ip_valid(a, n) == 1)
        return true;
    return refuse(c, arg, addr, std::string("is the network or broadcast address of netmask ") + m);
}

bool service_port(const Ctx &c, const char *arg, const char *value)
{
    long n = 0;
    if (!parse_long(c, arg, value, 0, 65535, &n))
        return false;
    return is_port_lawful(static_cast<unsigned int>(n)) == 1 ||
           refuse(c, arg, value, "is not a port (1 to 65535)");
}

std::string package_trouble(const char *pkg)
{
    std::string path = std::string(UCI_CONFDIR) + "/" + pkg;
    struct stat st;
    if (stat(path.c_str(), &st) != 0)
        return path + (errno == ENOENT ? " does not exist" : std::string(": ") + strerror(errno));
    if (!S_ISREG(st.st_mode))
        return path + " is not a regular file";
    struct uci_context *ctx = uci_alloc_context();
    if (ctx == nullptr)
        return "no memory to load " + path;
    struct uci_package *p = nullptr;
    int rc = uci_load(ctx, pkg, &p);
    std::string why;
    char size[64];
    snprintf(size, sizeof size, "%.1f MiB", static_cast<double>(st.st_size) / (1024 * 1024));
    if (rc == UCI_OK) {
        why = "";
    } else if (st.st_size > kMaxPackageBytes) {
        why = path + " is " + size + ", more than the 4 MiB a package may hold";
    } else if (rc == UCI_ERR_IO) {
        why = path + " cannot be read" +
              (access(path.c_str(), R_OK) != 0 ? std::string(": ") + strerror(errno) : "");
    } else {
        char *text = nullptr;
        uci_get_errorstr(ctx, &text, nullptr);
        why = path + " is not a valid package: " + (text ? text : "error");
        free(text);
    }
    uci_free_context(ctx);
    return why;
}

namespace
{

std::string delta_file(struct uci_context *ctx, const char *pkg)
{
    return std::string(ctx->savedir) + "/" + pkg;
}

} // namespace

bool pending(const char *pkg)
{
    struct uci_context *ctx = uci_alloc_context();
    if (ctx == nullptr)
        return false;
    struct stat st;
    bool some = stat(delta_file(ctx, pkg).c_str(), &st) == 0 && st.st_size > 0;
    uci_free_context(ctx);
    return some;
}

std::string drop_pending(const char *pkg)
{
    if (!pending(pkg))
        return "";
    struct uci_context *ctx = uci_alloc_context();
    if (ctx == nullptr)
        return "";
    std::vector<char> name(pkg, pkg + strlen(pkg) + 1);
    struct uci_ptr ptr;
    std::string said =
        uci_lookup_ptr(ctx, &ptr, name.data(), true) == UCI_OK && uci_revert(ctx, &ptr) == UCI_OK
            ? "the change was dropped, nothing of it is stored"
            : "its change is still pending in " + delta_file(ctx, pkg) +
                  " and a later commit would write it";
    uci_free_context(ctx);
    return said;
}

std::string store_failure(const char *pkg)
{
    std::string dropped = drop_pending(pkg), why = package_trouble(pkg);
    return (why.empty() ? "package " + std::string(pkg) + " could not be saved" : why) +
           (dropped.empty() ? "" : "; " + dropped);
}

std::string escaped(const std::string &text)
{
    std::string out;
    for (unsigned char ch : text) {
        if (ch == '\\')
            out += "\\\\";
        else if (ch == '\n')
            out += "\\n";
        else if (ch == '\t')
            out += "\\t";
        else if (ch == '\r')
            out += "\\r";
        else if (ch < 0x20 || ch == 0x7f) {
            char hex[8];
            snprintf(hex, sizeof hex, "\\x%02x", ch);
            out += hex;
        } else
            out += static_cast<char>(ch);
    }
    return out;
}

std::vector<OptionCopy> section_options(const char *pkg, const char *section)
{
    std::vector<OptionCopy> out;
    Package p(pkg);
    struct uci_section *s = p.get() ? NET_GetSection(p.get(), section) : nullptr;
    if (s == nullptr)
        return out;
    struct uci_element *e;
    uci_foreach_element(&s->options, e)
    {
        out.push_back(copy_of(uci_to_option(e)));
    }
    return out;
}

bool restore_options(const char *pkg, const char *section, const std::vector<OptionCopy> &before,
                     const std::vector<std::string> &keep, std::string *why)
{
    Package p(pkg);
    struct uci_section *s = p.get() ? NET_GetSection(p.get(), section) : nullptr;
    if (s == nullptr) {
        *why = "package " + std::string(pkg) + " cannot be read back";
        return false;
    }
    auto kept = [&](const std::string &name) {
        return std::find(keep.begin(), keep.end(), name) != keep.end();
    };
    // What should be there: the old options, and nothing new beside the kept ones.
    std::vector<OptionCopy> want = before;
    struct uci_element *e;
    uci_foreach_element(&s->options, e)
    {
        bool known = false;
        for (const OptionCopy &b : before)
            known = known || b.name == e->name;
        if (!known)
            want.push_back(OptionCopy{e->name, false, false, {}});
    }
    bool changed = false;
    for (const OptionCopy &w : want) {
        if (kept(w.name))
            continue;
        struct uci_option *o = find(s, w.name);
        OptionCopy now = o ? copy_of(o) : OptionCopy{w.name, false, false, {}};
        if (same(now, w))
            continue;
        changed = true;
        if (now.present)
            NET_DelOption(s, w.name.c_str());
        bool ok = true;
        for (const std::string &v : w.values)
            ok = ok && (w.list ? NET_SetUciList(s, w.name.c_str(), v.c_str())
                               : NET_SetOption(s, w.name.c_str(), v.c_str())) == 0;
        if (!ok) {
            *why = "option " + w.name + " could not be put back";
            return false;
        }
    }
    if (changed && p.commit() != 0) {
        *why = store_failure(pkg);
        return false;
    }
    return true;
}

int keep_default_route(const Ctx &c, const char *ifn)
{
    char gw[64] = {0};
    {
        Package p("network");
        struct uci_section *s =
            p.get() ? NET_GetSection(p.get(), NET_GetUciNameByIfName(ifn)) : nullptr;
        if (s == nullptr || NET_GetOption(s, "gateway", gw, sizeof gw - 1) != 0)
            return 0;
    }
    char now[16] = {0};
    NET_GetIpv4Gateway(ifn, now, sizeof now);
    if (now[0] != '\0' || !address_fault(gw).empty())
        return 0;
    if (NET_SetIpv4Gateway(ifn, gw) != 0)
        return fail(c,
                    "GATEWAY '%s' stored for %s: its default route went away with the old "
                    "address and could not be added back",
                    gw, ifn);
    fprintf(c.json ? stderr : stdout, "%s: default route via %s (stored gateway) added back\n", ifn,
            gw);
    return 0;
}

} // namespace guard
