#include <atomic>

#include <vxutil/frame.h>
#include <vxutil/timers.h>

#include "common/fd_pressure.hpp"
#include "common/test_support.hpp"
#include "timers/tmr_test_util.hpp"

using namespace tmr_test;

namespace {

constexpr uint32_t kHour = 3600 * 1000;

TEST(TmrService, OneServiceOneThread)
{
    EXPECT_IN_CHILD([] {
        EXPECT_EQ(-1, vxu_tmr_create(VXU_TMR_TYPE_LIST));
        EXPECT_EQ(-1, vxu_tmr_set(1, 10, 0, record_firing, 0));
        EXPECT_EQ(-1, vxu_tmr_start(1));
        EXPECT_EQ(-1, vxu_tmr_stop(1));
        EXPECT_EQ(-1, vxu_tmr_status(1));
        EXPECT_EQ(-1, vxu_tmr_delete(1));

        const int threads = thread_count();
        ASSERT_EQ(0, vxu_tmr_init());
        EXPECT_EQ(threads + 1, thread_count());
        EXPECT_EQ(0, vxu_tmr_init());
        EXPECT_EQ(threads + 1, thread_count()) << "no second thread";
    });
}

TEST(TmrService, CreateStatusAndTheIdleLimit)
{
    EXPECT_IN_CHILD([] {
        ASSERT_EQ(0, vxu_tmr_init());
        EXPECT_EQ(1, vxu_tmr_create(VXU_TMR_TYPE_LIST));
        EXPECT_EQ(2, vxu_tmr_create(VXU_TMR_TYPE_FD));
        EXPECT_EQ(-1, vxu_tmr_create(2));

        EXPECT_EQ(-2, vxu_tmr_set(99, 10, 0, record_firing, 0));
        EXPECT_EQ(-2, vxu_tmr_start(99));
        EXPECT_EQ(-2, vxu_tmr_stop(99));
        EXPECT_EQ(-2, vxu_tmr_status(99));
        EXPECT_EQ(-2, vxu_tmr_delete(99));

        EXPECT_EQ(0, vxu_tmr_status(1));
        EXPECT_EQ(0, vxu_tmr_stop(1)) << "stopping a stopped timer";
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

TEST(TmrService, ListTimersFireByDueTimeWithIdAndArg)
{
    EXPECT_IN_CHILD([] {
        ASSERT_EQ(0, vxu_tmr_init());
        const int slow = started_list_timer(300, 0xAAAA);
        const int fast = started_list_timer(100, 0xBBBB);
        ASSERT_TRUE(eventually([&] { return g_log.of(slow).size() >= 1; }, 3000));
        const std::vector<firing> all = g_log.all();
        ASSERT_FALSE(all.empty());
        EXPECT_EQ(fast, all[0].id) << "the 100 ms timer fires first";
        EXPECT_EQ(0xAAAAu, g_log.of(slow)[0].arg);

        ASSERT_TRUE(eventually([&] { return g_log.of(fast).size() >= 5; }, 5000));
        ASSERT_EQ(0, vxu_tmr_stop(fast));
        ASSERT_EQ(0, vxu_tmr_stop(slow));
        const std::vector<firing> ticks = g_log.of(fast);
        for (size_t i = 1; i < ticks.size(); ++i) {
            EXPECT_EQ(0xBBBBu, ticks[i].arg);
            EXPECT_GE(ticks[i].at_ms - ticks[i - 1].at_ms, 95u) << "period of 100 ms";
        }
        // After the stops, at most a firing already under way follows.
        const size_t at_stop = g_log.all().size();
        sleep_ms(350);
        EXPECT_LE(g_log.all().size(), at_stop + 1);
    });
}

TEST(TmrService, SetOnARunningTimerRestartsItFromNow)
{
    EXPECT_IN_CHILD([] {
        ASSERT_EQ(0, vxu_tmr_init());
        const int id = started_list_timer(2000, 1);
        sleep_ms(200);
        const uint64_t set_at = vxu_com_get_uptime_ms();
        ASSERT_EQ(0, vxu_tmr_set(id, 300, 0, record_firing, 2));
        ASSERT_TRUE(eventually([&] { return !g_log.of(id).empty(); }, 5000));
        const firing first = g_log.of(id)[0];
        EXPECT_EQ(2u, first.arg) << "new values take effect";
        EXPECT_GE(first.at_ms, set_at + 295);
        EXPECT_LT(first.at_ms, set_at + 1600) << "not at the old due time";
    });
}

TEST(TmrService, TimersWithoutCallbackOrIntervalRunQuietly)
{
    EXPECT_IN_CHILD([] {
        ASSERT_EQ(0, vxu_tmr_init());
        const int silent = vxu_tmr_create(VXU_TMR_TYPE_LIST);
        ASSERT_EQ(0, vxu_tmr_set(silent, 30, 0, nullptr, 0));
        ASSERT_EQ(0, vxu_tmr_start(silent));
        // The silent timer keeps expiring; the other one still fires on time.
        const uint64_t start = vxu_com_get_uptime_ms();
        const int loud = started_list_timer(250, 0);
        ASSERT_TRUE(eventually([&] { return !g_log.of(loud).empty(); }, 3000));
        EXPECT_GE(g_log.of(loud)[0].at_ms - start, 245u);
        EXPECT_LT(g_log.of(loud)[0].at_ms - start, 1500u);
        EXPECT_EQ(1, vxu_tmr_status(silent));
        EXPECT_TRUE(g_log.of(silent).empty());
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
        EXPECT_EQ(1, vxu_tmr_status(every));
        EXPECT_EQ(1, vxu_tmr_status(never));
        EXPECT_TRUE(g_log.of(never).empty()) << "interval 0 never fires";

        // Restarted, the one-shot timer reuses its descriptor and fires again.
        ASSERT_EQ(0, vxu_tmr_start(once));
        EXPECT_TRUE(eventually([&] { return g_log.of(once).size() == 2; }, 3000));
    });
}

// Callbacks that manage their own timer from the service thread.
std::atomic<int> g_bad_results{0};

int delete_self(int id, uint64_t arg)
{
    record_firing(id, arg);
    if (vxu_tmr_delete(id) != 0)
        ++g_bad_results;
    return 0;
}

int restart_self(int id, uint64_t arg)
{
    record_firing(id, arg);
    if (vxu_tmr_stop(id) != 0 || vxu_tmr_status(id) != 0 || vxu_tmr_start(id) != 0)
        ++g_bad_results;
    return 0;
}

int slow_down_self(int id, uint64_t arg)
{
    record_firing(id, arg);
    if (vxu_tmr_set(id, 400, 0, slow_down_self, arg + 1) != 0)
        ++g_bad_results;
    return 0;
}

TEST(TmrService, CallbacksMayStopRestartOrDeleteTheirOwnTimer)
{
    EXPECT_IN_CHILD([] {
        ASSERT_EQ(0, vxu_tmr_init());
        const int doomed = vxu_tmr_create(VXU_TMR_TYPE_LIST);
        const int restarted = vxu_tmr_create(VXU_TMR_TYPE_LIST);
        const int slowed = vxu_tmr_create(VXU_TMR_TYPE_LIST);
        ASSERT_EQ(0, vxu_tmr_set(doomed, 20, 0, delete_self, 0));
        ASSERT_EQ(0, vxu_tmr_set(restarted, 20, 0, restart_self, 0));
        ASSERT_EQ(0, vxu_tmr_set(slowed, 20, 0, slow_down_self, 0));
        for (int id : {doomed, restarted, slowed})
            ASSERT_EQ(0, vxu_tmr_start(id));

        ASSERT_TRUE(eventually([&] { return g_log.of(slowed).size() >= 3; }, 5000));
        EXPECT_EQ(0, g_bad_results.load());
        EXPECT_EQ(1u, g_log.of(doomed).size());
        EXPECT_EQ(-2, vxu_tmr_status(doomed)) << "released by the thread";
        EXPECT_GE(g_log.of(restarted).size(), 5u);
        const std::vector<firing> slow = g_log.of(slowed);
        EXPECT_EQ(1u, slow[1].arg);
        EXPECT_GE(slow[2].at_ms - slow[1].at_ms, 395u) << "the new interval applies";
    });
}

TEST(TmrService, DeleteEndsCallbacksAndReleasesTheTimer)
{
    EXPECT_IN_CHILD([] {
        ASSERT_EQ(0, vxu_tmr_init());
        const int fds_before = vxu_test::count_open_fds();
        const int list = started_list_timer(10, 0);
        int fd_timer = 0;
        if (alarm_timers_available()) {
            fd_timer = vxu_tmr_create(VXU_TMR_TYPE_FD);
            ASSERT_EQ(0, vxu_tmr_set(fd_timer, 10, 1, record_firing, 0));
            ASSERT_EQ(0, vxu_tmr_start(fd_timer));
        }
        ASSERT_TRUE(eventually([&] { return g_log.of(list).size() >= 3; }, 3000));
        for (int id : {list, fd_timer}) {
            if (id == 0)
                continue;
            ASSERT_EQ(0, vxu_tmr_delete(id));
            const size_t at_delete = g_log.of(id).size();
            EXPECT_TRUE(eventually([&] { return vxu_tmr_status(id) == -2; }, 3000));
            sleep_ms(100);
            EXPECT_LE(g_log.of(id).size(), at_delete + 1) << "only a firing under way";
        }
        EXPECT_EQ(fds_before, vxu_test::count_open_fds()) << "timer descriptor closed";
    });
}

TEST(TmrService, DescriptorStartFailsWithoutAUsableDescriptor)
{
    EXPECT_IN_CHILD([] {
        ASSERT_EQ(0, vxu_tmr_init());
        const int id = vxu_tmr_create(VXU_TMR_TYPE_FD);
        ASSERT_EQ(0, vxu_tmr_set(id, 50, 1, record_firing, 0));
        {
            vxu_test::no_fds_left none;
            EXPECT_EQ(-1, vxu_tmr_start(id));
            EXPECT_EQ(0, vxu_tmr_status(id));
        }
        {
            vxu_test::low_fds_taken high;
            if (!high.ok())
                GTEST_SKIP() << "cannot raise the descriptor limit past 1024";
            if (!alarm_timers_available())
                return;  // creation itself fails: covered above
            vxu_test::fd_leak_check leaks;
            EXPECT_EQ(-1, vxu_tmr_start(id)) << "a descriptor above 1023 cannot be watched";
            EXPECT_EQ(0, vxu_tmr_status(id));
        }
        sleep_ms(150);
        EXPECT_TRUE(g_log.of(id).empty());
    });
}

TEST(TmrService, ServiceWithoutAPairStillFires)
{
    EXPECT_IN_CHILD([] {
        {
            vxu_test::low_fds_taken high;
            if (!high.ok())
                GTEST_SKIP() << "cannot raise the descriptor limit past 1024";
            vxu_test::fd_leak_check leaks;
            ASSERT_EQ(0, vxu_tmr_init()) << "a pair above 1023 counts as not created";
        }
        const int id = vxu_tmr_create(VXU_TMR_TYPE_LIST);
        ASSERT_EQ(0, vxu_tmr_set(id, 100, 0, record_firing, 0));
        EXPECT_EQ(-1, vxu_tmr_start(id)) << "no wake-up byte";
        EXPECT_EQ(1, vxu_tmr_status(id)) << "running all the same";
        EXPECT_TRUE(eventually([&] { return g_log.of(id).size() >= 2; }, 5000));
    });
}

}  // namespace
