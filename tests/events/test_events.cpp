// Kernel events from real changes: the neighbour's side of a veth pair going down and up,
// MTU, addresses, routes, the kernel's IPv6 duplicate-address detection failing against the
// neighbour, filtering by name, a descriptor per thread, and an overrun.
#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>

#include <functional>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "libnetwork.h"
#include "sandbox.h"

using sandbox::must;

namespace
{

double mono()
{
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9;
}

// Reads events until one satisfies `want` or the deadline (DAD may take a second to start);
// every event read goes to `seen` when given.
bool wait_for(int fd, const std::function<bool(const NetEvent &)> &want, NetEvent *got = nullptr,
              std::vector<NetEvent> *seen = nullptr)
{
    const double deadline = mono() + 3 + sandbox::kLateSec;
    for (;;) {
        NetEvent ev;
        int r = NET_EventRead(fd, &ev);
        if (r < 0)
            return false;
        if (r == 1) {
            if (seen != nullptr)
                seen->push_back(ev);
            if (want(ev)) {
                if (got != nullptr)
                    *got = ev;
                return true;
            }
            continue;
        }
        double left = deadline - mono();
        if (left <= 0)
            return false;
        struct pollfd p = {fd, POLLIN, 0};
        poll(&p, 1, static_cast<int>(left * 1000) + 1);
    }
}

std::function<bool(const NetEvent &)> kind_on(int kind, const char *ifname, const char *addr = "")
{
    std::string name = ifname, a = addr;
    return [=](const NetEvent &ev) {
        return ev.iKind == kind && name == ev.szIfName && (a.empty() || a == ev.szAddr);
    };
}

} // namespace

class Events : public ::testing::Test
{
  protected:
    void SetUp() override
    {
        REQUIRE_SANDBOX();
        sandbox::veth("lan1", "nb1", &peer_);
        peer_.must("ip link set nb1 up");
        sandbox::link_up("lan1");
        must("sysctl -qw net.ipv6.conf.lan1.accept_dad=1");
    }
    sandbox::Peer peer_;
};

// Each kind from the change that makes it, in order on one descriptor.
TEST_F(Events, EachKindFromARealChange)
{
    struct Step {
        bool onPeer;
        const char *cmd;
        int kind;
        const char *addr; // "" when the kind has none
        int family, prefix, mtu;
        const char *gateway;
    } const steps[] = {
        {true, "ip link set nb1 down", NET_EVENT_CARRIER_OFF, "", 0, 0, 1500, ""},
        {true, "ip link set nb1 up", NET_EVENT_CARRIER_ON, "", 0, 0, 1500, ""},
        {false, "ip link set lan1 mtu 1400", NET_EVENT_MTU, "", 0, 0, 1400, ""},
        {false, "ip link set lan1 down", NET_EVENT_LINK_DOWN, "", 0, 0, 1400, ""},
        {false, "ip link set lan1 up", NET_EVENT_LINK_UP, "", 0, 0, 1400, ""},
        {false, "ip addr add 192.168.1.10/24 dev lan1", NET_EVENT_ADDR_ADD, "192.168.1.10", AF_INET,
         24, 0, ""},
        {false, "ip route add default via 192.168.1.1 dev lan1", NET_EVENT_ROUTE_ADD, "0.0.0.0",
         AF_INET, 0, 0, "192.168.1.1"},
        {false, "ip route del default via 192.168.1.1 dev lan1", NET_EVENT_ROUTE_DEL, "0.0.0.0",
         AF_INET, 0, 0, "192.168.1.1"},
        {false, "ip addr del 192.168.1.10/24 dev lan1", NET_EVENT_ADDR_DEL, "192.168.1.10", AF_INET,
         24, 0, ""},
        {false, "ip addr add 2001:db8:1::10/64 dev lan1 nodad", NET_EVENT_ADDR_ADD,
         "2001:db8:1::10", AF_INET6, 64, 0, ""},
        {false, "ip -6 route add default via 2001:db8:1::1 dev lan1", NET_EVENT_ROUTE_ADD,
         "::", AF_INET6, 0, 0, "2001:db8:1::1"},
        {false, "ip -6 route del default via 2001:db8:1::1 dev lan1", NET_EVENT_ROUTE_DEL,
         "::", AF_INET6, 0, 0, "2001:db8:1::1"},
        {false, "ip addr del 2001:db8:1::10/64 dev lan1", NET_EVENT_ADDR_DEL, "2001:db8:1::10",
         AF_INET6, 64, 0, ""},
        {false, "ip link set lan1 down && ip link set lan1 name wan0", NET_EVENT_RENAME, "lan1", 0,
         0, 1400, ""},
    };
    sandbox::FdCheck fds;
    // Carrier comes a moment after "up": begin once it is there.
    must("for i in $(seq 50); do ip link show lan1 | grep -q LOWER_UP && exit 0; sleep 0.1; "
         "done; exit 1");
    int fd = NET_EventOpen(nullptr, NET_EVENT_ALL);
    ASSERT_GE(fd, 0);
    for (const Step &s : steps) {
        SCOPED_TRACE(s.cmd);
        if (s.onPeer)
            peer_.must(s.cmd);
        else
            must(s.cmd);
        const char *ifname = s.kind == NET_EVENT_RENAME ? "wan0" : "lan1";
        NetEvent ev;
        ASSERT_TRUE(wait_for(fd, kind_on(s.kind, ifname, s.addr), &ev));
        EXPECT_EQ(s.family, ev.iFamily);
        EXPECT_EQ(s.prefix, ev.iPrefixLen);
        EXPECT_EQ(s.mtu, ev.iMtu);
        EXPECT_STREQ(s.gateway, ev.szGateway);
        EXPECT_GT(ev.iIfIndex, 0);
        EXPECT_NE(0u, ev.ullTimeNs);
    }
    EXPECT_EQ(0, NET_EventClose(fd));
}

