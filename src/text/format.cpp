// printf-style formatting into a newly allocated string.
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>

#include <vxutil/text.h>

extern "C" {

VXU_API char *vexmar_strdup(const char *format, ...)
{
    if (!format)
        return nullptr;
    va_list ap;
    va_start(ap, format);
    va_list again;
    va_copy(again, ap);
    char *text = nullptr;
    const int len = vsnprintf(nullptr, 0, format, ap);
    // An empty result is reported as no string at all.
    if (len > 0) {
        text = static_cast<char *>(malloc(static_cast<size_t>(len) + 1));
        if (text)
            (void)vsnprintf(text, static_cast<size_t>(len) + 1, format, again);
    }
    va_end(again);
    va_end(ap);
    return text;
}

}  // extern "C"
