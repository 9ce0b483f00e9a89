// Parser of the WLAN MAC file's address line, apart from the file so that it
// can be exercised on any text.
#pragma once

#include <stdint.h>

namespace vxu::files {

// The address line's layout, shared by the writer and the parser.
constexpr const char kWlanMacLineFormat[] = "Intf0MacAddress=%02X%02X%02X%02X%02X%02X\n";

// Scans line with the writer's format; on six conversions stores the low
// byte of each into mac[0..5] and returns true. mac is left alone otherwise.
bool parse_wlan_mac_line(const char *line, uint8_t mac[6]);

}  // namespace vxu::files
