// The WLAN MAC file's line parser on what the reader hands it (one line of
// at most 63 bytes, as fgets gives it): the key and twelve hexadecimal
// digits give six bytes; any other line leaves them untouched. What the
// writer's format makes of the bytes parses back to the same bytes.
#include "files/wlan_mac_line.hpp"
#include "fuzz_support.hpp"

using vxu::files::parse_wlan_mac_line;
using vxu_fuzz::nibble;

FUZZ_TEXT(0)
{
    const auto line =
        vxu_fuzz::c_string(text, std::min({len, size_t{63}, strcspn(text, "\n") + 1}));
    const char *key = "Intf0MacAddress=", *digits = line.data() + strlen(key);
    const bool valid =
        strncmp(line.data(), key, strlen(key)) == 0 && strspn(digits, vxu_fuzz::kHex) >= 12;
    uint8_t mac[6] = {0xde, 0xad, 0xbe, 0xef, 0x01, 0x02}, want[6], back[6] = {};
    memcpy(want, mac, 6);
    for (size_t i = 0; valid && i < 6; ++i)
        want[i] = static_cast<uint8_t>(nibble(digits[2 * i]) << 4 | nibble(digits[2 * i + 1]));
    FUZZ_CHECK(parse_wlan_mac_line(line.data(), mac) == valid && memcmp(mac, want, 6) == 0);
    char again[64];
    snprintf(again, sizeof again, vxu::files::kWlanMacLineFormat, mac[0], mac[1], mac[2], mac[3],
             mac[4], mac[5]);
    FUZZ_CHECK(strlen(again) == 29 && parse_wlan_mac_line(again, back) && !memcmp(back, mac, 6));
}
