// DDNS and PPPoE accounts of the old layout, each in a package of its own ("ddns", "pppoe").
#include "libnetwork.h"
#include "migrate/old.h"
#include "base/log.h"

using namespace netlib;

namespace
{

// The old DDNS names its provider; the record keeps a number. A number without a name is
// written as the first name, and an unknown name leaves the record's number as it was.
constexpr Word kProviders[] = {{0, "DynDNS"}, {1, "NO-IP"}};

// The old layout has one domain: the name the device is reached by. The port is written
// third (its place in the file) and read last (its place among the lines logged for
// overlong values).
constexpr Field kOldDdnsFields[] = {
    NET_FIELD_WORDS(NetDdnsCfg, "enable", iEnable, FieldKind::Word, kBoth, kOldBool),
    NET_FIELD_WORDS(NetDdnsCfg, "type", iType, FieldKind::Word, kBoth, kProviders),
    NET_FIELD(NetDdnsCfg, "port", usPort, FieldKind::Port, kWrite),
    NET_FIELD(NetDdnsCfg, "domain", szDdnsDomain, FieldKind::CutText, kBoth),
    NET_FIELD(NetDdnsCfg, "username", szUserName, FieldKind::CutText, kBoth),
    NET_FIELD(NetDdnsCfg, "password", szPassword, FieldKind::CutText, kBoth),
    NET_FIELD(NetDdnsCfg, "port", usPort, FieldKind::Port, kRead),
};
static_assert(fields_fit(kOldDdnsFields, sizeof(NetDdnsCfg)), "old DDNS table");

// The old layout keeps the password twice: "passwordconfirm" is written, never read.
constexpr Field kOldPppoeFields[] = {
    NET_FIELD_WORDS(NetPppoeCfg, "enable", iEnable, FieldKind::Word, kBoth, kOldBool),
    NET_FIELD(NetPppoeCfg, "interface", szInterface, FieldKind::CutText, kBoth),
    NET_FIELD(NetPppoeCfg, "username", szUserName, FieldKind::CutText, kBoth),
    NET_FIELD(NetPppoeCfg, "password", szPassword, FieldKind::CutText, kBoth),
    NET_FIELD(NetPppoeCfg, "passwordconfirm", szPassword, FieldKind::CutText, kWrite),
};
static_assert(fields_fit(kOldPppoeFields, sizeof(NetPppoeCfg)), "old PPPoE table");

} // namespace

extern "C" {

int NET_GetOldDdnsCfg(NetDdnsCfg *pstDdnsCfg)
{
    NET_CHECK_ARGS(-1, "pstDdnsCfg: %p.\n", pstDdnsCfg);
    UciPackage pkg;
    return read_record(open_old_section(NET_HERE, pkg, kOldDdnsPkg, "ddns"), kOldDdnsFields,
                       pstDdnsCfg);
}

int NET_SetOldDdnsCfg(const NetDdnsCfg *pstDdnsCfg)
{
    NET_CHECK_ARGS(-1, "pstDdnsCfg: %p.\n", pstDdnsCfg);
    UciPackage pkg;
    return write_record(NET_HERE, pkg,
                        open_old_section_for_write(NET_HERE, pkg, kOldDdnsPkg, "ddns", "ddns"),
                        kOldDdnsFields, pstDdnsCfg);
}

int NET_GetOldPppoeCfg(NetPppoeCfg *pstPppoeCfg)
{
    NET_CHECK_ARGS(-1, "pstPppoeCfg: %p.\n", pstPppoeCfg);
    UciPackage pkg;
    return read_record(open_old_section(NET_HERE, pkg, kOldPppoePkg, "pppoe"), kOldPppoeFields,
                       pstPppoeCfg);
}

int NET_SetOldPppoeCfg(const NetPppoeCfg *pstPppoeCfg)
{
    NET_CHECK_ARGS(-1, "pstPppoeCfg: %p.\n", pstPppoeCfg);
    UciPackage pkg;
    return write_record(NET_HERE, pkg,
                        open_old_section_for_write(NET_HERE, pkg, kOldPppoePkg, "pppoe", "pppoe"),
                        kOldPppoeFields, pstPppoeCfg);
}

} // extern "C"
