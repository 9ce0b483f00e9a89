// The timer service's state machine: finding, starting, stopping and
// releasing timer records on the idle, due and descriptor lists.
#include <sys/timerfd.h>
#include <time.h>
#include <unistd.h>

#include <vxutil/frame.h>

#include "common/fd_set_bounds.hpp"
#include "common/list.hpp"
#include "common/unique_fd.hpp"
#include "common/wakeup_pair.hpp"
#include "timers/due_time.hpp"
#include "timers/tmr_service.hpp"

namespace vxu::timers {

namespace {

vxu_tmr_ctx *g_service = nullptr;

vxu_tmr *find_in(vxu_list_link *head, int id)
{
    for (vxu_list_link *it = head->next; it != head; it = it->next) {
        vxu_tmr *t = record_of<vxu_tmr>(it);
        if (t->id == id)
            return t;
    }
    return nullptr;
}

void move_to_front(vxu_list_link *head, vxu_tmr *t)
{
    list_unlink(&t->link);
    list_insert_after(head, &t->link);
}

struct itimerspec every(uint32_t ms)
{
    struct itimerspec period;
    period.it_value.tv_sec = ms / 1000u;
    period.it_value.tv_nsec = static_cast<long>(ms % 1000u) * 1000000L;
    period.it_interval = period.it_value;
    return period;
}

// A blocking CLOCK_BOOTTIME_ALARM descriptor that the thread can select on.
int open_alarm_timer()
{
    unique_fd fd(timerfd_create(CLOCK_BOOTTIME_ALARM, 0));
    if (!fits_fd_set(fd.get()))
        return -1;
    return fd.release();
}

}  // namespace

vxu_tmr_ctx *service() { return __atomic_load_n(&g_service, __ATOMIC_ACQUIRE); }

void publish_service(vxu_tmr_ctx *ctx) { __atomic_store_n(&g_service, ctx, __ATOMIC_RELEASE); }

vxu_tmr *find_timer(vxu_tmr_ctx *ctx, int id)
{
    if (vxu_tmr *t = find_in(&ctx->idle_list, id))
        return t;
    if (vxu_tmr *t = find_in(&ctx->due_list, id))
        return t;
    return find_in(&ctx->fd_list, id);
}

int start_timer(vxu_tmr_ctx *ctx, vxu_tmr *t, bool wake)
{
    if (t->armed)
        stop_timer(ctx, t, false);
    if (t->type != VXU_TMR_TYPE_LIST) {
        if (t->fd < 0) {
            t->fd = open_alarm_timer();
            if (t->fd < 0)
                return -1;
        }
        const struct itimerspec period = every(t->interval_ms);
        timerfd_settime(t->fd, 0, &period, nullptr);
        move_to_front(&ctx->fd_list, t);
    } else {
        list_unlink(&t->link);
        arm_after(t, t->interval_ms);
        insert_by_due(&ctx->due_list, t);
    }
    t->armed = 1;
    if (wake)
        return post_wakeup(ctx->wfd) ? 0 : -1;
    return 0;
}

int stop_timer(vxu_tmr_ctx *ctx, vxu_tmr *t, bool wake)
{
    if (!t->armed)
        return 0;
    if (t->type == VXU_TMR_TYPE_FD && t->fd >= 0) {
        const struct itimerspec off = every(0);
        if (timerfd_settime(t->fd, 0, &off, nullptr) != 0) {
            t->armed = 0;
            return -1;
        }
    }
    move_to_front(&ctx->idle_list, t);
    t->armed = 0;
    // Only lets the thread drop the timer from its wait early.
    if (wake)
        post_wakeup(ctx->wfd);
    return 0;
}

void release_deleted(vxu_tmr_ctx *ctx)
{
    vxu_list_link *head = &ctx->idle_list;
    for (vxu_list_link *it = head->next; it != head;) {
        vxu_tmr *t = record_of<vxu_tmr>(it);
        it = it->next;
        if (!t->deleted)
            continue;
        if (t->type == VXU_TMR_TYPE_FD && t->fd >= 0)
            close(t->fd);
        list_unlink(&t->link);
        _vxu_mem_free("thread_tmr_handler_proc", __LINE__, t);
    }
}

}  // namespace vxu::timers
