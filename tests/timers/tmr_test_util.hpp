// Shared pieces of the timer service tests. The service is process-wide and
// has no teardown, so every test runs it in a forked child.
#pragma once

#include <dirent.h>
#include <errno.h>
#include <sys/timerfd.h>
#include <time.h>
#include <unistd.h>

#include <mutex>
#include <vector>

#include <gtest/gtest.h>

#include <vxutil/frame.h>
#include <vxutil/timers.h>

namespace tmr_test {

// One callback as the service made it.
struct firing {
    int id;
    uint64_t arg;
    uint64_t at_ms;
};

class firing_log {
public:
    void add(int id, uint64_t arg)
    {
        std::lock_guard<std::mutex> hold(mutex_);
        log_.push_back({id, arg, vxu_com_get_uptime_ms()});
    }
    std::vector<firing> all()
    {
        std::lock_guard<std::mutex> hold(mutex_);
        return log_;
    }
    std::vector<firing> of(int id)
    {
        std::vector<firing> out;
        for (const firing &f : all())
            if (f.id == id)
                out.push_back(f);
        return out;
    }

private:
    std::mutex mutex_;
    std::vector<firing> log_;
};

// Never destroyed: the service thread may still fire while the process exits.
inline firing_log &g_log = *new firing_log;

inline int record_firing(int id, uint64_t arg)
{
    g_log.add(id, arg);
    return 0;
}

inline void sleep_ms(long ms) { vxu_os_wait(ms / 1000, (ms % 1000) * 1000); }

// Polls pred every 5 ms for up to budget_ms; true once it holds.
template <typename Pred>
bool eventually(Pred pred, uint64_t budget_ms)
{
    const uint64_t end = vxu_com_get_uptime_ms() + budget_ms;
    while (!pred()) {
        if (vxu_com_get_uptime_ms() >= end)
            return false;
        sleep_ms(5);
    }
    return true;
}

inline int thread_count()
{
    DIR *dir = opendir("/proc/self/task");
    int n = 0;
    while (const dirent *d = readdir(dir))
        n += d->d_name[0] != '.';
    closedir(dir);
    return n;
}

// Timer descriptors on CLOCK_BOOTTIME_ALARM need CAP_WAKE_ALARM and a kernel
// with alarm timers; errno tells why when they are refused.
inline bool alarm_timers_available()
{
    const int fd = timerfd_create(CLOCK_BOOTTIME_ALARM, 0);
    if (fd < 0)
        return false;
    close(fd);
    return true;
}

// A started list timer that logs its firings.
inline int started_list_timer(uint32_t interval_ms, uint64_t arg)
{
    const int id = vxu_tmr_create(VXU_TMR_TYPE_LIST);
    EXPECT_EQ(0, vxu_tmr_set(id, interval_ms, 0, record_firing, arg));
    EXPECT_EQ(0, vxu_tmr_start(id));
    return id;
}

}  // namespace tmr_test

#define SKIP_WITHOUT_ALARM_TIMERS()                                                                \
    do {                                                                                           \
        if (!tmr_test::alarm_timers_available())                                                   \
            GTEST_SKIP() << "timerfd on CLOCK_BOOTTIME_ALARM refused (errno " << errno             \
                         << "): needs CAP_WAKE_ALARM and alarm timer support";                     \
    } while (0)
