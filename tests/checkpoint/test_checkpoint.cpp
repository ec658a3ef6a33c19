// Checkpoints on a two-port device with real interfaces and files: each kind of change is
// undone exactly, kills during creation and roll-back leave whole files, a reboot rolls back
// at the first poll, and a torn or hostile checkpoint is refused with nothing applied.
#include <signal.h>
#include <stdint.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <random>
#include <string>
#include <vector>

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
    for (const char *n : {"1", "2"}) {
        sandbox::veth(std::string("lan") + n, std::string("nb") + n);
        sandbox::addr_add(std::string("lan") + n, std::string("192.168.") + n + ".10/24");
        sandbox::addr_add(std::string("lan") + n, std::string("2001:db8:") + n + "::10/64");
    }
    sandbox::must("ip route add default via 192.168.1.1 dev lan1 && "
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

std::string restarts()
{
    return sandbox::sh_out("grep -c 'network restart' /tmp/network-script.log 2>/dev/null");
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
         [] {
             sandbox::must("ip -4 addr flush dev lan1 && ip addr add 172.16.1.1/16 dev lan1 && "
                           "ip addr add 172.16.1.2/16 dev lan1");
         }},
        {"address by the library", false, false,
         [] { NET_SetIpv4Addr("lan2", "192.168.2.20"), NET_SetIpv4Mask("lan2", "255.255.0.0"); }},
        {"gateway", false, false,
         [] { sandbox::must("ip route replace default via 192.168.1.254 dev lan1"); }},
        {"static routes", false, false,
         [] {
             sandbox::must("ip route del 10.9.0.0/16 && ip route add 10.1.0.0/16 via 192.168.1.1");
         }},
        {"mtu", false, false, [] { NET_SetMtu("lan2", 1280); }},
        {"link down", false, false, [] { NET_IntfDown("lan1"); }},
        {"dhcp on", false, true, [] { NET_EnableDhcp("lan1"); }},
        {"dhcp off", true, true, [] { NET_DisableDhcp("lan2"); }},
        {"resolver", false, false, [] { NET_SetDnsServer("lan1", "9.9.9.9", "1.1.1.1"); }},
        {"resolver gone, pending change", false, false,
         [] {
             sandbox::must("rm /etc/resolv.conf");
             sandbox::write_file("/tmp/.uci/network", "network.lan1.mtu='1000'\n");
         }},
        {"ipv6 addresses", false, false,
         [] {
             sandbox::must("ip addr add 2001:db8:1::99/64 dev lan1 && ip addr del "
                           "2001:db8:2::10/64 dev lan2");
         }},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.what);
        device(r.lan2Dhcp);
        std::string before = state(), restartsBefore = restarts();
        ASSERT_EQ(0, NET_CheckpointCreate(60));
        r.change();
        ASSERT_NE(before, state()) << "the change changed nothing";
        NetRollbackResult res;
        EXPECT_EQ(0, NET_CheckpointRollback(&res)) << res.szDetail;
        EXPECT_EQ(before, state());
        EXPECT_EQ(0u, res.uiFailed);
        EXPECT_EQ(2, res.iPorts);
        EXPECT_EQ(r.restart, (res.uiRestored & NET_CKPT_R_DHCP) != 0);
        EXPECT_EQ(r.restart, restarts() != restartsBefore);
        EXPECT_FALSE(sandbox::file_exists(kCkpt));
    }
}

