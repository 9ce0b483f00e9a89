// Fixed commands for the device's tools: "pidof" and "fsync -d".
#include <stdio.h>
#include <string.h>

#include <vxutil/process.h>

#include "process/command_size.hpp"

namespace {

bool is_empty(const char *s) { return !s || s[0] == '\0'; }

}  // namespace

extern "C" {

VXU_API int vxu_com_app_exist(const char *name)
{
    if (is_empty(name))
        return -1;
    char buf[vxu::process::kCommandSize];
    (void)snprintf(buf, sizeof buf, "pidof %s", name);  // cut when longer
    FILE *pipe = popen(buf, "re");
    if (!pipe)
        return -1;
    memset(buf, 0, sizeof buf);
    if (!fgets(buf, sizeof buf, pipe))
        buf[0] = '\0';
    pclose(pipe);
    // pidof prints the ids it found, and nothing for an unknown program.
    return buf[0] >= '0' && buf[0] <= '9' ? 0 : 1;
}

VXU_API int vxu_com_file_sync(const char *path)
{
    if (is_empty(path))
        return -1;
    char command[vxu::process::kCommandSize];
    (void)snprintf(command, sizeof command, "fsync -d %s", path);  // cut when longer
    vxu_com_system("%s", command);  // the tool's own failure is not ours to report
    return 0;
}

}  // extern "C"
