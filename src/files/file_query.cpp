// Size, existence and head reads of files.
#include <stdio.h>
#include <stdint.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vxutil/files.h>

#include "common/unique_file.hpp"

namespace {

bool usable_path(const char *path) { return path && *path; }

}  // namespace

extern "C" {

VXU_API int vxu_com_file_get_size(const char *path)
{
    if (!usable_path(path))
        return -1;
    struct stat st;
    if (stat(path, &st) != 0)
        return -1;
    return static_cast<int>(static_cast<uint32_t>(st.st_size));
}

VXU_API int vxu_com_file_exist(const char *path)
{
    if (!usable_path(path))
        return -1;
    return access(path, F_OK) == 0 ? 0 : 1;
}

VXU_API int vxu_com_read_file(const char *path, void *buf, int size)
{
    // Refused before anything is opened.
    if (!usable_path(path) || !buf || size < 0)
        return -1;
    vxu::unique_file f(fopen(path, "r"));
    if (!f)
        return -1;
    return static_cast<int>(fread(buf, 1, static_cast<size_t>(size), f.get()));
}

}  // extern "C"
