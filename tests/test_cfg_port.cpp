// Service ports and port mapping on the real "network" file.
#include <string.h>

#include <string>

#include "libnetwork.h"
#include "sandbox.h"
#include "test_cfg_common.h"

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

TEST(CfgPort, ReadsBothSections)
{
    REQUIRE_SANDBOX();
    install();
    FdCheck fds;
    LogCapture log;
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
    EXPECT_TRUE(log.texts().empty());
    EXPECT_EQ(0, NET_GetPortMappingCfg(80, &cfg)); // a placeholder
}

TEST(CfgPort, AbsentOptionsKeepTheCallersValuesExceptTheDefaults)
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

TEST(CfgPort, MissingSectionsAndPackage)
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

TEST(CfgPort, SetWritesHttpRtspAndTheMappingOnly)
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
        LogCapture log;
        ASSERT_EQ(0, NET_SetPortCfg(cfg));
        EXPECT_TRUE(log.texts().empty());
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
