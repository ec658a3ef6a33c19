// DDNS and PPPoE records on the real "network" file.
#include <stddef.h>
#include <string.h>

#include <string>

#include "libnetwork.h"
#include "sandbox.h"
#include "test_cfg_common.h"

using namespace cfgtest;
using sandbox::FdCheck;
using sandbox::LogCapture;

TEST(CfgDdnsPppoe, ReadsBothRecords)
{
    REQUIRE_SANDBOX();
    install();
    FdCheck fds;
    LogCapture log;
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
    EXPECT_TRUE(log.texts().empty());
}

TEST(CfgDdnsPppoe, LongTextsAreCutAtTheFieldSize)
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

TEST(CfgDdnsPppoe, EmptySectionLeavesTheRecordAndMissingOnesFail)
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

TEST(CfgDdnsPppoe, SettersStoreEveryFieldAsGiven)
{
    REQUIRE_SANDBOX();
    install();
    FdCheck fds;
    LogCapture log;
    NetDdnsCfg ddns = {1, 7, "dyn.example.org", "door.example.org", 8245, "me", "pa'ss \"w\""};
    ASSERT_EQ(0, NET_SetDdnsCfg(&ddns));
    // A full field without a terminator is stored whole, and nothing past it.
    NetPppoeCfg pppoe = {0, "ppp0", "dsl-user", ""};
    memset(pppoe.szPassword, 'p', sizeof pppoe.szPassword);
    ASSERT_EQ(0, NET_SetPppoeCfg(pppoe));
    EXPECT_TRUE(log.texts().empty());
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
