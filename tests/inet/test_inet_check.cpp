// Lawfulness checks of addresses, masks, ports and names, and the IPv6 prefix/netmask
// conversions. All pure: tables of cases, plus exhaustive sweeps where the domain is small.
#include <arpa/inet.h>
#include <string.h>

#include <cstdlib>
#include <string>

#include "libnetwork.h"
#include "sandbox.h"

namespace
{

uint32_t addr(const char *dotted)
{
    struct in_addr a;
    EXPECT_EQ(1, inet_pton(AF_INET, dotted, &a)) << dotted;
    return a.s_addr;
}

// The text on the heap without slack, so a read past the terminator is caught by ASan.
int lawful_exact(const std::string &s, int (*fn)(const char *))
{
    char *p = static_cast<char *>(malloc(s.size() + 1));
    memcpy(p, s.c_str(), s.size() + 1);
    int r = fn(p);
    free(p);
    return r;
}

} // namespace

TEST(InetCheck, IpaddrLawful)
{
    struct Case {
        std::string text;
        int result;
    } cases[] = {
        {"0.0.0.0", 1},
        {"192.168.1.0", 0},
        {"192.168.1.256", 0},
        {"1.2.3", 0},
        {"1.2.3.4a", 0},
        {"192.168.1.1", 1},
        {"127.0.0.1", 1},
        {"224.1.1.1", 1},
        {"255.255.255.255", 1},
        {"0.0.0.1", 1},
        {"1.2.3.4.5", 0},
        {"1.2.3.4.", 0},
        {" 1. 2. 3. 4", 1}, // spaces before a number are skipped
        {"1 .2.3.4", 0},    // but not before a full stop
        {"1.2.3.4   ", 1},
        {"1.2.3. ", 0}, // a number missing
        {"...", 0},
        {" . . . ", 0},
        {"", 0},
        {"1.2.3.-4", 0},
        {"1.2.3.99999999999999", 0}, // a huge part is refused, not wrapped
        {"01.002.0003.4", 1},        // leading zeros are read as decimal
        // Only the first 20 characters are examined.
        {"1.2.3.4             xyz", 1},
        {"1.2.3.4            xyz", 0},
        {"10.10.10.1000000000abcde", 0},
        {"10.10.10.1          .5", 1},
    };
    for (const auto &c : cases)
        EXPECT_EQ(c.result, lawful_exact(c.text, is_ipaddr_lawful)) << "\"" << c.text << "\"";
    EXPECT_EQ(0, is_ipaddr_lawful(nullptr));
}

TEST(InetCheck, MaskValidEveryPrefixAndSomeHoles)
{
    for (int len = 0; len <= 32; ++len) {
        uint32_t host = len == 0 ? 0 : 0xffffffffu << (32 - len);
        EXPECT_EQ(len >= 1 && len <= 30 ? 1 : 0, is_mask_valid(htonl(host))) << "/" << len;
    }
    struct Case {
        const char *mask;
        int result;
    } cases[] = {
        {"255.255.255.0", 1},   {"255.255.255.252", 1}, {"255.255.255.254", 0},
        {"255.0.255.0", 0},     {"0.0.0.0", 0},         {"0.255.255.255", 0},
        {"255.255.254.255", 0}, {"128.0.0.0", 1},       {"255.255.255.255", 0},
    };
    for (const auto &c : cases)
        EXPECT_EQ(c.result, is_mask_valid(addr(c.mask))) << c.mask;
}

TEST(InetCheck, IpValid)
{
    struct Case {
        const char *ip;
        const char *mask;
        int result;
    } cases[] = {
        {"192.168.1.0", "255.255.255.0", 0},
        {"192.168.1.255", "255.255.255.0", 0},
        {"127.0.0.2", "255.0.0.0", 0},
        {"0.0.0.0", "255.255.255.0", 1},
        {"0.0.0.0", "0.0.0.0", 1},
        {"192.168.1.1", "255.255.255.0", 1},
        {"10.0.0.1", "255.0.0.0", 1},
        {"0.1.2.3", "255.255.255.0", 0},
        {"224.0.0.5", "255.255.255.0", 0},
        {"239.1.1.1", "255.255.255.0", 0},
        {"223.255.255.1", "255.255.255.0", 1},
        {"192.168.1.1", "255.255.255.255", 0},
        {"192.168.1.2", "255.255.255.254", 0},
        {"192.168.1.1", "255.255.255.252", 1},
        {"172.16.255.255", "255.255.0.0", 0},
        {"172.16.255.254", "255.255.0.0", 1},
    };
    for (const auto &c : cases)
        EXPECT_EQ(c.result, is_ip_valid(addr(c.ip), addr(c.mask))) << c.ip << "/" << c.mask;
}

