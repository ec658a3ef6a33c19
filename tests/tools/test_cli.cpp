// netlibctl as a user drives it: the built tool run by a real shell inside the test's device
// (its own namespaces), its exit status, its one-line errors, its help, its JSON, and the
// stand-in network script applying the stored package through it.
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "sandbox.h"

namespace
{

const std::string kTool = NETLIB_BINARY_DIR "/tools/netlibctl";

struct Outcome {
    int status;
    std::string out, err;
};

// One netlibctl command line (shell text after the tool's name). The library's log is left
// to the tool's own default, as a user at a prompt has it.
Outcome ctl(const std::string &args)
{
    int st = sandbox::sh("env -u NETLIB_LOG " + kTool + " " + args +
                         " >/tmp/cli.out 2>/tmp/cli.err </dev/null");
    return {st, sandbox::read_file("/tmp/cli.out"), sandbox::read_file("/tmp/cli.err")};
}

// A cross build's tool does not run on the build machine.
#define REQUIRE_TOOL()                                                                             \
    do {                                                                                           \
        REQUIRE_SANDBOX();                                                                         \
        if (sandbox::sh(kTool + " --help >/dev/null 2>&1") != 0)                                   \
            GTEST_SKIP() << kTool << " does not run here";                                         \
    } while (0)

int lines(const std::string &s)
{
    int n = 0;
    for (char c : s)
        n += c == '\n';
    return n;
}

// ---- A small JSON checker: one value, strings with control bytes escaped -----------------
bool json_value(const std::string &s, size_t &i);

bool json_string(const std::string &s, size_t &i)
{
    for (++i; i < s.size() && s[i] != '"'; ++i) {
        if (static_cast<unsigned char>(s[i]) < 0x20)
            return false;
        if (s[i] == '\\' && (++i >= s.size() || strchr("\"\\/bfnrtu", s[i]) == nullptr))
            return false;
    }
    return i++ < s.size();
}

// The items of an object or an array, up to and with its closing bracket.
bool json_items(const std::string &s, size_t &i, char close)
{
    if (s[++i] == close)
        return ++i, true;
    for (;;) {
        if (close == '}' && !(s[i] == '"' && json_string(s, i) && s[i++] == ':'))
            return false;
        if (!json_value(s, i))
            return false;
        if (s[i] == close)
            return ++i, true;
        if (s[i++] != ',')
            return false;
    }
}

bool json_value(const std::string &s, size_t &i)
{
    if (i >= s.size())
        return false;
    if (s[i] == '{' || s[i] == '[')
        return json_items(s, i, s[i] == '{' ? '}' : ']');
    if (s[i] == '"')
        return json_string(s, i);
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
    return !out.empty() && out[0] == '{' && lines(out) == 1 && json_value(out, i) &&
           i == out.size() - 1 && out[i] == '\n';
}

// ---- The device -------------------------------------------------------------------------
const char kTwoPortPackage[] = R"(config interface 'lan1'
	option proto 'dhcpv6'
	option ipv4dhcp '0'
	option ipv6dhcp '0'
	option cardtype '0'
	option ipaddr '192.168.1.10'
	option netmask '255.255.255.0'
	list dns '192.168.1.1'
	list dns '9.9.9.9'

config interface 'lan2'
	option proto 'dhcpv6'
	option ipv4dhcp '0'
	option ipv6dhcp '0'
	option cardtype '0'
	option ipaddr '192.168.2.10'
	option netmask '255.255.255.0'

config version 'net_version'
	option double '2.00'

config port 'port'
	option httpport '80'
	option rtspport '554'

config portmapping 'portmapping'
	option enable '0'
	option mode '0'

config ddns 'ddns'
	option enable '1'
	option username 'owner'
	option password 'hunter2'

config pppoe 'pppoe'
	option enable '0'
	option interface 'ppp0'
	option username 'dsl'
	option password 's3cret'
)";

