// Shared pieces of the configuration and device suites: the "network" package as the device
// and its command-line tool leave it, the same package as any commit writes it, a builder of
// packages section by section, and helpers to install, read back and compare them.
#pragma once

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif
#include <stdio.h>

#include <string>
#include <vector>

#include "libnetwork.h"
#include "sandbox.h"

namespace cfgtest
{

inline const char *const kPath = "/etc/config/network";

// Hand-edited after the factory wrote it: comments, a "package" line as "uci export"
// writes it, double quotes, bare words, a trailing comment, an anonymous section, lists,
// and the escaped single quote of the library's own writer.
inline const std::string kHandWritten = R"(# /etc/config/network: factory defaults, edited on site

package network

config interface 'loopback'
	option ifname 'lo'
	option proto 'static'
	option ipaddr '127.0.0.1'
	option netmask '255.0.0.0'

config interface 'lan'
	option ifname "eth0"
	option proto static
	option ipaddr '192.168.1.64'
	option netmask '255.255.255.0'
	option gateway '192.168.1.1'   # the site router
	option ipv4dhcp '0'
	option ipv6dhcp "0"
	option ip6addr '2001:db8::40/64'
	list dns '192.168.1.1'
	list dns "8.8.8.8"

# static routes
config route
	option interface 'lan'
	option target '10.1.0.0'
	option netmask '255.255.0.0'

config port 'port'
	option httpport '80'
	option rtspport "554"
	option httpsport 443
	option prisrvport '8001'

config portmapping 'portmapping'
	option enable '1'
	option mode '1'
	option alias 'front door'
	option exthttpport '8080'
	option extrtspport '8554'
	option exthttpsport '8443'
	option extsdcport '8000'
	option extprisrvport '9001'

config ddns 'ddns'
	option enable '0'
	option type '2'
	option serverdomain 'members.example.net'
	option ddnsdomain 'cam.example.net'
	option port '80'
	option username 'owner'
	option password 'it'\''s "x"'

config pppoe 'pppoe'
	option enable '1'
	option interface 'eth0'
	option username 'dsl-user'
	option password 'p#ss w;rd'
)";

// The same package as a commit writes it.
inline const std::string kCommitted = R"(
config interface 'loopback'
	option ifname 'lo'
	option proto 'static'
	option ipaddr '127.0.0.1'
	option netmask '255.0.0.0'

config interface 'lan'
	option ifname 'eth0'
	option proto 'static'
	option ipaddr '192.168.1.64'
	option netmask '255.255.255.0'
	option gateway '192.168.1.1'
	option ipv4dhcp '0'
	option ipv6dhcp '0'
	option ip6addr '2001:db8::40/64'
	list dns '192.168.1.1'
	list dns '8.8.8.8'

config route
	option interface 'lan'
	option target '10.1.0.0'
	option netmask '255.255.0.0'

config port 'port'
	option httpport '80'
	option rtspport '554'
	option httpsport '443'
	option prisrvport '8001'

config portmapping 'portmapping'
	option enable '1'
	option mode '1'
	option alias 'front door'
	option exthttpport '8080'
	option extrtspport '8554'
	option exthttpsport '8443'
	option extsdcport '8000'
	option extprisrvport '9001'

config ddns 'ddns'
	option enable '0'
	option type '2'
	option serverdomain 'members.example.net'
	option ddnsdomain 'cam.example.net'
	option port '80'
	option username 'owner'
	option password 'it'\''s "x"'

config pppoe 'pppoe'
	option enable '1'
	option interface 'eth0'
	option username 'dsl-user'
	option password 'p#ss w;rd'

)";

// The anonymous route section of kCommitted, with the blank line before it.
inline const std::string kRouteBlock =
    "\nconfig route\n\toption interface 'lan'\n"
    "\toption target '10.1.0.0'\n\toption netmask '255.255.0.0'\n";

inline void install(const std::string &content = kHandWritten)
{
    sandbox::write_file(kPath, content, 0600);
}

inline std::string stored()
{
    return sandbox::read_file(kPath);
}

// The block of a named section in a committed file: its "config" line and option lines.
inline std::string block(const std::string &file, const std::string &name)
{
    const std::string tail = " '" + name + "'\n";
    for (size_t at = file.find("\nconfig "); at != std::string::npos;
         at = file.find("\nconfig ", at + 1)) {
        size_t eol = file.find('\n', at + 1);
        if (eol == std::string::npos)
            break;
        std::string head = file.substr(at + 1, eol - at);
        if (head.size() > tail.size() &&
            head.compare(head.size() - tail.size(), tail.size(), tail) == 0)
            return file.substr(at + 1, file.find("\n\n", at + 1) - at);
    }
    return "";
}

