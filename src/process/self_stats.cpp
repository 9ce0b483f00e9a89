// Measures of the calling process and thread.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <vxutil/process.h>

#include "common/first_line.hpp"

namespace {

constexpr size_t kStatmSize = 256;

}  // namespace

extern "C" {

// The second field of statm, in pages as the kernel counts them.
VXU_API int vxu_com_mem_get_rss(void)
{
    char path[kStatmSize];
    (void)snprintf(path, sizeof path, "/proc/%d/statm", static_cast<int>(getpid()));
    char line[kStatmSize];
    if (vxu::read_first_line(path, line, sizeof line) < 0)
        return -1;
    char *save = nullptr;
    if (!strtok_r(line, " ", &save))
        return -1;
    const char *resident = strtok_r(nullptr, " ", &save);
    if (!resident)
        return -1;
    return static_cast<int>(strtol(resident, nullptr, 10));
}

VXU_API int vxu_com_gettid(void) { return static_cast<int>(syscall(SYS_gettid)); }

}  // extern "C"
