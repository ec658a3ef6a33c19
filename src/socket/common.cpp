#include "socket/common.h"

#include <errno.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/select.h>

namespace netlib
{

namespace
{

constexpr long kUsecPerSec = 1000000;

// select's readiness classes: a read set reports hang-ups and errors too, a write set errors.
short wanted_events(Wait dir)
{
    return dir == Wait::Read ? POLLIN : POLLOUT;
}

bool counts_as_ready(Wait dir, short revents)
{
    if (dir == Wait::Read)
        return (revents & (POLLIN | POLLHUP | POLLERR)) != 0;
    return (revents & (POLLOUT | POLLERR)) != 0;
}

// Descriptors select cannot hold: the same wait through ppoll. select accepts microseconds
// of a second or more and normalises them; ppoll wants them normalised.
int poll_one(int fd, Wait dir, struct timeval *tv, bool *inSet)
{
    struct timespec ts;
    struct timespec *pts = nullptr;
    if (tv != nullptr) {
        if (tv->tv_sec < 0 || tv->tv_usec < 0) {
            errno = EINVAL;
            return -1;
        }
        ts.tv_sec = tv->tv_sec + tv->tv_usec / kUsecPerSec;
        ts.tv_nsec = (tv->tv_usec % kUsecPerSec) * 1000;
        pts = &ts;
    }
    struct pollfd pfd = {fd, wanted_events(dir), 0};
    int r = ppoll(&pfd, 1, pts, nullptr);
    if (r > 0 && (pfd.revents & POLLNVAL) != 0) {
        errno = EBADF;
        return -1;
    }
    if (tv != nullptr && r == 0)
        *tv = timeval{0, 0};
    *inSet = r > 0 && counts_as_ready(dir, pfd.revents);
    return r;
}

} // namespace

int select_one(int fd, Wait dir, struct timeval *tv, bool *inSet)
{
    *inSet = false;
    if (fd < 0) {
        errno = EBADF;
        return -1;
    }
    if (fd >= FD_SETSIZE)
        return poll_one(fd, dir, tv, inSet);
    fd_set set;
    FD_ZERO(&set);
    FD_SET(fd, &set);
    int r = dir == Wait::Read ? select(fd + 1, &set, nullptr, nullptr, tv)
                              : select(fd + 1, nullptr, &set, nullptr, tv);
    *inSet = r > 0 && FD_ISSET(fd, &set);
    return r;
}

struct timeval ms_timeval(int ms)
{
    struct timeval tv;
    tv.tv_sec = ms / 1000;
    tv.tv_usec = (ms % 1000) * 1000;
    return tv;
}

int set_nonblocking(int fd, int on)
{
    return ioctl(fd, FIONBIO, &on);
}

int pending_error(int fd)
{
    int err = 0;
    socklen_t len = sizeof err;
    if (getsockopt(fd, SOL_SOCKET, SO_ERROR, &err, &len) != 0)
        return -1;
    return err;
}

socklen_t sockaddr_len(const struct sockaddr *sa)
{
    return sa->sa_family == AF_INET ? 16 : kSockaddrStorageLen;
}

Transfer read_exact_strict(int fd, void *buf, int len)
{
    char *p = static_cast<char *>(buf);
    int left = len;
    while (left > 0) {
        struct timeval tv = {10, 0};
        bool ready = false;
        if (select_one(fd, Wait::Read, &tv, &ready) < 1)
            return {-1, 0}; // deliberate: what was read so far is dropped
        ssize_t n = recv(fd, p, static_cast<size_t>(left), 0);
        if (n < 0) {
            if (errno != EINTR)
                return {-1, errno};
            n = 0;
        } else if (n == 0) {
            break;
        }
        p += n;
        left -= static_cast<int>(n);
    }
    return {len - left, 0};
}

Transfer write_all(int fd, const void *buf, int len)
{
    const char *p = static_cast<const char *>(buf);
    int left = len;
    while (left > 0) {
        ssize_t n = send(fd, p, static_cast<size_t>(left), MSG_NOSIGNAL);
        if (n < 0) {
            if (errno != EINTR)
                return {-1, errno};
            n = 0;
        }
        p += n;
        left -= static_cast<int>(n);
    }
    return {len, 0};
}

} // namespace netlib
