// The resolver file at its real path inside the sandbox: block layouts on one- and
// two-interface devices, the public-resolver rule, reading blocks back; and the DHCP
// switches, which change only the stored configuration.
#include <string.h>
#include <sys/stat.h>

#include <functional>
#include <string>
#include <vector>

#include "libnetwork.h"
#include "sandbox.h"

using sandbox::expect_line;
using sandbox::LogCapture;

namespace
{

const std::string kResolv = "/etc/resolv.conf";
const std::string P1 = NETLIB_PUBLIC_DNS1;
const std::string P2 = NETLIB_PUBLIC_DNS2;

std::string ptr_text(const void *p)
{
    char buf[32];
    snprintf(buf, sizeof buf, "%p", p);
    return buf;
}

void device(const char *ifnames)
{
    sandbox::set_device(ifnames);
    NET_Init();
}

struct Servers {
    int result;
    std::string master;
    std::string slave;
};

// Reads with buffers prefilled with 'x' so that an untouched or unterminated byte shows.
Servers read_servers(const char *ifname, unsigned int len = 15)
{
    char master[32], slave[32];
    memset(master, 'x', sizeof master);
    memset(slave, 'x', sizeof slave);
    master[31] = slave[31] = '\0';
    int r = NET_GetDnsServer(ifname, master, len, slave, len);
    return Servers{r, std::string(master, len + 2), std::string(slave, len + 2)};
}

std::string pad(const std::string &s, unsigned int len = 15)
{
    return s + std::string(len + 2 - s.size(), 'x');
}

} // namespace

class Resolv : public ::testing::Test
{
  protected:
    void SetUp() override { REQUIRE_SANDBOX(); }
};

TEST_F(Resolv, OneInterfaceBlockAndPublicResolvers)
{
    const char *null = nullptr;
    struct Case {
        const char *name;
        const char *ifname;
        const char *master;
        const char *slave;
        std::string file;
    } cases[] = {
        {"a server and no server", "eth0", "192.168.1.1", "0.0.0.0",
         "# Interface lan\nnameserver 192.168.1.1\nnameserver " + P1 + "\nnameserver " + P2 + "\n"},
        {"a null second server: no public lines", "eth0", "192.168.1.1", null,
         "# Interface lan\nnameserver 192.168.1.1\n"},
        {"a null first server: no public lines", "eth0", null, "10.0.0.1",
         "# Interface lan\nnameserver 10.0.0.1\n"},
        {"two servers", "eth0", "192.168.1.1", "2001:db8::53",
         "# Interface lan\nnameserver 192.168.1.1\nnameserver 2001:db8::53\nnameserver " + P1 +
             "\nnameserver " + P2 + "\n"},
        {"the primary public one given", "eth0", P1.c_str(), "10.0.0.1",
         "# Interface lan\nnameserver " + P1 + "\nnameserver 10.0.0.1\nnameserver " + P2 + "\n"},
        {"the secondary public one given", "eth0", "10.0.0.1", P2.c_str(),
         "# Interface lan\nnameserver 10.0.0.1\nnameserver " + P2 + "\nnameserver " + P1 + "\n"},
        {"empty and unspecified are no servers", "eth0", "",
         "::", "# Interface lan\nnameserver " + P1 + "\nnameserver " + P2 + "\n"},
        {"another name leaves the file empty", "lan2", "1.1.1.1", "2.2.2.2", ""},
    };
    device("eth0");
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        sandbox::write_file(kResolv, "# Interface lan\nnameserver 9.9.9.9\n");
        sandbox::FdCheck fds;
        LogCapture log;
        EXPECT_EQ(0, NET_SetDnsServer(c.ifname, c.master, c.slave));
        EXPECT_EQ(c.file, sandbox::read_file(kResolv));
        EXPECT_TRUE(log.texts().empty());
    }
}

