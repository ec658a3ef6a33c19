// netlibctl: see and drive the network library from a shell. Every subcommand calls the
// library's exported functions, so it exercises the same interface as a device application.
#include <stdlib.h>
#include <string.h>

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

void usage(FILE *out)
{
    fprintf(out, "usage: netlibctl [--json] [--show-secrets] [-v] COMMAND [ARGS...]\n\n"
                 "  --json          one JSON object per command, for scripts\n"
                 "  --show-secrets  print passwords as stored\n"
                 "  -v, --verbose   let the library's log through to standard error\n");
    for (const Group &g : kGroups) {
        CommandList l = g.list();
        if (l.count == 0)
            continue;
        fprintf(out, "\n%s:\n", g.title);
        for (int i = 0; i < l.count; ++i)
            entry(out, l.items[i]);
    }
    fprintf(out, "\n'netlibctl COMMAND --help' describes one command.\n");
}

void leaf_help(const Command &c)
{
    printf("usage: netlibctl [--json] %s%s%s\n%s\n", c.name, c.args[0] ? " " : "", c.args,
           c.summary);
    if (c.details != nullptr)
        printf("\n%s\n", c.details);
}

// "netlibctl --json help": the command names, for scripts and tests.
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

// The verbs of a group ("addr" -> "show, set, set-live"), or "" when there is no such group.
std::string verbs_of(const char *group)
{
    std::string verbs;
    size_t n = strlen(group);
    for (const Command *c : all_commands()) {
        if (strncmp(c->name, group, n) != 0 || c->name[n] != ' ')
            continue;
        if (!verbs.empty())
            verbs += ", ";
        verbs += c->name + n + 1;
    }
    return verbs;
}

int group_help(const char *group)
{
    printf("usage: netlibctl [--json] %s VERB [ARGS...]\n\n", group);
    size_t n = strlen(group);
    for (const Command *c : all_commands())
        if (strncmp(c->name, group, n) == 0 && c->name[n] == ' ')
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

int run(Ctx &ctx, const Command &c, int argc, char **argv)
{
    if (asks_help(argc, argv)) {
        leaf_help(c);
        return 0;
    }
    ctx.cmd = c.name;
    Args args(ctx, argc, argv);
    NET_Init();
    return c.run(ctx, args);
}

// "help", "help COMMAND", "help GROUP VERB".
int help(const Ctx &ctx, int argc, char **argv)
{
    if (argc == 0)
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

} // namespace

int main(int argc, char **argv)
{
    Ctx ctx;
    bool verbose = false;
    int i = 1;
    for (; i < argc && argv[i][0] == '-'; ++i) {
        if (strcmp(argv[i], "--json") == 0) {
            ctx.json = true;
        } else if (strcmp(argv[i], "--show-secrets") == 0) {
            ctx.secrets = true;
        } else if (strcmp(argv[i], "-v") == 0 || strcmp(argv[i], "--verbose") == 0) {
            verbose = true;
        } else if (strcmp(argv[i], "--help") == 0 || strcmp(argv[i], "-h") == 0) {
            usage(stdout);
            return 0;
        } else {
            fprintf(stderr, "netlibctl: unknown option '%s'\n", argv[i]);
            return kExitUsage;
        }
    }
    if (i >= argc) {
        usage(stderr);
        return kExitUsage;
    }
    // The library's own log stays out of the way unless asked for (or routed elsewhere).
    if (verbose)
        setenv("NETLIB_LOG", "stderr", 0);
    else
        setenv("NETLIB_LOG", "none", 0);

    const char *word = argv[i];
    if (strcmp(word, "help") == 0)
        return help(ctx, argc - i - 1, argv + i + 1);
    if (i + 1 < argc) {
        const Command *two = find(std::string(word) + " " + argv[i + 1]);
        if (two != nullptr)
            return run(ctx, *two, argc - i - 2, argv + i + 2);
    }
    if (const Command *one = find(word))
        return run(ctx, *one, argc - i - 1, argv + i + 1);
    std::string verbs = verbs_of(word);
    if (verbs.empty()) {
        fprintf(stderr, "netlibctl: unknown command '%s' (see netlibctl --help)\n", word);
        return kExitUsage;
    }
    if (i + 1 < argc && asks_help(argc - i - 1, argv + i + 1))
        return group_help(word);
    if (i + 1 >= argc)
        fprintf(stderr, "netlibctl %s: missing VERB (%s)\n", word, verbs.c_str());
    else
        fprintf(stderr, "netlibctl %s: unknown VERB '%s' (%s)\n", word, argv[i + 1], verbs.c_str());
    return kExitUsage;
}
