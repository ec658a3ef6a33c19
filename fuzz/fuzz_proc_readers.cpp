// The table readers on arbitrary bytes: the input is read as "/proc/net/if_inet6",
// "/proc/net/ipv6_route" and "/etc/resolv.conf" content in turn. Exactly sized heap buffers
// let the sanitizer catch a write past a caller's length; the readers' promises (at most 32
// entries, terminated texts, untouched bytes beyond a length) abort when broken.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "link/proc_tables.h"
#include "libnetwork.h"

using namespace netlib;

namespace
{

struct Input {
    const uint8_t *data;
    size_t size;
};

// A fresh stream over the input; null for empty input (fmemopen wants a size).
FILE *open_input(const Input &in)
{
    if (in.size == 0)
        return nullptr;
    return fmemopen(const_cast<uint8_t *>(in.data), in.size, "r");
}

void check(bool ok, const char *what)
{
    if (!ok) {
        fprintf(stderr, "broken promise: %s\n", what);
        abort();
    }
}

// The list's prefix lookup reads the same bytes as a route table.
int lookup_in_input(void *ctx, const char *pcHexAddr, int *piPrefix)
{
    FILE *fp = open_input(*static_cast<const Input *>(ctx));
    if (fp == nullptr)
        return -1;
    read_ipv6_prefix(fp, "eth0", pcHexAddr, piPrefix);
    fclose(fp);
    return 0;
}

void as_if_inet6(const Input &in)
{
    static NetIpv6AddrList list;
    memset(&list, 0, sizeof list);
    if (FILE *fp = open_input(in)) {
        read_ipv6_list(fp, 2, list, lookup_in_input, const_cast<Input *>(&in));
        fclose(fp);
    }
    check(list.iNum >= 0 && list.iNum <= 32, "list count");
    for (int i = 0; i < list.iNum; ++i)
        check(memchr(list.astAddr[i].szAddr, '\0', sizeof list.astAddr[i].szAddr) != nullptr,
              "terminated address text");

    static NetIpv6AddrInfoList all;
    memset(&all, 0, sizeof all);
    if (FILE *fp = open_input(in)) {
        int n = read_ipv6_all(fp, 2, all);
        check(n >= 0 && n <= 32 && n == all.iNum, "all-address count");
        fclose(fp);
    }

    unsigned char *a1 = static_cast<unsigned char *>(malloc(16));
    unsigned char *a2 = static_cast<unsigned char *>(malloc(16));
    int p1 = 0, p2 = 0;
    if (FILE *fp = open_input(in)) {
        int n = read_ipv6_first_two(fp, 2, a1, &p1, a2, &p2);
        check(n >= -1 && n <= 2, "first-two count");
        fclose(fp);
    }
    free(a1);
    free(a2);
}

void as_ipv6_route(const Input &in)
{
    static const char hex[] = "20010db8000000000000000000000001";
    int prefix = -7;
    if (FILE *fp = open_input(in)) {
        int found = read_ipv6_prefix(fp, "eth0", hex, &prefix);
        check(found == 1 || prefix == -7, "prefix written only when found");
        fclose(fp);
    }
    const NextHop kinds[] = {NextHop::Any, NextHop::NotLinkLocal};
    for (NextHop kind : kinds) {
        unsigned char *hop = static_cast<unsigned char *>(malloc(16));
        if (FILE *fp = open_input(in)) {
            int r = read_ipv6_default_nexthop(fp, "eth0", kind, hop);
            check(r == 0 || r == -1, "next hop result");
            if (r == 0 && kind == NextHop::NotLinkLocal)
                check(!(hop[0] == 0xfe && (hop[1] & 0xc0) == 0x80), "link-local passed over");
            fclose(fp);
        }
        free(hop);
    }
}

void as_resolv(const Input &in)
{
    const char *markers[] = {"# Interface lan", "# Interface lan2"};
    const size_t lens[] = {0, 1, 7, 15, 16};
    for (const char *marker : markers) {
        for (size_t len : lens) {
            // Room for the length plus a guard that must stay untouched.
            char *master = static_cast<char *>(malloc(len + 4));
            char *slave = static_cast<char *>(malloc(len + 4));
            memset(master, 0, len + 4);
            memset(slave, 0, len + 4);
            if (FILE *fp = open_input(in)) {
                read_resolv_block(fp, marker, master, len, slave, len);
                fclose(fp);
            }
            for (size_t i = len; i < len + 4; ++i)
                check(master[i] == 0 && slave[i] == 0, "nothing beyond the caller's length");
            free(master);
            free(slave);
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Input in{data, size};
    as_if_inet6(in);
    as_ipv6_route(in);
    as_resolv(in);
    return 0;
}
