// The command queue and the pointer FIFO, each against a model, and the
// command queue from eight producer threads.
#include <errno.h>
#include <fcntl.h>
#include <malloc.h>
#include <stddef.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <atomic>
#include <deque>
#include <random>
#include <thread>

#include <vxutil/frame.h>
#include <vxutil/queues.h>

#include "common/test_support.hpp"

namespace {

int unread_bytes(vxu_cmdq &q)  // at the descriptor the consumer watches
{
    int n = -1;
    ioctl(vxu_cmdq_get_fd(&q), FIONREAD, &n);
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
    ASSERT_EQ(0, vxu_cmdq_init(&q, 5));
    for (int fd : {q.wfd, q.rfd})
        EXPECT_TRUE((fcntl(fd, F_GETFL) & O_NONBLOCK) && (fcntl(fd, F_GETFD) & FD_CLOEXEC));
    std::deque<std::pair<uint64_t, std::string>> model;
    for (int step = 0; step < 1000; ++step) {
        SCOPED_TRACE(testing::Message() << "seed " << seed << " step " << step);
        if (rng() % 2) {
            const uint64_t cmd = rng();
            std::string buf(rng() % 24, static_cast<char>(step)), copy = buf;
            const bool with_data = rng() % 4, full = model.size() >= 5;
            ASSERT_EQ(full, vxu_cmdq_cmd_push(&q, cmd, with_data ? buf.data() : nullptr,
                                              static_cast<int>(buf.size())));
            buf.assign(buf.size(), 'X');  // the queue keeps its own copy
            copy.resize(with_data ? copy.size() : 0);
            if (!full)
                model.emplace_back(cmd, copy);
        } else {
            ASSERT_EQ(!model.empty(), vxu_cmdq_pull(&q, 0, &item));
            ASSERT_EQ(model.empty(), item == nullptr);
            if (model.empty())
                continue;
            EXPECT_EQ(0, vxu_cmdq_item_free(nullptr, item)) << "must not release";
            EXPECT_EQ(model.front().first, item->cmd);
            EXPECT_EQ(static_cast<void *>(item + 1), item->data) << "payload behind the header";
            EXPECT_EQ(model.front().second,
                      std::string(static_cast<char *>(item->data), item->len));
            EXPECT_EQ(nullptr, item->link.next);
            EXPECT_EQ(0, vxu_cmdq_item_free(&q, item));
            model.pop_front();
        }
        ASSERT_EQ(static_cast<int>(model.size()), unread_bytes(q)) << "a byte per record";
    }
    while (vxu_cmdq_pull(&q, 0, &item) == 1)
        vxu_cmdq_item_free(&q, item);
    for (int rc : {vxu_cmdq_init(nullptr, 3), vxu_cmdq_cmd_push(nullptr, 1, &item, 1),
                   vxu_cmdq_cmd_push(&q, 1, &item, -1), vxu_cmdq_cmd_push(&q, 1, &item, INT32_MAX),
                   vxu_cmdq_pull(nullptr, 0, &item), vxu_cmdq_pull(&q, 0, nullptr),
                   vxu_cmdq_pull(&q, -1, &item)})
        EXPECT_EQ(-1, rc) << "null queue or out, negative or huge length, negative time-out";
    const uint64_t start = vxu_com_get_uptime_ms();
    EXPECT_EQ(0, vxu_cmdq_pull(&q, 250, &item)) << "times out";
    EXPECT_TRUE(vxu_com_get_uptime_ms() - start >= 240 && vxu_com_get_uptime_ms() - start < 3000);
    close(q.wfd);
    close(q.rfd);
}

TEST(Cmdq, QueueWithoutAPairRefusesToWait)
{
    vxu_test::for_each_pair_pressure([](const char *what) {
        static vxu_cmdq q;  // no teardown: what it holds stays reachable
        ASSERT_EQ(0, vxu_cmdq_init(&q, 0)) << what;
        EXPECT_TRUE(q.wfd == -1 && q.rfd == -1 && q.max_items == 100);
        vxu_cmdq_item *item;
        EXPECT_EQ(-1, vxu_cmdq_pull(&q, 5000, &item)) << "must not wait";
        EXPECT_EQ(-1, vxu_cmdq_cmd_push(&q, 1, nullptr, 0)) << "queued, nobody woken";
        EXPECT_NE(&q.items, q.items.next);
    });
}

// Eight producers push their sequence numbers into a queue of 16 and retry
// when refused; one consumer pulls. Every number arrives once and in order.
TEST(CmdqThreads, EightProducersOneConsumerAtASmallCapacity)
{
    constexpr uint64_t kProducers = 8, kPerProducer = 5000;
    vxu_cmdq q;
    ASSERT_EQ(0, vxu_cmdq_init(&q, 16));
    std::atomic<int> failed{0}, full{0};
    std::atomic<bool> stop{false};  // the consumer gave up: a failure, not a hang
    std::vector<std::thread> producers;
    for (uint64_t id = 0; id < kProducers; ++id) {
        producers.emplace_back([&q, id, &failed, &full, &stop] {
            for (uint64_t seq = 0; seq < kPerProducer && !stop; ++seq) {
                int rc;
                for (; (rc = vxu_cmdq_cmd_push(&q, id, &seq, sizeof seq)) == 1 && !stop; ++full)
                    std::this_thread::yield();  // let the consumer catch up
                failed += rc != 0;
            }
        });
    }
    std::vector<uint64_t> next(kProducers, 0);
    uint64_t faults = 0;
    vxu_cmdq_item *item;
    for (uint64_t n = 0; n < kProducers * kPerProducer && vxu_cmdq_pull(&q, 5000, &item) == 1;
         ++n) {
        uint64_t &expected = next[item->cmd % kProducers];
        faults += item->len != 8 || *static_cast<const uint64_t *>(item->data) != expected++;
        vxu_cmdq_item_free(&q, item);
    }
    stop = true;
    for (std::thread &p : producers)
        p.join();
    EXPECT_EQ(0, failed.load()) << "only 0 or 1 may come back";
    EXPECT_GT(full.load(), 0) << "the queue never filled";
    EXPECT_EQ(std::vector<uint64_t>(kProducers, kPerProducer), next) << "commands lost";
    EXPECT_EQ(0u, faults) << "repeated, reordered or torn commands";
    EXPECT_TRUE(unread_bytes(q) == 0 && q.items.next == &q.items) << "bytes or records left over";
    close(q.wfd);
    close(q.rfd);
}

// Random puts and gets on rings of 0 to 7 slots against a deque that holds
// at most size - 1; null records and pointers are refused throughout.
TEST(Dfifo, RandomPutsAndGetsMatchABoundedDeque)
{
    const unsigned seed = 7;
    std::mt19937 rng(seed);
    int objs[16];
    EXPECT_EQ(-1, dfifo_init(nullptr, 4));
    dfifo_deinit(nullptr);
    for (int round = 0; round < 40; ++round) {
        const int size = static_cast<int>(rng() % 8);
        dfifo_ctx f = {};
        EXPECT_EQ(-1, dfifo_put(&f, &objs[0])) << "not initialised";
        EXPECT_EQ(-1, dfifo_init(&f, -3));
        ASSERT_EQ(0, dfifo_init(&f, size));
        EXPECT_EQ(-1, dfifo_init(&f, 4)) << "already initialised";
        std::deque<void *> model;
        for (int step = 0; step < 60; ++step) {
            SCOPED_TRACE(testing::Message()
                         << "seed " << seed << " size " << size << " step " << step);
            dfifo_ctx *ctx = rng() % 16 ? &f : nullptr;
            if (rng() % 2) {
                void *p = rng() % 8 ? &objs[rng() % 16] : nullptr;
                const bool fits = ctx && p && static_cast<int>(model.size()) < size - 1;
                ASSERT_EQ(fits ? 0 : -1, dfifo_put(ctx, p));
                if (fits)
                    model.push_back(p);
            } else {
                ASSERT_EQ(model.empty() || !ctx ? nullptr : model.front(), dfifo_get(ctx));
                if (ctx && !model.empty())
                    model.pop_front();
            }
        }
        dfifo_deinit(&f);
        EXPECT_EQ(nullptr, f.slots);
    }
    // A ring of 8 MB is mapped on its own, so deinit must unmap it again
    // (sanitizers and valgrind allocate elsewhere and count leaks themselves).
    const size_t mapped = mallinfo2().hblkhd;
    dfifo_ctx f = {};
    ASSERT_EQ(0, dfifo_init(&f, 1 << 20));
    const bool seen = mallinfo2().hblkhd > mapped;
    dfifo_deinit(&f);
    EXPECT_TRUE(!seen || mallinfo2().hblkhd == mapped) << "ring not released";
}

// A daemon that closed one end of the pair gets -1 from the other, never a
// SIGPIPE (which would end the child with 141) or a stale errno's answer.
TEST(Cmdq, ClosedEndsFailWithoutSignalOrStaleErrno)
{
    EXPECT_EQ(-1, vxu_cmdq_get_fd(nullptr));
    EXPECT_IN_CHILD([] {
        vxu_cmdq q;
        ASSERT_EQ(0, vxu_cmdq_init(&q, 4));
        ASSERT_EQ(0, close(q.rfd));
        EXPECT_EQ(-1, vxu_cmdq_cmd_push(&q, 7, "x", 1));  // queued, its byte refused
        vxu_cmdq_item_free(
            &q, reinterpret_cast<vxu_cmdq_item *>(reinterpret_cast<char *>(q.items.next) -
                                                  offsetof(vxu_cmdq_item, link)));
        close(q.wfd);
        ASSERT_EQ(0, vxu_cmdq_init(&q, 4));
        ASSERT_EQ(0, close(q.wfd));
        vxu_cmdq_item *item = nullptr;
        errno = EAGAIN;                              // left by some earlier call
        EXPECT_EQ(-1, vxu_cmdq_pull(&q, 0, &item));  // end of stream
        EXPECT_EQ(nullptr, item);
        close(q.rfd);
    });
}

}  // namespace
