#include <fcntl.h>
#include <limits.h>
#include <stddef.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <tuple>
#include <random>

#include "timers/tmr_test_util.hpp"

namespace {

std::vector<int> ids(vxu_tmrq &q)
{
    std::vector<int> out;
    for (vxu_list_link *l = q.timers.next; l != &q.timers; l = l->next)
        out.push_back(reinterpret_cast<vxu_tmrq_item *>(reinterpret_cast<char *>(l) -
                                                        offsetof(vxu_tmrq_item, link))
                          ->id);
    return out;
}

// The queue has no teardown: its timers are deleted and its pair closed.
void drop(vxu_tmrq &q)
{
    for (int id : ids(q))
        vxu_tmrq_tmr_del(&q, id);
    close(q.wfd);
    close(q.rfd);
}

// Random adds, sets, deletes, existence tests and pulls against a model.
// Intervals are 0 (due at once) or far apart (never due during the test),
// so the list is in order of (interval, arming); every insertion, and
// nothing else, leaves a wake-up byte; a pull with nothing due drains up to
// 16 of them instead of sleeping. The ids start near INT_MAX to wrap.
TEST(Tmrq, RandomOperationsMatchAModel)
{
    const unsigned seed = 7;
    std::mt19937 rng(seed);
    vxu_tmrq q;
    ASSERT_EQ(0, vxu_tmrq_init(&q, 6));
    int last_id = q.last_id = INT_MAX - 3, bytes = 0;
    std::vector<std::pair<uint64_t, vxu_tmrq_item>> model;  // (interval, arming) key, fields
    for (uint64_t step = 0; step < 3000; ++step) {
        SCOPED_TRACE(testing::Message() << "seed " << seed << " step " << step);
        const int id = model.empty() || rng() % 5 == 0 ? static_cast<int>(rng() % 8)
                                                       : model[rng() % model.size()].second.id;
        vxu_tmrq_item f = {};
        f.param1 = rng(), f.param2 = uint64_t{rng()} << 32, f.param3 = rng(), f.id = id;
        f.interval_ms = rng() % 3 ? 0 : 1000000 * (rng() % 3 + 1), f.repeat = rng() % 2;
        const uint64_t key = uint64_t{f.interval_ms} << 20 | step;
        const auto it = std::find_if(model.begin(), model.end(),
                                     [id](const auto &t) { return t.second.id == id; });
        vxu_tmrq_item *item = nullptr;
        switch (rng() % 6) {
        case 0:
        case 1:
            f.id = model.size() >= 6 ? -1 : last_id == INT_MAX ? 1 : last_id + 1;
            ASSERT_EQ(f.id,
                      vxu_tmrq_tmr_add(&q, f.param1, f.param2, f.param3, f.interval_ms, f.repeat));
            if (f.id > 0)
                model.emplace_back(key, f), last_id = f.id, ++bytes;
            break;
        case 2:
            ASSERT_EQ(it == model.end(), vxu_tmrq_tmr_set(&q, id, f.param1, f.param2, f.param3,
                                                          f.interval_ms, f.repeat));
            if (it != model.end())
                *it = {key, f}, ++bytes;
            break;
        case 3:
            ASSERT_EQ(0, vxu_tmrq_tmr_del(&q, id));
            if (it != model.end())
                model.erase(it);
            break;
        case 4:
            ASSERT_EQ(it != model.end(), vxu_tmrq_tmr_is_exist(&q, id));
            break;
        default:
            if (!model.empty() && model[0].second.interval_ms == 0) {  // the head is due
                ASSERT_EQ(1, vxu_tmrq_pull(&q, &item));
                const vxu_tmrq_item &w = model[0].second;
                EXPECT_EQ(std::tie(w.id, w.param1, w.param2, w.param3, w.interval_ms, w.repeat),
                          std::tie(item->id, item->param1, item->param2, item->param3,
                                   item->interval_ms, item->repeat));
                EXPECT_TRUE(item->expire_usec < 1000000 && !item->link.next == !w.repeat)
                    << w.repeat;
                EXPECT_EQ(0, vxu_tmrq_item_free(&q, item));
                if (w.repeat)
                    model[0].first = step, ++bytes;  // back in the list, one interval on
                else
                    model.erase(model.begin());
            } else if (bytes > 0) {  // a pull that finds nothing due drains and returns
                ASSERT_EQ(0, vxu_tmrq_pull(&q, &item));
                bytes -= std::min(bytes, 16);
            }
        }
        std::stable_sort(model.begin(), model.end(),
                         [](const auto &a, const auto &b) { return a.first < b.first; });
        std::vector<int> expected;
        for (const auto &t : model)
            expected.push_back(t.second.id);
        ASSERT_EQ(expected, ids(q));
        int unread = -1;
        ioctl(q.rfd, FIONREAD, &unread);
        ASSERT_EQ(bytes, unread) << "one wake-up byte per insertion";
        char drained[64];  // due repeating timers keep pulls from draining the pair
        if (bytes > 100)
            bytes -= static_cast<int>(read(q.rfd, drained, sizeof drained));
    }
    drop(q);
}

TEST(Tmrq, InsertionGoesBehindEqualDueTimes)
{
    vxu_tmrq q;
    ASSERT_EQ(0, vxu_tmrq_init(&q, 0));
    const uint32_t due[][2] = {{5, 500}, {4, 999999}, {5, 500}, {5, 0}, {6, 0}, {4, 999999}};
    ASSERT_EQ(0, pthread_mutex_lock(&q.mutex));
    for (int i = 0; i < 6; ++i) {
        auto *item =
            static_cast<vxu_tmrq_item *>(_vxu_mem_alloc("test", __LINE__, sizeof(vxu_tmrq_item)));
        item->id = i + 1;
        item->expire_sec = due[i][0];
        item->expire_usec = due[i][1];
        EXPECT_EQ(0, _tmr_list_insert(&q, item));
    }
    ASSERT_EQ(0, pthread_mutex_unlock(&q.mutex));
    EXPECT_EQ((std::vector<int>{2, 6, 4, 1, 3, 5}), ids(q));
    drop(q);
}

// Real waits: init's line, the pull order by due time, the empty queue's
// two-second wait, and the null arguments.
TEST(Tmrq, PullWaitsForTheEarliestTimer)
{
    vxu_tmrq q;
    EXPECT_EQ(-1, vxu_tmrq_init(nullptr, 0));
    testing::internal::CaptureStdout();
    const uint64_t boot = vxu_com_get_uptime_ms() / 1000;
    ASSERT_EQ(0, vxu_tmrq_init(&q, 0));
    const std::string printed = testing::internal::GetCapturedStdout();
    unsigned sec = 99, usec = 0;
    char nl = 0;
    ASSERT_EQ(3, sscanf(printed.c_str(), "curr boot time : sec=%u, usec=%u%c", &sec, &usec, &nl))
        << printed;
    EXPECT_TRUE(nl == '\n' && sec >= boot && sec <= boot + 1 && usec < 1000000) << printed;
    EXPECT_EQ(100, q.max_timers);
    for (int fd : {q.wfd, q.rfd})
        EXPECT_TRUE((fcntl(fd, F_GETFL) & O_NONBLOCK) && !(fcntl(fd, F_GETFD) & FD_CLOEXEC));

    const uint64_t start = vxu_com_get_uptime_ms();
    for (uint32_t ms : {300, 100, 200})
        ASSERT_GT(vxu_tmrq_tmr_add(&q, ms, 0, 0, ms, 0), 0);
    vxu_tmrq_item *item = nullptr;
    for (uint64_t ms : {100, 200, 300}) {
        while (vxu_tmrq_pull(&q, &item) == 0 && vxu_com_get_uptime_ms() < start + 5000) {
        }
        ASSERT_NE(nullptr, item);
        const uint64_t at = vxu_com_get_uptime_ms() - start;
        EXPECT_EQ(ms, item->param1);
        EXPECT_TRUE(at >= ms && at < ms + 700) << "delivered after " << at << " ms";
        vxu_tmrq_item_free(&q, item);
    }
    EXPECT_EQ(-1, vxu_tmrq_pull(nullptr, &item));
    EXPECT_EQ(-1, vxu_tmrq_pull(&q, nullptr));
    EXPECT_EQ(0, vxu_tmrq_tmr_is_exist(nullptr, 1));
    EXPECT_EQ(-1, vxu_tmrq_tmr_add(nullptr, 0, 0, 0, 0, 0));
    EXPECT_EQ(-1, vxu_tmrq_tmr_set(nullptr, 1, 0, 0, 0, 0, 0));
    EXPECT_EQ(-1, vxu_tmrq_tmr_del(nullptr, 1));
    const uint64_t idle = vxu_com_get_uptime_ms();
    EXPECT_EQ(0, vxu_tmrq_pull(&q, &item)) << "an empty queue waits 2 s";
    EXPECT_TRUE(vxu_com_get_uptime_ms() - idle >= 1950 && vxu_com_get_uptime_ms() - idle < 6000);
    drop(q);
}

TEST(Tmrq, QueueWithoutAPairRefusesToWait)
{
    vxu_test::for_each_pair_pressure([](const char *what) {
        vxu_tmrq q;
        ASSERT_EQ(0, vxu_tmrq_init(&q, 0)) << what;
        EXPECT_TRUE(q.wfd == -1 && q.rfd == -1);
        EXPECT_EQ(-1, vxu_tmrq_tmr_add(&q, 0, 0, 0, 0, 0)) << "no byte written";
        EXPECT_EQ(-1, vxu_tmrq_tmr_set(&q, 1, 0, 0, 0, 0, 0)) << "no byte written";
        EXPECT_EQ(1, vxu_tmrq_tmr_is_exist(&q, 1)) << "queued all the same";
        vxu_tmrq_item *item;
        EXPECT_EQ(-1, vxu_tmrq_pull(&q, &item)) << "must not wait";
        EXPECT_EQ(0, vxu_tmrq_tmr_del(&q, 1));
    });
}

}  // namespace
