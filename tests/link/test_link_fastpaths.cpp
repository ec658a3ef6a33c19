// The short cuts of the hot readers against the plain C library calls they replace: the
// interface list through its name index (long lists) and our address formatters, and the
// MAC text without printf. Each result must be exactly what the plain calls give.
#include <arpa/inet.h>
#include <ifaddrs.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <string.h>

#include <string>
#include <vector>

#include "libnetwork.h"
#include "sandbox.h"

namespace
{

// The interface list walked the plain way: linear search, inet_ntop.
std::vector<NetIfInfo> reference_list(unsigned int max)
{
    std::vector<NetIfInfo> out;
    struct ifaddrs *list = nullptr;
    if (getifaddrs(&list) != 0)
        return out;
    for (struct ifaddrs *ifa = list; ifa != nullptr && out.size() != max; ifa = ifa->ifa_next) {
        if (ifa->ifa_addr == nullptr || (ifa->ifa_flags & IFF_LOOPBACK) != 0)
            continue;
        int af = ifa->ifa_addr->sa_family;
        if (af != AF_INET && af != AF_INET6 && af != AF_PACKET)
            continue;
        NetIfInfo *e = nullptr;
        for (auto &x : out)
            if (strcmp(x.szIfName, ifa->ifa_name) == 0)
                e = &x;
        if (e == nullptr) {
            out.emplace_back();
            e = &out.back();
            memset(e, 0, sizeof *e);
            strncpy(e->szIfName, ifa->ifa_name, 15);
        }
        auto v4 = [](const struct sockaddr *sa, char *t) {
            if (sa != nullptr)
                inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in *>(sa)->sin_addr, t, 16);
        };
        auto v6 = [](const struct sockaddr *sa, char *t) {
            if (sa != nullptr)
                inet_ntop(AF_INET6, &reinterpret_cast<const sockaddr_in6 *>(sa)->sin6_addr, t, 46);
        };
        if (af == AF_INET) {
            v4(ifa->ifa_addr, e->szIpv4Addr);
            v4(ifa->ifa_netmask, e->szIpv4Mask);
            v4(ifa->ifa_broadaddr, e->szIpv4Broadcast);
        } else if (af == AF_INET6) {
            v6(ifa->ifa_addr, e->szIpv6Addr);
            v6(ifa->ifa_netmask, e->szIpv6Mask);
        } else {
            memcpy(e->aucMac, reinterpret_cast<const sockaddr_ll *>(ifa->ifa_addr)->sll_addr, 6);
        }
    }
    freeifaddrs(list);
    return out;
}

} // namespace

// Sixty interfaces with IPv4 and IPv6 addresses: more than the plain search serves, so the
// name index is used; whole lists and lists cut by the element count.
TEST(IfFastPaths, LongInterfaceListMatchesThePlainWalk)
{
    REQUIRE_SANDBOX();
    sandbox::sh("sysctl -qw net.ipv6.conf.default.accept_dad=0");
    std::string batch;
    for (int i = 0; i < 30; ++i) {
        std::string a = "fa" + std::to_string(i), b = "fb" + std::to_string(i);
        batch += "link add " + a + " type veth peer name " + b + "\nlink set " + a +
                 " up\nlink set " + b + " up\naddr add 10.77." + std::to_string(i) + ".1/24 dev " +
                 a + "\naddr add 2001:db8:77:" + std::to_string(i) + "::1/64 dev " + b + "\n";
    }
    sandbox::write_file("/tmp/fastpaths.batch", batch);
    sandbox::must("ip -batch /tmp/fastpaths.batch");

    for (unsigned int max : {200u, 61u, 40u, 33u}) {
        SCOPED_TRACE(max);
        std::vector<NetIfInfo> got(max);
        int n = NET_GetInterfaces(got.data(), max);
        std::vector<NetIfInfo> want = reference_list(max);
        ASSERT_EQ(want.size(), static_cast<size_t>(n));
        ASSERT_GE(n, 33);
        for (int i = 0; i < n; ++i)
            EXPECT_EQ(0, memcmp(&want[i], &got[i], sizeof(NetIfInfo))) << want[i].szIfName;
    }
}

// The MAC text for every buffer length: what snprintf would have written, byte for byte.
TEST(IfFastPaths, MacTextIsWhatSnprintfWrites)
{
    REQUIRE_SANDBOX();
    sandbox::veth("mac0", "mac1");
    sandbox::set_mac("mac0", "0a:bc:de:f0:12:9f");
    const unsigned char mac[6] = {0x0a, 0xbc, 0xde, 0xf0, 0x12, 0x9f};
    for (unsigned int len = 0; len <= 20; ++len) {
        SCOPED_TRACE(len);
        char want[24], got[24];
        memset(want, 0x5a, sizeof want);
        memset(got, 0x5a, sizeof got);
        snprintf(want, len, "%02X:%02X:%02X:%02X:%02X:%02X", mac[0], mac[1], mac[2], mac[3], mac[4],
                 mac[5]);
        ASSERT_EQ(0, NET_GetMacAddr("mac0", got, len));
        EXPECT_EQ(0, memcmp(want, got, sizeof want));
    }
}
