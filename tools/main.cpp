// netlibctl: see and drive the network library from a shell. Every subcommand calls the
// library's exported functions, so it exercises the same interface as a device application.
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#include "args.h"
#include "cli.h"
#include "json.h"
#include "libnetwork.h"

namespace
{

struct Group {
    const char *title;
    CommandList (*list)();
};

const Group kGroups[] = {
    {"Interfaces and link", if_commands},
    {"Addresses, gateways, routes and resolver", addr_commands},
    {"The network service", apply_commands},
    {"Stored configuration (package \"network\")", cfg_commands},
    {"Stored interface settings", ether_commands},
    {"Stored services, accounts and default card", service_commands},
    {"Detection on the wire", detect_commands},
    {"Validators", check_commands},
    {"Configuration layouts", mig_commands},
    {"Driver interface table", drv_commands},
    {"Kernel events", monitor_commands},
    {"Stored and live state", state_commands},
    {"Checkpoints: changes undone unless confirmed", checkpoint_commands},
};

std::vector<const Command *> all_commands()
{
    std::vector<const Command *> all;
    for (const Group &g : kGroups) {
        CommandList l = g.list();
        for (int i = 0; i < l.count; ++i)
            all.push_back(&l.items[i]);
    }
    return all;
}

// "  name args   summary", the summary on a line of its own when the head is long.
void entry(FILE *out, const Command &c)
{
    std::string head = std::string(c.name) + (c.args[0] ? " " : "") + c.args;
    if (head.size() > 32)
        fprintf(out, "  %s\n  %-32s %s\n", head.c_str(), "", c.summary);
    else
        fprintf(out, "  %-32s %s\n", head.c_str(), c.summary);
}

// The options every command takes, before or after the command's own words.
const char kGlobalOptions[] =
    "  -j, --json        one JSON object per command, for scripts (absent values are null)\n"
    "  -br, --brief      one line per interface (addr show, addr6 show, link show)\n"
    "  --show-secrets    print passwords as stored (else \"********\", or null when unset)\n"
    "  -v, --verbose     let the library's log through to standard error\n"
    "  --version         print the version\n"
    "  -h, --help        this help; COMMAND --help describes one command\n";

// Options some commands take; each command's --help says which.
const char kCommandOptions[] =
    "  --package NAME    cfg: another package of /etc/config (default: network)\n"
    "  --type TYPE       cfg set, cfg add-list: create the section with this type\n"
    "  --timeout MS      probe, probe6: how long to wait for an answer\n"
    "  --rfc, --fast     probe, announce: RFC 5227 timing, or it cut by 20\n"
    "  --dad             probe6: RFC 4862 duplicate-address detection\n"
    "  --count N         probe --rfc, probe6 --dad: number of probes\n"
    "  --seconds N       macmon: how long to watch\n";

// Bare "netlibctl": what to type next.
void short_usage(FILE *out)
{
    fprintf(out, "usage: netlibctl [OPTIONS] COMMAND [ARGS...]\n"
                 "e.g.:  netlibctl addr show, netlibctl -j link show lan1, netlibctl cfg show\n"
                 "Commands and options: netlibctl help (or man netlibctl)\n");
}

void usage(FILE *out)
{
    fprintf(out,
            "usage: netlibctl [OPTIONS] COMMAND [ARGS...]\n\n"
            "Options (before or after the command):\n%s\nOptions of some commands:\n%s\n"
            "Commands and verbs may be shortened to a unique prefix (a s = addr show;\n"
            "addr, link and show win a tie); \"--\" ends the options.\n",
            kGlobalOptions, kCommandOptions);
    for (const Group &g : kGroups) {
        CommandList l = g.list();
        if (l.count == 0)
            continue;
        fprintf(out, "\n%s:\n", g.title);
        for (int i = 0; i < l.count; ++i)
            entry(out, l.items[i]);
    }
    fprintf(out, "\nExit status: 0 done, 1 the library refused or failed, 2 bad usage.\n"
                 "'netlibctl COMMAND --help' describes one command.\n");
}

void leaf_help(const Command &c)
{
    printf("usage: netlibctl [OPTIONS] %s%s%s\n%s\n", c.name, c.args[0] ? " " : "", c.args,
           c.summary);
    if (c.details != nullptr)
        printf("\n%s\n", c.details);
}

// "netlibctl --json help" and "netlibctl help --commands": the command names, for scripts,
// completion and tests.
int list_commands(bool json)
{
    Json j;
    j.begin_object().begin_array("commands");
    for (const Command *c : all_commands()) {
        if (json)
            j.str(nullptr, c->name);
        else
            printf("%s\n", c->name);
    }
    j.end_array().end_object();
    if (json)
        j.print();
    return 0;
}

bool asks_help(int argc, char **argv)
{
    for (int i = 0; i < argc; ++i) {
        if (strcmp(argv[i], "--") == 0)
            return false;
        if (strcmp(argv[i], "--help") == 0 || strcmp(argv[i], "-h") == 0)
            return true;
    }
    return false;
}

// The verbs of a group ("addr" -> "show", "set", "set-live"), empty when there is no such group.
std::vector<std::string> verbs_of(const std::string &group)
{
    std::vector<std::string> verbs;
    for (const Command *c : all_commands())
        if (strncmp(c->name, group.c_str(), group.size()) == 0 && c->name[group.size()] == ' ')
            verbs.push_back(c->name + group.size() + 1);
    return verbs;
}

std::string joined(const std::vector<std::string> &words)
{
    std::string out;
    for (const std::string &w : words)
        out += (out.empty() ? "" : ", ") + w;
    return out;
}

int group_help(const std::string &group)
{
    printf("usage: netlibctl [OPTIONS] %s VERB [ARGS...]\n\n", group.c_str());
    for (const Command *c : all_commands())
        if (strncmp(c->name, group.c_str(), group.size()) == 0 && c->name[group.size()] == ' ')
            entry(stdout, *c);
    return 0;
}

const Command *find(const std::string &name)
{
    for (const Command *c : all_commands())
        if (name == c->name)
            return c;
    return nullptr;
}

// The first words: groups and single commands, each once, and "help".
std::vector<std::string> first_words()
{
    std::vector<std::string> words{"help"};
    for (const Command *c : all_commands()) {
        std::string w(c->name, strcspn(c->name, " "));
        if (std::find(words.begin(), words.end(), w) == words.end())
            words.push_back(w);
    }
    return words;
}

// A word as typed, or a prefix of one word: the exact word, else the only candidate it starts,
// else one candidate that starts every other (addr before addr6, del before del-list), else
// the one users of ip expect (a = addr, l = link, s = show). Empty with *candidates filled
// when ambiguous, empty with none when unknown.
std::string resolve(const std::string &typed, const std::vector<std::string> &words,
                    std::vector<std::string> *candidates)
{
    candidates->clear();
    if (typed.empty())
        return "";
    for (const std::string &w : words) {
        if (w == typed)
            return w;
        if (w.compare(0, typed.size(), typed) == 0)
            candidates->push_back(w);
    }
    if (candidates->size() == 1)
        return (*candidates)[0];
    for (const std::string &w : *candidates) {
        bool startsAll = true;
        for (const std::string &o : *candidates)
            startsAll = startsAll && o.compare(0, w.size(), w) == 0;
        if (startsAll)
            return w;
    }
    for (const char *habit : {"addr", "link", "show"})
        if (std::find(candidates->begin(), candidates->end(), habit) != candidates->end())
            return habit;
    return "";
}

// "--brief" is read by the show commands of interfaces; elsewhere it is refused.
bool takes_brief(const Command &c)
{
    return strcmp(c.name, "addr show") == 0 || strcmp(c.name, "addr6 show") == 0 ||
           strcmp(c.name, "link show") == 0;
}

int run(Ctx &ctx, const Command &c, int argc, char **argv)
{
    if (asks_help(argc, argv)) {
        leaf_help(c);
        return 0;
    }
    ctx.cmd = c.name;
    if (ctx.brief && !takes_brief(c)) {
        fprintf(stderr, "netlibctl %s: --brief is read by addr show, addr6 show and link show\n",
                c.name);
        return kExitUsage;
    }
    Args args(ctx, argc, argv);
    NET_Init();
    return c.run(ctx, args);
}

// "help" (the whole help), "help --commands", "help COMMAND", "help GROUP VERB".
int help(const Ctx &ctx, int argc, char **argv)
{
    if (argc == 0 && ctx.json)
        return list_commands(true);
    if (argc == 0) {
        usage(stdout);
        return 0;
    }
    if (strcmp(argv[0], "--commands") == 0)
        return list_commands(ctx.json);
    const Command *c = argc > 1 ? find(std::string(argv[0]) + " " + argv[1]) : nullptr;
    if (c == nullptr)
        c = find(argv[0]);
    if (c != nullptr) {
        leaf_help(*c);
        return 0;
    }
    if (!verbs_of(argv[0]).empty())
        return group_help(argv[0]);
    fprintf(stderr, "netlibctl help: unknown COMMAND '%s'\n", argv[0]);
    return kExitUsage;
}

// Global options anywhere before a lone "--", taken out of the arguments; the rest in order.
// An unknown option before the command is an error; after it, it is the command's own.
int take_globals(Ctx &ctx, int argc, char **argv, std::vector<char *> *rest, bool *verbose)
{
    bool positional = false;
    for (int i = 1; i < argc; ++i) {
        const char *a = argv[i];
        if (positional || a[0] != '-' || (a[1] == '\0')) {
            rest->push_back(argv[i]);
            continue;
        }
        if (strcmp(a, "--") == 0) {
            positional = true;
            rest->push_back(argv[i]);
        } else if (strcmp(a, "--json") == 0 || strcmp(a, "-j") == 0) {
            ctx.json = true;
        } else if (strcmp(a, "--brief") == 0 || strcmp(a, "-br") == 0) {
            ctx.brief = true;
        } else if (strcmp(a, "--show-secrets") == 0) {
            ctx.secrets = true;
        } else if (strcmp(a, "-v") == 0 || strcmp(a, "--verbose") == 0) {
            *verbose = true;
        } else if (strcmp(a, "--version") == 0) {
            printf("netlibctl %s (libnetwork %s)\n", NETLIBCTL_VERSION, NETLIBCTL_VERSION);
            return 0;
        } else if (!rest->empty()) {
            rest->push_back(argv[i]);
        } else if (strcmp(a, "--help") == 0 || strcmp(a, "-h") == 0) {
            usage(stdout);
            return 0;
        } else {
            fprintf(stderr, "netlibctl: unknown option '%s'\n", a);
            return kExitUsage;
        }
    }
    return -1;
}

} // namespace

