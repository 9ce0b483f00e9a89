// Bounded string copies and formatting that always terminate the target.
#pragma once

#include <stdarg.h>
#include <stddef.h>
#include <stdio.h>
#include <string.h>

namespace vxu {

// Copies at most size-1 bytes of src into dst and terminates it; returns the
// number of bytes copied. Does nothing when size is 0.
inline size_t copy_bounded(char *dst, size_t size, const char *src)
{
    if (size == 0)
        return 0;
    size_t n = strnlen(src, size - 1);
    memcpy(dst, src, n);
    dst[n] = '\0';
    return n;
}

// snprintf into a fixed buffer; false when the text did not fit (or failed).
__attribute__((format(printf, 3, 4))) inline bool format_into(char *dst, size_t size,
                                                              const char *fmt, ...)
{
    va_list ap;
    va_start(ap, fmt);
    const int n = vsnprintf(dst, size, fmt, ap);
    va_end(ap);
    return n >= 0 && static_cast<size_t>(n) < size;
}

}  // namespace vxu
