/*
 * The public records' layouts, checked at compile time on every target the
 * suite is built for (x86-64 and arm64 are both LP64; only the size of
 * pthread_mutex_t differs between them). A failing assertion means a header
 * changed a record that daemons share with the library.
 *
 * One block per record: R names it, SIZE checks its size and AT each field's
 * offset, every field in order.
 */
#include <stddef.h>

#include <vxutil/vxutil.h>

#define M sizeof(pthread_mutex_t)
#define AT(field, offset) _Static_assert(offsetof(R, field) == (offset), #field " moved")
#define SIZE(size) _Static_assert(sizeof(R) == (size), "a record changed size")

_Static_assert(sizeof(void *) == 8 && sizeof(long) == 8, "the device target is LP64");
_Static_assert(M % 8 == 0, "records after a mutex stay 8-aligned");

int main(void)
{
    /* clang-format off */
    { typedef vxu_list_link R; SIZE(16); AT(next, 0); AT(prev, 8); }
    { typedef vxu_systime_t R; SIZE(8); AT(sec, 0); AT(min, 1); AT(hour, 2); AT(day, 3);
      AT(mon, 4); AT(wday, 5); AT(year, 6); }
    { typedef vxu_loop_entry R; SIZE(328); AT(fd, 0); AT(arg, 8); AT(events, 16); AT(kind, 20);
      AT(fd_cb, 24); AT(fds_cb, 32); AT(rfds, 40); AT(rfds_max, 168); AT(wfds, 176);
      AT(wfds_max, 304); AT(link, 312); }
    { typedef vxu_loop_state R; SIZE(24); AT(capacity, 0); AT(entries, 8); }
    { typedef vxu_tmrq R; SIZE(M + 32); AT(mutex, 0); AT(timers, M); AT(wfd, M + 16);
      AT(rfd, M + 20); AT(last_id, M + 24); AT(max_timers, M + 28); }
    { typedef vxu_tmrq_item R; SIZE(56); AT(param1, 0); AT(param2, 8); AT(param3, 16); AT(id, 20);
      AT(expire_sec, 24); AT(expire_usec, 28); AT(interval_ms, 32); AT(repeat, 36); AT(link, 40); }
    { typedef vxu_tmr R; SIZE(64); AT(id, 0); AT(arg, 8); AT(type, 16); AT(armed, 17);
      AT(deleted, 18); AT(repeat, 19); AT(interval_ms, 20); AT(callback, 24); AT(expire_sec, 32);
      AT(expire_usec, 36); AT(fd, 40); AT(link, 48); }
    { typedef vxu_tmr_ctx R; SIZE(M + 72); AT(mutex, 0); AT(idle_list, M); AT(due_list, M + 16);
      AT(fd_list, M + 32); AT(thread, M + 48); AT(wfd, M + 56); AT(rfd, M + 60);
      AT(last_id, M + 64); AT(max_timers, M + 68); }
    { typedef vxu_cmdq R; SIZE(M + 32); AT(mutex, 0); AT(items, M); AT(wfd, M + 16);
      AT(rfd, M + 20); AT(max_items, M + 24); }
    { typedef vxu_cmdq_item R; SIZE(40); AT(cmd, 0); AT(data, 8); AT(len, 16); AT(link, 24); }
    { typedef dfifo_ctx R; SIZE(24); AT(head, 0); AT(tail, 4); AT(size, 8); AT(slots, 16); }
    { typedef vxu_v2n_t R; SIZE(16); AT(value, 0); AT(name, 8); }
    /* clang-format on */
}
