// Helpers shared by the test suites.
#pragma once

#include <functional>

#include <gtest/gtest.h>

namespace vxu_test {

// Runs body in a forked child (a fresh copy of process-wide state such as
// the loop registry) and returns the child's exit status: 0 when body
// finished without a test failure, 1 when a check failed, 128+N when the
// child died of signal N.
int run_in_child(const std::function<void()> &body);

// Number of descriptors this process has open (entries of /proc/self/fd).
int count_open_fds();

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
    fd_leak_check() : before_(count_open_fds()) {}
    ~fd_leak_check() { EXPECT_EQ(count_open_fds(), before_) << "descriptor count changed"; }

private:
    int before_;
};

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

#define EXPECT_IN_CHILD(...) EXPECT_EQ(0, ::vxu_test::run_in_child(__VA_ARGS__))
