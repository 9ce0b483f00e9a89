// Bounded copy and ASCII case folding into a caller's buffer.
#include <string.h>

#include <vxutil/text.h>

#include "text/ascii.hpp"

namespace {

// Copies at most size-1 bytes of src through fold and terminates dst.
template <typename Fold>
int fold_copy(const char *src, char *dst, int size, Fold fold)
{
    if (!src || !dst || size < 1)
        return -1;
    const size_t n = strnlen(src, static_cast<size_t>(size) - 1);
    for (size_t i = 0; i < n; ++i)
        dst[i] = fold(src[i]);
    dst[n] = '\0';
    return 0;
}

}  // namespace

extern "C" {

VXU_API int vxu_str_strncpy(char *dst, const char *src, int size)
{
    if (!dst || !src || size < 1)
        return -1;
    strncpy(dst, src, static_cast<size_t>(size));
    dst[size - 1] = '\0';
    return 0;
}

VXU_API int vxu_str_toupper(const char *src, char *dst, int size)
{
    return fold_copy(src, dst, size, [](char c) {
        return vxu::text::is_lower(c) ? static_cast<char>(c - ('a' - 'A')) : c;
    });
}

VXU_API int vxu_str_tolower(const char *src, char *dst, int size)
{
    return fold_copy(src, dst, size, [](char c) {
        return vxu::text::is_upper(c) ? static_cast<char>(c + ('a' - 'A')) : c;
    });
}

}  // extern "C"
