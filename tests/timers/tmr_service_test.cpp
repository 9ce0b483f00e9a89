#include <atomic>

#include <vxutil/frame.h>
#include <vxutil/timers.h>

#include "common/test_support.hpp"
#include "timers/tmr_test_util.hpp"

using namespace tmr_test;

namespace {

constexpr uint32_t kHour = 3600 * 1000;

TEST(TmrService, LifecycleIdsAndLimits)
{
    EXPECT_IN_CHILD([] {
        EXPECT_EQ(-1, vxu_tmr_create(VXU_TMR_TYPE_LIST)) << "no service yet";
        EXPECT_EQ(-1, vxu_tmr_set(1, 10, 0, record_firing, 0));
        for (auto fn : {vxu_tmr_start, vxu_tmr_stop, vxu_tmr_status, vxu_tmr_delete})
            EXPECT_EQ(-1, fn(1));
        const int before = thread_count();
        ASSERT_EQ(0, vxu_tmr_init());
        const int threads = thread_count();
        EXPECT_LT(before, threads) << "the service thread";
        ASSERT_EQ(0, vxu_tmr_init());
        EXPECT_EQ(threads, thread_count()) << "no second thread";

        EXPECT_EQ(1, vxu_tmr_create(VXU_TMR_TYPE_LIST));
        EXPECT_EQ(2, vxu_tmr_create(VXU_TMR_TYPE_FD));
        EXPECT_EQ(-1, vxu_tmr_create(2));
        EXPECT_EQ(-2, vxu_tmr_set(99, 10, 0, record_firing, 0));
        for (auto fn : {vxu_tmr_start, vxu_tmr_stop, vxu_tmr_status, vxu_tmr_delete})
            EXPECT_EQ(-2, fn(99));
        EXPECT_EQ(0, vxu_tmr_stop(1)) << "not running";
        EXPECT_EQ(0, vxu_tmr_set(1, kHour, 0, record_firing, 0));
        EXPECT_EQ(0, vxu_tmr_start(1));
        EXPECT_EQ(1, vxu_tmr_status(1));
        EXPECT_EQ(0, vxu_tmr_stop(1));
        EXPECT_EQ(0, vxu_tmr_status(1));

        // Twenty stopped timers fill the idle list; running ones do not count.
        for (int id = 3; id <= 20; ++id)
            ASSERT_EQ(id, vxu_tmr_create(VXU_TMR_TYPE_LIST));
        EXPECT_EQ(-1, vxu_tmr_create(VXU_TMR_TYPE_LIST));
        ASSERT_EQ(0, vxu_tmr_set(5, kHour, 0, nullptr, 0));
        ASSERT_EQ(0, vxu_tmr_start(5));
        EXPECT_EQ(21, vxu_tmr_create(VXU_TMR_TYPE_LIST));
    });
}

TEST(TmrService, ListTimersFireByDueTimeUntilStopped)
{
    EXPECT_IN_CHILD([] {
        ASSERT_EQ(0, vxu_tmr_init());
        const int slow = started_list_timer(300, 0xAAAA);
        const int fast = started_list_timer(100, 0xBBBB);
        const int silent = vxu_tmr_create(VXU_TMR_TYPE_LIST);
        ASSERT_EQ(0, vxu_tmr_set(silent, 20, 0, nullptr, 0));
        ASSERT_EQ(0, vxu_tmr_start(silent));
        ASSERT_TRUE(eventually([&] { return g_log.of(fast).size() >= 5; }, 5000));
        EXPECT_EQ(fast, g_log.all()[0].id) << "the 100 ms timer fires first";
        ASSERT_FALSE(g_log.of(slow).empty());
        EXPECT_EQ(0xAAAAu, g_log.of(slow)[0].arg);
        EXPECT_TRUE(g_log.of(silent).empty());
        EXPECT_EQ(1, vxu_tmr_status(silent)) << "runs without a callback";

        // A set restarts a running timer from now with the new values.
        const uint64_t set_at = vxu_com_get_uptime_ms();
        ASSERT_EQ(0, vxu_tmr_set(slow, 150, 0, record_firing, 0xCCCC));
        ASSERT_EQ(0, vxu_tmr_stop(fast));
        const std::vector<firing> ticks = g_log.of(fast);
        for (size_t i = 1; i < ticks.size(); ++i) {
            EXPECT_EQ(0xBBBBu, ticks[i].arg);
            EXPECT_GE(ticks[i].at_ms - ticks[i - 1].at_ms, 95u) << "period of 100 ms";
        }
        ASSERT_TRUE(eventually([&] { return g_log.of(slow).back().arg == 0xCCCC; }, 3000));
        EXPECT_GE(g_log.of(slow).back().at_ms - set_at, 145u);
        sleep_ms(300);
        EXPECT_LE(g_log.of(fast).size(), ticks.size() + 1) << "at most a firing under way";
    });
}

TEST(TmrService, DescriptorTimersFireOnceOrRepeat)
{
    EXPECT_IN_CHILD([] {
        SKIP_WITHOUT_ALARM_TIMERS();
        ASSERT_EQ(0, vxu_tmr_init());
        const int once = vxu_tmr_create(VXU_TMR_TYPE_FD);
        const int every = vxu_tmr_create(VXU_TMR_TYPE_FD);
        const int never = vxu_tmr_create(VXU_TMR_TYPE_FD);
        ASSERT_EQ(0, vxu_tmr_set(once, 200, 0, record_firing, 1));
        ASSERT_EQ(0, vxu_tmr_set(every, 200, 1, record_firing, 2));
        ASSERT_EQ(0, vxu_tmr_set(never, 0, 1, record_firing, 3));
        const uint64_t start = vxu_com_get_uptime_ms();
        for (int id : {once, every, never})
            ASSERT_EQ(0, vxu_tmr_start(id));
        ASSERT_TRUE(eventually([&] { return g_log.of(every).size() >= 4; }, 5000));
        ASSERT_EQ(1u, g_log.of(once).size());
        EXPECT_GE(g_log.of(once)[0].at_ms - start, 195u);
        EXPECT_EQ(0, vxu_tmr_status(once)) << "a one-shot descriptor timer stops";
        EXPECT_EQ(1, vxu_tmr_status(never));
        EXPECT_TRUE(g_log.of(never).empty()) << "interval 0 never fires";
        ASSERT_EQ(0, vxu_tmr_start(once));
        EXPECT_TRUE(eventually([&] { return g_log.of(once).size() == 2; }, 3000)) << "restarted";
    });
}

// Callbacks that manage their own timer from the service thread.
std::atomic<int> g_bad_results{0};

int delete_self(int id, uint64_t arg)
{
    record_firing(id, arg);
    g_bad_results += vxu_tmr_delete(id) != 0;
    return 0;
}

int restart_self(int id, uint64_t arg)
{
    record_firing(id, arg);
    g_bad_results += vxu_tmr_stop(id) != 0 || vxu_tmr_status(id) != 0 || vxu_tmr_start(id) != 0;
    return 0;
}

int slow_down_self(int id, uint64_t arg)
{
    record_firing(id, arg);
    g_bad_results += vxu_tmr_set(id, 400, 0, slow_down_self, arg + 1) != 0;
    return 0;
}

TEST(TmrService, CallbacksMayStopRestartOrDeleteTheirOwnTimer)
{
    EXPECT_IN_CHILD([] {
        ASSERT_EQ(0, vxu_tmr_init());
        const vxu_test::fd_leak_check released;  // the timer descriptor is closed on release
        std::vector<int> ids;
        for (auto cb : {delete_self, restart_self, slow_down_self}) {
            ids.push_back(vxu_tmr_create(VXU_TMR_TYPE_LIST));
            ASSERT_EQ(0, vxu_tmr_set(ids.back(), 20, 0, cb, 0));
            ASSERT_EQ(0, vxu_tmr_start(ids.back()));
        }
        int fd_timer = 0;
        if (alarm_timers_available()) {
            fd_timer = vxu_tmr_create(VXU_TMR_TYPE_FD);
            ASSERT_EQ(0, vxu_tmr_set(fd_timer, 10, 1, delete_self, 0));
            ASSERT_EQ(0, vxu_tmr_start(fd_timer));
        }
        ASSERT_TRUE(eventually([&] { return g_log.of(ids[2]).size() >= 3; }, 5000));
        EXPECT_EQ(0, g_bad_results.load());
        EXPECT_GE(g_log.of(ids[1]).size(), 5u);
        const std::vector<firing> slow = g_log.of(ids[2]);
        EXPECT_EQ(1u, slow[1].arg);
        EXPECT_GE(slow[2].at_ms - slow[1].at_ms, 395u) << "the new interval applies";
        for (int id : {ids[0], fd_timer}) {
            if (id == 0)
                continue;
            EXPECT_EQ(1u, g_log.of(id).size());
            EXPECT_EQ(-2, vxu_tmr_status(id)) << "released by the thread";
        }
    });
}

TEST(TmrService, FailuresToGetADescriptor)
{
    SKIP_UNDER_VALGRIND(vxu_test::kDescriptorLimits);
    EXPECT_IN_CHILD([] {
        ASSERT_EQ(0, vxu_tmr_init());
        const int id = vxu_tmr_create(VXU_TMR_TYPE_FD);
        ASSERT_EQ(0, vxu_tmr_set(id, 50, 1, record_firing, 0));
        {
            vxu_test::fds_taken taken(vxu_test::leaving_free{0});
            ASSERT_TRUE(taken.ok());
            EXPECT_EQ(-1, vxu_tmr_start(id)) << "no descriptor left";
            EXPECT_EQ(0, vxu_tmr_status(id));
        }
        if (!alarm_timers_available()) {
            printf("note: CLOCK_BOOTTIME_ALARM refused, descriptors at 1024 not tried\n");
            return;
        }
        // One timer descriptor runs below 1024; a second one that would
        // land above the set is refused and leaves the first one alone.
        ASSERT_EQ(0, vxu_tmr_start(id));
        const int above = vxu_tmr_create(VXU_TMR_TYPE_FD);
        ASSERT_EQ(0, vxu_tmr_set(above, 50, 1, record_firing, 1));
        {
            vxu_test::fds_taken taken(vxu_test::taken_below{1024});
            if (!taken.ok()) {
                printf("note: cannot raise the descriptor limit past 1024\n");
            } else {
                EXPECT_EQ(-1, vxu_tmr_start(above));
                EXPECT_EQ(0, vxu_tmr_status(above));
            }
        }
        EXPECT_TRUE(eventually([&] { return g_log.of(id).size() >= 3; }, 5000));
        EXPECT_TRUE(g_log.of(above).empty());
    });
}

TEST(TmrService, ServiceWithoutAPairStillFires)
{
    vxu_test::for_each_pair_pressure([](const char *what) {
        ASSERT_EQ(0, vxu_tmr_init()) << what;
        const int id = vxu_tmr_create(VXU_TMR_TYPE_LIST);
        ASSERT_EQ(0, vxu_tmr_set(id, 100, 0, record_firing, 0));
        EXPECT_EQ(-1, vxu_tmr_start(id)) << "no wake-up byte";
        EXPECT_EQ(1, vxu_tmr_status(id)) << "running all the same";
        EXPECT_TRUE(eventually([&] { return g_log.of(id).size() >= 2; }, 5000)) << what;
    });
}

std::atomic<bool> g_thread_held{false};

int hold_the_thread(int id, uint64_t ms)
{
    vxu_tmr_stop(id);
    g_thread_held = true;
    sleep_ms(static_cast<long>(ms));
    return 0;
}

TEST(TmrService, StartsBeyondWhatThePairHoldsReportMinusOneButRun)
{
    EXPECT_IN_CHILD([] {
        ASSERT_EQ(0, vxu_tmr_init());
        const int busy = vxu_tmr_create(VXU_TMR_TYPE_LIST);
        ASSERT_EQ(0, vxu_tmr_set(busy, 0, 0, hold_the_thread, 1000));
        ASSERT_EQ(0, vxu_tmr_start(busy));
        ASSERT_TRUE(eventually([] { return g_thread_held.load(); }, 5000));
        // Far more wake-up bytes than the pair holds, none of them read yet.
        const int id = vxu_tmr_create(VXU_TMR_TYPE_LIST);
        ASSERT_EQ(0, vxu_tmr_set(id, 50, 0, record_firing, 0));
        int unwritten = 0;
        for (int i = 0; i < 5000; ++i) {
            const int rc = vxu_tmr_start(id);
            ASSERT_TRUE(rc == 0 || rc == -1) << rc;
            unwritten += rc == -1;
        }
        EXPECT_GT(unwritten, 0) << "the pair took 5000 unread bytes";
        EXPECT_EQ(1, vxu_tmr_status(id)) << "the timer runs all the same";
        EXPECT_TRUE(eventually([&] { return !g_log.of(id).empty(); }, 5000));
    });
}

}  // namespace
