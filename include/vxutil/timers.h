/**
 * @file timers.h
 * @brief Timers: a timer queue pulled by the caller, and a process-wide
 *        timer service that calls back from its own thread.
 *
 * Both keep due times on the uptime clock as unsigned 32-bit seconds and
 * microseconds, computed n milliseconds ahead and compared seconds first.
 * Timer identifiers count from 1 upward and wrap back to 1 past the largest
 * int. Neither has a teardown: they live until the process ends.
 */
#ifndef VXUTIL_TIMERS_H
#define VXUTIL_TIMERS_H

#include <pthread.h>
#include <stdint.h>

#include <vxutil/base.h>

VXU_BEGIN_DECLS

/* ---- Timer queue --------------------------------------------------------- */

/**
 * @brief A timer queue; allocated by the caller, filled by vxu_tmrq_init().
 *
 * Adds, sets, deletes and existence tests may come from any thread; one
 * consumer thread calls vxu_tmrq_pull() in a loop. Every change to the list
 * writes a byte into the queue's socket pair, which wakes a sleeping pull.
 */
typedef struct vxu_tmrq {
    pthread_mutex_t mutex; /**< Guards @c timers and @c last_id. */
    vxu_list_link timers;  /**< Sentinel of the timers, earliest due first. */
    int wfd;               /**< Sending end of the wake-up pair; -1 without one. */
    int rfd;               /**< Receiving end, waited on by pull; -1 without one. */
    int last_id;           /**< Identifier most recently given out; 0 after init. */
    int max_timers;        /**< Most timers the list may hold. */
} vxu_tmrq;

/** @brief One timer of a timer queue; allocated by the queue. */
typedef struct vxu_tmrq_item {
    uint64_t param1;      /**< Caller value, carried unchanged. */
    uint64_t param2;      /**< Caller value, carried unchanged. */
    uint32_t param3;      /**< Caller value, carried unchanged. */
    int id;               /**< Identifier, from 1 up. */
    uint32_t expire_sec;  /**< Due time, seconds of uptime. */
    uint32_t expire_usec; /**< Due time, microseconds within the second. */
    uint32_t interval_ms; /**< Delay from arming to due time, and the period. */
    uint32_t repeat;      /**< Non-zero: re-armed on every delivery. */
    vxu_list_link link;   /**< Chains the timer; both pointers null off the list. */
} vxu_tmrq_item;

/**
 * @brief Initialises a timer queue and prints the current uptime as
 *        "curr boot time : sec=%d, usec=%d\n" on standard output.
 *
 * When its socket pair cannot be made (or would not fit a select set) both
 * descriptors are -1: timers can still be added, but pulls fail.
 * @param q The queue.
 * @param max_timers Capacity; below 1 means 100.
 * @return 0; -1 when @p q is NULL, the uptime clock cannot be read or the
 *         mutex cannot be initialised.
 */
VXU_API int vxu_tmrq_init(vxu_tmrq *q, int max_timers);

/**
 * @brief Adds a timer due @p interval_ms from now.
 * @param q The queue.
 * @param param1 Caller value.
 * @param param2 Caller value.
 * @param param3 Caller value.
 * @param interval_ms Delay, and the period of a repeating timer.
 * @param repeat Non-zero: re-armed one interval after each delivery.
 * @return The new timer's id (1 or more); -1 when @p q is NULL, the queue is
 *         full or memory is short (nothing added), or when the wake-up byte
 *         was not written (the timer is added all the same).
 */
VXU_API int vxu_tmrq_tmr_add(vxu_tmrq *q, uint64_t param1, uint64_t param2, uint32_t param3,
                             uint32_t interval_ms, uint32_t repeat);

/**
 * @brief Tells whether a timer is in the queue.
 * @param q The queue.
 * @param id Timer identifier.
 * @return 1 when a timer with @p id is listed, else 0 (also for a NULL @p q).
 */
VXU_API int vxu_tmrq_tmr_is_exist(vxu_tmrq *q, int id);

