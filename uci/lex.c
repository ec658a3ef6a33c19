/* Shell-style arguments: unquoted, '...' and "..." segments glued into one argument. */
#include "uci_internal.h"

#include <stdlib.h>
#include <string.h>

static bool is_blank(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f';
}

/* Bytes that end an unquoted run: separators, quotes, escapes and comments. */
static const bool special[256] = {
    ['\0'] = true, [' '] = true,  ['\t'] = true, ['\r'] = true, ['\v'] = true, ['\f'] = true,
    ['\n'] = true, ['\''] = true, ['"'] = true,  ['\\'] = true, ['#'] = true,  [';'] = true,
};

void uci_lex_init(struct uci_lexer *lx, const char *buf, size_t len)
{
    memset(lx, 0, sizeof(*lx));
    lx->buf = buf;
    lx->len = len;
    lx->line = 1;
}

void uci_lex_free(struct uci_lexer *lx)
{
    free(lx->argbuf);
    lx->argbuf = NULL;
    lx->arg = NULL;
    lx->argcap = 0;
    lx->argused = 0;
}

static int fail_at(struct uci_lexer *lx, const char *reason, size_t pos)
{
    const char *p = lx->buf;

    lx->reason = reason;
    lx->line = 1;
    lx->line_start = 0;
    while ((p = memchr(p, '\n', pos - (size_t)(p - lx->buf))) != NULL) {
        lx->line++;
        lx->line_start = (size_t)(++p - lx->buf);
    }
    lx->pos = pos;
    return -1;
}

int uci_lex_check(struct uci_lexer *lx)
{
    const char *nul;
    size_t start = 0;

    /* A crash can leave a file extended with zeros its data never reached: like the device,
     * read what was written before them. A NUL anywhere else is an error. */
    while (lx->len > 0 && lx->buf[lx->len - 1] == '\0')
        lx->len--;
    nul = memchr(lx->buf, '\0', lx->len);
    if (nul)
        return fail_at(lx, "invalid character", (size_t)(nul - lx->buf));
    while (start <= lx->len) {
        const char *nl = memchr(lx->buf + start, '\n', lx->len - start);
        size_t end = nl ? (size_t)(nl - lx->buf) : lx->len;
        if (end - start > UCI_MAX_LINE)
            return fail_at(lx, "line too long", start + UCI_MAX_LINE + 1);
        start = end + 1;
    }
    return 0;
}

int uci_lex_byte(const struct uci_lexer *lx)
{
    return (int)(lx->pos - lx->line_start) + 1;
}

/* Called with pos just past a newline. */
static void newline(struct uci_lexer *lx)
{
    lx->line++;
    lx->line_start = lx->pos;
}

static int push_n(struct uci_lexer *lx, const char *src, size_t n)
{
    if (lx->argused + n >= lx->argcap) {
        size_t cap = lx->argcap ? lx->argcap : 256;
        char *b;
        while (lx->argused + n >= cap)
            cap *= 2;
        b = realloc(lx->argbuf, cap);
        if (!b) {
            lx->nomem = true;
            lx->reason = "out of memory";
            return -1;
        }
        lx->argbuf = b;
        lx->argcap = cap;
    }
    memcpy(lx->argbuf + lx->argused, src, n);
    lx->argused += n;
    return 0;
}

/* Copies n bytes from pos (counting lines) into the argument. */
static int take(struct uci_lexer *lx, size_t n)
{
    size_t i, start = lx->pos;

    for (i = 0; i < n; i++) {
        if (lx->buf[start + i] == '\n') {
            lx->pos = start + i + 1;
            newline(lx);
        }
    }
    lx->pos = start + n;
    return push_n(lx, lx->buf + start, n);
}

/* Everything is literal up to the next single quote. */
static int single_quoted(struct uci_lexer *lx)
{
    const char *q;

    lx->pos++;
    q = memchr(lx->buf + lx->pos, '\'', lx->len - lx->pos);
    if (!q) {
        take(lx, lx->len - lx->pos); /* report the line the file ends on */
        lx->reason = "EOF with unterminated '";
        return -1;
    }
    if (take(lx, (size_t)(q - lx->buf) - lx->pos) < 0)
        return -1;
    lx->pos++;
    return 0;
}

