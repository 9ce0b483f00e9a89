// The loop registry and its dispatch against a model. Random adds,
// removes, readiness changes and runs start from an uninitialised loop;
// callbacks change the registry or run the loop again while their pass is
// under way. The model holds the entries newest first and works out what
// each pass must call, in which order and with what.
#include <setjmp.h>
#include <signal.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <random>

#include <vxutil/frame.h>
#include <vxutil/loop.h>

#include "common/test_support.hpp"
#include "frame/fake_clock.hpp"

namespace {

struct entry {
    long id;  // the callback's arg
    bool set;
    int fd, events, r, w, rmax, wmax;  // r, w: index into the sets (0 the empty one), -1 none
};

struct run_state {
    std::vector<entry> due;  // what the pass still has to call, with the events it gets
    int count, timeout;
    long long start;
};

struct model {
    std::mt19937 rng;
    int init_arg, cap = 0;  // capacity 0: not initialised yet
    long next_id = 1;
    std::vector<int> fds, peers;
    std::vector<fd_set> sets;
    bool readable[1024] = {}, writable[1024] = {};
    std::vector<entry> reg;       // newest first
    std::vector<run_state> runs;  // the runs under way, innermost last
    static inline model *current;

    model(unsigned seed, int arg) : rng(seed), init_arg(arg)
    {
        for (int i = 0; i < 11; ++i) {  // sockets, descriptors 0 and 1023 among them, and pipes
            int p[2];
            EXPECT_EQ(0, i < 8 ? socketpair(AF_UNIX, SOCK_STREAM, 0, p) : pipe(p));
            const int to = i == 0 ? 0 : i == 1 ? 1023 : p[0];
            if (to != p[0] && dup2(p[0], to) == to)  // no 1023 under valgrind
                close(p[0]), p[0] = to;
            fds.push_back(p[0]), peers.push_back(p[1]), writable[p[0]] = i < 8;
        }
        const size_t n = fds.size();
        sets.assign(2 * n + 1, fd_set{});  // the empty set, neighbours, single descriptors
        for (size_t k = 1; k <= 2 * n; ++k)
            FD_SET(fds[(k - 1) % n], &sets[k]), FD_SET(fds[k <= n ? k % n : k - n - 1], &sets[k]);
    }

    int pick(size_t n) { return static_cast<int>(rng() % n); }

    void step()
    {
        static const int far[] = {-1, 1024, 1500};
        const int what = pick(12), i = pick(fds.size()), fd = pick(10) ? fds[i] : far[pick(3)];
        char c = 1;
        if (what == 0) {  // only the first init counts
            EXPECT_EQ(0, vxu_loop_init(cap ? 3 + pick(2) * 47 : init_arg));
            cap = cap ? cap : init_arg > 0 ? init_arg : 20;
        } else if (what == 1) {  // make a descriptor readable, or read it empty
            ASSERT_EQ(1, readable[fds[i]] ? read(fds[i], &c, 1) : write(peers[i], &c, 1));
            readable[fds[i]] = !readable[fds[i]];
        } else if (what < 4) {
            run(pick(2) * 2);
        } else {
            change(fd);
        }
    }

    // The finder: a descriptor's entry, or the newest set entry whose read
    // copy, or else write copy, is the set given (the sets differ).
    std::vector<entry>::iterator find(bool set, int fd, int r, int w)
    {
        return std::find_if(reg.begin(), reg.end(), [&](const entry &e) {
            return e.set == set && (set ? e.r == r || e.w == w : e.fd == fd);
        });
    }

    void change(int fd)  // an add or remove of either kind, with the result expected
    {
        static const int bounds[] = {-1, 0, 3, 8, 1023, 1 << 20}, events[] = {0, 1, 2, 3, 4, 6};
        const int n = static_cast<int>(sets.size()) + 1;
        entry e{next_id++,       pick(2) == 0,   fd, events[pick(6)], pick(n) - 1, pick(n) - 1,
                bounds[pick(6)], bounds[pick(6)]};
        fd_set *r = e.r < 0 ? nullptr : &sets[e.r], *w = e.w < 0 ? nullptr : &sets[e.w];
        const auto found = find(e.set, fd, e.r, e.w);
        const bool cb = pick(20) > 0;
        if (pick(4) == 0) {
            const int rc = e.set ? vxu_loop_remove_fds(r, w) : vxu_loop_remove(fd);
            const bool bad = !cap || (e.set ? !r && !w : fd < 0);
            ASSERT_EQ(bad ? -2 : found == reg.end() ? -1 : 0, rc) << "remove " << fd;
            if (rc == 0)
                forget(found->id);
            return;
        }
        void *arg = reinterpret_cast<void *>(e.id);
        const int rc = e.set ? vxu_loop_add_fds(r, e.rmax, w, e.wmax, cb ? on_fds : nullptr, arg)
                             : vxu_loop_add(fd, e.events, cb ? on_fd : nullptr, arg);
        const bool bad = !cap || !cb || (e.set ? !r && !w : fd < 0 || fd > 1023 || !e.events);
        const int full = static_cast<int>(reg.size()) >= cap;
        ASSERT_EQ(bad ? -3 : found != reg.end() ? -2 : -full, rc) << "add " << fd << " " << e.set;
        if (rc == 0)  // a missing set is stored empty, with bound 0
            reg.insert(reg.begin(), {e.id, e.set, fd, e.events, r ? e.r : 0, w ? e.w : 0,
                                     r ? e.rmax : 0, w ? e.wmax : 0});
    }

