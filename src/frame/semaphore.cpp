// Process-private unnamed semaphores.
#include <errno.h>

#include <vxutil/frame.h>

extern "C" {

VXU_API int vxu_sem_create(sem_t *sem) { return sem_init(sem, 0, 0); }

VXU_API int vxu_sem_post(sem_t *sem) { return sem_post(sem); }

VXU_API int vxu_sem_wait(sem_t *sem)
{
    for (;;) {
        if (sem_wait(sem) == 0)
            return 0;
        if (errno != EINTR)
            return errno;
    }
}

VXU_API int vxu_sem_destory(sem_t *sem) { return sem_destroy(sem); }

}  // extern "C"
