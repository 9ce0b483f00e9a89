// MAC addresses between six raw bytes and colon-separated hexadecimal text.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <vxutil/net.h>

#include "common/bounded_copy.hpp"

namespace {

constexpr int kMacLength = 6;
constexpr int kMacTextSize = 18;  // "AA:BB:CC:DD:EE:FF" and its terminator

}  // namespace

extern "C" {

VXU_API int vxu_net_macstr(const uint8_t *mac, int count, char *buf, int size)
{
    if (!mac || count < kMacLength || !buf || size < kMacTextSize)
        return -1;
    (void)snprintf(buf, static_cast<size_t>(size), "%02X:%02X:%02X:%02X:%02X:%02X", mac[0], mac[1],
                   mac[2], mac[3], mac[4], mac[5]);
    return 0;
}

VXU_API int vxu_net_strmac(const char *text, uint8_t *mac, int size)
{
    if (!text || size <= 5 || !mac)
        return -1;
    memset(mac, 0, static_cast<size_t>(size));  // every failure below leaves zeros

    char work[64];
    vxu::copy_bounded(work, sizeof work, text);
    uint8_t bytes[kMacLength];
    int stored = 0;
    char *save = nullptr;
    // Runs of ':' are one separator; strtol's own leniency (blanks, a sign,
    // a 0x prefix) is kept and values are cut to their low byte.
    for (char *field = strtok_r(work, ":", &save); field; field = strtok_r(nullptr, ":", &save)) {
        char *end = nullptr;
        const long value = strtol(field, &end, 16);
        if (*end != '\0' || stored == kMacLength)
            return -1;
        bytes[stored++] = static_cast<uint8_t>(value & 0xff);
    }
    if (stored != kMacLength)
        return -1;
    memcpy(mac, bytes, kMacLength);
    return 0;
}

VXU_API int vexmar_mac_to_char(const char *text, uint8_t mac[6])
{
    if (!text || !mac)
        return -1;
    unsigned field[kMacLength] = {};
    // NOLINTNEXTLINE(cert-err34-c): two hex digits at most cannot overflow
    if (sscanf(text, "%02x:%02x:%02x:%02x:%02x:%02x", &field[0], &field[1], &field[2], &field[3],
               &field[4], &field[5]) != kMacLength)
        return -1;
    for (int i = 0; i < kMacLength; ++i)
        mac[i] = static_cast<uint8_t>(field[i] & 0xff);
    return 0;
}

}  // extern "C"
