// Dynamic-DNS ("ddns" section) and PPPoE account ("pppoe" section) settings, each kept as one
// record. The library only stores them; passwords are kept as given, in plain text.
#include "config/uci_access.h"
#include "libnetwork.h"
#include "base/log.h"

using namespace netlib;

namespace
{

int write_ddns(struct uci_section *sec, const NetDdnsCfg &cfg)
{
    if (write_int(sec, "enable", cfg.iEnable) != 0 || write_int(sec, "type", cfg.iType) != 0 ||
        write_int(sec, "port", cfg.usPort) != 0 ||
        write_text(sec, "serverdomain", cfg.szServerDomain, sizeof cfg.szServerDomain) != 0 ||
        write_text(sec, "ddnsdomain", cfg.szDdnsDomain, sizeof cfg.szDdnsDomain) != 0 ||
        write_text(sec, "username", cfg.szUserName, sizeof cfg.szUserName) != 0 ||
        write_text(sec, "password", cfg.szPassword, sizeof cfg.szPassword) != 0)
        return -1;
    return 0;
}

int write_pppoe(struct uci_section *sec, const NetPppoeCfg &cfg)
{
    if (write_int(sec, "enable", cfg.iEnable) != 0 ||
        write_text(sec, "interface", cfg.szInterface, sizeof cfg.szInterface) != 0 ||
        write_text(sec, "username", cfg.szUserName, sizeof cfg.szUserName) != 0 ||
        write_text(sec, "password", cfg.szPassword, sizeof cfg.szPassword) != 0)
        return -1;
    return 0;
}

} // namespace

extern "C" {

int NET_GetDdnsCfg(NetDdnsCfg *pstDdnsCfg)
{
    NET_CHECK_ARGS(-1, "pstDdnsCfg: %p.\n", pstDdnsCfg);
    UciPackage pkg;
    struct uci_section *sec = open_section(NET_HERE, pkg, "ddns");
    if (sec == nullptr)
        return -1;
    read_int(sec, "enable", &pstDdnsCfg->iEnable);
    read_int(sec, "type", &pstDdnsCfg->iType);
    read_port(sec, "port", &pstDdnsCfg->usPort);
    // Texts at the fields' full sizes: their last bytes stay as the caller zeroed them.
    NET_GetOption(sec, "serverdomain", pstDdnsCfg->szServerDomain,
                  sizeof pstDdnsCfg->szServerDomain);
    NET_GetOption(sec, "ddnsdomain", pstDdnsCfg->szDdnsDomain, sizeof pstDdnsCfg->szDdnsDomain);
    NET_GetOption(sec, "username", pstDdnsCfg->szUserName, sizeof pstDdnsCfg->szUserName);
    NET_GetOption(sec, "password", pstDdnsCfg->szPassword, sizeof pstDdnsCfg->szPassword);
    return 0;
}

int NET_SetDdnsCfg(const NetDdnsCfg *pstDdnsCfg)
{
    if (pstDdnsCfg == nullptr) {
        // Deliberately names the PPPoE parameter: the message is kept as it always was.
        NET_LOGT(NET_LVL_ERR, PL_PARAM_ERROR_PRINT, "pstPppoeCfg: %p.\n", (const void *)pstDdnsCfg);
        return -1;
    }
    UciPackage pkg;
    struct uci_section *sec = open_section(NET_HERE, pkg, "ddns");
    if (sec == nullptr || write_ddns(sec, *pstDdnsCfg) != 0)
        return -1;
    return commit_logged(NET_HERE, pkg);
}

int NET_GetPppoeCfg(NetPppoeCfg *pstPppoeCfg)
{
    NET_CHECK_ARGS(-1, "pstPppoeCfg: %p.\n", pstPppoeCfg);
    UciPackage pkg;
    struct uci_section *sec = open_section(NET_HERE, pkg, "pppoe");
    if (sec == nullptr)
        return -1;
    read_int(sec, "enable", &pstPppoeCfg->iEnable);
    NET_GetOption(sec, "interface", pstPppoeCfg->szInterface, sizeof pstPppoeCfg->szInterface);
    NET_GetOption(sec, "username", pstPppoeCfg->szUserName, sizeof pstPppoeCfg->szUserName);
    NET_GetOption(sec, "password", pstPppoeCfg->szPassword, sizeof pstPppoeCfg->szPassword);
    return 0;
}

int NET_SetPppoeCfg(NetPppoeCfg stPppoeCfg)
{
    UciPackage pkg;
    struct uci_section *sec = open_section(NET_HERE, pkg, "pppoe");
    if (sec == nullptr || write_pppoe(sec, stPppoeCfg) != 0)
        return -1;
    return commit_logged(NET_HERE, pkg);
}

} // extern "C"
