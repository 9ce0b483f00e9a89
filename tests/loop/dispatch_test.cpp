#include <signal.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <vxutil/frame.h>
#include <vxutil/loop.h>

#include "common/test_support.hpp"
#include "loop/loop_test_util.hpp"

using namespace loop_test;

namespace {

struct pair_t {
    int rd, wr;
};

pair_t make_pair()
{
    int fds[2];
    EXPECT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, fds));
    return {fds[0], fds[1]};
}

void drain(int fd)
{
    char buf[64];
    while (vxu_com_fd_has_data(fd) && read(fd, buf, sizeof buf) > 0) {
    }
}

void drain_and_record(int fd, int events, void *arg)
{
    record_fd(fd, events, arg);
    drain(fd);
}

uint64_t elapsed_since(uint64_t start) { return vxu_com_get_uptime_ms() - start; }

TEST(LoopRun, EmptyRegistryWaitsOutItsBudget)
{
    EXPECT_IN_CHILD([] {
        ASSERT_EQ(0, vxu_loop_init(0));
        uint64_t start = vxu_com_get_uptime_ms();
        EXPECT_EQ(0, vxu_loop_run(0));
        EXPECT_LT(elapsed_since(start), 200u);
        start = vxu_com_get_uptime_ms();
        EXPECT_EQ(0, vxu_loop_run(250));
        EXPECT_GE(elapsed_since(start), 245u);
        EXPECT_LT(elapsed_since(start), 3000u);
    });
}

TEST(LoopRun, ReadableDescriptorIsDispatchedOncePerPass)
{
    EXPECT_IN_CHILD([] {
        ASSERT_EQ(0, vxu_loop_init(0));
        pair_t p = make_pair();
        int tag = 0;
        ASSERT_EQ(0, vxu_loop_add(p.rd, VXU_LOOP_EV_READ, record_fd, &tag));
        EXPECT_EQ(0, vxu_loop_run(0)) << "nothing to read yet";
        ASSERT_EQ(3, write(p.wr, "abc", 3));
        EXPECT_EQ(1, vxu_loop_run(0));
        ASSERT_EQ(1u, g_calls.size());
        EXPECT_EQ(p.rd, g_calls[0].fd);
        EXPECT_EQ(VXU_LOOP_EV_READ, g_calls[0].events);
        EXPECT_EQ(&tag, g_calls[0].arg);
        // Level triggered: unread data is reported again on the next pass.
        EXPECT_EQ(1, vxu_loop_run(0));
        EXPECT_EQ(2u, g_calls.size());
    });
}

TEST(LoopRun, ReadAndWriteReadinessAreCountedSeparately)
{
    EXPECT_IN_CHILD([] {
        ASSERT_EQ(0, vxu_loop_init(0));
        pair_t p = make_pair();
        ASSERT_EQ(0, vxu_loop_add(p.rd, VXU_LOOP_EV_READ | VXU_LOOP_EV_WRITE, record_fd, nullptr));
        ASSERT_EQ(1, write(p.wr, "x", 1));
        EXPECT_EQ(2, vxu_loop_run(0));
        ASSERT_EQ(1u, g_calls.size());
        EXPECT_EQ(VXU_LOOP_EV_READ | VXU_LOOP_EV_WRITE, g_calls[0].events);

        // Writable but registered for reading only: nothing happens.
        g_calls.clear();
        ASSERT_EQ(0, vxu_loop_add(p.wr, VXU_LOOP_EV_READ, record_fd, nullptr));
        ASSERT_EQ(0, vxu_loop_remove(p.rd));
        EXPECT_EQ(0, vxu_loop_run(0));
        EXPECT_TRUE(g_calls.empty());

        // Unknown event bits: the descriptor is watched for nothing.
        ASSERT_EQ(0, vxu_loop_remove(p.wr));
        ASSERT_EQ(0, vxu_loop_add(p.rd, 4, record_fd, nullptr));
        EXPECT_EQ(0, vxu_loop_run(0));
        EXPECT_TRUE(g_calls.empty());
    });
}

