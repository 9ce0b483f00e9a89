// vexmar_hexdump_string_check accepts exactly the non-empty, even-length
// runs of hexadecimal digits.
#include "fuzz_support.hpp"

FUZZ_TEXT(0)
{
    const bool hex = len > 0 && len % 2 == 0 && strspn(text, vxu_fuzz::kHex) == len;
    FUZZ_CHECK(vexmar_hexdump_string_check(text) == (hex ? 0 : -1));
}
