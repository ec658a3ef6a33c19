// Service ports, port mapping, DDNS and PPPoE records on the real "network" file.
#include <stddef.h>
#include <string.h>

#include <string>
#include <vector>

#include "libnetwork.h"
#include "sandbox.h"
#include "config_support.h"

using namespace cfgtest;
using sandbox::FdCheck;

namespace
{

Section port(const char *http, const char *rtsp)
{
    return {"port",
            "port",
            {opt("httpport", http), opt("rtspport", rtsp), opt("httpsport", "443"),
             opt("prisrvport", "8001")}};
}

Section mapping(const std::string &mode, const std::string &alias, const Lines &ext)
{
    Section s{"portmapping", "portmapping", {opt("enable", "1"), opt("mode", mode)}};
    if (!alias.empty())
        s.lines.push_back(opt("alias", alias));
    s.lines.insert(s.lines.end(), ext.begin(), ext.end());
    s.lines.push_back(opt("extprisrvport", "9001"));
    return s;
}

Lines ext(const char *http, const char *rtsp, const char *https, const char *sdc)
{
    return {opt("exthttpport", http), opt("extrtspport", rtsp), opt("exthttpsport", https),
            opt("extsdcport", sdc)};
}

Section ddns(const Lines &lines)
{
    return {"ddns", "ddns", lines};
}

Section pppoe(const char *enable, const char *ifname, const std::string &password)
{
    return {"pppoe",
            "pppoe",
            {opt("enable", enable), opt("interface", ifname), opt("username", "dsl-user"),
             opt("password", password)}};
}

const Lines kDdns = {opt("enable", "0"),
                     opt("type", "2"),
                     opt("serverdomain", "members.example.net"),
                     opt("ddnsdomain", "cam.example.net"),
                     opt("port", "80"),
                     opt("username", "owner"),
                     opt("password", "it'\\''s \"x\"")};

std::vector<Section> package()
{
    return {port("80", "554"), mapping("1", "front door", ext("8080", "8554", "8443", "8000")),
            ddns(kDdns), pppoe("1", "eth0", "p#ss w;rd")};
}

std::string text(const NetPortCfg &c)
{
    char buf[256];
    snprintf(buf, sizeof buf, "%d %d %d %d %d %d map %d %d '%.64s' %d %d %d %d %d", c.usHttpPort,
             c.usRtspPort, c.usHttpsPort, c.usSdcPort, c.usSparePort, c.usPriSrvPort,
             c.iPortMapEnable, c.iPortMapMode, c.szAlias, c.usExtHttpPort, c.usExtRtspPort,
             c.usExtHttpsPort, c.usExtSdcPort, c.usExtPriSrvPort);
    return buf;
}

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
    install(package());
    FdCheck fds;
    NetPortCfg cfg = {};
    cfg.usSparePort = 0x7777; // never read
    ASSERT_EQ(0, NET_GetPortCfg(&cfg));
    EXPECT_EQ("80 554 443 8000 30583 8001 map 1 1 'front door' 8080 8554 8443 8000 9001",
              text(cfg));
}

TEST(CfgServices, AbsentOptionsKeepTheCallersValuesExceptTheDefaults)
{
    REQUIRE_SANDBOX();
    const std::string alias(70, 'a');
    install("config port 'port'\n\toption rtspport '70000'\n"
            "config portmapping 'portmapping'\n\toption alias '" +
            alias + "'\n");
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
    // Without the mapping section the call fails, the ports read so far filled in.
    install("config port 'port'\n\toption httpport 8081\n");
    EXPECT_EQ(-1, NET_GetPortCfg(&cfg));
    EXPECT_EQ(8081, cfg.usHttpPort);
}

TEST(CfgServices, SetWritesHttpRtspAndTheMappingOnly)
{
    REQUIRE_SANDBOX();
    struct {
        int mode;
        const char *alias;
        Lines extPorts; // as stored
    } cases[] = {
        // Mode 0 stores the standard external ports whatever the record says.
        {0, "gate", ext("80", "554", "443", "8000")},
        {2, "", ext("8081", "8555", "8444", "8001")},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.mode);
        install(package());
        NetPortCfg cfg = {81, 555, 444, 8002, 1, 9002, 1, c.mode, "", 8081, 8555, 8444, 8001, 9003};
        strcpy(cfg.szAlias, c.alias);
        FdCheck fds;
        ASSERT_EQ(0, NET_SetPortCfg(cfg));
        // "httpsport", "prisrvport" and "extprisrvport" stay as they were; an empty alias
        // goes away, as an empty value does in UCI.
        std::vector<Section> expect = package();
        expect[0] = port("81", "555");
        expect[1] = mapping(std::to_string(c.mode), c.alias, c.extPorts);
        EXPECT_EQ(uci_text(expect), stored());
    }
}

