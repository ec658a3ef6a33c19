// The MAC collision monitor on real interfaces: frames crafted in the neighbour's namespace
// with the device's MAC as sender, the status table read back by slot name, and the ways a
// monitor ends during set-up. Slots are never freed, so each test relies on running in a
// process of its own (as ctest runs them).
#include <pthread.h>

#include <atomic>
#include <memory>
#include <utility>

#include "libnetwork.h"
#include "test_detect_support.h"

using namespace detecttest;
using sandbox::LogCapture;

namespace
{

// The monitor paces itself with sleep(): a second per frame, two more after a collision.
// This process's sleep() (the library's call binds to it) waits 3 ms per second asked and
// counts the requests, so fifty frames take a moment and the test knows when one was handled.
std::atomic<int> g_sleep1{0}, g_sleep2{0}, g_sleepOther{0};

} // namespace

extern "C" unsigned int sleep(unsigned int seconds)
{
    ++(seconds == 1 ? g_sleep1 : seconds == 2 ? g_sleep2 : g_sleepOther);
    usleep(seconds * 3000);
    return 0;
}

namespace
{

using Leveled = std::vector<std::pair<int, std::string>>;

Leveled leveled(const LogCapture &log)
{
    Leveled out;
    for (const sandbox::LogLine &l : log.lines())
        out.emplace_back(l.level, sandbox::without_line(l.text));
    return out;
}

std::pair<int, std::string> line(int level, const std::string &msg,
                                 const std::string &func = "net_DetectMacCollisionThread")
{
    return {level, sandbox::expect_line(func, msg)};
}

bool wait_until(const std::function<bool()> &done)
{
    auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!done()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

// A monitor thread as the application starts it; cancelled at the end when still running.
class Monitor
{
  public:
    explicit Monitor(const std::string &name) : name_(name)
    {
        started_ = pthread_create(&thread_, nullptr, sandbox::mac_monitor_thread,
                                  const_cast<char *>(name_.c_str())) == 0;
    }
    ~Monitor()
    {
        if (started_) {
            pthread_cancel(thread_);
            pthread_join(thread_, nullptr);
        }
    }
    Monitor(const Monitor &) = delete;
    Monitor &operator=(const Monitor &) = delete;

    // The thread reached its loop: it names itself just before.
    bool watching()
    {
        return wait_until([this] {
            char name[16] = {0};
            return pthread_getname_np(thread_, name, sizeof name) == 0 &&
                   strcmp(name, "detecMAC") == 0;
        });
    }

  private:
    std::string name_;
    pthread_t thread_{};
    bool started_ = false;
};

int status_of(const char *name)
{
    int st = -7;
    return NET_GetMacCollStatus(name, &st) == 0 ? st : -1;
}

} // namespace

class MacMonitor : public ::testing::Test
{
  protected:
    void SetUp() override { REQUIRE_SANDBOX(); }

    // Sends frames from the neighbour's dev and waits until the monitors handled them
    // (each handled frame ends in one 1 s pause per monitor).
    void send_from_peer(const std::string &dev, const std::vector<Bytes> &frames, int monitors)
    {
        int want = g_sleep1 + monitors * static_cast<int>(frames.size());
        as_peer(peer_, [&] {
            int fd = arp_socket(dev);
            EXPECT_TRUE(fd >= 0 && send_all(fd, frames));
            close(fd);
        });
        ASSERT_TRUE(wait_until([&] { return g_sleep1 >= want; })) << "handled too few";
    }

