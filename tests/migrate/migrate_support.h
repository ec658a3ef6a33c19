// Shared pieces of the configuration-version suites: an old-layout device and what its
// readers give, the stand-in generator's package, and one start-up as the companion
// stand-in records it.
#pragma once

#include <string.h>
#include <time.h>

#include <sstream>
#include <string>
#include <vector>

#include "companion.h"
#include "libnetwork.h"
#include "sandbox.h"
#include "../config/config_support.h"

namespace migtest
{

using namespace cfgtest;

inline const char kOnePort[] = "eth0";
inline const char kTwoPorts[] = "lan1,lan2";
inline const std::string kSingleStamp = "\nconfig version 'net_version'\n\toption single '1.00'\n";

inline std::string read_pkg(const std::string &pkg)
{
    return sandbox::read_file("/etc/config/" + pkg);
}
// Writes a package from "@type:name key=value list+=value ..." (no spaces in values).
inline void write_pkg(const std::string &pkg, const std::string &spec)
{
    std::istringstream in(spec);
    std::string out, w;
    while (in >> w) {
        const bool section = w[0] == '@';
        const size_t eq = w.find('='), colon = w.find(':');
        const size_t list = !section && eq != std::string::npos && eq > 0 && w[eq - 1] == '+';
        out += section ? "config " + w.substr(1, colon - 1) + " '" + w.substr(colon + 1)
                       : (list ? "\tlist " : "\toption ") + w.substr(0, eq - list) + " '" +
                             w.substr(eq + 1);
        out += "'\n";
    }
    sandbox::write_file("/etc/config/" + pkg, out);
}
// One section of a package: from its "config" line to the blank line after it.
inline std::string block(const std::string &file, const std::string &name)
{
    const size_t at = file.rfind("config ", file.find(" '" + name + "'\n"));
    return at == std::string::npos ? "" : file.substr(at, file.find("\n\n", at) - at + 1);
}
// What the stand-in scripts recorded ("config_generate", "network restart", "lldpd stop").
inline std::string script_log()
{
    return sandbox::read_file("/tmp/network-script.log");
}

// The old firmware's packages: one port, static IPv4, IPv6 set by hand.
inline void install_old_device()
{
    // clang-format off
    write_pkg("network", "@interface:lan ifname=eth0 type=bridge ipaddr=10.20.30.40 netmask=255.255.0.0 gateway=10.20.0.1 ip6addr=2001:db8:5::40/64 ip6gw=2001:db8:5::1");
    write_pkg("tcpip", "@tcpip:tcpip ipv4dhcpmode=false ipv6mode=true cardtype=3 mtu=1400 dns+=10.20.0.53 dns+=9.9.9.9");
    write_pkg("ddns", "@ddns:ddns enable=true type=NO-IP domain=cam.example.org username=owner password=secret port=8245");
    write_pkg("pppoe", "@pppoe:pppoe enable=false interface=eth0 username=dsl password=pw");
    write_pkg("port", "@port:port httpport=8080 httpsport=8443 rtspport=8554 @portmapping:portmapping enable=true mode=1 HTTP_extport=18080 RTSP_extport=18554");
    write_pkg("uhttpd", "@uhttpd:main listen_http+=0.0.0.0:8080 listen_https+=0.0.0.0:8443");
    // clang-format on
}

// The Ethernet record as one line, texts within their fields' bounds.
inline std::string text(const NetEtherCfg &c)
{
    char b[512];
    snprintf(b, sizeof b,
             "card=%d v4=%d mtu=%d %.16s/%.16s gw %.16s v6=%d %.46s/%d gw %.46s dns %.16s %.16s",
             c.iCardType, c.iIpv4Mode, c.iMtu, c.szIpv4Addr, c.szIpv4Mask, c.szIpv4Gateway,
             c.iIpv6Mode, c.szIpv6Addr, c.iIpv6PrefixLen, c.szIpv6Gateway, c.szDns1, c.szDns2);
    return b;
}
inline std::string text(const NetPortCfg &c)
{
    char b[256];
    snprintf(b, sizeof b, "http=%u rtsp=%u https=%u map=%d mode=%d ext http=%u rtsp=%u",
             c.usHttpPort, c.usRtspPort, c.usHttpsPort, c.iPortMapEnable, c.iPortMapMode,
             c.usExtHttpPort, c.usExtRtspPort);
    return b;
}
inline const std::string kOldEther =
    "card=3 v4=0 mtu=1400 10.20.30.40/255.255.0.0 gw 10.20.0.1 "
    "v6=1 2001:db8:5::40/64 gw 2001:db8:5::1 dns 10.20.0.53 9.9.9.9";
inline std::string ether(const char *ifname)
{
    NetEtherCfg c = {};
    return NET_GetEtherCfg(ifname, &c) == 0 ? text(c) : "-1";
}

// The records as raw bytes, zeroed before the reader fills them; empty when it fails.
template <class Rec> std::string bytes(int (*reader)(Rec *))
{
    Rec r;
    memset(&r, 0, sizeof r);
    return reader(&r) == 0 ? std::string(reinterpret_cast<const char *>(&r), sizeof r) : "";
}
// What the readers give: the Ethernet and port records as text, DDNS and PPPoE as bytes.
using OldRecords = std::vector<std::string>;
inline OldRecords records(const std::string &eth, int (*ddns)(NetDdnsCfg *),
                          int (*pppoe)(NetPppoeCfg *), int (*port)(NetPortCfg *))
{
    NetPortCfg p = {};
    return {eth, bytes(ddns), bytes(pppoe), port(&p) == 0 ? text(p) : "-1"};
}
inline OldRecords old_records()
{
    NetEtherCfg e = {};
    return records(NET_GetOldEthCfg(&e) == 0 ? text(e) : "-1", NET_GetOldDdnsCfg,
                   NET_GetOldPppoeCfg, NET_GetOldPortCfg);
}

// The package the stand-in generator writes for a kind of device, plus extra text; the
// device's own capability is kept and the script trace emptied.
inline std::string generated(const char *kind, const std::string &extra = "")
{
    const char *own = getenv("NETLIB_CAP_IFNAMES");
    std::string device = own != nullptr ? own : kOnePort;
    sandbox::set_device(kind);
    sandbox::must(
        "rm -f /etc/config/network && /bin/config_generate && : >/tmp/network-script.log");
    sandbox::set_device(device);
    sandbox::write_file("/etc/config/network", read_pkg("network") + extra);
    return read_pkg("network");
}

// The first port of a generated two-interface package.
inline const char kLan1Default[] = "card=0 v4=0 mtu=1500 192.168.1.10/255.255.255.0 gw "
                                   "192.168.1.1 v6=2 /0 gw  dns 192.168.1.1 ";

// One start-up: its result, the reboots the companion stand-in recorded, its time.
struct Start {
    int result, reboots;
    double seconds;
};
inline Start start_up()
{
    sandbox::FdCheck fds;
    int before = COMP_GetRebootCount();
    timespec t0, t1;
    clock_gettime(CLOCK_MONOTONIC, &t0);
    int rc = NET_ConvertConfig();
    clock_gettime(CLOCK_MONOTONIC, &t1);
    return {rc, COMP_GetRebootCount() - before,
            static_cast<double>(t1.tv_sec - t0.tv_sec) + (t1.tv_nsec - t0.tv_nsec) / 1e9};
}

} // namespace migtest
