// Whether a value may be used as a device setting: address text, binary address and mask,
// port, domain and host names, IPv6 prefix and netmask. Pure, silent, thread-safe.
#include <arpa/inet.h>
#include <string.h>

#include "libnetwork.h"

namespace
{

// Only the first 20 characters of an address text are looked at.
constexpr int kLawfulScan = 20;
constexpr size_t kDomainMax = 64;
constexpr size_t kHostnameMax = 255;

// The POSIX-locale classes, whatever locale the application has set.
bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}
bool is_alnum(char c)
{
    return is_digit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

// First octet of an address held in network order, whatever the host's byte order.
unsigned first_octet(uint32_t uiAddr)
{
    unsigned char b[4];
    memcpy(b, &uiAddr, sizeof b);
    return b[0];
}

bool first_octet_usable(unsigned o)
{
    return o != 0 && o != 127 && o < 224 && (o & 0xf0) != 0xe0;
}

// One "%d" of the address text: spaces skipped, then at least one digit. Large values
// saturate above 255 (enough to refuse them) instead of overflowing.
const char *read_number(const char *p, const char *end, unsigned *out)
{
    while (p < end && *p == ' ')
        ++p;
    if (p == end || !is_digit(*p))
        return nullptr;
    unsigned v = 0;
    for (; p < end && is_digit(*p); ++p)
        v = v > 255 ? v : v * 10 + static_cast<unsigned>(*p - '0');
    *out = v;
    return p;
}

bool is_domain_edge(char c)
{
    return c == '-' || c == '.' || c == '[' || c == ']' || c == '@';
}

bool is_domain_char(char c)
{
    return is_alnum(c) || c == '-' || c == '_' || c == '.' || c == '[' || c == ']' || c == '@';
}

} // namespace

extern "C" {

int is_ipaddr_lawful(const char *pcIpAddr)
{
    if (pcIpAddr == nullptr)
        return 0;
    // Characters from the 21st on are never examined, so a text may carry anything there.
    int len = 0;
    int dots = 0;
    for (; len < kLawfulScan && pcIpAddr[len] != '\0'; ++len) {
        char c = pcIpAddr[len];
        if (c == '.')
            ++dots;
        else if (c != ' ' && !is_digit(c))
            return 0;
    }
    if (dots != 3)
        return 0;
    // "%d.%d.%d.%d" over the examined characters; a number that is not there refuses.
    const char *p = pcIpAddr;
    const char *end = pcIpAddr + len;
    unsigned n[4];
    for (int i = 0; i < 4; ++i) {
        if (i > 0) {
            if (p == end || *p != '.')
                return 0;
            ++p;
        }
        p = read_number(p, end, &n[i]);
        if (p == nullptr || n[i] > 255)
            return 0;
    }
    // The unset address is lawful deliberately; otherwise an address ending in .0 is not.
    if (n[0] == 0 && n[1] == 0 && n[2] == 0 && n[3] == 0)
        return 1;
    return n[3] != 0 ? 1 : 0;
}

int is_mask_valid(uint32_t uiMask)
{
    if (uiMask == 0)
        return 0;
    uint32_t m = ntohl(uiMask);
    uint32_t inv = ~m;
    if ((inv & (inv + 1)) != 0)
        return 0;
    // The two longest masks are refused on purpose.
    return (m == 0xffffffffu || m == 0xfffffffeu) ? 0 : 1;
}

int is_ip_valid(uint32_t uiAddr, uint32_t uiMask)
{
    if (uiAddr == 0)
        return 1;
    uint32_t host = uiAddr & ~uiMask;
    if (host == 0 || host == ~uiMask)
        return 0;
    return first_octet_usable(first_octet(uiAddr)) ? 1 : 0;
}

int is_address_valid(uint32_t uiAddr)
{
    if (uiAddr == 0)
        return 1;
    return first_octet_usable(first_octet(uiAddr)) ? 1 : 0;
}

int is_port_lawful(unsigned int uiPort)
{
    return (uiPort & 0xffffu) != 0 ? 1 : 0;
}

int is_domain_valid(const char *pcDomain)
{
    if (pcDomain == nullptr)
        return 0;
    if (pcDomain[0] == '\0')
        return 1;
    size_t len = strnlen(pcDomain, kDomainMax + 1);
    if (len > kDomainMax)
        return 0;
    char last = pcDomain[len - 1];
    if (is_domain_edge(pcDomain[0]) || is_domain_edge(last) || is_digit(last))
        return 0;
    for (size_t i = 0; i < len; ++i) {
        if (!is_domain_char(pcDomain[i]))
            return 0;
    }
    return 1;
}

int is_hostname_valid(const char *pcHostName)
{
    if (pcHostName == nullptr)
        return 0;
    if (pcHostName[0] == '\0')
        return 1;
    size_t len = strnlen(pcHostName, kHostnameMax + 1);
    if (len > kHostnameMax)
        return 0;
    char first = pcHostName[0];
    char last = pcHostName[len - 1];
    if (first == '-' || first == '.' || last == '-' || last == '.')
        return 0;
    for (size_t i = 0; i < len; ++i) {
        char c = pcHostName[i];
        if (!is_alnum(c) && c != '-' && c != '.')
            return 0;
    }
    return 1;
}

int is_support_ipv6(void)
{
    return 1;
}

int convert_ipv6_prefix_netmask(unsigned int uiPrefix, void *pvMask)
{
    if (pvMask == nullptr)
        return -1;
    unsigned whole = uiPrefix / 8;
    // 128 and above are refused on purpose: the mask never has all 16 bytes set.
    if (whole > 15)
        return -1;
    unsigned char mask[16] = {0};
    memset(mask, 0xff, whole);
    mask[whole] = static_cast<unsigned char>(0xff00u >> (uiPrefix % 8));
    memcpy(pvMask, mask, sizeof mask);
    return 0;
}

int convert_ipv6_netmask_num(const void *pvMask)
{
    if (pvMask == nullptr)
        return -1;
    const unsigned char *m = static_cast<const unsigned char *>(pvMask);
    int n = 0;
    // Ones after the first zero bit are not counted: a broken mask is not an error here.
    for (int i = 0; i < 16; ++i) {
        for (int bit = 7; bit >= 0; --bit) {
            if (((m[i] >> bit) & 1) == 0)
                return n;
            ++n;
        }
    }
    return n;
}

} // extern "C"