// A two-port camera: lan1 and lan2 wired to the peer's nb1 (192.168.1.1) and nb2
// (192.168.2.1), the ports holding 192.168.N.10, and the package above.
void two_port_device(sandbox::Peer &peer)
{
    sandbox::set_device("lan1,lan2");
    for (int n = 1; n <= 2; ++n) {
        std::string port = "lan" + std::to_string(n), nb = "nb" + std::to_string(n);
        sandbox::veth(port, nb, &peer);
        peer.must("ip addr add 192.168." + std::to_string(n) + ".1/24 brd + dev " + nb);
        sandbox::addr_add(port, "192.168." + std::to_string(n) + ".10/24");
    }
    sandbox::write_file("/etc/config/network", kTwoPortPackage);
}

std::string stored(const std::string &section, const std::string &option)
{
    return sandbox::sh_out(kTool + " cfg get " + section + " " + option);
}

// ---- Help ---------------------------------------------------------------------------------

TEST(CliHelp, EveryCommandHasHelp)
{
    REQUIRE_TOOL();
    Outcome list = ctl("--json help");
    ASSERT_EQ(0, list.status);
    ASSERT_TRUE(one_json_object(list.out)) << list.out;
    Outcome names = ctl("help");
    ASSERT_EQ(0, names.status);
    std::vector<std::string> cmds;
    for (size_t a = 0, b; (b = names.out.find('\n', a)) != std::string::npos; a = b + 1)
        cmds.push_back(names.out.substr(a, b - a));
    ASSERT_GT(cmds.size(), 40u);
    for (const std::string &c : cmds) {
        Outcome h = ctl(c + " --help");
        EXPECT_EQ(0, h.status) << c;
        EXPECT_EQ(0u, h.out.find("usage: netlibctl [--json] " + c)) << c << ": " << h.out;
        EXPECT_EQ("", h.err) << c;
        EXPECT_NE(std::string::npos, list.out.find("\"" + c + "\"")) << c;
    }
    Outcome top = ctl("--help");
    EXPECT_EQ(0, top.status);
    EXPECT_EQ(0u, top.out.find("usage: netlibctl"));
    Outcome group = ctl("addr --help");
    EXPECT_EQ(0, group.status);
    EXPECT_NE(std::string::npos, group.out.find("addr set-live"));
    EXPECT_EQ(std::string::npos, group.out.find("addr6"));
}

// ---- Bad arguments: a non-zero status and one line naming the argument ------------------

