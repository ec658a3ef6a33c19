#include "fields.h"

#include <stdint.h>
#include <string.h>

#include <string>

#include "args.h"
#include "json.h"

namespace
{

const char *text_at(const void *rec, const Field &f)
{
    return static_cast<const char *>(rec) + f.offset;
}

long number_at(const void *rec, const Field &f)
{
    const char *p = static_cast<const char *>(rec) + f.offset;
    if (f.kind == Kind::Port) {
        uint16_t v;
        memcpy(&v, p, sizeof v);
        return v;
    }
    int32_t v;
    memcpy(&v, p, sizeof v);
    return v;
}

std::string known_keys(const Field *fields, int n)
{
    std::string keys;
    for (int i = 0; i < n; ++i)
        if (fields[i].settable)
            keys += std::string(keys.empty() ? "" : ", ") + fields[i].key;
    return keys;
}

} // namespace

void print_fields(const Ctx &c, Json &j, const Field *fields, int n, const void *rec)
{
    for (int i = 0; i < n; ++i) {
        const Field &f = fields[i];
        if (f.kind == Kind::Bool && c.json) {
            j.boolean(f.key, number_at(rec, f) != 0);
            continue;
        }
        if (f.kind != Kind::Text && f.kind != Kind::Secret) {
            if (c.json)
                j.num(f.key, number_at(rec, f));
            else
                printf("  %-14s %ld\n", f.key, number_at(rec, f));
            continue;
        }
        // Text fields are read without a terminator of their own: bound the length.
        std::string v(text_at(rec, f), strnlen(text_at(rec, f), f.size));
        const char *shown = f.kind == Kind::Secret ? secret(c, v.c_str()) : v.c_str();
        if (c.json)
            j.str(f.key, shown);
        else
            printf("  %-14s %s\n", f.key, or_dash(shown));
    }
}

bool apply_fields(const Ctx &c, const Field *fields, int n, const std::vector<const char *> &pairs,
                  void *rec)
{
    for (const char *pair : pairs) {
        const char *eq = strchr(pair, '=');
        if (eq == nullptr) {
            bad_arg(c, "SETTING", pair, "is not KEY=VALUE");
            return false;
        }
        std::string key(pair, eq - pair);
        const char *v = eq + 1;
        const Field *f = nullptr;
        for (int i = 0; i < n; ++i)
            if (fields[i].settable && key == fields[i].key)
                f = &fields[i];
        if (f == nullptr) {
            std::string why = "is not one of " + known_keys(fields, n);
            bad_arg(c, "KEY", key.c_str(), why.c_str());
            return false;
        }
        char *p = static_cast<char *>(rec) + f->offset;
        long num = 0;
        if (f->kind == Kind::Port) {
            if (!parse_long(c, f->key, v, 0, 65535, &num))
                return false;
            uint16_t u = static_cast<uint16_t>(num);
            memcpy(p, &u, sizeof u);
        } else if (f->kind == Kind::Int || f->kind == Kind::Bool) {
            if (!parse_long(c, f->key, v, INT32_MIN, INT32_MAX, &num))
                return false;
            int32_t i = static_cast<int32_t>(num);
            memcpy(p, &i, sizeof i);
        } else {
            if (strlen(v) >= f->size) {
                char why[64];
                snprintf(why, sizeof why, "is longer than %zu characters", f->size - 1);
                bad_arg(c, f->key, f->kind == Kind::Secret ? secret(c, v) : v, why);
                return false;
            }
            memset(p, 0, f->size);
            memcpy(p, v, strlen(v));
        }
    }
    return true;
}

std::vector<const char *> rest(Args &a)
{
    std::vector<const char *> out;
    for (const char *p = a.take(); p != nullptr; p = a.take())
        out.push_back(p);
    return out;
}
