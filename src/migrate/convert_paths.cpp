// The three start-up conversions. Each reads everything into memory first, lets the system
// regenerate "network", and writes the records back through the ordinary setters, so that a
// converted package is always one the setters themselves produce.
#include <string.h>

#include "base/ports.h"
#include "libnetwork.h"
#include "migrate/convert.h"
#include "base/log.h"

using namespace netlib;

namespace
{

// A failed read of the one-interface record counts only when nothing arrived. The IPv6 mode
// is compared with 1: a record left zeroed is not "blank", so it is written as read.
bool still_blank(const NetEtherCfg &cfg)
{
    return cfg.iIpv4Mode == 0 && cfg.szIpv4Addr[0] == '\0' && cfg.iIpv6Mode == 1 &&
           cfg.szIpv6Addr[0] == '\0';
}

int read_current_records(CallSite site, ConvRecords &rec)
{
    // The literal name: the one-interface layout always kept its port as "eth0".
    if (NET_GetEtherCfg(netlib::kEth0, &rec.stEther) != 0 && still_blank(rec.stEther)) {
        NET_LOG_AT(site, NET_LVL_ERR, "get eth configure fail.\n");
        return -1;
    }
    if (NET_GetPortCfg(&rec.stPort) != 0) {
        NET_LOG_AT(site, NET_LVL_ERR, "get port configure fail.\n");
        return -1;
    }
    if (NET_GetDdnsCfg(&rec.stDdns) != 0) {
        NET_LOG_AT(site, NET_LVL_ERR, "get ddns configure fail.\n");
        return -1;
    }
    if (NET_GetPppoeCfg(&rec.stPppoe) != 0) {
        NET_LOG_AT(site, NET_LVL_ERR, "get pppoe configure fail.\n");
        return -1;
    }
    return 0;
}

} // namespace

extern "C" {

int NET_NetConfigOldToNew(void)
{
    ConvRecords rec;
    memset(&rec, 0, sizeof rec);
    if (read_old_records(NET_HERE, rec) != 0)
        return -1;
    regenerate_network();
    if (NET_SetEtherCfg(g_pcLan1Name, &rec.stEther) != 0) {
        NET_LOGT(NET_LVL_ERR, PL_SET_OPTION_ERROR_PRINT, "file: %s.\n", "lan");
        return -1;
    }
    return write_common_records(NET_HERE, rec);
}

int NET_NetConfigOldToDouble(void)
{
    ConvRecords rec;
    memset(&rec, 0, sizeof rec);
    if (read_old_records(NET_HERE, rec) != 0)
        return -1;
    regenerate_network();
    const char *port = settle_port(NET_HERE);
    if (NET_SetEtherCfg(port, &rec.stEther) != 0) {
        NET_LOGT(NET_LVL_ERR, PL_SET_OPTION_ERROR_PRINT, "file: %s, Ifname:%s.\n", "network", port);
        return -1;
    }
    name_port_card(NET_HERE, rec, port);
    return write_common_records(NET_HERE, rec);
}

int NET_NetConfigNewToDouble(void)
{
    ConvRecords rec;
    memset(&rec, 0, sizeof rec);
    if (read_current_records(NET_HERE, rec) != 0)
        return -1;
    regenerate_network();
    const char *port = settle_port(NET_HERE);
    // Unlike the old-to-double path, a refused record does not stop this one: deliberate.
    if (NET_SetEtherCfg(port, &rec.stEther) != 0)
        NET_LOG(NET_LVL_ERR, "NET_SetEtherCfg fail.\n");
    name_port_card(NET_HERE, rec, port);
    return write_common_records(NET_HERE, rec);
}

} // extern "C"