// A committed file with the block of one named section replaced.
inline std::string with_block(const std::string &file, const std::string &name,
                              const std::string &newBlock)
{
    std::string old = block(file, name);
    std::string out = file;
    if (!old.empty())
        out.replace(out.find(old), old.size(), newBlock);
    return out;
}

// A committed file without the named section.
inline std::string without_block(const std::string &file, const std::string &name)
{
    std::string old = block(file, name);
    std::string out = file;
    if (!old.empty())
        out.erase(out.find(old) - 1, old.size() + 1);
    return out;
}

// "%p" as the C library prints it, for the parameter messages.
inline std::string ptr_text(const void *p)
{
    char buf[32];
    snprintf(buf, sizeof buf, "%p", p);
    return buf;
}

// One expected log line of an untagged message (message text as written in the source).
inline std::string plain(const std::string &func, const std::string &msg)
{
    return sandbox::expect_line(func, "\"" + msg + "\"");
}

// One expected log line of a parameter error.
inline std::string param(const std::string &func, const std::string &msg)
{
    return sandbox::expect_line(func, "PL_PARAM_ERROR_PRINT \"" + msg + "\"");
}

using Lines = std::vector<std::string>;

// What a configuration call logs when "network" cannot be loaded: the failed load, the one
// retry after the (empty) restore hook, then the caller's own line.
inline Lines no_package(const std::string &func)
{
    return {plain("NET_CreatePackage", "Load uci failed \\n"),
            plain("NET_CreatePackage", "Load uci failed \\n"), plain(func, "file: network.\\n")};
}

// What a configuration call logs for a missing section.
inline Lines no_section(const std::string &func, const std::string &name)
{
    return {plain("NET_GetSection", name + ".\\n"), plain(func, "section: " + name + ".\\n")};
}

// Makes /etc/config read-only for a scope: packages still load, commits fail.
class ReadOnlyConfig
{
  public:
    ReadOnlyConfig()
    {
        sandbox::must("mount --bind /etc/config /etc/config && "
                      "mount -o remount,bind,ro /etc/config");
    }
    ~ReadOnlyConfig() { sandbox::must("umount /etc/config"); }
    ReadOnlyConfig(const ReadOnlyConfig &) = delete;
    ReadOnlyConfig &operator=(const ReadOnlyConfig &) = delete;
};

// What a writer logs when its commit fails: the access layer's line, then its own.
inline Lines commit_failed(const std::string &func, const std::string &msg = "commit failed\\n")
{
    return {plain("NET_UciCommit", "commit failed\\n"), plain(func, msg)};
}

inline std::string ptr(const void *p)
{
    return ptr_text(p);
}

inline std::string tagged(const std::string &func, const std::string &tag, const std::string &msg)
{
    return sandbox::expect_line(func, tag + " \"" + msg + "\"");
}

inline Lines operator+(Lines a, const Lines &b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// One section: its type, its name, and its lines ("option proto 'static'", "list dns 'x'").
struct Section {
    std::string type;
    std::string name;
    Lines lines;
};

// A blank line before every section, options indented by a tab, values in single quotes, a
// blank line at the end.
inline std::string uci_text(const std::vector<Section> &sections)
{
    std::string out;
    for (const Section &s : sections) {
        out += "\nconfig " + s.type + " '" + s.name + "'\n";
        for (const std::string &l : s.lines)
            out += "\t" + l + "\n";
    }
    return out + "\n";
}

inline std::string opt(const std::string &name, const std::string &value)
{
    return "option " + name + " '" + value + "'";
}

inline std::string item(const std::string &name, const std::string &value)
{
    return "list " + name + " '" + value + "'";
}

inline Section loopback()
{
    return {"interface", "loopback", {opt("ifname", "lo"), opt("proto", "static")}};
}

inline void install(const std::vector<Section> &sections)
{
    sandbox::write_file(kPath, uci_text(sections), 0600);
}

// Allocations of a scope are not reported as leaks: for the paths that leave a package open
// on purpose.
class LeakAllowed
{
  public:
#if defined(__SANITIZE_ADDRESS__)
    LeakAllowed()
    {
        __lsan_disable();
    }
    ~LeakAllowed()
    {
        __lsan_enable();
    }
#else
    LeakAllowed() {}
    ~LeakAllowed() {}
#endif
};

} // namespace cfgtest

namespace modeltest = cfgtest;
