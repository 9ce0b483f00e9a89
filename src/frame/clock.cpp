// Uptime, boot-time and wall clocks, and the timeval deadline helpers.
#include <time.h>

#include <vxutil/frame.h>

namespace {

int read_pair(clockid_t clock, uint32_t *sec, uint32_t *usec)
{
    struct timespec ts;
    if (clock_gettime(clock, &ts) != 0)
        return -1;
    if (sec)
        *sec = static_cast<uint32_t>(ts.tv_sec);
    if (usec)
        *usec = static_cast<uint32_t>(ts.tv_nsec / 1000);
    return 0;
}

// Milliseconds from b to a, wrapping like the 32-bit int it is returned as.
int ms_between(const struct timeval *a, const struct timeval *b)
{
    if (!a || !b)
        return 0;  // a neutral difference rather than a crash
    const int64_t ms = (static_cast<int64_t>(a->tv_sec) - b->tv_sec) * 1000 +
                       (static_cast<int64_t>(a->tv_usec) - b->tv_usec) / 1000;
    return static_cast<int>(static_cast<uint32_t>(ms));
}

}  // namespace

extern "C" {

VXU_API uint64_t vxu_com_get_tmr_ms(void)
{
    struct timeval tv;
    gettimeofday(&tv, nullptr);
    return static_cast<uint64_t>(tv.tv_sec) * 1000 + static_cast<uint64_t>(tv.tv_usec) / 1000;
}

VXU_API uint64_t vxu_com_get_uptime_ms(void)
{
    struct timespec ts;
    if (clock_gettime(CLOCK_MONOTONIC, &ts) != 0)
        return 0;
    return static_cast<uint64_t>(static_cast<uint32_t>(ts.tv_sec)) * 1000 +
           static_cast<uint64_t>(ts.tv_nsec) / 1000000;
}

VXU_API int vxu_com_get_uptime(uint32_t *sec, uint32_t *usec)
{
    return read_pair(CLOCK_MONOTONIC, sec, usec);
}

VXU_API int vxu_com_get_uptime_all(uint32_t *sec, uint32_t *usec)
{
    return read_pair(CLOCK_BOOTTIME, sec, usec);
}

VXU_API void vxu_get_systime(vxu_systime_t *out)
{
    if (!out)
        return;
    const time_t now = time(nullptr);
    struct tm tm;
    localtime_r(&now, &tm);
    // The reductions keep each field in range; a leap second becomes 0.
    out->sec = static_cast<uint8_t>(tm.tm_sec % 60);
    out->min = static_cast<uint8_t>(tm.tm_min % 60);
    out->hour = static_cast<uint8_t>(tm.tm_hour % 24);
    out->day = static_cast<uint8_t>(tm.tm_mday % 32);
    out->mon = static_cast<uint8_t>((tm.tm_mon + 1) % 13);
    out->wday = static_cast<uint8_t>(tm.tm_wday % 7);
    out->year = static_cast<uint16_t>(tm.tm_year + 1900);
}

VXU_API struct timeval *vxu_get_uptime(struct timeval *tv)
{
    if (!tv)
        return nullptr;
    gettimeofday(tv, nullptr);
    return tv;
}

VXU_API void vxu_get_timestamp(struct timeval *tv, int ms)
{
    if (!tv)
        return;
    struct timeval now;
    gettimeofday(&now, nullptr);
    tv->tv_sec = now.tv_sec + ms / 1000;
    tv->tv_usec = now.tv_usec + static_cast<suseconds_t>(ms % 1000) * 1000;
    if (tv->tv_usec >= 1000000) {
        tv->tv_sec += 1;
        tv->tv_usec -= 1000000;
    }
}

VXU_API int vxu_time_diff(const struct timeval *a, const struct timeval *b)
{
    return ms_between(a, b);
}

VXU_API int vxu_time_sec_diff(const struct timeval *a, const struct timeval *b)
{
    return ms_between(a, b) / 1000;
}

VXU_API int vxu_time_timeout(const struct timeval *deadline)
{
    if (!deadline)
        return -1;  // true in a plain test, so a wait on it ends instead of spinning
    struct timeval now;
    gettimeofday(&now, nullptr);
    return ms_between(deadline, &now) <= 0 ? 1 : 0;
}

}  // extern "C"
