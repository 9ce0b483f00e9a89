// vxu_loop_run: rebuild the watched sets, select, dispatch ready entries.
#include <errno.h>
#include <stdint.h>
#include <string.h>
#include <sys/select.h>

#include <vxutil/frame.h>
#include <vxutil/loop.h>

#include "common/fd_set_bounds.hpp"
#include "loop/loop_internal.hpp"

namespace {

using vxu::loop::entry_of;
using vxu::loop::g_state;

constexpr int kNeverWaitLonger = 10;  // seconds, for a run without a budget

// Highest descriptor a set entry's bound lets us touch; sets end at 1023.
int last_watched(int bound) { return bound < vxu::kFdSetLimit ? bound : vxu::kFdSetLimit - 1; }

// Copies the bits 0..bound of a registered set into a watched set.
void watch_set(const fd_set &registered, int bound, fd_set *watched, int *highest)
{
    const int last = last_watched(bound);
    for (int fd = 0; fd <= last; ++fd) {
        if (FD_ISSET(fd, &registered)) {
            FD_SET(fd, watched);
            if (fd > *highest)
                *highest = fd;
        }
    }
}

bool any_ready(const fd_set &registered, int bound, const fd_set &ready)
{
    const int last = last_watched(bound);
    for (int fd = 0; fd <= last; ++fd) {
        if (FD_ISSET(fd, &registered) && FD_ISSET(fd, &ready))
            return true;
    }
    return false;
}

int build_sets(fd_set *rset, fd_set *wset)
{
    FD_ZERO(rset);
    FD_ZERO(wset);
    int highest = 0;
    vxu_list_link *head = &g_state->entries;
    for (vxu_list_link *it = head->next; it != head; it = it->next) {
        const vxu_loop_entry *e = entry_of(it);
        if (e->kind == 0) {
            // Registration keeps single descriptors below the set size.
            if (e->events & VXU_LOOP_EV_READ)
                FD_SET(e->fd, rset);
            if (e->events & VXU_LOOP_EV_WRITE)
                FD_SET(e->fd, wset);
            if (e->fd > highest)
                highest = e->fd;
            continue;
        }
        if (e->rfds_max > 0)
            watch_set(e->rfds, e->rfds_max, rset, &highest);
        if (e->wfds_max > 0)
            watch_set(e->wfds, e->wfds_max, wset, &highest);
    }
    return highest;
}

// Starts a walk for the run whose stack frame is `frame`, first dropping the
// walks of runs a longjmp left: the stack grows down, so every live
// enclosing run has its frame above this one. -1 when runs nest too deep.
int begin_walk(vxu_list_link *first, uintptr_t frame)
{
    using vxu::loop::g_walk_count;
    using vxu::loop::g_walks;
    while (g_walk_count > 0 && g_walks[g_walk_count - 1].frame <= frame)
        --g_walk_count;
    if (g_walk_count == vxu::loop::kMostNestedRuns)
        return -1;
    g_walks[g_walk_count] = {first, frame};
    return g_walk_count++;
}

// Walks newest to oldest and calls each ready entry once; returns the number
// of readiness conditions handed to single-descriptor entries, or -1.
int dispatch(const fd_set &rset, const fd_set &wset, uintptr_t frame)
{
    int count = 0;
    vxu_list_link *head = &g_state->entries;
    const int slot = begin_walk(head->next, frame);
    if (slot < 0)
        return -1;
    vxu_list_link *&next = vxu::loop::g_walks[slot].next;
    while (next != head) {
        vxu_loop_entry *e = entry_of(next);
        next = next->next;  // taken first: the callback may remove e
        if (e->kind == 0) {
            int events = 0;
            if (FD_ISSET(e->fd, &rset)) {
                ++count;
                events |= VXU_LOOP_EV_READ;
            }
            if (FD_ISSET(e->fd, &wset)) {
                ++count;
                events |= VXU_LOOP_EV_WRITE;
            }
            if (events)
                e->fd_cb(e->fd, events, e->arg);
            continue;
        }
        const bool ready = (e->rfds_max > 0 && any_ready(e->rfds, e->rfds_max, rset)) ||
                           (e->wfds_max > 0 && any_ready(e->wfds, e->wfds_max, wset));
        if (ready) {
            fd_set rcopy;
            fd_set wcopy;
            memcpy(&rcopy, &e->rfds, sizeof rcopy);
            memcpy(&wcopy, &e->wfds, sizeof wcopy);
            e->fds_cb(&rcopy, &wcopy, e->arg);
        }
    }
    vxu::loop::g_walk_count = slot;
    return count;
}

}  // namespace

extern "C" {

VXU_API int vxu_loop_run(int timeout)
{
    if (!g_state)
        return -1;
    const auto frame = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
    int count = 0;
    int remaining = timeout;
    const uint64_t start = timeout > 0 ? vxu_com_get_uptime_ms() : 0;

    for (;;) {
        fd_set rset;
        fd_set wset;
        const int highest = build_sets(&rset, &wset);

        struct timeval tv;
        if (timeout > 0) {
            tv.tv_sec = remaining / 1000;
            tv.tv_usec = static_cast<suseconds_t>(remaining % 1000) * 1000;
        } else if (timeout == 0) {
            tv.tv_sec = 0;
            tv.tv_usec = 0;
        } else {
            tv.tv_sec = kNeverWaitLonger;
            tv.tv_usec = 0;
        }

        const int ready = select(highest + 1, &rset, &wset, nullptr, &tv);
        if (ready < 0) {
            if (errno == EINTR)
                continue;  // budget unchanged, not even re-checked
            return -1;
        }
        if (ready > 0) {
            const int handed = dispatch(rset, wset, frame);
            if (handed < 0)
                return -1;
            count += handed;
        }

        if (timeout == 0)
            return count;
        if (timeout > 0) {
            remaining = timeout - static_cast<int>(vxu_com_get_uptime_ms() - start);
            if (remaining <= 0)
                return count;
        }
    }
}

}  // extern "C"
