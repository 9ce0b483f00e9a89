#include "files/wlan_mac_line.hpp"

#include <stdio.h>
#include <string.h>

namespace vxu::files {

namespace {

constexpr const char kKey[] = "Intf0MacAddress=";
constexpr size_t kKeyLen = sizeof kKey - 1;
constexpr size_t kDigits = 12;

bool is_hex_digit(char c)
{
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

// scanf's %X on its own would also take a short last field, a sign, blanks
// or a 0x prefix; the address is exactly twelve digits.
bool has_twelve_digits_after_key(const char *line)
{
    if (strncmp(line, kKey, kKeyLen) != 0)
        return false;
    for (size_t i = 0; i < kDigits; ++i) {
        if (!is_hex_digit(line[kKeyLen + i]))
            return false;
    }
    return true;
}

}  // namespace

bool parse_wlan_mac_line(const char *line, uint8_t mac[6])
{
    if (!has_twelve_digits_after_key(line))
        return false;
    unsigned int field[6] = {0, 0, 0, 0, 0, 0};
    const int n = sscanf(line, kWlanMacLineFormat, &field[0], &field[1], &field[2], &field[3],
                         &field[4], &field[5]);
    if (n != 6)
        return false;
    for (int i = 0; i < 6; ++i)
        mac[i] = static_cast<uint8_t>(field[i] & 0xFFu);
    return true;
}

}  // namespace vxu::files
