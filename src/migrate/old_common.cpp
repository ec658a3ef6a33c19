// Opening the old packages and the value forms of the old layout.
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "libnetwork.h"
#include "migrate/old.h"
#include "base/log.h"
#include "base/unique_fd.h"

namespace netlib
{

namespace
{

constexpr const char kConfigDir[] = "/etc/config";

// An empty file is an empty package to the loader.
void ensure_package_file(const char *pkgName)
{
    char path[96] = {0};
    snprintf(path, sizeof path, "%s/%s", kConfigDir, pkgName);
    if (access(path, F_OK) == 0)
        return;
    // Owner only, as libuci creates packages: the ddns and pppoe ones hold passwords.
    UniqueFd fd(open(path, O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
}

} // namespace

struct uci_section *open_old_section(CallSite site, UciPackage &pkg, const char *pkgName,
                                     const char *secName)
{
    pkg.reset(NET_CreatePackage(pkgName));
    if (pkg.get() == nullptr) {
        NET_LOG_AT(site, NET_LVL_ERR, "file: %s.\n", pkgName);
        return nullptr;
    }
    return find_section(site, pkg, secName);
}

struct uci_section *open_old_section_for_write(CallSite site, UciPackage &pkg, const char *pkgName,
                                               const char *secType, const char *secName)
{
    ensure_package_file(pkgName);
    pkg.reset(NET_CreatePackage(pkgName));
    if (pkg.get() == nullptr) {
        NET_LOG_AT(site, NET_LVL_ERR, "file: %s.\n", pkgName);
        return nullptr;
    }
    return old_section_for_write(site, pkg, secType, secName);
}

struct uci_section *old_section_for_write(CallSite site, UciPackage &pkg, const char *secType,
                                          const char *secName)
{
    struct uci_section *sec = NET_CreateAndGetSection(pkg.get(), secType, secName);
    if (sec == nullptr) {
        pkg.reset();
        NET_LOG_AT(site, NET_LVL_ERR, "section: %s.\n", secName);
    }
    return sec;
}

FieldText field_text(const char *field, size_t fieldSize)
{
    FieldText t;
    memset(&t, 0, sizeof t);
    memcpy(t.text, field,
           strnlen(field, fieldSize < sizeof t.text ? fieldSize : sizeof t.text - 1));
    return t;
}

} // namespace netlib
