// Descriptor clean-up for forked children.
#include "process/child_descriptors.hpp"

#include <errno.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace vxu::process {

namespace {

constexpr int kFirstNonStandard = 3;

bool is_open(int fd) { return fcntl(fd, F_GETFD) != -1 || errno != EBADF; }

// close_range(2) where the kernel has it (Linux 5.9); otherwise one close
// per descriptor number.
void close_from(int first, long bound)
{
    if (bound <= first)
        return;
#ifdef SYS_close_range
    if (syscall(SYS_close_range, static_cast<unsigned>(first), static_cast<unsigned>(bound - 1),
                0u) == 0)
        return;
#endif
    for (long fd = first; fd < bound; ++fd)
        close(static_cast<int>(fd));
}

}  // namespace

void reset_child_descriptors(long bound)
{
    // open() takes the lowest free number, so filling in increasing order
    // lands each "/dev/null" exactly on the closed standard descriptor.
    for (int fd = 0; fd < kFirstNonStandard && fd < bound; ++fd) {
        if (!is_open(fd))
            open("/dev/null", O_RDWR);
    }
    close_from(kFirstNonStandard, bound);
}

void reset_child_descriptors() { reset_child_descriptors(sysconf(_SC_OPEN_MAX)); }

}  // namespace vxu::process
