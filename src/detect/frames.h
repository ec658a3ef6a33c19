// The frames of the detection calls: building what goes out, and reading what comes back
// strictly within the bytes received. No sockets here, so the fuzz targets reach every reader.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace netlib
{

// ---- ARP over Ethernet ----------------------------------------------------------------
constexpr size_t kArpFrameLen = 60; // minimum Ethernet frame, zero padded
constexpr uint16_t kArpOpRequest = 1;
constexpr uint16_t kArpOpReply = 2;

// A broadcast ARP request from mac: sender protocol address spa, target tpa, the rest zero.
void arp_build_request(uint8_t frame[kArpFrameLen], const uint8_t mac[6], const uint8_t spa[4],
                       const uint8_t tpa[4]);
// The probe for tpa: the sender claims no address (0.0.0.0).
void arp_build_probe(uint8_t frame[kArpFrameLen], const uint8_t mac[6], const uint8_t tpa[4]);
// The announcement of ip: sender and target protocol addresses are both ip.
void arp_build_announce(uint8_t frame[kArpFrameLen], const uint8_t mac[6], const uint8_t ip[4]);

// Another host claims ip: an ARP reply to mac whose sender protocol address is ip.
bool arp_reply_claims(const uint8_t *frame, size_t len, const uint8_t mac[6], const uint8_t ip[4]);
// The frame's ARP sender hardware address is mac.
bool arp_sender_is(const uint8_t *frame, size_t len, const uint8_t mac[6]);

// ---- IPv6 neighbour discovery ---------------------------------------------------------
constexpr size_t kNdpMsgLen = 24; // ICMPv6 header, reserved word, target; no options

// A neighbour solicitation for target; the kernel fills the checksum.
void ndp_build_solicit(uint8_t msg[kNdpMsgLen], const uint8_t target[16]);
// The solicited-node group ff02::1:ffXX:XXXX of target, from the group's base address.
void ndp_solicited_node(uint8_t group[16], const uint8_t target[16]);
// A neighbour advertisement whose target is target.
bool ndp_advert_for(const uint8_t *msg, size_t len, const uint8_t target[16]);

// ---- ICMP echo ------------------------------------------------------------------------
constexpr int kIcmpEchoLen = 64;
constexpr int kIcmpBufLen = 1024;

// Seconds and microseconds, both signed 32-bit, as carried in the echo's data.
struct IcmpTime {
    int32_t iSec;
    int32_t iUsec;
};

// Internet checksum of len bytes, summed in memory order; 0 for a null buffer.
uint16_t net_CalcuSum(const uint16_t *pusBuff, int iLen);
// The echo request with this sequence number, stamped now, into pcSendBuf (kIcmpBufLen
// bytes); *piPackSize becomes kIcmpEchoLen. 0, or -1.
int net_PackIcmpPkt(int iSeq, char *pcSendBuf, int *piPackSize);
// Checks a received IPv4 datagram of iLen bytes as the reply to this process's echo and
// gives the send time it carries. 0, or -1 (logged).
int net_UnPackIcmp(const char *pcRecvBuf, int iLen, IcmpTime *pstTimeSend);
// end - start with the microseconds brought below one million by a single borrow.
IcmpTime icmp_interval(const IcmpTime &end, const IcmpTime &start);

} // namespace netlib
