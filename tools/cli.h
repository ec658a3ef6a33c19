// netlibctl's frame: the per-run context, the command table entry and the helpers every
// subcommand shares (errors that name the argument, argument checks through the library).
#pragma once

#include <stdio.h>

#include <string>

class Args;

struct Ctx {
    bool json = false;
    bool secrets = false; // print passwords as stored
    bool brief = false;   // one line per interface, for the show commands that list them
    std::string cmd;      // "addr set": the prefix of every error line
};

using RunFn = int (*)(Ctx &, Args &);

// One leaf command. `name` holds one or two words ("names", "addr set").
struct Command {
    const char *name;
    const char *args;    // usage of the arguments, "" when none
    const char *summary; // one line
    const char *details; // further lines for --help, or nullptr
    RunFn run;
};

struct CommandList {
    const Command *items;
    int count;
};

// One list per subsystem, in the order the top-level help shows them.
CommandList if_commands();
CommandList addr_commands();
CommandList apply_commands();
CommandList cfg_commands();
CommandList ether_commands();
CommandList service_commands();
CommandList detect_commands();
CommandList check_commands();
CommandList mig_commands();
CommandList drv_commands();
CommandList monitor_commands();
CommandList state_commands();
CommandList checkpoint_commands();

// Exit statuses: 0 success, 1 the library call failed, 2 bad usage.
constexpr int kExitFail = 1;
constexpr int kExitUsage = 2;

// "netlibctl CMD: MESSAGE" on stderr; returns kExitFail.
int fail(const Ctx &c, const char *fmt, ...) __attribute__((format(printf, 2, 3)));
// "netlibctl CMD: ARG 'VALUE' WHY" on stderr; returns kExitUsage.
int bad_arg(const Ctx &c, const char *arg, const char *value, const char *why);

// Argument checks; each prints the error line itself and returns false.
bool check_ifname(const Ctx &c, const char *arg, const char *value);
bool check_ipv4(const Ctx &c, const char *arg, const char *value);
bool check_ipv6(const Ctx &c, const char *arg, const char *value);
bool check_mask(const Ctx &c, const char *arg, const char *value);
bool parse_long(const Ctx &c, const char *arg, const char *value, long lo, long hi, long *out);

class Json;
// One interface of a show command's list: a member object of the JSON array, a --brief line
// or its usual lines; false when there is no such interface.
using ShowOne = bool (*)(const Ctx &c, Json &j, const char *ifn);
// The list form of addr show, addr6 show and link show: the interfaces named, or every one
// the kernel lists; {"interfaces":[...]} in JSON.
int show_list(const Ctx &c, Args &a, ShowOne one);
// "UP", "DOWN" (no carrier or set down) or "UNKNOWN", for --brief lines.
const char *link_state(const char *ifn);

// Text of a password as shown: itself with --show-secrets, else stars (or "" when empty).
const char *secret(const Ctx &c, const char *value);
// "-" for an empty text, for human output.
const char *or_dash(const char *s);
