/**
 * @file loop.h
 * @brief The event loop: one select-based loop per process.
 *
 * A registry of single-descriptor entries and descriptor-set entries,
 * dispatched by vxu_loop_run() on the thread that calls it. The registry has
 * no lock: only the loop thread (or the thread that sets the loop up before
 * it runs) may call these functions; other threads hand work to the loop
 * through a command queue. There is no teardown: the registry lives until
 * the process ends.
 */
#ifndef VXUTIL_LOOP_H
#define VXUTIL_LOOP_H

#include <sys/select.h>

#include <vxutil/base.h>

VXU_BEGIN_DECLS

/** @brief Event bit: watch for writability. */
#define VXU_LOOP_EV_WRITE 1
/** @brief Event bit: watch for readability. */
#define VXU_LOOP_EV_READ 2

/**
 * @brief Callback of a single-descriptor entry.
 * @param fd The registered descriptor.
 * @param events VXU_LOOP_EV_READ, VXU_LOOP_EV_WRITE or both.
 * @param arg The value given at registration.
 */
typedef void (*vxu_loop_fd_cb)(int fd, int events, void *arg);

/**
 * @brief Callback of a descriptor-set entry.
 *
 * Called with copies of the sets as registered (not the ready
 * descriptors); the copies belong to the loop and are valid only during
 * the call.
 * @param rfds Copy of the registered read set.
 * @param wfds Copy of the registered write set.
 * @param arg The value given at registration.
 */
typedef void (*vxu_loop_fds_cb)(fd_set *rfds, fd_set *wfds, void *arg);

/** @brief One registration; allocated and owned by the loop. */
typedef struct vxu_loop_entry {
    int fd;                 /**< Watched descriptor; 0 in a set entry. */
    void *arg;              /**< Caller value handed to the callback. */
    int events;             /**< VXU_LOOP_EV_* mask; 0 in a set entry. */
    int kind;               /**< 0 single descriptor, 1 descriptor sets. */
    vxu_loop_fd_cb fd_cb;   /**< Callback of a single-descriptor entry. */
    vxu_loop_fds_cb fds_cb; /**< Callback of a descriptor-set entry. */
    fd_set rfds;            /**< Copy of the registered read set. */
    int rfds_max;           /**< Highest descriptor of @c rfds to watch. */
    fd_set wfds;            /**< Copy of the registered write set. */
    int wfds_max;           /**< Highest descriptor of @c wfds to watch. */
    vxu_list_link link;     /**< Chains the entry into the registry. */
} vxu_loop_entry;

/** @brief The process-wide registry. */
typedef struct vxu_loop_state {
    int capacity;          /**< Most entries held at once. */
    vxu_list_link entries; /**< Sentinel of the entries, newest first. */
} vxu_loop_state;

/**
 * @brief Creates the process-wide registry; later calls change nothing.
 * @param capacity Most entries at once; below 1 means 20.
 * @return 0; -4 when the registry cannot be allocated.
 */
VXU_API int vxu_loop_init(int capacity);

/**
 * @brief Registers one descriptor.
 * @param fd Descriptor, 0 to 1023.
 * @param events VXU_LOOP_EV_READ and/or VXU_LOOP_EV_WRITE; other bits are
 *               stored and never watched.
 * @param cb Callback, called on the loop thread.
 * @param arg Handed to @p cb unchanged.
 * @return 0 added; -1 registry full; -2 @p fd is registered already; -3 loop
 *         not initialised, @p fd negative or 1024 or more, @p cb NULL or
 *         @p events 0; -4 out of memory.
 */
VXU_API int vxu_loop_add(int fd, int events, vxu_loop_fd_cb cb, void *arg);

/**
 * @brief Registers a pair of descriptor sets with one callback.
 *
 * The sets are copied. Descriptors 0 to the bound of each set are watched
 * (a bound of 0 or less watches nothing; bounds past 1023 stop at 1023).
 * @param rfds Read set, or NULL.
 * @param rfds_max Bound of the read set.
 * @param wfds Write set, or NULL (not both NULL).
 * @param wfds_max Bound of the write set.
 * @param cb Callback, called once per pass when any watched descriptor of
 *           the entry is ready.
 * @param arg Handed to @p cb unchanged.
 * @return 0 added; -1 registry full; -2 an entry with the same read set (or
 *         else the same write set) exists; -3 loop not initialised, both
 *         sets NULL or @p cb NULL; -4 out of memory.
 */
VXU_API int vxu_loop_add_fds(fd_set *rfds, int rfds_max, fd_set *wfds, int wfds_max,
                             vxu_loop_fds_cb cb, void *arg);

/**
 * @brief Removes the single-descriptor entry of @p fd.
 *
 * Safe from any callback, also for another entry: a removed entry is not
 * dispatched again.
 * @param fd The registered descriptor (not closed by the loop).
 * @return 0 removed; -1 no such entry; -2 loop not initialised or @p fd
 *         negative.
 */
VXU_API int vxu_loop_remove(int fd);

/**
 * @brief Removes the first descriptor-set entry whose read copy equals
 *        @p rfds, or else whose write copy equals @p wfds.
 * @param rfds Read set to match, or NULL.
 * @param wfds Write set to match, or NULL (not both NULL).
 * @return 0 removed; -1 no matching entry; -2 loop not initialised or both
 *         sets NULL.
 */
VXU_API int vxu_loop_remove_fds(fd_set *rfds, fd_set *wfds);

/**
 * @brief Runs the loop: waits with select() and calls the ready entries'
 *        callbacks, newest registration first.
 * @param timeout 0: one pass that does not wait; above 0: passes until this
 *                many milliseconds of uptime are spent; below 0: for ever
 *                (each wait at most 10 s). An interrupted wait is repeated.
 * @return The number of readiness conditions handed to single-descriptor
 *         entries (read and write count one each); -1 when the loop is not
 *         initialised, select() fails (for example on a descriptor closed
 *         without removal) or runs nest more than 32 deep. A callback may
 *         leave the run with longjmp()/siglongjmp(): the library keeps no
 *         pointer into the abandoned stack.
 */
VXU_API int vxu_loop_run(int timeout);

VXU_END_DECLS

#endif /* VXUTIL_LOOP_H */
