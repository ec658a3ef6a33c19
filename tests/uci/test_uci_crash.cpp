// libuci commits under SIGKILL and under concurrent writers: the config file is always one
// complete version, and no committed change is lost.
#include "libnetwork.h"
#include "sandbox.h"
#include "uci.h"

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <random>
#include <string>
#include <vector>

namespace
{

struct Dirs {
    std::string dir, conf, save;
    Dirs()
    {
        char tmpl[] = "/tmp/ucicrash.XXXXXX";
        dir = mkdtemp(tmpl);
        conf = dir + "/config";
        save = dir + "/save";
        mkdir(conf.c_str(), 0755);
    }
    ~Dirs() { sandbox::sh("rm -rf '" + dir + "'"); }
};

uci_context *context(const Dirs &d)
{
    uci_context *ctx = uci_alloc_context();
    uci_set_confdir(ctx, d.conf.c_str());
    uci_set_savedir(ctx, d.save.c_str());
    return ctx;
}

// Version gen of the file; the size varies a lot between versions, so a torn or partial
// write cannot pass for a complete one.
std::string version(long gen)
{
    std::string pad(1 + (size_t)(gen * 7919 % 6000), (char)('a' + gen % 26));
    return "\nconfig interface 'lan'\n\toption proto 'static'\n\toption gen '" +
           std::to_string(gen) + "'\n\toption pad '" + pad +
           "'\n\nconfig route\n\toption target '10.0.0.0'\n\n";
}

int set(uci_context *ctx, uci_package *p, const char *sec, const char *opt,
        const std::string &value)
{
    uci_ptr ptr{};
    ptr.p = p;
    ptr.section = sec;
    ptr.option = opt;
    ptr.value = value.c_str();
    return uci_set(ctx, &ptr);
}

long read_long(uci_context *ctx, uci_package *p, const char *sec, const char *opt)
{
    uci_section *s = uci_lookup_section(ctx, p, sec);
    const char *v = s ? uci_lookup_option_string(ctx, s, opt) : nullptr;
    return v ? atol(v) : -1;
}

// One commit of gen+1 from a fresh context, as separate tools would: 0, or the failing step.
int commit_next(const Dirs &d)
{
    uci_context *ctx = context(d);
    uci_package *p = nullptr;
    if (uci_load(ctx, "net", &p) != 0)
        return 2;
    long gen = read_long(ctx, p, "lan", "gen") + 1;
    std::string pad = version(gen);
    pad = pad.substr(pad.find("pad '") + 5);
    pad = pad.substr(0, pad.find('\''));
    if (set(ctx, p, "lan", "gen", std::to_string(gen)) || set(ctx, p, "lan", "pad", pad) ||
        uci_commit(ctx, &p, false) != 0)
        return 3;
    uci_free_context(ctx);
    return 0;
}

// Child: says it is ready on `ready`, then commits until killed.
[[noreturn]] void writer(const Dirs &d, int ready)
{
    if (write(ready, "r", 1) != 1)
        _exit(4);
    for (;;)
        if (int err = commit_next(d))
            _exit(err);
}

// Microseconds one commit takes here: the median of seven. Under an emulator or on a busy
// machine it is ten to a hundred times the native figure.
double commit_us(const Dirs &d)
{
    std::vector<double> took;
    for (int i = 0; i < 7; i++) {
        auto t0 = std::chrono::steady_clock::now();
        if (commit_next(d) != 0)
            return -1;
        took.push_back(
            std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - t0)
                .count());
    }
    std::sort(took.begin(), took.end());
    return took[took.size() / 2];
}

