// Mutex wrapper: plain default-attribute pthread mutexes.
#include <vxutil/frame.h>

extern "C" {

VXU_API int vxu_mutex_init(pthread_mutex_t *mutex, const char *label)
{
    (void)label;
    return pthread_mutex_init(mutex, nullptr);
}

VXU_API int vxu_mutex_destroy(pthread_mutex_t *mutex) { return pthread_mutex_destroy(mutex); }

VXU_API int _vxu_mutex_lock(const char *func, int line, pthread_mutex_t *mutex)
{
    (void)func;
    (void)line;
    return pthread_mutex_lock(mutex);
}

VXU_API int _vxu_mutex_unlock(const char *func, int line, pthread_mutex_t *mutex)
{
    (void)func;
    (void)line;
    return pthread_mutex_unlock(mutex);
}

VXU_API int vxu_mutex_dump(FILE *out)
{
    static const char text[] = "mutex tracking is not supported\n";
    (void)fwrite(text, sizeof text - 1, 1, out);  // reports 0 whatever the stream did
    return 0;
}

}  // extern "C"
