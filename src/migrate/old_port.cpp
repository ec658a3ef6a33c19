// Service ports of the old layout: package "port" with the device's ports (section "port") and
// the router mapping of the HTTP and RTSP services (section "portmapping", per alias an
// "<alias>_inport" and an "<alias>_extport"); the web server's HTTP listen entries in
// section "main" of "uhttpd".
#include <stdio.h>

#include "libnetwork.h"
#include "migrate/old.h"
#include "base/log.h"

using namespace netlib;

namespace
{

// The HTTPS port is read but, as the port store does, never written back: the web server
// keeps listening where it was told before.
constexpr Field kOldPortFields[] = {
    NET_FIELD(NetPortCfg, "httpport", usHttpPort, FieldKind::Port, kBoth),
    NET_FIELD(NetPortCfg, "httpsport", usHttpsPort, FieldKind::Port, kRead),
    NET_FIELD(NetPortCfg, "rtspport", usRtspPort, FieldKind::Port, kBoth),
};
static_assert(fields_fit(kOldPortFields, sizeof(NetPortCfg)), "old port table");

// The "_inport" options repeat the device's ports: written, never read.
constexpr Field kOldMappingFields[] = {
    NET_FIELD_WORDS(NetPortCfg, "enable", iPortMapEnable, FieldKind::Word, kBoth, kOldBool),
    NET_FIELD(NetPortCfg, "mode", iPortMapMode, FieldKind::Int, kBoth),
    NET_FIELD(NetPortCfg, "HTTP_inport", usHttpPort, FieldKind::Port, kWrite),
    NET_FIELD(NetPortCfg, "HTTP_extport", usExtHttpPort, FieldKind::Port, kBoth),
    NET_FIELD(NetPortCfg, "RTSP_inport", usRtspPort, FieldKind::Port, kWrite),
    NET_FIELD(NetPortCfg, "RTSP_extport", usExtRtspPort, FieldKind::Port, kBoth),
};
static_assert(fields_fit(kOldMappingFields, sizeof(NetPortCfg)), "old port mapping table");

// One entry for every IPv4 and one for every IPv6 address, replacing the old ones.
int write_listen(struct uci_section *sec, unsigned short port)
{
    char v4[32] = {0};
    char v6[32] = {0};
    snprintf(v4, sizeof v4, "0.0.0.0:%d", port);
    snprintf(v6, sizeof v6, "[::]:%d", port);
    NET_DelOption(sec, "listen_http");
    if (NET_SetUciList(sec, "listen_http", v4) != 0 || NET_SetUciList(sec, "listen_http", v6) != 0)
        return -1;
    return 0;
}

} // namespace

extern "C" {

int NET_GetOldPortCfg(NetPortCfg *pstPortCfg)
{
    NET_CHECK_ARGS(-1, "pstPortCfg: %p.\n", pstPortCfg);
    UciPackage pkg;
    if (read_record(open_old_section(NET_HERE, pkg, kOldPortPkg, "port"), kOldPortFields,
                    pstPortCfg) != 0)
        return -1;
    return read_record(find_section(NET_HERE, pkg, "portmapping"), kOldMappingFields, pstPortCfg);
}

int NET_SetOldPortCfg(const NetPortCfg *pstPortCfg)
{
    NET_CHECK_ARGS(-1, "pstPortCfg: %p.\n", pstPortCfg);
    UciPackage pkg;
    if (write_into(open_old_section_for_write(NET_HERE, pkg, kOldPortPkg, "port", "port"),
                   kOldPortFields, pstPortCfg) != 0 ||
        write_record(NET_HERE, pkg,
                     old_section_for_write(NET_HERE, pkg, "portmapping", "portmapping"),
                     kOldMappingFields, pstPortCfg) != 0)
        return -1;
    if (NET_SetOldUhttpdCfg(pstPortCfg->usHttpPort) != 0) {
        NET_LOG(NET_LVL_ERR, "NET_SetOldUhttpdCfg fail.\n");
        return -1;
    }
    return 0;
}

int NET_SetOldUhttpdCfg(unsigned short usHttpPort)
{
    UciPackage pkg;
    struct uci_section *sec =
        open_old_section_for_write(NET_HERE, pkg, kUhttpdPkg, "uhttpd", "main");
    if (sec == nullptr || write_listen(sec, usHttpPort) != 0)
        return -1;
    return commit_logged(NET_HERE, pkg);
}

} // extern "C"
