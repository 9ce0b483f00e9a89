// The runtime frame: clocks, descriptor helpers, memory and mutex
// wrappers, threads and semaphores (ThreadSanitizer runs these too). Where
// a check needs a fixed or failing clock, the test program's stand-ins
// provide it.
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>

#include <vxutil/frame.h>

#include "common/test_support.hpp"
#include "frame/fake_clock.hpp"

namespace {

using pair = std::pair<long, long>;

TEST(Clock, TimevalHelpersAndUptimeReadersOverFixedClocks)
{
    // now (s, us), ms ahead, deadline (s, us): one carry at most, negative
    // microseconds stay; the deadline is reached when ms is 0 or below.
    const long rows[][5] = {{10, 700000, 1500, 12, 200000},
                            {7, 999999, 1, 8, 999},
                            {99, 200000, -2500, 97, -300000},
                            {5, 0, 0, 5, 0},
                            {10, 500000, 500, 11, 0}};
    timeval n, t;  // now, and the deadline made from it
    fake_clock::wall = &n;
    for (const auto &r : rows) {
        const timeval want = {r[3], r[4]};
        n = {r[0], r[1]};
        EXPECT_EQ(r[2] <= 0, vxu_time_timeout(&want)) << r[2];
        vxu_get_timestamp(&t, int(r[2]));
        EXPECT_EQ(pair(r[3], r[4]), pair(t.tv_sec, t.tv_usec)) << r[2];
        EXPECT_EQ(pair(r[2], r[2] / 1000), pair(vxu_time_diff(&t, &n), vxu_time_sec_diff(&t, &n)));
    }
    const timeval near = {10, 500999}, zero = {0, 0}, far = {2147484, 0};
    EXPECT_EQ(1, vxu_time_timeout(&near)) << "partial milliseconds are dropped";
    const pair wraps(vxu_time_diff(&far, &zero), vxu_time_sec_diff(&far, &zero));
    EXPECT_EQ(pair(-2147483296, -2147483), wraps) << "as 32 bits";
    EXPECT_EQ(&t, vxu_get_uptime(&t));
    EXPECT_EQ(pair(10500, 10500000), pair(vxu_com_get_tmr_ms(), t.tv_sec * 1000000 + t.tv_usec));
    fake_clock::wall = nullptr;

    uint32_t sec = 0, usec = 0, boot_sec = 0, boot_usec = 0;
    ASSERT_EQ(0, vxu_com_get_uptime(&sec, &usec) | vxu_com_get_uptime_all(&boot_sec, &boot_usec));
    EXPECT_GE(boot_sec * 1000000ull + boot_usec, sec * 1000000ull + usec) << "boot time runs ahead";
    // A failed reading writes nothing; seconds are taken as 32 bits; either
    // pointer may be null.
    for (auto get : {vxu_com_get_uptime, vxu_com_get_uptime_all}) {
        fake_clock::uptime = [](timespec *) { return -1; };
        sec = usec = 1;
        EXPECT_EQ(pair(-1, 0), pair(get(&sec, &usec), vxu_com_get_uptime_ms()));
        EXPECT_EQ(pair(1, 1), pair(sec, usec));
        fake_clock::uptime = [](timespec *ts) { return *ts = {(1ll << 32) + 5, 7654321}, 0; };
        EXPECT_EQ(0, get(&sec, nullptr) | get(nullptr, &usec) | get(nullptr, nullptr));
        EXPECT_EQ(pair(5, 7654), pair(sec, usec));
    }
    EXPECT_EQ(5007u, vxu_com_get_uptime_ms());
    fake_clock::uptime = nullptr;
}

TEST(Clock, SystimeIsTheLocalCalendar)
{
    EXPECT_IN_CHILD([] {
        fake_clock::wall = new timeval{1772719629, 0};  // 2026-03-05 14:07:09 UTC, a Thursday
        // hours west of UTC; sec, min, hour, day, mon, wday, year
        const int rows[][8] = {{-12, 9, 7, 2, 6, 3, 5, 2026}, {15, 9, 7, 23, 4, 3, 3, 2026}};
        for (const auto &r : rows) {
            setenv("TZ", ("XXX" + std::to_string(r[0])).c_str(), 1);
            tzset();
            vxu_systime_t t;
            vxu_get_systime(&t);
            const std::vector<int> got = {t.sec, t.min, t.hour, t.day, t.mon, t.wday, t.year};
            EXPECT_EQ(std::vector<int>(r + 1, r + 8), got) << r[0];
        }
    });
}

TEST(Fd, FlagSwitchesAndReadiness)
{
    EXPECT_IN_CHILD([] {
        char path[] = "/tmp/vxu_fd_XXXXXX";  // appending, and descriptor 0 like any other
        const int file = mkostemp(path, O_APPEND);
        ASSERT_EQ(0, dup2(file, 0) | unlink(path));
        // close-on-exec switch (else non-blocking), on, then non-blocking and close-on-exec
        const int steps[][4] = {{0, 1, 1, 0}, {1, 7, 1, 1}, {0, 0, 0, 1}, {1, 0, 0, 0}};
        for (const auto &s : steps) {
            EXPECT_EQ(0, (s[0] ? vxu_com_fd_cloexec : vxu_com_fd_noblock)(0, s[1]));
            const int fl = fcntl(0, F_GETFL), fd = fcntl(0, F_GETFD);
            EXPECT_EQ(pair(s[2], s[3]), pair(!!(fl & O_NONBLOCK), !!(fd & FD_CLOEXEC)));
            EXPECT_TRUE(fl & O_APPEND) << "step " << &s - steps;
        }
        EXPECT_EQ(pair(-1, -1), pair(vxu_com_fd_noblock(-1, 1), vxu_com_fd_cloexec(-1, 0)));

        int p[2];
        ASSERT_EQ(0, pipe(p));
        EXPECT_EQ(0, vxu_com_fd_has_data(p[0])) << "empty";
        ASSERT_EQ(1, write(p[1], "x", 1));
        EXPECT_EQ(1, vxu_com_fd_has_data(p[0])) << "one byte";
        close(p[1]);
        EXPECT_EQ(1, vxu_com_fd_has_data(p[0])) << "end of file";
        EXPECT_EQ(0, vxu_com_fd_has_data(p[1]) | vxu_com_fd_has_data(-1)) << "closed, negative";
        if (vxu_test::under_valgrind())
            return;  // it keeps the descriptors from 1024 up
        ASSERT_TRUE(vxu_test::raise_fd_limit(2048));
        for (int fd : {1023, 1024, 1500}) {  // all at the end of file; only 1023 fits a set
            ASSERT_EQ(fd, dup2(p[0], fd));
            EXPECT_EQ(fd == 1023, vxu_com_fd_has_data(fd)) << fd;
        }
    });
}

TEST(Memory, ZeroFilledBlocksFixedDumpsAndExhaustion)
{
    EXPECT_FALSE(_vxu_mem_alloc("t", 1, 0) || _vxu_mem_alloc("t", 1, -5)) << "no empty blocks";
    _vxu_mem_free("t", 1, nullptr);
    char *block = static_cast<char *>(vxu_mem_alloc(1 << 20));
    EXPECT_EQ(std::string(1 << 20, '\0'), std::string(block, 1 << 20));
    vxu_mem_free(block);
    FILE *f = tmpfile(), *ro = fopen("/dev/null", "r");  // ro takes no line: fwrite gives 0
    EXPECT_EQ(30, vxu_mem_dump(f));
    EXPECT_EQ(pair(0, 0), pair(vxu_mutex_dump(f), vxu_mem_dump(ro) + vxu_mutex_dump(ro)));
    rewind(f);
    EXPECT_EQ("mem tracking is not supported\nmutex tracking is not supported\n",
              vxu_test::read_stream(f));
    fclose(f), fclose(ro);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // they need more room
    SKIP_UNDER_EMULATION("RLIMIT_AS for the guest");
    EXPECT_IN_CHILD([] {
        const struct rlimit limit = {256u << 20, 256u << 20};
        ASSERT_EQ(0, setrlimit(RLIMIT_AS, &limit));
        EXPECT_EQ(nullptr, vxu_mem_alloc(1 << 30));
        void *p = nullptr;
        for (int i = 0; i < 16 && (p = vxu_mem_alloc(64 << 20)); ++i)  // 1 GiB: each must go back
            vxu_mem_free(p);
        EXPECT_NE(nullptr, p);
    });
#endif
}

pthread_mutex_t g_lock;
sem_t g_go, g_done;
long g_counter;

using worker = std::pair<pthread_t, int>;  // who it is, and its detach state

// Notes who it is, waits for the go and counts under the mutex.
void *work(void *arg)
{
    auto *w = static_cast<worker *>(arg);
    pthread_attr_t attr;
    if (pthread_getattr_np(pthread_self(), &attr) == 0)
        pthread_attr_getdetachstate(&attr, &w->second), pthread_attr_destroy(&attr);
    w->first = pthread_self();
    EXPECT_EQ(0, vxu_sem_wait(&g_go));
    for (int i = 0; i < 20000; ++i) {
        EXPECT_EQ(0, vxu_mutex_lock(&g_lock));
        ++g_counter;
        EXPECT_EQ(0, vxu_mutex_unlock(&g_lock));
    }
    vxu_sem_post(&g_done);
    return nullptr;
}

TEST(Threads, DetachedWorkersWaitThroughSignalsThenShareAMutex)
{
    struct sigaction sa = {};
    sa.sa_handler = [](int) {};  // no SA_RESTART: waits see EINTR
    ASSERT_EQ(0, sigaction(SIGUSR1, &sa, nullptr) | sigaction(SIGALRM, &sa, nullptr));
    EXPECT_IN_CHILD([] {  // single-threaded still, as forked children must be
        ualarm(100000, 0);
        const uint64_t begin = vxu_com_get_uptime_ms();
        vxu_os_wait(30, 0);
        EXPECT_LT(vxu_com_get_uptime_ms() - begin, 10000u) << "a signal ends the sleep";
        pthread_attr_t attr;  // a default stack larger than any address space
        ASSERT_EQ(0, pthread_attr_init(&attr));
        ASSERT_EQ(0, pthread_attr_setstacksize(&attr, size_t(1) << 50));
        ASSERT_EQ(0, pthread_setattr_default_np(&attr));
        EXPECT_EQ(0u, vxu_thread_create(work, nullptr));
    });
    ASSERT_EQ(0,
              vxu_mutex_init(&g_lock, nullptr) | vxu_sem_create(&g_go) | vxu_sem_create(&g_done));
    worker w[2];
    pthread_t t[2];
    for (int i = 0; i < 2; ++i)
        ASSERT_NE(0u, t[i] = vxu_thread_create(work, &w[i]));
    const uint64_t start = vxu_com_get_uptime_ms();
    for (int i = 0; i < 10; ++i) {  // the workers are alive: they wait for the go
        vxu_os_wait(0, 10000);
        pthread_kill(t[i % 2], SIGUSR1);
    }
    EXPECT_GE(vxu_com_get_uptime_ms() - start, 95u) << "ten sleeps of 10 ms";
    EXPECT_EQ(0, vxu_sem_post(&g_go) | vxu_sem_post(&g_go));
    EXPECT_EQ(0, vxu_sem_wait(&g_done) | vxu_sem_wait(&g_done));
    EXPECT_EQ(40000, g_counter);
    for (int i = 0; i < 2; ++i)  // each ran detached, with its own argument
        EXPECT_TRUE(pthread_equal(t[i], w[i].first) && w[i].second == PTHREAD_CREATE_DETACHED);
    EXPECT_EQ(0, vxu_mutex_destroy(&g_lock));
}

int refused(int rc) { return rc == -1 ? errno : 0; }  // the errno of a -1, else 0

// A careless NULL gets its family's failure, never a crash.
TEST(Frame, NullArgumentsGetTheirFamilysFailure)
{
    static struct timeval tv = {1, 0};
    const std::pair<const char *, int (*)()> rows[] = {
        {"mem_dump 0", [] { return vxu_mem_dump(nullptr); }},
        {"mutex_dump 0", [] { return vxu_mutex_dump(nullptr); }},
        {"mutex_init EINVAL", [] { return vxu_mutex_init(nullptr, "x") - EINVAL; }},
        {"mutex_lock EINVAL", [] { return vxu_mutex_lock(nullptr) - EINVAL; }},
        {"mutex_unlock EINVAL", [] { return vxu_mutex_unlock(nullptr) - EINVAL; }},
        {"mutex_destroy EINVAL", [] { return vxu_mutex_destroy(nullptr) - EINVAL; }},
        {"sem_create -1 EINVAL", [] { return refused(vxu_sem_create(nullptr)) - EINVAL; }},
        {"sem_post -1 EINVAL", [] { return refused(vxu_sem_post(nullptr)) - EINVAL; }},
        {"sem_wait EINVAL", [] { return vxu_sem_wait(nullptr) - EINVAL; }},
        {"sem_destory -1 EINVAL", [] { return refused(vxu_sem_destory(nullptr)) - EINVAL; }},
        {"time_diff(NULL, tv) 0", [] { return vxu_time_diff(nullptr, &tv); }},
        {"time_diff(tv, NULL) 0", [] { return vxu_time_diff(&tv, nullptr); }},
        {"time_sec_diff 0", [] { return vxu_time_sec_diff(nullptr, &tv); }},
        {"time_timeout -1", [] { return vxu_time_timeout(nullptr) + 1; }},
        {"thread_create 0", [] { return vxu_thread_create(nullptr, &tv) == 0 ? 0 : 1; }},
        {"get_uptime NULL", [] { return vxu_get_uptime(nullptr) == nullptr ? 0 : 1; }},
        {"get_systime returns", [] { return vxu_get_systime(nullptr), 0; }},
        {"get_timestamp returns", [] { return vxu_get_timestamp(nullptr, 5), 0; }},
    };
    for (const auto &[call, run] : rows)
        EXPECT_EQ(0, run()) << call;
    EXPECT_EQ(1, tv.tv_sec);  // nothing wrote through the one valid pointer
}

}  // namespace
