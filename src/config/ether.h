// Pieces of the interface record's store shared by its reader and writer.
#pragma once

#include <stddef.h>

struct uci_section;

namespace netlib
{

// Calls fn with each value of a list option of the section, in order. A missing option and a
// single string give none.
void for_each_list_value(struct uci_section *sec, const char *name,
                         void (*fn)(const char *value, void *ctx), void *ctx);

} // namespace netlib