TEST(LoopRun, SingleEntrySeesEventsASetEntryWatches)
{
    EXPECT_IN_CHILD([] {
        ASSERT_EQ(0, vxu_loop_init(0));
        pair_t p = make_pair();
        ASSERT_EQ(0, vxu_loop_add(p.rd, VXU_LOOP_EV_READ, record_fd, nullptr));
        fd_set w = make_set({p.rd});
        ASSERT_EQ(0, vxu_loop_add_fds(nullptr, 0, &w, p.rd, ignore_fds, nullptr));
        // Writable only; the write readiness comes from the set entry's watch.
        EXPECT_EQ(1, vxu_loop_run(0));
        ASSERT_EQ(1u, g_calls.size());
        EXPECT_EQ(VXU_LOOP_EV_WRITE, g_calls[0].events);
    });
}

struct fds_seen {
    int calls = 0;
    fd_set r, w;
};

void record_sets(fd_set *r, fd_set *w, void *arg)
{
    auto *seen = static_cast<fds_seen *>(arg);
    ++seen->calls;
    seen->r = *r;
    seen->w = *w;
    FD_ZERO(r);  // the copies are the loop's; scribbling on them is harmless
    FD_ZERO(w);
}

TEST(LoopRun, SetEntryGetsCopiesOfItsRegisteredSets)
{
    EXPECT_IN_CHILD([] {
        ASSERT_EQ(0, vxu_loop_init(0));
        pair_t a = make_pair(), b = make_pair();
        const int hi = a.rd > b.rd ? a.rd : b.rd;
        fd_set r = make_set({a.rd, b.rd});
        fd_set w = make_set({a.wr});
        fds_seen seen;
        ASSERT_EQ(0, vxu_loop_add_fds(&r, hi + 1, &w, 0, record_sets, &seen));
        EXPECT_EQ(0, vxu_loop_run(0)) << "write bound 0 leaves the write set unwatched";
        EXPECT_EQ(0, seen.calls);

        ASSERT_EQ(1, write(b.wr, "x", 1));
        EXPECT_EQ(0, vxu_loop_run(0)) << "set entries do not add to the count";
        EXPECT_EQ(1, seen.calls);
        EXPECT_EQ(0, memcmp(&seen.r, &r, sizeof r));
        EXPECT_EQ(0, memcmp(&seen.w, &w, sizeof w));

        // Both readable: still one call per pass; scribbles did not stick.
        ASSERT_EQ(1, write(a.wr, "x", 1));
        EXPECT_EQ(0, vxu_loop_run(0));
        EXPECT_EQ(2, seen.calls);
        EXPECT_EQ(0, memcmp(&seen.r, &r, sizeof r));
    });
}

TEST(LoopRun, SetBoundsLimitWhatIsWatched)
{
    EXPECT_IN_CHILD([] {
        ASSERT_EQ(0, vxu_loop_init(0));
        pair_t p = make_pair();
        ASSERT_EQ(1, write(p.wr, "x", 1));
        fd_set r = make_set({p.rd});
        fds_seen below, exact, zero, huge;
        ASSERT_EQ(0, vxu_loop_add_fds(&r, p.rd - 1, nullptr, 0, record_sets, &below));
        fd_set w = make_set({p.wr});
        ASSERT_EQ(0, vxu_loop_add_fds(nullptr, 0, &w, 0, record_sets, &zero));
        EXPECT_EQ(0, vxu_loop_run(0));
        EXPECT_EQ(0, below.calls) << "descriptors above the bound are not watched";
        EXPECT_EQ(0, zero.calls) << "a bound of 0 watches nothing";

        ASSERT_EQ(0, vxu_loop_remove_fds(&r, nullptr));
        ASSERT_EQ(0, vxu_loop_add_fds(&r, p.rd, nullptr, 0, record_sets, &exact));
        EXPECT_EQ(0, vxu_loop_run(0));
        EXPECT_EQ(1, exact.calls) << "the bound itself is included";

        // Bounds past the set size are cut to descriptor 1023.
        ASSERT_EQ(0, vxu_loop_remove_fds(&r, nullptr));
        ASSERT_EQ(0, vxu_loop_add_fds(&r, 1 << 20, nullptr, 0, record_sets, &huge));
        EXPECT_EQ(0, vxu_loop_run(0));
        EXPECT_EQ(1, huge.calls);
    });
}

