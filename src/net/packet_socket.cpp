// Raw link-layer socket bound to one interface and one protocol.
#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <vxutil/net.h>

#include "common/socket_address.hpp"
#include "common/unique_fd.hpp"
#include "net/interface_request.hpp"

extern "C" {

VXU_API int vexmar_packet_listen(const char *ifname, uint16_t protocol)
{
    // A name that does not fit the request with its terminator names no
    // interface the kernel could have.
    if (!ifname || strlen(ifname) >= IFNAMSIZ)
        return -1;
    const uint16_t wire_protocol = htons(protocol);
    vxu::unique_fd fd(socket(AF_PACKET, SOCK_RAW, wire_protocol));
    if (!fd)
        return -1;
    ifreq ifr;
    vxu::net::request_for(ifr, ifname);
    if (ioctl(fd.get(), SIOCGIFINDEX, &ifr) != 0)
        return -1;
    sockaddr_ll link;
    memset(&link, 0, sizeof link);
    link.sll_family = AF_PACKET;
    link.sll_protocol = wire_protocol;
    link.sll_ifindex = ifr.ifr_ifindex;
    if (bind(fd.get(), vxu::as_sockaddr(link), sizeof link) != 0)
        return -1;
    return fd.release();
}

}  // extern "C"
