/* Shell-style arguments: unquoted, '...' and "..." segments glued into one argument. */
#include "uci_internal.h"

#include <stdlib.h>
#include <string.h>

static bool is_blank(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f';
}

void uci_lex_init(struct uci_lexer *lx, const char *buf, size_t len)
{
    memset(lx, 0, sizeof(*lx));
    lx->buf = buf;
    lx->len = len;
    lx->line = 1;
}

void uci_lex_free(struct uci_lexer *lx)
{
    free(lx->arg);
    lx->arg = NULL;
    lx->argcap = 0;
}

int uci_lex_check(struct uci_lexer *lx)
{
    size_t i, start = 0;
    int line = 1;

    for (i = 0; i <= lx->len; i++) {
        if (i < lx->len && lx->buf[i] == '\0') {
            lx->reason = "invalid character";
        } else if (i - start > UCI_MAX_LINE) {
            lx->reason = "line too long";
        } else {
            if (i < lx->len && lx->buf[i] == '\n') {
                line++;
                start = i + 1;
            }
            continue;
        }
        lx->line = line;
        lx->line_start = start;
        lx->pos = i;
        return -1;
    }
    return 0;
}

int uci_lex_byte(const struct uci_lexer *lx)
{
    return (int)(lx->pos - lx->line_start) + 1;
}

bool uci_lex_at_eol(const struct uci_lexer *lx)
{
    return lx->eol || lx->pos >= lx->len || lx->buf[lx->pos] == '\n';
}

/* Called with pos just past a newline. */
static void newline(struct uci_lexer *lx)
{
    lx->line++;
    lx->line_start = lx->pos;
}

static int push(struct uci_lexer *lx, char c)
{
    if (lx->arglen + 1 >= lx->argcap) {
        size_t cap = lx->argcap ? lx->argcap * 2 : 128;
        char *n = realloc(lx->arg, cap);
        if (!n) {
            lx->nomem = true;
            lx->reason = "out of memory";
            return -1;
        }
        lx->arg = n;
        lx->argcap = cap;
    }
    lx->arg[lx->arglen++] = c;
    return 0;
}

/* Copies one byte (counting lines) into the argument. */
static int take(struct uci_lexer *lx, char c)
{
    lx->pos++;
    if (c == '\n')
        newline(lx);
    return push(lx, c);
}

/* Everything is literal up to the next single quote. */
static int single_quoted(struct uci_lexer *lx)
{
    lx->pos++;
    while (lx->pos < lx->len) {
        char c = lx->buf[lx->pos];
        if (c == '\'') {
            lx->pos++;
            return 0;
        }
        if (take(lx, c) < 0)
            return -1;
    }
    lx->reason = "EOF with unterminated '";
    return -1;
}

/* Backslash quotes the next byte; backslash-newline joins lines. */
static int double_quoted(struct uci_lexer *lx)
{
    lx->pos++;
    while (lx->pos < lx->len) {
        char c = lx->buf[lx->pos];
        if (c == '"') {
            lx->pos++;
            return 0;
        }
        if (c == '\\' && lx->pos + 1 < lx->len) {
            lx->pos++;
            c = lx->buf[lx->pos];
            if (c == '\n') {
                lx->pos++;
                newline(lx);
                continue;
            }
        } else if (c == '\\') {
            break;
        }
        if (take(lx, c) < 0)
            return -1;
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
    return take(lx, lx->buf[lx->pos]);
}

static bool skip_separators(struct uci_lexer *lx)
{
    while (lx->pos < lx->len) {
        char c = lx->buf[lx->pos];
        if (c == '\\' && lx->pos + 1 < lx->len && lx->buf[lx->pos + 1] == '\n') {
            lx->pos += 2;
            newline(lx);
        } else if (is_blank(c)) {
            lx->pos++;
        } else {
            return c != '\n';
        }
    }
    return false;
}

void uci_lex_skip_blank(struct uci_lexer *lx)
{
    while (lx->pos < lx->len && is_blank(lx->buf[lx->pos]))
        lx->pos++;
}

int uci_lex_arg(struct uci_lexer *lx)
{
    int rc = 0;

    if (lx->eol || !skip_separators(lx))
        return UCI_LEX_EOL;
    if (lx->buf[lx->pos] == '#' || lx->buf[lx->pos] == ';') {
        lx->eol = true;
        return UCI_LEX_EOL;
    }
    lx->arglen = 0;
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
            rc = take(lx, c);
    }
    if (rc < 0 || push(lx, '\0') < 0)
        return UCI_LEX_ERR;
    lx->arglen--;
    return UCI_LEX_ARG;
}

void uci_lex_next_line(struct uci_lexer *lx)
{
    const char *nl = NULL;

    lx->eol = false;
    if (lx->pos < lx->len)
        nl = memchr(lx->buf + lx->pos, '\n', lx->len - lx->pos);
    if (!nl) {
        lx->pos = lx->len;
        return;
    }
    lx->pos = (size_t)(nl - lx->buf) + 1;
    newline(lx);
}
