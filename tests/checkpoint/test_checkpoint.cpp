// Checkpoints on a two-port device with real interfaces and files: each kind of change is
// undone exactly, kills during creation and roll-back leave whole files, a reboot rolls back
// at the first poll, and a torn or hostile checkpoint is refused with nothing applied.
#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <stdint.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <random>
#include <string>

#include "libnetwork.h"
#include "sandbox.h"

namespace
{

const char kCkpt[] = "/etc/libnetwork/checkpoint";
const char kPkg[] = "/etc/config/network";
// lan1 as the device's default package has it: DHCPv6, IPv4 static.
const char kPkgV0[] = "\nconfig interface 'lan1'\n\toption proto 'dhcpv6'\n\toption ipv4dhcp '0'\n"
                      "\nconfig interface 'lan2'\n\toption proto 'static'\n\toption ipv4dhcp '0'\n";
const char kPkgV1[] = "\nconfig interface 'lan1'\n\toption proto 'static'\n\toption mtu '1280'\n";

// lan1 and lan2, each a veth with its far end up, IPv4 and IPv6 addresses, a default route
// on lan1 and a static one on lan2; lan2 in DHCP mode when asked.
void device(bool lan2Dhcp = false)
{
    sandbox::reset_device();
    sandbox::set_device("lan1,lan2");
    NET_Init();
    sandbox::must(
        "for n in 1 2; do ip link add lan$n type veth peer name nb$n && "
        "ip link set nb$n up && ip link set lan$n up && "
        "ip addr add 192.168.$n.10/24 dev lan$n && ip addr add 2001:db8:$n::10/64 dev lan$n; "
        "done && ip route add default via 192.168.1.1 dev lan1 && "
        "ip route add 10.9.0.0/16 via 192.168.2.1 dev lan2 && "
        "ip -6 route add default via 2001:db8:1::1 dev lan1 && rm -rf /etc/libnetwork");
    std::string pkg = kPkgV0;
    if (lan2Dhcp)
        pkg.replace(pkg.rfind("'static'"), 8, "'dhcp'").replace(pkg.rfind("'0'"), 3, "'1'");
    sandbox::write_file(kPkg, pkg, 0600);
    sandbox::write_file("/etc/resolv.conf", "# Interface lan1\nnameserver 192.168.1.1\n");
}

// What a checkpoint promises to put back, as the system's own tools show it.
std::string state()
{
    return sandbox::read_file(kPkg) + "|" +
           sandbox::sh_out("cat /etc/resolv.conf /tmp/.uci/network 2>&1") +
           sandbox::sh_out(
               "for p in lan1 lan2; do cat /sys/class/net/$p/flags /sys/class/net/$p/mtu; "
               "ip -o addr show dev $p scope global | awk '{print $3, $4}' | sort; done; "
               "ip route show table main | grep -v 'proto kernel'; "
               "ip -6 route show table main | grep -v 'proto kernel'");
}

std::function<void()> sh(const char *cmd)
{
    return [cmd] { sandbox::must(cmd); };
}

TEST(Checkpoint, EachChangeIsRolledBackExactly)
{
    REQUIRE_SANDBOX();
    const struct {
        const char *what;
        bool lan2Dhcp, restart;
        std::function<void()> change;
    } rows[] = {
        {"address and mask", false, false,
         sh("ip -4 addr flush dev lan1 && ip addr add 172.16.1.1/16 dev lan1 && "
            "ip addr add 172.16.1.2/16 dev lan1")},
        {"address by the library", false, false,
         [] { NET_SetIpv4Addr("lan2", "192.168.2.20"), NET_SetIpv4Mask("lan2", "255.255.0.0"); }},
        {"gateway", false, false, sh("ip route replace default via 192.168.1.254 dev lan1")},
        {"static routes", false, false,
         sh("ip route del 10.9.0.0/16 && ip route add 10.1.0.0/16 via 192.168.1.1")},
        {"mtu", false, false, [] { NET_SetMtu("lan2", 1280); }},
        {"link down", false, false, [] { NET_IntfDown("lan1"); }},
        {"dhcp on", false, true, [] { NET_EnableDhcp("lan1"); }},
        {"dhcp off", true, true, [] { NET_DisableDhcp("lan2"); }},
        {"resolver", false, false, [] { NET_SetDnsServer("lan1", "9.9.9.9", "1.1.1.1"); }},
        {"resolver gone, pending change", false, false,
         sh("rm /etc/resolv.conf && mkdir -p /tmp/.uci && echo \"network.lan1.mtu='1000'\" > "
            "/tmp/.uci/network")},
        {"ipv6 addresses", false, false,
         sh("ip addr add 2001:db8:1::99/64 dev lan1 && ip addr del 2001:db8:2::10/64 dev lan2")},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.what);
        device(r.lan2Dhcp);
        const char *restarts = "grep -c 'network restart' /tmp/network-script.log";
        std::string before = state(), restartsBefore = sandbox::sh_out(restarts);
        ASSERT_EQ(0, NET_CheckpointCreate(60));
        r.change();
        ASSERT_NE(before, state()) << "the change changed nothing";
        NetRollbackResult res;
        EXPECT_EQ(0, NET_CheckpointRollback(&res)) << res.szDetail;
        EXPECT_EQ(before, state());
        EXPECT_EQ(0u, res.uiFailed);
        EXPECT_EQ(2, res.iPorts);
        EXPECT_EQ(r.restart, (res.uiRestored & NET_CKPT_R_DHCP) != 0);
        EXPECT_EQ(r.restart, sandbox::sh_out(restarts) != restartsBefore);
        EXPECT_FALSE(sandbox::file_exists(kCkpt));
    }
}

