/* Bounded reads, locks and paths. */
#include "uci_internal.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

/* Grows *buf for at least one more byte; files over the limit are refused. */
static int grow(char **buf, size_t *cap, size_t len)
{
    size_t ncap;
    char *n;

    if (len < *cap)
        return 0;
    if (len > UCI_MAX_FILE)
        return UCI_ERR_PARSE;
    ncap = *cap ? *cap * 2 : 4096;
    if (ncap > UCI_MAX_FILE + 1)
        ncap = UCI_MAX_FILE + 1;
    n = realloc(*buf, ncap);
    if (!n)
        return UCI_ERR_MEM;
    *buf = n;
    *cap = ncap;
    return 0;
}

int uci_read_fd(int fd, char **buf, size_t *len)
{
    struct stat st;
    size_t cap = 0;
    int rc;

    /* room for the whole file and the end-of-file read at once */
    if (fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_size < UCI_MAX_FILE) {
        cap = (size_t)st.st_size + 1;
        *buf = malloc(cap);
        if (!*buf)
            return UCI_ERR_MEM;
    }

    if (!cap)
        *buf = NULL;
    *len = 0;
    for (;;) {
        ssize_t n;
        rc = grow(buf, &cap, *len);
        if (rc)
            break;
        n = read(fd, *buf + *len, cap - *len);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            rc = UCI_ERR_IO;
        if (n <= 0)
            break;
        *len += (size_t)n;
    }
    if (rc) {
        free(*buf);
        *buf = NULL;
        *len = 0;
    }
    return rc;
}

int uci_read_stream(FILE *f, char **buf, size_t *len)
{
    size_t cap = 0;
    int rc;

    *buf = NULL;
    *len = 0;
    for (;;) {
        size_t n;
        rc = grow(buf, &cap, *len);
        if (rc)
            break;
        n = fread(*buf + *len, 1, cap - *len, f);
        *len += n;
        if (n == 0) {
            rc = ferror(f) ? UCI_ERR_IO : 0;
            break;
        }
    }
    if (rc) {
        free(*buf);
        *buf = NULL;
        *len = 0;
    }
    return rc;
}

/* flock, tolerating file systems without it. */
int uci_lock(int fd, int op)
{
    int rc;

    do
        rc = flock(fd, op);
    while (rc != 0 && errno == EINTR);
    return (rc == 0 || errno == ENOSYS) ? 0 : -1;
}

char *uci_join(const char *dir, const char *name)
{
    size_t a = strlen(dir), b = strlen(name);
    char *p = malloc(a + b + 2);

    if (!p)
        return NULL;
    memcpy(p, dir, a);
    p[a] = '/';
    memcpy(p + a + 1, name, b + 1);
    return p;
}

/* Makes a rename in dir durable. */
int uci_fsync_dir(const char *dir)
{
    int fd = open(dir, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    int rc;

    if (fd < 0)
        return -1;
    rc = fsync(fd);
    close(fd);
    return rc;
}
