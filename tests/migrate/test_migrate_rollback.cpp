// Roll-back to the old layout on real package files: when it is due, the old layout forward
// and back again, what "network" becomes, and the failures that leave it as it was.
#include <functional>
#include <string>

#include "libnetwork.h"
#include "sandbox.h"
#include "migrate_support.h"

using namespace migtest;
using sandbox::FdCheck;
using sandbox::LogCapture;

TEST(MigRollback, IsNetConfigBackTable)
{
    REQUIRE_SANDBOX();
    const std::string eror = plain("NET_IsNetConfigBack", "network version eror.\\n");
    const std::string load = plain("NET_CreatePackage", "Load uci failed \\n");
    struct {
        const char *marker; // option of the marker, "" for no marker, null for no package
        int version, result, flag;
        Lines lines;
    } rows[] = {
        // clang-format off
        {"single", 0, 0, 1, {}}, {"single", 1, 0, 0, {}}, {"single", 2, 0, 0, {}},
        {"double", 2, 0, 0, {}}, {"double", 0, -1, 0, {}}, {"double", 1, -1, 0, {}},
        {"", 1, 0, 0, {missing("net_version")}}, {"single", 3, -1, 7, {eror}}, {"single", -1, -1, 7, {eror}},
        {nullptr, 0, -1, 0, {load, load, tagged("NET_IsNetConfigBack", "PL_CREATE_PACKAGE_ERROR_PRINT",
                                                "file: network.\\n")}},
        // clang-format on
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(std::string(r.marker ? r.marker : "none") + " " + std::to_string(r.version));
        sandbox::must("rm -f /etc/config/network");
        const std::string marker = r.marker && *r.marker ? r.marker : "";
        if (r.marker != nullptr)
            write_pkg("network", "config ddns 'ddns'\n" +
                                     (marker.empty() ? ""
                                                     : "config version 'net_version'\n\toption " +
                                                           marker + " 'x'\n"));
        int flag = 7;
        FdCheck fds;
        LogCapture log;
        EXPECT_EQ(r.result, NET_IsNetConfigBack(r.version, &flag));
        EXPECT_EQ(r.flag, flag);
        EXPECT_EQ(r.lines, log.texts());
    }
    LogCapture log;
    EXPECT_EQ(-2, NET_IsNetConfigBack(0, nullptr));
    EXPECT_EQ(Lines{param("NET_IsNetConfigBack", "pbCfgBack:(nil) \\n")}, log.texts());
}

// Forward at one start, stamped at the next, then rolled back: the old readers give what they
// gave before, except what the current layout does not store (the automatic modes keep only
// the modes, card type and MTU). The package is then one the next start converts again.
TEST(MigRollback, OldLayoutForwardAndBack)
{
    REQUIRE_SANDBOX();
    const char *autoModes = "sed -i \"s/dhcpmode 'false'/dhcpmode 'true'/; "
                            "s/ipv6mode 'true'/ipv6mode '2'/\" /etc/config/tcpip";
    const std::string kept[][2] = {{"true", kOldRecords[0]},
                                   {autoModes, "card=3 v4=1 mtu=1400 / gw  v6=2 /0 gw  dns  "}};
    for (const auto &r : kept) {
        SCOPED_TRACE(r[0]);
        sandbox::reset_device();
        sandbox::veth("eth0", "p0");
        install_old_device();
        sandbox::must(r[0]);
        ASSERT_EQ(1, start_up().reboots);
        ASSERT_EQ(0, start_up().reboots);
        int due = 0;
        EXPECT_EQ(0, NET_IsNetConfigBack(0, &due));
        EXPECT_EQ(1, due);
        ASSERT_EQ(0, NET_NetConfigBackToOld());
        EXPECT_EQ((std::vector<std::string>{r[1], kOldRecords[1], kOldRecords[2], kOldRecords[3]}),
                  old_records());
        EXPECT_EQ("config uhttpd 'main'\n\tlist listen_https '0.0.0.0:8443'\n"
                  "\tlist listen_http '0.0.0.0:8080'\n\tlist listen_http '[::]:8080'\n",
                  cfgtest::block(read_pkg("uhttpd"), "main"));
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
    const char *readOnly = "mount --bind /etc/config /etc/config && "
                           "mount -o remount,bind,ro /etc/config";
    struct {
        const char *name, *device, *edit;
        std::string extra; // after the generated package
        std::function<int()> call;
        int result;
        Lines lines;
    } rows[] = {
        // clang-format off
        {"one port, route", kOnePort, "true", kSingleStamp + route, NET_NetConfigBackToOld, 0, {}},
        {"two ports, no route", kTwoPorts, "true", "", NET_NetConfigBackToOld, 0, {missing("eth0_E0000000")}},
        {"no portmapping", kOnePort, "sed -i '/portmapping/,$d' /etc/config/network", "", strip, -1,
         {missing("portmapping"), plain("NET_NetBackToOldEthCfg", "section: portmapping.\\n")}},
        {"no cardtype", kOnePort, "sed -i '/cardtype/d' /etc/config/network", "", strip, -1,
         {plain("NET_NetBackToOldEthCfg", "NET_DelOption: cardtype fail.\\n")}},
        {"null record", kOnePort, "true", "", [] { return NET_NetBackToOldEthCfg(nullptr); }, -2,
         {plain("NET_NetBackToOldEthCfg", "pstEtherCfg: (nil).\\n")}},
        {"commit refused", kOnePort, readOnly, "", NET_NetConfigBackToOld, -1,
         {missing("net_version"), missing("eth0_E0000000"), plain("NET_UciCommit", "commit failed\\n"),
          plain("NET_NetBackToOldEthCfg", "NET_UciCommit fail.\\n"),
          tagged("NET_NetConfigBackToOld", "PL_SET_OPTION_ERROR_PRINT", "file: network.\\n")}},
        // clang-format on
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.name);
        sandbox::reset_device();
        sandbox::set_device(r.device);
        NET_Init();
        sandbox::veth(g_pcLan1Name, "p0");
        generated(r.device, r.extra);
        sandbox::must(r.edit);
        const std::string before = read_pkg("network");
        FdCheck fds;
        LogCapture log;
        EXPECT_EQ(r.result, r.call());
        EXPECT_EQ(r.lines, log.texts());
        const std::string after = read_pkg("network");
        sandbox::sh("umount /etc/config 2>/dev/null");
        EXPECT_EQ(r.result == 0, sandbox::file_exists("/etc/config/tcpip"));
        if (r.result != 0) {
            EXPECT_EQ(before, after);
            continue;
        }
        // The port a bridge without its mode options; the new sections and the route gone.
        const std::string lan = cfgtest::block(after, r.device == kOnePort ? "lan" : "lan1");
        EXPECT_NE(std::string::npos,
                  lan.find("\tlist dns '192.168.1.1'\n\toption type 'bridge'\n"));
        for (const char *gone : {"cardtype", "dhcp '"})
            EXPECT_EQ(std::string::npos, lan.find(gone)) << gone;
        for (const char *gone :
             {"'ddns'", "'pppoe'", "'port'", "'portmapping'", "'net_version'", "eth0_E0000000"})
            EXPECT_EQ(std::string::npos, after.find(gone)) << gone;
    }
}
