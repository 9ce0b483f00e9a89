// Flag files: "<name>.flag" while a flag is raised and "<name>.remove" once
// it was lowered, each holding the uptime at which it was written.
#include <stdio.h>
#include <unistd.h>

#include <vxutil/frame.h>
#include <vxutil/process.h>

namespace {

constexpr size_t kFlagPathSize = 256;  // longer paths are cut to 255 characters

// Creates or truncates the file and writes the uptime as "<s>.<ms>\n";
// false when it cannot be opened.
bool write_uptime_stamp(const char *path)
{
    const uint64_t ms = vxu_com_get_uptime_ms();
    FILE *file = fopen(path, "we");
    if (!file)
        return false;
    (void)fprintf(file, "%lld.%03d\n", static_cast<long long>(ms / 1000),
                  static_cast<int>(ms % 1000));
    (void)fclose(file);
    return true;
}

}  // namespace

extern "C" {

VXU_API int vxu_com_add_flag_file(const char *name)
{
    if (!name)
        return -1;
    char path[kFlagPathSize];
    (void)snprintf(path, sizeof path, "/tmp/vx_flags/%s.flag", name);
    return write_uptime_stamp(path) ? 0 : -1;
}

VXU_API int vxu_com_del_flag_file(const char *name)
{
    if (!name)
        return -1;
    char path[kFlagPathSize];
    (void)snprintf(path, sizeof path, "/tmp/vx_flags/%s.flag", name);
    if (access(path, F_OK) != 0)
        return -2;
    unlink(path);
    (void)snprintf(path, sizeof path, "/tmp/vx_flags/%s.remove", name);
    return write_uptime_stamp(path) ? 0 : -1;
}

}  // extern "C"
