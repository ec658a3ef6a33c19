// Whether a text is an address fit for the configuration (INET_IsIp*), and the older string
// validators built over the converters and checks.
#include <arpa/inet.h>
#include <string.h>

#include <string>
#include <vector>

#include "libnetwork.h"
#include "sandbox.h"

using sandbox::expect_line;
using sandbox::LogCapture;

TEST(InetValid, Ipv6AddrValid)
{
    struct Case {
        const char *text;
        int result;
    } cases[] = {
        {"fe80::1", 0},
        {"FE80::1", 0},
        {"Fe80::1", 1}, // mixed spelling: parsed
        {"fE80::1", 1},
        {"fe80", 0},
        {"fe8", 0},
        {"::", 0},
        {"::1", 0},
        {"::2", 1},
        {"::0.0.0.1", 0},
        {"::0.0.1.0", 1},
        {"::ffff:1.2.3.4", 1},
        {"1::", 1},
        {"2001:db8::1", 1},
        {"fec0::1", 1},
        {"2001:db8::g", 0},
        {"", 0},
        {"1.2.3.4", 0},
        {"0:0:0:0:0:0:1:0", 1},
        {"0:0:0:0:0:0:0:1", 0},
        {"ff02::1", 1},
    };
    for (const auto &c : cases)
        EXPECT_EQ(c.result, INET_IsIpv6AddrValid(c.text)) << c.text;
}

TEST(InetValid, Ipv4AddrValid)
{
    struct Case {
        const char *text;
        int result;
    } cases[] = {
        {"192.168.1.10", 1}, {"0.0.0.0", 1},  {"255.255.255.255", 1},
        {"1.2.3", 0},        {"01.2.3.4", 0}, {"", 0},
        {"::1", 0},          {"1.2.3.4 ", 0},
    };
    for (const auto &c : cases)
        EXPECT_EQ(c.result, INET_IsIpv4AddrValid(c.text)) << c.text;
}

TEST(InetValid, IpaddrValidEitherFamily)
{
    struct Case {
        const char *text;
        int result;
    } cases[] = {
        {"192.168.1.10", 1}, {"2001:db8::1", 1}, {"fe80::1", 0},
        {"::1", 0},          {"1.2.3", 0},       {"host.example", 0},
    };
    for (const auto &c : cases)
        EXPECT_EQ(c.result, INET_IsIpaddrValid(c.text)) << c.text;
}

// ---- Older string validators ----------------------------------------------------------------

TEST(InetOlder, CheckStr)
{
    struct Case {
        const char *text;
        int v4;
        int v6;
    } cases[] = {
        {"192.168.1.1", 0, -1}, {"::1", -1, 0}, {"fe80::1", -1, 0},
        {"1.2.3", -1, -1},      {"", -1, -1},   {nullptr, -1, -1},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(c.v4, check_str_ipv4(c.text)) << (c.text ? c.text : "(null)");
        EXPECT_EQ(c.v6, check_str_ipv6(c.text)) << (c.text ? c.text : "(null)");
    }
}

TEST(InetOlder, PortLegal)
{
    struct Case {
        int port;
        int result;
    } cases[] = {{0, 0},     {1, 1},     {554, 1}, {65535, 1},
                 {65536, 0}, {65537, 0}, {-1, 0},  {-65535, 0}};
    for (const auto &c : cases)
        EXPECT_EQ(c.result, is_port_legal(c.port)) << c.port;
}

TEST(InetOlder, V6Multicast)
{
    struct Case {
        const char *text;
        int withOut; // is_stringipv6_multicast: :: means no group and is accepted
        int plain;   // is_v6_addr_multicast
    } cases[] = {
        {"ff02::1", 1, 1},   {"FF05::1:3", 1, 1}, {"ff00::", 1, 1},
        {"::", 1, 0},        {"fe80::1", 0, 0},   {"2001:db8::1", 0, 0},
        {"224.0.0.1", 0, 0}, {"", 0, 0},          {"ff02::1::", 0, 0},
    };
    for (const auto &c : cases) {
        unsigned char a[16];
        EXPECT_EQ(c.withOut, is_stringipv6_multicast(c.text, a)) << c.text;
        EXPECT_EQ(c.plain, is_v6_addr_multicast(c.text)) << c.text;
    }
    unsigned char a[16];
    EXPECT_EQ(0, is_stringipv6_multicast(nullptr, a));
    EXPECT_EQ(0, is_stringipv6_multicast("ff02::1", nullptr));
    EXPECT_EQ(0, is_v6_addr_multicast(nullptr));
    ASSERT_EQ(1, is_stringipv6_multicast("ff02::1:2", a));
    EXPECT_EQ(0xff, a[0]);
    EXPECT_EQ(2, a[15]);
}

TEST(InetOlder, V6AddrValidFollowsTheInetTest)
{
    for (const char *t : {"fe80::1", "FE80::1", "Fe80::1", "::", "::1", "::2", "2001:db8::5", "x"})
        EXPECT_EQ(INET_IsIpv6AddrValid(t), is_v6_addr_valid(t)) << t;
    LogCapture log;
    EXPECT_EQ(0, is_v6_addr_valid(nullptr));
    EXPECT_TRUE(log.texts().empty());
}

TEST(InetOlder, V6MaskValidEveryPrefix)
{
    for (int len = 0; len <= 128; ++len) {
        unsigned char m[16] = {0};
        for (int bit = 0; bit < len; ++bit)
            m[bit / 8] |= static_cast<unsigned char>(0x80 >> (bit % 8));
        char t[64];
        inet_ntop(AF_INET6, m, t, sizeof t);
        EXPECT_EQ(len >= 1 ? 1 : 0, is_v6_mask_valid(t)) << t;
        if (len >= 1 && len < 128) {
            m[15] |= 1; // a one after the run
            inet_ntop(AF_INET6, m, t, sizeof t);
            EXPECT_EQ(len == 127 ? 1 : 0, is_v6_mask_valid(t)) << t;
        }
    }
    EXPECT_EQ(0, is_v6_mask_valid(nullptr));
    EXPECT_EQ(0, is_v6_mask_valid("255.255.255.0"));
    EXPECT_EQ(0, is_v6_mask_valid("ffff:0:ffff::"));
}
