// The UCI access layer on the real "/etc/config/network" of the sandbox: packages, sections,
// options and lists, the silent failures, the bounded copy of NET_GetOption, the retry of
// a failed load and the (empty) backup hooks.
#include <string.h>

#include <functional>
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

// "network", freed at the end of the scope unless committed or freed by the test.
class OpenNetwork
{
  public:
    OpenNetwork() : pkg_(NET_CreatePackage("network")) {}
    ~OpenNetwork()
    {
        if (pkg_ != nullptr)
            NET_FreePackage(pkg_);
    }
    OpenNetwork(const OpenNetwork &) = delete;
    OpenNetwork &operator=(const OpenNetwork &) = delete;

    struct uci_package *get() const { return pkg_; }
    struct uci_section *section(const char *name) { return NET_GetSection(pkg_, name); }
    int commit() { return NET_UciCommit(release()); }
    struct uci_package *release()
    {
        struct uci_package *p = pkg_;
        pkg_ = nullptr;
        return p;
    }

  private:
    struct uci_package *pkg_;
};

std::string get_option(struct uci_section *sec, const char *name)
{
    char buf[128] = {0};
    return NET_GetOption(sec, name, buf, sizeof buf) == 0 ? buf : "<absent>";
}

std::vector<std::string> section_names(struct uci_package *pkg)
{
    std::vector<std::string> names;
    struct uci_element *e;
    uci_foreach_element(&pkg->sections, e)
    {
        names.push_back(e->name);
    }
    return names;
}

} // namespace

TEST(CfgUci, InterfaceNameToSectionName)
{
    EXPECT_STREQ("lan", NET_GetUciNameByIfName("eth0"));
    for (const char *name : {"lan1", "lan2", "ETH0", "Eth0", "eth0 ", "eth00", ""})
        EXPECT_EQ(name, NET_GetUciNameByIfName(name)) << name; // the very same text
    EXPECT_EQ(nullptr, NET_GetUciNameByIfName(nullptr));
}

TEST(CfgUci, ReadsTheHandWrittenPackageInEveryQuotingStyle)
{
    REQUIRE_SANDBOX();
    install();
    FdCheck fds;
    OpenNetwork pkg;
    ASSERT_NE(nullptr, pkg.get());
    EXPECT_STREQ("network", pkg.get()->e.name);
    EXPECT_EQ((std::vector<std::string>{"loopback", "lan", "cfg03c8b4", "port", "portmapping",
                                        "ddns", "pppoe"}),
              section_names(pkg.get()));
    struct uci_section *route = pkg.section("cfg03c8b4");
    ASSERT_NE(nullptr, route);
    EXPECT_STREQ("route", route->type); // any type is found by name
    struct {
        const char *section, *option, *value;
    } cases[] = {
        {"lan", "ifname", "eth0"},              // double quotes
        {"lan", "proto", "static"},             // bare word
        {"lan", "gateway", "192.168.1.1"},      // followed by a comment
        {"port", "httpsport", "443"},           // bare number
        {"ddns", "password", "it's \"x\""},     // the writer's '\'' escape
        {"pppoe", "password", "p#ss w;rd"},     // comment and separator signs inside quotes
        {"portmapping", "alias", "front door"}, // blank inside
        {"lan", "dns", "<absent>"},             // a list has no string value
        {"lan", "mtu", "<absent>"},             // not stored
    };
    for (const auto &c : cases)
        EXPECT_EQ(c.value, get_option(pkg.section(c.section), c.option))
            << c.section << "." << c.option;
}

