#include <fcntl.h>
#include <limits.h>
#include <stdio.h>

#include <vxutil/frame.h>
#include <vxutil/timers.h>

#include "common/fd_pressure.hpp"
#include "common/test_support.hpp"
#include "timers/tmrq_test_util.hpp"

using tmrq_test::ids;
using tmrq_test::pending_bytes;
using tmrq_test::pull_next;
using tmrq_test::queue;

namespace {

uint64_t uptime_us_of(uint32_t sec, uint32_t usec) { return uint64_t{sec} * 1000000 + usec; }

uint64_t uptime_us()
{
    uint32_t sec, usec;
    EXPECT_EQ(0, vxu_com_get_uptime(&sec, &usec));
    return uptime_us_of(sec, usec);
}

TEST(TmrqInit, PrintsTheUptimeAndSetsUpAnEmptyQueue)
{
    EXPECT_EQ(-1, vxu_tmrq_init(nullptr, 0));
    const uint64_t before = uptime_us();
    queue t(0);
    ASSERT_EQ(0, t.init_result);
    unsigned sec = 0, usec = 0;
    char nl = 0;
    ASSERT_EQ(3, sscanf(t.printed.c_str(), "curr boot time : sec=%u, usec=%u%c", &sec, &usec, &nl))
        << t.printed;
    EXPECT_EQ('\n', nl);
    EXPECT_LE(before / 1000000, sec);
    EXPECT_LT(usec, 1000000u);
    EXPECT_EQ(100, t.q.max_timers);
    EXPECT_EQ(0, t.q.last_id);
    EXPECT_TRUE(ids(t.q).empty());
    for (int fd : {t.q.wfd, t.q.rfd}) {
        ASSERT_GE(fd, 0);
        EXPECT_TRUE(fcntl(fd, F_GETFL) & O_NONBLOCK);
        EXPECT_FALSE(fcntl(fd, F_GETFD) & FD_CLOEXEC);
    }
}

TEST(TmrqAdd, IdsCapacityAndDueTimes)
{
    queue t(2);
    const uint64_t before = uptime_us();
    EXPECT_EQ(1, vxu_tmrq_tmr_add(&t.q, 11, 12, 13, 1500, 0));
    const uint64_t after = uptime_us();
    EXPECT_EQ(2, vxu_tmrq_tmr_add(&t.q, 0, 0, 0, 999, 1));
    EXPECT_EQ(-1, vxu_tmrq_tmr_add(&t.q, 0, 0, 0, 10, 0)) << "capacity 2";
    EXPECT_EQ(-1, vxu_tmrq_tmr_add(nullptr, 0, 0, 0, 10, 0));
    EXPECT_EQ(2, pending_bytes(t.q)) << "one byte per insertion";

    ASSERT_EQ((std::vector<int>{2, 1}), ids(t.q));
    const vxu_tmrq_item *first = tmrq_test::item_of(t.q.timers.next->next);
    EXPECT_EQ(11u, first->param1);
    EXPECT_EQ(12u, first->param2);
    EXPECT_EQ(13u, first->param3);
    EXPECT_EQ(1500u, first->interval_ms);
    EXPECT_LT(first->expire_usec, 1000000u);
    const uint64_t due = uptime_us_of(first->expire_sec, first->expire_usec);
    EXPECT_GE(due, before + 1500000);
    EXPECT_LE(due, after + 1500000);

    // The identifier counter wraps to 1 past the largest int.
    vxu_tmrq_tmr_del(&t.q, 2);
    t.q.last_id = INT_MAX;
    EXPECT_EQ(1, vxu_tmrq_tmr_add(&t.q, 0, 0, 0, 10, 0));
}

// Records with hand-set due times, inserted the way the queue does.
TEST(TmrqInsert, SortsByDueTimeBehindEqualOnes)
{
    queue t(0);
    const struct {
        int id;
        uint32_t sec, usec;
    } plan[] = {{1, 5, 500}, {2, 4, 999999}, {3, 5, 500}, {4, 5, 0}, {5, 6, 0}, {6, 4, 999999}};
    ASSERT_EQ(0, pthread_mutex_lock(&t.q.mutex));
    for (const auto &p : plan) {
        auto *item = static_cast<vxu_tmrq_item *>(_vxu_mem_alloc("test", __LINE__, sizeof(vxu_tmrq_item)));
        item->id = p.id;
        item->expire_sec = p.sec;
        item->expire_usec = p.usec;
        EXPECT_EQ(0, _tmr_list_insert(&t.q, item));
    }
    ASSERT_EQ(0, pthread_mutex_unlock(&t.q.mutex));
    EXPECT_EQ((std::vector<int>{2, 6, 4, 1, 3, 5}), ids(t.q));
    EXPECT_EQ(6, pending_bytes(t.q)) << "a byte wherever the record lands";
    EXPECT_EQ(-1, _tmr_list_insert(&t.q, nullptr));
}

TEST(TmrqPull, DeliversEarliestFirstOnePerCall)
{
    queue t(0);
    const int late = vxu_tmrq_tmr_add(&t.q, 300, 0, 0, 300, 0);
    const int early = vxu_tmrq_tmr_add(&t.q, 100, 0, 0, 100, 0);
    const int mid = vxu_tmrq_tmr_add(&t.q, 200, 0, 0, 200, 0);
    std::vector<int> order;
    for (int i = 0; i < 3; ++i) {
        vxu_tmrq_item *item = pull_next(&t.q, 5000);
        ASSERT_NE(nullptr, item);
        order.push_back(item->id);
        EXPECT_EQ(nullptr, item->link.next);
        EXPECT_EQ(0, vxu_tmrq_tmr_is_exist(&t.q, item->id)) << "one-shot leaves the list";
        EXPECT_EQ(0, vxu_tmrq_item_free(&t.q, item));
    }
    EXPECT_EQ((std::vector<int>{early, mid, late}), order);

    // Timers due at once come out one per call, in insertion order.
    const int a = vxu_tmrq_tmr_add(&t.q, 0, 0, 0, 0, 0);
    const int b = vxu_tmrq_tmr_add(&t.q, 0, 0, 0, 0, 0);
    vxu_tmrq_item *item;
    ASSERT_EQ(1, vxu_tmrq_pull(&t.q, &item));
    EXPECT_EQ(a, item->id);
    vxu_tmrq_item_free(&t.q, item);
    ASSERT_EQ(1, vxu_tmrq_pull(&t.q, &item));
    EXPECT_EQ(b, item->id);
    vxu_tmrq_item_free(&t.q, item);
    EXPECT_EQ(0, vxu_tmrq_tmr_del(&t.q, b)) << "delivered id is gone";

    EXPECT_EQ(-1, vxu_tmrq_pull(nullptr, &item));
    EXPECT_EQ(-1, vxu_tmrq_pull(&t.q, nullptr));
}

TEST(TmrqPull, RepeatingTimerStaysOwnedByTheQueue)
{
    queue t(0);
    const int id = vxu_tmrq_tmr_add(&t.q, 1, 2, 3, 100, 1);
    vxu_tmrq_item *first = pull_next(&t.q, 5000);
    ASSERT_NE(nullptr, first);
    const uint64_t first_at = vxu_com_get_uptime_ms();
    EXPECT_EQ(id, first->id);
    EXPECT_EQ(0, vxu_tmrq_item_free(&t.q, first));
    EXPECT_EQ(1, vxu_tmrq_tmr_is_exist(&t.q, id)) << "the record is back in the list";

    vxu_tmrq_item *second = pull_next(&t.q, 5000);
    ASSERT_EQ(first, second) << "the same record comes round again";
    EXPECT_GE(vxu_com_get_uptime_ms() - first_at, 95u);

    // Made one-shot, it leaves the list at its next delivery.
    EXPECT_EQ(0, vxu_tmrq_tmr_set(&t.q, id, 1, 2, 3, 0, 0));
    vxu_tmrq_item *last = pull_next(&t.q, 5000);
    ASSERT_EQ(first, last);
    EXPECT_EQ(0, vxu_tmrq_tmr_is_exist(&t.q, id));
    vxu_tmrq_item_free(&t.q, last);
}

TEST(TmrqSetDel, ChangeOrRemoveQueuedTimers)
{
    queue t(0);
    const int id = vxu_tmrq_tmr_add(&t.q, 0, 0, 0, 60000, 0);
    const int other = vxu_tmrq_tmr_add(&t.q, 0, 0, 0, 30000, 0);
    EXPECT_EQ(1, vxu_tmrq_tmr_set(&t.q, 999, 0, 0, 0, 5, 0));
    EXPECT_EQ(-1, vxu_tmrq_tmr_set(nullptr, id, 0, 0, 0, 5, 0));
    const uint64_t before = uptime_us();
    EXPECT_EQ(0, vxu_tmrq_tmr_set(&t.q, id, 7, 8, 9, 2000, 1));
    ASSERT_EQ((std::vector<int>{id, other}), ids(t.q)) << "moved ahead by its new due time";
    const vxu_tmrq_item *item = tmrq_test::item_of(t.q.timers.next);
    EXPECT_EQ(7u, item->param1);
    EXPECT_EQ(9u, item->param3);
    EXPECT_EQ(1u, item->repeat);
    EXPECT_GE(uptime_us_of(item->expire_sec, item->expire_usec), before + 2000000);
    EXPECT_LT(uptime_us_of(item->expire_sec, item->expire_usec), uptime_us() + 2000000);

    EXPECT_EQ(0, vxu_tmrq_tmr_del(&t.q, 999));
    EXPECT_EQ(-1, vxu_tmrq_tmr_del(nullptr, id));
    EXPECT_EQ(0, vxu_tmrq_tmr_is_exist(nullptr, id));
    EXPECT_EQ(0, vxu_tmrq_tmr_del(&t.q, id));
    EXPECT_EQ(0, vxu_tmrq_tmr_is_exist(&t.q, id));
    EXPECT_EQ((std::vector<int>{other}), ids(t.q));
}

TEST(TmrqPull, EmptyQueueWaitsTwoSeconds)
{
    queue t(0);
    vxu_tmrq_item *item;
    const uint64_t start = vxu_com_get_uptime_ms();
    EXPECT_EQ(0, vxu_tmrq_pull(&t.q, &item));
    const uint64_t waited = vxu_com_get_uptime_ms() - start;
    EXPECT_GE(waited, 1950u);
    EXPECT_LT(waited, 6000u);
}

TEST(TmrqPull, QueueWithoutAPairRefusesToWait)
{
    EXPECT_IN_CHILD([] {
        vxu_test::low_fds_taken high;
        if (!high.ok())
            GTEST_SKIP() << "cannot raise the descriptor limit past 1024";
        vxu_test::fd_leak_check leaks;
        queue t(0);
        ASSERT_EQ(0, t.init_result);
        EXPECT_EQ(-1, t.q.wfd);
        EXPECT_EQ(-1, t.q.rfd);
        EXPECT_EQ(-1, vxu_tmrq_tmr_add(&t.q, 0, 0, 0, 0, 0)) << "no byte written";
        EXPECT_EQ(1, vxu_tmrq_tmr_is_exist(&t.q, 1)) << "queued all the same";
        vxu_tmrq_item *item;
        EXPECT_EQ(-1, vxu_tmrq_pull(&t.q, &item));
    });
}

}  // namespace
