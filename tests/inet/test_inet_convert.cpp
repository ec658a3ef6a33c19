// Address conversion: the INET_ converters and their log line, the odd corners of
// Inet_PtoN/Inet_NtoP and the _with_af family, and the quick text tests.
#include <arpa/inet.h>
#include <string.h>
#include <sys/socket.h>

#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "libnetwork.h"
#include "sandbox.h"

using sandbox::expect_line;
using sandbox::LogCapture;

namespace
{

} // namespace

// ---- INET_ converters ---------------------------------------------------------------------

TEST(InetConvert, StrToNumResults)
{
    struct Case {
        const char *text;
        int v4;
        int v6;
    } cases[] = {
        {"192.168.1.10", 0, -1}, {"::1", -1, 0}, {"::ffff:10.0.0.1", -1, 0},
        {"1.2.3", -1, -1},       {"", -1, -1},   {"fe80::1%eth0", -1, -1},
    };
    for (const auto &c : cases) {
        unsigned char b[16];
        EXPECT_EQ(c.v4, INET_Ipv4StrToNum(c.text, b)) << c.text;
        EXPECT_EQ(c.v6, INET_Ipv6StrToNum(c.text, b)) << c.text;
    }
    uint32_t a = 0;
    ASSERT_EQ(0, INET_Ipv4StrToNum("192.168.1.10", &a));
    EXPECT_EQ(htonl(0xC0A8010Au), a);
}

TEST(InetConvert, NumToStrBufferSizes)
{
    const unsigned char v4[4] = {255, 255, 255, 255};
    const unsigned char v6[16] = {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    char t[64];
    EXPECT_EQ(0, INET_Ipv4NumToStr(v4, t, 16));
    EXPECT_STREQ("255.255.255.255", t);
    EXPECT_EQ(-1, INET_Ipv4NumToStr(v4, t, 15)); // no room for the terminator
    EXPECT_EQ(0, INET_Ipv6NumToStr(v6, t, 12));
    EXPECT_STREQ("2001:db8::1", t);
    EXPECT_EQ(-1, INET_Ipv6NumToStr(v6, t, 11));
    EXPECT_EQ(-1, INET_Ipv6NumToStr(v6, t, 0));
}

// ---- Inet_PtoN / Inet_NtoP -----------------------------------------------------------------

TEST(InetConvert, PtoNUnknownFamilyAnswersOneAndLeavesDst)
{
    for (int af : {0, 1, 7, 3, 11, 17, -1}) {
        unsigned char b[16];
        memset(b, 0x5a, sizeof b);
        EXPECT_EQ(1, Inet_PtoN(af, "1.2.3.4", b)) << af;
        for (unsigned char x : b)
            ASSERT_EQ(0x5a, x);
        EXPECT_EQ(1, Inet_PtoN(af, nullptr, nullptr)) << af;
    }
    // A refused text leaves dst as it was.
    unsigned char b[16];
    memset(b, 0x5a, sizeof b);
    EXPECT_EQ(0, Inet_PtoN(AF_INET6, "1:2:3:4:5:6:7:8:9", b));
    EXPECT_EQ(0, Inet_PtoN(AF_INET, "1.2.3.4.5", b));
    EXPECT_EQ(std::string(16, 0x5a), std::string(reinterpret_cast<char *>(b), 16));
}

TEST(InetConvert, PtoNAndNtoPNullPointers)
{
    unsigned char b[16] = {0};
    char t[64];
    for (int af : {AF_INET, AF_INET6}) {
        EXPECT_EQ(0, Inet_PtoN(af, nullptr, b));
        EXPECT_EQ(0, Inet_PtoN(af, "::1", nullptr));
        EXPECT_EQ(nullptr, Inet_NtoP(af, nullptr, t, sizeof t));
        EXPECT_EQ(nullptr, Inet_NtoP(af, b, nullptr, sizeof t));
    }
    EXPECT_EQ(nullptr, Inet_NtoP(7, b, t, sizeof t));
}

// ---- _with_af family ------------------------------------------------------------------------

TEST(InetConvert, PtonWithAfResults)
{
    unsigned char b[16];
    struct Case {
        int af;
        const char *text;
        int size;
        int result;
    } cases[] = {
        {AF_INET, "10.1.2.3", 4, 0},      {AF_INET, "10.1.2.3", 16, 0},
        {AF_INET, "10.1.2", 4, -1},       {AF_INET6, "2001:db8::1", 16, 0},
        {AF_INET6, "2001:db8::1", 64, 0}, {AF_INET6, "2001:db8::g", 16, -1},
        {AF_INET, "10.1.2.3", 0, -1},     {AF_INET, "10.1.2.3", -5, -1},
        {AF_INET, "10.1.2.3", 3, -1},     {AF_INET6, "::1", 15, -1},
        {7, "10.1.2.3", 16, -1},          {AF_INET, "", 4, -1},
    };
    for (const auto &c : cases)
        EXPECT_EQ(c.result, inet_pton_with_af(c.af, c.text, b, c.size))
            << c.af << " " << c.text << " " << c.size;
    EXPECT_EQ(-1, inet_pton_with_af(AF_INET, nullptr, b, 4));
    EXPECT_EQ(-1, inet_pton_with_af(AF_INET, "1.2.3.4", nullptr, 4));
    ASSERT_EQ(0, inet_pton_with_af(AF_INET6, "::ffff:1.2.3.4", b, 16));
    const unsigned char mapped[16] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff, 1, 2, 3, 4};
    EXPECT_EQ(0, memcmp(mapped, b, 16));
}

