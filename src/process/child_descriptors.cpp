// Descriptor clean-up for forked children.
#include "process/child_descriptors.hpp"

#include <errno.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "common/unique_fd.hpp"

namespace vxu::process {

namespace {

constexpr int kFirstNonStandard = 3;
// The kernel's default ceiling on descriptor numbers (fs.nr_open).
constexpr rlim_t kMostDescriptors = 1u << 20;

// close_range(2) where the kernel has it (Linux 5.9); otherwise one close
// per number below the hard limit, capped at the kernel's default ceiling.
void close_from(int first)
{
#ifdef SYS_close_range
    if (syscall(SYS_close_range, static_cast<unsigned>(first), ~0u, 0u) == 0)
        return;
#endif
    struct rlimit limit;
    rlim_t bound = kMostDescriptors;
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_max < bound)
        bound = limit.rlim_max;
    for (rlim_t fd = static_cast<rlim_t>(first); fd < bound; ++fd)
        close(static_cast<int>(fd));
}

}  // namespace

void reset_child_descriptors()
{
    // open() takes the lowest free number, so filling in increasing order
    // lands each "/dev/null" exactly on the closed standard descriptor.
    for (int fd = 0; fd < kFirstNonStandard; ++fd) {
        if (!vxu::fd_is_open(fd))
            open("/dev/null", O_RDWR);
    }
    close_from(kFirstNonStandard);
}

}  // namespace vxu::process
