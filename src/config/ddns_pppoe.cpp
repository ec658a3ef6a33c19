// Dynamic-DNS ("ddns" section) and PPPoE account ("pppoe" section) settings, each kept as one
// record. The library only stores them; passwords are kept as given, in plain text.
#include "config/fields.h"
#include "config/uci_access.h"
#include "libnetwork.h"
#include "base/log.h"

using namespace netlib;

namespace
{

// Texts are read at the fields' full sizes: their last bytes stay as the caller zeroed them.
constexpr Field kDdnsFields[] = {
    NET_FIELD(NetDdnsCfg, "enable", iEnable, FieldKind::Int, kBoth),
    NET_FIELD(NetDdnsCfg, "type", iType, FieldKind::Int, kBoth),
    NET_FIELD(NetDdnsCfg, "port", usPort, FieldKind::Port, kBoth),
    NET_FIELD(NetDdnsCfg, "serverdomain", szServerDomain, FieldKind::Text, kBoth),
    NET_FIELD(NetDdnsCfg, "ddnsdomain", szDdnsDomain, FieldKind::Text, kBoth),
    NET_FIELD(NetDdnsCfg, "username", szUserName, FieldKind::Text, kBoth),
    NET_FIELD(NetDdnsCfg, "password", szPassword, FieldKind::Text, kBoth),
};
static_assert(fields_fit(kDdnsFields, sizeof(NetDdnsCfg)), "DDNS table");

constexpr Field kPppoeFields[] = {
    NET_FIELD(NetPppoeCfg, "enable", iEnable, FieldKind::Int, kBoth),
    NET_FIELD(NetPppoeCfg, "interface", szInterface, FieldKind::Text, kBoth),
    NET_FIELD(NetPppoeCfg, "username", szUserName, FieldKind::Text, kBoth),
    NET_FIELD(NetPppoeCfg, "password", szPassword, FieldKind::Text, kBoth),
};
static_assert(fields_fit(kPppoeFields, sizeof(NetPppoeCfg)), "PPPoE table");

} // namespace

extern "C" {

int NET_GetDdnsCfg(NetDdnsCfg *pstDdnsCfg)
{
    NET_CHECK_ARGS(-1, "pstDdnsCfg: %p.\n", pstDdnsCfg);
    UciPackage pkg;
    return read_record(open_section(NET_HERE, pkg, "ddns"), kDdnsFields, pstDdnsCfg);
}

int NET_SetDdnsCfg(const NetDdnsCfg *pstDdnsCfg)
{
    // Names the PPPoE parameter: log readers match this text.
    NET_CHECK_ARGS(-1, "pstPppoeCfg: %p.\n", pstDdnsCfg);
    UciPackage pkg;
    return write_record(NET_HERE, pkg, open_section(NET_HERE, pkg, "ddns"), kDdnsFields,
                        pstDdnsCfg);
}

int NET_GetPppoeCfg(NetPppoeCfg *pstPppoeCfg)
{
    NET_CHECK_ARGS(-1, "pstPppoeCfg: %p.\n", pstPppoeCfg);
    UciPackage pkg;
    return read_record(open_section(NET_HERE, pkg, "pppoe"), kPppoeFields, pstPppoeCfg);
}

int NET_SetPppoeCfg(NetPppoeCfg stPppoeCfg)
{
    UciPackage pkg;
    return write_record(NET_HERE, pkg, open_section(NET_HERE, pkg, "pppoe"), kPppoeFields,
                        &stPppoeCfg);
}

} // extern "C"
