// Steps the start-up conversions share: reading the old records, regenerating the package,
// waiting for the cabled port, and writing the records that every layout keeps alike.
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "base/ports.h"
#include "libnetwork.h"
#include "migrate/convert.h"
#include "base/log.h"

namespace netlib
{

namespace
{

using netlib::kLan2;
constexpr unsigned int kRestartWaitSec = 3;
constexpr int kLinkAttempts = 5;

struct LinkStates {
    int first = 0;
    int second = 0;
};

// At most five attempts one second apart; an attempt whose read fails goes on at once.
void wait_for_link(CallSite site, LinkStates &st)
{
    for (int attempt = 0; attempt < kLinkAttempts; ++attempt) {
        if (NET_GetPortLinkStatus(g_pcLan1Name, &st.first) != 0) {
            NET_LOG_AT(site, NET_LVL_ERR, "Get %s link status fail.\n", g_pcLan1Name);
            continue;
        }
        if (NET_GetPortLinkStatus(kLan2, &st.second) != 0) {
            NET_LOG_AT(site, NET_LVL_ERR, "Get %s link status fail.\n", kLan2);
            continue;
        }
        if (st.first == 1 || st.second == 1)
            break;
        sleep(1);
    }
}

} // namespace

int read_old_records(CallSite site, ConvRecords &rec)
{
    if (NET_GetOldEthCfg(&rec.stEther) != 0) {
        NET_LOG_AT(site, NET_LVL_ERR, "get old ETH configure fail.\n");
        return -1;
    }
    if (NET_GetOldDdnsCfg(&rec.stDdns) != 0) {
        NET_LOG_AT(site, NET_LVL_ERR, "get old DDNS configure fail.\n");
        return -1;
    }
    if (NET_GetOldPppoeCfg(&rec.stPppoe) != 0) {
        NET_LOG_AT(site, NET_LVL_ERR, "get old PPPOE configure fail.\n");
        return -1;
    }
    if (NET_GetOldPortCfg(&rec.stPort) != 0) {
        NET_LOG_AT(site, NET_LVL_ERR, "get old PORT configure fail.\n");
        return -1;
    }
    return 0;
}

void regenerate_network()
{
    // The result is not looked at: the setters that follow find out soon enough.
    int status = system("rm /etc/config/network; /bin/config_generate");
    (void)status;
}

const char *settle_port(CallSite site)
{
    sleep(kRestartWaitSec);
    if (NET_Restart() != 0)
        NET_LOG_AT(site, NET_LVL_ERR, "restart network fail.\n");
    LinkStates st;
    wait_for_link(site, st);
    // The first port also when no link came up; "lan2" for any other combination.
    if (st.first == 1 || (st.first == 0 && st.second == 0))
        return g_pcLan1Name;
    return kLan2;
}

void name_port_card(CallSite site, ConvRecords &rec, const char *port)
{
    memset(rec.szPortNetCard, 0, sizeof rec.szPortNetCard);
    strncpy(rec.szPortNetCard, port, sizeof rec.szPortNetCard - 1);
    NET_LOG_AT(site, NET_LVL_DEBUG, "port netcard: %s.\n", rec.szPortNetCard);
}

int write_common_records(CallSite site, const ConvRecords &rec)
{
    if (NET_SetDdnsCfg(&rec.stDdns) != 0) {
        NET_LOGT_AT(site, NET_LVL_ERR, PL_SET_OPTION_ERROR_PRINT, "file: %s.\n", "ddns");
        return -1;
    }
    if (NET_SetPppoeCfg(rec.stPppoe) != 0) {
        NET_LOGT_AT(site, NET_LVL_ERR, PL_SET_OPTION_ERROR_PRINT, "file: %s.\n", "pppoe");
        return -1;
    }
    if (NET_SetPortCfg(rec.stPort) != 0) {
        NET_LOGT_AT(site, NET_LVL_ERR, PL_SET_OPTION_ERROR_PRINT, "file: %s.\n", "port");
        return -1;
    }
    return 0;
}

} // namespace netlib