int main(int argc, char **argv)
{
    Ctx ctx;
    bool verbose = false;
    std::vector<char *> rest;
    int rc = take_globals(ctx, argc, argv, &rest, &verbose);
    if (rc >= 0)
        return rc;
    if (rest.empty()) {
        short_usage(stderr);
        return kExitUsage;
    }
    rest.push_back(nullptr);
    char **args = rest.data();
    int n = static_cast<int>(rest.size()) - 1;
    // The library's own log stays out of the way unless asked for (or routed elsewhere).
    if (verbose)
        setenv("NETLIB_LOG", "stderr", 0);
    else
        setenv("NETLIB_LOG", "none", 0);

    std::vector<std::string> candidates;
    std::string word = resolve(args[0], first_words(), &candidates);
    if (word.empty() && !candidates.empty()) {
        fprintf(stderr, "netlibctl: ambiguous command '%s' (%s)\n", args[0],
                joined(candidates).c_str());
        return kExitUsage;
    }
    if (word.empty()) {
        fprintf(stderr, "netlibctl: unknown command '%s' (see netlibctl --help)\n", args[0]);
        return kExitUsage;
    }
    if (word == "help")
        return help(ctx, n - 1, args + 1);
    std::vector<std::string> verbs = verbs_of(word);
    if (verbs.empty()) {
        const Command *one = find(word);
        return run(ctx, *one, n - 1, args + 1);
    }
    if (n < 2) {
        fprintf(stderr, "netlibctl %s: missing VERB (%s)\n", word.c_str(), joined(verbs).c_str());
        return kExitUsage;
    }
    std::string verb = resolve(args[1], verbs, &candidates);
    if (verb.empty() && asks_help(n - 1, args + 1))
        return group_help(word);
    if (verb.empty()) {
        fprintf(stderr, "netlibctl %s: %s VERB '%s' (%s)\n", word.c_str(),
                candidates.empty() ? "unknown" : "ambiguous", args[1],
                joined(candidates.empty() ? verbs : candidates).c_str());
        return kExitUsage;
    }
    return run(ctx, *find(word + " " + verb), n - 2, args + 2);
}
