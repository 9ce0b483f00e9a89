// A timer queue for one test: its descriptors are closed and its records
// released afterwards (the queue itself has no teardown).
#pragma once

#include <stddef.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <vector>

#include <gtest/gtest.h>

#include <vxutil/frame.h>
#include <vxutil/timers.h>

namespace tmrq_test {

inline vxu_tmrq_item *item_of(vxu_list_link *link)
{
    return reinterpret_cast<vxu_tmrq_item *>(reinterpret_cast<char *>(link) -
                                             offsetof(vxu_tmrq_item, link));
}

struct queue {
    vxu_tmrq q;
    int init_result;
    explicit queue(int capacity)
    {
        ::testing::internal::CaptureStdout();  // init's line
        init_result = vxu_tmrq_init(&q, capacity);
        printed = ::testing::internal::GetCapturedStdout();
    }
    ~queue()
    {
        while (init_result == 0 && q.timers.next != &q.timers) {
            vxu_list_link *link = q.timers.next;
            q.timers.next = link->next;
            _vxu_mem_free("test", __LINE__, item_of(link));
        }
        if (q.wfd >= 0)
            close(q.wfd);
        if (q.rfd >= 0)
            close(q.rfd);
    }
    queue(const queue &) = delete;
    queue &operator=(const queue &) = delete;
    std::string printed;
};

inline int pending_bytes(const vxu_tmrq &q)
{
    int n = -1;
    ioctl(q.rfd, FIONREAD, &n);
    return n;
}

// The ids on the list, in list order.
inline std::vector<int> ids(const vxu_tmrq &q)
{
    std::vector<int> out;
    for (vxu_list_link *it = q.timers.next; it != &q.timers; it = it->next)
        out.push_back(item_of(it)->id);
    return out;
}

// Pulls until a timer is delivered or budget_ms passes; null on timeout.
inline vxu_tmrq_item *pull_next(vxu_tmrq *q, uint64_t budget_ms)
{
    const uint64_t end = vxu_com_get_uptime_ms() + budget_ms;
    vxu_tmrq_item *item = nullptr;
    while (vxu_com_get_uptime_ms() < end) {
        const int rc = vxu_tmrq_pull(q, &item);
        EXPECT_GE(rc, 0);
        if (rc == 1)
            return item;
        EXPECT_EQ(nullptr, item);
    }
    return nullptr;
}

}  // namespace tmrq_test
