#include "files/wlan_mac_line.hpp"

#include <stdio.h>

namespace vxu::files {

bool parse_wlan_mac_line(const char *line, uint8_t mac[6])
{
    unsigned int field[6] = {0, 0, 0, 0, 0, 0};
    // Reading with the writer's own format: the key must match in place and
    // each field takes at most two hexadecimal digits, in either case.
    const int n = sscanf(line, kWlanMacLineFormat, &field[0], &field[1], &field[2], &field[3],
                         &field[4], &field[5]);
    if (n != 6)
        return false;
    for (int i = 0; i < 6; ++i)
        mac[i] = static_cast<uint8_t>(field[i] & 0xFFu);
    return true;
}

}  // namespace vxu::files
