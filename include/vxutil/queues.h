/* vxutil queues: command queue, System V message queues and pointer FIFO. */
#ifndef VXUTIL_QUEUES_H
#define VXUTIL_QUEUES_H

#include <vxutil/base.h>

VXU_BEGIN_DECLS

/* ---- System V message queues ---------------------------------------------
 * A queue is named by a key file and a project number (ftok); every process
 * using the same pair reaches the same queue, opened or created with
 * permissions 0766. log is the caller's logging handle, passed unchanged to
 * __vx_log with each failure line. Messages use the platform's layout: a
 * long type, then the payload; sizes count the payload only.
 */

/* Creates the key file (mode 0766) when missing and opens or creates the
 * queue: its identifier (0 or more), or -1. */
VXU_API int vxu_msgq_init(void *log, const char *key_path, int proj_id);
/* Removes the queue for every process: 0, or -1. log is not used. */
VXU_API int vxu_msgq_deinit(void *log, int msqid);
/* Opens the queue into *msqid unless it already holds an identifier (>= 0);
 * the key file must exist. 0; -1 on failure (*msqid then holds msgget's
 * result when msgget was the call that failed). */
VXU_API int vxu_msgq_get(void *log, int *msqid, const char *key_path, int proj_id);
/* msgsnd: 0 sent, else msgsnd's result (-1). */
VXU_API int vxu_msgq_send(void *log, int msqid, const void *msgp, unsigned int msgsz,
                          int msgflg);
/* msgrcv into a buffer with msgsz payload bytes: 0 received (the size is not
 * reported), -1 on failure (also an empty queue with IPC_NOWAIT). */
VXU_API int vxu_msgq_recv(void *log, int msqid, void *msgp, int msgsz, long msgtyp,
                          int msgflg);

VXU_END_DECLS

#endif /* VXUTIL_QUEUES_H */
