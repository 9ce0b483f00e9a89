// The WLAN MAC file's line parser on what the reader hands it: one line of
// at most 63 bytes, as fgets gives it.
#include "files/wlan_mac_line.hpp"

#include "fuzz_support.hpp"

namespace {

constexpr char kKey[] = "Intf0MacAddress=";
constexpr size_t kKeyLen = sizeof kKey - 1;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    size_t n = size < 63 ? size : 63;
    if (const void *nl = memchr(data, '\n', n))
        n = static_cast<size_t>(static_cast<const uint8_t *>(nl) - data) + 1;
    const vxu_fuzz::c_string in(data, n);
    const char *line = in.get();

    bool valid = in.size() >= kKeyLen + 12 && memcmp(line, kKey, kKeyLen) == 0;
    for (size_t i = 0; valid && i < 12; ++i)
        valid = vxu_fuzz::ascii_hex(line[kKeyLen + i]);

    const uint8_t sentinel[6] = {0xde, 0xad, 0xbe, 0xef, 0x01, 0x02};
    uint8_t mac[6];
    memcpy(mac, sentinel, sizeof mac);
    const bool parsed = vxu::files::parse_wlan_mac_line(line, mac);
    FUZZ_CHECK(parsed == valid);
    if (!parsed) {
        FUZZ_CHECK(memcmp(mac, sentinel, sizeof mac) == 0);
        return 0;
    }
    for (size_t i = 0; i < 6; ++i) {
        const char *pair = line + kKeyLen + 2 * i;
        FUZZ_CHECK(mac[i] == (vxu_fuzz::hex_nibble(pair[0]) << 4 | vxu_fuzz::hex_nibble(pair[1])));
    }

    // What the writer makes of the bytes parses back to the same bytes.
    char again[64];
    snprintf(again, sizeof again, vxu::files::kWlanMacLineFormat, mac[0], mac[1], mac[2], mac[3],
             mac[4], mac[5]);
    FUZZ_CHECK(strlen(again) == kKeyLen + 13);
    uint8_t back[6] = {};
    FUZZ_CHECK(vxu::files::parse_wlan_mac_line(again, back));
    FUZZ_CHECK(memcmp(back, mac, sizeof mac) == 0);
    return 0;
}
