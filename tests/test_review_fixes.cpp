// Faults found by reading the sources for what a caller or the network can make the library
// do: a zero capacity that wrapped, server texts that spanned lines, probe time-outs past
// what the C library's 32-bit microseconds hold, and a listing of the configuration directory
// sized by one pass over it and filled by another.
#include <arpa/inet.h>
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <sstream>
#include <string>
#include <vector>

#include <uci.h>

#include "libnetwork.h"
#include "sandbox.h"
#include "test_detect_support.h"

using namespace detecttest;
using sandbox::LogCapture;

namespace
{

std::vector<std::string> lines_of(const std::string &text)
{
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string l; std::getline(in, l);)
        out.push_back(l);
    return out;
}

} // namespace

// With no room at all, nothing is copied: the capacity is not turned into 4 GiB.
TEST(ReviewFixes, GetOptionWithNoRoomCopiesNothing)
{
    REQUIRE_SANDBOX();
    sandbox::write_file("/etc/config/network",
                        "\nconfig interface 'lan'\n\toption proto 'static'\n\n", 0600);
    struct uci_package *p = NET_CreatePackage("network");
    ASSERT_NE(nullptr, p);
    struct uci_section *sec = NET_GetSection(p, "lan");
    ASSERT_NE(nullptr, sec);
    char buf[32];
    memset(buf, '#', sizeof buf);
    LogCapture log;
    EXPECT_EQ(0, NET_GetOption(sec, "proto", buf + 8, 0));
    EXPECT_EQ(std::string(32, '#'), std::string(buf, sizeof buf)) << "not a byte written";
    EXPECT_EQ((std::vector<std::string>{
                  sandbox::expect_line("NET_GetOption", "\"Input buffer is not enough.\\n\"")}),
              log.texts());
    // One byte of room takes the terminator's place only: still nothing copied.
    EXPECT_EQ(0, NET_GetOption(sec, "proto", buf + 8, 1));
    EXPECT_EQ(std::string(32, '#'), std::string(buf, sizeof buf));
    NET_FreePackage(p);
}

// A server text with a line break would write lines of its own into the resolver's file (a
// "search" or "options" line, more servers); it names no server and is left out.
TEST(ReviewFixes, ServerTextsThatSpanLinesAreNotWritten)
{
    REQUIRE_SANDBOX();
    struct Case {
        const char *master;
        const char *slave;
        std::vector<std::string> servers;
    } cases[] = {
        {"192.0.2.1\nsearch evil.example", "192.0.2.2", {"192.0.2.2"}},
        {"192.0.2.1", "192.0.2.2\r\noptions ndots:15", {"192.0.2.1"}},
        {"192.0.2.1", "192.0.2.2", {"192.0.2.1", "192.0.2.2"}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.master);
        ASSERT_EQ(0, NET_SetDnsServer("eth0", c.master, c.slave));
        std::vector<std::string> lines = lines_of(sandbox::read_file("/etc/resolv.conf"));
        ASSERT_FALSE(lines.empty());
        EXPECT_EQ("# Interface lan", lines[0]);
        std::vector<std::string> servers;
        for (size_t i = 1; i < lines.size(); ++i) {
            ASSERT_EQ(0u, lines[i].rfind("nameserver ", 0)) << "a line of its own: " << lines[i];
            servers.push_back(lines[i].substr(11));
        }
        // The interface's servers first, then the public pair of a one-interface device.
        ASSERT_GE(servers.size(), c.servers.size());
        servers.resize(c.servers.size());
        EXPECT_EQ(c.servers, servers);
    }
}

// The probes put the whole time-out into the microsecond field of their wait. The C library
// reads that field as 32 bits, so anything over 35 minutes wrapped negative, select refused
// the wait on every pass and the probe never returned (logging each pass).
class LongTimeOut : public ::testing::Test
{
  protected:
    void SetUp() override
    {
        REQUIRE_SANDBOX();
        sandbox::veth("lan1", "nb1", &peer_);
        sandbox::addr_add("lan1", "192.168.1.10/24");
        sandbox::addr_add("lan1", "2001:db8::10/64");
        peer_.must("ip addr add 192.168.1.1/24 dev nb1");
        peer_.must("ip addr add 2001:db8::1/64 dev nb1 nodad");
        std::string mac = sandbox::sh_out("cat /sys/class/net/lan1/address");
        mac.erase(mac.find_last_not_of("\n") + 1);
        std::istringstream addrs(
            sandbox::sh_out("ip -6 -o addr show dev lan1 | awk '{print $4}' | cut -d/ -f1"));
        for (std::string a; std::getline(addrs, a);)
            peer_.must("ip -6 neigh replace " + a + " lladdr " + mac + " dev nb1 nud permanent");
    }

    sandbox::Peer peer_;
};

TEST_F(LongTimeOut, ProbesAnsweredWithinAnHourLongWait)
{
    const int kFiftyMinutes = 50 * 60 * 1000;
    struct Case {
        const char *what;
        std::function<int(int *)> probe;
    } cases[] = {
        {"ARP",
         [&](int *c) { return NET_DetectIpv4Collision("lan1", "192.168.1.1", kFiftyMinutes, c); }},
        {"NDP",
         [&](int *c) { return NET_DetectIpv6Collision("lan1", "2001:db8::1", kFiftyMinutes, c); }},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        sandbox::FdCheck fds;
        int collision = 7;
        auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(0, c.probe(&collision));
        EXPECT_EQ(1, collision) << "the neighbour holds the address";
        EXPECT_LT(since(start), 3.0 + sandbox::kLateSec);
    }
}

// uci_list_configs counts the names of the directory, allocates, then reads the directory
// again to fill the block: a longer name that appears in between was copied past its end.
TEST(ReviewFixes, ConfigListingWhileTheDirectoryChanges)
{
    REQUIRE_SANDBOX();
    char tmpl[] = "/tmp/configs.XXXXXX";
    const std::string dir = mkdtemp(tmpl);
    const std::string shortName = "a", longName(200, 'b');
    pid_t churn = fork();
    ASSERT_GE(churn, 0);
    if (churn == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        const std::string a = dir + "/" + shortName, b = dir + "/" + longName;
        for (;;) {
            close(open(a.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
            unlink(b.c_str());
            close(open(b.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
            unlink(a.c_str());
        }
    }
    struct uci_context *ctx = uci_alloc_context();
    uci_set_confdir(ctx, dir.c_str());
    int listings = 0, odd = 0;
    for (auto start = std::chrono::steady_clock::now();
         std::chrono::steady_clock::now() - start < std::chrono::seconds(2); ++listings) {
        char **list = nullptr;
        if (uci_list_configs(ctx, &list) != 0)
            continue;
        for (char **p = list; *p != nullptr; ++p)
            odd += (*p != shortName && *p != longName) ? 1 : 0;
        free(list);
    }
    kill(churn, SIGKILL);
    waitpid(churn, nullptr, 0);
    uci_free_context(ctx);
    sandbox::sh("rm -rf '" + dir + "'");
    EXPECT_EQ(0, odd) << "names that are no names of the directory, in " << listings;
}
