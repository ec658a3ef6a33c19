// Roll-back to the old layout on real package files: when it is due, the old layout forward
// and back again, what "network" becomes, the failures that leave it as it was, and the
// lines log readers match for refusals and failures.
#include <functional>
#include <string>

#include "libnetwork.h"
#include "sandbox.h"
#include "migrate_support.h"

using namespace migtest;

TEST(MigRollback, IsNetConfigBackTable)
{
    REQUIRE_SANDBOX();
    const struct {
        const char *marker; // option of the marker, "" for no marker, null for no package
        int version, result, flag;
    } rows[] = {
        {"single", 0, 0, 1}, {"single", 1, 0, 0},  {"double", 2, 0, 0},   {"double", 1, -1, 0},
        {"", 1, 0, 0},       {"single", 3, -1, 7}, {"single", -1, -1, 7}, {nullptr, 0, -1, 0},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(std::string(r.marker ? r.marker : "none") + " " + std::to_string(r.version));
        sandbox::must("rm -f /etc/config/network");
        if (r.marker != nullptr)
            sandbox::write_file("/etc/config/network",
                                std::string("config ddns 'ddns'\n") +
                                    (*r.marker ? "config version 'net_version'\n\toption " +
                                                     std::string(r.marker) + " 'x'\n"
                                               : ""));
        int flag = 7;
        EXPECT_EQ(r.result, NET_IsNetConfigBack(r.version, &flag));
        EXPECT_EQ(r.flag, flag);
    }
}

// Forward at one start, stamped at the next, then rolled back: the old readers give what they
// gave before, except what the current layout does not store (the automatic modes keep only
// the modes, card type and MTU). The package is then one the next start converts again.
TEST(MigRollback, OldLayoutForwardAndBack)
{
    REQUIRE_SANDBOX();
    const char *autoModes = "sed -i \"s/dhcpmode 'false'/dhcpmode 'true'/; "
                            "s/ipv6mode 'true'/ipv6mode '2'/\" /etc/config/tcpip";
    const std::string kept[][2] = {{"true", kOldEther},
                                   {autoModes, "card=3 v4=1 mtu=1400 / gw  v6=2 /0 gw  dns  "}};
    for (const auto &r : kept) {
        SCOPED_TRACE(r[0]);
        sandbox::reset_device();
        sandbox::veth("eth0", "p0");
        install_old_device();
        OldRecords before = old_records();
        before[0] = r[1];
        sandbox::must(r[0]);
        ASSERT_EQ(1, start_up().reboots);
        ASSERT_EQ(0, start_up().reboots);
        int due = 0;
        EXPECT_EQ(0, NET_IsNetConfigBack(0, &due));
        EXPECT_EQ(1, due);
        ASSERT_EQ(0, NET_NetConfigBackToOld());
        OldRecords after = old_records();
        EXPECT_EQ(before[0], after[0]);
        EXPECT_TRUE(before == after);
        EXPECT_EQ("config uhttpd 'main'\n\tlist listen_https '0.0.0.0:8443'\n"
                  "\tlist listen_http '0.0.0.0:8080'\n\tlist listen_http '[::]:8080'\n",
                  block(read_pkg("uhttpd"), "main"));
        EXPECT_EQ(0, NET_IsNetConfigBack(0, &due));
        EXPECT_EQ(0, due);
    }
}

