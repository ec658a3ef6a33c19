// libuci on a realistic "network" package (40 sections): loading it against reading the same
// bytes with open/read/close, and a commit against writing the same bytes to a temporary
// file, fsync and rename (and, as a second baseline, fsync of the directory too). After the
// runs it prints uci / plain calls per call.
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "uci.h"

namespace
{

// The package as the device writes it: 40 sections, lists, anonymous routes and rules.
std::string network_package()
{
    std::string t = "\nconfig interface 'loopback'\n\toption device 'lo'\n\toption proto 'static'\n"
                    "\toption ipaddr '127.0.0.1'\n\toption netmask '255.0.0.0'\n"
                    "\nconfig globals 'globals'\n\toption ula_prefix 'fd1c:2b3a:4d5e::/48'\n"
                    "\nconfig device\n\toption name 'br-lan'\n\toption type 'bridge'\n"
                    "\tlist ports 'lan1'\n\tlist ports 'lan2'\n\tlist ports 'lan3'\n";
    for (int i = 0; i < 12; i++) {
        std::string n = std::to_string(i);
        t += "\nconfig interface 'if" + n + "'\n\toption device 'eth0." + n +
             "'\n\toption proto 'static'\n\toption ipaddr '192.168." + n +
             ".1'\n\toption netmask '255.255.255.0'\n\toption gateway '192.168." + n +
             ".254'\n\tlist dns '1.1.1.1'\n\tlist dns '8.8.8.8'\n\toption mtu '1500'\n";
    }
    for (int i = 0; i < 15; i++) {
        std::string n = std::to_string(i);
        t += "\nconfig route\n\toption interface 'if" + std::to_string(i % 12) +
             "'\n\toption target '10." + n + ".0.0/16'\n\toption gateway '192.168." +
             std::to_string(i % 12) + ".254'\n\toption metric '" + n + "'\n";
    }
    for (int i = 0; i < 10; i++) {
        std::string n = std::to_string(i);
        t += "\nconfig rule\n\toption src '10." + n + ".0.0/16'\n\toption lookup '" +
             std::to_string(100 + i) + "'\n\toption priority '" + std::to_string(1000 + i) +
             "'\n\toption comment 'it'\\''s rule " + n + "'\n";
    }
    return t + "\n";
}

// Config files on a disk, change files in memory: /etc/config and /tmp/.uci on the device.
struct Dir {
    std::string path, save;
    Dir()
    {
        char tmpl[] = "/tmp/ucibench.XXXXXX";
        char stmpl[] = "/dev/shm/ucibench.XXXXXX";
        path = mkdtemp(tmpl);
        const char *s = mkdtemp(stmpl);
        save = s ? s : path + "/save";
        mkdir(save.c_str(), 0700);
        write_all(path + "/network", network_package());
    }
    ~Dir() { std::system(("rm -rf '" + path + "' '" + save + "'").c_str()); }
    static void write_all(const std::string &file, const std::string &text)
    {
        int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        if (fd < 0 || write(fd, text.data(), text.size()) != (ssize_t)text.size())
            abort();
        close(fd);
    }
};

uci_context *context(const Dir &d)
{
    uci_context *ctx = uci_alloc_context();
    uci_set_confdir(ctx, d.path.c_str());
    uci_set_savedir(ctx, d.save.c_str());
    return ctx;
}

void Load_Uci(benchmark::State &state)
{
    Dir d;
    for (auto _ : state) {
        uci_context *ctx = context(d);
        uci_package *p = nullptr;
        if (uci_load(ctx, "network", &p) != UCI_OK)
            abort();
        benchmark::DoNotOptimize(p);
        uci_free_context(ctx);
    }
}

void Load_Plain(benchmark::State &state)
{
    Dir d;
    const std::string file = d.path + "/network";
    char buf[16384];
    for (auto _ : state) {
        int fd = open(file.c_str(), O_RDONLY | O_CLOEXEC);
        ssize_t n = read(fd, buf, sizeof(buf));
        benchmark::DoNotOptimize(n);
        close(fd);
    }
}

// One changed option per commit; the whole file is rewritten each time.
void Commit_Uci(benchmark::State &state)
{
    Dir d;
    uci_context *ctx = context(d);
    uci_package *p = nullptr;
    if (uci_load(ctx, "network", &p) != UCI_OK)
        abort();
    int i = 0;
    for (auto _ : state) {
        uci_ptr ptr{};
        ptr.p = p;
        ptr.section = "if3";
        ptr.option = "mtu";
        ptr.value = (i++ & 1) ? "1500" : "1492";
        if (uci_set(ctx, &ptr) != UCI_OK || uci_commit(ctx, &p, false) != UCI_OK)
            abort();
    }
    uci_free_context(ctx);
}

void Commit_Plain(benchmark::State &state)
{
    Dir d;
    const std::string text = network_package(), file = d.path + "/network";
    const std::string tmp = d.path + "/.network.tmp";
    for (auto _ : state) {
        int fd = open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        if (fd < 0 || write(fd, text.data(), text.size()) != (ssize_t)text.size() || fsync(fd) != 0)
            abort();
        close(fd);
        if (rename(tmp.c_str(), file.c_str()) != 0)
            abort();
    }
}

// The same, also syncing the directory as our commit does so the rename itself is durable.
void Commit_PlainDirSync(benchmark::State &state)
{
    Dir d;
    const std::string text = network_package(), file = d.path + "/network";
    const std::string tmp = d.path + "/.network.tmp";
    for (auto _ : state) {
        int fd = open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        if (fd < 0 || write(fd, text.data(), text.size()) != (ssize_t)text.size() || fsync(fd) != 0)
            abort();
        close(fd);
        if (rename(tmp.c_str(), file.c_str()) != 0)
            abort();
        int dir = open(d.path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (dir < 0 || fsync(dir) != 0)
            abort();
        close(dir);
    }
}

// Loading is CPU work: compared in CPU time, which other load on the machine disturbs less.
BENCHMARK(Load_Uci);
BENCHMARK(Load_Plain);
BENCHMARK(Commit_Uci)->UseRealTime();
BENCHMARK(Commit_Plain)->UseRealTime();
BENCHMARK(Commit_PlainDirSync)->UseRealTime();

// Keeps the median time per call of every benchmark (wall time for those measured in wall
// time, else CPU time) while printing as usual.
class RatioReporter : public benchmark::ConsoleReporter
{
  public:
    void ReportRuns(const std::vector<Run> &runs) override
    {
        for (const auto &r : runs) {
            if (r.run_type == Run::RT_Aggregate && r.aggregate_name == "median")
                median_[r.run_name.function_name] =
                    r.run_name.time_type.empty() ? r.GetAdjustedCPUTime() : r.GetAdjustedRealTime();
        }
        ConsoleReporter::ReportRuns(runs);
    }

    void print_ratios() const
    {
        std::printf("\nuci / plain system calls (per call; load in CPU time, commit in wall "
                    "time; %zu bytes)\n",
                    network_package().size());
        const char *const pairs[][3] = {
            {"Load", "Load_Uci", "Load_Plain"},
            {"Commit", "Commit_Uci", "Commit_Plain"},
            {"Commit (plain also syncs the directory)", "Commit_Uci", "Commit_PlainDirSync"},
        };
        for (const auto &p : pairs) {
            auto u = median_.find(p[1]);
            auto s = median_.find(p[2]);
            if (u != median_.end() && s != median_.end() && s->second > 0)
                std::printf("  %-40s %8.2f\n", p[0], u->second / s->second);
        }
    }

  private:
    std::map<std::string, double> median_;
};

} // namespace

int main(int argc, char **argv)
{
    // Disk times drift with other load: interleaved repetitions put both sides of a ratio
    // under the same conditions. Flags given on the command line still win.
    std::vector<char *> args(argv, argv + argc);
    static char interleave[] = "--benchmark_enable_random_interleaving=true";
    static char reps[] = "--benchmark_repetitions=8";
    static char minTime[] = "--benchmark_min_time=0.05";
    args.insert(args.begin() + 1, {interleave, reps, minTime});
    argc = (int)args.size();
    argv = args.data();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.print_ratios();
    benchmark::Shutdown();
    return 0;
}
