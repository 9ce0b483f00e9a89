// IPv4 and IPv6 addresses to and from text, and the strict dotted-quad test.
#include <arpa/inet.h>
#include <stdio.h>
#include <string.h>

#include <vxutil/net.h>

namespace {

// Per-thread result buffers of the pointer-returning conversions.
thread_local char t_ipv4_text[18];
thread_local char t_ipv6_text[INET6_ADDRSTRLEN];

constexpr size_t kIpv4TextLimit = 17;
constexpr size_t kShortestDottedQuad = 7;  // "0.0.0.0"

int ntop_into(int family, const void *addr, char *buf, int size)
{
    if (!addr || !buf || size < 1)
        return -1;
    return inet_ntop(family, addr, buf, static_cast<socklen_t>(size)) ? 0 : -1;
}

// Only digits and dots, and no field of more than three significant digits:
// %d cannot hold a long field (the scan would keep only its low bits, so a
// huge field could pass as a small one), so those are refused before
// scanning. One pass over the text.
bool plain_short_fields(const char *text)
{
    int significant = 0;
    bool leading = true;
    for (const char *p = text; *p; ++p) {
        if (*p == '.') {
            significant = 0;
            leading = true;
        } else if (*p < '0' || *p > '9') {
            return false;
        } else if (!(leading && *p == '0')) {
            leading = false;
            if (++significant > 3)
                return false;
        }
    }
    return true;
}

}  // namespace

extern "C" {

VXU_API int vxu_net_ipstr(const struct in_addr *addr, char *buf, int size)
{
    return ntop_into(AF_INET, addr, buf, size);
}

VXU_API int vxu_net_ip6str(const struct in6_addr *addr, char *buf, int size)
{
    return ntop_into(AF_INET6, addr, buf, size);
}

VXU_API int vxu_net_strip(const char *text, struct in_addr *out)
{
    if (!text || text[0] == '\0')
        return -1;
    struct in_addr scratch;
    struct in_addr *target = out ? out : &scratch;
    // Plain dotted decimal, the common case, is settled by the cheaper
    // inet_pton: whatever it accepts, inet_aton reads the same way.
    if (inet_pton(AF_INET, text, target) == 1)
        return 0;
    return inet_aton(text, target) ? 0 : -1;
}

VXU_API char *vexmar_ip_int_to_string(uint32_t addr)
{
    // Lowest-order byte first: an address kept in network order prints in
    // the usual order on little-endian machines.
    // Four fields of at most three digits always fit.
    (void)snprintf(t_ipv4_text, kIpv4TextLimit, "%u.%u.%u.%u", addr & 0xffu, (addr >> 8) & 0xffu,
                   (addr >> 16) & 0xffu, (addr >> 24) & 0xffu);
    return t_ipv4_text;
}

VXU_API char *vexmar_ipv4_ntoa(struct in_addr addr) { return inet_ntoa(addr); }

VXU_API char *vexmar_ipv6_ntop(struct in6_addr addr)
{
    if (!inet_ntop(AF_INET6, &addr, t_ipv6_text, sizeof t_ipv6_text))
        return nullptr;
    return t_ipv6_text;
}

VXU_API int vexmar_ipv4_check(const char *text)
{
    if (!text || strlen(text) < kShortestDottedQuad || !plain_short_fields(text))
        return -1;
    int field[4];
    char rest[64] = {};
    // NOLINTNEXTLINE(cert-err34-c): every field was checked above to fit an int
    if (sscanf(text, "%d.%d.%d.%d%63s", &field[0], &field[1], &field[2], &field[3], rest) != 4 ||
        rest[0] != '\0')
        return -1;
    for (int f : field) {
        if (static_cast<unsigned>(f) > 255u)
            return -1;
    }
    return 0;
}

}  // extern "C"