TEST(CliErrors, BadArgumentsAreNamedOnOneLine)
{
    REQUIRE_TOOL();
    sandbox::Peer peer;
    two_port_device(peer);
    struct Case {
        const char *args;
        int status;
        const char *line; // the whole error line
    };
    const Case cases[] = {
        {"addr set lan1 1.2.3 255.255.255.0", 2,
         "netlibctl addr set: ADDRESS '1.2.3' is not a dotted IPv4 address"},
        {"addr set lan1", 2, "netlibctl addr set: missing ADDRESS"},
        {"addr set lan1 1.2.3.4 255.0.255.0", 2,
         "netlibctl addr set: NETMASK '255.0.255.0' is not a netmask (leading one bits only)"},
        {"port-used 70000", 2, "netlibctl port-used: PORT '70000' is not a number from 1 to 65535"},
        {"link mtu lan1 99", 2, "netlibctl link mtu: MTU '99' is not a number from 100 to 1500"},
        {"link speed lan1 fast", 2,
         "netlibctl link speed: MODE 'fast' is not one of auto, 10half, 10full, 100half, "
         "100full, 1000full"},
        {"probe lan1 192.168.1.1 --timeout=soon", 2,
         "netlibctl probe: --timeout 'soon' is not a number from 0 to 60000"},
        {"probe lan1 192.168.1.1 --timeout", 2, "netlibctl probe: option --timeout needs a value"},
        {"probe lan1 192.168.1.1 --wait 3", 2, "netlibctl probe: unknown option '--wait'"},
        {"mac lan1 lan2", 2, "netlibctl mac: unexpected argument 'lan2'"},
        {"mac interface-name-of-20", 2,
         "netlibctl mac: INTERFACE 'interface-name-of-20' is not an interface name (1 to 15 "
         "characters)"},
        {"addr6 add lan1 2001:db8::5 200", 2,
         "netlibctl addr6 add: PREFIX '200' is not a number from 3 to 127"},
        {"ether set lan1 bogus=1", 2,
         "netlibctl ether set: KEY 'bogus' is not one of cardtype, ipv4mode, addr, mask, "
         "gateway, mtu, ipv6mode, addr6, prefix6, gateway6, dns1, dns2"},
        {"ether set lan1 mtu", 2, "netlibctl ether set: SETTING 'mtu' is not KEY=VALUE"},
        // A refused password is not printed either.
        {"ddns set password=longer-than-sixteen", 2,
         "netlibctl ddns set: password '********' is longer than 16 characters"},
        {"frobnicate", 2, "netlibctl: unknown command 'frobnicate' (see netlibctl --help)"},
        {"addr", 2, "netlibctl addr: missing VERB (show, set, set-live)"},
        {"addr zap lan1", 2, "netlibctl addr: unknown VERB 'zap' (show, set, set-live)"},
        {"--bogus names", 2, "netlibctl: unknown option '--bogus'"},
        // Failures of the library call itself: status 1, still naming the argument.
        {"mac nope", 1,
         "netlibctl mac: INTERFACE 'nope' has no hardware address (no such "
         "interface?)"},
        {"addr show nope", 1, "netlibctl addr show: INTERFACE 'nope' does not exist"},
        {"addr set lan2 192.168.1.10 255.255.255.0", 1,
         "netlibctl addr set: ADDRESS '192.168.1.10' is held by the other port lan1"},
        {"cfg get nosuch ipaddr", 1,
         "netlibctl cfg get: SECTION 'nosuch' does not exist in package network"},
        {"cfg get lan1 gateway", 1,
         "netlibctl cfg get: OPTION 'gateway' is not set in "
         "network.lan1"},
        {"ether set lan2 addr=192.168.1.77", 1,
         "netlibctl ether set: INTERFACE 'lan2' refused (-22): the IPv4 address lies in the "
         "other port's subnet"},
    };
    for (const Case &c : cases) {
        Outcome r = ctl(c.args);
        EXPECT_EQ(c.status, r.status) << c.args;
        EXPECT_EQ(std::string(c.line) + "\n", r.err) << c.args;
        EXPECT_EQ("", r.out) << c.args;
    }
    // Nothing of the refusals reached the store or the kernel.
    EXPECT_EQ("192.168.2.10\n", stored("lan2", "ipaddr"));
    EXPECT_EQ(std::string::npos, sandbox::sh_out("ip -4 addr show lan2").find("192.168.1."));
}

// ---- JSON -------------------------------------------------------------------------------

TEST(CliJson, EveryReadingCommandPrintsOneObject)
{
    REQUIRE_TOOL();
    sandbox::Peer peer;
    two_port_device(peer);
    sandbox::must("ip -6 addr add 2001:db8:1::10/64 dev lan1 nodad");
    const char *const commands[] = {
        "names",
        "interfaces",
        "mac lan1",
        "port-used 1",
        "link show lan1",
        "addr show lan1",
        "addr show lan2",
        "gateway show lan1",
        "addr6 show lan1",
        "resolv show lan1",
        "cfg show",
        "cfg show lan1",
        "cfg get lan1 ipaddr",
        "cfg get lan1 dns",
        "ether show lan1",
        "dhcp show lan1",
        "ports show",
        "ddns show",
        "pppoe show",
        "apply",
        "probe lan1 192.168.1.99 --timeout 50",
        "subnet same lan1 192.168.1.77",
        "subnet valid lan2 192.168.1.77 255.255.255.0",
        "subnet owner 192.168.2.10",
        "check ipv4 192.168.1.0",
        "check ipv6 fe80::1",
        "check addr 192.168.1.255 255.255.255.0",
        "check mask 255.255.255.0",
        "check port 0",
        "check domain 'cam.example.net'",
        "check hostname 'a \"quoted\" name'",
        "summary",
        "drv show",
        "drv show lan2",
        "drv cfg",
        "drv probe lan1 192.168.1.1",
        "layout show",
        "layout check-back 2",
        "help",
    };
    for (const char *c : commands) {
        Outcome r = ctl(std::string("--json ") + c);
        EXPECT_EQ(0, r.status) << c << ": " << r.err;
        EXPECT_TRUE(one_json_object(r.out)) << c << ": " << r.out;
    }
    // Stable keys with the values the device holds.
    Outcome addr = ctl("--json addr show lan1");
    EXPECT_EQ("{\"interface\":\"lan1\",\"address\":\"192.168.1.10\",\"netmask\":"
              "\"255.255.255.0\",\"gateway\":null}\n",
              addr.out);
    Outcome names = ctl("--json names");
    EXPECT_EQ("{\"count\":2,\"names\":[\"lan1\",\"lan2\"]}\n", names.out);
    Outcome dns = ctl("--json cfg get lan1 dns");
    EXPECT_EQ("{\"section\":\"lan1\",\"option\":\"dns\",\"value\":[\"192.168.1.1\",\"9.9.9.9\"]}\n",
              dns.out);
    Outcome six = ctl("--json addr6 show lan1");
    EXPECT_NE(std::string::npos, six.out.find("{\"address\":\"2001:db8:1::10\",\"prefix\":64}"));
    // Quotes and control characters stay inside the string.
    sandbox::must(kTool + " cfg set lan1 note \"$(printf 'say \"hi\"\\tthere\\\\')\"");
    Outcome note = ctl("--json cfg get lan1 note");
    EXPECT_TRUE(one_json_object(note.out)) << note.out;
    EXPECT_NE(std::string::npos, note.out.find("\"say \\\"hi\\\"\\tthere\\\\\""));
}

