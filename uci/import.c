/* Parsing streams: whole config files (uci_import) and single arguments. */
#include "uci_internal.h"

#include <stdlib.h>
#include <string.h>

UCI_API int uci_import(struct uci_context *ctx, FILE *stream, const char *name,
                       struct uci_package **package, bool single)
{
    struct uci_package *p = NULL;
    char *buf = NULL;
    size_t len = 0;
    int rc;

    if (!ctx)
        return UCI_ERR_INVAL;
    ctx->err = 0;
    if (!stream || (name && !uci_valid_type(name)))
        return uci_err(ctx, UCI_ERR_INVAL);
    if (single && package && *package)
        p = *package; /* merge, with the package's own change tracking */
    rc = uci_read_stream(stream, &buf, &len);
    if (rc == 0)
        rc = uci_parse_buffer(ctx, buf, len, single ? UCI_PARSE_SINGLE : UCI_PARSE_MULTI, name, &p);
    free(buf);
    if (rc == 0 && package)
        *package = p;
    return uci_err(ctx, rc);
}

/* Appends the next line of the stream to the argument buffer. */
static int read_line(struct uci_parse_context *pctx, FILE *stream, size_t *len)
{
    for (;;) {
        int c;
        if (*len + 2 > pctx->bufsz) {
            size_t sz = pctx->bufsz ? pctx->bufsz * 2 : 256;
            char *n = sz <= UCI_MAX_FILE ? realloc(pctx->buf, sz) : NULL;
            if (!n)
                return UCI_ERR_MEM;
            pctx->buf = n;
            pctx->bufsz = sz;
        }
        c = getc(stream);
        if (c == EOF)
            break;
        pctx->buf[(*len)++] = (char)c;
        if (c == '\n')
            break;
    }
    pctx->buf[*len] = '\0';
    return 0;
}

/* One argument of the current line, unquoted in place; lines are read as needed. */
UCI_API int uci_parse_argument(struct uci_context *ctx, FILE *stream, char **str, char **result)
{
    struct uci_parse_context *pctx;
    struct uci_lexer lx;
    size_t len, start;
    int rc;

    if (!ctx)
        return UCI_ERR_INVAL;
    ctx->err = 0;
    if (!stream || !str || !result)
        return uci_err(ctx, UCI_ERR_INVAL);
    if (!ctx->pctx)
        ctx->pctx = calloc(1, sizeof(*ctx->pctx));
    pctx = ctx->pctx;
    if (!pctx)
        return uci_err(ctx, UCI_ERR_MEM);
    *result = NULL;
    if (!*str || !**str || *str < pctx->buf || *str >= pctx->buf + pctx->bufsz) {
        len = 0;
        rc = read_line(pctx, stream, &len);
        if (rc)
            return uci_err(ctx, rc);
        *str = pctx->buf;
    }
    start = (size_t)(*str - pctx->buf);
    len = start + strlen(*str);
    for (;;) {
        uci_lex_init(&lx, pctx->buf, len);
        lx.pos = start;
        rc = uci_lex_arg(&lx);
        if (rc != UCI_LEX_ERR || lx.nomem || feof(stream))
            break;
        uci_lex_free(&lx);
        size_t before = len;
        rc = read_line(pctx, stream, &len);
        if (rc || len == before)
            return uci_err(ctx, rc ? rc : UCI_ERR_PARSE);
    }
    if (rc == UCI_LEX_ERR) {
        uci_lex_free(&lx);
        return uci_err(ctx, lx.nomem ? UCI_ERR_MEM : UCI_ERR_PARSE);
    }
    if (rc == UCI_LEX_ARG) {
        size_t end = lx.pos;
        if (end < len && pctx->buf[end] != '#' && pctx->buf[end] != ';')
            end++; /* the separator becomes the terminator */
        start = end - lx.arglen - (end > lx.pos ? 1 : 0);
        memcpy(pctx->buf + start, lx.arg, lx.arglen + 1);
        *result = pctx->buf + start;
        *str = pctx->buf + end;
        if (lx.eol)
            *str = pctx->buf + len;
    } else {
        *str = pctx->buf + len;
    }
    uci_lex_free(&lx);
    return 0;
}
