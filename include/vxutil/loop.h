/*
 * vxutil event loop: one select-based loop per process. A registry of
 * single-descriptor entries and descriptor-set entries, dispatched by
 * vxu_loop_run on the thread that calls it. The registry has no lock:
 * other threads hand work over through a command queue.
 */
#ifndef VXUTIL_LOOP_H
#define VXUTIL_LOOP_H

#include <sys/select.h>

#include <vxutil/base.h>

VXU_BEGIN_DECLS

#define VXU_LOOP_EV_WRITE 1
#define VXU_LOOP_EV_READ 2

/* Called with the descriptor, the ready events (2 read, 1 write, 3 both) and arg. */
typedef void (*vxu_loop_fd_cb)(int fd, int events, void *arg);
/* Called with copies of the entry's registered read and write sets and arg;
 * the copies are valid only during the call. */
typedef void (*vxu_loop_fds_cb)(fd_set *rfds, fd_set *wfds, void *arg);

/* One registration; allocated and owned by the loop. */
typedef struct vxu_loop_entry {
    int fd;                 /* single-descriptor entry; 0 for a set entry */
    void *arg;
    int events;             /* VXU_LOOP_EV_* mask of a single-descriptor entry */
    int kind;               /* 0 single descriptor, 1 descriptor sets */
    vxu_loop_fd_cb fd_cb;
    vxu_loop_fds_cb fds_cb;
    fd_set rfds;
    int rfds_max;
    fd_set wfds;
    int wfds_max;
    vxu_list_link link;
} vxu_loop_entry;

/* The process-wide registry. */
typedef struct vxu_loop_state {
    int capacity;
    vxu_list_link entries;
} vxu_loop_state;

/* Creates the registry once (capacity 20 unless capacity >= 1); always 0. */
VXU_API int vxu_loop_init(int capacity);
/* 0 added; -1 full; -2 fd already registered; -3 not initialised, fd < 0 or
 * >= 1024, NULL callback or events 0; -4 out of memory. */
VXU_API int vxu_loop_add(int fd, int events, vxu_loop_fd_cb cb, void *arg);
/* 0 added; -1 full; -2 a matching set entry exists; -3 not initialised,
 * both sets NULL or NULL callback; -4 out of memory. The sets are copied. */
VXU_API int vxu_loop_add_fds(fd_set *rfds, int rfds_max, fd_set *wfds, int wfds_max,
                             vxu_loop_fds_cb cb, void *arg);
/* 0 removed; -1 not registered; -2 not initialised or fd < 0. */
VXU_API int vxu_loop_remove(int fd);
/* 0 removed; -1 no matching set entry; -2 not initialised or both sets NULL. */
VXU_API int vxu_loop_remove_fds(fd_set *rfds, fd_set *wfds);

/* timeout 0: one non-blocking pass; > 0: passes until the budget (ms) is
 * spent; < 0: for ever. Returns the number of readiness conditions handed to
 * single-descriptor entries, or -1 (not initialised, or select failed). */
VXU_API int vxu_loop_run(int timeout);

VXU_END_DECLS

#endif /* VXUTIL_LOOP_H */
