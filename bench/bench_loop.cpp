// One loop pass over 20 registered socket pairs, one of them readable:
// vxu_loop_run(0) beside the same work in libevent's select back end and
// in libuv. The readable socket is never drained, so every pass dispatches
// exactly one callback.
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string_view>

#include <benchmark/benchmark.h>
#include <event2/event.h>
#include <uv.h>

#include <vxutil/vxutil.h>

namespace {

constexpr int kPairs = 20;

struct socket_pairs {
    int fds[kPairs][2];
    socket_pairs()
    {
        for (auto &p : fds) {
            if (socketpair(AF_UNIX, SOCK_STREAM, 0, p) != 0)
                abort();
        }
        // The middle pair's reading end stays readable for the whole run.
        if (write(fds[kPairs / 2][1], "x", 1) != 1)
            abort();
    }
    ~socket_pairs()
    {
        for (auto &p : fds) {
            close(p[0]);
            close(p[1]);
        }
    }
    int reader(int i) const { return fds[i][0]; }
};

long g_dispatched;

void vxu_cb(int, int, void *) { ++g_dispatched; }

void BM_vxutil_loop_run(benchmark::State &state)
{
    socket_pairs pairs;
    vxu_loop_init(0);
    for (int i = 0; i < kPairs; ++i)
        vxu_loop_add(pairs.reader(i), VXU_LOOP_EV_READ, vxu_cb, nullptr);
    g_dispatched = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(vxu_loop_run(0));
    if (g_dispatched != state.iterations())
        state.SkipWithError("a pass did not dispatch exactly one callback");
    for (int i = 0; i < kPairs; ++i)
        vxu_loop_remove(pairs.reader(i));
}
BENCHMARK(BM_vxutil_loop_run);

void libevent_cb(evutil_socket_t, short, void *) { ++g_dispatched; }

void BM_libevent_select(benchmark::State &state)
{
    socket_pairs pairs;
    event_config *cfg = event_config_new();
    event_config_avoid_method(cfg, "epoll");
    event_config_avoid_method(cfg, "poll");
    event_base *base = event_base_new_with_config(cfg);
    event_config_free(cfg);
    if (!base || std::string_view(event_base_get_method(base)) != "select") {
        state.SkipWithError("libevent's select back end is not available");
        return;
    }
    event *evs[kPairs];
    for (int i = 0; i < kPairs; ++i) {
        evs[i] = event_new(base, pairs.reader(i), EV_READ | EV_PERSIST, libevent_cb, nullptr);
        event_add(evs[i], nullptr);
    }
    g_dispatched = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(event_base_loop(base, EVLOOP_NONBLOCK | EVLOOP_ONCE));
    if (g_dispatched != state.iterations())
        state.SkipWithError("a pass did not dispatch exactly one callback");
    for (event *ev : evs)
        event_free(ev);
    event_base_free(base);
}
BENCHMARK(BM_libevent_select);

void libuv_cb(uv_poll_t *, int, int) { ++g_dispatched; }

void BM_libuv_poll(benchmark::State &state)
{
    socket_pairs pairs;
    uv_loop_t loop;
    uv_loop_init(&loop);
    uv_poll_t polls[kPairs];
    for (int i = 0; i < kPairs; ++i) {
        uv_poll_init(&loop, &polls[i], pairs.reader(i));
        uv_poll_start(&polls[i], UV_READABLE, libuv_cb);
    }
    g_dispatched = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(uv_run(&loop, UV_RUN_NOWAIT));
    if (g_dispatched != state.iterations())
        state.SkipWithError("a pass did not dispatch exactly one callback");
    for (auto &p : polls)
        uv_close(reinterpret_cast<uv_handle_t *>(&p), nullptr);
    uv_run(&loop, UV_RUN_DEFAULT);
    uv_loop_close(&loop);
}
BENCHMARK(BM_libuv_poll);

}  // namespace

BENCHMARK_MAIN();
