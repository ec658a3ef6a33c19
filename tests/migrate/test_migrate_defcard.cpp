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

// Rows run in order on one device; each names what it shows.
TEST(MigDefCard, SetGetAndSummary)
{
    REQUIRE_SANDBOX();
    for (const char *port : {"eth0", "lan1", "lan2"})
        sandbox::veth(port, std::string("p") + port);
    char buf[24];
    NetIpcConfig cfg = {};
    const auto set = [](const char *device, const char *name) {
        sandbox::set_device(device);
        const std::string base = generated(device);
        sandbox::FdCheck fds;
        const int rc = NET_SetDefNetCard(name);
        const std::string after = read_pkg("network");
        return rc != 0                               ? "-1"
               : after.compare(0, base.size(), base) ? after
                                                     : after.substr(base.size());
    };
    const auto get = [&](unsigned int len) {
        memset(buf, 'X', sizeof buf);
        return NET_GetDefNetCard(len, buf) == 0 ? std::string(buf, sizeof buf) : "-1";
    };
    const auto summary = [&](NetIpcConfig *c) {
        const int rc = drv_net_GetIpcConfig(c);
        return std::to_string(rc) + " ports " + std::to_string(cfg.iPortNum);
    };
    const auto readOnlySet = [] {
        ReadOnlyConfig readOnly;
        return std::to_string(NET_SetDefNetCard("lan1"));
    };
    const std::string card = "\nconfig netcard 'defnetcard'\n\toption defnetcard '";
    const struct {
        const char *what;
        std::string got, want;
    } rows[] = {
        // clang-format off
        {"one port: nothing stored (an unchanged commit keeps the bytes)", set(kOnePort, "lan2"), ""},
        {"one port: buffer untouched", get(16), std::string(24, 'X')},
        {"one port: summary", summary(&cfg), "0 ports 1"},
        {"one port: first record", text(cfg.astEtherCfg[0]), kLan1Default},
        {"one port: no second", cfg.astEtherCfg[1].szIpv4Addr, ""},
        {"two ports: stored as given", set(kTwoPorts, "abcdefghijklmno"), card + "abcdefghijklmno'\n\n"},
        {"two ports: cut at uiLen without a terminator", get(8), "abcdefgh" + std::string(16, 'X')},
        {"two ports: summary", summary(&cfg), "0 ports 2"},
        {"two ports: second record", cfg.astEtherCfg[1].szIpv4Addr, "192.168.2.10"},
        {"the count is written before a read fails", (sandbox::must("sed -i '/lan2/,$d' /etc/config/network"), summary(&cfg)), "-1 ports 2"},
        {"null", std::to_string(drv_net_GetIpcConfig(nullptr)), "-1"},
        {"one port: the commit does happen", (sandbox::set_device(kOnePort), readOnlySet()), "-1"},
        {"no package", (sandbox::must("rm /etc/config/network"), std::to_string(NET_SetDefNetCard("lan1"))), "-1"},
        // clang-format on
    };
    for (const auto &r : rows)
        EXPECT_EQ(r.want, r.got) << r.what;
}

static void *agent(void *)
{
    for (;;)
        pause();
    return nullptr;
}

// Link loss stops the agent each time and cancels a registered thread once; a stored handle
// that was never registered is forgotten and its thread left alone.
TEST(MigDefCard, LldpCallbacks)
{
    REQUIRE_SANDBOX();
    pthread_t thread;
    ASSERT_EQ(0, pthread_create(&thread, nullptr, agent, nullptr));
    const auto handle = static_cast<unsigned long>(thread);
    struct rlimit old, none = {0, 0};
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &old));
    none.rlim_max = old.rlim_max;
    const auto down = [&](const struct rlimit &lim) {
        setrlimit(RLIMIT_NOFILE, &lim);
        const int rc = Net_LldpLinkDownCB();
        setrlimit(RLIMIT_NOFILE, &old);
        return rc;
    };
    void *res = nullptr;
    const struct {
        const char *what;
        long got, want;
    } rows[] = {
        // clang-format off
        {"no handle yet", static_cast<long>(g_ulNetLldpThrd == 0xFFFFFFFFul), 1},
        {"link up", Net_LldpLinkUpCB(), 0},
        {"stored, not registered", (g_ulNetLldpThrd = handle, down(old)), 0},
        {"its handle forgotten", static_cast<long>(g_ulNetLldpThrd == 0xFFFFFFFFul), 1},
        {"its thread left alone", pthread_tryjoin_np(thread, nullptr), EBUSY},
        {"registered", (Net_LldpSetThread(handle), down(old)), 0},
        {"its thread ended", pthread_join(thread, &res), 0},
        {"cancelled", static_cast<long>(res == PTHREAD_CANCELED), 1},
        {"the next loss cancels nothing", down(old), 0},
        {"no descriptor for the stop's pipe", down(none), -1},
        {"the agent stopped three times", static_cast<long>(script_log() == "lldpd stop\nlldpd stop\nlldpd stop\n"), 1},
        // clang-format on
    };
    for (const auto &r : rows)
        EXPECT_EQ(r.want, r.got) << r.what;
}
