/* Allocation and release of packages, sections, options, items and deltas. */
#include "uci_internal.h"

#include <stdlib.h>
#include <string.h>

char *uci_strdup(const char *s)
{
    size_t n = strlen(s) + 1;
    char *d = malloc(n);
    if (d)
        memcpy(d, s, n);
    return d;
}

struct uci_element *uci_find(struct uci_list *list, const char *name)
{
    struct uci_element *e;

    uci_foreach_element(list, e)
    {
        if (e->name && strcmp(e->name, name) == 0)
            return e;
    }
    return NULL;
}

static void *elem_alloc(size_t size, enum uci_type type, const char *name)
{
    struct uci_element *e = calloc(1, size);

    if (!e)
        return NULL;
    uci_list_init(&e->list);
    e->type = type;
    if (name) {
        e->name = uci_strdup(name);
        if (!e->name) {
            free(e);
            return NULL;
        }
    }
    return e;
}

static void elem_free(struct uci_element *e)
{
    uci_list_del(&e->list);
    free(e->name);
    free(e);
}

struct uci_package *uci_pkg_alloc(struct uci_context *ctx, const char *name)
{
    struct uci_package *p = elem_alloc(sizeof(*p), UCI_TYPE_PACKAGE, name);

    if (!p)
        return NULL;
    uci_list_init(&p->sections);
    uci_list_init(&p->delta);
    uci_list_init(&p->saved_delta);
    p->ctx = ctx;
    p->backend = ctx->backend;
    return p;
}

void uci_pkg_free(struct uci_package *p)
{
    struct uci_element *e, *tmp;

    if (!p)
        return;
    uci_foreach_element_safe(&p->sections, tmp, e)
    {
        uci_sec_free(uci_to_section(e));
    }
    uci_delta_list_free(&p->delta);
    uci_delta_list_free(&p->saved_delta);
    free(p->path);
    elem_free(&p->e);
}

struct uci_section *uci_sec_alloc(struct uci_package *p, const char *type, const char *name,
                                  struct uci_list *at)
{
    char anon[32];
    struct uci_section *s;

    p->n_section++;
    if (!name) {
        uci_anon_name(anon, sizeof(anon), p->n_section, type);
        name = anon;
    }
    s = elem_alloc(sizeof(*s), UCI_TYPE_SECTION, name);
    if (s)
        s->type = uci_strdup(type);
    if (!s || !s->type) {
        if (s)
            elem_free(&s->e);
        return NULL;
    }
    s->anonymous = (name == anon);
    s->package = p;
    uci_list_init(&s->options);
    uci_list_insert(at, &s->e.list);
    return s;
}

void uci_sec_free(struct uci_section *s)
{
    struct uci_element *e, *tmp;

    uci_foreach_element_safe(&s->options, tmp, e)
    {
        uci_opt_free(uci_to_option(e));
    }
    free(s->type);
    elem_free(&s->e);
}

struct uci_option *uci_opt_alloc(struct uci_section *s, const char *name, enum uci_option_type type,
                                 const char *value, struct uci_list *at)
{
    struct uci_option *o = elem_alloc(sizeof(*o), UCI_TYPE_OPTION, name);

    if (!o)
        return NULL;
    o->section = s;
    o->type = type;
    if (type == UCI_TYPE_LIST) {
        uci_list_init(&o->v.list);
        if (value && uci_opt_add_item(o, value) != 0) {
            elem_free(&o->e);
            return NULL;
        }
    } else {
        o->v.string = uci_strdup(value ? value : "");
        if (!o->v.string) {
            elem_free(&o->e);
            return NULL;
        }
    }
    uci_list_insert(at, &o->e.list);
    return o;
}

int uci_opt_add_item(struct uci_option *o, const char *value)
{
    struct uci_element *e = elem_alloc(sizeof(*e), UCI_TYPE_ITEM, value);

    if (!e)
        return UCI_ERR_MEM;
    uci_list_add(&o->v.list, &e->list);
    return 0;
}

void uci_opt_free(struct uci_option *o)
{
    struct uci_element *e, *tmp;

    if (o->type == UCI_TYPE_LIST) {
        uci_foreach_element_safe(&o->v.list, tmp, e)
        {
            elem_free(e);
        }
    } else {
        free(o->v.string);
    }
    elem_free(&o->e);
}

void uci_delta_free(struct uci_delta *d)
{
    free(d->section);
    free(d->value);
    elem_free(&d->e);
}

void uci_delta_list_free(struct uci_list *l)
{
    struct uci_element *e, *tmp;

    uci_foreach_element_safe(l, tmp, e)
    {
        uci_delta_free(uci_to_delta(e));
    }
}
