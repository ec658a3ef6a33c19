// What the detection suites share: frames written out field by field, and tasks that run in
// the neighbour's namespace beside the call under test (a socket there sees, crafts and
// answers frames while the library waits on this side).
#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <poll.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <functional>
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
    memcpy(&f[0], ethDst.data(), 6);
    memcpy(&f[6], sha.data(), 6);
    f[12] = 0x08, f[13] = 0x06;
    f[14] = 0x00, f[15] = 0x01;
    f[16] = 0x08, f[17] = 0x00;
    f[18] = 6, f[19] = 4;
    f[20] = static_cast<uint8_t>(op >> 8), f[21] = static_cast<uint8_t>(op);
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

inline uint16_t arp_op(const Bytes &f)
{
    return f.size() < 22 ? 0 : (f[20] << 8) | f[21];
}

// ---- In the neighbour's namespace --------------------------------------------------------

// A packet socket for ARP bound to dev (in the calling namespace); -1 on failure.
inline int arp_socket(const std::string &dev)
{
    int fd = socket(AF_PACKET, SOCK_RAW, htons(ETH_P_ARP));
    if (fd < 0)
        return -1;
    struct sockaddr_ll ll;
    memset(&ll, 0, sizeof ll);
    ll.sll_family = AF_PACKET;
    ll.sll_protocol = htons(ETH_P_ARP);
    ll.sll_ifindex = static_cast<int>(if_nametoindex(dev.c_str()));
    if (bind(fd, reinterpret_cast<sockaddr *>(&ll), sizeof ll) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

// Receives datagrams until one satisfies want or msec pass; true with it in out.
inline bool await(int fd, int msec, const std::function<bool(const Bytes &)> &want, Bytes *out)
{
    auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(msec);
    for (;;) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                        end - std::chrono::steady_clock::now())
                        .count();
        if (left <= 0)
            return false;
        struct pollfd p = {fd, POLLIN, 0};
        if (poll(&p, 1, static_cast<int>(left)) <= 0)
            continue;
        Bytes b(2048);
        ssize_t n = recv(fd, b.data(), b.size(), 0);
        if (n < 0)
            continue;
        b.resize(static_cast<size_t>(n));
        if (want(b)) {
            if (out != nullptr)
                *out = b;
            return true;
        }
    }
}

inline bool send_all(int fd, const std::vector<Bytes> &frames)
{
    for (const Bytes &f : frames)
        if (send(fd, f.data(), f.size(), 0) != static_cast<ssize_t>(f.size()))
            return false;
    return true;
}

inline void put_bytes(int out, const Bytes &b)
{
    if (!b.empty() && write(out, b.data(), b.size()) < 0)
        _exit(99);
}

// A body run in a child inside the neighbour's namespace, on a thread of this process, so
// that the test can call the library meanwhile. The body opens its socket, calls ready(),
// then works; whatever it writes to `out` comes back through output(). Its result is the
// child's exit status.
class PeerTask
{
  public:
    using Body = std::function<int(const std::function<void()> &ready, int out)>;

    PeerTask(const sandbox::Peer &peer, Body body)
    {
        if (pipe2(ready_, O_CLOEXEC) != 0 || pipe2(out_, O_CLOEXEC) != 0)
            return;
        thread_ = std::thread([this, &peer, body] {
            status_ = peer.run([this, body] {
                close(ready_[0]);
                close(out_[0]);
                int wfd = ready_[1];
                auto ready = [wfd] {
                    char c = 1;
                    if (write(wfd, &c, 1) != 1)
                        _exit(98);
                };
                return body(ready, out_[1]);
            });
        });
    }
    ~PeerTask()
    {
        wait();
        for (int fd : {ready_[0], ready_[1], out_[0], out_[1]})
            if (fd >= 0)
                close(fd);
    }
    PeerTask(const PeerTask &) = delete;
    PeerTask &operator=(const PeerTask &) = delete;

    // Whether the body got as far as ready() within five seconds.
    bool ready()
    {
        struct pollfd p = {ready_[0], POLLIN, 0};
        char c = 0;
        return poll(&p, 1, 5000) == 1 && read(ready_[0], &c, 1) == 1;
    }
    // The child's exit status.
    int wait()
    {
        if (thread_.joinable())
            thread_.join();
        return status_;
    }
    Bytes output()
    {
        wait();
        if (out_[1] >= 0) {
            close(out_[1]);
            out_[1] = -1;
        }
        Bytes all;
        uint8_t buf[4096];
        ssize_t n;
        while ((n = read(out_[0], buf, sizeof buf)) > 0)
            all.insert(all.end(), buf, buf + n);
        return all;
    }

  private:
    int ready_[2] = {-1, -1};
    int out_[2] = {-1, -1};
    int status_ = -1;
    std::thread thread_;
};

// Seconds since start, as a double.
inline double since(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

} // namespace detecttest
