// How cost grows: NET_GetInterfaces with 1 to 1000 extra interfaces, NET_GetIpv6AddrList with
// 1 to 1000 IPv6 addresses on the interface, and the record readers and writer with a
// "network" package of 10 to 1000 sections; each beside its bare calls at the same size.
// The sizes only grow, so the benchmarks run in order (no interleaving). Runs inside the
// simulated camera; extra interfaces are veth ends whose peers sit in the neighbour.
#include <ifaddrs.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <vector>

#include "bench_package.h"
#include "libnetwork.h"

namespace
{

const int kCounts[] = {1, 10, 100, 1000};
const int kSections[] = {10, 100, 1000};

size_t plain_read(const char *path)
{
    static char buf[1 << 16];
    int fd = open(path, O_RDONLY | O_CLOEXEC);
    size_t total = 0;
    ssize_t n;
    while ((n = read(fd, buf, sizeof buf)) > 0)
        total += static_cast<size_t>(n);
    close(fd);
    return total;
}

// Runs the lines through one "ip -batch" call.
void ip_batch(const std::string &lines, const char *family = "")
{
    const char *path = "/tmp/bench-ip.batch";
    if (!benchutil::write_file(path, lines))
        abort();
    benchutil::must(std::string("ip ") + family + " -batch " + path);
}

// Extra interfaces s1..sN, each up with an IPv4 address; only ever grows.
void ensure_interfaces(int n)
{
    static int have = 0;
    if (have >= n)
        return;
    const char *peer = getenv("NETLIB_NEIGHBOUR_PID");
    std::string add, up;
    for (int i = have + 1; i <= n; ++i) {
        std::string name = "s" + std::to_string(i);
        add += "link add " + name + " type veth peer name p" + std::to_string(i) + " netns " +
               (peer ? peer : "1") + "\n";
        up += "link set " + name + " up\naddr add 10." + std::to_string(100 + i / 250) + "." +
              std::to_string(i % 250) + ".1/24 dev " + name + "\n";
    }
    ip_batch(add + up);
    have = n;
}

// Global addresses on lan1, one /64 each; only ever grows.
void ensure_ipv6(int n)
{
    static int have = 0;
    if (have >= n)
        return;
    std::string add;
    char line[96];
    for (int i = have + 1; i <= n; ++i) {
        snprintf(line, sizeof line, "addr add 2001:db8:a:%x::10/64 dev lan1 nodad\n", i);
        add += line;
    }
    ip_batch(add, "-6");
    have = n;
}

void ensure_package(int sections)
{
    static int have = 0;
    if (have == sections)
        return;
    benchutil::install_package(benchutil::grown_package(sections));
    have = sections;
}

NetEtherCfg lan1_record(int turn)
{
    NetEtherCfg c;
    memset(&c, 0, sizeof c);
    c.iIpv6Mode = 1;
    c.iMtu = turn ? 1492 : 1500;
    strcpy(c.szIpv4Addr, turn ? "192.168.1.11" : "192.168.1.10");
    strcpy(c.szIpv4Mask, "255.255.255.0");
    strcpy(c.szIpv4Gateway, "192.168.1.1");
    strcpy(c.szIpv6Addr, turn ? "2001:db8:1::11" : "2001:db8:1::10");
    c.iIpv6PrefixLen = 64;
    strcpy(c.szDns1, "192.168.1.1");
    return c;
}

void plain_replace(const std::string &text)
{
    static const char tmp[] = "/etc/config/.bench.tmp", target[] = "/etc/config/.bench";
    int fd = open(tmp, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0 || write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size()) ||
        fsync(fd) != 0 || close(fd) != 0 || rename(tmp, target) != 0)
        abort();
}

std::string name(const char *series, int n, bool base = false)
{
    return std::string("scale/") + series + "/" + std::to_string(n) + (base ? "/base" : "");
}