TEST(InetConvert, NtopWithAfIpv4CutsAndLeavesUnterminated)
{
    // A text of n characters into a buffer of size s: null when n > s; otherwise the first
    // min(n, s - 1) characters, zeros up to s - 1, and the last byte never written.
    const unsigned char addrs[][4] = {{255, 255, 255, 255}, {1, 2, 3, 4}, {10, 0, 0, 1}};
    for (const auto &a : addrs) {
        char ref[16];
        snprintf(ref, sizeof ref, "%u.%u.%u.%u", a[0], a[1], a[2], a[3]);
        size_t n = strlen(ref);
        for (int size = 1; size <= 20; ++size) {
            char *buf = static_cast<char *>(malloc(static_cast<size_t>(size)));
            memset(buf, 'X', static_cast<size_t>(size));
            char *r = inet_ntop_with_af(AF_INET, a, buf, size);
            size_t s = static_cast<size_t>(size);
            if (n > s) {
                EXPECT_EQ(nullptr, r) << ref << " size " << size;
                EXPECT_EQ(std::string(s, 'X'), std::string(buf, s));
            } else {
                size_t copied = n < s - 1 ? n : s - 1;
                std::string expect =
                    std::string(ref, copied) + std::string(s - 1 - copied, '\0') + "X";
                EXPECT_EQ(buf, r) << ref << " size " << size;
                EXPECT_EQ(expect, std::string(buf, s)) << ref << " size " << size;
            }
            free(buf);
        }
    }
}

TEST(InetConvert, NtopWithAfIpv6AndBadArguments)
{
    const unsigned char a[16] = {0xfe, 0x80, 0,    0,    0,    0,    0,    0,
                                 0x02, 0x11, 0x22, 0xff, 0xfe, 0x33, 0x44, 0x55};
    char buf[64];
    ASSERT_EQ(buf, inet_ntop_with_af(AF_INET6, a, buf, 64));
    EXPECT_STREQ("fe80::211:22ff:fe33:4455", buf);
    EXPECT_EQ(nullptr, inet_ntop_with_af(AF_INET6, a, buf, 24)); // 24 characters, no room
    EXPECT_EQ(buf, inet_ntop_with_af(AF_INET6, a, buf, 25));
    EXPECT_EQ(nullptr, inet_ntop_with_af(AF_INET6, nullptr, buf, 64));
    EXPECT_EQ(nullptr, inet_ntop_with_af(AF_INET6, a, nullptr, 64));
    EXPECT_EQ(nullptr, inet_ntop_with_af(AF_INET6, a, buf, 0));
    EXPECT_EQ(nullptr, inet_ntop_with_af(AF_INET, a, buf, -1));
    EXPECT_EQ(nullptr, inet_ntop_with_af(7, a, buf, 64));
}

// ---- Quick text tests -----------------------------------------------------------------------

