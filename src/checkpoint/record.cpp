#include "checkpoint/record.h"

#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>

namespace netlib
{

namespace
{

bool terminated(const char *s, size_t cap)
{
    return memchr(s, '\0', cap) != nullptr;
}

unsigned max_prefix(uint8_t family)
{
    return family == AF_INET ? 32 : family == AF_INET6 ? 128 : 0;
}

// Every field within what the roll-back may act on: a file that passes the checksum but
// holds nonsense is refused as a whole, never applied in part.
const char *check_port(const CkptPort &p)
{
    if (p.name[0] == '\0' || !terminated(p.name, sizeof p.name))
        return "port name";
    if (p.naddrs > kCkptAddrs || p.nroutes > kCkptRoutes || p.present > 1 || p.up > 1 || p.dhcp > 3)
        return "port fields";
    for (unsigned i = 0; i < p.naddrs; ++i) {
        const CkptAddr &a = p.addrs[i];
        if (max_prefix(a.family) == 0 || a.prefix > max_prefix(a.family) || a.hasBrd > 1)
            return "address";
    }
    for (unsigned i = 0; i < p.nroutes; ++i) {
        const CkptRoute &r = p.routes[i];
        if (max_prefix(r.family) == 0 || r.dstLen > max_prefix(r.family) || r.hasGw > 1)
            return "route";
    }
    return nullptr;
}

} // namespace

uint32_t ckpt_fnv1a(const uint8_t *p, size_t n)
{
    uint32_t h = 2166136261u;
    for (size_t i = 0; i < n; ++i)
        h = (h ^ p[i]) * 16777619u;
    return h;
}

const char *ckpt_parse(const uint8_t *buf, size_t len, CkptRecord &rec)
{
    CkptHeader h;
    if (len < sizeof h)
        return "shorter than its header";
    memcpy(&h, buf, sizeof h);
    if (memcmp(h.magic, kCkptMagic, sizeof h.magic) != 0)
        return "not a checkpoint file";
    if (h.version != kCkptVersion)
        return "unknown version";
    if (h.bodyLen != len - sizeof h)
        return "length differs from its header (torn)";
    const uint8_t *body = buf + sizeof h;
    if (ckpt_fnv1a(body, h.bodyLen) != h.checksum)
        return "checksum mismatch";
    CkptFixed &f = rec.f;
    if (h.bodyLen < sizeof f)
        return "body too short";
    memcpy(&f, body, sizeof f);
    if (f.pkgLen > kCkptMaxBlob || f.resolvLen > kCkptMaxBlob ||
        h.bodyLen != sizeof f + f.pkgLen + f.resolvLen)
        return "file lengths";
    if (f.pkgPresent > 1 || f.resolvPresent > 1 || (!f.pkgPresent && f.pkgLen != 0) ||
        (!f.resolvPresent && f.resolvLen != 0))
        return "file flags";
    if (f.timeoutS < 1 || f.timeoutS > 86400 || f.nports > kCkptPorts ||
        !terminated(f.bootId, sizeof f.bootId))
        return "header fields";
    for (unsigned i = 0; i < f.nports; ++i)
        if (const char *why = check_port(f.ports[i]))
            return why;
    rec.pkg = body + sizeof f;
    rec.resolv = rec.pkg + f.pkgLen;
    return nullptr;
}

uint8_t *ckpt_serialise(const CkptRecord &rec, size_t *len)
{
    const CkptFixed &f = rec.f;
    size_t body = sizeof f + f.pkgLen + f.resolvLen;
    uint8_t *out = static_cast<uint8_t *>(malloc(sizeof(CkptHeader) + body));
    if (out == nullptr)
        return nullptr;
    uint8_t *b = out + sizeof(CkptHeader);
    memcpy(b, &f, sizeof f);
    if (f.pkgLen)
        memcpy(b + sizeof f, rec.pkg, f.pkgLen);
    if (f.resolvLen)
        memcpy(b + sizeof f + f.pkgLen, rec.resolv, f.resolvLen);
    CkptHeader h = {};
    memcpy(h.magic, kCkptMagic, sizeof h.magic);
    h.version = kCkptVersion;
    h.bodyLen = static_cast<uint32_t>(body);
    h.checksum = ckpt_fnv1a(b, body);
    memcpy(out, &h, sizeof h);
    *len = sizeof h + body;
    return out;
}

} // namespace netlib
