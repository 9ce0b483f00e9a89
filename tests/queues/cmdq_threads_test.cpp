// Many producers, one event-loop consumer: every command arrives once, in
// each producer's order, with its payload intact.
#include <sched.h>
#include <string.h>

#include <atomic>
#include <thread>
#include <vector>

#include <vxutil/frame.h>
#include <vxutil/loop.h>
#include <vxutil/queues.h>

#include "common/leak_check.hpp"
#include "common/test_support.hpp"
#include "queues/cmdq_test_util.hpp"

namespace {

constexpr int kProducers = 8;
constexpr uint32_t kPerProducer = 50000;

struct payload {
    uint32_t producer;
    uint32_t seq;
    uint64_t check;  // derived from both, catches torn or mixed copies
};

uint64_t check_of(uint32_t producer, uint32_t seq)
{
    return (static_cast<uint64_t>(producer) << 40) ^ (seq * 0x9E3779B97F4A7C15ull);
}

struct consumer {
    vxu_cmdq *q;
    uint32_t next_seq[kProducers] = {};
    uint64_t received = 0;
    uint64_t faults = 0;
};

void on_command(int, int, void *arg)
{
    auto *c = static_cast<consumer *>(arg);
    vxu_cmdq_item *item;
    if (vxu_cmdq_pull(c->q, 0, &item) != 1)
        return;
    payload p;
    const bool sized = item->len == static_cast<int>(sizeof p);
    memcpy(&p, item->data, sizeof p);
    const uint32_t producer = static_cast<uint32_t>(item->cmd);
    if (!sized || producer >= kProducers || p.producer != producer ||
        p.seq != c->next_seq[producer] || p.check != check_of(producer, p.seq))
        ++c->faults;
    else
        ++c->next_seq[producer];
    ++c->received;
    vxu_cmdq_item_free(c->q, item);
}

TEST(CmdqThreads, EightProducersOneLoopConsumer)
{
    EXPECT_IN_CHILD([] {
        {
            cmdq_test::queue t(0);
            ASSERT_EQ(0, t.init_result);
            ASSERT_EQ(0, vxu_loop_init(0));
            consumer c;
            c.q = &t.q;
            ASSERT_EQ(0, vxu_loop_add(vxu_cmdq_get_fd(&t.q), VXU_LOOP_EV_READ, on_command, &c));

            std::atomic<int> bad_results{0};
            std::vector<std::thread> producers;
            for (uint32_t id = 0; id < kProducers; ++id) {
                producers.emplace_back([&t, &bad_results, id] {
                    for (uint32_t seq = 0; seq < kPerProducer; ++seq) {
                        const payload p = {id, seq, check_of(id, seq)};
                        int rc;
                        while ((rc = vxu_cmdq_cmd_push(&t.q, id, &p, sizeof p)) == 1)
                            sched_yield();  // full: the consumer catches up
                        if (rc != 0)
                            ++bad_results;
                    }
                });
            }
            const uint64_t total = uint64_t{kProducers} * kPerProducer;
            const uint64_t deadline = vxu_com_get_uptime_ms() + 240000;
            while (c.received < total && vxu_com_get_uptime_ms() < deadline)
                vxu_loop_run(100);
            for (std::thread &p : producers)
                p.join();

            EXPECT_EQ(0, bad_results.load()) << "no wake-up byte may be lost";
            EXPECT_EQ(total, c.received);
            EXPECT_EQ(0u, c.faults);
            for (uint32_t id = 0; id < kProducers; ++id)
                EXPECT_EQ(kPerProducer, c.next_seq[id]) << "producer " << id;
            vxu_cmdq_item *rest = nullptr;
            EXPECT_EQ(0, vxu_cmdq_pull(&t.q, 0, &rest)) << "nothing left over";
        }
        vxu_test::expect_no_leaks();
    });
}

}  // namespace
