/* The config file grammar: package, config, option and list lines. */
#include "uci_internal.h"

#include <stdlib.h>
#include <string.h>

#define MAX_ARGS 3

/* Sections of the package by name while it is parsed, so that a long file does not look up
 * every "config" line's name among all the sections before it. Built once the package has
 * INDEX_FROM sections; a name maps to its first section in list order, as uci_find finds
 * it. Without memory for it, lookups go back to walking the list. */
#define INDEX_FROM 32

struct sec_index {
    struct uci_package *pkg; /* the package the slots describe */
    struct uci_section **slot;
    size_t mask;
    size_t used;
    bool failed;
};

struct grammar {
    struct uci_context *ctx;
    struct uci_lexer lx;
    enum uci_parse_mode mode;
    const char *name;
    struct uci_package *pkg;
    struct uci_section *sec;
    bool created;         /* pkg was made by this parse (import) */
    char *argv[MAX_ARGS]; /* inside the lexer's argument buffer */
    int argc;
    const char *reason; /* grammar error of the current line */
    struct sec_index index;
};

static size_t name_hash(const char *s)
{
    size_t h = 5381;

    for (; *s; s++)
        h = h * 33 + (unsigned char)*s;
    return h;
}

static void index_free(struct sec_index *ix)
{
    free(ix->slot);
    ix->slot = NULL;
    ix->mask = 0;
    ix->used = 0;
}

/* Adds s unless a section of that name is there already (the earlier one stays first). */
static bool index_put(struct sec_index *ix, struct uci_section *s)
{
    size_t i;

    if ((ix->used + 1) * 2 > ix->mask + 1) {
        struct sec_index bigger = {ix->pkg, NULL, ix->mask * 2 + 1, 0, false};
        bigger.slot = calloc(bigger.mask + 1, sizeof(*bigger.slot));
        if (!bigger.slot)
            return false;
        for (i = 0; i <= ix->mask; i++) {
            if (ix->slot[i])
                index_put(&bigger, ix->slot[i]);
        }
        free(ix->slot);
        *ix = bigger;
    }
    for (i = name_hash(s->e.name) & ix->mask; ix->slot[i]; i = (i + 1) & ix->mask) {
        if (strcmp(ix->slot[i]->e.name, s->e.name) == 0)
            return true;
    }
    ix->slot[i] = s;
    ix->used++;
    return true;
}

static void index_give_up(struct sec_index *ix)
{
    index_free(ix);
    ix->failed = true;
}

/* Indexes the package's sections once it has enough of them to pay off. */
static void index_build(struct sec_index *ix, struct uci_package *p)
{
    struct uci_element *e;

    if (p->n_section < INDEX_FROM)
        return;
    ix->mask = 63;
    ix->slot = calloc(ix->mask + 1, sizeof(*ix->slot));
    if (!ix->slot) {
        index_give_up(ix);
        return;
    }
    uci_foreach_element(&p->sections, e)
    {
        if (!index_put(ix, uci_to_section(e))) {
            index_give_up(ix);
            return;
        }
    }
}

/* The first section of the package with that name, as uci_find gives it. */
static struct uci_section *find_section(struct grammar *g, const char *name)
{
    struct sec_index *ix = &g->index;
    size_t i;

    if (ix->pkg != g->pkg) {
        index_free(ix);
        ix->pkg = g->pkg;
        ix->failed = false;
    }
    if (!ix->slot && !ix->failed)
        index_build(ix, g->pkg);
    if (!ix->slot)
        return (struct uci_section *)uci_find(&g->pkg->sections, name);
    for (i = name_hash(name) & ix->mask; ix->slot[i]; i = (i + 1) & ix->mask) {
        if (strcmp(ix->slot[i]->e.name, name) == 0)
            return ix->slot[i];
    }
    return NULL;
}

/* A section the parse has just added at the end of the package. */
static void index_added(struct grammar *g, struct uci_section *s)
{
    struct sec_index *ix = &g->index;

    if (s && ix->slot && ix->pkg == g->pkg && !index_put(ix, s))
        index_give_up(ix);
}

/* A section object the parse has put in the place of another of the same name. */
static void index_replaced(struct grammar *g, struct uci_section *old, struct uci_section *s)
{
    struct sec_index *ix = &g->index;
    size_t i;

    if (!ix->slot || ix->pkg != g->pkg || old == s)
        return;
    for (i = name_hash(s->e.name) & ix->mask; ix->slot[i]; i = (i + 1) & ix->mask) {
        if (ix->slot[i] == old) {
            ix->slot[i] = s;
            return;
        }
    }
}

/* Parse errors of a line are reported through g->reason; other failures are returned. */
static int fail(struct grammar *g, const char *reason)
{
    g->reason = reason;
    return 0;
}

