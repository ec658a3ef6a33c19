/* Setting and deleting options and sections. */
#include "uci_internal.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* Replaces an option by a new string option at the same place. */
static int replace_option(struct uci_context *ctx, struct uci_ptr *ptr)
{
    struct uci_option *old = ptr->o;
    struct uci_option *o =
        uci_opt_alloc(ptr->s, old->e.name, UCI_TYPE_STRING, ptr->value, &old->e.list);

    (void)ctx;
    if (!o)
        return UCI_ERR_MEM;
    if (ptr->option == old->e.name)
        ptr->option = o->e.name;
    uci_opt_free(old);
    ptr->o = o;
    return 0;
}

/* A type of another length: a new section object takes the place (and options) of the old. */
static int replace_section(struct uci_ptr *ptr)
{
    struct uci_section *old = ptr->s;
    struct uci_package *p = ptr->p;
    struct uci_section *s = uci_sec_alloc(p, ptr->value, old->e.name, &old->e.list);
    struct uci_element *e, *tmp;

    if (!s)
        return UCI_ERR_MEM;
    p->n_section--; /* the replacement does not count as a new section */
    uci_foreach_element_safe(&old->options, tmp, e)
    {
        uci_list_del(&e->list);
        uci_list_add(&s->options, &e->list);
        uci_to_option(e)->section = s;
    }
    if (ptr->section == old->e.name)
        ptr->section = s->e.name;
    uci_sec_free(old);
    ptr->s = s;
    return 0;
}

static int set_option(struct uci_context *ctx, struct uci_ptr *ptr)
{
    struct uci_option *o = ptr->o;

    if (!o) {
        o = uci_opt_alloc(ptr->s, ptr->option, UCI_TYPE_STRING, ptr->value, ptr->s->options.prev);
        if (!o)
            return UCI_ERR_MEM;
        ptr->o = o;
    } else if (o->type == UCI_TYPE_STRING && strcmp(o->v.string, ptr->value) == 0) {
        return 0;
    } else if (o->type == UCI_TYPE_STRING && strlen(o->v.string) == strlen(ptr->value)) {
        memcpy(o->v.string, ptr->value, strlen(ptr->value));
    } else if (replace_option(ctx, ptr) != 0) {
        return UCI_ERR_MEM;
    }
    return uci_delta_add(ctx, ptr->p, UCI_CMD_CHANGE, ptr->section, ptr->option, ptr->value);
}

static int set_section(struct uci_context *ctx, struct uci_ptr *ptr)
{
    struct uci_section *s = ptr->s;

    if (!s) {
        s = uci_sec_alloc(ptr->p, ptr->value, ptr->section, ptr->p->sections.prev);
        if (!s)
            return UCI_ERR_MEM;
        ptr->s = s;
    } else if (strcmp(s->type, ptr->value) == 0) {
        return 0;
    } else if (strlen(s->type) == strlen(ptr->value)) {
        memcpy(s->type, ptr->value, strlen(ptr->value));
    } else if (replace_section(ptr) != 0) {
        return UCI_ERR_MEM;
    }
    return uci_delta_add(ctx, ptr->p, UCI_CMD_CHANGE, ptr->section, NULL, ptr->value);
}

int uci_do_set(struct uci_context *ctx, struct uci_ptr *ptr)
{
    int rc = uci_prepare_ptr(ctx, ptr);

    if (rc)
        return rc;
    if (!ptr->value)
        return UCI_ERR_INVAL;
    if (!ptr->s && (ptr->option || !ptr->section))
        return UCI_ERR_INVAL;
    /* an unresolved "@type[n]" is not a name to create a section under */
    if (!ptr->s && (ptr->flags & UCI_LOOKUP_EXTENDED))
        return UCI_ERR_INVAL;
    if (!ptr->option && ptr->value[0] && !uci_valid_type(ptr->value))
        return UCI_ERR_INVAL;
    if (!ptr->o && ptr->s && ptr->option) {
        struct uci_element *e = uci_find(&ptr->s->options, ptr->option);
        ptr->o = e ? uci_to_option(e) : NULL;
    }
    if (!ptr->value[0])
        return (ptr->flags & UCI_LOOKUP_COMPLETE) ? uci_do_delete(ctx, ptr) : 0;
    return ptr->option ? set_option(ctx, ptr) : set_section(ctx, ptr);
}

UCI_API int uci_set(struct uci_context *ctx, struct uci_ptr *ptr)
{
    if (!ctx)
        return UCI_ERR_INVAL;
    ctx->err = 0;
    if (!ptr)
        return uci_err(ctx, UCI_ERR_INVAL);
    return uci_err(ctx, uci_do_set(ctx, ptr));
}

/* Removes one list item by its index given as text. */
static int delete_item(struct uci_context *ctx, struct uci_ptr *ptr)
{
    struct uci_element *e, *tmp;
    char *end;
    long idx, i = 0;

    errno = 0;
    idx = strtol(ptr->value, &end, 10);
    if (*end || errno)
        return 1; /* deliberate: a non-numeric index returns 1 without setting ctx->err */
    uci_foreach_element_safe(&ptr->o->v.list, tmp, e)
    {
        if (i++ != idx)
            continue;
        uci_item_free(e);
        return uci_delta_add(ctx, ptr->p, UCI_CMD_REMOVE, ptr->section, ptr->option, ptr->value);
    }
    return 0;
}

