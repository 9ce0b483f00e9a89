// The timer service thread: each pass releases deleted timers, fires at most
// one expired timer (list timers first), and otherwise waits with select for
// the earliest list timer, a timer descriptor or a wake-up byte. Callbacks
// run from a copy of the record with no lock held.
#include <errno.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/select.h>
#include <unistd.h>

#include <vxutil/frame.h>

#include "common/fd_set_bounds.hpp"
#include "common/list.hpp"
#include "common/mutex_lock.hpp"
#include "common/unique_fd.hpp"
#include "common/wakeup_pair.hpp"
#include "timers/due_time.hpp"
#include "timers/tmr_service.hpp"

namespace {

using namespace vxu::timers;

constexpr const char *kThreadName = "thread_tmr_handler_proc";
constexpr long kIdleWaitSec = 2;

// A stop or re-arm from another thread since the wait resets the expiration
// count; the descriptor is then no longer readable and must not be read.
bool readable_now(int fd)
{
    struct pollfd p = {fd, POLLIN, 0};
    return poll(&p, 1, 0) == 1 && (p.revents & POLLIN);
}

// The first running descriptor timer that the last wait found ready, read
// and taken out of `ready`; null when none is left.
vxu_tmr *take_ready_descriptor(vxu_tmr_ctx *ctx, fd_set *ready)
{
    vxu_list_link *head = &ctx->fd_list;
    for (vxu_list_link *it = head->next; it != head; it = it->next) {
        vxu_tmr *t = record_of<vxu_tmr>(it);
        if (!vxu::fits_fd_set(t->fd) || !FD_ISSET(t->fd, ready))
            continue;
        FD_CLR(t->fd, ready);
        if (!readable_now(t->fd))
            continue;
        unsigned char expirations[16];
        const ssize_t n = read(t->fd, expirations, sizeof expirations);
        (void)n;
        return t;
    }
    return nullptr;
}

// Under the lock: picks the one timer this pass fires, copies it into
// `fired` and re-arms or stops it; otherwise sets how long to wait.
bool take_expired(vxu_tmr_ctx *ctx, fd_set *ready, vxu_tmr *fired, struct timeval *wait)
{
    vxu::mutex_lock hold(&ctx->mutex, kThreadName, __LINE__);
    release_deleted(ctx);
    if (vxu::list_empty(&ctx->due_list)) {
        wait->tv_sec = kIdleWaitSec;
        wait->tv_usec = 0;
    } else {
        const uptime now = uptime_now();
        vxu_tmr *first = record_of<vxu_tmr>(ctx->due_list.next);
        if (is_due(first, now)) {
            *fired = *first;
            start_timer(ctx, first, false);  // list timers always run on
            return true;
        }
        *wait = time_until(first, now);
    }
    if (vxu_tmr *t = take_ready_descriptor(ctx, ready)) {
        *fired = *t;
        if (!t->repeat)
            stop_timer(ctx, t, false);
        return true;
    }
    return false;
}

// A daemon closed a descriptor the thread waits on. A timer that lost its
// descriptor stops (a later start makes a new one); a broken wake-up pair is
// made anew, so the thread goes on serving.
void recover_closed_descriptors(vxu_tmr_ctx *ctx)
{
    vxu::mutex_lock hold(&ctx->mutex, kThreadName, __LINE__);
    vxu_list_link *head = &ctx->fd_list;
    for (vxu_list_link *it = head->next; it != head;) {
        vxu_tmr *t = record_of<vxu_tmr>(it);
        it = it->next;
        if (!vxu::fd_is_open(t->fd)) {
            t->fd = -1;
            stop_timer(ctx, t, false);
        }
    }
    if (vxu::fd_is_open(ctx->wfd) && vxu::fd_is_open(ctx->rfd))
        return;
    if (vxu::fd_is_open(ctx->wfd))
        close(ctx->wfd);
    if (vxu::fd_is_open(ctx->rfd))
        close(ctx->rfd);
    int fds[2];
    vxu::open_wakeup_pair(fds, true, 0);
    ctx->wfd = fds[0];
    ctx->rfd = fds[1];
}

// Watches the wake-up pair and every running timer descriptor. False when
// select failed for good.
bool wait_for_events(vxu_tmr_ctx *ctx, fd_set *ready, struct timeval wait)
{
    FD_ZERO(ready);
    int highest = -1;
    if (vxu::fits_fd_set(ctx->rfd)) {
        FD_SET(ctx->rfd, ready);
        highest = ctx->rfd;
    }
    {
        vxu::mutex_lock hold(&ctx->mutex, kThreadName, __LINE__);
        vxu_list_link *head = &ctx->fd_list;
        for (vxu_list_link *it = head->next; it != head; it = it->next) {
            const int fd = record_of<vxu_tmr>(it)->fd;
            if (!vxu::fits_fd_set(fd))
                continue;
            FD_SET(fd, ready);
            if (fd > highest)
                highest = fd;
        }
    }
    const int n = select(highest + 1, ready, nullptr, nullptr, &wait);
    if (n < 0) {
        FD_ZERO(ready);
        if (errno == EBADF) {
            recover_closed_descriptors(ctx);
            return true;
        }
        return errno == EINTR;
    }
    if (n > 0 && vxu::fits_fd_set(ctx->rfd) && FD_ISSET(ctx->rfd, ready))
        vxu::drop_wakeups(ctx->rfd);
    return true;
}

}  // namespace

extern "C" void *thread_tmr_handler_proc(void *unused)
{
    (void)unused;
    // Timers fire on time rather than within the default 50 us slack.
    prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);
    vxu_tmr_ctx *ctx = service();
    fd_set ready;
    FD_ZERO(&ready);
    for (;;) {
        vxu_tmr fired;
        struct timeval wait = {0, 0};
        if (take_expired(ctx, &ready, &fired, &wait)) {
            // Without a callback the next pass recomputes the wait at once,
            // so no other timer is served late.
            if (fired.callback)
                fired.callback(fired.id, fired.arg);
            continue;
        }
        if (!wait_for_events(ctx, &ready, wait))
            return nullptr;
    }
}
