// The start-up decision: which layout "network" is in, what the hardware needs, at most one
// conversion and then a reboot; and the layout marker itself.
#include "config/uci_access.h"
#include "libnetwork.h"
#include "migrate/convert.h"
#include "base/log.h"

using namespace netlib;

namespace
{

constexpr const char kMarkerSec[] = "net_version";
constexpr const char kMarkerType[] = "version";

enum class Action { Nothing, StampSingle, OldToDouble, OldToNew, NewToDouble };

// The capability is asked only after both lookups, in the branch that needs it. A marker
// without "single" (a two-interface stamp) is left alone on any hardware.
Action decide(struct uci_section *marker, struct uci_section *ddns)
{
    if (marker == nullptr && ddns == nullptr)
        return CAP_IsDoubleIntfSupport() == 1 ? Action::OldToDouble : Action::OldToNew;
    if (marker != nullptr) {
        char single[16] = {0};
        if (NET_GetOption(marker, "single", single, sizeof single) != 0)
            return Action::Nothing;
        return CAP_IsDoubleIntfSupport() == 1 ? Action::NewToDouble : Action::Nothing;
    }
    return CAP_IsDoubleIntfSupport() == 1 ? Action::NewToDouble : Action::StampSingle;
}

// A conversion that worked rewrote the package: the device starts again on it.
int convert(CallSite site, UciPackage &pkg, int (*fn)(void), const char *name)
{
    if (fn() != 0) {
        NET_LOG_AT(site, NET_LVL_ERR, "%s fail.\n", name);
        return -1;
    }
    pkg.reset();
    SYS_Reboot();
    return 0;
}

} // namespace

extern "C" {

int NET_ConvertConfig(void)
{
    UciPackage pkg;
    pkg.reset(NET_CreatePackage(kNetworkPkg));
    if (pkg.get() == nullptr) {
        NET_LOGT(NET_LVL_ERR, PL_CREATE_PACKAGE_ERROR_PRINT, "file: %s.\n", kNetworkPkg);
        return -1;
    }
    struct uci_section *marker = NET_GetSection(pkg.get(), kMarkerSec);
    struct uci_section *ddns = NET_GetSection(pkg.get(), "ddns");
    switch (decide(marker, ddns)) {
    case Action::OldToDouble:
        return convert(NET_HERE, pkg, NET_NetConfigOldToDouble, "NET_NetConfigOldToDouble");
    case Action::OldToNew:
        return convert(NET_HERE, pkg, NET_NetConfigOldToNew, "NET_NetConfigOldToNew");
    case Action::NewToDouble:
        return convert(NET_HERE, pkg, NET_NetConfigNewToDouble, "NET_NetConfigNewToDouble");
    case Action::StampSingle:
        // The only stamp the library writes; a failed one is logged by the stamp and
        // simply tried again at the next start.
        NET_AddNetVersion(1);
        return 0;
    case Action::Nothing:
        break;
    }
    return 0;
}

int NET_AddNetVersion(int iVersion)
{
    UciPackage pkg;
    pkg.reset(NET_CreatePackage(kNetworkPkg));
    if (pkg.get() == nullptr) {
        NET_LOGT(NET_LVL_ERR, PL_CREATE_PACKAGE_ERROR_PRINT, "file: %s.\n", kNetworkPkg);
        return -1;
    }
    struct uci_section *sec = NET_CreateAndGetSection(pkg.get(), kMarkerType, kMarkerSec);
    if (sec == nullptr) {
        NET_LOG(NET_LVL_ERR, "NET_CreateAndGetSection() fail.section: %s.\n", kMarkerSec);
        return -1;
    }
    // Checked only now: a bad version leaves an empty marker in memory, never committed.
    const char *option = nullptr;
    const char *value = nullptr;
    if (iVersion == 1) {
        option = "single";
        value = "1.00";
    } else if (iVersion == 2) {
        option = "double";
        value = "2.00";
    } else {
        NET_LOG(NET_LVL_ERR, "param fail.iVersion:%d.\n", iVersion);
        return -1;
    }
    if (NET_SetOption(sec, option, value) != 0) {
        NET_LOG(NET_LVL_ERR, "NET_SetOption() fail.option: %s.\n", option);
        return -1;
    }
    if (pkg.commit() != 0) {
        NET_LOGT(NET_LVL_ERR, PL_COMMIT_ERROR_PRINT, "\n");
        return -1;
    }
    return 0;
}

} // extern "C"
