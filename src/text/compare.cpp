// Null-safe wrappers over the libc string comparisons.
#include <string.h>
#include <strings.h>

#include <vxutil/text.h>

namespace {

constexpr int kBadArgument = -2;

}  // namespace

extern "C" {

VXU_API int vxu_str_strcmp(const char *a, const char *b)
{
    return a && b ? strcmp(a, b) : kBadArgument;
}

VXU_API int vxu_str_strncmp(const char *a, const char *b, int count)
{
    return a && b && count >= 1 ? strncmp(a, b, static_cast<size_t>(count)) : kBadArgument;
}

VXU_API int vxu_str_strcasecmp(const char *a, const char *b)
{
    return a && b ? strcasecmp(a, b) : kBadArgument;
}

VXU_API int vxu_str_strncasecmp(const char *a, const char *b, int count)
{
    return a && b && count >= 1 ? strncasecmp(a, b, static_cast<size_t>(count)) : kBadArgument;
}

}  // extern "C"
