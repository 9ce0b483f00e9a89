#include <fcntl.h>
#include <limits.h>
#include <stddef.h>
#include <string.h>
#include <sys/ioctl.h>

#include <vector>

#include <vxutil/frame.h>
#include <vxutil/queues.h>

#include "common/test_support.hpp"

namespace {

// A queue for one test. The queue has no teardown: its pair is closed and
// records still linked (those that lost their byte) are freed here.
struct queue {
    vxu_cmdq q;
    explicit queue(int capacity) { EXPECT_EQ(0, vxu_cmdq_init(&q, capacity)); }
    ~queue()
    {
        for (vxu_list_link *l = q.items.next, *next; l != &q.items; l = next) {
            next = l->next;
            vxu_cmdq_item_free(&q,
                               reinterpret_cast<vxu_cmdq_item *>(reinterpret_cast<char *>(l) -
                                                                 offsetof(vxu_cmdq_item, link)));
        }
        close(q.wfd);
        close(q.rfd);
    }
    int pending_bytes() const
    {
        int n = -1;
        ioctl(q.rfd, FIONREAD, &n);
        return n;
    }
    std::vector<uint64_t> pull_all()
    {
        std::vector<uint64_t> cmds;
        vxu_cmdq_item *item;
        while (vxu_cmdq_pull(&q, 0, &item) == 1) {
            cmds.push_back(item->cmd);
            vxu_cmdq_item_free(&q, item);
        }
        return cmds;
    }
    int push(uint64_t cmd) { return vxu_cmdq_cmd_push(&q, cmd, nullptr, 0); }
};

TEST(Cmdq, RecordsComeOutInOrderWithPrivateCopies)
{
    EXPECT_EQ(-1, vxu_cmdq_init(nullptr, 3));
    EXPECT_EQ(100, queue(-5).q.max_items);
    queue t(3);
    for (int fd : {t.q.wfd, t.q.rfd})
        EXPECT_TRUE((fcntl(fd, F_GETFL) & O_NONBLOCK) && (fcntl(fd, F_GETFD) & FD_CLOEXEC));
    EXPECT_EQ(t.q.rfd, vxu_cmdq_get_fd(&t.q));

    char five[] = "abcde";
    ASSERT_EQ(0, vxu_cmdq_cmd_push(&t.q, 7, five, 5));
    ASSERT_EQ(0, vxu_cmdq_cmd_push(&t.q, 8, nullptr, 16));
    ASSERT_EQ(0, vxu_cmdq_cmd_push(&t.q, 9, five, 0));
    EXPECT_EQ(1, t.push(10)) << "capacity 3";
    memcpy(five, "XXXXX", 5);
    EXPECT_EQ(3, t.pending_bytes()) << "one wake-up byte per queued record";

    vxu_cmdq_item *item = nullptr;
    ASSERT_EQ(1, vxu_cmdq_pull(&t.q, 0, &item));
    EXPECT_EQ(7u, item->cmd);
    ASSERT_EQ(5, item->len);
    EXPECT_EQ(static_cast<void *>(item + 1), item->data) << "payload right behind the header";
    EXPECT_EQ(0, memcmp(item->data, "abcde", 5));
    EXPECT_EQ(nullptr, item->link.next);
    EXPECT_EQ(0, vxu_cmdq_item_free(nullptr, item)) << "must not release";
    EXPECT_EQ(7u, item->cmd);
    vxu_cmdq_item_free(&t.q, item);
    EXPECT_EQ(0, t.push(11)) << "room again after a pull";

    ASSERT_EQ(1, vxu_cmdq_pull(&t.q, 0, &item));
    EXPECT_EQ(8u, item->cmd);
    EXPECT_EQ(0, item->len) << "no data, no length";
    EXPECT_EQ(static_cast<void *>(item + 1), item->data);
    vxu_cmdq_item_free(&t.q, item);
    EXPECT_EQ((std::vector<uint64_t>{9, 11}), t.pull_all());
    EXPECT_EQ(0, vxu_cmdq_pull(&t.q, 0, &item));
    EXPECT_EQ(nullptr, item);
}

TEST(Cmdq, RefusalsAndWaits)
{
    queue t(0);
    char buf[8] = {};
    EXPECT_EQ(-1, vxu_cmdq_cmd_push(nullptr, 1, buf, 1));
    EXPECT_EQ(-1, vxu_cmdq_cmd_push(&t.q, 1, buf, -1));
    EXPECT_EQ(-1, vxu_cmdq_cmd_push(&t.q, 1, buf, INT_MAX)) << "block size not positive";
    EXPECT_EQ(0, t.pending_bytes());
    EXPECT_TRUE(t.pull_all().empty());

    vxu_cmdq_item *item;
    EXPECT_EQ(-1, vxu_cmdq_pull(nullptr, 0, &item));
    EXPECT_EQ(-1, vxu_cmdq_pull(&t.q, 0, nullptr));
    EXPECT_EQ(-1, vxu_cmdq_pull(&t.q, -1, &item)) << "invalid time-out";
    const uint64_t start = vxu_com_get_uptime_ms();
    EXPECT_EQ(0, vxu_cmdq_pull(&t.q, 250, &item));
    EXPECT_GE(vxu_com_get_uptime_ms() - start, 240u);
    EXPECT_LT(vxu_com_get_uptime_ms() - start, 3000u);
}

TEST(Cmdq, WakeupBytesFitTheCapacityAndLostOnesLeaveItBehind)
{
    {
        queue t(400);
        for (uint64_t c = 0; c < 400; ++c)
            ASSERT_EQ(0, t.push(c)) << "push " << c;
        const std::vector<uint64_t> got = t.pull_all();
        ASSERT_EQ(400u, got.size());
        for (uint64_t c = 0; c < 400; ++c)
            ASSERT_EQ(c, got[c]);
    }
    // Past what the pair can hold, records are queued without their byte.
    queue t(INT_MAX);
    uint64_t pushed = 0;
    while (t.push(pushed) == 0)
        ASSERT_LT(++pushed, 1000000u) << "the pair never filled";
    const uint64_t lost = pushed;
    ASSERT_EQ(-1, t.push(lost + 1));
    ASSERT_EQ(-1, t.push(lost + 2));
    ASSERT_EQ(lost, t.pull_all().size()) << "one delivery per byte";
    // Later bytes hand out the oldest records: the queue runs three behind.
    for (uint64_t c = lost + 3; c < lost + 6; ++c)
        ASSERT_EQ(0, t.push(c));
    EXPECT_EQ((std::vector<uint64_t>{lost, lost + 1, lost + 2}), t.pull_all());
}

TEST(Cmdq, QueueWithoutAPairRefusesToWait)
{
    vxu_test::for_each_pair_pressure([](const char *what) {
        vxu_cmdq q;
        ASSERT_EQ(0, vxu_cmdq_init(&q, 0)) << what;
        EXPECT_EQ(-1, q.wfd) << what;
        EXPECT_EQ(-1, q.rfd) << what;
        vxu_cmdq_item *item;
        EXPECT_EQ(-1, vxu_cmdq_pull(&q, 5000, &item)) << "must not wait";
        EXPECT_EQ(-1, vxu_cmdq_cmd_push(&q, 1, nullptr, 0)) << "queued, nobody woken";
        ASSERT_NE(&q.items, q.items.next);
        vxu_cmdq_item_free(
            &q, reinterpret_cast<vxu_cmdq_item *>(reinterpret_cast<char *>(q.items.next) -
                                                  offsetof(vxu_cmdq_item, link)));
    });
}

}  // namespace