int uci_do_delete(struct uci_context *ctx, struct uci_ptr *ptr)
{
    int rc = uci_prepare_ptr(ctx, ptr);

    if (rc)
        return rc;
    if (!(ptr->flags & UCI_LOOKUP_COMPLETE))
        return UCI_ERR_NOTFOUND;
    if (!ptr->s)
        return UCI_ERR_INVAL;
    if (ptr->o && ptr->o->type == UCI_TYPE_LIST && ptr->value && ptr->value[0])
        return delete_item(ctx, ptr);

    rc =
        uci_delta_add(ctx, ptr->p, UCI_CMD_REMOVE, ptr->section, ptr->o ? ptr->option : NULL, NULL);
    if (ptr->o) {
        if (ptr->option == ptr->o->e.name)
            ptr->option = NULL;
        uci_opt_free(ptr->o);
        ptr->o = NULL;
    } else {
        if (ptr->section == ptr->s->e.name)
            ptr->section = NULL;
        uci_sec_free(ptr->s);
        ptr->s = NULL;
    }
    ptr->last = &ptr->p->e;
    return rc;
}

UCI_API int uci_delete(struct uci_context *ctx, struct uci_ptr *ptr)
{
    int rc;

    if (!ctx)
        return UCI_ERR_INVAL;
    ctx->err = 0;
    if (!ptr)
        return uci_err(ctx, UCI_ERR_INVAL);
    rc = uci_do_delete(ctx, ptr);
    return rc == 1 ? rc : uci_err(ctx, rc);
}

int uci_do_rename(struct uci_context *ctx, struct uci_ptr *ptr)
{
    struct uci_element *e;
    char *name;
    int rc = uci_prepare_ptr(ctx, ptr);

    if (rc)
        return rc;
    if (!(ptr->flags & UCI_LOOKUP_COMPLETE))
        return UCI_ERR_NOTFOUND;
    if (!ptr->value || !ptr->s)
        return UCI_ERR_INVAL;
    rc = uci_delta_add(ctx, ptr->p, UCI_CMD_RENAME, ptr->section, ptr->o ? ptr->option : NULL,
                       ptr->value);
    if (rc)
        return rc;
    name = uci_strdup(ptr->value);
    if (!name)
        return UCI_ERR_MEM;
    e = ptr->o ? &ptr->o->e : &ptr->s->e;
    if (ptr->o && ptr->option == e->name)
        ptr->option = name;
    if (!ptr->o) {
        if (ptr->section == e->name)
            ptr->section = name;
        ptr->s->anonymous = false;
    }
    uci_elem_rename(e, name);
    return 0;
}

UCI_API int uci_rename(struct uci_context *ctx, struct uci_ptr *ptr)
{
    if (!ctx)
        return UCI_ERR_INVAL;
    ctx->err = 0;
    if (!ptr)
        return uci_err(ctx, UCI_ERR_INVAL);
    return uci_err(ctx, uci_do_rename(ctx, ptr));
}

int uci_do_reorder(struct uci_context *ctx, struct uci_section *s, int pos)
{
    struct uci_package *p = s->package;
    struct uci_list *l;
    char buf[16];
    int old = 0, i = 0;

    for (l = p->sections.next; l != &s->e.list; l = l->next)
        old++;
    uci_list_del(&s->e.list);
    for (l = p->sections.next; l != &p->sections && i < pos; l = l->next)
        i++;
    uci_list_insert(l->prev, &s->e.list);
    if (i == old)
        return 0;
    snprintf(buf, sizeof(buf), "%d", pos);
    return uci_delta_add(ctx, p, UCI_CMD_REORDER, s->e.name, NULL, buf);
}

UCI_API int uci_reorder_section(struct uci_context *ctx, struct uci_section *s, int pos)
{
    if (!ctx)
        return UCI_ERR_INVAL;
    ctx->err = 0;
    if (!s)
        return uci_err(ctx, UCI_ERR_INVAL);
    return uci_err(ctx, uci_do_reorder(ctx, s, pos));
}

int uci_do_add_section(struct uci_context *ctx, struct uci_package *p, const char *type,
                       struct uci_section **res)
{
    struct uci_section *s;

    if (!p || !type)
        return UCI_ERR_INVAL;
    s = uci_sec_alloc(p, type, NULL, p->sections.prev);
    if (!s)
        return UCI_ERR_MEM;
    if (res)
        *res = s;
    return uci_delta_add(ctx, p, UCI_CMD_ADD, s->e.name, NULL, type);
}

UCI_API int uci_add_section(struct uci_context *ctx, struct uci_package *p, const char *type,
                            struct uci_section **res)
{
    if (!ctx)
        return UCI_ERR_INVAL;
    ctx->err = 0;
    return uci_err(ctx, uci_do_add_section(ctx, p, type, res));
}
