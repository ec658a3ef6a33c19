// Our text parsers and formatters (Inet_PtoN, Inet_NtoP), and the exported converters and
// validators built on them, against the C library's inet_pton/inet_ntop on the same inputs
// in the same run. After the runs it prints, per
// pair, ours / C library in time per call; the goal is a ratio of at most 1.0.
#include <arpa/inet.h>
#include <string.h>
#include <sys/socket.h>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "libnetwork.h"

namespace
{

const std::vector<std::string> &texts4()
{
    static const std::vector<std::string> t = [] {
        std::vector<std::string> v = {"0.0.0.0",  "255.255.255.255", "192.168.1.10",
                                      "10.0.0.1", "172.16.254.3",    "8.8.8.8",
                                      "1.2.3.4",  "224.0.0.251"};
        std::mt19937 rng(7);
        for (int i = 0; i < 56; ++i) {
            char b[20];
            unsigned o[4];
            for (auto &x : o)
                x = static_cast<unsigned>(rng() & 255);
            snprintf(b, sizeof b, "%u.%u.%u.%u", o[0], o[1], o[2], o[3]);
            v.push_back(b);
        }
        return v;
    }();
    return t;
}

const std::vector<std::string> &texts6()
{
    static const std::vector<std::string> t = [] {
        std::vector<std::string> v = {"::",
                                      "::1",
                                      "2001:db8::1",
                                      "fe80::211:22ff:fe33:4455",
                                      "::ffff:192.168.1.10",
                                      "2001:0db8:85a3:0000:0000:8a2e:0370:7334",
                                      "FF02::1:FF00:1",
                                      "1:2:3:4:5:6:7:8",
                                      "64:ff9b::10.0.0.1",
                                      "2001:db8:0:0:1::1"};
        std::mt19937 rng(9);
        for (int i = 0; i < 54; ++i) {
            unsigned char a[16];
            for (int k = 0; k < 16; k += 2) {
                bool zero = rng() % 3 == 0;
                a[k] = zero ? 0 : static_cast<unsigned char>(rng());
                a[k + 1] = zero ? 0 : static_cast<unsigned char>(rng());
            }
            char b[64];
            inet_ntop(AF_INET6, a, b, sizeof b);
            v.push_back(b);
        }
        return v;
    }();
    return t;
}

std::vector<std::vector<unsigned char>> binaries(int af)
{
    std::vector<std::vector<unsigned char>> out;
    for (const auto &s : af == AF_INET ? texts4() : texts6()) {
        std::vector<unsigned char> b(16);
        inet_pton(af, s.c_str(), b.data());
        out.push_back(b);
    }
    return out;
}

template <class Parse> void parse_loop(benchmark::State &state, int af, Parse parse)
{
    const auto &in = af == AF_INET ? texts4() : texts6();
    unsigned char out[16];
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(parse(af, in[i].c_str(), out));
        benchmark::ClobberMemory();
        if (++i == in.size())
            i = 0;
    }
}

template <class Format> void format_loop(benchmark::State &state, int af, Format format)
{
    const auto in = binaries(af);
    char out[64];
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(format(af, in[i].data(), out, sizeof out));
        benchmark::ClobberMemory();
        if (++i == in.size())
            i = 0;
    }
}

int ours_pton(int af, const char *s, void *d)
{
    return Inet_PtoN(af, s, d);
}
int libc_pton(int af, const char *s, void *d)
{
    return inet_pton(af, s, d);
}
const char *ours_ntop(int af, const void *s, char *d, unsigned n)
{
    return Inet_NtoP(af, s, d, n);
}
const char *libc_ntop(int af, const void *s, char *d, unsigned n)
{
    return inet_ntop(af, s, d, n);
}

