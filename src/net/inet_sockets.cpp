// IPv4 TCP listening sockets and bound UDP sockets.
#include <sys/socket.h>

#include <vxutil/net.h>

#include "common/socket_address.hpp"
#include "common/unique_fd.hpp"

namespace {

// A socket of the given type bound to local_ip:port; invalid on failure.
vxu::unique_fd bound_inet_socket(int type, const char *local_ip, uint16_t port)
{
    vxu::unique_fd fd(socket(AF_INET, type, 0));
    if (!fd)
        return fd;
    sockaddr_in addr;
    vxu::fill_inet_address(addr, local_ip, port);
    if (bind(fd.get(), vxu::as_sockaddr(addr), sizeof addr) != 0)
        fd.reset();
    return fd;
}

}  // namespace

extern "C" {

VXU_API int vexmar_create_tcp_server(const char *local_ip, uint16_t port, int backlog)
{
    vxu::unique_fd fd = bound_inet_socket(SOCK_STREAM, local_ip, port);
    if (!fd || listen(fd.get(), backlog) != 0)
        return -1;
    return fd.release();
}

VXU_API int vexmar_create_udp(const char *local_ip, uint16_t port)
{
    vxu::unique_fd fd = bound_inet_socket(SOCK_DGRAM, local_ip, port);
    return fd ? fd.release() : -1;
}

}  // extern "C"
