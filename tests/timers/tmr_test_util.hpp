// Shared pieces of the timer tests: a log of callbacks, polling with a
// budget, and whether alarm timer descriptors can be made here.
#pragma once

#include <sys/timerfd.h>
#include <unistd.h>

#include <mutex>
#include <vector>

#include <vxutil/frame.h>
#include <vxutil/timers.h>

#include "common/test_support.hpp"

namespace tmr_test {

struct firing {
    int id;
    uint64_t arg, at_ms;
};
inline std::mutex g_mutex;
inline std::vector<firing> &g_log = *new std::vector<firing>;  // outlives the service thread

inline int record_firing(int id, uint64_t arg)
{
    const std::lock_guard<std::mutex> hold(g_mutex);
    g_log.push_back({id, arg, vxu_com_get_uptime_ms()});
    return 0;
}

// The callbacks of one timer, or of all when id is 0.
inline std::vector<firing> firings(int id = 0)
{
    const std::lock_guard<std::mutex> hold(g_mutex);
    std::vector<firing> out;
    for (const firing &f : g_log)
        if (id == 0 || f.id == id)
            out.push_back(f);
    return out;
}

inline void sleep_ms(long ms) { vxu_os_wait(ms / 1000, (ms % 1000) * 1000); }

// Polls pred every 5 ms for up to budget_ms; true once it holds.
template <typename Pred>
bool eventually(Pred pred, uint64_t budget_ms = 5000)
{
    for (const uint64_t end = vxu_com_get_uptime_ms() + budget_ms; !pred(); sleep_ms(5))
        if (vxu_com_get_uptime_ms() >= end)
            return false;
    return true;
}

// CLOCK_BOOTTIME_ALARM needs CAP_WAKE_ALARM and a kernel with alarm timers.
inline bool alarm_timers_available()
{
    const int fd = timerfd_create(CLOCK_BOOTTIME_ALARM, 0);
    return fd >= 0 && close(fd) == 0;
}

}  // namespace tmr_test