// A child that makes the call is killed at a random point of it, many times over: the
// checkpoint is then absent or whole, the package one whole version, and the next roll-back
// brings everything back. Kills land from the call's start to a little past its usual end.
TEST(Checkpoint, KillsDuringCreateAndRollBackLeaveWholeFiles)
{
    REQUIRE_SANDBOX();
    device();
    sandbox::LogCapture quiet; // a line per call, thousands of calls
    std::string before = state();
    auto change = sh("ip addr add 10.99.0.1/24 dev lan1 && ip route replace default via 10.99.0.2 "
                     "&& sed -i 's/dhcpv6/static/' /etc/config/network");
    auto create = [] { return NET_CheckpointCreate(60); };
    auto rollback = [] { return NET_CheckpointRollback(nullptr); };
    auto took = [&](const std::function<int()> &op, bool undo) { // microseconds, a mean of 3
        double us = 0;
        for (int i = 0; i < 3; i++, NET_CheckpointConfirm()) {
            if (undo)
                create(), change();
            auto t0 = std::chrono::steady_clock::now();
            EXPECT_EQ(0, op());
            us += std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - t0)
                      .count();
        }
        return us / 3;
    };
    double createUs = took(create, false), rollbackUs = took(rollback, true);
    std::string v0 = sandbox::read_file(kPkg), v1;
    unsigned seed = static_cast<unsigned>(time(nullptr));
    std::mt19937 rng(seed);
    int kills = 0, finished = 0;
    auto killed = [&](const std::function<int()> &op, double us) {
        int ready[2];
        EXPECT_EQ(0, pipe(ready));
        pid_t pid = fork();
        if (pid == 0)
            _exit(write(ready[1], "r", 1) != 1 ? 3 : op() == 0 ? 0 : 2);
        char c;
        EXPECT_EQ(1, read(ready[0], &c, 1));
        close(ready[0]);
        close(ready[1]);
        usleep(static_cast<useconds_t>(std::uniform_real_distribution<double>(0, 1.2 * us)(rng)));
        kill(pid, SIGKILL);
        int status = 0;
        waitpid(pid, &status, 0);
        kills += WIFSIGNALED(status);
        finished += WIFEXITED(status);
        EXPECT_TRUE(WIFSIGNALED(status) || WEXITSTATUS(status) == 0) << "seed " << seed;
        NetCheckpoint st;
        EXPECT_EQ(0, NET_CheckpointStatus(&st)) << "checkpoint torn, seed " << seed;
        std::string pkg = sandbox::read_file(kPkg);
        EXPECT_TRUE(pkg == v0 || pkg == v1) << "package torn, seed " << seed;
        return st.iState != NET_CKPT_NONE;
    };
    for (int round = 0; kills < 500 && round < 1500 && !HasFailure(); round++) {
        EXPECT_TRUE(killed(create, createUs) || create() == 0) << "seed " << seed;
        change();
        v1 = sandbox::read_file(kPkg);
        EXPECT_TRUE(!killed(rollback, rollbackUs) || rollback() == 0) << "seed " << seed;
        if (round % 30 == 0) {
            EXPECT_EQ(before, state()) << "round " << round << " seed " << seed;
        }
    }
    EXPECT_EQ(before, state());
    EXPECT_GE(kills, 500) << finished << " calls finished before their kill";
    RecordProperty("kills", kills);
    RecordProperty("finished", finished);
}

