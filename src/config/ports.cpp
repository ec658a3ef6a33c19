// Service ports ("port" section) and their port mapping on the router ("portmapping"), kept
// as one record. Both sections must exist already; nothing here creates them.
#include "config/uci_access.h"
#include "libnetwork.h"
#include "base/log.h"

using namespace netlib;

namespace
{

constexpr uint16_t kSdcPort = 8000;       // not stored: always this
constexpr uint16_t kDefPriSrvPort = 9000; // when "prisrvport" / "extprisrvport" are absent
constexpr int kMapModeStandard = 0;       // external ports are the standard ones below
constexpr int kStdExtPorts[] = {80, 554, 443, 8000}; // HTTP, RTSP, HTTPS, SDC

void read_ports(struct uci_section *sec, NetPortCfg *cfg)
{
    read_port(sec, "httpport", &cfg->usHttpPort);
    read_port(sec, "rtspport", &cfg->usRtspPort);
    read_port(sec, "httpsport", &cfg->usHttpsPort);
    cfg->usSdcPort = kSdcPort;
    cfg->usPriSrvPort = kDefPriSrvPort;
    read_port(sec, "prisrvport", &cfg->usPriSrvPort);
}

void read_mapping(struct uci_section *sec, NetPortCfg *cfg)
{
    read_int(sec, "enable", &cfg->iPortMapEnable);
    read_int(sec, "mode", &cfg->iPortMapMode);
    // Full size of the field: its last byte stays as the caller zeroed it.
    NET_GetOption(sec, "alias", cfg->szAlias, sizeof cfg->szAlias);
    read_port(sec, "exthttpport", &cfg->usExtHttpPort);
    read_port(sec, "extrtspport", &cfg->usExtRtspPort);
    read_port(sec, "exthttpsport", &cfg->usExtHttpsPort);
    read_port(sec, "extsdcport", &cfg->usExtSdcPort);
    cfg->usExtPriSrvPort = kDefPriSrvPort;
    read_port(sec, "extprisrvport", &cfg->usExtPriSrvPort);
}

// "httpsport" and "prisrvport" are deliberately not written, although they are read.
int write_ports(struct uci_section *sec, const NetPortCfg &cfg)
{
    if (write_int(sec, "httpport", cfg.usHttpPort) != 0 ||
        write_int(sec, "rtspport", cfg.usRtspPort) != 0)
        return -1;
    return 0;
}

// "extprisrvport" is deliberately not written.
int write_mapping(struct uci_section *sec, const NetPortCfg &cfg)
{
    if (write_int(sec, "enable", cfg.iPortMapEnable) != 0 ||
        write_int(sec, "mode", cfg.iPortMapMode) != 0 ||
        write_text(sec, "alias", cfg.szAlias, sizeof cfg.szAlias) != 0)
        return -1;
    const bool standard = cfg.iPortMapMode == kMapModeStandard;
    const int ext[] = {
        standard ? kStdExtPorts[0] : cfg.usExtHttpPort,
        standard ? kStdExtPorts[1] : cfg.usExtRtspPort,
        standard ? kStdExtPorts[2] : cfg.usExtHttpsPort,
        standard ? kStdExtPorts[3] : cfg.usExtSdcPort,
    };
    const char *const names[] = {"exthttpport", "extrtspport", "exthttpsport", "extsdcport"};
    for (size_t i = 0; i < sizeof ext / sizeof ext[0]; ++i) {
        if (write_int(sec, names[i], ext[i]) != 0)
            return -1;
    }
    return 0;
}

} // namespace

extern "C" {

int NET_GetPortCfg(NetPortCfg *pstPortCfg)
{
    NET_CHECK_ARGS(-1, "pstPortCfg: %p.\n", pstPortCfg);
    UciPackage pkg;
    struct uci_section *sec = open_section(NET_HERE, pkg, "port");
    if (sec == nullptr)
        return -1;
    read_ports(sec, pstPortCfg);
    // A missing "portmapping" fails the call; the port fields stay filled.
    sec = find_section(NET_HERE, pkg, "portmapping");
    if (sec == nullptr)
        return -1;
    read_mapping(sec, pstPortCfg);
    return 0;
}

int NET_SetPortCfg(NetPortCfg stPortCfg)
{
    UciPackage pkg;
    struct uci_section *sec = open_section(NET_HERE, pkg, "port");
    if (sec == nullptr || write_ports(sec, stPortCfg) != 0)
        return -1;
    sec = find_section(NET_HERE, pkg, "portmapping");
    if (sec == nullptr || write_mapping(sec, stPortCfg) != 0)
        return -1;
    return commit_logged(NET_HERE, pkg);
}

// Kept as an exported placeholder: the mapping is read with NET_GetPortCfg.
int NET_GetPortMappingCfg(unsigned short usPort, void *pvMapping)
{
    (void)usPort;
    (void)pvMapping;
    return 0;
}

} // extern "C"
