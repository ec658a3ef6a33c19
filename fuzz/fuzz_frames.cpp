// The readers of received frames on arbitrary bytes: ARP replies and senders, neighbour
// advertisements, ICMP replies of any length and header length. Each reader gets an
// exactly sized copy, so the sanitizer sees any read past what was received; the answers
// are checked against the fields as the tables place them.
#include <arpa/inet.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <vector>

#include "detect/frames.h"
#include "fuzz_support.h"

using namespace netlib;
using namespace fuzzsupport;

namespace
{

void arp_readers(const std::vector<uint8_t> &f)
{
    const uint8_t *p = f.data();
    size_t n = f.size();
    bool claim = arp_reply_claims(p, n, kMac, kIp);
    bool want = n >= 38 && p[20] == 0 && p[21] == 2 && memcmp(p + 32, kMac, 6) == 0 &&
                memcmp(p + 28, kIp, 4) == 0;
    require(claim == want, "ARP claim");
    bool sender = arp_sender_is(p, n, kMac);
    require(sender == (n >= 28 && memcmp(p + 22, kMac, 6) == 0), "ARP sender");
}

void ndp_reader(const std::vector<uint8_t> &m)
{
    bool advert = ndp_advert_for(m.data(), m.size(), kTarget);
    require(advert == (m.size() >= 24 && m[0] == 136 && memcmp(&m[8], kTarget, 16) == 0),
            "advertisement");
}

// An IPv4 datagram as the raw socket hands it over.
void icmp_reader(std::vector<uint8_t> d, bool ownId)
{
    int len = static_cast<int>(d.size());
    int hdr = len > 0 ? (d[0] & 15) * 4 : 0;
    // Let replies through the identifier test often enough to reach the time fields.
    if (ownId && len - hdr >= 8) {
        uint16_t id = htons(static_cast<uint16_t>(getpid()));
        memcpy(&d[static_cast<size_t>(hdr) + 4], &id, 2);
    }
    IcmpTime sent = {-7, -7};
    int r = net_UnPackIcmp(reinterpret_cast<const char *>(d.data()), len, &sent);
    if (len - hdr < 8) {
        require(r == -1, "short reply refused");
        return;
    }
    const uint8_t *icmp = d.data() + hdr;
    bool match = icmp[0] == 0 && (icmp[4] << 8 | icmp[5]) == getpid();
    require((r == 0) == match, "reply match");
    if (r != 0) {
        require(sent.iSec == -7 && sent.iUsec == -7, "time untouched on refusal");
        return;
    }
    uint8_t stamp[8] = {0};
    int avail = len - hdr - 8;
    memcpy(stamp, icmp + 8, static_cast<size_t>(avail < 8 ? avail : 8));
    require(memcmp(&sent.iSec, stamp, 4) == 0 && memcmp(&sent.iUsec, stamp + 4, 4) == 0,
            "send time");
    // Arrival times come from the clock; the send time from the wire, whatever it holds.
    IcmpTime arrived = {sent.iSec, 999999};
    IcmpTime d1 = icmp_interval(arrived, sent);
    if (sent.iUsec >= 0 && sent.iUsec < 1000000)
        require(d1.iSec == 0 && d1.iUsec == 999999 - sent.iUsec, "interval");
    arrived.iUsec = 0;
    IcmpTime d2 = icmp_interval(arrived, sent);
    if (sent.iUsec > 0 && sent.iUsec < 1000000)
        require(d2.iSec == -1 && d2.iUsec == 1000000 - sent.iUsec, "one borrow");
}

void checksum_and_pack(const std::vector<uint8_t> &b)
{
    // Odd lengths, any content: no read past the length.
    (void)net_CalcuSum(reinterpret_cast<const uint16_t *>(b.data()), static_cast<int>(b.size()));
    char pkt[kIcmpBufLen];
    int size = 0;
    require(net_PackIcmpPkt(static_cast<int>(b.size()), pkt, &size) == 0 && size == kIcmpEchoLen,
            "pack");
    require(net_CalcuSum(reinterpret_cast<const uint16_t *>(pkt), size) == 0, "checksum verifies");
    uint8_t frame[kArpFrameLen];
    uint8_t ip[4] = {0};
    if (!b.empty())
        memcpy(ip, b.data(), b.size() < 4 ? b.size() : 4);
    arp_build_announce(frame, kMac, ip);
    require(arp_sender_is(frame, sizeof frame, kMac), "announce sender");
    require(!arp_reply_claims(frame, sizeof frame, kMac, ip), "announce is no reply");
    arp_build_probe(frame, kMac, ip);
    require(!arp_reply_claims(frame, sizeof frame, kMac, ip), "probe is no reply");
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    setenv("NETLIB_LOG", "none", 1);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    std::vector<uint8_t> rest(data + 1, data + size);
    switch (data[0] % 5) {
    case 0:
        arp_readers(rest);
        break;
    case 1:
        ndp_reader(rest);
        break;
    case 2:
        icmp_reader(rest, false);
        break;
    case 3:
        icmp_reader(rest, true);
        break;
    default:
        checksum_and_pack(rest);
        break;
    }
    return 0;
}
