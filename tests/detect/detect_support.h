// Frames and the neighbour's side for the detection suites: frame builders, packet sockets,
// and running code in the neighbour's network namespace.
#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sched.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "sandbox.h"

namespace detecttest
{

using Bytes = std::vector<uint8_t>;
using Mac = std::array<uint8_t, 6>;
using Ip4 = std::array<uint8_t, 4>;

inline Mac mac_of(const std::string &dev)
{
    Mac m{};
    sscanf(sandbox::read_file("/sys/class/net/" + dev + "/address").c_str(),
           "%hhx:%hhx:%hhx:%hhx:%hhx:%hhx", &m[0], &m[1], &m[2], &m[3], &m[4], &m[5]);
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
    const std::array<uint8_t, 10> head = {
        0x08, 0x06, 0, 1, 0x08, 0, 6, 4, static_cast<uint8_t>(op >> 8), static_cast<uint8_t>(op)};
    Bytes f;
    auto put = [&f](const auto &part) { f.insert(f.end(), part.begin(), part.end()); };
    put(ethDst), put(sha), put(head), put(sha), put(spa), put(tha), put(tpa);
    f.resize(60);
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
    std::mt19937 rng(seed);
    std::vector<Bytes> out(count);
    for (Bytes &f : out) {
        f.resize(14 + rng() % 47);
        for (uint8_t &b : f)
            b = static_cast<uint8_t>(rng());
        f[12] = 0x08, f[13] = 0x06;
        if (f.size() > 22)
            f[22] = static_cast<uint8_t>(avoid[0] ^ 0xff);
        if (f.size() > 32)
            f[32] = 0x03;
    }
    return out;
}

// A packet socket for ARP bound to dev (in the calling namespace); -1 on failure.
inline int arp_socket(const std::string &dev)
{
    int fd = socket(AF_PACKET, SOCK_RAW, htons(ETH_P_ARP));
    struct sockaddr_ll ll {
    };
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
    for (struct pollfd p = {fd, POLLIN, 0}; std::chrono::steady_clock::now() < end;) {
        Bytes b(2048);
        ssize_t n = poll(&p, 1, 20) > 0 ? recv(fd, b.data(), b.size(), 0) : -1;
        b.resize(static_cast<size_t>(n < 0 ? 0 : n));
        if (n >= 0 && want(b))
            return out ? (*out = b, true) : true;
    }
    return false;
}

// Sends every frame, to `to` when given (else on the bound or connected socket).
inline bool send_all(int fd, const std::vector<Bytes> &frames, const sockaddr_in6 *to = nullptr)
{
    for (const Bytes &f : frames)
        if (sendto(fd, f.data(), f.size(), 0, reinterpret_cast<const sockaddr *>(to),
                   to ? sizeof *to : 0) != static_cast<ssize_t>(f.size()))
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

inline uint16_t arp_op(const Bytes &f)
{
    return f.size() < 22 ? 0 : (f[20] << 8) | f[21];
}

} // namespace detecttest
