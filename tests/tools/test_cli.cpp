// netlibctl as a user drives it: the built tool run by a real shell inside the test's device
// (its own namespaces), its exit status, the output and error lines scripts match, its help
// and its JSON.
#include <string.h>

#include <string>
#include <vector>

#include "cli_support.h"
#include "sandbox.h"

namespace
{

using clitest::kTool;
using clitest::Outcome;

// One command line (shell text after the tool's name), the log left to the tool's default.
Outcome ctl(const std::string &args, const std::string &prefix = "")
{
    int st = sandbox::sh(prefix + "env -u NETLIB_LOG " + kTool + " " + args +
                         " >/tmp/cli.out 2>/tmp/cli.err </dev/null");
    return {st, sandbox::read_file("/tmp/cli.out"), sandbox::read_file("/tmp/cli.err")};
}

// A small JSON checker: one value, strings with control bytes escaped.
bool json_value(const std::string &s, size_t &i)
{
    if (i >= s.size())
        return false;
    if (s[i] == '"') {
        for (++i; i < s.size() && s[i] != '"'; ++i)
            if (static_cast<unsigned char>(s[i]) < 0x20 ||
                (s[i] == '\\' && (++i >= s.size() || !strchr("\"\\/bfnrtu", s[i]))))
                return false;
        return i++ < s.size();
    }
    if (s[i] == '{' || s[i] == '[') {
        const char close = s[i] == '{' ? '}' : ']';
        if (s[++i] == close)
            return ++i, true;
        for (;;) {
            if (close == '}' && !(s[i] == '"' && json_value(s, i) && s[i++] == ':'))
                return false;
            if (!json_value(s, i))
                return false;
            if (s[i] == close)
                return ++i, true;
            if (s[i++] != ',')
                return false;
        }
    }
    for (const char *w : {"true", "false", "null"})
        if (s.compare(i, strlen(w), w) == 0)
            return i += strlen(w), true;
    size_t start = i;
    i += s[i] == '-';
    while (i < s.size() && (isdigit(static_cast<unsigned char>(s[i])) || s[i] == '.'))
        ++i;
    return i > start && isdigit(static_cast<unsigned char>(s[i - 1]));
}

// One object on one line, nothing else (the tool prints no blanks between tokens).
bool one_json_object(const std::string &out)
{
    size_t i = 0;
    return !out.empty() && out[0] == '{' && json_value(out, i) && i == out.size() - 1 &&
           out[i] == '\n';
}

// A two-port camera: lan1 and lan2 wired to the peer's nb1 (192.168.1.1) and nb2
// (192.168.2.1), the ports holding 192.168.N.10, and their stored package.
void two_port_device(sandbox::Peer &peer)
{
    clitest::wire_two_ports(peer);
    std::string pkg;
    for (int n = 1; n <= 2; ++n) {
        std::string port = "lan" + std::to_string(n), net = "192.168." + std::to_string(n);
        pkg += "config interface '" + port + "'\n\toption proto 'dhcpv6'\n\toption ipv4dhcp " +
               "'0'\n\toption ipv6dhcp '0'\n\toption cardtype '0'\n\toption ipaddr '" + net +
               ".10'\n\toption netmask '255.255.255.0'\n" +
               (n == 1 ? "\tlist dns '192.168.1.1'\n\tlist dns '9.9.9.9'\n" : "");
    }
    sandbox::write_file("/etc/config/network",
                        pkg + "config version 'net_version'\n\toption double '2.00'\n"
                              "config port 'port'\n\toption httpport '80'\n\toption rtspport "
                              "'554'\nconfig portmapping 'portmapping'\n\toption enable '0'\n"
                              "\toption mode '0'\nconfig ddns 'ddns'\n\toption enable '1'\n"
                              "\toption username 'owner'\n\toption password 'hunter2'\n"
                              "config pppoe 'pppoe'\n\toption enable '0'\n\toption interface "
                              "'ppp0'\n\toption username 'dsl'\n\toption password 's3cret'\n");
}

} // namespace

TEST(Cli, EveryCommandHasHelp)
{
    REQUIRE_TOOL();
    const std::string names = ctl("help --commands").out;
    size_t count = 0;
    for (size_t a = 0, b; (b = names.find('\n', a)) != std::string::npos; a = b + 1, ++count)
        EXPECT_EQ(0, ctl(names.substr(a, b - a) + " --help").status) << names.substr(a, b - a);
    EXPECT_GT(count, 40u);
}

