// Address text: the library's own parsers and formatters (Inet_PtoN, Inet_NtoP) against the
// C library's inet_pton/inet_ntop over systematic inputs (random ones are the fuzz target's):
// every text the C library accepts we accept with the same bytes, every text it refuses we
// refuse, and we print exactly what it prints. Then the converters (INET_*, the _with_af
// family) and the validators of addresses, masks, ports and names: one wide table of texts
// with what each text test answers, smaller tables for the rest. Buffers of exact size on
// the heap let the sanitizer build catch any read or write past an end.
#include <arpa/inet.h>
#include <string.h>
#include <sys/socket.h>

#include <functional>
#include <random>
#include <string>
#include <vector>

#include "libnetwork.h"
#include "sandbox.h"

using sandbox::expect_line;
using sandbox::LogCapture;

namespace
{

constexpr unsigned kSeed = 20240611u;

// std::vector allocates exactly what it is built with: no slack after the last byte.
using Heap = std::vector<char>;

Heap heap_text(const std::string &s)
{
    return Heap(s.c_str(), s.c_str() + s.size() + 1);
}

::testing::AssertionResult same_parse(int af, const std::string &text)
{
    size_t n = af == AF_INET ? 4 : 16;
    Heap src = heap_text(text), ours(n, '\xa5'), theirs(n, '\xa5');
    int r1 = Inet_PtoN(af, src.data(), ours.data());
    int r2 = inet_pton(af, src.data(), theirs.data());
    if (r1 == r2 && ours == theirs)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "af " << af << " \"" << text << "\": ours " << r1 << " "
                                         << ::testing::PrintToString(ours) << ", C library " << r2
                                         << " " << ::testing::PrintToString(theirs);
}

// Formats into buffers of every size from lo to hi (0: the text's own size and one short):
// null exactly when the C library gives null, and the same bytes left in the buffer.
::testing::AssertionResult same_format(int af, const unsigned char *addr, size_t lo = 0,
                                       size_t hi = 0)
{
    if (hi == 0) {
        char ref[64];
        hi = strlen(inet_ntop(af, addr, ref, sizeof ref)) + 1;
        lo = hi - 1;
    }
    for (size_t size = lo; size <= hi; ++size) {
        Heap ours(size ? size : 1, 'X'), theirs(size ? size : 1, 'X');
        const char *r1 = Inet_NtoP(af, addr, ours.data(), static_cast<unsigned>(size));
        const char *r2 = inet_ntop(af, addr, theirs.data(), static_cast<socklen_t>(size));
        if ((r1 == nullptr) != (r2 == nullptr) || (r1 && r1 != ours.data()) || ours != theirs)
            return ::testing::AssertionFailure()
                   << "af " << af << " "
                   << ::testing::PrintToString(Heap(addr, addr + (af == AF_INET ? 4 : 16)))
                   << " size " << size << ": ours \"" << std::string(ours.begin(), ours.end())
                   << "\", C library \"" << std::string(theirs.begin(), theirs.end()) << "\"";
    }
    return ::testing::AssertionSuccess();
}

std::string dotted(const unsigned char *b)
{
    char t[20];
    snprintf(t, sizeof t, "%u.%u.%u.%u", b[0], b[1], b[2], b[3]);
    return t;
}

// Every text of up to maxLen characters over a small alphabet.
std::vector<std::string> all_texts(const std::string &alphabet, size_t maxLen)
{
    std::vector<std::string> out{""};
    for (size_t from = 0, len = 1; len <= maxLen; ++len) {
        size_t to = out.size();
        for (size_t i = from; i < to; ++i)
            for (char c : alphabet)
                out.push_back(out[i] + c);
        from = to;
    }
    return out;
}

uint32_t addr(const char *dotted)
{
    struct in_addr a;
    EXPECT_EQ(1, inet_pton(AF_INET, dotted, &a)) << dotted;
    return a.s_addr;
}

int exact(const std::string &s, int (*fn)(const char *))
{
    return fn(heap_text(s).data());
}

} // namespace

