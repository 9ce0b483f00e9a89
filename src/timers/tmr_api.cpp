// The timer service's exported functions. Each one works on timer records
// under the service mutex; firing is left to the service thread.
#include <pthread.h>

#include <vxutil/frame.h>
#include <vxutil/timers.h>

#include "common/list.hpp"
#include "common/mutex_lock.hpp"
#include "common/wakeup_pair.hpp"
#include "timers/timer_id.hpp"
#include "timers/tmr_service.hpp"

namespace {

using namespace vxu::timers;

constexpr int kMostIdleTimers = 20;

// Serialises first-time creation between threads calling init together.
pthread_mutex_t g_init_mutex = PTHREAD_MUTEX_INITIALIZER;

// Runs op(ctx, timer) under the service mutex: -1 without a service, -2
// for an unknown id.
template <typename Op>
int with_timer(const char *func, int id, Op &&op)
{
    vxu_tmr_ctx *ctx = service();
    if (!ctx)
        return -1;
    vxu::mutex_lock hold(&ctx->mutex, func, __LINE__);
    vxu_tmr *t = find_timer(ctx, id);
    if (!t)
        return -2;
    return op(ctx, t);
}

}  // namespace

extern "C" {

VXU_API int vxu_tmr_init(void)
{
    vxu::mutex_lock once(&g_init_mutex, "vxu_tmr_init", __LINE__);
    if (service())
        return 0;
    auto *ctx =
        static_cast<vxu_tmr_ctx *>(_vxu_mem_alloc("vxu_tmr_init", __LINE__, sizeof(vxu_tmr_ctx)));
    if (!ctx)
        return -1;
    vxu::list_init(&ctx->idle_list);
    vxu::list_init(&ctx->due_list);
    vxu::list_init(&ctx->fd_list);
    ctx->wfd = ctx->rfd = -1;
    // Published even when a step fails: a second init then reports success
    // instead of starting a second service.
    if (vxu_mutex_init(&ctx->mutex, "tmr") != 0) {
        publish_service(ctx);
        return -1;
    }
    ctx->max_timers = kMostIdleTimers;
    int fds[2];
    vxu::open_wakeup_pair(fds, true, 0);
    ctx->wfd = fds[0];
    ctx->rfd = fds[1];
    publish_service(ctx);
    return pthread_create(&ctx->thread, nullptr, thread_tmr_handler_proc, nullptr) == 0 ? 0 : -1;
}

VXU_API int vxu_tmr_create(uint8_t type)
{
    vxu_tmr_ctx *ctx = service();
    if (!ctx || (type != VXU_TMR_TYPE_LIST && type != VXU_TMR_TYPE_FD))
        return -1;
    vxu::mutex_lock hold(&ctx->mutex, "vxu_tmr_create", __LINE__);
    if (vxu::list_count(&ctx->idle_list) >= static_cast<size_t>(ctx->max_timers))
        return -1;
    auto *t = static_cast<vxu_tmr *>(_vxu_mem_alloc("vxu_tmr_create", __LINE__, sizeof(vxu_tmr)));
    if (!t)
        return -1;
    t->id = next_timer_id(&ctx->last_id);
    t->type = type;
    t->fd = -1;
    vxu::list_insert_after(&ctx->idle_list, &t->link);
    return t->id;
}

VXU_API int vxu_tmr_set(int id, uint32_t interval_ms, uint8_t repeat, vxu_tmr_cb callback,
                        uint64_t arg)
{
    return with_timer("vxu_tmr_set", id, [&](vxu_tmr_ctx *ctx, vxu_tmr *t) {
        t->arg = arg;
        t->repeat = repeat;
        t->interval_ms = interval_ms;
        t->callback = callback;
        return t->armed ? start_timer(ctx, t, true) : 0;
    });
}

VXU_API int vxu_tmr_start(int id)
{
    return with_timer("vxu_tmr_start", id,
                      [](vxu_tmr_ctx *ctx, vxu_tmr *t) { return start_timer(ctx, t, true); });
}

VXU_API int vxu_tmr_stop(int id)
{
    return with_timer("vxu_tmr_stop", id,
                      [](vxu_tmr_ctx *ctx, vxu_tmr *t) { return stop_timer(ctx, t, true); });
}

VXU_API int vxu_tmr_status(int id)
{
    return with_timer("vxu_tmr_status", id,
                      [](vxu_tmr_ctx *, vxu_tmr *t) { return t->armed ? 1 : 0; });
}

VXU_API int vxu_tmr_delete(int id)
{
    return with_timer("vxu_tmr_delete", id, [](vxu_tmr_ctx *ctx, vxu_tmr *t) {
        stop_timer(ctx, t, false);
        t->deleted = 1;
        // Lets the thread release the record now rather than at its next
        // timed wake-up.
        vxu::post_wakeup(ctx->wfd);
        return 0;
    });
}

}  // extern "C"
