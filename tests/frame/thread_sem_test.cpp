#include <errno.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>

#include <vxutil/frame.h>

#include "common/test_support.hpp"

namespace {

struct handoff {
    sem_t started;
    std::atomic<int> seen{0};
    std::atomic<pthread_t> self{0};
};

void *record_arg(void *p)
{
    auto *h = static_cast<handoff *>(p);
    h->seen = 42;
    h->self = pthread_self();
    vxu_sem_post(&h->started);
    return nullptr;
}

TEST(Thread, RunsDetachedWithItsArgument)
{
    handoff h;
    ASSERT_EQ(0, vxu_sem_create(&h.started));
    const pthread_t t = vxu_thread_create(record_arg, &h);
    ASSERT_NE(0u, t);
    EXPECT_EQ(0, vxu_sem_wait(&h.started));
    EXPECT_EQ(42, h.seen.load());
    EXPECT_TRUE(pthread_equal(t, h.self.load()));
    EXPECT_EQ(0, vxu_sem_destory(&h.started));
}

TEST(Thread, IsCreatedDetached)
{
    // A detached thread's attributes say so; query them from inside.
    struct probe {
        sem_t done;
        int state = -1;
    } p;
    ASSERT_EQ(0, vxu_sem_create(&p.done));
    const pthread_t t = vxu_thread_create(
        [](void *arg) -> void * {
            auto *pr = static_cast<probe *>(arg);
            pthread_attr_t attr;
            if (pthread_getattr_np(pthread_self(), &attr) == 0) {
                pthread_attr_getdetachstate(&attr, &pr->state);
                pthread_attr_destroy(&attr);
            }
            vxu_sem_post(&pr->done);
            return nullptr;
        },
        &p);
    ASSERT_NE(0u, t);
    ASSERT_EQ(0, vxu_sem_wait(&p.done));
    EXPECT_EQ(PTHREAD_CREATE_DETACHED, p.state);
    vxu_sem_destory(&p.done);
}

TEST(Thread, FailureGivesZero)
{
    EXPECT_IN_CHILD([] {
        // A default stack larger than any address space cannot be mapped.
        pthread_attr_t attr;
        ASSERT_EQ(0, pthread_attr_init(&attr));
        ASSERT_EQ(0, pthread_attr_setstacksize(&attr, size_t(1) << 50));
        ASSERT_EQ(0, pthread_setattr_default_np(&attr));
        pthread_attr_destroy(&attr);
        EXPECT_EQ(0u, vxu_thread_create([](void *) -> void * { return nullptr; }, nullptr));
    });
}

void on_alarm(int) {}

TEST(Semaphore, WaitSurvivesSignalsUntilPosted)
{
    struct sigaction sa = {};
    sa.sa_handler = on_alarm;  // no SA_RESTART: sem_wait sees EINTR
    struct sigaction old;
    ASSERT_EQ(0, sigaction(SIGUSR1, &sa, &old));

    struct shared {
        sem_t sem;
        sem_t ready;
        std::atomic<int> result{-1};
        std::atomic<bool> returned{false};
    } s;
    ASSERT_EQ(0, vxu_sem_create(&s.sem));
    ASSERT_EQ(0, vxu_sem_create(&s.ready));
    pthread_t waiter;
    ASSERT_EQ(0, pthread_create(
                     &waiter, nullptr,
                     [](void *arg) -> void * {
                         auto *sh = static_cast<shared *>(arg);
                         vxu_sem_post(&sh->ready);
                         sh->result = vxu_sem_wait(&sh->sem);
                         sh->returned = true;
                         return nullptr;
                     },
                     &s));
    ASSERT_EQ(0, vxu_sem_wait(&s.ready));
    for (int i = 0; i < 5; ++i) {
        vxu_os_wait(0, 20000);
        pthread_kill(waiter, SIGUSR1);
    }
    vxu_os_wait(0, 50000);
    EXPECT_FALSE(s.returned.load()) << "the wait ended without a post";
    EXPECT_EQ(0, vxu_sem_post(&s.sem));
    pthread_join(waiter, nullptr);
    EXPECT_EQ(0, s.result.load());
    sigaction(SIGUSR1, &old, nullptr);
    vxu_sem_destory(&s.sem);
    vxu_sem_destory(&s.ready);
}

TEST(Semaphore, CountsPosts)
{
    sem_t sem;
    ASSERT_EQ(0, vxu_sem_create(&sem));
    int value = -1;
    sem_getvalue(&sem, &value);
    EXPECT_EQ(0, value);
    EXPECT_EQ(0, vxu_sem_post(&sem));
    EXPECT_EQ(0, vxu_sem_post(&sem));
    EXPECT_EQ(0, vxu_sem_wait(&sem));
    EXPECT_EQ(0, vxu_sem_wait(&sem));
    EXPECT_EQ(-1, sem_trywait(&sem));
    EXPECT_EQ(0, vxu_sem_destory(&sem));
}

TEST(OsWait, SleepsAndEndsEarlyOnSignal)
{
    const uint64_t a = vxu_com_get_uptime_ms();
    vxu_os_wait(0, 200000);
    const uint64_t slept = vxu_com_get_uptime_ms() - a;
    EXPECT_GE(slept, 190u);
    EXPECT_LT(slept, 3000u);

    EXPECT_IN_CHILD([] {
        struct sigaction sa = {};
        sa.sa_handler = on_alarm;
        sigaction(SIGALRM, &sa, nullptr);
        alarm(1);
        const uint64_t start = vxu_com_get_uptime_ms();
        vxu_os_wait(30, 0);
        EXPECT_LT(vxu_com_get_uptime_ms() - start, 20000u);
    });
}

}  // namespace