// The neighbour holds the address already: the kernel's own detection fails, and says so.
TEST_F(Events, DuplicateAddressDetectionFails)
{
    peer_.must("ip addr add 2001:db8:1::1/64 dev nb1 nodad");
    const char *names[] = {"lan1", nullptr};
    int fd = NET_EventOpen(names, NET_EVENT_IPV6_ADDR);
    ASSERT_GE(fd, 0);
    must("ip addr add 2001:db8:1::1/64 dev lan1");
    NetEvent ev;
    ASSERT_TRUE(wait_for(
        fd,
        [](const NetEvent &e) {
            return e.iKind == NET_EVENT_ADDR_ADD && (e.uiFlags & NET_EVENT_F_DADFAILED) &&
                   strcmp(e.szAddr, "2001:db8:1::1") == 0;
        },
        &ev));
    EXPECT_EQ(AF_INET6, ev.iFamily);
    EXPECT_EQ(64, ev.iPrefixLen);
    EXPECT_STREQ("lan1", ev.szIfName);
    EXPECT_EQ(0, NET_EventClose(fd));
}

// Only the named interfaces' events reach a filtered descriptor.
TEST_F(Events, FilteredByName)
{
    sandbox::veth("lan2", "nb2", &peer_);
    sandbox::link_up("lan2");
    const char *lan2[] = {"lan2", nullptr};
    const char *both[] = {"lan1", "lan2", nullptr};
    struct {
        const char *const *names;
        bool seesLan1;
    } const cases[] = {{lan2, false}, {both, true}, {nullptr, true}};
    int fds[3];
    for (int i = 0; i < 3; ++i)
        ASSERT_GE(fds[i] = NET_EventOpen(cases[i].names, NET_EVENT_LINK | NET_EVENT_IPV4_ADDR), 0);
    must("ip link set lan1 mtu 1300 && ip addr add 10.1.0.1/24 dev lan1");
    must("ip link set lan2 mtu 1300");
    for (int i = 0; i < 3; ++i) {
        SCOPED_TRACE(i);
        std::vector<NetEvent> seen;
        ASSERT_TRUE(wait_for(fds[i], kind_on(NET_EVENT_MTU, "lan2"), nullptr, &seen));
        bool lan1 = false;
        for (const NetEvent &e : seen)
            lan1 = lan1 || strcmp(e.szIfName, "lan1") == 0;
        EXPECT_EQ(cases[i].seesLan1, lan1);
        EXPECT_EQ(0, NET_EventClose(fds[i]));
    }
}