void register_interfaces()
{
    using benchmark::State;
    for (int n : kCounts) {
        benchmark::RegisterBenchmark(name("NET_GetInterfaces", n).c_str(), [n](State &s) {
            ensure_interfaces(n);
            std::vector<NetIfInfo> info(static_cast<size_t>(n) + 8);
            int got = 0;
            for (auto _ : s)
                got = NET_GetInterfaces(info.data(), static_cast<unsigned>(info.size()));
            s.counters["listed"] = got;
        });
        benchmark::RegisterBenchmark(name("NET_GetInterfaces", n, true).c_str(), [n](State &s) {
            ensure_interfaces(n);
            for (auto _ : s) {
                struct ifaddrs *list = nullptr;
                benchmark::DoNotOptimize(getifaddrs(&list));
                freeifaddrs(list);
            }
        });
    }
}

void register_ipv6()
{
    using benchmark::State;
    for (int n : kCounts) {
        benchmark::RegisterBenchmark(name("NET_GetIpv6AddrList", n).c_str(), [n](State &s) {
            ensure_ipv6(n);
            NetIpv6AddrList list;
            for (auto _ : s)
                benchmark::DoNotOptimize(NET_GetIpv6AddrList("lan1", &list));
            s.counters["listed"] = list.iNum;
        });
        // The index request and both tables read whole once.
        benchmark::RegisterBenchmark(name("NET_GetIpv6AddrList", n, true).c_str(), [n](State &s) {
            ensure_ipv6(n);
            for (auto _ : s) {
                benchmark::DoNotOptimize(if_nametoindex("lan1"));
                benchmark::DoNotOptimize(plain_read("/proc/net/if_inet6"));
                benchmark::DoNotOptimize(plain_read("/proc/net/ipv6_route"));
            }
        });
    }
}

void register_package()
{
    using benchmark::State;
    for (int n : kSections) {
        benchmark::RegisterBenchmark(name("NET_GetEtherCfg", n).c_str(), [n](State &s) {
            ensure_package(n);
            NetEtherCfg c;
            for (auto _ : s) {
                memset(&c, 0, sizeof c);
                if (NET_GetEtherCfg("lan1", &c) != 0)
                    abort();
            }
        });
        benchmark::RegisterBenchmark(name("NET_GetPortCfg", n).c_str(), [n](State &s) {
            ensure_package(n);
            NetPortCfg c;
            for (auto _ : s) {
                memset(&c, 0, sizeof c);
                if (NET_GetPortCfg(&c) != 0)
                    abort();
            }
        });
        benchmark::RegisterBenchmark(name("read", n, true).c_str(), [n](State &s) {
            ensure_package(n);
            for (auto _ : s)
                benchmark::DoNotOptimize(plain_read(benchutil::kNetworkPath));
        });
        benchmark::RegisterBenchmark(name("NET_SetEtherCfg", n).c_str(), [n](State &s) {
            ensure_package(n);
            NetEtherCfg rec[2] = {lan1_record(0), lan1_record(1)};
            int turn = 0;
            for (auto _ : s) {
                if (NET_SetEtherCfg("lan1", &rec[turn]) != 0)
                    abort();
                turn ^= 1;
            }
        })->UseRealTime();
        benchmark::RegisterBenchmark(name("write", n, true).c_str(), [n](State &s) {
            ensure_package(n);
            const std::string text = benchutil::read_file(benchutil::kNetworkPath);
            for (auto _ : s)
                plain_replace(text);
        })->UseRealTime();
    }
}

} // namespace

int main(int argc, char **argv)
{
    benchutil::require_device("bench_scale");
    setenv("NETLIB_LOG", "none", 1);
    // No duplicate address detection: a thousand addresses would keep the kernel busy.
    benchutil::must("sysctl -qw net.ipv6.conf.all.accept_dad=0 net.ipv6.conf.default.accept_dad=0 "
                    "net.ipv6.conf.lan1.accept_dad=0");
    NET_Init();
    // The package series first: the store's subnet checks read the live IPv6 addresses too.
    register_package();
    register_interfaces();
    register_ipv6();
    return benchutil::run(argc, argv, {"--benchmark_repetitions=3", "--benchmark_min_time=0.03"});
}
