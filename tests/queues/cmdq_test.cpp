#include <fcntl.h>
#include <limits.h>
#include <string.h>

#include <vxutil/frame.h>
#include <vxutil/queues.h>

#include "common/fd_pressure.hpp"
#include "common/test_support.hpp"
#include "queues/cmdq_test_util.hpp"

using cmdq_test::pending_bytes;
using cmdq_test::pull_all;
using cmdq_test::queue;

namespace {

bool nonblocking_and_cloexec(int fd)
{
    return (fcntl(fd, F_GETFL) & O_NONBLOCK) && (fcntl(fd, F_GETFD) & FD_CLOEXEC);
}

TEST(CmdqInit, SetsUpAnEmptyQueueWithItsOwnPair)
{
    EXPECT_EQ(-1, vxu_cmdq_init(nullptr, 3));
    for (int cap : {0, -5, 3}) {
        queue t(cap);
        ASSERT_EQ(0, t.init_result);
        EXPECT_EQ(cap < 1 ? 100 : cap, t.q.max_items);
        EXPECT_EQ(&t.q.items, t.q.items.next);
        EXPECT_EQ(&t.q.items, t.q.items.prev);
        ASSERT_GE(t.q.wfd, 0);
        ASSERT_GE(t.q.rfd, 0);
        EXPECT_EQ(t.q.rfd, vxu_cmdq_get_fd(&t.q));
        EXPECT_TRUE(nonblocking_and_cloexec(t.q.wfd));
        EXPECT_TRUE(nonblocking_and_cloexec(t.q.rfd));
        // The first end sends, the second receives.
        ASSERT_EQ(1, write(t.q.wfd, "z", 1));
        EXPECT_EQ(1, vxu_com_fd_has_data(t.q.rfd));
        char c;
        ASSERT_EQ(1, read(t.q.rfd, &c, 1));
    }
}

TEST(CmdqPushPull, RecordsComeOutInOrderWithPrivateCopies)
{
    queue t(0);
    char five[] = "abcde";
    ASSERT_EQ(0, vxu_cmdq_cmd_push(&t.q, 7, five, 5));
    ASSERT_EQ(0, vxu_cmdq_cmd_push(&t.q, 8, nullptr, 16));
    ASSERT_EQ(0, vxu_cmdq_cmd_push(&t.q, 9, five, 0));
    memcpy(five, "XXXXX", 5);
    EXPECT_EQ(3, pending_bytes(t.q)) << "one wake-up byte per record";

    vxu_cmdq_item *item = nullptr;
    ASSERT_EQ(1, vxu_cmdq_pull(&t.q, 0, &item));
    EXPECT_EQ(7u, item->cmd);
    ASSERT_EQ(5, item->len);
    EXPECT_EQ(static_cast<void *>(item + 1), item->data) << "payload follows the header";
    EXPECT_EQ(0, memcmp(item->data, "abcde", 5));
    EXPECT_EQ(nullptr, item->link.next);
    EXPECT_EQ(nullptr, item->link.prev);
    EXPECT_EQ(2, pending_bytes(t.q));
    EXPECT_EQ(0, vxu_cmdq_item_free(nullptr, item)) << "must not release";
    EXPECT_EQ(7u, item->cmd);
    EXPECT_EQ(0, vxu_cmdq_item_free(&t.q, item));

    ASSERT_EQ(1, vxu_cmdq_pull(&t.q, 0, &item));
    EXPECT_EQ(8u, item->cmd);
    EXPECT_EQ(0, item->len) << "no data pointer, no length";
    EXPECT_EQ(static_cast<void *>(item + 1), item->data);
    EXPECT_EQ(0, memcmp(item->data, "\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 16)) << "zero-filled";
    vxu_cmdq_item_free(&t.q, item);

    ASSERT_EQ(1, vxu_cmdq_pull(&t.q, 0, &item));
    EXPECT_EQ(9u, item->cmd);
    EXPECT_EQ(0, item->len);
    vxu_cmdq_item_free(&t.q, item);

    item = reinterpret_cast<vxu_cmdq_item *>(&t);
    EXPECT_EQ(0, vxu_cmdq_pull(&t.q, 0, &item));
    EXPECT_EQ(nullptr, item);
    EXPECT_EQ(0, vxu_cmdq_item_free(&t.q, nullptr));
}

TEST(CmdqPushPull, CapacityCountsQueuedRecords)
{
    queue t(3);
    for (uint64_t c = 1; c <= 3; ++c)
        ASSERT_EQ(0, vxu_cmdq_cmd_push(&t.q, c, &c, sizeof c));
    EXPECT_EQ(1, vxu_cmdq_cmd_push(&t.q, 4, nullptr, 0));
    EXPECT_EQ(3, pending_bytes(t.q)) << "a refused push writes no byte";
    vxu_cmdq_item *item;
    ASSERT_EQ(1, vxu_cmdq_pull(&t.q, 0, &item));
    vxu_cmdq_item_free(&t.q, item);
    EXPECT_EQ(0, vxu_cmdq_cmd_push(&t.q, 5, nullptr, 0));
    EXPECT_EQ((std::vector<uint64_t>{2, 3, 5}), pull_all(&t.q));
}

TEST(CmdqPushPull, BadArgumentsQueueNothing)
{
    queue t(0);
    char buf[8] = {};
    EXPECT_EQ(-1, vxu_cmdq_cmd_push(nullptr, 1, buf, 1));
    EXPECT_EQ(-1, vxu_cmdq_cmd_push(&t.q, 1, buf, -1));
    EXPECT_EQ(-1, vxu_cmdq_cmd_push(&t.q, 1, buf, INT_MAX)) << "block size not positive";
    EXPECT_EQ(0, pending_bytes(t.q));
    EXPECT_TRUE(pull_all(&t.q).empty());

    vxu_cmdq_item *item;
    EXPECT_EQ(-1, vxu_cmdq_pull(nullptr, 0, &item));
    EXPECT_EQ(-1, vxu_cmdq_pull(&t.q, 0, nullptr));
    EXPECT_EQ(-1, vxu_cmdq_pull(&t.q, -1, &item)) << "invalid time-out";
}

TEST(CmdqPushPull, PullWaitsOutItsTimeout)
{
    queue t(0);
    vxu_cmdq_item *item;
    const uint64_t start = vxu_com_get_uptime_ms();
    EXPECT_EQ(0, vxu_cmdq_pull(&t.q, 250, &item));
    const uint64_t waited = vxu_com_get_uptime_ms() - start;
    EXPECT_GE(waited, 240u);
    EXPECT_LT(waited, 3000u);
}

TEST(CmdqWakeups, LargeQueueFilledBeforeAnyPullLosesNoByte)
{
    queue t(400);
    for (uint64_t c = 0; c < 400; ++c)
        ASSERT_EQ(0, vxu_cmdq_cmd_push(&t.q, c, nullptr, 0)) << "push " << c;
    EXPECT_EQ(1, vxu_cmdq_cmd_push(&t.q, 400, nullptr, 0));
    EXPECT_EQ(400, pending_bytes(t.q));
    const std::vector<uint64_t> got = pull_all(&t.q);
    ASSERT_EQ(400u, got.size());
    for (uint64_t c = 0; c < 400; ++c)
        EXPECT_EQ(c, got[c]);
}

TEST(CmdqWakeups, LostBytesLeaveTheQueueBehindUntilLaterBytesCome)
{
    queue t(INT_MAX);
    // Fill the pair until the kernel refuses a byte, then lose two more.
    uint64_t pushed = 0;
    while (vxu_cmdq_cmd_push(&t.q, pushed, nullptr, 0) == 0) {
        ++pushed;
        ASSERT_LT(pushed, 1000000u) << "the pair never filled";
    }
    const uint64_t lost_first = pushed++;
    ASSERT_EQ(-1, vxu_cmdq_cmd_push(&t.q, pushed++, nullptr, 0));
    ASSERT_EQ(-1, vxu_cmdq_cmd_push(&t.q, pushed++, nullptr, 0));

    // One delivery per byte; the three records without a byte stay queued.
    std::vector<uint64_t> got = pull_all(&t.q);
    ASSERT_EQ(lost_first, got.size());
    for (uint64_t c = 0; c < got.size(); ++c)
        ASSERT_EQ(c, got[c]);
    EXPECT_EQ(3u, cmdq_test::queued(t.q));

    // Later bytes deliver the oldest records: the queue runs behind.
    for (int i = 0; i < 3; ++i)
        ASSERT_EQ(0, vxu_cmdq_cmd_push(&t.q, pushed++, nullptr, 0));
    EXPECT_EQ((std::vector<uint64_t>{lost_first, lost_first + 1, lost_first + 2}), pull_all(&t.q));
    EXPECT_EQ(3u, cmdq_test::queued(t.q));
}

TEST(CmdqWakeups, QueueWithoutAPairRefusesToWait)
{
    EXPECT_IN_CHILD([] {
        vxu_test::low_fds_taken high;
        if (!high.ok())
            GTEST_SKIP() << "cannot raise the descriptor limit past 1024";
        vxu_test::fd_leak_check leaks;
        vxu_cmdq q;
        ASSERT_EQ(0, vxu_cmdq_init(&q, 0)) << "a pair above 1023 counts as not created";
        EXPECT_EQ(-1, q.wfd);
        EXPECT_EQ(-1, q.rfd);
        vxu_cmdq_item *item;
        EXPECT_EQ(-1, vxu_cmdq_pull(&q, 5000, &item)) << "must not wait";
        EXPECT_EQ(-1, vxu_cmdq_cmd_push(&q, 1, nullptr, 0)) << "queued, but nobody is woken";
        EXPECT_EQ(1u, cmdq_test::queued(q));
    });
    EXPECT_IN_CHILD([] {
        vxu_test::no_fds_left none;
        vxu_cmdq q;
        ASSERT_EQ(0, vxu_cmdq_init(&q, 0));
        EXPECT_EQ(-1, q.wfd);
        EXPECT_EQ(-1, q.rfd);
    });
}

}  // namespace
