/* vxutil queues: command queue, System V message queues and pointer FIFO. */
#ifndef VXUTIL_QUEUES_H
#define VXUTIL_QUEUES_H

#include <vxutil/base.h>

VXU_BEGIN_DECLS

VXU_END_DECLS

#endif /* VXUTIL_QUEUES_H */
