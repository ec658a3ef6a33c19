// Service ports, port mapping, DDNS and PPPoE records on the real "network" file.
#include <stddef.h>
#include <string.h>

#include <string>

#include "libnetwork.h"
#include "sandbox.h"
#include "config_support.h"

using namespace cfgtest;
using sandbox::FdCheck;
using sandbox::LogCapture;

namespace
{

NetPortCfg filled_with(unsigned char byte)
{
    NetPortCfg cfg;
    memset(&cfg, byte, sizeof cfg);
    return cfg;
}

} // namespace

TEST(CfgServices, ReadsBothSections)
{
    REQUIRE_SANDBOX();
    install();
    FdCheck fds;
    NetPortCfg cfg = {};
    cfg.usSparePort = 0x7777;
    ASSERT_EQ(0, NET_GetPortCfg(&cfg));
    EXPECT_EQ(80, cfg.usHttpPort);
    EXPECT_EQ(554, cfg.usRtspPort);
    EXPECT_EQ(443, cfg.usHttpsPort);
    EXPECT_EQ(8000, cfg.usSdcPort);
    EXPECT_EQ(0x7777, cfg.usSparePort); // never read
    EXPECT_EQ(8001, cfg.usPriSrvPort);
    EXPECT_EQ(1, cfg.iPortMapEnable);
    EXPECT_EQ(1, cfg.iPortMapMode);
    EXPECT_STREQ("front door", cfg.szAlias);
    EXPECT_EQ(8080, cfg.usExtHttpPort);
    EXPECT_EQ(8554, cfg.usExtRtspPort);
    EXPECT_EQ(8443, cfg.usExtHttpsPort);
    EXPECT_EQ(8000, cfg.usExtSdcPort);
    EXPECT_EQ(9001, cfg.usExtPriSrvPort);
    EXPECT_EQ(0, NET_GetPortMappingCfg(80, &cfg)); // a placeholder
}

TEST(CfgServices, AbsentOptionsKeepTheCallersValuesExceptTheDefaults)
{
    REQUIRE_SANDBOX();
    const std::string alias(70, 'a');
    install("config port 'port'\n\toption rtspport '70000'\n"
            "config portmapping 'portmapping'\n\toption alias '" +
            alias + "'\n");
    LogCapture log;
    NetPortCfg cfg = filled_with(0x11);
    cfg.szAlias[64] = '\0'; // zeroed by the caller, as callers do
    ASSERT_EQ(0, NET_GetPortCfg(&cfg));
    NetPortCfg expect = filled_with(0x11);
    expect.usRtspPort = 70000 & 0xFFFF; // the low 16 bits
    expect.usSdcPort = 8000;
    expect.usPriSrvPort = 9000;
    expect.usExtPriSrvPort = 9000;
    memcpy(expect.szAlias, alias.c_str(), 64);
    expect.szAlias[64] = '\0';
    EXPECT_EQ(0, memcmp(&expect, &cfg, sizeof cfg));
    EXPECT_EQ(Lines{plain("NET_GetOption", "Input buffer is not enough.\\n")}, log.texts());
}

TEST(CfgServices, MissingSectionsAndPackage)
{
    REQUIRE_SANDBOX();
    LogCapture log;
    NetPortCfg cfg = {};
    install("config port 'port'\n\toption httpport 8081\n");
    EXPECT_EQ(-1, NET_GetPortCfg(&cfg));
    EXPECT_EQ(8081, cfg.usHttpPort); // filled before the failure
    EXPECT_EQ(-1, NET_SetPortCfg(cfg));
    EXPECT_EQ("config port 'port'\n\toption httpport 8081\n", stored()); // nothing committed
    install("config portmapping 'portmapping'\n");
    EXPECT_EQ(-1, NET_SetPortCfg(cfg));
    sandbox::must("rm /etc/config/network");
    EXPECT_EQ(-1, NET_GetPortCfg(&cfg));
    EXPECT_EQ(-1, NET_GetPortCfg(nullptr));
    Lines expect;
    for (const Lines &part :
         {no_section("NET_GetPortCfg", "portmapping"), no_section("NET_SetPortCfg", "portmapping"),
          no_section("NET_SetPortCfg", "port"), no_package("NET_GetPortCfg"),
          Lines{param("NET_GetPortCfg", "pstPortCfg: " + ptr_text(nullptr) + ".\\n")}})
        expect.insert(expect.end(), part.begin(), part.end());
    EXPECT_EQ(expect, log.texts());
}

