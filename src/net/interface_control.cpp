// Interface attributes through the kernel's interface ioctls, each call on
// its own throw-away control socket.
#include <net/if.h>
#include <net/if_arp.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <vxutil/net.h>

#include "common/unique_fd.hpp"
#include "net/interface_request.hpp"

namespace {

constexpr int kMacLength = 6;

// One request on a fresh control socket: 0 when the ioctl succeeded, -1
// when it failed or no socket could be made.
int control_request(unsigned long request, ifreq &ifr)
{
    vxu::unique_fd fd(socket(AF_INET, SOCK_DGRAM, 0));
    if (!fd)
        return -1;
    return ioctl(fd.get(), request, &ifr) < 0 ? -1 : 0;
}

bool valid_mac_request(const char *name, const uint8_t *mac, int len)
{
    return name && name[0] != '\0' && mac && len >= kMacLength;
}

}  // namespace

using vxu::net::request_for;
using vxu::net::request_for_full_name;

extern "C" {

VXU_API int vxu_net_get_ifname(int index, char *name, int size)
{
    if (!name || size <= 0)
        return -1;
    ifreq ifr;
    memset(&ifr, 0, sizeof ifr);
    ifr.ifr_ifindex = index;
    if (control_request(SIOCGIFNAME, ifr) != 0)
        return -1;
    vxu::net::copy_padded(name, static_cast<size_t>(size) - 1, ifr.ifr_name);
    name[size - 1] = '\0';
    return 0;
}

VXU_API int vxu_net_get_ifindex(const char *name, int *index)
{
    if (!name)
        return -1;
    ifreq ifr;
    request_for(ifr, name);
    if (control_request(SIOCGIFINDEX, ifr) != 0)
        return -1;
    if (index)
        *index = ifr.ifr_ifindex;
    return 0;
}

VXU_API int vxu_net_get_ifflag(const char *name, int *flags)
{
    if (!name || !flags)
        return -1;
    ifreq ifr;
    request_for(ifr, name);
    if (control_request(SIOCGIFFLAGS, ifr) != 0)
        return -1;
    *flags = ifr.ifr_flags;  // a short: bit 15 makes the int negative
    return 0;
}

VXU_API int vxu_net_set_ifflag(const char *name, uint16_t flags)
{
    if (!name)
        return -1;
    ifreq ifr;
    request_for(ifr, name);
    ifr.ifr_flags = static_cast<short>(flags);
    return control_request(SIOCSIFFLAGS, ifr);
}

VXU_API int vxu_net_set_ifup(const char *name)
{
    int flags;
    if (vxu_net_get_ifflag(name, &flags) != 0)
        return -1;
    if (flags & IFF_UP)
        return 0;
    return vxu_net_set_ifflag(name, static_cast<uint16_t>(flags | IFF_UP));
}

VXU_API int vxu_net_set_ifdown(const char *name)
{
    int flags;
    if (vxu_net_get_ifflag(name, &flags) != 0)
        return -1;
    if (!(flags & IFF_UP))
        return 0;
    return vxu_net_set_ifflag(name, static_cast<uint16_t>(flags & ~IFF_UP));
}

VXU_API int vxu_net_set_ifmtu(const char *name, int mtu)
{
    if (!name)
        return -1;
    ifreq ifr;
    request_for(ifr, name);
    ifr.ifr_mtu = mtu;
    return control_request(SIOCSIFMTU, ifr);
}

VXU_API int vxu_net_get_ifmtu(const char *name, int *mtu)
{
    if (!name)
        return -1;
    ifreq ifr;
    request_for(ifr, name);
    if (control_request(SIOCGIFMTU, ifr) != 0)
        return -1;
    if (mtu)
        *mtu = ifr.ifr_mtu;
    return 0;
}

VXU_API int vxu_net_set_ifmac(const char *name, const uint8_t *mac, int len)
{
    if (!valid_mac_request(name, mac, len))
        return -1;
    ifreq ifr;
    request_for_full_name(ifr, name);
    ifr.ifr_hwaddr.sa_family = ARPHRD_ETHER;
    memcpy(ifr.ifr_hwaddr.sa_data, mac, kMacLength);
    return control_request(SIOCSIFHWADDR, ifr);
}

VXU_API int vxu_net_get_ifmac(const char *name, uint8_t *mac, int len)
{
    if (!valid_mac_request(name, mac, len))
        return -1;
    ifreq ifr;
    request_for_full_name(ifr, name);
    ifr.ifr_hwaddr.sa_family = ARPHRD_ETHER;
    if (control_request(SIOCGIFHWADDR, ifr) != 0)
        return -1;
    memcpy(mac, ifr.ifr_hwaddr.sa_data, kMacLength);
    return 0;
}

}  // extern "C"
