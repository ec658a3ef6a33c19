// The default network card and the device summary on one- and two-interface devices, and the
// LLDP link callbacks with a real thread and the stand-in agent.
#include <errno.h>
#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <string>

#include "libnetwork.h"
#include "sandbox.h"
#include "migrate_support.h"

using namespace migtest;
using sandbox::FdCheck;
using sandbox::LogCapture;

TEST(MigDefCard, SetAndGet)
{
    REQUIRE_SANDBOX();
    const std::string name15 = "abcdefghijklmno",
                      card = "\nconfig netcard 'defnetcard'\n\toption defnetcard '";
    struct {
        const char *device, *name;
        unsigned int len;
        std::string stored, got; // stored: after the generated package; got: the buffer's head
    } rows[] = {
        // One port: nothing stored (an unchanged commit keeps the bytes), the buffer untouched.
        {kOnePort, "lan2", 16, "", ""},
        // A plain bounded copy: zero-padded up to uiLen, or cut there without a terminator.
        {kTwoPorts, "lan2", 16, card + "lan2'\n\n", "lan2" + std::string(12, '\0')},
        {kTwoPorts, name15.c_str(), 8, card + name15 + "'\n\n", "abcdefgh"},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(std::string(r.device) + " " + r.name);
        sandbox::set_device(r.device);
        const std::string base = generated(r.device);
        char buf[24];
        memset(buf, 'X', sizeof buf);
        FdCheck fds;
        EXPECT_EQ(0, NET_SetDefNetCard(r.name));
        EXPECT_EQ(base + r.stored, read_pkg("network"));
        EXPECT_EQ(0, NET_GetDefNetCard(r.len, buf));
        EXPECT_EQ(r.got + std::string(sizeof buf - r.got.size(), 'X'),
                  std::string(buf, sizeof buf));
    }
    // Refusals; and the one-port commit does happen: a read-only directory fails it.
    generated(kTwoPorts);
    char buf[16] = "keep";
    LogCapture log;
    EXPECT_EQ(-2, NET_SetDefNetCard(nullptr));
    EXPECT_EQ(-2, NET_GetDefNetCard(16, nullptr));
    EXPECT_EQ(-1, NET_GetDefNetCard(sizeof buf, buf)); // no section
    EXPECT_STREQ("keep", buf);
    sandbox::set_device(kOnePort);
    {
        cfgtest::ReadOnlyConfig readOnly;
        EXPECT_EQ(-1, NET_SetDefNetCard("lan1"));
    }
    sandbox::must("rm /etc/config/network");
    EXPECT_EQ(-1, NET_SetDefNetCard("lan1"));
    const std::string load = plain("NET_CreatePackage", "Load uci failed \\n");
    EXPECT_EQ((Lines{param("NET_SetDefNetCard", "pcNetDefCard:(nil) \\n"),
                     param("NET_GetDefNetCard", "pcNetDefCard:(nil)\\n"), missing("defnetcard"),
                     plain("NET_GetDefNetCard", "section: defnetcard.\\n")} +
               cfgtest::commit_failed("NET_SetDefNetCard") +
               Lines{load, load, plain("NET_SetDefNetCard", "file: network.\\n")}),
              log.texts());
}

TEST(MigDefCard, DeviceSummary)
{
    REQUIRE_SANDBOX();
    for (const char *port : {"eth0", "lan1", "lan2"})
        sandbox::veth(port, std::string("p") + port);
    const std::string lan2 =
        "card=0 v4=0 mtu=1500 192.168.2.10/255.255.255.0 gw  v6=2 /0 gw  dns 192.168.2.1 ";
    NetEtherCfg zero;
    memset(&zero, 0, sizeof zero);
    struct {
        const char *device, *edit;
        int result, count;
        std::string second;
        Lines lines;
    } rows[] = {
        // clang-format off
        {kOnePort, "true", 0, 1, text(zero), {}},
        {kTwoPorts, "true", 0, 2, lan2, {}},
        // The count is written before a read fails.
        {kTwoPorts, "sed -i '/lan2/,$d' /etc/config/network", -1, 2, text(zero),
         {missing("lan2"), plain("NET_GetEtherCfg", "section: lan2.\\n"),
          plain("drv_net_GetIpcConfig", "NET_GetEtherCfg fail:lan2.\\n")}},
        // clang-format on
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.edit);
        sandbox::set_device(r.device);
        generated(r.device);
        sandbox::must(r.edit);
        NetIpcConfig cfg;
        memset(&cfg, 0, sizeof cfg);
        FdCheck fds;
        LogCapture log;
        EXPECT_EQ(r.result, drv_net_GetIpcConfig(&cfg));
        EXPECT_EQ(r.count, cfg.iPortNum);
        EXPECT_EQ(kLan1Default, text(cfg.astEtherCfg[0]));
        EXPECT_EQ(r.second, text(cfg.astEtherCfg[1]));
        EXPECT_EQ(r.lines, log.texts());
    }
    EXPECT_EQ(-1, drv_net_GetIpcConfig(nullptr));
}

static void *agent(void *)
{
    for (;;)
        pause();
    return nullptr;
}

TEST(MigDefCard, LldpCallbacks)
{
    REQUIRE_SANDBOX();
    EXPECT_EQ(0xFFFFFFFFul, g_ulNetLldpThrd);
    EXPECT_EQ(0, Net_LldpLinkUpCB());
    pthread_t thread;
    ASSERT_EQ(0, pthread_create(&thread, nullptr, agent, nullptr));
    // Not registered: the handle is forgotten, the thread left alone, the agent stopped.
    g_ulNetLldpThrd = static_cast<unsigned long>(thread);
    EXPECT_EQ(0, Net_LldpLinkDownCB());
    EXPECT_EQ(0xFFFFFFFFul, g_ulNetLldpThrd);
    EXPECT_EQ(EBUSY, pthread_tryjoin_np(thread, nullptr));
    // Registered: cancelled, once; the next link loss cancels nothing.
    Net_LldpSetThread(static_cast<unsigned long>(thread));
    EXPECT_EQ(0, Net_LldpLinkDownCB());
    void *res = nullptr;
    EXPECT_EQ(0, pthread_join(thread, &res));
    EXPECT_EQ(PTHREAD_CANCELED, res);
    EXPECT_EQ(0, Net_LldpLinkDownCB());
    EXPECT_EQ(0xFFFFFFFFul, g_ulNetLldpThrd);
    EXPECT_EQ("lldpd stop\nlldpd stop\nlldpd stop\n", script_log());
    // No descriptor for the pipe: the stop cannot start.
    struct rlimit old, none = {0, 0};
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &old));
    none.rlim_max = old.rlim_max;
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &none));
    const int rc = Net_LldpLinkDownCB();
    setrlimit(RLIMIT_NOFILE, &old);
    EXPECT_EQ(-1, rc);
}
