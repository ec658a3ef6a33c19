// The UCI access layer on the real "/etc/config/network" of the sandbox: reading a file
// edited by hand, the bounded copy of NET_GetOption, the retry of a failed load, edits and
// commits; and the refusals of every configuration call, which leave the file as it was and
// log the lines log readers match.
#include <string.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <uci.h>

#include "libnetwork.h"
#include "sandbox.h"
#include "config_support.h"

using namespace cfgtest;
using sandbox::FdCheck;
using sandbox::LogCapture;

namespace
{

// Comments, a "package" line, double quotes, bare words, a trailing comment, an anonymous
// section, lists, and the escaped single quote of the library's own writer.
const std::string kHandWritten = R"(# edited on site
package network

config interface 'lan'
	option ifname "eth0"
	option proto static
	option ipaddr '192.168.1.64'
	option gateway '192.168.1.1'   # the site router
	option mtu 1400
	list dns '192.168.1.1'
	list dns "8.8.8.8"

# static routes
config route
	option target '10.1.0.0'

config ddns 'ddns'
	option username 'front door'
	option password 'it'\''s "x"'

config pppoe 'pppoe'
	option password 'p#ss w;rd'
)";

// "network", freed at the end of the scope unless committed.
class OpenNetwork
{
  public:
    OpenNetwork() : pkg_(NET_CreatePackage("network")) {}
    ~OpenNetwork()
    {
        if (pkg_ != nullptr)
            NET_FreePackage(pkg_);
    }
    struct uci_package *get() const { return pkg_; }
    struct uci_section *section(const char *name) { return NET_GetSection(pkg_, name); }
    int commit()
    {
        struct uci_package *p = pkg_;
        pkg_ = nullptr;
        return NET_UciCommit(p);
    }

  private:
    struct uci_package *pkg_;
};

std::string get_option(struct uci_section *sec, const char *name)
{
    char buf[128] = {0};
    return NET_GetOption(sec, name, buf, sizeof buf) == 0 ? buf : "<absent>";
}

} // namespace

TEST(CfgUci, InterfaceNameToSectionName)
{
    EXPECT_STREQ("lan", NET_GetUciNameByIfName("eth0"));
    for (const char *name : {"lan2", "Eth0", "eth00"})
        EXPECT_EQ(name, NET_GetUciNameByIfName(name)) << name; // the very same text
}

TEST(CfgUci, ReadsTheHandWrittenPackageInEveryQuotingStyle)
{
    REQUIRE_SANDBOX();
    install(kHandWritten);
    FdCheck fds;
    OpenNetwork pkg;
    ASSERT_NE(nullptr, pkg.get());
    std::vector<std::string> names;
    struct uci_element *e;
    uci_foreach_element(&pkg.get()->sections, e)
    {
        names.push_back(e->name);
    }
    ASSERT_EQ(4u, names.size());
    EXPECT_EQ((std::vector<std::string>{"lan", "ddns", "pppoe"}),
              (std::vector<std::string>{names[0], names[2], names[3]}));
    EXPECT_STREQ("route", pkg.section(names[1].c_str())->type); // any type is found by name
    struct {
        const char *section, *option, *value;
    } cases[] = {
        {"lan", "ifname", "eth0"},          // double quotes
        {"lan", "proto", "static"},         // bare word
        {"lan", "gateway", "192.168.1.1"},  // followed by a comment
        {"lan", "mtu", "1400"},             // bare number
        {"ddns", "password", "it's \"x\""}, // the writer's '\'' escape
        {"pppoe", "password", "p#ss w;rd"}, // comment and separator signs inside quotes
        {"ddns", "username", "front door"}, // blank inside
        {"lan", "dns", "<absent>"},         // a list has no string value
        {"lan", "netmask", "<absent>"},     // not stored
    };
    for (const auto &c : cases)
        EXPECT_EQ(c.value, get_option(pkg.section(c.section), c.option))
            << c.section << "." << c.option;
}