TEST_F(Resolv, TwoInterfaceBlocksKeepTheOtherInterface)
{
    const char *null = nullptr;
    struct Case {
        const char *name;
        const char *before; // null: no file at all
        const char *ifname;
        const char *master;
        const char *slave;
        std::string after;
    } cases[] = {
        {"lan2 after a full lan1 block",
         "# Interface lan1\nnameserver 10.0.0.1\nnameserver 10.0.0.9\n", "lan2", "10.0.0.2",
         "10.0.0.3",
         "# Interface lan1\nnameserver 10.0.0.1\nnameserver 10.0.0.9\n"
         "# Interface lan2\nnameserver 10.0.0.2\nnameserver 10.0.0.3\n"},
        {"lan1 keeps lan2, no public lines",
         "# Interface lan1\nnameserver 10.0.0.1\n# Interface lan2\nnameserver 10.0.0.2\n"
         "nameserver 10.0.0.3\n",
         "lan1", "192.168.1.1", "0.0.0.0",
         "# Interface lan1\nnameserver 192.168.1.1\n"
         "# Interface lan2\nnameserver 10.0.0.2\nnameserver 10.0.0.3\n"},
        // A kept block always has two lines, an empty "nameserver " for a missing server.
        {"a kept single server", "# Interface lan1\nnameserver 10.0.0.1\n", "lan2", "10.0.0.2",
         null,
         "# Interface lan1\nnameserver 10.0.0.1\nnameserver \n"
         "# Interface lan2\nnameserver 10.0.0.2\n"},
        {"an empty file keeps an empty block", "", "lan2", "10.0.0.2", null,
         "# Interface lan1\nnameserver \nnameserver \n# Interface lan2\nnameserver 10.0.0.2\n"},
        {"no file keeps nothing", null, "lan2", "10.0.0.2", null,
         "# Interface lan1\n# Interface lan2\nnameserver 10.0.0.2\n"},
        {"any other name is written as lan2",
         "# Interface lan1\nnameserver 10.0.0.1\nnameserver 10.0.0.9\n", "eth0", "10.0.0.4", "::",
         "# Interface lan1\nnameserver 10.0.0.1\nnameserver 10.0.0.9\n"
         "# Interface lan2\nnameserver 10.0.0.4\n"},
    };
    device("lan1,lan2");
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        if (c.before != nullptr)
            sandbox::write_file(kResolv, c.before);
        else
            unlink(kResolv.c_str());
        sandbox::FdCheck fds;
        LogCapture log;
        EXPECT_EQ(0, NET_SetDnsServer(c.ifname, c.master, c.slave));
        EXPECT_EQ(c.after, sandbox::read_file(kResolv));
        EXPECT_TRUE(log.texts().empty());
    }
}

// A server text with a line break would write lines of its own into the resolver's file (a
// "search" or "options" line, more servers); it names no server and is left out.
TEST_F(Resolv, ServerTextsThatSpanLinesAreNotWritten)
{
    struct Case {
        const char *master;
        const char *slave;
        std::string file;
    } cases[] = {
        {"192.0.2.1\nsearch evil.example", "192.0.2.2",
         "# Interface lan\nnameserver 192.0.2.2\nnameserver " + P1 + "\nnameserver " + P2 + "\n"},
        {"192.0.2.1", "192.0.2.2\r\noptions ndots:15",
         "# Interface lan\nnameserver 192.0.2.1\nnameserver " + P1 + "\nnameserver " + P2 + "\n"},
    };
    device("eth0");
    for (const Case &c : cases) {
        SCOPED_TRACE(c.master);
        ASSERT_EQ(0, NET_SetDnsServer("eth0", c.master, c.slave));
        EXPECT_EQ(c.file, sandbox::read_file(kResolv));
    }
}

