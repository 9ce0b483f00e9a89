// Timers changed from several threads at once (run under TSan).
#include <atomic>
#include <map>
#include <random>
#include <thread>

#include "timers/tmr_test_util.hpp"

using namespace tmr_test;

namespace {

// A pull sleeps until the earliest timer is due; an add or a set from
// another thread wakes it at once, a delete writes no byte and does not.
TEST(TmrqThreads, AddAndSetWakeASleepingPullDeleteDoesNot)
{
    vxu_tmrq q;
    ASSERT_EQ(0, vxu_tmrq_init(&q, 0));
    vxu_tmrq_item *item = nullptr;
    const auto pull_woken_by = [&](auto change) {
        std::thread other([&] { sleep_ms(150), change(); });
        const uint64_t start = vxu_com_get_uptime_ms();
        EXPECT_EQ(0, vxu_tmrq_pull(&q, &item)) << "a pull that waited delivers nothing";
        other.join();
        return vxu_com_get_uptime_ms() - start;
    };
    EXPECT_LT(pull_woken_by([&] { vxu_tmrq_tmr_add(&q, 0, 0, 0, 60000, 0); }), 1500u);
    EXPECT_LT(pull_woken_by([&] { vxu_tmrq_tmr_set(&q, 1, 0, 0, 0, 50000, 0); }), 1500u);
    ASSERT_EQ(0, vxu_tmrq_tmr_set(&q, 1, 0, 0, 0, 700, 0));
    ASSERT_EQ(0, vxu_tmrq_pull(&q, &item)) << "drains the set's byte";
    const uint64_t slept = pull_woken_by([&] { vxu_tmrq_tmr_del(&q, 1); });
    EXPECT_TRUE(slept >= 500 && slept < 5000) << "woke after " << slept << " ms";
    close(q.wfd);
    close(q.rfd);
}

// Four threads each run random operations on timers of their own against a
// model of their own while the timers fire. Each keeps at most three timers
// and waits for the release of each one it deletes, so the idle list never
// fills. No callback may come for a timer after its delete returned, but
// for one under way.
std::map<int, int> &g_after_delete = *new std::map<int, int>;  // calls by id, under g_mutex
std::atomic<int> g_calls{0};

int count_call(int id, uint64_t)
{
    const std::lock_guard<std::mutex> hold(g_mutex);
    ++g_calls;
    EXPECT_LE(g_after_delete.count(id) ? ++g_after_delete[id] : 0, 1)
        << "timer " << id << " called after its delete, beyond one under way";
    return 0;
}

void churn(unsigned seed, bool with_descriptors, uint64_t end_ms)
{
    std::mt19937 rng(seed);
    std::map<int, bool> armed;  // the model: running or not, by id
    for (int step = 0; vxu_com_get_uptime_ms() < end_ms; ++step) {
        SCOPED_TRACE(testing::Message() << "seed " << seed << " step " << step);
        const int id = armed.empty() || rng() % 8 == 0
                           ? 100000 + step
                           : std::next(armed.begin(), rng() % armed.size())->first;
        const bool known = armed.count(id);
        switch (rng() % 6) {
        case 0:
            if (armed.size() < 3) {
                const int made = vxu_tmr_create(with_descriptors && rng() % 3 == 0);
                ASSERT_GT(made, 0);
                armed[made] = false;
            }
            break;
        case 1:
            ASSERT_EQ(known ? 0 : -2, vxu_tmr_set(id, 1 + rng() % 20, 1, count_call, rng() % 2));
            break;
        case 2:
            ASSERT_EQ(known ? 0 : -2, vxu_tmr_start(id));
            armed[id] = true;
            break;
        case 3:
            ASSERT_EQ(known ? 0 : -2, vxu_tmr_stop(id));
            armed[id] = false;
            break;
        case 4:
            ASSERT_EQ(known ? armed[id] : -2, vxu_tmr_status(id));
            break;
        default:
            ASSERT_EQ(known ? 0 : -2, vxu_tmr_delete(id));
            {
                const std::lock_guard<std::mutex> hold(g_mutex);
                g_after_delete[id] = 0;
            }
            ASSERT_TRUE(eventually([id] { return vxu_tmr_status(id) == -2; })) << "not released";
            armed.erase(id);
        }
        if (!known)
            armed.erase(id);
        sleep_ms(rng() % 4);  // let the timers fire between changes
    }
    for (const auto &t : armed)
        ASSERT_EQ(0, vxu_tmr_delete(t.first));
}

TEST(TmrThreads, FourThreadsRunModelsWhileTimersFire)
{
    EXPECT_IN_CHILD([] {
        ASSERT_EQ(0, vxu_tmr_init());
        const bool with_descriptors = alarm_timers_available();
        const uint64_t end = vxu_com_get_uptime_ms() + 3000;
        std::vector<std::thread> workers;
        for (unsigned w = 0; w < 4; ++w)
            workers.emplace_back(churn, 1234u + w, with_descriptors, end);
        for (std::thread &w : workers)
            w.join();
        EXPECT_GT(g_calls.load(), 100);
        for (int i = 0; i < 20; ++i)
            EXPECT_GT(vxu_tmr_create(VXU_TMR_TYPE_LIST), 0) << "the idle list is empty again";
    });
}

}  // namespace
