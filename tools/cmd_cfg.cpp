// The stored configuration as uci shows it: whole packages, single options, lists and
// sections, read and changed through the library's access layer. Listing a package walks
// libuci's own records behind the handle the library returns, since the layer has no
// enumeration of its own.
#include <string.h>

#include <uci.h>

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

bool is_secret(const char *option)
{
    return strstr(option, "password") != nullptr;
}

const char *shown(const Ctx &c, const char *option, const char *value)
{
    return is_secret(option) ? secret(c, value) : value;
}

struct uci_option *find_option(struct uci_section *s, const char *name)
{
    struct uci_element *e;
    uci_foreach_element(&s->options, e)
    {
        if (strcmp(e->name, name) == 0)
            return uci_to_option(e);
    }
    return nullptr;
}

std::vector<const char *> list_values(struct uci_option *o)
{
    std::vector<const char *> out;
    struct uci_element *e;
    uci_foreach_element(&o->v.list, e)
    {
        out.push_back(e->name);
    }
    return out;
}

void print_option(const Ctx &c, Json &j, const char *pkg, struct uci_section *s,
                  struct uci_option *o)
{
    const char *name = o->e.name;
    if (o->type == UCI_TYPE_STRING) {
        if (c.json)
            j.str(name, shown(c, name, o->v.string));
        else
            printf("%s.%s.%s='%s'\n", pkg, s->e.name, name, shown(c, name, o->v.string));
        return;
    }
    std::vector<const char *> values = list_values(o);
    if (c.json) {
        j.begin_array(name);
        for (const char *v : values)
            j.str(nullptr, shown(c, name, v));
        j.end_array();
        return;
    }
    printf("%s.%s.%s=", pkg, s->e.name, name);
    for (size_t i = 0; i < values.size(); ++i)
        printf("%s'%s'", i ? " " : "", shown(c, name, values[i]));
    printf("\n");
}

void print_section(const Ctx &c, Json &j, const char *pkg, struct uci_section *s)
{
    if (c.json)
        j.begin_object().str("name", s->e.name).str("type", s->type).begin_object("options");
    else
        printf("%s.%s=%s\n", pkg, s->e.name, s->type);
    struct uci_element *e;
    uci_foreach_element(&s->options, e)
    {
        print_option(c, j, pkg, s, uci_to_option(e));
    }
    if (c.json)
        j.end_object().end_object();
}

int no_package(const Ctx &c, const char *pkg)
{
    return fail(c, "PACKAGE '%s' cannot be loaded: %s", pkg, guard::package_trouble(pkg).c_str());
}

int no_section(const Ctx &c, const char *pkg, const char *sec)
{
    return fail(c, "SECTION '%s' does not exist in package %s", sec, pkg);
}

int show(Ctx &c, Args &a)
{
    const char *pkg = "network";
    if (!a.option("--package", &pkg))
        return kExitUsage;
    const char *only = a.take();
    if (!a.end())
        return kExitUsage;
    Package p(pkg);
    if (p.get() == nullptr)
        return no_package(c, pkg);
    if (only != nullptr && NET_GetSection(p.get(), only) == nullptr)
        return no_section(c, pkg, only);
    Json j;
    j.begin_object().str("package", pkg).begin_array("sections");
    struct uci_element *e;
    uci_foreach_element(&p.get()->sections, e)
    {
        struct uci_section *s = uci_to_section(e);
        if (only == nullptr || strcmp(s->e.name, only) == 0)
            print_section(c, j, pkg, s);
    }
    if (c.json)
        j.end_array().end_object().print();
    return 0;
}

int get(Ctx &c, Args &a)
{
    const char *pkg = "network";
    if (!a.option("--package", &pkg))
        return kExitUsage;
    const char *sec = a.need("SECTION"), *opt = a.need("OPTION");
    if (!a.end())
        return kExitUsage;
    Package p(pkg);
    if (p.get() == nullptr)
        return no_package(c, pkg);
    struct uci_section *s = NET_GetSection(p.get(), sec);
    if (s == nullptr)
        return no_section(c, pkg, sec);
    std::vector<char> value(4097, '\0');
    if (NET_GetOption(s, opt, value.data(), 4096) == 0) {
        if (c.json)
            Json()
                .begin_object()
                .str("section", sec)
                .str("option", opt)
                .str("value", shown(c, opt, value.data()))
                .end_object()
                .print();
        else
            printf("%s\n", shown(c, opt, value.data()));
        return 0;
    }
    // The access layer reads strings only; a list is read from the package itself.
    struct uci_option *o = find_option(s, opt);
    if (o == nullptr || o->type != UCI_TYPE_LIST)
        return fail(c, "OPTION '%s' is not set in %s.%s", opt, pkg, sec);
    Json j;
    j.begin_object().str("section", sec).str("option", opt).begin_array("value");
    for (const char *v : list_values(o)) {
        if (c.json)
            j.str(nullptr, shown(c, opt, v));
        else
            printf("%s\n", shown(c, opt, v));
    }
    if (c.json)
        j.end_array().end_object().print();
    return 0;
}

// Opens the package and the section for a change; prints the error and returns null on failure.
struct uci_section *open_for_change(const Ctx &c, Package &p, const char *pkg, const char *sec,
                                    const char *type, int *rc)
{
    *rc = 0;
    if (p.get() == nullptr) {
        *rc = no_package(c, pkg);
        return nullptr;
    }
    struct uci_section *s = NET_GetSection(p.get(), sec);
    if (s == nullptr && type != nullptr)
        s = NET_CreateAndGetSection(p.get(), type, sec);
    if (s == nullptr)
        *rc = type != nullptr
                  ? fail(c, "SECTION '%s' could not be created", sec)
                  : fail(c, "SECTION '%s' does not exist in package %s%s", sec, pkg,
                         c.cmd == "cfg set" || c.cmd == "cfg add-list" ? " (--type TYPE creates it)"
                                                                       : "");
    return s;
}

