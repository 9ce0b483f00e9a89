// Changes made by other threads wake a pull that sleeps on the queue.
#include <thread>

#include <vxutil/frame.h>
#include <vxutil/timers.h>

#include "timers/tmrq_test_util.hpp"

namespace {

// Runs change() on another thread while this one sleeps in pull; returns
// how long the pull took in milliseconds.
template <typename Change>
uint64_t pull_woken_by(vxu_tmrq *q, Change change)
{
    std::thread other([&] {
        vxu_os_wait(0, 150000);  // let the pull go to sleep first
        change();
    });
    const uint64_t start = vxu_com_get_uptime_ms();
    vxu_tmrq_item *item = nullptr;
    EXPECT_EQ(0, vxu_tmrq_pull(q, &item)) << "a pull that waited delivers nothing";
    const uint64_t took = vxu_com_get_uptime_ms() - start;
    other.join();
    return took;
}

TEST(TmrqThreads, AddSetAndDeleteWakeASleepingPull)
{
    tmrq_test::queue t(0);
    // An empty queue sleeps for 2 s, a far timer for 60 s: both end at once.
    EXPECT_LT(pull_woken_by(&t.q, [&] { EXPECT_EQ(1, vxu_tmrq_tmr_add(&t.q, 0, 0, 0, 60000, 0)); }),
              1500u);
    EXPECT_LT(pull_woken_by(&t.q, [&] { EXPECT_EQ(0, vxu_tmrq_tmr_set(&t.q, 1, 0, 0, 0, 50000, 0)); }),
              1500u);
    EXPECT_LT(pull_woken_by(&t.q, [&] { EXPECT_EQ(0, vxu_tmrq_tmr_del(&t.q, 1)); }), 1500u);

    // A timer added from elsewhere is delivered once due.
    std::thread adder([&] { vxu_tmrq_tmr_add(&t.q, 42, 0, 0, 100, 0); });
    vxu_tmrq_item *item = tmrq_test::pull_next(&t.q, 5000);
    adder.join();
    ASSERT_NE(nullptr, item);
    EXPECT_EQ(42u, item->param1);
    vxu_tmrq_item_free(&t.q, item);
}

}  // namespace