// ---- Secrets ------------------------------------------------------------------------------

TEST(CliSecrets, PasswordsOnlyWhenAsked)
{
    REQUIRE_TOOL();
    sandbox::Peer peer;
    two_port_device(peer);
    for (const char *c :
         {"ddns show", "--json ddns show", "pppoe show", "--json pppoe show", "cfg show",
          "--json cfg show", "cfg get ddns password", "ddns set user=other"}) {
        Outcome r = ctl(c);
        EXPECT_EQ(0, r.status) << c;
        EXPECT_EQ(std::string::npos, r.out.find("hunter2")) << c;
        EXPECT_EQ(std::string::npos, r.out.find("s3cret")) << c;
    }
    EXPECT_NE(std::string::npos, ctl("ddns show").out.find("password       ********"));
    EXPECT_NE(std::string::npos,
              ctl("--json --show-secrets pppoe show").out.find("\"password\":\"s3cret\""));
    // The record went back whole: the password survived a change of the user name.
    EXPECT_EQ("hunter2\n", ctl("--show-secrets cfg get ddns password").out);
    EXPECT_EQ("other\n", stored("ddns", "username"));
}

// ---- Driving the device -------------------------------------------------------------------

TEST(CliDevice, AddressEndToEndProbesAndPing)
{
    REQUIRE_TOOL();
    sandbox::Peer peer;
    two_port_device(peer);
    Outcome set = ctl("addr set lan1 192.168.1.20 255.255.255.0");
    ASSERT_EQ(0, set.status) << set.err;
    EXPECT_EQ("192.168.1.20\n", stored("lan1", "ipaddr"));
    EXPECT_EQ("lan1: 192.168.1.20 netmask 255.255.255.0 gateway -\n", ctl("addr show lan1").out);

    EXPECT_NE(std::string::npos,
              ctl("--json probe lan1 192.168.1.1").out.find("\"collision\":true"));
    EXPECT_NE(std::string::npos,
              ctl("--json probe lan1 192.168.1.99 --timeout 100").out.find("\"collision\":false"));

    // The reply is matched by the whole pid: give the tool pid 1 of a namespace of its own.
    Outcome ping = {sandbox::sh("unshare --pid --fork env -u NETLIB_LOG " + kTool +
                                " --json ping lan1 192.168.1.1 >/tmp/cli.out 2>/tmp/cli.err"),
                    sandbox::read_file("/tmp/cli.out"), sandbox::read_file("/tmp/cli.err")};
    EXPECT_EQ(0, ping.status) << ping.err;
    EXPECT_NE(std::string::npos, ping.out.find("\"reply\":true"));
    Outcome silent = ctl("ping lan1 192.168.1.99");
    EXPECT_EQ(1, silent.status);
    EXPECT_EQ("netlibctl ping: HOST '192.168.1.99' did not answer through lan1 within 2 s\n",
              silent.err);

    ASSERT_EQ(0, ctl("resolv set lan2 192.168.2.1").status);
    EXPECT_EQ("lan2: nameservers 192.168.2.1 -\n", ctl("resolv show lan2").out);
}