// A child that makes the call is killed at a random point of it, many times over: the
// checkpoint is then absent or whole, the package one whole version, and the next roll-back
// brings everything back.
TEST(Checkpoint, KillsDuringCreateAndRollBackLeaveWholeFiles)
{
    REQUIRE_SANDBOX();
    device();
    sandbox::LogCapture quiet; // a line per call, thousands of calls
    std::string before = state();
    auto change = [] {
        sandbox::write_file(kPkg, kPkgV1, 0600);
        sandbox::must(
            "ip addr add 10.99.0.1/24 dev lan1 && ip route replace default via 10.99.0.2");
    };
    auto timed = [](const std::function<void()> &prepare, const std::function<int()> &op) {
        std::vector<double> took;
        for (int i = 0; i < 5; i++) {
            prepare();
            auto t0 = std::chrono::steady_clock::now();
            EXPECT_EQ(0, op());
            took.push_back(
                std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - t0)
                    .count());
        }
        std::sort(took.begin(), took.end());
        return took[2];
    };
    double createUs =
        timed([] { NET_CheckpointConfirm(); }, [] { return NET_CheckpointCreate(60); });
    NET_CheckpointConfirm();
    double rollbackUs = timed([&] { NET_CheckpointCreate(60), change(); },
                              [] { return NET_CheckpointRollback(nullptr); });
    ASSERT_EQ(before, state());

    unsigned seed = static_cast<unsigned>(time(nullptr));
    std::mt19937 rng(seed);
    int kills = 0, finished = 0;
    // Kills land from the start of the call to a little past its usual end.
    auto killed = [&](const std::function<int()> &op, double us) {
        int ready[2];
        EXPECT_EQ(0, pipe(ready));
        pid_t pid = fork();
        if (pid == 0) {
            if (write(ready[1], "r", 1) != 1)
                _exit(3);
            _exit(op() == 0 ? 0 : 2);
        }
        char c;
        EXPECT_EQ(1, read(ready[0], &c, 1));
        close(ready[0]);
        close(ready[1]);
        usleep(static_cast<useconds_t>(std::uniform_real_distribution<double>(0, 1.2 * us)(rng)));
        kill(pid, SIGKILL);
        int status = 0;
        waitpid(pid, &status, 0);
        kills += WIFSIGNALED(status);
        finished += WIFEXITED(status) && WEXITSTATUS(status) == 0;
        EXPECT_TRUE(WIFSIGNALED(status) || WEXITSTATUS(status) == 0) << "seed " << seed;
        NetCheckpoint st;
        EXPECT_EQ(0, NET_CheckpointStatus(&st)) << "checkpoint torn, seed " << seed;
        std::string pkg = sandbox::read_file(kPkg);
        EXPECT_TRUE(pkg == kPkgV0 || pkg == kPkgV1) << "package torn, seed " << seed;
        return st.iState != NET_CKPT_NONE;
    };
    for (int round = 0; kills < 500 && round < 1500 && !HasFailure(); round++) {
        if (!killed([] { return NET_CheckpointCreate(60); }, createUs)) {
            ASSERT_EQ(0, NET_CheckpointCreate(60));
        }
        change();
        if (killed([] { return NET_CheckpointRollback(nullptr); }, rollbackUs)) {
            ASSERT_EQ(0, NET_CheckpointRollback(nullptr)) << "seed " << seed;
        }
        if (round % 30 == 0) {
            ASSERT_EQ(before, state()) << "round " << round << " seed " << seed;
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
    EXPECT_EQ(-1, NET_CheckpointStatus(nullptr));
    EXPECT_EQ(0, NET_CheckpointStatus(&st));
    EXPECT_EQ(NET_CKPT_NONE, st.iState);
    EXPECT_EQ(-1, st.llRemainingMs);
    EXPECT_EQ(-1, NET_CheckpointConfirm());
    EXPECT_EQ(-1, NET_CheckpointRollback(nullptr));
    EXPECT_EQ(0, NET_CheckpointPoll(nullptr));
    EXPECT_EQ(-1, NET_CheckpointCreate(0));
    EXPECT_EQ(-1, NET_CheckpointCreate(86401));
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
    const std::string bad[] = {"",
                               good.substr(0, 20),
                               good.substr(0, good.size() - 1),
                               flipped,
                               "X" + good.substr(1),
                               good + "extra",
                               field(8, 2),
                               field(24 + 20, 9) /* ports */,
                               field(24 + 16, 0) /* timeout */};
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