TEST(CfgServices, ReadsDdnsAndPppoe)
{
    REQUIRE_SANDBOX();
    install(package());
    FdCheck fds;
    NetDdnsCfg d = {};
    ASSERT_EQ(0, NET_GetDdnsCfg(&d));
    EXPECT_EQ(
        (std::vector<std::string>{"0 2 80", "members.example.net", "cam.example.net", "owner",
                                  "it's \"x\""}),
        (std::vector<std::string>{std::to_string(d.iEnable) + " " + std::to_string(d.iType) + " " +
                                      std::to_string(d.usPort),
                                  d.szServerDomain, d.szDdnsDomain, d.szUserName, d.szPassword}));
    NetPppoeCfg p = {};
    ASSERT_EQ(0, NET_GetPppoeCfg(&p));
    EXPECT_EQ(1, p.iEnable);
    EXPECT_EQ((std::vector<std::string>{"eth0", "dsl-user", "p#ss w;rd"}),
              (std::vector<std::string>{p.szInterface, p.szUserName, p.szPassword}));
}

TEST(CfgServices, LongTextsAreCutAtTheFieldSizeAndAbsentOnesKept)
{
    REQUIRE_SANDBOX();
    const std::string user(40, 'u'), pass(20, 'p'), ifname(20, 'i');
    install("config ddns ddns\n\toption username '" + user + "'\n\toption password '" + pass +
            "'\nconfig pppoe pppoe\n\toption interface '" + ifname + "'\n");
    NetDdnsCfg ddns = {};
    NetPppoeCfg pppoe = {};
    ASSERT_EQ(0, NET_GetDdnsCfg(&ddns));
    ASSERT_EQ(0, NET_GetPppoeCfg(&pppoe));
    EXPECT_EQ(user.substr(0, 32), ddns.szUserName);
    EXPECT_EQ(pass.substr(0, 16), ddns.szPassword);
    EXPECT_EQ(ifname.substr(0, 15), pppoe.szInterface);
    // An empty section leaves the record as it was.
    install("config ddns 'ddns'\n");
    NetDdnsCfg before;
    memset(&ddns, 0x5a, sizeof ddns);
    memcpy(&before, &ddns, sizeof ddns);
    EXPECT_EQ(0, NET_GetDdnsCfg(&ddns));
    EXPECT_EQ(0, memcmp(&before, &ddns, sizeof ddns));
}

TEST(CfgServices, SettersStoreEveryFieldAsGiven)
{
    REQUIRE_SANDBOX();
    install(package());
    FdCheck fds;
    NetDdnsCfg d = {1, 7, "dyn.example.org", "door.example.org", 8245, "me", "pa'ss \"w\""};
    ASSERT_EQ(0, NET_SetDdnsCfg(&d));
    // A full field without a terminator is stored whole, and nothing past it.
    NetPppoeCfg p = {0, "ppp0", "dsl-user", ""};
    memset(p.szPassword, 'p', sizeof p.szPassword);
    ASSERT_EQ(0, NET_SetPppoeCfg(p));
    std::vector<Section> expect = package();
    expect[2] = ddns({opt("enable", "1"), opt("type", "7"), opt("serverdomain", "dyn.example.org"),
                      opt("ddnsdomain", "door.example.org"), opt("port", "8245"),
                      opt("username", "me"), opt("password", "pa'\\''ss \"w\"")});
    expect[3] = pppoe("0", "ppp0", std::string(17, 'p'));
    EXPECT_EQ(uci_text(expect), stored());
    NetDdnsCfg back = {};
    ASSERT_EQ(0, NET_GetDdnsCfg(&back));
    // The record comes back as stored (the tail padding aside).
    EXPECT_EQ(0, memcmp(&d, &back, offsetof(NetDdnsCfg, szPassword) + sizeof back.szPassword));
}