/**
 * @brief Removes and releases a listed timer. Writes no wake-up byte: a pull
 *        sleeping towards it wakes at its old due time.
 * @param q The queue.
 * @param id Timer identifier; an unknown one changes nothing.
 * @return 0; -1 when @p q is NULL.
 */
VXU_API int vxu_tmrq_tmr_del(vxu_tmrq *q, int id);

/**
 * @brief Replaces a listed timer's values and re-arms it from now.
 * @param q The queue.
 * @param id Timer identifier.
 * @param param1 New caller value.
 * @param param2 New caller value.
 * @param param3 New caller value.
 * @param interval_ms New delay and period.
 * @param repeat New repeat flag.
 * @return 0; 1 no timer with @p id; -1 when @p q is NULL or the wake-up byte
 *         was not written (the timer is re-armed all the same).
 */
VXU_API int vxu_tmrq_tmr_set(vxu_tmrq *q, int id, uint64_t param1, uint64_t param2, uint32_t param3,
                             uint32_t interval_ms, uint32_t repeat);

/**
 * @brief Delivers the earliest due timer, or waits until one may be due.
 *
 * A call that waits (until the earliest due time, at most 2 s on an empty
 * list, or until the list changes) delivers nothing: call again. A
 * delivered one-shot timer leaves the list and belongs to the caller; a
 * repeating one is back in the list, still the queue's.
 * @param q The queue.
 * @param out Receives the delivered timer, or NULL.
 * @return 1 delivered; 0 nothing delivered; -1 when an argument is NULL,
 *         the queue has no socket pair, or the wait fails other than by a
 *         signal.
 */
VXU_API int vxu_tmrq_pull(vxu_tmrq *q, vxu_tmrq_item **out);

/**
 * @brief Releases a delivered one-shot timer; repeating ones are left alone.
 * @param q The queue (NULL: nothing is released).
 * @param item The delivered timer.
 * @return 0.
 */
VXU_API int vxu_tmrq_item_free(vxu_tmrq *q, vxu_tmrq_item *item);

/**
 * @brief Links @p item into the list by due time, behind the timers due at
 *        the same time, and writes a wake-up byte. The caller holds
 *        @c q->mutex.
 * @param q The queue.
 * @param item An unlinked timer with its due time set.
 * @return 0; -1 when an argument is NULL or the byte was not written (the
 *         timer is linked all the same).
 */
VXU_API int _tmr_list_insert(vxu_tmrq *q, vxu_tmrq_item *item);

/* ---- Timer service ------------------------------------------------------- */

/** @brief Timer type: a timer on the uptime clock, kept in a sorted list. */
#define VXU_TMR_TYPE_LIST 0
/** @brief Timer type: a CLOCK_BOOTTIME_ALARM timer descriptor. */
#define VXU_TMR_TYPE_FD 1

/**
 * @brief Timer service callback, called on the service thread with no lock
 *        held: it may call every vxu_tmr_ function, also on its own timer.
 * @param id The timer's identifier.
 * @param arg The value given to vxu_tmr_set().
 * @return Ignored.
 */
typedef int (*vxu_tmr_cb)(int id, uint64_t arg);

/** @brief One timer of the timer service; owned by the service. */
typedef struct vxu_tmr {
    int id;               /**< Identifier, from 1 up. */
    uint64_t arg;         /**< Caller value handed to the callback. */
    uint8_t type;         /**< VXU_TMR_TYPE_LIST or VXU_TMR_TYPE_FD. */
    uint8_t armed;        /**< 1 while running. */
    uint8_t deleted;      /**< 1 once deleted; the service thread releases it. */
    uint8_t repeat;       /**< Descriptor timers: keep running after firing. */
    uint32_t interval_ms; /**< Delay from start to expiry, and the period. */
    vxu_tmr_cb callback;  /**< Called on expiry; may be NULL. */
    uint32_t expire_sec;  /**< Due time of a running list timer, seconds. */
    uint32_t expire_usec; /**< Due time, microseconds within the second. */
    int fd;               /**< Timer descriptor; -1 until first started. */
    vxu_list_link link;   /**< Chains the timer into one of the service's lists. */
} vxu_tmr;

