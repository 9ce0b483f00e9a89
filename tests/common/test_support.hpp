// Helpers shared by the test suites: forked children, descriptor counts and
// descriptor pressure.
#pragma once

#include <sys/resource.h>
#include <sys/types.h>

#include <stdio.h>

#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace vxu_test {

// Runs body in a forked child (a fresh copy of process-wide state such as
// the loop registry) and returns the child's exit status: 0 when body
// finished without a test failure, 1 when a check failed, 128+N when the
// child died of signal N. A child ends with _exit, which skips
// LeakSanitizer's check at exit, so in sanitizer builds it runs that check
// itself after body.
int run_in_child(const std::function<void()> &body);

// Reports a child's status other than 0 as a failure at file:line.
void expect_child_passed(int status, const char *file, int line);

// Everything left to read on a stream (a file or a popen pipe).
std::string read_stream(FILE *stream);

// Number of descriptors open in a process: this one (pid 0) or another one,
// such as a command a process function started; -1 when it cannot be read
// (no descriptor is free to read /proc with, or the process is gone).
int count_open_fds(pid_t pid = 0);

// A connected Unix stream socket pair, closed on destruction.
struct socket_pair {
    int fd[2] = {-1, -1};
    socket_pair();
    ~socket_pair();
    socket_pair(const socket_pair &) = delete;
    socket_pair &operator=(const socket_pair &) = delete;
};

// Fails the current test when a code block leaks or closes descriptors.
class fd_leak_check {
public:
    fd_leak_check() : before_(count_open_fds())
    {
        EXPECT_GE(before_, 0) << "descriptors cannot be counted: take none before the check";
    }
    ~fd_leak_check() { EXPECT_EQ(count_open_fds(), before_) << "descriptor count changed"; }
    fd_leak_check(const fd_leak_check &) = delete;
    fd_leak_check &operator=(const fd_leak_check &) = delete;

private:
    int before_;
};

// Raises the soft limit on descriptors to at least `limit`; false when the
// hard limit (or valgrind, which keeps the top descriptors) refuses.
bool raise_fd_limit(rlim_t limit);

// Descriptor pressure, for failure injection: how many descriptors stay
// free, or below which number every descriptor is taken. Valgrind cannot
// take part: it refuses to raise the limit, and it enforces a lowered one
// only after the kernel has made the descriptor (a "failed" open has
// created its file) and not for every call (socketpair slips through).
// Tests that use pressure skip with SKIP_UNDER_VALGRIND(kDescriptorLimits).
constexpr const char *kDescriptorLimits = "descriptor limits that hold for every call";
struct leaving_free {
    int count;  // 0: the next socket, pipe, open or timerfd_create fails
};
struct taken_below {
    int fd;  // 1024: the next descriptor lands outside a select set
};

// Holds /dev/null descriptors to create the pressure; on destruction gives
// them back, restores the limit and then checks, like fd_leak_check, that
// the process holds as many descriptors as before. Changes process-wide
// limits: only for forked children. ok() is false when the pressure could
// not be made (a limit refused, or valgrind).
class fds_taken {
public:
    explicit fds_taken(leaving_free free);
    explicit fds_taken(taken_below below);
    ~fds_taken();
    fds_taken(const fds_taken &) = delete;
    fds_taken &operator=(const fds_taken &) = delete;
    bool ok() const { return ok_; }

private:
    int take_one();
    fd_leak_check unchanged_;  // constructed first: counts before any is taken
    struct rlimit saved_;
    std::vector<int> taken_;
    bool ok_ = false;
};

// Runs body in a forked child under each descriptor pressure that leaves a
// socket pair unusable for select: none or one descriptor free (socketpair
// fails), every descriptor below 1024 taken (both ends outside a set), and
// every one below 1023 (the second end alone outside). `what` names the
// pressure; one the machine refuses is passed over with a note. Skips the
// current test under valgrind.
void for_each_pair_pressure(const std::function<void(const char *what)> &body);

// Name of the user-mode emulator the tests run under ("qemu-user"), or null
// on real hardware. The cross-build runner sets VXU_TEST_EMULATOR.
const char *emulator();

// True when the suite runs under valgrind (make test-valgrind sets
// VXU_TEST_UNDER_VALGRIND).
bool under_valgrind();

}  // namespace vxu_test

// Skips the current test under user-mode emulation; what names the facility
// the emulator lacks, e.g. "RLIMIT_AS for the guest".
#define SKIP_UNDER_EMULATION(what)                                                                 \
    do {                                                                                           \
        if (const char *emu_ = ::vxu_test::emulator())                                             \
            GTEST_SKIP() << emu_ << " does not emulate " << (what);                                \
    } while (0)

// Skips the current test under valgrind, which refuses what names: e.g.
// "raising RLIMIT_NOFILE" (it keeps the top descriptors for itself).
#define SKIP_UNDER_VALGRIND(what)                                                                  \
    do {                                                                                           \
        if (::vxu_test::under_valgrind())                                                          \
            GTEST_SKIP() << "valgrind does not allow " << (what);                                  \
    } while (0)

// Runs the lambda through run_in_child. The checks that failed in the child
// were reported there, so the parent names only the outcome.
#define EXPECT_IN_CHILD(...)                                                                       \
    ::vxu_test::expect_child_passed(::vxu_test::run_in_child(__VA_ARGS__), __FILE__, __LINE__)
