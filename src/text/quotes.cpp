// Removal of the double quotes that enclose a text.
#include <string.h>

#include <vxutil/text.h>

extern "C" {

VXU_API int vexmar_double_quotes_to_string(char *dst, const char *src, int size)
{
    if (!dst || !src || !*src || size < 1)
        return -1;
    const size_t len = strlen(src);
    if (len < 2 || src[0] != '"' || src[len - 1] != '"')
        return -1;
    const size_t inner = len - 2;
    const size_t n = inner < static_cast<size_t>(size) ? inner : static_cast<size_t>(size);
    // No terminator of its own: the caller hands in a cleared buffer.
    memcpy(dst, src + 1, n);
    return 0;
}

}  // extern "C"
