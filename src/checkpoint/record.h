// The checkpoint record and its file: where it lives, what it holds, and the bytes on disk.
// The reader is a pure function over bytes, so a fuzz target can feed it anything.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace netlib
{

// The one place of the checkpoint's files: persistent storage, so a checkpoint outlives a
// reboot. The lock and the temporary file sit beside the checkpoint.
#define NETLIB_CKPT_DIR "/etc/libnetwork"
constexpr const char kCkptDir[] = NETLIB_CKPT_DIR;
constexpr const char kCkptPath[] = NETLIB_CKPT_DIR "/checkpoint";
constexpr const char kCkptTemp[] = NETLIB_CKPT_DIR "/checkpoint.tmp";
constexpr const char kCkptLock[] = NETLIB_CKPT_DIR "/checkpoint.lock";

// The stored state it records: the committed package file (pending changes are libuci's,
// under /tmp/.uci, and dropped at a roll-back) and the resolver file.
constexpr const char kPackagePath[] = "/etc/config/network";
constexpr const char kPendingPath[] = "/tmp/.uci/network";
constexpr const char kPendingLock[] = "/tmp/.uci/.network.lock";
constexpr const char kBootIdPath[] = "/proc/sys/kernel/random/boot_id";

constexpr uint32_t kCkptVersion = 1;
constexpr unsigned kCkptPorts = 2;
constexpr unsigned kCkptAddrs = 16;  // per port, IPv4 and IPv6 together
constexpr unsigned kCkptRoutes = 16; // per port
constexpr uint32_t kCkptMaxBlob = 256 * 1024;

struct CkptAddr {
    uint8_t family; // AF_INET or AF_INET6
    uint8_t prefix;
    uint8_t hasBrd; // IPv4: brd holds the broadcast address
    uint8_t pad;
    uint8_t addr[16];
    uint8_t brd[4];
};

struct CkptRoute {
    uint8_t family;
    uint8_t dstLen;
    uint8_t protocol;
    uint8_t scope;
    uint8_t hasGw;
    uint8_t pad[3];
    uint32_t priority; // 0: none given
    uint8_t dst[16];
    uint8_t gw[16];
};

struct CkptPort {
    char name[16];
    uint8_t present; // the interface existed when recorded
    uint8_t up;
    uint8_t dhcp; // stored IPv4 mode, non-zero for DHCP: bit 0 "proto", bit 1 "ipv4dhcp"
    uint8_t naddrs;
    uint8_t nroutes;
    uint8_t pad[3];
    uint32_t mtu;
    CkptAddr addrs[kCkptAddrs];
    CkptRoute routes[kCkptRoutes];
};

// The fixed part of the body; the package and resolver bytes follow it.
struct CkptFixed {
    uint64_t deadlineMs; // CLOCK_BOOTTIME
    int64_t createdUnix;
    uint32_t timeoutS;
    uint32_t nports;
    char bootId[40];
    uint8_t pkgPresent;
    uint8_t resolvPresent;
    uint8_t pad[2];
    uint32_t pkgLen;
    uint32_t resolvLen;
    uint32_t pad2;
    CkptPort ports[kCkptPorts];
};

// The bytes on disk: the same on every target the library is built for.
static_assert(sizeof(CkptPort) == 1116 && sizeof(CkptFixed) == 2312, "checkpoint layout");

// A record: the fixed part and views of the two files' bytes (into the bytes parsed, or the
// buffers read at creation).
struct CkptRecord {
    CkptFixed f;
    const uint8_t *pkg;
    const uint8_t *resolv;
};

// Header of the file: magic, version, body length, FNV-1a of the body.
struct CkptHeader {
    char magic[8];
    uint32_t version;
    uint32_t bodyLen;
    uint32_t checksum;
    uint32_t pad;
};
static_assert(sizeof(CkptHeader) == 24, "checkpoint header");
constexpr char kCkptMagic[8] = {'N', 'E', 'T', 'C', 'K', 'P', 'T', '\n'};

uint32_t ckpt_fnv1a(const uint8_t *p, size_t n);
// Parses a checkpoint file: null when whole and sound (rec filled, its views pointing into
// buf), else the reason in words; rec is then unusable.
const char *ckpt_parse(const uint8_t *buf, size_t len, CkptRecord &rec);
// The file's bytes for rec, in a buffer of malloc's that the caller frees; null when out of
// memory. *len gets the length.
uint8_t *ckpt_serialise(const CkptRecord &rec, size_t *len);

} // namespace netlib
