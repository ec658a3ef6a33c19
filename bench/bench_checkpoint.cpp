// Checkpoints: the time NET_CheckpointRollback takes to undo a typical remote mistake on a
// port without DHCP (an extra IPv4 and IPv6 address, another gateway, a static route, the
// other port's MTU, the resolver file and the package file), against the same undone by
// the commands an operator would run (one shell: ip addr, ip route, ip link, cp); and the
// size of the checkpoint file. Runs inside the simulated camera (lan1, lan2 static).
#include <sys/stat.h>

#include "bench_util.h"
#include "libnetwork.h"

namespace
{

using benchutil::must;

const char kChange[] = "ip addr add 192.168.1.77/24 dev lan1 && "
                       "ip addr add 2001:db8:1::77/64 dev lan1 && "
                       "ip route replace default via 192.168.1.254 dev lan1 && "
                       "ip route add 10.7.0.0/16 via 192.168.2.1 dev lan2 && "
                       "ip link set lan2 mtu 1400 && "
                       "sed -i 's/1500/1400/' /etc/config/network && "
                       "echo 'nameserver 9.9.9.9' > /etc/resolv.conf";
const char kUndo[] = "ip addr del 192.168.1.77/24 dev lan1 && "
                     "ip addr del 2001:db8:1::77/64 dev lan1 && "
                     "ip route replace default via 192.168.1.1 dev lan1 && "
                     "ip route del 10.7.0.0/16 via 192.168.2.1 dev lan2 && "
                     "ip link set lan2 mtu 1500 && "
                     "cp /tmp/ckpt-bench/network /etc/config/network && "
                     "cp /tmp/ckpt-bench/resolv.conf /etc/resolv.conf";

void setup()
{
    // Both ports static, a gateway and a global IPv6 address on lan1: what is recorded.
    must("sed -i \"s/'dhcpv6'/'static'/\" /etc/config/network && "
         "ip route replace default via 192.168.1.1 dev lan1 && "
         "ip addr replace 2001:db8:1::10/64 dev lan1 && mkdir -p /tmp/ckpt-bench && "
         "cp /etc/config/network /etc/resolv.conf /tmp/ckpt-bench/");
}

void BM_Rollback(benchmark::State &s)
{
    for (auto _ : s) {
        s.PauseTiming();
        if (NET_CheckpointCreate(600) != 0) {
            s.SkipWithError("NET_CheckpointCreate failed");
            break;
        }
        must(kChange);
        s.ResumeTiming();
        NetRollbackResult res;
        if (NET_CheckpointRollback(&res) != 0 || (res.uiRestored & NET_CKPT_R_DHCP)) {
            s.SkipWithError(res.szDetail);
            break;
        }
    }
}

void BM_RollbackBase(benchmark::State &s)
{
    for (auto _ : s) {
        s.PauseTiming();
        must(kChange);
        s.ResumeTiming();
        must(kUndo);
    }
}

void BM_Create(benchmark::State &s)
{
    struct stat st = {};
    for (auto _ : s) {
        if (NET_CheckpointCreate(600) != 0) {
            s.SkipWithError("NET_CheckpointCreate failed");
            break;
        }
        s.PauseTiming();
        stat("/etc/libnetwork/checkpoint", &st);
        NET_CheckpointConfirm();
        s.ResumeTiming();
    }
    s.counters["file_bytes"] = static_cast<double>(st.st_size);
}

} // namespace

int main(int argc, char **argv)
{
    benchutil::require_device(argv[0]);
    NET_Init();
    setup();
    for (auto b : {benchmark::RegisterBenchmark("ckpt/rollback", BM_Rollback),
                   benchmark::RegisterBenchmark("ckpt/rollback/base", BM_RollbackBase),
                   benchmark::RegisterBenchmark("ckpt/create", BM_Create)})
        b->UseRealTime()->Iterations(20)->Repetitions(5);
    return benchutil::run(argc, argv, {"--benchmark_report_aggregates_only=true"});
}
