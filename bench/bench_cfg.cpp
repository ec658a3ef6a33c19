// Stored configuration on the camera's "network" package: reading a record against reading
// the package's bytes with open/read/close, and storing a record against writing the same
// bytes to a temporary file, fsync and rename. Runs inside the simulated camera (two ports,
// so every store first reads the other port's record and checks both subnets, as it must).
#include <stdio.h>

#include "bench_package.h"
#include "libnetwork.h"

namespace
{

using benchutil::kNetworkPath;

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

// What a careful writer of the same bytes does without the library.
void plain_replace(const std::string &text)
{
    static const char tmp[] = "/etc/config/.bench.tmp", target[] = "/etc/config/.bench";
    int fd = open(tmp, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0 || write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size()) ||
        fsync(fd) != 0 || close(fd) != 0 || rename(tmp, target) != 0)
        abort();
}

// Two valid records for lan1 taken in turn, so every store changes the file.
NetEtherCfg lan1_record(int turn)
{
    NetEtherCfg c;
    memset(&c, 0, sizeof c);
    strcpy(c.szIfName, "lan1");
    c.iIpv4Mode = 0;
    c.iIpv6Mode = 1;
    c.iMtu = turn ? 1492 : 1500;
    strcpy(c.szIpv4Addr, turn ? "192.168.1.11" : "192.168.1.10");
    strcpy(c.szIpv4Mask, "255.255.255.0");
    strcpy(c.szIpv4Gateway, "192.168.1.1");
    strcpy(c.szIpv6Addr, turn ? "2001:db8:1::11" : "2001:db8:1::10");
    c.iIpv6PrefixLen = 64;
    strcpy(c.szIpv6Gateway, "2001:db8:1::1");
    strcpy(c.szDns1, "192.168.1.1");
    strcpy(c.szDns2, "8.8.8.8");
    return c;
}

void register_all()
{
    using benchmark::RegisterBenchmark;
    using benchmark::State;

    RegisterBenchmark("cfg/NET_GetEtherCfg", [](State &s) {
        NetEtherCfg c;
        for (auto _ : s) {
            memset(&c, 0, sizeof c);
            if (NET_GetEtherCfg("lan1", &c) != 0)
                abort();
        }
    });
    RegisterBenchmark("cfg/NET_GetPortCfg", [](State &s) {
        NetPortCfg c;
        for (auto _ : s) {
            memset(&c, 0, sizeof c);
            if (NET_GetPortCfg(&c) != 0)
                abort();
        }
    });
    RegisterBenchmark("cfg/read/base", [](State &s) {
        for (auto _ : s)
            benchmark::DoNotOptimize(plain_read(kNetworkPath));
    });

    RegisterBenchmark("cfg/NET_SetEtherCfg", [](State &s) {
        NetEtherCfg rec[2] = {lan1_record(0), lan1_record(1)};
        int turn = 0;
        for (auto _ : s) {
            if (NET_SetEtherCfg("lan1", &rec[turn]) != 0)
                abort();
            turn ^= 1;
        }
    })->UseRealTime();
    RegisterBenchmark("cfg/write/base", [](State &s) {
        const std::string text = benchutil::read_file(kNetworkPath);
        for (auto _ : s)
            plain_replace(text);
    })->UseRealTime();
}

} // namespace

int main(int argc, char **argv)
{
    benchutil::require_device("bench_cfg");
    setenv("NETLIB_LOG", "none", 1);
    benchutil::install_package(benchutil::camera_package());
    NET_Init();
    register_all();
    return benchutil::run(argc, argv,
                          {"--benchmark_repetitions=5", "--benchmark_min_time=0.05",
                           "--benchmark_enable_random_interleaving=true"});
}
