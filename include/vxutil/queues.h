/**
 * @file queues.h
 * @brief Queues: the command queue, System V message queues and the pointer
 *        FIFO.
 */
#ifndef VXUTIL_QUEUES_H
#define VXUTIL_QUEUES_H

#include <pthread.h>
#include <stdint.h>

#include <vxutil/base.h>

VXU_BEGIN_DECLS

/* ---- Command queue ------------------------------------------------------- */

/**
 * @brief A command queue; allocated by the caller, filled by vxu_cmdq_init().
 *
 * Any number of threads push; one consumer, normally the event-loop thread,
 * registers vxu_cmdq_get_fd() for reading and pulls one record each time the
 * descriptor is readable. Each queued record stands for one byte in the
 * queue's socket pair. There is no teardown.
 */
typedef struct vxu_cmdq {
    pthread_mutex_t mutex; /**< Guards @c items. */
    vxu_list_link items;   /**< Sentinel of the queued records, oldest first. */
    int wfd;               /**< Sending end of the wake-up pair; -1 without one. */
    int rfd;               /**< Receiving end, watched by the consumer; -1 without one. */
    int max_items;         /**< Most records the queue may hold. */
} vxu_cmdq;

/**
 * @brief One queued command: this header with the payload copy right behind
 *        it, in one zero-filled block released by vxu_cmdq_item_free().
 */
typedef struct vxu_cmdq_item {
    uint64_t cmd;       /**< Command value, opaque to the queue. */
    void *data;         /**< The payload copy, just behind the header. */
    int len;            /**< Payload bytes; 0 when pushed without data. */
    vxu_list_link link; /**< Chains the record; both pointers null once pulled. */
} vxu_cmdq_item;

/**
 * @brief Initialises a command queue.
 *
 * The socket pair's buffers are enlarged, as far as the system allows
 * without privileges, to hold a wake-up byte for every record. When the
 * pair cannot be made (or would not fit a select set) both descriptors are
 * -1 and pulls fail.
 * @param q The queue.
 * @param max_items Capacity; below 1 means 100.
 * @return 0; -1 when @p q is NULL or the mutex cannot be initialised.
 */
VXU_API int vxu_cmdq_init(vxu_cmdq *q, int max_items);

/**
 * @brief Queues a command with a copy of @p len bytes and writes one
 *        wake-up byte.
 * @param q The queue.
 * @param cmd Command value.
 * @param data Bytes to copy, or NULL (the record's length is then 0).
 * @param len Number of bytes, 0 or more.
 * @return 0 queued; 1 queue full, nothing queued; -1 when @p q is NULL,
 *         @p len is negative or memory is short (nothing queued), or when
 *         the wake-up byte was not written (queued all the same: the queue
 *         then runs one record behind until a later byte arrives). A closed
 *         receiving end is such a failure, never a SIGPIPE.
 */
VXU_API int vxu_cmdq_cmd_push(vxu_cmdq *q, uint64_t cmd, const void *data, int len);

/**
 * @brief Waits for a wake-up byte, reads it and takes the oldest record.
 * @param q The queue.
 * @param timeout_ms Longest wait in milliseconds; 0 only polls.
 * @param out Receives the record, or NULL when none is delivered.
 * @return 1 delivered; 0 nothing (timed out, interrupted by a signal, or a
 *         byte without a record); -1 when an argument is NULL, the queue has
 *         no socket pair, @p timeout_ms is negative, the wait or read fails,
 *         or the sending end is closed (end of stream).
 */
VXU_API int vxu_cmdq_pull(vxu_cmdq *q, int timeout_ms, vxu_cmdq_item **out);

/**
 * @brief The descriptor to watch for reading (vxu_loop_add()).
 * @param q An initialised queue.
 * @return @c q->rfd; -1 for a NULL queue.
 */
VXU_API int vxu_cmdq_get_fd(vxu_cmdq *q);

/**
 * @brief Releases a pulled record.
 * @param q The queue (NULL: nothing is released).
 * @param item The record (NULL: nothing is released).
 * @return 0.
 */
VXU_API int vxu_cmdq_item_free(vxu_cmdq *q, vxu_cmdq_item *item);

/* ---- Pointer FIFO -------------------------------------------------------- */

/**
 * @brief A ring of pointers; zero it before the first dfifo_init().
 *
 * Holds at most @c size - 1 non-null pointers: one slot always stays empty.
 * No lock, no blocking, no allocation after init.
 */
typedef struct dfifo_ctx {
    int head;     /**< Slot the next get reads. */
    int tail;     /**< Slot the next put writes. */
    int size;     /**< Number of slots. */
    void **slots; /**< The ring; NULL while not initialised. */
} dfifo_ctx;

/**
 * @brief Allocates the ring.
 * @param ctx A zeroed (or deinitialised) control record.
 * @param size Number of slots; a FIFO of 0 or 1 slot holds nothing.
 * @return 0; -1 when @p ctx is NULL, already initialised, or the ring cannot
 *         be allocated (also for a negative @p size).
 */
