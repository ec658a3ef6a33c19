// Kernel events: how soon NET_EventRead returns a change, against `ip monitor` (a process
// started once, as an application would run it) seeing the same change; and how often an
// idle monitored descriptor wakes its poll loop. Runs inside the simulated camera, where
// it changes lan1's MTU back and forth (SIOCSIFMTU: one system call, timed from before it).
#include <algorithm>
#include <net/if.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <time.h>

#include "bench_util.h"
#include "libnetwork.h"

extern char **environ;

namespace
{

const char *const kDev = "lan1";

double now_us()
{
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<double>(ts.tv_sec) * 1e6 + static_cast<double>(ts.tv_nsec) / 1e3;
}

bool set_mtu(int ctl, int mtu)
{
    struct ifreq ifr = {};
    strncpy(ifr.ifr_name, kDev, IFNAMSIZ - 1);
    ifr.ifr_mtu = mtu;
    return ioctl(ctl, SIOCSIFMTU, &ifr) == 0;
}

// `ip monitor link` with its standard output on a pipe (it flushes after every message).
pid_t start_ip_monitor(int *out)
{
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0)
        return -1;
    posix_spawn_file_actions_t fa;
    posix_spawn_file_actions_init(&fa);
    posix_spawn_file_actions_adddup2(&fa, fds[1], 1);
    const char *argv[] = {"ip", "monitor", "link", nullptr};
    pid_t pid = -1;
    if (posix_spawnp(&pid, "ip", &fa, nullptr, const_cast<char *const *>(argv), environ) != 0)
        pid = -1;
    posix_spawn_file_actions_destroy(&fa);
    close(fds[1]);
    *out = fds[0];
    return pid;
}

// Everything readable now (the rest of a message, a late duplicate), without waiting.
void drain(int evFd, int pipeFd)
{
    NetEvent ev;
    while (NET_EventRead(evFd, &ev) == 1) {
    }
    char buf[4096];
    struct pollfd p = {pipeFd, POLLIN, 0};
    while (poll(&p, 1, 0) == 1 && read(pipeFd, buf, sizeof buf) > 0) {
    }
}

double percentile(std::vector<double> v, double q)
{
    std::sort(v.begin(), v.end());
    return v.empty() ? 0 : v[static_cast<size_t>(q * static_cast<double>(v.size() - 1))];
}

// One change at a time; both sides wait in one poll, each timed when it has the change.
void BM_EventLatency(benchmark::State &state)
{
    const char *names[] = {kDev, nullptr};
    int ev = NET_EventOpen(names, NET_EVENT_LINK);
    int ctl = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    int pipeFd = -1;
    pid_t ip = start_ip_monitor(&pipeFd);
    if (ev < 0 || ctl < 0 || ip < 0) {
        state.SkipWithError("cannot open the descriptor, the control socket or ip monitor");
        return;
    }
    // ip listens a moment after it starts: change until it reports.
    int mtu = 1400;
    for (int i = 0; i < 100; ++i) {
        set_mtu(ctl, mtu = 2900 - mtu);
        struct pollfd p = {pipeFd, POLLIN, 0};
        if (poll(&p, 1, 100) == 1)
            break;
    }
    usleep(20000);
    drain(ev, pipeFd);

    std::vector<double> ours, theirs;
    for (auto _ : state) {
        mtu = 2900 - mtu;
        double t0 = now_us(), tOurs = 0, tIp = 0;
        set_mtu(ctl, mtu);
        while (tOurs == 0 || tIp == 0) {
            struct pollfd p[2] = {{ev, static_cast<short>(tOurs == 0 ? POLLIN : 0), 0},
                                  {pipeFd, static_cast<short>(tIp == 0 ? POLLIN : 0), 0}};
            if (poll(p, 2, 2000) <= 0) {
                state.SkipWithError("a change was not seen within 2 s");
                break;
            }
            NetEvent e;
            if (tOurs == 0 && NET_EventRead(ev, &e) == 1 && e.iKind == NET_EVENT_MTU &&
                e.iMtu == mtu)
                tOurs = now_us();
            char buf[4096];
            if (tIp == 0 && (p[1].revents & POLLIN) && read(pipeFd, buf, sizeof buf) > 0)
                tIp = now_us();
        }
        if (tOurs == 0 || tIp == 0)
            break;
        ours.push_back(tOurs - t0);
        theirs.push_back(tIp - t0);
        usleep(2000);
        drain(ev, pipeFd);
    }
    kill(ip, SIGTERM);
    waitpid(ip, nullptr, 0);
    close(pipeFd);
    close(ctl);
    NET_EventClose(ev);
    state.counters["p50_us"] = percentile(ours, 0.5);
    state.counters["p99_us"] = percentile(ours, 0.99);
    state.counters["ip_p50_us"] = percentile(theirs, 0.5);
    state.counters["ip_p99_us"] = percentile(theirs, 0.99);
}

// An open descriptor on an idle camera for 10 s: how often its poll returns.
void BM_EventIdleWakeups(benchmark::State &state)
{
    int ev = NET_EventOpen(nullptr, NET_EVENT_ALL);
    if (ev < 0) {
        state.SkipWithError("cannot open the descriptor");
        return;
    }
    long wakeups = 0;
    for (auto _ : state) {
        double end = now_us() + 10e6;
        for (double left; (left = end - now_us()) > 0;) {
            struct pollfd p = {ev, POLLIN, 0};
            if (poll(&p, 1, static_cast<int>(left / 1000) + 1) == 1) {
                ++wakeups;
                NetEvent e;
                while (NET_EventRead(ev, &e) == 1) {
                }
            }
        }
    }
    NET_EventClose(ev);
    state.counters["wakeups"] = static_cast<double>(wakeups);
}

BENCHMARK(BM_EventLatency)->Iterations(1000)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_EventIdleWakeups)->Iterations(1)->UseRealTime()->Unit(benchmark::kSecond);

} // namespace

int main(int argc, char **argv)
{
    benchutil::require_device("bench_events");
    setenv("NETLIB_LOG", "none", 1);
    return benchutil::run(argc, argv, {});
}
