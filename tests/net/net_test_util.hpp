// Helpers for the networking tests: private network namespaces, the `ip`
// tool, captured standard output and scratch paths.
#pragma once

#include <functional>
#include <string>

#include <gtest/gtest.h>

namespace vxu_net_test {

// Exit status of a child that could not set up what its test needs.
constexpr int kSkipStatus = 77;

// Runs body in a forked child inside a new network namespace whose
// loopback is up (with private_mounts also a private mount namespace, for
// bind mounts over /etc files). Returns 0 when body passed, 1 on a failed
// check, kSkipStatus when the machine refused the setup.
int run_in_netns(const std::function<void()> &body, bool private_mounts = false);

// From inside run_in_netns: explains why on stderr and ends the child as
// skipped.
[[noreturn]] void skip_child(const std::string &why);

// Runs a shell command; true when it exited 0.
bool shell(const std::string &command);
// Standard output of a shell command.
std::string shell_output(const std::string &command);

// Creates or replaces a regular file holding text.
void write_file(const std::string &path, const std::string &text = "");

// Redirects standard output into a temporary file until finish().
class stdout_capture {
public:
    stdout_capture();
    ~stdout_capture();
    std::string finish();

private:
    int saved_ = -1;
    int file_ = -1;
};

// A fresh directory under /tmp, removed with its contents on destruction.
class scratch_dir {
public:
    scratch_dir();
    ~scratch_dir();
    const std::string &path() const { return path_; }
    // path()/name padded with 'x' characters to exactly length bytes.
    std::string path_of_length(size_t length) const;

private:
    std::string path_;
};

}  // namespace vxu_net_test

#define EXPECT_IN_NETNS(...)                                                                       \
    do {                                                                                           \
        const int netns_status_ = ::vxu_net_test::run_in_netns(__VA_ARGS__);                       \
        if (netns_status_ == ::vxu_net_test::kSkipStatus)                                          \
            GTEST_SKIP() << "this machine refused a private network namespace or its setup "       \
                            "(the child's reason is on stderr)";                                   \
        EXPECT_EQ(0, netns_status_);                                                               \
    } while (0)
