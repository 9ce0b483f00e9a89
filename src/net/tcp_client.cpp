// IPv4 TCP client: a plain blocking connect, or a non-blocking connect
// bounded by a time-out.
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <sys/socket.h>

#include <vxutil/net.h>

#include "common/socket_address.hpp"
#include "common/unique_fd.hpp"

namespace {

// Waits for a pending connect to finish. poll rather than select, so a
// descriptor numbered 1024 or above is watched without overrunning a set.
bool finish_connect(int fd, int timeout_sec)
{
    if (timeout_sec < 0) {
        errno = EINVAL;
        return false;
    }
    const int timeout_ms = timeout_sec > INT_MAX / 1000 ? INT_MAX : timeout_sec * 1000;
    pollfd pfd = {fd, POLLIN | POLLOUT, 0};
    const int ready = poll(&pfd, 1, timeout_ms);
    if (ready <= 0) {
        if (ready == 0)
            errno = ETIMEDOUT;
        return false;
    }
    int error = 0;
    socklen_t len = sizeof error;
    if (getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &len) != 0)
        return false;
    if (error != 0) {
        errno = error;
        return false;
    }
    return true;
}

bool set_nonblocking(int fd)
{
    const int flags = fcntl(fd, F_GETFL);
    return fcntl(fd, F_SETFL, flags | O_NONBLOCK) == 0;
}

}  // namespace

extern "C" {

VXU_API int vexmar_create_tcp_client(const char *local_ip, uint16_t local_port,
                                     const char *remote_ip, uint16_t remote_port, uint8_t blocking,
                                     int timeout_sec)
{
    if (!remote_ip)
        return -1;
    vxu::unique_fd fd(socket(AF_INET, SOCK_STREAM, 0));
    if (!fd)
        return -1;
    if (local_port != 0) {
        sockaddr_in local;
        vxu::fill_inet_address(local, local_ip, local_port);
        if (bind(fd.get(), vxu::as_sockaddr(local), sizeof local) != 0)
            return -1;
    }
    sockaddr_in remote;
    vxu::fill_inet_address(remote, remote_ip, remote_port);

    if (blocking) {
        if (connect(fd.get(), vxu::as_sockaddr(remote), sizeof remote) != 0)
            return -1;
        return fd.release();
    }
    // The socket stays non-blocking for the caller, also after the wait.
    if (!set_nonblocking(fd.get()))
        return -1;
    if (connect(fd.get(), vxu::as_sockaddr(remote), sizeof remote) == 0)
        return fd.release();
    if (errno != EINPROGRESS || !finish_connect(fd.get(), timeout_sec))
        return -1;
    return fd.release();
}

}  // extern "C"
