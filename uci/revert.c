/* Dropping saved (uncommitted) changes of a package, section or option. */
#include "uci_internal.h"

#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <unistd.h>

/* Whether a delta line addresses the reverted section/option (everything when neither). */
static bool line_matches(char *arg, const char *pkg, const char *section, const char *option)
{
    struct uci_ptr ptr;

    if (*arg && strchr("+-@^|~", *arg))
        arg++;
    if (uci_do_parse_ptr(&ptr, arg) != 0 || strcmp(ptr.package, pkg) != 0)
        return false;
    if (section && (!ptr.section || strcmp(ptr.section, section) != 0))
        return false;
    if (option && (!ptr.option || strcmp(ptr.option, option) != 0))
        return false;
    return true;
}

/* Rewrites buf keeping the lines that do not match; returns the new length. */
static size_t filter(char *buf, size_t len, const char *pkg, const char *section,
                     const char *option)
{
    struct uci_lexer lx;
    size_t out = 0;

    uci_lex_init(&lx, buf, len);
    while (lx.pos < lx.len) {
        size_t start = lx.pos;
        int rc = uci_lex_arg(&lx);
        bool drop = rc == UCI_LEX_ARG && line_matches(lx.arg, pkg, section, option);
        if (rc == UCI_LEX_ERR)
            lx.pos = lx.len;
        else
            uci_lex_next_line(&lx);
        if (!drop) {
            memmove(buf + out, buf + start, lx.pos - start);
            out += lx.pos - start;
        }
    }
    uci_lex_free(&lx);
    return out;
}

static int revert_file(struct uci_context *ctx, const char *pkg, const char *section,
                       const char *option)
{
    char *path = uci_delta_file(ctx, ctx->savedir, pkg), *buf = NULL;
    size_t len = 0;
    int fd, rc = 0;

    if (!path)
        return UCI_ERR_MEM;
    fd = open(path, O_RDWR | O_CLOEXEC);
    free(path);
    if (fd < 0)
        return 0;
    if (uci_lock(fd, LOCK_EX) != 0 || uci_read_fd(fd, &buf, &len) != 0) {
        close(fd);
        return UCI_ERR_IO;
    }
    len = filter(buf, len, pkg, section, option);
    if (ftruncate(fd, 0) != 0 || pwrite(fd, buf, len, 0) != (ssize_t)len)
        rc = UCI_ERR_IO;
    free(buf);
    close(fd);
    return rc;
}

UCI_API int uci_revert(struct uci_context *ctx, struct uci_ptr *ptr)
{
    char *pkg = NULL, *section = NULL, *option = NULL;
    int rc;

    if (!ctx)
        return UCI_ERR_INVAL;
    ctx->err = 0;
    if (!ptr)
        return uci_err(ctx, UCI_ERR_INVAL);
    rc = uci_prepare_ptr(ctx, ptr);
    if (rc == 0)
        rc = uci_delta_save(ctx, ptr->p);
    if (rc)
        return uci_err(ctx, rc);
    /* copies: the names may live in the package that is reloaded below */
    pkg = uci_strdup(ptr->p->e.name);
    section = ptr->section ? uci_strdup(ptr->section) : NULL;
    option = ptr->option ? uci_strdup(ptr->option) : NULL;
    if (!pkg || (ptr->section && !section) || (ptr->option && !option))
        rc = UCI_ERR_MEM;
    if (rc == 0)
        rc = revert_file(ctx, pkg, section, option);
    if (rc == 0) {
        uci_pkg_free(ptr->p);
        memset(ptr, 0, sizeof(*ptr));
        rc = uci_do_load(ctx, pkg, &ptr->p);
        ptr->flags = UCI_LOOKUP_DONE;
        ptr->package = ptr->p ? ptr->p->e.name : NULL;
    }
    free(pkg);
    free(section);
    free(option);
    return uci_err(ctx, rc);
}