void Parse4_Ours(benchmark::State &s)
{
    parse_loop(s, AF_INET, ours_pton);
}
void Parse4_Libc(benchmark::State &s)
{
    parse_loop(s, AF_INET, libc_pton);
}
void Parse6_Ours(benchmark::State &s)
{
    parse_loop(s, AF_INET6, ours_pton);
}
void Parse6_Libc(benchmark::State &s)
{
    parse_loop(s, AF_INET6, libc_pton);
}
void Format4_Ours(benchmark::State &s)
{
    format_loop(s, AF_INET, ours_ntop);
}
void Format4_Libc(benchmark::State &s)
{
    format_loop(s, AF_INET, libc_ntop);
}
void Format6_Ours(benchmark::State &s)
{
    format_loop(s, AF_INET6, ours_ntop);
}
void Format6_Libc(benchmark::State &s)
{
    format_loop(s, AF_INET6, libc_ntop);
}

// The exported converters and validators over the same texts, against inet_pton.
int ours_str_to_num(int af, const char *s, void *d)
{
    return af == AF_INET ? INET_Ipv4StrToNum(s, d) : INET_Ipv6StrToNum(s, d);
}
int ours_valid(int af, const char *s, void *)
{
    return af == AF_INET ? INET_IsIpv4AddrValid(s) : INET_IsIpv6AddrValid(s);
}
void StrToNum4_Ours(benchmark::State &s)
{
    parse_loop(s, AF_INET, ours_str_to_num);
}
void StrToNum6_Ours(benchmark::State &s)
{
    parse_loop(s, AF_INET6, ours_str_to_num);
}
void Valid4_Ours(benchmark::State &s)
{
    parse_loop(s, AF_INET, ours_valid);
}
void Valid6_Ours(benchmark::State &s)
{
    parse_loop(s, AF_INET6, ours_valid);
}

// Pairs run back to back, each repeated, so that drift hits both sides alike.
BENCHMARK(Parse4_Ours)->Repetitions(5);
BENCHMARK(Parse4_Libc)->Repetitions(5);
BENCHMARK(Parse6_Ours)->Repetitions(5);
BENCHMARK(Parse6_Libc)->Repetitions(5);
BENCHMARK(Format4_Ours)->Repetitions(5);
BENCHMARK(Format4_Libc)->Repetitions(5);
BENCHMARK(Format6_Ours)->Repetitions(5);
BENCHMARK(Format6_Libc)->Repetitions(5);
BENCHMARK(StrToNum4_Ours)->Repetitions(5);
BENCHMARK(StrToNum6_Ours)->Repetitions(5);
BENCHMARK(Valid4_Ours)->Repetitions(5);
BENCHMARK(Valid6_Ours)->Repetitions(5);

// Keeps the median time per call of every benchmark while printing as usual.
class RatioReporter : public benchmark::ConsoleReporter
{
  public:
    void ReportRuns(const std::vector<Run> &runs) override
    {
        for (const auto &r : runs) {
            if (r.run_type == Run::RT_Aggregate && r.aggregate_name == "median")
                median_[r.run_name.function_name] = r.GetAdjustedCPUTime();
        }
        ConsoleReporter::ReportRuns(runs);
    }

    // Prints ours / C library per pair; false when a pair is missing.
    bool print_ratios() const
    {
        static const char *const pairs[] = {"Parse4", "Parse6", "Format4", "Format6"};
        bool all = true;
        std::printf("\nours / C library (time per call; goal <= 1.00)\n");
        for (const char *p : pairs) {
            auto o = median_.find(std::string(p) + "_Ours");
            auto l = median_.find(std::string(p) + "_Libc");
            if (o == median_.end() || l == median_.end() || l->second <= 0) {
                all = false;
                continue;
            }
            double ratio = o->second / l->second;
            std::printf("  %-8s %6.2f  %s\n", p, ratio, ratio <= 1.0 ? "ok" : "SLOWER");
        }
        return all;
    }

  private:
    std::map<std::string, double> median_;
};

} // namespace

int main(int argc, char **argv)
{
    // Short runs by default (flags on the command line still win): calls take nanoseconds.
    // Repetitions interleave, so ours and the C library see the same drift of a shared machine.
    std::vector<char *> args(argv, argv + argc);
    static char minTime[] = "--benchmark_min_time=0.05";
    static char interleave[] = "--benchmark_enable_random_interleaving=true";
    args.insert(args.begin() + 1, {minTime, interleave});
    argc = static_cast<int>(args.size());
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
