// The timer service is process-wide and has no teardown: each test runs it
// in a forked child. Timing is generous: counts and order of callbacks are
// checked, not their times.
#include <memory>

#include "timers/tmr_test_util.hpp"

using namespace tmr_test;

namespace {

int delete_self(int id, uint64_t arg) { return vxu_tmr_delete(id) + record_firing(id, arg); }

int restart_self(int id, uint64_t arg)
{
    const bool ok = vxu_tmr_stop(id) == 0 && vxu_tmr_status(id) == 0 && vxu_tmr_start(id) == 0;
    return record_firing(id, ok ? arg : 0);
}

TEST(TmrService, TimersFireByPlanAndGiveTheirDescriptorsBack)
{
    EXPECT_IN_CHILD([] {
        for (auto fn : {vxu_tmr_start, vxu_tmr_stop, vxu_tmr_status, vxu_tmr_delete})
            EXPECT_EQ(-1, fn(1)) << "no service yet";
        EXPECT_EQ(-1, vxu_tmr_set(1, 10, 0, record_firing, 0) + vxu_tmr_create(0) + 1);
        ASSERT_EQ(0, vxu_tmr_init());
        close(0);  // a timer descriptor 0 must be closed too
        const vxu_test::fd_leak_check released;
        const bool fds = alarm_timers_available();
        const struct plan {
            uint8_t type;
            uint32_t ms;
            uint8_t repeat;
            vxu_tmr_cb cb;
            size_t least, most;  // callbacks in a second
            int status;          // after it
        } plans[] = {
            {VXU_TMR_TYPE_LIST, 100, 0, record_firing, 4, 11, 1},  // list timers always repeat
            {VXU_TMR_TYPE_LIST, 300, 1, record_firing, 1, 4, 1},
            {VXU_TMR_TYPE_LIST, 20, 0, nullptr, 0, 0, 1},
            {VXU_TMR_TYPE_LIST, 20, 0, delete_self, 1, 1, -2},  // released by the thread
            {VXU_TMR_TYPE_LIST, 20, 0, restart_self, 5, 51, 1},
            {VXU_TMR_TYPE_FD, 100, 1, record_firing, 4, 11, 1},
            {VXU_TMR_TYPE_FD, 150, 0, record_firing, 1, 1, 0},  // a one-shot descriptor stops
            {VXU_TMR_TYPE_FD, 0, 1, record_firing, 0, 0, 1},    // interval 0 never fires
        };
        std::vector<int> ids;
        for (size_t i = 0; i < (fds ? 8 : 5); ++i) {
            ids.push_back(vxu_tmr_create(plans[i].type));
            ASSERT_EQ(0, vxu_tmr_set(ids[i], plans[i].ms, plans[i].repeat, plans[i].cb, i + 1));
            ASSERT_EQ(0, vxu_tmr_start(ids[i]));
        }
        ASSERT_EQ(0, vxu_tmr_init()) << "the same service";
        EXPECT_EQ(static_cast<int>(ids.size()), ids.back()) << "ids from 1 up";
        sleep_ms(1000);
        for (size_t i = 0; i < ids.size(); ++i) {
            const std::vector<firing> got = firings(ids[i]);
            EXPECT_TRUE(got.size() >= plans[i].least && got.size() <= plans[i].most)
                << i << ": " << got.size();
            EXPECT_EQ(plans[i].status, vxu_tmr_status(ids[i])) << i;
            for (const firing &f : got)
                EXPECT_EQ(i + 1, f.arg) << i;
        }
        EXPECT_LT(firings(ids[0]).at(1).at_ms, firings(ids[1]).at(0).at_ms) << "100 ms twice first";

        // A set restarts a running timer from now; a stop or a delete ends
        // its callbacks, but for one under way.
        ASSERT_EQ(0, vxu_tmr_set(ids[1], 150, 0, record_firing, 99));
        ASSERT_EQ(0, vxu_tmr_stop(ids[0]) + vxu_tmr_delete(ids[4]));
        const size_t stopped = firings(ids[0]).size(), deleted = firings(ids[4]).size();
        ASSERT_TRUE(eventually([&] { return firings(ids[1]).back().arg == 99; }));
        sleep_ms(250);
        EXPECT_LE(firings(ids[0]).size(), stopped + 1);
        EXPECT_LE(firings(ids[4]).size(), deleted + 1);
        for (int id : ids)
            vxu_tmr_delete(id);
        for (auto fn : {vxu_tmr_start, vxu_tmr_stop, vxu_tmr_status, vxu_tmr_delete})
            EXPECT_EQ(-2, fn(ids[0] + 100)) << "no such timer";
        EXPECT_EQ(-2, vxu_tmr_set(ids[0] + 100, 10, 0, record_firing, 0));
        ASSERT_TRUE(eventually([&] { return vxu_tmr_status(ids.back()) == -2; }));

        // At most 20 stopped timers; running ones do not count.
        for (int i = 0; i < 20; ++i)
            ids.push_back(vxu_tmr_create(VXU_TMR_TYPE_LIST));
        EXPECT_EQ(ids[ids.size() - 20] + 19, ids.back());
        EXPECT_EQ(-1, vxu_tmr_create(VXU_TMR_TYPE_LIST));
        ASSERT_EQ(0, vxu_tmr_set(ids.back(), 100000, 0, nullptr, 0) + vxu_tmr_start(ids.back()));
        EXPECT_EQ(ids.back() + 1, vxu_tmr_create(VXU_TMR_TYPE_LIST));
    });
}

TEST(TmrService, DescriptorTimerWithoutADescriptorDoesNotStart)
{
    SKIP_UNDER_VALGRIND(vxu_test::kDescriptorLimits);
    EXPECT_IN_CHILD([] {
        ASSERT_EQ(0, vxu_tmr_init());
        const int id = vxu_tmr_create(VXU_TMR_TYPE_FD);
        ASSERT_EQ(0, vxu_tmr_set(id, 50, 1, record_firing, 0));
        for (bool above : {false, true}) {
            std::unique_ptr<vxu_test::fds_taken> taken(
                above ? new vxu_test::fds_taken(vxu_test::taken_below{1024})
                      : new vxu_test::fds_taken(vxu_test::leaving_free{0}));
            const int rc = vxu_tmr_start(id);
            EXPECT_TRUE(rc == -1 || !taken->ok()) << "the machine may refuse to go past 1024";
            EXPECT_EQ(0, vxu_tmr_status(id));
        }
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
        EXPECT_TRUE(eventually([&] { return firings(id).size() >= 2; })) << what;
    });
}

}  // namespace
