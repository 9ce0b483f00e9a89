// vexmar_double_quotes_to_string into a destination of exactly the size it
// is told; the first input byte picks the size.
#include <vxutil/text.h>

#include "fuzz_support.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    const size_t dst_size = 1 + data[0] % 48;
    const vxu_fuzz::c_string in(data + 1, size - 1);
    const char *src = in.get();
    const size_t len = in.size();

    char *dst = static_cast<char *>(malloc(dst_size));
    memset(dst, 'U', dst_size);
    const int rc = vexmar_double_quotes_to_string(dst, src, static_cast<int>(dst_size));

    const bool quoted = len >= 2 && src[0] == '"' && src[len - 1] == '"';
    FUZZ_CHECK(rc == (quoted ? 0 : -1));
    const size_t copied = quoted ? (len - 2 < dst_size ? len - 2 : dst_size) : 0;
    FUZZ_CHECK(memcmp(dst, src + 1, copied) == 0);
    for (size_t i = copied; i < dst_size; ++i)
        FUZZ_CHECK(dst[i] == 'U');
    free(dst);
    return 0;
}
