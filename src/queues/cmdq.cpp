// Command queue: producers append records under the mutex and write one
// wake-up byte each; the consumer reads one byte per record it takes.
#include <errno.h>
#include <limits.h>
#include <stddef.h>
#include <string.h>
#include <unistd.h>

#include <vxutil/frame.h>
#include <vxutil/queues.h>

#include "common/fd_set_bounds.hpp"
#include "common/list.hpp"
#include "common/mutex_lock.hpp"
#include "common/waking_queue.hpp"
#include "common/wakeup_pair.hpp"

namespace {

constexpr int kHeaderSize = static_cast<int>(sizeof(vxu_cmdq_item));

vxu_cmdq_item *item_of(vxu_list_link *link)
{
    return vxu::container_of<vxu_cmdq_item>(link, offsetof(vxu_cmdq_item, link));
}

}  // namespace

extern "C" {

VXU_API int vxu_cmdq_init(vxu_cmdq *q, int max_items)
{
    if (!q)
        return -1;
    return vxu::init_waking_queue(q, &q->items, &q->max_items, max_items, "cmdq", true);
}

VXU_API int vxu_cmdq_cmd_push(vxu_cmdq *q, uint64_t cmd, const void *data, int len)
{
    if (!q || len < 0 || len > INT_MAX - kHeaderSize)
        return -1;
    vxu::mutex_lock hold(&q->mutex, "vxu_cmdq_cmd_push", __LINE__);
    if (vxu::list_count(&q->items) >= static_cast<size_t>(q->max_items))
        return 1;
    auto *item = static_cast<vxu_cmdq_item *>(
        _vxu_mem_alloc("vxu_cmdq_cmd_push", __LINE__, kHeaderSize + len));
    if (!item)
        return -1;
    item->cmd = cmd;
    item->data = item + 1;
    item->len = data ? len : 0;
    if (data && len > 0)
        memcpy(item->data, data, static_cast<size_t>(len));
    // The byte goes out before the record is linked, still under the lock:
    // a consumer woken at once waits on the mutex and then finds the record.
    const bool woken = vxu::post_wakeup(q->wfd);
    vxu::list_insert_before(&q->items, &item->link);
    return woken ? 0 : -1;
}

VXU_API int vxu_cmdq_pull(vxu_cmdq *q, int timeout_ms, vxu_cmdq_item **out)
{
    if (!q || !out)
        return -1;
    *out = nullptr;
    if (!vxu::fits_fd_set(q->rfd))
        return -1;
    unsigned char byte;
    if (timeout_ms == 0) {
        // Polling: the non-blocking read answers what a zero-time select
        // would, in one system call instead of two.
        const ssize_t got = read(q->rfd, &byte, 1);
        if (got == 0)
            return -1;  // end of stream: the sending end is gone
        if (got != 1)
            return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR ? 0 : -1;
    } else {
        struct timeval tv;
        tv.tv_sec = timeout_ms / 1000;
        tv.tv_usec = static_cast<suseconds_t>(timeout_ms % 1000) * 1000;
        const int ready = vxu::wait_readable(q->rfd, &tv);
        if (ready < 0)
            return errno == EINTR ? 0 : -1;
        if (ready == 0)
            return 0;
        if (read(q->rfd, &byte, 1) != 1)
            return -1;
    }
    vxu::mutex_lock hold(&q->mutex, "vxu_cmdq_pull", __LINE__);
    if (vxu::list_empty(&q->items))
        return 0;
    vxu_list_link *first = q->items.next;
    vxu::list_unlink(first);
    *out = item_of(first);
    return 1;
}

VXU_API int vxu_cmdq_get_fd(vxu_cmdq *q) { return q ? q->rfd : -1; }

VXU_API int vxu_cmdq_item_free(vxu_cmdq *q, vxu_cmdq_item *item)
{
    if (q && item)
        _vxu_mem_free("vxu_cmdq_item_free", __LINE__, item);
    return 0;
}

}  // extern "C"
