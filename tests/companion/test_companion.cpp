// The host stand-ins of the companion libraries: capability answers from the environment,
// log targets, and reboot requests that are recorded, never carried out.
#include <stdlib.h>
#include <string.h>

#include <string>

#include "companion.h"
#include "sandbox.h"

TEST(Companion, CapabilitiesFollowTheEnvironment)
{
    const struct {
        const char *env; // null: unset
        int num, dbl;
        const char *first, *second;
    } cases[] = {
        {nullptr, 1, 0, "eth0", nullptr}, // a one-interface device
        {" lan1 , lan2 ", 2, 1, "lan1", "lan2"},
        {"abcdefghijklmnopqrstu", 1, 0, "abcdefghijklmno", nullptr}, // cut to 15
        {"a,b,c", 3, 1, "a", "b"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.env ? c.env : "(unset)");
        c.env ? setenv("NETLIB_CAP_IFNAMES", c.env, 1) : unsetenv("NETLIB_CAP_IFNAMES");
        EXPECT_EQ(c.num, CAP_GetNetIntfNum());
        EXPECT_EQ(c.dbl, CAP_IsDoubleIntfSupport());
        char name[16] = {0};
        ASSERT_EQ(0, CAP_GetNetIntfName(0, sizeof name, name));
        EXPECT_STREQ(c.first, name);
        EXPECT_EQ(c.second == nullptr, CAP_GetNetIntfName(1, sizeof name, name) != 0);
        EXPECT_STREQ(c.second ? c.second : c.first, name);
    }
    char small[3];
    ASSERT_EQ(0, CAP_GetNetIntfName(0, sizeof small, small));
    EXPECT_STREQ("a", small) << "bounded by the caller's length";
}

TEST(Companion, LogTargetsAndRecordedReboots)
{
    REQUIRE_SANDBOX(); // writes under /tmp, which is private there
    setenv("NETLIB_LOG", "file:/tmp/netlib.log", 1);
    setenv("NETLIB_LOG_LEVEL", "6", 1);
    LOG_Msg(32, 3, "[%s] error %d", LOG_EnumToStr(32), 7);
    LOG_Msg(32, 7, "debug is above the threshold");
    {
        sandbox::LogCapture cap; // a sink takes the lines, the file nothing
        LOG_Msg(32, 7, "to the sink");
    }
    setenv("NETLIB_LOG", "none", 1);
    LOG_Msg(32, 3, "dropped");
    EXPECT_EQ("<3> [NETWORK] error 7\n", sandbox::read_file("/tmp/netlib.log"));

    setenv("NETLIB_REBOOT_FILE", "/tmp/reboots", 1);
    int before = COMP_GetRebootCount();
    EXPECT_EQ(0, SYS_Reboot());
    EXPECT_EQ(before + 1, COMP_GetRebootCount());
    EXPECT_EQ("reboot\n", sandbox::read_file("/tmp/reboots"));
}
