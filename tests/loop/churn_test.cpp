// The registry kept full while every callback removes one entry and adds
// another, pass after pass: the dispatch must still call exactly the
// entries that were registered when the pass began and are still there,
// newest first, and count exactly their readiness.
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include <vxutil/loop.h>

#include "common/test_support.hpp"
#include "loop/loop_test_util.hpp"

namespace {

constexpr int kCapacity = 20;  // the registry's default
constexpr int kPasses = 100000;
constexpr int kDescriptors = 32;  // readable and writable sockets to register
constexpr int kSets = 12;         // distinct read sets over them

// A registry entry as the test expects the loop to hold it.
struct entry {
    bool is_set;
    int key;  // the descriptor, or the index of the read set
    int events;
    bool operator==(const entry &o) const { return is_set == o.is_set && key == o.key; }
};

class churn {
public:
    churn()
    {
        for (int i = 0; i < kDescriptors; ++i) {
            int pair[2];
            EXPECT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, pair));
            EXPECT_EQ(1, write(pair[1], "x", 1));  // never read: readable on every pass
            fds_.push_back(pair[0]);
            peers_.push_back(pair[1]);
        }
        for (int k = 0; k < kSets; ++k)
            sets_.push_back(loop_test::make_set({fds_[k], fds_[k + 1]}));
    }
    ~churn()
    {
        for (int fd : fds_)
            close(fd);
        for (int fd : peers_)
            close(fd);
    }
    churn(const churn &) = delete;
    churn &operator=(const churn &) = delete;

    void fill()
    {
        while (registry_.size() < kCapacity)
            add_unused();
    }

    // One pass: true when the loop called and counted what the model says.
    bool pass()
    {
        pending_ = registry_;
        counted_ = 0;
        const int count = vxu_loop_run(0);
        return errors_ == 0 && pending_.empty() && count == counted_ &&
               registry_.size() == kCapacity;
    }

    std::string state() const
    {
        return "errors " + std::to_string(errors_) + ", left unvisited " +
               std::to_string(pending_.size()) + ", registered " + std::to_string(registry_.size());
    }

    // Removes every entry the model holds; each must be found.
    void empty_registry()
    {
        while (!registry_.empty())
            remove_entry(registry_.front());
    }

    int errors() const { return errors_; }

private:
    static void on_fd(int fd, int events, void *arg)
    {
        auto *self = static_cast<churn *>(arg);
        self->visit({false, fd, events});
        self->counted_ +=
            (events & VXU_LOOP_EV_READ ? 1 : 0) + (events & VXU_LOOP_EV_WRITE ? 1 : 0);
        self->replace_one();
    }

    static void on_set(fd_set *r, fd_set *, void *arg)
    {
        auto *self = static_cast<churn *>(arg);
        int k = 0;
        while (k < kSets && memcmp(r, &self->sets_[k], sizeof *r) != 0)
            ++k;
        self->visit({true, k, 0});
        self->replace_one();
    }

    // The walk must reach the oldest entry still due in this pass next.
    void visit(const entry &e)
    {
        if (pending_.empty() || !(pending_.front() == e) || pending_.front().events != e.events) {
            ++errors_;
            return;
        }
        pending_.erase(pending_.begin());
    }

    // What every callback does: a full registry refuses both kinds, one
    // entry anywhere (perhaps the caller) goes, a new one comes.
    void replace_one()
    {
        fd_set spare = loop_test::make_set({fds_[kDescriptors - 1]});
        errors_ += vxu_loop_add(unused_fd(), VXU_LOOP_EV_READ, on_fd, this) != -1;
        errors_ += vxu_loop_add_fds(&spare, fds_.back(), nullptr, 0, on_set, this) != -1;
        remove_entry(registry_[pick(registry_.size())]);
        add_unused();
    }

    void remove_entry(entry e)
    {
        const int rc =
            e.is_set ? vxu_loop_remove_fds(&sets_[e.key], nullptr) : vxu_loop_remove(e.key);
        errors_ += rc != 0;
        registry_.erase(std::find(registry_.begin(), registry_.end(), e));
        const auto due = std::find(pending_.begin(), pending_.end(), e);
        if (due != pending_.end())
            pending_.erase(due);
    }

    void add_unused()
    {
        entry e{pick(5) == 0, 0, 0};
        if (e.is_set && !unused_set(&e.key))
            e.is_set = false;
        int rc;
        if (e.is_set) {
            rc = vxu_loop_add_fds(&sets_[e.key], fds_[e.key + 1], nullptr, 0, on_set, this);
        } else {
            e.key = unused_fd();
            e.events = pick(2) ? VXU_LOOP_EV_READ : VXU_LOOP_EV_READ | VXU_LOOP_EV_WRITE;
            rc = vxu_loop_add(e.key, e.events, on_fd, this);
        }
        errors_ += rc != 0;
        registry_.insert(registry_.begin(), e);  // the loop walks newest first
    }

    bool registered(const entry &e) const
    {
        return std::find(registry_.begin(), registry_.end(), e) != registry_.end();
    }

    int unused_fd()
    {
        for (;;) {
            const int fd = fds_[pick(kDescriptors - 1)];
            if (!registered({false, fd, 0}))
                return fd;
        }
    }

    bool unused_set(int *key)
    {
        const int first = pick(kSets);
        for (int i = 0; i < kSets; ++i) {
            *key = (first + i) % kSets;
            if (!registered({true, *key, 0}))
                return true;
        }
        return false;
    }

    int pick(size_t n) { return static_cast<int>(rng_() % n); }

    std::vector<int> fds_, peers_;
    std::vector<fd_set> sets_;
    std::vector<entry> registry_;  // newest first
    std::vector<entry> pending_;   // this pass's walk still to come
    int counted_ = 0;
    int errors_ = 0;
    std::mt19937 rng_{20240611};
};

TEST(LoopChurn, FullRegistryChangedByEveryCallbackForAHundredThousandPasses)
{
    EXPECT_IN_CHILD([] {
        ASSERT_EQ(0, vxu_loop_init(0));
        churn c;
        c.fill();
        for (int pass = 0; pass < kPasses; ++pass)
            ASSERT_TRUE(c.pass()) << "pass " << pass << ": " << c.state();
        c.empty_registry();
        EXPECT_EQ(0, c.errors()) << "an entry of the model was not registered";
        EXPECT_EQ(0, vxu_loop_run(0)) << "nothing left to dispatch";
    });
}

}  // namespace
