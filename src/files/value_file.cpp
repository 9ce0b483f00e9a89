// One-line value files: the whole file becomes one value and a line feed.
#include <stdio.h>

#include <vxutil/files.h>

#include "common/unique_file.hpp"

extern "C" {

// Only the open is checked: a write a kernel control file rejects is not
// reported.
VXU_API int vexmar_file_write_string(const char *path, const char *text)
{
    if (!path || !text)
        return -1;
    vxu::unique_file f(fopen(path, "wb"));
    if (!f)
        return -1;
    (void)fprintf(f.get(), "%s\n", text);
    return 0;
}

VXU_API int vexmar_file_write_int(const char *path, int base, int value)
{
    if (!path)
        return -1;
    // Opened before the base is checked: a bad base leaves an empty file.
    vxu::unique_file f(fopen(path, "wb"));
    if (!f)
        return -1;
    switch (base) {
    case 10:
        (void)fprintf(f.get(), "%d\n", value);
        return 0;
    case 16:
        (void)fprintf(f.get(), "%x\n", static_cast<unsigned>(value));
        return 0;
    case 8:
        (void)fprintf(f.get(), "%o\n", static_cast<unsigned>(value));
        return 0;
    default:
        return -1;
    }
}

VXU_API int vexmar_file_write_short(const char *path, short value)
{
    (void)path;
    (void)value;
    return -1;
}

VXU_API int vexmar_file_write_long(const char *path, long value)
{
    (void)path;
    (void)value;
    return -1;
}

}  // extern "C"
