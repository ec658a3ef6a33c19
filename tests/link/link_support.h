// Shared pieces of the link suites: the device every suite starts from, and the test's own
// readings of the kernel's state, independent of the library.
#pragma once

#include <arpa/inet.h>
#include <string.h>
#include <unistd.h>

#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "libnetwork.h"
#include "sandbox.h"

// A table row's call.
#define CALL(...) [] { return __VA_ARGS__; }

namespace linktest
{

using sandbox::expect_line;
using sandbox::LogCapture;
using sandbox::must;

inline std::string ptr_text(const void *p)
{
    char buf[32];
    snprintf(buf, sizeof buf, "%p", p);
    return buf;
}

// The kernel tables' form of an address: 32 hexadecimal digits.
inline std::string hex_of(const char *text)
{
    unsigned char a[16];
    char hex[33] = "";
    EXPECT_EQ(1, inet_pton(AF_INET6, text, a)) << text;
    for (int i = 0; i < 16; ++i)
        snprintf(hex + 2 * i, 3, "%02x", a[i]);
    return hex;
}

inline std::string text_of(const unsigned char *a)
{
    char buf[INET6_ADDRSTRLEN];
    return inet_ntop(AF_INET6, a, buf, sizeof buf);
}

// The lines of /proc/net/if_inet6 of a device ("": of all devices).
struct Row {
    std::string hex;
    int prefix, flags;
};
inline std::vector<Row> rows_of(const std::string &dev)
{
    std::istringstream in(sandbox::read_file("/proc/net/if_inet6"));
    std::vector<Row> rows;
    std::string hex, idx, plen, scope, flags, name;
    while (in >> hex >> idx >> plen >> scope >> flags >> name)
        if (name == dev || dev.empty())
            rows.push_back(Row{hex, std::stoi(plen, nullptr, 16), std::stoi(flags, nullptr, 16)});
    return rows;
}

// Link-local addresses: the kernel adds them a moment after the carrier comes.
inline int link_locals(const std::string &dev)
{
    int n = 0;
    for (const Row &r : rows_of(dev))
        n += r.hex.compare(0, 4, "fe80") == 0;
    return n;
}

inline bool wait_for(const std::function<bool()> &done, int ms = 5000)
{
    for (int waited = 0; waited < ms + sandbox::kLateMs && !done(); waited += 20)
        usleep(20 * 1000);
    return done();
}

inline std::string ipv4_of(const std::string &dev)
{
    return sandbox::sh_out("ip -4 -o addr show dev " + dev + " | awk '{printf \"%s \", $4}'");
}
inline std::string ipv6_of(const std::string &dev)
{
    return sandbox::sh_out("ip -6 -o addr show dev " + dev + " | awk '{print $4}'");
}

// lan1 and lan2: veths to one neighbour, lan1 with a known MAC; tap0: a tap, down, with only
// a MAC (and an ethtool the kernel keeps as written).
class LinkNet : public ::testing::Test
{
  protected:
    void SetUp() override
    {
        REQUIRE_SANDBOX();
        sandbox::veth("lan1", "nb1", &peer_);
        sandbox::veth("lan2", "nb2", &peer_);
        sandbox::set_mac("lan1", "02:11:22:33:44:01");
        sandbox::addr_add("lan1", "192.168.1.10/24");
        sandbox::addr_add("lan2", "192.168.2.10/24");
        sandbox::tap("tap0");
        sandbox::set_mac("tap0", "02:11:22:33:44:02");
    }
    static void device(const char *ifnames)
    {
        sandbox::set_device(ifnames);
        NET_Init();
    }
    sandbox::Peer peer_;
};

} // namespace linktest
