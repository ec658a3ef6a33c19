// Pieces the readers and writers of the old layout share. The old layout keeps each record in
// a package of its own, named like its section ("tcpip", "ddns", "pppoe", "port"), beside
// the interface section "lan" of "network" and the web server's "uhttpd".
#pragma once

#include <stddef.h>
#include <stdint.h>

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

// Booleans of the old layout are "true" and "false"; any other text leaves *value as it was.
void read_bool(struct uci_section *sec, const char *name, int32_t *value);
// Non-zero is "true".
int write_bool(struct uci_section *sec, const char *name, int32_t value);

// A text option read through a 64-byte buffer into a record's field: at most fieldSize - 1
// characters, terminated; an absent option leaves the field as it was.
void read_old_text(struct uci_section *sec, const char *name, char *field, size_t fieldSize);

// A record's text field (which may fill its array unterminated) as a terminated copy.
struct FieldText {
    char text[128];
};
FieldText field_text(const char *field, size_t fieldSize);

} // namespace netlib
