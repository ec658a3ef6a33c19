/* The context: directories, delta search path and the file backend. */
#include "uci_internal.h"

#include <stdlib.h>
#include <string.h>

static char **file_list_configs(struct uci_context *ctx)
{
    char **list = NULL;

    return uci_list_configs(ctx, &list) == 0 ? list : NULL;
}

static struct uci_package *file_load(struct uci_context *ctx, const char *name)
{
    struct uci_package *p = NULL;

    uci_load(ctx, name, &p);
    return p;
}

static void file_commit(struct uci_context *ctx, struct uci_package **p, bool overwrite)
{
    uci_commit(ctx, p, overwrite);
}

struct uci_backend uci_file_backend = {
    .e = {.type = UCI_TYPE_BACKEND, .name = (char *)"file"},
    .list_configs = file_list_configs,
    .load = file_load,
    .commit = file_commit,
};

static int add_path(struct uci_list *at, const char *dir)
{
    struct uci_element *e = calloc(1, sizeof(*e));

    if (!e)
        return UCI_ERR_MEM;
    e->type = UCI_TYPE_PATH;
    e->name = uci_strdup(dir);
    if (!e->name) {
        free(e);
        return UCI_ERR_MEM;
    }
    uci_list_insert(at, &e->list);
    return 0;
}

static void free_path(struct uci_element *e)
{
    uci_list_del(&e->list);
    free(e->name);
    free(e);
}

UCI_API struct uci_context *uci_alloc_context(void)
{
    struct uci_context *ctx = calloc(1, sizeof(*ctx));

    if (!ctx)
        return NULL;
    uci_list_init(&ctx->root);
    uci_list_init(&ctx->delta_path);
    uci_list_init(&ctx->backends);
    ctx->flags = UCI_FLAG_STRICT | UCI_FLAG_SAVED_DELTA;
    ctx->confdir = (char *)UCI_CONFDIR;
    ctx->savedir = (char *)UCI_SAVEDIR;
    ctx->conf2dir = (char *)UCI_CONF2DIR;
    ctx->backend = &uci_file_backend;
    if (add_path(&ctx->delta_path, UCI_SAVEDIR) != 0) {
        free(ctx);
        return NULL;
    }
    return ctx;
}

static void set_dir(char **field, char *dir, const char *builtin)
{
    if (*field != builtin)
        free(*field);
    *field = dir;
}

UCI_API void uci_free_context(struct uci_context *ctx)
{
    struct uci_element *e, *tmp;

    set_dir(&ctx->confdir, NULL, UCI_CONFDIR);
    set_dir(&ctx->savedir, NULL, UCI_SAVEDIR);
    set_dir(&ctx->conf2dir, NULL, UCI_CONF2DIR);
    if (ctx->pctx)
        free(ctx->pctx->buf);
    free(ctx->pctx);
    uci_foreach_element_safe(&ctx->root, tmp, e)
    {
        uci_pkg_free(uci_to_package(e));
    }
    uci_foreach_element_safe(&ctx->delta_path, tmp, e)
    {
        free_path(e);
    }
    free(ctx->buf);
    free(ctx);
}

UCI_API int uci_set_confdir(struct uci_context *ctx, const char *dir)
{
    char *d;

    if (!ctx)
        return UCI_ERR_INVAL;
    ctx->err = 0;
    if (!dir)
        return uci_err(ctx, UCI_ERR_INVAL);
    d = uci_strdup(dir);
    if (!d)
        return uci_err(ctx, UCI_ERR_MEM);
    set_dir(&ctx->confdir, d, UCI_CONFDIR);
    return 0;
}

/* The save directory is searched last, so its changes win. */
UCI_API int uci_set_savedir(struct uci_context *ctx, const char *dir)
{
    struct uci_element *e, *tmp;
    char *d;

    if (!ctx)
        return UCI_ERR_INVAL;
    ctx->err = 0;
    if (!dir)
        return uci_err(ctx, UCI_ERR_INVAL);
    d = uci_strdup(dir);
    if (!d)
        return uci_err(ctx, UCI_ERR_MEM);
    uci_foreach_element_safe(&ctx->delta_path, tmp, e)
    {
        if (strcmp(e->name, dir) == 0)
            free_path(e);
    }
    if (add_path(ctx->delta_path.prev, dir) != 0) {
        free(d);
        return uci_err(ctx, UCI_ERR_MEM);
    }
    set_dir(&ctx->savedir, d, UCI_SAVEDIR);
    return 0;
}

UCI_API int uci_add_delta_path(struct uci_context *ctx, const char *dir)
{
    if (!ctx)
        return UCI_ERR_INVAL;
    ctx->err = 0;
    if (!dir || !dir[0])
        return uci_err(ctx, UCI_ERR_INVAL);
    if (uci_find(&ctx->delta_path, dir))
        return uci_err(ctx, UCI_ERR_DUPLICATE);
    return uci_err(ctx, add_path(ctx->delta_path.prev->prev, dir));
}

UCI_API int uci_set_conf2dir(struct uci_context *ctx, const char *dir)
{
    char *d = NULL;

    ctx->err = 0;
    if (dir && dir[0]) {
        d = uci_strdup(dir);
        if (!d)
            return uci_err(ctx, UCI_ERR_MEM);
    }
    set_dir(&ctx->conf2dir, d, UCI_CONF2DIR);
    return 0;
}

UCI_API int uci_set_backend(struct uci_context *ctx, const char *name)
{
    if (!ctx)
        return UCI_ERR_INVAL;
    ctx->err = 0;
    if (!name)
        return uci_err(ctx, UCI_ERR_INVAL);
    if (strcmp(name, uci_file_backend.e.name) != 0)
        return uci_err(ctx, UCI_ERR_NOTFOUND);
    ctx->backend = &uci_file_backend;
    return 0;
}
