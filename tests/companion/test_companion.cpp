// The host stand-ins of the companion libraries: capability answers from the environment,
// log targets, and reboot requests that are recorded, never carried out.
#include <stdlib.h>
#include <string.h>

#include <string>

#include "companion.h"
#include "sandbox.h"

TEST(Companion, CapabilitiesFollowTheEnvironment)
{
    struct Case {
        const char *env; // null: unset
        int num, dbl;
        const char *first, *second;
    } cases[] = {
        {nullptr, 1, 0, "eth0", nullptr},
        {"", 1, 0, "eth0", nullptr},
        {"lan1,lan2", 2, 1, "lan1", "lan2"},
        {" lan1 , lan2 ", 2, 1, "lan1", "lan2"},
        {"lan2", 1, 0, "lan2", nullptr},
        {"abcdefghijklmnopqrstu", 1, 0, "abcdefghijklmno", nullptr}, // cut to 15
        {"a,b,c", 3, 1, "a", "b"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.env ? c.env : "(unset)");
        if (c.env)
            setenv("NETLIB_CAP_IFNAMES", c.env, 1);
        else
            unsetenv("NETLIB_CAP_IFNAMES");
        EXPECT_EQ(c.num, CAP_GetNetIntfNum());
        EXPECT_EQ(c.dbl, CAP_IsDoubleIntfSupport());
        char name[16] = {0};
        ASSERT_EQ(0, CAP_GetNetIntfName(0, sizeof name, name));
        EXPECT_STREQ(c.first, name);
        if (c.second) {
            ASSERT_EQ(0, CAP_GetNetIntfName(1, sizeof name, name));
            EXPECT_STREQ(c.second, name);
        } else {
            EXPECT_NE(0, CAP_GetNetIntfName(1, sizeof name, name));
        }
    }
    char small[3];
    setenv("NETLIB_CAP_IFNAMES", "lan1", 1);
    ASSERT_EQ(0, CAP_GetNetIntfName(0, sizeof small, small));
    EXPECT_STREQ("la", small) << "bounded by the caller's length";
    EXPECT_NE(0, CAP_GetNetIntfName(-1, 16, small));
    EXPECT_NE(0, CAP_GetNetIntfName(0, 16, nullptr));
}

TEST(Companion, LogTargets)
{
    REQUIRE_SANDBOX(); // writes under /tmp, which is private there
    setenv("NETLIB_LOG", "file:/tmp/netlib.log", 1);
    setenv("NETLIB_LOG_LEVEL", "6", 1);
    LOG_Msg(32, 3, "[%s] error %d", LOG_EnumToStr(32), 7);
    LOG_Msg(32, 7, "debug is above the threshold");
    LOG_Msg(32, 6, "information");
    EXPECT_EQ("<3> [NETWORK] error 7\n<6> information\n", sandbox::read_file("/tmp/netlib.log"));
    {
        sandbox::LogCapture cap; // a sink takes every level, the file nothing
        LOG_Msg(32, 7, "to the sink");
        ASSERT_EQ(1u, cap.lines().size());
        EXPECT_EQ(7, cap.lines()[0].level);
        EXPECT_EQ("to the sink", cap.lines()[0].text);
    }
    setenv("NETLIB_LOG", "none", 1);
    LOG_Msg(32, 3, "dropped");
    EXPECT_EQ("<3> [NETWORK] error 7\n<6> information\n", sandbox::read_file("/tmp/netlib.log"));
    EXPECT_STREQ("UNKNOWN", LOG_EnumToStr(5));
}

TEST(Companion, RebootIsOnlyRecorded)
{
    REQUIRE_SANDBOX();
    setenv("NETLIB_REBOOT_FILE", "/tmp/reboots", 1);
    static int hooked = 0;
    COMP_SetRebootHook([] { ++hooked; });
    int before = COMP_GetRebootCount();
    EXPECT_EQ(0, SYS_Reboot());
    EXPECT_EQ(0, SYS_Reboot());
    COMP_SetRebootHook(nullptr);
    EXPECT_EQ(before + 2, COMP_GetRebootCount());
    EXPECT_EQ(2, hooked);
    EXPECT_EQ("reboot\nreboot\n", sandbox::read_file("/tmp/reboots"));
}

TEST(Companion, ThreadNaming)
{
    EXPECT_EQ(0, pthreadSetName("detecMAC"));
    char name[16] = {0};
    pthread_getname_np(pthread_self(), name, sizeof name);
    EXPECT_STREQ("detecMAC", name);
    EXPECT_EQ(-1, pthreadSetName(nullptr));
}
