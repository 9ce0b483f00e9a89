// A command queue for one test, with its descriptors closed afterwards (the
// queue itself has no teardown), and helpers to inspect its socket pair.
#pragma once

#include <stddef.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <vector>

#include <vxutil/queues.h>

namespace cmdq_test {

struct queue {
    vxu_cmdq q;
    int init_result;
    explicit queue(int capacity) : init_result(vxu_cmdq_init(&q, capacity)) {}
    ~queue()
    {
        // Records whose wake-up byte was lost are still linked: free them too.
        while (init_result == 0 && q.items.next != &q.items) {
            vxu_list_link *link = q.items.next;
            q.items.next = link->next;
            vxu_cmdq_item_free(&q, reinterpret_cast<vxu_cmdq_item *>(
                                       reinterpret_cast<char *>(link) - offsetof(vxu_cmdq_item, link)));
        }
        if (q.wfd >= 0)
            close(q.wfd);
        if (q.rfd >= 0)
            close(q.rfd);
    }
    queue(const queue &) = delete;
    queue &operator=(const queue &) = delete;
};

// Records on the queue's list.
inline size_t queued(const vxu_cmdq &q)
{
    size_t n = 0;
    for (const vxu_list_link *it = q.items.next; it != &q.items; it = it->next)
        ++n;
    return n;
}

// Unread wake-up bytes waiting in the pair.
inline int pending_bytes(const vxu_cmdq &q)
{
    int n = -1;
    ioctl(q.rfd, FIONREAD, &n);
    return n;
}

// Pulls without waiting until nothing comes; returns the commands in order.
inline std::vector<uint64_t> pull_all(vxu_cmdq *q)
{
    std::vector<uint64_t> cmds;
    vxu_cmdq_item *item;
    while (vxu_cmdq_pull(q, 0, &item) == 1) {
        cmds.push_back(item->cmd);
        vxu_cmdq_item_free(q, item);
    }
    return cmds;
}

}  // namespace cmdq_test
