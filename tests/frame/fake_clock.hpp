// Stand-ins for the C library's clock calls. A test program's own
// definitions take the place of the C library's for every caller, the
// library under test included, so tests can fix the clocks or make them
// fail. Include from one source file per test program. While no fake is
// set, the calls go straight to the kernel.
#pragma once

#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

namespace fake_clock {
inline int (*uptime)(timespec *);  // answers CLOCK_MONOTONIC and CLOCK_BOOTTIME
inline const timeval *wall;        // answers gettimeofday and time
}  // namespace fake_clock

extern "C" int clock_gettime(clockid_t id, timespec *ts) noexcept
{
    if (fake_clock::uptime && (id == CLOCK_MONOTONIC || id == CLOCK_BOOTTIME))
        return fake_clock::uptime(ts);
    return static_cast<int>(syscall(SYS_clock_gettime, id, ts));
}

extern "C" int gettimeofday(timeval *tv, void *tz) noexcept
{
    if (!fake_clock::wall)
        return static_cast<int>(syscall(SYS_gettimeofday, tv, tz));
    *tv = *fake_clock::wall;
    return 0;
}

extern "C" time_t time(time_t *out) noexcept
{
    timeval now;
    gettimeofday(&now, nullptr);
    if (out)
        *out = now.tv_sec;
    return now.tv_sec;
}