// Threads each with a descriptor of their own see the same change.
TEST_F(Events, DescriptorPerThread)
{
    constexpr int kThreads = 4;
    int fds[kThreads];
    for (int &fd : fds)
        ASSERT_GE(fd = NET_EventOpen(nullptr, NET_EVENT_LINK), 0);
    bool saw[kThreads] = {};
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back([&, i] {
            saw[i] = wait_for(fds[i], kind_on(NET_EVENT_MTU, "lan1"));
            NET_EventClose(fds[i]);
        });
    must("ip link set lan1 mtu 1280");
    for (std::thread &t : threads)
        t.join();
    for (int i = 0; i < kThreads; ++i)
        EXPECT_TRUE(saw[i]) << "thread " << i;
}

// Refused arguments, and close releasing the descriptor and what the library kept.
TEST_F(Events, RefusalsAndClose)
{
    const char *empty[] = {nullptr};
    const char *tooLong[] = {"sixteen-chars-00", nullptr};
    const char *nine[] = {"a", "b", "c", "d", "e", "f", "g", "h", "i", nullptr};
    struct {
        const char *const *names;
        unsigned mask;
    } const refused[] = {{nullptr, 0},
                         {nullptr, 0x40},
                         {empty, NET_EVENT_ALL},
                         {tooLong, NET_EVENT_ALL},
                         {nine, NET_EVENT_ALL}};
    sandbox::FdCheck fds;
    for (const auto &r : refused)
        EXPECT_EQ(-1, NET_EventOpen(r.names, r.mask));
    for (int round = 0; round < 100; ++round) {
        int fd = NET_EventOpen(nullptr, NET_EVENT_ALL);
        ASSERT_GE(fd, 0);
        NetEvent ev;
        EXPECT_EQ(-1, NET_EventRead(fd, nullptr));
        EXPECT_GE(NET_EventRead(fd, &ev), 0);
        ASSERT_EQ(0, NET_EventClose(fd));
        EXPECT_EQ(-1, NET_EventRead(fd, &ev));
        EXPECT_EQ(-1, NET_EventClose(fd));
    }
    EXPECT_EQ(-1, NET_EventClose(0)) << "a descriptor the library did not open stays open";
}

// 10,000 changes unread overflow the socket: an overrun, and afterwards the events applied to
// the state read afresh give the state the kernel has.
TEST_F(Events, OverrunThenReadsAgreeWithTheKernel)
{
    const char *names[] = {"lan1", nullptr};
    int fd = NET_EventOpen(names, NET_EVENT_IPV4_ADDR);
    ASSERT_GE(fd, 0);
    std::ostringstream adds;
    for (int i = 0; i < 10000; ++i)
        adds << "addr add 10." << (i >> 8) << "." << (i & 255) << ".1/32 dev lan1\n";
    sandbox::write_file("/tmp/adds", adds.str());
    must("ip -batch /tmp/adds");
    ASSERT_TRUE(wait_for(fd, [](const NetEvent &e) { return e.iKind == NET_EVENT_OVERRUN; }));

    auto kernel = [] {
        std::set<std::string> s;
        std::istringstream in(sandbox::sh_out("ip -4 -o addr show dev lan1 | awk '{print $4}'"));
        for (std::string line; std::getline(in, line);)
            s.insert(line.substr(0, line.find('/')));
        return s;
    };
    std::set<std::string> state = kernel();
    EXPECT_EQ(10000u, state.size());
    std::ostringstream more;
    for (int i = 0; i < 100; ++i)
        more << "addr del 10.0." << i << ".1/32 dev lan1\n";
    more << "addr add 192.168.9.9/32 dev lan1\n";
    sandbox::write_file("/tmp/more", more.str());
    must("ip -batch /tmp/more");
    std::vector<NetEvent> seen;
    ASSERT_TRUE(wait_for(fd, kind_on(NET_EVENT_ADDR_ADD, "lan1", "192.168.9.9"), nullptr, &seen));
    for (const NetEvent &e : seen) {
        ASSERT_NE(NET_EVENT_OVERRUN, e.iKind);
        if (e.iKind == NET_EVENT_ADDR_ADD)
            state.insert(e.szAddr);
        else if (e.iKind == NET_EVENT_ADDR_DEL)
            state.erase(e.szAddr);
    }
    EXPECT_EQ(kernel(), state);
    EXPECT_EQ(0, NET_EventClose(fd));
}