// Kills the dnsmasq a test started in the peer: it would outlive the test otherwise.
struct Dnsmasq {
    ~Dnsmasq()
    {
        std::string pid = sandbox::read_file("/tmp/cli-dnsmasq.pid");
        if (!pid.empty())
            kill(atoi(pid.c_str()), SIGKILL);
    }
};

bool have(const char *program)
{
    return sandbox::sh(std::string("command -v ") + program + " >/dev/null 2>&1") == 0;
}

TEST(CliDevice, NetworkScriptAppliesStaticAndDhcpPorts)
{
    REQUIRE_TOOL();
    if (!have("dnsmasq") || !have("udhcpc"))
        GTEST_SKIP() << "dnsmasq (dnsmasq-base) and udhcpc are needed";
    sandbox::Peer peer;
    two_port_device(peer);
    // The device's own script finds the tool on the path, as on the camera.
    sandbox::must("ln -sf " + kTool + " /usr/bin/netlibctl");
    Dnsmasq guard;
    peer.must("dnsmasq --conf-file=/dev/null --port=0 --no-ping --bind-interfaces --user=root "
              "--group=root --interface=nb2 --dhcp-range=192.168.2.100,192.168.2.100,1h "
              "--dhcp-option=option:router,0.0.0.0 --dhcp-option=option:dns-server,0.0.0.0 "
              "--dhcp-leasefile=/tmp/cli-dnsmasq.leases --pid-file=/tmp/cli-dnsmasq.pid "
              "--log-facility=/tmp/cli-dnsmasq.log");

    // lan1: new static settings; lan2: DHCP.
    ASSERT_EQ(0, ctl("ether set lan1 addr=192.168.1.30 gateway=192.168.1.1 mtu=1400 "
                     "ipv6mode=static addr6=2001:db8:1::30 prefix6=64")
                     .status);
    ASSERT_EQ(0, ctl("dhcp on lan2").status);
    Outcome r = ctl("restart");
    ASSERT_EQ(0, r.status) << r.err << sandbox::read_file("/tmp/network-script.log");
    EXPECT_EQ("network restarted\n", r.out);

    EXPECT_EQ("lan1: 192.168.1.30 netmask 255.255.255.0 gateway 192.168.1.1\n",
              ctl("addr show lan1").out);
    EXPECT_NE(std::string::npos, ctl("link show lan1").out.find("mtu 1400"));
    EXPECT_NE(std::string::npos, ctl("addr6 show lan1").out.find("inet6 2001:db8:1::30/64"));
    EXPECT_EQ("lan2: 192.168.2.100 netmask 255.255.255.0 gateway 192.168.2.1\n",
              ctl("addr show lan2").out);
    EXPECT_EQ("# Interface lan1\nnameserver 192.168.1.1\nnameserver 9.9.9.9\n"
              "# Interface lan2\nnameserver 192.168.2.1\n",
              sandbox::read_file("/etc/resolv.conf"));
    std::string log = sandbox::read_file("/tmp/network-script.log");
    EXPECT_NE(std::string::npos, log.find("network restart\n")) << log;
    EXPECT_NE(std::string::npos, log.find("lan2 dhcp mtu 1500")) << log;
}

TEST(CliDevice, NetworkScriptOnlyRecordsWithoutTheTool)
{
    REQUIRE_TOOL();
    sandbox::Peer peer;
    two_port_device(peer);
    ASSERT_EQ(0, ctl("ether set lan1 addr=192.168.1.30").status);
    // The tool by its full path: the script itself finds no netlibctl on the path.
    EXPECT_EQ(0, ctl("restart").status);
    EXPECT_EQ("network restart\n", sandbox::read_file("/tmp/network-script.log"));
    EXPECT_EQ(std::string::npos, sandbox::sh_out("ip -4 addr show lan1").find("192.168.1.30"));
}

// ---- Layouts, default card, summary --------------------------------------------------------

