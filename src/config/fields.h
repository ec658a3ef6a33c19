// Records kept as UCI sections: each section's options are described once, as a table of
// option name, record field and value form, and two calls read a section into a record and
// write a record into a section from that table. Both go through the table in its order:
// the write order is the order of the options in a newly written file and in the change
// files, and the read order is the order of the lines logged for values too long to read.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "config/uci_access.h"

namespace netlib
{

enum class FieldKind : uint8_t {
    Int,  // int32_t as decimal text
    Port, // uint16_t as decimal text; reading keeps the low 16 bits
    // char[size] read at the field's full size: its last byte stays as the caller zeroed it.
    Text,
    // char[size] read through a 64-byte buffer, then cut to size - 1 and terminated.
    CutText,
    // int32_t spelled by words: a text without a word leaves the field as it was, and a value
    // without a word is written as the first word.
    Word,
    // Same, but a value without a word is written as decimal text, and a whole decimal
    // number is read as itself.
    WordOrInt,
};

// Which of the two calls uses an entry. A table lists an option twice when it is read and
// written at different places in the order.
enum FieldUse : uint8_t { kRead = 1, kWrite = 2, kBoth = 3 };

struct Word {
    int32_t value;
    char text[8];
};

// Int and Port fields without a preset keep the caller's value when their option is absent.
constexpr int32_t kKeep = INT32_MIN;

struct Field {
    char option[16];   // empty: not stored, reading sets the preset
    const Word *words; // the word kinds' spellings
    int32_t preset;    // Int, Port: set before the option is read, so it is the default
    uint16_t offset;   // of the record field
    uint8_t size;      // of the record field
    FieldKind kind;
    uint8_t use; // FieldUse
    uint8_t wordCount;
};

#define NET_FIELD_AT(rec, m) static_cast<uint16_t>(offsetof(rec, m)), sizeof(((rec *)0)->m)
// An entry of a table of record type rec: NET_FIELD(NetPppoeCfg, "username", szUserName,
// FieldKind::Text, kBoth).
#define NET_FIELD(rec, opt, m, kind, use)                                                          \
    {                                                                                              \
        opt, nullptr, ::netlib::kKeep, NET_FIELD_AT(rec, m), kind, use, 0                          \
    }
// With a default: the field's value when the option is absent (or, without an option, always).
#define NET_FIELD_PRESET(rec, opt, m, kind, use, preset)                                           \
    {                                                                                              \
        opt, nullptr, preset, NET_FIELD_AT(rec, m), kind, use, 0                                   \
    }
#define NET_FIELD_WORDS(rec, opt, m, kind, use, words)                                             \
    {                                                                                              \
        opt, words, ::netlib::kKeep, NET_FIELD_AT(rec, m), kind, use,                              \
            static_cast<uint8_t>(sizeof words / sizeof words[0])                                   \
    }

// Reads the table's options into the record; absent options leave their fields as they were
// (or at their presets).
void read_fields(struct uci_section *sec, const Field *fields, size_t count, void *rec);
// Writes the table's options from the record; -1 at the first option that cannot be set.
int write_fields(struct uci_section *sec, const Field *fields, size_t count, const void *rec);

template <size_t N> void read_fields(struct uci_section *sec, const Field (&t)[N], void *rec)
{
    read_fields(sec, t, N, rec);
}
template <size_t N> int write_fields(struct uci_section *sec, const Field (&t)[N], const void *rec)
{
    return write_fields(sec, t, N, rec);
}

// A record call in two lines: the section comes from the caller's opener (null when it could
// not be opened, already logged), the site from the exported call, so log lines keep its name.
template <size_t N> int read_record(struct uci_section *sec, const Field (&t)[N], void *rec)
{
    if (sec == nullptr)
        return -1;
    read_fields(sec, t, N, rec);
    return 0;
}
template <size_t N> int write_into(struct uci_section *sec, const Field (&t)[N], const void *rec)
{
    return sec == nullptr ? -1 : write_fields(sec, t, N, rec);
}
// Writes and commits the package; -1 at the first step that fails.
template <size_t N>
int write_record(CallSite site, UciPackage &pkg, struct uci_section *sec, const Field (&t)[N],
                 const void *rec)
{
    return write_into(sec, t, rec) != 0 ? -1 : commit_logged(site, pkg);
}

// For a static_assert beside each table: every entry's kind fits its record field.
template <size_t N> constexpr bool fields_fit(const Field (&t)[N], size_t recSize)
{
    for (const Field &f : t) {
        const bool word = f.kind == FieldKind::Word || f.kind == FieldKind::WordOrInt;
        const bool text = f.kind == FieldKind::Text || f.kind == FieldKind::CutText;
        if (f.offset + f.size > recSize || (word && f.wordCount == 0) ||
            (text ? f.size == 0 : f.size != (f.kind == FieldKind::Port ? 2 : 4)) ||
            (f.preset != kKeep && f.kind != FieldKind::Int && f.kind != FieldKind::Port) ||
            (f.option[0] == '\0' && (f.preset == kKeep || f.use != kRead)))
            return false;
    }
    return true;
}

} // namespace netlib
