// Hand-off from a producer thread to a loop thread: the command queue under
// vxu_loop_run beside the same mechanism written by hand (mutex, intrusive
// list, socket pair, select), libuv's uv_async_send with a mutex queue, and
// eventfd with epoll. Throughput of 200,000 commands with 16-byte payloads
// and ping-pong round trips, with both threads on one CPU and on two.
#include <errno.h>
#include <pthread.h>
#include <sched.h>
#include <stdlib.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/eventfd.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <thread>

#include <benchmark/benchmark.h>
#include <uv.h>

#include <vxutil/frame.h>
#include <vxutil/loop.h>
#include <vxutil/queues.h>

namespace {

constexpr int kCommands = 200000;
constexpr int kPayload = 16;
constexpr int kCapacity = 100;  // the command queue's default

void pin_to(int cpu)
{
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(cpu, &set);
    pthread_setaffinity_np(pthread_self(), sizeof set, &set);
}

// Called on the consuming thread for every command.
using handler = void (*)(uint64_t cmd, const void *data, void *ctx);

// ---- vxutil: command queue watched by the event loop ----------------------
class vxu_channel {
public:
    explicit vxu_channel(bool loop_side) : loop_side_(loop_side)
    {
        vxu_cmdq_init(&q_, kCapacity);
        if (loop_side_) {
            vxu_loop_init(0);
            vxu_loop_add(vxu_cmdq_get_fd(&q_), VXU_LOOP_EV_READ, on_ready, this);
        }
    }
    ~vxu_channel()
    {
        if (loop_side_)
            vxu_loop_remove(vxu_cmdq_get_fd(&q_));
        close(q_.wfd);
        close(q_.rfd);
    }
    void push(uint64_t cmd, const void *data)
    {
        while (vxu_cmdq_cmd_push(&q_, cmd, data, kPayload) == 1)
            sched_yield();
    }
    // Loop thread: runs the event loop until `count` commands were handled.
    void serve(long count, handler h, void *ctx)
    {
        h_ = h;
        ctx_ = ctx;
        served_ = 0;
        while (served_ < count && !stop_.load(std::memory_order_relaxed))
            vxu_loop_run(1);
    }
    // Plain thread: waits for one command.
    void wait_one()
    {
        vxu_cmdq_item *item;
        while (vxu_cmdq_pull(&q_, 1000, &item) != 1) {
        }
        vxu_cmdq_item_free(&q_, item);
    }
    void stop() { stop_ = true; }

private:
    static void on_ready(int, int, void *arg)
    {
        auto *self = static_cast<vxu_channel *>(arg);
        vxu_cmdq_item *item;
        if (vxu_cmdq_pull(&self->q_, 0, &item) != 1)
            return;
        self->h_(item->cmd, item->data, self->ctx_);
        vxu_cmdq_item_free(&self->q_, item);
        ++self->served_;
    }
    vxu_cmdq q_;
    bool loop_side_;
    handler h_ = nullptr;
    void *ctx_ = nullptr;
    long served_ = 0;
    std::atomic<bool> stop_{false};
};

// A heap node with the payload behind it, as the hand-made queues use.
struct node {
    node *next;
    node *prev;
    uint64_t cmd;
    int len;
    unsigned char data[kPayload];
};

node *make_node(uint64_t cmd, const void *data)
{
    auto *n = static_cast<node *>(calloc(1, sizeof(node)));
    n->cmd = cmd;
    n->len = kPayload;
    memcpy(n->data, data, kPayload);
    return n;
}

// Mutex-guarded intrusive FIFO shared by the hand-made mechanisms.
class node_list {
public:
    node_list() { head_.next = head_.prev = &head_; }
    void append(node *n)
    {
        n->prev = head_.prev;
        n->next = &head_;
        head_.prev->next = n;
        head_.prev = n;
        ++count_;
    }
    node *take()
    {
        if (head_.next == &head_)
            return nullptr;
        node *n = head_.next;
        head_.next = n->next;
        n->next->prev = &head_;
        --count_;
        return n;
    }
    int count() const { return count_; }

private:
    node head_{};
    int count_ = 0;
};

// The mutex and the list of one hand-made queue, bounded like the library's.
class locked_fifo {
public:
    // Appends once there is room; `inside` runs under the lock just before
    // the node is linked.
    template <typename Fn>
    void append_when_room(uint64_t cmd, const void *data, Fn inside)
    {
        for (;;) {
            {
                std::lock_guard<std::mutex> hold(mutex_);
                if (list_.count() < kCapacity) {
                    node *n = make_node(cmd, data);
                    inside();
                    list_.append(n);
                    return;
                }
            }
            sched_yield();
        }
    }
    node *take()
    {
        std::lock_guard<std::mutex> hold(mutex_);
        return list_.take();
    }
    // Hands every queued node to h; returns how many.
    long drain(handler h, void *ctx)
    {
        long n = 0;
        while (node *item = take()) {
            h(item->cmd, item->data, ctx);
            free(item);
            ++n;
        }
        return n;
    }

private:
    std::mutex mutex_;
    node_list list_;
};

// ---- by hand: mutex, intrusive list, socket pair, select ------------------
class hand_channel {
public:
    explicit hand_channel(bool)
    {
        socketpair(AF_UNIX, SOCK_STREAM, 0, fds_);
        for (int fd : fds_)
            vxu_com_fd_noblock(fd, 1);
    }
    ~hand_channel()
    {
        close(fds_[0]);
        close(fds_[1]);
    }
    void push(uint64_t cmd, const void *data)
    {
        fifo_.append_when_room(cmd, data, [this] {
            const unsigned char one = 1;
            if (write(fds_[0], &one, 1) != 1)
                abort();
        });
    }
    void serve(long count, handler h, void *ctx)
    {
        for (long served = 0; served < count && !stop_.load(std::memory_order_relaxed);) {
            if (!wait_byte())
                continue;
            node *n = fifo_.take();
            if (!n)
                continue;
            h(n->cmd, n->data, ctx);
            free(n);
            ++served;
        }
    }
    void wait_one()
    {
        for (;;) {
            if (!wait_byte())
                continue;
            if (node *n = fifo_.take()) {
                free(n);
                return;
            }
        }
    }
    void stop() { stop_ = true; }

private:
    bool wait_byte()
    {
        fd_set set;
        FD_ZERO(&set);
        FD_SET(fds_[1], &set);
        struct timeval tv = {0, 1000};
        if (select(fds_[1] + 1, &set, nullptr, nullptr, &tv) <= 0)
            return false;
        unsigned char byte;
        return read(fds_[1], &byte, 1) == 1;
    }
    int fds_[2];
    locked_fifo fifo_;
    std::atomic<bool> stop_{false};
};

// ---- libuv: uv_async_send beside a mutex queue ----------------------------
class uv_channel {
public:
    explicit uv_channel(bool)
    {
        uv_loop_init(&loop_);
        uv_async_init(&loop_, &async_, on_async);
        async_.data = this;
    }
    ~uv_channel()
    {
        uv_close(reinterpret_cast<uv_handle_t *>(&async_), nullptr);
        uv_run(&loop_, UV_RUN_DEFAULT);
        uv_loop_close(&loop_);
    }
    void push(uint64_t cmd, const void *data)
    {
        fifo_.append_when_room(cmd, data, [] {});
        uv_async_send(&async_);
    }
    void serve(long count, handler h, void *ctx)
    {
        h_ = h;
        ctx_ = ctx;
        target_ = count;
        served_ = 0;
        while (served_ < target_ && !stop_.load(std::memory_order_relaxed)) {
            uv_run(&loop_, UV_RUN_ONCE);
        }
    }
    void wait_one()
    {
        serve(
            1, [](uint64_t, const void *, void *) {}, nullptr);
    }
    void stop()
    {
        stop_ = true;
        uv_async_send(&async_);
    }

private:
    static void on_async(uv_async_t *async)
    {
        auto *self = static_cast<uv_channel *>(async->data);
        self->served_ += self->fifo_.drain(self->h_, self->ctx_);
    }
    uv_loop_t loop_;
    uv_async_t async_;
    locked_fifo fifo_;
    handler h_ = nullptr;
    void *ctx_ = nullptr;
    long target_ = 0;
    long served_ = 0;
    std::atomic<bool> stop_{false};
};

// ---- eventfd with epoll ----------------------------------------------------
class eventfd_channel {
public:
    explicit eventfd_channel(bool)
    {
        efd_ = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
        ep_ = epoll_create1(EPOLL_CLOEXEC);
        struct epoll_event ev = {};
        ev.events = EPOLLIN;
        epoll_ctl(ep_, EPOLL_CTL_ADD, efd_, &ev);
    }
    ~eventfd_channel()
    {
        close(ep_);
        close(efd_);
    }
    void push(uint64_t cmd, const void *data)
    {
        fifo_.append_when_room(cmd, data, [] {});
        const uint64_t one = 1;
        if (write(efd_, &one, sizeof one) != sizeof one)
            abort();
    }
    void serve(long count, handler h, void *ctx)
    {
        for (long served = 0; served < count && !stop_.load(std::memory_order_relaxed);) {
            struct epoll_event ev;
            if (epoll_wait(ep_, &ev, 1, 1) <= 0)
                continue;
            uint64_t n_events;
            if (read(efd_, &n_events, sizeof n_events) != sizeof n_events)
                continue;
            served += fifo_.drain(h, ctx);
        }
    }
    void wait_one()
    {
        serve(
            1, [](uint64_t, const void *, void *) {}, nullptr);
    }
    void stop() { stop_ = true; }

private:
    int efd_;
    int ep_;
    locked_fifo fifo_;
    std::atomic<bool> stop_{false};
};

int consumer_cpu(benchmark::State &state) { return state.range(0) == 1 ? 0 : 1; }

// CPU time of the whole process (both threads), in microseconds: less
// sensitive than elapsed time to other work on a shared machine.
double process_cpu_us()
{
    struct rusage ru;
    getrusage(RUSAGE_SELF, &ru);
    return (ru.ru_utime.tv_sec + ru.ru_stime.tv_sec) * 1e6 + ru.ru_utime.tv_usec +
           ru.ru_stime.tv_usec;
}

template <typename Channel>
void BM_Throughput(benchmark::State &state)
{
    pin_to(0);
    Channel ch(true);
    unsigned char payload[kPayload] = {1, 2, 3};
    uint64_t sum = 0;
    const double cpu_start = process_cpu_us();
    for (auto _ : state) {
        std::thread consumer([&] {
            pin_to(consumer_cpu(state));
            ch.serve(
                kCommands,
                [](uint64_t cmd, const void *, void *ctx) { *static_cast<uint64_t *>(ctx) += cmd; },
                &sum);
        });
        for (int i = 0; i < kCommands; ++i)
            ch.push(static_cast<uint64_t>(i), payload);
        consumer.join();
    }
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(state.iterations() * kCommands);
    state.counters["cpu_us_per_cmd"] =
        (process_cpu_us() - cpu_start) / static_cast<double>(state.iterations() * kCommands);
}

template <typename Channel>
void BM_PingPong(benchmark::State &state)
{
    pin_to(0);
    Channel there(true);
    Channel back(false);
    unsigned char payload[kPayload] = {1, 2, 3};
    std::thread loop([&] {
        pin_to(consumer_cpu(state));
        there.serve(
            1L << 40,
            [](uint64_t cmd, const void *data, void *ctx) {
                static_cast<Channel *>(ctx)->push(cmd, data);
            },
            &back);
    });
    uint64_t i = 0;
    const double cpu_start = process_cpu_us();
    for (auto _ : state) {
        there.push(i++, payload);
        back.wait_one();
    }
    state.counters["cpu_us_per_trip"] =
        (process_cpu_us() - cpu_start) / static_cast<double>(state.iterations());
    there.stop();
    loop.join();
}

#define CMDQ_BENCH(name, channel)                                                                  \
    BENCHMARK_TEMPLATE(BM_Throughput, channel)                                                     \
        ->Name("Throughput/" name)                                                                 \
        ->ArgName("cpus")                                                                          \
        ->Arg(1)                                                                                   \
        ->Arg(2)                                                                                   \
        ->Iterations(1)                                                                            \
        ->UseRealTime()                                                                            \
        ->Unit(benchmark::kMillisecond);                                                           \
    BENCHMARK_TEMPLATE(BM_PingPong, channel)                                                       \
        ->Name("PingPong/" name)                                                                   \
        ->ArgName("cpus")                                                                          \
        ->Arg(1)                                                                                   \
        ->Arg(2)                                                                                   \
        ->MinTime(1.0)                                                                             \
        ->UseRealTime()                                                                            \
        ->Unit(benchmark::kMicrosecond)

CMDQ_BENCH("vxu_cmdq+loop", vxu_channel);
CMDQ_BENCH("by_hand", hand_channel);
CMDQ_BENCH("uv_async", uv_channel);
CMDQ_BENCH("eventfd_epoll", eventfd_channel);

}  // namespace

BENCHMARK_MAIN();
