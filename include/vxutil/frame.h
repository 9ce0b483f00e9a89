/**
 * @file frame.h
 * @brief Runtime frame: memory and mutex wrappers, clocks and time helpers,
 *        threads, semaphores and descriptor flags.
 *
 * Every function here may be called from any thread.
 */
#ifndef VXUTIL_FRAME_H
#define VXUTIL_FRAME_H

#include <pthread.h>
#include <semaphore.h>
#include <stdint.h>
#include <stdio.h>
#include <sys/time.h>

#include <vxutil/base.h>

VXU_BEGIN_DECLS

/* ---- Memory and mutex wrappers ------------------------------------------ */

/**
 * @brief Allocates a zero-filled block.
 *
 * Prefer the macro vxu_mem_alloc(), which passes the caller identity.
 * @param func Calling function's name (accepted, not used).
 * @param line Calling source line (accepted, not used).
 * @param size Number of bytes.
 * @return The block, all zero; NULL when @p size is 0 or negative or memory
 *         is exhausted. Release it with _vxu_mem_free().
 */
VXU_API void *_vxu_mem_alloc(const char *func, int line, int size);

/**
 * @brief Releases a block from _vxu_mem_alloc().
 * @param func Calling function's name (accepted, not used).
 * @param line Calling source line (accepted, not used).
 * @param ptr The block; NULL is ignored.
 */
VXU_API void _vxu_mem_free(const char *func, int line, void *ptr);

/**
 * @brief Writes "mem tracking is not supported\n" to a stream.
 * @param out Stream to write to.
 * @return What fwrite returned: 30 when the whole line went out; 0 for a
 *         NULL stream.
 */
VXU_API int vxu_mem_dump(FILE *out);

/**
 * @brief Initialises a plain (non-recursive) mutex with default attributes.
 * @param mutex Mutex to initialise.
 * @param label Short name for diagnostics; not stored, may be NULL.
 * @return 0, or pthread_mutex_init's error number; EINVAL for a NULL mutex.
 */
VXU_API int vxu_mutex_init(pthread_mutex_t *mutex, const char *label);

/**
 * @brief Destroys a mutex.
 * @param mutex Mutex to destroy (unlocked).
 * @return 0, or pthread_mutex_destroy's error number; EINVAL for NULL.
 */
VXU_API int vxu_mutex_destroy(pthread_mutex_t *mutex);

/**
 * @brief Locks a mutex. Prefer the macro vxu_mutex_lock().
 * @param func Calling function's name (accepted, not used).
 * @param line Calling source line (accepted, not used).
 * @param mutex Mutex to lock; the calling thread must not hold it already.
 * @return 0, or pthread_mutex_lock's error number; EINVAL for NULL.
 */
VXU_API int _vxu_mutex_lock(const char *func, int line, pthread_mutex_t *mutex);

/**
 * @brief Unlocks a mutex. Prefer the macro vxu_mutex_unlock().
 * @param func Calling function's name (accepted, not used).
 * @param line Calling source line (accepted, not used).
 * @param mutex Mutex held by the calling thread.
 * @return 0, or pthread_mutex_unlock's error number; EINVAL for NULL.
 */
VXU_API int _vxu_mutex_unlock(const char *func, int line, pthread_mutex_t *mutex);

/**
 * @brief Writes "mutex tracking is not supported\n" to a stream.
 * @param out Stream to write to; NULL writes nothing.
 * @return Always 0.
 */
VXU_API int vxu_mutex_dump(FILE *out);

/** @brief _vxu_mem_alloc() with the caller's own name and line. */
#define vxu_mem_alloc(size) _vxu_mem_alloc(__func__, __LINE__, (size))
/** @brief _vxu_mem_free() with the caller's own name and line. */
#define vxu_mem_free(ptr) _vxu_mem_free(__func__, __LINE__, (ptr))
/** @brief _vxu_mutex_lock() with the caller's own name and line. */
#define vxu_mutex_lock(mutex) _vxu_mutex_lock(__func__, __LINE__, (mutex))
/** @brief _vxu_mutex_unlock() with the caller's own name and line. */
#define vxu_mutex_unlock(mutex) _vxu_mutex_unlock(__func__, __LINE__, (mutex))

/* ---- Clocks and time helpers -------------------------------------------- */

/** @brief Local calendar time, filled by vxu_get_systime(). */
typedef struct vxu_systime_t {
    uint8_t sec;   /**< Seconds, 0 to 59 (a leap second reads 0). */
    uint8_t min;   /**< Minutes, 0 to 59. */
    uint8_t hour;  /**< Hours, 0 to 23. */
    uint8_t day;   /**< Day of the month, 1 to 31. */
    uint8_t mon;   /**< Month, 1 to 12. */
    uint8_t wday;  /**< Day of the week, 0 to 6, Sunday 0. */
    uint16_t year; /**< Full year, for example 2026. */
} vxu_systime_t;

/**
 * @brief Wall-clock time in milliseconds since the Unix epoch.
 * @return Seconds × 1000 + microseconds / 1000.
 */
VXU_API uint64_t vxu_com_get_tmr_ms(void);

/**
 * @brief Monotonic uptime in milliseconds; not affected by setting the clock.
 * @return The uptime (seconds taken as 32 bits), or 0 when the clock cannot
 *         be read.
 */
