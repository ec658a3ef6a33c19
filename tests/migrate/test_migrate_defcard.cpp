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

TEST(MigDefCard, SetGetAndSummary)
{
    REQUIRE_SANDBOX();
    for (const char *port : {"eth0", "lan1", "lan2"})
        sandbox::veth(port, std::string("p") + port);
    const std::string card = "\nconfig netcard 'defnetcard'\n\toption defnetcard '";
    const struct {
        const char *device, *name;
        unsigned int len;
        std::string stored, got; // stored: after the generated package; got: the buffer's head
        int count;               // ports in the summary
    } rows[] = {
        // One port: nothing stored (an unchanged commit keeps the bytes), the buffer untouched.
        {kOnePort, "lan2", 16, "", "", 1},
        // A plain bounded copy: zero-padded up to uiLen, or cut there without a terminator.
        {kTwoPorts, "abcdefghijklmno", 8, card + "abcdefghijklmno'\n\n", "abcdefgh", 2},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.device);
        sandbox::set_device(r.device);
        const std::string base = generated(r.device);
        char buf[24];
        memset(buf, 'X', sizeof buf);
        sandbox::FdCheck fds;
        EXPECT_EQ(0, NET_SetDefNetCard(r.name));
        EXPECT_EQ(base + r.stored, read_pkg("network"));
        EXPECT_EQ(0, NET_GetDefNetCard(r.len, buf));
        EXPECT_EQ(r.got + std::string(sizeof buf - r.got.size(), 'X'),
                  std::string(buf, sizeof buf));
        NetIpcConfig cfg;
        memset(&cfg, 0, sizeof cfg);
        EXPECT_EQ(0, drv_net_GetIpcConfig(&cfg));
        EXPECT_EQ(r.count, cfg.iPortNum);
        EXPECT_EQ(kLan1Default, text(cfg.astEtherCfg[0]));
        EXPECT_STREQ(r.count == 2 ? "192.168.2.10" : "", cfg.astEtherCfg[1].szIpv4Addr);
    }
    // The count is written before a read fails.
    sandbox::must("sed -i '/lan2/,$d' /etc/config/network");
    NetIpcConfig cfg;
    memset(&cfg, 0, sizeof cfg);
    EXPECT_EQ(-1, drv_net_GetIpcConfig(&cfg));
    EXPECT_EQ(2, cfg.iPortNum);
    EXPECT_EQ(-1, drv_net_GetIpcConfig(nullptr));
    // The one-port commit does happen: a read-only directory fails it.
    sandbox::set_device(kOnePort);
    {
        ReadOnlyConfig readOnly;
        EXPECT_EQ(-1, NET_SetDefNetCard("lan1"));
    }
    sandbox::must("rm /etc/config/network");
    EXPECT_EQ(-1, NET_SetDefNetCard("lan1"));
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
