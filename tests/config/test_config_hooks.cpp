// The access layer's use of the backup hooks and of libuci's context allocation. This
// executable defines NET_RestoreCfgFile, NET_BackupCfgFile and uci_alloc_context itself;
// the library reaches them through the dynamic linker, so these take the place of the
// library's empty hooks, as a device build that keeps real backup copies would.
#include <dlfcn.h>

#include <functional>
#include <string>

#include <uci.h>

#include "libnetwork.h"
#include "sandbox.h"
#include "config_support.h"

using namespace cfgtest;
using sandbox::FdCheck;

namespace
{

std::function<int()> g_restore = [] { return 0; };
std::function<int()> g_backup = [] { return 0; };
int g_restoreCalls = 0;
int g_backupCalls = 0;
int g_allocCalls = 0;
int g_failAllocCall = 0; // the number of the allocation that fails; 0: none

const std::string kBroken = "config interface 'lan'\n\toption proto 'st";
const std::string kPppoe = "config pppoe 'pppoe'\n\toption username 'dsl-user'\n";

// Every test starts with hooks that behave like the library's own.
class CfgHooks : public ::testing::Test
{
  protected:
    void SetUp() override
    {
        g_restore = [] { return 0; };
        g_backup = [] { return 0; };
        g_restoreCalls = g_backupCalls = g_allocCalls = g_failAllocCall = 0;
    }
    void TearDown() override { SetUp(); }
};

} // namespace

extern "C" int NET_RestoreCfgFile(void)
{
    ++g_restoreCalls;
    return g_restore();
}

extern "C" int NET_BackupCfgFile(void)
{
    ++g_backupCalls;
    return g_backup();
}

extern "C" struct uci_context *uci_alloc_context(void)
{
    using Alloc = struct uci_context *(*)(void);
    static Alloc real = reinterpret_cast<Alloc>(dlsym(RTLD_NEXT, "uci_alloc_context"));
    return ++g_allocCalls == g_failAllocCall ? nullptr : real();
}

TEST_F(CfgHooks, ABrokenPackageRestoredFromBackupLoadsOnTheRetry)
{
    REQUIRE_SANDBOX();
    install(kBroken);
    g_restore = [] {
        install(kPppoe);
        return 0;
    };
    FdCheck fds;
    NetPppoeCfg cfg = {};
    EXPECT_EQ(0, NET_GetPppoeCfg(&cfg));
    EXPECT_STREQ("dsl-user", cfg.szUserName);
    EXPECT_EQ(1, g_restoreCalls);
}

TEST_F(CfgHooks, AFailedRestoreEndsTheLoad)
{
    REQUIRE_SANDBOX();
    install(kBroken);
    g_restore = [] { return -1; };
    FdCheck fds;
    EXPECT_EQ(nullptr, NET_CreatePackage("network"));
    EXPECT_EQ(1, g_restoreCalls);
    EXPECT_EQ(1, g_allocCalls); // no second attempt
}

TEST_F(CfgHooks, AFailedContextAllocationIsRetriedOnce)
{
    REQUIRE_SANDBOX();
    struct {
        const std::string *file; // null: no file
        int failingCall;
        bool loaded;
    } cases[] = {{&kPppoe, 1, true}, {nullptr, 1, false}, {&kBroken, 2, false}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.failingCall);
        sandbox::must("rm -f /etc/config/network");
        if (c.file != nullptr)
            install(*c.file);
        g_allocCalls = g_restoreCalls = 0;
        g_failAllocCall = c.failingCall;
        FdCheck fds;
        struct uci_package *pkg = NET_CreatePackage("network");
        EXPECT_EQ(c.loaded, pkg != nullptr);
        EXPECT_EQ(1, g_restoreCalls);
        if (pkg != nullptr)
            NET_FreePackage(pkg);
    }
}

TEST_F(CfgHooks, BackupFollowsEveryGoodCommitAndItsFailureIsIgnored)
{
    REQUIRE_SANDBOX();
    install(kPppoe);
    std::string seenByBackup;
    g_backup = [&] {
        seenByBackup = stored();
        return -1;
    };
    FdCheck fds;
    NetPppoeCfg cfg = {1, "eth0", "dsl-user", "new"};
    EXPECT_EQ(0, NET_SetPppoeCfg(cfg));
    EXPECT_EQ(1, g_backupCalls);
    // The hook sees the committed file, ready to be copied.
    EXPECT_EQ(uci_text({{"pppoe",
                         "pppoe",
                         {opt("username", "dsl-user"), opt("enable", "1"), opt("interface", "eth0"),
                          opt("password", "new")}}}),
              seenByBackup);
    EXPECT_EQ(seenByBackup, stored());
    ReadOnlyConfig readOnly;
    cfg.iEnable = 0;
    EXPECT_EQ(-1, NET_SetPppoeCfg(cfg));
    EXPECT_EQ(1, g_backupCalls); // none after a failed commit
}