TEST(CfgUci, GetOptionCopiesCapacityMinusOneAndAddsNoTerminator)
{
    REQUIRE_SANDBOX();
    install();
    OpenNetwork pkg;
    struct uci_section *lan = pkg.section("lan");
    ASSERT_NE(nullptr, lan);
    const std::string v = "192.168.1.64"; // 12 characters
    struct {
        unsigned int capacity;
        std::string after; // the 20-byte buffer afterwards; it starts as all 'X'
        bool logged;
    } cases[] = {
        {16, v + std::string(3, '\0') + "XXXXX", false}, // shorter: padded to capacity - 1
        {13, v + "XXXXXXXX", false},                     // exactly capacity - 1: no terminator
        {12, v.substr(0, 11) + "XXXXXXXXX", true},       // cut, logged, still a success
        {1, std::string(20, 'X'), true},
        {0, std::string(20, 'X'), true}, // no room at all: the capacity does not wrap
    };
    for (const auto &c : cases) {
        LogCapture log;
        char buf[20];
        memset(buf, 'X', sizeof buf);
        EXPECT_EQ(0, NET_GetOption(lan, "ipaddr", buf, c.capacity)) << c.capacity;
        EXPECT_EQ(c.after, std::string(buf, sizeof buf)) << c.capacity;
        EXPECT_EQ(c.logged ? Lines{plain("NET_GetOption", "Input buffer is not enough.\\n")}
                           : Lines{},
                  log.texts())
            << c.capacity;
    }
    char buf[8];
    memset(buf, 'X', sizeof buf);
    EXPECT_EQ(-1, NET_GetOption(lan, "dns", buf, sizeof buf)); // list: buffer untouched
    EXPECT_EQ(std::string(8, 'X'), std::string(buf, sizeof buf));
}

TEST(CfgUci, NullArgumentsAreLoggedAndRefused)
{
    REQUIRE_SANDBOX();
    install();
    OpenNetwork pkg;
    struct uci_section *lan = pkg.section("lan");
    ASSERT_NE(nullptr, lan);
    const std::string P = ptr_text(pkg.get()), S = ptr_text(lan), N = ptr_text(nullptr);
    const char *name = "mtu";
    const std::string O = ptr_text(name);
    char buf[8] = {0};
    struct {
        std::function<bool()> refused;
        Lines lines;
    } cases[] = {
        {[] { return NET_CreatePackage(nullptr) == nullptr; },
         {plain("NET_CreatePackage", "Input param error. \\n")}},
        {[] { return NET_FreePackage(nullptr), true; },
         {param("NET_FreePackage", "pstPackage: " + N + ".\\n")}},
        {[] { return NET_UciCommit(nullptr) == -1; },
         {param("NET_UciCommit", "pstPackage: " + N + ".\\n")}},
        {[&] { return NET_GetSection(pkg.get(), nullptr) == nullptr; },
         {param("NET_GetSection", "pstPackage: " + P + ", pcSecName: " + N + ".\\n")}},
        {[&] { return NET_CreateAndGetSection(pkg.get(), nullptr, name) == nullptr; },
         {param("NET_CreateAndGetSection",
                "pstPackage: " + P + ", pcSecType: " + N + ", pcSecName: " + O + ".\\n")}},
        {[] { return NET_DelSection(nullptr) == -1; },
         {param("NET_DelSection", "pstSection: " + N + ".\\n")}},
        {[&] { return NET_SetOption(lan, name, nullptr) == -1; },
         {param("NET_SetOption",
                "pstSection: " + S + ", pcOptName: " + O + ", pcOptVal: " + N + ".\\n")}},
        {[&] { return NET_GetOption(nullptr, name, buf, sizeof buf) == -1; },
         {param("NET_GetOption", "pstSection: " + N + ", pcOptName: " + O +
                                     ", pcOptVal: " + ptr_text(buf) + ".\\n")}},
        {[&] { return NET_DelOption(lan, nullptr) == -1; },
         {param("NET_DelOption", "pstSection: " + S + ", pcOptName: " + N + ".\\n")}},
        {[&] { return NET_SetUciList(lan, nullptr, name) == -1; },
         {param("NET_SetUciList",
                "pstSection: " + S + ", pcListName: " + N + ", pcListVal: " + O + ".\\n")}},
        {[&] { return NET_DelUciList(lan, name, nullptr) == -1; },
         {param("NET_DelUciList",
                "pstSection: " + S + ", pcListName: " + O + ", pcListVal: " + N + ".\\n")}},
    };
    for (size_t i = 0; i < sizeof cases / sizeof cases[0]; ++i) {
        LogCapture log;
        EXPECT_TRUE(cases[i].refused()) << i;
        EXPECT_EQ(cases[i].lines, log.texts()) << i;
    }
}