/* Backslash quotes the next byte; backslash-newline joins lines. */
static int double_quoted(struct uci_lexer *lx)
{
    lx->pos++;
    while (lx->pos < lx->len) {
        size_t n = 0;
        char c;
        while (lx->pos + n < lx->len && lx->buf[lx->pos + n] != '"' && lx->buf[lx->pos + n] != '\\')
            n++;
        if (n && take(lx, n) < 0)
            return -1;
        if (lx->pos >= lx->len)
            break;
        c = lx->buf[lx->pos];
        if (c == '"') {
            lx->pos++;
            return 0;
        }
        if (lx->pos + 1 >= lx->len)
            break; /* a final backslash quotes nothing */
        lx->pos++;
        if (lx->buf[lx->pos] == '\n') {
            lx->pos++;
            newline(lx);
        } else if (take(lx, 1) < 0) {
            return -1;
        }
    }
    lx->reason = "EOF with unterminated \"";
    return -1;
}

static int unquoted_escape(struct uci_lexer *lx)
{
    if (lx->pos + 1 >= lx->len) {
        lx->pos++;
        return 0;
    }
    if (lx->buf[lx->pos + 1] == '\n') {
        /* line continuation: a blank at the start of the next line ends the argument */
        lx->pos += 2;
        newline(lx);
        return 0;
    }
    lx->pos++;
    return take(lx, 1);
}

static int unquoted(struct uci_lexer *lx)
{
    size_t n = 0;

    while (lx->pos + n < lx->len && !special[(unsigned char)lx->buf[lx->pos + n]])
        n++;
    return take(lx, n);
}

void uci_lex_skip_blank(struct uci_lexer *lx)
{
    while (lx->pos < lx->len && is_blank(lx->buf[lx->pos]))
        lx->pos++;
}

/* A backslash-newline between arguments starts one, as on the device: an indented line
 * after it ends that argument empty, so the indented text is one argument too many. */
static bool skip_separators(struct uci_lexer *lx)
{
    uci_lex_skip_blank(lx);
    return lx->pos < lx->len && lx->buf[lx->pos] != '\n';
}

int uci_lex_arg(struct uci_lexer *lx)
{
    size_t start;
    int rc = 0;

    if (lx->eol || !skip_separators(lx))
        return UCI_LEX_EOL;
    if (lx->buf[lx->pos] == '#' || lx->buf[lx->pos] == ';') {
        lx->eol = true;
        return UCI_LEX_EOL;
    }
    if (!lx->append)
        lx->argused = 0;
    start = lx->argused;
    while (rc == 0 && lx->pos < lx->len) {
        char c = lx->buf[lx->pos];
        if (c == '\n' || is_blank(c))
            break;
        if (c == '#' || c == ';') {
            /* the rest of the line is a comment; ';' does not start a new command */
            lx->eol = true;
            break;
        }
        if (c == '\'')
            rc = single_quoted(lx);
        else if (c == '"')
            rc = double_quoted(lx);
        else if (c == '\\')
            rc = unquoted_escape(lx);
        else
            rc = unquoted(lx);
    }
    if (rc < 0 || push_n(lx, "", 1) < 0)
        return UCI_LEX_ERR;
    lx->argoff = start;
    lx->arg = lx->argbuf + start;
    lx->arglen = lx->argused - start - 1;
    return UCI_LEX_ARG;
}

void uci_lex_next_line(struct uci_lexer *lx)
{
    const char *nl = NULL;

    lx->eol = false;
    lx->argused = 0;
    if (lx->pos < lx->len)
        nl = memchr(lx->buf + lx->pos, '\n', lx->len - lx->pos);
    if (!nl) {
        lx->pos = lx->len;
        return;
    }
    lx->pos = (size_t)(nl - lx->buf) + 1;
    newline(lx);
}
