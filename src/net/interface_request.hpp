// Filling the name field of an interface request (ifreq).
#pragma once

#include <net/if.h>
#include <string.h>

#include "common/bounded_copy.hpp"

namespace vxu::net {

// Copies at most n bytes of src and pads the rest of the n bytes with
// zeros; a source of n bytes or more leaves dst unterminated.
inline void copy_padded(char *dst, size_t n, const char *src)
{
    const size_t len = strnlen(src, n);
    memcpy(dst, src, len);
    memset(dst + len, 0, n - len);
}

// A cleared record naming the interface by at most IFNAMSIZ-1 bytes, so the
// name is always terminated (a longer name is cut).
inline void request_for(ifreq &ifr, const char *name)
{
    memset(&ifr, 0, sizeof ifr);
    copy_bounded(ifr.ifr_name, IFNAMSIZ, name);
}

// A cleared record whose name field takes up to all IFNAMSIZ bytes of the
// name, unterminated when the name is that long.
inline void request_for_full_name(ifreq &ifr, const char *name)
{
    memset(&ifr, 0, sizeof ifr);
    copy_padded(ifr.ifr_name, IFNAMSIZ, name);
}

}  // namespace vxu::net
