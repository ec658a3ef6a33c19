// The event reader on arbitrary datagrams, as if the kernel had sent them: the first byte
// picks the filter and whether the datagram is read as a dump answer (learning) or as
// events; the rest goes through the message walker, the attribute walker and the reader.
// Events must keep their promises: a known kind, terminated texts, the reserved bytes zero.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>

#include "events/netlink_walk.h"
#include "events/watch.h"
#include "libnetwork.h"
#include "fuzz_support.h"

using namespace netlib;
using fuzzsupport::require;

namespace
{

bool terminated(const char *s, size_t cap)
{
    return memchr(s, '\0', cap) != nullptr;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 1)
        return 0;
    static Watch w;
    static const char *const names[] = {"lan1", "lo"};
    uint8_t mode = data[0];
    watch_init(w, NET_EVENT_ALL & (mode | 1u), names, (mode >> 5) & 1 ? 2 : 0);

    // An exactly sized copy, so reading one byte past the datagram is caught.
    uint8_t *buf = static_cast<uint8_t *>(malloc(size - 1 ? size - 1 : 1));
    memcpy(buf, data + 1, size - 1);
    for (int pass = 0; pass < 2; ++pass) {
        NlMsgWalk walk(buf, size - 1);
        NlMsg msg;
        while (walk.next(&msg)) {
            require(msg.data >= buf && msg.data + msg.len <= buf + size - 1,
                    "message within input");
            NlAttrWalk attrs(msg.data, msg.len);
            NlAttr a;
            while (attrs.next(&a))
                require(a.data >= msg.data && a.data + a.len <= msg.data + msg.len,
                        "attribute within message");
            // The first pass learns when asked to, the second reports against what it learned.
            watch_message(w, msg, 1, pass == 0 && (mode & 0x40));
        }
    }
    free(buf);

    NetEvent ev;
    unsigned n = 0;
    while (watch_pop(w, &ev)) {
        require(++n <= kWatchQueue + 1, "queue bound");
        require(ev.iKind >= NET_EVENT_OVERRUN && ev.iKind <= NET_EVENT_ROUTE_DEL, "known kind");
        require(terminated(ev.szIfName, sizeof ev.szIfName), "terminated name");
        require(terminated(ev.szAddr, sizeof ev.szAddr), "terminated address");
        require(terminated(ev.szGateway, sizeof ev.szGateway), "terminated gateway");
        require(memcmp(ev.acReserved, "\0\0\0\0", 4) == 0, "reserved bytes zero");
        require(ev.iFamily == 0 || ev.iFamily == AF_INET || ev.iFamily == AF_INET6, "family");
    }
    return 0;
}