VXU_API uint64_t vxu_com_get_uptime_ms(void);

/**
 * @brief Monotonic uptime as seconds and microseconds.
 * @param sec Receives the seconds; may be NULL.
 * @param usec Receives the microseconds (0 to 999999); may be NULL.
 * @return 0; -1 when the clock cannot be read (nothing written).
 */
VXU_API int vxu_com_get_uptime(uint32_t *sec, uint32_t *usec);

/**
 * @brief Boot time (counts on through suspend) as seconds and microseconds.
 * @param sec Receives the seconds; may be NULL.
 * @param usec Receives the microseconds; may be NULL.
 * @return 0; -1 when the clock cannot be read (nothing written).
 */
VXU_API int vxu_com_get_uptime_all(uint32_t *sec, uint32_t *usec);

/**
 * @brief Current local calendar time (reentrant conversion).
 * @param out Record to fill; NULL does nothing.
 */
VXU_API void vxu_get_systime(vxu_systime_t *out);

/**
 * @brief Takes the current wall-clock time.
 * @param tv Receives seconds and microseconds.
 * @return @p tv; NULL, touching nothing, when @p tv is NULL.
 */
VXU_API struct timeval *vxu_get_uptime(struct timeval *tv);

/**
 * @brief Makes a wall-clock deadline @p ms milliseconds from now.
 * @param tv Receives the deadline (microseconds below 1000000 for ms >= 0;
 *           a negative @p ms may leave them negative); NULL does nothing.
 * @param ms Milliseconds ahead (negative: in the past).
 */
VXU_API void vxu_get_timestamp(struct timeval *tv, int ms);

/**
 * @brief Milliseconds from @p b to @p a; partial milliseconds are dropped.
 * @param a Later time.
 * @param b Earlier time.
 * @return The difference as a signed 32-bit number (wraps beyond ~24.8 days);
 *         0 when either pointer is NULL.
 */
VXU_API int vxu_time_diff(const struct timeval *a, const struct timeval *b);

/**
 * @brief Whole seconds from @p b to @p a: vxu_time_diff() / 1000.
 * @param a Later time.
 * @param b Earlier time.
 * @return The difference in seconds, truncated toward zero; 0 when either
 *         pointer is NULL.
 */
VXU_API int vxu_time_sec_diff(const struct timeval *a, const struct timeval *b);

/**
 * @brief Tests a wall-clock deadline made by vxu_get_timestamp().
 * @param deadline The deadline.
 * @return 1 when it is reached (less than a whole millisecond ahead), 0
 *         while it lies ahead; -1 for a NULL deadline (true in a plain test,
 *         so a wait on it ends).
 */
VXU_API int vxu_time_timeout(const struct timeval *deadline);

/* ---- Threads, semaphores and descriptor helpers ------------------------- */

/**
 * @brief Starts a detached thread with default attributes.
 * @param start Thread routine; the thread ends when it returns.
 * @param arg Passed to @p start.
 * @return The thread's id; 0 when it could not be created or @p start is
 *         NULL. Nobody joins it.
 */
VXU_API pthread_t vxu_thread_create(void *(*start)(void *), void *arg);

/**
 * @brief Sleeps through select(); a signal ends the sleep early.
 * @param sec Seconds.
 * @param usec Microseconds.
 */
VXU_API void vxu_os_wait(long sec, long usec);

/**
 * @brief Initialises a semaphore private to this process, value 0.
 * @param sem Semaphore owned by the caller.
 * @return sem_init's result: 0, or -1 with errno set (EINVAL for NULL).
 */
VXU_API int vxu_sem_create(sem_t *sem);

/**
 * @brief Posts a semaphore.
 * @param sem Semaphore.
 * @return sem_post's result: 0, or -1 with errno set (EINVAL for NULL).
 */
VXU_API int vxu_sem_post(sem_t *sem);

/**
 * @brief Waits for a semaphore; interrupted waits are resumed.
 * @param sem Semaphore.
 * @return 0 once taken; otherwise the error number itself (EINVAL for NULL).
 */
VXU_API int vxu_sem_wait(sem_t *sem);

/**
 * @brief Destroys a semaphore (the name is spelled so).
 * @param sem Semaphore nobody waits on.
 * @return sem_destroy's result; -1 with errno EINVAL for NULL.
 */
VXU_API int vxu_sem_destory(sem_t *sem);

/**
 * @brief Sets or clears O_NONBLOCK, leaving the other status flags alone.
 * @param fd Descriptor.
 * @param on Non-zero sets, 0 clears.
 * @return 0; -1 for a negative @p fd.
 */
VXU_API int vxu_com_fd_noblock(int fd, int on);

/**
 * @brief Sets or clears FD_CLOEXEC.
 * @param fd Descriptor.
 * @param on Non-zero sets, 0 clears.
 * @return 0; -1 for a negative @p fd.
 */
VXU_API int vxu_com_fd_cloexec(int fd, int on);

/**
 * @brief Asks, without waiting, whether a descriptor is readable (data, end
 *        of file or a pending error).
 * @param fd Descriptor, 0 to 1023.
 * @return 1 when readable at once; 0 otherwise, also for a descriptor
 *         outside 0 to 1023 or a failed select.
 */
VXU_API int vxu_com_fd_has_data(int fd);

VXU_END_DECLS

#endif /* VXUTIL_FRAME_H */
