// Checkpoints: the stored and live network state recorded in one file, put back unless
// confirmed in time. Writers take turns on a lock file beside the checkpoint; every file is
// replaced whole (temporary file, fsync, rename, directory fsync), so a crash leaves the old
// or the new version, never a mix.
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include "base/log.h"
#include "base/unique_fd.h"
#include "checkpoint/live.h"
#include "checkpoint/record.h"
#include "config/uci_access.h"
#include "libnetwork.h"
#include "link/proc_tables.h"

using namespace netlib;

namespace
{

// An exclusive flock held for the scope; closing the descriptor drops it.
class FileLock
{
  public:
    bool take(const char *path, bool create, bool wait = true)
    {
        fd_.reset(open(path, O_RDWR | O_CLOEXEC | O_NOFOLLOW | (create ? O_CREAT : 0), 0600));
        while (fd_.valid() && flock(fd_.get(), wait ? LOCK_EX : LOCK_EX | LOCK_NB) != 0)
            if (errno != EINTR)
                fd_.reset();
        return fd_.valid();
    }

  private:
    UniqueFd fd_;
};

// A whole file in memory of malloc's; absent is a state of its own.
struct Blob {
    uint8_t *p = nullptr;
    size_t len = 0;
    bool present = false;
    ~Blob() { free(p); }
};

// 0 with the bytes (or with present false when there is no file), -1 with errno.
int read_all(const char *path, Blob &b)
{
    UniqueFd fd(open(path, O_RDONLY | O_CLOEXEC));
    if (!fd.valid())
        return errno == ENOENT ? 0 : -1;
    size_t cap = 0;
    for (;;) {
        if (b.len == cap) {
            if (cap > kCkptMaxBlob + sizeof(CkptFixed) + sizeof(CkptHeader)) {
                errno = EFBIG;
                return -1;
            }
            cap = cap ? cap * 2 : 4096;
            void *p = realloc(b.p, cap);
            if (p == nullptr)
                return -1;
            b.p = static_cast<uint8_t *>(p);
        }
        ssize_t n = read(fd.get(), b.p + b.len, cap - b.len);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return -1;
        if (n == 0)
            break;
        b.len += static_cast<size_t>(n);
    }
    b.present = true;
    return 0;
}

// The folder of a path, into dir (at least PATH_MAX bytes).
void dir_of(const char *path, char *dir)
{
    const char *slash = strrchr(path, '/');
    size_t n = slash == nullptr ? 0 : slash == path ? 1 : static_cast<size_t>(slash - path);
    memcpy(dir, slash == nullptr ? "." : path, slash == nullptr ? 1 : n);
    dir[slash == nullptr ? 1 : n] = '\0';
}

int sync_dir(const char *path)
{
    char dir[PATH_MAX];
    dir_of(path, dir);
    UniqueFd fd(open(dir, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return fd.valid() && fsync(fd.get()) == 0 ? 0 : -1;
}

// Replaces path with the bytes through temp, crash-safely; -1 with errno.
int write_whole(const char *path, const char *temp, const void *data, size_t len, mode_t mode)
{
    UniqueFd fd(open(temp, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, mode));
    const uint8_t *p = static_cast<const uint8_t *>(data);
    for (size_t done = 0; fd.valid() && done < len;) {
        ssize_t n = write(fd.get(), p + done, len - done);
        if (n < 0 && errno != EINTR)
            fd.reset();
        else if (n > 0)
            done += static_cast<size_t>(n);
    }
    bool ok = fd.valid() && fchmod(fd.get(), mode) == 0 && fsync(fd.get()) == 0;
    int err = errno;
    fd.reset();
    if (!ok || rename(temp, path) != 0) {
        err = ok ? errno : err;
        unlink(temp);
        errno = err;
        return -1;
    }
    return sync_dir(path);
}

// Puts a recorded file back (written through a symbolic link), or removes it when it was
// absent. Nothing is written when it holds the recorded bytes already.
int restore_file(const char *path, bool present, const uint8_t *data, size_t len)
{
    Blob now;
    if (read_all(path, now) == 0 && now.present == present &&
        (!present || (now.len == len && (len == 0 || memcmp(now.p, data, len) == 0))))
        return 0;
    if (!present)
        return unlink(path) == 0 || errno == ENOENT ? sync_dir(path) : -1;
    char target[PATH_MAX], temp[PATH_MAX + 16], dir[PATH_MAX];
    if (realpath(path, target) == nullptr)
        snprintf(target, sizeof target, "%s", path);
    struct stat st;
    mode_t mode = stat(target, &st) == 0 ? (st.st_mode & 07777) : 0644;
    dir_of(target, dir);
    snprintf(temp, sizeof temp, "%s/.%s.ckpt", dir, target + strlen(dir) + (dir[1] != '\0'));
    return write_whole(target, temp, data, len, mode);
}

uint64_t boot_ms()
{
    struct timespec ts;
    clock_gettime(CLOCK_BOOTTIME, &ts);
    return static_cast<uint64_t>(ts.tv_sec) * 1000u + static_cast<uint64_t>(ts.tv_nsec) / 1000000u;
}

// This boot's identity ("" when unreadable).
void boot_id(char out[40])
{
    memset(out, 0, 40);
    UniqueFd fd(open(kBootIdPath, O_RDONLY | O_CLOEXEC));
    if (fd.valid() && read(fd.get(), out, 39) < 0)
        out[0] = '\0';
    out[strcspn(out, "\n")] = '\0';
}

// The ports' stored IPv4 modes, from the package as libuci reads it.
void dhcp_modes(CkptFixed &f)
{
    UciPackage pkg;
    if (access(kPackagePath, F_OK) == 0)
        pkg.reset(NET_CreatePackage(kNetworkPkg));
    for (unsigned i = 0; i < f.nports; ++i) {
        CkptPort &p = f.ports[i];
        struct uci_section *sec = pkg.get() != nullptr
                                      ? NET_GetSection(pkg.get(), NET_GetUciNameByIfName(p.name))
                                      : nullptr;
        char v4[8] = "", proto[16] = "";
        if (sec != nullptr) {
            NET_GetOption(sec, "ipv4dhcp", v4, sizeof v4);
            NET_GetOption(sec, "proto", proto, sizeof proto);
        }
        // As the network service reads them: "proto" dhcp, or "ipv4dhcp" 1 unless static.
        p.dhcp =
            static_cast<uint8_t>((strcmp(proto, "dhcp") == 0 ? 1 : 0) |
                                 (strcmp(v4, "1") == 0 && strcmp(proto, "static") != 0 ? 2 : 0));
    }
}

enum class Read { None, Bad, Ok };

// The checkpoint file, parsed into rec (its views into file).
Read load(Blob &file, CkptRecord &rec)
{
    if (read_all(kCkptPath, file) != 0) {
        ckpt_log(NET_HERE, NETLIB_CKPT_DIR "/checkpoint unreadable", strerror(errno));
        return Read::Bad;
    }
    if (!file.present)
        return Read::None;
    if (const char *why = ckpt_parse(file.p, file.len, rec)) {
        ckpt_log(NET_HERE, NETLIB_CKPT_DIR "/checkpoint refused, nothing applied", why);
        return Read::Bad;
    }
    return Read::Ok;
}

bool due(const CkptFixed &f, int64_t *remainingMs)
{
    char id[40];
    boot_id(id);
    bool same = strcmp(id, f.bootId) == 0;
    uint64_t now = boot_ms();
    *remainingMs = same && now < f.deadlineMs ? static_cast<int64_t>(f.deadlineMs - now) : 0;
    return *remainingMs == 0;
}

bool lock(FileLock &l, bool wait = true)
{
    mkdir(kCkptDir, 0755);
    if (l.take(kCkptLock, true, wait))
        return true;
    if (errno != EWOULDBLOCK)
        ckpt_log(NET_HERE, "lock", strerror(errno));
    return false;
}

int drop()
{
    if (unlink(kCkptPath) != 0)
        return -1;
    sync_dir(kCkptPath);
    return 0;
}

// Roll-back under the lock; with `poll`, only when due. -1 none or refused (poll: 0 none),
// 0 not due, 1 done whole, 2 done with failures.
int roll_back(CkptOutcome &out, bool poll)
{
    // A poll finds another process at work (a roll-back whose network restart may run a
    // poll itself) and leaves it to finish rather than wait for it.
    FileLock l;
    if (!lock(l, !poll))
        return poll && errno == EWOULDBLOCK ? 0 : -1;
    Blob file;
    CkptRecord rec;
    Read r = load(file, rec);
    int64_t remaining;
    if (r == Read::None) {
        if (!poll)
            ckpt_log(NET_HERE, "none to roll back");
        return poll ? 0 : -1;
    }
    if (r == Read::Bad)
        return -1;
    if (poll && !due(rec.f, &remaining))
        return 0;
    const CkptFixed &f = rec.f;
    CkptFixed before = f;
    dhcp_modes(before);

    // Stored state first: a connection lost half-way still finds it right after a restart.
    out.tried = NET_CKPT_R_PACKAGE | NET_CKPT_R_RESOLV;
    {
        FileLock commits; // libuci commits of "network" take turns with us here
        commits.take(kPendingLock, false);
        if (restore_file(kPackagePath, f.pkgPresent, rec.pkg, f.pkgLen) != 0)
            out.fail(NET_CKPT_R_PACKAGE, "", kPackagePath, errno);
        if (unlink(kPendingPath) != 0 && errno != ENOENT)
            out.fail(NET_CKPT_R_PACKAGE, "", kPendingPath, errno);
    }
    if (restore_file(kResolvPath, f.resolvPresent, rec.resolv, f.resolvLen) != 0)
        out.fail(NET_CKPT_R_RESOLV, "", kResolvPath, errno);
    ckpt_restore_live(f, out);
    // A DHCP port needs its client started again, and one that left or took DHCP mode since
    // needs its client stopped or started: the network restart does both.
    const char *dhcpPort = nullptr;
    for (unsigned i = 0; i < f.nports; ++i)
        if (dhcpPort == nullptr &&
            (f.ports[i].dhcp != 0 || before.ports[i].dhcp != f.ports[i].dhcp))
            dhcpPort = f.ports[i].name;
    if (dhcpPort != nullptr) {
        out.tried |= NET_CKPT_R_DHCP;
        if (NET_Restart() != 0)
            out.fail(NET_CKPT_R_DHCP, dhcpPort, "network restart", ECHILD);
    }
    NetRollbackResult &res = out.res;
    res.uiRestored = out.tried & ~res.uiFailed;
    if (drop() != 0)
        ckpt_log(NET_HERE, "removing the checkpoint", strerror(errno));
    if (res.uiFailed != 0) {
        NET_LOG(NET_LVL_ERR,
                "checkpoint rolled back with failures (0x%x): %s; checkpoint dropped.\n",
                res.uiFailed, res.szDetail);
        return 2;
    }
    NET_LOG(NET_LVL_INFO, "checkpoint rolled back (0x%x).\n", res.uiRestored);
    return 1;
}

int run(NetRollbackResult *pstRes, bool poll)
{
    CkptOutcome out;
    memset(&out, 0, sizeof out);
    int r = roll_back(out, poll);
    if (pstRes != nullptr)
        *pstRes = out.res;
    return r;
}

} // namespace

extern "C" {

int NET_CheckpointCreate(unsigned int uiTimeoutS)
{
    if (uiTimeoutS < 1 || uiTimeoutS > 86400) {
        NET_LOG(NET_LVL_ERR, "uiTimeoutS: %u not within 1..86400.\n", uiTimeoutS);
        return -1;
    }
    FileLock l;
    if (!lock(l))
        return -1;
    Blob file, pkg, resolv;
    CkptRecord rec;
    switch (load(file, rec)) {
    case Read::Ok:
        ckpt_log(NET_HERE, "one is pending already");
        return NET_CKPT_BUSY;
    case Read::Bad:
        ckpt_log(NET_HERE, "NET_CheckpointConfirm drops the file refused");
        return -1;
    case Read::None:
        break;
    }
    memset(&rec, 0, sizeof rec);
    CkptFixed &f = rec.f;
    // The port names settle with NET_Init; a caller that has not made it yet gets them right.
    NET_Init();
    NetIfNames names;
    NET_GetIntfNames(&names);
    f.nports = names.iIfNum > 1 ? 2 : 1;
    memcpy(f.ports[0].name, names.szFirstName, sizeof f.ports[0].name - 1);
    memcpy(f.ports[1].name, names.szSecondName, sizeof f.ports[1].name - 1);
    if (read_all(kPackagePath, pkg) != 0 || read_all(kResolvPath, resolv) != 0 ||
        pkg.len > kCkptMaxBlob || resolv.len > kCkptMaxBlob) {
        ckpt_log(NET_HERE, "reading the stored files failed", strerror(errno ? errno : EFBIG));
        return -1;
    }
    if (!ckpt_capture(f))
        return -1;
    dhcp_modes(f);
    f.pkgPresent = pkg.present;
    f.pkgLen = static_cast<uint32_t>(pkg.len);
    rec.pkg = pkg.p;
    f.resolvPresent = resolv.present;
    f.resolvLen = static_cast<uint32_t>(resolv.len);
    rec.resolv = resolv.p;
    f.timeoutS = uiTimeoutS;
    f.createdUnix = time(nullptr);
    boot_id(f.bootId);
    f.deadlineMs = boot_ms() + uiTimeoutS * 1000ull;
    size_t len = 0;
    Blob out;
    out.p = ckpt_serialise(rec, &len);
    if (out.p == nullptr || write_whole(kCkptPath, kCkptTemp, out.p, len, 0600) != 0) {
        ckpt_log(NET_HERE, "writing the checkpoint failed", strerror(errno));
        return -1;
    }
    NET_LOG(NET_LVL_INFO, "checkpoint created: roll-back in %u s unless confirmed.\n", uiTimeoutS);
    return 0;
}

int NET_CheckpointConfirm(void)
{
    FileLock l;
    if (!lock(l))
        return -1;
    if (drop() != 0) {
        ckpt_log(NET_HERE, "none to confirm", strerror(errno));
        return -1;
    }
    NET_LOG(NET_LVL_INFO, "checkpoint confirmed.\n");
    return 0;
}

int NET_CheckpointRollback(NetRollbackResult *pstRes)
{
    return run(pstRes, false) == 1 ? 0 : -1;
}

int NET_CheckpointPoll(NetRollbackResult *pstRes)
{
    if (pstRes != nullptr)
        memset(pstRes, 0, sizeof *pstRes);
    // Cheap when there is none: no lock, no directory made.
    if (access(kCkptPath, F_OK) != 0 && errno == ENOENT)
        return 0;
    int r = run(pstRes, true);
    return r == 2 ? -1 : r;
}

int NET_CheckpointStatus(NetCheckpoint *pstCkpt)
{
    NET_CHECK_ARGS(-1, "pstCkpt: %p.\n", pstCkpt);
    memset(pstCkpt, 0, sizeof *pstCkpt);
    pstCkpt->llRemainingMs = -1;
    Blob file;
    CkptRecord rec;
    Read r = load(file, rec);
    if (r != Read::Ok)
        return r == Read::None ? 0 : -1;
    char id[40];
    boot_id(id);
    pstCkpt->iSameBoot = strcmp(id, rec.f.bootId) == 0;
    pstCkpt->iState = due(rec.f, &pstCkpt->llRemainingMs) ? NET_CKPT_EXPIRED : NET_CKPT_PENDING;
    pstCkpt->uiTimeoutS = rec.f.timeoutS;
    pstCkpt->llCreatedUnix = rec.f.createdUnix;
    return 0;
}

} // extern "C"
