// Mutex wrapper: plain default-attribute pthread mutexes. A null mutex is
// refused with EINVAL, the error number the platform uses for a bad one.
#include <errno.h>

#include <vxutil/frame.h>

extern "C" {

VXU_API int vxu_mutex_init(pthread_mutex_t *mutex, const char *label)
{
    (void)label;
    if (!mutex)
        return EINVAL;
    return pthread_mutex_init(mutex, nullptr);
}

VXU_API int vxu_mutex_destroy(pthread_mutex_t *mutex)
{
    return mutex ? pthread_mutex_destroy(mutex) : EINVAL;
}

VXU_API int _vxu_mutex_lock(const char *func, int line, pthread_mutex_t *mutex)
{
    (void)func;
    (void)line;
    return mutex ? pthread_mutex_lock(mutex) : EINVAL;
}

VXU_API int _vxu_mutex_unlock(const char *func, int line, pthread_mutex_t *mutex)
{
    (void)func;
    (void)line;
    return mutex ? pthread_mutex_unlock(mutex) : EINVAL;
}

VXU_API int vxu_mutex_dump(FILE *out)
{
    static const char text[] = "mutex tracking is not supported\n";
    if (!out)
        return 0;
    (void)fwrite(text, sizeof text - 1, 1, out);  // reports 0 whatever the stream did
    return 0;
}

}  // extern "C"
