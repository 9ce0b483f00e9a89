// The wake-up socket pair shared by the queues and the timer service: a
// connected non-blocking Unix stream pair whose bytes carry no data and only
// wake the reader. The first descriptor sends, the second receives.
#pragma once

#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <vxutil/frame.h>

#include "common/fd_set_bounds.hpp"
#include "common/unique_fd.hpp"

namespace vxu {

// The kernel charges every queued one-byte write with its buffer overhead
// (several hundred bytes), so a default pair holds only a few hundred.
constexpr int kSocketCostPerWakeup = 1024;

// Raises a buffer toward what `pending` unread wake-up bytes need, never
// lowering it. The kernel caps the request at what the system allows.
inline void reserve_wakeup_room(int fd, int option, int pending)
{
    constexpr int kMostPending = (1 << 30) / kSocketCostPerWakeup;
    if (pending <= 0)
        return;
    if (pending > kMostPending)
        pending = kMostPending;
    const int wanted = pending * kSocketCostPerWakeup;
    int current = 0;
    socklen_t len = sizeof current;
    if (getsockopt(fd, SOL_SOCKET, option, &current, &len) == 0 && current >= wanted)
        return;
    setsockopt(fd, SOL_SOCKET, option, &wanted, sizeof wanted);
}

// Fills fds with the sending and receiving ends. Both stay -1 when the pair
// cannot be made or either end would not fit a select set. `pending` is how
// many unread bytes the pair should be able to hold (0: the default).
inline void open_wakeup_pair(int fds[2], bool cloexec, int pending)
{
    fds[0] = fds[1] = -1;
    int made[2] = {-1, -1};
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, made) != 0)
        return;
    unique_fd sender(made[0]);
    unique_fd receiver(made[1]);
    if (!fits_fd_set(sender.get()) || !fits_fd_set(receiver.get()))
        return;
    for (int fd : made) {
        vxu_com_fd_noblock(fd, 1);
        if (cloexec)
            vxu_com_fd_cloexec(fd, 1);
    }
    reserve_wakeup_room(sender.get(), SO_SNDBUF, pending);
    reserve_wakeup_room(receiver.get(), SO_RCVBUF, pending);
    fds[0] = sender.release();
    fds[1] = receiver.release();
}

// Writes one wake-up byte; true when it went out. A reader that has gone
// away is a failed write, never a SIGPIPE to the caller's process.
inline bool post_wakeup(int wfd)
{
    const unsigned char one = 1;
    return send(wfd, &one, 1, MSG_NOSIGNAL) == 1;
}

// Drops up to 16 pending wake-up bytes; never blocks.
inline void drop_wakeups(int rfd)
{
    unsigned char buf[16];
    const ssize_t n = read(rfd, buf, sizeof buf);
    (void)n;
}

// select() on one descriptor for reading (which must fit a set).
inline int wait_readable(int fd, struct timeval *timeout)
{
    fd_set set;
    FD_ZERO(&set);
    FD_SET(fd, &set);
    return select(fd + 1, &set, nullptr, nullptr, timeout);
}

}  // namespace vxu
