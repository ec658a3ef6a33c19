/* Loading packages from the config directory or from a path. */
#include "uci_internal.h"

#include <dirent.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

struct source {
    char *path;
    const char *name;
    bool has_delta;
    bool uses_conf2;
};

static int resolve(struct uci_context *ctx, const char *name, struct source *src)
{
    struct stat st;

    memset(src, 0, sizeof(*src));
    if (name[0] == '/' || (name[0] == '.' && name[1] == '/')) {
        src->name = strrchr(name, '/') + 1;
        src->path = uci_strdup(name);
        return src->path ? 0 : UCI_ERR_MEM;
    }
    if (name[0] == '.')
        return UCI_ERR_NOTFOUND;
    if (!uci_valid_type(name))
        return UCI_ERR_INVAL;
    src->name = name;
    src->has_delta = true;
    if (ctx->conf2dir && ctx->conf2dir[0]) {
        src->path = uci_join(ctx->conf2dir, name);
        if (!src->path)
            return UCI_ERR_MEM;
        if (stat(src->path, &st) == 0) {
            src->uses_conf2 = true;
            return 0;
        }
        free(src->path);
    }
    src->path = uci_join(ctx->confdir, name);
    return src->path ? 0 : UCI_ERR_MEM;
}

/* Reads the whole file under a shared lock. */
static int read_file(const char *path, char **buf, size_t *len)
{
    struct stat st;
    int fd, rc;

    if (stat(path, &st) != 0 || !S_ISREG(st.st_mode))
        return UCI_ERR_NOTFOUND;
    fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return UCI_ERR_IO;
    rc = uci_lock(fd, LOCK_SH) == 0 ? uci_read_fd(fd, buf, len) : UCI_ERR_IO;
    close(fd);
    return rc;
}

int uci_do_load(struct uci_context *ctx, const char *name, struct uci_package **package)
{
    struct uci_package *p = NULL;
    struct source src;
    char *buf = NULL;
    size_t len = 0;
    int rc = resolve(ctx, name, &src);

    if (rc == 0 && !src.name[0])
        rc = UCI_ERR_NOTFOUND;
    if (rc == 0 && uci_find(&ctx->root, src.name))
        rc = UCI_ERR_DUPLICATE;
    if (rc == 0)
        rc = read_file(src.path, &buf, &len);
    if (rc == 0) {
        p = uci_pkg_alloc(ctx, src.name);
        rc = p ? uci_parse_buffer(ctx, buf, len, UCI_PARSE_LOAD, src.name, &p) : UCI_ERR_MEM;
    }
    free(buf);
    if (rc) {
        uci_pkg_free(p);
        free(src.path);
        return rc;
    }
    p->path = src.path;
    p->has_delta = src.has_delta;
    p->uses_conf2 = src.uses_conf2;
    uci_list_add(&ctx->root, &p->e.list);
    if (p->has_delta)
        uci_delta_replay(ctx, p, -1, (ctx->flags & UCI_FLAG_SAVED_DELTA) != 0);
    if (package)
        *package = p;
    return 0;
}

UCI_API int uci_load(struct uci_context *ctx, const char *name, struct uci_package **package)
{
    if (!ctx)
        return UCI_ERR_INVAL;
    ctx->err = 0;
    if (!name)
        return uci_err(ctx, UCI_ERR_INVAL);
    return uci_err(ctx, uci_do_load(ctx, name, package));
}

UCI_API int uci_unload(struct uci_context *ctx, struct uci_package *p)
{
    if (!ctx)
        return UCI_ERR_INVAL;
    ctx->err = 0;
    if (!p)
        return uci_err(ctx, UCI_ERR_INVAL);
    uci_pkg_free(p);
    return 0;
}

static bool config_name(const char *dir, const char *name)
{
    struct stat st;
    char *path;
    bool ok;

    if (strchr(name, '.') || !uci_valid_type(name))
        return false;
    path = uci_join(dir, name);
    ok = path && stat(path, &st) == 0 && S_ISREG(st.st_mode);
    free(path);
    return ok;
}

static int by_name(const void *a, const void *b)
{
    return strcmp(*(char *const *)a, *(char *const *)b);
}

/* One block: the NULL-terminated array, then the names, sorted as the device lists them. */
UCI_API int uci_list_configs(struct uci_context *ctx, char ***list)
{
    struct dirent *d;
    size_t n = 0, bytes = 0;
    char **out, *s;
    DIR *dir;

    if (!ctx)
        return UCI_ERR_INVAL;
    ctx->err = 0;
    if (!list)
        return uci_err(ctx, UCI_ERR_INVAL);
    dir = opendir(ctx->confdir);
    if (!dir)
        return uci_err(ctx, UCI_ERR_NOTFOUND);
    while ((d = readdir(dir)) != NULL) {
        if (config_name(ctx->confdir, d->d_name)) {
            n++;
            bytes += strlen(d->d_name) + 1;
        }
    }
    out = n ? calloc(1, (n + 1) * sizeof(char *) + bytes) : NULL;
    s = out ? (char *)(out + n + 1) : NULL;
    rewinddir(dir);
    size_t i = 0;
    while (out && i < n && (d = readdir(dir)) != NULL) {
        size_t len = strlen(d->d_name) + 1;
        /* the directory may have changed since it was counted: what no longer fits is left out */
        if (len > bytes || !config_name(ctx->confdir, d->d_name))
            continue;
        out[i++] = memcpy(s, d->d_name, len);
        s += len;
        bytes -= len;
    }
    if (out)
        qsort(out, i, sizeof *out, by_name);
    closedir(dir);
    if (!n)
        return uci_err(ctx, UCI_ERR_NOTFOUND);
    if (!out)
        return uci_err(ctx, UCI_ERR_MEM);
    *list = out;
    return 0;
}
