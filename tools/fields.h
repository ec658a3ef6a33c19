// Records shown and edited field by field: a table names each field's key, kind and place,
// and one printer, one parser serve every record of the services group.
#pragma once

#include <stddef.h>

#include <vector>

#include "cli.h"

class Json;

// Bool: an int32 switch, a JSON boolean, read and written as a number.
enum class Kind { Int, Bool, Port, Text, Secret };

struct Field {
    const char *key; // KEY of KEY=VALUE, and the JSON key
    Kind kind;
    size_t offset;
    size_t size; // of the text field
    bool settable;
};

#define FIELD_INT(rec, key, m)                                                                     \
    {                                                                                              \
        key, Kind::Int, offsetof(rec, m), 0, true                                                  \
    }
#define FIELD_BOOL(rec, key, m)                                                                    \
    {                                                                                              \
        key, Kind::Bool, offsetof(rec, m), 0, true                                                 \
    }
#define FIELD_PORT(rec, key, m)                                                                    \
    {                                                                                              \
        key, Kind::Port, offsetof(rec, m), 0, true                                                 \
    }
#define FIELD_TEXT(rec, key, m)                                                                    \
    {                                                                                              \
        key, Kind::Text, offsetof(rec, m), sizeof(((rec *)0)->m), true                             \
    }
#define FIELD_SECRET(rec, key, m)                                                                  \
    {                                                                                              \
        key, Kind::Secret, offsetof(rec, m), sizeof(((rec *)0)->m), true                           \
    }

// Number of fields of a table.
template <size_t N> constexpr int count(const Field (&)[N])
{
    return static_cast<int>(N);
}

// The PPPoE account's fields: the same in the present and the old layout.
extern const Field kPppoeFields[4];

// Prints every field: "  key  value" lines, or the members of an open JSON object.
void print_fields(const Ctx &c, Json &j, const Field *fields, int n, const void *rec);
// Applies KEY=VALUE pairs to the record; false (reported) on an unknown key or bad value.
bool apply_fields(const Ctx &c, const Field *fields, int n, const std::vector<const char *> &pairs,
                  void *rec);
// Every remaining positional argument.
std::vector<const char *> rest(class Args &a);
