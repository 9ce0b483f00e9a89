// Scoped hold of a mutex through the library's own mutex wrapper, so every
// lock carries the caller's exported name like the wrapper asks for.
#pragma once

#include <pthread.h>

#include <vxutil/frame.h>

namespace vxu {

class mutex_lock {
public:
    mutex_lock(pthread_mutex_t *mutex, const char *func, int line)
        : mutex_(mutex), func_(func), line_(line)
    {
        _vxu_mutex_lock(func_, line_, mutex_);
    }
    mutex_lock(const mutex_lock &) = delete;
    mutex_lock &operator=(const mutex_lock &) = delete;
    ~mutex_lock() { _vxu_mutex_unlock(func_, line_, mutex_); }

private:
    pthread_mutex_t *mutex_;
    const char *func_;
    int line_;
};

}  // namespace vxu
