/* Error texts. */
#include "uci_internal.h"

#include <stdlib.h>
#include <string.h>

static const char *const uci_errstr[] = {
    [UCI_OK] = "Success",
    [UCI_ERR_MEM] = "Out of memory",
    [UCI_ERR_INVAL] = "Invalid argument",
    [UCI_ERR_NOTFOUND] = "Entry not found",
    [UCI_ERR_IO] = "I/O error",
    [UCI_ERR_PARSE] = "Parse error",
    [UCI_ERR_DUPLICATE] = "Duplicate entry",
    [UCI_ERR_UNKNOWN] = "Unknown error",
};

/* "[str: ]text[ (reason) at line n, byte b]" in a new string. */
static char *format(struct uci_context *ctx, const char *str)
{
    int err = ctx ? ctx->err : UCI_ERR_INVAL;
    char detail[160] = "";
    const char *text;
    size_t n;
    char *out;

    if (err < 0 || err >= UCI_ERR_LAST)
        err = UCI_ERR_UNKNOWN;
    text = uci_errstr[err];
    if (err == UCI_ERR_PARSE && ctx->pctx && ctx->pctx->reason)
        snprintf(detail, sizeof(detail), " (%s) at line %d, byte %d", ctx->pctx->reason,
                 ctx->pctx->line, ctx->pctx->byte);
    n = (str ? strlen(str) + 2 : 0) + strlen(text) + strlen(detail) + 1;
    out = malloc(n);
    if (out)
        snprintf(out, n, "%s%s%s%s", str ? str : "", str ? ": " : "", text, detail);
    return out;
}

UCI_API void uci_perror(struct uci_context *ctx, const char *str)
{
    char *s = format(ctx, str);

    if (s)
        fprintf(stderr, "%s\n", s);
    free(s);
}

UCI_API void uci_get_errorstr(struct uci_context *ctx, char **dest, const char *str)
{
    if (!dest) {
        uci_perror(ctx, str);
        return;
    }
    *dest = format(ctx, str);
}