// A capacity of 0 once wrapped to 4 GiB and zero-filled past the caller's buffer.
TEST(CfgUci, GetOptionCopiesCapacityMinusOneAndAddsNoTerminator)
{
    REQUIRE_SANDBOX();
    install(kHandWritten);
    OpenNetwork pkg;
    struct uci_section *lan = pkg.section("lan");
    ASSERT_NE(nullptr, lan);
    const std::string v = "192.168.1.64"; // 12 characters
    struct {
        unsigned int capacity;
        std::string after; // the 20-byte buffer afterwards; it starts as all 'X'
    } cases[] = {
        {16, v + std::string(3, '\0') + "XXXXX"}, // shorter: padded to capacity - 1
        {13, v + "XXXXXXXX"},                     // exactly capacity - 1: no terminator
        {12, v.substr(0, 11) + "XXXXXXXXX"},      // cut, still a success
        {0, std::string(20, 'X')},                // no room at all: the capacity does not wrap
    };
    for (const auto &c : cases) {
        char buf[20];
        memset(buf, 'X', sizeof buf);
        EXPECT_EQ(0, NET_GetOption(lan, "ipaddr", buf, c.capacity)) << c.capacity;
        EXPECT_EQ(c.after, std::string(buf, sizeof buf)) << c.capacity;
    }
    char buf[8];
    memset(buf, 'X', sizeof buf);
    EXPECT_EQ(-1, NET_GetOption(lan, "dns", buf, sizeof buf)); // list: buffer untouched
    EXPECT_EQ(std::string(8, 'X'), std::string(buf, sizeof buf));
}

TEST(CfgUci, UnloadablePackageIsRefusedAndLeftAsItIs)
{
    REQUIRE_SANDBOX();
    for (const char *setup : {"true", "mkdir /etc/config/network",
                              "printf \"config interface 'lan'\\n\\toption proto 'st\" > "
                              "/etc/config/network"}) {
        sandbox::must(std::string("rm -rf /etc/config/network && ") + setup);
        const std::string before = sandbox::sh_out("ls -l /etc/config; cat /etc/config/network");
        FdCheck fds;
        EXPECT_EQ(nullptr, NET_CreatePackage("network")) << setup;
        EXPECT_EQ(before, sandbox::sh_out("ls -l /etc/config; cat /etc/config/network"));
    }
}

TEST(CfgUci, EditsReachTheFileOnCommit)
{
    REQUIRE_SANDBOX();
    install(kHandWritten);
    FdCheck fds;
    OpenNetwork pkg;
    ASSERT_NE(nullptr, pkg.get());
    EXPECT_EQ(nullptr, pkg.section("wan"));
    EXPECT_EQ(nullptr, NET_CreateAndGetSection(pkg.get(), "bad type", "wan"));
    // An existing name is reused as it is, whatever its type.
    struct uci_section *ddns = pkg.section("ddns");
    EXPECT_EQ(ddns, NET_CreateAndGetSection(pkg.get(), "route", "ddns"));
    EXPECT_STREQ("ddns", ddns->type);
    struct uci_section *route = NET_CreateAndGetSection(pkg.get(), "route", "eth0_E0000000");
    ASSERT_NE(nullptr, route);
    EXPECT_EQ(0, NET_SetOption(route, "target", "224.0.0.0"));
    struct uci_element *anon = pkg.get()->sections.next->next == &pkg.get()->sections
                                   ? nullptr
                                   : list_to_element(pkg.get()->sections.next->next);
    ASSERT_NE(nullptr, anon);
    EXPECT_EQ(0, NET_DelSection(uci_to_section(anon))); // the anonymous route
    EXPECT_EQ(0, NET_DelSection(pkg.section("pppoe")));
    struct uci_section *lan = pkg.section("lan");
    EXPECT_EQ(0, NET_SetOption(lan, "proto", "dhcp")); // replaced in place
    EXPECT_EQ(0, NET_SetOption(lan, "metric", "5"));   // appended
    EXPECT_EQ(0, NET_DelOption(lan, "gateway"));
    EXPECT_EQ(-1, NET_DelOption(lan, "gateway"));
    EXPECT_EQ(0, NET_SetUciList(lan, "dns", "8.8.8.8")); // duplicates are kept
    EXPECT_EQ(0, NET_SetUciList(lan, "dns", "1.1.1.1"));
    EXPECT_EQ(0, NET_DelUciList(lan, "dns", "8.8.8.8"));  // every copy goes
    EXPECT_EQ(0, NET_SetUciList(lan, "ifname", "eth1"));  // a string becomes a list
    EXPECT_EQ(0, NET_SetOption(lan, "ipaddr", ""));       // empty value deletes
    EXPECT_EQ(-1, NET_DelUciList(lan, "dns", "9.9.9.9")); // not held
    EXPECT_EQ(-1, NET_DelUciList(lan, "mtu", "1400"));    // not a list item
    EXPECT_EQ(0, pkg.commit());
    EXPECT_EQ("\nconfig interface 'lan'\n\tlist ifname 'eth0'\n\tlist ifname 'eth1'\n"
              "\toption proto 'dhcp'\n\toption mtu '1400'\n\tlist dns '192.168.1.1'\n"
              "\tlist dns '1.1.1.1'\n\toption metric '5'\n\n"
              "config ddns 'ddns'\n\toption username 'front door'\n"
              "\toption password 'it'\\''s \"x\"'\n\n"
              "config route 'eth0_E0000000'\n\toption target '224.0.0.0'\n\n",
              stored());
}