    void forget(long id)
    {
        auto is = [id](const entry &e) { return e.id == id; };
        reg.erase(std::find_if(reg.begin(), reg.end(), is));
        for (run_state &run : runs)
            run.due.erase(std::remove_if(run.due.begin(), run.due.end(), is), run.due.end());
    }

    void run(int timeout)
    {
        runs.push_back({{}, 0, timeout, -1});
        if (timeout == 0)
            begin_pass();
        else
            fake_clock::uptime = tick;
        const int rc = vxu_loop_run(timeout);
        if (timeout == 0)
            end_pass();
        fake_clock::uptime = runs.size() > 1 ? fake_clock::uptime : nullptr;
        EXPECT_EQ(cap ? runs.back().count : -1, rc) << "run " << timeout;
        runs.pop_back();
    }

    // An entry watches a descriptor of its sets up to a bound above 0.
    bool watches(const entry &e, int fd, bool wr)
    {
        if (!e.set)
            return fd == e.fd && (e.events & (wr ? VXU_LOOP_EV_WRITE : VXU_LOOP_EV_READ));
        const int bound = wr ? e.wmax : e.rmax;
        return bound > 0 && fd <= bound && FD_ISSET(fd, &sets[wr ? e.w : e.r]);
    }

    // A descriptor's entry gets what is ready of what any entry watches; a
    // set entry is called when something it watches is ready.
    void begin_pass()
    {
        for (entry due : reg) {
            due.events = 0;
            for (int fd : fds) {
                for (bool wr : {false, true}) {
                    auto watched = [&](const entry &o) { return watches(o, fd, wr); };
                    if ((wr ? writable[fd] : readable[fd]) &&
                        (due.set ? watched(due)
                                 : fd == due.fd && std::any_of(reg.begin(), reg.end(), watched)))
                        due.events |= wr || due.set ? 1 : 2;
                }
            }
            if (due.events)
                runs.back().due.push_back(due);
        }
    }
    void end_pass() { EXPECT_TRUE(runs.back().due.empty()) << "an entry due was not called"; }

    // The run's uptime clock: 1 ms per reading, one reading after each pass.
    static int tick(timespec *ts)
    {
        static long long ms = 5000000;
        run_state &run = current->runs.back();
        if (run.start >= 0)
            current->end_pass();
        else
            run.start = ms;
        if (ms - run.start < run.timeout)
            current->begin_pass();
        ts->tv_sec = ms / 1000;
        ts->tv_nsec = ms++ % 1000 * 1000000;
        return 0;
    }

    static void on_fd(int fd, int ev, void *arg) { current->called(long(arg), fd, ev); }
    static void on_fds(fd_set *r, fd_set *w, void *arg)
    {
        current->called(long(arg), -1, 1, r, w);
        FD_ZERO(r);  // the loop's copies: the entry keeps its sets
        FD_ZERO(w);
    }

    void called(long id, int fd, int events, const fd_set *r = nullptr, const fd_set *w = nullptr)
    {
        auto &due = runs.back().due;
        ASSERT_TRUE(!due.empty() && due.front().id == id) << "entry " << id << " out of turn";
        const entry e = due.front();
        due.erase(due.begin());
        EXPECT_EQ(e.events, events);
        if (e.set)
            EXPECT_EQ(0, memcmp(r, &sets[e.r], sizeof *r) | memcmp(w, &sets[e.w], sizeof *w));
        else
            EXPECT_EQ(e.fd, fd);
        runs.back().count += e.set ? 0 : (events & 1) + (events >> 1);
        const int what = pick(10);
        if (what < 2) {  // itself, or the newest set entry with its read set
            EXPECT_EQ(0, e.set ? vxu_loop_remove_fds(&sets[e.r], nullptr) : vxu_loop_remove(fd));
            forget(e.set ? find(true, 0, e.r, -1)->id : id);
        } else if (what < 5) {
            change(pick(5) ? fds[pick(fds.size())] : -1);
        } else if (what == 5 && runs.size() < 3) {
            run(0);
        }
    }

