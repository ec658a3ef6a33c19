// Fuzzes the libuci file parser: the input is a config file. Strict and lenient parses must
// never crash; what was parsed must export, and re-parse to the same export. Lines shaped
// like change lines ("[+-@^|~]fuzz.sec[.opt][=value]") are also applied through the API.
#include "uci.h"

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <ctype.h>

#include <set>
#include <string>

namespace
{

std::string export_pkg(uci_context *ctx, uci_package *p)
{
    char *buf = nullptr;
    size_t len = 0;
    FILE *f = open_memstream(&buf, &len);
    if (uci_export(ctx, f, p, false) != UCI_OK)
        abort();
    fclose(f);
    std::string out(buf, len);
    free(buf);
    return out;
}

uci_package *import(uci_context *ctx, const std::string &text)
{
    // fmemopen refuses an empty buffer
    FILE *f =
        text.empty() ? fopen("/dev/null", "r") : fmemopen((void *)text.data(), text.size(), "r");
    uci_package *p = nullptr;
    if (f && uci_import(ctx, f, "fuzz", &p, true) != UCI_OK)
        p = nullptr;
    if (f)
        fclose(f);
    return p;
}

bool plain(const char *s, bool name)
{
    if (!*s)
        return false;
    for (; *s; s++) {
        unsigned char c = (unsigned char)*s;
        if (name ? !(isalnum(c) || c == '_') : (c < 33 || c > 126 || strchr("'\"#;\\", c)))
            return false;
    }
    return true;
}

// Only what the file format can hold survives a round trip: the API (like the device's
// library) also accepts types written unquoted that do not read back, names that are not
// names, and named sections that clash with generated names.
bool round_trips(uci_package *p)
{
    uci_element *e, *o;
    std::set<std::string> names;
    uci_foreach_element(&p->sections, e)
    {
        uci_section *s = uci_to_section(e);
        if (!plain(s->type, false) || !plain(s->e.name, true))
            return false;
        if (!s->anonymous && (!names.insert(s->e.name).second || !strncmp(s->e.name, "cfg", 3)))
            return false;
        // A rename may give two options one name (the real library allows it too); the file
        // form cannot hold that, so such a package is not expected to come back equal.
        std::set<std::string> options;
        uci_foreach_element(&s->options, o)
        {
            if (!plain(o->name, true) || !options.insert(o->name).second)
                return false;
        }
    }
    return true;
}

void round_trip(uci_context *ctx, uci_package *p)
{
    std::string once = export_pkg(ctx, p);
    if (!round_trips(p))
        return;
    uci_context *again = uci_alloc_context();
    uci_package *q = import(again, once);
    if (!q || export_pkg(again, q) != once)
        abort();
    uci_free_context(again);
}

void apply_line(uci_context *ctx, uci_package *p, std::string line)
{
    char op = line.empty() ? 0 : line[0];
    if (op && strchr("+-@^|~", op))
        line.erase(0, 1);
    uci_ptr ptr{};
    if (uci_parse_ptr(ctx, &ptr, &line[0]) != UCI_OK || strcmp(ptr.package, "fuzz") != 0)
        return;
    ptr.p = p; // never load anything from disk
    if (uci_lookup_ptr(ctx, &ptr, nullptr, true) != UCI_OK)
        return;
    switch (op) {
    case '+':
        uci_section *s;
        uci_add_section(ctx, p, ptr.value ? ptr.value : "t", &s);
        break;
    case '-':
        uci_delete(ctx, &ptr);
        break;
    case '@':
        if (ptr.value && ptr.value[0])
            uci_rename(ctx, &ptr);
        break;
    case '^':
        if (ptr.s)
            uci_reorder_section(ctx, ptr.s, ptr.value ? atoi(ptr.value) : 0);
        break;
    case '|':
        if (ptr.option)
            uci_add_list(ctx, &ptr);
        break;
    case '~':
        uci_del_list(ctx, &ptr);
        break;
    default:
        uci_set(ctx, &ptr);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size > 64 * 1024)
        return 0;
    const std::string text((const char *)data, size);

    uci_context *ctx = uci_alloc_context();
    uci_package *p = import(ctx, text);
    if (p)
        round_trip(ctx, p);
    uci_free_context(ctx);

    ctx = uci_alloc_context();
    ctx->flags = (uci_flags)0; // lenient: bad lines are skipped
    p = import(ctx, text);
    if (p) {
        size_t start = 0;
        for (int n = 0; n < 64 && start < text.size(); n++) {
            size_t end = text.find('\n', start);
            if (end == std::string::npos)
                end = text.size();
            apply_line(ctx, p, text.substr(start, end - start));
            start = end + 1;
        }
        round_trip(ctx, p);
        char *err = nullptr;
        uci_get_errorstr(ctx, &err, "fuzz");
        free(err);
    }
    uci_free_context(ctx);
    return 0;
}
