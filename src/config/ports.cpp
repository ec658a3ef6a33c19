// Service ports ("port" section) and their port mapping on the router ("portmapping"), kept
// as one record. Both sections must exist already; nothing here creates them.
#include "config/fields.h"
#include "config/uci_access.h"
#include "libnetwork.h"
#include "base/log.h"

using namespace netlib;

namespace
{

constexpr int kSdcPort = 8000;       // not stored: always this
constexpr int kDefPriSrvPort = 9000; // when "prisrvport" / "extprisrvport" are absent
constexpr int kMapModeStandard = 0;  // external ports are the standard ones below
constexpr uint16_t kStdExtHttp = 80, kStdExtRtsp = 554, kStdExtHttps = 443, kStdExtSdc = 8000;

// "httpsport" and "prisrvport" are read but deliberately never written.
constexpr Field kPortFields[] = {
    NET_FIELD(NetPortCfg, "httpport", usHttpPort, FieldKind::Port, kBoth),
    NET_FIELD(NetPortCfg, "rtspport", usRtspPort, FieldKind::Port, kBoth),
    NET_FIELD(NetPortCfg, "httpsport", usHttpsPort, FieldKind::Port, kRead),
    NET_FIELD_PRESET(NetPortCfg, "", usSdcPort, FieldKind::Port, kRead, kSdcPort),
    NET_FIELD_PRESET(NetPortCfg, "prisrvport", usPriSrvPort, FieldKind::Port, kRead,
                     kDefPriSrvPort),
};
static_assert(fields_fit(kPortFields, sizeof(NetPortCfg)), "port table");

// "extprisrvport" is read but deliberately never written.
constexpr Field kMappingFields[] = {
    NET_FIELD(NetPortCfg, "enable", iPortMapEnable, FieldKind::Int, kBoth),
    NET_FIELD(NetPortCfg, "mode", iPortMapMode, FieldKind::Int, kBoth),
    NET_FIELD(NetPortCfg, "alias", szAlias, FieldKind::Text, kBoth),
    NET_FIELD(NetPortCfg, "exthttpport", usExtHttpPort, FieldKind::Port, kBoth),
    NET_FIELD(NetPortCfg, "extrtspport", usExtRtspPort, FieldKind::Port, kBoth),
    NET_FIELD(NetPortCfg, "exthttpsport", usExtHttpsPort, FieldKind::Port, kBoth),
    NET_FIELD(NetPortCfg, "extsdcport", usExtSdcPort, FieldKind::Port, kBoth),
    NET_FIELD_PRESET(NetPortCfg, "extprisrvport", usExtPriSrvPort, FieldKind::Port, kRead,
                     kDefPriSrvPort),
};
static_assert(fields_fit(kMappingFields, sizeof(NetPortCfg)), "port mapping table");

// In the standard mode the router forwards the standard ports, whatever the record says.
int write_mapping(struct uci_section *sec, NetPortCfg cfg)
{
    if (cfg.iPortMapMode == kMapModeStandard) {
        cfg.usExtHttpPort = kStdExtHttp;
        cfg.usExtRtspPort = kStdExtRtsp;
        cfg.usExtHttpsPort = kStdExtHttps;
        cfg.usExtSdcPort = kStdExtSdc;
    }
    return write_fields(sec, kMappingFields, &cfg);
}

} // namespace

extern "C" {

int NET_GetPortCfg(NetPortCfg *pstPortCfg)
{
    NET_CHECK_ARGS(-1, "pstPortCfg: %p.\n", pstPortCfg);
    UciPackage pkg;
    // A missing "portmapping" fails the call; the port fields stay filled.
    if (read_record(open_section(NET_HERE, pkg, "port"), kPortFields, pstPortCfg) != 0)
        return -1;
    return read_record(find_section(NET_HERE, pkg, "portmapping"), kMappingFields, pstPortCfg);
}

int NET_SetPortCfg(NetPortCfg stPortCfg)
{
    UciPackage pkg;
    if (write_into(open_section(NET_HERE, pkg, "port"), kPortFields, &stPortCfg) != 0)
        return -1;
    struct uci_section *sec = find_section(NET_HERE, pkg, "portmapping");
    if (sec == nullptr || write_mapping(sec, stPortCfg) != 0)
        return -1;
    return commit_logged(NET_HERE, pkg);
}

// Answers 0 and fills nothing: callers read the mapping with NET_GetPortCfg.
int NET_GetPortMappingCfg(unsigned short usPort, void *pvMapping)
{
    (void)usPort;
    (void)pvMapping;
    return 0;
}

// The older name: forwards with the port narrowed to 16 bits and the first value only.
int NET_GetPortMapping(int iPort, void *pvArg1, void *pvArg2, void *pvArg3)
{
    (void)pvArg2;
    (void)pvArg3;
    return NET_GetPortMappingCfg(static_cast<unsigned short>(iPort), pvArg1);
}

} // extern "C"
