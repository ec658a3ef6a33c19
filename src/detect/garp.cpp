// Gratuitous ARP: one request announcing the interface's own address to the link.
#include "detect/frames.h"
#include "detect/arp_socket.h"
#include "libnetwork.h"

using namespace netlib;

extern "C" int NET_SendGratuitousPack(const char *pcIfName)
{
    // A null pointer is the caller's fault: only an empty name is refused.
    if (pcIfName[0] == '\0') {
        NET_LOG(NET_LVL_ERR, "Input is not right");
        return -1;
    }
    ArpSelf self;
    if (arp_read_self(NET_HERE, pcIfName, self, ConvertLine::Tagged) != 0)
        return -1;
    UniqueFd fd = arp_open_socket(NET_HERE);
    if (!fd.valid())
        return -1;
    uint8_t frame[kArpFrameLen];
    arp_build_announce(frame, self.mac, self.ip);
    // One frame, no repetition: callers wanting more announcements call again.
    if (arp_send(fd.get(), frame, pcIfName) < 0) {
        NET_LOG(NET_LVL_ERR, "sendto failed ...\n");
        return -1;
    }
    return 0;
}