TEST(InetText, Ipv4MatchesTheCLibrary)
{
    const char *hard[] = {"0.0.0.0",   "255.255.255.255", "01.2.3.4", "1.2.3.04",  "00.0.0.0",
                          "256.1.1.1", "1.2.3.256",       "1.2.3",    "1.2.3.4.5", "1.2.3.4.",
                          ".1.2.3.4",  "1..2.3",          "1.2.3.4 ", " 1.2.3.4",  "1.2.3.4a",
                          "0x1.2.3.4", "1234.1.1.1",      "1.2.3.-4", "+1.2.3.4",  "1.2.3.4\n"};
    for (const char *t : hard)
        EXPECT_TRUE(same_parse(AF_INET, t));
    for (const auto &t : all_texts("0.19a", 8))
        ASSERT_TRUE(same_parse(AF_INET, t));
    unsigned char b[4] = {0};
    for (unsigned v = 0; v < 256; ++v) // every part value in every position
        for (int pos = 0; pos < 4; ++pos) {
            b[pos] = static_cast<unsigned char>(v);
            ASSERT_TRUE(same_parse(AF_INET, dotted(b)));
            ASSERT_TRUE(same_format(AF_INET, b));
            b[pos] = 0;
        }
}

TEST(InetText, Ipv6ParseMatchesTheCLibrary)
{
    const char *hard[] = {"1:2:3:4:5:6:7:8::",
                          "::1:2:3:4:5:6:7:8",
                          "1::2::3",
                          ":::",
                          ":1::",
                          "1::2:",
                          "00000::1",
                          "12345::1",
                          "::ffff:1.2.3",
                          "::ffff:01.2.3.4",
                          "::1.2.3.4::",
                          "1.2.3.4",
                          "::ffff:1.2.3.4:5",
                          "1.2.3.4::",
                          "::a.b.c.d",
                          "::1a.2.3.4",
                          "fe80::1%eth0",
                          "2001:db8::/64",
                          " ::1",
                          "::1 ",
                          "g::1",
                          "[::1]",
                          "FFFF:ffff:FfFf::1"};
    for (const char *t : hard)
        EXPECT_TRUE(same_parse(AF_INET6, t));
    for (const auto &t : all_texts(":.01fG", 7))
        ASSERT_TRUE(same_parse(AF_INET6, t));
    // n groups of 1 to 5 digits with "::" in every position, with and without a dotted tail.
    for (int n = 0; n <= 9; ++n)
        for (int gapAt = -1; gapAt <= n; ++gapAt)
            for (int digits = 1; digits <= 5; ++digits)
                for (int tail = 0; tail < 2; ++tail) {
                    std::string s;
                    for (int i = 0; i <= n; ++i) {
                        s += i == gapAt ? "::" : i > 0 ? ":" : "";
                        if (i < n)
                            s += std::string(static_cast<size_t>(digits - 1), '0') + "a";
                    }
                    ASSERT_TRUE(same_parse(AF_INET6, tail ? s + "9.8.7.6" : s));
                }
}