// Command lines in order on one device: the exit status and the line scripts match, whole
// (an error line on stderr, or a line of the output).
TEST(Cli, StatusAndLinesOfCommands)
{
    REQUIRE_TOOL();
    sandbox::Peer peer;
    two_port_device(peer);
    const struct {
        const char *args;
        int status;
        const char *line;
    } cases[] = {
        // clang-format off
        {"addr set lan1 1.2.3 255.255.255.0", 2, "netlibctl addr set: ADDRESS '1.2.3' is not a dotted IPv4 address"},
        {"addr set lan1", 2, "netlibctl addr set: missing ADDRESS"},
        {"addr set lan1 1.2.3.4 255.0.255.0", 2, "netlibctl addr set: NETMASK '255.0.255.0' is not a netmask (leading one bits only)"},
        {"port-used 70000", 2, "netlibctl port-used: PORT '70000' is not a number from 1 to 65535"},
        {"probe lan1 192.168.1.1 --timeout", 2, "netlibctl probe: option --timeout needs a value"},
        {"probe lan1 192.168.1.1 --wait 3", 2, "netlibctl probe: unknown option '--wait'"},
        {"mac lan1 lan2", 2, "netlibctl mac: unexpected argument 'lan2'"},
        {"mac interface-name-of-20", 2, "netlibctl mac: INTERFACE 'interface-name-of-20' is not an interface name (1 to 15 characters)"},
        {"ether set lan1 bogus=1", 2, "netlibctl ether set: KEY 'bogus' is not one of cardtype, ipv4mode, addr, mask, gateway, mtu, ipv6mode, addr6, prefix6, gateway6, dns1, dns2"},
        {"ether set lan1 mtu", 2, "netlibctl ether set: SETTING 'mtu' is not KEY=VALUE"},
        // A refused password is not printed either.
        {"ddns set password=longer-than-sixteen", 2, "netlibctl ddns set: password '********' is longer than 16 characters"},
        {"frobnicate", 2, "netlibctl: unknown command 'frobnicate' (see netlibctl --help)"},
        {"addr", 2, "netlibctl addr: missing VERB (show, set, set-live)"},
        {"addr zap lan1", 2, "netlibctl addr: unknown VERB 'zap' (show, set, set-live)"},
        {"--bogus names", 2, "netlibctl: unknown option '--bogus'"},
        {"layout check-back 3", 2, "netlibctl layout check-back: VERSION '3' is not a number from 0 to 2"},
        // Failures of the library call: status 1, still naming the argument.
        {"mac nope", 1, "netlibctl mac: INTERFACE 'nope' has no hardware address (no such interface?)"},
        {"addr show nope", 1, "netlibctl addr show: INTERFACE 'nope' does not exist"},
        {"addr set lan2 192.168.1.10 255.255.255.0", 1, "netlibctl addr set: ADDRESS '192.168.1.10' is held by the other port lan1"},
        {"cfg get nosuch ipaddr", 1, "netlibctl cfg get: SECTION 'nosuch' does not exist in package network"},
        {"cfg get lan1 gateway", 1, "netlibctl cfg get: OPTION 'gateway' is not set in network.lan1"},
        {"ether set lan2 addr=192.168.1.77", 1, "netlibctl ether set: INTERFACE 'lan2' refused (-22): the IPv4 address lies in the other port's subnet"},
        {"defcard show", 1, "netlibctl defcard show: no default card is stored (section \"defnetcard\")"},
        {"ping lan1 192.168.1.99", 1, "netlibctl ping: HOST '192.168.1.99' did not answer through lan1 within 2 s"},
        // The refusals above reached neither the store nor the kernel.
        {"cfg get lan2 ipaddr", 0, "192.168.2.10"},
        {"addr show lan2", 0, "lan2: 192.168.2.10 netmask 255.255.255.0 gateway -"},
        {"addr set lan1 192.168.1.20 255.255.255.0", 0, ""},
        {"cfg get lan1 ipaddr", 0, "192.168.1.20"},
        {"addr show lan1", 0, "lan1: 192.168.1.20 netmask 255.255.255.0 gateway -"},
        {"--json probe lan1 192.168.1.1", 0, "\"collision\":true"},
        {"--json probe lan1 192.168.1.99 --timeout 100", 0, "\"collision\":false"},
        {"--json cfg get lan1 dns", 0, "{\"section\":\"lan1\",\"option\":\"dns\",\"value\":[\"192.168.1.1\",\"9.9.9.9\"]}"},
        {"ddns show", 0, "password       ********"},
        {"--json --show-secrets pppoe show", 0, "\"password\":\"s3cret\""},
        {"defcard set lan2", 0, ""},
        {"--json defcard show", 0, "{\"defcard\":\"lan2\"}"},
        // The driver table answers with the present configuration's pair in entry 11.
        {"drv show lan2", 0, "   11  drv_net_GetDefNetCard          0  lan2"},
        {"summary", 0, "lan2: static 192.168.2.10 netmask 255.255.255.0 gateway - mtu 1500"},
        // clang-format on
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.args);
        Outcome r = ctl(c.args);
        EXPECT_EQ(c.status, r.status) << r.err;
        if (c.status != 0) {
            EXPECT_EQ(std::string(c.line) + "\n", r.err);
        } else {
            EXPECT_NE(std::string::npos, r.out.find(c.line)) << r.out;
        }
    }
    // The reply is matched by the whole pid: give the tool pid 1 of a namespace of its own.
    EXPECT_NE(
        std::string::npos,
        ctl("--json ping lan1 192.168.1.1", "unshare --pid --fork ").out.find("\"reply\":true"));
}

