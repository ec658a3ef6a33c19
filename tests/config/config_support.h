// Shared pieces of the configuration and device suites: a builder of "network" packages as a
// commit writes them, helpers to install and read back the real file, and the expected texts
// of log lines.
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
using Lines = std::vector<std::string>;

inline void install(const std::string &content)
{
    sandbox::write_file(kPath, content, 0600);
}

inline std::string stored()
{
    return sandbox::read_file(kPath);
}

// One section: its type, its name, and its lines ("option proto 'static'", "list dns 'x'").
struct Section {
    std::string type;
    std::string name;
    Lines lines;
};

// As a commit writes it: a blank line before every section, options indented by a tab,
// values in single quotes, a blank line at the end.
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

inline void install(const std::vector<Section> &sections)
{
    install(uci_text(sections));
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

// "%p" as the C library prints it, for the parameter messages.
inline std::string ptr(const void *p)
{
    char buf[32];
    snprintf(buf, sizeof buf, "%p", p);
    return buf;
}

// Expected log lines: untagged, a parameter error, any other tag.
inline std::string plain(const std::string &func, const std::string &msg)
{
    return sandbox::expect_line(func, "\"" + msg + "\"");
}

inline std::string param(const std::string &func, const std::string &msg)
{
    return sandbox::expect_line(func, "PL_PARAM_ERROR_PRINT \"" + msg + "\"");
}

inline std::string tagged(const std::string &func, const std::string &tag, const std::string &msg)
{
    return sandbox::expect_line(func, tag + " \"" + msg + "\"");
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
#endif
};

} // namespace cfgtest
