/* Name, type and text rules, and the generated names of anonymous sections. */
#include "uci_internal.h"

#include <stdio.h>
#include <string.h>

static bool is_alnum(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

bool uci_valid_name(const char *s)
{
    if (!s || !*s)
        return false;
    for (; *s; s++) {
        if (!is_alnum(*s) && *s != '_')
            return false;
    }
    return true;
}

bool uci_valid_pkgline_name(const char *s)
{
    if (!s || !*s)
        return false;
    for (; *s; s++) {
        if (!is_alnum(*s) && *s != '_' && *s != '-')
            return false;
    }
    return true;
}

/* Section types and package names: any printable ASCII except space. */
bool uci_valid_type(const char *s)
{
    if (!s || !*s)
        return false;
    for (; *s; s++) {
        unsigned char c = (unsigned char)*s;
        if (c < 33 || c > 126)
            return false;
    }
    return true;
}

UCI_API bool uci_validate_text(const char *str)
{
    for (; *str; str++) {
        unsigned char c = (unsigned char)*str;
        if (c < 32 && c != '\t' && c != '\n' && c != '\r')
            return false;
    }
    return true;
}

/* cfg + section counter + hash of the type: delta files written elsewhere address anonymous
 * sections by these names, so the formula must not change. */
void uci_anon_name(char *buf, size_t size, int n, const char *type)
{
    static const char hex[] = "0123456789abcdef";
    uint32_t h = 5381;
    const char *c;
    int i;

    for (c = type; *c; c++)
        h = h * 33 + (uint32_t)(int)*c; /* plain char, as the device computes it */
    h &= 0x7fffffff;
    if (n > 0xff) {
        snprintf(buf, size, "cfg%02x%04x", (unsigned)n, (unsigned)(h & 0xffff));
        return;
    }
    /* the common case without printf: cfg + 2 hex digits of n + 4 of the hash */
    memcpy(buf, "cfg", 3);
    buf[3] = hex[(n >> 4) & 0xf];
    buf[4] = hex[n & 0xf];
    for (i = 0; i < 4; i++)
        buf[5 + i] = hex[(h >> (12 - 4 * i)) & 0xf];
    buf[9] = '\0';
}
