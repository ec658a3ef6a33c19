// netlibctl's habits as a user of ip and uci types them: the built tool in a real shell inside
// the test's device, abbreviations, options after the command, lists and brief lines, dotted
// paths, pending changes, export and import, one JSON shape, help, and the log stand-in's
// warnings.
#include <string>

#include "cli_support.h"
#include "sandbox.h"

namespace
{

using clitest::Outcome;
using clitest::run;

// lan1 and lan2 wired to the peer, holding 192.168.N.10/24, with their stored package.
void device(sandbox::Peer &peer)
{
    clitest::wire_two_ports(peer);
    std::string pkg;
    for (const char *n : {"1", "2"})
        pkg += std::string("config interface 'lan") + n + "'\n\toption ipaddr '192.168." + n +
               ".10'\n\toption netmask '255.255.255.0'\n\toption mtu '1500'\n";
    sandbox::write_file("/etc/config/network",
                        pkg + "config ddns 'ddns'\n\toption enable '1'\n\toption password 'pw1'\n"
                              "config pppoe 'pppoe'\n\toption enable '0'\n\toption interface "
                              "'ppp0'\n\toption password 'pw2'\n"
                              "config port 'port'\n\toption httpport '80'\nconfig portmapping "
                              "'portmapping'\n\toption enable '0'\n");
    sandbox::must("ip -6 addr add 2001:db8:1::10/64 dev lan1 nodad");
}

struct Row {
    const char *line, *input;
    int status;
    const char *want; // in stdout for status 0, else in stderr
};

void check_rows(const Row *rows, size_t n)
{
    for (size_t i = 0; i < n; ++i) {
        SCOPED_TRACE(rows[i].line);
        Outcome r = run(rows[i].line, rows[i].input);
        EXPECT_EQ(rows[i].status, r.status) << r.out << r.err;
        const std::string &where = rows[i].status == 0 ? r.out : r.err;
        EXPECT_NE(std::string::npos, where.find(rows[i].want)) << where;
    }
}

} // namespace

// In order on one device: each row's status and a text of its output or error.
TEST(CliHabits, LinesAsUsersOfIpAndUciTypeThem)
{
    REQUIRE_TOOL();
    sandbox::Peer peer;
    device(peer);
    const Row rows[] = {
        // clang-format off
        {"netlibctl", "", 2, "netlibctl help"},
        {"netlibctl help", "", 0, "--timeout MS"},
        {"netlibctl --help", "", 0, "-br, --brief"},
        {"netlibctl --version", "", 0, "netlibctl 1.0.0"},
        {"netlibctl names --json", "", 0, "{\"count\":2,"},
        {"netlibctl -j names", "", 0, "{\"count\":2,"},
        {"netlibctl a s", "", 0, "lan2: 192.168.2.10 netmask 255.255.255.0"},
        {"netlibctl -br a s", "", 0, "192.168.1.10/24"},
        {"netlibctl addr show lan1 lan2 -j", "", 0, "{\"interfaces\":[{\"interface\":\"lan1\""},
        {"netlibctl addr6 sh -br", "", 0, "2001:db8:1::10/64"},
        {"netlibctl l s --brief", "", 0, "mtu 1500"},
        {"netlibctl link show", "", 0, "lan2: mtu 1500"},
        {"netlibctl c s", "", 2, "ambiguous command 'c' (cfg, check, checkpoint)"},
        {"netlibctl cfg del-s", "", 2, "missing SECTION"},
        {"netlibctl names -br", "", 2, "--brief is read by addr show"},
        {"netlibctl a s nope", "", 1, "INTERFACE 'nope' does not exist"},
        {"netlibctl cfg get network.lan1.ipaddr", "", 0, "192.168.1.10"},
        {"netlibctl cfg get network.lan1", "", 0, "interface"},
        {"netlibctl cfg set network.lan1.note=\"a'b\\\"c\\\\d\"", "", 0, ""},
        {"netlibctl cfg show lan1", "", 0, "network.lan1.note='a'\\''b\"c\\d'"},
        {"netlibctl cfg show network.lan2", "", 0, "network.lan2.ipaddr='192.168.2.10'"},
        {"netlibctl cfg del network.lan1.note && netlibctl cfg get lan1 note", "", 1, "OPTION 'note' is not set"},
        {"netlibctl cfg batch", "set network.lan1.mtu='1400'\nadd_list network.lan1.dns=9.9.9.9\n# note\ndel network.lan2.mtu\n", 0, ""},
        {"netlibctl cfg changes", "", 0, "network.lan1.mtu='1400'\n|network.lan1.dns='9.9.9.9'\n-network.lan2.mtu\n"},
        {"netlibctl cfg revert network.lan2 && netlibctl cfg changes", "", 0, "network.lan1.mtu='1400'\n|network.lan1.dns='9.9.9.9'\n"},
        {"netlibctl cfg commit && netlibctl cfg changes && grep -c 1400 /etc/config/network && netlibctl cfg get lan2 mtu", "", 0, "1\n1500\n"},
        {"printf '# mine\\nconfig a b\\n' >/etc/config/hand && netlibctl cfg batch && netlibctl cfg changes && grep -c 1300 /etc/config/network && head -1 /etc/config/hand", "set network.lan2.mtu=1300\ncommit\n", 0, "1\n# mine\n"},
        {"netlibctl cfg batch", "set network.lan1.x='unterminated\n", 1, "line 1: unterminated quote"},
        {"netlibctl cfg batch", "frob network.lan1\n", 1, "line 1: 'frob' is not set"},
        // The log stand-in: a target or level it cannot use is said once, and the log goes on.
        {"NETLIB_LOG=bogus netlibctl cfg get --package nosuch a b 2>&1 | grep -c companion:", "", 0, "1\n"},
        {"NETLIB_LOG=bogus netlibctl cfg get --package nosuch a b", "", 1, "[NETWORK][NET_CreatePackage]"},
        {"NETLIB_LOG=file:/nonexistent/x netlibctl cfg get --package nosuch a b", "", 1, "NETLIB_LOG 'file:/nonexistent/x' cannot be written"},
        {"NETLIB_LOG=stderr NETLIB_LOG_LEVEL=abc netlibctl cfg get --package nosuch a b", "", 1, "using level 6"},
        // The manual page names every command; completion offers the tool's own words.
        {"bash -c '. " NETLIB_SOURCE_DIR "/tools/netlibctl.bash-completion; COMP_WORDS=(netlibctl cfg co); COMP_CWORD=2; _netlibctl; echo ${COMPREPLY[*]}'", "", 0, "commit\n"},
        {"cmake --install " NETLIB_BINARY_DIR " --prefix /tmp/p >/dev/null && ls /tmp/p/share/man/man1/netlibctl.1 /tmp/p/share/bash-completion/completions/netlibctl", "", 0, "completions/netlibctl\n/tmp/p/share/man/man1/netlibctl.1\n"},
        // clang-format on
    };
    check_rows(rows, sizeof rows / sizeof rows[0]);
    EXPECT_EQ("", run("for w in $(netlibctl help --commands | cut -d' ' -f1 | sort -u); do grep "
                      "-q \"^\\.B.*$w\" " NETLIB_SOURCE_DIR "/tools/netlibctl.1 || echo $w; done")
                      .out);
}