TEST(UciCrash, KilledWriterLeavesOldOrNewFile)
{
    Dirs d;
    sandbox::write_file(d.conf + "/net", version(0));
    double commit = commit_us(d);
    ASSERT_GT(commit, 0);
    // Kills land from the start of the first commit to about three commits in, so each phase
    // of a commit (load, write, sync, rename) is hit many times, whatever this machine's
    // speed. A writer in a fresh child, or on a machine whose load changes, can be slower than
    // the measured commit: the span follows the commits the kills actually let through.
    unsigned seed = (unsigned)time(nullptr);
    std::mt19937 rng(seed);
    double span = 3 * commit;
    auto start = std::chrono::steady_clock::now();
    const long first = 7;
    long last = first;
    int rounds = 0;
    long windowCommits = 0;

    while (std::chrono::steady_clock::now() - start < std::chrono::seconds(10) && rounds < 3000) {
        rounds++;
        int ready[2];
        ASSERT_EQ(0, pipe(ready));
        pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0)
            writer(d, ready[1]);
        char c;
        ASSERT_EQ(1, read(ready[0], &c, 1));
        close(ready[0]);
        close(ready[1]);
        usleep((useconds_t)std::uniform_real_distribution<double>(0, span)(rng));
        kill(pid, SIGKILL);
        int status = 0;
        ASSERT_EQ(pid, waitpid(pid, &status, 0));
        ASSERT_TRUE(WIFSIGNALED(status)) << "writer failed, exit " << WEXITSTATUS(status);

        // read by path: the file alone, without the pending changes of the save directory
        uci_context *ctx = uci_alloc_context();
        uci_package *p = nullptr;
        ASSERT_EQ(UCI_OK, uci_load(ctx, (d.conf + "/net").c_str(), &p))
            << "round " << rounds << " seed " << seed;
        long gen = read_long(ctx, p, "lan", "gen");
        uci_free_context(ctx);
        ASSERT_EQ(version(gen), sandbox::read_file(d.conf + "/net"))
            << "round " << rounds << " seed " << seed;
        ASSERT_GE(gen, last) << "went back in time, seed " << seed;
        windowCommits += gen - last;
        last = gen;
        if (rounds % 16 == 0) { // aim at one to three commits a round
            span *= windowCommits < 16 ? 1.5 : windowCommits > 48 ? 1 / 1.5 : 1;
            windowCommits = 0;
        }
    }
    // enough commits happened for the kills to have hit every phase of one
    EXPECT_GT(last - first, rounds / 4)
        << rounds << " rounds, " << commit << " us a commit, " << span << " us the last span";
    RecordProperty("rounds", rounds);
    RecordProperty("commits", (int)(last - first));
    RecordProperty("commit_us", (int)commit);
    RecordProperty("span_us", (int)span);
}

// Commits in a child behave as the device's libuci does (see uci/commit.c): the file is not
// looked at again once its lock is taken, so only a lock of the caller's keeps commits apart.
void device_commit_race(bool on)
{
    if (on)
        setenv("UCI_TEST_COMMIT_RACE", "1", 1);
    else
        unsetenv("UCI_TEST_COMMIT_RACE");
}

// Two processes increment their own counter and neither overwrites the other's work: plain
// commits re-read the file under the lock of our libuci, library commits take the library's
// own lock, which is enough even on a libuci that loses updates by itself.
TEST(UciCrash, ConcurrentWritersLoseNothing)
{
    struct Mode {
        bool race, library;
    };
    for (Mode m : {Mode{false, false}, Mode{false, true}, Mode{true, true}}) {
#ifdef NETLIB_UCI_SYSTEM
        if (!m.library || m.race)
            continue; // plain commits and the race switch are our libuci's own
#endif
        SCOPED_TRACE(std::string(m.race ? "device race, " : "") +
                     (m.library ? "NET_UciCommit" : "uci_commit"));
        Dirs d;
        sandbox::write_file(d.conf + "/net",
                            "\nconfig counters 'c'\n\toption a '0'\n\toption b '0'\n\n");
        const int n = 400;
        pid_t pids[2];
        for (int w = 0; w < 2; w++) {
            pids[w] = fork();
            ASSERT_GE(pids[w], 0);
            if (pids[w] != 0)
                continue;
            device_commit_race(m.race);
            const char *opt = w ? "b" : "a";
            for (int i = 0; i < n; i++) {
                uci_context *ctx = context(d);
                uci_package *p = nullptr;
                if (uci_load(ctx, "net", &p) != 0)
                    _exit(2);
                long v = read_long(ctx, p, "c", opt);
                if (set(ctx, p, "c", opt, std::to_string(v + 1)))
                    _exit(3);
                if (m.library ? NET_UciCommit(p) != 0 : uci_commit(ctx, &p, false) != 0)
                    _exit(3);
                if (!m.library)
                    uci_free_context(ctx); // NET_UciCommit frees it
            }
            _exit(0);
        }
        for (pid_t pid : pids) {
            int status = 0;
            ASSERT_EQ(pid, waitpid(pid, &status, 0));
            EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
        }
        EXPECT_EQ("\nconfig counters 'c'\n\toption a '400'\n\toption b '400'\n\n",
                  sandbox::read_file(d.conf + "/net"));
    }
}

