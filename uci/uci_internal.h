/* Private declarations shared by the files of libuci. */
#ifndef UCI_INTERNAL_H
#define UCI_INTERNAL_H

#include "uci.h"

#include <sys/types.h>

#define UCI_API __attribute__((visibility("default")))

/* Bounds for anything we read: a broken or hostile file must not exhaust memory. */
#define UCI_MAX_LINE (64 * 1024)
#define UCI_MAX_FILE (4 * 1024 * 1024)

/* Last parse error, kept for uci_perror; also the buffer of uci_parse_argument. */
struct uci_parse_context {
    const char *reason;
    int line;
    int byte;
    char *buf;
    size_t bufsz;
};

/* ---- lists (list.c) ---------------------------------------------------------------------- */

static inline void uci_list_init(struct uci_list *l)
{
    l->next = l;
    l->prev = l;
}

/* Inserts n right after pos. */
static inline void uci_list_insert(struct uci_list *pos, struct uci_list *n)
{
    n->prev = pos;
    n->next = pos->next;
    pos->next->prev = n;
    pos->next = n;
}

/* Appends n at the end of the list head. */
static inline void uci_list_add(struct uci_list *head, struct uci_list *n)
{
    uci_list_insert(head->prev, n);
}

static inline void uci_list_del(struct uci_list *n)
{
    n->prev->next = n->next;
    n->next->prev = n->prev;
    uci_list_init(n);
}

static inline int uci_err(struct uci_context *ctx, int err)
{
    ctx->err = err;
    return err;
}

char *uci_strdup(const char *s);
struct uci_element *uci_find(struct uci_list *list, const char *name);
struct uci_package *uci_pkg_alloc(struct uci_context *ctx, const char *name);
void uci_pkg_free(struct uci_package *p);
/* New section inserted after `at`; name NULL makes it anonymous with a generated name. */
struct uci_section *uci_sec_alloc(struct uci_package *p, const char *type, const char *name,
                                  struct uci_list *at);
void uci_sec_free(struct uci_section *s);
struct uci_option *uci_opt_alloc(struct uci_section *s, const char *name, enum uci_option_type type,
                                 const char *value, struct uci_list *at);
int uci_opt_add_item(struct uci_option *o, const char *value);
void uci_opt_free(struct uci_option *o);
void uci_item_free(struct uci_element *e);
/* Gives e a malloc'ed name (renames). */
void uci_elem_rename(struct uci_element *e, char *name);
void uci_delta_free(struct uci_delta *d);
void uci_delta_list_free(struct uci_list *l);

/* ---- names (names.c) --------------------------------------------------------------------- */

bool uci_valid_name(const char *s);
bool uci_valid_pkgline_name(const char *s);
bool uci_valid_type(const char *s);
void uci_anon_name(char *buf, size_t size, int n, const char *type);

/* ---- lexer (lex.c) ----------------------------------------------------------------------- */

struct uci_lexer {
    const char *buf;
    size_t len;
    size_t pos;
    int line;
    size_t line_start;
    char *arg;     /* the last argument, inside argbuf */
    size_t arglen; /* its length */
    size_t argoff; /* its offset in argbuf */
    char *argbuf;  /* arguments of the current line */
    size_t argused;
    size_t argcap;
    bool append; /* keep the earlier arguments of the line in argbuf */
    const char *reason;
    bool nomem;
    bool eol; /* a comment or ';' ended the line early */
};

enum { UCI_LEX_ERR = -1, UCI_LEX_EOL = 0, UCI_LEX_ARG = 1 };

void uci_lex_init(struct uci_lexer *lx, const char *buf, size_t len);
void uci_lex_free(struct uci_lexer *lx);
/* Rejects NUL bytes and over-long lines before anything is parsed. */
int uci_lex_check(struct uci_lexer *lx);
void uci_lex_skip_blank(struct uci_lexer *lx);
int uci_lex_arg(struct uci_lexer *lx);
void uci_lex_next_line(struct uci_lexer *lx);
int uci_lex_byte(const struct uci_lexer *lx);

/* ---- parser (parse.c) -------------------------------------------------------------------- */

enum uci_parse_mode { UCI_PARSE_LOAD, UCI_PARSE_SINGLE, UCI_PARSE_MULTI };

/* Parses buf into *pkg (created on demand for imports). */
int uci_parse_buffer(struct uci_context *ctx, const char *buf, size_t len, enum uci_parse_mode mode,
                     const char *name, struct uci_package **pkg);
void uci_parse_error(struct uci_context *ctx, const char *reason, int line, int byte);

/* ---- lookups and edits (lookup.c, edit.c, list_ops.c) ------------------------------------ */

int uci_do_parse_ptr(struct uci_ptr *ptr, char *str);
int uci_do_lookup(struct uci_context *ctx, struct uci_ptr *ptr, bool extended);
int uci_prepare_ptr(struct uci_context *ctx, struct uci_ptr *ptr);
int uci_do_set(struct uci_context *ctx, struct uci_ptr *ptr);
int uci_do_delete(struct uci_context *ctx, struct uci_ptr *ptr);
int uci_do_add_list(struct uci_context *ctx, struct uci_ptr *ptr);
int uci_do_del_list(struct uci_context *ctx, struct uci_ptr *ptr);
int uci_do_rename(struct uci_context *ctx, struct uci_ptr *ptr);
int uci_do_reorder(struct uci_context *ctx, struct uci_section *s, int pos);
int uci_do_add_section(struct uci_context *ctx, struct uci_package *p, const char *type,
                       struct uci_section **res);

/* ---- deltas (delta.c, replay.c) ---------------------------------------------------------- */

int uci_delta_append(struct uci_list *list, enum uci_command cmd, const char *section,
                     const char *option, const char *value);
int uci_delta_add(struct uci_context *ctx, struct uci_package *p, enum uci_command cmd,
                  const char *section, const char *option, const char *value);
void uci_delta_write(FILE *f, const char *pkg, enum uci_command cmd, const char *section,
                     const char *option, const char *value);
int uci_delta_save(struct uci_context *ctx, struct uci_package *p);
char *uci_delta_file(struct uci_context *ctx, const char *dir, const char *pkg);
/* Applies every delta file of p; savefd, when >= 0, is the locked savedir file. */
int uci_delta_replay(struct uci_context *ctx, struct uci_package *p, int savefd, bool keep);
/* Applies one delta line (prefix included); 0 when it took effect. */
int uci_delta_apply(struct uci_context *ctx, struct uci_package *p, char *line, bool keep);

/* ---- files (io.c, load.c, commit.c, export.c) -------------------------------------------- */

int uci_read_fd(int fd, char **buf, size_t *len);
int uci_read_stream(FILE *f, char **buf, size_t *len);
int uci_lock(int fd, int op);
char *uci_join(const char *dir, const char *name);
int uci_fsync_dir(const char *dir);
int uci_do_load(struct uci_context *ctx, const char *name, struct uci_package **package);
int uci_do_commit(struct uci_context *ctx, struct uci_package **p, bool overwrite);
void uci_write_quoted(FILE *f, const char *s);
int uci_export_package(struct uci_context *ctx, FILE *f, struct uci_package *p, bool header);

extern struct uci_backend uci_file_backend;

#endif
