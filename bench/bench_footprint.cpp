// Resident memory of a process running one MAC monitor thread (net_DetectMacCollisionThread
// on lan1, blocked in its wait for ARP frames), against the same program running one bare
// thread blocked in select on an ARP packet socket. Each is a fresh process (this program
// started again with --child=...), measured once its thread waits. The stripped sizes of the
// libraries are measured by bench/report.py. Runs inside the simulated camera.
#include <arpa/inet.h>
#include <dirent.h>
#include <linux/if_ether.h>
#include <pthread.h>
#include <signal.h>
#include <spawn.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include "bench_util.h"
#include "libnetwork.h"

extern char **environ;

namespace
{

void *bare_wait(void *)
{
    int fd = socket(AF_PACKET, SOCK_RAW, htons(ETH_P_ARP));
    fd_set set;
    for (;;) {
        FD_ZERO(&set);
        FD_SET(fd, &set);
        select(fd + 1, &set, nullptr, nullptr, nullptr);
    }
    return nullptr;
}

int child(const char *kind)
{
    static char dev[] = "lan1";
    pthread_t t;
    if (pthread_create(&t, nullptr,
                       strcmp(kind, "monitor") == 0 ? net_DetectMacCollisionThread : bare_wait,
                       dev) != 0)
        return 1;
    for (;;)
        pause();
}

// True once a thread of pid sits in select (23) or pselect6 (270).
bool waiting_in_select(pid_t pid)
{
    std::string dir = "/proc/" + std::to_string(pid) + "/task";
    DIR *d = opendir(dir.c_str());
    if (d == nullptr)
        return false;
    bool found = false;
    while (struct dirent *e = readdir(d)) {
        if (e->d_name[0] == '.')
            continue;
        std::string sc = benchutil::read_file(dir + "/" + e->d_name + "/syscall");
        long nr = strtol(sc.c_str(), nullptr, 10);
        if (!sc.empty() && (nr == 23 || nr == 270))
            found = true;
    }
    closedir(d);
    return found;
}

// A "Key:   123 kB" figure of a /proc file; -1 when absent.
long kib_of(pid_t pid, const char *file, const char *key)
{
    std::string st = benchutil::read_file("/proc/" + std::to_string(pid) + "/" + file);
    size_t at = st.find(key);
    return at == std::string::npos ? -1 : strtol(st.c_str() + at + strlen(key), nullptr, 10);
}

struct Footprint {
    long rss = -1;      // resident, shared library pages included
    long private_ = -1; // written pages of this process alone
};

// Starts this program as the given child, waits until its thread waits, and measures it.
Footprint measure(const char *kind)
{
    std::string self = "/proc/self/exe", arg = std::string("--child=") + kind;
    char *argv[] = {&self[0], &arg[0], nullptr};
    pid_t pid;
    Footprint f;
    if (posix_spawn(&pid, "/proc/self/exe", nullptr, nullptr, argv, environ) != 0)
        return f;
    for (int i = 0; i < 600 && f.rss < 0; ++i) {
        if (waiting_in_select(pid)) {
            usleep(50000); // let it settle in the wait
            f.rss = kib_of(pid, "status", "VmRSS:");
            f.private_ = kib_of(pid, "smaps_rollup", "Private_Dirty:");
        } else {
            usleep(5000);
        }
    }
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    return f;
}

void register_all()
{
    using benchmark::State;
    auto one = [](const char *kind) {
        return [kind](State &s) {
            Footprint f;
            for (auto _ : s)
                f = measure(kind);
            if (f.rss < 0)
                s.SkipWithError("the thread never reached its wait");
            s.counters["rss_kib"] = static_cast<double>(f.rss);
            s.counters["private_kib"] = static_cast<double>(f.private_);
        };
    };
    benchmark::RegisterBenchmark("footprint/monitor_rss", one("monitor"))->Iterations(1);
    benchmark::RegisterBenchmark("footprint/monitor_rss/base", one("bare"))->Iterations(1);
}

} // namespace

int main(int argc, char **argv)
{
    if (argc > 1 && strncmp(argv[1], "--child=", 8) == 0)
        return child(argv[1] + 8);
    benchutil::require_device("bench_footprint");
    setenv("NETLIB_LOG", "none", 1);
    register_all();
    return benchutil::run(argc, argv, {"--benchmark_repetitions=3"});
}
