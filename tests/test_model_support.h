// Shared pieces of the configuration-model, subnet and route suites, over those of the
// configuration-store suites: the "network" package built section by section the way the uci
// command-line tool writes it.
#pragma once

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

#include <string>
#include <vector>

#include "test_cfg_common.h"

namespace modeltest
{

using cfgtest::Lines;
using cfgtest::no_package;
using cfgtest::no_section;
using cfgtest::param;
using cfgtest::plain;
using cfgtest::ReadOnlyConfig;
using cfgtest::stored;

inline const char *const kNetworkPath = cfgtest::kPath;

inline std::string ptr(const void *p)
{
    return cfgtest::ptr_text(p);
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
    sandbox::write_file(kNetworkPath, uci_text(sections), 0600);
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

} // namespace modeltest