    void empty()  // newest first, so that each remove finds the entry meant
    {
        while (!reg.empty() && !testing::Test::HasFailure()) {
            const entry e = reg.front();
            EXPECT_EQ(0, e.set ? vxu_loop_remove_fds(&sets[e.r], nullptr) : vxu_loop_remove(e.fd));
            forget(e.id);
        }
        EXPECT_EQ(0, vxu_loop_run(0)) << "nothing left to call";
    }
};

TEST(LoopModel, RandomOperationsMatchTheModel)
{
    for (int init_arg : {0, -1, 6}) {
        EXPECT_IN_CHILD([init_arg] {
            const unsigned seed = 4242 + init_arg;
            model m(seed, init_arg);
            model::current = &m;
            for (int step = 0; step < 4000 && !testing::Test::HasFailure(); ++step) {
                SCOPED_TRACE(testing::Message() << "seed " << seed << ", step " << step);
                m.step();
            }
            m.empty();
        });
    }
}

TEST(LoopRun, SignalsBudgetsAndBadDescriptors)
{
    EXPECT_IN_CHILD([] {
        ASSERT_EQ(0, vxu_loop_init(0));
        struct sigaction sa = {};
        sa.sa_handler = [](int) {};  // no SA_RESTART: select fails with EINTR
        ASSERT_EQ(0, sigaction(SIGALRM, &sa, nullptr));
        const uint64_t start = vxu_com_get_uptime_ms();
        ualarm(100000, 0);
        // The interrupted wait is retried with the budget it had left.
        ASSERT_EQ(0, vxu_loop_run(250));
        EXPECT_GE(vxu_com_get_uptime_ms() - start, 340u);
        EXPECT_LT(vxu_com_get_uptime_ms() - start, 5000u);

        // Without a budget only a failed wait ends the run: here on the
        // descriptor its callback closes in the fifth pass. The entry stays.
        vxu_test::socket_pair p;
        int passes = 0;
        const int fd = dup(p.fd[0]);
        ASSERT_EQ(1, write(p.fd[1], "x", 1));
        auto fifth_closes = [](int f, int, void *n) {
            if (++*static_cast<int *>(n) == 5)
                close(f);
        };
        ASSERT_EQ(0, vxu_loop_add(fd, VXU_LOOP_EV_READ, fifth_closes, &passes));
        EXPECT_EQ(-1, vxu_loop_run(-1));
        EXPECT_EQ(5, passes);
        EXPECT_EQ(-1, vxu_loop_run(0));
        EXPECT_EQ(0, vxu_loop_remove(fd));
        EXPECT_EQ(0, vxu_loop_run(0));
    });
}

sigjmp_buf g_jump;

void leave_by_longjmp(int, int, void *) { siglongjmp(g_jump, 1); }

void count_and_drain(int fd, int, void *hits)
{
    char c;
    EXPECT_EQ(1, read(fd, &c, 1));
    ++*static_cast<int *>(hits);
}

// Overwrites the stack below the caller, where an abandoned run's frames were.
__attribute__((noinline)) void scribble_stack()
{
    volatile char junk[8192];
    for (size_t i = 0; i < sizeof junk; ++i)
        junk[i] = static_cast<char>(0xa5);
}

// A callback that leaves the run with siglongjmp, as signal-driven daemons
// do, leaves no pointer into the abandoned stack behind.
TEST(Loop, CallbackLeavingByLongjmpLeavesNothingDangling)
{
    EXPECT_IN_CHILD([] {
        ASSERT_EQ(0, vxu_loop_init(0));
        vxu_test::socket_pair jumper, counted;
        ASSERT_EQ(1, write(jumper.fd[1], "x", 1));
        ASSERT_EQ(1, write(counted.fd[1], "x", 1));
        int hits = 0;
        EXPECT_NE(0, vxu_loop_remove(-1));  // binds the call: lazy binding would use the stack
        ASSERT_EQ(0, vxu_loop_add(counted.fd[0], VXU_LOOP_EV_READ, count_and_drain, &hits));
        ASSERT_EQ(0, vxu_loop_add(jumper.fd[0], VXU_LOOP_EV_READ, leave_by_longjmp, nullptr));
        if (sigsetjmp(g_jump, 0) == 0) {
            vxu_loop_run(0);  // newest first: the jumper leaves before `counted`
            FAIL() << "the callback did not leave the run";
        }
        scribble_stack();
        // The abandoned walk was about to visit `counted`: removing it must
        // not write through the dead frame, and later runs work.
        EXPECT_EQ(0, vxu_loop_remove(jumper.fd[0]));
        EXPECT_EQ(0, vxu_loop_remove(counted.fd[0]));
        ASSERT_EQ(0, vxu_loop_add(counted.fd[0], VXU_LOOP_EV_READ, count_and_drain, &hits));
        EXPECT_EQ(1, vxu_loop_run(0));
        EXPECT_EQ(1, hits);
    });
}

}  // namespace