TEST(CfgServices, SetWritesHttpRtspAndTheMappingOnly)
{
    REQUIRE_SANDBOX();
    struct {
        int mode;
        const char *alias;
        const char *extPorts; // as stored
    } cases[] = {
        // Mode 0 stores the standard external ports whatever the record says.
        {0, "gate",
         "\toption exthttpport '80'\n\toption extrtspport '554'\n"
         "\toption exthttpsport '443'\n\toption extsdcport '8000'\n"},
        {2, "",
         "\toption exthttpport '8081'\n\toption extrtspport '8555'\n"
         "\toption exthttpsport '8444'\n\toption extsdcport '8001'\n"},
    };
    for (const auto &c : cases) {
        install();
        NetPortCfg cfg = {81, 555, 444, 8002, 1, 9002, 1, c.mode, "", 8081, 8555, 8444, 8001, 9003};
        strcpy(cfg.szAlias, c.alias);
        FdCheck fds;
        ASSERT_EQ(0, NET_SetPortCfg(cfg));
        // "httpsport", "prisrvport" and "extprisrvport" stay as they were; an empty alias
        // goes away, as an empty value does in UCI.
        std::string mapping = "config portmapping 'portmapping'\n\toption enable '1'\n"
                              "\toption mode '" +
                              std::to_string(c.mode) + "'\n" +
                              (*c.alias ? "\toption alias '" + std::string(c.alias) + "'\n" : "") +
                              c.extPorts + "\toption extprisrvport '9001'\n";
        EXPECT_EQ(with_block(with_block(kCommitted, "port",
                                        "config port 'port'\n\toption httpport '81'\n"
                                        "\toption rtspport '555'\n\toption httpsport '443'\n"
                                        "\toption prisrvport '8001'\n"),
                             "portmapping", mapping),
                  stored())
            << c.mode;
    }
}

TEST(CfgServices, ReadsBothRecords)
{
    REQUIRE_SANDBOX();
    install();
    FdCheck fds;
    NetDdnsCfg ddns = {};
    ASSERT_EQ(0, NET_GetDdnsCfg(&ddns));
    EXPECT_EQ(0, ddns.iEnable);
    EXPECT_EQ(2, ddns.iType);
    EXPECT_STREQ("members.example.net", ddns.szServerDomain);
    EXPECT_STREQ("cam.example.net", ddns.szDdnsDomain);
    EXPECT_EQ(80, ddns.usPort);
    EXPECT_STREQ("owner", ddns.szUserName);
    EXPECT_STREQ("it's \"x\"", ddns.szPassword);
    NetPppoeCfg pppoe = {};
    ASSERT_EQ(0, NET_GetPppoeCfg(&pppoe));
    EXPECT_EQ(1, pppoe.iEnable);
    EXPECT_STREQ("eth0", pppoe.szInterface);
    EXPECT_STREQ("dsl-user", pppoe.szUserName);
    EXPECT_STREQ("p#ss w;rd", pppoe.szPassword);
}

TEST(CfgServices, LongTextsAreCutAtTheFieldSize)
{
    REQUIRE_SANDBOX();
    const std::string user(40, 'u'), pass(20, 'p'), ifname(20, 'i');
    install("config ddns ddns\n\toption username '" + user + "'\n\toption password '" + pass +
            "'\nconfig pppoe pppoe\n\toption interface '" + ifname + "'\n");
    LogCapture log;
    NetDdnsCfg ddns = {};
    NetPppoeCfg pppoe = {};
    ASSERT_EQ(0, NET_GetDdnsCfg(&ddns));
    ASSERT_EQ(0, NET_GetPppoeCfg(&pppoe));
    EXPECT_EQ(user.substr(0, 32), ddns.szUserName);
    EXPECT_EQ(pass.substr(0, 16), ddns.szPassword);
    EXPECT_EQ(ifname.substr(0, 15), pppoe.szInterface);
    const std::string cut = plain("NET_GetOption", "Input buffer is not enough.\\n");
    EXPECT_EQ((Lines{cut, cut, cut}), log.texts());
}

