// Frame building and bounded frame reading for the probes, the monitor and ping.
#include "detect/frames.h"

#include <arpa/inet.h>
#include <string.h>
#include <sys/time.h>
#include <unistd.h>

#include "base/log.h"

namespace netlib
{

namespace
{

// Offsets in an ARP-over-Ethernet frame.
constexpr size_t kEthDst = 0, kEthSrc = 6, kEthType = 12;
constexpr size_t kArpHrd = 14, kArpPro = 16, kArpHln = 18, kArpPln = 19, kArpOp = 20;
constexpr size_t kArpSha = 22, kArpSpa = 28, kArpTha = 32, kArpTpa = 38;

// Offsets in ICMP messages.
constexpr size_t kNdpTarget = 8;
constexpr int kIcmpId = 4, kIcmpSeq = 6, kIcmpSec = 8, kIcmpUsec = 12, kIcmpTimeEnd = 16;
constexpr uint8_t kNdpAdvert = 136, kNdpSolicit = 135;
constexpr uint8_t kIcmpEchoReply = 0, kIcmpEchoRequest = 8;

void put16(uint8_t *p, uint16_t hostValue)
{
    uint16_t v = htons(hostValue);
    memcpy(p, &v, sizeof v);
}

uint16_t get16(const uint8_t *p)
{
    uint16_t v;
    memcpy(&v, p, sizeof v);
    return ntohs(v);
}

// Whether [off, off + n) lies within the len bytes received.
bool within(size_t len, size_t off, size_t n)
{
    return len >= off + n;
}

} // namespace

void arp_build_request(uint8_t frame[kArpFrameLen], const uint8_t mac[6], const uint8_t spa[4],
                       const uint8_t tpa[4])
{
    memset(frame, 0, kArpFrameLen);
    memset(frame + kEthDst, 0xff, 6);
    memcpy(frame + kEthSrc, mac, 6);
    put16(frame + kEthType, 0x0806);
    put16(frame + kArpHrd, 1);
    put16(frame + kArpPro, 0x0800);
    frame[kArpHln] = 6;
    frame[kArpPln] = 4;
    put16(frame + kArpOp, kArpOpRequest);
    memcpy(frame + kArpSha, mac, 6);
    memcpy(frame + kArpSpa, spa, 4);
    // Target hardware address and padding stay zero.
    memcpy(frame + kArpTpa, tpa, 4);
}

void arp_build_probe(uint8_t frame[kArpFrameLen], const uint8_t mac[6], const uint8_t tpa[4])
{
    static const uint8_t kNoAddress[4] = {0, 0, 0, 0};
    arp_build_request(frame, mac, kNoAddress, tpa);
}

void arp_build_announce(uint8_t frame[kArpFrameLen], const uint8_t mac[6], const uint8_t ip[4])
{
    arp_build_request(frame, mac, ip, ip);
}

bool arp_reply_claims(const uint8_t *frame, size_t len, const uint8_t mac[6], const uint8_t ip[4])
{
    if (!within(len, kArpOp, 2) || get16(frame + kArpOp) != kArpOpReply)
        return false;
    if (!within(len, kArpTha, 6) || memcmp(frame + kArpTha, mac, 6) != 0)
        return false;
    return within(len, kArpSpa, 4) && memcmp(frame + kArpSpa, ip, 4) == 0;
}

bool arp_sender_is(const uint8_t *frame, size_t len, const uint8_t mac[6])
{
    return within(len, kArpSha, 6) && memcmp(frame + kArpSha, mac, 6) == 0;
}

void ndp_build_solicit(uint8_t msg[kNdpMsgLen], const uint8_t target[16])
{
    memset(msg, 0, kNdpMsgLen);
    msg[0] = kNdpSolicit;
    memcpy(msg + kNdpTarget, target, 16);
}

void ndp_solicited_node(uint8_t group[16], const uint8_t target[16])
{
    memcpy(group + 13, target + 13, 3);
}

bool ndp_advert_for(const uint8_t *msg, size_t len, const uint8_t target[16])
{
    return within(len, 0, kNdpMsgLen) && msg[0] == kNdpAdvert &&
           memcmp(msg + kNdpTarget, target, 16) == 0;
}

uint16_t net_CalcuSum(const uint16_t *pusBuff, int iLen)
{
    if (pusBuff == nullptr)
        return 0;
    const uint8_t *p = reinterpret_cast<const uint8_t *>(pusBuff);
    uint32_t sum = 0;
    int left = iLen;
    for (; left > 1; left -= 2, p += 2) {
        uint16_t word;
        memcpy(&word, p, sizeof word);
        sum += word;
    }
    if (left == 1)
        sum += *p;
    sum = (sum >> 16) + (sum & 0xffff);
    sum += sum >> 16;
    return static_cast<uint16_t>(~sum & 0xffff);
}

int net_PackIcmpPkt(int iSeq, char *pcSendBuf, int *piPackSize)
{
    if (pcSendBuf == nullptr || piPackSize == nullptr)
        return -1;
    uint8_t *pkt = reinterpret_cast<uint8_t *>(pcSendBuf);
    memset(pkt, 0, kIcmpEchoLen);
    pkt[0] = kIcmpEchoRequest;
    put16(pkt + kIcmpId, static_cast<uint16_t>(getpid()));
    put16(pkt + kIcmpSeq, static_cast<uint16_t>(iSeq));
    struct timeval now;
    if (gettimeofday(&now, nullptr) != 0) {
        NET_LOG(NET_LVL_ERR, "Fail to gettimeofday.\n");
        return -1;
    }
    // The send time travels in host order: only this host reads it back.
    int32_t sec = static_cast<int32_t>(now.tv_sec), usec = static_cast<int32_t>(now.tv_usec);
    memcpy(pkt + kIcmpSec, &sec, sizeof sec);
    memcpy(pkt + kIcmpUsec, &usec, sizeof usec);
    *piPackSize = kIcmpEchoLen;
    // Summed and stored in the same memory order, so no byte swap.
    uint16_t sum = net_CalcuSum(reinterpret_cast<const uint16_t *>(pkt), kIcmpEchoLen);
    memcpy(pkt + 2, &sum, sizeof sum);
    return 0;
}

int net_UnPackIcmp(const char *pcRecvBuf, int iLen, IcmpTime *pstTimeSend)
{
    const uint8_t *pkt = reinterpret_cast<const uint8_t *>(pcRecvBuf);
    int hdrLen = iLen > 0 ? (pkt[0] & 0x0f) * 4 : 0;
    // A header length past the data leaves a negative remainder: refused here too.
    if (iLen - hdrLen < 8) {
        // Log readers match this wording and the next line's "cann't".
        NET_LOG(NET_LVL_ERR, "ICMP packets\'s is less than 8.\n");
        return -1;
    }
    const uint8_t *icmp = pkt + hdrLen;
    // A full comparison with the process id: a caller whose pid is above 65535 never matches.
    int id = get16(icmp + kIcmpId);
    if (id != getpid() || icmp[0] != kIcmpEchoReply) {
        NET_LOG(NET_LVL_ERR, "cann't get send time from icmp pack.\n");
        return -1;
    }
    // A reply cut short of the time fields reads as zero there, as a zeroed buffer would.
    uint8_t stamp[kIcmpTimeEnd - kIcmpSec] = {0};
    int avail = iLen - hdrLen - kIcmpSec;
    if (avail > 0)
        memcpy(stamp, icmp + kIcmpSec, static_cast<size_t>(avail < 8 ? avail : 8));
    memcpy(&pstTimeSend->iSec, stamp, 4);
    memcpy(&pstTimeSend->iUsec, stamp + (kIcmpUsec - kIcmpSec), 4);
    return 0;
}

IcmpTime icmp_interval(const IcmpTime &end, const IcmpTime &start)
{
    // Wrapping arithmetic: the send time comes off the wire and may be anything.
    IcmpTime d;
    d.iSec =
        static_cast<int32_t>(static_cast<uint32_t>(end.iSec) - static_cast<uint32_t>(start.iSec));
    d.iUsec =
        static_cast<int32_t>(static_cast<uint32_t>(end.iUsec) - static_cast<uint32_t>(start.iUsec));
    if (d.iUsec < 0) {
        d.iSec = static_cast<int32_t>(static_cast<uint32_t>(d.iSec) - 1u);
        d.iUsec = static_cast<int32_t>(static_cast<uint32_t>(d.iUsec) + 1000000u);
    }
    return d;
}

} // namespace netlib
