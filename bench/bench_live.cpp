// Live reads of interface state against the bare system calls each one must make: a control
// socket, one request and close; or open, read to the end and close of the kernel's table.
// Runs inside the simulated camera (lan1 192.168.1.10/24 with a neighbour at .1), where it
// adds a default route and two global IPv6 addresses to lan1 first.
#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "bench_util.h"
#include "libnetwork.h"

namespace
{

const char *const kDev = "lan1";

// socket, one request about kDev, close: what every ioctl reader must do.
int bare_ioctl(unsigned long req, struct ifreq &ifr)
{
    memset(&ifr, 0, sizeof ifr);
    strncpy(ifr.ifr_name, kDev, IFNAMSIZ - 1);
    int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    int rc = ioctl(fd, req, &ifr);
    close(fd);
    return rc;
}

// open, read to the end, close: what every reader of a kernel table must do.
size_t bare_read(const char *path)
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

void register_all()
{
    using benchmark::RegisterBenchmark;
    using benchmark::State;

    RegisterBenchmark("live/NET_GetIpv4Addr", [](State &s) {
        char text[16];
        for (auto _ : s)
            benchmark::DoNotOptimize(NET_GetIpv4Addr(kDev, text, sizeof text));
    });
    RegisterBenchmark("live/NET_GetIpv4Addr/base", [](State &s) {
        struct ifreq ifr;
        for (auto _ : s)
            benchmark::DoNotOptimize(bare_ioctl(SIOCGIFADDR, ifr));
    });

    RegisterBenchmark("live/NET_GetMacAddr", [](State &s) {
        char text[18];
        for (auto _ : s)
            benchmark::DoNotOptimize(NET_GetMacAddr(kDev, text, sizeof text));
    });
    RegisterBenchmark("live/NET_GetMacAddr/base", [](State &s) {
        struct ifreq ifr;
        for (auto _ : s)
            benchmark::DoNotOptimize(bare_ioctl(SIOCGIFHWADDR, ifr));
    });

    RegisterBenchmark("live/NET_GetMtu", [](State &s) {
        int mtu = 0;
        for (auto _ : s)
            benchmark::DoNotOptimize(NET_GetMtu(kDev, &mtu));
    });
    RegisterBenchmark("live/NET_GetMtu/base", [](State &s) {
        struct ifreq ifr;
        for (auto _ : s)
            benchmark::DoNotOptimize(bare_ioctl(SIOCGIFMTU, ifr));
    });

    RegisterBenchmark("live/NET_GetIpv4Gateway", [](State &s) {
        char text[16];
        for (auto _ : s)
            benchmark::DoNotOptimize(NET_GetIpv4Gateway(kDev, text, sizeof text));
    });
    RegisterBenchmark("live/NET_GetIpv4Gateway/base", [](State &s) {
        for (auto _ : s)
            benchmark::DoNotOptimize(bare_read("/proc/net/route"));
    });

    // The listing must learn the interface index (a request) and read the address table,
    // then the route table once per listed address for its prefix length.
    RegisterBenchmark("live/NET_GetIpv6AddrList", [](State &s) {
        NetIpv6AddrList list;
        for (auto _ : s)
            benchmark::DoNotOptimize(NET_GetIpv6AddrList(kDev, &list));
        s.counters["addresses"] = list.iNum;
    });
    RegisterBenchmark("live/NET_GetIpv6AddrList/base", [](State &s) {
        NetIpv6AddrList list;
        NET_GetIpv6AddrList(kDev, &list);
        const int listed = list.iNum;
        struct ifreq ifr;
        for (auto _ : s) {
            benchmark::DoNotOptimize(bare_ioctl(SIOCGIFINDEX, ifr));
            benchmark::DoNotOptimize(bare_read("/proc/net/if_inet6"));
            for (int i = 0; i < listed; ++i)
                benchmark::DoNotOptimize(bare_read("/proc/net/ipv6_route"));
        }
    });

    RegisterBenchmark("live/NET_GetInterfaces", [](State &s) {
        NetIfInfo info[8];
        for (auto _ : s)
            benchmark::DoNotOptimize(NET_GetInterfaces(info, 8));
    });
    RegisterBenchmark("live/NET_GetInterfaces/base", [](State &s) {
        for (auto _ : s) {
            struct ifaddrs *list = nullptr;
            benchmark::DoNotOptimize(getifaddrs(&list));
            freeifaddrs(list);
        }
    });
}

} // namespace

int main(int argc, char **argv)
{
    benchutil::require_device("bench_live");
    setenv("NETLIB_LOG", "none", 1);
    benchutil::must("ip route replace default via 192.168.1.1 dev lan1 && "
                    "ip -6 addr add 2001:db8:1::10/64 dev lan1 nodad && "
                    "ip -6 addr add 2001:db8:1:1::10/64 dev lan1 nodad && "
                    "ip -6 addr add 2001:db8:2::10/64 dev lan2 nodad");
    register_all();
    // Pairs interleaved and repeated, so drift on this small machine hits both sides alike.
    return benchutil::run(argc, argv,
                          {"--benchmark_repetitions=5", "--benchmark_min_time=0.05",
                           "--benchmark_enable_random_interleaving=true"});
}
