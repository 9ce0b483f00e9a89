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

// A Unix address with one zero byte behind it: a path of exactly 108 bytes
// fills sun_path without a terminator, and tools that read sun_path as a
// string (memory checkers) then stop at that byte. The kernel is still
// given the 110-byte record alone.
struct unix_address {
    sockaddr_un addr;
    char terminator;
};

// Clears the record and copies the first len bytes of path (len must not
// exceed kUnixPathRoom); a shorter path stays terminated by the clearing.
inline void fill_unix_address(unix_address &ua, const char *path, size_t len)
{
    memset(&ua, 0, sizeof ua);
    ua.addr.sun_family = AF_UNIX;
    memcpy(ua.addr.sun_path, path, len);
}

inline const sockaddr *as_sockaddr(const unix_address &ua)
{
    return reinterpret_cast<const sockaddr *>(&ua.addr);
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
