// DDNS and PPPoE accounts of the old layout, each in a package of its own ("ddns", "pppoe").
// The old DDNS names its provider; the record keeps a number.
#include <string.h>

#include "libnetwork.h"
#include "migrate/old.h"
#include "base/log.h"

using namespace netlib;

namespace
{

struct Provider {
    int32_t type;
    const char *name;
};

// The first entry is also what a number without a name is written as.
constexpr Provider kProviders[] = {{0, "DynDNS"}, {1, "NO-IP"}};

// An unknown name leaves the record's number as it was.
void read_provider(struct uci_section *sec, int32_t *type)
{
    char buf[kNumBufLen] = {0};
    if (NET_GetOption(sec, "type", buf, sizeof buf) != 0)
        return;
    for (const Provider &p : kProviders) {
        if (strcmp(buf, p.name) == 0)
            *type = p.type;
    }
}

const char *provider_name(int32_t type)
{
    for (const Provider &p : kProviders) {
        if (p.type == type)
            return p.name;
    }
    return kProviders[0].name;
}

// The old layout has one domain: the name the device is reached by.
int write_ddns(struct uci_section *sec, const NetDdnsCfg &cfg)
{
    if (write_bool(sec, "enable", cfg.iEnable) != 0 ||
        NET_SetOption(sec, "type", provider_name(cfg.iType)) != 0 ||
        write_int(sec, "port", cfg.usPort) != 0 ||
        write_text(sec, "domain", cfg.szDdnsDomain, sizeof cfg.szDdnsDomain) != 0 ||
        write_text(sec, "username", cfg.szUserName, sizeof cfg.szUserName) != 0 ||
        write_text(sec, "password", cfg.szPassword, sizeof cfg.szPassword) != 0)
        return -1;
    return 0;
}

int write_pppoe(struct uci_section *sec, const NetPppoeCfg &cfg)
{
    if (write_bool(sec, "enable", cfg.iEnable) != 0 ||
        write_text(sec, "interface", cfg.szInterface, sizeof cfg.szInterface) != 0 ||
        write_text(sec, "username", cfg.szUserName, sizeof cfg.szUserName) != 0 ||
        write_text(sec, "password", cfg.szPassword, sizeof cfg.szPassword) != 0 ||
        write_text(sec, "passwordconfirm", cfg.szPassword, sizeof cfg.szPassword) != 0)
        return -1;
    return 0;
}

} // namespace

extern "C" {

int NET_GetOldDdnsCfg(NetDdnsCfg *pstDdnsCfg)
{
    NET_CHECK_ARGS(-1, "pstDdnsCfg: %p.\n", pstDdnsCfg);
    UciPackage pkg;
    struct uci_section *sec = open_old_section(NET_HERE, pkg, kOldDdnsPkg, "ddns");
    if (sec == nullptr)
        return -1;
    NetDdnsCfg &cfg = *pstDdnsCfg;
    read_bool(sec, "enable", &cfg.iEnable);
    read_provider(sec, &cfg.iType);
    read_old_text(sec, "domain", cfg.szDdnsDomain, sizeof cfg.szDdnsDomain);
    read_old_text(sec, "username", cfg.szUserName, sizeof cfg.szUserName);
    read_old_text(sec, "password", cfg.szPassword, sizeof cfg.szPassword);
    read_port(sec, "port", &cfg.usPort);
    return 0;
}

int NET_SetOldDdnsCfg(const NetDdnsCfg *pstDdnsCfg)
{
    NET_CHECK_ARGS(-1, "pstDdnsCfg: %p.\n", pstDdnsCfg);
    UciPackage pkg;
    struct uci_section *sec =
        open_old_section_for_write(NET_HERE, pkg, kOldDdnsPkg, "ddns", "ddns");
    if (sec == nullptr || write_ddns(sec, *pstDdnsCfg) != 0)
        return -1;
    return commit_logged(NET_HERE, pkg);
}

int NET_GetOldPppoeCfg(NetPppoeCfg *pstPppoeCfg)
{
    NET_CHECK_ARGS(-1, "pstPppoeCfg: %p.\n", pstPppoeCfg);
    UciPackage pkg;
    struct uci_section *sec = open_old_section(NET_HERE, pkg, kOldPppoePkg, "pppoe");
    if (sec == nullptr)
        return -1;
    NetPppoeCfg &cfg = *pstPppoeCfg;
    read_bool(sec, "enable", &cfg.iEnable);
    read_old_text(sec, "interface", cfg.szInterface, sizeof cfg.szInterface);
    read_old_text(sec, "username", cfg.szUserName, sizeof cfg.szUserName);
    read_old_text(sec, "password", cfg.szPassword, sizeof cfg.szPassword);
    return 0;
}

int NET_SetOldPppoeCfg(const NetPppoeCfg *pstPppoeCfg)
{
    NET_CHECK_ARGS(-1, "pstPppoeCfg: %p.\n", pstPppoeCfg);
    UciPackage pkg;
    struct uci_section *sec =
        open_old_section_for_write(NET_HERE, pkg, kOldPppoePkg, "pppoe", "pppoe");
    if (sec == nullptr || write_pppoe(sec, *pstPppoeCfg) != 0)
        return -1;
    return commit_logged(NET_HERE, pkg);
}

} // extern "C"
