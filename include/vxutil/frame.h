/*
 * vxutil runtime frame: memory and mutex wrappers, clocks and time helpers,
 * threads, semaphores and descriptor flags.
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

/* ---- Memory and mutex wrappers ------------------------------------------
 * The leading pair names the caller (function name, source line); the
 * wrappers accept it and do nothing with it. Use the macros below, which
 * pass __func__ and __LINE__.
 */

/* Zero-filled block of size bytes; NULL when size <= 0 or memory is short. */
VXU_API void *_vxu_mem_alloc(const char *func, int line, int size);
/* Releases a block from _vxu_mem_alloc; NULL is ignored. */
VXU_API void _vxu_mem_free(const char *func, int line, void *ptr);
/* Writes "mem tracking is not supported\n"; returns the fwrite result (30). */
VXU_API int vxu_mem_dump(FILE *out);

/* pthread_mutex_init with default attributes; the label is not stored. */
VXU_API int vxu_mutex_init(pthread_mutex_t *mutex, const char *label);
VXU_API int vxu_mutex_destroy(pthread_mutex_t *mutex);
VXU_API int _vxu_mutex_lock(const char *func, int line, pthread_mutex_t *mutex);
VXU_API int _vxu_mutex_unlock(const char *func, int line, pthread_mutex_t *mutex);
/* Writes "mutex tracking is not supported\n"; always returns 0. */
VXU_API int vxu_mutex_dump(FILE *out);

#define vxu_mem_alloc(size) _vxu_mem_alloc(__func__, __LINE__, (size))
#define vxu_mem_free(ptr) _vxu_mem_free(__func__, __LINE__, (ptr))
#define vxu_mutex_lock(mutex) _vxu_mutex_lock(__func__, __LINE__, (mutex))
#define vxu_mutex_unlock(mutex) _vxu_mutex_unlock(__func__, __LINE__, (mutex))

/* ---- Clocks and time helpers -------------------------------------------- */

/* Calendar time filled by vxu_get_systime (local time). */
typedef struct vxu_systime_t {
    uint8_t sec;   /* 0..59 */
    uint8_t min;   /* 0..59 */
    uint8_t hour;  /* 0..23 */
    uint8_t day;   /* day of the month, 1..31 */
    uint8_t mon;   /* 1..12 */
    uint8_t wday;  /* 0..6, Sunday 0 */
    uint16_t year; /* full year, e.g. 2026 */
} vxu_systime_t;

/* Wall-clock milliseconds since the Unix epoch. */
VXU_API uint64_t vxu_com_get_tmr_ms(void);
/* Monotonic uptime in milliseconds; 0 when the clock cannot be read. */
VXU_API uint64_t vxu_com_get_uptime_ms(void);
/* Monotonic uptime as seconds and microseconds; either pointer may be NULL.
 * 0, or -1 (nothing written) when the clock cannot be read. */
VXU_API int vxu_com_get_uptime(uint32_t *sec, uint32_t *usec);
/* As vxu_com_get_uptime, on the boot-time clock (counts through suspend). */
VXU_API int vxu_com_get_uptime_all(uint32_t *sec, uint32_t *usec);
/* Current local calendar time. */
VXU_API void vxu_get_systime(vxu_systime_t *out);

/* Wall-clock timeval helpers: take now, make a deadline, test it, measure. */
VXU_API struct timeval *vxu_get_uptime(struct timeval *tv);
VXU_API void vxu_get_timestamp(struct timeval *tv, int ms);
/* Milliseconds (resp. seconds) from b to a, wrapping as a 32-bit int. */
VXU_API int vxu_time_diff(const struct timeval *a, const struct timeval *b);
VXU_API int vxu_time_sec_diff(const struct timeval *a, const struct timeval *b);
/* 1 when the deadline is reached, 0 while it lies ahead. */
VXU_API int vxu_time_timeout(const struct timeval *deadline);

/* ---- Threads, semaphores and descriptor helpers ------------------------- */

/* Starts a detached thread; returns its id, or 0 when it could not start. */
VXU_API pthread_t vxu_thread_create(void *(*start)(void *), void *arg);
/* Sleeps through select; a signal ends the sleep early. */
VXU_API void vxu_os_wait(long sec, long usec);

/* Process-private semaphore starting at 0: sem_init's result. */
VXU_API int vxu_sem_create(sem_t *sem);
VXU_API int vxu_sem_post(sem_t *sem);
/* 0 once taken (EINTR is retried); otherwise the error number itself. */
VXU_API int vxu_sem_wait(sem_t *sem);
VXU_API int vxu_sem_destory(sem_t *sem);

/* Set (on != 0) or clear O_NONBLOCK / FD_CLOEXEC; -1 for a negative fd. */
VXU_API int vxu_com_fd_noblock(int fd, int on);
VXU_API int vxu_com_fd_cloexec(int fd, int on);
/* 1 when fd is readable at once (data, end of file or error), else 0.
 * Descriptors outside 0..1023 give 0. */
VXU_API int vxu_com_fd_has_data(int fd);

VXU_END_DECLS

#endif /* VXUTIL_FRAME_H */