// Child: reads the network file alone over and over until `stop` reports end of file (all
// writers done); every version must parse, hold every counter and never run backwards, and
// the last one must hold every commit. Exit status: 0 fine, 2 unparsable, 3 counter missing
// or back, 6 commits lost.
[[noreturn]] void network_reader(int writers, long commits, int stop, int result)
{
    std::vector<long> last(writers, 0);
    long n = 0;
    for (bool stopped = false;; n++) {
        // read the stop pipe before the file, so the version read after it is the final one
        char c;
        stopped = stopped || read(stop, &c, 1) == 0;
        uci_context *ctx = uci_alloc_context();
        uci_package *p = nullptr;
        if (uci_load(ctx, "/etc/config/network", &p) != UCI_OK)
            _exit(2);
        bool done = true;
        for (int w = 0; w < writers; w++) {
            long v = read_long(ctx, p, "lan", ("c" + std::to_string(w)).c_str());
            if (v < last[w])
                _exit(3);
            last[w] = v;
            done = done && v == commits;
        }
        uci_free_context(ctx);
        if (stopped)
            _exit(done && write(result, &n, sizeof n) == sizeof n ? 0 : 6);
    }
}

// Several processes commit the device's own "network" package at once through the library,
// each its own counter, while another process reads the file: see network_reader.
TEST(UciCrash, SeveralLibraryWritersAndAReaderOfTheNetworkPackage)
{
    REQUIRE_SANDBOX();
    const int kWriters = 6, kCommits = 150;
    for (bool race : {false, true}) {
#ifdef NETLIB_UCI_SYSTEM
        if (race)
            continue; // the race switch is our libuci's own
#endif
        SCOPED_TRACE(race ? "device race" : "our libuci");
        std::string initial = "\nconfig interface 'lan'\n";
        for (int w = 0; w < kWriters; w++)
            initial += "\toption c" + std::to_string(w) + " '0'\n";
        sandbox::write_file("/etc/config/network", initial + "\n", 0600);

        // the parent keeps no write end: a reader gone early is an end of file, not a hang
        int reads[2], stop[2];
        ASSERT_EQ(0, pipe(reads));
        ASSERT_EQ(0, pipe2(stop, O_NONBLOCK));
        pid_t reader = fork();
        ASSERT_GE(reader, 0);
        if (reader == 0) {
            close(reads[0]);
            close(stop[1]);
            network_reader(kWriters, kCommits, stop[0], reads[1]);
        }
        close(reads[1]);
        close(stop[0]);
        std::vector<pid_t> writers;
        for (int w = 0; w < kWriters; w++) {
            pid_t pid = fork();
            ASSERT_GE(pid, 0);
            if (pid == 0) {
                close(stop[1]);
                device_commit_race(race);
                std::string opt = "c" + std::to_string(w);
                for (int i = 0; i < kCommits; i++) {
                    struct uci_package *p = NET_CreatePackage("network");
                    struct uci_section *s = p ? NET_GetSection(p, "lan") : nullptr;
                    char buf[16] = {0};
                    if (s == nullptr || NET_GetOption(s, opt.c_str(), buf, sizeof buf) != 0)
                        _exit(2);
                    std::string next = std::to_string(atol(buf) + 1);
                    if (NET_SetOption(s, opt.c_str(), next.c_str()) != 0 || NET_UciCommit(p) != 0)
                        _exit(3);
                }
                _exit(0);
            }
            writers.push_back(pid);
        }
        for (pid_t pid : writers) {
            int status = 0;
            ASSERT_EQ(pid, waitpid(pid, &status, 0));
            EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "writer " << status;
        }
        close(stop[1]);
        int status = 0;
        ASSERT_EQ(reader, waitpid(reader, &status, 0));
        ASSERT_TRUE(WIFEXITED(status)) << status;
        EXPECT_EQ(0, WEXITSTATUS(status)) << "reader: 2 unparsable, 3 counter missing or back, "
                                             "6 commits lost";
        long n = 0;
        if (read(reads[0], &n, sizeof n) != sizeof n)
            n = -1;
        close(reads[0]);
        std::string expected = "\nconfig interface 'lan'\n";
        for (int w = 0; w < kWriters; w++)
            expected += "\toption c" + std::to_string(w) + " '" + std::to_string(kCommits) + "'\n";
        EXPECT_EQ(expected + "\n", sandbox::read_file("/etc/config/network"));
        RecordProperty(race ? "reads_race" : "reads", static_cast<int>(n));
    }
    RecordProperty("writers", kWriters);
    RecordProperty("commits", kWriters * kCommits);
}

} // namespace