TEST_F(Resolv, BlocksReadBack)
{
    const std::string two = "search example.com\n"
                            "# Interface lan1\nnameserver 10.0.0.1\noptions rotate\n"
                            "nameserver    10.0.0.9\nnameserver 10.0.0.8\n"
                            "# Interface lan2\nnameserver 10.0.0.2\n";
    struct Case {
        const char *name;
        const char *file; // null: no file
        const char *ifname;
        unsigned int len;
        Servers expect;
    } cases[] = {
        {"first block, other lines skipped, third server ignored",
         two.c_str(),
         "lan1",
         15,
         {0, pad("10.0.0.1"), pad("10.0.0.9")}},
        {"second block ends at the end of file",
         two.c_str(),
         "lan2",
         15,
         {0, pad("10.0.0.2"), pad("")}},
        {"no terminator added: cut to the length",
         two.c_str(),
         "lan1",
         4,
         {0, pad("10.0", 4), pad("10.0", 4)}},
        {"a block ends at the next Interface line",
         "# Interface lan2\n# Interface lan1\nnameserver 10.0.0.1\n",
         "lan2",
         15,
         {0, pad(""), pad("")}},
        {"an empty value counts as the first server",
         "# Interface lan1\nnameserver \nnameserver 10.0.0.3\n",
         "lan1",
         15,
         {0, pad(""), pad("10.0.0.3")}},
        // The marker is a substring test: section "lan" finds the "lan1" block.
        {"a section name that is a prefix",
         "# Interface lan1\nnameserver 10.0.0.1\n",
         "eth0",
         15,
         {0, pad("10.0.0.1"), pad("")}},
        {"no block for the interface", two.c_str(), "lan3", 15, {0, pad(""), pad("")}},
        {"an empty file", "", "lan1", 15, {0, pad(""), pad("")}},
        {"no file", nullptr, "lan1", 15, {-1, pad(""), pad("")}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        if (c.file != nullptr)
            sandbox::write_file(kResolv, c.file);
        else
            unlink(kResolv.c_str());
        sandbox::FdCheck fds;
        LogCapture log;
        Servers got = read_servers(c.ifname, c.len);
        EXPECT_EQ(c.expect.result, got.result);
        EXPECT_EQ(c.expect.master, got.master);
        EXPECT_EQ(c.expect.slave, got.slave);
        EXPECT_TRUE(log.texts().empty()) << "no log line, not even for a missing file";
    }
}

TEST_F(Resolv, WrittenBlocksReadBack)
{
    device("lan1,lan2");
    ASSERT_EQ(0, NET_SetDnsServer("lan1", "192.168.1.1", "192.168.1.2"));
    ASSERT_EQ(0, NET_SetDnsServer("lan2", "10.0.0.2", "2001:db8::53"));
    char m[16] = {0}, s[16] = {0};
    ASSERT_EQ(0, NET_GetDnsServer("lan1", m, sizeof m - 1, s, sizeof s - 1));
    EXPECT_STREQ("192.168.1.1", m);
    EXPECT_STREQ("192.168.1.2", s);
    char m2[46] = {0}, s2[46] = {0};
    ASSERT_EQ(0, NET_GetDnsServer("lan2", m2, sizeof m2 - 1, s2, sizeof s2 - 1));
    EXPECT_STREQ("10.0.0.2", m2);
    EXPECT_STREQ("2001:db8::53", s2);

    char d1[8], d2[32];
    memset(d1, 'x', sizeof d1);
    memset(d2, 'x', sizeof d2);
    EXPECT_EQ(0, get_dns(d1, sizeof d1, d2, sizeof d2));
    EXPECT_STREQ("192.168", d1) << "cut and terminated";
    EXPECT_STREQ("192.168.1.2", d2);
    EXPECT_EQ(-1, get_dns(nullptr, 8, d2, sizeof d2));
    EXPECT_EQ(-1, get_dns(d1, 0, d2, sizeof d2));
}

TEST_F(Resolv, ExistingServerLines)
{
    sandbox::write_file(kResolv, "# Interface lan1\nnameserver 10.0.0.1\n"
                                 "# Interface lan2\nnameserver 10.0.0.2\nnameserver 10.0.0.3\n"
                                 "# Interface lan\nnameserver 10.0.0.7\n");
    struct Case {
        const char *device;
        const char *first;
        const char *second;
    } cases[] = {
        {"lan1,lan2", "nameserver 10.0.0.1\nnameserver \n",
         "nameserver 10.0.0.2\nnameserver 10.0.0.3\n"},
        {"eth0", "nameserver 10.0.0.1\nnameserver \n", "untouched"}, // "lan" finds "lan1"
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.device);
        device(c.device);
        char one[128] = {0}, two[128] = "untouched";
        EXPECT_EQ(0, net_GetExistNameserver(one, sizeof one, two, sizeof two));
        EXPECT_STREQ(c.first, one);
        EXPECT_STREQ(c.second, two);
    }
    char small[16];
    char two[128];
    EXPECT_EQ(0, net_GetExistNameserver(small, sizeof small, two, sizeof two));
    EXPECT_STREQ("nameserver 10.0", small) << "bounded by the length";
}

