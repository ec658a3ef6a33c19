/* Tuple strings ("pkg.sec.opt=value", "@type[idx]") and element lookups. */
#include "uci_internal.h"

#include <errno.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>

UCI_API int uci_lookup_next(struct uci_context *ctx, struct uci_element **e, struct uci_list *list,
                            const char *name)
{
    if (!ctx)
        return UCI_ERR_INVAL;
    ctx->err = 0;
    if (!e || !list || !name)
        return uci_err(ctx, UCI_ERR_INVAL);
    *e = uci_find(list, name);
    return *e ? 0 : uci_err(ctx, UCI_ERR_NOTFOUND);
}

int uci_do_parse_ptr(struct uci_ptr *ptr, char *str)
{
    char *eq, *dot;

    memset(ptr, 0, sizeof(*ptr));
    eq = strchr(str, '=');
    if (eq) {
        *eq = '\0';
        ptr->value = eq + 1;
    }
    ptr->package = str;
    ptr->target = UCI_TYPE_PACKAGE;
    dot = strchr(str, '.');
    if (dot) {
        *dot = '\0';
        ptr->section = dot + 1;
        ptr->target = UCI_TYPE_SECTION;
        dot = strchr(dot + 1, '.');
    }
    if (dot) {
        *dot = '\0';
        ptr->option = dot + 1;
        ptr->target = UCI_TYPE_OPTION;
        if (strchr(dot + 1, '.'))
            goto error;
    }
    if (!uci_valid_type(ptr->package))
        goto error;
    if (ptr->section && !uci_valid_name(ptr->section))
        ptr->flags |= UCI_LOOKUP_EXTENDED;
    if (ptr->option && !uci_valid_name(ptr->option))
        goto error;
    if (ptr->value && !uci_validate_text(ptr->value))
        goto error;
    return 0;

error:
    memset(ptr, 0, sizeof(*ptr));
    return UCI_ERR_PARSE;
}

UCI_API int uci_parse_ptr(struct uci_context *ctx, struct uci_ptr *ptr, char *str)
{
    if (!ctx)
        return UCI_ERR_INVAL;
    ctx->err = 0;
    if (!ptr || !str)
        return uci_err(ctx, UCI_ERR_INVAL);
    return uci_err(ctx, uci_do_parse_ptr(ptr, str));
}

/* A number as strtol reads it ("[ 1]" and "[+1]" too, as on the device), and nothing else. */
static bool parse_index(const char *s, size_t n, long *out)
{
    char buf[24], *end;

    if (n == 0 || n >= sizeof(buf))
        return false;
    memcpy(buf, s, n);
    buf[n] = '\0';
    errno = 0;
    *out = strtol(buf, &end, 10);
    return end != buf && *end == '\0' && errno == 0;
}

static bool type_matches(const struct uci_section *s, const char *type, size_t n)
{
    return n == 0 || (strncmp(s->type, type, n) == 0 && s->type[n] == '\0');
}

/* "@type[idx]" or "@[idx]": idx-th section of that type, negative from the end. */
static int lookup_extended(struct uci_package *p, struct uci_ptr *ptr)
{
    const char *str = ptr->section, *open, *close;
    struct uci_list *l;
    long idx, count = 0;
    size_t tlen;

    open = strchr(str, '[');
    close = open ? strchr(open, ']') : NULL;
    if (str[0] != '@' || !close || close[1] != '\0')
        return UCI_ERR_INVAL;
    tlen = (size_t)(open - str) - 1;
    if (!parse_index(open + 1, (size_t)(close - open) - 1, &idx))
        return UCI_ERR_INVAL;

    bool back = idx < 0;
    if (back)
        idx = -idx - 1;
    for (l = back ? p->sections.prev : p->sections.next; l != &p->sections;
         l = back ? l->prev : l->next) {
        struct uci_section *s = uci_to_section(list_to_element(l));
        if (!type_matches(s, str + 1, tlen))
            continue;
        if (count++ == idx) {
            ptr->s = s;
            ptr->section = s->e.name;
            break;
        }
    }
    return 0;
}