TEST(CfgUci, FreeDiscardsAndAnUnchangedCommitKeepsTheFile)
{
    REQUIRE_SANDBOX();
    install(kHandWritten);
    FdCheck fds;
    {
        OpenNetwork pkg;
        ASSERT_EQ(0, NET_SetOption(pkg.section("lan"), "proto", "dhcp"));
    }
    EXPECT_EQ(kHandWritten, stored());
    {
        OpenNetwork pkg;
        ASSERT_EQ(0, NET_SetOption(pkg.section("lan"), "proto", "static")); // no change
        EXPECT_EQ(0, pkg.commit());
    }
    EXPECT_EQ(kHandWritten, stored()); // comments and quoting survive
}

TEST(CfgUci, PendingChangesOfTheCommandLineToolAreReadAndCommitted)
{
    REQUIRE_SANDBOX();
    install({{"interface", "lan", {opt("ifname", "eth0"), item("dns", "192.168.1.1")}}});
    // What "uci set network.lan.mtu=1400; uci add_list network.lan.dns=9.9.9.9" leave behind.
    sandbox::write_file("/tmp/.uci/network", "network.lan.mtu='1400'\n|network.lan.dns='9.9.9.9'\n",
                        0600);
    OpenNetwork pkg;
    struct uci_section *lan = pkg.section("lan");
    ASSERT_NE(nullptr, lan);
    EXPECT_EQ("1400", get_option(lan, "mtu"));
    EXPECT_EQ(0, NET_DelUciList(lan, "dns", "192.168.1.1"));
    EXPECT_EQ(0, pkg.commit());
    EXPECT_EQ(uci_text({{"interface",
                         "lan",
                         {opt("ifname", "eth0"), item("dns", "9.9.9.9"), opt("mtu", "1400")}}}),
              stored());
    EXPECT_EQ("", sandbox::read_file("/tmp/.uci/network"));
}

