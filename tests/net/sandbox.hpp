// A private network and mount namespace for the networking tests.
#pragma once

#include <errno.h>
#include <sched.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mount.h>
#include <unistd.h>

#include <functional>
#include <string>

#include "common/test_support.hpp"

namespace vxu_net_test {

constexpr int kSkipStatus = 77;

// From inside the sandbox: says why on stderr and ends the child as skipped.
[[noreturn]] inline void skip_child(const std::string &why)
{
    fprintf(stderr, "SKIPPED: %s\n", why.c_str());
    _exit(kSkipStatus);
}

inline bool shell(const std::string &command) { return system(command.c_str()) == 0; }

// Runs body in a forked child with its own network namespace (loopback up)
// and mount namespace with a fresh /tmp and /sys: tests use fixed ports,
// paths and interface names, and all they make goes away with the child.
inline int run_in_sandbox(const std::function<void()> &body)
{
    return vxu_test::run_in_child([&] {
        if (unshare(CLONE_NEWNET | CLONE_NEWNS) != 0 ||
            mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("tmpfs", "/tmp", "tmpfs", 0, nullptr) != 0 ||
            mount("sysfs", "/sys", "sysfs", 0, nullptr) != 0)
            skip_child(std::string("namespaces: ") + strerror(errno));
        if (!shell("ip link set lo up"))
            skip_child("cannot bring up loopback with `ip` (iproute2 missing?)");
        body();
    });
}

}  // namespace vxu_net_test

#define EXPECT_IN_SANDBOX(...)                                                                     \
    do {                                                                                           \
        const int sandbox_status_ = ::vxu_net_test::run_in_sandbox(__VA_ARGS__);                   \
        if (sandbox_status_ == ::vxu_net_test::kSkipStatus)                                        \
            GTEST_SKIP() << "the machine refused a private namespace (reason on stderr)";          \
        ::vxu_test::expect_child_passed(sandbox_status_, __FILE__, __LINE__);                      \
    } while (0)