/* Reads up to max arguments of the current line; more is an error in strict mode only. */
static int read_args(struct grammar *g, int max)
{
    size_t off[MAX_ARGS] = {0}; /* zeroed only to quiet -Wmaybe-uninitialized at -O3 */
    int i;

    g->lx.append = true;
    while (g->argc <= max) {
        int rc = uci_lex_arg(&g->lx);
        if (rc == UCI_LEX_EOL)
            break;
        if (rc == UCI_LEX_ERR)
            return g->lx.nomem ? UCI_ERR_MEM : fail(g, g->lx.reason);
        if (g->argc == max) {
            if (g->ctx->flags & UCI_FLAG_STRICT)
                return fail(g, "too many arguments");
            break;
        }
        off[g->argc++] = g->lx.argoff;
    }
    /* the buffer may have moved while it grew */
    for (i = 0; i < g->argc; i++)
        g->argv[i] = g->lx.argbuf + off[i];
    return 0;
}

/* Imports create their package when the first section needs one. */
static int ensure_package(struct grammar *g, const char *name)
{
    struct uci_context *ctx = g->ctx;

    if (g->pkg)
        return 0;
    if (!name)
        return fail(g, "attempting to import a file without a package name");
    if (uci_find(&ctx->root, name))
        return UCI_ERR_DUPLICATE;
    g->pkg = uci_pkg_alloc(ctx, name);
    if (!g->pkg)
        return UCI_ERR_MEM;
    uci_list_add(&ctx->root, &g->pkg->e.list);
    g->created = true;
    return 0;
}

static int cmd_package(struct grammar *g)
{
    int rc = read_args(g, 1);

    if (rc || g->reason)
        return rc;
    if (g->argc < 1)
        return fail(g, "insufficient arguments");
    if (!uci_valid_pkgline_name(g->argv[0]))
        return fail(g, "invalid package name");
    if (g->mode == UCI_PARSE_LOAD)
        return 0; /* the package name comes from the file name */
    if (g->mode == UCI_PARSE_SINGLE)
        return g->pkg ? 0 : ensure_package(g, g->name ? g->name : g->argv[0]);
    g->pkg = NULL;
    g->sec = NULL;
    return ensure_package(g, g->argv[0]);
}

static int section_set_type(struct grammar *g, struct uci_section *s, const char *type)
{
    struct uci_ptr ptr = {0};
    int rc;

    ptr.flags = UCI_LOOKUP_DONE | UCI_LOOKUP_COMPLETE;
    ptr.p = g->pkg;
    ptr.s = s;
    ptr.package = g->pkg->e.name;
    ptr.section = s->e.name;
    ptr.value = type;
    rc = uci_do_set(g->ctx, &ptr);
    g->sec = ptr.s;
    return rc;
}

static int cmd_config(struct grammar *g)
{
    const char *type, *name;
    struct uci_section *s;
    int rc = read_args(g, 2);

    if (rc || g->reason)
        return rc;
    if (g->argc < 1)
        return fail(g, "insufficient arguments");
    type = g->argv[0];
    name = g->argc > 1 && g->argv[1][0] ? g->argv[1] : NULL;
    if (!uci_valid_type(type))
        return fail(g, "invalid character in type field");
    if (name && !uci_valid_name(name))
        return fail(g, "invalid character in name field");
    rc = ensure_package(g, g->name);
    if (rc || g->reason)
        return rc;
    if (!name) {
        struct uci_section *added = NULL;
        rc = uci_do_add_section(g->ctx, g->pkg, type, &added);
        if (added)
            g->sec = added;
        index_added(g, added);
        return rc;
    }

    s = find_section(g, name);
    if (s && strcmp(s->type, type) == 0) {
        g->sec = s;
        return 0;
    }
    if (s && (g->ctx->flags & UCI_FLAG_STRICT))
        return fail(g, "section of different type overwrites prior section with same name");
    if (s) {
        rc = section_set_type(g, s, type);
        index_replaced(g, s, g->sec);
        return rc;
    }

    struct uci_ptr ptr = {0};
    ptr.flags = UCI_LOOKUP_DONE;
    ptr.p = g->pkg;
    ptr.package = g->pkg->e.name;
    ptr.section = name;
    ptr.value = type;
    rc = uci_do_set(g->ctx, &ptr);
    g->sec = ptr.s;
    index_added(g, ptr.s);
    return rc;
}

