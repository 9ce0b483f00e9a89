// A timer queue for one test. The queue has no teardown: its pair is closed
// and its records released here.
#pragma once

#include <stddef.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <vxutil/frame.h>
#include <vxutil/timers.h>

namespace tmrq_test {

struct queue {
    vxu_tmrq q;
    std::string printed;  // init's line on standard output

    explicit queue(int capacity)
    {
        ::testing::internal::CaptureStdout();
        EXPECT_EQ(0, vxu_tmrq_init(&q, capacity));
        printed = ::testing::internal::GetCapturedStdout();
    }
    ~queue()
    {
        for (vxu_list_link *l = q.timers.next, *next; l != &q.timers; l = next) {
            next = l->next;
            _vxu_mem_free("test", __LINE__, of(l));
        }
        close(q.wfd);
        close(q.rfd);
    }
    static vxu_tmrq_item *of(vxu_list_link *l)
    {
        return reinterpret_cast<vxu_tmrq_item *>(reinterpret_cast<char *>(l) -
                                                 offsetof(vxu_tmrq_item, link));
    }
    vxu_tmrq_item *item(int index)
    {
        vxu_list_link *l = q.timers.next;
        while (index-- > 0)
            l = l->next;
        return of(l);
    }
    std::vector<int> ids()
    {
        std::vector<int> out;
        for (vxu_list_link *l = q.timers.next; l != &q.timers; l = l->next)
            out.push_back(of(l)->id);
        return out;
    }
    int pending_bytes()
    {
        int n = -1;
        ioctl(q.rfd, FIONREAD, &n);
        return n;
    }
    // Pulls until a timer is delivered; null when budget_ms passes first.
    vxu_tmrq_item *pull_next(uint64_t budget_ms)
    {
        const uint64_t end = vxu_com_get_uptime_ms() + budget_ms;
        vxu_tmrq_item *item = nullptr;
        while (vxu_com_get_uptime_ms() < end) {
            if (vxu_tmrq_pull(&q, &item) == 1)
                return item;
        }
        return nullptr;
    }
};

}  // namespace tmrq_test