// Refusals and failures of the configuration calls: each leaves the file byte for byte (or
// absent) and logs the lines log readers match.
TEST(ConfigLogLines, RefusalsLeaveTheFileAndLogTheirLines)
{
    REQUIRE_SANDBOX();
    static const char kEth0[] = "eth0", kMtu[] = "mtu";
    const std::string file = uci_text(
        {{"interface",
          "lan",
          {opt("ifname", "eth0"), opt("ipaddr", "192.168.1.64"), opt("ipv4dhcp", "1"),
           opt("ip6addr", "2001:db8::5/64"), item("dns", "192.168.1.1"), item("dns", "8.8.8.8")}},
         {"port", "port", {opt("httpport", "80")}},
         {"route", "eth0_0A010000", {opt("interface", "lan"), opt("target", "10.1.0.0")}}});
    const std::string noPackage = plain("NET_CreatePackage", "Load uci failed \\n");
    const std::string commitFailed = plain("NET_UciCommit", "commit failed\\n");
    enum Kind { Stored, NoFile, ReadOnly };
    const auto noSection = [](const char *fn, const std::string &msg) {
        return Lines{plain("NET_GetSection", "lan2.\\n"), plain(fn, msg)};
    };
    const auto delList = [](const std::string &msg) {
        return Lines{plain("NET_DelUciList", "Delete uci list failed, list: dns.\\n"),
                     plain("NET_DelDnsCfg", msg)};
    };
    // clang-format off
    struct {
        Kind kind;
        std::function<int()> call;
        int result;
        Lines lines;
    } cases[] = {
        {Stored, [] { return NET_CreatePackage(nullptr) == nullptr ? -1 : 0; }, -1, {plain("NET_CreatePackage", "Input param error. \\n")}},
        {Stored, [] { return NET_SetOption(nullptr, kMtu, nullptr); }, -1,
         {param("NET_SetOption", "pstSection: " + ptr(nullptr) + ", pcOptName: " + ptr(kMtu) + ", pcOptVal: " + ptr(nullptr) + ".\\n")}},
        {NoFile, [] { NetPortCfg c = {}; return NET_GetPortCfg(&c); }, -1, {noPackage, noPackage, plain("NET_GetPortCfg", "file: network.\\n")}},
        {Stored, [] { return NET_SetGatewayCfg("lan2", "10.0.0.1"); }, -1, noSection("NET_SetGatewayCfg", "section: lan2.\\n")},
        {Stored, [] { return NET_SetIpv6AddrCfg("lan2", "2001:db8::1", 64); }, -1, noSection("NET_SetIpv6AddrCfg", "lan2.\\n")},
        {Stored, [] { return NET_DelDnsCfg("eth0", "7.7.7.7", nullptr); }, -1, delList("Delete master dns failed \\n")},
        // The master stays when the slave is not stored.
        {Stored, [] { return NET_DelDnsCfg("eth0", "192.168.1.1", "7.7.7.7"); }, -1, delList("Delete slave dns failed \\n")},
        {Stored, [] { return NET_SetMtuCfg(kEth0, 1501); }, -1, {param("NET_SetMtuCfg", "pcIfName: " + ptr(kEth0) + ", iMtuVal: 1501.\\n")}},
        {Stored, [] { return NET_SetMtuCfg("eth0", 1500); }, 0, {plain("NET_SetMtuCfg", "There is no mtu opt \\n")}},
        {Stored, [] { return NET_DelGatewayCfg("eth0"); }, -1, {plain("NET_DelGatewayCfg", "Delete ipv4 gateway failed \\n")}},
        {Stored, [] { return NET_IsDhcpv6Mode("eth0"); }, 0, {plain("NET_IsDhcpv6Mode", "option: ipv6dhcp.\\n")}},
        {Stored, [] {
             struct uci_package *p = NET_CreatePackage("network");
             char buf[4];
             int r = NET_GetOption(NET_GetSection(p, "lan"), "ipaddr", buf, sizeof buf);
             NET_FreePackage(p);
             return r;
         }, 0, {plain("NET_GetOption", "Input buffer is not enough.\\n")}},
        {ReadOnly, [] { return NET_SetMtuCfg("eth0", 1400); }, -1, {commitFailed, plain("NET_SetMtuCfg", "commit failed\\n")}},
        {ReadOnly, [] { return NET_SetRouteCfg("eth0", "10.2.0.0", "255.255.0.0"); }, -1, {commitFailed, tagged("NET_SetRouteCfg", "PL_COMMIT_ERROR_PRINT", "\\n")}},
        {ReadOnly, [] { return NET_DelRouteCfg("eth0", "10.1.0.0", "255.255.0.0"); }, -1, {commitFailed, plain("NET_DelRouteCfg", "\\n")}},
        {ReadOnly, [] { return NET_DisableDhcpCfg("eth0"); }, -1,
         {plain("NET_IsDhcpv6Mode", "option: ipv6dhcp.\\n"), commitFailed, plain("NET_DisableDhcpCfg", "\\n")}},
        // The read ends in a commit, so a commit failure fails it.
        {ReadOnly, [] { char a[64]; return NET_GetIpv6AddrCfg("eth0", a); }, -1, {commitFailed, plain("NET_GetIpv6AddrCfg", "commit failed\\n")}},
    };
    // clang-format on
    for (size_t i = 0; i < sizeof cases / sizeof cases[0]; ++i) {
        SCOPED_TRACE(i);
        const auto &c = cases[i];
        if (c.kind == NoFile)
            sandbox::must("rm -f /etc/config/network");
        else
            install(file);
        std::unique_ptr<ReadOnlyConfig> ro(c.kind == ReadOnly ? new ReadOnlyConfig : nullptr);
        FdCheck fds;
        LogCapture log;
        EXPECT_EQ(c.result, c.call());
        EXPECT_EQ(c.lines, log.texts());
        if (c.kind == NoFile)
            EXPECT_FALSE(sandbox::file_exists(kPath));
        else
            EXPECT_EQ(file, stored());
    }
}
