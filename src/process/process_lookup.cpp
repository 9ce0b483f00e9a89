// Looking for processes by the name they were started under: by scanning
// /proc, by process id, and by an id read from a pid file.
#include <dirent.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include <vxutil/process.h>

#include "common/bounded_copy.hpp"
#include "common/first_line.hpp"

namespace {

constexpr size_t kCmdlinePathSize = 128;
constexpr size_t kCmdlineSize = 256;
constexpr size_t kPidFileLineSize = 128;

// The wanted name is a case-insensitive prefix of the base name of the
// process's first argument (the text up to the first zero byte).
bool first_argument_matches(const char *cmdline, const char *wanted)
{
    const char *slash = strrchr(cmdline, '/');
    const char *base = slash ? slash + 1 : cmdline;
    return strncasecmp(base, wanted, strlen(wanted)) == 0;
}

}  // namespace

extern "C" {

VXU_API int vexmar_check_process_by_name(const char *name)
{
    if (!name)
        return -1;
    DIR *proc = opendir("/proc");
    if (!proc)
        return -1;
    int rc = -1;
    while (const dirent *entry = readdir(proc)) {
        // Non-numeric directories drop out below: they hold no cmdline.
        if (entry->d_type != DT_DIR || entry->d_name[0] == '.')
            continue;
        // Taken from the open /proc, which spares a path walk per process. A
        // name too long for the path buffer is no process either.
        char path[kCmdlinePathSize];
        if (!vxu::format_into(path, sizeof path, "%s/cmdline", entry->d_name))
            continue;
        // An empty command line (a kernel thread) has no first argument.
        char cmdline[kCmdlineSize];
        if (vxu::read_first_line(path, cmdline, sizeof cmdline, dirfd(proc)) <= 0)
            continue;
        if (first_argument_matches(cmdline, name)) {
            rc = 0;
            break;
        }
    }
    closedir(proc);
    return rc;
}

VXU_API int vexmar_check_process_by_pid(int pid, const char *name)
{
    if (!name)
        return -1;
    char path[kCmdlinePathSize];
    (void)snprintf(path, sizeof path, "/proc/%d/cmdline", pid);  // any int fits
    char cmdline[kCmdlineSize];
    if (vxu::read_first_line(path, cmdline, sizeof cmdline) < 0)
        return -1;
    return first_argument_matches(cmdline, name) ? 0 : -1;
}

VXU_API int vexmar_check_process_by_pid_file(const char *path, const char *name)
{
    if (!name || !path)
        return -1;
    char line[kPidFileLineSize];
    if (vxu::read_first_line(path, line, sizeof line) < 0)
        return -1;
    const int pid = static_cast<int>(strtol(line, nullptr, 10));
    if (pid == 0)
        return -1;
    return vexmar_check_process_by_pid(pid, name);
}

}  // extern "C"
