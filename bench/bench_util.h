// Shared pieces of the benchmark programs: shell steps inside the simulated camera, whole-file
// reads and writes, and a main that puts the suite's default flags ahead of the caller's.
// Every goal is a ratio of two benchmarks of the same run: "<row>" (ours) and "<row>/base"
// (the bare calls); bench/report.py pairs them from the JSON output.
#pragma once

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include <initializer_list>
#include <string>
#include <vector>

namespace benchutil
{

// Runs a shell command; false when it fails.
inline bool sh(const std::string &cmd)
{
    return system(cmd.c_str()) == 0;
}

// Runs a shell command that the suite cannot do without.
inline void must(const std::string &cmd)
{
    if (!sh(cmd)) {
        fprintf(stderr, "bench: failed: %s\n", cmd.c_str());
        exit(2);
    }
}

inline bool write_file(const std::string &path, const std::string &text)
{
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0)
        return false;
    bool ok = write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    return close(fd) == 0 && ok;
}

inline std::string read_file(const std::string &path)
{
    std::string out;
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return out;
    char buf[65536];
    ssize_t n;
    while ((n = read(fd, buf, sizeof buf)) > 0)
        out.append(buf, static_cast<size_t>(n));
    close(fd);
    return out;
}

// The suites change interfaces, addresses and /etc/config: only inside the simulated camera
// (sandbox/device.sh), never on the host.
inline void require_device(const char *suite)
{
    if (getenv("NETLIB_IN_DEVICE") == nullptr) {
        fprintf(stderr, "%s: run it inside the simulated camera: sandbox/device.sh -- %s\n", suite,
                suite);
        exit(2);
    }
}

// Initialises Google Benchmark with the suite's defaults first, so flags given on the
// command line still win, runs everything and returns the exit status.
inline int run(int argc, char **argv, std::initializer_list<const char *> defaults)
{
    std::vector<char *> args(argv, argv + argc);
    std::vector<std::string> own(defaults.begin(), defaults.end());
    size_t at = 1;
    for (auto &s : own)
        args.insert(args.begin() + static_cast<long>(at++), &s[0]);
    int n = static_cast<int>(args.size());
    benchmark::Initialize(&n, args.data());
    if (benchmark::ReportUnrecognizedArguments(n, args.data()))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

} // namespace benchutil
