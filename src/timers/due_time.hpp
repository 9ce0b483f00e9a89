// Due times on the uptime clock, shared by the timer queue and the timer
// service: second and microsecond pairs in unsigned 32-bit arithmetic,
// compared seconds first, and lists kept sorted by them.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <sys/time.h>

#include <vxutil/frame.h>

#include "common/list.hpp"

namespace vxu::timers {

struct uptime {
    uint32_t sec = 0;
    uint32_t usec = 0;
};

// The current uptime; 0 s 0 us when the clock cannot be read.
inline uptime uptime_now()
{
    uptime now;
    if (vxu_com_get_uptime(&now.sec, &now.usec) != 0)
        now = uptime{};
    return now;
}

// Sets the record due ms milliseconds from now; leaves it alone when the
// clock cannot be read.
template <typename Record>
void arm_after(Record *r, uint32_t ms)
{
    uint32_t sec;
    uint32_t usec;
    if (vxu_com_get_uptime(&sec, &usec) != 0)
        return;
    const uint32_t t = usec + (ms % 1000u) * 1000u;
    r->expire_sec = sec + ms / 1000u + t / 1000000u;
    r->expire_usec = t % 1000000u;
}

inline bool at_or_before(uint32_t sec, uint32_t usec, uint32_t ref_sec, uint32_t ref_usec)
{
    return sec < ref_sec || (sec == ref_sec && usec <= ref_usec);
}

template <typename Record>
bool is_due(const Record *r, uptime now)
{
    return at_or_before(r->expire_sec, r->expire_usec, now.sec, now.usec);
}

// Time left until a record that is not yet due falls due.
template <typename Record>
struct timeval time_until(const Record *r, uptime now)
{
    struct timeval tv;
    if (r->expire_usec < now.usec) {
        tv.tv_sec = r->expire_sec - now.sec - 1;
        tv.tv_usec = r->expire_usec + 1000000 - now.usec;
    } else {
        tv.tv_sec = r->expire_sec - now.sec;
        tv.tv_usec = r->expire_usec - now.usec;
    }
    return tv;
}

template <typename Record>
Record *record_of(vxu_list_link *link)
{
    return container_of<Record>(link, offsetof(Record, link));
}

// Links r behind every record due at the same time or earlier.
template <typename Record>
void insert_by_due(vxu_list_link *head, Record *r)
{
    vxu_list_link *it = head->next;
    for (; it != head; it = it->next) {
        const Record *other = record_of<Record>(it);
        if (!at_or_before(other->expire_sec, other->expire_usec, r->expire_sec, r->expire_usec))
            break;
    }
    list_insert_before(it, &r->link);
}

}  // namespace vxu::timers