TEST(Cli, JsonIsOneObjectAndSecretsStayHidden)
{
    REQUIRE_TOOL();
    sandbox::Peer peer;
    two_port_device(peer);
    sandbox::must("ip -6 addr add 2001:db8:1::10/64 dev lan1 nodad");
    sandbox::must(kTool + " cfg set lan1 note \"$(printf 'say \"hi\"\\tthere\\\\')\"");
    // Every reading command: one object, and no password unless asked for.
    const std::string json =
        "help;names;interfaces;mac lan1;port-used 1;link show lan1;addr show lan1;gateway show "
        "lan1;"
        "addr6 show lan1;resolv show lan1;cfg show;cfg show lan1;cfg get lan1 note;ether show "
        "lan1;dhcp show lan1;ports show;ddns show;pppoe show;apply;probe lan1 192.168.1.99 "
        "--timeout 50;subnet same lan1 192.168.1.77;subnet valid lan2 192.168.1.77 "
        "255.255.255.0;subnet owner 192.168.2.10;check ipv4 192.168.1.0;check ipv6 fe80::1;check "
        "addr 192.168.1.255 255.255.255.0;check mask 255.255.255.0;check port 0;check domain "
        "'cam.example.net';check hostname 'a \"quoted\" name';summary;drv show;drv cfg;drv probe "
        "lan1 192.168.1.1;layout show;layout check-back 2;";
    for (size_t a = 0, b; (b = json.find(';', a)) != std::string::npos; a = b + 1) {
        const std::string c = json.substr(a, b - a);
        Outcome r = ctl("--json " + c), plain = ctl(c);
        // A validator's "no" is status 1; its JSON still says why.
        bool answers = c.rfind("check", 0) == 0 || c.rfind("subnet", 0) == 0;
        EXPECT_TRUE(r.status == 0 || (answers && r.status == 1)) << c << ": " << r.err;
        EXPECT_TRUE(one_json_object(r.out)) << c << ": " << r.out;
        for (const std::string &out : {r.out, plain.out}) {
            EXPECT_EQ(std::string::npos, out.find("hunter2")) << c;
            EXPECT_EQ(std::string::npos, out.find("s3cret")) << c;
        }
    }
    EXPECT_EQ(std::string::npos, ctl("cfg get ddns password").out.find("hunter2"));
    ASSERT_EQ(0, ctl("ddns set user=other").status);
    // The record went back whole: the password survived a change of the user name.
    EXPECT_EQ("hunter2\n", ctl("--show-secrets cfg get ddns password").out);
    EXPECT_EQ("other\n", ctl("cfg get ddns username").out);
}
