// vxu_com_kill: signal a process only when its executable can be reached
// under /proc, and optionally only when it is the expected one.
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <vxutil/process.h>

namespace {

constexpr size_t kExePathSize = 128;
constexpr size_t kLinkTargetSize = 256;

}  // namespace

extern "C" {

VXU_API int vxu_com_kill(int pid, const char *name, int force)
{
    char exe[kExePathSize];
    (void)snprintf(exe, sizeof exe, "/proc/%d/exe", pid);  // any int fits
    // Also keeps ids of 0 and below away from kill: they have no entry here.
    if (access(exe, F_OK) != 0)
        return -3;
    if (name && name[0] != '\0') {
        char target[kLinkTargetSize] = {};
        if (readlink(exe, target, sizeof target - 1) <= 0 || !strstr(target, name))
            return -2;
    }
    return kill(pid, force ? SIGKILL : SIGTERM);
}

}  // extern "C"
