// Eight producers, one event-loop consumer: every command arrives once, in
// each producer's order, with its payload intact.
#include <sched.h>
#include <string.h>
#include <unistd.h>

#include <thread>
#include <vector>

#include <vxutil/frame.h>
#include <vxutil/loop.h>
#include <vxutil/queues.h>

#include "common/leak_check.hpp"
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
        vxu_test::expect_no_leaks();
    });
}

}  // namespace
