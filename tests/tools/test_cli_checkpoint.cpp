// Checkpoints from a shell: "state --json" before a change equals the one after its
// roll-back, whatever the change; try keeps a change when confirmed in any of its three ways
// and rolls it back on SIGINT, at its deadline, or when the command fails.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "libnetwork.h"
#include "cli_support.h"
#include "sandbox.h"

namespace
{

using clitest::kTool;

int ctl(const std::string &args, std::string *out = nullptr)
{
    int st = sandbox::sh(kTool + " " + args + " >/tmp/ck.out 2>/tmp/ck.err </dev/null");
    if (out != nullptr)
        *out = sandbox::read_file("/tmp/ck.out");
    return st;
}

std::string state()
{
    std::string s;
    EXPECT_EQ(0, ctl("state --json", &s)) << sandbox::read_file("/tmp/ck.err");
    return s;
}

// Two ports wired to the peer, each with an address; lan1 with a gateway, a static route and
// an IPv6 address; lan2 stored in DHCP mode; a resolver file.
void two_ports(sandbox::Peer &peer)
{
    clitest::wire_two_ports(peer);
    std::string pkg;
    for (const char *n : {"1", "2"}) {
        std::string port = std::string("lan") + n, net = std::string("192.168.") + n;
        pkg += "config interface '" + port + "'\n\toption proto '" +
               (*n == '2' ? "dhcp'\n\toption ipv4dhcp '1" : "static'\n\toption ipv4dhcp '0") +
               "'\n\toption ipv6dhcp '0'\n\toption ipaddr '" + net +
               ".10'\n\toption netmask '255.255.255.0'\n";
    }
    sandbox::write_file("/etc/config/network", pkg);
    sandbox::write_file("/etc/resolv.conf", "# Interface lan1\nnameserver 192.168.1.1\n");
    sandbox::must("ip -6 addr add 2001:db8:1::10/64 dev lan1 nodad");
    sandbox::must("ip route add default via 192.168.1.1 dev lan1");
    sandbox::must(kTool + " route add lan1 10.9.0.0 255.255.0.0 >/dev/null");
    NET_Init();
}

// The exit status of a child that must end within `seconds`; -1 (and a failure) otherwise.
int exit_status(pid_t pid, double seconds)
{
    int st = 0;
    for (int i = 0; i < seconds * 20; ++i, usleep(50000))
        if (waitpid(pid, &st, WNOHANG) == pid)
            return WIFEXITED(st) ? WEXITSTATUS(st) : -1;
    kill(pid, SIGKILL);
    waitpid(pid, &st, 0);
    ADD_FAILURE() << "still running after " << seconds << " s";
    return -1;
}

bool output_has(const char *text, double seconds)
{
    for (int i = 0; i < seconds * 20; ++i, usleep(50000))
        if (sandbox::read_file("/tmp/try.out").find(text) != std::string::npos)
            return true;
    return false;
}

} // namespace

TEST(CliCheckpoint, StateComesBackAfterRollBack)
{
    REQUIRE_TOOL();
    sandbox::Peer peer;
    two_ports(peer);
    const struct {
        const char *change;
        const char *shows; // in the state while changed
    } rows[] = {
        {"addr set lan1 192.168.1.30 255.255.0.0", "\"192.168.1.30\",\"netmask\":\"255.255.0.0\""},
        {"gateway add lan2 192.168.2.1", "\"gateway\":\"192.168.2.1\""},
        {"route add lan2 10.7.0.0 255.255.0.0", "\"destination\":\"10.7.0.0\""},
        {"link mtu lan1 1400", "\"mtu\":1400"},
        {"link down lan1", "\"up\":false"},
        {"dhcp on lan1", "\"proto\":\"dhcp\"}},{\"name\":\"lan2\""},
        {"dhcp off lan2", "\"proto\":\"static\"}}],\"package\""},
        {"resolv set lan1 192.168.1.53 9.9.9.9", "nameserver 192.168.1.53"},
        {"addr6 add lan1 2001:db8:1::20 64", "{\"address\":\"2001:db8:1::20\",\"prefix\":64}"},
        {"addr6 del lan1 2001:db8:1::10 64", "\"ipv6\":[]"},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.change);
        const std::string before = state();
        ASSERT_EQ(0, NET_CheckpointCreate(300));
        EXPECT_EQ(0, ctl(r.change)) << sandbox::read_file("/tmp/ck.err");
        EXPECT_NE(std::string::npos, state().find(r.shows));
        EXPECT_EQ(0, ctl("checkpoint rollback")) << sandbox::read_file("/tmp/ck.out");
        EXPECT_EQ(before, state());
    }
}

TEST(CliCheckpoint, TryKeepsOnlyWhatIsConfirmed)
{
    REQUIRE_TOOL();
    sandbox::Peer peer;
    two_ports(peer);
    enum How { kEnter, kConfirm, kUsr1, kInt, kDeadline, kFails };
    const struct {
        How how;
        const char *args;
        int status;
    } rows[] = {
        {kEnter, "try -- link mtu lan1 1400", 0},
        {kConfirm, "try -- link mtu lan1 1401", 0},
        {kUsr1, "try -- link mtu lan1 1402", 0},
        {kInt, "try -- link mtu lan1 1403", 1},
        {kDeadline, "try --timeout 1 -- addr set lan1 192.168.7.7 255.255.255.0", 1},
        {kFails, "try -- addr set lan2 192.168.1.10 255.255.255.0", 1}, // lan1 holds it
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.args);
        const std::string before = state();
        int in[2];
        ASSERT_EQ(0, pipe(in));
        unlink("/tmp/try.out");
        pid_t pid = fork();
        if (pid == 0) {
            dup2(in[0], 0);
            close(in[1]);
            execl("/bin/sh", "sh", "-c",
                  ("exec " + kTool + " " + r.args + " >/tmp/try.out 2>&1").c_str(),
                  static_cast<char *>(nullptr));
            _exit(127);
        }
        close(in[0]);
        if (r.how != kEnter)
            close(in[1]); // its end confirms nothing
        if (r.how != kFails) {
            EXPECT_TRUE(output_has("applied:", 1 + sandbox::kLateSec));
        }
        switch (r.how) {
        case kEnter:
            EXPECT_EQ(1, write(in[1], "\n", 1));
            break;
        case kConfirm:
            EXPECT_EQ(0, ctl("checkpoint confirm"));
            break;
        case kUsr1:
        case kInt:
            kill(pid, r.how == kUsr1 ? SIGUSR1 : SIGINT);
            break;
        default:
            break;
        }
        EXPECT_EQ(r.status, exit_status(pid, 2 + sandbox::kLateSec))
            << sandbox::read_file("/tmp/try.out");
        if (r.how == kEnter)
            close(in[1]);
        EXPECT_EQ(r.status != 0, before == state());
    }
    // Statuses without a checkpoint, and with one pending already.
    EXPECT_EQ(2, ctl("checkpoint confirm"));
    EXPECT_EQ(2, ctl("checkpoint rollback"));
    EXPECT_EQ(0, ctl("checkpoint poll"));
    ASSERT_EQ(0, NET_CheckpointCreate(300));
    EXPECT_EQ(2, ctl("try -- names"));
    EXPECT_EQ(0, ctl("checkpoint rollback"));
}