int commit(const Ctx &c, Package &p, const char *pkg)
{
    if (p.commit() != 0)
        return fail(c, "package %s could not be saved", pkg);
    return 0;
}

void done(const Ctx &c, const char *verb, const char *pkg, const char *sec, const char *opt,
          const char *value)
{
    if (c.json) {
        Json j;
        j.begin_object().str("package", pkg).str("section", sec);
        if (opt != nullptr)
            j.str("option", opt);
        if (value != nullptr)
            j.str("value", shown(c, opt ? opt : "", value));
        j.str("done", verb).end_object().print();
        return;
    }
    printf("%s.%s%s%s%s%s%s: %s\n", pkg, sec, opt ? "." : "", opt ? opt : "", value ? "='" : "",
           value ? shown(c, opt ? opt : "", value) : "", value ? "'" : "", verb);
}

int set(Ctx &c, Args &a)
{
    const char *pkg = "network", *type = nullptr;
    if (!a.option("--package", &pkg) || !a.option("--type", &type))
        return kExitUsage;
    const char *sec = a.need("SECTION"), *opt = a.need("OPTION"), *value = a.need("VALUE");
    if (!a.end())
        return kExitUsage;
    Package p(pkg);
    int rc;
    struct uci_section *s = open_for_change(c, p, pkg, sec, type, &rc);
    if (s == nullptr)
        return rc;
    if (NET_SetOption(s, opt, value) != 0)
        return fail(c, "OPTION '%s' could not be set", opt);
    if ((rc = commit(c, p, pkg)) != 0)
        return rc;
    done(c, "set", pkg, sec, opt, value);
    return 0;
}

int unset(Ctx &c, Args &a)
{
    const char *pkg = "network";
    if (!a.option("--package", &pkg))
        return kExitUsage;
    const char *sec = a.need("SECTION"), *opt = a.need("OPTION");
    if (!a.end())
        return kExitUsage;
    Package p(pkg);
    int rc;
    struct uci_section *s = open_for_change(c, p, pkg, sec, nullptr, &rc);
    if (s == nullptr)
        return rc;
    if (NET_DelOption(s, opt) != 0)
        return fail(c, "OPTION '%s' is not set in %s.%s", opt, pkg, sec);
    if ((rc = commit(c, p, pkg)) != 0)
        return rc;
    done(c, "deleted", pkg, sec, opt, nullptr);
    return 0;
}

int list_change(Ctx &c, Args &a, bool add)
{
    const char *pkg = "network", *type = nullptr;
    if (!a.option("--package", &pkg) || (add && !a.option("--type", &type)))
        return kExitUsage;
    const char *sec = a.need("SECTION"), *list = a.need("LIST"), *value = a.need("VALUE");
    if (!a.end())
        return kExitUsage;
    Package p(pkg);
    int rc;
    struct uci_section *s = open_for_change(c, p, pkg, sec, type, &rc);
    if (s == nullptr)
        return rc;
    if (add ? NET_SetUciList(s, list, value) != 0 : NET_DelUciList(s, list, value) != 0)
        return add ? fail(c, "LIST '%s' could not take the value", list)
                   : fail(c, "VALUE '%s' is not in the list %s", value, list);
    if ((rc = commit(c, p, pkg)) != 0)
        return rc;
    done(c, add ? "added" : "removed", pkg, sec, list, value);
    return 0;
}

int add_list(Ctx &c, Args &a)
{
    return list_change(c, a, true);
}
int del_list(Ctx &c, Args &a)
{
    return list_change(c, a, false);
}

int del_section(Ctx &c, Args &a)
{
    const char *pkg = "network";
    if (!a.option("--package", &pkg))
        return kExitUsage;
    const char *sec = a.need("SECTION");
    if (!a.end())
        return kExitUsage;
    Package p(pkg);
    int rc;
    struct uci_section *s = open_for_change(c, p, pkg, sec, nullptr, &rc);
    if (s == nullptr)
        return rc;
    if (NET_DelSection(s) != 0)
        return fail(c, "SECTION '%s' could not be deleted", sec);
    if ((rc = commit(c, p, pkg)) != 0)
        return rc;
    done(c, "deleted", pkg, sec, nullptr, nullptr);
    return 0;
}

#define PKG_NOTE "--package NAME works on another package of /etc/config (default: network)."

const Command kCommands[] = {
    {"cfg show", "[SECTION]", "every section and option of the package, as uci shows them",
     PKG_NOTE " Passwords show as\nstars unless --show-secrets is given.", show},
    {"cfg get", "SECTION OPTION", "one option (a list gives one value per line)", PKG_NOTE, get},
    {"cfg set", "SECTION OPTION VALUE", "set an option and commit",
     PKG_NOTE "\n--type TYPE creates the section when it is missing.", set},
    {"cfg unset", "SECTION OPTION", "delete an option and commit", PKG_NOTE, unset},
    {"cfg add-list", "SECTION LIST VALUE", "append a value to a list and commit",
     PKG_NOTE "\n--type TYPE creates the section when it is missing.", add_list},
    {"cfg del-list", "SECTION LIST VALUE", "remove every copy of a value from a list", PKG_NOTE,
     del_list},
    {"cfg del-section", "SECTION", "delete a section with its options and commit", PKG_NOTE,
     del_section},
};

} // namespace

CommandList cfg_commands()
{
    return {kCommands, sizeof kCommands / sizeof kCommands[0]};
}
