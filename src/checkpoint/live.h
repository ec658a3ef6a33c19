// The live state of the device's ports, read by netlink dumps and put back by netlink
// requests (addresses, routes) and the link calls (up or down, MTU).
#pragma once

#include "base/log.h"
#include "checkpoint/record.h"
#include "libnetwork.h"

namespace netlib
{

// An error line under the caller's name: "checkpoint: <what>[: <detail>]."
void ckpt_log(CallSite site, const char *what, const char *detail = nullptr);

// Fills the live fields of the ports whose names are set (f.nports of them). False, logged,
// when the kernel could not be asked or a port holds more than a record keeps.
bool ckpt_capture(CkptFixed &f);

// What a roll-back did: NET_CKPT_R_* tried, and the first failure.
struct CkptOutcome {
    uint32_t tried;
    NetRollbackResult res;
    void fail(uint32_t bit, const char *port, const char *what, int err);
};

// Puts the recorded live state of every port back.
void ckpt_restore_live(const CkptFixed &want, CkptOutcome &out);

} // namespace netlib
