#include "args.h"

#include <string.h>

Args::Args(const Ctx &c, int argc, char **argv) : c_(c)
{
    bool positional_only = false;
    for (int i = 0; i < argc; ++i) {
        if (!positional_only && strcmp(argv[i], "--") == 0) {
            positional_only = true;
            continue;
        }
        bool opt = !positional_only && strncmp(argv[i], "--", 2) == 0;
        items_.push_back(Item{argv[i], opt, false});
    }
}

void Args::error(const std::string &text)
{
    if (!ok_)
        return;
    ok_ = false;
    fprintf(stderr, "netlibctl %s: %s\n", c_.cmd.c_str(), text.c_str());
}

int Args::find_option(const char *name, const char **inlineValue)
{
    size_t n = strlen(name);
    for (size_t i = 0; i < items_.size(); ++i) {
        const Item &it = items_[i];
        if (!it.option || it.used || strncmp(it.text, name, n) != 0)
            continue;
        if (it.text[n] == '\0') {
            *inlineValue = nullptr;
            return static_cast<int>(i);
        }
        if (it.text[n] == '=') {
            *inlineValue = it.text + n + 1;
            return static_cast<int>(i);
        }
    }
    return -1;
}

bool Args::flag(const char *name)
{
    const char *inl = nullptr;
    int i = find_option(name, &inl);
    if (i < 0)
        return false;
    items_[i].used = true;
    if (inl != nullptr)
        error(std::string("option ") + name + " takes no value");
    return true;
}

bool Args::option(const char *name, const char **value)
{
    const char *inl = nullptr;
    int i = find_option(name, &inl);
    if (i < 0)
        return true;
    items_[i].used = true;
    if (inl != nullptr) {
        *value = inl;
        return true;
    }
    size_t v = static_cast<size_t>(i) + 1;
    if (v >= items_.size() || items_[v].used || items_[v].option) {
        error(std::string("option ") + name + " needs a value");
        return false;
    }
    items_[v].used = true;
    *value = items_[v].text;
    return true;
}

const char *Args::take()
{
    if (!ok_)
        return nullptr;
    for (Item &it : items_) {
        if (it.used || it.option)
            continue;
        it.used = true;
        return it.text;
    }
    return nullptr;
}

const char *Args::need(const char *argName)
{
    if (!ok_)
        return nullptr;
    const char *p = take();
    if (p == nullptr)
        error(std::string("missing ") + argName);
    return p;
}

int Args::remaining() const
{
    int n = 0;
    for (const Item &it : items_)
        n += !it.used && !it.option;
    return n;
}

bool Args::end()
{
    if (!ok_)
        return false;
    for (const Item &it : items_) {
        if (it.used)
            continue;
        if (it.option)
            error(std::string("unknown option '") + it.text + "'");
        else
            error(std::string("unexpected argument '") + it.text + "'");
        return false;
    }
    return true;
}