static int cmd_option(struct grammar *g, bool list)
{
    struct uci_ptr ptr = {0};
    const char *value;
    int rc = read_args(g, 2);

    if (rc || g->reason)
        return rc;
    if (!g->sec)
        return fail(g, "option/list command found before the first section");
    if (g->argc < 1)
        return fail(g, "insufficient arguments");
    if (!uci_valid_name(g->argv[0]))
        return fail(g, "invalid character in name field");
    value = g->argc > 1 ? g->argv[1] : "";
    if (!list && !value[0])
        return 0; /* an empty option is never created */

    ptr.p = g->pkg;
    ptr.s = g->sec;
    ptr.o = (struct uci_option *)uci_find(&g->sec->options, g->argv[0]);
    ptr.flags = UCI_LOOKUP_DONE | (ptr.o ? UCI_LOOKUP_COMPLETE : 0);
    ptr.package = g->pkg->e.name;
    ptr.section = g->sec->e.name;
    ptr.option = g->argv[0];
    ptr.value = value;
    return list ? uci_do_add_list(g->ctx, &ptr) : uci_do_set(g->ctx, &ptr);
}

static bool keyword(const char *kw, size_t n, const char *longname)
{
    return (n == 1 && kw[0] == longname[0]) ||
           (n == strlen(longname) && memcmp(kw, longname, n) == 0);
}

/* One command line; a grammar error leaves g->reason set. */
static int parse_line(struct grammar *g)
{
    struct uci_lexer *lx = &g->lx;
    const char *kw;
    size_t n = 0;

    uci_lex_skip_blank(lx);
    if (lx->pos >= lx->len || lx->buf[lx->pos] == '\n')
        return 0;
    kw = lx->buf + lx->pos;
    while (lx->pos + n < lx->len && kw[n] != ' ' && kw[n] != '\t' && kw[n] != '\n')
        n++;
    if (kw[0] == '#')
        return 0;
    lx->pos += n;
    /* the keyword is split on blanks only: a keyword alone on its line keeps its newline */
    if (lx->pos < lx->len && lx->buf[lx->pos] == '\n')
        return fail(g, "invalid command");
    if (keyword(kw, n, "package"))
        return cmd_package(g);
    if (keyword(kw, n, "config"))
        return cmd_config(g);
    if (keyword(kw, n, "option"))
        return cmd_option(g, false);
    if (keyword(kw, n, "list"))
        return cmd_option(g, true);
    return fail(g, "invalid command");
}

void uci_parse_error(struct uci_context *ctx, const char *reason, int line, int byte)
{
    if (!ctx->pctx)
        ctx->pctx = calloc(1, sizeof(*ctx->pctx));
    if (!ctx->pctx)
        return;
    ctx->pctx->reason = reason;
    ctx->pctx->line = line;
    ctx->pctx->byte = byte;
}

/* A grammar error: fatal in strict mode, else the line is skipped. */
static int line_error(struct grammar *g)
{
    struct uci_context *ctx = g->ctx;

    uci_parse_error(ctx, g->reason, g->lx.line, uci_lex_byte(&g->lx));
    if (ctx->flags & UCI_FLAG_STRICT)
        return UCI_ERR_PARSE;
    if (ctx->flags & UCI_FLAG_PERROR)
        fprintf(stderr, "uci: Parse error (%s) at line %d, byte %d\n", g->reason, g->lx.line,
                uci_lex_byte(&g->lx));
    g->reason = NULL;
    return 0;
}

static int parse_all(struct grammar *g)
{
    int rc = 0;

    if (uci_lex_check(&g->lx) < 0) {
        g->reason = g->lx.reason;
        return line_error(g) ? UCI_ERR_PARSE : 0;
    }
    while (rc == 0 && g->lx.pos < g->lx.len) {
        g->argc = 0;
        rc = parse_line(g);
        if (rc == 0 && g->reason)
            rc = line_error(g);
        uci_lex_next_line(&g->lx);
    }
    if (rc == 0 && g->mode != UCI_PARSE_LOAD && !g->pkg && g->name)
        rc = ensure_package(g, g->name);
    return rc;
}

int uci_parse_buffer(struct uci_context *ctx, const char *buf, size_t len, enum uci_parse_mode mode,
                     const char *name, struct uci_package **pkg)
{
    struct grammar g;
    struct uci_list *mark = ctx->root.prev;
    int rc;

    memset(&g, 0, sizeof(g));
    g.ctx = ctx;
    g.mode = mode;
    g.name = name;
    g.pkg = *pkg;
    uci_lex_init(&g.lx, buf, len);
    rc = parse_all(&g);
    uci_lex_free(&g.lx);
    index_free(&g.index);
    if (rc && mode != UCI_PARSE_LOAD) {
        /* drop the packages this import created */
        while (ctx->root.prev != mark)
            uci_pkg_free(uci_to_package(list_to_element(ctx->root.prev)));
        return rc;
    }
    if (rc == 0)
        *pkg = g.pkg;
    return rc;
}
