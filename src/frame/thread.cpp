// Detached threads and select-based sleeping.
#include <sys/select.h>

#include <vxutil/frame.h>

extern "C" {

VXU_API pthread_t vxu_thread_create(void *(*start)(void *), void *arg)
{
    if (!start)
        return 0;
    pthread_attr_t attr;
    if (pthread_attr_init(&attr) != 0)
        return 0;
    pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
    pthread_t thread;
    const int rc = pthread_create(&thread, &attr, start, arg);
    pthread_attr_destroy(&attr);
    return rc == 0 ? thread : 0;
}

VXU_API void vxu_os_wait(long sec, long usec)
{
    struct timeval tv;
    tv.tv_sec = sec;
    tv.tv_usec = usec;
    select(1, nullptr, nullptr, nullptr, &tv);
}

}  // extern "C"
