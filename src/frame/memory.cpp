// Memory wrapper: zero-filled blocks; the caller identity is accepted for
// interface compatibility and not used.
#include <stdlib.h>

#include <vxutil/frame.h>

extern "C" {

VXU_API void *_vxu_mem_alloc(const char *func, int line, int size)
{
    (void)func;
    (void)line;
    if (size <= 0)
        return nullptr;
    return calloc(static_cast<size_t>(size), 1);
}

VXU_API void _vxu_mem_free(const char *func, int line, void *ptr)
{
    (void)func;
    (void)line;
    free(ptr);
}

VXU_API int vxu_mem_dump(FILE *out)
{
    static const char text[] = "mem tracking is not supported\n";
    if (!out)
        return 0;
    return static_cast<int>(fwrite(text, 1, sizeof text - 1, out));
}

}  // extern "C"
