// netlibctl's RFC probes as a script uses them: exit status 0 free, 1 in use, 2 not made, and
// one JSON object naming the other host.
#include <string>

#include "cli_support.h"
#include "sandbox.h"

namespace
{

using clitest::kTool;

} // namespace

TEST(CliProbe, ExitStatusAndJson)
{
    REQUIRE_TOOL();
    sandbox::Peer peer;
    sandbox::veth("lan1", "nb1", &peer);
    peer.must("ip addr add 192.168.1.1/24 dev nb1 && ip addr add 2001:db8::1/64 dev nb1 nodad && "
              "ip link set nb1 address 02:00:00:00:01:02");
    const std::string nb = "02:00:00:00:01:02";
    struct Case {
        const char *args;
        int status;
        std::string out; // a part of standard output
    } cases[] = {
        {"probe --rfc --fast lan1 192.168.1.1", 1, "in use by " + nb},
        {"probe --rfc --fast --count 1 lan1 192.168.1.99", 0, "free (1 probe(s)"},
        {"probe6 --dad --fast lan1 2001:db8::1", 1, "in use by " + nb},
        {"--json probe --rfc --fast lan1 192.168.1.1", 1,
         "\"outcome\":\"conflict\",\"mac\":\"" + nb + "\",\"probes_sent\":1,\"conflict_ms\":"},
        {"--json probe6 --dad --fast lan1 2001:db8::99", 0,
         "\"method\":\"rfc4862\",\"outcome\":\"free\",\"mac\":null,\"probes_sent\":1,"
         "\"conflict_ms\":null,"},
        {"--json probe --rfc --fast nosuch0 192.168.1.1", 2, "\"outcome\":\"no-interface\""},
        {"announce --rfc --fast lan1 192.168.1.20", 0, "announced twice"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.args);
        int st = sandbox::sh("env NETLIB_LOG=none " + kTool + " " + c.args +
                             " >/tmp/cli.out 2>/tmp/cli.err </dev/null");
        std::string out = sandbox::read_file("/tmp/cli.out");
        EXPECT_EQ(c.status, st);
        EXPECT_NE(std::string::npos, out.find(c.out)) << out;
        // A JSON object that parses.
        if (out[0] == '{') {
            EXPECT_EQ(0, sandbox::sh("python3 -c 'import json,sys; json.load(sys.stdin)' "
                                     "</tmp/cli.out"));
        }
    }
}
