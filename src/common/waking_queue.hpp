// Set-up shared by the caller-owned queue records that embed a mutex, a list
// head, a capacity and a wake-up socket pair (command and timer queues).
#pragma once

#include <string.h>

#include <vxutil/frame.h>

#include "common/list.hpp"
#include "common/wakeup_pair.hpp"

namespace vxu {

constexpr int kDefaultQueueCapacity = 100;

// Zeroes the record, then gives it an empty list, its mutex, a capacity
// (100 for a request below 1) and its pair. 0, or -1 when the mutex cannot
// be initialised; without a pair both descriptors are -1.
template <typename Queue>
int init_waking_queue(Queue *q, vxu_list_link *head, int *capacity, int requested,
                      const char *label, bool cloexec)
{
    memset(q, 0, sizeof *q);
    list_init(head);
    q->wfd = q->rfd = -1;  // a zero would name standard input
    if (vxu_mutex_init(&q->mutex, label) != 0)
        return -1;
    *capacity = requested < 1 ? kDefaultQueueCapacity : requested;
    int fds[2];
    open_wakeup_pair(fds, cloexec, *capacity);
    q->wfd = fds[0];
    q->rfd = fds[1];
    return 0;
}

}  // namespace vxu