TEST(MigRollback, StripOrLeaveAsItWas)
{
    REQUIRE_SANDBOX();
    auto strip = [] {
        NetEtherCfg c;
        memset(&c, 0, sizeof c);
        return NET_NetBackToOldEthCfg(&c);
    };
    const std::string route = "\nconfig route 'eth0_E0000000'\n\toption interface 'lan'\n";
    const struct {
        const char *device, *edit;
        std::string extra; // after the generated package
        std::function<int()> call;
        int result;
    } rows[] = {
        // clang-format off
        {kOnePort, "true", kSingleStamp + route, NET_NetConfigBackToOld, 0},
        {kTwoPorts, "true", "", NET_NetConfigBackToOld, 0},
        {kOnePort, "sed -i '/portmapping/,$d' /etc/config/network", "", strip, -1},
        {kOnePort, "sed -i '/cardtype/d' /etc/config/network", "", strip, -1},
        {kOnePort, "mount --bind /etc/config /etc/config && mount -o remount,bind,ro /etc/config",
         "", NET_NetConfigBackToOld, -1},
        // clang-format on
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.edit);
        sandbox::reset_device();
        sandbox::set_device(r.device);
        NET_Init();
        sandbox::veth(g_pcLan1Name, "p0");
        generated(r.device, r.extra);
        sandbox::must(r.edit);
        const std::string before = read_pkg("network");
        sandbox::FdCheck fds;
        EXPECT_EQ(r.result, r.call());
        const std::string after = read_pkg("network");
        sandbox::sh("umount /etc/config 2>/dev/null");
        EXPECT_EQ(r.result == 0, sandbox::file_exists("/etc/config/tcpip"));
        if (r.result != 0) {
            EXPECT_EQ(before, after);
            continue;
        }
        // The port a bridge without its mode options; the new sections and the route gone.
        const std::string lan = block(after, r.device == kOnePort ? "lan" : "lan1");
        EXPECT_NE(std::string::npos,
                  lan.find("\tlist dns '192.168.1.1'\n\toption type 'bridge'\n"));
        for (const char *gone : {"cardtype", "dhcp '"})
            EXPECT_EQ(std::string::npos, lan.find(gone)) << gone;
        for (const char *gone :
             {"'ddns'", "'pppoe'", "'port'", "'portmapping'", "'net_version'", "eth0_E0000000"})
            EXPECT_EQ(std::string::npos, after.find(gone)) << gone;
    }
}

// clang-format off
namespace
{
int back_to_old_null() { return NET_NetBackToOldEthCfg(nullptr); }
int defcard_null() { return NET_SetDefNetCard(nullptr); }
int back_null() { return NET_IsNetConfigBack(0, nullptr); }
int back_3() { int f; return NET_IsNetConfigBack(3, &f); }
int old_eth() { NetEtherCfg c; return NET_GetOldEthCfg(&c); }
int old_port() { NetPortCfg c; return NET_GetOldPortCfg(&c); }
} // namespace
// clang-format on

// Refusals and failures of the exported calls, with their tags: what log readers match.
TEST(MigRollback, MigrateLogLines)
{
    REQUIRE_SANDBOX();
    NET_Init();
    const std::string load = plain("NET_CreatePackage", "Load uci failed \\n");
    const struct {
        const char *edit;
        int (*call)();
        int result;
        Lines lines;
    } rows[] = {
        // clang-format off
        {"rm /etc/config/network", NET_ConvertConfig, -1,
         {load, load, tagged("NET_ConvertConfig", "PL_CREATE_PACKAGE_ERROR_PRINT", "file: network.\\n")}},
        {"rm /etc/config/ddns", NET_ConvertConfig, -1,
         {plain("NET_GetSection", "net_version.\\n"), plain("NET_GetSection", "ddns.\\n"), load, load,
          plain("NET_GetOldDdnsCfg", "file: ddns.\\n"),
          plain("NET_NetConfigOldToNew", "get old DDNS configure fail.\\n"),
          plain("NET_ConvertConfig", "NET_NetConfigOldToNew fail.\\n")}},
        {"printf \"config version 'net_version'\\n\\toption single 'x'\\n\" >>/etc/config/network",
         back_3, -1, {plain("NET_IsNetConfigBack", "network version eror.\\n")}},
        {"true", back_null, -2, {param("NET_IsNetConfigBack", "pbCfgBack:(nil) \\n")}},
        {"rm /etc/config/tcpip", old_eth, -1,
         {load, load, plain("NET_GetOldTcpipCfg", "file: tcpip.\\n"),
          plain("NET_GetOldEthCfg", "NET_GetOldTcpipCfg fail.\\n")}},
        {"sed -i '/portmapping/,$d' /etc/config/port", old_port, -1,
         {plain("NET_GetSection", "portmapping.\\n"), plain("NET_GetOldPortCfg", "section: portmapping.\\n")}},
        {"true", back_to_old_null, -2, {plain("NET_NetBackToOldEthCfg", "pstEtherCfg: (nil).\\n")}},
        {"true", defcard_null, -2, {param("NET_SetDefNetCard", "pcNetDefCard:(nil) \\n")}},
        // clang-format on
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.edit);
        install_old_device();
        sandbox::must(r.edit);
        sandbox::LogCapture log;
        EXPECT_EQ(r.result, r.call());
        EXPECT_EQ(r.lines, log.texts());
    }
}
