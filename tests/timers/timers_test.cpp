// The timer queue and the timer service. The service is process-wide and has
// no teardown, so its tests run in forked children. Timing is generous:
// counts and order of callbacks are checked, not their times. The soak test
// (VXU_SOAK set, make test-soak) runs the plan test with a hundred
// timers of each plan for thirty seconds.
#include <limits.h>
#include <semaphore.h>
#include <sys/ioctl.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <map>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <thread>

#include <vxutil/frame.h>
#include <vxutil/timers.h>

#include "common/test_support.hpp"

namespace {

struct firing {
    uint64_t arg, at_ms;
};
std::mutex g_mutex;
auto &g_log = *new std::map<int, std::vector<firing>>;  // by id; outlives the service thread

int record_firing(int id, uint64_t arg)
{
    const std::lock_guard<std::mutex> hold(g_mutex);
    g_log[id].push_back({arg, vxu_com_get_uptime_ms()});
    return 0;
}

std::vector<firing> firings(int id)
{
    const std::lock_guard<std::mutex> hold(g_mutex);
    return g_log.count(id) ? g_log[id] : std::vector<firing>();
}

void sleep_ms(long ms) { vxu_os_wait(ms / 1000, (ms % 1000) * 1000); }

// Polls pred every 5 ms for up to five seconds; true once it holds.
template <typename Pred>
bool eventually(Pred pred)
{
    for (uint64_t end = vxu_com_get_uptime_ms() + 5000; !pred() && vxu_com_get_uptime_ms() < end;)
        sleep_ms(5);
    return pred();
}

// CLOCK_BOOTTIME_ALARM needs CAP_WAKE_ALARM and a kernel with alarm timers.
const bool g_alarm_timers = [] {
    const int fd = timerfd_create(CLOCK_BOOTTIME_ALARM, 0);
    return fd >= 0 && close(fd) == 0;
}();

std::vector<int> ids(vxu_tmrq &q)
{
    std::vector<int> out;
    const size_t link = offsetof(vxu_tmrq_item, link);
    for (vxu_list_link *l = q.timers.next; l != &q.timers; l = l->next)
        out.push_back(reinterpret_cast<vxu_tmrq_item *>(reinterpret_cast<char *>(l) - link)->id);
    return out;
}

// A timer queue has no teardown: its timers are deleted and its pair closed.
void drop(vxu_tmrq &q)
{
    for (int id : ids(q))
        vxu_tmrq_tmr_del(&q, id);
    close(q.wfd);
    close(q.rfd);
}

// Random adds, sets, deletes, existence tests and pulls against a model.
// Intervals are 0 (due at once) or far apart (never due during the test),
// so the list is in order of (interval, arming); every insertion, and
// nothing else, leaves a wake-up byte; a pull with nothing due drains up to
// 16 of them instead of sleeping. The ids start near INT_MAX to wrap.
TEST(Tmrq, RandomOperationsMatchAModel)
{
    const unsigned seed = 7;
    std::mt19937 rng(seed);
    vxu_tmrq q;
    ASSERT_EQ(0, vxu_tmrq_init(&q, 6));
    int last_id = q.last_id = INT_MAX - 3, bytes = 0;
    std::multimap<uint64_t, vxu_tmrq_item> model;  // by (interval, arming)
    for (uint64_t step = 0; step < 3000; ++step) {
        SCOPED_TRACE(testing::Message() << "seed " << seed << " step " << step);
        vxu_tmrq_item f = {}, *item = nullptr;
        const auto pick = std::next(model.begin(), model.empty() ? 0 : rng() % model.size());
        f.id = model.empty() || rng() % 5 == 0 ? static_cast<int>(rng() % 8) : pick->second.id;
        f.param1 = rng(), f.param2 = uint64_t{rng()} << 32, f.param3 = rng(), f.repeat = rng() % 2;
        f.interval_ms = rng() % 3 == 0 ? 0 : 1000000 * (rng() % 3 + 1);
        const uint64_t key = uint64_t{f.interval_ms} << 20 | step;
        const auto it =
            std::find_if(model.begin(), model.end(), [&](auto &t) { return t.second.id == f.id; });
        const bool known = it != model.end();
        const unsigned op = rng() % 6;
        if (op < 2) {
            const int id = model.size() >= 6 ? -1 : last_id == INT_MAX ? 1 : last_id + 1;
            ASSERT_EQ(id,
                      vxu_tmrq_tmr_add(&q, f.param1, f.param2, f.param3, f.interval_ms, f.repeat));
            if (id > 0)
                f.id = last_id = id, model.emplace(key, f), ++bytes;
        } else if (op == 2) {
            ASSERT_EQ(!known, vxu_tmrq_tmr_set(&q, f.id, f.param1, f.param2, f.param3,
                                               f.interval_ms, f.repeat));
            if (known)
                model.erase(it), model.emplace(key, f), ++bytes;
        } else if (op == 3) {
            ASSERT_EQ(0, vxu_tmrq_tmr_del(&q, f.id));
            if (known)
                model.erase(it);
        } else if (op == 4) {
            ASSERT_EQ(known, vxu_tmrq_tmr_is_exist(&q, f.id));
        } else if (!model.empty() && model.begin()->second.interval_ms == 0) {  // head due
            ASSERT_EQ(1, vxu_tmrq_pull(&q, &item));
            const vxu_tmrq_item w = model.begin()->second;
            EXPECT_EQ(0, memcmp(&w, item, offsetof(vxu_tmrq_item, expire_sec))) << "params, id";
            EXPECT_TRUE(item->interval_ms == 0 && item->repeat == w.repeat &&
                        item->expire_usec < 1000000 &&
                        !item->link.next == !w.repeat);  // a repeating one is back in the list
            EXPECT_EQ(0, vxu_tmrq_item_free(&q, item));  // which frees only a one-shot one
            model.erase(model.begin());
            if (w.repeat)
                model.emplace(step, w), ++bytes;  // due again one interval after delivery
        } else if (bytes > 0) {                   // with nothing due, a pull drains and returns
            ASSERT_EQ(0, vxu_tmrq_pull(&q, &item));
            bytes -= std::min(bytes, 16);
        }
        std::vector<int> expected;
        for (const auto &t : model)
            expected.push_back(t.second.id);
        int unread = -1;
        ASSERT_EQ(0, ioctl(q.rfd, FIONREAD, &unread));
        ASSERT_EQ(expected, ids(q));
        ASSERT_EQ(bytes, unread) << "one wake-up byte per insertion";
    }
    drop(q);
}

// Real waits: an add or a set from another thread wakes a sleeping pull at
// once; a delete writes no byte, so the pull sleeps on to the deleted
// timer's due time; an empty queue waits two seconds. Then the insertion of
// records due at the same time as others: behind them.
TEST(Tmrq, PullSleepsUntilDueOrWoken)
{
    vxu_tmrq q;
    testing::internal::CaptureStdout();
    ASSERT_EQ(0, vxu_tmrq_init(&q, 0));
    EXPECT_EQ(0u, testing::internal::GetCapturedStdout().find("curr boot time : sec="));
    EXPECT_EQ(100, q.max_timers);
    vxu_tmrq_item *item = nullptr;
    const auto pull_woken_by = [&](auto change) {
        std::thread other([&] { sleep_ms(150), change(); });
        const uint64_t start = vxu_com_get_uptime_ms();
        EXPECT_EQ(0, vxu_tmrq_pull(&q, &item)) << "a pull that waited delivers nothing";
        other.join();
        return vxu_com_get_uptime_ms() - start;
    };
    EXPECT_LT(pull_woken_by([&] { vxu_tmrq_tmr_add(&q, 0, 0, 0, 60000, 0); }), 1500u);
    EXPECT_LT(pull_woken_by([&] { vxu_tmrq_tmr_set(&q, 1, 0, 0, 0, 700, 0); }), 600u);
    EXPECT_NEAR(700, pull_woken_by([&] { vxu_tmrq_tmr_del(&q, 1); }), 500);
    EXPECT_NEAR(2000, pull_woken_by([] {}), 1500) << "an empty queue waits 2 s";
    for (int rc :
         {vxu_tmrq_init(nullptr, 0), vxu_tmrq_pull(nullptr, &item), vxu_tmrq_pull(&q, nullptr),
          vxu_tmrq_tmr_add(nullptr, 0, 0, 0, 0, 0), vxu_tmrq_tmr_set(nullptr, 1, 0, 0, 0, 0, 0),
          vxu_tmrq_tmr_del(nullptr, 1), vxu_tmrq_tmr_is_exist(nullptr, 1) - 1})
        EXPECT_EQ(-1, rc) << "null queue or out";
    const uint32_t due[][2] = {{5, 500}, {4, 999999}, {5, 500}, {5, 0}, {6, 0}, {4, 999999}};
    for (uint32_t i = 0; i < 6; ++i) {  // one thread: no need for the lock
        auto *t = static_cast<vxu_tmrq_item *>(calloc(1, sizeof(vxu_tmrq_item)));
        t->id = static_cast<int>(i + 1), t->expire_sec = due[i][0], t->expire_usec = due[i][1];
        EXPECT_EQ(0, _tmr_list_insert(&q, t));
    }
    EXPECT_EQ((std::vector<int>{2, 6, 4, 1, 3, 5}), ids(q)) << "behind equal due times";
    drop(q);
}

int delete_self(int id, uint64_t arg) { return vxu_tmr_delete(id) + record_firing(id, arg); }

// The soak's eight hundred timers can fill the service's wake-up pair: a
// start or a set then reports the lost byte (-1) and the timer runs all the
// same. Anywhere else it must report 0.
const bool g_soak = getenv("VXU_SOAK") != nullptr;

bool runs_after(int rc, int id)
{
    return rc == 0 || (g_soak && rc == -1 && vxu_tmr_status(id) == 1);
}

int restart_self(int id, uint64_t arg)  // the arg is lost when it cannot
{
    const bool stopped = vxu_tmr_stop(id) == 0 && vxu_tmr_status(id) == 0;
    return record_firing(id, stopped && runs_after(vxu_tmr_start(id), id) ? arg : 0);
}

TEST(TmrService, TimersFireByPlanAndGiveTheirDescriptorsBack)
{
    EXPECT_IN_CHILD([] {
        for (int rc : {vxu_tmr_create(0), vxu_tmr_set(1, 10, 0, record_firing, 0), vxu_tmr_start(1),
                       vxu_tmr_stop(1), vxu_tmr_status(1), vxu_tmr_delete(1)})
            EXPECT_EQ(-1, rc) << "no service yet";
        ASSERT_EQ(0, vxu_tmr_init());
        close(0);  // a timer descriptor 0 must be closed too
        const vxu_test::fd_leak_check released;
        const struct plan {
            uint8_t type;
            uint32_t ms;
            uint8_t repeat;
            vxu_tmr_cb cb;
            int fires;   // callbacks in the window; -1: once per period, give or take
            int status;  // after it
        } plans[] = {
            {VXU_TMR_TYPE_LIST, 100, 0, record_firing, -1, 1},  // list timers always repeat
            {VXU_TMR_TYPE_LIST, 300, 1, record_firing, -1, 1},
            {VXU_TMR_TYPE_LIST, 20, 0, nullptr, 0, 1},
            {VXU_TMR_TYPE_LIST, 20, 0, delete_self, 1, -2},  // released by the thread
            {VXU_TMR_TYPE_LIST, 20, 0, restart_self, -1, 1},
            {VXU_TMR_TYPE_FD, 100, 1, record_firing, -1, 1},
            {VXU_TMR_TYPE_FD, 150, 0, record_firing, 1, 0},  // a one-shot descriptor stops
            {VXU_TMR_TYPE_FD, 0, 1, record_firing, 0, 1},    // interval 0 never fires
        };
        const size_t kinds = g_alarm_timers ? 8 : 5, copies = g_soak ? 100 : 1;
        const uint64_t window = g_soak ? 30000 : 1000, start = vxu_com_get_uptime_ms();
        std::vector<int> ids;
        std::vector<uint32_t> period;
        for (size_t i = 0; i < kinds * copies; ++i) {
            const plan &p = plans[i % kinds];
            ids.push_back(vxu_tmr_create(p.type));
            period.push_back(p.ms + p.ms / 100 * (i / kinds % 10));  // copies vary by 1 %
            ASSERT_EQ(0, vxu_tmr_set(ids[i], period[i], p.repeat, p.cb, i + 1));
            ASSERT_TRUE(runs_after(vxu_tmr_start(ids[i]), ids[i])) << i;
        }
        ASSERT_EQ(0, vxu_tmr_init()) << "the same service";
        EXPECT_EQ(static_cast<int>(ids.size()), ids.back()) << "ids from 1 up";
        sleep_ms(window);
        for (size_t i = 0; i < ids.size(); ++i) {
            const plan &p = plans[i % kinds];
            const std::vector<firing> got = firings(ids[i]);
            const uint64_t n = got.size(), ms = period[i];
            EXPECT_TRUE(p.fires < 0 ? n >= window / (ms + 500) && n <= window / ms + 1
                                    : static_cast<int>(n) == p.fires)
                << i << ": " << n;
            EXPECT_EQ(p.status, vxu_tmr_status(ids[i])) << i;
            for (uint64_t k = 0; k < n; ++k)
                EXPECT_TRUE(got[k].arg == i + 1 && got[k].at_ms >= start + (k + 1) * ms)
                    << i << ": firing " << k << " with arg " << got[k].arg << " at "
                    << got[k].at_ms - start << " ms";
        }
        EXPECT_LT(firings(ids[0]).at(1).at_ms, firings(ids[1]).at(0).at_ms) << "100 ms twice first";

        // A set restarts a running timer from now; a stop ends its callbacks,
        // but for one under way.
        ASSERT_TRUE(runs_after(vxu_tmr_set(ids[1], 150, 0, record_firing, 99), ids[1]));
        ASSERT_EQ(0, vxu_tmr_stop(ids[0]));
        const size_t stopped = firings(ids[0]).size();
        ASSERT_TRUE(eventually([&] { return firings(ids[1]).back().arg == 99; }));
        EXPECT_LE(firings(ids[0]).size(), stopped + 1);
        for (int id : ids)
            vxu_tmr_delete(id);
        ASSERT_TRUE(eventually([&] { return vxu_tmr_status(ids.back()) == -2; }));

        // At most 20 stopped timers, running ones aside. A descriptor timer
        // without a descriptor, or with one beyond a select set, stays stopped
        // (valgrind and some machines refuse the pressure).
        const int list = ids.back() + 19, fd = ids.back() + 20;
        for (int i = 1; i <= 20; ++i)
            EXPECT_EQ(ids.back() + i, vxu_tmr_create(i % 2 == 0)) << "ids in sequence";
        EXPECT_EQ(-1, vxu_tmr_create(VXU_TMR_TYPE_LIST));
        ASSERT_EQ(0, vxu_tmr_set(list, 100000, 0, nullptr, 0) + vxu_tmr_start(list));
        EXPECT_EQ(fd + 1, vxu_tmr_create(VXU_TMR_TYPE_LIST));
        const auto refused = [fd](auto pressure) {
            const vxu_test::fds_taken taken(pressure);
            EXPECT_TRUE(!taken.ok() || (vxu_tmr_start(fd) == -1 && vxu_tmr_status(fd) == 0));
        };
        refused(vxu_test::leaving_free{0});
        refused(vxu_test::taken_below{1024});
    });
}

// Without a usable pair a timer queue must not wait, and the service runs
// its timers all the same; both report the wake-up bytes they could not write.
TEST(TimersWithoutAPair, QueueRefusesToWaitServiceStillFires)
{
    vxu_test::for_each_pair_pressure([](const char *what) {
        vxu_tmrq q;
        ASSERT_EQ(0, vxu_tmrq_init(&q, 0)) << what;
        EXPECT_TRUE(q.wfd == -1 && q.rfd == -1);
        EXPECT_EQ(-1,
                  vxu_tmrq_tmr_add(&q, 0, 0, 0, 0, 0) + vxu_tmrq_tmr_set(&q, 1, 0, 0, 0, 0, 0) + 1);
        EXPECT_EQ(1, vxu_tmrq_tmr_is_exist(&q, 1)) << "queued all the same";
        vxu_tmrq_item *item;
        EXPECT_EQ(-1, vxu_tmrq_pull(&q, &item)) << "must not wait";
        drop(q);
        ASSERT_EQ(0, vxu_tmr_init());
        ASSERT_EQ(0, vxu_tmr_set(vxu_tmr_create(VXU_TMR_TYPE_LIST), 100, 0, record_firing, 0));
        EXPECT_EQ(-1, vxu_tmr_start(1)) << "no wake-up byte";
        EXPECT_EQ(1, vxu_tmr_status(1)) << "running all the same";
        EXPECT_TRUE(eventually([] { return !firings(1).empty(); })) << "fired";
    });
}

// Four threads each run random operations on timers of their own against a
// model of their own while the timers fire. Each keeps at most three timers
// and waits for the release of each one it deletes, so the idle list never
// fills.
void churn(unsigned seed, bool with_descriptors, uint64_t end_ms)
{
    std::mt19937 rng(seed);
    std::map<int, bool> armed;  // the model: running or not, by id
    for (int step = 0; vxu_com_get_uptime_ms() < end_ms; ++step, sleep_ms(rng() % 4)) {
        SCOPED_TRACE(testing::Message() << "seed " << seed << " step " << step);
        const auto pick = std::next(armed.begin(), armed.empty() ? 0 : rng() % armed.size());
        const int id = armed.empty() || rng() % 8 == 0 ? 100000 + step : pick->first;
        const bool known = armed.count(id);
        const unsigned op = rng() % 6;
        if (op == 0 && armed.size() < 3) {
            const int made = vxu_tmr_create(with_descriptors && rng() % 3 == 0);
            ASSERT_GT(made, 0);
            armed[made] = false;
        } else if (op == 1) {
            ASSERT_EQ(known ? 0 : -2, vxu_tmr_set(id, 1 + rng() % 20, 1, record_firing, seed));
        } else if (op == 2 || op == 3) {
            ASSERT_EQ(known ? 0 : -2, op == 2 ? vxu_tmr_start(id) : vxu_tmr_stop(id));
            armed[id] = op == 2;
        } else if (op == 4) {
            ASSERT_EQ(known ? armed[id] : -2, vxu_tmr_status(id));
        } else if (op == 5) {  // once released, it is never called again
            ASSERT_EQ(known ? 0 : -2, vxu_tmr_delete(id));
            const size_t calls = firings(id).size();
            ASSERT_TRUE(eventually([id] { return vxu_tmr_status(id) == -2; })) << "not released";
            EXPECT_LE(firings(id).size(), calls + 1) << "called after its delete returned";
            armed.erase(id);
        }
        if (!known)
            armed.erase(id);
    }
}

TEST(TmrThreads, FourThreadsRunModelsWhileTimersFire)
{
    EXPECT_IN_CHILD([] {
        ASSERT_EQ(0, vxu_tmr_init());
        const uint64_t end = vxu_com_get_uptime_ms() + 2500;
        std::vector<std::thread> workers;
        for (unsigned w = 0; w < 4; ++w)
            workers.emplace_back(churn, 1234u + w, g_alarm_timers, end);
        for (std::thread &w : workers)
            w.join();
        const std::lock_guard<std::mutex> hold(g_mutex);  // the timers still fire
        EXPECT_FALSE(g_log.empty()) << "no timer fired";
    });
}

// Descriptors open now whose /proc link starts with `kind` ("" for any).
std::set<int> open_fds(const std::string &kind = "")
{
    std::set<int> fds;
    for (const auto &e : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        const std::string link = std::filesystem::read_symlink(e.path(), gone);
        if (!gone && link.rfind(kind, 0) == 0 && link.rfind("/proc/", 0) != 0)  // not our own
            fds.insert(std::stoi(e.path().filename()));
    }
    return fds;
}

sem_t g_entered, g_release;
std::atomic<int> g_fired[3];

int hold_thread(int id, uint64_t)
{
    vxu_tmr_stop(id);  // list timers run on until stopped
    sem_post(&g_entered);
    vxu_sem_wait(&g_release);
    return 0;
}

int count_firing(int, uint64_t slot) { return ++g_fired[slot], 0; }

bool fired_within(int slot, int count, int ms)
{
    for (; ms > 0 && g_fired[slot] < count; ms -= 5)
        usleep(5000);
    return g_fired[slot] >= count;
}

// A daemon closes descriptors the service thread waits on: the thread goes
// on serving, and a wake-up byte that meets a closed end is -1, no SIGPIPE.
TEST(TmrService, KeepsServingWhenItsDescriptorsAreClosed)
{
    if (!g_alarm_timers)
        GTEST_SKIP() << "timerfd on CLOCK_BOOTTIME_ALARM refused: needs CAP_WAKE_ALARM";
    EXPECT_IN_CHILD([] {
        std::set<int> pair = open_fds();
        ASSERT_EQ(0, vxu_tmr_init());
        for (int fd : open_fds())
            pair.count(fd) ? (void)pair.erase(fd) : (void)pair.insert(fd);
        ASSERT_EQ(2u, pair.size());
        ASSERT_EQ(0, vxu_sem_create(&g_entered) + vxu_sem_create(&g_release));
        const int holder = vxu_tmr_create(VXU_TMR_TYPE_LIST);
        ASSERT_EQ(0, vxu_tmr_set(holder, 1, 0, hold_thread, 0) + vxu_tmr_start(holder));
        ASSERT_EQ(0, vxu_sem_wait(&g_entered));  // the thread is out of select
        ASSERT_EQ(0, close(*pair.rbegin()));     // made second: the receiving end
        const int ticker = vxu_tmr_create(VXU_TMR_TYPE_LIST);
        ASSERT_EQ(0, vxu_tmr_set(ticker, 20, 1, count_firing, 0));
        EXPECT_EQ(-1, vxu_tmr_start(ticker));  // runs, its byte refused
        const int alarm = vxu_tmr_create(VXU_TMR_TYPE_FD);
        ASSERT_EQ(0, vxu_tmr_set(alarm, 5000, 1, count_firing, 1));
        vxu_tmr_start(alarm);
        const std::set<int> timerfds = open_fds("anon_inode:[timerfd]");
        ASSERT_EQ(1u, timerfds.size());
        ASSERT_EQ(0, close(*timerfds.begin()));
        ASSERT_EQ(0, sem_post(&g_release));
        EXPECT_TRUE(fired_within(0, 5, 3000)) << "list timers stopped firing";
        EXPECT_EQ(0, vxu_tmr_status(alarm)) << "a timer without its descriptor runs on";
        EXPECT_EQ(0, vxu_tmr_stop(ticker));
        const int once = vxu_tmr_create(VXU_TMR_TYPE_LIST);  // wakes the idle thread at once
        ASSERT_EQ(0, vxu_tmr_set(once, 30, 0, count_firing, 2));
        EXPECT_EQ(0, vxu_tmr_start(once));
        EXPECT_TRUE(fired_within(2, 1, 1500)) << "the new pair does not wake the thread";
        EXPECT_EQ(0, vxu_tmr_start(alarm));  // with a descriptor of its own again
        EXPECT_EQ(1, vxu_tmr_status(alarm));
    });
}

}  // namespace
