// What netlibctl refuses or repairs where the library would take the input: the built tool in
// a real shell on a two-port device, each row a command line ($T is the tool), its exit
// status and a fragment of its output (or of a file) that must be there, or with a leading
// '!' must not.
#include <string>

#include "cli_support.h"
#include "sandbox.h"

namespace
{

using clitest::kTool;

struct Row {
    const char *line;
    int status;
    const char *fragment;
    const char *file = nullptr; // nullptr: standard output and error
};

template <size_t N> void run(const Row (&rows)[N])
{
    for (const Row &r : rows) {
        SCOPED_TRACE(r.line);
        int st = sandbox::sh("T=" + kTool + "; export NETLIBCTL=$T NETLIB_LOG=none; { " + r.line +
                             "; } >/tmp/g.out 2>/tmp/g.err </dev/null");
        std::string text =
            r.file ? sandbox::read_file(r.file)
                   : sandbox::read_file("/tmp/g.out") + sandbox::read_file("/tmp/g.err");
        EXPECT_EQ(r.status, st) << text;
        bool absent = r.fragment[0] == '!';
        EXPECT_EQ(absent, text.find(r.fragment + absent) == std::string::npos) << text;
    }
}

// lan1 and lan2 wired to the peer's 192.168.N.1, holding 192.168.N.10, and the default
// package (lan1 stores the gateway 192.168.1.1).
void device(sandbox::Peer &peer)
{
    clitest::wire_two_ports(peer);
    sandbox::must("/bin/config_generate");
}

} // namespace

TEST(CliGuards, RefusedInput)
{
    REQUIRE_TOOL();
    sandbox::Peer peer;
    device(peer);
    const Row rows[] = {
        // clang-format off
        {"$T resolv set bogus 1.1.1.1 2.2.2.2", 2, "INTERFACE 'bogus' is not an interface of this device (lan1, lan2)"},
        {"$T resolv set lan1/../x 1.1.1.1", 2, "not an interface of this device"},
        {"$T defcard set \"$(printf 'lan1\\tx')\"", 2, "INTERFACE 'lan1\\tx' is not an interface"},
        {"$T apply bogus0", 2, "INTERFACE 'bogus0' is not an interface"},
        {"$T ether mtu br-lan 1400", 2, "INTERFACE 'br-lan' is not an interface"},
        {"$T addr set lan1 255.255.255.255 255.255.255.0", 2, "ADDRESS '255.255.255.255' is not a unicast address"},
        {"$T addr set lan1 127.0.0.1 255.0.0.0", 2, "is not a unicast address"},
        {"$T addr set lan1 192.168.1.0 255.255.255.0", 2, "ADDRESS '192.168.1.0' is not a lawful address"},
        {"$T ether addr lan1 192.168.1.255 255.255.255.0", 2, "is the network or broadcast address of netmask"},
        {"$T addr set lan1 192.168.1.5 0.0.0.0", 2, "NETMASK '0.0.0.0' is not a netmask of prefix length 1 to 30"},
        {"$T ether set lan1 ipv4mode=7", 2, "ipv4mode '7' is not a number from 0 to 1"},
        {"$T ether set lan1 ipv6mode=-3", 2, "ipv6mode '-3'"},
        {"$T ether set lan1 prefix6=0", 2, "prefix6 '0'"},
        {"$T ports set http=0", 2, "http '0' is not a port (1 to 65535)"},
        {"$T ddns set port=0", 2, "port '0' is not a port"},
        // Nothing of the above reached the resolver file or the store.
        {"true", 0, "!1.1.1.1", "/etc/resolv.conf"},
        // clang-format on
    };
    run(rows);
}

TEST(CliGuards, StateAfterChanges)
{
    REQUIRE_TOOL();
    sandbox::Peer peer;
    device(peer);
    const Row rows[] = {
        // clang-format off
        {"$T gateway add lan1 10.0.0.1", 1, "GATEWAY '10.0.0.1' is unreachable: outside the subnet of lan1"},
        {"$T gateway add lan1 192.168.1.1", 0, "added"},
        {"$T gateway add lan1 192.168.1.1", 1, "lan1 already has a default route, via 192.168.1.1"},
        {"$T addr set lan1 192.168.1.20 255.255.255.0", 0, "default route via 192.168.1.1 (stored gateway) added back"},
        {"ip route show default dev lan1", 0, "via 192.168.1.1"},
        {"$T ether set lan2 mtu=1400", 0, "!list dns ''", "/etc/config/network"},
        {"$T dhcp on lan2 && $T dhcp off lan2", 0, "DHCP off stored (proto dhcpv6)"},
        {"$T dhcp off lan2", 0, "DHCP already off"},
        {"$T check ipv4 192.168.1.0", 1, "is_ipaddr_lawful no"},
        {"$T --json check port 0", 1, "\"valid\":false"},
        {"$T subnet same lan1 10.0.0.1", 1, "does not lie"},
        {"$T subnet valid lan2 192.168.1.77 255.255.255.0", 1, "refused"},
        // A stored value with a line break prints as one line and starts no DHCP client.
        {"$T cfg set lan1 gateway \"$(printf 'x\\nlan2 dhcp')\" && $T apply", 1, "stored gateway 'x\\nlan2 dhcp' is not a dotted IPv4 address"},
        {"$T cfg set lan2 mtu 99 && $T apply lan2", 1, "stored MTU '99' is not from 100 to 1500"},
        {"/etc/init.d/network restart", 1, "!udhcpc", "/tmp/network-script.log"},
        // clang-format on
    };
    run(rows);
}

TEST(CliGuards, FailedStoresAndTheirCauses)
{
    REQUIRE_TOOL();
    sandbox::Peer peer;
    device(peer);
    // A full /etc/config: the commit fails after its change went to the save directory.
    const std::string full = "cp /etc/config/network /tmp/n && mount -t tmpfs -o size=8k tmpfs "
                             "/etc/config && cp /tmp/n /etc/config/network && (cat /dev/zero "
                             ">/etc/config/fill 2>/dev/null; true)";
    const Row rows[] = {
        // clang-format off
        {"$T cfg unset nosuch x", 1, "!--type"},
        {full.c_str(), 0, ""},
        {"$T ether mtu lan1 1400", 1, "could not be stored: package network could not be saved; the change was dropped"},
        {"$T addr set lan1 192.168.1.30 255.255.255.0", 1, "ADDRESS '192.168.1.30' could not be stored for lan1"},
        {"rm /etc/config/fill && $T ether mtu lan2 1300", 0, "!1400", "/etc/config/network"},
        {"true", 0, "!192.168.1.30", "/etc/config/network"},
        {"umount /etc/config && head -c 11000000 /dev/zero | tr '\\0' '#' >/etc/config/network && $T ether show lan1", 1, "is 10.5 MiB, more than the 4 MiB"},
        {"echo 'garbage \"' >/etc/config/network && $T cfg show", 1, "is not a valid package: Parse error"},
        {"rm /etc/config/network && $T layout convert", 1, "nothing to convert: package network cannot be loaded: /etc/config/network does not exist"},
        // clang-format on
    };
    run(rows);
}
