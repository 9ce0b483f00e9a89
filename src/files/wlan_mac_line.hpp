// Parser of the WLAN MAC file's address line, apart from the file so that it
// can be exercised on any text.
#pragma once

#include <stdint.h>

namespace vxu::files {

// The address line's layout, shared by the writer and the parser.
constexpr const char kWlanMacLineFormat[] = "Intf0MacAddress=%02X%02X%02X%02X%02X%02X\n";

// Reads line with the writer's format: the key in place and in this letter
// case, then twelve hexadecimal digits in either case; whatever follows is
// not looked at. On success stores the six bytes into mac and returns true;
// mac is left alone otherwise.
bool parse_wlan_mac_line(const char *line, uint8_t mac[6]);

}  // namespace vxu::files
