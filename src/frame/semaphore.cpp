// Process-private unnamed semaphores.
#include <errno.h>

#include <vxutil/frame.h>

namespace {

// The -1 and errno the platform calls give for a semaphore they refuse.
int refuse_null()
{
    errno = EINVAL;
    return -1;
}

}  // namespace

extern "C" {

VXU_API int vxu_sem_create(sem_t *sem) { return sem ? sem_init(sem, 0, 0) : refuse_null(); }

VXU_API int vxu_sem_post(sem_t *sem) { return sem ? sem_post(sem) : refuse_null(); }

VXU_API int vxu_sem_wait(sem_t *sem)
{
    if (!sem)
        return EINVAL;
    for (;;) {
        if (sem_wait(sem) == 0)
            return 0;
        if (errno != EINTR)
            return errno;
    }
}

VXU_API int vxu_sem_destory(sem_t *sem) { return sem ? sem_destroy(sem) : refuse_null(); }

}  // extern "C"
