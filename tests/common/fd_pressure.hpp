// Descriptor pressure for tests of code that must cope when descriptors run
// out or land at 1024 and beyond (outside a select set). Use in a forked
// child: both change process-wide limits and descriptor numbers.
#pragma once

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <vector>

namespace vxu_test {

// Takes every free descriptor below 1024, so the next one opened lands at
// 1024 or above. ok() is false when the descriptor limit cannot be raised.
class low_fds_taken {
public:
    low_fds_taken()
    {
        struct rlimit rl;
        if (getrlimit(RLIMIT_NOFILE, &rl) != 0)
            return;
        if (rl.rlim_cur < kNeeded && rl.rlim_max >= kNeeded) {
            rl.rlim_cur = kNeeded;
            setrlimit(RLIMIT_NOFILE, &rl);
        }
        if (getrlimit(RLIMIT_NOFILE, &rl) != 0 || rl.rlim_cur < kNeeded)
            return;
        for (;;) {
            const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
            if (fd < 0)
                return;
            if (fd >= 1024) {
                close(fd);
                ok_ = true;
                return;
            }
            taken_.push_back(fd);
        }
    }
    ~low_fds_taken()
    {
        for (int fd : taken_)
            close(fd);
    }
    low_fds_taken(const low_fds_taken &) = delete;
    low_fds_taken &operator=(const low_fds_taken &) = delete;
    bool ok() const { return ok_; }

private:
    static constexpr rlim_t kNeeded = 1100;
    std::vector<int> taken_;
    bool ok_ = false;
};

// Leaves no descriptor free: opening anything fails with EMFILE until the
// object is destroyed.
class no_fds_left {
public:
    no_fds_left()
    {
        getrlimit(RLIMIT_NOFILE, &saved_);
        struct rlimit low = saved_;
        low.rlim_cur = kLimit;  // few to fill; descriptors above stay open
        setrlimit(RLIMIT_NOFILE, &low);
        for (int fd; (fd = open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0;)
            taken_.push_back(fd);
    }
    ~no_fds_left()
    {
        for (int fd : taken_)
            close(fd);
        setrlimit(RLIMIT_NOFILE, &saved_);
    }
    no_fds_left(const no_fds_left &) = delete;
    no_fds_left &operator=(const no_fds_left &) = delete;

private:
    static constexpr rlim_t kLimit = 64;
    struct rlimit saved_;
    std::vector<int> taken_;
};

}  // namespace vxu_test
