// The engine behind the field tables: one value form per kind, in both directions.
#include "config/fields.h"

#include <stdlib.h>
#include <string.h>

#include "libnetwork.h"

namespace netlib
{

namespace
{

constexpr unsigned int kCutBufLen = 64;

// Word kinds: an unknown text leaves *value as it was (WordOrInt: unless it is a number).
void read_word(struct uci_section *sec, const Field &f, int32_t *value)
{
    char buf[kNumBufLen] = {0};
    if (NET_GetOption(sec, f.option, buf, sizeof buf) != 0)
        return;
    for (unsigned int i = 0; i < f.wordCount; ++i) {
        if (strcmp(buf, f.words[i].text) == 0) {
            *value = f.words[i].value;
            return;
        }
    }
    if (f.kind != FieldKind::WordOrInt)
        return;
    char *end = nullptr;
    long number = strtol(buf, &end, 10);
    if (end != buf && *end == '\0')
        *value = static_cast<int32_t>(number);
}

int write_word(struct uci_section *sec, const Field &f, int32_t value)
{
    for (unsigned int i = 0; i < f.wordCount; ++i) {
        if (f.words[i].value == value)
            return NET_SetOption(sec, f.option, f.words[i].text);
    }
    if (f.kind == FieldKind::WordOrInt)
        return write_int(sec, f.option, value);
    return NET_SetOption(sec, f.option, f.words[0].text);
}

void read_cut_text(struct uci_section *sec, const char *name, char *field, size_t fieldSize)
{
    char buf[kCutBufLen] = {0};
    if (NET_GetOption(sec, name, buf, sizeof buf) != 0)
        return;
    size_t len = strnlen(buf, fieldSize - 1);
    memcpy(field, buf, len);
    field[len] = '\0';
}

} // namespace

void read_fields(struct uci_section *sec, const Field *fields, size_t count, void *rec)
{
    for (size_t i = 0; i < count; ++i) {
        const Field &f = fields[i];
        if ((f.use & kRead) == 0)
            continue;
        char *p = static_cast<char *>(rec) + f.offset;
        int32_t *i32 = reinterpret_cast<int32_t *>(p);
        uint16_t *u16 = reinterpret_cast<uint16_t *>(p);
        if (f.preset != kKeep) {
            if (f.kind == FieldKind::Port)
                *u16 = static_cast<uint16_t>(f.preset);
            else
                *i32 = f.preset;
        }
        if (f.option[0] == '\0')
            continue;
        switch (f.kind) {
        case FieldKind::Int:
            read_int(sec, f.option, i32);
            break;
        case FieldKind::Port:
            read_port(sec, f.option, u16);
            break;
        case FieldKind::Text:
            NET_GetOption(sec, f.option, p, f.size);
            break;
        case FieldKind::CutText:
            read_cut_text(sec, f.option, p, f.size);
            break;
        case FieldKind::Word:
        case FieldKind::WordOrInt:
            read_word(sec, f, i32);
            break;
        }
    }
}

int write_fields(struct uci_section *sec, const Field *fields, size_t count, const void *rec)
{
    for (size_t i = 0; i < count; ++i) {
        const Field &f = fields[i];
        if ((f.use & kWrite) == 0)
            continue;
        const char *p = static_cast<const char *>(rec) + f.offset;
        int ret = 0;
        switch (f.kind) {
        case FieldKind::Int:
            ret = write_int(sec, f.option, *reinterpret_cast<const int32_t *>(p));
            break;
        case FieldKind::Port:
            ret = write_int(sec, f.option, *reinterpret_cast<const uint16_t *>(p));
            break;
        case FieldKind::Text:
        case FieldKind::CutText:
            ret = write_text(sec, f.option, p, f.size);
            break;
        case FieldKind::Word:
        case FieldKind::WordOrInt:
            ret = write_word(sec, f, *reinterpret_cast<const int32_t *>(p));
            break;
        }
        if (ret != 0)
            return -1;
    }
    return 0;
}

} // namespace netlib
