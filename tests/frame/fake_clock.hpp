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
    const bool fake = fake_clock::uptime && (id == CLOCK_MONOTONIC || id == CLOCK_BOOTTIME);
    return fake ? fake_clock::uptime(ts) : int(syscall(SYS_clock_gettime, id, ts));
}

extern "C" int gettimeofday(timeval *tv, void *tz) noexcept
{
    return fake_clock::wall ? (*tv = *fake_clock::wall, 0) : int(syscall(SYS_gettimeofday, tv, tz));
}

extern "C" time_t time(time_t *out) noexcept
{
    timeval now;
    return gettimeofday(&now, nullptr), out ? *out = now.tv_sec : now.tv_sec;
}