TEST(CfgServices, EmptySectionLeavesTheRecordAndMissingOnesFail)
{
    REQUIRE_SANDBOX();
    install("config ddns 'ddns'\n");
    LogCapture log;
    NetDdnsCfg ddns, before;
    memset(&ddns, 0x5a, sizeof ddns);
    memcpy(&before, &ddns, sizeof ddns);
    EXPECT_EQ(0, NET_GetDdnsCfg(&ddns));
    EXPECT_EQ(0, memcmp(&before, &ddns, sizeof ddns));
    NetPppoeCfg pppoe = {};
    EXPECT_EQ(-1, NET_GetPppoeCfg(&pppoe));
    EXPECT_EQ(-1, NET_SetPppoeCfg(pppoe));
    EXPECT_EQ(-1, NET_GetDdnsCfg(nullptr));
    EXPECT_EQ(-1, NET_SetDdnsCfg(nullptr));
    EXPECT_EQ(-1, NET_GetPppoeCfg(nullptr));
    sandbox::must("rm /etc/config/network");
    EXPECT_EQ(-1, NET_SetDdnsCfg(&ddns));
    const std::string N = ptr_text(nullptr);
    Lines expect;
    for (const Lines &part :
         {no_section("NET_GetPppoeCfg", "pppoe"), no_section("NET_SetPppoeCfg", "pppoe"),
          Lines{param("NET_GetDdnsCfg", "pstDdnsCfg: " + N + ".\\n"),
                // the PPPoE parameter's name, deliberately
                param("NET_SetDdnsCfg", "pstPppoeCfg: " + N + ".\\n"),
                param("NET_GetPppoeCfg", "pstPppoeCfg: " + N + ".\\n")},
          no_package("NET_SetDdnsCfg")})
        expect.insert(expect.end(), part.begin(), part.end());
    EXPECT_EQ(expect, log.texts());
}

TEST(CfgServices, SettersStoreEveryFieldAsGiven)
{
    REQUIRE_SANDBOX();
    install();
    FdCheck fds;
    NetDdnsCfg ddns = {1, 7, "dyn.example.org", "door.example.org", 8245, "me", "pa'ss \"w\""};
    ASSERT_EQ(0, NET_SetDdnsCfg(&ddns));
    // A full field without a terminator is stored whole, and nothing past it.
    NetPppoeCfg pppoe = {0, "ppp0", "dsl-user", ""};
    memset(pppoe.szPassword, 'p', sizeof pppoe.szPassword);
    ASSERT_EQ(0, NET_SetPppoeCfg(pppoe));
    std::string expect = with_block(kCommitted, "ddns",
                                    "config ddns 'ddns'\n\toption enable '1'\n\toption type '7'\n"
                                    "\toption serverdomain 'dyn.example.org'\n"
                                    "\toption ddnsdomain 'door.example.org'\n"
                                    "\toption port '8245'\n\toption username 'me'\n"
                                    "\toption password 'pa'\\''ss \"w\"'\n");
    expect = with_block(expect, "pppoe",
                        "config pppoe 'pppoe'\n\toption enable '0'\n\toption interface 'ppp0'\n"
                        "\toption username 'dsl-user'\n\toption password '" +
                            std::string(17, 'p') + "'\n");
    EXPECT_EQ(expect, stored());
    NetDdnsCfg back = {};
    ASSERT_EQ(0, NET_GetDdnsCfg(&back));
    // The record comes back as stored (the tail padding aside).
    EXPECT_EQ(0, memcmp(&ddns, &back, offsetof(NetDdnsCfg, szPassword) + sizeof back.szPassword));
}
