// The start-up conversions between the layouts of "network": internal to the library, called
// by NET_ConvertConfig only.
#pragma once

#include "libnetwork.h"
#include "base/log.h"

extern "C" {

// Writes the layout marker: 1 stamps "single" = "1.00", 2 "double" = "2.00"; else -1.
int NET_AddNetVersion(int iVersion);
// Old layout to the new one-interface layout.
int NET_NetConfigOldToNew(void);
// Old layout to the two-interface layout; the cabled port gets the interface settings.
int NET_NetConfigOldToDouble(void);
// One-interface layout to the two-interface layout, likewise.
int NET_NetConfigNewToDouble(void);

} // extern "C"

namespace netlib
{

// The records a conversion carries from the old package to the regenerated one.
struct ConvRecords {
    NetEtherCfg stEther;
    NetDdnsCfg stDdns;
    NetPppoeCfg stPppoe;
    NetPortCfg stPort;
    // The port record's network-card name. NetPortCfg has no field for it and the port store
    // keeps none, so it travels beside the record.
    char szPortNetCard[16];
};

// The four old-layout readers in their order; the first failure is logged for the caller.
int read_old_records(CallSite site, ConvRecords &rec);
// Throws "network" away and lets the system write its defaults.
void regenerate_network();
// Waits for the restarted network and picks the port that is cabled: the first port, or
// "lan2" when only that one has a link.
const char *settle_port(CallSite site);
// Names the chosen port in the port record.
void name_port_card(CallSite site, ConvRecords &rec, const char *port);
// DDNS, PPPoE and port records through their setters, in that order.
int write_common_records(CallSite site, const ConvRecords &rec);

} // namespace netlib
