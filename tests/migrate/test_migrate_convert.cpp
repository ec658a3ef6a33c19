// The start-up decision on real package files, the reboot as the companion stand-in records
// it, and the two-interface conversions choosing their port by the link state of veth pairs.
#include <functional>
#include <string>

#include "libnetwork.h"
#include "sandbox.h"
#include "migrate_support.h"

using namespace migtest;

namespace
{

using Check = std::function<void(const std::string &before)>;

struct Row {
    const char *name, *device;
    std::function<void()> setup; // files and links
    int result, reboots;
    double minSec, maxSec;
    Check check;
};

void run(const std::vector<Row> &rows)
{
    for (const Row &r : rows) {
        SCOPED_TRACE(r.name);
        sandbox::reset_device();
        sandbox::set_device(r.device);
        NET_Init();
        r.setup();
        const std::string before = read_pkg("network");
        sandbox::must(": >/tmp/network-script.log");
        Start s = start_up();
        EXPECT_EQ(r.result, s.result);
        EXPECT_EQ(r.reboots, s.reboots);
        EXPECT_GE(s.seconds, r.minSec);
        EXPECT_LT(s.seconds, r.maxSec + sandbox::kLateSec);
        r.check(before);
    }
}

void unchanged(const std::string &before)
{
    EXPECT_EQ(before, read_pkg("network"));
    EXPECT_EQ("", script_log());
}

// The current layout holds the old device's records on that port; the port store never
// writes the HTTPS port, so the generated one stays.
void holds_old_records(const char *port)
{
    OldRecords now = records(ether(port), NET_GetDdnsCfg, NET_GetPppoeCfg, NET_GetPortCfg);
    install_old_device();
    OldRecords old = old_records();
    old[3] = "http=8080 rtsp=8554 https=443 map=1 mode=1 ext http=18080 rtsp=18554";
    EXPECT_EQ(kOldEther, now[0]);
    EXPECT_TRUE(old == now);
}

void links(bool first, bool second)
{
    sandbox::veth("lan1", "p1");
    sandbox::veth("lan2", "p2");
    for (const char *p : {first ? "" : "p1", second ? "" : "p2"})
        if (*p)
            sandbox::link_down(p);
}

} // namespace

TEST(MigConvert, DecisionRowsThatDoNotWait)
{
    REQUIRE_SANDBOX();
    const Check stamped = [](const std::string &before) {
        EXPECT_EQ(before + kSingleStamp + "\n", read_pkg("network"));
    };
    const Check converted = [](const std::string &) {
        EXPECT_EQ("config_generate\n", script_log());
        EXPECT_EQ(std::string::npos, read_pkg("network").find("net_version")); // next start
        holds_old_records("eth0");
    };
    // clang-format off
    run({
        {"no package", kOnePort, [] {}, -1, 0, 0, 1, unchanged},
        {"double stamp, one port", kOnePort, [] { generated(kTwoPorts); }, 0, 0, 0, 1, unchanged},
        {"double stamp, two ports", kTwoPorts, [] { generated(kTwoPorts); }, 0, 0, 0, 1, unchanged},
        {"single stamp, one port", kOnePort, [] { generated(kOnePort, kSingleStamp); }, 0, 0, 0, 1,
         unchanged},
        {"unstamped, one port", kOnePort, [] { generated(kOnePort); }, 0, 0, 0, 1, stamped},
        {"old layout, one port", kOnePort, install_old_device, 0, 1, 0, 1, converted},
        {"old layout, old DDNS unreadable", kOnePort,
         [] { install_old_device(); sandbox::must("rm /etc/config/ddns"); }, -1, 0, 0, 1, unchanged},
    });
    // clang-format on
}

// 3 s before the restart, then the link looks: 3 s in all when a look finds a link or every
// look fails, 8 s when five looks one second apart find none.
TEST(MigConvert, TwoInterfaceConversionsChooseTheCabledPort)
{
    REQUIRE_SANDBOX();
    SKIP_IF_EMULATED(sandbox::ethtool_emulated(), "SIOCETHTOOL");
    const Check onLan2 = [](const std::string &) {
        EXPECT_EQ("config_generate\nnetwork restart\n", script_log());
        EXPECT_EQ(kLan1Default, ether("lan1"));
        holds_old_records("lan2");
    };
    const Check regenerated = [](const std::string &) {
        const std::string left = read_pkg("network");
        EXPECT_EQ(generated(kTwoPorts), left);
    };
    const Check lan1Default = [](const std::string &) { EXPECT_EQ(kLan1Default, ether("lan1")); };
    const Check onLan1 = [](const std::string &) {
        EXPECT_EQ("card=0 v4=0 mtu=1280 192.168.1.10/255.255.255.0 gw 192.168.1.1 v6=1 "
                  "2001:db8::7/64 gw  dns 192.168.1.1 ",
                  ether("lan1"));
    };
    const char *v6Manual = "sed -i \"s/ipv6dhcp '2'/ipv6dhcp '1'\\n\\toption ip6addr "
                           "'2001:db8::7\\/64'/; s/mtu '1500'/mtu '1280'/\" /etc/config/network";
    const char *onLan2Addr = "sed -i 's/\\(10.20.30.40\\|192.168.1.10\\)/192.168.2.10/' "
                             "/etc/config/network";
    // clang-format off
    run({
        {"old layout, only lan2 linked: lan2", kTwoPorts,
         [] { install_old_device(); links(false, true); }, 0, 1, 3, 4.5, onLan2},
        {"old layout refused on lan1: given up, regenerated", kTwoPorts,
         [&] { install_old_device(); sandbox::must(onLan2Addr); links(true, true); }, -1, 0, 3, 4.5,
         regenerated},
        // The one-port record lacks its automatic IPv6 part (no "eth0" here) but counts.
        {"single stamp, no link: lan1 after five looks, refused, going on", kTwoPorts,
         [&] { generated(kOnePort, kSingleStamp); sandbox::must(onLan2Addr); links(false, false); },
         0, 1, 8, 9.5, lan1Default},
        {"unstamped, no lan2: lan1 without a wait", kTwoPorts,
         [&] { generated(kOnePort); sandbox::must(v6Manual); sandbox::veth("lan1", "p1"); },
         0, 1, 3, 4.5, onLan1},
    });
    // clang-format on
}
