// vxu_str_atoi and vexmar_atoi take exactly the runs of decimal digits, read
// as strtol reads them and cut to 32 bits; vxu_str_atoi_ext takes those and
// "0x" with hexadecimal digits, both wrapping modulo 2^32. Outputs stay
// untouched on failure.
#include "fuzz_support.hpp"

FUZZ_TEXT(0)
{
    const bool decimal = len > 0 && strspn(text, "0123456789") == len;
    const bool hex = strncmp(text, "0x", 2) == 0 && strspn(text + 2, vxu_fuzz::kHex) == len - 2;
    const int low32 = decimal ? static_cast<int>(strtol(text, nullptr, 10) & 0xffffffff) : 0x5eed;
    int v = 0x5eed, w = 0x5eed;
    FUZZ_CHECK(vxu_str_atoi(text, &v) == (decimal ? 0 : -1) && v == low32);
    FUZZ_CHECK(vxu_str_atoi(text, nullptr) == (decimal ? 0 : -1));
    FUZZ_CHECK(vexmar_atoi(text, &w) == (decimal ? 0 : -1) && w == low32);

    uint32_t want = hex || decimal ? 0 : 0xfeed, u = 0xfeed;
    for (const char *p = text + (hex ? 2 : 0); (hex || decimal) && *p; ++p)
        want = want * (hex ? 16 : 10) + vxu_fuzz::nibble(*p);
    FUZZ_CHECK(vxu_str_atoi_ext(text, &u) == (hex || decimal ? 0 : -1) && u == want);
}
