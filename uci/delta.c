/* Recording changes and appending them to the delta file of the save directory. */
#include "uci_internal.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

UCI_API char const uci_command_char[] = {
    [UCI_CMD_ADD] = '+',      [UCI_CMD_REMOVE] = '-',  [UCI_CMD_CHANGE] = 0,
    [UCI_CMD_RENAME] = '@',   [UCI_CMD_REORDER] = '^', [UCI_CMD_LIST_ADD] = '|',
    [UCI_CMD_LIST_DEL] = '~',
};

int uci_delta_append(struct uci_list *list, enum uci_command cmd, const char *section,
                     const char *option, const char *value)
{
    struct uci_delta *d = calloc(1, sizeof(*d));

    if (!d)
        return UCI_ERR_MEM;
    uci_list_init(&d->e.list);
    d->e.type = UCI_TYPE_DELTA;
    d->cmd = cmd;
    d->e.name = option ? uci_strdup(option) : NULL;
    d->section = uci_strdup(section);
    d->value = value ? uci_strdup(value) : NULL;
    uci_list_add(list, &d->e.list);
    if ((option && !d->e.name) || !d->section || (value && !d->value)) {
        uci_delta_free(d);
        return UCI_ERR_MEM;
    }
    return 0;
}

int uci_delta_add(struct uci_context *ctx, struct uci_package *p, enum uci_command cmd,
                  const char *section, const char *option, const char *value)
{
    if (ctx->internal || !p->has_delta)
        return 0;
    return uci_delta_append(&p->delta, cmd, section, option, value);
}

void uci_delta_write(FILE *f, const char *pkg, enum uci_command cmd, const char *section,
                     const char *option, const char *value)
{
    if (uci_command_char[cmd])
        fputc(uci_command_char[cmd], f);
    fprintf(f, "%s.%s", pkg, section);
    if (option)
        fprintf(f, ".%s", option);
    if (cmd != UCI_CMD_REMOVE || value) {
        fputc('=', f);
        uci_write_quoted(f, value ? value : "");
    }
    fputc('\n', f);
}

char *uci_delta_file(struct uci_context *ctx, const char *dir, const char *pkg)
{
    (void)ctx;
    return uci_join(dir, pkg);
}

static int ensure_savedir(struct uci_context *ctx)
{
    struct stat st;
    mode_t mode = UCI_DIRMODE;

    if (stat(ctx->savedir, &st) == 0)
        return S_ISDIR(st.st_mode) ? 0 : UCI_ERR_IO;
    if (stat(ctx->confdir, &st) == 0)
        mode = st.st_mode & 07777;
    if (mkdir(ctx->savedir, mode) != 0 && errno != EEXIST)
        return UCI_ERR_IO;
    return 0;
}

static mode_t file_mode(const char *path)
{
    struct stat st;

    if (path && stat(path, &st) == 0)
        return st.st_mode & 07777;
    return UCI_FILEMODE;
}

/* One write(2) for all lines, so a process killed while saving seldom leaves a torn line. */
static int append_all(int fd, const char *buf, size_t len)
{
    while (len > 0) {
        ssize_t n = write(fd, buf, len);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return UCI_ERR_IO;
        buf += n;
        len -= (size_t)n;
    }
    return 0;
}

static int format_deltas(struct uci_package *p, char **buf, size_t *len)
{
    struct uci_element *e;
    FILE *f = open_memstream(buf, len);

    if (!f)
        return UCI_ERR_MEM;
    uci_foreach_element(&p->delta, e)
    {
        struct uci_delta *d = uci_to_delta(e);
        uci_delta_write(f, p->e.name, d->cmd, d->section, d->e.name, d->value);
    }
    return fclose(f) == 0 ? 0 : UCI_ERR_MEM;
}

/* A process killed inside write(2) can still leave a torn last line (the kernel stops between
 * pages); with an open quote it would swallow every line appended after it. Cut it off. */
static int drop_torn_tail(int fd)
{
    struct uci_lexer lx;
    size_t good = 0;
    char *buf = NULL;
    size_t len = 0;
    int rc = uci_read_fd(fd, &buf, &len);

    if (rc)
        return rc == UCI_ERR_PARSE ? 0 : rc;
    uci_lex_init(&lx, buf, len);
    while (lx.pos < lx.len && uci_lex_arg(&lx) != UCI_LEX_ERR) {
        uci_lex_next_line(&lx);
        if (lx.buf[lx.pos - 1] != '\n')
            break;
        good = lx.pos;
    }
    uci_lex_free(&lx);
    free(buf);
    if (good < len && ftruncate(fd, (off_t)good) != 0)
        return UCI_ERR_IO;
    return 0;
}

int uci_delta_save(struct uci_context *ctx, struct uci_package *p)
{
    char *path, *buf = NULL;
    size_t len = 0;
    int fd, rc;

    if (uci_list_empty(&p->delta))
        return 0;
    rc = ensure_savedir(ctx);
    if (rc == 0)
        rc = format_deltas(p, &buf, &len);
    if (rc) {
        free(buf);
        return rc;
    }
    path = uci_delta_file(ctx, ctx->savedir, p->e.name);
    fd = path ? open(path, O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC, file_mode(p->path)) : -1;
    free(path);
    if (fd < 0 || uci_lock(fd, LOCK_EX) != 0)
        rc = UCI_ERR_IO;
    if (rc == 0)
        rc = drop_torn_tail(fd);
    if (rc == 0)
        rc = append_all(fd, buf, len);
    if (fd >= 0)
        close(fd);
    free(buf);
    if (rc == 0)
        uci_delta_list_free(&p->delta);
    return rc;
}

UCI_API int uci_save(struct uci_context *ctx, struct uci_package *p)
{
    if (!ctx)
        return UCI_ERR_INVAL;
    ctx->err = 0;
    if (!p)
        return uci_err(ctx, UCI_ERR_INVAL);
    if (!p->has_delta)
        return uci_commit(ctx, &p, false);
    return uci_err(ctx, uci_delta_save(ctx, p));
}