    sandbox::Peer peer_;
};

// A collision stands until fifty other frames came. Frames are read within the bytes
// received: a MAC cut short is no collision, garbage is just another station, and nothing
// stops the monitor.
TEST_F(MacMonitor, CollisionStandsUntilFiftyOtherFrames)
{
    sandbox::veth("lan1", "nb1", &peer_);
    const Mac own = mac_of("lan1");
    auto from = [](const Mac &sha, int n) {
        return std::vector<Bytes>(
            n, arp_frame(1, kBroadcast, sha, ip4("192.168.1.50"), kNoMac, ip4("192.168.1.1")));
    };
    const Mac other = {0x02, 0, 0, 0, 0x01, 0x02};
    std::vector<Bytes> cuts, oversized = from(own, 1);
    for (size_t n = 14; n < 28; ++n)
        cuts.push_back(cut(from(own, 1)[0], n)); // our MAC at 22 incomplete or missing
    oversized[0].resize(1400, 0xee);
    const auto collision = line(6, "\"Mac addr collision\"");
    const auto cleared = line(6, "\"Mac addr get right\"");
    Monitor m("lan1");
    ASSERT_TRUE(m.watching());
    EXPECT_EQ(0, status_of("lan1"));
    struct Step {
        const char *what;
        std::vector<Bytes> frames;
        int collisions, status;
        Leveled log;
    } steps[] = {
        {"our MAC cut short of its sixth byte", cuts, 0, 0, {}},
        {"a station with our MAC", from(own, 1), 1, 1, {collision}},
        {"49 others do not clear it", from(other, 49), 0, 1, {}},
        {"the 50th does", from(other, 1), 0, 0, {cleared}},
        {"others while clear change nothing", from(other, 5), 0, 0, {}},
        {"the shortest frame that carries our MAC", {cut(from(own, 1)[0], 28)}, 1, 1, {collision}},
        {"30 garbled frames", garbage_arp(30, own, 7), 0, 1, {}},
        {"an oversized frame with our MAC restarts the count", oversized, 1, 1, {collision}},
        {"49 more others", garbage_arp(49, own, 8), 0, 1, {}},
        {"the 50th since the latest collision", from(other, 1), 0, 0, {cleared}},
        {"a garbled burst while clear", garbage_arp(100, own, 9), 0, 0, {}},
    };
    for (const Step &s : steps) {
        SCOPED_TRACE(s.what);
        LogCapture log;
        int collisions = g_sleep2;
        send_from_peer("nb1", s.frames, 1);
        EXPECT_EQ(s.collisions, g_sleep2 - collisions) << "two more seconds after each collision";
        EXPECT_EQ(s.status, status_of("lan1"));
        EXPECT_EQ(s.log, leveled(log));
    }
    EXPECT_EQ(0, g_sleepOther.load());
    EXPECT_TRUE(m.watching()) << "still watching";
}

TEST_F(MacMonitor, SlotsByNameThreeAtMost)
{
    for (int i = 0; i < 3; ++i)
        sandbox::veth("eth" + std::to_string(i), "p" + std::to_string(i), &peer_);
    struct Start {
        const char *name;
        bool runs;
        Leveled log;
    } starts[] = {
        {"eth0", true, {}},
        {"eth1", true, {}},
        {"eth0", false, {line(7, "\"had created Mac collsion thread of 'eth0'\"")}},
        // Matches the first listed name it begins: the MAC of eth0, the slot "eth".
        {"eth", true, {}},
        {"et", false, {line(3, "\"IfName more than 3, not support!\"")}},
        {"wlan0", false, {line(3, "\"can't find the device\\n\"")}},
    };
    std::vector<std::unique_ptr<Monitor>> running;
    for (const Start &s : starts) {
        SCOPED_TRACE(s.name);
        LogCapture log;
        if (s.runs) { // ends at once otherwise: called here, not on a thread of its own
            running.push_back(std::make_unique<Monitor>(s.name));
            EXPECT_TRUE(running.back()->watching());
        } else {
            EXPECT_EQ(nullptr, net_DetectMacCollisionThread(const_cast<char *>(s.name)));
        }
        EXPECT_EQ(s.log, leveled(log));
    }
    // A frame with eth0's MAC, arriving on eth1: the monitors hear every interface.
    const Mac eth0 = mac_of("eth0");
    send_from_peer("p1", {arp_frame(2, kBroadcast, eth0, ip4("10.0.0.9"), kNoMac, ip4("10.0.0.1"))},
                   3);
    struct Lookup {
        const char *name;
        int status;
    } lookups[] = {{"eth0", 1}, {"eth", 1}, {"eth1", 0}, {"eth2", -1}, {"et", -1}};
    for (const Lookup &l : lookups)
        EXPECT_EQ(l.status, status_of(l.name)) << l.name;
}

// Monitors that end during set-up, and refused look-ups: the lines log readers match.
TEST_F(MacMonitor, SetUpEndingsAndLookups)
{
    auto threads = [] {
        return sandbox::sh_out("ls /proc/" + std::to_string(getpid()) + "/task | wc -l");
    };
    std::string before = threads();
    EXPECT_EQ(0, NET_CreateMacCollThread(nullptr)); // does nothing
    EXPECT_EQ(0, NET_CreateMacCollThread(const_cast<char *>("lan1")));
    EXPECT_EQ(before, threads());
    // Set-ups that end: no argument; only the loopback, an empty list, so no MAC at all; a
    // tunnel, which has no hardware address (listed by its IPv4 address, MAC all zero).
    struct Ending {
        const char *arg, *setup, *msg;
    } endings[] = {
        {nullptr, "true", "\"parameter 'pvArgv' is null!\""},
        {"lan1", "true", "\"Get interface Mac failed, pcSourceMacAddr: (nil).\""},
        {"tun0", "ip tuntap add dev tun0 mode tun && ip addr add 10.9.9.9/32 dev tun0",
         "\"Mac address can not be set zero. \\n\""},
    };
    for (const Ending &e : endings) {
        sandbox::must(e.setup);
        LogCapture log;
        EXPECT_EQ(nullptr, net_DetectMacCollisionThread(const_cast<char *>(e.arg)));
        EXPECT_EQ(Leveled{line(3, e.msg)}, leveled(log));
    }
    // Refused look-ups: none of the endings took a slot.
    int st = 5;
    struct Lookup {
        const char *name;
        int *out;
        const char *msg;
    } lookups[] = {
        {nullptr, &st, "\"parameter is null\""},
        {"lan1", nullptr, "\"parameter is null\""},
        {"tun0", &st, "\"can't find Mac Collsion thread of 'tun0'!\""},
        {"lan1", &st, "\"can't find Mac Collsion thread of 'lan1'!\""},
    };
    for (const Lookup &l : lookups) {
        LogCapture log;
        EXPECT_EQ(-1, NET_GetMacCollStatus(l.name, l.out));
        EXPECT_EQ(Leveled{line(3, l.msg, "NET_GetMacCollStatus")}, leveled(log));
        EXPECT_EQ(5, st);
    }
}
