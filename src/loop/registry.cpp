// The loop registry: newest-first list of single-descriptor and
// descriptor-set entries.
#include <string.h>

#include <vxutil/frame.h>
#include <vxutil/loop.h>

#include "common/fd_set_bounds.hpp"
#include "loop/loop_internal.hpp"

namespace vxu::loop {

vxu_loop_state *g_state = nullptr;
walk g_walks[kMostNestedRuns];
int g_walk_count = 0;

namespace {

constexpr int kDefaultCapacity = 20;
constexpr int kKindFd = 0;
constexpr int kKindFds = 1;

template <typename Fn>
vxu_loop_entry *find_entry(Fn &&match)
{
    vxu_list_link *head = &g_state->entries;
    for (vxu_list_link *it = head->next; it != head; it = it->next) {
        vxu_loop_entry *e = entry_of(it);
        if (match(e))
            return e;
    }
    return nullptr;
}

vxu_loop_entry *find_fd(int fd)
{
    return find_entry([fd](const vxu_loop_entry *e) { return e->kind == kKindFd && e->fd == fd; });
}

bool same_set(const fd_set &a, const fd_set *b) { return memcmp(&a, b, sizeof a) == 0; }

// A set entry matches on its read copy, or else on its write copy; the
// bounds never take part.
vxu_loop_entry *find_fds(const fd_set *rfds, const fd_set *wfds)
{
    if (!rfds && !wfds)
        return nullptr;
    return find_entry([rfds, wfds](const vxu_loop_entry *e) {
        if (e->kind != kKindFds)
            return false;
        return (rfds && same_set(e->rfds, rfds)) || (wfds && same_set(e->wfds, wfds));
    });
}

bool full() { return list_count(&g_state->entries) >= static_cast<size_t>(g_state->capacity); }

void unlink_and_free(vxu_loop_entry *e, const char *func)
{
    // Keep any dispatch walk from stepping onto the freed entry.
    for (int i = 0; i < g_walk_count; ++i) {
        if (g_walks[i].next == &e->link)
            g_walks[i].next = e->link.next;
    }
    list_unlink(&e->link);
    _vxu_mem_free(func, __LINE__, e);
}

}  // namespace
}  // namespace vxu::loop

using namespace vxu::loop;

extern "C" {

VXU_API int vxu_loop_init(int capacity)
{
    if (!g_state) {
        auto *state = static_cast<vxu_loop_state *>(
            _vxu_mem_alloc("vxu_loop_init", __LINE__, sizeof(vxu_loop_state)));
        if (!state)
            return -4;
        state->capacity = kDefaultCapacity;
        vxu::list_init(&state->entries);
        if (capacity >= 1)
            state->capacity = capacity;
        g_state = state;
    }
    return 0;
}

VXU_API int vxu_loop_add(int fd, int events, vxu_loop_fd_cb cb, void *arg)
{
    if (!g_state || !vxu::fits_fd_set(fd) || !cb || events == 0)
        return -3;
    if (find_fd(fd))
        return -2;
    if (full())
        return -1;
    auto *e = static_cast<vxu_loop_entry *>(
        _vxu_mem_alloc("vxu_loop_add", __LINE__, sizeof(vxu_loop_entry)));
    if (!e)
        return -4;
    e->fd = fd;
    e->arg = arg;
    e->events = events;
    e->kind = kKindFd;
    e->fd_cb = cb;
    vxu::list_insert_after(&g_state->entries, &e->link);
    return 0;
}

VXU_API int vxu_loop_add_fds(fd_set *rfds, int rfds_max, fd_set *wfds, int wfds_max,
                             vxu_loop_fds_cb cb, void *arg)
{
    if (!g_state || (!rfds && !wfds) || !cb)
        return -3;
    if (find_fds(rfds, wfds))
        return -2;
    if (full())
        return -1;
    auto *e = static_cast<vxu_loop_entry *>(
        _vxu_mem_alloc("vxu_loop_add_fds", __LINE__, sizeof(vxu_loop_entry)));
    if (!e)
        return -4;
    e->kind = kKindFds;
    if (rfds) {
        memcpy(&e->rfds, rfds, sizeof e->rfds);
        e->rfds_max = rfds_max;
    }
    if (wfds) {
        memcpy(&e->wfds, wfds, sizeof e->wfds);
        e->wfds_max = wfds_max;
    }
    e->arg = arg;
    e->fds_cb = cb;
    vxu::list_insert_after(&g_state->entries, &e->link);
    return 0;
}

VXU_API int vxu_loop_remove(int fd)
{
    if (!g_state || fd < 0)
        return -2;
    vxu_loop_entry *e = find_fd(fd);
    if (!e)
        return -1;
    unlink_and_free(e, "vxu_loop_remove");
    return 0;
}

VXU_API int vxu_loop_remove_fds(fd_set *rfds, fd_set *wfds)
{
    if (!g_state || (!rfds && !wfds))
        return -2;
    vxu_loop_entry *e = find_fds(rfds, wfds);
    if (!e)
        return -1;
    unlink_and_free(e, "vxu_loop_remove_fds");
    return 0;
}

}  // extern "C"
