// Helpers of the configuration editors: a guard that releases an open package on every path,
// and the open/find/read/write steps they all share. Everything here goes through the
// access layer's exported calls; only cfg_uci.cpp talks to libuci.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "libnetwork.h"
#include "base/log.h"

// Untagged line on behalf of a caller (the tagged form is NET_LOGT_AT).

namespace netlib
{

// The package every editor works on.
constexpr const char *kNetworkPkg = "network";

// An open package: freed (changes discarded) when the scope ends, unless it was committed.
class UciPackage
{
  public:
    UciPackage() = default;
    ~UciPackage() { reset(); }
    UciPackage(const UciPackage &) = delete;
    UciPackage &operator=(const UciPackage &) = delete;

    struct uci_package *get() const { return pkg_; }
    void reset(struct uci_package *pkg = nullptr)
    {
        if (pkg_ != nullptr)
            NET_FreePackage(pkg_);
        pkg_ = pkg;
    }
    // Saves and ends the package's life, whether the commit succeeds or not.
    int commit() { return NET_UciCommit(release()); }
    struct uci_package *release()
    {
        struct uci_package *pkg = pkg_;
        pkg_ = nullptr;
        return pkg;
    }

  private:
    struct uci_package *pkg_ = nullptr;
};

// printf's "%s" of a null pointer, spelled out rather than left to the C library.
inline const char *text_or_null(const char *s)
{
    return s != nullptr ? s : "(null)";
}

// Opens "network" into pkg; logs "file: network.\n" for the caller when it cannot.
inline bool open_network(CallSite site, UciPackage &pkg)
{
    pkg.reset(NET_CreatePackage(kNetworkPkg));
    if (pkg.get() == nullptr) {
        NET_LOG_AT(site, NET_LVL_ERR, "file: %s.\n", kNetworkPkg);
        return false;
    }
    return true;
}

// Finds a section of the open package; a missing one frees the package and is logged for
// the caller as "section: <name>.\n".
inline struct uci_section *find_section(CallSite site, UciPackage &pkg, const char *secName)
{
    struct uci_section *sec = NET_GetSection(pkg.get(), secName);
    if (sec == nullptr) {
        pkg.reset();
        NET_LOG_AT(site, NET_LVL_ERR, "section: %s.\n", text_or_null(secName));
    }
    return sec;
}

// Both steps above: the usual start of an editor.
inline struct uci_section *open_section(CallSite site, UciPackage &pkg, const char *secName)
{
    return open_network(site, pkg) ? find_section(site, pkg, secName) : nullptr;
}

// Commits and logs "commit failed\n" for the caller on failure.
// Sets one option; a failure is logged for the caller as "option: <name>.\n".
inline bool set_logged(CallSite site, struct uci_section *sec, const char *name, const char *value)
{
    if (NET_SetOption(sec, name, value) != 0) {
        NET_LOG_AT(site, NET_LVL_ERR, "option: %s.\n", name);
        return false;
    }
    return true;
}

inline int commit_logged(CallSite site, UciPackage &pkg)
{
    if (pkg.commit() != 0) {
        NET_LOG_AT(site, NET_LVL_ERR, "commit failed\n");
        return -1;
    }
    return 0;
}

// Numbers are read into a zeroed buffer of this size and written from one.
constexpr unsigned int kNumBufLen = 64;

// Reads a decimal option; an absent option leaves *value as it was.
inline void read_int(struct uci_section *sec, const char *name, int32_t *value)
{
    char buf[kNumBufLen] = {0};
    if (NET_GetOption(sec, name, buf, sizeof buf) == 0)
        *value = static_cast<int32_t>(strtol(buf, nullptr, 10));
}

// Same, keeping the low 16 bits, as ports are kept.
inline void read_port(struct uci_section *sec, const char *name, uint16_t *value)
{
    char buf[kNumBufLen] = {0};
    if (NET_GetOption(sec, name, buf, sizeof buf) == 0)
        *value = static_cast<uint16_t>(strtol(buf, nullptr, 10));
}

// Stores a number as decimal text.
inline int write_int(struct uci_section *sec, const char *name, int value)
{
    char buf[kNumBufLen] = {0};
    snprintf(buf, sizeof buf, "%d", value);
    return NET_SetOption(sec, name, buf);
}

// Stores a record's fixed-size text field; a field that fills its array without a
// terminator is stored whole and no byte past it is read.
inline int write_text(struct uci_section *sec, const char *name, const char *field,
                      size_t fieldSize)
{
    char buf[128] = {0};
    size_t len = strnlen(field, fieldSize < sizeof buf ? fieldSize : sizeof buf - 1);
    memcpy(buf, field, len);
    return NET_SetOption(sec, name, buf);
}

} // namespace netlib