TEST(InetText, FormatMatchesTheCLibrary)
{
    unsigned char b[16];
    std::mt19937 rng(kSeed + 4);
    // Every pattern of zero groups, with small, largest and random non-zero groups, and the
    // same with the shapes that print a dotted tail.
    for (unsigned pattern = 0; pattern < 256; ++pattern)
        for (int k = 0; k < 200; ++k) {
            for (int i = 0; i < 8; ++i) {
                unsigned v = 0;
                if (pattern & (1u << i))
                    v = k % 3 == 0 ? 1 + rng() % 15 : k % 3 == 1 ? 0xffff : 1 + rng() % 0xffff;
                b[2 * i] = static_cast<unsigned char>(v >> 8);
                b[2 * i + 1] = static_cast<unsigned char>(v);
            }
            ASSERT_TRUE(same_format(AF_INET6, b));
            memset(b, 0, 10);
            b[10] = b[11] = (k & 1) ? 0xff : 0;
            ASSERT_TRUE(same_format(AF_INET6, b));
        }
    const unsigned char v4[4] = {255, 255, 255, 255};
    const unsigned char v6[16] = {0xff, 0xff, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    EXPECT_TRUE(same_format(AF_INET, v4, 0, 47));
    EXPECT_TRUE(same_format(AF_INET6, v6, 0, 47));
}

// v4: a dotted address (INET_Ipv4StrToNum, INET_IsIpv4AddrValid, check_str_ipv4,
// is_string_ipaddr_ipv4); v6: an IPv6 address (INET_Ipv6StrToNum, check_str_ipv6,
// is_string_ipaddr_ipv6); valid6: fit for the configuration (INET_IsIpv6AddrValid,
// is_v6_addr_valid); INET_IsIpaddrValid is v4 or valid6.
TEST(InetChecks, AddressTexts)
{
    struct Case {
        std::string text;
        int v4, lawful, mcast4, v6, valid6, shape6, mcast6, mcast6Plain;
    } cases[] = {
        {"192.168.1.10", 1, 1, 0, 0, 0, 0, 0, 0},
        {"0.0.0.0", 1, 1, 1, 0, 0, 0, 0, 0}, // "any" counts as a group
        {"255.255.255.255", 1, 1, 0, 0, 0, 0, 0, 0},
        {"192.168.1.0", 1, 0, 0, 0, 0, 0, 0, 0},
        {"192.168.1.256", 0, 0, 0, 0, 0, 0, 0, 0},
        {"1.2.3", 0, 0, 0, 0, 0, 0, 0, 0},
        {"1.2.3.4a", 0, 0, 0, 0, 0, 0, 0, 0},
        {"1.2.3.4.5", 0, 0, 0, 0, 0, 0, 0, 0},
        {"01.002.0003.4", 0, 1, 0, 0, 0, 0, 0, 0}, // lawful reads leading zeros as decimal
        {" 1. 2. 3. 4", 0, 1, 0, 0, 0, 0, 0, 0},   // spaces before a number are skipped
        {"1 .2.3.4", 0, 0, 0, 0, 0, 0, 0, 0},      // but not before a full stop
        {"1.2.3.4   ", 0, 1, 0, 0, 0, 0, 0, 0},
        {"1.2.3. ", 0, 0, 0, 0, 0, 0, 0, 0},
        {"", 0, 0, 0, 0, 0, 0, 0, 0},
        {"1.2.3.99999999999999", 0, 0, 0, 0, 0, 0, 0, 0}, // refused, not wrapped
        // is_ipaddr_lawful examines only the first 20 characters.
        {"1.2.3.4             xyz", 0, 1, 0, 0, 0, 0, 0, 0},
        {"1.2.3.4            xyz", 0, 0, 0, 0, 0, 0, 0, 0},
        {"10.10.10.1000000000abcde", 0, 0, 0, 0, 0, 0, 0, 0},
        {"10.10.10.1          .5", 0, 1, 0, 0, 0, 0, 0, 0},
        // Groups: 224.0.0.0 to .18 are the reserved local ones.
        {"224.0.0.18", 1, 1, 0, 0, 0, 0, 0, 0},
        {"224.0.0.19", 1, 1, 1, 0, 0, 0, 0, 0},
        {"224.0.1.0", 1, 0, 1, 0, 0, 0, 0, 0},
        {"239.255.255.255", 1, 1, 1, 0, 0, 0, 0, 0},
        {"240.0.0.1", 1, 1, 0, 0, 0, 0, 0, 0},
        {"::", 0, 0, 0, 1, 0, 1, 1, 0}, // "no group" passes the one test, not the other
        {"::1", 0, 0, 0, 1, 0, 1, 0, 0},
        {"::2", 0, 0, 0, 1, 1, 1, 0, 0},
        {"0:0:0:0:0:0:1:0", 0, 0, 0, 1, 1, 1, 0, 0},
        {"::ffff:10.0.0.1", 0, 0, 0, 1, 1, 1, 0, 0},
        {"fe80::1", 0, 0, 0, 1, 0, 1, 0, 0},
        {"FE80::1", 0, 0, 0, 1, 0, 1, 0, 0},
        {"Fe80::1", 0, 0, 0, 1, 1, 1, 0, 0}, // mixed spelling is not taken for link-local
        {"fec0::1", 0, 0, 0, 1, 1, 1, 0, 0},
        {"fe80", 0, 0, 0, 0, 0, 0, 0, 0},
        {"2001:db8::1", 0, 0, 0, 1, 1, 1, 0, 0},
        {"2001:db8::g", 0, 0, 0, 0, 0, 1, 0, 0},
        {"ff02::1", 0, 0, 0, 1, 1, 1, 1, 1},
        {"ff02::1::", 0, 0, 0, 0, 0, 1, 0, 0},
        {"fe80::1%eth0", 0, 0, 0, 0, 0, 1, 0, 0},
        {"a:b", 0, 0, 0, 0, 0, 0, 0, 0},
        // The shape test looks for a second colon within the first 39 characters.
        {std::string(39, 'a') + "::1", 0, 0, 0, 0, 0, 0, 0, 0},
        {std::string(37, 'a') + "::", 0, 0, 0, 0, 0, 1, 0, 0},
        {std::string(38, 'a') + "::", 0, 0, 0, 0, 0, 0, 0, 0},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE("\"" + c.text + "\"");
        const char *t = c.text.c_str();
        unsigned char want[16] = {0}, a[16], b[16], m[16], d[16];
        inet_pton(c.v4 ? AF_INET : AF_INET6, t, want);
        uint32_t u = 0x5a5a5a5a, mu = 0x5a5a5a5a;
        memset(a, 0x5a, 16), memset(b, 0x5a, 16), memset(m, 0x5a, 16), memset(d, 0x5a, 16);
        EXPECT_EQ(c.v4 ? 0 : -1, INET_Ipv4StrToNum(t, a));
        EXPECT_EQ(c.v4, INET_IsIpv4AddrValid(t));
        EXPECT_EQ(c.v4 ? 0 : -1, check_str_ipv4(t));
        EXPECT_EQ(c.v4, is_string_ipaddr_ipv4(t, &u));
        EXPECT_EQ(c.v4, is_string_ipaddr_ipv4(t, nullptr));
        EXPECT_EQ(c.lawful, exact(c.text, is_ipaddr_lawful));
        EXPECT_EQ(c.mcast4, is_stringip_multicast(t, &mu));
        EXPECT_EQ(c.v6 ? 0 : -1, INET_Ipv6StrToNum(t, b));
        EXPECT_EQ(c.v6 ? 0 : -1, check_str_ipv6(t));
        EXPECT_EQ(c.v6, is_string_ipaddr_ipv6(t, d));
        EXPECT_EQ(c.valid6, INET_IsIpv6AddrValid(t));
        EXPECT_EQ(c.valid6, is_v6_addr_valid(t));
        EXPECT_EQ(c.v4 || c.valid6, INET_IsIpaddrValid(t));
        EXPECT_EQ(c.shape6, exact(c.text, is_stringip_ipv6));
        EXPECT_EQ(c.mcast6, is_stringipv6_multicast(t, m));
        EXPECT_EQ(c.mcast6Plain, is_v6_addr_multicast(t));
        // What was parsed is written; a refused text leaves the output as it was.
        auto bytes = [](const void *p, size_t n) {
            return std::string(static_cast<const char *>(p), n);
        };
        std::string w4 = c.v4 ? bytes(want, 4) : std::string(4, 0x5a);
        std::string w6 = c.v6 ? bytes(want, 16) : std::string(16, 0x5a);
        EXPECT_EQ(w4 + w4 + w4, bytes(a, 4) + bytes(&u, 4) + bytes(&mu, 4));
        EXPECT_EQ(w6 + w6 + w6, bytes(b, 16) + bytes(d, 16) + bytes(m, 16));
    }
}

// Null arguments: every function checks its own. The INET_ ones log the line readers match.
TEST(InetChecks, InetLogLines)
{
    unsigned char b[16] = {0};
    char t[64];
    uint32_t u = 0;
    struct Case {
        const char *logs; // the function whose line is expected, or null
        long result;
        std::function<long()> call;
    } cases[] = {
        {"INET_Ipv4StrToNum", -2, [] { return INET_Ipv4StrToNum("1.2.3.4", nullptr); }},
        {"INET_Ipv6StrToNum", -2, [] { return INET_Ipv6StrToNum("::1", nullptr); }},
        {"INET_Ipv4NumToStr", -2, [&] { return INET_Ipv4NumToStr(b, nullptr, 64); }},
        {"INET_Ipv6NumToStr", -2, [&] { return INET_Ipv6NumToStr(nullptr, t, 64); }},
        {"INET_IsIpaddrValid", 0, [] { return INET_IsIpaddrValid(nullptr); }},
        {"INET_IsIpv4AddrValid", 0, [] { return INET_IsIpv4AddrValid(nullptr); }},
        {"INET_IsIpv6AddrValid", 0, [] { return INET_IsIpv6AddrValid(nullptr); }},
        {nullptr, 0, [] { return is_v6_addr_valid(nullptr); }},
        {nullptr, 0, [] { return is_ipaddr_lawful(nullptr); }},
        {nullptr, 0, [&] { return is_string_ipaddr_ipv4(nullptr, &u); }},
        {nullptr, 0, [&] { return is_string_ipaddr_ipv6(nullptr, b); }},
        {nullptr, 0, [] { return is_string_ipaddr_ipv6("::1", nullptr); }},
        {nullptr, 0, [&] { return is_stringip_multicast(nullptr, &u); }},
        {nullptr, 0, [] { return is_stringip_multicast("239.1.1.1", nullptr); }},
        {nullptr, 0, [] { return is_stringip_ipv6(nullptr); }},
        {nullptr, -1, [] { return check_str_ipv4(nullptr); }},
        {nullptr, -1, [] { return check_str_ipv6(nullptr); }},
        {nullptr, 0, [&] { return is_stringipv6_multicast(nullptr, b); }},
        {nullptr, 0, [] { return is_stringipv6_multicast("ff02::1", nullptr); }},
        {nullptr, 0, [] { return is_v6_addr_multicast(nullptr); }},
        {nullptr, 0, [] { return is_v6_mask_valid(nullptr); }},
        {nullptr, 0, [] { return is_domain_valid(nullptr); }},
        {nullptr, 0, [] { return is_hostname_valid(nullptr); }},
        {nullptr, -1, [] { return convert_ipv6_netmask_num(nullptr); }},
        {nullptr, -1, [] { return convert_ipv6_prefix_netmask(64, nullptr); }},
        {nullptr, 0, [&] { return Inet_PtoN(AF_INET, nullptr, b); }},
        {nullptr, 0, [] { return Inet_PtoN(AF_INET6, "::1", nullptr); }},
        {nullptr, 0, [&] { return (long)Inet_NtoP(AF_INET6, nullptr, t, 64); }},
        {nullptr, 0, [&] { return (long)Inet_NtoP(AF_INET, b, nullptr, 64); }},
        {nullptr, -1, [&] { return inet_pton_with_af(AF_INET, nullptr, b, 4); }},
        {nullptr, -1, [] { return inet_pton_with_af(AF_INET, "1.2.3.4", nullptr, 4); }},
        {nullptr, 0, [&] { return (long)inet_ntop_with_af(AF_INET6, nullptr, t, 64); }},
        {nullptr, 0, [&] { return (long)inet_ntop_with_af(AF_INET6, b, nullptr, 64); }},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(&c - cases);
        LogCapture log;
        EXPECT_EQ(c.result, c.call());
        if (c.logs != nullptr) {
            EXPECT_EQ(std::vector<std::string>{expect_line(c.logs, "PL_PARAM_ERROR_PRINT \"\\n\"")},
                      log.texts());
            EXPECT_EQ(3, log.lines().at(0).level);
        }
    }
}

TEST(InetChecks, ConvertersBuffersAndFamilies)
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
    // An unknown family: Inet_PtoN answers 1 and writes nothing, Inet_NtoP refuses.
    for (int af : {0, 1, 7, -1}) {
        unsigned char b[16];
        memset(b, 0x5a, sizeof b);
        EXPECT_EQ(1, Inet_PtoN(af, "1.2.3.4", b)) << af;
        EXPECT_EQ(1, Inet_PtoN(af, nullptr, nullptr)) << af;
        EXPECT_EQ(std::string(16, 0x5a), std::string(reinterpret_cast<char *>(b), 16));
        EXPECT_EQ(nullptr, Inet_NtoP(af, b, t, sizeof t));
    }
    struct Case {
        int af;
        const char *text;
        int size;
        int result;
    } cases[] = {
        {AF_INET, "10.1.2.3", 4, 0},      {AF_INET, "10.1.2.3", 16, 0},
        {AF_INET, "10.1.2", 4, -1},       {AF_INET6, "::ffff:1.2.3.4", 16, 0},
        {AF_INET6, "2001:db8::1", 64, 0}, {AF_INET6, "2001:db8::g", 16, -1},
        {AF_INET, "10.1.2.3", 0, -1},     {AF_INET, "10.1.2.3", -5, -1},
        {AF_INET, "10.1.2.3", 3, -1},     {AF_INET6, "::1", 15, -1},
        {7, "10.1.2.3", 16, -1},          {AF_INET, "", 4, -1},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.text) + " " + std::to_string(c.size));
        unsigned char b[64], want[16];
        memset(b, 0x5a, sizeof b);
        EXPECT_EQ(c.result, inet_pton_with_af(c.af, c.text, b, c.size));
        if (c.result == 0) {
            ASSERT_EQ(1, inet_pton(c.af, c.text, want));
            EXPECT_EQ(0, memcmp(want, b, c.af == AF_INET ? 4 : 16));
        }
    }
    // IPv4, a text of n characters into a buffer of size s: null when n > s; otherwise the
    // first min(n, s - 1) characters, zeros up to s - 1, and the last byte never written.
    const unsigned char addrs[][4] = {{255, 255, 255, 255}, {1, 2, 3, 4}};
    for (const auto &a : addrs) {
        char ref[16];
        size_t n = strlen(inet_ntop(AF_INET, a, ref, sizeof ref));
        for (size_t s = 1; s <= 20; ++s) {
            std::vector<char> buf(s, 'X');
            char *r = inet_ntop_with_af(AF_INET, a, buf.data(), static_cast<int>(s));
            size_t copied = n < s - 1 ? n : s - 1;
            std::string want =
                n > s ? std::string(s, 'X')
                      : std::string(ref, copied) + std::string(s - 1 - copied, '\0') + "X";
            EXPECT_EQ(n > s ? nullptr : buf.data(), r) << ref << " size " << s;
            EXPECT_EQ(want, std::string(buf.begin(), buf.end())) << ref << " size " << s;
        }
    }
    const unsigned char a[16] = {0xfe, 0x80, 0,    0,    0,    0,    0,    0,
                                 0x02, 0x11, 0x22, 0xff, 0xfe, 0x33, 0x44, 0x55};
    char buf[64];
    ASSERT_EQ(buf, inet_ntop_with_af(AF_INET6, a, buf, 25));
    EXPECT_STREQ("fe80::211:22ff:fe33:4455", buf);
    EXPECT_EQ(nullptr, inet_ntop_with_af(AF_INET6, a, buf, 24)); // 24 characters, no room
    EXPECT_EQ(nullptr, inet_ntop_with_af(AF_INET6, a, buf, 0));
    EXPECT_EQ(nullptr, inet_ntop_with_af(AF_INET, a, buf, -1));
    EXPECT_EQ(nullptr, inet_ntop_with_af(7, a, buf, 64));
}

