// Thirty seconds of a busy timer service: a thousand list timers and a
// hundred timer descriptors run together, and every expiry is accounted
// for. Runs under its own label (make test-soak), not with the unit tests.
#include <stdio.h>

#include <algorithm>
#include <mutex>
#include <vector>

#include <vxutil/frame.h>
#include <vxutil/timers.h>

#include "common/test_support.hpp"
#include "timers/tmr_test_util.hpp"

using namespace tmr_test;

namespace {

constexpr int kListTimers = 1000;
constexpr int kDescriptorTimers = 100;
constexpr int kBatch = 20;  // the service keeps at most 20 timers idle
constexpr uint64_t kSoakMs = 30000;
// How long after its due time an expiry may be served (the machine is
// shared); a descriptor timer served later than its period merges expiries.
constexpr uint64_t kLatenessMs = 2000;

struct timer_log {
    int id = 0;
    uint32_t period = 0;
    bool descriptor = false;
    uint64_t start_before = 0, start_after = 0, stop_before = 0, stop_after = 0;
    std::vector<uint64_t> fired;  // uptime of each callback, ms
};

std::mutex g_mutex;
std::vector<timer_log> &g_timers = *new std::vector<timer_log>;  // outlives the thread
int g_wrong_ids = 0;

int on_expiry(int id, uint64_t index)
{
    const uint64_t now = vxu_com_get_uptime_ms();
    std::lock_guard<std::mutex> hold(g_mutex);
    timer_log &t = g_timers[index];
    g_wrong_ids += t.id != id;
    t.fired.push_back(now);
    return 0;
}

// Creates, sets and starts timers first..last-1 in batches, so that no
// more than 20 ever wait on the idle list.
void start_timers(size_t first, size_t last)
{
    for (size_t batch = first; batch < last; batch += kBatch) {
        const size_t end = std::min(last, batch + kBatch);
        for (size_t i = batch; i < end; ++i) {
            timer_log &t = g_timers[i];
            t.id = vxu_tmr_create(t.descriptor ? VXU_TMR_TYPE_FD : VXU_TMR_TYPE_LIST);
            ASSERT_GT(t.id, 0) << "timer " << i;
            ASSERT_EQ(0, vxu_tmr_set(t.id, t.period, 1, on_expiry, i));
        }
        for (size_t i = batch; i < end; ++i) {
            timer_log &t = g_timers[i];
            t.start_before = vxu_com_get_uptime_ms();
            // -1 with the timer running: the wake-up byte did not fit the
            // pair (the thread has bytes to read anyway).
            const int rc = vxu_tmr_start(t.id);
            ASSERT_TRUE(rc == 0 || (rc == -1 && vxu_tmr_status(t.id) == 1))
                << "timer " << i << " start gave " << rc;
            t.start_after = vxu_com_get_uptime_ms();
        }
    }
}

struct account {
    uint64_t fired = 0;
    uint64_t expected_low = 0, expected_high = 0;  // expiries due by the stop
    uint64_t missed = 0;                           // of those, never called back
    uint64_t early = 0;                            // callbacks before their expiry was due
    uint64_t after_stop = 0;                       // callbacks under way at the stop
    uint64_t late_twice = 0;                       // timers called twice after their stop
    uint64_t stalled = 0;                          // timers that stopped firing early
    uint64_t longest_gap = 0;                      // beyond the period, ms
};

// Checks one timer's callbacks against its schedule. The k-th expiry of a
// timer started at s is due no earlier than s + k * period: a list timer
// is re-armed from the moment each expiry is served, a descriptor keeps
// the kernel's schedule.
void settle(const timer_log &t, account *a)
{
    const uint64_t p = t.period;
    const uint64_t n = t.fired.size();
    uint64_t late = 0;
    for (uint64_t k = 0; k < n; ++k) {
        const uint64_t at = t.fired[k];
        late += at > t.stop_after;
        a->early += at < t.start_before + (k + 1) * p;
        const uint64_t since = k == 0 ? t.start_after : t.fired[k - 1];
        if (at > since + p)
            a->longest_gap = std::max(a->longest_gap, at - since - p);
    }
    a->fired += n;
    a->after_stop += late;
    a->late_twice += late > 1;
    const uint64_t last = n == 0 ? t.start_after : t.fired.back();
    a->stalled += t.stop_before > last + p + kLatenessMs;
    a->expected_high += (t.stop_after - t.start_before) / p;
    if (!t.descriptor)
        return;  // re-armed when served: its expiries are its callbacks
    const uint64_t low = (t.stop_before - t.start_after) / p;
    a->expected_low += low;
    a->missed += low > n ? low - n : 0;
}

void report(const char *what, const account &a, bool descriptors)
{
    const auto u = [](uint64_t v) { return static_cast<unsigned long long>(v); };
    if (descriptors)
        printf("%s: %llu callbacks for %llu..%llu expiries due, missed %llu", what, u(a.fired),
               u(a.expected_low), u(a.expected_high), u(a.missed));
    else
        printf("%s: %llu callbacks, at most %llu without drift", what, u(a.fired),
               u(a.expected_high));
    printf("; %llu under way at the stop, early %llu, stalled timers %llu, longest gap beyond "
           "the period %llu ms\n",
           u(a.after_stop), u(a.early), u(a.stalled), u(a.longest_gap));
}

TEST(TmrSoak, ThousandListTimersAndHundredDescriptorsForThirtySeconds)
{
    EXPECT_IN_CHILD([] {
        ASSERT_EQ(0, vxu_tmr_init());
        const vxu_test::fd_leak_check released;  // every timer descriptor closed at the end
        const bool descriptors = alarm_timers_available();
        if (!descriptors)
            printf("note: timerfd on CLOCK_BOOTTIME_ALARM refused (needs CAP_WAKE_ALARM): "
                   "soaking list timers only\n");
        const size_t count = kListTimers + (descriptors ? kDescriptorTimers : 0);
        g_timers.resize(count);
        for (size_t i = 0; i < count; ++i) {
            timer_log &t = g_timers[i];
            t.descriptor = i >= kListTimers;
            // List timers every 200..1180 ms, descriptors every 500..950 ms.
            t.period = t.descriptor ? 500 + (i % 10) * 50 : 200 + (i % 50) * 20;
        }
        start_timers(0, count);
        sleep_ms(kSoakMs);
        for (timer_log &t : g_timers) {
            t.stop_before = vxu_com_get_uptime_ms();
            ASSERT_EQ(0, vxu_tmr_stop(t.id));
            t.stop_after = vxu_com_get_uptime_ms();
        }
        sleep_ms(1000);  // a callback under way at the last stop ends

        account list, fds;
        {
            std::lock_guard<std::mutex> hold(g_mutex);
            for (const timer_log &t : g_timers)
                settle(t, t.descriptor ? &fds : &list);
        }
        report("list timers", list, false);
        if (descriptors)
            report("timer descriptors", fds, true);
        EXPECT_EQ(0, g_wrong_ids);
        for (const account *a : {&list, &fds}) {
            EXPECT_EQ(0u, a->early) << "called back before the expiry was due";
            EXPECT_EQ(0u, a->stalled) << "timers that stopped firing before the end";
            EXPECT_EQ(0u, a->late_twice) << "called back after the stop beyond one under way";
        }
        EXPECT_GT(list.fired, uint64_t{kListTimers} * (kSoakMs / 1200));
        EXPECT_EQ(0u, fds.missed) << "descriptor expiries merged or lost";
        EXPECT_LE(fds.fired, fds.expected_high) << "more callbacks than expiries";

        for (const timer_log &t : g_timers)
            ASSERT_EQ(0, vxu_tmr_delete(t.id));
        EXPECT_TRUE(eventually([] { return vxu_tmr_status(g_timers.back().id) == -2; }, 5000));
        for (const timer_log &t : g_timers)
            EXPECT_EQ(-2, vxu_tmr_status(t.id)) << "not released";
    });
}

}  // namespace
