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

/* Size of the record in front of the inline name of an element of this kind. */
static size_t elem_size(enum uci_type type)
{
    switch (type) {
    case UCI_TYPE_PACKAGE:
        return sizeof(struct uci_package);
    case UCI_TYPE_SECTION:
        return sizeof(struct uci_section);
    case UCI_TYPE_OPTION:
        return sizeof(struct uci_option);
    default:
        return sizeof(struct uci_element);
    }
}

/* One block: the record, its name, then an optional text (option value, section type). */
static void *elem_alloc(size_t size, enum uci_type type, const char *name, const char *text,
                        char **text_out)
{
    size_t nlen = name ? strlen(name) + 1 : 0, tlen = text ? strlen(text) + 1 : 0;
    struct uci_element *e = calloc(1, size + nlen + tlen);

    if (!e)
        return NULL;
    uci_list_init(&e->list);
    e->type = type;
    if (name) {
        e->name = (char *)e + size;
        memcpy(e->name, name, nlen);
    }
    if (text) {
        *text_out = (char *)e + size + nlen;
        memcpy(*text_out, text, tlen);
    }
    return e;
}

static void elem_free(struct uci_element *e)
{
    uci_list_del(&e->list);
    if (e->name != (char *)e + elem_size(e->type))
        free(e->name); /* renamed */
    free(e);
}

void uci_elem_rename(struct uci_element *e, char *name)
{
    if (e->name != (char *)e + elem_size(e->type))
        free(e->name);
    e->name = name;
}

void uci_item_free(struct uci_element *e)
{
    elem_free(e);
}

struct uci_package *uci_pkg_alloc(struct uci_context *ctx, const char *name)
{
    struct uci_package *p = elem_alloc(sizeof(*p), UCI_TYPE_PACKAGE, name, NULL, NULL);

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
    char anon[32], *s_type = NULL;
    struct uci_section *s;

    p->n_section++;
    if (!name) {
        uci_anon_name(anon, sizeof(anon), p->n_section, type);
        name = anon;
    }
    s = elem_alloc(sizeof(*s), UCI_TYPE_SECTION, name, type, &s_type);
    if (!s)
        return NULL;
    s->type = s_type;
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
    elem_free(&s->e);
}

struct uci_option *uci_opt_alloc(struct uci_section *s, const char *name, enum uci_option_type type,
                                 const char *value, struct uci_list *at)
{
    char *string = NULL;
    struct uci_option *o =
        elem_alloc(sizeof(*o), UCI_TYPE_OPTION, name,
                   type == UCI_TYPE_STRING ? (value ? value : "") : NULL, &string);

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
        o->v.string = string;
    }
    uci_list_insert(at, &o->e.list);
    return o;
}

int uci_opt_add_item(struct uci_option *o, const char *value)
{
    struct uci_element *e = elem_alloc(sizeof(*e), UCI_TYPE_ITEM, value, NULL, NULL);

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
    }
    elem_free(&o->e);
}

/* Deltas are built field by field (delta.c), not as one block. */
void uci_delta_free(struct uci_delta *d)
{
    uci_list_del(&d->e.list);
    free(d->e.name);
    free(d->section);
    free(d->value);
    free(d);
}

void uci_delta_list_free(struct uci_list *l)
{
    struct uci_element *e, *tmp;

    uci_foreach_element_safe(l, tmp, e)
    {
        uci_delta_free(uci_to_delta(e));
    }
}