TEST(InetCheck, AddressValidEveryFirstOctet)
{
    for (unsigned o = 0; o < 256; ++o) {
        char t[20];
        snprintf(t, sizeof t, "%u.1.2.3", o);
        int expect = (o != 0 && o != 127 && o < 224) ? 1 : 0;
        EXPECT_EQ(expect, is_address_valid(addr(t))) << t;
    }
    EXPECT_EQ(1, is_address_valid(0));
}

TEST(InetCheck, PortLawfulLooksAtLow16Bits)
{
    struct Case {
        unsigned port;
        int result;
    } cases[] = {{0, 0}, {1, 1}, {80, 1}, {65535, 1}, {65536, 0}, {65537, 1}, {0xffff0000u, 0}};
    for (const auto &c : cases)
        EXPECT_EQ(c.result, is_port_lawful(c.port)) << c.port;
}

TEST(InetCheck, DomainValid)
{
    struct Case {
        std::string text;
        int result;
    } cases[] = {
        {"", 1},
        {"example.com1", 0},
        {"a_b.example", 1},
        {"-a.com", 0},
        {std::string(65, 'a'), 0},
        {std::string(64, 'a'), 1},
        {"example.com", 1},
        {".example.com", 0},
        {"example.com.", 0},
        {"[example]", 0},
        {"user@example.com", 1},
        {"@example.com", 0},
        {"example.com@", 0},
        {"exa mple.com", 0},
        {"exa/mple.com", 0},
        {"a", 1},
        {"1", 0},
        {"1a", 1},
        {"_a", 1},
        {"a_", 1},
        {"caf\xc3\xa9.com", 0},
    };
    for (const auto &c : cases)
        EXPECT_EQ(c.result, lawful_exact(c.text, is_domain_valid)) << "\"" << c.text << "\"";
    EXPECT_EQ(0, is_domain_valid(nullptr));
}

TEST(InetCheck, HostnameValid)
{
    struct Case {
        std::string text;
        int result;
    } cases[] = {
        {"", 1},
        {"cam-01", 1},
        {"cam_01", 0},
        {"-cam", 0},
        {"cam-", 0},
        {".cam", 0},
        {"cam.", 0},
        {"cam.local", 1},
        {"1", 1},
        {"cam 01", 0},
        {std::string(255, 'h'), 1},
        {std::string(256, 'h'), 0},
        {"c\xc3\xa4m", 0},
    };
    for (const auto &c : cases)
        EXPECT_EQ(c.result, lawful_exact(c.text, is_hostname_valid)) << "\"" << c.text << "\"";
    EXPECT_EQ(0, is_hostname_valid(nullptr));
}

TEST(InetCheck, PrefixToNetmaskEveryLength)
{
    for (unsigned prefix = 0; prefix < 128; ++prefix) {
        unsigned char m[16];
        memset(m, 0x5a, sizeof m);
        ASSERT_EQ(0, convert_ipv6_prefix_netmask(prefix, m)) << prefix;
        for (unsigned bit = 0; bit < 128; ++bit)
            ASSERT_EQ(bit < prefix ? 1 : 0, (m[bit / 8] >> (7 - bit % 8)) & 1)
                << "prefix " << prefix << " bit " << bit;
        EXPECT_EQ(static_cast<int>(prefix), convert_ipv6_netmask_num(m));
    }
}

TEST(InetCheck, PrefixToNetmaskRefusals)
{
    unsigned char m[16];
    memset(m, 0x5a, sizeof m);
    for (unsigned prefix : {128u, 129u, 1000u, 0xffffffffu})
        EXPECT_EQ(-1, convert_ipv6_prefix_netmask(prefix, m)) << prefix;
    for (unsigned char x : m)
        ASSERT_EQ(0x5a, x); // refused: nothing written
    EXPECT_EQ(-1, convert_ipv6_prefix_netmask(64, nullptr));
}

TEST(InetCheck, NetmaskNum)
{
    struct Case {
        const char *mask;
        int result;
    } cases[] = {
        {"ffff:ffff:ffff:ffff::", 64},
        {"::", 0},
        {"ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff", 128},
        {"ffff:ffff:ffff:ffff:ffff:ffff:ffff:fffe", 127},
        {"ff00::ffff", 8}, // ones after the first zero are not counted
        {"7fff::", 0},
        {"fffe:ffff::", 15},
    };
    for (const auto &c : cases) {
        unsigned char m[16];
        ASSERT_EQ(1, inet_pton(AF_INET6, c.mask, m));
        EXPECT_EQ(c.result, convert_ipv6_netmask_num(m)) << c.mask;
    }
    EXPECT_EQ(-1, convert_ipv6_netmask_num(nullptr));
}
