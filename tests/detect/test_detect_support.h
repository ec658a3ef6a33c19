// What the detection suites share: frames written out field by field, the standard link to a
// neighbour, and sockets in the neighbour's namespace that see, craft and answer frames.
#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "sandbox.h"

namespace detecttest
{

using Bytes = std::vector<uint8_t>;
using Mac = std::array<uint8_t, 6>;
using Ip4 = std::array<uint8_t, 4>;

inline Mac mac_of(const std::string &dev)
{
    std::string text = sandbox::sh_out("cat /sys/class/net/" + dev + "/address");
    Mac m{};
    unsigned v[6] = {0};
    sscanf(text.c_str(), "%x:%x:%x:%x:%x:%x", &v[0], &v[1], &v[2], &v[3], &v[4], &v[5]);
    for (int i = 0; i < 6; ++i)
        m[i] = static_cast<uint8_t>(v[i]);
    return m;
}

inline Ip4 ip4(const char *text)
{
    Ip4 a{};
    inet_pton(AF_INET, text, a.data());
    return a;
}

constexpr Mac kBroadcast = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff};
constexpr Mac kNoMac = {0, 0, 0, 0, 0, 0};

// An ARP frame of 60 bytes, every field given.
inline Bytes arp_frame(uint16_t op, const Mac &ethDst, const Mac &sha, const Ip4 &spa,
                       const Mac &tha, const Ip4 &tpa)
{
    Bytes f(60, 0);
    const uint8_t head[] = {
        0x08, 0x06, 0, 1, 0x08, 0, 6, 4, static_cast<uint8_t>(op >> 8), static_cast<uint8_t>(op)};
    memcpy(&f[0], ethDst.data(), 6);
    memcpy(&f[6], sha.data(), 6);
    memcpy(&f[12], head, sizeof head);
    memcpy(&f[22], sha.data(), 6);
    memcpy(&f[28], spa.data(), 4);
    memcpy(&f[32], tha.data(), 6);
    memcpy(&f[38], tpa.data(), 4);
    return f;
}

inline Bytes cut(Bytes f, size_t n)
{
    f.resize(n);
    return f;
}

// Random bytes behind an ARP EtherType, 14 to 60 bytes long; where the frame reaches them,
// the sender hardware address never equals avoid and the target's is never unicast.
inline std::vector<Bytes> garbage_arp(size_t count, const Mac &avoid, unsigned seed)
{
    std::vector<Bytes> out;
    for (size_t i = 0; i < count; ++i) {
        seed = seed * 1103515245u + 12345u;
        Bytes f(14 + (seed >> 8) % 47);
        for (uint8_t &b : f) {
            seed = seed * 1103515245u + 12345u;
            b = static_cast<uint8_t>(seed >> 16);
        }
        f[12] = 0x08, f[13] = 0x06;
        if (f.size() > 22)
            f[22] = static_cast<uint8_t>(avoid[0] ^ 0xff);
        if (f.size() > 32)
            f[32] = 0x03;
        out.push_back(f);
    }
    return out;
}

// A packet socket for ARP bound to dev (in the calling namespace); -1 on failure.
inline int arp_socket(const std::string &dev)
{
    int fd = socket(AF_PACKET, SOCK_RAW, htons(ETH_P_ARP));
    struct sockaddr_ll ll;
    memset(&ll, 0, sizeof ll);
    ll.sll_family = AF_PACKET;
    ll.sll_protocol = htons(ETH_P_ARP);
    ll.sll_ifindex = static_cast<int>(if_nametoindex(dev.c_str()));
    if (fd >= 0 && bind(fd, reinterpret_cast<sockaddr *>(&ll), sizeof ll) != 0)
        return -1;
    return fd;
}

// Receives datagrams until one satisfies want or msec pass; true with it in out.
inline bool await(int fd, int msec, const std::function<bool(const Bytes &)> &want,
                  Bytes *out = nullptr)
{
    auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(msec);
    for (long left; (left = std::chrono::duration_cast<std::chrono::milliseconds>(
                                end - std::chrono::steady_clock::now())
                                .count()) > 0;) {
        struct pollfd p = {fd, POLLIN, 0};
        Bytes b(2048);
        ssize_t n = poll(&p, 1, static_cast<int>(left)) > 0 ? recv(fd, b.data(), b.size(), 0) : -1;
        if (n < 0)
            continue;
        b.resize(static_cast<size_t>(n));
        if (want(b)) {
            if (out != nullptr)
                *out = b;
            return true;
        }
    }
    return false;
}

inline bool send_all(int fd, const std::vector<Bytes> &frames)
{
    for (const Bytes &f : frames)
        if (send(fd, f.data(), f.size(), 0) != static_cast<ssize_t>(f.size()))
            return false;
    return true;
}

// Runs fn on a thread inside the neighbour's network namespace: the sockets it opens live
// there for good, so this process can listen and answer as the neighbour while the library
// waits on this side.
inline void as_peer(const sandbox::Peer &peer, const std::function<void()> &fn)
{
    std::thread t([&] {
        std::string ns = "/proc/" + std::to_string(peer.pid()) + "/ns/net";
        int nsfd = open(ns.c_str(), O_RDONLY | O_CLOEXEC);
        if (nsfd >= 0 && setns(nsfd, CLONE_NEWNET) == 0)
            fn();
        close(nsfd);
    });
    t.join();
}

// Seconds since start, as a double.
inline double since(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// A veth link to a neighbour: "lan1" here (192.168.1.10/24, 2001:db8::10/64) and "nb1" there
// (MAC 02:00:00:00:01:02, 192.168.1.1/24, 2001:db8::1/64). A Linux neighbour answers a
// multicast solicitation without a source link-layer option only when it already has an
// entry for the sender, so the neighbour gets permanent entries for the device's addresses.
class NeighbourLink : public ::testing::Test
{
  protected:
    void SetUp() override
    {
        REQUIRE_SANDBOX();
        sandbox::veth("lan1", "nb1", &peer_);
        peer_.must("ip link set nb1 address 02:00:00:00:01:02 && "
                   "ip addr add 192.168.1.1/24 dev nb1 && "
                   "ip addr add 2001:db8::1/64 dev nb1 nodad");
        sandbox::addr_add("lan1", "192.168.1.10/24");
        sandbox::addr_add("lan1", "2001:db8::10/64");
        std::string mac = sandbox::sh_out("cat /sys/class/net/lan1/address");
        mac.erase(mac.find_last_not_of("\n") + 1);
        std::string addrs =
            sandbox::sh_out("ip -6 -o addr show dev lan1 | awk '{print $4}' | cut -d/ -f1");
        for (size_t at = 0, nl; (nl = addrs.find('\n', at)) != std::string::npos; at = nl + 1)
            peer_.must("ip -6 neigh replace " + addrs.substr(at, nl - at) + " lladdr " + mac +
                       " dev nb1 nud permanent");
        own_ = mac_of("lan1");
    }
    sandbox::Peer peer_;
    Mac own_{};
};

} // namespace detecttest
