// Pins our libuci's test switch UCI_TEST_COMMIT_RACE: with it, plain commits lose updates as
// the device's libuci does, which is what makes the library's own commit lock testable here.
#include "sandbox.h"
#include "uci.h"

#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

namespace
{

// Two processes each add 1 to their own counter `commits` times with plain libuci calls;
// returns how many of the 2 * commits updates the file lost, or -1 when a writer failed.
long lost_updates(const std::string &dir, long commits)
{
    sandbox::write_file(dir + "/config/net", "\nconfig counters 'c'\n\toption a '0'\n"
                                             "\toption b '0'\n\n");
    pid_t pids[2];
    for (int w = 0; w < 2; w++) {
        pids[w] = fork();
        if (pids[w] < 0)
            return -1;
        if (pids[w] != 0)
            continue;
        setenv("UCI_TEST_COMMIT_RACE", "1", 1);
        for (long i = 0; i < commits; i++) {
            uci_context *ctx = uci_alloc_context();
            uci_package *p = nullptr;
            uci_set_confdir(ctx, (dir + "/config").c_str());
            uci_set_savedir(ctx, (dir + "/save").c_str());
            if (uci_load(ctx, "net", &p) != UCI_OK)
                _exit(2);
            uci_ptr ptr{};
            ptr.p = p;
            ptr.section = "c";
            ptr.option = w ? "b" : "a";
            uci_section *s = uci_lookup_section(ctx, p, "c");
            const char *v = s ? uci_lookup_option_string(ctx, s, ptr.option) : nullptr;
            std::string next = std::to_string(v ? atol(v) + 1 : 0);
            ptr.value = next.c_str();
            if (uci_set(ctx, &ptr) != UCI_OK || uci_commit(ctx, &p, false) != UCI_OK)
                _exit(3);
            uci_free_context(ctx);
        }
        _exit(0);
    }
    bool ok = true;
    for (pid_t pid : pids) {
        int status = 0;
        ok = waitpid(pid, &status, 0) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0 && ok;
    }
    uci_context *ctx = uci_alloc_context();
    uci_package *p = nullptr;
    long kept = 0;
    if (ok && uci_load(ctx, (dir + "/config/net").c_str(), &p) == UCI_OK) {
        uci_section *s = uci_lookup_section(ctx, p, "c");
        for (const char *opt : {"a", "b"}) {
            const char *v = s ? uci_lookup_option_string(ctx, s, opt) : nullptr;
            kept += v ? atol(v) : 0;
        }
    } else {
        ok = false;
    }
    uci_free_context(ctx);
    return ok ? 2 * commits - kept : -1;
}

TEST(UciRace, DeviceCommitRaceLosesUpdatesOfPlainCommits)
{
#ifdef NETLIB_UCI_SYSTEM
    GTEST_SKIP() << "the race switch belongs to our libuci";
#endif
    char tmpl[] = "/tmp/ucirace.XXXXXX";
    std::string dir = mkdtemp(tmpl);
    mkdir((dir + "/config").c_str(), 0755);
    // The loss depends on how the two writers interleave: a few rounds make it certain.
    long lost = 0;
    for (int round = 0; round < 5 && lost == 0; round++)
        lost = lost_updates(dir, 300);
    sandbox::sh("rm -rf '" + dir + "'");
    EXPECT_GT(lost, 0) << "-1: a writer failed";
    RecordProperty("lost_of_600", static_cast<int>(lost));
}

} // namespace