// Refusals of the exported converters and validators: log readers match these lines.
TEST(InetConvert, InetLogLines)
{
    unsigned char b[16] = {0};
    char t[64];
    struct Case {
        const char *func;
        int result;
        std::function<int()> call;
    } cases[] = {
        {"INET_Ipv4StrToNum", -2, [] { return INET_Ipv4StrToNum(nullptr, nullptr); }},
        {"INET_Ipv4StrToNum", -2, [&] { return INET_Ipv4StrToNum(nullptr, b); }},
        {"INET_Ipv4StrToNum", -2, [] { return INET_Ipv4StrToNum("1.2.3.4", nullptr); }},
        {"INET_Ipv6StrToNum", -2, [&] { return INET_Ipv6StrToNum(nullptr, b); }},
        {"INET_Ipv6StrToNum", -2, [] { return INET_Ipv6StrToNum("::1", nullptr); }},
        {"INET_Ipv4NumToStr", -2, [&] { return INET_Ipv4NumToStr(nullptr, t, 64); }},
        {"INET_Ipv4NumToStr", -2, [&] { return INET_Ipv4NumToStr(b, nullptr, 64); }},
        {"INET_Ipv6NumToStr", -2, [&] { return INET_Ipv6NumToStr(nullptr, t, 64); }},
        {"INET_Ipv6NumToStr", -2, [&] { return INET_Ipv6NumToStr(b, nullptr, 64); }},
        {"INET_IsIpaddrValid", 0, [] { return INET_IsIpaddrValid(nullptr); }},
        {"INET_IsIpv4AddrValid", 0, [] { return INET_IsIpv4AddrValid(nullptr); }},
        {"INET_IsIpv6AddrValid", 0, [] { return INET_IsIpv6AddrValid(nullptr); }},
        // Other failures are silent.
        {nullptr, -1, [&] { return INET_Ipv4StrToNum("300.1.1.1", b); }},
        {nullptr, -1, [&] { return INET_Ipv6StrToNum("1:::2", b); }},
        {nullptr, -1, [&] { return INET_Ipv4NumToStr(b, t, 0); }},
        {nullptr, 0, [] { return INET_IsIpv6AddrValid("fe80::1"); }},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.func ? c.func : "silent");
        LogCapture log;
        EXPECT_EQ(c.result, c.call());
        if (c.func == nullptr) {
            EXPECT_TRUE(log.texts().empty());
            continue;
        }
        EXPECT_EQ(std::vector<std::string>{expect_line(c.func, "PL_PARAM_ERROR_PRINT \"\\n\"")},
                  log.texts());
        EXPECT_EQ(3, log.lines().at(0).level);
    }
}

TEST(InetConvert, StringIpaddrIpv4)
{
    uint32_t out = 0x12345678;
    EXPECT_EQ(0, is_string_ipaddr_ipv4(nullptr, &out));
    EXPECT_EQ(0, is_string_ipaddr_ipv4("", &out));
    EXPECT_EQ(0, is_string_ipaddr_ipv4("1.2.3", &out));
    EXPECT_EQ(0x12345678u, out);
    EXPECT_EQ(1, is_string_ipaddr_ipv4("192.168.0.1", nullptr));
    EXPECT_EQ(1, is_string_ipaddr_ipv4("192.168.0.1", &out));
    EXPECT_EQ(htonl(0xC0A80001u), out);
}

TEST(InetConvert, StringIpaddrIpv6)
{
    unsigned char b[16];
    EXPECT_EQ(0, is_string_ipaddr_ipv6(nullptr, b));
    EXPECT_EQ(0, is_string_ipaddr_ipv6("::1", nullptr));
    EXPECT_EQ(0, is_string_ipaddr_ipv6("", b));
    EXPECT_EQ(0, is_string_ipaddr_ipv6("1.2.3.4", b));
    EXPECT_EQ(1, is_string_ipaddr_ipv6("2001:db8::1", b));
    EXPECT_EQ(0x20, b[0]);
    EXPECT_EQ(1, b[15]);
}

TEST(InetConvert, StringipMulticast)
{
    struct Case {
        const char *text;
        int result;
    } cases[] = {
        {"224.0.0.18", 0}, {"224.0.0.19", 1},      {"0.0.0.0", 1},   {"192.168.1.1", 0},
        {"224.0.0.0", 0},  {"224.0.0.1", 0},       {"224.0.1.0", 1}, {"239.255.255.255", 1},
        {"240.0.0.1", 0},  {"223.255.255.255", 0}, {"225.0.0.5", 1}, {"1.2.3", 0},
        {"", 0},           {"0.0.0.1", 0},
    };
    for (const auto &c : cases) {
        uint32_t out = 0;
        EXPECT_EQ(c.result, is_stringip_multicast(c.text, &out)) << c.text;
    }
    uint32_t out;
    EXPECT_EQ(0, is_stringip_multicast(nullptr, &out));
    EXPECT_EQ(0, is_stringip_multicast("239.1.1.1", nullptr));
    ASSERT_EQ(1, is_stringip_multicast("239.1.2.3", &out));
    EXPECT_EQ(htonl(0xEF010203u), out);
}

TEST(InetConvert, StringipIpv6ShapeTest)
{
    std::string late = std::string(39, 'a') + "::1";
    std::string edge = std::string(37, 'a') + "::"; // second colon is the 39th character
    std::string over = std::string(38, 'a') + "::"; // second colon is the 40th character
    struct Case {
        std::string text;
        int result;
    } cases[] = {
        {"::", 1},
        {"::1", 1},
        {"a:b", 0},
        {"a:b:", 1},
        {"1.2.3.4", 0},
        {"", 0},
        {"not:an:address", 1},
        {late, 0},
        {edge, 1},
        {over, 0},
    };
    for (const auto &c : cases)
        EXPECT_EQ(c.result, is_stringip_ipv6(c.text.c_str())) << c.text;
    EXPECT_EQ(0, is_stringip_ipv6(nullptr));
}