int uci_do_lookup(struct uci_context *ctx, struct uci_ptr *ptr, bool extended)
{
    struct uci_element *e;
    int rc;

    ptr->flags |= UCI_LOOKUP_DONE;
    if (!ptr->p) {
        if (!ptr->package)
            return UCI_ERR_INVAL;
        e = uci_find(&ctx->root, ptr->package);
        if (e) {
            ptr->p = uci_to_package(e);
        } else {
            rc = uci_do_load(ctx, ptr->package, &ptr->p);
            if (rc)
                return rc;
        }
    }
    ptr->last = &ptr->p->e;
    if (!ptr->section && !ptr->s)
        goto complete;
    if (!ptr->s) {
        if (ptr->flags & UCI_LOOKUP_EXTENDED) {
            if (!extended)
                return UCI_ERR_INVAL;
            rc = lookup_extended(ptr->p, ptr);
            if (rc) {
                /* the device leaves nothing of a malformed "@type[idx]" in the pointer */
                memset(ptr, 0, sizeof(*ptr));
                return rc;
            }
        } else {
            e = uci_find(&ptr->p->sections, ptr->section);
            ptr->s = e ? uci_to_section(e) : NULL;
        }
        if (!ptr->s)
            return 0;
    }
    ptr->last = &ptr->s->e;
    if (ptr->option) {
        e = uci_find(&ptr->s->options, ptr->option);
        ptr->o = e ? uci_to_option(e) : NULL;
        if (!ptr->o)
            return 0;
    }
complete:
    ptr->flags |= UCI_LOOKUP_COMPLETE;
    ptr->last = ptr->o ? &ptr->o->e : ptr->s ? &ptr->s->e : &ptr->p->e;
    return 0;
}

UCI_API int uci_lookup_ptr(struct uci_context *ctx, struct uci_ptr *ptr, char *str, bool extended)
{
    int rc;

    if (!ctx)
        return UCI_ERR_INVAL;
    ctx->err = 0;
    if (!ptr)
        return uci_err(ctx, UCI_ERR_INVAL);
    if (str) {
        rc = uci_do_parse_ptr(ptr, str);
        if (rc)
            return uci_err(ctx, rc);
    }
    return uci_err(ctx, uci_do_lookup(ctx, ptr, extended));
}

/* The lookup every editing call starts with; names are filled in from the objects. */
int uci_prepare_ptr(struct uci_context *ctx, struct uci_ptr *ptr)
{
    if (!(ptr->flags & UCI_LOOKUP_DONE)) {
        int rc = uci_do_lookup(ctx, ptr, false);
        if (rc)
            return rc;
    }
    if (!ptr->p)
        return UCI_ERR_INVAL;
    if (!ptr->package)
        ptr->package = ptr->p->e.name;
    if (ptr->s && !ptr->section)
        ptr->section = ptr->s->e.name;
    if (ptr->o && !ptr->option)
        ptr->option = ptr->o->e.name;
    return 0;
}

UCI_API void uci_parse_section(struct uci_section *s, const struct uci_parse_option *opts,
                               int n_opts, struct uci_option **tb)
{
    struct uci_element *e;
    int i;

    memset(tb, 0, (size_t)n_opts * sizeof(*tb));
    uci_foreach_element(&s->options, e)
    {
        struct uci_option *o = uci_to_option(e);
        for (i = 0; i < n_opts; i++) {
            if (!tb[i] && o->type == opts[i].type && strcmp(opts[i].name, o->e.name) == 0)
                tb[i] = o;
        }
    }
}

static uint32_t hash_str(uint32_t h, const char *s)
{
    for (; *s; s++)
        h = h * 33 + (unsigned char)*s;
    return h * 33;
}

UCI_API uint32_t uci_hash_options(struct uci_option **tb, int n_opts)
{
    struct uci_element *e;
    uint32_t h = 0xdeadc0de;
    int i;

    for (i = 0; i < n_opts; i++) {
        struct uci_option *o = tb[i];
        if (!o)
            continue;
        h = hash_str(h + (uint32_t)i, o->e.name);
        if (o->type == UCI_TYPE_STRING) {
            h = hash_str(h, o->v.string);
            continue;
        }
        uci_foreach_element(&o->v.list, e) h = hash_str(h, e->name);
    }
    return h;
}