TEST(CfgUci, UnloadablePackageIsRetriedOnceThenRefused)
{
    REQUIRE_SANDBOX();
    struct {
        const char *what;
        std::string setup;
    } cases[] = {
        {"missing", "rm -f /etc/config/network"},
        {"a directory", "rm -f /etc/config/network && mkdir /etc/config/network"},
        {"unterminated quote", "printf \"config interface 'lan'\\n\\toption proto 'st\" > "
                               "/etc/config/network"},
        {"option before config", "printf \"option proto static\\n\" > /etc/config/network"},
        {"unknown keyword", "printf \"config interface lan\\nopt proto static\\n\" > "
                            "/etc/config/network"},
    };
    for (const auto &c : cases) {
        sandbox::must("rm -rf /etc/config/network && " + c.setup);
        const std::string before =
            sandbox::sh_out("ls -l /etc/config; cat /etc/config/network 2>&1");
        FdCheck fds;
        LogCapture log;
        EXPECT_EQ(nullptr, NET_CreatePackage("network")) << c.what;
        EXPECT_EQ((Lines{plain("NET_CreatePackage", "Load uci failed \\n"),
                         plain("NET_CreatePackage", "Load uci failed \\n")}),
                  log.texts())
            << c.what;
        EXPECT_EQ(before, sandbox::sh_out("ls -l /etc/config; cat /etc/config/network 2>&1"));
    }
}

TEST(CfgUci, SectionsAreFoundCreatedAndDeleted)
{
    REQUIRE_SANDBOX();
    install();
    FdCheck fds;
    OpenNetwork pkg;
    ASSERT_NE(nullptr, pkg.get());
    {
        LogCapture log;
        EXPECT_EQ(nullptr, pkg.section("wan"));
        EXPECT_EQ(nullptr, NET_CreateAndGetSection(pkg.get(), "bad type", "wan"));
        EXPECT_EQ((Lines{plain("NET_GetSection", "wan.\\n"),
                         plain("NET_CreateAndGetSection", "section: wan.\\n")}),
                  log.texts());
    }
    // An existing name is reused as it is, whatever its type.
    struct uci_section *port = pkg.section("port");
    EXPECT_EQ(port, NET_CreateAndGetSection(pkg.get(), "route", "port"));
    EXPECT_STREQ("port", port->type);
    struct uci_section *route = NET_CreateAndGetSection(pkg.get(), "route", "eth0_E0000000");
    ASSERT_NE(nullptr, route);
    EXPECT_STREQ("route", route->type);
    EXPECT_EQ(0, NET_SetOption(route, "target", "224.0.0.0"));
    EXPECT_EQ(0, NET_DelSection(pkg.section("cfg03c8b4"))); // the anonymous route
    EXPECT_EQ(0, NET_DelSection(pkg.section("loopback")));
    EXPECT_EQ(0, pkg.commit());
    std::string expect = without_block(kCommitted, "loopback");
    expect.erase(expect.find(kRouteBlock), kRouteBlock.size());
    EXPECT_EQ(expect + "config route 'eth0_E0000000'\n\toption target '224.0.0.0'\n\n", stored());
}

TEST(CfgUci, OptionsAndListsChangeAsCommitted)
{
    REQUIRE_SANDBOX();
    install();
    FdCheck fds;
    OpenNetwork pkg;
    struct uci_section *lan = pkg.section("lan");
    ASSERT_NE(nullptr, lan);
    LogCapture log;
    EXPECT_EQ(0, NET_SetOption(lan, "proto", "dhcp")); // replaced in place
    EXPECT_EQ(0, NET_SetOption(lan, "mtu", "1400"));   // appended
    EXPECT_EQ(0, NET_DelOption(lan, "gateway"));
    EXPECT_EQ(-1, NET_DelOption(lan, "gateway"));        // absent: silent
    EXPECT_EQ(0, NET_SetUciList(lan, "dns", "8.8.8.8")); // duplicates are kept
    EXPECT_EQ(0, NET_SetUciList(lan, "dns", "1.1.1.1"));
    EXPECT_EQ(0, NET_DelUciList(lan, "dns", "8.8.8.8")); // every copy goes
    EXPECT_EQ(0, NET_SetUciList(lan, "ifname", "eth1")); // a string becomes a list
    EXPECT_EQ(0, NET_SetOption(lan, "ip6addr", ""));     // empty value deletes
    // Values that are not stored as list items cannot be deleted.
    for (const char *list : {"dns", "netmask", "ntp"})
        EXPECT_EQ(-1, NET_DelUciList(lan, list, "255.255.255.0")) << list;
    EXPECT_EQ((Lines{plain("NET_DelUciList", "Delete uci list failed, list: dns.\\n"),
                     plain("NET_DelUciList", "Delete uci list failed, list: netmask.\\n"),
                     plain("NET_DelUciList", "Delete uci list failed, list: ntp.\\n")}),
              log.texts());
    EXPECT_EQ(0, pkg.commit());
    EXPECT_EQ(with_block(kCommitted, "lan",
                         "config interface 'lan'\n"
                         "\tlist ifname 'eth0'\n\tlist ifname 'eth1'\n"
                         "\toption proto 'dhcp'\n"
                         "\toption ipaddr '192.168.1.64'\n\toption netmask '255.255.255.0'\n"
                         "\toption ipv4dhcp '0'\n\toption ipv6dhcp '0'\n"
                         "\tlist dns '192.168.1.1'\n\tlist dns '1.1.1.1'\n"
                         "\toption mtu '1400'\n"),
              stored());
}