TEST(InetChecks, MasksAndAddressesAsNumbers)
{
    for (int len = 0; len <= 32; ++len) {
        uint32_t host = len == 0 ? 0 : 0xffffffffu << (32 - len);
        EXPECT_EQ(len >= 1 && len <= 30 ? 1 : 0, is_mask_valid(htonl(host))) << "/" << len;
    }
    for (const char *hole : {"255.0.255.0", "0.255.255.255", "255.255.254.255"})
        EXPECT_EQ(0, is_mask_valid(addr(hole))) << hole;
    struct Case {
        const char *ip, *mask;
        int result;
    } cases[] = {
        {"192.168.1.0", "255.255.255.0", 0},   {"192.168.1.255", "255.255.255.0", 0},
        {"127.0.0.2", "255.0.0.0", 0},         {"0.0.0.0", "255.255.255.0", 1},
        {"192.168.1.1", "255.255.255.0", 1},   {"0.1.2.3", "255.255.255.0", 0},
        {"224.0.0.5", "255.255.255.0", 0},     {"223.255.255.1", "255.255.255.0", 1},
        {"192.168.1.1", "255.255.255.255", 0}, {"192.168.1.1", "255.255.255.252", 1},
    };
    for (const auto &c : cases)
        EXPECT_EQ(c.result, is_ip_valid(addr(c.ip), addr(c.mask))) << c.ip << "/" << c.mask;
    for (unsigned o = 0; o < 256; ++o) {
        std::string t = std::to_string(o) + ".1.2.3";
        EXPECT_EQ(o != 0 && o != 127 && o < 224 ? 1 : 0, is_address_valid(addr(t.c_str()))) << t;
    }
    EXPECT_EQ(1, is_address_valid(0));
}

