#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <sys/ioctl.h>

#include <vector>

#include <vxutil/frame.h>
#include <vxutil/timers.h>

#include "common/test_support.hpp"
#include "timers/tmrq_test_queue.hpp"

namespace {

using tmrq_test::queue;

uint64_t us_of(uint32_t sec, uint32_t usec) { return uint64_t{sec} * 1000000 + usec; }

uint64_t uptime_us()
{
    uint32_t sec = 0, usec = 0;
    vxu_com_get_uptime(&sec, &usec);
    return us_of(sec, usec);
}

TEST(Tmrq, InitAddAndDueTimes)
{
    EXPECT_EQ(-1, vxu_tmrq_init(nullptr, 0));
    EXPECT_EQ(100, queue(0).q.max_timers);
    const uint64_t before = uptime_us();
    queue t(2);
    unsigned sec = 0, usec = 0;
    char nl = 0;
    ASSERT_EQ(3, sscanf(t.printed.c_str(), "curr boot time : sec=%u, usec=%u%c", &sec, &usec, &nl))
        << t.printed;
    EXPECT_EQ('\n', nl);
    EXPECT_LE(before / 1000000, sec);
    EXPECT_GE(before / 1000000 + 1, sec);
    for (int fd : {t.q.wfd, t.q.rfd})
        EXPECT_TRUE((fcntl(fd, F_GETFL) & O_NONBLOCK) && !(fcntl(fd, F_GETFD) & FD_CLOEXEC));

    EXPECT_EQ(1, vxu_tmrq_tmr_add(&t.q, 11, 12, 13, 1500, 0));
    const uint64_t after = uptime_us();
    EXPECT_EQ(2, vxu_tmrq_tmr_add(&t.q, 0, 0, 0, 999, 1));
    EXPECT_EQ(-1, vxu_tmrq_tmr_add(&t.q, 0, 0, 0, 10, 0)) << "capacity 2";
    EXPECT_EQ(-1, vxu_tmrq_tmr_add(nullptr, 0, 0, 0, 10, 0));
    ASSERT_EQ((std::vector<int>{2, 1}), t.ids());
    const vxu_tmrq_item *item = t.item(1);
    EXPECT_EQ(11u, item->param1);
    EXPECT_EQ(13u, item->param3);
    EXPECT_LT(item->expire_usec, 1000000u);
    EXPECT_GE(us_of(item->expire_sec, item->expire_usec), before + 1500000);
    EXPECT_LE(us_of(item->expire_sec, item->expire_usec), after + 1500000);

    // Set moves the due time to now plus the new interval; the ids wrap.
    EXPECT_EQ(0, vxu_tmrq_tmr_set(&t.q, 1, 7, 8, 9, 200, 1));
    EXPECT_EQ((std::vector<int>{1, 2}), t.ids());
    EXPECT_EQ(7u, t.item(0)->param1);
    EXPECT_LT(us_of(t.item(0)->expire_sec, t.item(0)->expire_usec), uptime_us() + 200000 + 1);
    EXPECT_EQ(1, vxu_tmrq_tmr_set(&t.q, 99, 0, 0, 0, 5, 0));
    EXPECT_EQ(-1, vxu_tmrq_tmr_set(nullptr, 1, 0, 0, 0, 5, 0));
    EXPECT_EQ(0, vxu_tmrq_tmr_del(&t.q, 2));
    EXPECT_EQ(0, vxu_tmrq_tmr_del(&t.q, 99));
    EXPECT_EQ(-1, vxu_tmrq_tmr_del(nullptr, 1));
    EXPECT_EQ(0, vxu_tmrq_tmr_is_exist(&t.q, 2));
    EXPECT_EQ(0, vxu_tmrq_tmr_is_exist(nullptr, 1));
    t.q.last_id = INT_MAX;
    EXPECT_EQ(1, vxu_tmrq_tmr_add(&t.q, 0, 0, 0, 10, 0));
    EXPECT_EQ(4, t.pending_bytes())
        << "a byte for each insertion (adds and sets), none for deletes";
}

TEST(Tmrq, InsertionSortsBehindEqualDueTimes)
{
    queue t(0);
    const uint32_t plan[][3] = {{1, 5, 500}, {2, 4, 999999}, {3, 5, 500},
                                {4, 5, 0},   {5, 6, 0},      {6, 4, 999999}};
    ASSERT_EQ(0, pthread_mutex_lock(&t.q.mutex));
    for (const auto &p : plan) {
        auto *item =
            static_cast<vxu_tmrq_item *>(_vxu_mem_alloc("test", __LINE__, sizeof(vxu_tmrq_item)));
        item->id = static_cast<int>(p[0]);
        item->expire_sec = p[1];
        item->expire_usec = p[2];
        EXPECT_EQ(0, _tmr_list_insert(&t.q, item));
    }
    ASSERT_EQ(0, pthread_mutex_unlock(&t.q.mutex));
    EXPECT_EQ((std::vector<int>{2, 6, 4, 1, 3, 5}), t.ids());
    EXPECT_EQ(6, t.pending_bytes()) << "a byte wherever the record lands";
}

TEST(Tmrq, PullDeliversOneDueTimerPerCall)
{
    queue t(0);
    const int late = vxu_tmrq_tmr_add(&t.q, 0, 0, 0, 300, 0);
    const int early = vxu_tmrq_tmr_add(&t.q, 0, 0, 0, 100, 0);
    const int repeating = vxu_tmrq_tmr_add(&t.q, 0, 0, 0, 200, 1);
    std::vector<int> order;
    vxu_tmrq_item *item = nullptr;
    while (order.size() < 4 && (item = t.pull_next(3000))) {
        order.push_back(item->id);
        EXPECT_EQ(0, vxu_tmrq_item_free(&t.q, item));
        if (order.back() == repeating && order.size() == 2) {
            EXPECT_EQ(1, vxu_tmrq_tmr_is_exist(&t.q, repeating))
                << "not released, back in the list";
            EXPECT_EQ(0, vxu_tmrq_tmr_set(&t.q, repeating, 0, 0, 0, 400, 0));
        }
    }
    EXPECT_EQ((std::vector<int>{early, repeating, late, repeating}), order);
    EXPECT_TRUE(t.ids().empty());

    // Due together, they come out over successive calls in insertion order.
    const int a = vxu_tmrq_tmr_add(&t.q, 0, 0, 0, 0, 0);
    const int b = vxu_tmrq_tmr_add(&t.q, 0, 0, 0, 0, 0);
    for (int id : {a, b}) {
        ASSERT_EQ(1, vxu_tmrq_pull(&t.q, &item));
        EXPECT_EQ(id, item->id);
        EXPECT_EQ(nullptr, item->link.next);
        vxu_tmrq_item_free(&t.q, item);
    }
    EXPECT_EQ(-1, vxu_tmrq_pull(nullptr, &item));
    EXPECT_EQ(-1, vxu_tmrq_pull(&t.q, nullptr));
    const uint64_t start = vxu_com_get_uptime_ms();
    EXPECT_EQ(0, vxu_tmrq_pull(&t.q, &item)) << "the bytes of the adds";
    EXPECT_EQ(0, vxu_tmrq_pull(&t.q, &item)) << "an empty queue waits 2 s";
    EXPECT_GE(vxu_com_get_uptime_ms() - start, 1950u);
    EXPECT_LT(vxu_com_get_uptime_ms() - start, 6000u);
}

TEST(Tmrq, QueueWithoutAPairRefusesToWait)
{
    vxu_test::for_each_pair_pressure([](const char *what) {
        vxu_tmrq q;
        ASSERT_EQ(0, vxu_tmrq_init(&q, 0)) << what;
        EXPECT_EQ(-1, q.wfd) << what;
        EXPECT_EQ(-1, q.rfd) << what;
        EXPECT_EQ(-1, vxu_tmrq_tmr_add(&q, 0, 0, 0, 0, 0)) << "no byte written";
        EXPECT_EQ(1, vxu_tmrq_tmr_is_exist(&q, 1)) << "queued all the same";
        vxu_tmrq_item *item;
        EXPECT_EQ(-1, vxu_tmrq_pull(&q, &item)) << "must not wait";
        EXPECT_EQ(0, vxu_tmrq_tmr_del(&q, 1));
    });
}

}  // namespace