/** @brief The timer service; one per process, reachable only inside the library. */
typedef struct vxu_tmr_ctx {
    pthread_mutex_t mutex;   /**< Guards everything below and every timer. */
    vxu_list_link idle_list; /**< Stopped, fired one-shot and deleted timers. */
    vxu_list_link due_list;  /**< Running list timers, earliest due first. */
    vxu_list_link fd_list;   /**< Running descriptor timers. */
    pthread_t thread;        /**< The service thread. */
    int wfd;                 /**< Sending end of the wake-up pair; -1 without one. */
    int rfd;                 /**< Receiving end, watched by the thread. */
    int last_id;             /**< Identifier most recently given out. */
    int max_timers;          /**< Most timers on @c idle_list at create: 20. */
} vxu_tmr_ctx;

/**
 * @brief Creates the process-wide timer service and its thread, once.
 *
 * The thread outlives descriptors closed behind its back: a timer whose
 * descriptor was closed stops (vxu_tmr_status() 0; a later start makes a new
 * one), a wake-up pair with a closed end is made anew, and list timers go
 * on firing.
 * @return 0, also when the service exists; -1 when it cannot be allocated
 *         (a later call retries), or its mutex or thread cannot be set up
 *         (later calls return 0).
 */
VXU_API int vxu_tmr_init(void);

/**
 * @brief Creates a stopped timer with interval 0 and no callback.
 * @param type VXU_TMR_TYPE_LIST or VXU_TMR_TYPE_FD.
 * @return The timer's id; -1 without a service, with 20 timers already
 *         stopped, when memory is short, or for another @p type.
 */
VXU_API int vxu_tmr_create(uint8_t type);

/**
 * @brief Stores a timer's values; a running timer restarts from now.
 * @param id Timer identifier.
 * @param interval_ms Delay from start to expiry, and the period.
 * @param repeat Descriptor timers: non-zero keeps them running after firing.
 *               List timers always run on until stopped.
 * @param callback Called on expiry, or NULL.
 * @param arg Handed to @p callback.
 * @return 0, or for a running timer the result of restarting it (as
 *         vxu_tmr_start()); -2 unknown @p id; -1 without a service.
 */
VXU_API int vxu_tmr_set(int id, uint32_t interval_ms, uint8_t repeat, vxu_tmr_cb callback,
                        uint64_t arg);

/**
 * @brief Starts (or restarts) a timer from now.
 * @param id Timer identifier.
 * @return 0; -2 unknown @p id; -1 without a service, when a timer
 *         descriptor cannot be made below 1024 (the timer stays stopped), or
 *         when the wake-up byte was not written (the timer runs all the same;
 *         a closed receiving end is such a failure, never a SIGPIPE).
 */
VXU_API int vxu_tmr_start(int id);

/**
 * @brief Stops a timer.
 * @param id Timer identifier.
 * @return 0, also when it was not running; -2 unknown @p id; -1 without a
 *         service or when a timer descriptor cannot be disarmed.
 */
VXU_API int vxu_tmr_stop(int id);

/**
 * @brief Tells whether a timer runs.
 * @param id Timer identifier.
 * @return 1 running; 0 stopped; -2 unknown @p id; -1 without a service.
 */
VXU_API int vxu_tmr_status(int id);

/**
 * @brief Stops a timer and hands it to the service thread for release.
 *
 * Apart from a callback already under way, the timer's callback is not
 * called again. Do not use @p id afterwards.
 * @param id Timer identifier.
 * @return 0; -2 unknown @p id; -1 without a service.
 */
VXU_API int vxu_tmr_delete(int id);

VXU_END_DECLS

#endif /* VXUTIL_TIMERS_H */
