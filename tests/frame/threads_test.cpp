// Mutexes, threads, semaphores and sleeps across threads; ThreadSanitizer
// runs these.
#include <errno.h>
#include <signal.h>
#include <sys/time.h>

#include <atomic>
#include <thread>

#include <vxutil/frame.h>

#include "common/test_support.hpp"

namespace {

void on_signal(int) {}

// Installs on_signal without SA_RESTART, so blocking calls see EINTR.
void catch_signal(int sig)
{
    struct sigaction sa = {};
    sa.sa_handler = on_signal;
    ASSERT_EQ(0, sigaction(sig, &sa, nullptr));
}

TEST(Mutex, PlainMutexAcrossThreads)
{
    pthread_mutex_t m;
    EXPECT_EQ(0, vxu_mutex_init(&m, nullptr)) << "the label does not matter";
    EXPECT_EQ(0, vxu_mutex_destroy(&m));
    ASSERT_EQ(0, vxu_mutex_init(&m, "cmdq"));
    long counter = 0;
    auto work = [&] {
        for (int i = 0; i < 20000; ++i) {
            ASSERT_EQ(0, vxu_mutex_lock(&m));
            ++counter;
            ASSERT_EQ(0, vxu_mutex_unlock(&m));
        }
    };
    std::thread t1(work), t2(work);
    t1.join();
    t2.join();
    EXPECT_EQ(40000, counter);
    ASSERT_EQ(0, vxu_mutex_lock(&m));
    EXPECT_EQ(EBUSY, pthread_mutex_trylock(&m));
    EXPECT_EQ(0, vxu_mutex_unlock(&m));
    EXPECT_EQ(0, vxu_mutex_destroy(&m));
}

TEST(Thread, DetachedWithItsArgumentOrZero)
{
    struct probe {
        sem_t done;
        void *arg = nullptr;
        pthread_t self = 0;
        int detach = -1;
    } p;
    ASSERT_EQ(0, vxu_sem_create(&p.done));
    const pthread_t t = vxu_thread_create(
        [](void *arg) -> void * {
            auto *pr = static_cast<probe *>(arg);
            pr->arg = arg;
            pr->self = pthread_self();
            pthread_attr_t attr;
            if (pthread_getattr_np(pthread_self(), &attr) == 0) {
                pthread_attr_getdetachstate(&attr, &pr->detach);
                pthread_attr_destroy(&attr);
            }
            vxu_sem_post(&pr->done);
            return nullptr;
        },
        &p);
    ASSERT_NE(0u, t);
    ASSERT_EQ(0, vxu_sem_wait(&p.done));
    EXPECT_EQ(&p, p.arg);
    EXPECT_TRUE(pthread_equal(t, p.self));
    EXPECT_EQ(PTHREAD_CREATE_DETACHED, p.detach);
    EXPECT_EQ(0, vxu_sem_destory(&p.done));

    EXPECT_IN_CHILD([] {  // a default stack larger than any address space
        pthread_attr_t attr;
        ASSERT_EQ(0, pthread_attr_init(&attr));
        ASSERT_EQ(0, pthread_attr_setstacksize(&attr, size_t(1) << 50));
        ASSERT_EQ(0, pthread_setattr_default_np(&attr));
        pthread_attr_destroy(&attr);
        EXPECT_EQ(0u, vxu_thread_create([](void *) -> void * { return nullptr; }, nullptr));
    });
}

TEST(Semaphore, CountsPostsAndWaitsThroughSignals)
{
    sem_t sem;
    ASSERT_EQ(0, vxu_sem_create(&sem));
    int value = -1;
    EXPECT_EQ(0, sem_getvalue(&sem, &value));
    EXPECT_EQ(0, value);
    EXPECT_EQ(0, vxu_sem_post(&sem));
    EXPECT_EQ(0, vxu_sem_post(&sem));
    EXPECT_EQ(0, vxu_sem_wait(&sem));
    EXPECT_EQ(0, vxu_sem_wait(&sem));
    EXPECT_EQ(-1, sem_trywait(&sem));

    struct sigaction old;
    ASSERT_EQ(0, sigaction(SIGUSR1, nullptr, &old));
    catch_signal(SIGUSR1);
    std::atomic<int> result{-1};
    std::thread waiter([&] { result = vxu_sem_wait(&sem); });
    for (int i = 0; i < 5; ++i) {
        vxu_os_wait(0, 20000);
        pthread_kill(waiter.native_handle(), SIGUSR1);
    }
    EXPECT_EQ(-1, result.load()) << "the wait ended without a post";
    EXPECT_EQ(0, vxu_sem_post(&sem));
    waiter.join();
    EXPECT_EQ(0, result.load());
    sigaction(SIGUSR1, &old, nullptr);
    EXPECT_EQ(0, vxu_sem_destory(&sem));
}

TEST(OsWait, SleepsAndEndsEarlyOnASignal)
{
    const uint64_t start = vxu_com_get_uptime_ms();
    vxu_os_wait(0, 200000);
    EXPECT_GE(vxu_com_get_uptime_ms() - start, 190u);
    EXPECT_LT(vxu_com_get_uptime_ms() - start, 3000u);
    EXPECT_IN_CHILD([] {
        catch_signal(SIGALRM);
        itimerval it = {};
        it.it_value.tv_usec = 100000;
        ASSERT_EQ(0, setitimer(ITIMER_REAL, &it, nullptr));
        const uint64_t begin = vxu_com_get_uptime_ms();
        vxu_os_wait(30, 0);
        EXPECT_LT(vxu_com_get_uptime_ms() - begin, 10000u);
    });
}

}  // namespace
