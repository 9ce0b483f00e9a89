#include <fcntl.h>
#include <limits.h>
#include <sched.h>
#include <sys/ioctl.h>

#include <deque>
#include <random>
#include <atomic>
#include <thread>

#include <vxutil/frame.h>
#include <vxutil/queues.h>

#include "common/test_support.hpp"

namespace {

int unread_bytes(const vxu_cmdq &q)
{
    int n = -1;
    ioctl(q.rfd, FIONREAD, &n);
    return n;
}

// Random pushes (with and without payload) and polling pulls against a
// bounded deque: order, capacity refusals, private payload copies and one
// wake-up byte per queued record; then the calls that must refuse.
TEST(Cmdq, RandomPushesAndPullsMatchAModel)
{
    const unsigned seed = 11;
    std::mt19937 rng(seed);
    vxu_cmdq q;
    vxu_cmdq_item *item = nullptr;
    for (int capacity : {0, 3}) {
        ASSERT_EQ(0, vxu_cmdq_init(&q, capacity));
        const size_t most = capacity < 1 ? 100 : static_cast<size_t>(capacity);
        EXPECT_EQ(q.rfd, vxu_cmdq_get_fd(&q));
        for (int fd : {q.wfd, q.rfd})
            EXPECT_TRUE((fcntl(fd, F_GETFL) & O_NONBLOCK) && (fcntl(fd, F_GETFD) & FD_CLOEXEC));
        std::deque<std::pair<uint64_t, std::vector<char>>> model;
        for (int step = 0; step < 500; ++step) {
            SCOPED_TRACE(testing::Message()
                         << "seed " << seed << " capacity " << capacity << " step " << step);
            if (rng() % 4) {
                const uint64_t cmd = rng();
                std::vector<char> buf(rng() % 24, static_cast<char>(step)), copy = buf;
                const bool with_data = rng() % 4, full = model.size() >= most;
                ASSERT_EQ(full ? 1 : 0, vxu_cmdq_cmd_push(&q, cmd, with_data ? buf.data() : nullptr,
                                                          static_cast<int>(buf.size())));
                buf.assign(buf.size(), 'X');  // the queue keeps its own copy
                copy.resize(with_data ? copy.size() : 0);
                if (!full)
                    model.emplace_back(cmd, copy);
            } else if (model.empty()) {
                ASSERT_EQ(0, vxu_cmdq_pull(&q, 0, &item));
                ASSERT_EQ(nullptr, item);
            } else {
                ASSERT_EQ(1, vxu_cmdq_pull(&q, 0, &item));
                EXPECT_EQ(0, vxu_cmdq_item_free(nullptr, item)) << "must not release";
                EXPECT_EQ(model.front().first, item->cmd);
                EXPECT_EQ(static_cast<void *>(item + 1), item->data) << "payload behind the header";
                const char *data = static_cast<char *>(item->data);
                EXPECT_EQ(model.front().second, std::vector<char>(data, data + item->len));
                EXPECT_EQ(nullptr, item->link.next);
                EXPECT_EQ(0, vxu_cmdq_item_free(&q, item));
                model.pop_front();
            }
            ASSERT_EQ(static_cast<int>(model.size()), unread_bytes(q)) << "a byte per record";
        }
        for (; vxu_cmdq_pull(&q, 0, &item) == 1; model.pop_front())
            vxu_cmdq_item_free(&q, item);
        EXPECT_TRUE(model.empty());
        if (capacity)
            break;  // keep the last queue for the refusals
        close(q.wfd);
        close(q.rfd);
    }
    EXPECT_EQ(-1, vxu_cmdq_init(nullptr, 3));
    EXPECT_EQ(-1, vxu_cmdq_cmd_push(nullptr, 1, &item, 1));
    EXPECT_EQ(-1, vxu_cmdq_cmd_push(&q, 1, &item, -1));
    EXPECT_EQ(-1, vxu_cmdq_cmd_push(&q, 1, &item, INT_MAX)) << "block size not positive";
    EXPECT_EQ(-1, vxu_cmdq_pull(nullptr, 0, &item));
    EXPECT_EQ(-1, vxu_cmdq_pull(&q, 0, nullptr));
    EXPECT_EQ(-1, vxu_cmdq_pull(&q, -1, &item)) << "invalid time-out";
    const uint64_t start = vxu_com_get_uptime_ms();
    EXPECT_EQ(0, vxu_cmdq_pull(&q, 250, &item)) << "times out";
    EXPECT_GE(vxu_com_get_uptime_ms() - start, 240u);
    EXPECT_LT(vxu_com_get_uptime_ms() - start, 3000u);
    close(q.wfd);
    close(q.rfd);
}

TEST(Cmdq, QueueWithoutAPairRefusesToWait)
{
    vxu_test::for_each_pair_pressure([](const char *what) {
        vxu_cmdq q;
        ASSERT_EQ(0, vxu_cmdq_init(&q, 0)) << what;
        EXPECT_TRUE(q.wfd == -1 && q.rfd == -1);
        vxu_cmdq_item *item;
        EXPECT_EQ(-1, vxu_cmdq_pull(&q, 5000, &item)) << "must not wait";
        EXPECT_EQ(-1, vxu_cmdq_cmd_push(&q, 1, nullptr, 0)) << "queued, nobody woken";
        ASSERT_NE(&q.items, q.items.next);
        vxu_cmdq_item_free(
            &q, reinterpret_cast<vxu_cmdq_item *>(reinterpret_cast<char *>(q.items.next) -
                                                  offsetof(vxu_cmdq_item, link)));
    });
}

// Eight producers push their sequence numbers into a queue of 16 and retry
// when refused; one consumer pulls. Every number arrives once and in order.
TEST(CmdqThreads, EightProducersOneConsumerAtASmallCapacity)
{
    constexpr uint64_t kProducers = 8, kPerProducer = 20000;
    vxu_cmdq q;
    ASSERT_EQ(0, vxu_cmdq_init(&q, 16));
    std::atomic<int> failed{0}, full{0};
    std::vector<std::thread> producers;
    for (uint64_t id = 0; id < kProducers; ++id) {
        producers.emplace_back([&q, id, &failed, &full] {
            for (uint64_t seq = 0; seq < kPerProducer; ++seq) {
                int rc;
                for (; (rc = vxu_cmdq_cmd_push(&q, id, &seq, sizeof seq)) == 1; ++full)
                    sched_yield();  // let the consumer catch up
                failed += rc != 0;
            }
        });
    }
    std::vector<uint64_t> next(kProducers, 0);
    uint64_t faults = 0, overfull = 0;
    vxu_cmdq_item *item;
    for (uint64_t n = 0; n < kProducers * kPerProducer && vxu_cmdq_pull(&q, 5000, &item) == 1;
         ++n) {
        const uint64_t from = item->cmd % kProducers;
        faults += item->cmd != from || item->len != 8 || memcmp(item->data, &next[from], 8) != 0;
        ++next[from];
        vxu_cmdq_item_free(&q, item);
        overfull += unread_bytes(q) > 16;
    }
    for (std::thread &p : producers)
        p.join();
    EXPECT_EQ(0, failed.load()) << "only 0 or 1 may come back";
    EXPECT_GT(full.load(), 0) << "the queue never filled";
    EXPECT_EQ(std::vector<uint64_t>(kProducers, kPerProducer), next) << "commands lost";
    EXPECT_EQ(0u, faults) << "repeated, reordered or torn commands";
    EXPECT_EQ(0u, overfull) << "more wake-up bytes waiting than the capacity allows";
    EXPECT_EQ(0, unread_bytes(q)) << "no byte left over";
    EXPECT_EQ(&q.items, q.items.next) << "no record left over";
    close(q.wfd);
    close(q.rfd);
}

}  // namespace
