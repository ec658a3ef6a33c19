// netlibctl monitor as a user runs it: started in the background, a real change, one line per
// event flushed at once, and SIGINT or SIGTERM ending it with status 0.
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <sstream>
#include <string>

#include "cli_support.h"
#include "sandbox.h"

namespace
{

using clitest::kTool;

pid_t start(bool json, const char *out)
{
    pid_t pid = fork();
    if (pid == 0) {
        int fd = open(out, O_WRONLY | O_CREAT | O_TRUNC, 0644);
        dup2(fd, 1);
        execl(kTool.c_str(), "netlibctl", "monitor", "lan1", json ? "--json" : nullptr,
              static_cast<char *>(nullptr));
        _exit(127);
    }
    return pid;
}

} // namespace

TEST(CliMonitor, EventLinesUntilASignal)
{
    REQUIRE_TOOL();
    sandbox::veth("lan1", "nb1");
    struct {
        bool json;
        int sig;
        const char *expect; // in the line of the MTU change
    } const cases[] = {{false, SIGINT, " lan1 mtu "}, {true, SIGTERM, "\"kind\":\"mtu\""}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.sig);
        pid_t pid = start(c.json, "/tmp/monitor.out");
        ASSERT_GT(pid, 0);
        // The tool opens its descriptor a moment after it starts: change until it reports.
        std::string out;
        for (int mtu = 1300; mtu < 1300 + 10 * (3 + sandbox::kLateSec); ++mtu) {
            sandbox::must("ip link set lan1 mtu " + std::to_string(mtu));
            usleep(100000);
            out = sandbox::read_file("/tmp/monitor.out");
            if (out.find(c.expect) != std::string::npos)
                break;
        }
        kill(pid, c.sig);
        int status = -1;
        ASSERT_EQ(pid, waitpid(pid, &status, 0));
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
        EXPECT_NE(std::string::npos, out.find(c.expect)) << out;
        std::istringstream lines(out);
        for (std::string line; std::getline(lines, line);) {
            EXPECT_EQ(c.json, line.front() == '{' && line.back() == '}') << line;
            EXPECT_EQ(c.json, line.find("\"time\":\"20") == 1) << line;
        }
        if (c.json && sandbox::sh("command -v python3 >/dev/null") == 0) {
            EXPECT_EQ(0, sandbox::sh("python3 -c 'import json, sys\nfor l in sys.stdin: "
                                     "json.loads(l)' </tmp/monitor.out"))
                << out;
        }
    }
    std::string help = sandbox::sh_out(kTool + " monitor --help");
    for (const char *kind : {"link-up", "carrier-off", "mtu", "rename", "addr-add", "dadfailed",
                             "route-del", "overrun"})
        EXPECT_NE(std::string::npos, help.find(kind)) << kind;
}
