// The single-instance lock: an exclusive flock on a lock file, held through
// the descriptor that took it.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <vxutil/process.h>

#include "common/unique_fd.hpp"

namespace {

constexpr mode_t kLockFileMode = 0666;

int open_lock_file(const char *path, int extra_flags)
{
    return open(path, O_WRONLY | O_CREAT | extra_flags, kLockFileMode);
}

}  // namespace

extern "C" {

VXU_API int vexmar_set_process_single_instance(const char *path)
{
    if (!path)
        return -2;
    // Not close-on-exec: a child that inherits the descriptor keeps the lock.
    vxu::unique_fd fd(open_lock_file(path, 0));
    if (!fd)
        return -1;
    if (flock(fd.get(), LOCK_EX) != 0)
        return -1;
    return fd.release();
}

VXU_API void vexmar_release_process_single_instance(int fd)
{
    if (fd <= 0)
        return;
    flock(fd, LOCK_UN);
    close(fd);
}

VXU_API int vexmar_check_process_singal_instance(const char *path)
{
    if (!path)
        return -1;
    // flock locks belong to the open file, so this open conflicts even with
    // a lock that the calling process holds itself.
    const vxu::unique_fd fd(open_lock_file(path, O_CLOEXEC));
    if (!fd)
        return -1;
    const int rc = flock(fd.get(), LOCK_EX | LOCK_NB);
    if (rc == 0)
        flock(fd.get(), LOCK_UN);
    return rc;
}

}  // extern "C"