TEST(LoopRun, DescriptorsPastTheSetAreRefusedOrPassedOver)
{
    SKIP_UNDER_VALGRIND("raising RLIMIT_NOFILE");
    EXPECT_IN_CHILD([] {
        ASSERT_TRUE(vxu_test::raise_fd_limit(2048));
        ASSERT_EQ(0, vxu_loop_init(0));
        pair_t p = make_pair();
        ASSERT_EQ(1, write(p.wr, "x", 1));
        // One readable, writable socket at the last number a set holds and past it.
        for (int fd : {1023, 1024, 1500})
            ASSERT_EQ(fd, dup2(p.rd, fd));
        EXPECT_EQ(-3, vxu_loop_add(1024, VXU_LOOP_EV_READ, record_fd, nullptr));
        EXPECT_EQ(-3, vxu_loop_add(1500, VXU_LOOP_EV_READ | VXU_LOOP_EV_WRITE, record_fd, nullptr));
        EXPECT_EQ(-1, vxu_loop_remove(1500)) << "never registered";
        ASSERT_EQ(0, vxu_loop_add(1023, VXU_LOOP_EV_READ | VXU_LOOP_EV_WRITE, record_fd, nullptr));
        // Set entries whose bounds reach past 1023 are watched up to 1023.
        fd_set r = make_set({1023});
        fd_set w = make_set({p.rd});
        fds_seen seen;
        ASSERT_EQ(0, vxu_loop_add_fds(&r, 1500, &w, 1 << 20, record_sets, &seen));
        for (int pass = 1; pass <= 3; ++pass) {
            EXPECT_EQ(2, vxu_loop_run(0));
            EXPECT_EQ(pass, seen.calls);
        }
        ASSERT_EQ(3u, g_calls.size());
        EXPECT_EQ(1023, g_calls[2].fd);
        EXPECT_EQ(VXU_LOOP_EV_READ | VXU_LOOP_EV_WRITE, g_calls[2].events);
        for (int fd : {1023, 1024, 1500})
            close(fd);
    });
}

// Callback state for the registry-changing tests.
struct mutate {
    int victim = -1;    // entry to remove from inside the callback
    int newcomer = -1;  // descriptor to add from inside the callback
    bool remove_self = false;
};

void mutate_cb(int fd, int events, void *arg)
{
    record_fd(fd, events, arg);
    auto *m = static_cast<mutate *>(arg);
    if (m->remove_self) {
        EXPECT_EQ(0, vxu_loop_remove(fd));
    }
    if (m->victim >= 0) {
        EXPECT_EQ(0, vxu_loop_remove(m->victim));
    }
    if (m->newcomer >= 0) {
        EXPECT_EQ(0, vxu_loop_add(m->newcomer, VXU_LOOP_EV_READ, record_fd, nullptr));
    }
    m->victim = m->newcomer = -1;
}

TEST(LoopRun, CallbackMayRemoveItselfOrAnotherEntry)
{
    EXPECT_IN_CHILD([] {
        ASSERT_EQ(0, vxu_loop_init(0));
        pair_t a = make_pair(), b = make_pair(), c = make_pair();
        mutate ma, mb;
        ASSERT_EQ(0, vxu_loop_add(a.rd, VXU_LOOP_EV_READ, record_fd, nullptr));
        ASSERT_EQ(0, vxu_loop_add(b.rd, VXU_LOOP_EV_READ, mutate_cb, &mb));
        ASSERT_EQ(0, vxu_loop_add(c.rd, VXU_LOOP_EV_READ, mutate_cb, &ma));
        for (pair_t *p : {&a, &b, &c})
            ASSERT_EQ(1, write(p->wr, "x", 1));

        // Walk order is c, b, a. c removes itself and b, which comes next.
        ma.remove_self = true;
        ma.victim = b.rd;
        EXPECT_EQ(2, vxu_loop_run(0)) << "c and a were dispatched; b was removed first";
        ASSERT_EQ(2u, g_calls.size());
        EXPECT_EQ(c.rd, g_calls[0].fd);
        EXPECT_EQ(a.rd, g_calls[1].fd);

        g_calls.clear();
        EXPECT_EQ(1, vxu_loop_run(0)) << "only a remains";
        ASSERT_EQ(1u, g_calls.size());
        EXPECT_EQ(a.rd, g_calls[0].fd);
        EXPECT_EQ(-1, vxu_loop_remove(b.rd));
        EXPECT_EQ(-1, vxu_loop_remove(c.rd));
    });
}

