/* Adding items to and removing items from list options. */
#include "uci_internal.h"

#include <stdlib.h>
#include <string.h>

/* A string option becomes a list [old, value] at the same place. */
static int string_to_list(struct uci_ptr *ptr)
{
    struct uci_option *old = ptr->o;
    struct uci_option *o =
        uci_opt_alloc(ptr->s, old->e.name, UCI_TYPE_LIST, old->v.string, &old->e.list);

    if (!o)
        return UCI_ERR_MEM;
    if (uci_opt_add_item(o, ptr->value) != 0) {
        uci_opt_free(o);
        return UCI_ERR_MEM;
    }
    if (ptr->option == old->e.name)
        ptr->option = o->e.name;
    uci_opt_free(old);
    ptr->o = o;
    return 0;
}

int uci_do_add_list(struct uci_context *ctx, struct uci_ptr *ptr)
{
    struct uci_option *o;
    int rc = uci_prepare_ptr(ctx, ptr);

    if (rc)
        return rc;
    if (!ptr->s || !ptr->value || !ptr->option)
        return UCI_ERR_INVAL;
    if (!ptr->o) {
        struct uci_element *e = uci_find(&ptr->s->options, ptr->option);
        ptr->o = e ? uci_to_option(e) : NULL;
    }
    o = ptr->o;
    if (!o) {
        o = uci_opt_alloc(ptr->s, ptr->option, UCI_TYPE_LIST, ptr->value, ptr->s->options.prev);
        rc = o ? 0 : UCI_ERR_MEM;
        ptr->o = o;
    } else if (o->type == UCI_TYPE_STRING) {
        rc = string_to_list(ptr);
    } else {
        rc = uci_opt_add_item(o, ptr->value);
    }
    if (rc)
        return rc;
    return uci_delta_add(ctx, ptr->p, UCI_CMD_LIST_ADD, ptr->section, ptr->option, ptr->value);
}

UCI_API int uci_add_list(struct uci_context *ctx, struct uci_ptr *ptr)
{
    if (!ctx)
        return UCI_ERR_INVAL;
    ctx->err = 0;
    if (!ptr)
        return uci_err(ctx, UCI_ERR_INVAL);
    return uci_err(ctx, uci_do_add_list(ctx, ptr));
}

int uci_do_del_list(struct uci_context *ctx, struct uci_ptr *ptr)
{
    struct uci_element *e, *tmp;
    int rc = uci_prepare_ptr(ctx, ptr);

    if (rc)
        return rc;
    if (!ptr->s || !ptr->value)
        return UCI_ERR_INVAL;
    if (!ptr->o && ptr->option) {
        e = uci_find(&ptr->s->options, ptr->option);
        ptr->o = e ? uci_to_option(e) : NULL;
    }
    if (!ptr->o || ptr->o->type != UCI_TYPE_LIST)
        return 0;
    /* recorded even when nothing matches, so the file gets rewritten on commit */
    rc = uci_delta_add(ctx, ptr->p, UCI_CMD_LIST_DEL, ptr->section, ptr->option, ptr->value);
    uci_foreach_element_safe(&ptr->o->v.list, tmp, e)
    {
        if (strcmp(e->name, ptr->value) != 0)
            continue;
        uci_item_free(e);
    }
    return rc;
}

UCI_API int uci_del_list(struct uci_context *ctx, struct uci_ptr *ptr)
{
    if (!ctx)
        return UCI_ERR_INVAL;
    ctx->err = 0;
    if (!ptr)
        return uci_err(ctx, UCI_ERR_INVAL);
    return uci_err(ctx, uci_do_del_list(ctx, ptr));
}
