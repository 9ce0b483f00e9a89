// vexmar_mac_to_char reads six "%2x" conversions joined by ':' (blanks, a
// sign and glibc's reading of "0x" included; text after the sixth field is
// ignored) into an exact six-byte block, untouched on failure. Reference:
// the same conversions made one field at a time.
#include "fuzz_support.hpp"

FUZZ_TEXT(0)
{
    uint8_t want[6];
    bool valid = true;
    const char *p = text;
    for (int i = 0; valid && i < 6; ++i) {
        unsigned v = 0;
        int n = 0;
        valid = (i == 0 || *p++ == ':') && sscanf(p, "%2x%n", &v, &n) == 1;
        want[i] = static_cast<uint8_t>(v);
        p += n;
    }
    const uint8_t sentinel[6] = {0xde, 0xad, 0xbe, 0xef, 0x01, 0x02};
    vxu_fuzz::bytes mac(sentinel, sentinel + 6);
    FUZZ_CHECK(vexmar_mac_to_char(text, mac.data()) == (valid ? 0 : -1));
    FUZZ_CHECK(memcmp(mac.data(), valid ? want : sentinel, 6) == 0);
}
