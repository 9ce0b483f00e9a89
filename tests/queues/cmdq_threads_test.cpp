// Eight producers, one consumer: every command the queue accepted arrives
// once, in each producer's order, with its payload intact.
#include <sched.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

#include <vxutil/frame.h>
#include <vxutil/loop.h>
#include <vxutil/queues.h>

#include "common/test_support.hpp"

namespace {

constexpr uint32_t kProducers = 8;
constexpr uint32_t kPerProducer = 50000;

struct payload {
    uint32_t producer;
    uint32_t seq;
    uint64_t check;  // catches torn or mixed-up copies
};

uint64_t check_of(uint32_t producer, uint32_t seq)
{
    return (uint64_t{producer} << 40) ^ (seq * 0x9E3779B97F4A7C15ull);
}

struct consumer {
    vxu_cmdq q;
    uint32_t next_seq[kProducers] = {};
    uint64_t received = 0;
    uint64_t faults = 0;
};

void on_command(int, int, void *arg)
{
    auto *c = static_cast<consumer *>(arg);
    vxu_cmdq_item *item;
    if (vxu_cmdq_pull(&c->q, 0, &item) != 1)
        return;
    payload p;
    memcpy(&p, item->data, sizeof p);
    const uint64_t from = item->cmd;
    if (item->len != sizeof p || from >= kProducers || p.producer != from ||
        p.seq != c->next_seq[from] || p.check != check_of(p.producer, p.seq))
        ++c->faults;
    else
        ++c->next_seq[from];
    ++c->received;
    vxu_cmdq_item_free(&c->q, item);
}

TEST(CmdqThreads, EightProducersOneLoopConsumer)
{
    EXPECT_IN_CHILD([] {
        auto *c = new consumer;
        ASSERT_EQ(0, vxu_cmdq_init(&c->q, 0));
        ASSERT_EQ(0, vxu_loop_init(0));
        ASSERT_EQ(0, vxu_loop_add(vxu_cmdq_get_fd(&c->q), VXU_LOOP_EV_READ, on_command, c));
        std::vector<std::thread> producers;
        std::vector<int> failed(kProducers, 0);
        for (uint32_t id = 0; id < kProducers; ++id) {
            producers.emplace_back([c, id, &failed] {
                for (uint32_t seq = 0; seq < kPerProducer; ++seq) {
                    const payload p = {id, seq, check_of(id, seq)};
                    int rc;
                    while ((rc = vxu_cmdq_cmd_push(&c->q, id, &p, sizeof p)) == 1)
                        sched_yield();  // full: let the consumer catch up
                    failed[id] += rc != 0;
                }
            });
        }
        const uint64_t total = uint64_t{kProducers} * kPerProducer;
        const uint64_t deadline = vxu_com_get_uptime_ms() + 240000;
        while (c->received < total && vxu_com_get_uptime_ms() < deadline)
            vxu_loop_run(100);
        for (std::thread &p : producers)
            p.join();

        EXPECT_EQ(std::vector<int>(kProducers, 0), failed) << "no push may fail";
        EXPECT_EQ(total, c->received);
        EXPECT_EQ(0u, c->faults);
        for (uint32_t id = 0; id < kProducers; ++id)
            EXPECT_EQ(kPerProducer, c->next_seq[id]) << "producer " << id;
        EXPECT_EQ(0, vxu_com_fd_has_data(c->q.rfd)) << "no byte left over";
        EXPECT_EQ(&c->q.items, c->q.items.next) << "no record left over";
        vxu_loop_remove(c->q.rfd);
        close(c->q.wfd);
        close(c->q.rfd);
        delete c;
    });
}

// Producers that never wait: at a small capacity most pushes find the
// queue full and must say so with 1, and nothing accepted may go missing.
TEST(CmdqThreads, FullQueueUnderEightProducersLosesNothingItAccepted)
{
    constexpr int kCapacity = 16;
    constexpr uint32_t kAttempts = 20000;
    vxu_cmdq q;
    ASSERT_EQ(0, vxu_cmdq_init(&q, kCapacity));
    std::vector<std::vector<char>> accepted(kProducers, std::vector<char>(kAttempts, 0));
    std::vector<int> full(kProducers, 0), failed(kProducers, 0);
    std::atomic<uint32_t> done{0};
    std::vector<std::thread> producers;
    for (uint32_t id = 0; id < kProducers; ++id) {
        producers.emplace_back([&, id] {
            for (uint32_t seq = 0; seq < kAttempts; ++seq) {
                const payload p = {id, seq, check_of(id, seq)};
                const int rc = vxu_cmdq_cmd_push(&q, id, &p, sizeof p);
                accepted[id][seq] = rc == 0;
                failed[id] += rc != 0 && rc != 1;
                if (rc == 1) {
                    ++full[id];
                    sched_yield();  // not retried: the next attempt is a new command
                }
            }
            ++done;
        });
    }
    std::vector<std::vector<int>> received(kProducers, std::vector<int>(kAttempts, 0));
    std::vector<int64_t> last_seq(kProducers, -1);
    uint64_t faults = 0, out_of_order = 0, overfull = 0;
    vxu_cmdq_item *item;
    for (;;) {
        const bool finished = done == kProducers;  // read before the pull that may come up empty
        if (vxu_cmdq_pull(&q, 100, &item) != 1) {
            if (finished)
                break;
            continue;
        }
        payload p;
        memcpy(&p, item->data, sizeof p);
        if (item->len != sizeof p || item->cmd >= kProducers || p.producer != item->cmd ||
            p.seq >= kAttempts || p.check != check_of(p.producer, p.seq)) {
            ++faults;
        } else {
            ++received[p.producer][p.seq];
            out_of_order += p.seq <= last_seq[p.producer];
            last_seq[p.producer] = p.seq;
        }
        vxu_cmdq_item_free(&q, item);
        int unread = 0;
        ioctl(q.rfd, FIONREAD, &unread);
        overfull += unread > kCapacity;
    }
    for (std::thread &p : producers)
        p.join();

    EXPECT_EQ(0u, faults);
    EXPECT_EQ(0u, out_of_order);
    EXPECT_EQ(0u, overfull) << "more wake-up bytes waiting than the capacity allows";
    EXPECT_EQ(std::vector<int>(kProducers, 0), failed) << "only 0 or 1 may come back";
    int total_full = 0, lost = 0, extra = 0;
    for (uint32_t id = 0; id < kProducers; ++id) {
        total_full += full[id];
        for (uint32_t seq = 0; seq < kAttempts; ++seq) {
            lost += accepted[id][seq] && received[id][seq] == 0;
            extra += received[id][seq] > (accepted[id][seq] ? 1 : 0);
        }
    }
    EXPECT_GT(total_full, 0) << "the queue never filled";
    EXPECT_EQ(0, lost) << "accepted commands that never arrived";
    EXPECT_EQ(0, extra) << "refused or repeated commands that arrived";
    EXPECT_EQ(0, vxu_com_fd_has_data(q.rfd)) << "no byte left over";
    EXPECT_EQ(&q.items, q.items.next) << "no record left over";
    close(q.wfd);
    close(q.rfd);
}

}  // namespace
