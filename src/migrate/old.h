// Pieces the readers and writers of the old layout share. The old layout keeps each record in
// a package of its own, named like its section ("tcpip", "ddns", "pppoe", "port"), beside
// the interface section "lan" of "network" and the web server's "uhttpd".
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "config/fields.h"
#include "config/uci_access.h"
#include "base/log.h"

namespace netlib
{

constexpr const char kOldTcpipPkg[] = "tcpip";
constexpr const char kOldDdnsPkg[] = "ddns";
constexpr const char kOldPppoePkg[] = "pppoe";
constexpr const char kOldPortPkg[] = "port";
constexpr const char kUhttpdPkg[] = "uhttpd";

// Opens an old package and finds a section of it; logs "file: <package>.\n" or
// "section: <name>.\n" for the caller.
struct uci_section *open_old_section(CallSite site, UciPackage &pkg, const char *pkgName,
                                     const char *secName);

// For writing: creates the package's empty file when it is missing (a device that never had
// the old layout), opens it, and finds or creates the section.
struct uci_section *open_old_section_for_write(CallSite site, UciPackage &pkg, const char *pkgName,
                                               const char *secType, const char *secName);

// Finds or creates another section of a package open for writing.
struct uci_section *old_section_for_write(CallSite site, UciPackage &pkg, const char *secType,
                                          const char *secName);

// Booleans of the old layout: the old firmware reads these spellings, and any other value
// is written as "true". Any other text read leaves the field as it was.
inline constexpr Word kOldBool[] = {{1, "true"}, {0, "false"}};

// A record's text field (which may fill its array unterminated) as a terminated copy.
struct FieldText {
    char text[128];
};
FieldText field_text(const char *field, size_t fieldSize);

} // namespace netlib
