// What the tool refuses before the library sees it, and how it cleans up after a store that
// failed. The library takes any interface name, address or number and writes what it is
// given; these checks keep a user's typing mistake out of the live state and the store.
// Each check prints the error line itself (naming the argument and the rule) and returns
// false; the caller exits with kExitUsage.
#pragma once

#include <string>
#include <vector>

#include "cli.h"

namespace guard
{

// One of the device's interface names (the library writes an unknown name under another
// port). With `stored`, its section in package "network" must also be a name the store
// keeps (letters, digits, '_'): others are dropped silently at commit.
bool port(const Ctx &c, const char *arg, const char *value, bool stored = true);

// A unicast address fit for a port: dotted, lawful, first octet 1 to 223 but not 127.
bool address(const Ctx &c, const char *arg, const char *value);
// A netmask of prefix length 1 to 30.
bool mask(const Ctx &c, const char *arg, const char *value);
// An address that is neither the network nor the broadcast address under the mask.
bool host(const Ctx &c, const char *arg, const char *addr, const char *mask);
// A service port: 1 to 65535.
bool service_port(const Ctx &c, const char *arg, const char *value);
// The text's first rule broken as "is ..." for is_address_valid & co, or "" when valid.
std::string address_fault(const std::string &value);
std::string mask_fault(const std::string &value);

// Why package `pkg` of /etc/config cannot be loaded: missing, too large, unreadable, or
// where its syntax breaks. "" when it loads.
std::string package_trouble(const char *pkg);

// Whether a failed commit left changes of the package pending in the save directory.
bool pending(const char *pkg);

// After a store that failed: drops what the failed commit left pending in the save
// directory, so that no later commit writes it. Returns the sentence that tells the user.
std::string drop_pending(const char *pkg);

// Why a store of the package failed, after dropping what it left pending: the package's
// trouble, or the failed save, and what became of the change.
std::string store_failure(const char *pkg);

// Control characters and backslashes as C escapes, for one-line output.
std::string escaped(const std::string &text);

// The options of one section as stored, to put back those a whole-record write touched.
struct OptionCopy {
    std::string name;
    bool present = false;
    bool list = false;
    std::vector<std::string> values;
};
std::vector<OptionCopy> section_options(const char *pkg, const char *section);
// Puts every option of `before` whose name is not in `keep` back as it was, and removes
// options that appeared; commits when something changed. False (with *why) on failure.
bool restore_options(const char *pkg, const char *section, const std::vector<OptionCopy> &before,
                     const std::vector<std::string> &keep, std::string *why);

// After a live address change: the stored gateway's default route is added back when it
// went away with the old address. 0 when nothing was due or it is back (said on stdout
// unless JSON), else kExitFail with the error line.
int keep_default_route(const Ctx &c, const char *ifn);

} // namespace guard
