// Timer lateness (fire time minus due time) of the timer service's list
// timers and timer descriptors, beside libuv timers and bare timerfds waited
// on with select: one 10 ms periodic timer, and 50 timers of mixed periods.
#include <sys/select.h>
#include <sys/timerfd.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>
#include <uv.h>

#include <vxutil/frame.h>
#include <vxutil/timers.h>

namespace {

constexpr int kRunMs = 4000;

int64_t now_us(clockid_t clock)
{
    struct timespec ts;
    clock_gettime(clock, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000000 + ts.tv_nsec / 1000;
}

uint32_t period_of(int timers, int i)
{
    return timers == 1 ? 10u : 10u + static_cast<uint32_t>(i % 10) * 10u;
}

// Lateness samples in microseconds, written by one firing thread at a time.
class samples {
public:
    samples() : v_(1 << 20) {}
    void add(int64_t late_us)
    {
        const size_t i = n_.fetch_add(1, std::memory_order_relaxed);
        if (i < v_.size())
            v_[i] = late_us;
    }
    void report(benchmark::State &state)
    {
        const size_t n = std::min(n_.load(), v_.size());
        std::vector<int64_t> s(v_.begin(), v_.begin() + static_cast<long>(n));
        std::sort(s.begin(), s.end());
        if (s.empty()) {
            state.SkipWithError("no timer fired");
            return;
        }
        state.counters["samples"] = static_cast<double>(n);
        state.counters["p50_us"] = static_cast<double>(s[n / 2]);
        state.counters["p99_us"] = static_cast<double>(s[n * 99 / 100]);
        state.counters["max_us"] = static_cast<double>(s.back());
    }

private:
    std::vector<int64_t> v_;
    std::atomic<size_t> n_{0};
};

// Periodic schedule of a timer that re-arms on the clock's own grid.
struct grid {
    int64_t start_us;
    int64_t period_us;
    int64_t late(int64_t fired_us) const
    {
        const int64_t since = fired_us - start_us;
        return since - (since / period_us) * period_us;
    }
};

// ---- timer service ---------------------------------------------------------

// List timers are due one interval after the thread handled the previous
// expiry, which is just before the previous callback.
struct list_probe {
    samples *out;
    int64_t due_us;
    uint32_t period_ms;
};
list_probe g_list[64];

int on_list_timer(int, uint64_t i)
{
    const int64_t t = now_us(CLOCK_MONOTONIC);
    list_probe &p = g_list[i];
    p.out->add(t - p.due_us);
    p.due_us = t + int64_t{p.period_ms} * 1000;
    return 0;
}

struct fd_probe {
    samples *out;
    grid g;
};
fd_probe g_fd[64];

int on_fd_timer(int, uint64_t i)
{
    g_fd[i].out->add(g_fd[i].g.late(now_us(CLOCK_BOOTTIME)));
    return 0;
}

// Runs `timers` service timers of one type for kRunMs; prepare(i, period)
// sets up probe i just before its timer starts.
template <typename Prepare>
void run_service_timers(benchmark::State &state, uint8_t type, vxu_tmr_cb cb, Prepare prepare)
{
    const int timers = static_cast<int>(state.range(0));
    vxu_tmr_init();
    for (auto _ : state) {
        std::vector<int> ids;
        for (int i = 0; i < timers; ++i) {
            const int id = vxu_tmr_create(type);
            ids.push_back(id);
            prepare(i, period_of(timers, i));
            vxu_tmr_set(id, period_of(timers, i), 1, cb, static_cast<uint64_t>(i));
            if (vxu_tmr_start(id) != 0) {
                state.SkipWithError("timer refused (CLOCK_BOOTTIME_ALARM needs CAP_WAKE_ALARM)");
                break;
            }
        }
        vxu_os_wait(kRunMs / 1000, (kRunMs % 1000) * 1000);
        for (int id : ids)
            vxu_tmr_delete(id);
        vxu_os_wait(0, 100000);
    }
}

void BM_ServiceListTimers(benchmark::State &state)
{
    samples s;
    run_service_timers(state, VXU_TMR_TYPE_LIST, on_list_timer, [&s](int i, uint32_t ms) {
        g_list[i] = {&s, now_us(CLOCK_MONOTONIC) + int64_t{ms} * 1000, ms};
    });
    s.report(state);
}

void BM_ServiceDescriptorTimers(benchmark::State &state)
{
    samples s;
    run_service_timers(state, VXU_TMR_TYPE_FD, on_fd_timer, [&s](int i, uint32_t ms) {
        g_fd[i] = {&s, {now_us(CLOCK_BOOTTIME), int64_t{ms} * 1000}};
    });
    s.report(state);
}

// ---- libuv timers ----------------------------------------------------------

struct uv_probe {
    uv_timer_t timer;
    samples *out;
    int64_t due_us;
    uint64_t period_ms;
};

void on_uv_timer(uv_timer_t *timer)
{
    auto *p = reinterpret_cast<uv_probe *>(timer);
    const int64_t t = now_us(CLOCK_MONOTONIC);
    p->out->add(t - p->due_us);
    p->due_us = t + static_cast<int64_t>(p->period_ms) * 1000;
}

void on_uv_stop(uv_timer_t *timer) { uv_stop(timer->loop); }

void BM_LibuvTimers(benchmark::State &state)
{
    const int timers = static_cast<int>(state.range(0));
    samples s;
    for (auto _ : state) {
        uv_loop_t loop;
        uv_loop_init(&loop);
        std::vector<uv_probe> probes(static_cast<size_t>(timers));
        uv_update_time(&loop);
        for (int i = 0; i < timers; ++i) {
            uv_probe &p = probes[static_cast<size_t>(i)];
            uv_timer_init(&loop, &p.timer);
            p.out = &s;
            p.period_ms = period_of(timers, i);
            p.due_us = now_us(CLOCK_MONOTONIC) + static_cast<int64_t>(p.period_ms) * 1000;
            uv_timer_start(&p.timer, on_uv_timer, p.period_ms, p.period_ms);
        }
        uv_timer_t stopper;
        uv_timer_init(&loop, &stopper);
        uv_timer_start(&stopper, on_uv_stop, kRunMs, 0);
        uv_run(&loop, UV_RUN_DEFAULT);
        for (uv_probe &p : probes)
            uv_close(reinterpret_cast<uv_handle_t *>(&p.timer), nullptr);
        uv_close(reinterpret_cast<uv_handle_t *>(&stopper), nullptr);
        uv_run(&loop, UV_RUN_DEFAULT);
        uv_loop_close(&loop);
    }
    s.report(state);
}

// ---- bare timerfds and select ----------------------------------------------

void BM_BareTimerfdSelect(benchmark::State &state)
{
    const int timers = static_cast<int>(state.range(0));
    samples s;
    for (auto _ : state) {
        std::vector<int> fds;
        std::vector<grid> grids;
        for (int i = 0; i < timers; ++i) {
            const int fd = timerfd_create(CLOCK_MONOTONIC, 0);
            const uint32_t ms = period_of(timers, i);
            struct itimerspec period;
            period.it_value.tv_sec = ms / 1000;
            period.it_value.tv_nsec = (ms % 1000) * 1000000L;
            period.it_interval = period.it_value;
            grids.push_back({now_us(CLOCK_MONOTONIC), int64_t{ms} * 1000});
            timerfd_settime(fd, 0, &period, nullptr);
            fds.push_back(fd);
        }
        const int64_t end = now_us(CLOCK_MONOTONIC) + int64_t{kRunMs} * 1000;
        while (now_us(CLOCK_MONOTONIC) < end) {
            fd_set set;
            FD_ZERO(&set);
            int highest = 0;
            for (int fd : fds) {
                FD_SET(fd, &set);
                highest = std::max(highest, fd);
            }
            if (select(highest + 1, &set, nullptr, nullptr, nullptr) <= 0)
                continue;
            for (size_t i = 0; i < fds.size(); ++i) {
                if (!FD_ISSET(fds[i], &set))
                    continue;
                uint64_t expirations;
                if (read(fds[i], &expirations, sizeof expirations) == sizeof expirations)
                    s.add(grids[i].late(now_us(CLOCK_MONOTONIC)));
            }
        }
        for (int fd : fds)
            close(fd);
    }
    s.report(state);
}

#define LATENESS_BENCH(fn, name)                                                                   \
    BENCHMARK(fn)                                                                                  \
        ->Name(name)                                                                               \
        ->ArgName("timers")                                                                        \
        ->Arg(1)                                                                                   \
        ->Arg(50)                                                                                  \
        ->Iterations(1)                                                                            \
        ->UseRealTime()                                                                            \
        ->Unit(benchmark::kMillisecond)

LATENESS_BENCH(BM_ServiceListTimers, "Lateness/vxu_list_timers");
LATENESS_BENCH(BM_ServiceDescriptorTimers, "Lateness/vxu_descriptor_timers");
LATENESS_BENCH(BM_LibuvTimers, "Lateness/libuv_timers");
LATENESS_BENCH(BM_BareTimerfdSelect, "Lateness/bare_timerfd_select");

}  // namespace

BENCHMARK_MAIN();
