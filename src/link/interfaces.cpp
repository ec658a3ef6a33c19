// The kernel's interface list, one element per interface, loopback left out.
#include <ifaddrs.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <stdlib.h>
#include <string.h>

#include "inet/text.h"
#include "libnetwork.h"
#include "base/log.h"

namespace
{

bool has_name(const NetIfInfo &e, const char *name)
{
    return strcmp(e.szIfName, name) == 0;
}

// Element numbers by name, so that a long list stays linear: an open-addressing table of
// element number + 1 (0 marks a free slot), at most half full. Short lists, and lists the
// table gets no memory for, use the plain search instead. Names are unique among the
// elements, so both find the same element.
class NameIndex
{
  public:
    explicit NameIndex(unsigned int capacity)
    {
        if (capacity <= kPlainUpTo || capacity > kMaxIndexed)
            return;
        mask_ = 1;
        while (mask_ < 2 * capacity)
            mask_ <<= 1;
        slots_ = static_cast<unsigned int *>(calloc(mask_, sizeof *slots_));
        --mask_;
    }
    ~NameIndex() { free(slots_); }
    NameIndex(const NameIndex &) = delete;
    NameIndex &operator=(const NameIndex &) = delete;

    // The element among the first count that holds name, or null.
    NetIfInfo *find(NetIfInfo *array, unsigned int count, const char *name) const
    {
        if (slots_ == nullptr) {
            for (unsigned int i = 0; i < count; ++i) {
                if (has_name(array[i], name))
                    return &array[i];
            }
            return nullptr;
        }
        for (unsigned int i = hash(name) & mask_; slots_[i] != 0; i = (i + 1) & mask_) {
            if (has_name(array[slots_[i] - 1], name))
                return &array[slots_[i] - 1];
        }
        return nullptr;
    }

    void add(const NetIfInfo *array, unsigned int number)
    {
        if (slots_ == nullptr)
            return;
        unsigned int i = hash(array[number].szIfName) & mask_;
        while (slots_[i] != 0)
            i = (i + 1) & mask_;
        slots_[i] = number + 1;
    }

  private:
    static constexpr unsigned int kPlainUpTo = 32;
    static constexpr unsigned int kMaxIndexed = 1u << 20;

    static unsigned int hash(const char *s) // FNV-1a
    {
        unsigned int h = 2166136261u;
        for (; *s != '\0'; ++s)
            h = (h ^ static_cast<unsigned char>(*s)) * 16777619u;
        return h;
    }

    unsigned int *slots_ = nullptr;
    unsigned int mask_ = 0;
};

// The element already holding this name among the first count, or a new one.
NetIfInfo *element_for(NetIfInfo *array, unsigned int &count, NameIndex &index, const char *name)
{
    NetIfInfo *e = index.find(array, count, name);
    if (e != nullptr)
        return e;
    e = &array[count];
    strncpy(e->szIfName, name, sizeof e->szIfName - 1);
    index.add(array, count++);
    return e;
}

// The library's own formatters print what inet_ntop prints (and both fields always have
// room for the longest text), without the C library's printf machinery.
void put_ipv4(const struct sockaddr *sa, char *out, socklen_t len)
{
    if (sa != nullptr)
        netlib::ntop_ipv4(reinterpret_cast<const unsigned char *>(
                              &reinterpret_cast<const sockaddr_in *>(sa)->sin_addr),
                          out, len);
}

void put_ipv6(const struct sockaddr *sa, char *out, socklen_t len)
{
    if (sa != nullptr)
        netlib::ntop_ipv6(reinterpret_cast<const sockaddr_in6 *>(sa)->sin6_addr.s6_addr, out, len);
}

// Later entries of one family overwrite earlier ones: the last address listed wins.
void fill(NetIfInfo *e, const struct ifaddrs *ifa)
{
    switch (ifa->ifa_addr->sa_family) {
    case AF_INET:
        put_ipv4(ifa->ifa_addr, e->szIpv4Addr, sizeof e->szIpv4Addr);
        put_ipv4(ifa->ifa_netmask, e->szIpv4Mask, sizeof e->szIpv4Mask);
        put_ipv4(ifa->ifa_broadaddr, e->szIpv4Broadcast, sizeof e->szIpv4Broadcast);
        break;
    case AF_INET6:
        put_ipv6(ifa->ifa_addr, e->szIpv6Addr, sizeof e->szIpv6Addr);
        put_ipv6(ifa->ifa_netmask, e->szIpv6Mask, sizeof e->szIpv6Mask);
        break;
    case AF_PACKET:
        memcpy(e->aucMac, reinterpret_cast<const sockaddr_ll *>(ifa->ifa_addr)->sll_addr,
               sizeof e->aucMac);
        break;
    }
}

bool listed(const struct ifaddrs *ifa)
{
    if (ifa->ifa_addr == nullptr || (ifa->ifa_flags & IFF_LOOPBACK) != 0)
        return false;
    int family = ifa->ifa_addr->sa_family;
    return family == AF_INET || family == AF_INET6 || family == AF_PACKET;
}

} // namespace

extern "C" int NET_GetInterfaces(NetIfInfo *pstNetIfArray, unsigned int uiNum)
{
    NET_CHECK_ARGS(0, "pstNetIfArray: %p. \n", pstNetIfArray);
    struct ifaddrs *list = nullptr;
    if (getifaddrs(&list) == -1) {
        NET_LOG(NET_LVL_ERR, "get net interface failed!");
        return 0;
    }
    memset(pstNetIfArray, 0, sizeof(NetIfInfo) * uiNum);
    unsigned int count = 0;
    NameIndex index(uiNum);
    // The bound is tested before each entry: once the last element is taken the walk ends,
    // even if more addresses of that same interface follow.
    for (const struct ifaddrs *ifa = list; ifa != nullptr && count != uiNum; ifa = ifa->ifa_next) {
        if (listed(ifa))
            fill(element_for(pstNetIfArray, count, index, ifa->ifa_name), ifa);
    }
    freeifaddrs(list);
    return static_cast<int>(count);
}
