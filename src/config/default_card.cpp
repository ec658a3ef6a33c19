// The default network card of a two-interface device (section "defnetcard" of "network"),
// and the one-call summary of the stored settings of every port.
#include <string.h>

#include "config/uci_access.h"
#include "base/ports.h"
#include "libnetwork.h"
#include "base/log.h"

using namespace netlib;

namespace
{

constexpr const char kDefCardSec[] = "defnetcard";
constexpr const char kDefCardType[] = "netcard";
constexpr const char kDefCardOpt[] = "defnetcard";

} // namespace

extern "C" {

// Reserved for the default card's name; nothing here fills it.
char g_szDefNetCard[16];

int NET_SetDefNetCard(const char *pcNetDefCard)
{
    NET_CHECK_ARGS(-2, "pcNetDefCard:%p \n", pcNetDefCard);
    UciPackage pkg;
    if (!open_network(NET_HERE, pkg))
        return -1;
    if (CAP_IsDoubleIntfSupport() == 1) {
        struct uci_section *sec = NET_CreateAndGetSection(pkg.get(), kDefCardType, kDefCardSec);
        if (sec == nullptr) {
            NET_LOG(NET_LVL_ERR, "section: %s.\n", kDefCardSec);
            return -1;
        }
        if (NET_SetOption(sec, kDefCardOpt, pcNetDefCard) != 0)
            return -1;
    }
    // Committed on one-interface devices too, although nothing changed there.
    return commit_logged(NET_HERE, pkg);
}

int NET_GetDefNetCard(unsigned int uiLen, char *pcNetDefCard)
{
    NET_CHECK_ARGS(-2, "pcNetDefCard:%p\n", pcNetDefCard);
    UciPackage pkg;
    if (!open_network(NET_HERE, pkg))
        return -1;
    if (CAP_IsDoubleIntfSupport() == 1) {
        struct uci_section *sec = find_section(NET_HERE, pkg, kDefCardSec);
        if (sec == nullptr)
            return -1;
        char name[16] = {0};
        if (NET_GetOption(sec, kDefCardOpt, name, sizeof name) != 0)
            return -1;
        // A plain bounded copy, deliberately: a name of uiLen characters or more arrives
        // without a terminator.
        strncpy(pcNetDefCard, name, uiLen);
    }
    return 0;
}

int drv_net_GetIpcConfig(NetIpcConfig *pstIpcConfig)
{
    if (pstIpcConfig == nullptr)
        return -1;
    // The count is set before the reads, so a failed read still leaves it.
    if (CAP_IsDoubleIntfSupport() != 0) {
        pstIpcConfig->iPortNum = 2;
        if (NET_GetEtherCfg(netlib::kLan1, &pstIpcConfig->astEtherCfg[0]) != 0) {
            NET_LOG(NET_LVL_ERR, "NET_GetEtherCfg fail:lan1.\n");
            return -1;
        }
        if (NET_GetEtherCfg(netlib::kLan2, &pstIpcConfig->astEtherCfg[1]) != 0) {
            NET_LOG(NET_LVL_ERR, "NET_GetEtherCfg fail:lan2.\n");
            return -1;
        }
        return 0;
    }
    pstIpcConfig->iPortNum = 1;
    if (NET_GetEtherCfg(netlib::kEth0, &pstIpcConfig->astEtherCfg[0]) != 0) {
        NET_LOG(NET_LVL_ERR, "NET_GetEtherCfg fail.\n");
        return -1;
    }
    return 0;
}

} // extern "C"
