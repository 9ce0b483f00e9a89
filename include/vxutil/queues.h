/* vxutil queues: command queue, System V message queues and pointer FIFO. */
#ifndef VXUTIL_QUEUES_H
#define VXUTIL_QUEUES_H

#include <pthread.h>
#include <stdint.h>

#include <vxutil/base.h>

VXU_BEGIN_DECLS

/* ---- Command queue -------------------------------------------------------
 * Any thread pushes commands; one consumer (normally the event-loop thread)
 * registers vxu_cmdq_get_fd() for reading and pulls one record per readiness.
 * Each queued record stands for one byte in the queue's socket pair.
 */

/* The queue; allocated by the caller, filled by vxu_cmdq_init. */
typedef struct vxu_cmdq {
    pthread_mutex_t mutex; /* guards items */
    vxu_list_link items;   /* queued records, oldest first */
    int wfd;               /* sending end of the wake-up pair; -1 without one */
    int rfd;               /* receiving end, watched by the consumer; -1 without one */
    int max_items;         /* capacity */
} vxu_cmdq;

/* One queued command: this header and its payload in one zero-filled block. */
typedef struct vxu_cmdq_item {
    uint64_t cmd;       /* command value, opaque to the queue */
    void *data;         /* the payload copy, just behind the header */
    int len;            /* payload bytes; 0 when pushed without data */
    vxu_list_link link; /* both pointers null once pulled */
} vxu_cmdq_item;

/* 0, or -1 (NULL q, mutex not initialised). Capacity < 1 means 100. When the
 * socket pair cannot be made both descriptors are -1 and pulls fail. */
VXU_API int vxu_cmdq_init(vxu_cmdq *q, int max_items);
/* Copies len bytes of data (none when data is NULL) into a new record.
 * 0 queued; 1 queue full, nothing queued; -1 NULL q, negative len or no
 * memory (nothing queued), or wake-up byte not written (queued all the same). */
VXU_API int vxu_cmdq_cmd_push(vxu_cmdq *q, uint64_t cmd, const void *data, int len);
/* Waits up to timeout_ms for a wake-up byte, reads it and takes the oldest
 * record. 1 delivered through out; 0 nothing (timed out, signal, or byte
 * without record); -1 NULL argument, no socket pair, failed wait or read. */
VXU_API int vxu_cmdq_pull(vxu_cmdq *q, int timeout_ms, vxu_cmdq_item **out);
/* The descriptor to watch for reading. */
VXU_API int vxu_cmdq_get_fd(vxu_cmdq *q);
/* Releases a pulled record (nothing when q or item is NULL); always 0. */
VXU_API int vxu_cmdq_item_free(vxu_cmdq *q, vxu_cmdq_item *item);

/* ---- Pointer FIFO --------------------------------------------------------
 * A ring of size slots holding at most size-1 non-null pointers. No lock,
 * no blocking, no allocation after init.
 */

/* Zero it before the first dfifo_init. */
typedef struct dfifo_ctx {
    int head;     /* slot the next get reads */
    int tail;     /* slot the next put writes */
    int size;     /* number of slots */
    void **slots; /* NULL while not initialised */
} dfifo_ctx;

/* 0, or -1 when ctx is NULL, already initialised, or allocation fails. */
VXU_API int dfifo_init(dfifo_ctx *ctx, int size);
/* Releases the slots; the stored objects stay the caller's. */
VXU_API void dfifo_deinit(dfifo_ctx *ctx);
/* The oldest pointer, or NULL when empty or not usable. */
VXU_API void *dfifo_get(dfifo_ctx *ctx);
/* 0 stored; -1 NULL argument, not usable, or full. */
VXU_API int dfifo_put(dfifo_ctx *ctx, void *ptr);

VXU_END_DECLS

#endif /* VXUTIL_QUEUES_H */
