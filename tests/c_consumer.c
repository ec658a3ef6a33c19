/* A C99 caller that sees only the public header and links only the library. */
#include <stdio.h>
#include <string.h>

#include "libnetwork.h"

int main(void)
{
    NetIfNames names;
    NetDriverInterface table;
    memset(&names, 0, sizeof names);
    memset(&table, 0, sizeof table);
    if (NET_Init() != 0 || NET_GetIntfNames(&names) != 0 || names.iIfNum < 1) {
        fprintf(stderr, "frame calls failed\n");
        return 1;
    }
    if (NET_GetIntfNames(NULL) != -1 || g_pcLan1Name == NULL) {
        fprintf(stderr, "null record accepted\n");
        return 1;
    }
    printf("first interface %s, %d interface(s), table of %u entries\n", names.szFirstName,
           (int)names.iIfNum, (unsigned)(sizeof table / sizeof table.pfnReserved1));
    return 0;
}
