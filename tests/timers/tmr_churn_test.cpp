// Four threads create, set, start, stop and delete timers while list timers
// and timer descriptors fire: no crash, no callback after a delete returned
// (beyond one already under way), no record left once the thread has passed.
#include <atomic>
#include <random>
#include <thread>
#include <vector>

#include <vxutil/frame.h>
#include <vxutil/timers.h>

#include "common/leak_check.hpp"
#include "common/test_support.hpp"
#include "timers/tmr_test_util.hpp"

using namespace tmr_test;

namespace {

constexpr int kWorkers = 4;
constexpr uint64_t kChurnMs = 3000;
constexpr size_t kMostTimers = 1 << 16;

struct tracked {
    std::atomic<int> id{0};
    std::atomic<bool> deleted{false};
    std::atomic<int> calls{0};
    std::atomic<int> calls_after_delete{0};
};

std::vector<tracked> g_timers(kMostTimers);
std::atomic<size_t> g_next{0};
std::atomic<int> g_bad_results{0};

int count_call(int, uint64_t slot)
{
    tracked &t = g_timers[slot];
    ++t.calls;
    if (t.deleted)
        ++t.calls_after_delete;
    return 0;
}

int delete_own(int id, uint64_t slot)
{
    count_call(id, slot);
    if (vxu_tmr_delete(id) != 0)
        ++g_bad_results;
    return 0;
}

void churn(unsigned seed, bool with_descriptors, uint64_t end_ms)
{
    std::mt19937 rng(seed);
    auto pick = [&rng](int n) { return static_cast<int>(rng() % static_cast<unsigned>(n)); };
    while (vxu_com_get_uptime_ms() < end_ms) {
        const uint8_t type = with_descriptors && pick(3) == 0 ? VXU_TMR_TYPE_FD : VXU_TMR_TYPE_LIST;
        const int id = vxu_tmr_create(type);
        if (id < 0) {  // the idle list is full for the moment
            sleep_ms(1);
            continue;
        }
        const size_t slot = g_next++;
        if (slot >= kMostTimers) {
            vxu_tmr_delete(id);
            return;
        }
        tracked &t = g_timers[slot];
        t.id = id;
        const bool self_deleting = pick(8) == 0;
        const uint32_t interval = 1 + static_cast<uint32_t>(pick(20));
        if (vxu_tmr_set(id, interval, static_cast<uint8_t>(pick(2)),
                        self_deleting ? delete_own : count_call, slot) != 0 ||
            vxu_tmr_start(id) != 0)
            ++g_bad_results;
        // A self-deleting timer is left alone until its final delete: a
        // start after the callback's delete would bring it back.
        for (int op = self_deleting ? 0 : pick(6); op > 0; --op) {
            int rc = 0;
            switch (pick(4)) {
            case 0: rc = vxu_tmr_stop(id); break;
            case 1: rc = vxu_tmr_start(id); break;
            case 2: rc = vxu_tmr_set(id, interval, 1, count_call, slot); break;
            default: rc = vxu_tmr_status(id) < 0 ? -1 : 0; break;
            }
            if (rc != 0)
                ++g_bad_results;
            sleep_ms(pick(4));
        }
        sleep_ms(pick(10));
        const int rc = vxu_tmr_delete(id);
        if (rc != 0 && !(self_deleting && rc == -2))
            ++g_bad_results;
        t.deleted = true;
    }
}

TEST(TmrChurn, FourThreadsWhileTimersFire)
{
    EXPECT_IN_CHILD([] {
        ASSERT_EQ(0, vxu_tmr_init());
        const bool with_descriptors = alarm_timers_available();
        if (!with_descriptors)
            printf("note: CLOCK_BOOTTIME_ALARM refused, churning list timers only\n");
        const uint64_t end = vxu_com_get_uptime_ms() + kChurnMs;
        std::vector<std::thread> workers;
        for (int w = 0; w < kWorkers; ++w)
            workers.emplace_back(churn, 1234u + static_cast<unsigned>(w), with_descriptors, end);
        for (std::thread &w : workers)
            w.join();
        sleep_ms(300);  // the thread's next passes release the deleted records

        const size_t made = std::min(g_next.load(), kMostTimers);
        EXPECT_GT(made, 100u);
        EXPECT_EQ(0, g_bad_results.load());
        int total_calls = 0;
        for (size_t i = 0; i < made; ++i) {
            const tracked &t = g_timers[i];
            total_calls += t.calls;
            EXPECT_LE(t.calls_after_delete.load(), 1) << "timer " << t.id;
            EXPECT_EQ(-2, vxu_tmr_status(t.id)) << "timer " << t.id << " not released";
        }
        EXPECT_GT(total_calls, 100);
        // Nothing is left on the idle list: a full set of new timers fits.
        for (int i = 0; i < 20; ++i)
            EXPECT_GT(vxu_tmr_create(VXU_TMR_TYPE_LIST), 0);
        vxu_test::expect_no_leaks();
    });
}

}  // namespace
