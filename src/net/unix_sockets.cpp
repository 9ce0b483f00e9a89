// Unix-domain stream servers and clients, and datagram servers, at
// filesystem paths.
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <vxutil/net.h>

#include "common/socket_address.hpp"
#include "common/unique_fd.hpp"

namespace {

// A socket of the given type and the address for path; invalid when the
// path is absent or longer than the address can hold (refused before any
// socket is made) or when socket fails.
vxu::unique_fd unix_socket_for(const char *path, int type, vxu::unix_address &addr)
{
    if (!path)
        return vxu::unique_fd();
    const size_t len = strlen(path);
    if (len > vxu::kUnixPathRoom)
        return vxu::unique_fd();
    vxu::unique_fd fd(socket(AF_UNIX, type, 0));
    if (fd)
        vxu::fill_unix_address(addr, path, len);
    return fd;
}

}  // namespace

extern "C" {

VXU_API int vexmar_create_unix_server(const char *path, int backlog)
{
    vxu::unix_address addr;
    vxu::unique_fd fd = unix_socket_for(path, SOCK_STREAM, addr);
    if (!fd)
        return -1;
    unlink(path);  // a socket file left by an earlier run would block the bind
    if (bind(fd.get(), vxu::as_sockaddr(addr), vxu::kUnixAddressLength) != 0 ||
        listen(fd.get(), backlog) != 0)
        return -1;
    return fd.release();
}

VXU_API int vexmar_create_unix_client(const char *path)
{
    vxu::unix_address addr;
    vxu::unique_fd fd = unix_socket_for(path, SOCK_STREAM, addr);
    if (!fd || connect(fd.get(), vxu::as_sockaddr(addr), vxu::kUnixAddressLength) != 0)
        return -1;
    return fd.release();
}

VXU_API int vexmar_create_unix_udp_server(const char *path)
{
    // No unlink here: an existing file makes the bind fail.
    vxu::unix_address addr;
    vxu::unique_fd fd = unix_socket_for(path, SOCK_DGRAM, addr);
    if (!fd || bind(fd.get(), vxu::as_sockaddr(addr), vxu::kUnixAddressLength) != 0)
        return -1;
    return fd.release();
}

}  // extern "C"
