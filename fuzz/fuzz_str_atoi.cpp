// vxu_str_atoi, vexmar_atoi and vxu_str_atoi_ext against a model written
// from their acceptance rules.
#include <limits.h>

#include <vxutil/text.h>

#include "fuzz_support.hpp"

using vxu_fuzz::ascii_digit;
using vxu_fuzz::ascii_hex;

namespace {

bool all_of(const char *s, bool (*pred)(char))
{
    for (; *s; ++s) {
        if (!pred(*s))
            return false;
    }
    return true;
}

// What strtol gives for a run of decimal digits: saturated at LONG_MAX.
long saturated_decimal(const char *s)
{
    long v = 0;
    for (; *s; ++s) {
        const int d = *s - '0';
        if (v > (LONG_MAX - d) / 10)
            return LONG_MAX;
        v = v * 10 + d;
    }
    return v;
}

uint32_t wrapped(const char *s, uint32_t base)
{
    uint32_t v = 0;
    for (; *s; ++s)
        v = v * base + vxu_fuzz::hex_nibble(*s);
    return v;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const vxu_fuzz::c_string in(data, size);
    const char *s = in.get();
    const bool decimal = *s && all_of(s, ascii_digit);
    const int low32 = decimal ? static_cast<int>(static_cast<uint32_t>(saturated_decimal(s))) : 0;

    int v = 0x5eed;
    const int rc = vxu_str_atoi(s, &v);
    FUZZ_CHECK(rc == (decimal ? 0 : -1));
    FUZZ_CHECK(v == (decimal ? low32 : 0x5eed));
    FUZZ_CHECK(vxu_str_atoi(s, nullptr) == rc);

    v = 0x5eed;
    FUZZ_CHECK(vexmar_atoi(s, &v) == rc);
    FUZZ_CHECK(v == (decimal ? low32 : 0x5eed));

    const bool hex = s[0] == '0' && s[1] == 'x' && all_of(s + 2, ascii_hex);
    uint32_t u = 0xfeedu;
    const int rc_ext = vxu_str_atoi_ext(s, &u);
    FUZZ_CHECK(rc_ext == (hex || decimal ? 0 : -1));
    if (hex)
        FUZZ_CHECK(u == wrapped(s + 2, 16));
    else if (decimal)
        FUZZ_CHECK(u == wrapped(s, 10));
    else
        FUZZ_CHECK(u == 0xfeedu);
    return 0;
}