TEST(CliLayout, OldPackageConvertedStampedAndRolledBack)
{
    REQUIRE_TOOL();
    sandbox::Peer peer;
    sandbox::veth("eth0", "nb1", &peer);
    sandbox::write_file("/etc/config/network", "config interface 'lan'\n"
                                               "\toption ipaddr '192.168.1.64'\n"
                                               "\toption netmask '255.255.255.0'\n");
    sandbox::write_file("/etc/config/tcpip", "config tcpip 'tcpip'\n"
                                             "\toption ipv4dhcpmode 'false'\n"
                                             "\toption mtu '1400'\n");
    sandbox::write_file("/etc/config/ddns", "config ddns 'ddns'\n\toption password 'hunter2'\n");
    sandbox::write_file("/etc/config/pppoe", "config pppoe 'pppoe'\n\toption enable 'false'\n");
    sandbox::write_file("/etc/config/port", "config port 'port'\n\toption httpport '8080'\n"
                                            "config portmapping 'portmapping'\n");
    struct Step {
        const char *args;
        const char *out;
    };
    const Step steps[] = {
        {"layout show", "package network: old layout\n"},
        {"--json layout old", nullptr},
        {"layout convert", "package network: old layout before, unmarked layout after\n"},
        {"--json layout convert", "{\"before\":\"unmarked\",\"after\":\"single\","
                                  "\"version\":\"1.00\"}\n"},
        {"--json layout check-back 0", "{\"version\":0,\"roll_back\":true}\n"},
        {"layout check-back 1", "firmware of layout version 1: no roll-back needed\n"},
        {"layout rollback", "package network: single layout before, old layout after\n"},
    };
    for (const Step &st : steps) {
        Outcome r = ctl(st.args);
        EXPECT_EQ(0, r.status) << st.args << ": " << r.err;
        if (st.out != nullptr)
            EXPECT_EQ(st.out, r.out) << st.args;
        else
            EXPECT_TRUE(one_json_object(r.out)) << r.out;
    }
    // The old record made it through both ways; its password stayed hidden on the way.
    Outcome old = ctl("--json layout old");
    EXPECT_NE(std::string::npos, old.out.find("\"addr\":\"192.168.1.64\"")) << old.out;
    EXPECT_NE(std::string::npos, old.out.find("\"mtu\":1400")) << old.out;
    EXPECT_NE(std::string::npos, old.out.find("\"http\":8080")) << old.out;
    EXPECT_EQ(std::string::npos, old.out.find("hunter2")) << old.out;
    Outcome late = ctl("layout check-back 3");
    EXPECT_EQ(2, late.status);
    EXPECT_EQ("netlibctl layout check-back: VERSION '3' is not a number from 0 to 2\n", late.err);
}

TEST(CliLayout, DefaultCardAndSummaryOfTwoPorts)
{
    REQUIRE_TOOL();
    sandbox::Peer peer;
    two_port_device(peer);
    Outcome none = ctl("defcard show");
    EXPECT_EQ(1, none.status);
    EXPECT_EQ("netlibctl defcard show: no default card is stored (section \"defnetcard\")\n",
              none.err);
    ASSERT_EQ(0, ctl("defcard set lan2").status);
    EXPECT_EQ("{\"defcard\":\"lan2\"}\n", ctl("--json defcard show").out);
    // The driver table answers with the present configuration's pair in entry 11.
    Outcome drv = ctl("drv show lan2");
    ASSERT_EQ(0, drv.status) << drv.err;
    for (const char *row : {"    2  drv_net_GetEthName             0  lan1::lan2 (2)\n",
                            "    7  drv_net_GetHostIPEx            0  192.168.2.10 255.255.255.0\n",
                            "   11  drv_net_GetDefNetCard          0  lan2\n",
                            "   18  (entries 18 to 45)             0  28 of 28 null\n"})
        EXPECT_NE(std::string::npos, drv.out.find(row)) << row << drv.out;
    EXPECT_EQ(std::string::npos, drv.out.find(" ? ")) << drv.out;
    EXPECT_EQ("lan1: static 192.168.1.10 netmask 255.255.255.0 gateway - mtu 1500\n"
              "lan2: static 192.168.2.10 netmask 255.255.255.0 gateway - mtu 1500\n",
              ctl("summary").out);
}

} // namespace
