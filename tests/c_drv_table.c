/* A C caller of the driver table: takes it from createNetInterface and calls entries by
 * position only (entry N is word N-1), as applications that do not link by name do.
 * Usage: c_drv_table IFNAME NEIGHBOUR_IPV4 FREE_IPV4 MODE
 *   MODE "network": the package exists (entries 11/12 are the present pair);
 *   MODE "older": no package (entries 11/12 are the older pair).
 * Prints one line per check and exits 0 when every check holds. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "libnetwork.h"

typedef void (*Word)(void);

static int failures = 0;

static void check(int ok, const char *what)
{
    printf("%s %s\n", ok ? "ok" : "FAIL", what);
    if (!ok)
        ++failures;
}

int main(int argc, char **argv)
{
    NetDriverInterface *table = NULL;
    Word *w;
    const char *ifname, *neighbour, *freeip;
    int older;
    char buf[64], buf2[64];
    int num = 0, mtu = 0, mode = 0, prefix = 0, coll = -1;
    double ms = -1;

    if (argc != 5)
        return 2;
    ifname = argv[1];
    neighbour = argv[2];
    freeip = argv[3];
    older = strcmp(argv[4], "older") == 0;
    if (createNetInterface(&table) != 0 || table == NULL)
        return 3;
    w = (Word *)table;

    memset(buf, 0, sizeof buf);
    check(((int (*)(char *, unsigned int, int *))w[1])(buf, sizeof buf, &num) == 0 && num == 2 &&
              strcmp(buf, "lan1::lan2") == 0,
          "entry 2 names");
    check(((int (*)(const char *, char *, unsigned int))w[2])(ifname, buf, sizeof buf) == 0 &&
              strlen(buf) == 17,
          "entry 3 mac");
    check(((int (*)(const char *, int))w[3])(ifname, 1400) == 0, "entry 4 set mtu");
    check(((int (*)(const char *, int *))w[4])(ifname, &mtu) == 0 && mtu == 1400, "entry 5 mtu");
    check(((int (*)(const char *, char *, unsigned int, char *, unsigned int))w[6])(
              ifname, buf, sizeof buf, buf2, sizeof buf2) == 0 &&
              strcmp(buf2, "255.255.255.0") == 0,
          "entry 7 address and mask");
    check(((int (*)(const char *))w[9])(ifname) == 0, "entry 10 link up");
    check(((int (*)(const char *))w[9])("nosuchdev") == -1, "entry 10 no link");
    check(((int (*)(const char *, int))w[50])("tap0", 9) == 0, "entry 51 mode 9 sets auto");
    check(((int (*)(const char *, int *))w[51])("tap0", &mode) == 0 && mode == 0,
          "entry 52 reads auto");
    check(((int (*)(const char *, char *, unsigned int, int *))w[14])(ifname, buf, sizeof buf,
                                                                      &prefix) == 0 &&
              strcmp(buf, "2001:db8:1::10") == 0 && prefix == 64,
          "entry 15 first address not from router advertisement");
    check(((int (*)(const char *, const char *, int *))w[47])(ifname, neighbour, &coll) == 0 &&
              coll == 1,
          "entry 48 collision with the neighbour");
    coll = 7;
    check(((int (*)(const char *, const char *, int *))w[47])(ifname, freeip, &coll) == 0 &&
              coll == 7,
          "entry 48 free address");
    check(((int (*)(const char *, const char *, double *))w[55])(ifname, neighbour, &ms) == 0 &&
              ms > 0,
          "entry 56 ping");
    check(((int (*)(const char *, const char *, const char *))w[46])(ifname, "9.9.9.9", NULL) == 0,
          "entry 47 set dns");
    memset(buf, 0, sizeof buf);
    memset(buf2, 0, sizeof buf2);
    check(((int (*)(const char *, char *, unsigned int, char *, unsigned int))w[45])(
              ifname, buf, sizeof buf, buf2, sizeof buf2) == 0 &&
              strcmp(buf, "9.9.9.9") == 0,
          "entry 46 dns");
    check(((int (*)(const char *))w[11])("lan2") == 0, "entry 12 set default card");
    memset(buf, 0, sizeof buf);
    check(((int (*)(char *, unsigned int))w[10])(buf, sizeof buf) == 0 &&
              strcmp(buf, older ? "lan2" : "lan2") == 0,
          "entry 11 default card");
    {
        int i, nulls = 1;
        for (i = 17; i < 45; ++i)
            nulls = nulls && w[i] == NULL;
        check(nulls, "entries 18 to 45 null");
    }
    check(w[10] == (Word)(older ? (Word)drv_net_GetDefaultEth : (Word)drv_net_GetDefNetCard),
          "entry 11 is the expected reader");
    check(w[11] == (Word)(older ? (Word)drv_net_SetDefaultEth : (Word)NET_SetDefNetCard),
          "entry 12 is the expected writer");
    free(table);
    return failures == 0 ? 0 : 1;
}
