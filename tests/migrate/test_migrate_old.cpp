// Readers and writers of the old layout on real package files, beyond what the round trip of
// the roll-back suite shows: the words with no number, packages created where missing, and
// the readers' failures.
#include <string>

#include "libnetwork.h"
#include "sandbox.h"
#include "migrate_support.h"

using namespace migtest;
using sandbox::FdCheck;
using sandbox::LogCapture;

TEST(MigOld, WritersCreateTheirPackagesAndKeepWhatHasNoWord)
{
    REQUIRE_SANDBOX();
    NetEtherCfg e;
    memset(&e, 0, sizeof e);
    e.iIpv4Mode = 1, e.iIpv6Mode = 2, e.iMtu = 1300;
    strcpy(e.szDns2, "10.0.0.54"); // the first server empty: the second stays second
    NetDdnsCfg d;
    memset(&d, 0, sizeof d);
    d.iType = 9; // no provider name: written as the first one
    memset(d.szDdnsDomain, 'd', sizeof d.szDdnsDomain); // unterminated
    NetPppoeCfg p = {1, "lan1", "user", "pass"};
    FdCheck fds;
    ASSERT_EQ(0, NET_SetOldTcpipCfg(&e) + NET_SetOldDdnsCfg(&d) + NET_SetOldPppoeCfg(&p));
    EXPECT_EQ("card=0 v4=1 mtu=1300 / gw  v6=2 /0 gw  dns  10.0.0.54",
              read_line(NET_GetOldTcpipCfg));
    EXPECT_EQ("on=0 type=0 server= domain=" + std::string(63, 'd') + " port=0 user= pw=",
              read_line(NET_GetOldDdnsCfg));
    EXPECT_EQ("\nconfig pppoe 'pppoe'\n\toption enable 'true'\n\toption interface 'lan1'\n"
              "\toption username 'user'\n\toption password 'pass'\n"
              "\toption passwordconfirm 'pass'\n\n",
              read_pkg("pppoe"));
    // Words the readers do not know leave the fields as the caller had them.
    write_pkg("tcpip", "config tcpip 'tcpip'\n\toption ipv4dhcpmode 'yes'\n");
    write_pkg("ddns", "config ddns 'ddns'\n\toption enable '1'\n\toption type 'Other'\n");
    NetEtherCfg e2 = e;
    NetDdnsCfg d2 = d;
    EXPECT_EQ(0, NET_GetOldTcpipCfg(&e2) + NET_GetOldDdnsCfg(&d2));
    EXPECT_EQ(e.iIpv4Mode, e2.iIpv4Mode);
    EXPECT_EQ(text(d), text(d2));
}

TEST(MigOld, ReaderFailures)
{
    REQUIRE_SANDBOX();
    const std::string load = plain("NET_CreatePackage", "Load uci failed \\n");
    struct {
        const char *edit;
        std::string (*read)();
        Lines lines;
    } rows[] = {
        // clang-format off
        {"rm /etc/config/tcpip", [] { return read_line(NET_GetOldEthCfg); },
         {load, load, plain("NET_GetOldTcpipCfg", "file: tcpip.\\n"),
          plain("NET_GetOldEthCfg", "NET_GetOldTcpipCfg fail.\\n")}},
        {"sed -i '/portmapping/,$d' /etc/config/port", [] { return read_line(NET_GetOldPortCfg); },
         cfgtest::no_section("NET_GetOldPortCfg", "portmapping")},
        {"true", [] { return std::to_string(NET_GetOldPppoeCfg(nullptr)); },
         {param("NET_GetOldPppoeCfg", "pstPppoeCfg: (nil).\\n")}},
        // clang-format on
    };
    for (const auto &r : rows) {
        install_old_device();
        sandbox::must(r.edit);
        FdCheck fds;
        LogCapture log;
        EXPECT_EQ("-1", r.read()) << r.edit;
        EXPECT_EQ(r.lines, log.texts()) << r.edit;
    }
}
