// The ARP side of the link shared by the probe and the announcement: the interface's own
// addresses and the packet socket that carries whole Ethernet frames.
#pragma once

#include <stdint.h>
#include <sys/types.h>

#include "base/log.h"
#include "base/unique_fd.h"

namespace netlib
{

struct ArpSelf {
    unsigned char mac[7]; // six bytes and the reader's spare one
    uint8_t ip[4];        // network order
};

// How the address conversion failure is reported: the probe logs it bare, the
// announcement under the conversion tag.
enum class ConvertLine { Bare, Tagged };

// Reads the interface's IPv4 address and MAC; logs under site and returns -1 on failure.
int arp_read_self(const CallSite &site, const char *ifname, ArpSelf &self, ConvertLine how);
// The ARP packet socket, broadcast allowed; invalid (logged under site) on failure.
UniqueFd arp_open_socket(const CallSite &site);
// Sends one 60-byte frame out of the interface named ifname; sendto's result.
ssize_t arp_send(int fd, const uint8_t *frame, const char *ifname);

} // namespace netlib