// Export, then import, gives the package's file back byte for byte.
TEST(CliHabits, ExportImportRoundTrip)
{
    REQUIRE_TOOL();
    const std::string file = "\nconfig thing 'a'\n\toption q 'it'\\''s \"x\" \\ and \\\\'\n"
                             "\toption nl 'one\ntwo\n'\n\tlist l 'x'\n\tlist l 'y'\\''z'\n"
                             "\nconfig other\n\toption v '#;$'\n\n";
    sandbox::write_file("/etc/config/rt", file);
    Outcome r = run("netlibctl cfg export rt >/tmp/rt && netlibctl cfg import rt </tmp/rt");
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_EQ(file, sandbox::read_file("/etc/config/rt"));
    EXPECT_EQ("package rt\n" + file, sandbox::read_file("/tmp/rt"));
}

// Every reading command's JSON parses and has the one shape: absent values null, never "";
// numbers and switches typed (cfg values are uci's texts); passwords masked or null.
TEST(CliHabits, JsonOfEveryReadingCommandHasOneShape)
{
    REQUIRE_TOOL();
    sandbox::Peer peer;
    device(peer);
    const char *const reads[] = {
        "names",
        "interfaces",
        "mac lan1",
        "port-used 1",
        "link show",
        "link show lan1",
        "addr show",
        "addr show lan1",
        "addr6 show",
        "addr6 show lan1",
        "gateway show lan1",
        "resolv show lan1",
        "ether show lan1",
        "ether show lan2",
        "dhcp show lan1",
        "ports show",
        "ddns show",
        "pppoe show",
        "summary",
        "drv show lan1",
        "drv cfg",
        "drv probe lan1 192.168.1.1",
        "layout show",
        "check ipv4 1.2.3.4",
        "subnet same lan1 192.168.1.7",
        "cfg show",
        "cfg get lan1 ipaddr",
        "cfg changes",
    };
    const std::string checker =
        "/usr/bin/python3 -c 'import json,sys\n"
        "def walk(v, k, cfg):\n"
        "  if isinstance(v, dict): [walk(x, kk, cfg) for kk, x in v.items()]\n"
        "  elif isinstance(v, list): [walk(x, k, cfg) for x in v]\n"
        "  elif v == \"\" or (not cfg and isinstance(v, str) and v.lstrip(\"-\").isdigit()): "
        "sys.exit(\"untyped %s=%r\" % (k, v))\n"
        "  elif k == \"password\" and v not in (None, \"********\"): sys.exit(\"secret shown\")\n"
        "walk(json.load(sys.stdin), \"\", sys.argv[1] == \"cfg\")' ";
    for (const char *c : reads) {
        Outcome r = run("netlibctl --json " + std::string(c) + " | " + checker + c);
        EXPECT_EQ(0, r.status) << c << ": " << r.err;
    }
}