TEST_F(Resolv, RefusalsAndFailures)
{
    sandbox::write_file(kResolv, "# Interface lan\nnameserver 9.9.9.9\n");
    char buf[16];
    struct Case {
        const char *name;
        int result;
        std::function<int()> call;
        std::vector<std::string> lines;
    } cases[] = {
        {"set: null name",
         -1,
         [] { return NET_SetDnsServer(nullptr, "1.1.1.1", "2.2.2.2"); },
         {expect_line("NET_SetDnsServer", "PL_PARAM_ERROR_PRINT \"\\n\"")}},
        {"set: both servers null",
         -1,
         [] { return NET_SetDnsServer("eth0", nullptr, nullptr); },
         {expect_line("NET_SetDnsServer", "PL_PARAM_ERROR_PRINT \"\\n\"")}},
        {"enable: both servers null",
         -1,
         [] { return NET_EnableDnsServer("eth0", nullptr, nullptr); },
         {expect_line("NET_EnableDnsServer", "PL_PARAM_ERROR_PRINT \"\\n\"")}},
        {"get: null slave",
         -1,
         [&] { return NET_GetDnsServer("eth0", buf, 8, nullptr, 8); },
         {expect_line("NET_GetDnsServer", "PL_PARAM_ERROR_PRINT \"pcIfName: " + ptr_text("eth0") +
                                              ", pcMaster: " + ptr_text(buf) +
                                              ", pcSlave: (nil). \\n\"")}},
        {"existing: null buffer",
         -1,
         [&] { return net_GetExistNameserver(buf, 16, nullptr, 16); },
         {expect_line("net_GetExistNameserver",
                      "PL_PARAM_ERROR_PRINT \"pcNameserver1: " + ptr_text(buf) +
                          ", pcNameserver2: (nil) \\n\"")}},
        {"create_resolv_file touches nothing", 0, [] { return create_resolv_file(); }, {}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        sandbox::FdCheck fds;
        LogCapture log;
        EXPECT_EQ(c.result, c.call());
        EXPECT_EQ(c.lines, log.texts());
        for (const sandbox::LogLine &l : log.lines())
            EXPECT_EQ(3, l.level);
        EXPECT_EQ("# Interface lan\nnameserver 9.9.9.9\n", sandbox::read_file(kResolv));
    }
}

TEST_F(Resolv, UnwritableFileKeepsTheOldOne)
{
    // A directory in the file's place: reading finds no block, opening for writing fails.
    unlink(kResolv.c_str());
    ASSERT_EQ(0, mkdir(kResolv.c_str(), 0755));
    sandbox::FdCheck fds;
    LogCapture log;
    EXPECT_EQ(-1, NET_SetDnsServer("eth0", "1.1.1.1", "2.2.2.2"));
    EXPECT_EQ((std::vector<std::string>{
                  expect_line("NET_EnableDnsServer", "\"Open dns config file failed. \\n\""),
                  expect_line("NET_SetDnsServer", "\"set dns err\\n\""),
              }),
              log.texts());
    rmdir(kResolv.c_str());
}

class Dhcp : public ::testing::Test
{
  protected:
    void SetUp() override { REQUIRE_SANDBOX(); }

    static void config(const std::string &section, const char *ipv4dhcp, const char *ipv6dhcp)
    {
        sandbox::write_file("/etc/config/network", "config interface '" + section +
                                                       "'\n\toption proto 'static'\n" +
                                                       "\toption ipv4dhcp '" + ipv4dhcp +
                                                       "'\n\toption ipv6dhcp '" + ipv6dhcp + "'\n");
    }
    static std::string proto()
    {
        return sandbox::sh_out("grep -o \"proto '[a-z0-9]*'\" /etc/config/network");
    }
};

TEST_F(Dhcp, SwitchesChangeOnlyTheStoredProto)
{
    struct Case {
        const char *name;
        bool enable;
        const char *ipv4dhcp;
        const char *ipv6dhcp;
        const char *proto;
    } cases[] = {
        {"enable from static", true, "0", "0", "proto 'dhcp'\n"},
        {"enable with DHCPv6", true, "0", "1", "proto 'dhcpv6'\n"},
        {"enable when already DHCP writes nothing", true, "1", "0", "proto 'static'\n"},
        {"disable from DHCP", false, "1", "0", "proto 'static'\n"},
        {"disable with DHCPv6", false, "1", "1", "proto 'dhcpv6'\n"},
        {"disable when already static writes nothing", false, "0", "1", "proto 'static'\n"},
    };
    sandbox::veth("lan1", "nb1");
    sandbox::addr_add("lan1", "192.168.1.10/24");
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        config("lan1", c.ipv4dhcp, c.ipv6dhcp);
        sandbox::FdCheck fds;
        LogCapture log;
        EXPECT_EQ(0, c.enable ? NET_EnableDhcp("lan1") : NET_DisableDhcp("lan1"));
        EXPECT_EQ(c.proto, proto());
        EXPECT_TRUE(log.texts().empty());
    }
    EXPECT_NE(std::string::npos,
              sandbox::sh_out("ip -4 addr show dev lan1").find("192.168.1.10/24"))
        << "the kernel is not touched";
}

TEST_F(Dhcp, FailuresAreLoggedLast)
{
    config("lan", "0", "0");
    struct Case {
        const char *name;
        std::function<int()> call;
        std::string line;
    } cases[] = {
        {"enable, no section", [] { return NET_EnableDhcp("lan7"); },
         expect_line("NET_EnableDhcp", "\"Enable dhcp mode failed. \\n\"")},
        {"enable, null name", [] { return NET_EnableDhcp(nullptr); },
         expect_line("NET_EnableDhcp", "\"Enable dhcp mode failed. \\n\"")},
        {"disable, null name", [] { return NET_DisableDhcp(nullptr); },
         expect_line("NET_DisableDhcp", "\"Disable dhcp mode failed. \\n\"")},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        sandbox::FdCheck fds;
        LogCapture log;
        EXPECT_EQ(-1, c.call());
        ASSERT_FALSE(log.texts().empty());
        EXPECT_EQ(c.line, log.texts().back());
        EXPECT_EQ(3, log.lines().back().level);
    }
    EXPECT_EQ("proto 'static'\n", proto());
}
