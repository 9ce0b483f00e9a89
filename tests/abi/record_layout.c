/*
 * The public records' layouts, checked at compile time on every target the
 * suite is built for (x86-64 and arm64 are both LP64; only the size of
 * pthread_mutex_t differs between them). A failing assertion means a header
 * changed a record that daemons share with the library.
 */
#include <stddef.h>

#include <vxutil/vxutil.h>

#define M sizeof(pthread_mutex_t)
#define LAYOUT(type, field, offset)                                                                \
    _Static_assert(offsetof(type, field) == (offset), #type "." #field " moved")
#define SIZE(type, size) _Static_assert(sizeof(type) == (size), #type " changed size")

_Static_assert(sizeof(void *) == 8 && sizeof(long) == 8, "the device target is LP64");
_Static_assert(M % 8 == 0, "records after a mutex stay 8-aligned");

LAYOUT(vxu_list_link, next, 0);
LAYOUT(vxu_list_link, prev, 8);
SIZE(vxu_list_link, 16);

LAYOUT(vxu_systime_t, sec, 0);
LAYOUT(vxu_systime_t, min, 1);
LAYOUT(vxu_systime_t, hour, 2);
LAYOUT(vxu_systime_t, day, 3);
LAYOUT(vxu_systime_t, mon, 4);
LAYOUT(vxu_systime_t, wday, 5);
LAYOUT(vxu_systime_t, year, 6);
SIZE(vxu_systime_t, 8);

LAYOUT(vxu_loop_entry, fd, 0);
LAYOUT(vxu_loop_entry, arg, 8);
LAYOUT(vxu_loop_entry, events, 16);
LAYOUT(vxu_loop_entry, kind, 20);
LAYOUT(vxu_loop_entry, fd_cb, 24);
LAYOUT(vxu_loop_entry, fds_cb, 32);
LAYOUT(vxu_loop_entry, rfds, 40);
LAYOUT(vxu_loop_entry, rfds_max, 168);
LAYOUT(vxu_loop_entry, wfds, 176);
LAYOUT(vxu_loop_entry, wfds_max, 304);
LAYOUT(vxu_loop_entry, link, 312);
SIZE(vxu_loop_entry, 328);
LAYOUT(vxu_loop_state, capacity, 0);
LAYOUT(vxu_loop_state, entries, 8);
SIZE(vxu_loop_state, 24);

LAYOUT(vxu_tmrq, mutex, 0);
LAYOUT(vxu_tmrq, timers, M);
LAYOUT(vxu_tmrq, wfd, M + 16);
LAYOUT(vxu_tmrq, rfd, M + 20);
LAYOUT(vxu_tmrq, last_id, M + 24);
LAYOUT(vxu_tmrq, max_timers, M + 28);
SIZE(vxu_tmrq, M + 32);

LAYOUT(vxu_tmrq_item, param1, 0);
LAYOUT(vxu_tmrq_item, param2, 8);
LAYOUT(vxu_tmrq_item, param3, 16);
LAYOUT(vxu_tmrq_item, id, 20);
LAYOUT(vxu_tmrq_item, expire_sec, 24);
LAYOUT(vxu_tmrq_item, expire_usec, 28);
LAYOUT(vxu_tmrq_item, interval_ms, 32);
LAYOUT(vxu_tmrq_item, repeat, 36);
LAYOUT(vxu_tmrq_item, link, 40);
SIZE(vxu_tmrq_item, 56);

LAYOUT(vxu_tmr, id, 0);
LAYOUT(vxu_tmr, arg, 8);
LAYOUT(vxu_tmr, type, 16);
LAYOUT(vxu_tmr, armed, 17);
LAYOUT(vxu_tmr, deleted, 18);
LAYOUT(vxu_tmr, repeat, 19);
LAYOUT(vxu_tmr, interval_ms, 20);
LAYOUT(vxu_tmr, callback, 24);
LAYOUT(vxu_tmr, expire_sec, 32);
LAYOUT(vxu_tmr, expire_usec, 36);
LAYOUT(vxu_tmr, fd, 40);
LAYOUT(vxu_tmr, link, 48);
SIZE(vxu_tmr, 64);

LAYOUT(vxu_tmr_ctx, mutex, 0);
LAYOUT(vxu_tmr_ctx, idle_list, M);
LAYOUT(vxu_tmr_ctx, due_list, M + 16);
LAYOUT(vxu_tmr_ctx, fd_list, M + 32);
LAYOUT(vxu_tmr_ctx, thread, M + 48);
LAYOUT(vxu_tmr_ctx, wfd, M + 56);
LAYOUT(vxu_tmr_ctx, rfd, M + 60);
LAYOUT(vxu_tmr_ctx, last_id, M + 64);
LAYOUT(vxu_tmr_ctx, max_timers, M + 68);
SIZE(vxu_tmr_ctx, M + 72);

LAYOUT(vxu_cmdq, mutex, 0);
LAYOUT(vxu_cmdq, items, M);
LAYOUT(vxu_cmdq, wfd, M + 16);
LAYOUT(vxu_cmdq, rfd, M + 20);
LAYOUT(vxu_cmdq, max_items, M + 24);
SIZE(vxu_cmdq, M + 32);

LAYOUT(vxu_cmdq_item, cmd, 0);
LAYOUT(vxu_cmdq_item, data, 8);
LAYOUT(vxu_cmdq_item, len, 16);
LAYOUT(vxu_cmdq_item, link, 24);
SIZE(vxu_cmdq_item, 40);

LAYOUT(dfifo_ctx, head, 0);
LAYOUT(dfifo_ctx, tail, 4);
LAYOUT(dfifo_ctx, size, 8);
LAYOUT(dfifo_ctx, slots, 16);
SIZE(dfifo_ctx, 24);

LAYOUT(vxu_v2n_t, value, 0);
LAYOUT(vxu_v2n_t, name, 8);
SIZE(vxu_v2n_t, 16);

int main(void) { return 0; }