VXU_API int dfifo_init(dfifo_ctx *ctx, int size);

/**
 * @brief Releases the ring; the stored objects stay the caller's.
 * @param ctx The control record (NULL: nothing happens).
 */
VXU_API void dfifo_deinit(dfifo_ctx *ctx);

/**
 * @brief Takes the oldest pointer.
 * @param ctx The control record.
 * @return The pointer; NULL when @p ctx is NULL, the FIFO is empty or not
 *         initialised.
 */
VXU_API void *dfifo_get(dfifo_ctx *ctx);

/**
 * @brief Stores a pointer.
 * @param ctx The control record.
 * @param ptr The pointer, not NULL.
 * @return 0; -1 when an argument is NULL, the FIFO is not initialised or
 *         full.
 */
VXU_API int dfifo_put(dfifo_ctx *ctx, void *ptr);

/* ---- System V message queues ------------------------------------------- */

/*
 * A queue is named by a key file and a project number (ftok): every process
 * using the same pair reaches the same queue, opened or created with
 * permissions 0766. Queues are kernel objects: they outlive the processes
 * and go only through vxu_msgq_deinit() (or a reboot). Messages use the
 * platform's layout, a long type (above 0) then the payload; sizes count
 * the payload only. Any thread of any process may call these; the kernel
 * serialises them. Failures are logged on the calling thread through
 * __vx_log (errno is kept for the caller); nothing is retried.
 */

/**
 * @brief Opens, or creates, the queue of a key file and project number.
 *
 * Creates the key file empty (mode 0766, less the umask) when it is
 * missing. Logs each failure at level 1 and the success at level 4
 * ("create message queue success <id>").
 * @param log The caller's logging handle, passed unchanged to __vx_log.
 * @param key_path Key file path.
 * @param proj_id Project number, not 0; only its low 8 bits count (ftok).
 * @return The queue identifier (0 or more), the same for every caller of
 *         the pair; -1 when @p key_path is NULL, the key file cannot be
 *         created, or ftok or msgget fails.
 */
VXU_API int vxu_msgq_init(void *log, const char *key_path, int proj_id);

/**
 * @brief Removes a queue for every process; senders and receivers blocked
 *        on it fail with EIDRM. Logs nothing. The key file stays.
 * @param log Not used.
 * @param msqid Queue identifier.
 * @return 0 removed; -1 when the queue does not exist (removed already) or
 *         may not be read or removed by this process.
 */
VXU_API int vxu_msgq_deinit(void *log, int msqid);

/**
 * @brief Opens the queue into @p *msqid unless it already holds an
 *        identifier; preset the variable to -1 before the first call.
 *
 * Unlike vxu_msgq_init() the key file is not created (a missing one makes
 * ftok fail); the queue itself is created when missing. Failures are logged
 * at level 4.
 * @param log The caller's logging handle, passed unchanged to __vx_log.
 * @param msqid The caller's identifier variable.
 * @param key_path Key file path.
 * @param proj_id Project number, as given to vxu_msgq_init().
 * @return 0 when @p *msqid was 0 or more already (nothing done) or is now
 *         open; -1 when @p msqid is NULL, or ftok (missing key file, NULL
 *         @p key_path) or msgget fails (@p *msqid then holds msgget's -1).
 */
VXU_API int vxu_msgq_get(void *log, int *msqid, const char *key_path, int proj_id);

/**
 * @brief Sends one message (msgsnd).
 * @param log The caller's logging handle, passed unchanged to __vx_log.
 * @param msqid Queue identifier.
 * @param msgp The message: a long type above 0, then the payload.
 * @param msgsz Payload bytes.
 * @param msgflg 0 blocks while the queue is full; IPC_NOWAIT fails at once
 *               (EAGAIN).
 * @return 0 sent; else msgsnd's result (-1), logged at level 4 with the
 *         identifier, the result, the size, errno and its text.
 */
VXU_API int vxu_msgq_send(void *log, int msqid, const void *msgp, unsigned int msgsz, int msgflg);

/**
 * @brief Receives one message (msgrcv). The received size is not reported:
 *        use fixed-size messages or carry the length in the payload.
 * @param log The caller's logging handle, passed unchanged to __vx_log.
 * @param msqid Queue identifier.
 * @param msgp Receives the message: a long type, then the payload.
 * @param msgsz Payload capacity of @p msgp.
 * @param msgtyp 0: the oldest message; above 0: the oldest of that type;
 *               below 0: the lowest type up to its absolute value.
 * @param msgflg 0 blocks until a message comes; e.g. IPC_NOWAIT,
 *               MSG_NOERROR.
 * @return 0 received; -1 on failure, logged at level 1: also no message
 *         with IPC_NOWAIT (ENOMSG), an interrupting signal (EINTR), a
 *         message longer than @p msgsz without MSG_NOERROR (E2BIG) or a
 *         negative @p msgsz.
 */
VXU_API int vxu_msgq_recv(void *log, int msqid, void *msgp, int msgsz, long msgtyp, int msgflg);

VXU_END_DECLS

#endif /* VXUTIL_QUEUES_H */
