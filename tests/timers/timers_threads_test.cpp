// Timers changed from several threads at once.
#include <atomic>
#include <random>
#include <thread>
#include <vector>

#include <vxutil/frame.h>
#include <vxutil/timers.h>

#include "common/test_support.hpp"
#include "timers/tmr_test_util.hpp"
#include "timers/tmrq_test_queue.hpp"

using namespace tmr_test;

namespace {

// Runs change() on another thread while this one sleeps in pull; returns
// how long the pull took.
template <typename Change>
uint64_t pull_woken_by(vxu_tmrq *q, Change change)
{
    std::thread other([&] {
        sleep_ms(150);  // let the pull go to sleep first
        change();
    });
    const uint64_t start = vxu_com_get_uptime_ms();
    vxu_tmrq_item *item = nullptr;
    EXPECT_EQ(0, vxu_tmrq_pull(q, &item)) << "a pull that waited delivers nothing";
    other.join();
    return vxu_com_get_uptime_ms() - start;
}

TEST(TmrqThreads, AddAndSetWakeASleepingPull)
{
    tmrq_test::queue t(0);
    // An empty queue sleeps 2 s, a far timer 60 s: each change ends it at once.
    EXPECT_LT(pull_woken_by(&t.q, [&] { vxu_tmrq_tmr_add(&t.q, 0, 0, 0, 60000, 0); }), 1500u);
    EXPECT_LT(pull_woken_by(&t.q, [&] { vxu_tmrq_tmr_set(&t.q, 1, 0, 0, 0, 50000, 0); }), 1500u);

    // A delete writes no wake-up byte: the pull sleeps on to the deleted
    // timer's due time, then finds the list empty.
    ASSERT_EQ(0, vxu_tmrq_tmr_set(&t.q, 1, 0, 0, 0, 700, 0));
    vxu_tmrq_item *item = nullptr;
    ASSERT_EQ(0, vxu_tmrq_pull(&t.q, &item)) << "drains the set's wake-up byte";
    const uint64_t slept = pull_woken_by(&t.q, [&] { vxu_tmrq_tmr_del(&t.q, 1); });
    EXPECT_GE(slept, 500u);
    EXPECT_LT(slept, 5000u);
    EXPECT_EQ(0, vxu_tmrq_tmr_is_exist(&t.q, 1));
}

// The churn: per timer, whether its delete returned and what fired after.
struct tracked {
    std::atomic<int> id{0};
    std::atomic<bool> deleted{false};
    std::atomic<int> calls{0};
    std::atomic<int> calls_after_delete{0};
};

constexpr size_t kMostTimers = 1 << 16;
std::vector<tracked> &g_timers = *new std::vector<tracked>(kMostTimers);  // outlives exit
std::atomic<size_t> g_next{0};
std::atomic<int> g_bad_results{0};

int count_call(int, uint64_t slot)
{
    tracked &t = g_timers[slot];
    ++t.calls;
    t.calls_after_delete += t.deleted.load();
    return 0;
}

int delete_own(int id, uint64_t slot)
{
    count_call(id, slot);
    g_bad_results += vxu_tmr_delete(id) != 0;
    return 0;
}

void churn(unsigned seed, bool with_descriptors, uint64_t end_ms)
{
    std::mt19937 rng(seed);
    auto pick = [&rng](int n) { return static_cast<int>(rng() % static_cast<unsigned>(n)); };
    while (vxu_com_get_uptime_ms() < end_ms) {
        const int id =
            vxu_tmr_create(with_descriptors && pick(3) == 0 ? VXU_TMR_TYPE_FD : VXU_TMR_TYPE_LIST);
        if (id < 0) {  // the idle list is full for the moment
            sleep_ms(1);
            continue;
        }
        const size_t slot = g_next++;
        if (slot >= kMostTimers) {
            vxu_tmr_delete(id);
            return;
        }
        g_timers[slot].id = id;
        const bool self_deleting = pick(8) == 0;
        const uint32_t interval = 1 + static_cast<uint32_t>(pick(20));
        g_bad_results += vxu_tmr_set(id, interval, static_cast<uint8_t>(pick(2)),
                                     self_deleting ? delete_own : count_call, slot) != 0;
        g_bad_results += vxu_tmr_start(id) != 0;
        // A self-deleting timer is left alone: a start after its callback's
        // delete would bring it back.
        for (int op = self_deleting ? 0 : pick(6); op > 0; --op) {
            switch (pick(4)) {
            case 0:
                g_bad_results += vxu_tmr_stop(id) != 0;
                break;
            case 1:
                g_bad_results += vxu_tmr_start(id) != 0;
                break;
            case 2:
                g_bad_results += vxu_tmr_set(id, interval, 1, count_call, slot) != 0;
                break;
            default:
                g_bad_results += vxu_tmr_status(id) < 0;
                break;
            }
            sleep_ms(pick(4));
        }
        sleep_ms(pick(10));
        const int rc = vxu_tmr_delete(id);
        g_bad_results += rc != 0 && !(self_deleting && rc == -2);
        g_timers[slot].deleted = true;
    }
}

TEST(TmrThreads, FourThreadsChurnWhileTimersFire)
{
    EXPECT_IN_CHILD([] {
        ASSERT_EQ(0, vxu_tmr_init());
        const bool with_descriptors = alarm_timers_available();
        if (!with_descriptors)
            printf("note: CLOCK_BOOTTIME_ALARM refused, churning list timers only\n");
        const uint64_t end = vxu_com_get_uptime_ms() + 3000;
        std::vector<std::thread> workers;
        for (unsigned w = 0; w < 4; ++w)
            workers.emplace_back(churn, 1234u + w, with_descriptors, end);
        for (std::thread &w : workers)
            w.join();
        sleep_ms(300);  // the thread's next passes release the deleted records

        const size_t made = std::min(g_next.load(), kMostTimers);
        EXPECT_GT(made, 100u);
        EXPECT_EQ(0, g_bad_results.load());
        int calls = 0;
        for (size_t i = 0; i < made; ++i) {
            calls += g_timers[i].calls;
            EXPECT_LE(g_timers[i].calls_after_delete.load(), 1) << "beyond one under way";
            EXPECT_EQ(-2, vxu_tmr_status(g_timers[i].id))
                << "timer " << g_timers[i].id << " not released";
        }
        EXPECT_GT(calls, 100);
        for (int i = 0; i < 20; ++i)
            EXPECT_GT(vxu_tmr_create(VXU_TMR_TYPE_LIST), 0) << "the idle list is empty again";
    });
}

}  // namespace
