// Descriptor flags and the zero-wait readability probe.
#include <fcntl.h>
#include <sys/select.h>

#include <vxutil/frame.h>

#include "common/fd_set_bounds.hpp"

namespace {

// Read-modify-write of one fcntl flag word; results are not examined.
void toggle_flag(int fd, int get_cmd, int set_cmd, int bit, int on)
{
    int flags = fcntl(fd, get_cmd);
    flags = on ? (flags | bit) : (flags & ~bit);
    fcntl(fd, set_cmd, flags);
}

}  // namespace

extern "C" {

VXU_API int vxu_com_fd_noblock(int fd, int on)
{
    if (fd < 0)
        return -1;
    toggle_flag(fd, F_GETFL, F_SETFL, O_NONBLOCK, on);
    return 0;
}

VXU_API int vxu_com_fd_cloexec(int fd, int on)
{
    if (fd < 0)
        return -1;
    toggle_flag(fd, F_GETFD, F_SETFD, FD_CLOEXEC, on);
    return 0;
}

VXU_API int vxu_com_fd_has_data(int fd)
{
    if (!vxu::fits_fd_set(fd))
        return 0;
    fd_set rfds;
    FD_ZERO(&rfds);
    FD_SET(fd, &rfds);
    struct timeval tv = {0, 0};
    return select(fd + 1, &rfds, nullptr, nullptr, &tv) > 0 ? 1 : 0;
}

}  // extern "C"
