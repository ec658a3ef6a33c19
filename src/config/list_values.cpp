// The values of a list option. The access layer answers only for string options, so the
// list is read here from libuci's public records of the section handle; no libuci call is
// made outside the access layer.
#include <string.h>

#include <uci.h>

#include "config/ether.h"

namespace netlib
{

namespace
{

// The first option of that name, as a lookup by name finds it.
struct uci_option *find_option(struct uci_section *sec, const char *name)
{
    struct uci_element *e = nullptr;
    uci_foreach_element(&sec->options, e)
    {
        if (e->name != nullptr && strcmp(e->name, name) == 0)
            return uci_to_option(e);
    }
    return nullptr;
}

} // namespace

void for_each_list_value(struct uci_section *sec, const char *name,
                         void (*fn)(const char *value, void *ctx), void *ctx)
{
    if (sec == nullptr || name == nullptr)
        return;
    struct uci_option *opt = find_option(sec, name);
    if (opt == nullptr || opt->type != UCI_TYPE_LIST)
        return;
    struct uci_element *item = nullptr;
    uci_foreach_element(&opt->v.list, item)
    {
        fn(item->name != nullptr ? item->name : "", ctx);
    }
}

} // namespace netlib