TEST(LoopRun, EntryAddedByCallbackWaitsForTheNextPass)
{
    EXPECT_IN_CHILD([] {
        ASSERT_EQ(0, vxu_loop_init(0));
        pair_t a = make_pair(), b = make_pair();
        mutate m;
        m.newcomer = b.rd;
        ASSERT_EQ(0, vxu_loop_add(a.rd, VXU_LOOP_EV_READ, mutate_cb, &m));
        ASSERT_EQ(1, write(a.wr, "x", 1));
        ASSERT_EQ(1, write(b.wr, "x", 1));
        EXPECT_EQ(1, vxu_loop_run(0));
        ASSERT_EQ(1u, g_calls.size());
        EXPECT_EQ(2, vxu_loop_run(0)) << "b is watched from the next pass on";
        ASSERT_EQ(3u, g_calls.size());
        EXPECT_EQ(b.rd, g_calls[1].fd) << "and, being newest, comes first";
    });
}

void *write_later(void *arg)
{
    const int fd = *static_cast<int *>(arg);
    vxu_os_wait(0, 300000);
    EXPECT_EQ(1, write(fd, "x", 1));
    vxu_os_wait(0, 200000);
    EXPECT_EQ(1, write(fd, "y", 1));
    return nullptr;
}

TEST(LoopRun, BudgetIsSpentInFull)
{
    EXPECT_IN_CHILD([] {
        ASSERT_EQ(0, vxu_loop_init(0));
        static pair_t p = make_pair();
        ASSERT_EQ(0, vxu_loop_add(p.rd, VXU_LOOP_EV_READ, drain_and_record, nullptr));
        const uint64_t start = vxu_com_get_uptime_ms();
        ASSERT_NE(0u, vxu_thread_create(write_later, &p.wr));
        EXPECT_EQ(2, vxu_loop_run(1000));
        const uint64_t took = elapsed_since(start);
        EXPECT_GE(took, 990u);
        EXPECT_LT(took, 4000u);
        EXPECT_EQ(2u, g_calls.size());
    });
}

void on_signal(int) {}

TEST(LoopRun, InterruptedWaitDoesNotEndTheRun)
{
    EXPECT_IN_CHILD([] {
        ASSERT_EQ(0, vxu_loop_init(0));
        struct sigaction sa = {};
        sa.sa_handler = on_signal;  // without SA_RESTART select fails with EINTR
        ASSERT_EQ(0, sigaction(SIGALRM, &sa, nullptr));
        // One signal 100 ms in. The interrupted wait is retried with the
        // budget it had, so the run lasts at least the whole budget.
        struct itimerval it = {};
        it.it_value.tv_usec = 100000;
        ASSERT_EQ(0, setitimer(ITIMER_REAL, &it, nullptr));
        const uint64_t start = vxu_com_get_uptime_ms();
        EXPECT_EQ(0, vxu_loop_run(600));
        EXPECT_GE(elapsed_since(start), 590u);
    });
}

TEST(LoopRun, BadDescriptorEndsTheRunAndStaysRegistered)
{
    EXPECT_IN_CHILD([] {
        ASSERT_EQ(0, vxu_loop_init(0));
        pair_t p = make_pair();
        ASSERT_EQ(0, vxu_loop_add(p.rd, VXU_LOOP_EV_READ, record_fd, nullptr));
        close(p.rd);
        EXPECT_EQ(-1, vxu_loop_run(0));
        EXPECT_EQ(-1, vxu_loop_run(-1)) << "a run without budget ends only on failure";
        EXPECT_EQ(0, vxu_loop_remove(p.rd));
    });
}

TEST(LoopRun, NegativeBudgetNeverReturnsOnItsOwn)
{
    fflush(stdout);
    const pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        vxu_loop_init(0);
        vxu_loop_run(-1);
        _exit(3);
    }
    vxu_os_wait(1, 500000);
    EXPECT_EQ(0, waitpid(pid, nullptr, WNOHANG)) << "the run returned";
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
}

}  // namespace
