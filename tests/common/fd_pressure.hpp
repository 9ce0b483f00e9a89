// Descriptor pressure for code that must cope when descriptors run out or
// land at 1024 and above, outside a select set. Changes process-wide limits:
// use in forked children only.
#pragma once

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

namespace vxu_test {

// Takes free descriptors until the next one opened would be `first_free`
// or beyond: 1024 puts it outside a select set, 0 leaves none at all (the
// limit drops to 64 first). ok() is false when the limit is too low for it.
class fds_taken {
public:
    explicit fds_taken(int first_free)
    {
        struct rlimit rl;
        getrlimit(RLIMIT_NOFILE, &saved_);
        rl = saved_;
        rl.rlim_cur = first_free == 0 ? 64 : std::max<rlim_t>(rl.rlim_cur, 1100);
        if (rl.rlim_cur > rl.rlim_max || setrlimit(RLIMIT_NOFILE, &rl) != 0)
            return;
        int fd;
        while ((fd = open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0 &&
               (first_free == 0 || fd < first_free))
            taken_.push_back(fd);
        if (fd >= 0)
            close(fd);
        ok_ = first_free != 0 || !socket_still_opens();
    }
    ~fds_taken()
    {
        for (int fd : taken_)
            close(fd);
        setrlimit(RLIMIT_NOFILE, &saved_);
    }
    fds_taken(const fds_taken &) = delete;
    fds_taken &operator=(const fds_taken &) = delete;
    bool ok() const { return ok_; }

private:
    // Memory checkers keep descriptors of their own and may hand them out.
    static bool socket_still_opens()
    {
        int pair[2];
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, pair) != 0)
            return false;
        close(pair[0]);
        close(pair[1]);
        return true;
    }
    struct rlimit saved_;
    std::vector<int> taken_;
    bool ok_ = false;
};

}  // namespace vxu_test
