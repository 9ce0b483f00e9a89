// Whitespace trimming into a caller's buffer.
#include <stddef.h>

#include <vxutil/text.h>

#include "text/ascii.hpp"

using vxu::text::is_space;

extern "C" {

VXU_API int vxu_str_strip(const char *src, char *dst, int size)
{
    if (!src || !dst || size < 1)
        return -1;
    const size_t room = static_cast<size_t>(size) - 1;
    while (is_space(*src))
        ++src;
    size_t n = 0;
    while (n < room && src[n]) {
        dst[n] = src[n];
        ++n;
    }
    dst[n] = '\0';
    // Trimming after the cut also drops whitespace the cut exposed.
    while (n > 0 && is_space(dst[n - 1]))
        dst[--n] = '\0';
    return 0;
}

VXU_API int vxu_str_stripall(const char *src, char *dst, int size)
{
    if (!src || !dst || size < 1)
        return -1;
    const size_t room = static_cast<size_t>(size) - 1;
    size_t n = 0;
    for (; n < room && *src; ++src) {  // never reads a byte it may not copy
        if (!is_space(*src))
            dst[n++] = *src;
    }
    dst[n] = '\0';
    return 0;
}

}  // extern "C"
