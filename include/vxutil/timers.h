/* vxutil timers: timer queue and timer service. */
#ifndef VXUTIL_TIMERS_H
#define VXUTIL_TIMERS_H

#include <pthread.h>
#include <stdint.h>

#include <vxutil/base.h>

VXU_BEGIN_DECLS

/* ---- Timer queue ---------------------------------------------------------
 * Timers sorted by due time on the uptime clock, handed out one per
 * vxu_tmrq_pull on a consumer thread of the caller's choosing. Adds, sets
 * and deletes may come from any thread and wake a sleeping pull.
 */

/* The queue; allocated by the caller, filled by vxu_tmrq_init. */
typedef struct vxu_tmrq {
    pthread_mutex_t mutex; /* guards timers and last_id */
    vxu_list_link timers;  /* sorted by due time, earliest first */
    int wfd;               /* sending end of the wake-up pair; -1 without one */
    int rfd;               /* receiving end, waited on by pull; -1 without one */
    int last_id;           /* identifier most recently given out */
    int max_timers;        /* capacity */
} vxu_tmrq;

/* One timer; allocated by the queue. */
typedef struct vxu_tmrq_item {
    uint64_t param1;      /* caller values, carried unchanged */
    uint64_t param2;
    uint32_t param3;
    int id;               /* from 1 up */
    uint32_t expire_sec;  /* due time on the uptime clock */
    uint32_t expire_usec; /* 0..999999 */
    uint32_t interval_ms; /* delay from arming, and the period */
    uint32_t repeat;      /* non-zero: re-armed on every delivery */
    vxu_list_link link;   /* both pointers null while off the list */
} vxu_tmrq_item;

/* Prints the current uptime on standard output. 0, or -1 (NULL q, clock
 * unreadable, mutex not initialised). Capacity < 1 means 100. */
VXU_API int vxu_tmrq_init(vxu_tmrq *q, int max_timers);
/* The new timer's id (>= 1), or -1 (NULL q, full, no memory, or wake-up byte
 * not written: the timer is queued all the same). */
VXU_API int vxu_tmrq_tmr_add(vxu_tmrq *q, uint64_t param1, uint64_t param2, uint32_t param3,
                             uint32_t interval_ms, uint32_t repeat);
/* 1 when a timer with that id is queued, else 0. */
VXU_API int vxu_tmrq_tmr_is_exist(vxu_tmrq *q, int id);
/* Removes and releases the timer, waking a sleeping pull; 0 whether or not
 * it existed, -1 for NULL q. */
VXU_API int vxu_tmrq_tmr_del(vxu_tmrq *q, int id);
/* Replaces the values and re-arms from now. 0; 1 unknown id; -1 NULL q or
 * wake-up byte not written. */
VXU_API int vxu_tmrq_tmr_set(vxu_tmrq *q, int id, uint64_t param1, uint64_t param2,
                             uint32_t param3, uint32_t interval_ms, uint32_t repeat);
/* Delivers the earliest due timer (1) or waits until one may be due or the
 * list changes (0; at most 2 s on an empty list). -1: NULL argument, no
 * socket pair, or failed wait. A repeating record stays owned by the queue. */
VXU_API int vxu_tmrq_pull(vxu_tmrq *q, vxu_tmrq_item **out);
/* Releases a delivered one-shot record; repeating records are left alone. 0. */
VXU_API int vxu_tmrq_item_free(vxu_tmrq *q, vxu_tmrq_item *item);
/* Inserts item by due time behind equal ones and writes a wake-up byte.
 * The caller holds q->mutex. 0, or -1 when the byte was not written. */
VXU_API int _tmr_list_insert(vxu_tmrq *q, vxu_tmrq_item *item);

/* ---- Timer service -------------------------------------------------------
 * One per process: a library thread fires list timers (type 0, uptime
 * clock) and timer descriptors (type 1, CLOCK_BOOTTIME_ALARM) and calls
 * back without any lock held, so a callback may use every vxu_tmr_ function.
 */

#define VXU_TMR_TYPE_LIST 0
#define VXU_TMR_TYPE_FD 1

/* Called on the service thread with the timer's id and arg; result ignored. */
typedef int (*vxu_tmr_cb)(int id, uint64_t arg);

/* One timer record, owned by the service. */
typedef struct vxu_tmr {
    int id;
    uint64_t arg;
    uint8_t type;         /* VXU_TMR_TYPE_LIST or VXU_TMR_TYPE_FD */
    uint8_t armed;        /* 1 while running */
    uint8_t deleted;      /* released by the service thread */
    uint8_t repeat;       /* descriptor timers: keep running after firing */
    uint32_t interval_ms; /* delay from start, and the period */
    vxu_tmr_cb callback;  /* may be NULL */
    uint32_t expire_sec;  /* due time of a running list timer */
    uint32_t expire_usec;
    int fd;               /* timer descriptor; -1 until first started */
    vxu_list_link link;
} vxu_tmr;

/* The service, reachable only inside the library. */
typedef struct vxu_tmr_ctx {
    pthread_mutex_t mutex;
    vxu_list_link idle_list; /* stopped, fired one-shot and deleted timers */
    vxu_list_link due_list;  /* running list timers, earliest first */
    vxu_list_link fd_list;   /* running descriptor timers */
    pthread_t thread;
    int wfd;
    int rfd;
    int last_id;
    int max_timers; /* most timers on idle_list at create: 20 */
} vxu_tmr_ctx;

/* Creates the service and its thread once; 0 (also when it exists), -1. */
VXU_API int vxu_tmr_init(void);
/* A stopped timer of type 0 or 1; its id, or -1 (no service, 20 timers
 * already idle, no memory, other type). */
VXU_API int vxu_tmr_create(uint8_t type);
/* Stores the values; a running timer restarts from now (0 or -1).
 * -2 unknown id; -1 no service. */
VXU_API int vxu_tmr_set(int id, uint32_t interval_ms, uint8_t repeat, vxu_tmr_cb callback,
                        uint64_t arg);
/* (Re)starts the timer from now. 0; -1 failure (the timer may run all the
 * same when only the wake-up byte was lost); -2 unknown id. */
VXU_API int vxu_tmr_start(int id);
/* 0 stopped or not running; -1 failure or no service; -2 unknown id. */
VXU_API int vxu_tmr_stop(int id);
/* 1 running, 0 not running, -2 unknown id, -1 no service. */
VXU_API int vxu_tmr_status(int id);
/* Stops the timer and hands it to the service thread for release. 0; -2
 * unknown id; -1 no service. Do not use the id afterwards. */
VXU_API int vxu_tmr_delete(int id);

VXU_END_DECLS

#endif /* VXUTIL_TIMERS_H */
