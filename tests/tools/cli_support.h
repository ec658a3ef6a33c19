// What the command-line suites share: the built tool, a command run through a real shell,
// and the camera they drive (two ports, each wired to a neighbour).
#pragma once

#include <string>

#include "sandbox.h"

namespace clitest
{

const std::string kTool = NETLIB_BINARY_DIR "/tools/netlibctl";

struct Outcome {
    int status;
    std::string out, err;
};

// Shell text with the tool on PATH as "netlibctl", `input` its standard input, the log left
// to the tool's default.
inline Outcome run(const std::string &line, const std::string &input = "")
{
    sandbox::write_file("/tmp/cli.in", input);
    int st = sandbox::sh("unset NETLIB_LOG NETLIB_LOG_LEVEL; PATH=" NETLIB_BINARY_DIR
                         "/tools:$PATH; { " +
                         line + "; } >/tmp/cli.out 2>/tmp/cli.err </tmp/cli.in");
    return {st, sandbox::read_file("/tmp/cli.out"), sandbox::read_file("/tmp/cli.err")};
}

// Ports lan1 and lan2 at 192.168.N.10/24, each wired to nbN at 192.168.N.1 in the peer.
inline void wire_two_ports(sandbox::Peer &peer)
{
    sandbox::set_device("lan1,lan2");
    for (const std::string n : {"1", "2"}) {
        sandbox::veth("lan" + n, "nb" + n, &peer);
        peer.must("ip addr add 192.168." + n + ".1/24 brd + dev nb" + n);
        sandbox::addr_add("lan" + n, "192.168." + n + ".10/24");
    }
}

} // namespace clitest

// Skips where the built tool does not run (a cross build's tool on the build machine).
#define REQUIRE_TOOL()                                                                             \
    do {                                                                                           \
        REQUIRE_SANDBOX();                                                                         \
        if (sandbox::sh(clitest::kTool + " --help >/dev/null 2>&1") != 0)                          \
            GTEST_SKIP() << clitest::kTool << " does not run here";                                \
    } while (0)
