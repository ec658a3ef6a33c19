// The "network" package as a two-port camera keeps it, and the same grown to any number of
// sections, for the configuration benchmarks. lan1 and lan2 are stored static (IPv4) and
// manual (IPv6), so reading their records touches only the stored options.
#pragma once

#include <string>

#include "bench_util.h"

namespace benchutil
{

inline const char *const kNetworkPath = "/etc/config/network";

inline std::string lan_section(int n)
{
    std::string i = std::to_string(n);
    return "\nconfig interface 'lan" + i + "'\n\toption ifname 'lan" + i +
           "'\n\toption proto 'static'\n\toption cardtype '0'\n\toption ipv4dhcp '0'\n"
           "\toption ipv6dhcp '1'\n\toption ipaddr '192.168." +
           i + ".10'\n\toption netmask '255.255.255.0'\n\toption gateway '192.168." + i +
           ".1'\n\toption mtu '1500'\n\tlist dns '192.168." + i +
           ".1'\n\tlist dns '8.8.8.8'\n\toption ip6addr '2001:db8:" + i +
           "::10/64'\n\toption ip6gw '2001:db8:" + i + "::1'\n";
}

// The sections every record reader needs: both ports and the two port sections.
inline std::string essential_sections()
{
    return lan_section(1) + lan_section(2) +
           "\nconfig port 'port'\n\toption httpport '80'\n\toption rtspport '554'\n"
           "\toption httpsport '443'\n\toption prisrvport '8000'\n"
           "\nconfig portmapping 'portmapping'\n\toption enable '0'\n\toption mode '0'\n"
           "\toption alias 'front door'\n\toption exthttpport '80'\n\toption extrtspport '554'\n"
           "\toption exthttpsport '443'\n\toption extsdcport '8000'\n"
           "\toption extprisrvport '9000'\n";
}

// The package of a two-port camera as it ships: 11 sections, about 1.5 KiB.
inline std::string camera_package()
{
    return "\nconfig interface 'loopback'\n\toption ifname 'lo'\n\toption proto 'static'\n"
           "\toption ipaddr '127.0.0.1'\n\toption netmask '255.0.0.0'\n"
           "\nconfig globals 'globals'\n\toption ula_prefix 'fd12:3456:789a::/48'\n"
           "\nconfig version 'net_version'\n\toption double '2.00'\n" +
           essential_sections() +
           "\nconfig route\n\toption interface 'lan1'\n\toption target '10.1.0.0'\n"
           "\toption netmask '255.255.0.0'\n\toption gateway '192.168.1.1'\n"
           "\nconfig route\n\toption interface 'lan2'\n\toption target '10.2.0.0'\n"
           "\toption netmask '255.255.0.0'\n\toption gateway '192.168.2.1'\n"
           "\nconfig ddns 'ddns'\n\toption enable '0'\n\toption type '2'\n"
           "\toption serverdomain 'members.example.net'\n\toption ddnsdomain 'cam.example.net'\n"
           "\toption port '80'\n\toption username 'owner'\n\toption password 'secret'\n"
           "\nconfig pppoe 'pppoe'\n\toption enable '0'\n\toption interface 'lan1'\n"
           "\toption username 'dsl-user'\n\toption password 'secret'\n";
}

// The essential sections followed by anonymous routes and named interfaces (with lists),
// sections in all.
inline std::string grown_package(int sections)
{
    std::string t = essential_sections();
    for (int i = 4; i < sections; ++i) {
        std::string n = std::to_string(i);
        if (i % 2 == 0)
            t += "\nconfig route\n\toption interface 'lan1'\n\toption target '10." +
                 std::to_string(i / 256) + "." + std::to_string(i % 256) +
                 ".0'\n\toption netmask '255.255.255.0'\n\toption gateway '192.168.1.1'\n";
        else
            t += "\nconfig interface 'vlan" + n + "'\n\toption ifname 'lan1." + n +
                 "'\n\toption proto 'static'\n\toption ipaddr '172.16." + std::to_string(i / 256) +
                 "." + std::to_string(i % 256) + "'\n\tlist dns '192.168.1.1'\n";
    }
    return t;
}

// Puts text in place as the package, with no pending changes.
inline void install_package(const std::string &text)
{
    must("rm -rf /tmp/.uci && mkdir -p /etc/config");
    if (!write_file(kNetworkPath, text)) {
        fprintf(stderr, "bench: cannot write %s\n", kNetworkPath);
        exit(2);
    }
}

} // namespace benchutil