TEST(InetChecks, PortsDomainsAndHostnames)
{
    struct Port {
        long port;
        int lawful, legal; // is_port_lawful looks at the low 16 bits only
    } ports[] = {{0, 0, 0},     {1, 1, 1},  {65535, 1, 1}, {65536, 0, 0},
                 {65537, 1, 0}, {-1, 1, 0}, {-65536, 0, 0}};
    for (const Port &p : ports) {
        EXPECT_EQ(p.lawful, is_port_lawful(static_cast<unsigned>(p.port))) << p.port;
        EXPECT_EQ(p.legal, is_port_legal(static_cast<int>(p.port))) << p.port;
    }
    struct Name {
        const char *text;
        int domain, hostname;
    } names[] = {
        {"", 1, 1},
        {"example.com", 1, 1},
        {"example.com1", 0, 1},
        {"cam-01", 0, 1},
        {"-a.com", 0, 0},
        {"cam-", 0, 0},
        {".example.com", 0, 0},
        {"example.com.", 0, 0},
        {"user@example.com", 1, 0},
        {"exa mple.com", 0, 0},
        {"_a", 1, 0},
        {"caf\xc3\xa9.com", 0, 0},
    };
    for (const Name &n : names) {
        EXPECT_EQ(n.domain, exact(n.text, is_domain_valid)) << "\"" << n.text << "\"";
        EXPECT_EQ(n.hostname, exact(n.text, is_hostname_valid)) << "\"" << n.text << "\"";
    }
    for (size_t n : {64, 65, 255, 256}) { // the longest: a domain of 64, a host name of 255
        EXPECT_EQ(n <= 64, exact(std::string(n, 'a'), is_domain_valid)) << n;
        EXPECT_EQ(n <= 255, exact(std::string(n, 'a'), is_hostname_valid)) << n;
    }
}

