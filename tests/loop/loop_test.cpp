// The loop registry and its dispatch against a model. Random adds,
// removes, readiness changes and runs start from an uninitialised loop;
// callbacks change the registry or run the loop again while their pass is
// under way. The model holds the entries newest first and works out what
// each pass must call, in which order and with what.
#include <signal.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <random>
#include <vector>

#include <vxutil/frame.h>
#include <vxutil/loop.h>

#include "common/test_support.hpp"
#include "frame/fake_clock.hpp"

namespace {

struct entry {
    long id;  // the callback's arg
    bool set;
    int fd, events, r, w, rmax, wmax;  // r, w: index into sets_ (0 the empty set), -1 none
};

class model {
public:
    model(unsigned seed, int init_arg) : rng_(seed), init_arg_(init_arg)
    {
        for (int i = 0; i < 10; ++i) {  // sockets, descriptor 0 among them, and pipes
            int p[2];
            EXPECT_EQ(0, i < 7 ? socketpair(AF_UNIX, SOCK_STREAM, 0, p) : pipe(p));
            if (i == 0 && p[0] != 0) {
                EXPECT_EQ(0, dup2(p[0], 0));
                close(p[0]);
                p[0] = 0;
            }
            fds_.push_back(p[0]);
            peers_.push_back(p[1]);
            writable_[p[0]] = i < 7;  // a pipe's read end never is
        }
        sets_.assign(fds_.size() + 1, fd_set{});  // the empty set, then neighbours
        for (size_t k = 1; k < sets_.size(); ++k) {
            FD_SET(fds_[k - 1], &sets_[k]);
            FD_SET(fds_[k % fds_.size()], &sets_[k]);
        }
    }

    void step()
    {
        static const int far[] = {-1, 1024, 1500};
        const int fd = pick(5) ? fds_[pick(fds_.size())] : far[pick(3)];
        switch (pick(12)) {
        case 0: {  // only the first init counts
            const int arg = cap_ ? 3 + pick(2) * 47 : init_arg_;
            cap_ = cap_ ? cap_ : init_arg_ > 0 ? init_arg_ : 20;
            EXPECT_EQ(0, vxu_loop_init(arg));
            return;
        }
        case 1:
            return toggle(fds_[pick(fds_.size())]);
        case 2:
        case 3:
            return run(pick(2) * 2);
        default:
            return change(fd);
        }
    }

    // An add or remove of either kind, with the result the model expects.
    void change(int fd)
    {
        static const int bounds[] = {-1, 0, 3, 8, 1023, 1 << 20}, events[] = {0, 1, 2, 3, 4, 6};
        const int nsets = static_cast<int>(sets_.size());
        entry e{next_id_++,      pick(2) == 0,        fd,
                events[pick(6)], pick(nsets + 1) - 1, pick(nsets + 1) - 1,
                bounds[pick(6)], bounds[pick(6)]};
        fd_set *r = e.r < 0 ? nullptr : &sets_[e.r], *w = e.w < 0 ? nullptr : &sets_[e.w];
        const auto found = e.set ? find_set(e.r, e.w) : find_fd(fd);
        if (pick(3)) {
            const bool cb = pick(10) > 0;
            const bool bad =
                !cap_ || !cb || (e.set ? !r && !w : fd < 0 || fd > 1023 || e.events == 0);
            void *arg = reinterpret_cast<void *>(e.id);
            const int rc = e.set
                               ? vxu_loop_add_fds(r, e.rmax, w, e.wmax, cb ? on_fds : nullptr, arg)
                               : vxu_loop_add(fd, e.events, cb ? on_fd : nullptr, arg);
            ASSERT_EQ(bad                           ? -3
                      : found != reg_.end()         ? -2
                      : reg_.size() >= size_t(cap_) ? -1
                                                    : 0,
                      rc)
                << (e.set ? "add_fds " : "add ") << fd;
            if (rc == 0 && e.set && !r)  // a missing set is stored empty, bound 0
                e.r = e.rmax = 0;
            if (rc == 0 && e.set && !w)
                e.w = e.wmax = 0;
            if (rc == 0)
                reg_.insert(reg_.begin(), e);
            return;
        }
        const bool bad = !cap_ || (e.set ? !r && !w : fd < 0);
        const int rc = e.set ? vxu_loop_remove_fds(r, w) : vxu_loop_remove(fd);
        ASSERT_EQ(bad ? -2 : found == reg_.end() ? -1 : 0, rc) << "remove " << fd;
        if (rc == 0)
            forget(found->id);
    }

