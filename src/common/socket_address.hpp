// Filling the IPv4 and Unix-domain address records that sockets bind and
// connect to.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdint.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace vxu {

constexpr size_t kUnixPathRoom = sizeof(sockaddr_un::sun_path);  // 108
// Unix binds and connects always pass the whole record, not the path length.
constexpr socklen_t kUnixAddressLength = sizeof(sockaddr_un);  // 110
static_assert(kUnixPathRoom == 108 && kUnixAddressLength == 110, "unexpected sockaddr_un layout");

// Clears the record and copies the first len bytes of path (len must not
// exceed kUnixPathRoom); a shorter path stays terminated by the clearing,
// one of exactly 108 bytes fills the field without a terminator.
inline void fill_unix_address(sockaddr_un &addr, const char *path, size_t len)
{
    memset(&addr, 0, sizeof addr);
    addr.sun_family = AF_UNIX;
    memcpy(addr.sun_path, path, len);
}

// AF_INET record for text (through inet_addr; NULL is the any-address) and
// a port in host order.
inline void fill_inet_address(sockaddr_in &addr, const char *text, uint16_t port)
{
    memset(&addr, 0, sizeof addr);
    addr.sin_family = AF_INET;
    addr.sin_port = htons(port);
    addr.sin_addr.s_addr = text ? inet_addr(text) : htonl(INADDR_ANY);
}

template <typename Record>
inline const sockaddr *as_sockaddr(const Record &addr)
{
    return reinterpret_cast<const sockaddr *>(&addr);
}

}  // namespace vxu
