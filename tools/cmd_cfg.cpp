// The stored configuration as uci shows it: whole packages, single options, lists and
// sections, read and changed through the library's access layer. Listing a package walks
// libuci's own records behind the handle the library returns, since the layer has no
// enumeration of its own.
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

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

// A value in single quotes as uci writes it, a quote inside as '\'' so that a shell or
// "cfg batch" reads it back.
std::string quoted(const char *v)
{
    std::string out = "'";
    for (; *v != '\0'; ++v)
        out += *v == '\'' ? std::string("'\\''") : std::string(1, *v);
    return out + "'";
}

void print_option(const Ctx &c, Json &j, const char *pkg, struct uci_section *s,
                  struct uci_option *o)
{
    const char *name = o->e.name;
    if (o->type == UCI_TYPE_STRING) {
        if (c.json)
            j.str(name, shown(c, name, o->v.string));
        else
            printf("%s.%s.%s=%s\n", pkg, s->e.name, name,
                   quoted(shown(c, name, o->v.string)).c_str());
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
        printf("%s%s", i ? " " : "", quoted(shown(c, name, values[i])).c_str());
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

int remove_section(const Ctx &c, const char *pkg, const char *sec);

int show(Ctx &c, Args &a)
{
    const char *pkg = "network";
    if (!a.option("--package", &pkg))
        return kExitUsage;
    const char *only = a.take();
    if (!a.end())
        return kExitUsage;
    // PACKAGE.SECTION, or PACKAGE alone when the package has no such section, as uci shows.
    std::string named = only != nullptr ? only : "";
    size_t dot = named.find('.');
    if (dot != std::string::npos) {
        pkg = (named = named.substr(0, dot)).c_str();
        only = only + dot + 1;
    }
    Package p(pkg);
    if (p.get() == nullptr)
        return no_package(c, pkg);
    if (only != nullptr && dot == std::string::npos && NET_GetSection(p.get(), only) == nullptr &&
        Package(only).get() != nullptr) {
        char *argv[] = {const_cast<char *>("--package"), const_cast<char *>(only)};
        Args pkgOnly(c, 2, argv);
        return show(c, pkgOnly);
    }
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

// What a command names: SECTION [OPTION] [VALUE] in the package of --package, or one
// PACKAGE.SECTION[.OPTION][=VALUE] as uci writes it.
struct Target {
    std::string pkg, sec, opt, value;
    bool hasOpt = false, hasValue = false;
};

enum class Want { None, Optional, Needed };

bool read_target(const Ctx &c, Args &a, const char *pkg, Want opt, Want value, Target *t)
{
    const char *first = a.need("SECTION");
    if (first == nullptr)
        return false;
    const char *dot = strchr(first, '.'), *eq = strchr(first, '=');
    if (dot == nullptr || (eq != nullptr && eq < dot)) {
        t->pkg = pkg;
        t->sec = first;
        const char *o = opt == Want::Needed ? a.need("OPTION")
                        : opt == Want::None ? nullptr
                                            : a.take();
        const char *v = o != nullptr && value == Want::Needed ? a.need("VALUE") : nullptr;
        t->hasOpt = o != nullptr;
        t->hasValue = v != nullptr;
        t->opt = o != nullptr ? o : "";
        t->value = v != nullptr ? v : "";
        return a.ok();
    }
    std::string path = eq != nullptr ? std::string(first, eq - first) : std::string(first);
    size_t d1 = path.find('.'), d2 = path.find('.', d1 + 1);
    t->pkg = path.substr(0, d1);
    t->sec = path.substr(d1 + 1, d2 == std::string::npos ? d2 : d2 - d1 - 1);
    t->hasOpt = d2 != std::string::npos;
    t->opt = t->hasOpt ? path.substr(d2 + 1) : "";
    t->hasValue = eq != nullptr;
    t->value = t->hasValue ? eq + 1 : "";
    if (t->pkg.empty() || t->sec.empty() ||
        (t->hasOpt && (t->opt.empty() || t->opt.find('.') != std::string::npos)) ||
        (opt == Want::None && t->hasOpt)) {
        bad_arg(c, "PATH", first,
                opt == Want::None ? "is not PACKAGE.SECTION" : "is not PACKAGE.SECTION[.OPTION]");
        return false;
    }
    if (value == Want::Needed && !t->hasValue) {
        bad_arg(c, "PATH", first, "has no =VALUE");
        return false;
    }
    if (value == Want::None && t->hasValue) {
        bad_arg(c, "PATH", first, "takes no =VALUE");
        return false;
    }
    if (opt == Want::Needed && !t->hasOpt && value != Want::Needed) {
        bad_arg(c, "PATH", first, "names no OPTION");
        return false;
    }
    return true;
}

int get(Ctx &c, Args &a)
{
    const char *pkgOpt = "network";
    if (!a.option("--package", &pkgOpt))
        return kExitUsage;
    Target t;
    if (!read_target(c, a, pkgOpt, Want::Optional, Want::None, &t) || !a.end())
        return kExitUsage;
    const char *pkg = t.pkg.c_str(), *sec = t.sec.c_str(), *opt = t.opt.c_str();
    Package p(pkg);
    if (p.get() == nullptr)
        return no_package(c, pkg);
    struct uci_section *s = NET_GetSection(p.get(), sec);
    if (s == nullptr)
        return no_section(c, pkg, sec);
    if (!t.hasOpt) { // PACKAGE.SECTION: its type, as uci gets it
        if (c.json)
            Json().begin_object().str("section", sec).str("type", s->type).end_object().print();
        else
            printf("%s\n", s->type);
        return 0;
    }
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
    printf("%s.%s%s%s%s%s: %s\n", pkg, sec, opt ? "." : "", opt ? opt : "", value ? "=" : "",
           value ? quoted(shown(c, opt ? opt : "", value)).c_str() : "", verb);
}

int set(Ctx &c, Args &a)
{
    const char *pkgOpt = "network", *type = nullptr;
    if (!a.option("--package", &pkgOpt) || !a.option("--type", &type))
        return kExitUsage;
    Target t;
    if (!read_target(c, a, pkgOpt, Want::Needed, Want::Needed, &t) || !a.end())
        return kExitUsage;
    const char *pkg = t.pkg.c_str(), *sec = t.sec.c_str(), *opt = t.opt.c_str(),
               *value = t.value.c_str();
    if (!t.hasOpt) // PACKAGE.SECTION=TYPE creates the section
        type = value;
    Package p(pkg);
    int rc;
    struct uci_section *s = open_for_change(c, p, pkg, sec, type, &rc);
    if (s == nullptr)
        return rc;
    if (!t.hasOpt) {
        if ((rc = commit(c, p, pkg)) != 0)
            return rc;
        done(c, "set", pkg, sec, nullptr, nullptr);
        return 0;
    }
    if (NET_SetOption(s, opt, value) != 0)
        return fail(c, "OPTION '%s' could not be set", opt);
    if ((rc = commit(c, p, pkg)) != 0)
        return rc;
    done(c, "set", pkg, sec, opt, value);
    return 0;
}

int remove(Ctx &c, Args &a, Want optional)
{
    const char *pkgOpt = "network";
    if (!a.option("--package", &pkgOpt))
        return kExitUsage;
    Target t;
    if (!read_target(c, a, pkgOpt, optional, Want::None, &t) || !a.end())
        return kExitUsage;
    const char *pkg = t.pkg.c_str(), *sec = t.sec.c_str(), *opt = t.opt.c_str();
    if (!t.hasOpt)
        return remove_section(c, pkg, sec);
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

int unset(Ctx &c, Args &a)
{
    return remove(c, a, Want::Needed);
}
// "cfg del": an option or a whole section, as "uci delete" takes them.
int del(Ctx &c, Args &a)
{
    return remove(c, a, Want::Optional);
}

int list_change(Ctx &c, Args &a, bool add)
{
    const char *pkgOpt = "network", *type = nullptr;
    if (!a.option("--package", &pkgOpt) || (add && !a.option("--type", &type)))
        return kExitUsage;
    Target t;
    if (!read_target(c, a, pkgOpt, Want::Needed, Want::Needed, &t) || !a.end())
        return kExitUsage;
    if (!t.hasOpt)
        return bad_arg(c, "PATH", (t.pkg + "." + t.sec).c_str(), "names no LIST");
    const char *pkg = t.pkg.c_str(), *sec = t.sec.c_str(), *list = t.opt.c_str(),
               *value = t.value.c_str();
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
    const char *pkgOpt = "network";
    if (!a.option("--package", &pkgOpt))
        return kExitUsage;
    Target t;
    if (!read_target(c, a, pkgOpt, Want::None, Want::None, &t) || !a.end())
        return kExitUsage;
    return remove_section(c, t.pkg.c_str(), t.sec.c_str());
}

int remove_section(const Ctx &c, const char *pkg, const char *sec)
{
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

// The commands below work as the uci tool does, through libuci itself: pending changes under
// /tmp/.uci, export and import in the file format its parser reads.
class Uci
{
  public:
    Uci() : c_(uci_alloc_context()) {}
    ~Uci()
    {
        if (c_ != nullptr)
            uci_free_context(c_);
    }
    Uci(const Uci &) = delete;
    Uci &operator=(const Uci &) = delete;
    struct uci_context *get() const { return c_; }
    // The package with its pending changes replayed (as loaded already, if it was), or null.
    struct uci_package *load(const char *name)
    {
        struct uci_package *p = c_ != nullptr ? uci_lookup_package(c_, name) : nullptr;
        if (p == nullptr && c_ != nullptr && uci_load(c_, name, &p) != 0)
            p = nullptr;
        return p;
    }
    // Whether changes of the package wait in the save directory.
    bool pending(const std::string &name) const
    {
        struct stat st;
        std::string path = std::string(c_->savedir) + "/" + name;
        return stat(path.c_str(), &st) == 0 && st.st_size > 0;
    }
    // Commits the package named, or every package with pending changes, naming each in *done;
    // an error text, or "".
    std::string commit(const char *only, std::vector<std::string> *done)
    {
        for (const std::string &name : packages(only)) {
            if (only == nullptr && !pending(name))
                continue;
            struct uci_package *p = load(name.c_str());
            if (p == nullptr || uci_commit(c_, &p, false) != 0)
                return "PACKAGE '" + name + "' could not be saved";
            done->push_back(name);
        }
        return "";
    }
    // The packages of /etc/config, or the one named.
    std::vector<std::string> packages(const char *only)
    {
        std::vector<std::string> out;
        char **list = nullptr;
        if (only != nullptr)
            out.push_back(only);
        else if (c_ != nullptr && uci_list_configs(c_, &list) == 0 && list != nullptr)
            for (char **n = list; *n != nullptr; ++n)
                out.push_back(*n);
        free(list);
        return out;
    }

  private:
    struct uci_context *c_;
};

int export_cmd(Ctx &c, Args &a)
{
    const char *only = a.take();
    if (!a.end())
        return kExitUsage;
    Uci u;
    for (const std::string &name : u.packages(only)) {
        struct uci_package *p = u.load(name.c_str());
        if (p == nullptr)
            return no_package(c, name.c_str());
        if (uci_export(u.get(), stdout, p, true) != 0)
            return fail(c, "PACKAGE '%s' could not be written out", name.c_str());
    }
    return 0;
}

int import_cmd(Ctx &c, Args &a)
{
    const char *name = a.need("PACKAGE");
    if (!a.end())
        return kExitUsage;
    if (strchr(name, '.') != nullptr || strchr(name, '/') != nullptr)
        return bad_arg(c, "PACKAGE", name, "is not a package name");
    Uci u;
    struct uci_package *p = nullptr;
    if (u.get() == nullptr || uci_import(u.get(), stdin, name, &p, true) != 0 || p == nullptr)
        return fail(c, "standard input is not a package in the uci file format");
    if (uci_commit(u.get(), &p, true) != 0)
        return fail(c, "PACKAGE '%s' could not be written to /etc/config", name);
    if (c.json)
        Json().begin_object().str("package", name).str("done", "imported").end_object().print();
    return 0;
}

const char *const kDeltaPrefix[] = {"+", "-", "", "@", "^", "|", "~"};
const char *const kDeltaNames[] = {"add",     "delete",   "set",     "rename",
                                   "reorder", "add_list", "del_list"};

int changes(Ctx &c, Args &a)
{
    const char *only = a.take();
    if (!a.end())
        return kExitUsage;
    Uci u;
    if (u.get() == nullptr)
        return fail(c, "libuci could not start");
    u.get()->flags = static_cast<enum uci_flags>(u.get()->flags | UCI_FLAG_SAVED_DELTA);
    Json j;
    j.begin_object().begin_array("changes");
    for (const std::string &name : u.packages(only)) {
        struct uci_package *p = u.load(name.c_str());
        if (p == nullptr)
            return no_package(c, name.c_str());
        struct uci_element *e;
        uci_foreach_element(&p->saved_delta, e)
        {
            struct uci_delta *d = uci_to_delta(e);
            int k = d->cmd >= 0 && d->cmd < 7 ? d->cmd : 2;
            if (c.json) {
                j.begin_object().str("change", kDeltaNames[k]).str("package", name);
                j.str("section", d->section).str("option", e->name).str("value", d->value);
                j.end_object();
                continue;
            }
            printf("%s%s.%s%s%s", kDeltaPrefix[k], name.c_str(), d->section, e->name ? "." : "",
                   e->name ? e->name : "");
            printf("%s%s\n", d->value ? "=" : "", d->value ? quoted(d->value).c_str() : "");
        }
    }
    if (c.json)
        j.end_array().end_object().print();
    return 0;
}

int commit_cmd(Ctx &c, Args &a)
{
    const char *only = a.take();
    if (!a.end())
        return kExitUsage;
    Uci u;
    if (u.get() == nullptr)
        return fail(c, "libuci could not start");
    std::vector<std::string> done;
    std::string err = u.commit(only, &done);
    if (!err.empty())
        return fail(c, "%s", err.c_str());
    Json j;
    j.begin_object().begin_array("committed");
    for (const std::string &name : done)
        j.str(nullptr, name);
    if (c.json)
        j.end_array().end_object().print();
    return 0;
}

int revert(Ctx &c, Args &a)
{
    const char *path = a.need("PATH");
    if (!a.end())
        return kExitUsage;
    Uci u;
    std::string text = path;
    struct uci_ptr ptr;
    memset(&ptr, 0, sizeof ptr);
    if (u.get() == nullptr || uci_lookup_ptr(u.get(), &ptr, &text[0], true) != 0)
        return bad_arg(c, "PATH", path, "is not PACKAGE[.SECTION[.OPTION]] of /etc/config");
    if (uci_revert(u.get(), &ptr) != 0)
        return fail(c, "PATH '%s' could not be reverted", path);
    if (c.json)
        Json().begin_object().str("path", path).str("done", "reverted").end_object().print();
    return 0;
}

// One line of "cfg batch" split into words as a shell would: '...' literal, "..." and bare
// text with backslash escapes. False on an unterminated quote.
bool words_of(const std::string &line, std::vector<std::string> *out)
{
    std::string w;
    bool inWord = false;
    for (size_t i = 0; i < line.size(); ++i) {
        char ch = line[i];
        if (ch == ' ' || ch == '\t') {
            if (inWord)
                out->push_back(w);
            w.clear();
            inWord = false;
            continue;
        }
        inWord = true;
        if (ch == '\'') {
            size_t end = line.find('\'', i + 1);
            if (end == std::string::npos)
                return false;
            w += line.substr(i + 1, end - i - 1);
            i = end;
        } else if (ch == '"') {
            for (++i; i < line.size() && line[i] != '"'; ++i)
                w += line[i] == '\\' && i + 1 < line.size() ? line[++i] : line[i];
            if (i >= line.size())
                return false;
        } else if (ch == '\\' && i + 1 < line.size()) {
            w += line[++i];
        } else {
            w += ch;
        }
    }
    if (inWord)
        out->push_back(w);
    return true;
}

// One batch command on the context; an error text, or "" when done.
std::string batch_line(Uci &u, const std::vector<std::string> &w)
{
    const std::string &verb = w[0];
    if (verb == "commit" && w.size() <= 2) {
        std::vector<std::string> done;
        return u.commit(w.size() == 2 ? w[1].c_str() : nullptr, &done);
    }
    if (w.size() != 2)
        return "'" + verb + "' takes one PATH";
    std::string text = w[1];
    struct uci_ptr ptr;
    memset(&ptr, 0, sizeof ptr);
    if (uci_lookup_ptr(u.get(), &ptr, &text[0], true) != 0)
        return "PATH '" + w[1] + "' is not PACKAGE.SECTION[.OPTION][=VALUE] of /etc/config";
    int rc;
    if (verb == "set" && ptr.value != nullptr)
        rc = uci_set(u.get(), &ptr);
    else if ((verb == "del" || verb == "delete") && ptr.value == nullptr)
        rc = uci_delete(u.get(), &ptr);
    else if (verb == "add_list" && ptr.value != nullptr && ptr.option != nullptr)
        rc = uci_add_list(u.get(), &ptr);
    else if (verb == "del_list" && ptr.value != nullptr && ptr.option != nullptr)
        rc = uci_del_list(u.get(), &ptr);
    else if (verb == "revert")
        return uci_revert(u.get(), &ptr) == 0 ? "" : "PATH '" + w[1] + "' could not be reverted";
    else
        return "'" + verb +
               "' is not set, del, add_list, del_list, revert or commit (or lacks =VALUE)";
    if (rc != 0 || uci_save(u.get(), ptr.p) != 0)
        return "PATH '" + w[1] + "' could not be changed";
    return "";
}

int batch(Ctx &c, Args &a)
{
    if (!a.end())
        return kExitUsage;
    Uci u;
    if (u.get() == nullptr)
        return fail(c, "libuci could not start");
    char *line = nullptr;
    size_t cap = 0;
    int number = 0, rc = 0;
    while (rc == 0 && getline(&line, &cap, stdin) >= 0) {
        ++number;
        std::string text = line;
        while (!text.empty() && (text.back() == '\n' || text.back() == '\r'))
            text.pop_back();
        std::vector<std::string> w;
        if (!words_of(text, &w))
            rc = fail(c, "line %d: unterminated quote", number);
        else if (!w.empty() && w[0][0] != '#' && !(w[0] == "exit" || w[0] == "quit")) {
            std::string err = batch_line(u, w);
            if (!err.empty())
                rc = fail(c, "line %d: %s", number, err.c_str());
        } else if (!w.empty() && w[0][0] != '#') {
            break;
        }
    }
    free(line);
    if (rc == 0 && c.json)
        Json().begin_object().num("lines", number).end_object().print();
    return rc;
}

#define PKG_NOTE "--package NAME works on another package of /etc/config (default: network)."

const Command kCommands[] = {
    {"cfg show", "[SECTION | PACKAGE[.SECTION]]",
     "every section and option of the package, as uci shows them",
     PKG_NOTE " Passwords show as\nstars unless --show-secrets is given.", show},
    {"cfg get", "PATH | SECTION OPTION", "one option (a list gives one value per line)", PKG_NOTE,
     get},
    {"cfg set", "PATH=VALUE | SECTION OPTION VALUE", "set an option and commit",
     PKG_NOTE "\n--type TYPE creates the section when it is missing.", set},
    {"cfg unset", "PATH | SECTION OPTION", "delete an option and commit", PKG_NOTE, unset},
    {"cfg add-list", "PATH=VALUE | SECTION LIST VALUE", "append a value to a list and commit",
     PKG_NOTE "\n--type TYPE creates the section when it is missing.", add_list},
    {"cfg del-list", "PATH=VALUE | SECTION LIST VALUE", "remove every copy of a value from a list",
     PKG_NOTE, del_list},
    {"cfg del-section", "SECTION", "delete a section with its options and commit", PKG_NOTE,
     del_section},
    {"cfg del", "PATH | SECTION [OPTION]", "delete an option or a section and commit",
     PKG_NOTE "\nPATH is PACKAGE.SECTION[.OPTION], as uci delete takes it.", del},
    {"cfg changes", "[PACKAGE]", "pending changes under /tmp/.uci, as uci changes lists them",
     nullptr, changes},
    {"cfg commit", "[PACKAGE]", "write the pending changes into /etc/config", nullptr, commit_cmd},
    {"cfg revert", "PACKAGE[.SECTION[.OPTION]]", "drop pending changes", nullptr, revert},
    {"cfg batch", "", "uci commands from standard input, one a line",
     "set PATH=VALUE, del PATH, add_list PATH=VALUE, del_list PATH=VALUE, revert PATH and\n"
     "commit [PACKAGE], quoted as a shell quotes. Changes stay pending (cfg changes) until\n"
     "a commit line or cfg commit; the first failing line stops the batch (status 1).",
     batch},
    {"cfg export", "[PACKAGE]", "packages in the uci file format, every one without PACKAGE",
     "cfg import reads it back unchanged: quotes, backslashes, newlines and lists.", export_cmd},
    {"cfg import", "PACKAGE", "replace the package with the uci file read from standard input",
     nullptr, import_cmd},
};

} // namespace

CommandList cfg_commands()
{
    return {kCommands, sizeof kCommands / sizeof kCommands[0]};
}
