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
void read_ports(struct uci_section *sec, NetPortCfg &cfg)
{
    read_port(sec, "httpport", &cfg.usHttpPort);
    read_port(sec, "httpsport", &cfg.usHttpsPort);
    read_port(sec, "rtspport", &cfg.usRtspPort);
}

void read_mapping(struct uci_section *sec, NetPortCfg &cfg)
{
    read_bool(sec, "enable", &cfg.iPortMapEnable);
    read_int(sec, "mode", &cfg.iPortMapMode);
    read_port(sec, "HTTP_extport", &cfg.usExtHttpPort);
    read_port(sec, "RTSP_extport", &cfg.usExtRtspPort);
}

int write_ports(struct uci_section *sec, const NetPortCfg &cfg)
{
    if (write_int(sec, "httpport", cfg.usHttpPort) != 0 ||
        write_int(sec, "rtspport", cfg.usRtspPort) != 0)
        return -1;
    return 0;
}

int write_mapping(struct uci_section *sec, const NetPortCfg &cfg)
{
    if (write_bool(sec, "enable", cfg.iPortMapEnable) != 0 ||
        write_int(sec, "mode", cfg.iPortMapMode) != 0 ||
        write_int(sec, "HTTP_inport", cfg.usHttpPort) != 0 ||
        write_int(sec, "HTTP_extport", cfg.usExtHttpPort) != 0 ||
        write_int(sec, "RTSP_inport", cfg.usRtspPort) != 0 ||
        write_int(sec, "RTSP_extport", cfg.usExtRtspPort) != 0)
        return -1;
    return 0;
}

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
    struct uci_section *sec = open_old_section(NET_HERE, pkg, kOldPortPkg, "port");
    if (sec == nullptr)
        return -1;
    read_ports(sec, *pstPortCfg);
    sec = find_section(NET_HERE, pkg, "portmapping");
    if (sec == nullptr)
        return -1;
    read_mapping(sec, *pstPortCfg);
    return 0;
}

int NET_SetOldPortCfg(const NetPortCfg *pstPortCfg)
{
    NET_CHECK_ARGS(-1, "pstPortCfg: %p.\n", pstPortCfg);
    UciPackage pkg;
    struct uci_section *sec =
        open_old_section_for_write(NET_HERE, pkg, kOldPortPkg, "port", "port");
    if (sec == nullptr || write_ports(sec, *pstPortCfg) != 0)
        return -1;
    sec = old_section_for_write(NET_HERE, pkg, "portmapping", "portmapping");
    if (sec == nullptr || write_mapping(sec, *pstPortCfg) != 0)
        return -1;
    if (commit_logged(NET_HERE, pkg) != 0)
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
