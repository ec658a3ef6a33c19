// "/etc/resolv.conf" in blocks, one per interface, each opened by "# Interface <section>":
// the servers of one interface can be replaced without losing the other's.
#include <stdio.h>
#include <string.h>

#include "link/proc_tables.h"
#include "libnetwork.h"
#include "base/log.h"
#include "base/ports.h"

// The fixed public resolver pair written on one-interface devices: a build setting.
#ifndef NETLIB_PUBLIC_DNS1
#define NETLIB_PUBLIC_DNS1 "8.8.8.8"
#endif
#ifndef NETLIB_PUBLIC_DNS2
#define NETLIB_PUBLIC_DNS2 "8.8.4.4"
#endif

using namespace netlib;

namespace
{

constexpr const char kPublicDns1[] = NETLIB_PUBLIC_DNS1;
constexpr const char kPublicDns2[] = NETLIB_PUBLIC_DNS2;

bool is_double_intf()
{
    return CAP_IsDoubleIntfSupport() != 0;
}

// "0.0.0.0", "::" and the empty text mean no server: never written. Nor is a text that spans
// lines: it names no server, and would write lines of its own into the resolver's file.
bool names_server(const char *s)
{
    return s != nullptr && s[0] != '\0' && strcmp(s, "0.0.0.0") != 0 && strcmp(s, "::") != 0 &&
           strpbrk(s, "\r\n") == nullptr;
}

void write_servers(FILE *fp, const char *pcMaster, const char *pcSlave)
{
    if (names_server(pcMaster))
        fprintf(fp, "nameserver %s\n", pcMaster);
    if (names_server(pcSlave))
        fprintf(fp, "nameserver %s\n", pcSlave);
}

// Not when a server is missing (null) or already names this public resolver.
void write_public(FILE *fp, const char *pcMaster, const char *pcSlave, const char *pcPublic)
{
    if (pcMaster == nullptr || pcSlave == nullptr || strcmp(pcMaster, pcPublic) == 0 ||
        strcmp(pcSlave, pcPublic) == 0)
        return;
    fprintf(fp, "nameserver %s\n", pcPublic);
}

// An interface's present servers as two "nameserver" lines. A missing server leaves the
// line "nameserver " with nothing behind it, which is kept.
void keep_servers(const char *pcIfName, char *pcOut, unsigned int uiLen)
{
    char master[32] = {0};
    char slave[32] = {0};
    // One short of the buffers: the reader adds no terminator.
    if (NET_GetDnsServer(pcIfName, master, sizeof master - 1, slave, sizeof slave - 1) == 0)
        snprintf(pcOut, uiLen, "nameserver %s\nnameserver %s\n", master, slave);
}

} // namespace

extern "C" {

int NET_GetDnsServer(const char *pcIfName, char *pcMaster, unsigned int uiMasterLen, char *pcSlave,
                     unsigned int uiSlaveLen)
{
    NET_CHECK_ARGS(-1, "pcIfName: %p, pcMaster: %p, pcSlave: %p. \n", pcIfName, pcMaster, pcSlave);
    UniqueFile fp(fopen(kResolvPath, "r"));
    if (fp.get() == nullptr)
        return -1;
    char marker[128];
    snprintf(marker, sizeof marker, "# Interface %s", netlib::uci_section_of(pcIfName));
    read_resolv_block(fp.get(), marker, pcMaster, uiMasterLen, pcSlave, uiSlaveLen);
    return 0;
}

int net_GetExistNameserver(char *pcNameserver1, unsigned int uiLen1, char *pcNameserver2,
                           unsigned int uiLen2)
{
    NET_CHECK_ARGS(-1, "pcNameserver1: %p, pcNameserver2: %p \n", pcNameserver1, pcNameserver2);
    keep_servers(g_pcLan1Name, pcNameserver1, uiLen1);
    if (is_double_intf())
        keep_servers(netlib::kLan2, pcNameserver2, uiLen2);
    return 0;
}

int NET_EnableDnsServer(const char *pcIfName, const char *pcMaster, const char *pcSlave)
{
    if (pcIfName == nullptr || (pcMaster == nullptr && pcSlave == nullptr)) {
        NET_LOGT(NET_LVL_ERR, PL_PARAM_ERROR_PRINT, "\n");
        return -1;
    }
    char kept1[128] = {0};
    char kept2[128] = {0};
    net_GetExistNameserver(kept1, sizeof kept1, kept2, sizeof kept2);

    // From here the old content is gone: whatever is written below is the new file.
    UniqueFile fp(fopen(kResolvPath, "w"));
    if (fp.get() == nullptr) {
        NET_LOG(NET_LVL_ERR, "Open dns config file failed. \n");
        return -1;
    }
    bool twoIntf = is_double_intf();
    if (strcmp(pcIfName, g_pcLan1Name) == 0) {
        fprintf(fp.get(), "# Interface %s\n", netlib::uci_section_of(g_pcLan1Name));
        write_servers(fp.get(), pcMaster, pcSlave);
        if (!twoIntf) {
            write_public(fp.get(), pcMaster, pcSlave, kPublicDns1);
            write_public(fp.get(), pcMaster, pcSlave, kPublicDns2);
        } else {
            fprintf(fp.get(), "# Interface %s\n%s", netlib::uci_section_of(netlib::kLan2), kept2);
        }
    } else if (twoIntf) {
        fprintf(fp.get(), "# Interface %s\n%s", netlib::uci_section_of(g_pcLan1Name), kept1);
        // The new servers go under "lan2" whatever other name was passed.
        fprintf(fp.get(), "# Interface %s\n", netlib::uci_section_of(netlib::kLan2));
        write_servers(fp.get(), pcMaster, pcSlave);
    }
    // A one-interface device and another name: callers find the file emptied.
    return 0;
}

int NET_SetDnsServer(const char *pcIfName, const char *pcMaster, const char *pcSlave)
{
    if (pcIfName == nullptr || (pcMaster == nullptr && pcSlave == nullptr)) {
        NET_LOGT(NET_LVL_ERR, PL_PARAM_ERROR_PRINT, "\n");
        return -1;
    }
    if (NET_EnableDnsServer(pcIfName, pcMaster, pcSlave) != 0) {
        NET_LOG(NET_LVL_ERR, "set dns err\n");
        return -1;
    }
    return 0;
}

int create_resolv_file(void)
{
    // Stays exported for old callers with no effect: the file is written by
    // NET_EnableDnsServer alone.
    char servers[2][32];
    memset(servers, 0, sizeof servers);
    int named = 0;
    for (const char *s : servers)
        named += names_server(s) ? 1 : 0;
    (void)named;
    return 0;
}

} // extern "C"