TEST(InetChecks, Ipv6PrefixesAndNetmasks)
{
    for (unsigned prefix = 0; prefix < 128; ++prefix) {
        unsigned char m[16];
        ASSERT_EQ(0, convert_ipv6_prefix_netmask(prefix, m)) << prefix;
        for (unsigned bit = 0; bit < 128; ++bit)
            ASSERT_EQ(bit < prefix ? 1 : 0, (m[bit / 8] >> (7 - bit % 8)) & 1)
                << "prefix " << prefix << " bit " << bit;
        EXPECT_EQ(static_cast<int>(prefix), convert_ipv6_netmask_num(m));
    }
    unsigned char m[16];
    memset(m, 0x5a, sizeof m);
    for (unsigned prefix : {128u, 129u, 0xffffffffu})
        EXPECT_EQ(-1, convert_ipv6_prefix_netmask(prefix, m)) << prefix;
    EXPECT_EQ(std::string(16, 0x5a), std::string(reinterpret_cast<char *>(m), 16));
    auto num = [&m](const char *mask) {
        inet_pton(AF_INET6, mask, m);
        return convert_ipv6_netmask_num(m);
    };
    EXPECT_EQ(128, num("ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"));
    EXPECT_EQ(8, num("ff00::ffff")); // ones after the first zero are not counted
    EXPECT_EQ(0, num("7fff::"));
    // is_v6_mask_valid: a run of ones from the top, at least one.
    for (int len = 0; len <= 128; ++len) {
        unsigned char r[16] = {0};
        for (int bit = 0; bit < len; ++bit)
            r[bit / 8] |= static_cast<unsigned char>(0x80 >> (bit % 8));
        char t[64];
        EXPECT_EQ(len >= 1 ? 1 : 0, is_v6_mask_valid(inet_ntop(AF_INET6, r, t, sizeof t))) << t;
        if (len >= 1 && len < 128) {
            r[15] |= 1; // a one after the run
            EXPECT_EQ(len == 127 ? 1 : 0, is_v6_mask_valid(inet_ntop(AF_INET6, r, t, sizeof t)))
                << t;
        }
    }
    EXPECT_EQ(0, is_v6_mask_valid("255.255.255.0"));
}