    void run(int timeout)
    {
        runs_.push_back({{}, 0, -1, timeout});
        if (timeout == 0)
            begin_pass();
        else
            fake_clock::uptime = tick;
        const int rc = vxu_loop_run(timeout);
        if (timeout == 0)
            end_pass();
        else
            fake_clock::uptime = nullptr;
        EXPECT_EQ(cap_ ? runs_.back().count : -1, rc) << "run " << timeout;
        runs_.pop_back();
    }

    void empty()  // newest first, so that each remove finds the entry meant
    {
        while (!reg_.empty() && !testing::Test::HasFailure()) {
            const entry &e = reg_.front();
            EXPECT_EQ(0, e.set ? vxu_loop_remove_fds(&sets_[e.r], nullptr) : vxu_loop_remove(e.fd));
            forget(e.id);
        }
        EXPECT_EQ(0, vxu_loop_run(0)) << "nothing left to call";
    }

    static inline model *current;

private:
    struct pass_run {
        std::vector<std::pair<long, int>> due;  // still to call in this pass, and with what
        int count;
        long long start;
        int timeout;
    };

    std::vector<entry>::iterator find_fd(int fd)
    {
        return std::find_if(reg_.begin(), reg_.end(),
                            [&](const entry &e) { return !e.set && e.fd == fd; });
    }
    // Matched on the read copy, or else on the write copy.
    std::vector<entry>::iterator find_set(int r, int w)
    {
        return std::find_if(reg_.begin(), reg_.end(), [&](const entry &e) {
            return e.set && ((r >= 0 && same(e.r, r)) || (w >= 0 && same(e.w, w)));
        });
    }
    bool same(int a, int b) { return !memcmp(&sets_[a], &sets_[b], sizeof(fd_set)); }

    void forget(long id)
    {
        auto is = [id](const auto &x) { return x.id == id; };
        reg_.erase(std::find_if(reg_.begin(), reg_.end(), is));
        for (pass_run &run : runs_) {
            auto &due = run.due;
            due.erase(std::remove_if(due.begin(), due.end(),
                                     [id](const auto &d) { return d.first == id; }),
                      due.end());
        }
    }

    void toggle(int fd)
    {
        char c = 1;
        const size_t i = std::find(fds_.begin(), fds_.end(), fd) - fds_.begin();
        ASSERT_EQ(1, readable_[fd] ? read(fd, &c, 1) : write(peers_[i], &c, 1));
        readable_[fd] = !readable_[fd];
    }

    // Whether a set, up to its bound, holds a descriptor that is ready.
    bool any(int set, int bound, const bool *ready)
    {
        for (int fd : fds_) {
            if (bound > 0 && fd <= bound && FD_ISSET(fd, &sets_[set]) && ready[fd])
                return true;
        }
        return false;
    }

    void begin_pass()
    {
        fd_set rd, wr;
        FD_ZERO(&rd);
        FD_ZERO(&wr);
        for (const entry &e : reg_) {
            for (int fd : fds_) {
                if (e.set ? e.rmax > 0 && fd <= e.rmax && FD_ISSET(fd, &sets_[e.r])
                          : fd == e.fd && (e.events & VXU_LOOP_EV_READ))
                    FD_SET(fd, &rd);
                if (e.set ? e.wmax > 0 && fd <= e.wmax && FD_ISSET(fd, &sets_[e.w])
                          : fd == e.fd && (e.events & VXU_LOOP_EV_WRITE))
                    FD_SET(fd, &wr);
            }
        }
        for (const entry &e : reg_) {
            const int ev = e.set ? any(e.r, e.rmax, readable_) || any(e.w, e.wmax, writable_)
                                 : (FD_ISSET(e.fd, &rd) && readable_[e.fd] ? 2 : 0) |
                                       (FD_ISSET(e.fd, &wr) && writable_[e.fd] ? 1 : 0);
            if (ev)
                runs_.back().due.push_back({e.id, ev});
        }
    }
    void end_pass() { EXPECT_TRUE(runs_.back().due.empty()) << "an entry due was not called"; }