// After a reboot the boot clock starts again: the boot identity tells it, and the first
// poll rolls back. Within the same boot the deadline decides.
TEST(Checkpoint, RebootOrDeadlineRollsBackAtThePoll)
{
    REQUIRE_SANDBOX();
    for (bool reboot : {true, false}) {
        SCOPED_TRACE(reboot ? "reboot" : "deadline");
        device();
        std::string before = state();
        ASSERT_EQ(0, NET_CheckpointCreate(reboot ? 60 : 1));
        NET_SetMtu("lan1", 1400);
        NetCheckpoint st;
        ASSERT_EQ(0, NET_CheckpointStatus(&st));
        EXPECT_EQ(NET_CKPT_PENDING, st.iState);
        EXPECT_EQ(1, st.iSameBoot);
        EXPECT_GT(st.llRemainingMs, 0);
        if (reboot) {
            EXPECT_EQ(0, NET_CheckpointPoll(nullptr));
            sandbox::write_file("/tmp/boot_id", "0f0f0f0f-0000-4000-8000-000000000000\n");
            sandbox::must("mount --bind /tmp/boot_id /proc/sys/kernel/random/boot_id");
        } else {
            for (int i = 0; i < 100 * (1 + sandbox::kLateSec) && st.iState == NET_CKPT_PENDING; i++)
                usleep(10000), NET_CheckpointStatus(&st);
        }
        ASSERT_EQ(0, NET_CheckpointStatus(&st));
        EXPECT_EQ(NET_CKPT_EXPIRED, st.iState);
        EXPECT_EQ(reboot ? 0 : 1, st.iSameBoot);
        EXPECT_EQ(0, st.llRemainingMs);
        int held = open("/etc/libnetwork/checkpoint.lock", O_RDWR | O_CLOEXEC);
        EXPECT_EQ(0, flock(held, LOCK_EX));
        EXPECT_EQ(0, NET_CheckpointPoll(nullptr)); // another process at work: not waited for
        close(held);
        NetRollbackResult res;
        EXPECT_EQ(1, NET_CheckpointPoll(&res)) << res.szDetail;
        EXPECT_EQ(before, state());
        EXPECT_EQ(0, NET_CheckpointPoll(&res));
        if (reboot)
            sandbox::must("umount /proc/sys/kernel/random/boot_id");
    }
}

uint32_t fnv1a(const std::string &s, size_t from)
{
    uint32_t h = 2166136261u;
    for (size_t i = from; i < s.size(); i++)
        h = (h ^ static_cast<uint8_t>(s[i])) * 16777619u;
    return h;
}

TEST(Checkpoint, RefusalsLeaveEverythingAsItIs)
{
    REQUIRE_SANDBOX();
    device();
    sandbox::FdCheck fds;
    NetCheckpoint st;
    for (int r :
         {NET_CheckpointStatus(nullptr), NET_CheckpointConfirm(), NET_CheckpointRollback(nullptr),
          NET_CheckpointCreate(0), NET_CheckpointCreate(86401), -NET_CheckpointStatus(&st) - 1})
        EXPECT_EQ(-1, r);
    EXPECT_EQ(NET_CKPT_NONE, st.iState);
    EXPECT_EQ(-1, st.llRemainingMs);
    EXPECT_EQ(0, NET_CheckpointPoll(nullptr));
    ASSERT_EQ(0, NET_CheckpointCreate(60));
    std::string good = sandbox::read_file(kCkpt);
    EXPECT_EQ(NET_CKPT_BUSY, NET_CheckpointCreate(30));
    EXPECT_EQ(good, sandbox::read_file(kCkpt));
    ASSERT_EQ(0, NET_CheckpointStatus(&st));
    EXPECT_EQ(60u, st.uiTimeoutS);
    EXPECT_GT(st.llCreatedUnix, 0);

    // Changed after creation; a refused checkpoint must leave it so.
    sandbox::write_file(kPkg, kPkgV1, 0600);
    auto field = [&](size_t at, uint32_t v) {
        std::string s = good;
        s.replace(at, 4, reinterpret_cast<const char *>(&v), 4);
        uint32_t sum = fnv1a(s, 24);
        return s.replace(16, 4, reinterpret_cast<const char *>(&sum), 4);
    };
    std::string flipped = good;
    flipped[good.size() / 2] ^= 0x40;
    // Empty, cut in the header, cut by a byte, a flipped byte, bad magic, a byte too many,
    // then with length and checksum right: another version, 9 ports, no timeout.
    const std::string bad[] = {"",          good.substr(0, 20),   good.substr(0, good.size() - 1),
                               flipped,     "X" + good.substr(1), good + "extra",
                               field(8, 2), field(44, 9),         field(40, 0)};
    for (const std::string &b : bad) {
        SCOPED_TRACE(b.size());
        sandbox::write_file(kCkpt, b, 0600);
        EXPECT_EQ(-1, NET_CheckpointStatus(&st));
        EXPECT_EQ(-1, NET_CheckpointPoll(nullptr));
        EXPECT_EQ(-1, NET_CheckpointRollback(nullptr));
        EXPECT_EQ(-1, NET_CheckpointCreate(60));
        EXPECT_EQ(kPkgV1, sandbox::read_file(kPkg));
    }
    EXPECT_EQ(0, NET_CheckpointConfirm()); // drops even a refused file
    EXPECT_FALSE(sandbox::file_exists(kCkpt));
}

} // namespace
