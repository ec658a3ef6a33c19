/* Replaying delta files onto a package, and reverting saved changes. */
#include "uci_internal.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <unistd.h>

static enum uci_command line_command(char **line)
{
    enum uci_command cmd;

    for (cmd = UCI_CMD_ADD; cmd < __UCI_CMD_MAX; cmd++) {
        if (uci_command_char[cmd] && **line == uci_command_char[cmd]) {
            (*line)++;
            return cmd;
        }
    }
    return UCI_CMD_CHANGE;
}

static int apply(struct uci_context *ctx, struct uci_ptr *ptr, enum uci_command cmd)
{
    char *end;
    long pos;
    int rc;

    switch (cmd) {
    case UCI_CMD_ADD:
        if (ptr->option) /* the device takes it as a plain set */
            return uci_do_set(ctx, ptr);
        rc = uci_do_set(ctx, ptr);
        if (rc == 0 && ptr->s)
            ptr->s->anonymous = true;
        return rc;
    case UCI_CMD_REMOVE:
        return uci_do_delete(ctx, ptr);
    case UCI_CMD_RENAME:
        return uci_do_rename(ctx, ptr);
    case UCI_CMD_REORDER:
        pos = strtol(ptr->value, &end, 10);
        if (!ptr->s || ptr->option || *end || end == ptr->value)
            return UCI_ERR_INVAL;
        return uci_do_reorder(ctx, ptr->s, (int)(pos < 0 ? 0 : pos > 65535 ? 65535 : pos));
    case UCI_CMD_LIST_ADD:
        return uci_do_add_list(ctx, ptr);
    case UCI_CMD_LIST_DEL:
        return uci_do_del_list(ctx, ptr);
    default:
        return uci_do_set(ctx, ptr);
    }
}

int uci_delta_apply(struct uci_context *ctx, struct uci_package *p, char *line, bool keep)
{
    enum uci_command cmd = line_command(&line);
    struct uci_ptr ptr;
    char *section, *option;
    int rc;

    if (uci_do_parse_ptr(&ptr, line) != 0 || strcmp(ptr.package, p->e.name) != 0)
        return UCI_ERR_PARSE;
    if (!ptr.section || !uci_valid_name(ptr.section))
        return UCI_ERR_PARSE;
    if (cmd != UCI_CMD_REMOVE && !ptr.value)
        return UCI_ERR_PARSE;
    if (cmd == UCI_CMD_RENAME && !uci_valid_name(ptr.value))
        return UCI_ERR_PARSE;
    ptr.p = p;
    /* the operation may free the objects these names would be taken from */
    section = (char *)ptr.section;
    option = (char *)ptr.option;
    rc = uci_do_lookup(ctx, &ptr, false);
    if (rc == 0)
        rc = apply(ctx, &ptr, cmd);
    if (rc == 0 && keep) {
        uci_delta_append(&p->saved_delta, cmd, section, option, ptr.value);
    }
    return rc;
}

static int replay_buffer(struct uci_context *ctx, struct uci_package *p, const char *buf,
                         size_t len, bool keep)
{
    struct uci_lexer lx;
    int count = 0;

    uci_lex_init(&lx, buf, len);
    if (uci_lex_check(&lx) == 0) {
        while (lx.pos < lx.len) {
            int rc = uci_lex_arg(&lx);
            if (rc == UCI_LEX_ERR)
                break;
            if (rc == UCI_LEX_ARG && uci_delta_apply(ctx, p, lx.arg, keep) == 0)
                count++;
            uci_lex_next_line(&lx);
        }
    }
    uci_lex_free(&lx);
    return count;
}

static int replay_fd(struct uci_context *ctx, struct uci_package *p, int fd, bool keep)
{
    char *buf = NULL;
    size_t len = 0;
    int count = 0;

    if (lseek(fd, 0, SEEK_SET) == 0 && uci_read_fd(fd, &buf, &len) == 0)
        count = replay_buffer(ctx, p, buf, len, keep);
    free(buf);
    return count;
}

int uci_delta_replay(struct uci_context *ctx, struct uci_package *p, int savefd, bool keep)
{
    struct uci_element *e;
    bool internal = ctx->internal;
    int count = 0;

    ctx->internal = true;
    uci_foreach_element(&ctx->delta_path, e)
    {
        bool is_save = e->list.next == &ctx->delta_path;
        char *path;
        int fd;

        if (is_save && savefd >= 0) {
            count += replay_fd(ctx, p, savefd, keep);
            continue;
        }
        path = uci_delta_file(ctx, e->name, p->e.name);
        fd = path ? open(path, O_RDONLY | O_CLOEXEC) : -1;
        free(path);
        if (fd < 0)
            continue;
        if (uci_lock(fd, LOCK_SH) == 0)
            count += replay_fd(ctx, p, fd, keep);
        close(fd);
    }
    ctx->internal = internal;
    return count;
}
