/* Writing packages in the config file format. */
#include "uci_internal.h"

#include <string.h>

/* '...' with a quote inside written as '\'' and nothing else escaped. */
void uci_write_quoted(FILE *f, const char *s)
{
    const char *q;

    fputc('\'', f);
    while ((q = strchr(s, '\'')) != NULL) {
        fwrite(s, 1, (size_t)(q - s), f);
        fputs("'\\''", f);
        s = q + 1;
    }
    fputs(s, f);
    fputc('\'', f);
}

static void write_option(FILE *f, struct uci_option *o)
{
    struct uci_element *e;

    if (o->type == UCI_TYPE_STRING) {
        fprintf(f, "\toption %s ", o->e.name);
        uci_write_quoted(f, o->v.string);
        fputc('\n', f);
        return;
    }
    uci_foreach_element(&o->v.list, e)
    {
        fprintf(f, "\tlist %s ", o->e.name);
        uci_write_quoted(f, e->name);
        fputc('\n', f);
    }
}

int uci_export_package(struct uci_context *ctx, FILE *f, struct uci_package *p, bool header)
{
    struct uci_element *se, *oe;

    if (header)
        fprintf(f, "package %s\n", p->e.name);
    uci_foreach_element(&p->sections, se)
    {
        struct uci_section *s = uci_to_section(se);
        fprintf(f, "\nconfig %s", s->type);
        if (!s->anonymous || (ctx->flags & UCI_FLAG_EXPORT_NAME)) {
            fputc(' ', f);
            uci_write_quoted(f, s->e.name);
        }
        fputc('\n', f);
        uci_foreach_element(&s->options, oe) write_option(f, uci_to_option(oe));
    }
    fputc('\n', f);
    return ferror(f) ? UCI_ERR_IO : 0;
}

UCI_API int uci_export(struct uci_context *ctx, FILE *stream, struct uci_package *package,
                       bool header)
{
    struct uci_element *e;
    int rc = 0;

    if (!ctx)
        return UCI_ERR_INVAL;
    ctx->err = 0;
    if (!stream)
        return uci_err(ctx, UCI_ERR_INVAL);
    if (package)
        return uci_err(ctx, uci_export_package(ctx, stream, package, header));
    uci_foreach_element(&ctx->root, e)
    {
        rc = uci_export_package(ctx, stream, uci_to_package(e), header);
        if (rc)
            break;
    }
    return uci_err(ctx, rc);
}