    // The run's uptime clock: 1 ms per reading, one reading after each pass.
    static int tick(timespec *ts)
    {
        static long long ms = 5000000;
        pass_run &run = current->runs_.back();
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

    static void on_fd(int fd, int ev, void *arg)
    {
        current->called(long(arg), fd, ev, nullptr, nullptr);
    }
    static void on_fds(fd_set *r, fd_set *w, void *arg)
    {
        current->called(long(arg), -1, 1, r, w);
        FD_ZERO(r);  // the loop's copies: the entry keeps its sets
        FD_ZERO(w);
    }

    void called(long id, int fd, int events, const fd_set *r, const fd_set *w)
    {
        auto &due = runs_.back().due;
        ASSERT_FALSE(due.empty()) << "entry " << id << " called, none due";
        ASSERT_EQ(due.front().first, id) << "called out of turn";
        EXPECT_EQ(due.front().second, events);
        due.erase(due.begin());
        const entry e =
            *std::find_if(reg_.begin(), reg_.end(), [&](auto &x) { return x.id == id; });
        if (e.set) {
            EXPECT_EQ(0, memcmp(r, &sets_[e.r], sizeof *r) | memcmp(w, &sets_[e.w], sizeof *w));
        } else {
            EXPECT_EQ(e.fd, fd);
            runs_.back().count += (events & 1) + (events >> 1 & 1);
        }
        const int what = pick(10);
        if (what < 2) {  // itself, or the newest entry with its read set
            const long gone = e.set ? find_set(e.r, -1)->id : id;
            EXPECT_EQ(0, e.set ? vxu_loop_remove_fds(&sets_[e.r], nullptr) : vxu_loop_remove(fd));
            forget(gone);
        } else if (what < 5) {
            change(pick(5) ? fds_[pick(fds_.size())] : -1);
        } else if (what == 5 && runs_.size() < 3) {
            run(0);
        }
    }

    int pick(size_t n) { return static_cast<int>(rng_() % n); }

    std::mt19937 rng_;
    int init_arg_, cap_ = 0;  // capacity 0: not initialised yet
    long next_id_ = 1;
    std::vector<int> fds_, peers_;
    std::vector<fd_set> sets_;
    bool readable_[1024] = {}, writable_[1024] = {};
    std::vector<entry> reg_;      // newest first
    std::vector<pass_run> runs_;  // the runs under way, innermost last
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

void note(int, int events, void *seen) { static_cast<std::vector<int> *>(seen)->push_back(events); }

TEST(LoopRun, DescriptorsPastTheSetsAreRefusedOrPassedOver)
{
    SKIP_UNDER_VALGRIND("raising RLIMIT_NOFILE");
    EXPECT_IN_CHILD([] {
        ASSERT_TRUE(vxu_test::raise_fd_limit(2048));
        ASSERT_EQ(0, vxu_loop_init(0));
        vxu_test::socket_pair p;  // readable and writable, also as 1023, 1024 and 1500
        ASSERT_EQ(1, write(p.fd[1], "x", 1));
        for (int fd : {1023, 1024, 1500})
            ASSERT_EQ(fd, dup2(p.fd[0], fd));
        std::vector<int> seen;
        EXPECT_EQ(-3, vxu_loop_add(1024, VXU_LOOP_EV_READ, note, &seen));
        EXPECT_EQ(-3, vxu_loop_add(1500, 3, note, &seen));
        EXPECT_EQ(-1, vxu_loop_remove(1500));
        ASSERT_EQ(0, vxu_loop_add(1023, 3, note, &seen));
        fd_set r, w;
        FD_ZERO(&r);
        FD_ZERO(&w);
        FD_SET(1023, &r);
        FD_SET(p.fd[0], &w);
        int set_calls = 0;
        auto count = [](fd_set *, fd_set *, void *n) { ++*static_cast<int *>(n); };
        ASSERT_EQ(0, vxu_loop_add_fds(&r, 1500, &w, 1 << 20, count, &set_calls));
        EXPECT_EQ(2, vxu_loop_run(0));
        EXPECT_EQ(std::vector<int>{3}, seen);
        EXPECT_EQ(1, set_calls);
    });
}

TEST(LoopRun, SignalsBudgetsAndBadDescriptors)
{
    EXPECT_IN_CHILD([] {
        ASSERT_EQ(0, vxu_loop_init(0));
        struct sigaction sa = {};
        sa.sa_handler = [](int) {};  // no SA_RESTART: select fails with EINTR
        ASSERT_EQ(0, sigaction(SIGALRM, &sa, nullptr));
        const uint64_t start = vxu_com_get_uptime_ms();
        itimerval it = {};
        it.it_value.tv_usec = 100000;
        ASSERT_EQ(0, setitimer(ITIMER_REAL, &it, nullptr));
        // The interrupted wait is retried with the budget it had left.
        ASSERT_EQ(0, vxu_loop_run(250));
        EXPECT_GE(vxu_com_get_uptime_ms() - start, 340u);
        EXPECT_LT(vxu_com_get_uptime_ms() - start, 5000u);

        // Without a budget only a failed wait ends the run: here on the
        // descriptor its callback closes in the fifth pass. The entry stays.
        vxu_test::socket_pair p;
        ASSERT_EQ(1, write(p.fd[1], "x", 1));
        int passes = 0;
        const int fd = dup(p.fd[0]);
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

}  // namespace
