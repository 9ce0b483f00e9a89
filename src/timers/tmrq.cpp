// Timer queue: one list sorted by due time, pulled by the caller's own
// consumer thread. Every insertion writes a wake-up byte so that a pull
// sleeping on the old head wakes and recomputes its wait.
#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <vxutil/frame.h>
#include <vxutil/timers.h>

#include "common/fd_set_bounds.hpp"
#include "common/list.hpp"
#include "common/mutex_lock.hpp"
#include "common/waking_queue.hpp"
#include "common/wakeup_pair.hpp"
#include "timers/due_time.hpp"
#include "timers/timer_id.hpp"

namespace {

using vxu::timers::record_of;

constexpr long kIdleWaitSec = 2;

vxu_tmrq_item *find_timer(vxu_tmrq *q, int id)
{
    for (vxu_list_link *it = q->timers.next; it != &q->timers; it = it->next) {
        vxu_tmrq_item *item = record_of<vxu_tmrq_item>(it);
        if (item->id == id)
            return item;
    }
    return nullptr;
}

}  // namespace

extern "C" {

VXU_API int _tmr_list_insert(vxu_tmrq *q, vxu_tmrq_item *item)
{
    if (!q || !item)
        return -1;
    vxu::timers::insert_by_due(&q->timers, item);
    return vxu::post_wakeup(q->wfd) ? 0 : -1;
}

VXU_API int vxu_tmrq_init(vxu_tmrq *q, int max_timers)
{
    if (!q)
        return -1;
    uint32_t sec;
    uint32_t usec;
    if (vxu_com_get_uptime(&sec, &usec) != 0)
        return -1;
    printf("curr boot time : sec=%d, usec=%d\n", static_cast<int>(sec), static_cast<int>(usec));
    return vxu::init_waking_queue(q, &q->timers, &q->max_timers, max_timers, "tmrq", false);
}

VXU_API int vxu_tmrq_tmr_add(vxu_tmrq *q, uint64_t param1, uint64_t param2, uint32_t param3,
                             uint32_t interval_ms, uint32_t repeat)
{
    if (!q)
        return -1;
    vxu::mutex_lock hold(&q->mutex, "vxu_tmrq_tmr_add", __LINE__);
    if (vxu::list_count(&q->timers) >= static_cast<size_t>(q->max_timers))
        return -1;
    auto *item = static_cast<vxu_tmrq_item *>(
        _vxu_mem_alloc("vxu_tmrq_tmr_add", __LINE__, sizeof(vxu_tmrq_item)));
    if (!item)
        return -1;
    item->param1 = param1;
    item->param2 = param2;
    item->param3 = param3;
    item->id = vxu::timers::next_timer_id(&q->last_id);
    item->interval_ms = interval_ms;
    item->repeat = repeat;
    vxu::timers::arm_after(item, interval_ms);
    return _tmr_list_insert(q, item) == 0 ? item->id : -1;
}

VXU_API int vxu_tmrq_tmr_is_exist(vxu_tmrq *q, int id)
{
    if (!q)
        return 0;
    vxu::mutex_lock hold(&q->mutex, "vxu_tmrq_tmr_is_exist", __LINE__);
    return find_timer(q, id) ? 1 : 0;
}

VXU_API int vxu_tmrq_tmr_del(vxu_tmrq *q, int id)
{
    if (!q)
        return -1;
    vxu::mutex_lock hold(&q->mutex, "vxu_tmrq_tmr_del", __LINE__);
    if (vxu_tmrq_item *item = find_timer(q, id)) {
        vxu::list_unlink(&item->link);
        // No wake-up byte: a pull sleeping towards this timer wakes at its
        // old due time and computes a new wait from the head then.
        _vxu_mem_free("vxu_tmrq_tmr_del", __LINE__, item);
    }
    return 0;
}

VXU_API int vxu_tmrq_tmr_set(vxu_tmrq *q, int id, uint64_t param1, uint64_t param2, uint32_t param3,
                             uint32_t interval_ms, uint32_t repeat)
{
    if (!q)
        return -1;
    vxu::mutex_lock hold(&q->mutex, "vxu_tmrq_tmr_set", __LINE__);
    vxu_tmrq_item *item = find_timer(q, id);
    if (!item)
        return 1;
    item->param1 = param1;
    item->param2 = param2;
    item->param3 = param3;
    item->interval_ms = interval_ms;
    vxu::timers::arm_after(item, interval_ms);
    item->repeat = repeat;
    vxu::list_unlink(&item->link);
    return _tmr_list_insert(q, item);
}

VXU_API int vxu_tmrq_pull(vxu_tmrq *q, vxu_tmrq_item **out)
{
    if (!q || !out)
        return -1;
    *out = nullptr;
    if (!vxu::fits_fd_set(q->rfd))
        return -1;
    struct timeval wait;
    {
        vxu::mutex_lock hold(&q->mutex, "vxu_tmrq_pull", __LINE__);
        if (vxu::list_empty(&q->timers)) {
            wait.tv_sec = kIdleWaitSec;
            wait.tv_usec = 0;
        } else {
            const vxu::timers::uptime now = vxu::timers::uptime_now();
            vxu_tmrq_item *first = record_of<vxu_tmrq_item>(q->timers.next);
            if (vxu::timers::is_due(first, now)) {
                vxu::list_unlink(&first->link);
                if (first->repeat) {
                    // Back in the list and still the queue's: due again one
                    // interval after this delivery.
                    vxu::timers::arm_after(first, first->interval_ms);
                    _tmr_list_insert(q, first);
                }
                *out = first;
                return 1;
            }
            wait = vxu::timers::time_until(first, now);
        }
    }
    const int ready = vxu::wait_readable(q->rfd, &wait);
    if (ready < 0)
        return errno == EINTR ? 0 : -1;
    if (ready > 0)
        vxu::drop_wakeups(q->rfd);
    return 0;
}

VXU_API int vxu_tmrq_item_free(vxu_tmrq *q, vxu_tmrq_item *item)
{
    if (q && item && !item->repeat)
        _vxu_mem_free("vxu_tmrq_item_free", __LINE__, item);
    return 0;
}

}  // extern "C"