TEST(CfgUci, FreeDiscardsAndAnUnchangedCommitKeepsTheFile)
{
    REQUIRE_SANDBOX();
    install();
    FdCheck fds;
    {
        OpenNetwork pkg;
        ASSERT_EQ(0, NET_SetOption(pkg.section("lan"), "proto", "dhcp"));
        NET_FreePackage(pkg.release());
    }
    EXPECT_EQ(kHandWritten, stored());
    {
        OpenNetwork pkg;
        ASSERT_EQ(0, NET_SetOption(pkg.section("lan"), "proto", "static")); // no change
        EXPECT_EQ(0, pkg.commit());
    }
    EXPECT_EQ(kHandWritten, stored()); // comments and quoting survive
}

TEST(CfgUci, FailedCommitIsLoggedAndReleasesThePackage)
{
    REQUIRE_SANDBOX();
    install();
    FdCheck fds;
    ReadOnlyConfig readOnly;
    OpenNetwork pkg;
    ASSERT_EQ(0, NET_SetOption(pkg.section("lan"), "proto", "dhcp"));
    LogCapture log;
    EXPECT_EQ(-1, pkg.commit());
    EXPECT_EQ(Lines{plain("NET_UciCommit", "commit failed\\n")}, log.texts());
    EXPECT_EQ(kHandWritten, stored());
}

TEST(CfgUci, PendingChangesOfTheCommandLineToolAreReadAndCommitted)
{
    REQUIRE_SANDBOX();
    install();
    // What "uci set network.lan.mtu=1400; uci add_list network.lan.dns=9.9.9.9" leave behind.
    sandbox::write_file("/tmp/.uci/network", "network.lan.mtu='1400'\n|network.lan.dns='9.9.9.9'\n",
                        0600);
    OpenNetwork pkg;
    struct uci_section *lan = pkg.section("lan");
    ASSERT_NE(nullptr, lan);
    EXPECT_EQ("1400", get_option(lan, "mtu"));
    EXPECT_EQ(0, NET_DelUciList(lan, "dns", "192.168.1.1"));
    EXPECT_EQ(0, pkg.commit());
    std::string lanBlock = block(kCommitted, "lan");
    lanBlock.replace(lanBlock.find("\tlist dns '192.168.1.1'\n"), 24, "");
    EXPECT_EQ(
        with_block(kCommitted, "lan", lanBlock + "\tlist dns '9.9.9.9'\n\toption mtu '1400'\n"),
        stored());
    EXPECT_EQ("", sandbox::read_file("/tmp/.uci/network"));
}

TEST(CfgUci, BackupHooksDoNothing)
{
    REQUIRE_SANDBOX();
    install("config broken\n\toption x\n"); // whatever the file holds, it stays as it is
    FdCheck fds;
    EXPECT_EQ(0, NET_BackupCfgFile());
    EXPECT_EQ(0, NET_RestoreCfgFile());
    EXPECT_EQ("config broken\n\toption x\n", stored());
    EXPECT_EQ("", sandbox::sh_out("ls -A /etc/config | grep -v '^network$'"));
}
