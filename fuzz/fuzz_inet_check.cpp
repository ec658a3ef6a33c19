// The lawfulness checks and the quick text tests on arbitrary input: no read past the
// text's end (the sanitizer watches an exactly sized copy), and the answers agree with
// each other where they must.
#include <arpa/inet.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "fuzz_support.h"
#include "libnetwork.h"

using fuzzsupport::require;

namespace
{

uint32_t word(const uint8_t *d)
{
    uint32_t w;
    memcpy(&w, d, sizeof w);
    return w;
}

void check_texts(const char *t)
{
    unsigned char a6[16];
    uint32_t a4 = 0;
    int v4 = is_string_ipaddr_ipv4(t, &a4);
    int v6 = is_string_ipaddr_ipv6(t, a6);
    require(v4 == (inet_pton(AF_INET, t, a6) == 1), "is_string_ipaddr_ipv4");
    require(!(v4 && v6), "a text both IPv4 and IPv6");

    uint32_t m = 0;
    int mc = is_stringip_multicast(t, &m);
    require(!mc || v4, "multicast without an address");
    require(!v6 || is_stringip_ipv6(t) || strlen(t) > 39, "IPv6 text without two colons");

    int lawful = is_ipaddr_lawful(t);
    (void)lawful;
    int dom = is_domain_valid(t);
    int host = is_hostname_valid(t);
    require(!(host && t[0] != '\0' && strchr(t, '_') != nullptr), "host name with _");
    (void)dom;

    int any = INET_IsIpaddrValid(t);
    int ip4 = INET_IsIpv4AddrValid(t);
    int ip6 = INET_IsIpv6AddrValid(t);
    require(any == (ip4 || ip6), "INET_IsIpaddrValid");
    require(!ip4 || v4, "INET_IsIpv4AddrValid");
    require(!ip6 || v6, "INET_IsIpv6AddrValid");

    require(check_str_ipv4(t) == (v4 ? 0 : -1), "check_str_ipv4");
    require(check_str_ipv6(t) == (v6 ? 0 : -1), "check_str_ipv6");
    require(is_v6_addr_valid(t) == ip6, "is_v6_addr_valid");
    require(!is_v6_addr_multicast(t) || (v6 && a6[0] == 0xff), "is_v6_addr_multicast");
    require(!is_stringipv6_multicast(t, a6) || v6, "is_stringipv6_multicast");
    require(!is_v6_mask_valid(t) || v6, "is_v6_mask_valid");
}

void check_numbers(const uint8_t *d)
{
    uint32_t ip = word(d), mask = word(d + 4);
    is_mask_valid(mask);
    require(!is_ip_valid(ip, mask) || ip == 0 || is_address_valid(ip), "is_ip_valid");
    require(is_port_lawful(word(d + 8)) == ((word(d + 8) & 0xffff) != 0), "is_port_lawful");

    unsigned prefix = d[12];
    unsigned char m[16];
    int r = convert_ipv6_prefix_netmask(prefix, m);
    require((r == 0) == (prefix < 128), "convert_ipv6_prefix_netmask");
    if (r == 0)
        require(convert_ipv6_netmask_num(m) == static_cast<int>(prefix), "netmask round trip");
    require(convert_ipv6_netmask_num(d) <= 128, "convert_ipv6_netmask_num");
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    setenv("NETLIB_LOG", "none", 1);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    char *text = static_cast<char *>(malloc(size + 1));
    memcpy(text, data, size);
    text[size] = '\0';
    check_texts(text);
    free(text);
    if (size >= 16)
        check_numbers(data);
    return 0;
}
