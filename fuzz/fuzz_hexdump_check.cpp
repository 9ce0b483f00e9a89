// vexmar_hexdump_string_check accepts exactly the non-empty, even-length
// runs of hexadecimal digits.
#include <vxutil/text.h>

#include "fuzz_support.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const vxu_fuzz::c_string in(data, size);
    bool hex = in.size() > 0 && in.size() % 2 == 0;
    for (size_t i = 0; hex && i < in.size(); ++i)
        hex = vxu_fuzz::ascii_hex(in.get()[i]);
    FUZZ_CHECK(vexmar_hexdump_string_check(in.get()) == (hex ? 0 : -1));
    return 0;
}
