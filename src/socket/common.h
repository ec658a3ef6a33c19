// Pieces the three socket families share: waiting on one descriptor, the non-blocking
// switch, the pending-error read, address lengths and the exact-read and whole-write loops.
// Each family keeps its own results and diagnostics; only the mechanics live here.
#pragma once

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/types.h>

namespace netlib
{

enum class Wait { Read, Write };

// select() on a single descriptor: its result (1, 0 on time-out, -1 with errno), and in
// *inSet whether the descriptor came back in the set. tv may be null (no limit) and may be
// changed, as select changes it. A descriptor out of fd_set's range is never
// put in a set (that would write past it): a negative one fails with EBADF, a large one is
// waited for with ppoll under the same rules.
int select_one(int fd, Wait dir, struct timeval *tv, bool *inSet);

// The time value of a millisecond time-out: whole seconds and the remainder in µs.
struct timeval ms_timeval(int ms);

// FIONBIO on or off; the ioctl result.
int set_nonblocking(int fd, int on);

// The socket's pending error (SO_ERROR); -1 when it cannot be read.
int pending_error(int fd);

// What the kernel is handed for an address: 16 bytes for IPv4, 28 for anything else.
socklen_t sockaddr_len(const struct sockaddr *sa);

// Address of a 28-byte storage, for the calls that take struct sockaddr.
constexpr socklen_t kSockaddrStorageLen = 28;

// The end of a transfer loop: its result, and the errno of the call that failed it (0 when
// none did), so that each family reports the failure in its own way.
struct Transfer {
    int result;
    int failedErrno;
};

// Reads exactly len bytes unless the peer closes: per pass a fresh 10 s wait; a failed or
// expired wait gives -1 and drops what was read; a recv error other than EINTR gives -1 with
// its errno; EINTR counts as nothing read.
Transfer read_exact_strict(int fd, void *buf, int len);

// Sends the whole buffer with MSG_NOSIGNAL; EINTR counts as nothing sent; another error gives
// -1 with its errno. Success gives len.
Transfer write_all(int fd, const void *buf, int len);

} // namespace netlib
