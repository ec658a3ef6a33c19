// IPv4 address collision detection: one ARP probe out, replies from the owner listened for.
#include <errno.h>
#include <stdint.h>
#include <string.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/time.h>

#include "detect/frames.h"
#include "detect/arp_socket.h"
#include "libnetwork.h"

using namespace netlib;

namespace
{

// A busy link ends the listening after this many frames, answered or not.
constexpr int kMaxFrames = 50;

enum class Heard { Nothing, Claim };

// The whole time-out goes into the microsecond field, even past one second. The C library
// reads that field as 32 bits: past 35 minutes it would wrap negative and select refuse the
// wait on every pass, for ever, so there the whole seconds move to their own field.
struct timeval probe_wait(int timeoutMsec)
{
    struct timeval wait;
    int64_t usec = static_cast<int64_t>(timeoutMsec) * 1000;
    wait.tv_sec = usec > INT32_MAX ? static_cast<time_t>(usec / 1000000) : 0;
    wait.tv_usec = static_cast<suseconds_t>(usec > INT32_MAX ? usec % 1000000 : usec);
    return wait;
}

// Listens for an ARP reply to self.mac whose sender is ip. The read set is filled once and
// the time value never re-armed: Linux select leaves the rest of the wait in it, so the
// time-out bounds the whole phase.
Heard listen_for_claim(const CallSite &site, int fd, const ArpSelf &self, const uint8_t ip[4],
                       int timeoutMsec)
{
    struct timeval wait = probe_wait(timeoutMsec);
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(fd, &readable);
    uint8_t frame[kArpFrameLen];
    for (int frames = 0; frames < kMaxFrames;) {
        int ready = select(fd + 1, &readable, nullptr, nullptr, &wait);
        if (ready == 0)
            return Heard::Nothing;
        if (ready < 0) {
            NET_LOG_AT(site, NET_LVL_ERR, "Error on ARPING request: %s\n", strerror(errno));
            // Inverted on purpose: an interrupted wait is read as ready, any other error
            // waits again.
            if (errno != EINTR)
                continue;
        }
        if (!FD_ISSET(fd, &readable))
            continue;
        // Bounded by the socket's half-second receive time-out.
        ssize_t got = recv(fd, frame, sizeof frame, 0);
        if (got < 1)
            continue;
        ++frames;
        if (arp_reply_claims(frame, static_cast<size_t>(got), self.mac, ip))
            return Heard::Claim;
    }
    return Heard::Nothing;
}

} // namespace

extern "C" int NET_DetectIpv4Collision(const char *pcIfName, const char *pcIpAddr, int iTimeoutMsec,
                                       int *pbIsCollision)
{
    if (pcIfName == nullptr || pcIpAddr == nullptr || iTimeoutMsec < 0 ||
        pbIsCollision == nullptr) {
        // One line for all four checks, deliberately.
        NET_LOG(NET_LVL_ERR, "iTimeoutMsec: %d.\n", iTimeoutMsec);
        return -1;
    }
    uint8_t target[4];
    if (INET_Ipv4StrToNum(pcIpAddr, target) != 0) {
        NET_LOG(NET_LVL_ERR, "pcIpAddr: %s.\n", pcIpAddr);
        return -1;
    }
    ArpSelf self;
    if (arp_read_self(NET_HERE, pcIfName, self, ConvertLine::Bare) != 0)
        return -1;
    UniqueFd fd = arp_open_socket(NET_HERE);
    if (!fd.valid())
        return -1;
    struct timeval perRecv = {0, 500000};
    if (setsockopt(fd.get(), SOL_SOCKET, SO_RCVTIMEO, &perRecv, sizeof perRecv) != 0) {
        NET_LOG(NET_LVL_ERR, "setsockopt SO_RCVTIMEO fail.\n");
        return -1;
    }
    uint8_t probe[kArpFrameLen];
    arp_build_probe(probe, self.mac, target);
    if (arp_send(fd.get(), probe, pcIfName) < 0) {
        NET_LOG(NET_LVL_ERR, "sendto failed ...\n");
        return -1;
    }
    // Left as the caller set it unless another host claims the address.
    if (listen_for_claim(NET_HERE, fd.get(), self, target, iTimeoutMsec) == Heard::Claim)
        *pbIsCollision = 1;
    return 0;
}
